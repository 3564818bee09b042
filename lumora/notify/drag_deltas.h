// Undo records of interactive drags: a key moved in time and value, a block
// of keys moved by one offset, and one side of a key's tangent moved.
//
//   curve.beginMod();
//   curve.dragTangent(0, 1.0f, 2.0f, /*inSide=*/false);   // records a TPCDdragTan
//   std::unique_ptr<Tdelta> undo(curve.endMod());
//   undo->undo();                                         // the old vector and type
//
// Consecutive drags of one key merge into one TPCDdragKey when they are
// gathered (see TparamCurveDeltaComp::merge); tangent drags never merge.
//
// Things that surprise people:
//  * The drag records that a curve's own moves make while it records share
//    the full states of the keys those moves changed. When the last of them
//    is undone, every key goes back to its state from before the first
//    move, bit for bit and in one pass; when the last is redone, to its
//    state after the last move. A record made by hand replays its own
//    times and values through TparamCurve::moveForDeltaUndoRedo.
//  * Replaying a drag lets keys pass each other, whatever option the drag
//    used: keys go back one at a time, and one may have to pass a key that
//    has not gone back yet.
#pragma once

#include <memory>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/param_curve_delta.h"

namespace lumora {

class TkeyframeHandle;

namespace internal {
class TmoveJournal;
}

// Records of these classes; null while the module is stopped.
extern LUMORA_API Tmetaclass* TPCDdragKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDdragSegmentTmeta;
extern LUMORA_API Tmetaclass* TPCDdragTanTmeta;

/// One key dragged from (oldTime, oldValue, oldW) to (newTime, newValue,
/// newW). The handle names the key and is owned by the delta.
///
/// Undo and redo put the handle's key, when it is in this delta's curve, to
/// the recorded time, value and quaternion W (moveForDeltaUndoRedo). A key
/// that passes a neighbour is re-sorted as the same object, so handles to it
/// stay valid. A null handle makes undo and redo do nothing. Records that
/// share a move journal put the journal's states back instead (see above).
///
/// `dictionaryMove` is the dictionary-move flag of the move that made the
/// record: such records are appended to the gathered delta whole, never
/// merged into an earlier drag.
class LUMORA_API TPCDdragKey : public TparamCurveDelta {
 public:
  TPCDdragKey(TparamCurve* curve, TkeyframeHandle* handle, const TtimeValue& oldTime,
              const TtimeValue& newTime, double oldValue, double newValue, double oldW, double newW,
              int moveOption, bool dictionaryMove = false);
  ~TPCDdragKey() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  TkeyframeHandle* handle() const { return fHandle; }
  const TtimeValue& oldTime() const { return fOldTime; }
  const TtimeValue& newTime() const { return fNewTime; }
  double oldValue() const { return fOldValue; }
  double newValue() const { return fNewValue; }
  double oldW() const { return fOldW; }
  double newW() const { return fNewW; }
  int moveOption() const { return fMoveOption; }
  bool dictionaryMove() const { return fDictionaryMove; }
  /// Replaces the start of the drag (used when an earlier drag is merged in).
  void setOldState(const TtimeValue& time, double value, double w);
  /// Replaces the end of the drag and its option (used when the drag goes on).
  void setNewState(const TtimeValue& time, double value, double w, int moveOption);
  /// Joins the group of records that share `journal` (the curve's moves do).
  void setJournal(std::shared_ptr<internal::TmoveJournal> journal);
  /// The group's journal, or null; drags merge only within one group.
  const internal::TmoveJournal* journal() const { return fJournal.get(); }

 private:
  void apply(const TtimeValue& time, double value, double w);

  std::shared_ptr<internal::TmoveJournal> fJournal;
  bool fDictionaryMove = false;

  TtimeValue fOldTime;
  TtimeValue fNewTime;
  double fOldValue;
  double fNewValue;
  double fOldW;
  double fNewW;
  int fMoveOption;
  TkeyframeHandle* fHandle;
};

/// A block of keys moved by one time and value offset.
///
/// Undo moves the keys by -timeOffset and -valueOffset, measured from where
/// they are then; redo by +timeOffset and +valueOffset. The keys may pass
/// other keys on the way (the recorded option is used as it is; the default,
/// kMovePassRelative, passes). Keys that left the curve are skipped. The
/// curve's open move edit, if any, is left as it is.
class LUMORA_API TPCDdragSegment : public TparamCurveDelta {
 public:
  /// Takes ownership of the handles.
  TPCDdragSegment(TparamCurve* curve, TkeyframeHandlePtrArray handles, const TtimeValue& timeOffset,
                  double valueOffset, int moveOption = TparamCurve::kMovePassRelative,
                  bool moveBreakdowns = true);
  ~TPCDdragSegment() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  const TkeyframeHandlePtrArray& handles() const { return fHandles; }
  const TtimeValue& timeOffset() const { return fTimeOffset; }
  double valueOffset() const { return fValueOffset; }
  int moveOption() const { return fMoveOption; }
  bool moveBreakdowns() const { return fMoveBreakdowns; }

 private:
  void apply(bool forward);

  TkeyframeHandlePtrArray fHandles;
  TtimeValue fTimeOffset;
  double fValueOffset;
  int fMoveOption;
  bool fMoveBreakdowns;
};

/// One side's tangent of key `index` changed (its vector, its type or both).
///
/// Undo and redo replay the change as a tangent drag to the recorded vector
/// followed, when the types differ, by setting the recorded type. The vector
/// is written even on the in side of a key that starts a linear span, where
/// dragTangent itself refuses, and a vector recorded from a key comes back bit
/// for bit. A key index out of range makes them do nothing.
class LUMORA_API TPCDdragTan : public TparamCurveDelta {
 public:
  TPCDdragTan(TparamCurve* curve, unsigned index, bool inSide, TtangentType oldType,
              TtangentType newType, float oldX, float oldY, float newX, float newY);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool inSide() const { return fInSide; }
  unsigned index() const { return fIndex; }

 private:
  /// Puts the side to (x, y) and `type`.
  void apply(TtangentType type, float x, float y);
  /// Writes (x, y) to the side as a drag does, also where a drag is refused.
  void replayDrag(float x, float y);

  bool fInSide;
  unsigned fIndex;
  TtangentType fOldType = kTangentSpline;
  TtangentType fNewType = kTangentSpline;
  float fOldX = 0.0f;
  float fNewX = 0.0f;
  float fOldY = 1.0f;
  float fNewY = 1.0f;
};

}  // namespace lumora

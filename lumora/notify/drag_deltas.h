// Undo records of interactive drags: a key moved in time and value, and one
// side of a key's tangent moved.
//
//   curve.beginMod();
//   curve.dragTangent(0, 1.0f, 2.0f, /*inSide=*/false);   // records a TPCDdragTan
//   std::unique_ptr<Tdelta> undo(curve.endMod());
//   undo->undo();                                         // the old vector and type
//
// Consecutive drags of one key merge into one TPCDdragKey when they are
// gathered (see TparamCurveDeltaComp::merge); tangent drags never merge.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/param_curve_delta.h"

namespace lumora {

class TkeyframeHandle;

// Records of these classes; null while the module is stopped.
extern LUMORA_API Tmetaclass* TPCDdragKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDdragTanTmeta;

/// One key dragged from (oldTime, oldValue, oldW) to (newTime, newValue,
/// newW). The handle names the key and is owned by the delta.
///
/// Undo and redo put the handle's key, when it is in this delta's curve, to
/// the recorded time, value and quaternion W. A key that passes a neighbour
/// is re-sorted as the same object, so handles to it stay valid. A null
/// handle makes undo and redo do nothing.
class LUMORA_API TPCDdragKey : public TparamCurveDelta {
 public:
  TPCDdragKey(TparamCurve* curve, TkeyframeHandle* handle, const TtimeValue& oldTime,
              const TtimeValue& newTime, double oldValue, double newValue, double oldW, double newW,
              int moveOption);
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
  /// Replaces the start of the drag (used when an earlier drag is merged in).
  void setOldState(const TtimeValue& time, double value, double w);

 private:
  void apply(const TtimeValue& time, double value, double w);

  TtimeValue fOldTime;
  TtimeValue fNewTime;
  double fOldValue;
  double fNewValue;
  double fOldW;
  double fNewW;
  int fMoveOption;
  TkeyframeHandle* fHandle;
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

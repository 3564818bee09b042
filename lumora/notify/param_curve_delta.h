// Undo records of curve edits.
//
// While a curve is in modification every edit hands it one delta that can
// undo and redo exactly that edit; the curve gathers them (TparamCurve's
// private addDelta) into one TparamCurveDeltaComp. A host brackets a user
// action with a TparamCurveDeltaUser, which collects the deltas of every curve
// the action touched and is undone and redone as a whole:
//
//   TparamCurveDeltaUser action;
//   action.beginParamCurveMod(curve);
//   curve.setPostInfinityType(TparamCurve::kCycle);   // records a TPCDinfinityType
//   curve.dragTangent(0, 1.0f, 2.0f, /*inSide=*/false);
//   action.endParamCurveMod(curve);                   // true: something was recorded
//   action.undoPC();                                  // tangent, then infinity, put back
//   action.redoPC();
//
// Things that surprise people:
//  * Undo and redo go through the curve's ordinary editing operations, so
//    they send the usual messages and, if the curve happens to be in
//    modification at the time, are recorded again.
//  * Deltas own the key objects that are outside the curve: a removed key is
//    kept (not copied) so that handles made before the removal become valid
//    again when the removal is undone. Ownership is stated per kind below.
//  * Consecutive drags of one key within one action merge into one
//    TPCDdragKey at the end of the list; no other kind ever merges.
//  * Run-time type tests use the records below; before the module has made
//    them (or after it has destroyed them) no type test succeeds, so nothing
//    merges and composites nest instead of flattening.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/sorted_array.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/delta.h"

namespace lumora {

class TanimTimeArray;
class TdoubleArray;
class TkeyframeHandle;

// Records of the curve delta classes; null while the module is stopped.
// (TdeltaTmeta and TdeltaCompositeTmeta are declared in delta.h.)
extern LUMORA_API Tmetaclass* TparamCurveDeltaTmeta;
extern LUMORA_API Tmetaclass* TPCDinfinityTypeTmeta;
extern LUMORA_API Tmetaclass* TPCDblockAddRemoveKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDaddRemoveKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDinsertKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDdragKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDdragTanTmeta;
extern LUMORA_API Tmetaclass* TPCDcurveDeltaTmeta;
extern LUMORA_API Tmetaclass* TPCDweightedTangentsTmeta;
extern LUMORA_API Tmetaclass* TPCDrotationInterpolationTmeta;
extern LUMORA_API Tmetaclass* TparamCurveDeltaCompTmeta;

/// True when `delta` is not null and its class is `record` or derives from it.
LUMORA_API bool isDeltaOfType(const Tdelta* delta, const Tmetaclass* record);

/// The base of every curve delta: the curve it edits (also its Tdelta user)
/// and an optional subject key used by some kinds.
///
/// A delta whose curve is null does nothing when undone or redone (it still
/// changes its undone mark). The curve is not owned and must outlive the
/// delta's undo and redo calls.
class LUMORA_API TparamCurveDelta : public Tdelta {
 public:
  // --- Construction ----------------------------------------------------------------------

  explicit TparamCurveDelta(TparamCurve* curve);
  ~TparamCurveDelta() override;

  // --- Type ------------------------------------------------------------------------------

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;

  // --- Undo and redo ---------------------------------------------------------------------

  void undo() override = 0;
  void redo() override = 0;
  /// Sets the key some kinds act on (not owned).
  virtual void setSubjectKey(Tkeyframe* key);

  // --- Access ----------------------------------------------------------------------------

  TparamCurve* curve() const { return fCurve; }
  Tkeyframe* subjectKey() const { return fSubjectKey; }

 protected:
  // --- Curve access for the kinds --------------------------------------------------------

  /// The index of the object `key` in `curve`, found by its time and checked
  /// by identity; kInvalidIndex when that object is not in the curve.
  static unsigned indexOfKey(const TparamCurve& curve, const Tkeyframe* key);
  /// Takes the object `key` out of `curve` without deleting it, as a removal
  /// does (add/delete and removal messages, neighbours' tangents, caches).
  /// A removal leaves the tangents of a new first key as they were; with
  /// `refreshNewFirst` they are recomputed too, which undoing an addition in
  /// front of the curve needs. False, with nothing changed, when the key is
  /// not in the curve or the change is refused. The caller owns the key
  /// afterwards.
  static bool detachKey(TparamCurve& curve, Tkeyframe* key, bool refreshNewFirst);
  /// Puts key `index` back to `time`, `value` and quaternion `w` inside one
  /// change scope, re-sorting the key object within the array when the new
  /// time breaks the order (the object is kept, so handles stay valid), and
  /// recomputes the tangents around its old and new places. Nothing when the
  /// key is missing or the scope is refused.
  static void restoreKey(TparamCurve& curve, unsigned index, const TtimeValue& time, double value,
                         double w);

  TparamCurve* fCurve = nullptr;
  Tkeyframe* fSubjectKey = nullptr;
};

/// A composite of curve deltas, as a curve gathers them during one
/// modification.
///
/// `merge` of a drag-key delta may fold it into an earlier drag of the same
/// key (see merge(TparamCurveDelta*)); everything else is appended. The
/// composite owns its children.
class LUMORA_API TparamCurveDeltaComp : public TdeltaComposite {
 public:
  // --- Construction ----------------------------------------------------------------------

  TparamCurveDeltaComp();
  ~TparamCurveDeltaComp() override;

  // --- Type ------------------------------------------------------------------------------

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;

  // --- Gathering -------------------------------------------------------------------------

  /// A curve composite goes to merge(TparamCurveDeltaComp*), a curve delta to
  /// merge(TparamCurveDelta*); what they refuse, and any other delta, is
  /// appended. Always true: `delta` now belongs to this composite.
  bool merge(Tdelta* delta) override;
  /// Takes every child of `other` in order, as merge(Tdelta*) would take it,
  /// then deletes the emptied `other`. True; false only for `other` == this,
  /// which changes nothing. A null `other` answers true.
  virtual bool merge(TparamCurveDeltaComp* other);
  /// The drag-key rule: when `delta` is a TPCDdragKey and a child drag-key
  /// delta of the same curve ended where `delta` starts (time equal, value
  /// within 1e-10), `delta` takes over that child's start, the child is
  /// deleted and `delta` is appended at the end: true. Otherwise false and
  /// the caller keeps `delta`. A null delta answers true. A call with a
  /// pointer to a delta kind picks this overload; pass a Tdelta* for the
  /// merge that always takes the delta.
  virtual bool merge(TparamCurveDelta* delta);

  /// Appends without merging. A curve composite is flattened: its children
  /// are appended in order (nested curve composites flattened in turn), and
  /// the emptied container stays the caller's, to be disposed of with
  /// releaseFlattened. A curve delta is appended; anything else goes through
  /// TdeltaComposite::merge. Null and this composite itself are ignored.
  void addLast(Tdelta* delta);
  /// Forgets the children without deleting them (they have been handed to
  /// another composite).
  void reset();
  /// Deletes a curve composite that addLast has flattened, together with the
  /// nested curve composites it held, without touching the children that
  /// were handed on. Null is ignored.
  static void releaseFlattened(TparamCurveDeltaComp* flattened);

 private:
  // Kept for future use: a sorted array of 32-bit entries, created empty.
  TsortedArray fEntries;
};

/// The host's record of one user action over any number of curves.
///
///   action.beginParamCurveMod(curve);   // curve.beginMod()
///   ... edits ...
///   action.endParamCurveMod(curve);     // the curve's deltas move here
///
/// endParamCurveMod returns false when the curve is not in modification (an
/// unbalanced call, which changes nothing) or when it recorded nothing (the
/// curve still leaves modification). Undoing undoes every gathered delta,
/// last to first.
class LUMORA_API TparamCurveDeltaUser : public TparamCurveDeltaComp {
 public:
  TparamCurveDeltaUser() = default;

  void beginParamCurveMod(TparamCurve& curve);
  bool endParamCurveMod(TparamCurve& curve);
  void undoPC() { undo(); }
  void redoPC() { redo(); }
};

// --- Delta kinds -------------------------------------------------------------------------

/// A pre- or post-infinity type change.
class LUMORA_API TPCDinfinityType : public TparamCurveDelta {
 public:
  TPCDinfinityType(TparamCurve* curve, bool isPre, TparamCurve::TinfinityType oldType,
                   TparamCurve::TinfinityType newType);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool isPre() const { return fIsPre; }
  TparamCurve::TinfinityType oldType() const { return fOldType; }
  TparamCurve::TinfinityType newType() const { return fNewType; }

 private:
  void apply(TparamCurve::TinfinityType type);

  bool fIsPre = true;
  TparamCurve::TinfinityType fOldType;
  TparamCurve::TinfinityType fNewType;
};

/// One key added (operation 0), removed (1) or overwritten (2).
///
/// For 0 and 1 `keyframe` is the key object itself, and undo and redo move
/// that very object in and out of the curve. For 2 `keyframe` is a private
/// copy of the key's other state, owned by the delta, and `subject` is the key
/// in the curve; undo and redo swap the two states (an undo repeated without
/// a redo between swaps nothing, and likewise for redo). Destruction deletes the
/// key object when it is outside the curve (operation 1 done, operation 0
/// undone) and always the private copy of operation 2. Other operation values
/// do nothing and own nothing. Undo and redo find the key object by its time
/// and act only on that very object.
class LUMORA_API TPCDaddRemoveKey : public TparamCurveDelta {
 public:
  enum Toperation : int { kKeyAdded = 0, kKeyRemoved = 1, kKeyReplaced = 2 };

  TPCDaddRemoveKey(TparamCurve* curve, int operation, Tkeyframe* keyframe,
                   Tkeyframe* subject = nullptr);
  ~TPCDaddRemoveKey() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  int operation() const { return fOperation; }
  Tkeyframe* keyframe() const { return fKeyframe; }
  /// True while the delta holds the key object outside the curve.
  bool ownsKey() const { return fKeyOut; }

 private:
  /// Puts the key object back into the curve.
  void putBack();
  /// Takes the key object out of the curve again.
  void takeOut();
  /// Exchanges the subject key's state with the saved copy; false when the
  /// curve refused (nothing exchanged).
  bool swapState();

  int fOperation;
  Tkeyframe* fKeyframe;
  // Whether the key object is outside the curve, as last seen by this delta.
  // Follows the undone mark unless the curve refused an undo or redo.
  bool fKeyOut = false;
  // Operation 2: whether the key holds the state from before the overwrite.
  // A repeated undo or redo then exchanges nothing.
  bool fStateSwapped = false;
};

/// A shape-keeping insertion: the inserted key object and copies of its
/// neighbours as they were before (either may be null).
///
/// Undo puts the neighbours' old states back and takes the key out; redo
/// does the reverse. The neighbour copies are owned and deleted on
/// destruction, the key too while it is out of the curve.
class LUMORA_API TPCDinsertKey : public TparamCurveDelta {
 public:
  TPCDinsertKey(TparamCurve* curve, Tkeyframe* inserted, Tkeyframe* prevCopy, Tkeyframe* nextCopy,
                unsigned index);
  ~TPCDinsertKey() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  Tkeyframe* insertedKey() const { return fInserted; }
  unsigned index() const { return fIndex; }
  bool keyOut() const { return fKeyOut; }

 private:
  /// Exchanges the key before index `at` and the key at index `next` with
  /// their copies, each only when it is the key the copy was taken of.
  void swapNeighbours(unsigned at, unsigned next);

  Tkeyframe* fInserted;
  Tkeyframe* fPrevCopy;
  Tkeyframe* fNextCopy;
  unsigned fIndex;
  bool fKeyOut = false;
};

/// A block of keys added (operation 0) or removed (1).
///
/// Adding back goes through blockAdd with the recorded times, values and
/// tangent types. Taking out works in list mode (the default: the key at each
/// recorded time is removed) or, after setRangeMode, in range mode (every key
/// whose time lies in [first, last] is removed, last to first). Without both
/// arrays adding back does nothing. The arrays are deleted on destruction
/// when the delta owns them.
class LUMORA_API TPCDblockAddRemoveKey : public TparamCurveDelta {
 public:
  enum Toperation : int { kBlockAdded = 0, kBlockRemoved = 1 };

  TPCDblockAddRemoveKey(TparamCurve* curve, int operation, TanimTimeArray* times,
                        TdoubleArray* values, TtangentType inType, TtangentType outType,
                        bool ownsArrays);
  ~TPCDblockAddRemoveKey() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  /// Takes keys out by the time range [first, last] instead of by list.
  void setRangeMode(TtimeValue first, TtimeValue last);
  bool rangeMode() const { return fRangeMode; }
  int operation() const { return fOperation; }

 private:
  void addBlock();
  void removeBlock();

  int fOperation;
  TtimeValue fFirst;
  TtimeValue fLast;
  TanimTimeArray* fTimes;
  TdoubleArray* fValues;
  TtangentType fInType;
  TtangentType fOutType;
  bool fRangeMode = false;
  bool fOwnsArrays;
};

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

/// A snapshot of every key of the curve, taken at construction.
///
/// Undo and redo are the same exchange: the curve's key objects take the
/// saved states whole, span methods included (each keeps its own selection),
/// and the snapshot takes theirs. An undo repeated without a redo between
/// exchanges nothing, and likewise for redo.
/// Keys that are in the curve but not in the snapshot are deleted, as the
/// state they belong to is gone; saved keys that are not in the curve at the
/// time are left alone. The copies are owned; the key objects are the
/// curve's.
class LUMORA_API TPCDcurveDelta : public TparamCurveDelta {
 public:
  explicit TPCDcurveDelta(TparamCurve* curve);
  ~TPCDcurveDelta() override;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  unsigned entryCount() const { return static_cast<unsigned>(fEntries.size()); }

 private:
  struct Tentry {
    Tkeyframe* key;                   // the curve's object
    std::unique_ptr<Tkeyframe> copy;  // the other state
  };
  static bool byKey(const Tentry& a, const Tentry& b);
  /// False when the curve refused (nothing exchanged).
  bool exchange();
  bool inSnapshot(const Tkeyframe* key) const;

  std::vector<Tentry> fEntries;  // sorted by key object, for lookups by key
  bool fSwapped = false;         // the curve holds the saved states
};

/// The weighted flag changed; `weighted` is the state before the change.
/// Undo and redo are the same toggle.
class LUMORA_API TPCDweightedTangents : public TparamCurveDelta {
 public:
  TPCDweightedTangents(TparamCurve* curve, bool weighted);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool weighted() const { return fWeighted; }

 private:
  void toggle();

  bool fWeighted;
};

/// The rotation interpolation mode changed.
class LUMORA_API TPCDrotationInterpolation : public TparamCurveDelta {
 public:
  TPCDrotationInterpolation(TparamCurve* curve, TparamCurve::TrotationInterpolation oldMode,
                            TparamCurve::TrotationInterpolation newMode);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  TparamCurve::TrotationInterpolation oldMode() const { return fOldMode; }
  TparamCurve::TrotationInterpolation newMode() const { return fNewMode; }

 private:
  TparamCurve::TrotationInterpolation fOldMode;
  TparamCurve::TrotationInterpolation fNewMode;
};

}  // namespace lumora

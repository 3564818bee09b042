// Undo records of keys entering and leaving a curve.
//
//   TPCDaddRemoveKey       one key added, removed or overwritten
//   TPCDinsertKey          a shape-keeping insertion with its neighbours' old states
//   TPCDblockAddRemoveKey  a block of keys added or removed together
//   TPCDcurveDelta         a snapshot of every key, exchanged as a whole
//
// A curve makes these itself while it is in modification; a host meets them
// inside the composite that TparamCurve::endMod hands back:
//
//   curve.beginMod();
//   curve.remove(0);                        // records a TPCDaddRemoveKey
//   std::unique_ptr<Tdelta> undo(curve.endMod());
//   undo->undo();                           // the same key object is back
//
// The kinds that take key objects out of the curve keep them while they are
// out and delete them with the delta; which object each kind owns, and when,
// is stated per class.
#pragma once

#include <memory>
#include <vector>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/param_curve_delta.h"

namespace lumora {

class TanimTimeArray;
class TdoubleArray;

// Records of these classes; null while the module is stopped.
extern LUMORA_API Tmetaclass* TPCDblockAddRemoveKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDaddRemoveKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDinsertKeyTmeta;
extern LUMORA_API Tmetaclass* TPCDcurveDeltaTmeta;

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
  Tkeyframe* keyframe() const { return fKeyframe.get(); }
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
  /// `key`, or when that object is gone the key of the curve at fKeyTime,
  /// which `key` then names.
  Tkeyframe* keyOrKeyAtTime(TkeyPointer& key) const;

  int fOperation;
  TkeyPointer fKeyframe;
  // The time of the key the curve holds (the added key, or the overwritten
  // one). Should that object be deleted behind this record's back (a key
  // snapshot may then bring the state back in a new object), undo and redo
  // act on the key found at this time, as a host expects of "the key that
  // was added".
  TtimeValue fKeyTime;
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

  Tkeyframe* insertedKey() const { return fInserted.get(); }
  unsigned index() const { return fIndex; }
  bool keyOut() const { return fKeyOut; }

 private:
  /// Exchanges the key before index `at` and the key at index `next` with
  /// their copies, each only when it is the key the copy was taken of.
  void swapNeighbours(unsigned at, unsigned next);

  TkeyPointer fInserted;
  TtimeValue fInsertedTime;  // as fKeyTime of TPCDaddRemoveKey
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

/// A snapshot of every key of the curve, taken at construction.
///
/// Undo and redo are the same exchange: the curve's key objects take the
/// saved states whole, span methods included (each keeps its own selection),
/// and the snapshot takes theirs, together with the curve's static flag. An
/// undo repeated without a redo between exchanges nothing, and likewise for
/// redo.
///
/// Keys that are in the curve but not in the snapshot (they entered without
/// an undo record of their own) leave the curve and are held by this delta
/// until the next exchange brings them back; it deletes those it holds when
/// destroyed. A saved key that has been deleted meanwhile comes back as a new
/// key object with its saved state. A saved key that is alive but outside
/// the curve belongs to another undo record and is left alone. The key
/// objects in the curve are the curve's.
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
  class Tentry;
  /// False when the curve refused (nothing exchanged).
  bool exchange();

  std::vector<std::unique_ptr<Tentry>> fEntries;
  bool fStatic = false;   // the saved state's static flag
  bool fSwapped = false;  // the curve holds the saved states
};

}  // namespace lumora

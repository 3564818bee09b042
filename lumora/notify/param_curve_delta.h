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
// The kinds live in one file pair per family: key_deltas.h (keys added,
// removed, inserted, whole-curve snapshots), drag_deltas.h (key and tangent
// drags) and setting_deltas.h (infinities, weighting, rotation
// interpolation).
//
// Things that surprise people:
//  * Undo and redo go through the curve's ordinary editing operations, so
//    they send the usual messages and, if the curve happens to be in
//    modification at the time, are recorded again.
//  * Deltas own the key objects that are outside the curve: a removed key is
//    kept (not copied) so that handles made before the removal become valid
//    again when the removal is undone. Ownership is stated per kind.
//  * Consecutive drags of one key within one action merge into one
//    TPCDdragKey at the end of the list; no other kind ever merges.
//  * Run-time type tests use the type records; before the module has made
//    them (or after it has destroyed them) no type test succeeds, so nothing
//    merges and composites nest instead of flattening.
#pragma once

#include <memory>
#include <utility>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/sorted_array.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/key_watch.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/delta.h"
#include "lumora/notify/key_states.h"

namespace lumora {

class TPCDdragKey;

namespace internal {
class TdragMergeIndex;
class TmoveJournal;
}  // namespace internal

// Records of the base and composite curve delta classes; null while the
// module is stopped. (TdeltaTmeta and TdeltaCompositeTmeta are declared in
// delta.h, the records of the kinds beside their classes.)
extern LUMORA_API Tmetaclass* TparamCurveDeltaTmeta;
extern LUMORA_API Tmetaclass* TparamCurveDeltaCompTmeta;

/// True when `delta` is not null and its class is `record` or derives from it.
LUMORA_API bool isDeltaOfType(const Tdelta* delta, const Tmetaclass* record);

/// The base of every curve delta: the curve it edits (also its Tdelta user)
/// and an optional subject key used by some kinds.
///
/// A delta whose curve is null does nothing when undone or redone (it still
/// changes its undone mark). The curve is not owned and must outlive the
/// delta's undo and redo calls.
///
/// Besides what its kind records, a delta may carry the full states of the
/// keys around its edit (TkeyStates), taken before and after the edit. The
/// kinds that change keys put those states back after their own undo or
/// redo, inside the same change scope, so that an undone edit gives back the
/// curve bit for bit, and a redone one repeats it.
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
  /// The states of the keys around the edit, from before and after it.
  void setKeyStates(TkeyStates states) { fKeyStates = std::move(states); }
  const TkeyStates& keyStates() const { return fKeyStates; }

  // --- Access ----------------------------------------------------------------------------

  TparamCurve* curve() const { return fCurve; }
  Tkeyframe* subjectKey() const { return fSubjectKey.get(); }

 protected:
  // --- Curve access for the kinds --------------------------------------------------------

  /// The answer of indexOfKey for a key that is not in the curve.
  static constexpr unsigned kNoIndex = TparamCurve::kInvalidIndex;

  /// The index of the object `key` in `curve`, found by its time and checked
  /// by identity; kNoIndex when that object is not in the curve.
  static unsigned indexOfKey(const TparamCurve& curve, const Tkeyframe* key);
  /// Takes the object `key` out of `curve` without deleting it, as a removal
  /// does (add/delete and removal messages, neighbours' tangents, caches).
  /// A removal leaves the tangents of a new first key as they were; with
  /// `refreshNewFirst` they are recomputed too, which undoing an addition in
  /// front of the curve needs. False, with nothing changed, when the key is
  /// not in the curve or the change is refused. The caller owns the key
  /// afterwards.
  static bool detachKey(TparamCurve& curve, Tkeyframe* key, bool refreshNewFirst);
  /// Runs `step`, a kind's own undo (or, with `after`, redo), inside one
  /// change scope, then puts back the recorded key states from before (or
  /// after) the edit. Without a curve, or when the scope is refused, the step
  /// runs alone.
  template <typename Step>
  void replay(bool after, Step step) {
    const bool opened = beginReplay();
    step();
    endReplay(opened, after);
  }
  bool beginReplay();
  void endReplay(bool opened, bool after);

  TparamCurve* fCurve = nullptr;
  // Records name keys they do not own through watching pointers: a key
  // deleted behind a record's back (an unrecorded removal, another record
  // destroyed) is then skipped by undo instead of read.
  TkeyPointer fSubjectKey;
  TkeyStates fKeyStates;
};

/// A composite of curve deltas, as a curve gathers them during one
/// modification.
///
/// `merge` of a drag-key delta may fold it into an earlier drag of the same
/// key (see merge(TparamCurveDelta*)); everything else is appended. The
/// composite owns its children.
///
/// Finding the earlier drag takes constant time however many children the
/// composite has: drag records are indexed by where they ended. Inside a
/// merge batch (a curve opens one for each move operation) a merged-in
/// record leaves an empty place, squeezed out in bulk when the batch ends,
/// so that a drag of many keys does not shift the list once per key; every
/// operation that walks the children squeezes them out first.
class LUMORA_API TparamCurveDeltaComp : public TdeltaComposite {
 public:
  // --- Construction ----------------------------------------------------------------------

  TparamCurveDeltaComp();
  ~TparamCurveDeltaComp() override;

  void undo() override;
  void redo() override;

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
  /// The drag-key rule for a drag not yet made into a record: when the
  /// child that merge() would fold a new drag of `key` from (`oldTime`,
  /// `oldValue`) into names that same key, shares `journal`, and carries
  /// nothing a new record would not (key states, a subject key, the
  /// dictionary-move flag), that child moves to the end of the list, as the
  /// merged record would stand, and is returned for the caller to give the
  /// drag's new end. Null otherwise: the caller then records the drag.
  /// Saves a record and a handle per key and step of an interactive drag.
  TPCDdragKey* continueDrag(const TparamCurve* curve, const Tkeyframe* key,
                            const TtimeValue& oldTime, double oldValue,
                            const internal::TmoveJournal* journal);

  /// Appends without merging. A curve composite is flattened: its children
  /// are appended in order (nested curve composites flattened in turn), and
  /// the emptied container stays the caller's, to be disposed of with
  /// releaseFlattened. A curve delta is appended; anything else goes through
  /// TdeltaComposite::merge. Null and this composite itself are ignored.
  void addLast(Tdelta* delta);
  /// Forgets the children without deleting them (they have been handed to
  /// another composite).
  void reset();
  /// Squeezes out the places that merged drag records left.
  void compact();
  /// Lets merges leave empty places until the matching endMergeBatch (which
  /// squeezes them out). Batches nest.
  void beginMergeBatch() { ++fMergeBatch; }
  void endMergeBatch();
  /// Deletes a curve composite that addLast has flattened, together with the
  /// nested curve composites it held, without touching the children that
  /// were handed on. Null is ignored.
  static void releaseFlattened(TparamCurveDeltaComp* flattened);

 private:
  /// The place of the child a drag of `curve` from (`oldTime`, `oldValue`)
  /// continues, first in list order among those `accept` takes; -1 for none.
  template <typename Accept>
  long findDragToContinue(const TparamCurve* curve, const TtimeValue& oldTime, double oldValue,
                          const TPCDdragKey* self, Accept accept);
  /// Empties the place of the continued child, appends `drag` (the merged
  /// record) and tidies: the end of every merge.
  void finishMerge(unsigned place, TPCDdragKey* drag);

  // Kept for future use: a sorted array of 32-bit entries, created empty.
  TsortedArray fEntries;
  // Where drag records ended, for merging; built as children arrive.
  std::unique_ptr<internal::TdragMergeIndex> fDragIndex;
  unsigned fMergeBatch = 0;
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

}  // namespace lumora

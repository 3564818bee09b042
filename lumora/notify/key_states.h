// TkeyStates: the full state of the keys an edit touched, before and after.
//
// Undoing an edit by doing the opposite edit gives back the keys the rules
// compute, which is not always the keys that were there: a neighbour whose
// tangents were written directly (block setters, bulk loading with fixed
// types, a tangent drag normalised by the evaluator) is computed anew, and a
// handle length that one weighting mode cannot hold is lost. So every key
// delta also keeps the states of the keys around the edit, taken before and
// after it, and after its own undo (or redo) puts those states back, bit for
// bit. The curve's static flag is kept the same way.
//
// An editing operation brackets itself with a recorder, which hands the
// states to the deltas the operation recorded:
//
//   TkeyStatesRecorder states(curve, index, TkeyStates::kNeighbourReach);
//   ... the edit, recording its deltas ...
//   states.finish(index, TkeyStates::kNeighbourReach);
//
// and each delta's undo ends with fKeyStates.restore(curve, /*after=*/false)
// (its redo with after = true), inside the same change scope.
//
// Things that surprise people:
//  * Keys are found again by the times they were recorded with and checked by
//    identity: a recorded key that is not in the curve (taken out, or deleted
//    since) is skipped, and never read.
//  * Selection and the deletion mark are not part of a state: restoring keeps
//    the key's own, as assignment of keys does.
#pragma once

#include <cstdint>
#include <vector>

#include "lumora/base/export.h"
#include "lumora/keys/keyframe.h"

namespace lumora {

class Tdelta;
class TparamCurve;

class LUMORA_API TkeyStates {
 public:
  /// How far from an edited key the rules may change keys: the neighbours'
  /// tangents, and the neighbours of the neighbours when an undo recomputes
  /// around a removal.
  static constexpr unsigned kNeighbourReach = 2;
  /// Every key of the curve.
  static constexpr unsigned kWholeCurve = 0xFFFFFFFFu;

  /// Records nothing.
  TkeyStates() = default;
  /// Records the state before an edit of the keys within `reach` of index
  /// `center` (both ends included), and the curve's static flag.
  TkeyStates(const TparamCurve& curve, unsigned center, unsigned reach);

  /// Records the state after the edit of the keys within `reach` of `center`,
  /// and the static flag.
  void captureAfter(const TparamCurve& curve, unsigned center, unsigned reach);
  /// Puts the recorded states from before (or, with `after`, from after) the
  /// edit back into the keys that are in `curve`, and the static flag, inside
  /// one change scope; tells clients of every key that changed. False when
  /// nothing was recorded or the scope was refused.
  bool restore(TparamCurve& curve, bool after) const;
  /// True when anything was recorded.
  bool empty() const { return fEntries.empty(); }

 private:
  struct Tentry {
    Tkeyframe* key = nullptr;
    Tkeyframe before;
    Tkeyframe after;
    bool hasBefore = false;
    bool hasAfter = false;
  };
  void record(const TparamCurve& curve, unsigned center, unsigned reach, bool after);
  /// The index of the recorded `key` in `curve`, looked up by the times it was
  /// recorded with; the invalid index when that very object is not there.
  static unsigned locate(const TparamCurve& curve, const Tentry& entry);

  std::vector<Tentry> fEntries;
  bool fStaticBefore = false;
  bool fStaticAfter = false;
  bool fHasAfter = false;
};

/// Brackets one editing operation of a curve that is recording: takes the
/// states of the keys around the edit when made, and on finish() the states
/// after it, and hands them to the deltas the operation recorded: the first
/// of them puts the states from before back when it is undone (it is undone
/// last), the last puts the states from after back when it is redone (it is
/// redone last).
///
/// Only the outermost operation on a curve records states: operations that
/// it calls on the same curve find a recorder already open and leave the
/// states to it. Does nothing while the curve is not recording.
class LUMORA_API TkeyStatesRecorder {
 public:
  TkeyStatesRecorder(TparamCurve& curve, unsigned center, unsigned reach);
  TkeyStatesRecorder(const TkeyStatesRecorder&) = delete;
  TkeyStatesRecorder& operator=(const TkeyStatesRecorder&) = delete;
  /// Closes the bracket without handing anything over when finish() was not
  /// called (the operation failed).
  ~TkeyStatesRecorder();

  /// Takes the states after the edit around `center` and hands the states
  /// over.
  void finish(unsigned center, unsigned reach);

 private:
  bool active() const { return fCurve != nullptr; }
  void close();

  TparamCurve* fCurve = nullptr;  // null when another recorder is open or nothing records
  TkeyStatesRecorder* fOuter = nullptr;
  TkeyStates fStates;
  const Tdelta* fStartDelta = nullptr;
  unsigned fStartChildren = 0;
};

}  // namespace lumora

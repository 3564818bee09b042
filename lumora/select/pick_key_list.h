// TpickKeyList: a pick-key dictionary with set operations.
//
// A graph editor keeps the current selection of a curve in a list and
// combines it with what the user clicks or drags over:
//
//   TpickKeyList selection;
//   selection.insertRange(&curve, TtimeValue(1.0f), TtimeValue(2.0f));  // box over 1..2 s
//   TpickKeyList clicked;
//   TpickKey tangent;
//   if (tangent.create(&curve, 1.5f, TbitField32(TpickKey::kPickInTangent)) == 0)
//     clicked.insert(tangent.time(), tangent);
//   selection.merge(clicked);        // the key at 1.5 s: now its in tangent only
//   selection.remove(clicked);       // and now nothing there
//   curve.setActive(selection, true);
//
// Things that surprise people:
//  * Picks meet by time, not by key: a list holds one pick per time (see
//    TpickKeyDictionary), and the operations combine the picks of two lists
//    that sit at equal times, whichever curve they name. Keep one list per
//    curve.
//  * Flags combine bit by bit, with the merge rule of TpickKey::merge: merging
//    a tangent pick into a key pick leaves only the tangent, and taking a
//    tangent off a key pick changes nothing (the key pick holds no tangent
//    bit). So merge followed by remove of the same picks restores a list only
//    where the two did not overlap in this way.
//  * merge() and remove() first bring this list in line with the keys
//    (updateDictionary()): picks are re-keyed by their keys' current times,
//    and picks that no longer name a key are dropped. The other list is
//    read by its keys' current times, stale or not.
//  * getIntersection() keeps a pick at a shared time even when no bit is left
//    in common: the result says where the lists meet, and the flags what they
//    share there.
//  * getConflicts() adds to `result` without emptying it first, so conflicts
//    with several lists gather in one result. The other operations empty it.
//  * getDifference() compares whole picks: a pick stays in the difference
//    unless the other list holds the same key with the same flags.
//  * timeRange() reads the first and last picks in the list's order; after
//    keys moved, call updateDictionary() first.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/time_value.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora {

class TparamCurve;

class LUMORA_API TpickKeyList : public TpickKeyDictionary {
 public:
  TpickKeyList() = default;
  /// Every pick of `source` that names a key, under its key's current time.
  explicit TpickKeyList(const TpickKeyDictionary& source);
  TpickKeyList(const TpickKeyList& other) = default;
  TpickKeyList(TpickKeyList&& other) noexcept = default;
  TpickKeyList& operator=(const TpickKeyList& other) = default;
  TpickKeyList& operator=(TpickKeyList&& other) noexcept = default;
  ~TpickKeyList() override;

  using TpickKeyDictionary::remove;

  // --- Combining ---------------------------------------------------------------

  /// Adds `other`'s picks: each pick at a time this list holds is merged
  /// into the pick there (merge(const TpickKey&)); the others are inserted
  /// under their keys' current times. Picks that name no key are skipped.
  void merge(const TpickKeyList& other);
  /// Merges one pick into the pick at its key's time: false when the list is
  /// empty or holds no pick at that time (it is then not inserted). The
  /// merged pick replaces the one there; when it picks nothing any more the
  /// node is removed. Assumes the list is up to date (updateDictionary()).
  bool merge(const TpickKey& pick);
  /// Takes `other`'s picked parts off the picks at the same times; a pick
  /// left picking nothing is removed. True when any part or pick was taken
  /// off.
  bool remove(const TpickKeyList& other);

  // --- Comparing (this list and `other` are left alone) ------------------------

  /// Empties `result`, then adds, for each pick of `other` and each pick of
  /// this list at the same time, a copy of this list's pick keeping only the
  /// parts both pick (even when none is left). True when `result` is not
  /// empty.
  bool getIntersection(const TpickKeyList& other, TpickKeyList& result) const;
  /// Empties `result`, then adds each pick of this list that names a key and
  /// is not equal (TpickKey::operator==) to a pick of `other`. True when
  /// `result` is not empty.
  bool getDifference(const TpickKeyList& other, TpickKeyList& result) const;
  /// True when a pick of this list and a pick of `other` name keys at equal
  /// times, whatever they pick.
  bool intersects(const TpickKeyList& other) const;
  /// Adds to `result` (not emptied first) each pick of this list at the time
  /// of some pick of `other`. True when `result` is not empty.
  bool getConflicts(const TpickKeyList& other, TpickKeyList& result) const;

  // --- Filling and reading -----------------------------------------------------

  /// The current times of the keys of the first and the last pick (in list
  /// order) that name a key; false, with both left alone, when none does.
  bool timeRange(TtimeValue& first, TtimeValue& last) const;
  /// Picks every key of `curve` from `from` to `to` inclusive (times of either
  /// kind, converted to the curve's own; float curves find keys within their
  /// tolerance) as a key pick, merged into the pick at its time or inserted.
  /// False, changing nothing, when the curve is null or refuses selection,
  /// or a time is NaN or the "neither" time; true otherwise (also when no key
  /// lies in the range, as when `from` is after `to`).
  bool insertRange(TparamCurve* curve, const TtimeValue& from, const TtimeValue& to);
  /// Re-keys the list by its keys' current times when any pick sits under
  /// another time (its key moved since it was inserted), and drops picks
  /// that name no key. Where two picks come to one time, the later in the
  /// old order stays. Does nothing when the list is up to date.
  void updateDictionary();

 private:
  /// Takes `pick`'s parts off the pick at its key's time; true when
  /// anything was taken off.
  bool remove(const TpickKey& pick);
};

}  // namespace lumora

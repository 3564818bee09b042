// The key states of recorded moves, put back as a whole.
#include "lumora/notify/internal/move_journal.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <unordered_map>
#include <unordered_set>

#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/notify/internal/curve_delta_access.h"

namespace lumora::internal {

namespace {

using Access = TcurveDeltaAccess;
using Tmsg = TparamCurveModifiedMsg;

// The message a change from `from` to `to` calls for; -1 for no change.
int changeKind(const Tkeyframe& from, const Tkeyframe& to) {
  if (std::bit_cast<std::uint64_t>(from.value()) != std::bit_cast<std::uint64_t>(to.value()) ||
      from.timeAsTicks() != to.timeAsTicks()) {
    return Tmsg::kKeyChanged;
  }
  float a[4], b[4];
  from.getTanIn(a[0], a[1]);
  from.getTanOut(a[2], a[3]);
  to.getTanIn(b[0], b[1]);
  to.getTanOut(b[2], b[3]);
  constexpr std::uint32_t kOwnBits = 0x03C00000u;  // selection and deletion mark
  bool same = ((from.flags().bits() ^ to.flags().bits()) & ~kOwnBits) == 0 &&
              std::bit_cast<std::uint32_t>(from.quaternionW()) ==
                  std::bit_cast<std::uint32_t>(to.quaternionW());
  for (int i = 0; i < 4 && same; ++i) {
    same = std::bit_cast<std::uint32_t>(a[i]) == std::bit_cast<std::uint32_t>(b[i]);
  }
  return same ? -1 : Tmsg::kTangentChanged;
}

// Writes `state` into `key`, which keeps its selection, deletion mark and
// quaternion cache (they belong to the object, not to its state).
void assignState(Tkeyframe& key, const Tkeyframe& state) {
  float* cache = key.getQuaternionEulerCache();
  key = state;
  key.setQuaternionEulerCache(cache);
}

}  // namespace

void TmoveJournal::Twatch::keyDeleted(Tkeyframe* key) {
  if (auto* slot = journal->fByKey.find(key)) journal->fByKey.erase(*slot);
  for (const Tkeyframe*& recent : journal->fRecent) {
    if (recent == key) recent = nullptr;
  }
}

void TmoveJournal::noteBefore(Tkeyframe* key) {
  if (!key) return;
  if (!fHasStatic) {
    fHasStatic = true;
    fStaticBefore = fStaticAfter = fCurve->staticCurve();
  }
  fDirty = true;
  for (const Tkeyframe* recent : fRecent) {
    if (recent == key) return;
  }
  fRecent[fRecentNext++ % std::size(fRecent)] = key;
  if (fByKey.find(key)) return;
  const auto place = static_cast<std::uint32_t>(fEntries.size());
  Tentry& entry = fEntries.emplace_back();
  entry.key.journal = this;
  entry.key.watch(key);
  entry.before = *key;
  fByKey.insert(key, place);
}

void TmoveJournal::captureAfter() {
  // Nothing noted since the last capture: no move has run since, and the
  // static flag now may be that of a later edit, or of an undone state.
  if (!fDirty) return;
  fDirty = false;
  for (Tentry& entry : fEntries) {
    if (Tkeyframe* key = entry.key.watchedKey()) {
      entry.after = *key;
      entry.hasAfter = true;
    }
  }
  if (fHasStatic) fStaticAfter = fCurve->staticCurve();
}

void TmoveJournal::memberUndone() {
  if (++fUndoneMembers < fMembers) return;
  fUndoneMembers = 0;
  restore(/*after=*/false);
}

void TmoveJournal::memberRedone() {
  if (++fRedoneMembers < fMembers) return;
  fRedoneMembers = 0;
  restore(/*after=*/true);
}

void TmoveJournal::restore(bool after) {
  captureAfter();  // a move still under way is complete as far as undo goes
  TkeyArray* array = Access::keyArray(*fCurve);
  if (!array || fEntries.empty()) return;
  if (!Access::beginChange(*fCurve)) return;

  // The noted keys that are in this curve now are taken out of the array in
  // one pass; the other keys keep their order.
  std::unordered_map<const Tkeyframe*, const Tentry*> noted;
  noted.reserve(fEntries.size());
  for (const Tentry& entry : fEntries) {
    if (entry.key.watchedKey() && (!after || entry.hasAfter))
      noted.emplace(entry.key.watchedKey(), &entry);
  }
  Tkeyframe** keys = array->keys();
  const unsigned n = array->count();
  const std::vector<Tkeyframe*> original(keys, keys + n);
  std::vector<Tkeyframe*> others;
  std::vector<Tkeyframe*> ours;
  others.reserve(n);
  for (Tkeyframe* key : original) (noted.count(key) != 0 ? ours : others).push_back(key);
  std::vector<Tkeyframe> previous;
  previous.reserve(ours.size());
  for (Tkeyframe* key : ours) {
    previous.push_back(*key);
    const Tentry* entry = noted[key];
    assignState(*key, after ? entry->after : entry->before);
  }
  const auto less = [array](const Tkeyframe* a, const Tkeyframe* b) {
    return array->compareKeys(*a, *b) < 0;
  };
  std::vector<Tkeyframe*> sorted(ours);
  std::sort(sorted.begin(), sorted.end(), less);
  std::merge(others.begin(), others.end(), sorted.begin(), sorted.end(), keys, less);
  bool ordered = true;
  for (unsigned i = 1; i < n && ordered; ++i) ordered = less(keys[i - 1], keys[i]);
  if (!ordered) {
    // The curve changed behind the records' backs (another key holds a
    // time that one of these keys needs): nothing is put back.
    std::copy(original.begin(), original.end(), keys);
    for (std::size_t j = 0; j < ours.size(); ++j) assignState(*ours[j], previous[j]);
    Access::endChange(*fCurve, false);
    return;
  }
  Access::invalidateCache(*fCurve, -1);
  bool changed = false;
  for (std::size_t j = 0; j < ours.size(); ++j) {
    const int kind = changeKind(previous[j], *ours[j]);
    if (kind < 0) continue;
    changed = true;
    Access::notifyClientsOfChange(*fCurve, ours[j], static_cast<Tmsg::TmessageType>(kind));
  }
  const bool wantStatic = after ? fStaticAfter : fStaticBefore;
  if (fHasStatic && fCurve->staticCurve() != wantStatic) {
    fCurve->setStaticCurve(wantStatic);
    changed = true;
  }
  Access::endChange(*fCurve, changed);
}

}  // namespace lumora::internal

#include "lumora/select/pick_key_list.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"

namespace lumora {

namespace {

// The picks of a list that name keys, sorted by their keys' current times.
// The comparing operations look picks up here rather than by node time, so
// they answer for where the keys are now even when a list is stale, in
// O((n + m) log n) for lists of n and m picks.
class TtimeIndex {
 public:
  struct Tentry {
    TtimeValue time;
    const TpickKey* pick;
  };

  explicit TtimeIndex(const TpickKeyList& list) {
    fEntries.reserve(list.count());
    for (const TpickKeyDictionaryNode* n = list.first(); n; n = TpickKeyList::next(n)) {
      if (n->data().namesKey()) fEntries.push_back({n->data().time(), &n->data()});
    }
    // Stable, so picks at one time keep the list's order.
    std::stable_sort(fEntries.begin(), fEntries.end(),
                     [](const Tentry& a, const Tentry& b) { return a.time < b.time; });
  }

  /// The entries whose time equals `time`, in list order.
  std::pair<const Tentry*, const Tentry*> at(const TtimeValue& time) const {
    const auto range =
        std::equal_range(fEntries.begin(), fEntries.end(), Tentry{time, nullptr},
                         [](const Tentry& a, const Tentry& b) { return a.time < b.time; });
    return {fEntries.data() + (range.first - fEntries.begin()),
            fEntries.data() + (range.second - fEntries.begin())};
  }
  bool contains(const TtimeValue& time) const {
    const auto range = at(time);
    return range.first != range.second;
  }

 private:
  std::vector<Tentry> fEntries;
};

// The picks of a list by the key object their handle names, for the exact
// comparison of whole picks. Equal picks have equal handles, and equal
// handles name one key object (or none), so only picks of one key need
// comparing.
class TkeyIndex {
 public:
  explicit TkeyIndex(const TpickKeyList& list) {
    fEntries.reserve(list.count());
    for (const TpickKeyDictionaryNode* n = list.first(); n; n = TpickKeyList::next(n)) {
      if (const TkeyframeHandle* h = n->data().handle())
        fEntries.push_back({h->keyframe(), &n->data()});
    }
    std::sort(fEntries.begin(), fEntries.end(), byKey);
  }

  /// True when some indexed pick equals `pick`.
  bool holds(const TpickKey& pick) const {
    const TkeyframeHandle* h = pick.handle();
    if (h == nullptr) return false;
    auto it =
        std::lower_bound(fEntries.begin(), fEntries.end(), Tentry{h->keyframe(), nullptr}, byKey);
    for (; it != fEntries.end() && it->key == h->keyframe(); ++it) {
      if (*it->pick == pick) return true;
    }
    return false;
  }

 private:
  struct Tentry {
    const Tkeyframe* key;
    const TpickKey* pick;
  };
  static bool byKey(const Tentry& a, const Tentry& b) {
    return std::less<const Tkeyframe*>()(a.key, b.key);
  }

  std::vector<Tentry> fEntries;
};

// `time` in the kind of time `curve` keeps its keys in.
TtimeValue inCurveKind(const TparamCurve& curve, const TtimeValue& time) {
  if (curve.isFloat()) return TtimeValue(time.inSeconds());
  return TtimeValue(time.asAnimTime());
}

bool usableTime(const TtimeValue& time) {
  if (time.isNeither()) return false;
  return !(time.isFloat() && std::isnan(time.asFloat()));
}

}  // namespace

// --- Construction ------------------------------------------------------------------

TpickKeyList::TpickKeyList(const TpickKeyDictionary& source) {
  for (const TpickKeyDictionaryNode* n = source.first(); n; n = next(n)) {
    const TpickKey& pick = n->data();
    if (pick.namesKey()) insert(pick.time(), pick);
  }
}

TpickKeyList::~TpickKeyList() = default;

// --- Combining ---------------------------------------------------------------------

void TpickKeyList::merge(const TpickKeyList& other) {
  if (&other == this) {
    const TpickKeyList copy(other);
    merge(copy);
    return;
  }
  updateDictionary();
  for (const TpickKeyDictionaryNode* n = other.first(); n; n = next(n)) {
    const TpickKey& pick = n->data();
    if (!pick.namesKey()) continue;
    if (!merge(pick)) insert(pick.time(), pick);
  }
}

bool TpickKeyList::merge(const TpickKey& pick) {
  if (empty() || !pick.namesKey()) return false;
  const TtimeValue time = pick.time();
  // The node at the pick's time or, failing that, the last one before it:
  // in a stale list the pick of the key may still sit at an earlier time.
  Tbookmark mark;
  TpickKeyDictionaryNode* node = findNode(time, mark);
  if (node == nullptr) {
    mark.previous();
    node = nodeAt(mark);
  }
  if (node == nullptr || node->data().conflictsInTimeWith(pick) != TpickKey::kSameTime) {
    return false;
  }
  if (node->key() == time) {
    // Up to date: merge in place rather than through a copy.
    node->data().setFlagsMerge(pick);
    if (!node->data().somethingPicked()) remove(time);
    return true;
  }
  TpickKey merged(node->data());
  merged.setFlagsMerge(pick);
  if (merged.somethingPicked()) {
    insert(merged.time(), merged);
  } else {
    remove(merged.time());
  }
  return true;
}

bool TpickKeyList::remove(const TpickKeyList& other) {
  if (&other == this) {
    const TpickKeyList copy(other);
    return remove(copy);
  }
  updateDictionary();
  bool removed = false;
  for (const TpickKeyDictionaryNode* n = other.first(); n; n = next(n)) {
    if (remove(n->data())) removed = true;
  }
  return removed;
}

bool TpickKeyList::remove(const TpickKey& pick) {
  if (!pick.namesKey()) return false;
  const TtimeValue time = pick.time();
  TpickKeyDictionaryNode* node = findNode(time);
  if (node == nullptr || node->data().isVoid()) return false;
  TpickKey& mine = node->data();
  const TbitField32 before = mine.flags();
  mine.setFlagsDifference(pick);
  if (!mine.somethingPicked()) return remove(time);
  return mine.flags() != before;
}

// --- Comparing ---------------------------------------------------------------------

bool TpickKeyList::getIntersection(const TpickKeyList& other, TpickKeyList& result) const {
  if (&result == this || &result == &other) {
    TpickKeyList own;
    getIntersection(other, own);
    result = std::move(own);
    return !result.empty();
  }
  result.reset();
  const TtimeIndex mine(*this);
  for (const TpickKeyDictionaryNode* n = other.first(); n; n = next(n)) {
    const TpickKey& theirs = n->data();
    if (!theirs.namesKey()) continue;
    const auto [from, to] = mine.at(theirs.time());
    for (auto* e = from; e != to; ++e) {
      TpickKey shared(*e->pick);
      shared.setFlagsIntersection(theirs);
      result.insert(e->time, shared);
    }
  }
  return !result.empty();
}

bool TpickKeyList::getDifference(const TpickKeyList& other, TpickKeyList& result) const {
  if (&result == this || &result == &other) {
    TpickKeyList own;
    getDifference(other, own);
    result = std::move(own);
    return !result.empty();
  }
  result.reset();
  const TkeyIndex theirs(other);
  for (const TpickKeyDictionaryNode* n = first(); n; n = next(n)) {
    const TpickKey& pick = n->data();
    if (pick.namesKey() && !theirs.holds(pick)) result.insert(pick.time(), pick);
  }
  return !result.empty();
}

bool TpickKeyList::intersects(const TpickKeyList& other) const {
  if (empty() || other.empty()) return false;
  const TtimeIndex mine(*this);
  for (const TpickKeyDictionaryNode* n = other.first(); n; n = next(n)) {
    if (n->data().namesKey() && mine.contains(n->data().time())) return true;
  }
  return false;
}

bool TpickKeyList::getConflicts(const TpickKeyList& other, TpickKeyList& result) const {
  // Gathered first: `result` may be this list or `other`.
  std::vector<TpickKey> conflicts;
  if (!empty() && !other.empty()) {
    const TtimeIndex theirs(other);
    for (const TpickKeyDictionaryNode* n = first(); n; n = next(n)) {
      const TpickKey& pick = n->data();
      if (pick.namesKey() && theirs.contains(pick.time())) conflicts.emplace_back(pick);
    }
  }
  for (const TpickKey& pick : conflicts) result.insert(pick.time(), pick);
  return !result.empty();
}

// --- Filling and reading -----------------------------------------------------------

bool TpickKeyList::timeRange(TtimeValue& firstTime, TtimeValue& lastTime) const {
  const TpickKeyDictionaryNode* head = first();
  while (head != nullptr && !head->data().namesKey()) head = next(head);
  if (head == nullptr) return false;
  const TpickKeyDictionaryNode* tail = last();
  while (!tail->data().namesKey()) tail = previous(tail);  // stops at `head` at the latest
  firstTime = head->data().time();
  lastTime = tail->data().time();
  return true;
}

bool TpickKeyList::insertRange(TparamCurve* curve, const TtimeValue& from, const TtimeValue& to) {
  if (curve == nullptr || !usableTime(from) || !usableTime(to)) return false;
  if (!curve->canSelect()) return false;
  const unsigned count = curve->keyframeCount();
  if (count == 0) return true;
  // find() answers the first key at the time or, on a miss, the first key
  // after it: the range is [begin, end).
  unsigned begin = 0;
  unsigned end = 0;
  curve->find(inCurveKind(*curve, from), begin);
  if (curve->find(inCurveKind(*curve, to), end)) ++end;
  const TbitField32 keyPick(TpickKey::kPickKey);
  for (unsigned i = begin; i < end && i < count; ++i) {
    TpickKey pick;
    // Selection was allowed above, once for the whole range.
    if (pick.create(curve, i, keyPick, /*ensureUnique=*/false, /*skipSelectCheck=*/true) != 0) {
      continue;
    }
    if (!merge(pick)) insert(pick.time(), pick);
  }
  return true;
}

void TpickKeyList::updateDictionary() {
  bool stale = false;
  for (const TpickKeyDictionaryNode* n = first(); n && !stale; n = next(n)) {
    stale = !n->data().namesKey() || n->data().time() != n->key();
  }
  if (!stale) return;
  std::vector<TpickKey> picks;
  picks.reserve(count());
  for (TpickKeyDictionaryNode* n = first(); n; n = next(n)) {
    if (n->data().namesKey()) picks.push_back(std::move(n->data()));
  }
  reset();
  for (const TpickKey& pick : picks) insert(pick.time(), pick);
}

}  // namespace lumora

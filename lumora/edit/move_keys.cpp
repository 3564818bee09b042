// TparamCurve: moving keys in time and value, and the edits that bracket it.
#include "lumora/edit/move_keys.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "lumora/base/quaternion.h"
#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/edit/breakdown.h"
#include "lumora/edit/internal/breakdown_cache.h"
#include "lumora/edit/internal/move_list.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/move_journal.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora {

namespace {

using internal::TmoveList;
using internal::TmoveRecord;
using internal::TmoveRule;
using Tmsg = TparamCurveModifiedMsg;

constexpr unsigned kNone = TparamCurve::kInvalidIndex;

bool sameKind(const TparamCurve& c, const TtimeValue& t) {
  return (t.isFloat() && c.isFloat()) || (t.isAnimTime() && c.isAnimTime());
}

// A time a key of `c` may be moved to or by.
bool usableTime(const TparamCurve& c, const TtimeValue& t) {
  return sameKind(c, t) && (!t.isFloat() || std::isfinite(t.asFloat()));
}

// Times of float curves stay within the range keys can hold.
TtimeValue clampTime(const TtimeValue& t) {
  if (!t.isFloat() || std::isnan(t.asFloat())) return t;
  return TtimeValue(std::fmax(-FLT_MAX, std::fmin(FLT_MAX, t.asFloat())));
}

// `t` moved by `ticks` ticks: one tick of a tick curve, or 1/6000 s in
// single precision on a float curve.
TtimeValue plusTicks(const TtimeValue& t, int ticks) {
  if (t.isAnimTime()) return TtimeValue(t.asAnimTime() + TanimTime(ticks));
  const float from = t.asFloat();
  const float to = from + static_cast<float>(ticks) * TanimTime::kSecondsPerTick;
  // Beyond about 2,800 s a tick is less than half the spacing of floats and
  // vanishes in the sum: the time then steps to the neighbouring float, so
  // that a key kept a tick from another still lands apart from it.
  if (to == from && ticks != 0)
    return TtimeValue(std::nextafter(from, ticks > 0 ? FLT_MAX : -FLT_MAX));
  return TtimeValue(to);
}

// How two times of `c` order as its keys do: ticks exactly, float seconds
// within the keys' tolerance.
int order(const TparamCurve& c, const TtimeValue& a, const TtimeValue& b) {
  if (c.isAnimTime()) {
    const std::int32_t x = a.asAnimTime().inTicks();
    const std::int32_t y = b.asAnimTime().inTicks();
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  const float x = a.inSeconds();
  const float y = b.inSeconds();
  if (x < y - Tkeyframe::kTimeTolerance) return -1;
  return x > y + Tkeyframe::kTimeTolerance ? 1 : 0;
}

// The seconds of a time offset: its ticks through the single-precision
// factor, its float, or 0.
double offsetSeconds(const TtimeValue& t) {
  if (t.isAnimTime()) {
    return static_cast<double>(t.asAnimTime().inTicks()) * TanimTime::kSecondsPerTick;
  }
  return t.isFloat() ? t.asFloat() : 0.0;
}

// The index of `key` in `c`, trying `hint` and the places next to it first.
unsigned locate(const TparamCurve& c, const Tkeyframe* key, unsigned hint) {
  if (!key) return kNone;
  if (hint != kNone) {
    for (const int step : {0, 1, -1, 2, -2}) {
      const auto i = static_cast<unsigned>(static_cast<int>(hint) + step);
      if (c.keyframe(i) == key) return i;
    }
  }
  unsigned index = 0;
  if (c.find(c.timeValue(key), index) && c.keyframe(index) == key) return index;
  return kNone;
}

// The key of `handle` when it is in `c`.
// Where a key lies, for ordering visits: its ticks exactly (a float would
// round ticks far from zero together) or its float seconds.
double keyPosition(const TparamCurve& c, const Tkeyframe& key) {
  return c.isAnimTime() ? static_cast<double>(key.timeAsTicks())
                        : static_cast<double>(key.timeAsFloat());
}

Tkeyframe* keyOf(const TparamCurve& c, const TkeyframeHandle& handle) {
  return handle.paramCurve() == &c ? handle.keyframe() : nullptr;
}

// Tangents follow the keys that moved (found near `index` now), and with the
// passing options the old neighbours (near `oldIndex`) that a key left next
// to each other. A key that stayed where it was keeps its tangents as they
// are, automatic or not, so a move that moves nothing changes nothing.
void noteTouched(std::vector<std::pair<Tkeyframe*, unsigned>>& touched, Tkeyframe* key,
                 const Tkeyframe& before, unsigned index, unsigned oldIndex, bool passes,
                 Tkeyframe* oldPrevious, Tkeyframe* oldNext) {
  const bool moved =
      key->timeAsTicks() != before.timeAsTicks() ||
      std::bit_cast<std::uint64_t>(key->value()) != std::bit_cast<std::uint64_t>(before.value()) ||
      std::bit_cast<std::uint32_t>(key->quaternionW()) !=
          std::bit_cast<std::uint32_t>(before.quaternionW());
  if (!moved) return;
  touched.emplace_back(key, index);
  if (!passes) return;
  if (oldPrevious) touched.emplace_back(oldPrevious, oldIndex > 0 ? oldIndex - 1 : 0);
  if (oldNext) touched.emplace_back(oldNext, oldIndex);
}

// The component of a rotation that a curve holds: x, y or z by which sibling
// it is (x when it has none).
double ownComponent(const TparamCurve& c, const Tquaternion& q) {
  TparamCurve* x = nullptr;
  TparamCurve* y = nullptr;
  TparamCurve* z = nullptr;
  if (c.getSiblingRotationCurves(&x, &y, &z, false)) {
    if (y == &c) return q.y;
    if (z == &c) return q.z;
  }
  return q.x;
}

// A rotation whose own component (see ownComponent) is `value`, with `w`.
Tquaternion rotationWith(const TparamCurve& c, double value, double w) {
  Tquaternion q(0.0, 0.0, 0.0, w);
  TparamCurve* x = nullptr;
  TparamCurve* y = nullptr;
  TparamCurve* z = nullptr;
  if (c.getSiblingRotationCurves(&x, &y, &z, false) && (y == &c || z == &c)) {
    (y == &c ? q.y : q.z) = value;
  } else {
    q.x = value;
  }
  return q;
}

bool siblingsAvailable(const TparamCurve& c) {
  TparamCurve* x = nullptr;
  TparamCurve* y = nullptr;
  TparamCurve* z = nullptr;
  return c.getSiblingRotationCurves(&x, &y, &z, false) && x && y && z;
}

// Keeps the per-key tangent update switched off for a multi-key move.
class TbatchTangents {
 public:
  TbatchTangents() : fWas(internal::perKeyTangentUpdate()) {
    internal::setPerKeyTangentUpdate(false);
  }
  ~TbatchTangents() { internal::setPerKeyTangentUpdate(fWas); }
  TbatchTangents(const TbatchTangents&) = delete;
  TbatchTangents& operator=(const TbatchTangents&) = delete;

 private:
  bool fWas;
};

}  // namespace

// --- Edits ------------------------------------------------------------------------------------

bool TparamCurve::perKeyTangentUpdate() {
  return internal::perKeyTangentUpdate();
}

Tdelta* TparamCurve::endMod() {
  // The journal belongs to this modification's records from now on, with
  // the keys' states as they end it.
  if (fMoveJournal) fMoveJournal->captureAfter();
  fMoveJournal.reset();
  return TdeltaUser::endMod();
}

void TparamCurve::dropEditState() {
  delete fMoveList;
  fMoveList = nullptr;
  flushBreakdownCache();
}

bool TparamCurve::beginEdit(TeditMode mode, const TpickKeyDictionary& picks) {
  if (mode < kEditNone || mode > kEditScaleKeys || fSendDepth != 0 || fMoveDepth != 0) return false;
  if (isEdit()) endEdit();
  fEditMode = mode;
  if (mode == kEditMoveKeys) beginMoveKeys(picks);
  // A selection-driven edit starts from fresh rotation data.
  fCurveFlags.setBit(kFlagQuaternionCache, false);
  return true;
}

bool TparamCurve::beginEdit(TeditMode mode, const TkeyframeHandlePtrArray& handles) {
  if (mode < kEditNone || mode > kEditScaleKeys || fSendDepth != 0 || fMoveDepth != 0) return false;
  if (isEdit()) endEdit();
  fEditMode = mode;
  if (mode == kEditMoveKeys) beginMoveKeys(handles);
  return true;
}

bool TparamCurve::endEdit() {
  if (fSendDepth != 0 || fMoveDepth != 0 || !isEdit()) return false;
  if (fEditMode == kEditMoveKeys) endMoveKeys();
  if (fEditMode == kEditScaleKeys) endScaleKeys();
  fEditMode = kEditNone;
  return true;
}

bool TparamCurve::beginMoveKeys(const TpickKeyDictionary& picks) {
  if (fSendDepth != 0 || fMoveDepth != 0) return false;
  dropEditState();
  fMoveList = new internal::TmoveList;
  std::uint32_t counter = 0;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    if ((pick.flags().bits() & TpickKey::kPickKey) == 0) continue;
    const TkeyframeHandle* handle = pick.handle();
    if (handle && keyOf(*this, *handle)) fMoveList->add(*handle, nullptr, true, counter);
    ++counter;
  }
  getAffectedBreakdowns(picks);
  listBreakdownFollowers();
  return true;
}

bool TparamCurve::beginMoveKeys(const TkeyframeHandlePtrArray& handles) {
  if (fSendDepth != 0 || fMoveDepth != 0) return false;
  dropEditState();
  fMoveList = new internal::TmoveList;
  for (unsigned i = 0; i < handles.count(); ++i) {
    const TkeyframeHandle* handle = handles[i];
    if (handle && keyOf(*this, *handle)) fMoveList->add(*handle, nullptr, true, i);
  }
  getAffectedBreakdowns(handles);
  listBreakdownFollowers();
  return true;
}

void TparamCurve::listBreakdownFollowers() {
  for (unsigned i = 0; i < breakdownCacheCount(); ++i) {
    TbreakdownData* record = fBreakdownCache->at(i);
    if (record->keyHandle())
      fMoveList->add(*record->keyHandle(), record, false, TmoveRecord::kNoPick);
  }
}

void TparamCurve::endMoveKeys() {
  if (fSendDepth != 0 || fMoveDepth != 0) return;
  dropEditState();
}

void TparamCurve::endScaleKeys() {
  if (fSendDepth != 0 || fMoveDepth != 0) return;
  flushBreakdownCache();
}

// --- Checks --------------------------------------------------------------------------------------

bool TparamCurve::canMove(const TpickKeyDictionary& picks, const TtimeValue& time, double /*value*/,
                          bool relative, TmoveOption option, bool check) const {
  if (!TmoveList::rule(option)) return false;
  bool any = false;
  TtimeValue earliest;
  TtimeValue latest;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const TkeyframeHandle* handle = pick.handle();
    if ((pick.flags().bits() & TpickKey::kPickKey) == 0 || !handle || !keyOf(*this, *handle)) {
      continue;
    }
    const TtimeValue t = pick.startTime();
    if (!any || t < earliest) earliest = t;
    if (!any || latest < t) latest = t;
    any = true;
  }
  if (!any) return false;
  if (!check) return true;
  if (!usableTime(*this, time)) return false;
  unsigned first = 0;
  unsigned last = 0;
  find(earliest, first);
  if (!find(latest, last) && last != 0) --last;
  if (!relative && first != last) return false;
  const TtimeValue newFirst = relative ? timeValue(first) + time : time;
  const TtimeValue newLast = relative ? timeValue(last) + time : time;
  if (option != kMoveKeepOrder) return true;
  const unsigned n = keyframeCount();
  if (relative && offsetSeconds(time) > 0.0) {
    return !(last + 1 < n && order(*this, newLast, timeValue(last + 1)) > 0);
  }
  if (relative) return !(first > 0 && order(*this, newFirst, timeValue(first - 1)) < 0);
  if (first + 1 < n && order(*this, newFirst, timeValue(first + 1)) > 0) return false;
  return !(first > 0 && order(*this, newFirst, timeValue(first - 1)) < 0);
}

bool TparamCurve::canMove(const TkeyframeHandlePtrArray& handles, const TtimeValue& delta,
                          double /*value*/, bool relative, TmoveOption option) const {
  const TmoveRule* rule = TmoveList::rule(option);
  if (!rule) return false;
  const unsigned n = keyframeCount();
  if (handles.count() == 0 || n == 0) return true;
  if (!usableTime(*this, delta)) return false;
  const TkeyframeHandle* firstHandle = handles[0];
  const TkeyframeHandle* lastHandle = handles[handles.count() - 1];
  if (!firstHandle || !lastHandle || !keyOf(*this, *firstHandle) || !keyOf(*this, *lastHandle)) {
    return false;
  }
  const unsigned first = firstHandle->index();
  const unsigned last = lastHandle->index();
  if (first == kNone || last == kNone) return false;
  if (option == kMoveKeepOrder) {
    const TtimeValue newFirst = timeValue(first) + delta;
    const TtimeValue newLast = timeValue(last) + delta;
    if (offsetSeconds(delta) > 0.0) {
      if (last + 1 < n && order(*this, newLast, timeValue(last + 1)) > 0) return false;
    } else if (first > 0 && order(*this, newFirst, timeValue(first - 1)) < 0) {
      return false;
    }
  }
  if (!relative)
    return rule->passes && !rule->ripple && option == kMovePass && handles.count() == 1;
  return true;
}

// --- Moving
// ---------------------------------------------------------------------------------------

namespace {

// The gathered delta of a curve when it is a curve composite.
TparamCurveDeltaComp* gatheredComposite(const TparamCurve& c) {
  const Tdelta* d = c.currentDelta();
  if (!isDeltaOfType(d, TparamCurveDeltaCompTmeta)) return nullptr;
  return const_cast<TparamCurveDeltaComp*>(static_cast<const TparamCurveDeltaComp*>(d));
}

}  // namespace

void TparamCurve::beginMoveOperation() {
  if (fMoveDepth++ != 0) return;
  // The drag records of one operation merge in one batch.
  if (TparamCurveDeltaComp* gathered = gatheredComposite(*this)) gathered->beginMergeBatch();
}

void TparamCurve::endMoveOperation() {
  if (--fMoveDepth != 0) return;
  if (TparamCurveDeltaComp* gathered = gatheredComposite(*this)) gathered->endMergeBatch();
}

void TparamCurve::noteMoveBefore(unsigned index) {
  if (!fMoveJournal) return;
  const unsigned first = index > 0 ? index - 1 : 0;
  for (unsigned i = first; i <= index + 1; ++i) {
    if (Tkeyframe* key = keyframe(i)) fMoveJournal->noteBefore(key);
  }
}

bool TparamCurve::moveKeys(const TpickKeyDictionary& picks, const TtimeValue& time, double value,
                           bool relative, TmoveOption option, bool moveBreakdowns, bool setTime,
                           bool setValue) {
  const TmoveRule* rule = TmoveList::rule(option);
  if (!rule || keyframeCount() == 0 || !usableTime(*this, time) || !std::isfinite(value)) {
    return false;
  }
  if (!beginEdit(kEditMoveKeys, picks)) return false;
  if (!fMoveList || fMoveList->empty() ||
      (setTime && !relative && !rule->allowsAbsolute(fMoveList->movingCount()))) {
    endEdit();
    return false;
  }
  beginMoveOperation();
  if (!beginChange()) {
    endMoveOperation();
    endEdit();
    return false;
  }
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    const Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !r.moves || !key) continue;
    const TtimeValue now = timeValue(key);
    r.target = relative ? clampTime(now + time) : (setTime ? time : now);
  }
  applyMoveKeyList(time, value, setValue, relative, option, moveBreakdowns, /*fromPicks=*/true);
  endMoveOperation();
  endEdit();
  endChange(true);
  return true;
}

bool TparamCurve::moveKeys(const TkeyframeHandlePtrArray& handles,
                           const TtimeValueArray& startTimes, const TtimeValue& time, double value,
                           TmoveOption option, bool moveBreakdowns, bool relative, bool setTime,
                           bool setValue) {
  const TmoveRule* rule = TmoveList::rule(option);
  if (!rule || !fMoveList || fMoveList->empty() || keyframeCount() == 0 ||
      !usableTime(*this, time) || !std::isfinite(value) || fSendDepth != 0) {
    return false;
  }
  if (setTime && !relative && !rule->allowsAbsoluteDrag(handles.count())) return false;
  // Every picked key needs its start time, of the curve's kind.
  for (unsigned i = 0; i < fMoveList->count() && setTime && relative; ++i) {
    const TmoveRecord& r = (*fMoveList)[i];
    if (!r.active || !r.moves || r.pickIndex == TmoveRecord::kNoPick) continue;
    if (r.pickIndex >= startTimes.count() || !usableTime(*this, startTimes[r.pickIndex])) {
      return false;
    }
  }
  beginMoveOperation();
  if (!beginChange()) {
    endMoveOperation();
    return false;
  }
  const TtimeValue zero = isAnimTime() ? TtimeValue(TanimTime(0)) : TtimeValue(0.0f);
  TtimeValue offset = setTime ? time : zero;
  bool offsetKnown = !setTime;
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    const Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !r.moves || !key) continue;
    const TtimeValue now = timeValue(key);
    r.target = now;
    if (!setTime) continue;
    if (!relative) {
      r.target = time;
    } else if (r.pickIndex != TmoveRecord::kNoPick) {
      r.target = clampTime(startTimes[r.pickIndex] + time);
    }
    // The offset of this call alone, which says the direction of the move
    // and how far a ripple shifts: the first key's way from where it is.
    if (!offsetKnown) {
      offset = r.target - now;
      offsetKnown = true;
    }
  }
  applyMoveKeyList(offset, value, setValue, relative, option, moveBreakdowns,
                   /*fromPicks=*/false);
  endMoveOperation();
  endChange(true);
  return true;
}

void TparamCurve::placeBreakdownTargets() {
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    const Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || r.moves || !r.breakdown || !key) continue;
    // A neighbour that moves contributes where it is going, any other where
    // it is.
    const auto secondsOf = [this](const TkeyframeHandle* h) {
      if (!h) return 0.0f;
      const TmoveRecord* n = fMoveList->find(h->keyframe());
      return n && n->moves ? n->target.inSeconds() : h->seconds();
    };
    const TbreakdownData& data = *r.breakdown;
    if (!data.previousHandle() && !data.nextHandle()) {
      r.target = timeValue(key);
      continue;
    }
    r.target = makeTimeValue(data.desiredSeconds(secondsOf(data.previousHandle()),
                                                 secondsOf(data.nextHandle()), seconds(key)));
  }
}

bool TparamCurve::applyMoveKeyList(const TtimeValue& delta, double value, bool setValue,
                                   bool relative, TmoveOption option, bool moveBreakdowns,
                                   bool fromPicks) {
  const TmoveRule* rule = TmoveList::rule(option);
  if (!rule || !fMoveList || fMoveList->empty() || keyframeCount() == 0) return false;
  const bool backward = offsetSeconds(delta) < 0.0;
  // A move of a quaternion rotation curve from a selection also changes its
  // siblings' keys: its records are kept whole rather than merged into
  // earlier drags by time and value alone (which do not compare W).
  const bool wasDictionaryMove = internal::dictionaryMove();
  internal::setDictionaryMove(fromPicks && isQuaternion(fRotationInterpolation));
  const TbatchTangents batch;
  if (moveBreakdowns) placeBreakdownTargets();

  // The records to visit, with their keys, in time order: forward moves
  // start with the last key and backward moves with the first, so that no
  // moved key is stopped by one that has still to move.
  struct Tvisit {
    TmoveRecord* record;
    Tkeyframe* key;
    double at;
  };
  std::vector<Tvisit> visits;
  visits.reserve(fMoveList->count());
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !key || (!r.moves && !moveBreakdowns)) continue;
    const double at = keyPosition(*this, *key);
    visits.push_back({&r, key, at});
  }
  std::stable_sort(visits.begin(), visits.end(), [backward](const Tvisit& a, const Tvisit& b) {
    return backward ? a.at < b.at : a.at > b.at;
  });

  // Ripple: every key from the moved block onward, in the direction of the
  // move, shifts by the offset first; the keys it covers then keep their
  // (new) times and only take their values.
  std::vector<std::pair<Tkeyframe*, unsigned>> touched;  // keys with where they may be
  touched.reserve(visits.size());
  bool rippled = false;
  double rippleEdge = 0.0;
  if (rule->ripple && offsetSeconds(delta) != 0.0 && !visits.empty()) {
    const Tvisit* edge = &visits.back();
    for (const Tvisit& v : visits) {
      if (v.record->moves) edge = &v;  // ends at the block's near end
    }
    const unsigned k = locate(*this, edge->key, edge->record->indexHint);
    if (k != kNone) {
      rippled = true;
      rippleEdge = edge->at;
      const auto shift = [&](unsigned i) {
        const Tkeyframe* key = keyframe(i);
        moveKeyframe(i, clampTime(timeValue(key) + delta), key->value(), option, true);
      };
      if (backward) {
        for (unsigned i = 0; i <= k; ++i) shift(i);
      } else {
        for (unsigned i = physicalCount(); i-- > k;) shift(i);
      }
      // The shifted keys keep their spacing but for the edge of the block.
      touched.emplace_back(edge->key, k);
    }
  }

  const bool quaternion = isQuaternion(fRotationInterpolation) && siblingsAvailable(*this);
  for (const Tvisit& v : visits) {
    TmoveRecord& r = *v.record;
    Tkeyframe* key = v.key;
    const unsigned index = locate(*this, key, r.indexHint);
    if (index == kNone) continue;  // the key left the curve meanwhile
    const bool covered = rippled && (backward ? v.at <= rippleEdge : v.at >= rippleEdge);
    const TtimeValue target = covered ? timeValue(key) : r.target;
    double newValue = key->value();
    if (r.moves && relative) {
      newValue = key->value() + value;
    } else if (r.moves && setValue) {
      newValue = value;
    }
    // A key that passes others leaves its old neighbours next to each other.
    Tkeyframe* oldPrevious = index > 0 ? keyframe(index - 1) : nullptr;
    Tkeyframe* oldNext = keyframe(index + 1);
    const Tkeyframe before = *key;
    if (quaternion) {
      // The three components move as one rotation once rotation
      // interpolation brings its maths; until then the curve's own
      // component moves and the key's W is kept.
      moveKeyframe(index, target, rotationWith(*this, newValue, key->quaternionW()), option, true);
    } else {
      moveKeyframe(index, target, newValue, option, true);
    }
    r.indexHint = locate(*this, key, index);
    noteTouched(touched, key, before, r.indexHint, index, rule->passes, oldPrevious, oldNext);
  }
  recomputeTangentsAround(touched);
  internal::setDictionaryMove(wasDictionaryMove);
  return true;
}

void TparamCurve::recomputeTangentsAround(std::vector<std::pair<Tkeyframe*, unsigned>>& keys) {
  if (keys.empty() || !beginChange()) return;
  std::vector<unsigned> indices;
  indices.reserve(keys.size());
  for (const auto& [key, hint] : keys) {
    const unsigned i = locate(*this, key, hint);
    if (i != kNone) indices.push_back(i);
  }
  std::sort(indices.begin(), indices.end());
  indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
  const unsigned n = keyframeCount();
  unsigned previous = kNone;
  for (const unsigned index : indices) {
    // The keys whose tangents this may change, as they are now (the key
    // before was noted with the previous index when it is next to it).
    if (isMod()) {
      if (previous != kNone && index == previous + 1) {
        if (fMoveJournal) {
          if (Tkeyframe* next = keyframe(index + 1)) fMoveJournal->noteBefore(next);
        }
      } else {
        noteMoveBefore(index);
      }
    }
    if (previous == kNone || index != previous + 1) {
      modifyTangents(index);
    } else {
      const Tkeyframe* key = keyframe(index);
      if (!key || key->tanInType() != key->tanOutType()) {
        tangentMethodIdentifier(index, /*inSide=*/false, false);
      }
      if (index + 1 < n) tangentMethodIdentifier(index + 1, /*inSide=*/true, false);
    }
    previous = index;
  }
  endChange(true);
}

void TparamCurve::swapKeys(unsigned from, unsigned to) {
  TkeyArray* array = keyArray();
  const unsigned n = physicalCount();
  if (!array || from >= n || to >= n || from == to) return;
  // The keys in between shift by one place: a rotation of that stretch of
  // pointers, not a removal and insertion that would move the whole tail.
  Tkeyframe** keys = array->keys();
  if (from < to) {
    std::rotate(keys + from, keys + from + 1, keys + to + 1);
  } else {
    std::rotate(keys + to, keys + from, keys + from + 1);
  }
  invalidateCache(static_cast<int>(std::min(from, to)));
  if (internal::perKeyTangentUpdate()) modifyTangents(to);
}

bool TparamCurve::moveKeyframeHelper(Tkeyframe* key, unsigned index, const TtimeValue& time,
                                     double value, double w, TmoveOption option, bool recordUndo) {
  if (!key || keyframe(index) != key || !TmoveList::rule(option)) return false;
  if (!usableTime(*this, time) || !std::isfinite(value) || std::isnan(w)) return false;
  const TtimeValue oldTime = timeValue(key);
  const double oldValue = key->value();
  const double oldW = key->quaternionW();
  if (oldTime == time && oldValue == value && oldW == static_cast<float>(w)) return true;
  if (!beginChange()) return false;
  const bool recording = recordUndo && isMod();
  if (recording && !fMoveJournal) fMoveJournal = std::make_shared<internal::TmoveJournal>(*this);
  if (recording) noteMoveBefore(index);

  unsigned now = index;
  const int direction = order(*this, time, oldTime);
  TtimeValue target = time;
  if (direction != 0 && !TmoveList::rule(option)->passes) {
    // Keys keep their order: the key stops a tick short of the neighbour it
    // would reach (never behind where it started).
    if (direction > 0) {
      const Tkeyframe* next = keyframe(index + 1);
      if (next && order(*this, target, timeValue(next)) >= 0) {
        target = plusTicks(timeValue(next), -1);
        if (order(*this, target, oldTime) < 0) target = oldTime;
      }
    } else {
      const Tkeyframe* previous = index > 0 ? keyframe(index - 1) : nullptr;
      if (previous && order(*this, target, timeValue(previous)) <= 0) {
        target = plusTicks(timeValue(previous), 1);
        if (order(*this, target, oldTime) > 0) target = oldTime;
      }
    }
  } else if (direction != 0) {
    // Keys pass: the key's place among the others, stepping a tick back
    // towards where it came from while it lands on another key's time.
    const unsigned n = physicalCount();
    unsigned place = index;
    // A dragged key usually passes a neighbour or two: the search gallops
    // out from where the key is, then halves the last stretch.
    if (direction > 0) {
      // The first key after the target, among index+1..n-1 (n for none).
      const auto atOrBefore = [&](unsigned i) { return order(*this, timeValue(i), target) <= 0; };
      unsigned lo = index + 1;
      unsigned hi = lo;
      for (unsigned step = 1; hi < n && atOrBefore(hi); step *= 2) {
        lo = hi + 1;
        hi = n - hi > step ? hi + step : n;
      }
      while (lo < hi) {
        const unsigned mid = lo + (hi - lo) / 2;
        if (atOrBefore(mid)) {
          lo = mid + 1;
        } else {
          hi = mid;
        }
      }
      place = lo - 1;  // the last key at or before the target
      while (place > index && order(*this, timeValue(place), target) == 0) {
        target = plusTicks(target, -1);
        if (order(*this, timeValue(place), target) >= 0) --place;
      }
    } else {
      // The first key at or after the target, among 0..index-1 (index for none).
      const auto before = [&](unsigned i) { return order(*this, timeValue(i), target) < 0; };
      unsigned hi = index;
      unsigned lo = hi;
      for (unsigned step = 1; lo > 0 && !before(lo - 1); step *= 2) {
        hi = lo - 1;
        lo = hi > step ? hi - step : 0;
      }
      while (lo < hi) {
        const unsigned mid = lo + (hi - lo) / 2;
        if (before(mid)) {
          lo = mid + 1;
        } else {
          hi = mid;
        }
      }
      place = lo;
      while (place < index && order(*this, timeValue(place), target) == 0) {
        target = plusTicks(target, 1);
        if (order(*this, timeValue(place), target) <= 0) ++place;
      }
    }
    if (place != index && recording) {
      // The keys the key lands between change too.
      for (const unsigned i :
           {place, direction > 0 ? place + 1 : (place > 0 ? place - 1 : place)}) {
        if (Tkeyframe* k = keyframe(i)) fMoveJournal->noteBefore(k);
      }
    }
    now = place;
  }

  key->setTimeAndValue(target, value, w);
  const bool timeChanged = !(timeValue(key) == oldTime);
  if (now != index) {
    // The old neighbours close up over the gap; their tangents follow below.
    Tkeyframe* oldPrevious = index > 0 ? keyframe(index - 1) : nullptr;
    const bool perKey = internal::perKeyTangentUpdate();
    internal::setPerKeyTangentUpdate(false);
    swapKeys(index, now);
    internal::setPerKeyTangentUpdate(perKey);
    if (oldPrevious && oldPrevious != keyframe(now)) {
      const unsigned i = locate(*this, oldPrevious, now < index ? index : index - 1);
      if (i != kNone) {
        setSpanInterpMethod(i);
        if (perKey) modifyTangents(i);
      }
    }
    setSpanInterpMethod(now);
  }
  invalidateCache(static_cast<int>(std::min(index, now)));
  notifyClientsOfChange(key, Tmsg::kKeyChanged);
  if (timeChanged) {
    if (internal::perKeyTangentUpdate()) modifyTangents(now);
    if (staticCurve()) checkStaticValueCondition(now);
    if (hasClientMessage(nullptr, TkeyframeMovedMsgTmeta)) {
      ++fSendDepth;
      notifyClients(TkeyframeMovedMsg(oldTime, timeValue(key), option));
      --fSendDepth;
    }
  } else if (staticCurve()) {
    checkStaticValueCondition(now);
  }
  if (recording) {
    const bool append = internal::dictionaryMove();
    // A key dragged on: its record from the previous step takes the new end
    // in place, as merging a new record into it would leave it.
    TparamCurveDeltaComp* gathered = append ? nullptr : gatheredComposite(*this);
    TPCDdragKey* same =
        gathered ? gathered->continueDrag(this, key, oldTime, oldValue, fMoveJournal.get())
                 : nullptr;
    if (same) {
      same->setNewState(timeValue(key), key->value(), key->quaternionW(), option);
    } else {
      auto* delta = new TPCDdragKey(this, new TkeyframeHandle(this, key, /*makeClient=*/false),
                                    oldTime, timeValue(key), oldValue, key->value(), oldW,
                                    key->quaternionW(), option, append);
      delta->setJournal(fMoveJournal);
      addDelta(delta, append);
    }
  }
  endChange(true);
  return true;
}

bool TparamCurve::moveKeyframe(unsigned index, const TtimeValue& time, double value,
                               TmoveOption option, bool recordUndo) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  beginMoveOperation();
  const bool moved =
      moveKeyframeHelper(key, index, time, value, key->quaternionW(), option, recordUndo);
  endMoveOperation();
  return moved;
}

bool TparamCurve::moveKeyframe(unsigned index, const TtimeValue& time, const Tquaternion& rotation,
                               TmoveOption option, bool recordUndo) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  // The rotation's own component stands for the Euler angle of this curve
  // until rotation interpolation brings the conversion between the two; W
  // is stored as it comes.
  beginMoveOperation();
  const bool moved = moveKeyframeHelper(key, index, time, ownComponent(*this, rotation), rotation.w,
                                        option, recordUndo);
  endMoveOperation();
  return moved;
}

bool TparamCurve::moveKeyframeInValue(unsigned index, double value, double w) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  beginMoveOperation();
  const bool moved = moveKeyframeHelper(key, index, timeValue(key), value,
                                        std::isnan(w) ? key->quaternionW() : w, kMoveKeepOrder,
                                        /*recordUndo=*/true);
  endMoveOperation();
  return moved;
}

bool TparamCurve::moveForDeltaUndoRedo(TkeyframeHandle* handle, const TtimeValue& time,
                                       double value, double w, TmoveOption option) {
  if (!handle || !TmoveList::rule(option) || handle->paramCurve() != this) return false;
  const unsigned index = handle->index();
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  // Keys of one drag go back one at a time, so a key may have to pass one
  // that has not gone back yet, whatever the option of the drag.
  beginMoveOperation();
  const bool moved =
      moveKeyframeHelper(key, index, time, value, std::isnan(w) ? key->quaternionW() : w, kMovePass,
                         /*recordUndo=*/false);
  endMoveOperation();
  return moved;
}

bool TparamCurve::moveEachKey(const TkeyframeHandlePtrArray& /*handles*/,
                              const TtimeValueArray& newTimes, const TdoubleArray* newValues,
                              TmoveOption option, bool moveBreakdowns) {
  if (!TmoveList::rule(option) || !fMoveList || fMoveList->empty() || keyframeCount() == 0 ||
      fSendDepth != 0) {
    return false;
  }
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    const TmoveRecord& r = (*fMoveList)[i];
    if (!r.active || !r.moves || r.pickIndex == TmoveRecord::kNoPick) continue;
    if (r.pickIndex >= newTimes.count() || (newValues && r.pickIndex >= newValues->count())) {
      return false;
    }
    if (newValues && !std::isfinite((*newValues)[r.pickIndex])) return false;
    const TtimeValue& t = newTimes[r.pickIndex];
    if (t.isFloat() && !std::isfinite(t.asFloat())) return false;
  }
  beginMoveOperation();
  if (!beginChange()) {
    endMoveOperation();
    return false;
  }
  struct Tvisit {
    TmoveRecord* record;
    Tkeyframe* key;
    double at;
    bool earlier;
  };
  std::vector<Tvisit> visits;
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !key) continue;
    r.target = timeValue(key);
    if (r.moves && r.pickIndex != TmoveRecord::kNoPick && sameKind(*this, newTimes[r.pickIndex])) {
      r.target = newTimes[r.pickIndex];
    }
  }
  if (moveBreakdowns) placeBreakdownTargets();
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    TmoveRecord& r = (*fMoveList)[i];
    Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !key || (!r.moves && !moveBreakdowns)) continue;
    const double at = keyPosition(*this, *key);
    visits.push_back({&r, key, at, order(*this, r.target, timeValue(key)) < 0});
  }
  // Keys that go earlier move first, first key first; then the others, last
  // key first: no moved key is blocked by one that has still to move.
  std::stable_sort(visits.begin(), visits.end(), [](const Tvisit& a, const Tvisit& b) {
    if (a.earlier != b.earlier) return a.earlier;
    return a.earlier ? a.at < b.at : a.at > b.at;
  });
  const TbatchTangents batch;
  std::vector<std::pair<Tkeyframe*, unsigned>> touched;
  touched.reserve(visits.size());
  for (const Tvisit& v : visits) {
    const unsigned index = locate(*this, v.key, v.record->indexHint);
    if (index == kNone) continue;
    const bool picked = v.record->moves && v.record->pickIndex != TmoveRecord::kNoPick;
    const double value = picked && newValues ? (*newValues)[v.record->pickIndex] : v.key->value();
    Tkeyframe* oldPrevious = index > 0 ? keyframe(index - 1) : nullptr;
    Tkeyframe* oldNext = keyframe(index + 1);
    const Tkeyframe before = *v.key;
    moveKeyframe(index, v.record->target, value, option, true);
    v.record->indexHint = locate(*this, v.key, index);
    noteTouched(touched, v.key, before, v.record->indexHint, index, TmoveList::rule(option)->passes,
                oldPrevious, oldNext);
  }
  recomputeTangentsAround(touched);
  endMoveOperation();
  endChange(true);
  return true;
}

bool TparamCurve::moveKeys(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& newTimes,
                           const TtimeValueArray& /*oldTimes*/, const TdoubleArray& newValues,
                           const TdoubleArray& /*oldValues*/, TmoveOption option,
                           bool moveBreakdowns) {
  return moveEachKey(handles, newTimes, &newValues, option, moveBreakdowns);
}

bool TparamCurve::replaceKeys(const TkeyframeHandlePtrArray& handles,
                              const TtimeValueArray& newTimes, const TtimeValueArray& /*oldTimes*/,
                              TmoveOption option) {
  return moveEachKey(handles, newTimes, nullptr, option, /*moveBreakdowns=*/false);
}

// --- Undo records of moves made elsewhere -------------------------------------------------------

void TparamCurve::generateDeltasForMove(const TkeyframeHandlePtrArray& handles,
                                        const TtimeValueArray& times, const TdoubleArray* values,
                                        const double* value, const TquaternionArray* rotations,
                                        TmoveOption option) {
  if (handles.count() == 0 || keyframeCount() == 0 || !isMod() || !fMoveList ||
      fMoveList->empty() || !TmoveList::rule(option)) {
    return;
  }
  struct Tstep {
    Tkeyframe* key;
    TtimeValue oldTime;
    double oldValue;
    double oldW;
    bool moves;
  };
  std::vector<Tstep> steps;
  for (unsigned i = 0; i < fMoveList->count(); ++i) {
    const TmoveRecord& r = (*fMoveList)[i];
    Tkeyframe* key = keyOf(*this, r.handle);
    if (!r.active || !key || locate(*this, key, r.indexHint) == kNone) continue;
    Tstep step{key, timeValue(key), key->value(), key->quaternionW(), r.moves != 0};
    const unsigned pick = r.pickIndex;
    if (r.moves && pick != TmoveRecord::kNoPick) {
      if (pick >= times.count() || !usableTime(*this, times[pick])) continue;
      step.oldTime = times[pick];
      if (rotations && pick < rotations->count()) {
        step.oldValue = ownComponent(*this, (*rotations)[pick]);
        step.oldW = (*rotations)[pick].w;
      } else if (values && pick < values->count()) {
        step.oldValue = (*values)[pick];
      } else if (value) {
        step.oldValue = key->value() - *value;
      }
    } else if (r.breakdown && r.breakdown->savedKey()) {
      const Tkeyframe& saved = *r.breakdown->savedKey();
      step.oldTime = timeValue(&saved);
      step.oldValue = saved.value();
    } else {
      continue;
    }
    if (!std::isfinite(step.oldValue)) continue;
    steps.push_back(step);
  }
  // One rigid shift of the picked keys is recorded as one block; anything
  // else as one drag per key.
  bool rigid = !steps.empty();
  TtimeValue offset;
  double valueOffset = 0.0;
  bool first = true;
  for (const Tstep& step : steps) {
    if (!step.moves) continue;
    const TtimeValue dt = timeValue(step.key) - step.oldTime;
    const double dv = step.key->value() - step.oldValue;
    if (first) {
      offset = dt;
      valueOffset = dv;
      first = false;
    } else if (!(dt == offset) || dv != valueOffset || step.oldW != step.key->quaternionW()) {
      rigid = false;
    }
  }
  if (first) rigid = false;
  if (rigid) {
    TkeyframeHandlePtrArray owned;
    for (const Tstep& step : steps) {
      if (step.moves) owned.addLast(new TkeyframeHandle(this, step.key, /*makeClient=*/false));
    }
    addDelta(new TPCDdragSegment(this, std::move(owned), offset, valueOffset), false);
    return;
  }
  for (const Tstep& step : steps) {
    Tkeyframe* key = step.key;
    if (step.oldTime == timeValue(key) && step.oldValue == key->value() &&
        step.oldW == key->quaternionW()) {
      continue;
    }
    addDelta(new TPCDdragKey(this, new TkeyframeHandle(this, key, /*makeClient=*/false),
                             step.oldTime, timeValue(key), step.oldValue, key->value(), step.oldW,
                             key->quaternionW(), option),
             false);
  }
}

bool TparamCurve::moveBlockForDeltaUndoRedo(const TkeyframeHandlePtrArray& handles,
                                            const TtimeValue& offset, double valueOffset,
                                            TmoveOption option, bool moveBreakdowns) {
  if (fSendDepth != 0 || fMoveDepth != 0 || handles.count() == 0) return false;
  // The host's own move edit, if one is open, waits aside meanwhile.
  internal::TmoveList* hostList = std::exchange(fMoveList, nullptr);
  internal::TbreakdownCache* hostCache = std::exchange(fBreakdownCache, nullptr);
  beginMoveKeys(handles);
  TtimeValueArray starts;
  for (unsigned i = 0; i < handles.count(); ++i) {
    starts.addLast(handles[i] ? handles[i]->timeValue() : TtimeValue());
  }
  const bool moved = moveKeys(handles, starts, offset, valueOffset, option, moveBreakdowns,
                              /*relative=*/true, /*setTime=*/true, /*setValue=*/true);
  dropEditState();
  fMoveList = hostList;
  fBreakdownCache = hostCache;
  return moved;
}

// --- Tangent types of a selection
// ------------------------------------------------------------------

bool TparamCurve::setTangentType(const TpickKeyDictionary& picks, TtangentType inType,
                                 TtangentType outType, bool setIn, bool setOut) {
  if (!beginChange()) return false;
  unsigned previous = kNone;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const TkeyframeHandle* handle = pick.handle();
    const Tkeyframe* key = handle ? keyOf(*this, *handle) : nullptr;
    if (!key) continue;
    // Picks come in time order, so the key is usually the one after the
    // previous pick's.
    const unsigned index = locate(*this, key, previous == kNone ? kNone : previous + 1);
    if (index == kNone) continue;
    previous = index;
    const unsigned bits = pick.flags().bits();
    if (setIn && (bits & (TpickKey::kPickKey | TpickKey::kPickInTangent)) != 0) {
      setTangentTypeHelper(index, inType, Tkeyframe::kInSide);
    }
    if (setOut && (bits & (TpickKey::kPickKey | TpickKey::kPickOutTangent)) != 0) {
      setTangentTypeHelper(index, outType, Tkeyframe::kOutSide);
    }
  }
  endChange(true);
  return true;
}

}  // namespace lumora

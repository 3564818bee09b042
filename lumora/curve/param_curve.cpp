// TparamCurve: construction, flags, key storage and lookup.
#include "lumora/curve/param_curve.h"
#include "lumora/notify/param_curve_msgs.h"

#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lumora/base/debug_output.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/preference.h"
#include "lumora/curve/bezier_segment_evaluator.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/prefs/internal/prefs_module.h"
#include "lumora/prefs/pref_keyframe.h"

namespace lumora {

TtimeValue TparamCurve::fsTimeValue;

// --- Construction ------------------------------------------------------------------

TparamCurve::TparamCurve(bool isFloat) {
  fCurveFlags.setBit(kFlagWeighted, true);
  fCurveFlags.setBit(kFlagQuaternionCache, false);
  if (const TprefKeyframe* pref = internal::keyframePreference()) {
    fCurveFlags.setBit(kFlagWeighted, pref->weightedTangents());
  }
  if (isFloat) {
    fFloatKeys = new TkeyArray(/*ticks=*/false);
  } else {
    fTickKeys = new TkeyArray(/*ticks=*/true);
  }
  fSegmentEvaluator = makeEvaluator(isWeighted());
  setStaticCurve(true);
}

TparamCurve::TparamCurve(const TparamCurve& other) : TdeltaUser(), TclientServer() {
  copyFrom(other);
}

TparamCurve& TparamCurve::operator=(const TparamCurve& other) {
  if (this == &other) return *this;
  removeAllKeys(/*recreate=*/false, /*deleteKeys=*/true);
  delete fFloatKeys;
  delete fTickKeys;
  fFloatKeys = fTickKeys = nullptr;
  delete fSegmentEvaluator;
  fSegmentEvaluator = nullptr;
  fCursor.reset();  // the new evaluator has no span loaded either
  copyFrom(other);
  return *this;
}

void TparamCurve::copyFrom(const TparamCurve& other) {
  fRotationInterpolation = other.fRotationInterpolation;
  fPreInfinity = other.fPreInfinity;
  fPostInfinity = other.fPostInfinity;
  fCurveFlags = other.fCurveFlags;
  fCurveFlags.setBit(kFlagQuaternionCache, false);
  fCurveFlags.setBit(kFlagBlockAdd, false);
  // A curve without key storage copies as one: the kind lives in the array.
  if (other.isFloat()) {
    fFloatKeys = new TkeyArray(/*ticks=*/false);
  } else if (other.isAnimTime()) {
    fTickKeys = new TkeyArray(/*ticks=*/true);
  }
  fSegmentEvaluator = makeEvaluator(isWeighted());
  const TkeyArray* source = other.keyArray();
  if (source) {
    keyArray()->changePhysicalSizeTo(source->count());
    for (unsigned i = 0; i < source->count(); ++i) {
      auto* copy = new Tkeyframe(*source->at(i));
      if (keyArray()->appendKey(copy) != 0) delete copy;
    }
  }
  invalidateCache(-1);
}

TparamCurve::~TparamCurve() {
  // A curve destroyed while messages are delayed must not be reported later.
  if (TparamCurveMsgDepot* depot = internal::msgDepot()) depot->removeChangedCurve(this);
  removeAllKeys(/*recreate=*/false, /*deleteKeys=*/true);
  dropEditState();
  delete fSegmentEvaluator;
  fSegmentEvaluator = nullptr;
}

TsegmentEvaluator* TparamCurve::makeEvaluator(bool weighted) const {
  const bool floatTimes = fFloatKeys != nullptr;
  if (weighted) return new TbezierSegmentEvaluator(floatTimes);
  return new ThermiteSegmentEvaluator(floatTimes);
}

void TparamCurve::removeAllKeys(bool recreate, bool deleteKeys) {
  // Refused from inside one of the curve's own messages, like every edit.
  if (fSendDepth != 0) return;
  // The breakdown records name keys that are about to go.
  flushBreakdownCache();
  // The curve lets go of its keys before anyone hears of them: a client that
  // reads the curve from a key-removed message sees it already empty, and
  // every key it is told about is still alive during its message.
  TkeyArray* array = keyArray();
  const bool ticks = fTickKeys != nullptr;
  fFloatKeys = fTickKeys = nullptr;
  if (recreate && array) (ticks ? fTickKeys : fFloatKeys) = new TkeyArray(ticks);
  setStaticCurve(true);
  invalidateCache(-1);
  if (fRotationInterpolation == kQuaternion) dirtyQuaternionEulerCache(-1);
  if (!array) return;
  const unsigned n = array->count();
  if (deleteKeys) {
    for (unsigned i = 0; i < n; ++i) {
      Tkeyframe* key = array->at(i);
      sendAddDeleteMessage(key, /*added=*/false);
      notifyClientsOfChange(key, TparamCurveModifiedMsg::kKeyRemoved);
    }
    // Deleted only after the last message, so that no message, and no client
    // reading the keys it was told about, meets a freed key.
    for (unsigned i = 0; i < n; ++i) delete array->at(i);
  } else {
    // The caller owns the keys now; handles hear that they left the curve.
    for (unsigned i = 0; i < n; ++i) sendAddDeleteMessage(array->at(i), /*added=*/false);
    array->releaseAll();
  }
  delete array;
}

// --- Rotation interpolation and siblings --------------------------------------------

bool TparamCurve::getSiblingRotationCurves(TparamCurve** x, TparamCurve** y, TparamCurve** z,
                                           bool create) const {
  if (fTdnCurve && fSiblingCurvesCallback) {
    return fSiblingCurvesCallback(fTdnCurve, x, y, z, create);
  }
  if (x) *x = const_cast<TparamCurve*>(this);
  if (y) *y = nullptr;
  if (z) *z = nullptr;
  return false;
}

void TparamCurve::rotationCurveSet(TparamCurve* (&curves)[3]) {
  curves[0] = this;
  curves[1] = curves[2] = nullptr;
  if (fRotationInterpolation != kQuaternion) return;
  TparamCurve* x = nullptr;
  TparamCurve* y = nullptr;
  TparamCurve* z = nullptr;
  if (!getSiblingRotationCurves(&x, &y, &z, false) || !x || !y || !z) return;
  curves[0] = x;
  curves[1] = y;
  curves[2] = z;
}

void TparamCurve::setCachedSiblingCurves(TparamCurve* x, TparamCurve* y, TparamCurve* z) {
  fSiblingX = x;
  fSiblingY = y;
  fSiblingZ = z;
}

void TparamCurve::getCachedSiblingCurves(TparamCurve*& x, TparamCurve*& y, TparamCurve*& z) const {
  x = fSiblingX;
  y = fSiblingY;
  z = fSiblingZ;
}

void TparamCurve::dirtyQuaternionEulerCache(int /*index*/) {
  // The quaternion-Euler cache is rebuilt lazily by rotation evaluation; any
  // change invalidates it as a whole.
  fCurveFlags.setBit(kFlagQuaternionCache, false);
}

// --- Key access ------------------------------------------------------------------------

unsigned TparamCurve::physicalCount() const {
  const TkeyArray* array = keyArray();
  return array ? array->count() : 0;
}

Tkeyframe* TparamCurve::keyframe(unsigned i) const {
  const TkeyArray* array = keyArray();
  return array ? array->at(i) : nullptr;
}

unsigned TparamCurve::keyframeCount() const {
  const TkeyArray* array = keyArray();
  if (!array) return 0;
  if (!deferredDeletion()) return array->count();
  unsigned live = 0;
  for (unsigned i = 0; i < array->count(); ++i) {
    const Tkeyframe* key = array->at(i);
    if (key && !key->toBeDeleted()) ++live;
  }
  return live;
}

TtimeValue TparamCurve::timeValue(const Tkeyframe* key) const {
  if (!key) return {};
  if (fTickKeys) return TtimeValue(key->timeAsAnimTime());
  if (fFloatKeys) return TtimeValue(key->timeAsFloat());
  return {};
}

TtimeValue& TparamCurve::timeValueRef(const Tkeyframe* key) const {
  static TtimeValue scratch;
  scratch = timeValue(key);
  return scratch;
}

TanimTime TparamCurve::animTime(const Tkeyframe* key) const {
  if (key && fTickKeys) return key->timeAsAnimTime();
  TanimTime t;
  t.setValue(key ? key->timeAsFloat() : 0.0, TtimeUnitSystem::kSeconds);
  return t;
}

TtimeValue TparamCurve::makeTimeValue(float secs) const {
  if (fFloatKeys) return TtimeValue(secs);
  if (fTickKeys) {
    TanimTime t;
    t.setValue(secs, TtimeUnitSystem::kSeconds);
    return TtimeValue(t);
  }
  return {};
}

TtimeValue TparamCurve::minTimeValue() const {
  if (fTickKeys) return TtimeValue(TanimTime::minTime);
  if (fFloatKeys) return TtimeValue(-FLT_MAX);
  return {};
}

TtimeValue TparamCurve::maxTimeValue() const {
  if (fTickKeys) return TtimeValue(TanimTime::maxTime);
  if (fFloatKeys) return TtimeValue(FLT_MAX);
  return {};
}

// --- Lookup ------------------------------------------------------------------------------

namespace {

// Asks for the cache line at `p` without waiting for it.
inline void prefetch(const void* p) {
#if defined(__GNUC__)
  __builtin_prefetch(p);
#else
  static_cast<void>(p);
#endif
}

// Binary search of the keys: `order` tells whether the probe comes before (<0),
// after (>0) or at (0) a key. Found: true and the key's index; not found:
// false and the insertion position.
template <typename Order>
bool searchKeys(const TkeyArray& array, Order order, unsigned& index) {
  Tkeyframe* const* keys = array.keys();
  std::int64_t low = 0;
  std::int64_t high = static_cast<std::int64_t>(array.count()) - 1;
  while (low <= high) {
    const std::int64_t mid = (low + high) >> 1;
    // Keys live apart from the array, so each step misses the cache on its
    // key. Requesting both keys the next step may read, before this one is
    // compared, overlaps those misses with the comparison.
    const std::int64_t nextIfBefore = (low + mid - 1) >> 1;
    const std::int64_t nextIfAfter = (mid + 1 + high) >> 1;
    if (nextIfBefore >= low) prefetch(keys[nextIfBefore]);
    if (nextIfAfter <= high) prefetch(keys[nextIfAfter]);
    const int where = order(*keys[mid]);
    if (where < 0) {
      high = mid - 1;
    } else if (where > 0) {
      low = mid + 1;
    } else {
      index = static_cast<unsigned>(mid);
      return true;
    }
  }
  index = static_cast<unsigned>(low);
  return false;
}

// True when searchKeys() would move right at every step and end past the last
// key. Keys added in time order are each looked up past the end first; this
// walks the search's rightmost path alone, without the prefetches that help
// lookups inside the keys. The last key comes first, so that a probe inside
// the keys costs one comparison. The whole path is compared, not the last key
// alone, because keys whose times were changed in place may be out of order,
// and the answer must still be the search's.
template <typename Order>
bool liesPastSearchPath(const TkeyArray& array, Order order) {
  Tkeyframe* const* keys = array.keys();
  const std::int64_t high = static_cast<std::int64_t>(array.count()) - 1;
  if (high < 0 || order(*keys[high]) <= 0) return false;
  for (std::int64_t low = 0; low < high;) {
    const std::int64_t mid = (low + high) >> 1;
    if (order(*keys[mid]) <= 0) return false;
    low = mid + 1;
  }
  return true;
}

// The order of a tick probe against a key of a tick array: exact ticks.
auto tickOrder(std::int32_t probe) {
  return [probe](const Tkeyframe& key) {
    const std::int32_t ticks = key.timeAsTicks();
    return probe < ticks ? -1 : (probe > ticks ? 1 : 0);
  };
}

// The order of a seconds probe against a key of a float array, with the keys'
// 1e-5 s tolerance.
auto secondsOrder(float probe) {
  return [probe](const Tkeyframe& key) {
    const float time = key.timeAsFloat();
    if (probe < time - Tkeyframe::kTimeTolerance) return -1;
    return probe > time + Tkeyframe::kTimeTolerance ? 1 : 0;
  };
}

// Exact ticks on a tick array.
bool searchTicks(const TkeyArray& array, std::int32_t probe, unsigned& index) {
  return searchKeys(array, tickOrder(probe), index);
}

// Seconds on a float array. A NaN probe is never found and would be inserted
// first.
bool searchSeconds(const TkeyArray& array, float probe, unsigned& index) {
  index = 0;
  if (std::isnan(probe)) return false;
  return searchKeys(array, secondsOrder(probe), index);
}

// The ticks that makeTimeValue() gives a tick curve for `seconds`.
std::int32_t secondsToTicks(float seconds) {
  TanimTime ticks;
  ticks.setValue(seconds, TtimeUnitSystem::kSeconds);
  return ticks.inTicks();
}

}  // namespace

bool TparamCurve::find(const TtimeValue& t, unsigned& index) const {
  index = 0;
  const TkeyArray* array = keyArray();
  if (!array || array->count() == 0) return false;
  if (fTickKeys) {
    const std::int32_t probe = t.asAnimTime().inTicks();
    if (liesPastSearchPath(*array, tickOrder(probe))) {
      index = array->count();
      return false;
    }
    return searchTicks(*array, probe, index);
  }
  const float probe = t.inSeconds();
  // A NaN probe compares as equal to every key, so it is left to the search.
  if (liesPastSearchPath(*array, secondsOrder(probe))) {
    index = array->count();
    return false;
  }
  return searchSeconds(*array, probe, index);
}

bool TparamCurve::findSample(float seconds, unsigned& index) const {
  index = 0;
  const TkeyArray* array = keyArray();
  if (!array || array->count() == 0) return false;
  if (fTickKeys) return searchTicks(*array, secondsToTicks(seconds), index);
  return searchSeconds(*array, seconds, index);
}

bool TparamCurve::secondsBefore(float seconds, const Tkeyframe* key) const {
  if (!key) return false;
  if (fFloatKeys) return seconds < key->timeAsFloat();
  if (fTickKeys) return secondsToTicks(seconds) < key->timeAsTicks();
  return false;
}

bool TparamCurve::incrementalFind(const TtimeValue& t, unsigned& index, bool forward) const {
  if (index != kInvalidIndex) {
    const unsigned n = physicalCount();
    if (forward && n > 0 && index < n - 1 && t == timeValue(index + 1)) {
      index = index + 1;
    } else if (!forward && index > 0 && index < n + 1 && t == timeValue(index - 1)) {
      index = index - 1;
    } else {
      index = kInvalidIndex;
    }
  }
  if (index != kInvalidIndex) return true;
  return find(t, index);
}

Tkeyframe* TparamCurve::seekKey(unsigned& index, int direction) const {
  if (!deferredDeletion()) {
    if (direction == 0) return keyframe(index);
    if (direction < 0 && index > 0) {
      index = index - 1;
      return keyframe(index);
    }
    if (direction <= 1) return nullptr;
    index = index + 1;
    return keyframe(index);
  }

  const unsigned n = keyframeCount();
  if (n == 0) return nullptr;
  const auto live = [](const Tkeyframe* k) { return k && !k->toBeDeleted(); };
  if (direction == 0) {
    if (index >= n) return nullptr;
    unsigned seen = 0;
    for (unsigned i = 0; i < physicalCount(); ++i) {
      Tkeyframe* key = keyframe(i);
      if (!live(key)) continue;
      if (seen == index) {
        index = i;
        return key;
      }
      ++seen;
    }
    return nullptr;
  }
  if (direction > 0) {
    if (index >= n - 1) return nullptr;
    while (index < n - 1) {
      ++index;
      Tkeyframe* key = keyframe(index);
      if (live(key)) return key;
    }
    return nullptr;
  }
  if (index == 0) return nullptr;
  while (index > 0) {
    --index;
    Tkeyframe* key = keyframe(index);
    if (live(key)) return key;
  }
  return nullptr;
}

// --- Direct key changes ----------------------------------------------------------------

void TparamCurve::setValue(unsigned i, double v) {
  Tkeyframe* key = keyframe(i);
  if (!key || std::isnan(v) || key->value() == v) return;
  if (!beginChange()) return;
  key->setValue(v);
  if (staticCurve()) checkStaticValueCondition(i);
  invalidateCache(static_cast<int>(i));
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kKeyChanged);
  endChange(true);
}

void TparamCurve::setValue(unsigned i, double v, float w) {
  Tkeyframe* key = keyframe(i);
  if (!key || std::isnan(v) || std::isnan(w)) return;
  if (key->value() == v && key->quaternionW() == w) return;
  if (!beginChange()) return;
  key->setValue(v);
  key->setQuaternionW(w);
  if (staticCurve()) checkStaticValueCondition(i);
  invalidateCache(static_cast<int>(i));
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kKeyChanged);
  endChange(true);
}

bool TparamCurve::setTime(unsigned i, const TtimeValue& t) {
  Tkeyframe* key = keyframe(i);
  if (!key) return false;
  if (t.isFloat() && !std::isfinite(t.asFloat())) return false;
  if (timeValue(key) == t) return true;
  if (!beginChange()) return false;
  const bool sameKind = (t.isAnimTime() && fTickKeys) || (t.isFloat() && fFloatKeys);
  if (!sameKind) {
    endChange(false);
    return false;
  }
  key->setTime(t);
  const bool ordered = keyArray()->keyOrderValid(i);
  invalidateCache(static_cast<int>(i));
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kKeyChanged);
  endChange(true);
  return ordered;
}

void TparamCurve::noUpdate(TtimeUnitSystem from, TtimeUnitSystem to) {
  if (!fTickKeys || from == to || fSendDepth != 0) return;
  TanimTime oneFrom;
  TanimTime oneTo;
  oneFrom.setValue(1.0, from);
  oneTo.setValue(1.0, to);
  // An unknown unit has no ticks; rescaling by it would collapse every key.
  if (oneFrom.inTicks() == 0 || oneTo.inTicks() == 0) return;
  const double ratio = static_cast<double>(oneTo.inTicks()) / oneFrom.inTicks();
  const unsigned n = physicalCount();
  if (n == 0) return;
  // Every time is truncated toward zero and saturates at the tick range. Two
  // keys that would share a tick (shrinking, or saturating) are kept a tick
  // apart instead, the later one pushed forward (or, against the end of the
  // range, the earlier one pushed back), so the keys stay strictly ordered.
  const double lo = TanimTime::minTime.inTicks();
  const double hi = TanimTime::maxTime.inTicks();
  std::vector<std::int64_t> ticks(n);
  for (unsigned i = 0; i < n; ++i) {
    const double t = std::trunc(keyframe(i)->timeAsTicks() * ratio);
    ticks[i] = static_cast<std::int64_t>(std::fmax(lo, std::fmin(hi, t)));
    if (i > 0 && ticks[i] <= ticks[i - 1]) ticks[i] = ticks[i - 1] + 1;
  }
  for (unsigned i = n; i-- > 0;) {
    const std::int64_t limit = i + 1 < n ? ticks[i + 1] - 1 : static_cast<std::int64_t>(hi);
    if (ticks[i] > limit) ticks[i] = limit;
  }
  for (unsigned i = 0; i < n; ++i) {
    keyframe(i)->setTime(TanimTime(static_cast<std::int32_t>(ticks[i])));
  }
  invalidateCache(-1);
}

void TparamCurve::invalidateCache(int index) {
  touch();
  fCursor.forgetPosition();
  if (fRotationInterpolation == kQuaternion) dirtyQuaternionEulerCache(index);
}

namespace {

// Stamps are drawn from one process-wide sequence, so that a cursor never
// mistakes a new curve at a recycled address for the one it served.
std::atomic<std::uint64_t> gNextEditStamp{1};

}  // namespace

void TparamCurve::touch() {
  fEditStamp = gNextEditStamp.fetch_add(1, std::memory_order_relaxed);
  // The curve's own cursor is kept current; only its shortcuts may no longer hold.
  fCursor.fCurve = this;
  fCursor.fStamp = fEditStamp;
  fCursor.forgetShortcuts();
}

int TparamCurve::arrayInsert(Tkeyframe* key, unsigned hint) {
  TkeyArray* array = keyArray();
  if (!array || !key) return -1;
  // Appending in time order is the common case when loading; it needs no search.
  unsigned index = array->count();
  if (hint != index || array->appendKey(key) != 0) {
    if (array->insertKey(key, index) != 0) return -1;
  }
  // Indices have moved: the cache goes now, before any message of the
  // caller's lets a client sample the curve.
  invalidateCache(static_cast<int>(index));
  return static_cast<int>(index);
}

void TparamCurve::setTanIn(unsigned i, float x, float y) {
  if (Tkeyframe* key = keyframe(i)) key->setTanIn(x, y);
  invalidateCache(static_cast<int>(i));
}

void TparamCurve::setTanOut(unsigned i, float x, float y) {
  if (Tkeyframe* key = keyframe(i)) key->setTanOut(x, y);
  invalidateCache(static_cast<int>(i));
}

// --- Diagnostics -------------------------------------------------------------------------------

void TparamCurve::debugOutput(TdebugOutput& out) const {
  const unsigned n = keyframeCount();
  out.print("Param Curve %#lx : %d %s keys",
            static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(this)), static_cast<int>(n),
            isFloat() ? "float" : "animTime");
  for (unsigned i = 0; i < n; ++i) {
    const Tkeyframe* key = keyframe(i);
    const double time = isFloat() ? static_cast<double>(seconds(key))
                                  : animTime(key).valueInThisUnit(TtimeUnitSystem::kTicks);
    out.print("index: %d\t time: %f\t value: %f\n", static_cast<int>(i), time,
              key ? key->value() : 0.0);
  }
  out.close();
}

}  // namespace lumora

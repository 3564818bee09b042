// TparamCurve: evaluation inside the keyed range, span methods, weighting.
//
// Sampling in time order is the hot path: the cache remembers the last key
// returned and the span loaded into the segment evaluator, so a sample in the
// same span as the previous one costs a comparison or two and the
// evaluator's polynomial.
#include <cassert>
#include <cfloat>
#include <cmath>
#include <limits>

#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/notify/key_states.h"

namespace lumora {

namespace {

// A sample time given as float seconds. Key times are compared in seconds;
// nothing here builds a time value, so a sample costs only the comparisons.
struct TsecondsProbe {
  const TparamCurve& curve;
  float t;
  bool after(const Tkeyframe* key) const { return t > curve.seconds(key); }
  bool before(const Tkeyframe* key) const { return t < curve.seconds(key); }
  bool at(const Tkeyframe* key) const { return t == curve.seconds(key); }
  double seconds() const { return static_cast<double>(t); }
};

// A sample time given as a time value: compared with the keys' own times.
struct TtimeProbe {
  const TparamCurve& curve;
  const TtimeValue& t;
  bool after(const Tkeyframe* key) const { return t > curve.timeValue(key); }
  bool before(const Tkeyframe* key) const { return t < curve.timeValue(key); }
  bool at(const Tkeyframe* key) const { return t == curve.timeValue(key); }
  double seconds() const { return static_cast<double>(t.inSeconds()); }
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The control points of the span from key a to key b: the keys, and a third
// of each tangent into the span.
struct TspanPoints {
  double x0, y0, x1, y1, x2, y2, x3, y3;
};

TspanPoints spanPoints(const TparamCurve& curve, const Tkeyframe& a, const Tkeyframe& b) {
  constexpr double kThird = 0.3333333333333333;
  float ox = 0.0f, oy = 0.0f, ix = 0.0f, iy = 0.0f;
  a.getTanOut(ox, oy);
  b.getTanIn(ix, iy);
  const double t0 = curve.seconds(&a);
  const double y0 = a.value();
  const double t3 = curve.seconds(&b);
  const double y3 = b.value();
  return {t0, y0, t0 + ox * kThird, y0 + oy * kThird, t3 - ix * kThird, y3 - iy * kThird, t3, y3};
}

bool isNanTime(const TtimeValue& t) {
  return t.isFloat() && std::isnan(t.asFloat());
}

}  // namespace

bool TparamCurve::evaluateLoadedSpan(float t, const TevalCursor& c, double& value) const {
  // A NaN fails both comparisons, and an empty range (0, 0) holds nothing.
  if (!(t > c.fLoadedSpanStart && t < c.fLoadedSpanEnd)) return false;
  constexpr std::uint16_t kBlockers = (1u << kFlagStatic) | (1u << kFlagDeferredDeletion);
  if ((fCurveFlags.bits() & kBlockers) != 0 || fRotationInterpolation == kQuaternion) return false;
  // Strictly inside a loaded curve span no infinity, key hit or cache move
  // applies: the full walk would end at this same segment and leave the cache
  // where it is.
  value = c.evaluateLoaded(t);
  return true;
}

bool TparamCurve::evaluateBeforeKeys(float t, const TevalCursor& c, double& value) const {
  if (evaluateLoadedSpan(t, c, value)) return true;
  if (std::isnan(t)) {
    value = kNaN;
    return true;
  }
  if (fRotationInterpolation != kQuaternion) return false;
  bool failed = true;
  value = evaluateQuaternionAsEulerComponent(t, &failed);
  return !failed;
}

bool TparamCurve::evaluateBeforeKeys(const TtimeValue& t, double& value) const {
  if (isNanTime(t)) {
    value = kNaN;
    return true;
  }
  if (fRotationInterpolation != kQuaternion) return false;
  bool failed = true;
  value = evaluateQuaternionAsEulerComponent(t.inSeconds(), &failed);
  return !failed;
}

void TparamCurve::adopt(TevalCursor& c) const {
  c.forgetPosition();
  c.fCurve = this;
  c.fStamp = fEditStamp;
}

double TparamCurve::evaluateSample(float t, TevalCursor& c) const {
  double early = 0.0;
  if (evaluateBeforeKeys(t, c, early)) return early;
  const TkeyArray* array = keyArray();
  const unsigned n = deferredDeletion() ? keyframeCount() : (array ? array->count() : 0);
  if (n > 0) {
    Tkeyframe* const* keys = array->keys();
    if (fPreInfinity != kConstant && secondsBefore(t, keys[0])) {
      return evaluateInfinities(t, true, n, c);
    }
    if (fPostInfinity != kConstant && seconds(keys[n - 1]) < t) {
      return evaluateInfinities(t, false, n, c);
    }
  }
  return evaluateInside(TsecondsProbe{*this, t}, n, c);
}

double TparamCurve::evaluate(const TtimeValue& t) {
  return evaluateTime(t, fCursor);
}

double TparamCurve::evaluate(const TtimeValue& t, TevalCursor& cursor) const {
  if (cursor.fCurve != this || cursor.fStamp != fEditStamp) adopt(cursor);
  return evaluateTime(t, cursor);
}

double TparamCurve::evaluateTime(const TtimeValue& t, TevalCursor& c) const {
  double early = 0.0;
  if (evaluateBeforeKeys(t, early)) return early;
  const unsigned n = keyframeCount();
  if (n > 0) {
    if (fPreInfinity != kConstant && t < timeValue(keyframe(0))) {
      return evaluateInfinities(t, true, c);
    }
    if (fPostInfinity != kConstant && t > timeValue(keyframe(n - 1))) {
      return evaluateInfinities(t, false, c);
    }
  }
  return evaluateInside(TtimeProbe{*this, t}, n, c);
}

bool TparamCurve::evaluate(unsigned count, const double* times, double* values) {
  return evaluate(count, times, values, fCursor);
}

bool TparamCurve::evaluate(unsigned count, const double* times, double* values,
                           TevalCursor& cursor) const {
  if (count > 0 && (!times || !values)) return false;
  if (cursor.fCurve != this || cursor.fStamp != fEditStamp) adopt(cursor);
  for (unsigned i = 0; i < count; ++i) {
    values[i] = evaluateWith(static_cast<float>(times[i]), cursor);
  }
  return true;
}

double TparamCurve::evaluateMapped(float t, TevalCursor& c) const {
  double early = 0.0;
  if (evaluateBeforeKeys(t, c, early)) return early;
  return evaluateInside(TsecondsProbe{*this, t}, keyframeCount(), c);
}

double TparamCurve::evaluateMapped(const TtimeValue& t, TevalCursor& c) const {
  double early = 0.0;
  if (evaluateBeforeKeys(t, early)) return early;
  return evaluateInside(TtimeProbe{*this, t}, keyframeCount(), c);
}

template <typename Probe>
double TparamCurve::evaluateInside(const Probe& probe, unsigned n, TevalCursor& c) const {
  if (n == 0) return 0.0;
  // n > 0, so the array exists; at() is inline and bounds-checked.
  assert(keyArray() && "n > 0 means the curve has key storage");
  const TkeyArray& keys = *keyArray();
  if (staticCurve()) return keys.at(0)->value();

  // Try the cached key first: the sample is usually in its span or the next.
  const unsigned k = c.fCachedIndex;
  if (c.fCachedKey && k + 1 < n && probe.after(c.fCachedKey)) {
    Tkeyframe* next = keys.at(k + 1);
    if (probe.at(next)) {
      c.fCachedKey = next;
      c.fCachedIndex = k + 1;
      fitLoadedSpanToCache(c);
      return next->value();
    }
    if (probe.before(next)) return evaluateSpan(keys.at(k), next, k + 1, probe.seconds(), c);
  } else if (c.fCachedKey && k > 0 && probe.before(c.fCachedKey)) {
    Tkeyframe* prev = keys.at(k - 1);
    if (probe.after(prev)) return evaluateSpan(prev, keys.at(k), k, probe.seconds(), c);
    if (probe.at(prev)) {
      c.fCachedKey = prev;
      c.fCachedIndex = k - 1;
      fitLoadedSpanToCache(c);
      return prev->value();
    }
  }

  unsigned idx = 0;
  const bool found = findSample(probe.t, idx);
  if (!found && idx >= n) {
    // After the last key with a constant post infinity. Pointing the cache at
    // key 0 here is deliberate: the next sample restarts from the beginning.
    c.fCachedKey = keys.at(0);
    c.fCachedIndex = 0;
    fitLoadedSpanToCache(c);
    return keys.at(n - 1)->value();
  }
  if (!found && idx > 0) {
    return evaluateSpan(keys.at(idx - 1), keys.at(idx), idx, probe.seconds(), c);
  }
  c.fCachedIndex = idx;
  c.fCachedKey = keys.at(idx);
  fitLoadedSpanToCache(c);
  return c.fCachedKey ? c.fCachedKey->value() : 0.0;
}

double TparamCurve::evaluateSpan(const Tkeyframe* a, const Tkeyframe* b, unsigned end, double t,
                                 TevalCursor& c) const {
  if (!a || !b) return a ? a->value() : 0.0;
  switch (a->interpMethod()) {
    case Tkeyframe::kSpanLinear: {
      const double t0 = seconds(a);
      const double t1 = seconds(b);
      if (t0 == t1) return a->value();
      return a->value() + (t - t0) / (t1 - t0) * (b->value() - a->value());
    }
    case Tkeyframe::kSpanStep:
      return a->value();
    case Tkeyframe::kSpanCurve:
    default:
      if (c.fCachedInterval != static_cast<std::int32_t>(end - 1)) loadSpan(end - 1, c);
      if (c.fCachedInterval == static_cast<std::int32_t>(end - 1)) {
        // From the span's own keys (as after loading it) the whole span
        // answers inline; from elsewhere only its inside does.
        // (A looping image cut from a narrower range stays inside this one.)
        if (c.fCachedIndex + 1 == end || c.fCachedIndex == end) [[likely]] {
          c.fLoadedSpanStart = seconds(a);
          c.fLoadedSpanEnd = seconds(b);
        } else {
          fitLoadedSpanToCache(c);
        }
        constexpr std::uint16_t kBlockers = (1u << kFlagStatic) | (1u << kFlagDeferredDeletion);
        const bool plain =
            (fCurveFlags.bits() & kBlockers) == 0 && fRotationInterpolation != kQuaternion;
        c.fHermiteReady = plain && !c.fWeightedLoaded;
        c.fWeightedReady = plain && c.fWeightedLoaded;
      }
      return c.evaluateLoaded(t);
  }
}

// The walk reaches the loaded span straight from either of its own keys. From
// any other cached key it takes the tolerant full search, which answers a
// key's value for times that merely round to that key (within 1e-5 s on float
// curves, within a tick on tick curves). So with the cache elsewhere, samples
// are answered from the span only well clear of its ends; those near the ends
// take the walk.
void TparamCurve::fitLoadedSpanToCache(TevalCursor& c) const {
  if (c.fCachedInterval < 0) return;
  const auto start = static_cast<unsigned>(c.fCachedInterval);
  const Tkeyframe* a = keyframe(start);
  const Tkeyframe* b = keyframe(start + 1);
  if (!a || !b) return;
  const float t0 = seconds(a);
  const float t1 = seconds(b);
  if (c.fCachedIndex == start || c.fCachedIndex == start + 1) {
    if (c.fLoadedSpanStart == t0 && c.fLoadedSpanEnd == t1) return;
    c.fLoadedSpanStart = t0;
    c.fLoadedSpanEnd = t1;
  } else {
    // Twice the tolerance, plus a few steps of float spacing for the
    // roundings of the search (seconds to ticks, differences of floats).
    const double tolerance = isAnimTime() ? 2.0 / 6000.0 : 2.0 * Tkeyframe::kTimeTolerance;
    const double spacing = std::fmax(std::fabs(t0), std::fabs(t1)) * 0x1p-21;
    const double margin = tolerance + spacing;
    float lo = static_cast<float>(t0 + margin);
    if (static_cast<double>(lo) < t0 + margin) lo = std::nextafter(lo, FLT_MAX);
    float hi = static_cast<float>(t1 - margin);
    if (static_cast<double>(hi) > t1 - margin) hi = std::nextafter(hi, -FLT_MAX);
    if (!(lo < hi)) lo = hi = 0.0f;  // nothing left: every sample takes the walk
    if (c.fLoadedSpanStart == lo && c.fLoadedSpanEnd == hi) return;
    c.fLoadedSpanStart = lo;
    c.fLoadedSpanEnd = hi;
  }
  // The looping image was cut from the range as it was.
  c.forgetCycledSpan();
}

void TparamCurve::loadSpan(unsigned i, TevalCursor& c) const {
  c.fCachedIndex = i;
  if (static_cast<std::int32_t>(i) == c.fCachedInterval) {
    c.fCachedKey = keyframe(i);
    return;
  }
  const Tkeyframe* a = keyframe(i);
  const Tkeyframe* b = keyframe(i + 1);
  c.fCachedKey = a;
  // The range is set again only by evaluation of a curve span; splitting
  // loads segments of any span kind.
  c.fLoadedSpanStart = c.fLoadedSpanEnd = 0.0f;
  c.fHermiteReady = false;
  c.fWeightedReady = false;
  c.forgetCycledSpan();
  if (!a || !b) return;

  TspanPoints p = spanPoints(*this, *a, *b);
  if (isWeighted()) {
    // A span of no duration leaves the previous one loaded.
    c.fWeighted.load(p.x0, p.y0, p.x1, p.y1, p.x2, p.y2, p.x3, p.y3, /*keepFirst=*/true);
    c.fWeightedLoaded = true;
  } else {
    c.fHermite = ThermiteSpan::fromControlPoints(p.x0, p.y0, p.x1, p.y1, p.x2, p.y2, p.x3, p.y3);
    c.fWeightedLoaded = false;
  }
  c.fCachedInterval = static_cast<std::int32_t>(i);
}

void TparamCurve::setInterpolationInterval(unsigned i) {
  loadSpan(i, fCursor);
  const Tkeyframe* a = keyframe(i);
  const Tkeyframe* b = keyframe(i + 1);
  if (!a || !b || !fSegmentEvaluator) return;
  TspanPoints p = spanPoints(*this, *a, *b);
  fSegmentEvaluator->setSegment(p.x0, p.y0, p.x1, p.y1, p.x2, p.y2, p.x3, p.y3, /*keepFirst=*/true);
}

void TparamCurve::setSpanInterpMethod(unsigned i) {
  Tkeyframe* a = keyframe(i);
  if (!a) return;
  Tkeyframe* next = keyframe(i + 1);
  if (a->tanOutType() == kTangentLinear && next && next->tanInType() == kTangentLinear) {
    a->setInterpMethod(Tkeyframe::kSpanLinear);
  } else if (a->tanOutType() == kTangentStep || a->interpMethod() != Tkeyframe::kSpanCurve) {
    // Step is implied by the out type, so only the linear bit is ever stored.
    a->setInterpMethod(Tkeyframe::kSpanCurve);
  }
  if (i == 0) return;
  Tkeyframe* prev = keyframe(i - 1);
  if (!prev) return;
  if (a->tanInType() != kTangentLinear) {
    if (prev->tanOutType() != kTangentStep) prev->setInterpMethod(Tkeyframe::kSpanCurve);
  } else if (prev->tanOutType() == kTangentLinear) {
    prev->setInterpMethod(Tkeyframe::kSpanLinear);
  }
}

double TparamCurve::evaluateQuaternionAsEulerComponent(float /*t*/, bool* failed) const {
  // Quaternion interpolation of sibling rotation curves arrives with the
  // rotation-interpolation work; until then every curve evaluates its own
  // keys, which is what an Euler rotation curve does.
  if (failed) *failed = true;
  return 0.0;
}

// --- Weighting ------------------------------------------------------------------------------

void TparamCurve::setIsWeighted(bool weighted) {
  if (isWeighted() == weighted) return;
  if (!beginChange()) return;
  // Adapting fixed tangents to the other mode can lose what the first mode
  // held (a handle length), so undo puts every key back as it was.
  TkeyStatesRecorder states(*this, 0, TkeyStates::kWholeCurve);
  recordWeightedDelta();
  fCurveFlags.setBit(kFlagWeighted, weighted);
  if (fRotationInterpolation == kQuaternion) dirtyQuaternionEulerCache(-1);
  delete fSegmentEvaluator;
  fSegmentEvaluator = makeEvaluator(weighted);
  // The cursor's spans are of the old kind, and a new evaluator has none loaded.
  fCursor.reset();
  invalidateCache(-1);
  adaptFixedTangentsForWeighting(weighted);
  const unsigned n = physicalCount();
  for (unsigned i = 0; i < n; ++i)
    notifyClientsOfChange(keyframe(i), TparamCurveModifiedMsg::kWeightingChanged);
  states.finish(0, TkeyStates::kWholeCurve);
  endChange(true);
}

void TparamCurve::adaptFixedTangentsForWeighting(bool weighted) {
  const unsigned n = physicalCount();
  for (unsigned i = 0; i < n; ++i) {
    Tkeyframe* key = keyframe(i);
    const Tkeyframe* prev = i > 0 ? keyframe(i - 1) : nullptr;
    const Tkeyframe* next = keyframe(i + 1);
    // The span each side reaches into; a lone side borrows its partner's.
    double spanIn = prev ? seconds(key) - seconds(prev) : 0.0;
    double spanOut = next ? seconds(next) - seconds(key) : 0.0;
    if (spanIn <= 0.0) spanIn = spanOut > 0.0 ? spanOut : 1.0;
    if (spanOut <= 0.0) spanOut = spanIn;

    // Tangent components saturate at the float range.
    const auto toFloat = [](double v) {
      return static_cast<float>(std::fmax(-FLT_MAX, std::fmin(FLT_MAX, v)));
    };
    const auto adapt = [&](float& x, float& y, double span) {
      if (!weighted) return;  // the new evaluator normalises to a direction
      // Direction kept; the handle reaches a third into the span, where a
      // weighted segment matches the non-weighted shape exactly.
      if (x == 0.0f && y == 0.0f) return;
      if (x > 1e-5f) {
        const double slope = static_cast<double>(y) / x;
        x = toFloat(span);
        y = toFloat(slope * span);
      } else {
        x = 0.0f;
        y = toFloat((y >= 0.0f ? 1.0 : -1.0) * span);
      }
    };
    float x = 0.0f, y = 0.0f;
    if (key->tanInType() == kTangentFixed) {
      key->getTanIn(x, y);
      adapt(x, y, spanIn);
      fSegmentEvaluator->setTanIn(key, x, y);
    }
    if (key->tanOutType() == kTangentFixed) {
      key->getTanOut(x, y);
      adapt(x, y, spanOut);
      fSegmentEvaluator->setTanOut(key, x, y);
    }
  }
  // Automatic tangents are stored differently in the two forms.
  if (n > 0) modifySmoothTangents(0, n - 1);
  invalidateCache(-1);
}

}  // namespace lumora

// TparamCurve: behaviour before the first and after the last key.
//
// Constant infinities are handled by evaluate itself. The others map the time
// into the keyed range (cycling, oscillating) or extend the end tangent
// (linear). The arithmetic rounds to float at the same places as the key
// times are stored, so cycled samples land on the same values as the
// originals.
//
// The mapped time is evaluated without looking at the infinities again. It
// normally lies inside the keys anyway, but float rounding can put it an ulp
// outside, and a stored type 2 leaves it at the raw offset within one period,
// which may lie before the first key: going round again there would recurse
// without end. Outside the keys the mapped time therefore takes the end key's
// value.
#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <limits>

#include "lumora/base/angle.h"
#include "lumora/curve/internal/infinity_map.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"

namespace lumora {

using internal::mapIntoRange;
using internal::Tmapped;

namespace {

// v shifted by whole value differences for cycle relative. A zero difference
// adds nothing, even after infinitely many periods.
double shiftForCycles(double v, double difference, double cycles, bool pre) {
  if (difference == 0.0) return v;
  const double shift = unfused(difference * cycles);  // as the inline shortcut adds it
  return pre ? v - shift : v + shift;
}

// The end value continued along a slope for `distance` seconds (rounded to
// float). A flat slope continues at the end value, even at an infinite time.
double continueAlong(double endValue, double slope, float distance, bool pre) {
  if (slope == 0.0) return endValue;
  return pre ? endValue - slope * distance : endValue + slope * distance;
}

}  // namespace

double TparamCurve::evaluateInfinities(float t, bool pre, unsigned n, TevalCursor& c) const {
  if (n == 0) return 0.0;
  // n > 0, so the array exists; this runs once per sample beyond the keys.
  assert(keyArray() && "n > 0 means the curve has key storage");
  Tkeyframe* const* keys = keyArray()->keys();
  const Tkeyframe* first = keys[0];
  const Tkeyframe* last = keys[n - 1];
  const float tStart = seconds(first);
  const float tEnd = seconds(last);
  const float range = tEnd - tStart;
  if (range == 0.0f) return first->value();

  const TinfinityType type = pre ? fPreInfinity : fPostInfinity;
  if (type == kLinear) {
    // Both ends extend along the in tangent of their key.
    const unsigned index = pre ? 0 : n - 1;
    const double slope = std::tan(tangentAngle(index, /*inSide=*/true, 1.0f, 1.0f).radians());
    const float distance = pre ? tStart - t : t - tEnd;
    return continueAlong(pre ? first->value() : last->value(), slope, distance, pre);
  }
  const Tmapped m = mapIntoRange(t, tStart, tEnd, range, /*afterEnd=*/t > tEnd, type, pre);
  if (!pre && (type == kCycle || type == kCycleRelative) && c.fHermiteReady) {
    // Remember the mapping: the next sample beyond the keys skips the walk.
    c.fCycleStart = tStart;
    c.fCycleEnd = tEnd;
    c.fCycleRange = range;
    c.fCycleShift = type == kCycleRelative ? last->value() - first->value() : 0.0;
    c.rememberCyclePeriod(tEnd, range, m.cycles);
  }
  // Cycled samples mostly land in the span already loaded: answer those here.
  const bool loaded = c.fHermiteReady && m.local > c.fLoadedSpanStart && m.local < c.fLoadedSpanEnd;
  const double v = loaded ? c.fHermite.evaluate(m.local) : evaluateMapped(m.local, c);
  if (!pre && c.fCycleRange != 0.0f && c.fCycledSpanHi == 0.0) c.rememberCycledSpan();
  if (type != kCycleRelative) return v;
  return shiftForCycles(v, last->value() - first->value(), m.cycles, pre);
}

double TparamCurve::evaluateInfinities(const TtimeValue& t, bool pre, TevalCursor& c) const {
  const unsigned n = keyframeCount();
  if (n == 0) return 0.0;
  const Tkeyframe* first = keyframe(0);
  const Tkeyframe* last = keyframe(n - 1);
  const float tStart = seconds(first);
  const float tEnd = seconds(last);
  const float range = tEnd - tStart;
  if (range == 0.0f) return first->value();

  const float ts = t.inSeconds();
  const TinfinityType type = pre ? fPreInfinity : fPostInfinity;
  if (type == kLinear) {
    const unsigned index = pre ? 0 : n - 1;
    const double slope = std::tan(tangentAngle(index, /*inSide=*/true, 1.0f, 1.0f).radians());
    const float distance = pre ? tStart - ts : ts - tEnd;
    return continueAlong(pre ? first->value() : last->value(), slope, distance, pre);
  }
  const bool afterEnd = !(t <= timeValue(last));
  const Tmapped m = mapIntoRange(ts, tStart, tEnd, range, afterEnd, type, pre);
  const double v = evaluateMapped(makeTimeValue(m.local), c);
  if (type != kCycleRelative) return v;
  return shiftForCycles(v, last->value() - first->value(), m.cycles, pre);
}

void TparamCurve::setPreInfinityType(TinfinityType type) {
  setInfinityType(type, true);
}

void TparamCurve::setPostInfinityType(TinfinityType type) {
  setInfinityType(type, false);
}

void TparamCurve::setInfinityType(TinfinityType type, bool pre) {
  TparamCurve* curves[3];
  rotationCurveSet(curves);
  const bool accepted =
      type == kLinear || type == kCycle || type == kCycleRelative || type == kOscillate;
  const TinfinityType stored = accepted ? type : kConstant;
  for (TparamCurve* c : curves) {
    if (!c) continue;
    TinfinityType& slot = pre ? c->fPreInfinity : c->fPostInfinity;
    // Compared before normalising: setting 2 on a constant curve still
    // announces a change, which hosts rely on to refresh.
    if (slot == type) continue;
    if (!c->beginChange()) continue;
    const TinfinityType old = slot;
    slot = stored;
    c->recordInfinityDelta(pre, old, stored);
    c->invalidateCache(-1);
    c->notifyClientsOfChange(c->keyframe(0), TparamCurveModifiedMsg::kTangentChanged);
    c->endChange(true);
  }
}

}  // namespace lumora

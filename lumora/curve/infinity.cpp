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

// 2^e as a double; 0 below the normal range, infinity above it.
double powerOfTwo(int e) {
  if (e < -1022) return 0.0;
  if (e > 1023) return std::numeric_limits<double>::infinity();
  return std::bit_cast<double>(static_cast<std::uint64_t>(e + 1023) << 52);
}

// The spacing of floats at |f| (finite f).
double floatSpacing(float f) {
  const int exponent = static_cast<int>((std::bit_cast<std::uint32_t>(f) >> 23) & 0xffu);
  return exponent == 0 ? 0x1p-149 : powerOfTwo(exponent - 150);  // zero and subnormals: 2^-149
}

// The largest power of two that x is a whole multiple of; infinity for 0, as
// 0 is a multiple of everything. Subnormal and non-finite x give 0, so that
// nothing built on the result passes.
double largestPowerOfTwoDividing(double x) {
  if (x == 0.0) return std::numeric_limits<double>::infinity();
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const int exponent = static_cast<int>((bits >> 52) & 0x7ffu);
  if (exponent == 0 || exponent == 0x7ff) return 0.0;
  const std::uint64_t mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
  return powerOfTwo(exponent - 1075 + std::countr_zero(mantissa));
}

}  // namespace

// The general mapping of a time t after the last key computes, in double,
//   x = (t - end) / range,   k = trunc(x),   p = range * (x - k),
// and rounds p to float (then adds the first key's time in float). Within one
// period k the exact offset u = t - (end + k * range) is what p approximates.
// t, end, k * range and end + k * range are whole multiples of the finer
// float spacing of end and range (t because t > end + k * range >= |end|;
// when end is 0 the start is k * range and, for k = 0, u = t outright), so
// below 2^51 of those spacings t - end, the period start and u are exact.
// x - k is exact as well (x lies in [k, k + 1)), so only rounding x and the
// product separate p from u: |p - u| <= range * (k + 2) * 2^-53.
// The shortcut uses q = float(u) when
//  * q == u. Outside the period the rounded u still falls outside
//    (0, range), as rounding is monotonic, and the tests below fail;
//  * q > range * (k + 2) * 2^-25: then p lies well within half the float
//    spacing around q (more than q * 2^-26), so float(p) == q;
//  * q < range * (1 - 2^-20): then x stays below k + 1, so trunc(x) == k.
void TparamCurve::rememberCyclePeriod(float tEnd, float range, double periods) {
  if (periods == fPeriods && fPeriodOffsetMin < fPeriodOffsetMax) return;  // still current
  forgetCycledSpan();
  fPeriodOffsetMin = std::numeric_limits<float>::infinity();  // off unless proven below
  const double k = periods - 1.0;
  if (!(k >= 0.0 && k < 0x1p29)) return;  // k * range exact in double
  const double start = tEnd + k * range;
  const double end = start + range;
  const double spacing =
      tEnd == 0.0f ? floatSpacing(range) : std::min(floatSpacing(tEnd), floatSpacing(range));
  if (!(start >= std::fabs(tEnd)) || !(end < 0x1p51 * spacing)) return;
  const float offsetMin = static_cast<float>(range * (k + 2.0) * 0x1p-25);
  if (!(offsetMin >= std::numeric_limits<float>::min())) return;  // keeps q normal
  fPeriodStart = start;
  fPeriods = periods;
  fPeriodOffsetMax = static_cast<float>(range * (1.0 - 0x1p-20));
  fPeriodOffsetMin = offsetMin;
}

// Within the period remembered above, a time t maps to q = t - periodStart
// and then to local = q + start (the first key's time), both rounded to float,
// and the loaded span evaluates at s = local - x0 (its start). Where none of
// these rounds, s is t - origin with origin = periodStart - start + x0, and
// the mapping can be skipped entirely. Let g be the largest power of two that
// divides periodStart, start, x0 and every float above the image's start.
// Every quantity is then a whole multiple of g, so
//  * q and local are floats when they stay below 2^24 g: the bounds of the
//    span and of the offsets are checked against that;
//  * the double subtractions and the origin are exact below 2^52 g.
// The image is further clipped to the offsets the period accepts, so the
// general mapping provably lands on q too (see rememberCyclePeriod).
void TparamCurve::rememberCycledSpan() {
  forgetCycledSpan();
  if (!fLoadedHermite || fCycleRange == 0.0f || !(fPeriodOffsetMin < fPeriodOffsetMax)) return;
  const double periodStart = fPeriodStart;
  const double start = fCycleStart;
  const double spanStart = fLoadedSpanStart;
  const double spanEnd = fLoadedSpanEnd;
  const double x0 = fLoadedHermite->start();
  // The image's bounds, pulled inwards by more than their rounding errors.
  const double slack = 0x1p-50 * (std::fabs(periodStart) + std::fabs(spanStart) +
                                  std::fabs(spanEnd) + 2.0 * std::fabs(start));
  const double lo =
      periodStart + std::max(spanStart - start, static_cast<double>(fPeriodOffsetMin)) + slack;
  const double hi =
      periodStart + std::min(spanEnd - start, static_cast<double>(fPeriodOffsetMax)) - slack;
  if (!(lo > 0.0 && lo < hi)) return;

  // Floats above lo are multiples of the spacing at the largest float <= lo.
  float below = static_cast<float>(lo);
  if (static_cast<double>(below) > lo) below = std::nextafter(below, 0.0f);
  const double g = std::min({floatSpacing(below), largestPowerOfTwoDividing(periodStart),
                             largestPowerOfTwoDividing(start), largestPowerOfTwoDividing(x0)});
  const double floatLimit = 0x1p24 * g;
  const double exactLimit = 0x1p52 * g;
  const double largestLocal = std::max(std::fabs(spanStart), std::fabs(spanEnd));
  if (!(std::fabs(spanEnd - start) < floatLimit && largestLocal < floatLimit)) return;
  if (!(std::fabs(periodStart) + std::fabs(start) + std::fabs(x0) + hi < exactLimit)) return;

  fCycledSpanOrigin = (periodStart - start) + x0;
  fCycledSpanLo = lo;
  fCycledSpanHi = hi;
}

double TparamCurve::evaluateInfinities(float t, bool pre) {
  return evaluateInfinities(t, pre, keyframeCount());
}

double TparamCurve::evaluateInfinities(float t, bool pre, unsigned n) {
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
  if (!pre && (type == kCycle || type == kCycleRelative) && fLoadedHermite) {
    // Remember the mapping: the next sample beyond the keys skips the walk.
    fCycleStart = tStart;
    fCycleEnd = tEnd;
    fCycleRange = range;
    fCycleShift = type == kCycleRelative ? last->value() - first->value() : 0.0;
    rememberCyclePeriod(tEnd, range, m.cycles);
  }
  // Cycled samples mostly land in the span already loaded: answer those here.
  const bool loaded = fLoadedHermite && m.local > fLoadedSpanStart && m.local < fLoadedSpanEnd;
  const double v = loaded ? fLoadedHermite->evaluate(m.local) : evaluateMapped(m.local);
  if (!pre && fCycleRange != 0.0f && fCycledSpanHi == 0.0) rememberCycledSpan();
  if (type != kCycleRelative) return v;
  return shiftForCycles(v, last->value() - first->value(), m.cycles, pre);
}

double TparamCurve::evaluateInfinities(const TtimeValue& t, bool pre) {
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
  const double v = evaluateMapped(makeTimeValue(m.local));
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

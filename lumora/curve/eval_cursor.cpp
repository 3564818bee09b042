// TevalCursor: the position of one caller in a curve, and the proofs behind
// the shortcuts that let looping samples skip the general mapping.
#include "lumora/curve/eval_cursor.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "lumora/curve/param_curve.h"

namespace lumora {

namespace {

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

bool TevalCursor::isCurrentFor(const TparamCurve& curve) const {
  return fCurve == &curve && fStamp == curve.editStamp();
}

void TevalCursor::forgetPosition() {
  fCachedKey = nullptr;
  fCachedIndex = 0;
  fCachedInterval = -1;
  fLoadedSpanStart = fLoadedSpanEnd = 0.0f;
  forgetShortcuts();
}

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
void TevalCursor::rememberCyclePeriod(float tEnd, float range, double periods) {
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
void TevalCursor::rememberCycledSpan() {
  forgetCycledSpan();
  if (!fHermiteReady || fCycleRange == 0.0f || !(fPeriodOffsetMin < fPeriodOffsetMax)) return;
  const double periodStart = fPeriodStart;
  const double start = fCycleStart;
  const double spanStart = fLoadedSpanStart;
  const double spanEnd = fLoadedSpanEnd;
  const double x0 = fHermite.x0;
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

}  // namespace lumora

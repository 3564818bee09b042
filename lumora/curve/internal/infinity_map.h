// Mapping of times beyond the keys into the keyed range, shared by the
// infinity evaluation and the curve's shortcut for cycled samples. The
// arithmetic rounds to float where key times are stored, so cycled samples land
// exactly on the values of the originals.
#pragma once

#include <cmath>
#include <cstdint>

#include "lumora/base/float_math.h"
#include "lumora/curve/param_curve.h"

namespace lumora::internal {

// The time mapped into the keyed range, and how many periods away it was.
struct Tmapped {
  float local;
  double cycles;
};

// Whether a whole number of periods (at least 1) is odd. Counts of 2^53 and
// beyond are all even, as halving them leaves no fraction.
inline bool isOdd(double cycles) {
  constexpr double kAllEven = 9007199254740992.0;  // 2^53
  if (!(cycles < kAllEven)) return false;
  return (static_cast<std::int64_t>(cycles) & 1) != 0;
}

inline Tmapped mapIntoRange(double t, float tStart, float tEnd, float range, bool afterEnd,
                            int type, bool pre) {
  const double x = afterEnd ? (t - tEnd) / range : (t - tStart) / range;
  double ip = 0.0;
  const double f = std::fabs(splitWhole(x, ip));
  float local = static_cast<float>(range * f);
  const double cycles = std::fabs(ip) + 1.0;
  switch (type) {
    case TparamCurve::kOscillate: {
      // Every other period runs backwards; which ones depends on the side.
      const bool oddCycle = isOdd(cycles);
      local = (oddCycle != pre) ? tEnd - local : local + tStart;
      break;
    }
    case TparamCurve::kCycle:
    case TparamCurve::kCycleRelative:
      local = pre ? tEnd - local : local + tStart;
      break;
    default:
      break;  // a stored 2 evaluates at the raw offset within one period
  }
  return {local, cycles};
}

}  // namespace lumora::internal

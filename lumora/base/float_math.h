// Small floating-point helpers used on hot paths.
#pragma once

#include <cmath>
#include <cstdint>

namespace lumora {

/// std::modf without the library call: stores the whole part of `x` (toward
/// zero) in `whole` and returns the exact remainder, with modf's answers for
/// infinities and NaN.
inline double splitWhole(double x, double& whole) {
  constexpr double kAllWhole = 4503599627370496.0;  // 2^52: from here on every double is whole
  if (std::fabs(x) < kAllWhole) {
    whole = static_cast<double>(static_cast<std::int64_t>(x));
    return x - whole;
  }
  whole = x;
  if (std::isnan(x)) return x;
  return std::copysign(0.0, x);
}

}  // namespace lumora

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

/// `x`, unchanged but opaque to the optimiser, so that a product passed through
/// here is rounded on its own and never fused with the following addition into
/// one multiply-add. Inline arithmetic in the public headers is compiled with
/// the host's flags (perhaps with multiply-add instructions enabled) as well as
/// with the library's; keeping its products unfused gives both the same bits,
/// so a value does not depend on which side computed it.
inline double unfused(double x) {
#if defined(__GNUC__) && defined(__SSE2_MATH__)
  asm("" : "+x"(x));
#elif defined(__GNUC__) && defined(__aarch64__)
  asm("" : "+w"(x));
#elif defined(__GNUC__)
  asm("" : "+g"(x));
#else
  volatile double opaque = x;
  x = opaque;
#endif
  return x;
}

/// ((c3 s + c2) s + c1) s + c0, each product rounded before its addition.
inline double cubicAt(double c3, double c2, double c1, double c0, double s) {
  double v = unfused(c3 * s) + c2;
  v = unfused(v * s) + c1;
  return unfused(v * s) + c0;
}

}  // namespace lumora

#include "lumora/curve/span_math.h"

#include <cmath>

#include "lumora/curve/internal/root_finder.h"
#include "lumora/curve/segment_evaluator.h"

namespace lumora {

namespace {

constexpr double kOneThird = 0.3333333333333333;
constexpr double kTwoThirds = 0.6666666666666666;
constexpr double kFourThirds = 1.3333333333333333;
// Room kept between an adjusted handle and the monotonic limit.
constexpr double kMargin = 1e-10;

// Slope of the handle from (xa, ya) to (xb, yb); a handle of zero duration is
// vertical upwards, whatever the sign of its value component.
double handleSlope(double xa, double ya, double xb, double yb) {
  if (xb != xa) return (yb - ya) / (xb - xa);
  return verticalSlope();
}

struct Tcubic {
  double c0, c1, c2, c3;
};

// Bezier control values to power basis, constant term first.
Tcubic powerBasis(double p0, double p1, double p2, double p3) {
  const double e = p1 - p0;
  const double g = p2 - p1;
  const double f = g - e;
  return {p0, 3.0 * e, 3.0 * f, p3 - p2 - g - f};
}

// Shortens the handle pair so that x(s) = Bezier(0, a, b, 1) never decreases
// on [0, 1]. `a` is the first handle's normalised time, `b` the second's.
void constrainMonotonic(double& a, double& b, bool keepFirst) {
  b = 1.0 - b;  // from here on, b is the second handle's distance from the end
  if (a < 0.0) a = 0.0;
  if (b < 0.0) b = 0.0;
  if (a <= 1.0 && b <= 1.0) {
    b = 1.0 - b;
    return;
  }
  // D > 0 outside the ellipse of monotonic handle pairs.
  const double d = (a - 2.0 + b) * a + (b - 2.0) * b + 1.0 + kMargin;
  if (d > 0.0) {
    double& p = keepFirst ? a : b;
    double& q = keepFirst ? b : a;
    if (p + kMargin >= kFourThirds) {
      p = kFourThirds - kMargin;
      q = kOneThird - kMargin;
    } else {
      const double s = p - 2.0;
      const double r = p - 1.0;
      const double root = std::sqrt(s * s - 4.0 * r * r);
      const double upper = (root - s) * 0.5;
      const double lower = (-s - root) * 0.5 + kMargin;
      if (q + kMargin > upper) {
        q = upper - kMargin;
      } else if (lower > q) {
        q = lower;
      }
    }
  }
  b = 1.0 - b;
}

}  // namespace

// --- Non-weighted -----------------------------------------------------------------------

ThermiteSpan ThermiteSpan::fromControlPoints(double x0, double y0, double x1, double y1, double x2,
                                             double y2, double x3, double y3) {
  ThermiteSpan span;
  span.x0 = x0;
  const double h = x3 - x0;
  if (h == 0.0 || std::isnan(h)) {
    // A span without duration has no shape; holding y0 keeps evaluation
    // finite instead of dividing by zero.
    span.d = y0;
    return span;
  }
  const double m0 = handleSlope(x0, y0, x1, y1);
  const double m1 = handleSlope(x2, y2, x3, y3);
  const double dy = y3 - y0;
  const double w = 1.0 / (h * h);
  span.a = (m1 * h + m0 * h - 2.0 * dy) * w / h;
  span.b = (3.0 * dy - 2.0 * m0 * h - m1 * h) * w;
  span.c = m0;
  span.d = y0;
  return span;
}

// --- Weighted ----------------------------------------------------------------------------

bool TweightedSpan::load(double x0v, double y0, double& x1, double& y1, double& x2, double& y2,
                         double x3v, double y3, bool keepFirst) {
  const double h = x3v - x0v;
  if (h == 0.0 || std::isnan(h)) return false;

  double u1 = (x1 - x0v) / h;
  double u2 = (x2 - x0v) / h;
  const double u1o = u1;
  const double u2o = u2;
  timeIsLinear = (std::fabs(u1 - kOneThird) < 1e-6 && std::fabs(u2 - kTwoThirds) < 1e-6) ? 1 : 0;

  if (u1 < 0.0) u1 = 0.0;
  if (u2 > 1.0) u2 = 1.0;
  // Only handles beyond the far end, or the second one more than a whole
  // span before the start, are constrained.
  if (u1 > 1.0 || u2 < -1.0) constrainMonotonic(u1, u2, keepFirst);

  if (u1 != u1o) {
    x1 = u1 * h + x0v;
    if (std::fabs(u1o) > 1e-10) y1 = (y1 - y0) * u1 / u1o + y0;
  }
  if (u2 != u2o) {
    x2 = u2 * h + x0v;
    if (std::fabs(1.0 - u2o) > 1e-10) y2 = y3 - (y3 - y2) * (1.0 - u2) / (1.0 - u2o);
  }

  x0 = x0v;
  x3 = x3v;
  const Tcubic xc = powerBasis(0.0, u1, u2, 1.0);
  xc1 = xc.c1;
  xc2 = xc.c2;
  xc3 = xc.c3;
  const Tcubic yc = powerBasis(y0, y1, y2, y3);
  yc0 = yc.c0;
  yc1 = yc.c1;
  yc2 = yc.c2;
  yc3 = yc.c3;
  return true;
}

double TweightedSpan::normalisedTime(double t) const {
  if (std::fabs(t - x0) <= 1e-10) return 0.0;
  if (std::fabs(t - x3) <= 1e-10) return 1.0;
  return (t - x0) / (x3 - x0);
}

double TweightedSpan::referenceParameterAt(double u) const {
  const double c[4] = {0.0 - u, xc1, xc2, xc3};
  double roots[3];
  const int count = internal::findPolynomialRoots(c, 3, 0.0, 1.0, true, true, roots);
  return count == 1 ? roots[0] : 0.0;
}

double TweightedSpan::parameterAt(double u) const {
  return referenceParameterAt(u);
}

}  // namespace lumora

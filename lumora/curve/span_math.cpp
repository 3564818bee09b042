#include "lumora/curve/span_math.h"

#include <algorithm>
#include <cmath>
#include <limits>

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

// The quick solve hands times this close to the span ends to the reference:
// there the reference snaps its root to the end, and a flat end leaves the
// root ill-defined in the power basis.
constexpr double kQuickLow = 1e-9;
constexpr double kQuickHigh = 1.0 - 1e-9;
// Rounding in the time polynomial, here and in the reference, blurs its root
// by about 2.4e-15 * (S s + u) / x'(s), S being the sum of the coefficient
// magnitudes. Requiring x'(s) >= (S s + u) / 32 keeps the blur below 8e-14 in
// s, and so below 5e-13 of the largest control value in the value, whose
// slope in s is at most six times that control value.
constexpr double kSlopeFactor = 1.0 / 32.0;
// A time polynomial whose slope dips below this inside the span counts as
// stalling there: its roots are left to the reference.
constexpr double kMinInteriorSlope = 1e-12;
// A Halley step of size d leaves an error of about (a^2 - b) d^3, with a the
// ratio of the second Taylor coefficient to the slope and b that of the third;
// the step is accepted when this is below the tolerance and a d is small
// enough for the estimate to hold.
constexpr double kStepTolerance = 1e-15;
constexpr double kMaxCurvedStep = 0x1p-10;
// Halley steps, or bisections where a step leaves the bracket, before the
// reference takes over.
constexpr int kMaxQuickSteps = 48;

// Fills the quick-solve fields of a span whose time coefficients are loaded.
void prepareQuickSolve(TweightedSpan& w) {
  const double c1 = w.xc1;
  const double c2 = w.xc2;
  const double c3 = w.xc3;
  // The slope x'(s) in the Bernstein basis: b0 (1-s)^2 + 2 b1 s(1-s) + b2 s^2.
  const double b0 = c1;
  const double b1 = c1 + c2;
  const double b2 = c1 + 2.0 * c2 + 3.0 * c3;
  bool rising =
      std::isfinite(c1) && std::isfinite(c2) && std::isfinite(c3) && b0 >= 0.0 && b2 >= 0.0;
  if (rising && b1 < 0.0) {
    // The slope dips inside the span to (b0 b2 - b1^2) / (b0 - 2 b1 + b2).
    rising = b0 * b2 - b1 * b1 > kMinInteriorSlope * (b0 - 2.0 * b1 + b2);
  }
  w.solveQuickly = rising ? 1 : 0;
  w.solveStepCube = 0.0;
  if (!rising) return;

  const double sum = std::fabs(c1) + std::fabs(c2) + std::fabs(c3);
  w.solveSlopeFloor[0] = kSlopeFactor * sum;
  w.solveSlopeFloor[1] = kSlopeFactor;
  // At a constant parameter s, time, slope and half curvature are sums of
  // the coefficients times constants; written out, the compiler folds the
  // powers of s and load() stays cheap for a random sample that lands in a
  // new span every time.
  const auto time = [&](double t) { return c1 * t + c2 * (t * t) + c3 * (t * t * t); };
  w.solveSplit[0] = time(0.25);
  w.solveSplit[1] = time(0.5);
  w.solveSplit[2] = time(0.75);
  const auto slopeAt = [&](double t) { return c1 + c2 * (2.0 * t) + c3 * (3.0 * t * t); };
  const double slope[4] = {slopeAt(0.125), slopeAt(0.375), slopeAt(0.625), slopeAt(0.875)};
  // The slopes are positive here (the span rises strictly inside); one
  // division serves all four reciprocals.
  const double slope01 = slope[0] * slope[1];
  const double slope23 = slope[2] * slope[3];
  const double inverse = 1.0 / (slope01 * slope23);
  const double reciprocal[4] = {inverse * slope[1] * slope23, inverse * slope[0] * slope23,
                                inverse * slope[3] * slope01, inverse * slope[2] * slope01};
  const auto fill = [&](int q, double t) {
    // About t, x(t + e) = x(t) + d e + h e^2 + c3 e^3; the guess is the
    // inverse series of that to the fourth power of the time offset.
    const double d = slope[q];
    const double h = c2 + c3 * (3.0 * t);
    const double r = reciprocal[q];
    const double r2 = r * r;
    const double r3 = r2 * r;
    const double r5 = r3 * r2;
    const double dc3 = d * c3;
    const double h2 = h * h;
    double* g = w.solveGuess[q];
    g[0] = time(t);
    g[1] = t;
    g[2] = r;
    g[3] = -h * r3;
    g[4] = (2.0 * h2 - dc3) * r5;
    g[5] = 5.0 * h * (dc3 - h2) * (r5 * r2);
  };
  fill(0, 0.125);
  fill(1, 0.375);
  fill(2, 0.625);
  fill(3, 0.875);

  // Bounds over the span of the slope (from its Bernstein coefficients) and
  // of the half curvature (linear in s), for a step-size test that holds
  // everywhere: the careful iteration's error estimate
  // |h^2 - c3 d| e^3 <= tol d^2 and its curvature limit |h| e <= k d both
  // follow from e^3 < solveStepCube.
  const double slopeMin =
      b1 >= 0.0 ? std::min(b1, std::min(b0, b2)) : (b0 * b2 - b1 * b1) / (b0 - 2.0 * b1 + b2);
  const double slopeMax = std::max(b1, std::max(b0, b2));
  const double curveMax = std::max(std::fabs(c2), std::fabs(c2 + 3.0 * c3));
  // Where the slope may fall below the conditioning floor somewhere, each
  // root's conditioning is checked by the careful iteration instead.
  if (!(slopeMin >= kSlopeFactor * (sum + 1.0))) return;
  if (curveMax == 0.0) {
    // Time linear in the parameter: one Halley step is exact.
    w.solveStepCube = std::numeric_limits<double>::infinity();
    return;
  }
  // min(tol m^2 / L, (k m / c)^3) with a single division.
  const double spread = curveMax * curveMax + std::fabs(c3) * slopeMax;
  const double curve3 = curveMax * curveMax * curveMax;
  const double k3 = kMaxCurvedStep * kMaxCurvedStep * kMaxCurvedStep;
  w.solveStepCube = std::min(kStepTolerance * slopeMin * slopeMin * curve3,
                             k3 * slopeMin * slopeMin * slopeMin * spread) /
                    (spread * curve3);
}

// The iteration for every time the first step could not settle: bracketed
// Halley steps with the full acceptance test, and the reference where they
// cannot vouch for their answer. Kept out of line so that the first step
// stays short.
[[gnu::noinline]] double solveCarefully(const TweightedSpan& w, double u) {
  // Also false for NaN.
  if (!(w.solveQuickly != 0 && u >= kQuickLow && u <= kQuickHigh)) return w.referenceParameterAt(u);

  // The quarter holding the root, and the guess from its inverse series.
  const int q = (u > w.solveSplit[0]) + (u > w.solveSplit[1]) + (u > w.solveSplit[2]);
  const double* g = w.solveGuess[q];
  const double d = u - g[0];
  double s = g[1] + d * (g[2] + d * (g[3] + d * (g[4] + d * g[5])));
  if (!(s >= 0.0 && s <= 1.0)) s = g[1];

  // Halley steps on p(s) = x(s) - u, kept inside a bracket that every
  // evaluation narrows; x rises strictly, so the sign of p says which side
  // of the root s lies on.
  const double c3x3 = 3.0 * w.xc3;
  const double c2x2 = 2.0 * w.xc2;
  double lo = 0.0;
  double hi = 1.0;
  for (int i = 0; i < kMaxQuickSteps; ++i) {
    const double p0 = w.timeAt(s) - u;
    const double p1 = (c3x3 * s + c2x2) * s + w.xc1;
    const double p2 = c3x3 * s + w.xc2;
    const double den = p1 * p1 - p0 * p2;
    const double step = p0 * p1 / den;
    const double next = s - step;
    const double a = std::fabs(step);
    if (p1 > 0.0 && den > 0.0 && std::fabs(p2) * a <= kMaxCurvedStep * p1 &&
        std::fabs(p2 * p2 - w.xc3 * p1) * (a * a * a) <= kStepTolerance * (p1 * p1)) {
      // Converged; the root counts only where rounding cannot move it far.
      const bool conditioned = p1 >= w.solveSlopeFloor[0] * s + w.solveSlopeFloor[1] * u;
      return conditioned && next >= 0.0 && next <= 1.0 ? next : w.referenceParameterAt(u);
    }
    if (p0 < 0.0) {
      lo = s;
    } else {
      hi = s;
    }
    s = (next > lo && next < hi) ? next : 0.5 * (lo + hi);
  }
  return w.referenceParameterAt(u);
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
  solveInverseDuration = 1.0 / h;
  prepareQuickSolve(*this);
  return true;
}

double TweightedSpan::referenceParameterAt(double u) const {
  const double c[4] = {0.0 - u, xc1, xc2, xc3};
  double roots[3];
  const int count = internal::findPolynomialRoots(c, 3, 0.0, 1.0, true, true, roots);
  return count == 1 ? roots[0] : 0.0;
}

namespace {

// The parameter at u by the guess of u's quarter and one Halley step, when
// that step is small enough to be trusted (see prepareQuickSolve); false
// otherwise, and for NaN.
inline bool quickParameter(const TweightedSpan& w, double u, double& result) {
  if (!(u >= kQuickLow && u <= kQuickHigh)) return false;
  const int q = (u > w.solveSplit[0]) + (u > w.solveSplit[1]) + (u > w.solveSplit[2]);
  const double* g = w.solveGuess[q];
  // Estrin's scheme rather than Horner's: shorter dependency chains, the
  // same error bounds.
  const double d = u - g[0];
  const double d2 = d * d;
  const double s = (g[1] + d * g[2]) + d2 * ((g[3] + d * g[4]) + d2 * g[5]);
  const double s2 = s * s;
  const double p0 = (w.xc1 * s - u) + s2 * (w.xc2 + w.xc3 * s);
  const double p1 = (w.xc1 + 2.0 * w.xc2 * s) + 3.0 * w.xc3 * s2;
  const double p2 = 3.0 * w.xc3 * s + w.xc2;
  const double step = p0 * p1 / (p1 * p1 - p0 * p2);
  const double next = s - step;
  const double a = std::fabs(step);
  if (!(a * a * a < w.solveStepCube && next >= 0.0 && next <= 1.0)) return false;
  result = next;
  return true;
}

}  // namespace

double TweightedSpan::parameterAt(double u) const {
  // One Halley step from the guess settles most times; its test is a single
  // bound on the step size, worked out for the whole span by load().
  double s = 0.0;
  if (quickParameter(*this, u, s)) return s;
  return solveCarefully(*this, u);
}

double TweightedSpan::solvedValueAt(double t) const {
  const double fromStart = t - x0;
  if (std::fabs(fromStart) > 1e-10 && std::fabs(t - x3) > 1e-10) {
    // A product instead of normalisedTime()'s division: one rounding more in
    // u, far below what the quick solve may differ by, and a shorter wait.
    const double u = fromStart * solveInverseDuration;
    double s = 0.0;
    if (quickParameter(*this, u, s)) {
      // Estrin's scheme again: the value's terms round alike either way.
      const double s2 = s * s;
      return (yc0 + yc1 * s) + s2 * (yc2 + yc3 * s);
    }
  }
  return valueAt(parameterAt(normalisedTime(t)));
}

}  // namespace lumora

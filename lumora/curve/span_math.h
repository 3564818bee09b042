// The arithmetic of one curve span, kept apart from any curve or evaluator so
// that every evaluation path (the curve's own cache, a caller's cursor, a
// compiled sampler, the segment evaluators) computes it with the same
// instructions and therefore gets the same bits.
//
//   ThermiteSpan h = ThermiteSpan::fromControlPoints(0, 0, 1.0 / 3, 0, 2.0 / 3, 1, 1, 1);
//   double v = h.evaluate(0.5);                          // 0.5
//
//   TweightedSpan w;
//   double x1 = 0.2, y1 = 0.0, x2 = 0.9, y2 = 1.0;
//   w.load(0.0, 0.0, x1, y1, x2, y2, 1.0, 1.0, /*keepFirst=*/true);
//   double v2 = w.evaluate(0.5);
//
// Both types are plain values: copying one copies the loaded span.
#pragma once

#include <cmath>
#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/float_math.h"

namespace lumora {

/// A non-weighted span: a cubic Hermite in time, ((a s + b) s + c) s + d
/// with s = t - x0.
struct ThermiteSpan {
  double x0 = 0.0;
  double a = 0.0;
  double b = 0.0;
  double c = 0.0;
  double d = 0.0;

  /// The cubic from (x0, y0) to (x3, y3) whose end slopes are those of the
  /// handles (x0, y0)-(x1, y1) and (x2, y2)-(x3, y3). A handle of zero
  /// duration has the positive vertical slope; a span of zero (or NaN)
  /// duration is the constant y0.
  LUMORA_API static ThermiteSpan fromControlPoints(double x0, double y0, double x1, double y1,
                                                   double x2, double y2, double x3, double y3);

  /// The value at t seconds; outside [x0, x3] the cubic continues.
  double evaluate(double t) const { return evaluateAfterStart(t - x0); }
  /// The value s seconds after x0.
  double evaluateAfterStart(double s) const { return cubicAt(a, b, c, d, s); }
};

/// A weighted span: a cubic Bezier in both time and value.
///
/// Surprises:
///  * load() keeps time running forwards: handles that point out of the span
///    in time are pulled back along their own direction, and handles so long
///    that the time polynomial would turn back are cut to the longest
///    monotonic lengths. The moved handles are written back.
///  * A span of zero (or NaN) duration is refused: load() returns false and
///    the previous span stays loaded.
///  * A time outside the span evaluates to y0 (unless time is linear in the
///    curve parameter, when the cubic continues), as does a time at which the
///    time polynomial has no single solution.
struct LUMORA_API TweightedSpan {
  // Span ends in seconds.
  double x0 = 0.0;
  double x3 = 1.0;
  // Power basis, constant term first, of the time polynomial normalised to
  // [0, 1] (its constant term is always 0) and of the value polynomial.
  double xc1 = 1.0;
  double xc2 = 0.0;
  double xc3 = 0.0;
  double yc0 = 0.0;
  double yc1 = 0.0;
  double yc2 = 0.0;
  double yc3 = 0.0;
  /// 1 when the time polynomial is the identity (handles at 1/3 and 2/3).
  std::int32_t timeIsLinear = 1;
  /// 1 / (x3 - x0).
  double solveInverseDuration = 1.0;
  /// 1 when parameterAt() may solve by the quick iteration: the time
  /// polynomial is finite and increases strictly inside (0, 1). Otherwise
  /// every time is solved by referenceParameterAt().
  std::int32_t solveQuickly = 0;
  /// The fastest the time polynomial may rise at s, at normalised time u, for
  /// a quick solution to be trusted: solveSlopeFloor[0] * s +
  /// solveSlopeFloor[1] * u. Where it rises more slowly, rounding in the
  /// polynomial moves its root too far and the reference takes over.
  double solveSlopeFloor[2] = {0.0, 0.0};
  /// A first Halley step of size d is taken as the answer when d^3 is below
  /// this: a bound, over the whole span, under which the step's error is
  /// negligible and the root well conditioned. 0 sends every time through
  /// the careful iteration.
  double solveStepCube = 0.0;
  /// Normalised times at curve parameters 1/4, 1/2 and 3/4: they pick the
  /// quarter of the span in which the root lies.
  double solveSplit[3] = {0.0, 0.0, 0.0};
  /// Per quarter, a first guess at the parameter: the inverse of the time
  /// polynomial's Taylor expansion about the quarter's centre. Each row is
  /// {u, s, c1, c2, c3, c4}: the guess at time v is
  /// s + c1 d + c2 d^2 + c3 d^3 + c4 d^4 with d = v - u.
  double solveGuess[4][6] = {};

  /// Loads the span with control points P0 = (x0, y0) .. P3 = (x3, y3),
  /// adjusting P1 and P2 as described above; `keepFirst` says which handle
  /// survives when one must be shortened. False (nothing changed) for a span
  /// of zero or NaN duration.
  bool load(double x0, double y0, double& x1, double& y1, double& x2, double& y2, double x3,
            double y3, bool keepFirst);

  /// The value at t seconds.
  double evaluate(double t) const {
    if (timeIsLinear) return valueAt(normalisedTime(t));
    return solvedValueAt(t);
  }
  /// The value at t seconds found by solving for the curve parameter:
  /// valueAt(parameterAt(normalisedTime(t))), or within the same bound of
  /// the reference's value by a shorter route.
  double solvedValueAt(double t) const;
  /// Normalised time of t (0 at x0, 1 at x3), snapped to the ends within 1e-10 s.
  double normalisedTime(double t) const {
    const double fromStart = t - x0;
    if (std::fabs(fromStart) <= 1e-10) return 0.0;
    if (std::fabs(t - x3) <= 1e-10) return 1.0;
    return fromStart / (x3 - x0);
  }
  /// The curve parameter in [0, 1] whose normalised time is u; 0 when there
  /// is no single one. valueAt() of it differs from valueAt() of
  /// referenceParameterAt(u) by at most 1e-12 times the largest magnitude
  /// among the span's four control values; where that cannot be assured (u
  /// within 1e-9 of an end or outside [0, 1], NaN, a time polynomial that
  /// turns back or nearly stalls inside the span, a root where it rises too
  /// slowly) the result is referenceParameterAt(u) itself. It depends only on
  /// the loaded span and u.
  double parameterAt(double u) const;
  /// The same, by the general root finder on the whole time polynomial: the
  /// reference that parameterAt() is measured against.
  double referenceParameterAt(double u) const;
  /// The normalised time at curve parameter s.
  double timeAt(double s) const { return cubicAt(xc3, xc2, xc1, 0.0, s); }
  /// The value at curve parameter s.
  double valueAt(double s) const { return cubicAt(yc3, yc2, yc1, yc0, s); }
};

}  // namespace lumora

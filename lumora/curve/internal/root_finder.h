// Real roots of a polynomial on a closed interval.
//
//   const double c[] = {-0.25, 0.0, 1.0};   // s^2 - 1/4
//   double roots[2];
//   int n = internal::findPolynomialRoots(c, 2, 0.0, 1.0, true, true, roots);
//   // n == 1, roots[0] == 0.5
//
// The weighted segment evaluator inverts its time polynomial with this, and the
// segment evaluators find the interior extremes of a segment with it. The
// interval is cut at the roots of the derivative (found the same way,
// recursively) into pieces on which the polynomial is monotonic; each piece
// holds at most one root, which Brent's bracketing method then finds.
//
// Tolerance: eps = (|lo| + |hi|) * (degree + 1) * machineEpsilon(), applied to
// the polynomial scaled so that its coefficient magnitudes sum to 1. A value
// below eps counts as zero; a double root is therefore reported once, and two
// roots closer than eps come out as one.
//
// Not part of the library's interface.
#pragma once

namespace lumora::internal {

/// Finds the real roots of c[0] + c[1] s + ... + c[degree] s^degree in
/// [lo, hi] and writes them in increasing order to `roots`, which must have
/// room for `degree` values. `loCounts` / `hiCounts` say whether a root lying
/// at that end of the interval is reported.
///
/// Returns the number of roots, or -1 for a null polynomial (every coefficient
/// within the tolerance of 0) and for unusable arguments: null pointers, a
/// negative degree, a non-finite coefficient or bound, or lo > hi.
///
/// Degrees up to 20 use fixed scratch space on the stack; higher degrees
/// allocate it on the heap for the duration of the call.
int findPolynomialRoots(const double* coefficients, int degree, double lo, double hi, bool loCounts,
                        bool hiCounts, double* roots);

/// Brent's bracketing zero finder (inverse quadratic interpolation, secant and
/// bisection) for the polynomial c[0..degree] on [a, b], with requested
/// tolerance 0: it stops when half the bracket is at most
/// 2 * machineEpsilon() * |b| or the polynomial is exactly 0 at b. An end where
/// the polynomial is already below `zeroTolerance` in magnitude is returned at
/// once. The polynomial should change sign over the bracket; otherwise the
/// result is some point of it.
double brentZero(const double* coefficients, int degree, double a, double b, double zeroTolerance);

}  // namespace lumora::internal

#include "lumora/curve/internal/root_finder.h"

#include <cmath>
#include <cstddef>
#include <vector>

#include "lumora/curve/segment_evaluator.h"

namespace lumora::internal {

namespace {

// Degrees up to this use a stack buffer for the derivative chain.
constexpr int kMaxFixedDegree = 20;

// A degree-n level needs n derivative coefficients, n - 1 derivative roots and
// the scratch of the level below: n^2 - 1 values in all (0 for n <= 1).
constexpr std::size_t chainScratchSize(int degree) {
  return degree <= 1 ? 0 : static_cast<std::size_t>(degree) * static_cast<std::size_t>(degree) - 1;
}

constexpr std::size_t kFixedScratchSize = kMaxFixedDegree + 1 + chainScratchSize(kMaxFixedDegree);

// Brent's method gives up after this many steps; it needs far fewer on any
// finite polynomial, so the cap only stops NaN-driven loops.
constexpr int kMaxBrentSteps = 5000;

double evaluatePolynomial(const double* c, int degree, double x) {
  double v = c[degree];
  for (int i = degree - 1; i >= 0; --i) v = v * x + c[i];
  return v;
}

bool strictlyOppositeSigns(double a, double b) {
  return (a < 0.0 && b > 0.0) || (a > 0.0 && b < 0.0);
}

bool sameStrictSign(double a, double b) {
  return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0);
}

int linearRoot(const double* c, double eps, double lo, double hi, bool loCounts, bool hiCounts,
               double* roots) {
  double r = -c[0] / c[1];
  const double lowTest = loCounts ? r + eps : r - eps;
  const double highTest = hiCounts ? r - eps : r + eps;
  if (!(lowTest > lo && highTest < hi)) return 0;
  if (r < lo) r = lo;
  if (r > hi) r = hi;
  roots[0] = r;
  return 1;
}

// Roots of c[0..degree] on [lo, hi]. `c` is scaled in place. `scratch` holds
// chainScratchSize(degree) values.
int solve(double* c, int degree, double lo, double hi, bool loCounts, bool hiCounts, double* roots,
          double* scratch) {
  int n = degree;
  const double eps = (std::fabs(lo) + std::fabs(hi)) * (n + 1) * machineEpsilon();
  double sum = 0.0;
  for (int i = 0; i <= n; ++i) sum += std::fabs(c[i]);
  if (sum <= eps) return -1;
  for (int i = 0; i <= n; ++i) c[i] /= sum;
  while (n > 0 && std::fabs(c[n]) < eps) --n;
  if (n == 0) return 0;
  if (n == 1) return linearRoot(c, eps, lo, hi, loCounts, hiCounts, roots);

  // The derivative's roots cut [lo, hi] into pieces on which c is monotonic.
  double* derivative = scratch;
  double* turns = derivative + n;
  double* deeper = turns + (n - 1);
  for (int k = 1; k <= n; ++k) derivative[k - 1] = k * c[k];
  int turnCount = solve(derivative, n - 1, lo, hi, false, false, turns, deeper);
  if (turnCount < 0) turnCount = 0;

  int count = 0;
  double start = lo;
  double pStart = evaluatePolynomial(c, n, lo);
  bool startIsRoot = false;
  if (std::fabs(pStart) < eps && loCounts) {
    roots[count++] = lo;
    startIsRoot = true;
  }
  for (int j = 0; j <= turnCount; ++j) {
    const double end = j < turnCount ? turns[j] : hi;
    const double pEnd = evaluatePolynomial(c, n, end);
    if (startIsRoot) {
      // A monotonic piece that starts at a root holds no other.
      startIsRoot = false;
    } else if (std::fabs(pEnd) >= eps && strictlyOppositeSigns(pStart, pEnd)) {
      const double r = brentZero(c, n, start, end, eps);
      if (count > 0 && std::fabs(r - roots[count - 1]) <= eps) {
        roots[count - 1] = 0.5 * (r + roots[count - 1]);
      } else {
        roots[count++] = r;
      }
    } else if (std::fabs(pEnd) < eps && (j < turnCount || hiCounts)) {
      roots[count++] = end;
      startIsRoot = true;
    }
    start = end;
    pStart = pEnd;
  }
  return count;
}

}  // namespace

double brentZero(const double* coefficients, int degree, double ax, double bx,
                 double zeroTolerance) {
  const double* c = coefficients;
  double a = ax;
  double b = bx;
  double fa = evaluatePolynomial(c, degree, a);
  double fb = evaluatePolynomial(c, degree, b);
  if (std::fabs(fa) < zeroTolerance) return a;
  if (std::fabs(fb) < zeroTolerance) return b;

  const double machEps = machineEpsilon();
  double fc = fa;
  double cc = a;
  double d = b - a;
  double e = d;
  for (int step = 0; step < kMaxBrentSteps; ++step) {
    if (std::fabs(fc) < std::fabs(fb)) {
      // Keep b as the best estimate and c on the other side of the root.
      a = b;
      b = cc;
      cc = a;
      fa = fb;
      fb = fc;
      fc = fa;
    }
    const double tol1 = 2.0 * machEps * std::fabs(b);
    const double xm = 0.5 * (cc - b);
    if (std::fabs(xm) <= tol1 || fb == 0.0) return b;

    bool bisect = true;
    if (std::fabs(e) >= tol1 && std::fabs(fa) > std::fabs(fb)) {
      double p = 0.0;
      double q = 0.0;
      const double s = fb / fa;
      if (a == cc) {
        p = 2.0 * xm * s;  // secant
        q = 1.0 - s;
      } else {
        const double qa = fa / fc;  // inverse quadratic interpolation
        const double r = fb / fc;
        p = s * (2.0 * xm * qa * (qa - r) - (b - a) * (r - 1.0));
        q = (qa - 1.0) * (r - 1.0) * (s - 1.0);
      }
      if (p > 0.0) q = -q;
      p = std::fabs(p);
      if (2.0 * p < 3.0 * xm * q - std::fabs(tol1 * q) && p < std::fabs(0.5 * e * q)) {
        e = d;
        d = p / q;
        bisect = false;
      }
    }
    if (bisect) {
      d = xm;
      e = d;
    }
    a = b;
    fa = fb;
    if (std::fabs(d) > tol1) {
      b += d;
    } else {
      b += xm > 0.0 ? tol1 : -tol1;
    }
    fb = evaluatePolynomial(c, degree, b);
    if (sameStrictSign(fb, fc)) {
      // The root now lies between a and b: restart the bracket from a.
      cc = a;
      fc = fa;
      d = b - a;
      e = d;
    }
  }
  return b;
}

int findPolynomialRoots(const double* coefficients, int degree, double lo, double hi, bool loCounts,
                        bool hiCounts, double* roots) {
  if (coefficients == nullptr || roots == nullptr || degree < 0) return -1;
  if (!std::isfinite(lo) || !std::isfinite(hi) || lo > hi) return -1;
  for (int i = 0; i <= degree; ++i) {
    if (!std::isfinite(coefficients[i])) return -1;
  }

  const std::size_t needed = static_cast<std::size_t>(degree) + 1 + chainScratchSize(degree);
  double fixed[kFixedScratchSize];
  std::vector<double> heap;
  double* scratch = fixed;
  if (degree > kMaxFixedDegree) {
    heap.resize(needed);
    scratch = heap.data();
  }
  for (int i = 0; i <= degree; ++i) scratch[i] = coefficients[i];
  return solve(scratch, degree, lo, hi, loCounts, hiCounts, roots, scratch + degree + 1);
}

}  // namespace lumora::internal

#include "lumora/curve/internal/root_finder.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "lumora/curve/segment_evaluator.h"

namespace lumora::internal {
namespace {

struct Found {
  int count;
  std::vector<double> roots;
};

Found solve(const std::vector<double>& c, double lo, double hi, bool loCounts, bool hiCounts) {
  std::vector<double> roots(c.size() + 1, std::numeric_limits<double>::quiet_NaN());
  const int degree = static_cast<int>(c.size()) - 1;
  const int n = findPolynomialRoots(c.data(), degree, lo, hi, loCounts, hiCounts, roots.data());
  roots.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return {n, roots};
}

// Coefficients, constant term first, of the product of (s - r) over `roots`.
std::vector<double> fromRoots(const std::vector<double>& roots) {
  std::vector<double> c{1.0};
  for (const double r : roots) {
    std::vector<double> next(c.size() + 1, 0.0);
    for (std::size_t i = 0; i < c.size(); ++i) {
      next[i + 1] += c[i];
      next[i] -= r * c[i];
    }
    c = next;
  }
  return c;
}

TEST(FindPolynomialRoots, NullPolynomialAndBadArguments) {
  EXPECT_EQ(solve({0.0}, 0.0, 1.0, true, true).count, -1);
  EXPECT_EQ(solve({0.0, 0.0, 0.0, 0.0}, 0.0, 1.0, true, true).count, -1);
  // Below the tolerance (about 4.4e-16 for degree 1 on [0, 1]) counts as null.
  EXPECT_EQ(solve({1e-17, 1e-17}, 0.0, 1.0, true, true).count, -1);

  const double c[] = {-0.5, 1.0};
  double roots[1];
  EXPECT_EQ(findPolynomialRoots(nullptr, 1, 0.0, 1.0, true, true, roots), -1);
  EXPECT_EQ(findPolynomialRoots(c, 1, 0.0, 1.0, true, true, nullptr), -1);
  EXPECT_EQ(findPolynomialRoots(c, -1, 0.0, 1.0, true, true, roots), -1);
  EXPECT_EQ(findPolynomialRoots(c, 1, 1.0, 0.0, true, true, roots), -1);
  EXPECT_EQ(findPolynomialRoots(c, 1, std::nan(""), 1.0, true, true, roots), -1);
  const double bad[] = {std::numeric_limits<double>::infinity(), 1.0};
  EXPECT_EQ(findPolynomialRoots(bad, 1, 0.0, 1.0, true, true, roots), -1);
}

TEST(FindPolynomialRoots, LowDegrees) {
  EXPECT_EQ(solve({3.0}, 0.0, 1.0, true, true).count, 0);

  const Found linear = solve({-0.25, 1.0}, 0.0, 1.0, false, false);
  ASSERT_EQ(linear.count, 1);
  EXPECT_DOUBLE_EQ(linear.roots[0], 0.25);
  EXPECT_EQ(solve({-2.0, 1.0}, 0.0, 1.0, true, true).count, 0);

  const Found quadratic = solve({-0.25, 0.0, 1.0}, -1.0, 1.0, true, true);
  ASSERT_EQ(quadratic.count, 2);
  EXPECT_NEAR(quadratic.roots[0], -0.5, 1e-15);
  EXPECT_NEAR(quadratic.roots[1], 0.5, 1e-15);

  // A negligible leading coefficient lowers the degree.
  const Found lowered = solve({-0.25, 1.0, 1e-300}, 0.0, 1.0, true, true);
  ASSERT_EQ(lowered.count, 1);
  EXPECT_DOUBLE_EQ(lowered.roots[0], 0.25);

  const Found cubic = solve(fromRoots({0.75, 0.25, 0.5}), 0.0, 1.0, true, true);
  ASSERT_EQ(cubic.count, 3);
  EXPECT_NEAR(cubic.roots[0], 0.25, 1e-14);
  EXPECT_NEAR(cubic.roots[1], 0.5, 1e-14);
  EXPECT_NEAR(cubic.roots[2], 0.75, 1e-14);
}

TEST(FindPolynomialRoots, RootsAtTheEnds) {
  // Linear: exactly at lo, and just outside it within the tolerance.
  EXPECT_EQ(solve({0.0, 1.0}, 0.0, 1.0, false, true).count, 0);
  const Found atLo = solve({0.0, 1.0}, 0.0, 1.0, true, false);
  ASSERT_EQ(atLo.count, 1);
  EXPECT_EQ(atLo.roots[0], 0.0);
  const Found belowLo = solve({1e-17, 1.0}, 0.0, 1.0, true, false);
  ASSERT_EQ(belowLo.count, 1);
  EXPECT_EQ(belowLo.roots[0], 0.0);  // reported as lo itself
  EXPECT_EQ(solve({1e-17, 1.0}, 0.0, 1.0, false, false).count, 0);
  const Found atHi = solve({-1.0, 1.0}, 0.0, 1.0, false, true);
  ASSERT_EQ(atHi.count, 1);
  EXPECT_EQ(atHi.roots[0], 1.0);
  EXPECT_EQ(solve({-1.0, 1.0}, 0.0, 1.0, true, false).count, 0);

  // s (s - 1) vanishes exactly at both ends.
  const std::vector<double> both = {0.0, -1.0, 1.0};
  const Found all = solve(both, 0.0, 1.0, true, true);
  ASSERT_EQ(all.count, 2);
  EXPECT_EQ(all.roots[0], 0.0);
  EXPECT_EQ(all.roots[1], 1.0);
  const Found loOnly = solve(both, 0.0, 1.0, true, false);
  ASSERT_EQ(loOnly.count, 1);
  EXPECT_EQ(loOnly.roots[0], 0.0);
  const Found hiOnly = solve(both, 0.0, 1.0, false, true);
  ASSERT_EQ(hiOnly.count, 1);
  EXPECT_EQ(hiOnly.roots[0], 1.0);
  EXPECT_EQ(solve(both, 0.0, 1.0, false, false).count, 0);

  // A cubic with roots at both ends and one inside.
  const Found cubic = solve(fromRoots({0.0, 0.5, 1.0}), 0.0, 1.0, true, true);
  ASSERT_EQ(cubic.count, 3);
  EXPECT_EQ(cubic.roots[0], 0.0);
  EXPECT_NEAR(cubic.roots[1], 0.5, 1e-15);
  EXPECT_EQ(cubic.roots[2], 1.0);
}

TEST(FindPolynomialRoots, MultipleAndCloseRootsCountOnce) {
  const Found doubleRoot = solve(fromRoots({0.5, 0.5}), 0.0, 1.0, true, true);
  ASSERT_EQ(doubleRoot.count, 1);
  EXPECT_NEAR(doubleRoot.roots[0], 0.5, 1e-15);

  const Found tripleAndSingle = solve(fromRoots({0.25, 0.25, 0.25, 0.75}), 0.0, 1.0, true, true);
  ASSERT_EQ(tripleAndSingle.count, 2);
  EXPECT_NEAR(tripleAndSingle.roots[0], 0.25, 1e-5);
  EXPECT_NEAR(tripleAndSingle.roots[1], 0.75, 1e-14);

  // Two roots one ulp apart (well within the tolerance) come out as one.
  const Found close = solve(fromRoots({0.5, std::nextafter(0.5, 1.0)}), 0.0, 1.0, true, true);
  ASSERT_EQ(close.count, 1);
  EXPECT_NEAR(close.roots[0], 0.5, 1e-15);
}

TEST(FindPolynomialRoots, HighDegreeUsesHeapScratch) {
  // s^25 - 0.5: one root, 0.5^(1/25).
  std::vector<double> c(26, 0.0);
  c[0] = -0.5;
  c[25] = 1.0;
  const Found single = solve(c, 0.0, 1.0, true, true);
  ASSERT_EQ(single.count, 1);
  EXPECT_NEAR(single.roots[0], std::pow(0.5, 1.0 / 25.0), 1e-15);

  // Three roots in [0, 1] times a factor (s + 2)^22 without roots there.
  std::vector<double> roots{0.25, 0.5, 0.75};
  roots.insert(roots.end(), 22, -2.0);
  const Found three = solve(fromRoots(roots), 0.0, 1.0, true, true);
  ASSERT_EQ(three.count, 3);
  EXPECT_NEAR(three.roots[0], 0.25, 1e-9);
  EXPECT_NEAR(three.roots[1], 0.5, 1e-9);
  EXPECT_NEAR(three.roots[2], 0.75, 1e-9);
}

TEST(BrentZero, ConvergesToMachinePrecision) {
  const double cube[] = {-2.0, 0.0, 0.0, 1.0};
  const double r = brentZero(cube, 3, 1.0, 2.0, 0.0);
  EXPECT_NEAR(r, std::cbrt(2.0), 4.0 * DBL_EPSILON * r);
  // Either bracket order.
  EXPECT_NEAR(brentZero(cube, 3, 2.0, 1.0, 0.0), std::cbrt(2.0), 4.0 * DBL_EPSILON * r);

  // A root at exactly 0, where the relative tolerance vanishes.
  const double through0[] = {0.0, 1.0, 1.0};  // s + s^2
  EXPECT_NEAR(brentZero(through0, 2, -0.5, 0.75, 0.0), 0.0, 1e-300);

  // An end where the polynomial already vanishes is returned as it is.
  const double line[] = {-1.0, 1.0};
  EXPECT_EQ(brentZero(line, 1, 1.0 + 1e-14, 3.0, 1e-12), 1.0 + 1e-14);
  EXPECT_EQ(brentZero(line, 1, -3.0, 1.0 - 1e-14, 1e-12), 1.0 - 1e-14);
}

TEST(MachineEpsilon, IsTheSpacingAtOne) {
  EXPECT_EQ(machineEpsilon(), DBL_EPSILON);
  EXPECT_EQ(machineEpsilon(), std::ldexp(1.0, -52));
}

}  // namespace
}  // namespace lumora::internal

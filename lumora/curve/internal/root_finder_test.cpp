#include "lumora/curve/internal/root_finder.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "lumora/curve/segment_evaluator.h"

namespace lumora::internal {
namespace {

int rootCount(const std::vector<double>& c, double lo, double hi, bool loCounts, bool hiCounts,
              std::vector<double>* roots = nullptr) {
  std::vector<double> found(c.size() + 1, std::numeric_limits<double>::quiet_NaN());
  const int degree = static_cast<int>(c.size()) - 1;
  const int n = findPolynomialRoots(c.data(), degree, lo, hi, loCounts, hiCounts, found.data());
  if (roots != nullptr)
    *roots = std::vector<double>(found.begin(), found.begin() + (n > 0 ? n : 0));
  return n;
}

// The roots found on [lo, hi] are `expected`, each within `tol` (0: exactly).
::testing::AssertionResult hasRoots(const std::vector<double>& c, bool loCounts, bool hiCounts,
                                    const std::vector<double>& expected, double tol = 0.0,
                                    double lo = 0.0, double hi = 1.0) {
  std::vector<double> roots;
  const int n = rootCount(c, lo, hi, loCounts, hiCounts, &roots);
  if (n != static_cast<int>(expected.size())) return ::testing::AssertionFailure() << n << " roots";
  for (std::size_t i = 0; i < roots.size(); ++i) {
    if (!(std::fabs(roots[i] - expected[i]) <= tol)) {
      return ::testing::AssertionFailure() << "root " << i << " is " << roots[i];
    }
  }
  return ::testing::AssertionSuccess();
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
  EXPECT_EQ(rootCount({0.0}, 0.0, 1.0, true, true), -1);
  EXPECT_EQ(rootCount({0.0, 0.0, 0.0, 0.0}, 0.0, 1.0, true, true), -1);
  // Below the tolerance (about 4.4e-16 for degree 1 on [0, 1]) counts as null.
  EXPECT_EQ(rootCount({1e-17, 1e-17}, 0.0, 1.0, true, true), -1);
  EXPECT_EQ(rootCount({-0.5, 1.0}, 1.0, 0.0, true, true), -1);
  EXPECT_EQ(rootCount({-0.5, 1.0}, std::nan(""), 1.0, true, true), -1);
  EXPECT_EQ(rootCount({std::numeric_limits<double>::infinity(), 1.0}, 0.0, 1.0, true, true), -1);
  const double c[] = {-0.5, 1.0};
  double roots[1];
  EXPECT_EQ(findPolynomialRoots(nullptr, 1, 0.0, 1.0, true, true, roots), -1);
  EXPECT_EQ(findPolynomialRoots(c, 1, 0.0, 1.0, true, true, nullptr), -1);
  EXPECT_EQ(findPolynomialRoots(c, -1, 0.0, 1.0, true, true, roots), -1);
}

TEST(FindPolynomialRoots, LowDegrees) {
  EXPECT_TRUE(hasRoots({3.0}, true, true, {}));
  EXPECT_TRUE(hasRoots({-0.25, 1.0}, false, false, {0.25}, 1e-16));
  EXPECT_TRUE(hasRoots({-2.0, 1.0}, true, true, {}));
  EXPECT_TRUE(hasRoots({-0.25, 0.0, 1.0}, true, true, {-0.5, 0.5}, 1e-15, -1.0, 1.0));
  // A negligible leading coefficient lowers the degree.
  EXPECT_TRUE(hasRoots({-0.25, 1.0, 1e-300}, true, true, {0.25}, 1e-16));
  EXPECT_TRUE(hasRoots(fromRoots({0.75, 0.25, 0.5}), true, true, {0.25, 0.5, 0.75}, 1e-14));
}

TEST(FindPolynomialRoots, RootsAtTheEndsCountOnlyWhenAsked) {
  struct Row {
    std::vector<double> c;
    bool loCounts, hiCounts;
    std::vector<double> roots;
  };
  const std::vector<double> both = {0.0, -1.0, 1.0};  // s (s - 1)
  const Row rows[] = {
      {{0.0, 1.0}, false, true, {}},      {{0.0, 1.0}, true, false, {0.0}},
      {{1e-17, 1.0}, true, false, {0.0}},  // just below lo, within the tolerance: lo itself
      {{1e-17, 1.0}, false, false, {}},   {{-1.0, 1.0}, false, true, {1.0}},
      {{-1.0, 1.0}, true, false, {}},     {both, true, true, {0.0, 1.0}},
      {both, true, false, {0.0}},         {both, false, true, {1.0}},
      {both, false, false, {}},           {fromRoots({0.0, 0.5, 1.0}), true, true, {0.0, 0.5, 1.0}},
  };
  for (const Row& r : rows) {
    EXPECT_TRUE(hasRoots(r.c, r.loCounts, r.hiCounts, r.roots, r.roots.size() == 3 ? 1e-15 : 0.0))
        << &r - rows;
  }
}

TEST(FindPolynomialRoots, MultipleAndCloseRootsCountOnce) {
  EXPECT_TRUE(hasRoots(fromRoots({0.5, 0.5}), true, true, {0.5}, 1e-15));
  std::vector<double> roots;
  ASSERT_EQ(rootCount(fromRoots({0.25, 0.25, 0.25, 0.75}), 0.0, 1.0, true, true, &roots), 2);
  EXPECT_NEAR(roots[0], 0.25, 1e-5);
  EXPECT_NEAR(roots[1], 0.75, 1e-14);
  // Two roots one ulp apart (well within the tolerance) come out as one.
  EXPECT_TRUE(hasRoots(fromRoots({0.5, std::nextafter(0.5, 1.0)}), true, true, {0.5}, 1e-15));
}

TEST(FindPolynomialRoots, HighDegreeUsesHeapScratch) {
  std::vector<double> c(26, 0.0);  // s^25 - 0.5
  c[0] = -0.5;
  c[25] = 1.0;
  EXPECT_TRUE(hasRoots(c, true, true, {std::pow(0.5, 1.0 / 25.0)}, 1e-15));
  // Three roots in [0, 1] times a factor (s + 2)^22 without roots there.
  std::vector<double> roots{0.25, 0.5, 0.75};
  roots.insert(roots.end(), 22, -2.0);
  EXPECT_TRUE(hasRoots(fromRoots(roots), true, true, {0.25, 0.5, 0.75}, 1e-9));
}

TEST(BrentZero, ConvergesToMachinePrecision) {
  EXPECT_EQ(machineEpsilon(), std::ldexp(1.0, -52));
  const double cube[] = {-2.0, 0.0, 0.0, 1.0};
  const double r = std::cbrt(2.0);
  EXPECT_NEAR(brentZero(cube, 3, 1.0, 2.0, 0.0), r, 4.0 * DBL_EPSILON * r);
  EXPECT_NEAR(brentZero(cube, 3, 2.0, 1.0, 0.0), r, 4.0 * DBL_EPSILON * r);  // either order
  // A root at exactly 0, where the relative tolerance vanishes.
  const double through0[] = {0.0, 1.0, 1.0};  // s + s^2
  EXPECT_NEAR(brentZero(through0, 2, -0.5, 0.75, 0.0), 0.0, 1e-300);
  // An end where the polynomial already vanishes is returned as it is.
  const double line[] = {-1.0, 1.0};
  EXPECT_EQ(brentZero(line, 1, 1.0 + 1e-14, 3.0, 1e-12), 1.0 + 1e-14);
  EXPECT_EQ(brentZero(line, 1, -3.0, 1.0 - 1e-14, 1e-12), 1.0 - 1e-14);
}

}  // namespace
}  // namespace lumora::internal

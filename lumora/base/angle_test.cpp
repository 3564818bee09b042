#include "lumora/base/angle.h"

#include <gtest/gtest.h>

#include <limits>
#include <numbers>
#include <utility>

namespace lumora {
namespace {

constexpr double kPi = std::numbers::pi;

TEST(Tangle, UnitsConvertBothWays) {
  struct Row {
    double value;
    TangleUnit unit;
    double radians;
  };
  // -180 degrees unwrapped stays -pi: only wrapping moves it to +pi.
  const Row rows[] = {
      {1.25, TangleUnit::kRadians, 1.25},      {90.0, TangleUnit::kDegrees, kPi / 2},
      {-180.0, TangleUnit::kDegrees, -kPi},    {60.0, TangleUnit::kMinutes, kPi / 180},
      {5400.0, TangleUnit::kMinutes, kPi / 2}, {3600.0, TangleUnit::kSeconds, kPi / 180},
  };
  for (const Row& r : rows) {
    const Tangle a(r.value, r.unit, /*wrap=*/false);
    EXPECT_NEAR(a.radians(), r.radians, 1e-15) << r.value;
    EXPECT_NEAR(a.valueInUnit(r.unit), r.value, 1e-9) << r.value;
  }
}

TEST(Tangle, WrapLandsInHalfOpenTurn) {
  for (const auto& [given, wrapped] : {std::pair{270.0, -90.0}, {-270.0, 90.0}, {765.0, 45.0}}) {
    EXPECT_NEAR(Tangle(given, TangleUnit::kDegrees, /*wrap=*/true).degrees(), wrapped, 1e-12);
  }
  // The upper end belongs to the interval, the lower end does not.
  EXPECT_DOUBLE_EQ(Tangle(kPi, TangleUnit::kRadians, true).radians(), kPi);
  EXPECT_DOUBLE_EQ(Tangle(-kPi, TangleUnit::kRadians, true).radians(), kPi);
  EXPECT_DOUBLE_EQ(Tangle(3 * kPi).wrapped().radians(), kPi);
}

TEST(Tangle, BadInputStoresZero) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Tangle a(2.0);
  a.setDegrees(nan);
  // NaN, infinities, unknown units (9 and 0) and overflowing arithmetic all give 0.
  for (const double r :
       {Tangle(nan).radians(), Tangle(-inf).radians(),
        Tangle(inf, TangleUnit::kDegrees, true).radians(),
        Tangle(10.0, static_cast<TangleUnit>(9), false).radians(),
        Tangle(1.0).valueInUnit(static_cast<TangleUnit>(0)), (Tangle(1.0) * nan).radians(),
        (Tangle(1e308) + Tangle(1e308)).radians(), a.radians()}) {
    EXPECT_EQ(r, 0.0);
  }
}

TEST(Tangle, ArithmeticNeverWrapsAndComparesExactly) {
  Tangle a = Tangle::sQuarter;
  a += 2.0 * Tangle::sQuarter;
  EXPECT_DOUBLE_EQ(a.radians(), 1.5 * kPi);
  a -= Tangle(kPi / 4);
  EXPECT_DOUBLE_EQ((-a).radians(), -1.25 * kPi);
  EXPECT_NE(Tangle(1.0), Tangle(1.0 + 1e-15));
}

}  // namespace
}  // namespace lumora

#include "lumora/base/time_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

TEST(TanimTime, ConvertsRoundsAndSaturates) {
  const auto ticks = [](double amount, TtimeUnitSystem unit) {
    TanimTime t(77);
    t.setValue(amount, unit);
    return t.inTicks();
  };
  const auto kSeconds = TtimeUnitSystem::kSeconds, kPastEnd = static_cast<TtimeUnitSystem>(13);
  // 1799.9994 ticks round up, -1799.9994 down; NaN and unknown units give 0.
  EXPECT_EQ(std::vector<std::int32_t>({ticks(1.5, kSeconds), ticks(0.2999999, kSeconds),
                                       ticks(-0.2999999, kSeconds), ticks(1e12, kSeconds),
                                       ticks(-1e12, TtimeUnitSystem::kHours),
                                       ticks(std::nan(""), kSeconds), ticks(1.0, kPastEnd)}),
            (std::vector<std::int32_t>{9000, 1800, -1800, TanimTime::maxTime.inTicks(),
                                       TanimTime::minTime.inTicks(), 0, 0}));
  const TanimTime t(9000);
  EXPECT_EQ(
      std::vector<double>({t.valueInThisUnit(kSeconds), t.valueInThisUnit(TtimeUnitSystem::kFilm),
                           t.valueInThisUnit(TtimeUnitSystem::kTicks),
                           t.valueInThisUnit(static_cast<TtimeUnitSystem>(-1))}),
      (std::vector<double>{1.5, 36.0, 9000.0, 0.0}));
  EXPECT_EQ(TtimeValue(TanimTime(6000)).inSeconds(), 1.0f);
}

TEST(TtimeValue, NeitherAndConversionsBetweenKinds) {
  EXPECT_EQ(std::tuple(TtimeValue().inSeconds(), TtimeValue().asAnimTime().inTicks()),
            std::tuple(0.0f, 0));
  EXPECT_EQ(TtimeValue(0.0003f).asAnimTime().inTicks(), 2);  // 1.8 ticks
  EXPECT_EQ(TtimeValue(), TtimeValue());
  EXPECT_NE(TtimeValue(), TtimeValue(0.5f));
}

TEST(TtimeValue, ComparisonsWithinAndAcrossKinds) {
  // Too close to tell apart in float seconds, but ticks compare exactly.
  const TtimeValue a(TanimTime(100000000)), b(TanimTime(100000001));
  EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b);
  EXPECT_TRUE(TtimeValue(1.0f) < TtimeValue(1.0000001f) &&
              TtimeValue(1.0f) != TtimeValue(1.0000001f));
  EXPECT_TRUE(TtimeValue(TanimTime(6000)) == TtimeValue(1.0f));
}

TEST(TtimeValue, Arithmetic) {
  const TtimeValue a(TanimTime(9000)), b(TanimTime(3000));
  EXPECT_EQ((a + b).asAnimTime().inTicks(), 12000);
  EXPECT_TRUE((a - b).isAnimTime());  // ticks with ticks stay ticks
  EXPECT_EQ((a - b).asAnimTime().inTicks(), 6000);
  EXPECT_EQ(std::tuple(a / b, a / TtimeValue(TanimTime(0))), std::tuple(3.0f, 0.0f));
  EXPECT_EQ((a * 0.5f).asAnimTime().inTicks(), 4500);
  EXPECT_EQ((-a).asAnimTime().inTicks(), -9000);
  // Tick sums saturate instead of wrapping round (or overflowing).
  const TtimeValue max(TanimTime::maxTime), min(TanimTime::minTime), one(TanimTime(1));
  EXPECT_EQ(std::vector<std::int32_t>(
                {(max + one).asAnimTime().inTicks(), (min - one).asAnimTime().inTicks(),
                 (-min).asAnimTime().inTicks(), (max - min).asAnimTime().inTicks(),
                 (TanimTime::minTime + TanimTime(-5)).inTicks()}),
            (std::vector<std::int32_t>{TanimTime::maxTime.inTicks(), TanimTime::minTime.inTicks(),
                                       TanimTime::maxTime.inTicks(), TanimTime::maxTime.inTicks(),
                                       TanimTime::minTime.inTicks()}));
  const TtimeValue mixed = a - TtimeValue(0.25f);
  EXPECT_TRUE(mixed.isFloat());
  EXPECT_FLOAT_EQ(mixed.inSeconds(), 1.25f);
}

}  // namespace
}  // namespace lumora

#include "lumora/base/time_value.h"

#include <gtest/gtest.h>

#include <cmath>

namespace lumora {
namespace {

TEST(TanimTime, SecondsAreSixThousandTicks) {
  TanimTime t;
  t.setValue(1.5, TtimeUnitSystem::kSeconds);
  EXPECT_EQ(t.inTicks(), 9000);
  EXPECT_DOUBLE_EQ(t.valueInThisUnit(TtimeUnitSystem::kSeconds), 1.5);
  EXPECT_DOUBLE_EQ(t.valueInThisUnit(TtimeUnitSystem::kFilm), 36.0);
  EXPECT_DOUBLE_EQ(t.valueInThisUnit(TtimeUnitSystem::kTicks), 9000.0);
  EXPECT_EQ(TtimeValue(TanimTime(6000)).inSeconds(), 1.0f);
}

TEST(TanimTime, ConversionRoundsAndSaturates) {
  TanimTime t;
  t.setValue(0.3f, TtimeUnitSystem::kSeconds);  // 1799.99995 ticks in float
  EXPECT_EQ(t.inTicks(), 1800);
  t.setValue(1e12, TtimeUnitSystem::kSeconds);
  EXPECT_EQ(t, TanimTime::maxTime);
  t.setValue(-1e12, TtimeUnitSystem::kHours);
  EXPECT_EQ(t, TanimTime::minTime);
  t.setValue(std::nan(""), TtimeUnitSystem::kSeconds);
  EXPECT_EQ(t.inTicks(), 0);
  t.setValue(1.0, static_cast<TtimeUnitSystem>(99));
  EXPECT_EQ(t.inTicks(), 0);
  EXPECT_EQ(TanimTime(5).valueInThisUnit(static_cast<TtimeUnitSystem>(-1)), 0.0);
}

TEST(TtimeValue, KindsAndNeither) {
  TtimeValue v;
  EXPECT_TRUE(v.isNeither());
  EXPECT_EQ(v.inSeconds(), 0.0f);
  EXPECT_EQ(v.asAnimTime().inTicks(), 0);
  v.setTicks(12000);
  EXPECT_TRUE(v.isAnimTime());
  EXPECT_FALSE(v.isFloat());
  EXPECT_EQ(v.inSeconds(), 2.0f);
  v.setFloat(0.5f);
  EXPECT_TRUE(v.isFloat());
  EXPECT_EQ(v.asAnimTime().inTicks(), 3000);
  EXPECT_EQ(TtimeValue(), TtimeValue());
  EXPECT_NE(TtimeValue(), TtimeValue(0.5f));
}

TEST(TtimeValue, ComparisonsWithinAndAcrossKinds) {
  const TtimeValue a(TanimTime(100)), b(TanimTime(200));
  EXPECT_TRUE(a < b && a <= b && b > a && b >= a && a != b);
  const TtimeValue f(1.0f), g(1.0000001f);
  EXPECT_TRUE(f < g);  // same kind: exact, no tolerance
  EXPECT_TRUE(TtimeValue(TanimTime(6000)) == TtimeValue(1.0f));
}

TEST(TtimeValue, Arithmetic) {
  const TtimeValue a(TanimTime(9000)), b(TanimTime(3000));
  EXPECT_EQ((a + b).asAnimTime().inTicks(), 12000);
  EXPECT_TRUE((a - b).isAnimTime());
  EXPECT_EQ((a - b).asAnimTime().inTicks(), 6000);
  EXPECT_EQ(a / b, 3.0f);
  EXPECT_EQ(a / TtimeValue(TanimTime(0)), 0.0f);
  EXPECT_EQ((a * 0.5f).asAnimTime().inTicks(), 4500);
  EXPECT_EQ((-a).asAnimTime().inTicks(), -9000);
  const TtimeValue mixed = a - TtimeValue(0.25f);
  EXPECT_TRUE(mixed.isFloat());
  EXPECT_FLOAT_EQ(mixed.inSeconds(), 1.25f);
}

}  // namespace
}  // namespace lumora

#include "lumora/keys/keyframe.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>

#include "lumora/base/arena.h"
#include "lumora/keys/internal/key_pool.h"

namespace lumora {
namespace {

TEST(Tkeyframe, FitsInFortyEightBytes) {
  EXPECT_LE(sizeof(Tkeyframe), 48u);
}

TEST(Tkeyframe, ConstructorsSetDefaults) {
  const Tkeyframe k;
  EXPECT_EQ(k.timeAsTicks(), 0);
  EXPECT_EQ(k.value(), 0.0);
  EXPECT_EQ(k.quaternionW(), 1.0f);
  EXPECT_EQ(k.getQuaternionEulerCache(), nullptr);
  EXPECT_FALSE(k.locked());
  EXPECT_TRUE(k.tangentsLocked());
  EXPECT_TRUE(k.weightsLocked());
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanCurve);
  // With no type given the keyframe preference default (spline) applies.
  EXPECT_EQ(k.tanInType(), kTangentSpline);
  EXPECT_EQ(k.tanOutType(), kTangentSpline);
  float x = 1, y = 1;
  k.getTanIn(x, y);
  EXPECT_EQ(x, 0.0f);
  EXPECT_EQ(y, 0.0f);
}

TEST(Tkeyframe, TimeValueConstructorStoresTheRightWord) {
  const Tkeyframe ticks(TtimeValue(TanimTime(6000)), 1.0, kTangentFlat, kTangentStep);
  EXPECT_EQ(ticks.timeAsTicks(), 6000);
  EXPECT_EQ(ticks.tanInType(), kTangentFlat);
  EXPECT_EQ(ticks.tanOutType(), kTangentStep);
  const Tkeyframe secs(TtimeValue(1.25f), 1.0, 0.5, kTangentFixed, kTangentFixed);
  EXPECT_EQ(secs.timeAsFloat(), 1.25f);
  EXPECT_EQ(secs.quaternionW(), 0.5f);
  const Tkeyframe neither(TtimeValue(), 1.0);
  EXPECT_EQ(neither.timeAsTicks(), 0);
  // The value-taking constructors store the value unclamped.
  const Tkeyframe tiny(0.0f, 5e-11);
  EXPECT_EQ(tiny.value(), 5e-11);
}

TEST(Tkeyframe, SetValueClamps) {
  Tkeyframe k;
  EXPECT_EQ(k.setValue(5e-11).value(), 0.0);
  EXPECT_EQ(k.setValue(-5e-11).value(), 0.0);
  EXPECT_EQ(k.setValue(1e-10).value(), 1e-10);
  EXPECT_EQ(k.setValue(std::numeric_limits<double>::infinity()).value(), DBL_MAX);
  EXPECT_EQ(k.setValue(-std::numeric_limits<double>::infinity()).value(), -DBL_MAX);
  EXPECT_EQ(k.setValue(std::nan("")).value(), 0.0);
}

TEST(Tkeyframe, SetTimeFromTimeValueClamps) {
  Tkeyframe k;
  EXPECT_EQ(k.setTime(TtimeValue(5e-6f)).timeAsFloat(), 0.0f);
  EXPECT_EQ(k.setTime(TtimeValue(std::numeric_limits<float>::infinity())).timeAsFloat(), FLT_MAX);
  EXPECT_EQ(k.setTime(TtimeValue(TanimTime(-42))).timeAsTicks(), -42);
  EXPECT_EQ(k.setTime(TtimeValue()).timeAsTicks(), 0);
  k.setTimeAndValue(TtimeValue(2.0f), 3e-12, 0.25);
  EXPECT_EQ(k.timeAsFloat(), 2.0f);
  EXPECT_EQ(k.value(), 0.0);
  EXPECT_EQ(k.quaternionW(), 0.25f);
}

TEST(Tkeyframe, TangentSettersClamp) {
  Tkeyframe k;
  float x = 0, y = 0;
  k.setTanIn(-2.0f, 5.0f).getTanIn(x, y);
  EXPECT_EQ(x, 0.0f);
  EXPECT_EQ(y, 5.0f);
  k.setTanOut(0.000001f, 0.000001f).getTanOut(x, y);
  EXPECT_EQ(x, 0.0f);
  EXPECT_EQ(y, 0.0f);
  k.setTanOut(std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity())
      .getTanOut(x, y);
  EXPECT_EQ(x, FLT_MAX);
  EXPECT_EQ(y, -FLT_MAX);
  k.getTangent(Tkeyframe::kInSide, x, y);
  EXPECT_EQ(y, 5.0f);
}

TEST(Tkeyframe, TangentTypeEncoding) {
  Tkeyframe k(0.0f, 0.0, kTangentFixed, kTangentFixed);
  for (int t = 1; t <= 10; ++t) {
    k.setTanInType(static_cast<TtangentType>(t));
    k.setTanOutType(static_cast<TtangentType>(11 - t));
    EXPECT_EQ(k.tanInType(), t);
    EXPECT_EQ(k.tanOutType(), 11 - t);
  }
  k.setTanInType(static_cast<TtangentType>(42));
  EXPECT_EQ(k.tanInType(), kTangentSpline);
  EXPECT_TRUE(k.flags().testBit(8));
  // The in and out groups never touch the unused bits 10, 21 and 27.
  EXPECT_EQ(k.flags().bits() & ((1u << 10) | (1u << 21) | (1u << 27)), 0u);
}

TEST(Tkeyframe, DecodingFollowsTheFixedOrder) {
  Tkeyframe k;
  k.setFlags(TbitField32(0));
  EXPECT_EQ(k.tanInType(), kTangentSpline);  // no in-type bit at all
  EXPECT_EQ(k.tanOutType(), kTangentSpline);
  // Bits for fixed (1) and flat (3) together: fixed is checked first.
  k.setFlags(TbitField32((1u << 1) | (1u << 3)));
  EXPECT_EQ(k.tanInType(), kTangentFixed);
  // Smooth (bit 0) loses to clamped (bit 9); out side bits 11 and 20 likewise.
  k.setFlags(TbitField32(1u | (1u << 9) | (1u << 11) | (1u << 20)));
  EXPECT_EQ(k.tanInType(), kTangentClamped);
  EXPECT_EQ(k.tanOutType(), kTangentClamped);
  // Spline (bit 8) wins over everything.
  k.setFlags(TbitField32((1u << 8) | (1u << 1)));
  EXPECT_EQ(k.tanInType(), kTangentSpline);
}

TEST(Tkeyframe, InterpMethodFollowsBitAndStepType) {
  Tkeyframe k(0.0f, 0.0, kTangentSpline, kTangentStep);
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanStep);
  k.setInterpMethod(Tkeyframe::kSpanLinear);
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanLinear);
  k.setInterpMethod(Tkeyframe::kSpanStep);  // step is never stored
  EXPECT_FALSE(k.flags().testBit(Tkeyframe::kBitLinearSpan));
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanStep);
  k.setTanOutType(kTangentFlat);
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanCurve);
}

TEST(Tkeyframe, SetActiveMergesLikePicks) {
  Tkeyframe k;
  k.setActive(TbitField32(TpickKey::kPickInTangent), true);
  k.setActive(TbitField32(TpickKey::kPickOutTangent), true);
  EXPECT_TRUE(k.isInTangentActive());
  EXPECT_TRUE(k.isOutTangentActive());
  EXPECT_FALSE(k.isKeyframeActive());
  // Picking the key replaces the tangent picks.
  k.setActive(TbitField32(TpickKey::kPickKey), true);
  EXPECT_TRUE(k.isKeyframeActive());
  EXPECT_FALSE(k.isInTangentActive());
  // A tangent pick merged into a key pick drops the key.
  k.setActive(TbitField32(TpickKey::kPickInTangent), true);
  EXPECT_FALSE(k.isKeyframeActive());
  EXPECT_TRUE(k.isInTangentActive());
  k.setActive(TbitField32(7), false);
  EXPECT_FALSE(k.isAnyActive());
}

TEST(Tkeyframe, CopiesNeverCarrySelectionOrDeletion) {
  Tkeyframe selected(1.0f, 3.0, kTangentFlat, kTangentLinear);
  selected.setActive(TbitField32(TpickKey::kPickKey), true);
  selected.setToBeDeleted(true);
  selected.setBreakdown(true);
  selected.setTanOut(1.0f, 2.0f);
  float cache = 0;
  selected.setQuaternionEulerCache(&cache);

  const Tkeyframe copy(selected);
  EXPECT_FALSE(copy.isAnyActive());
  EXPECT_FALSE(copy.toBeDeleted());  // a fresh key has no deletion mark to keep
  EXPECT_EQ(copy.getQuaternionEulerCache(), nullptr);

  Tkeyframe target(5.0f, 0.0);
  target.setActive(TbitField32(TpickKey::kPickOutTangent), true);
  target = selected;
  EXPECT_FALSE(target.isKeyframeActive());
  EXPECT_TRUE(target.isOutTangentActive());
  EXPECT_FALSE(target.toBeDeleted());
  EXPECT_TRUE(target.breakdown());
  EXPECT_EQ(target.value(), 3.0);
  EXPECT_EQ(target.tanOutType(), kTangentLinear);
  float x = 0, y = 0;
  target.getTanOut(x, y);
  EXPECT_EQ(y, 2.0f);
}

TEST(Tkeyframe, TolerantComparison) {
  const Tkeyframe a(1.000000f, 0.0), b(1.000009f, 0.0), c(1.00002f, 0.0);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_FALSE(a < b);
  EXPECT_TRUE(a <= b && a >= b);
  EXPECT_TRUE(a < c);
  EXPECT_TRUE(c > a);
  EXPECT_TRUE(a != c);
}

TEST(Tkeyframe, ComesFromTheKeysPool) {
  internal::startKeyPool();
  TcompactArena* pool = internal::keyPool();
  ASSERT_NE(pool, nullptr);
  EXPECT_STREQ(pool->name(), "Keys");
  const std::size_t before = pool->liveCount();
  auto k = std::make_unique<Tkeyframe>(1.0f, 2.0);
  EXPECT_EQ(pool->liveCount(), before + 1);
  k.reset();
  EXPECT_EQ(pool->liveCount(), before);

  // With a memory checker in use keys come from malloc and still delete cleanly.
  TpureArena::sPurifyInUse = true;
  auto m = std::make_unique<Tkeyframe>(1.0f, 2.0);
  EXPECT_EQ(pool->liveCount(), before);
  TpureArena::sPurifyInUse = false;
  m.reset();
  EXPECT_EQ(pool->liveCount(), before);
}

}  // namespace
}  // namespace lumora

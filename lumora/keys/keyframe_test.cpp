#include "lumora/keys/keyframe.h"

#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <tuple>

#include "lumora/base/arena.h"
#include "lumora/keys/internal/key_pool.h"

namespace lumora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

std::array<float, 2> tangent(const Tkeyframe& k, TpickKey::TpickBits side) {
  std::array<float, 2> t;
  k.getTangent(side, t[0], t[1]);
  return t;
}

TEST(Tkeyframe, ConstructorsSetDefaultsAndTheRightTimeWord) {
  EXPECT_LE(sizeof(Tkeyframe), 48u);
  const Tkeyframe k;
  EXPECT_TRUE(!k.locked() && k.tangentsLocked() && k.weightsLocked());
  // With no type given the keyframe preference default (spline) applies.
  EXPECT_EQ(std::tuple(k.tanInType(), k.tanOutType()), std::tuple(kTangentSpline, kTangentSpline));
  // A tick time is stored as ticks, a float time as seconds, "neither" as 0.
  EXPECT_EQ(Tkeyframe(TtimeValue(TanimTime(6000)), 1.0).timeAsTicks(), 6000);
  const Tkeyframe secs(TtimeValue(1.25f), 1.0, 0.5, kTangentFixed, kTangentFixed);
  EXPECT_EQ(std::tuple(secs.timeAsFloat(), secs.quaternionW()), std::tuple(1.25f, 0.5f));
  EXPECT_EQ(Tkeyframe(TtimeValue(), 1.0).timeAsTicks(), 0);
  // The value-taking constructors store the value unclamped.
  EXPECT_EQ(Tkeyframe(0.0f, 5e-11).value(), 5e-11);
}

TEST(Tkeyframe, SettersClamp) {
  Tkeyframe k;
  EXPECT_EQ(k.setValue(5e-11).value(), 0.0);
  EXPECT_EQ(k.setValue(-5e-11).value(), 0.0);
  EXPECT_EQ(k.setValue(1e-10).value(), 1e-10);
  EXPECT_EQ(k.setValue(std::numeric_limits<double>::infinity()).value(), DBL_MAX);
  EXPECT_EQ(k.setValue(-std::numeric_limits<double>::infinity()).value(), -DBL_MAX);
  EXPECT_EQ(k.setValue(std::nan("")).value(), 0.0);

  EXPECT_EQ(k.setTime(TtimeValue(5e-6f)).timeAsFloat(), 0.0f);
  EXPECT_EQ(k.setTime(TtimeValue(kInf)).timeAsFloat(), FLT_MAX);
  EXPECT_EQ(k.setTime(TtimeValue(TanimTime(-42))).timeAsTicks(), -42);
  EXPECT_EQ(k.setTime(TtimeValue()).timeAsTicks(), 0);
  k.setTimeAndValue(TtimeValue(2.0f), 3e-12, 0.25);
  EXPECT_EQ(std::tuple(k.timeAsFloat(), k.value(), k.quaternionW()), std::tuple(2.0f, 0.0, 0.25f));

  EXPECT_EQ(tangent(k.setTanIn(-2.0f, 5.0f), Tkeyframe::kInSide), (std::array{0.0f, 5.0f}));
  EXPECT_EQ(tangent(k.setTanOut(1e-6f, 1e-6f), Tkeyframe::kOutSide), (std::array{0.0f, 0.0f}));
  EXPECT_EQ(tangent(k.setTanOut(kInf, -kInf), Tkeyframe::kOutSide),
            (std::array{FLT_MAX, -FLT_MAX}));
  EXPECT_EQ(tangent(k, Tkeyframe::kInSide), (std::array{0.0f, 5.0f}));
}

// setTangent is setTanIn for the in side and setTanOut for any other value,
// clamping alike and leaving the other side alone.
TEST(Tkeyframe, SetTangentWritesOneSideWithTheSettersClamping) {
  const std::tuple<TpickKey::TpickBits, TpickKey::TpickBits> sides[] = {
      {Tkeyframe::kInSide, Tkeyframe::kOutSide},
      {Tkeyframe::kOutSide, Tkeyframe::kInSide},
      {TpickKey::kPickOutTangent, Tkeyframe::kInSide},  // not the in side: out
  };
  for (const auto& [side, other] : sides) {
    Tkeyframe k;
    k.setTanIn(3.0f, 4.0f).setTanOut(3.0f, 4.0f);
    EXPECT_EQ(&k.setTangent(side, 2.0f, -7.5f), &k);
    EXPECT_EQ(tangent(k, side), (std::array{2.0f, -7.5f})) << side;
    EXPECT_EQ(tangent(k.setTangent(side, -2.0f, 5.0f), side), (std::array{0.0f, 5.0f})) << side;
    EXPECT_EQ(tangent(k.setTangent(side, 1e-6f, -1e-6f), side), (std::array{0.0f, 0.0f})) << side;
    EXPECT_EQ(tangent(k.setTangent(side, kInf, -kInf), side), (std::array{FLT_MAX, -FLT_MAX}))
        << side;
    EXPECT_EQ(tangent(k, other), (std::array{3.0f, 4.0f})) << side;
  }
}

TEST(Tkeyframe, TangentTypeEncoding) {
  Tkeyframe k(0.0f, 0.0, kTangentFixed, kTangentFixed);
  for (int t = 1; t <= 10; ++t) {
    k.setTanInType(static_cast<TtangentType>(t));
    k.setTanOutType(static_cast<TtangentType>(11 - t));
    EXPECT_EQ(std::tuple(int(k.tanInType()), int(k.tanOutType())), std::tuple(t, 11 - t));
  }
  k.setTanInType(static_cast<TtangentType>(42));
  EXPECT_EQ(k.tanInType(), kTangentSpline);
  EXPECT_TRUE(k.flags().testBit(8));
  // The in and out groups never touch the unused bits 10, 21 and 27.
  EXPECT_EQ(k.flags().bits() & ((1u << 10) | (1u << 21) | (1u << 27)), 0u);
}

TEST(Tkeyframe, DecodingFollowsTheFixedOrder) {
  Tkeyframe k;
  const auto types = [&k](std::uint32_t bits) {
    k.setFlags(TbitField32(bits));
    return std::tuple(k.tanInType(), k.tanOutType());
  };
  // No type bit at all reads as spline.
  EXPECT_EQ(types(0), std::tuple(kTangentSpline, kTangentSpline));
  // Bits for fixed (1) and flat (3) together: fixed is checked first.
  EXPECT_EQ(std::get<0>(types((1u << 1) | (1u << 3))), kTangentFixed);
  // Smooth (bit 0) loses to clamped (bit 9); out side bits 11 and 20 likewise.
  EXPECT_EQ(types(1u | (1u << 9) | (1u << 11) | (1u << 20)),
            std::tuple(kTangentClamped, kTangentClamped));
  // Spline (bit 8) wins over everything.
  EXPECT_EQ(std::get<0>(types((1u << 8) | (1u << 1))), kTangentSpline);
}

TEST(Tkeyframe, InterpMethodFollowsBitAndStepType) {
  Tkeyframe k(0.0f, 0.0, kTangentSpline, kTangentStep);
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanStep);
  EXPECT_EQ(k.setInterpMethod(Tkeyframe::kSpanLinear).interpMethod(), Tkeyframe::kSpanLinear);
  k.setInterpMethod(Tkeyframe::kSpanStep);  // step is never stored
  EXPECT_FALSE(k.flags().testBit(Tkeyframe::kBitLinearSpan));
  EXPECT_EQ(k.interpMethod(), Tkeyframe::kSpanStep);
  EXPECT_EQ(k.setTanOutType(kTangentFlat).interpMethod(), Tkeyframe::kSpanCurve);
}

TEST(Tkeyframe, SetActiveMergesLikePicks) {
  Tkeyframe k;
  const auto pick = [&k](std::uint32_t mask) {
    k.setActive(TbitField32(mask), true);
    return std::array{k.isKeyframeActive(), k.isInTangentActive(), k.isOutTangentActive()};
  };
  pick(TpickKey::kPickInTangent);
  EXPECT_EQ(pick(TpickKey::kPickOutTangent), (std::array{false, true, true}));
  // Picking the key replaces the tangent picks.
  EXPECT_EQ(pick(TpickKey::kPickKey), (std::array{true, false, false}));
  // A tangent pick merged into a key pick drops the key.
  EXPECT_EQ(pick(TpickKey::kPickInTangent), (std::array{false, true, false}));
  k.setActive(TbitField32(7), false);
  EXPECT_FALSE(k.isAnyActive());
}

TEST(Tkeyframe, CopiesNeverCarrySelectionOrDeletion) {
  Tkeyframe selected(1.0f, 3.0, kTangentFlat, kTangentLinear);
  float cache = 0;
  selected.setActive(TbitField32(TpickKey::kPickKey), true).setToBeDeleted(true);
  selected.setBreakdown(true).setTanOut(1.0f, 2.0f).setQuaternionEulerCache(&cache);

  const Tkeyframe copy(selected);
  EXPECT_EQ(std::tuple(copy.isAnyActive(), copy.toBeDeleted(), copy.getQuaternionEulerCache()),
            std::tuple(false, false, nullptr));

  // Assignment keeps the destination's own selection and deletion mark.
  Tkeyframe target(5.0f, 0.0);
  target.setActive(TbitField32(TpickKey::kPickOutTangent), true);
  target = selected;
  EXPECT_EQ(std::tuple(target.isKeyframeActive(), target.isOutTangentActive(), target.toBeDeleted(),
                       target.breakdown()),
            std::tuple(false, true, false, true));
  EXPECT_EQ(std::tuple(target.timeAsFloat(), target.value(), target.tanOutType(),
                       tangent(target, Tkeyframe::kOutSide)),
            std::tuple(1.0f, 3.0, kTangentLinear, std::array{1.0f, 2.0f}));
}

TEST(Tkeyframe, TolerantComparison) {
  const Tkeyframe a(1.000000f, 0.0), b(1.000009f, 0.0), c(1.00002f, 0.0);
  EXPECT_EQ((std::array{a == b, a != b, a < b, a <= b, a >= b, a<c, c> a, a != c}),
            (std::array{true, false, false, true, true, true, true, true}));
}

TEST(Tkeyframe, ComesFromTheKeysPool) {
  internal::startKeyPool();
  TcompactArena* pool = internal::keyPool();
  ASSERT_NE(pool, nullptr);
  EXPECT_STREQ(pool->name(), "Keys");
  const std::size_t before = pool->liveCount();
  auto k = std::make_unique<Tkeyframe>(1.0f, 2.0);
  EXPECT_EQ(pool->liveCount(), before + 1);
  // With a memory checker in use keys come from malloc and still delete cleanly.
  TpureArena::sPurifyInUse = true;
  auto m = std::make_unique<Tkeyframe>(1.0f, 2.0);
  TpureArena::sPurifyInUse = false;
  EXPECT_EQ(pool->liveCount(), before + 1);
  k.reset();
  m.reset();
  EXPECT_EQ(pool->liveCount(), before);
}

}  // namespace
}  // namespace lumora

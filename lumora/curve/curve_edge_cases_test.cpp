// Regressions: evaluation at degenerate times and infinities, handles of keys
// that are deleted in bulk, and the saturating rescale of tick times.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe_handle.h"

namespace lumora {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

// Flat keys (1 s, 3) and (2 s, 7).
void flatKeys(TparamCurve& c) {
  for (const auto& [t, v] : {std::pair{1.0f, 3.0}, std::pair{2.0f, 7.0}}) {
    auto* k = new Tkeyframe(c.makeTimeValue(t), v, kTangentFixed, kTangentFixed);
    k->setTanIn(1, 0);
    k->setTanOut(1, 0);
    TparamCurveTestAccess::arrayInsert(c, k);
  }
  c.setStaticCurve(false);
}

TEST(TparamCurveInfinity, MappedTimesNeverReenterAnInfinity) {
  // A stored 2 maps to the raw offset within one period (0.5 s here), which
  // lies before the first key: it takes the first value instead of recursing.
  for (bool floats : {true, false}) {
    TparamCurve c(floats);
    flatKeys(c);
    TparamCurveTestAccess::setInfinityRaw(c, 2, /*pre=*/true);
    TparamCurveTestAccess::setInfinityRaw(c, 2, /*pre=*/false);
    EXPECT_EQ(c.evaluate(2.5f), 3.0);
    EXPECT_EQ(c.evaluate(-0.5f), 3.0);
    EXPECT_EQ(c.evaluate(c.makeTimeValue(2.5f)), 3.0);
    EXPECT_EQ(c.evaluate(kInf), 3.0);
  }
}

TEST(TparamCurveInfinity, InfiniteTimesGiveLimitsNotNaN) {
  TparamCurve c(true);
  flatKeys(c);
  c.setPreInfinityType(TparamCurve::kLinear);
  c.setPostInfinityType(TparamCurve::kLinear);
  EXPECT_EQ(c.evaluate(-kInf), 3.0);  // flat end tangents: the end values
  EXPECT_EQ(c.evaluate(kInf), 7.0);
  c.keyframe(1)->setValue(3.0);
  c.setPostInfinityType(TparamCurve::kCycleRelative);
  EXPECT_EQ(c.evaluate(kInf), 3.0);  // no value difference to accumulate
  double times[] = {1e300, -1e300};
  double values[2] = {};
  ASSERT_TRUE(c.evaluate(2, times, values));
  EXPECT_EQ(values[0], c.evaluate(kInf));
  EXPECT_EQ(values[1], c.evaluate(-kInf));
}

TEST(TparamCurveEvaluate, PreTestUsesTheCurvesOwnTimeKind) {
  // -0.00001 s rounds to tick 0 on a tick curve: that is the key, not the
  // pre infinity; on a float curve it lies before the key.
  TparamCurve ticks(false), floats(true);
  for (TparamCurve* c : {&ticks, &floats}) {
    flatKeys(*c);
    c->setPreInfinityType(TparamCurve::kLinear);
    c->keyframe(0)->setTanIn(1, 1);
    c->keyframe(0)->setTime(c->makeTimeValue(0.0f));
  }
  EXPECT_EQ(ticks.evaluate(-0.00001f), 3.0);
  EXPECT_EQ(ticks.evaluate(-0.00001f), ticks.evaluate(ticks.makeTimeValue(-0.00001f)));
  EXPECT_LT(floats.evaluate(-0.00001f), 3.0);
}

TEST(TkeyframeInterpMethod, StepFollowsTheDecodedOutType) {
  // Every pattern of out-type bits, corrupt ones included.
  Tkeyframe k(0.0f, 0.0, kTangentFixed, kTangentFixed);
  for (std::uint32_t bits = 0; bits < 1024; ++bits) {
    k.setFlags(TbitField32(bits << 11));
    EXPECT_EQ(k.interpMethod() == Tkeyframe::kSpanStep, k.tanOutType() == kTangentStep) << bits;
  }
}

TEST(TkeyframeHandle, DeletedKeysAreNeitherValidNorRead) {
  TparamCurve c(true), other(true);
  flatKeys(c);
  TkeyframeHandle removed(&c, 0u, /*makeClient=*/true);
  c.removeAllKeys();
  // The key object is deleted: nothing reads it any more.
  EXPECT_EQ(std::tuple(removed.isValid(), removed.value(), removed.index()),
            std::tuple(false, 0.0, TkeyframeHandle::kInvalidIndex));
  flatKeys(c);
  TkeyframeHandle assigned(&c, 1u, /*makeClient=*/true);
  c = other;
  EXPECT_FALSE(assigned.isValid());
  flatKeys(c);
  TkeyframeHandle single(&c, 0u, /*makeClient=*/true);
  c.remove(0);  // not recording: the key object is deleted at once
  float x = 0.0f, y = 0.0f;
  EXPECT_EQ(std::tuple(single.seconds(), single.getTanIn(x, y), single.timeValue().isNeither()),
            std::tuple(0.0f, false, true));
}

TEST(TparamCurve, NoUpdateSaturatesAndIgnoresUnknownUnits) {
  TparamCurve c(false);
  c.add(Tkeyframe(TanimTime(1000), 1.0, kTangentFlat, kTangentFlat));
  c.noUpdate(TtimeUnitSystem::kTicks, static_cast<TtimeUnitSystem>(99));
  EXPECT_EQ(c.keyframe(0)->timeAsTicks(), 1000);
  c.noUpdate(TtimeUnitSystem::kTicks, TtimeUnitSystem::kHours);  // x 21600000
  EXPECT_EQ(c.keyframe(0)->timeAsTicks(), std::numeric_limits<std::int32_t>::max());
}

}  // namespace
}  // namespace lumora

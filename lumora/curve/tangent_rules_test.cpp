// The automatic tangent rules of both segment evaluators.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "lumora/curve/bezier_segment_evaluator.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/segment_evaluator.h"

namespace lumora {
namespace {

using KeyPtr = std::unique_ptr<Tkeyframe>;

KeyPtr makeKey(float seconds, double value, TtangentType in, TtangentType out) {
  return KeyPtr(new Tkeyframe(seconds, value, in, out));
}
KeyPtr makeKey(float seconds, double value, TtangentType type = kTangentFixed) {
  return makeKey(seconds, value, type, type);
}

void expectIn(const Tkeyframe& k, float x, float y) {
  float kx, ky;
  k.getTanIn(kx, ky);
  EXPECT_FLOAT_EQ(kx, x);
  EXPECT_FLOAT_EQ(ky, y);
}
void expectOut(const Tkeyframe& k, float x, float y) {
  float kx, ky;
  k.getTanOut(kx, ky);
  EXPECT_FLOAT_EQ(kx, x);
  EXPECT_FLOAT_EQ(ky, y);
}

// (x, y) scaled to unit length, as non-weighted curves store directions.
void expectInDirection(const Tkeyframe& k, double x, double y) {
  const double l = std::hypot(x, y);
  expectIn(k, static_cast<float>(x / l), static_cast<float>(y / l));
}
void expectOutDirection(const Tkeyframe& k, double x, double y) {
  const double l = std::hypot(x, y);
  expectOut(k, static_cast<float>(x / l), static_cast<float>(y / l));
}

TEST(TangentRules, SingleKey) {
  for (const bool weighted : {false, true}) {
    SCOPED_TRACE(weighted ? "weighted" : "plain");
    std::unique_ptr<TsegmentEvaluator> ev;
    if (weighted) {
      ev = std::make_unique<TbezierSegmentEvaluator>(true);
    } else {
      ev = std::make_unique<ThermiteSegmentEvaluator>(true);
    }
    for (const TtangentType type : {kTangentLinear, kTangentSpline}) {
      KeyPtr k = makeKey(1.0f, 2.0, type);
      ev->computeTangents(nullptr, k.get(), nullptr);
      expectIn(*k, 1.0f, 0.0f);
      expectOut(*k, 1.0f, 0.0f);
    }
    for (const TtangentType type : {kTangentFlat, kTangentStep, kTangentSlow, kTangentFast}) {
      KeyPtr k = makeKey(1.0f, 2.0, type);
      k->setTanIn(3.0f, 4.0f).setTanOut(3.0f, 4.0f);
      ev->computeTangents(nullptr, k.get(), nullptr);
      expectIn(*k, 0.0f, 0.0f);
      expectOut(*k, 0.0f, 0.0f);
    }
    KeyPtr smooth = makeKey(1.0f, 2.0, kTangentSmooth);
    smooth->setTanIn(3.0f, 4.0f).setTanOut(3.0f, 4.0f);
    ev->computeTangents(nullptr, smooth.get(), nullptr);
    expectIn(*smooth, weighted ? 0.0f : 1.0f, 0.0f);
    expectOut(*smooth, weighted ? 0.0f : 1.0f, 0.0f);

    // Clamped kinds copy the current out tangent into the in side.
    for (const TtangentType type : {kTangentClamped, kTangentClampedSmooth}) {
      KeyPtr k = makeKey(1.0f, 2.0, type);
      // Each variant's stored form of the direction (3, 4).
      const float outX = weighted ? 3.0f : 0.6f;
      const float outY = weighted ? 4.0f : 0.8f;
      k->setTanIn(1.0f, 1.0f).setTanOut(outX, outY);
      ev->computeTangents(nullptr, k.get(), nullptr);
      expectIn(*k, outX, outY);
      expectOut(*k, outX, outY);
      EXPECT_EQ(k->tanInType(), type);
      EXPECT_EQ(k->tanOutType(), type);
    }
  }
}

TEST(TangentRules, SplineFollowsTheChord) {
  KeyPtr p = makeKey(0.0f, 0.0), k = makeKey(1.0f, 5.0, kTangentSpline), n = makeKey(3.0f, 2.0);
  TbezierSegmentEvaluator weighted(true);
  weighted.computeTangents(p.get(), k.get(), n.get());
  expectIn(*k, 1.0f, 2.0f / 3.0f);  // handles as long as the adjacent spans
  expectOut(*k, 2.0f, 4.0f / 3.0f);
  ThermiteSegmentEvaluator plain(true);
  plain.computeTangents(p.get(), k.get(), n.get());
  expectInDirection(*k, 3.0, 2.0);
  expectOutDirection(*k, 3.0, 2.0);

  // A first key points at its only neighbour.
  KeyPtr first = makeKey(0.0f, 0.0, kTangentSpline), next = makeKey(2.0f, 1.0);
  weighted.computeTangents(nullptr, first.get(), next.get());
  expectIn(*first, 2.0f, 1.0f);
  expectOut(*first, 2.0f, 1.0f);
  plain.computeTangents(nullptr, first.get(), next.get());
  expectInDirection(*first, 2.0, 1.0);
  expectOutDirection(*first, 2.0, 1.0);
}

TEST(TangentRules, NeighboursCloserThanATenThousandthAreVertical) {
  KeyPtr p = makeKey(1.0f, 0.0), k = makeKey(1.00005f, 1.0, kTangentSpline),
         n = makeKey(1.00009f, 2.0);
  ThermiteSegmentEvaluator plain(true);
  plain.computeTangents(p.get(), k.get(), n.get());
  const float nearVerticalY = static_cast<float>(verticalSlope() * static_cast<double>(0.0001f));
  EXPECT_NEAR(nearVerticalY, 572.9577f, 1e-4f);
  expectIn(*k, 0.0001f, nearVerticalY);
  expectOut(*k, 0.0001f, nearVerticalY);

  TbezierSegmentEvaluator weighted(true);
  weighted.computeTangents(p.get(), k.get(), n.get());
  const double dtIn = static_cast<double>(1.00005f) - 1.0;
  expectIn(*k, static_cast<float>(dtIn), static_cast<float>(dtIn * 5729577.948511148));
}

TEST(TangentRules, LinearFlatAndStepWriteOnlyTheirOwnSides) {
  TbezierSegmentEvaluator ev(true);
  KeyPtr p = makeKey(0.0f, 1.0), n = makeKey(3.0f, 0.0);
  KeyPtr linear = makeKey(1.0f, 2.0, kTangentLinear, kTangentFixed);
  linear->setTanOut(7.0f, 7.0f);
  ev.computeTangents(p.get(), linear.get(), n.get());
  expectIn(*linear, 1.0f, 1.0f);
  expectOut(*linear, 7.0f, 7.0f);

  KeyPtr flat = makeKey(1.0f, 2.0, kTangentFlat);
  ev.computeTangents(p.get(), flat.get(), n.get());
  expectIn(*flat, 1.0f, 0.0f);
  expectOut(*flat, 2.0f, 0.0f);
  ev.computeTangents(p.get(), flat.get(), nullptr);  // a last key: both as the in span
  expectOut(*flat, 1.0f, 0.0f);

  KeyPtr mixed = makeKey(1.0f, 2.0, kTangentStep, kTangentLinear);
  mixed->setTanIn(5.0f, 5.0f);
  ev.computeTangents(p.get(), mixed.get(), n.get());
  expectIn(*mixed, 0.0f, 0.0f);
  expectOut(*mixed, 2.0f, -2.0f);
}

TEST(TangentRules, SlowAndFastRiseOnFallingCurves) {
  KeyPtr p = makeKey(0.0f, 10.0), n = makeKey(3.0f, 0.0);
  TbezierSegmentEvaluator weighted(true);
  KeyPtr slow = makeKey(1.0f, 5.0, kTangentSlow);
  weighted.computeTangents(p.get(), slow.get(), n.get());
  expectIn(*slow, 1.0f, 0.5772f);
  expectOut(*slow, 2.0f, 1.1544f);
  KeyPtr fast = makeKey(1.0f, 5.0, kTangentFast);
  weighted.computeTangents(p.get(), fast.get(), nullptr);  // last key: in span on both sides
  expectIn(*fast, 1.0f, 1.732f);
  expectOut(*fast, 1.0f, 1.732f);

  ThermiteSegmentEvaluator plain(true);
  plain.computeTangents(p.get(), fast.get(), n.get());
  expectInDirection(*fast, 1.0, 1.732);
  expectOutDirection(*fast, 1.0, 1.732);
}

TEST(TangentRules, ClampedIsFlatNextToALevelNeighbour) {
  TbezierSegmentEvaluator ev(true);
  KeyPtr n = makeKey(3.0f, 1.0);
  // Exactly 0.05 away counts as level: both sides flat.
  KeyPtr p = makeKey(0.0f, 0.05);
  KeyPtr k = makeKey(1.0f, 0.0, kTangentClamped);
  ev.computeTangents(p.get(), k.get(), n.get());
  expectIn(*k, 1.0f, 0.0f);
  expectOut(*k, 2.0f, 0.0f);
  EXPECT_EQ(k->tanInType(), kTangentClamped);
  EXPECT_EQ(k->tanOutType(), kTangentClamped);

  // Just beyond: the spline chord.
  KeyPtr far = makeKey(0.0f, 0.050001);
  ev.computeTangents(far.get(), k.get(), n.get());
  const double slope = (1.0 - 0.050001) / 3.0;
  expectIn(*k, 1.0f, static_cast<float>(slope));
  expectOut(*k, 2.0f, static_cast<float>(2.0 * slope));
  EXPECT_EQ(k->tanInType(), kTangentClamped);

  // A level neighbour on one side flattens both.
  KeyPtr level = makeKey(3.0f, 0.01);
  ev.computeTangents(far.get(), k.get(), level.get());
  expectIn(*k, 1.0f, 0.0f);
  expectOut(*k, 2.0f, 0.0f);
}

TEST(TangentRules, ClampedSmoothDecidesPerSide) {
  KeyPtr p = makeKey(0.0f, 0.0), n = makeKey(3.0f, 1.02);
  KeyPtr k = makeKey(1.0f, 1.0, kTangentClampedSmooth);
  TbezierSegmentEvaluator weighted(true);
  weighted.computeTangents(p.get(), k.get(), n.get());
  const double inLength = std::sqrt(2.0);
  const double outLength = std::sqrt(4.0 + 0.02 * 0.02);
  const double s = (0.01 * inLength + outLength * 1.0) / (outLength + inLength);
  expectIn(*k, 1.0f, static_cast<float>(s));  // smooth: the shorter (in) handle
  expectOut(*k, 2.0f, 0.0f);                  // level with the next key
  EXPECT_EQ(k->tanInType(), kTangentClampedSmooth);
  EXPECT_EQ(k->tanOutType(), kTangentClampedSmooth);

  ThermiteSegmentEvaluator plain(true);
  plain.computeTangents(p.get(), k.get(), n.get());
  expectInDirection(*k, 3.0, 1.02);  // smooth is the spline rule here
  expectOut(*k, 1.0f, 0.0f);
}

TEST(TangentRules, WeightedSmoothTakesTheShorterHandle) {
  TbezierSegmentEvaluator ev(true);
  KeyPtr p = makeKey(0.0f, 0.0), k = makeKey(2.0f, 1.0, kTangentSmooth), n = makeKey(3.0f, 3.0);
  ev.computeTangents(p.get(), k.get(), n.get());
  // Slopes 0.5 and 2 over spans of equal length average to 1.25.
  expectIn(*k, 1.0f, 1.25f);
  expectOut(*k, 1.0f, 1.25f);

  // Spans of 0.01 s or less count as level.
  KeyPtr close = makeKey(1.995f, 0.0), closeNext = makeKey(2.008f, 3.0);
  ev.computeTangents(close.get(), k.get(), closeNext.get());
  const float dtIn = static_cast<float>(2.0 - static_cast<double>(1.995f));
  expectIn(*k, dtIn, 0.0f);
  expectOut(*k, dtIn, 0.0f);
}

TEST(TangentRules, PlainSmoothRunsSplineAndRestoresTypes) {
  ThermiteSegmentEvaluator ev(true);
  KeyPtr p = makeKey(0.0f, 0.0), n = makeKey(2.0f, 4.0);
  KeyPtr k = makeKey(1.0f, 1.0, kTangentSmooth, kTangentFixed);
  k->setTanOut(5.0f, 5.0f);
  ev.computeTangents(p.get(), k.get(), n.get());
  expectInDirection(*k, 1.0, 2.0);
  expectOut(*k, 5.0f, 5.0f);
  EXPECT_EQ(k->tanInType(), kTangentSmooth);
  EXPECT_EQ(k->tanOutType(), kTangentFixed);
}

TEST(TangentRules, TickCurvesConvertKeyTimes) {
  KeyPtr k(new Tkeyframe(TanimTime(0), 0.0, kTangentLinear, kTangentLinear));
  KeyPtr n(new Tkeyframe(TanimTime(3000), 1.0, kTangentFixed, kTangentFixed));
  TbezierSegmentEvaluator ev(/*isFloat=*/false);
  EXPECT_FALSE(ev.isFloat());
  const double perTick = static_cast<double>(0.00016666666f);
  EXPECT_EQ(ev.keySeconds(*n), 3000 * perTick);
  ev.computeTangents(nullptr, k.get(), n.get());
  expectOut(*k, static_cast<float>(3000 * perTick), 1.0f);
  EXPECT_EQ(TbezierSegmentEvaluator(true).keySeconds(*makeKey(1.5f, 0.0)), 1.5);
}

TEST(SetTangent, StoresEachVariantsFormAndReportsChange) {
  KeyPtr k = makeKey(0.0f, 0.0);
  TbezierSegmentEvaluator weighted(true);
  EXPECT_TRUE(weighted.setTanIn(k.get(), -2.0f, 5.0f));
  expectIn(*k, 0.0f, 5.0f);
  EXPECT_FALSE(weighted.setTanIn(k.get(), 0.0f, 5.0f));
  EXPECT_TRUE(weighted.setTanOut(k.get(), 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(k.get(), 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(nullptr, 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(k.get(), std::numeric_limits<float>::quiet_NaN(), 3.0f));
  expectOut(*k, 2.0f, 3.0f);

  ThermiteSegmentEvaluator plain(true);
  EXPECT_TRUE(plain.setTanOut(k.get(), 3.0f, 4.0f));
  expectOut(*k, 0.6f, 0.8f);
  EXPECT_FALSE(plain.setTanOut(k.get(), 6.0f, 8.0f));  // the same direction
  EXPECT_TRUE(plain.setTanOut(k.get(), 0.0f, 0.0f));
  expectOut(*k, 0.0f, 0.0f);  // a zero vector is not normalised
  const float nearVerticalY = static_cast<float>(verticalSlope() * static_cast<double>(0.0001f));
  EXPECT_TRUE(plain.setTanIn(k.get(), -2.0f, -5.0f));
  expectIn(*k, 0.0001f, -nearVerticalY);
  EXPECT_FALSE(plain.setTanIn(k.get(), 0.0f, -1.0f));
  EXPECT_FALSE(plain.setTanIn(k.get(), std::numeric_limits<float>::infinity(), 1.0f));
  EXPECT_FALSE(plain.setTanIn(nullptr, 1.0f, 1.0f));
}

TEST(ComputeTangents, RunsTheInRuleThenADifferentOutRule) {
  TbezierSegmentEvaluator ev(true);
  KeyPtr p = makeKey(0.0f, 0.0), n = makeKey(4.0f, 3.0);
  KeyPtr k = makeKey(1.0f, 1.0, kTangentFlat, kTangentLinear);
  ev.computeTangents(p.get(), k.get(), n.get());
  expectIn(*k, 1.0f, 0.0f);
  expectOut(*k, 3.0f, 2.0f);
  ev.computeTangents(p.get(), nullptr, n.get());  // nothing to do
}

}  // namespace
}  // namespace lumora

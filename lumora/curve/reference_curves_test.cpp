#include "lumora/curve/reference_curves.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "lumora/curve/param_curve.h"

namespace lumora {
namespace {

// Values at `count` + 1 evenly spaced times from `from` to `to`.
std::vector<double> sample(TparamCurve& curve, double from, double to, unsigned count) {
  std::vector<double> values;
  for (unsigned i = 0; i <= count; ++i) {
    values.push_back(curve.evaluate(static_cast<float>(from + (to - from) * i / count)));
  }
  return values;
}

void expectStrictlyOrdered(const TparamCurve& curve) {
  for (unsigned i = 1; i < curve.keyframeCount(); ++i) {
    EXPECT_LT(curve.seconds(i - 1), curve.seconds(i)) << "keys " << i - 1 << " and " << i;
  }
}

TEST(ReferenceCurves, KeyCountsAndOrderOnBothKindsOfCurve) {
  for (const bool isFloat : {true, false}) {
    SCOPED_TRACE(isFloat ? "float curve" : "tick curve");
    TparamCurve c(isFloat);
    ASSERT_TRUE(reference::bouncingBall(c));
    EXPECT_EQ(c.keyframeCount(), 4u);
    EXPECT_FALSE(c.isWeighted());
    EXPECT_EQ(c.preInfinityType(), TparamCurve::kConstant);
    EXPECT_EQ(c.postInfinityType(), TparamCurve::kCycle);
    expectStrictlyOrdered(c);
    EXPECT_FLOAT_EQ(c.seconds(3u), reference::kBallPeriod);

    ASSERT_TRUE(reference::twoKeyBezier(c));
    EXPECT_EQ(c.keyframeCount(), 2u);
    EXPECT_TRUE(c.isWeighted());
    EXPECT_EQ(c.postInfinityType(), TparamCurve::kConstant);
    expectStrictlyOrdered(c);

    ASSERT_TRUE(reference::regressiveS(c));
    EXPECT_EQ(c.keyframeCount(), 2u);
    expectStrictlyOrdered(c);

    ASSERT_TRUE(reference::denseSpline(c, 50, 7));
    EXPECT_EQ(c.keyframeCount(), 50u);
    EXPECT_FALSE(c.isWeighted());
    expectStrictlyOrdered(c);
    EXPECT_FLOAT_EQ(c.seconds(49u), 49.0f);
  }
}

TEST(BouncingBall, NeverGoesBelowTheGroundOverThreeCycles) {
  TparamCurve ball(true);
  ASSERT_TRUE(reference::bouncingBall(ball));
  const std::vector<double> heights = sample(ball, 0.0, 3.0, 6000);
  EXPECT_GE(*std::min_element(heights.begin(), heights.end()), -1e-9);
  EXPECT_LE(*std::max_element(heights.begin(), heights.end()), reference::kBallApexHeight + 1e-6);
}

TEST(BouncingBall, FliesAParabolaAndRestsWhileSquashed) {
  TparamCurve ball(true);
  ASSERT_TRUE(reference::bouncingBall(ball));
  for (const float cycle : {0.0f, 1.0f, 2.0f}) {
    SCOPED_TRACE(cycle);
    // Halfway up the parabola the ball has three quarters of its height.
    EXPECT_NEAR(ball.evaluate(cycle + 0.225f), 0.75, 1e-5);
    EXPECT_NEAR(ball.evaluate(cycle + 0.675f), 0.75, 1e-5);
    EXPECT_NEAR(ball.evaluate(cycle + reference::kBallApexTime), 1.0, 1e-6);
    EXPECT_EQ(ball.evaluate(cycle + 0.95f), 0.0);
  }
  // Before the first key the ball lies still.
  EXPECT_EQ(ball.evaluate(-0.5f), 0.0);
}

TEST(RegressiveS, NeverFoldsBackInTime) {
  TparamCurve s(true);
  ASSERT_TRUE(reference::regressiveS(s));
  const std::vector<double> values = sample(s, 0.0, 1.0, 1000);
  EXPECT_EQ(values.front(), 0.0);
  EXPECT_EQ(values.back(), 1.0);
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
  EXPECT_GE(*std::min_element(values.begin(), values.end()), 0.0);
  EXPECT_LE(*std::max_element(values.begin(), values.end()), 1.0);
}

TEST(TwoKeyBezier, RisesFromFirstToLastValue) {
  TparamCurve b(true);
  ASSERT_TRUE(reference::twoKeyBezier(b));
  const std::vector<double> values = sample(b, 0.0, 2.0, 1000);
  EXPECT_EQ(values.front(), 0.0);
  EXPECT_EQ(values.back(), 10.0);
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
}

TEST(DenseSpline, SeedDecidesTheValues) {
  TparamCurve a(true), b(true), c(true);
  ASSERT_TRUE(reference::denseSpline(a, 100, 1));
  ASSERT_TRUE(reference::denseSpline(b, 100, 1));
  ASSERT_TRUE(reference::denseSpline(c, 100, 2));
  bool differs = false;
  for (unsigned i = 0; i < 100; ++i) {
    EXPECT_EQ(a.keyframe(i)->value(), b.keyframe(i)->value());
    EXPECT_GE(a.keyframe(i)->value(), -1.0);
    EXPECT_LT(a.keyframe(i)->value(), 1.0);
    differs = differs || a.keyframe(i)->value() != c.keyframe(i)->value();
  }
  EXPECT_TRUE(differs);
}

TEST(ReferenceCurves, RebuildingReplacesTheKeys) {
  TparamCurve c(true);
  ASSERT_TRUE(reference::denseSpline(c, 20, 3));
  ASSERT_TRUE(reference::bouncingBall(c));
  EXPECT_EQ(c.keyframeCount(), 4u);
  ASSERT_TRUE(reference::denseSpline(c, 0, 3));
  EXPECT_EQ(c.keyframeCount(), 0u);
  EXPECT_EQ(c.postInfinityType(), TparamCurve::kConstant);
}

}  // namespace
}  // namespace lumora

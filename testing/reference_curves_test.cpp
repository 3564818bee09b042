#include "testing/reference_curves.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
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

TEST(ReferenceCurves, EachBuilderReplacesTheKeysOnBothKindsOfCurve) {
  const struct {
    bool (*build)(TparamCurve&);
    unsigned keys;
    bool weighted;
    TparamCurve::TinfinityType post;
    float lastSeconds;
  } builders[] = {
      {reference::bouncingBall, 4, false, TparamCurve::kCycle, reference::kBallPeriod},
      {reference::twoKeyBezier, 2, true, TparamCurve::kConstant, 2.0f},
      {reference::regressiveS, 2, true, TparamCurve::kConstant, 1.0f},
      {[](TparamCurve& c) { return reference::denseSpline(c, 50, 7); }, 50, false,
       TparamCurve::kConstant, 49.0f},
      {reference::bouncingBall, 4, false, TparamCurve::kCycle, reference::kBallPeriod},
      {[](TparamCurve& c) { return reference::denseSpline(c, 0, 7); }, 0, false,
       TparamCurve::kConstant, 0.0f},
  };
  for (const bool isFloat : {true, false}) {
    // One curve rebuilt by each builder in turn: no keys are left over.
    TparamCurve c(isFloat);
    for (const auto& b : builders) {
      SCOPED_TRACE(testing::Message() << "builder " << (&b - builders) << " isFloat " << isFloat);
      ASSERT_TRUE(b.build(c));
      EXPECT_EQ(std::tuple(c.keyframeCount(), c.isWeighted(), c.postInfinityType()),
                std::tuple(b.keys, b.weighted, b.post));
      EXPECT_EQ(c.preInfinityType(), TparamCurve::kConstant);
      for (unsigned i = 1; i < c.keyframeCount(); ++i) EXPECT_LT(c.seconds(i - 1), c.seconds(i));
      EXPECT_FLOAT_EQ(b.keys ? c.seconds(b.keys - 1) : 0.0f, b.lastSeconds);
    }
  }
}

TEST(BouncingBall, FliesAParabolaAndRestsWhileSquashed) {
  TparamCurve ball(true);
  ASSERT_TRUE(reference::bouncingBall(ball));
  // Never below the ground nor above the apex, over three bounces.
  const std::vector<double> heights = sample(ball, 0.0, 3.0, 6000);
  EXPECT_GE(*std::min_element(heights.begin(), heights.end()), -1e-9);
  EXPECT_LE(*std::max_element(heights.begin(), heights.end()), reference::kBallApexHeight + 1e-6);
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

TEST(ReferenceCurves, WeightedShapesRiseMonotonicallyBetweenTheirKeys) {
  // The regressive S would fold back in time if its handles were not cut.
  const struct {
    bool (*build)(TparamCurve&);
    double end, last;
  } shapes[] = {{reference::twoKeyBezier, 2.0, 10.0}, {reference::regressiveS, 1.0, 1.0}};
  for (const auto& s : shapes) {
    TparamCurve c(true);
    ASSERT_TRUE(s.build(c));
    const std::vector<double> values = sample(c, 0.0, s.end, 1000);
    EXPECT_EQ(std::tuple(values.front(), values.back()), std::tuple(0.0, s.last)) << s.end;
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << s.end;
  }
}

TEST(DenseSpline, SeedDecidesTheValues) {
  TparamCurve a(true), b(true), c(true);
  ASSERT_TRUE(reference::denseSpline(a, 100, 1));
  ASSERT_TRUE(reference::denseSpline(b, 100, 1));
  ASSERT_TRUE(reference::denseSpline(c, 100, 2));
  bool differs = false;
  for (unsigned i = 0; i < 100; ++i) {
    const double v = a.keyframe(i)->value();
    EXPECT_TRUE(v == b.keyframe(i)->value() && v >= -1.0 && v < 1.0) << i << ": " << v;
    differs = differs || v != c.keyframe(i)->value();
  }
  EXPECT_TRUE(differs);
}

}  // namespace
}  // namespace lumora

// Curve queries: the closest-key tie rules, and boxes that hold the curve.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <tuple>

#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/select/pick_key.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

// The index a query's handle names, or -1 for none; the handle is deleted.
int indexOf(TkeyframeHandle* handle) {
  const std::unique_ptr<TkeyframeHandle> owned(handle);
  return owned ? static_cast<int>(owned->index()) : -1;
}

TparamCurve floatCurve(std::initializer_list<std::pair<float, double>> keys) {
  TparamCurve c(/*isFloat=*/true);
  for (const auto& [t, v] : keys) c.add(Tkeyframe(t, v, kTangentSpline, kTangentSpline));
  return c;
}

TEST(ClosestKeyframe, WholeSecondDistancesAndTheirTies) {
  // Both distances truncate to 0 s: the tie goes to the later key.
  const TparamCurve pair = floatCurve({{0.2f, 0.0}, {0.9f, 1.0}});
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.85f))), 1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.3f))), 1);
  // Before the first key, after the last, and on a key.
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(-7.0f))), 0);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(9.0f))), 1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.2f))), 0);

  // From 1.2 s the key at 1.5 s is 0 whole seconds away, the others 1. From
  // 2.2 s the keys at 1.5 s and 3 s are both 0 away, and from 4.2 s those at
  // 3 s and 6 s both 1: each tie goes to the later key.
  const TparamCurve three = floatCurve({{0.0f, 0.0}, {1.5f, 0.0}, {3.0f, 0.0}, {6.0f, 0.0}});
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(1.2f))), 1);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(2.2f))), 2);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(4.2f))), 3);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(5.5f))), 3);

  // Ticks count exactly; a time in seconds is taken by its ticks.
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(0), 0.0));
  ticks.add(Tkeyframe(TanimTime(6000), 1.0));
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(TanimTime(2000)))), 0);
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(TanimTime(3000)))), 1);
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(0.75f))), 1);

  EXPECT_EQ(indexOf(TparamCurve(true).findClosestKeyframe(TtimeValue(1.0f))), -1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(std::nanf("")))), -1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue())), -1);
}

TEST(ClosestKeyframe, ToAPointAndToAValue) {
  TparamCurve c = floatCurve({{0.0f, 0.0}, {2.0f, 0.0}, {3.0f, 5.0}});
  // Equal squared distances: the first key wins; an exact hit at once.
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(1.0f), 0.0, false)), 0);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(3.0f), 5.0, false)), 2);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(2.9f), 1.0, false)), 1);
  // Selected keys only: none selected gives nothing, one gives it.
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), 0.0, true)), -1);
  c.keyframe(2)->setActive(TbitField32(TpickKey::kPickKey), true);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), 0.0, true)), 2);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), std::nan(""), false)), -1);

  EXPECT_EQ(indexOf(c.findClosestValue(2.5)), 0);  // 0 and 5 tie: the first
  EXPECT_EQ(indexOf(c.findClosestValue(4.0)), 2);
  EXPECT_EQ(indexOf(TparamCurve(true).findClosestValue(1.0)), -1);
  EXPECT_EQ(indexOf(c.findClosestValue(std::nan(""))), -1);
}

// Every sample of the curve over its keys lies in its box.
void expectBoxHolds(const TparamCurve& c) {
  float minTime = 0.0f, maxTime = 0.0f;
  double minValue = 0.0, maxValue = 0.0;
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  const unsigned n = c.keyframeCount();
  ASSERT_EQ(minTime, c.seconds(0u));
  ASSERT_EQ(maxTime, c.seconds(n - 1));
  TevalCursor cursor;
  const double slack = 1e-9 * (1.0 + std::fabs(minValue) + std::fabs(maxValue));
  for (unsigned k = 0; k <= 4000; ++k) {
    const float t = minTime + (maxTime - minTime) * static_cast<float>(k) / 4000.0f;
    const double v = c.evaluate(t, cursor);
    ASSERT_GE(v, minValue - slack) << "at " << t;
    ASSERT_LE(v, maxValue + slack) << "at " << t;
  }
}

TEST(BoundingBox, HoldsEveryCurve) {
  for (bool weighted : {false, true}) {
    TparamCurve dense(/*isFloat=*/true);
    reference::denseSpline(dense, 40, 7);
    dense.setIsWeighted(weighted);
    for (unsigned i = 0; i < dense.keyframeCount(); i += 3) dense.dragTangent(i, 0.8f, 2.5f, false);
    expectBoxHolds(dense);
  }
  for (bool (*make)(TparamCurve&) :
       {&reference::bouncingBall, &reference::twoKeyBezier, &reference::regressiveS}) {
    TparamCurve shape(/*isFloat=*/true);
    ASSERT_TRUE(make(shape));
    expectBoxHolds(shape);
  }
}

TEST(BoundingBox, SmallCurvesSpansAndSelections) {
  const float untouched = -123.0f;
  float minTime = untouched, maxTime = untouched;
  double minValue = untouched, maxValue = untouched;
  TparamCurve c(/*isFloat=*/true);
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue),
            std::tuple(untouched, double{untouched}, untouched, double{untouched}));
  c.add(Tkeyframe(2.0f, 3.0));
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(2.0f, 3.0, 2.0f, 3.0));

  // A weighted span whose handles rise to 2 at 1 s and 2 s: the control
  // polygon (0, 2, 2, 0) bounds it, reached first at 1 s.
  TparamCurve arch(/*isFloat=*/true);
  arch.setIsWeighted(true);
  Tkeyframe a(0.0f, 0.0, kTangentFixed, kTangentFixed);
  a.setTangent(Tkeyframe::kOutSide, 3.0f, 6.0f);
  Tkeyframe b(3.0f, 0.0, kTangentFixed, kTangentFixed);
  b.setTangent(Tkeyframe::kInSide, 3.0f, -6.0f);
  arch.add(a);
  arch.add(b);
  arch.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(0.0f, 0.0, 3.0f, 2.0));
  EXPECT_TRUE(arch.minMaxValueAndTime(0u, minTime, minValue, maxTime, maxValue));
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(0.0f, 0.0, 1.0f, 2.0));
  EXPECT_FALSE(arch.minMaxValueAndTime(1u, minTime, minValue, maxTime, maxValue));

  // The per-span form sets or widens; a span that does not exist changes
  // nothing.
  minTime = -1.0f;
  maxTime = 0.5f;
  minValue = -4.0;
  maxValue = 1.0;
  arch.boundingBox(0u, minTime, minValue, maxTime, maxValue, /*widen=*/true);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(-1.0f, -4.0, 3.0f, 2.0));
  arch.boundingBox(1u, minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(-1.0f, -4.0, 3.0f, 2.0));

  // Selected keys only: the spans between two selected keys, and lone keys.
  TparamCurve line = floatCurve({{0.0f, 0.0}, {1.0f, 9.0}, {2.0f, -1.0}, {3.0f, 4.0}});
  minTime = maxTime = untouched;
  line.boundingBox(minTime, minValue, maxTime, maxValue, true);
  EXPECT_EQ(minTime, untouched);
  line.keyframe(2)->setActive(TbitField32(TpickKey::kPickKey), true);
  line.keyframe(3)->setActive(TbitField32(TpickKey::kPickKey), true);
  line.boundingBox(minTime, minValue, maxTime, maxValue, true);
  float spanMin = 0.0f, spanMax = 0.0f;
  double spanLow = 0.0, spanHigh = 0.0;
  line.boundingBox(2u, spanMin, spanLow, spanMax, spanHigh, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue),
            std::tuple(spanMin, spanLow, spanMax, spanHigh));
}

}  // namespace
}  // namespace lumora

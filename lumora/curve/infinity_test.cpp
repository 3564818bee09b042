#include <gtest/gtest.h>

#include <cmath>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"

namespace lumora {
namespace {

// Keys (0 s, 0) and (1 s, 10) with a curved segment in between, so that
// mirrored and shifted samples differ from the plain ones.
void twoKeys(TparamCurve& c) {
  auto* a = new Tkeyframe(c.makeTimeValue(0.0f), 0.0, kTangentFixed, kTangentFixed);
  auto* b = new Tkeyframe(c.makeTimeValue(1.0f), 10.0, kTangentFixed, kTangentFixed);
  a->setTanIn(1, 0);
  a->setTanOut(1, 0);
  b->setTanIn(1, 30);
  b->setTanOut(1, 30);
  TparamCurveTestAccess::arrayInsert(c, a);
  TparamCurveTestAccess::arrayInsert(c, b);
  c.setStaticCurve(false);
}

struct InfinityRow {
  TparamCurve::TinfinityType type;
  bool pre;
  float t;
  float equivalent;  // a time inside the keys with the same value...
  double shift;      // ...plus this offset
};

TEST(TparamCurveInfinity, TableOfEquivalentTimes) {
  const InfinityRow rows[] = {
      {TparamCurve::kCycleRelative, false, 1.5f, 0.5f, 10.0},
      {TparamCurve::kCycleRelative, false, 2.5f, 0.5f, 20.0},
      {TparamCurve::kCycleRelative, true, -0.25f, 0.75f, -10.0},
      {TparamCurve::kOscillate, false, 1.25f, 0.75f, 0.0},
      {TparamCurve::kOscillate, false, 2.25f, 0.25f, 0.0},
      {TparamCurve::kCycle, true, -0.25f, 0.75f, 0.0},
      {TparamCurve::kCycle, false, 3.25f, 0.25f, 0.0},
      {TparamCurve::kOscillate, true, -0.25f, 0.25f, 0.0},
      {TparamCurve::kOscillate, true, -1.25f, 0.75f, 0.0},
  };
  for (bool floats : {true, false}) {
    for (const auto& row : rows) {
      TparamCurve c(floats);
      twoKeys(c);
      if (row.pre) {
        c.setPreInfinityType(row.type);
      } else {
        c.setPostInfinityType(row.type);
      }
      const double inside = c.evaluate(row.equivalent);
      EXPECT_NEAR(c.evaluate(row.t), inside + row.shift, 1e-4)
          << "type " << row.type << " at " << row.t << (floats ? " float" : " ticks");
      EXPECT_NEAR(c.evaluate(c.makeTimeValue(row.t)), inside + row.shift, 1e-4)
          << "time-value form, type " << row.type << " at " << row.t;
    }
  }
}

TEST(TparamCurveInfinity, LinearFollowsTheInTangentAtBothEnds) {
  TparamCurve c(true);
  twoKeys(c);
  c.setPostInfinityType(TparamCurve::kLinear);
  c.setPreInfinityType(TparamCurve::kLinear);
  EXPECT_NEAR(c.evaluate(2.0f), 40.0, 1e-4);  // last in tangent has slope 30
  EXPECT_NEAR(c.evaluate(-1.0f), 0.0, 1e-9);  // first in tangent is flat
  c.keyframe(1)->setTanIn(1, 0);
  EXPECT_NEAR(c.evaluate(5.0f), 10.0, 1e-9);
}

TEST(TparamCurveInfinity, DegenerateCurves) {
  TparamCurve one(true);
  auto* k = new Tkeyframe(2.0f, 3.0);
  TparamCurveTestAccess::arrayInsert(one, k);
  one.setStaticCurve(false);
  for (auto type : {TparamCurve::kLinear, TparamCurve::kCycle, TparamCurve::kCycleRelative,
                    TparamCurve::kOscillate}) {
    one.setPreInfinityType(type);
    one.setPostInfinityType(type);
    EXPECT_EQ(one.evaluate(-5.0f), 3.0);
    EXPECT_EQ(one.evaluate(50.0f), 3.0);
  }
  TparamCurve none(true);
  none.setPostInfinityType(TparamCurve::kCycle);
  EXPECT_EQ(none.evaluate(5.0f), 0.0);
}

TEST(TparamCurveInfinity, SettersNormaliseAndStillAnnounceTwo) {
  TparamCurve c(true);
  twoKeys(c);
  c.setPostInfinityType(static_cast<TparamCurve::TinfinityType>(2));
  EXPECT_EQ(c.postInfinityType(), TparamCurve::kConstant);
  c.setPreInfinityType(static_cast<TparamCurve::TinfinityType>(17));
  EXPECT_EQ(c.preInfinityType(), TparamCurve::kConstant);
  c.setPreInfinityType(TparamCurve::kOscillate);
  EXPECT_EQ(c.preInfinityType(), TparamCurve::kOscillate);
}

TEST(TparamCurveInfinity, StoredTwoEvaluatesAtTheRawOffset) {
  TparamCurve c(true);
  twoKeys(c);
  TparamCurveTestAccess::setInfinityRaw(c, 2, false);
  EXPECT_NEAR(c.evaluate(1.25f), c.evaluate(0.25f), 1e-9);
}

}  // namespace
}  // namespace lumora

namespace lumora {
namespace {

TEST(TparamCurveInfinity, CycledSamplesInOrderMatchFreshEvaluation) {
  // In-order sampling beyond the keys takes a shortcut through the loaded
  // span; it must give exactly what a curve with an empty cache gives.
  for (auto type : {TparamCurve::kCycle, TparamCurve::kCycleRelative}) {
    for (bool floats : {true, false}) {
      TparamCurve c(floats);
      c.setIsWeighted(false);
      twoKeys(c);
      auto* mid = new Tkeyframe(c.makeTimeValue(0.4f), 7.0, kTangentFixed, kTangentFixed);
      mid->setTanIn(1, -3);
      mid->setTanOut(1, -3);
      TparamCurveTestAccess::arrayInsert(c, mid);
      c.setPostInfinityType(type);
      for (int i = 0; i < 400; ++i) {
        const float t = 1.0f + 0.00731f * static_cast<float>(i);
        TparamCurve fresh(c);
        ASSERT_EQ(c.evaluate(t), fresh.evaluate(t)) << "type " << type << " at " << t;
      }
    }
  }
}

}  // namespace
}  // namespace lumora

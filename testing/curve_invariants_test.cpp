// The invariant checks must catch curves that the public interface can break.
#include "testing/curve_invariants.h"

#include <gtest/gtest.h>

#include <limits>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

TEST(CurveInvariants, CatchAKeyMovedPastItsNeighbour) {
  for (const bool isFloat : {true, false}) {
    SCOPED_TRACE(isFloat);
    TparamCurve c(isFloat);
    ASSERT_TRUE(reference::bouncingBall(c));
    EXPECT_EQ(checkCurveInvariants(c), "");
    // A refused move leaves the new time written, for the caller to put back.
    ASSERT_FALSE(c.setTime(1, c.makeTimeValue(0.95f)));
    EXPECT_NE(checkCurveInvariants(c).find("key 2 at"), std::string::npos)
        << checkCurveInvariants(c);
    ASSERT_TRUE(c.setTime(1, c.makeTimeValue(reference::kBallApexTime)));
    EXPECT_EQ(checkCurveInvariants(c), "");
  }
}

TEST(CurveInvariants, FloatKeysMustBeApartByMoreThanTheTolerance) {
  TparamCurve c(/*isFloat=*/true);
  c.add(Tkeyframe(0.0f, 1.0));
  c.add(Tkeyframe(1.0f, 2.0));
  // 5e-6 s apart: one time as far as the curve is concerned.
  ASSERT_FALSE(c.setTime(1, 5e-6f));
  EXPECT_NE(checkCurveInvariants(c).find("does not come after"), std::string::npos);
}

TEST(CurveInvariants, EvaluationIgnoresTheCacheOnEveryReferenceCurve) {
  bool (*const builders[])(TparamCurve&) = {
      reference::bouncingBall, reference::twoKeyBezier, reference::regressiveS,
      [](TparamCurve& c) { return reference::denseSpline(c, 9, 5); }};
  for (const bool isFloat : {true, false}) {
    for (auto* build : builders) {
      TparamCurve c(isFloat);
      ASSERT_TRUE(build(c));
      c.setPreInfinityType(TparamCurve::kOscillate);
      c.setPostInfinityType(TparamCurve::kCycleRelative);
      // Warm-up spans behind, ahead and in other periods of each sample.
      for (float t = -3.0f; t < 12.0f; t += 0.137f) {
        for (const float warm : {-t, t + 0.5f, t - 2.0f, 30.0f}) {
          ASSERT_EQ(checkEvaluationIndependentOfCache(c, t, warm), "") << isFloat;
        }
      }
      ASSERT_EQ(checkEvaluationIndependentOfCache(c, std::numeric_limits<float>::quiet_NaN(), 0.5f),
                "");
      ASSERT_EQ(checkEvaluationIndependentOfCache(c, -std::numeric_limits<float>::infinity(), 1.0f),
                "");
    }
  }
}

}  // namespace
}  // namespace lumora

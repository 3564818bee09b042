// Tangent geometry: angles and weights in view space, the edits of them,
// and keeping locked sides together.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <numbers>

#include "lumora/base/angle.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"

namespace lumora {
namespace {

using Access = TparamCurveTestAccess;
constexpr double kPi = std::numbers::pi;

// One key at 1 s with fixed tangents (inX, inY) and (outX, outY).
TparamCurve oneKey(bool weighted, float inX, float inY, float outX, float outY) {
  TparamCurve c(/*isFloat=*/true);
  c.setIsWeighted(weighted);
  Tkeyframe key(1.0f, 0.0, kTangentFixed, kTangentFixed);
  key.setTangent(Tkeyframe::kInSide, inX, inY);
  key.setTangent(Tkeyframe::kOutSide, outX, outY);
  c.add(key);
  return c;
}

TEST(TangentGeometry, WeightsAndAnglesInViewSpace) {
  EXPECT_EQ(oneKey(false, 0.0f, 0.0f, 1.0f, 0.0f).tangentWeight(0, true, 1.0f, 1.0f), 0.0);
  EXPECT_EQ(oneKey(false, 0.0f, 0.0f, 1.0f, 0.0f).tangentWeight(0, false, 1.0f, 1.0f), 1.0);
  // A weighted handle is a third of the tangent, scaled to the view.
  EXPECT_EQ(oneKey(true, 3.0f, 0.0f, 3.0f, 12.0f).tangentWeight(0, false, 1.0f, 0.25f),
            std::sqrt(2.0));
  EXPECT_EQ(oneKey(false, 0.0f, 2.0f, 0.0f, -2.0f).tangentAngle(0, true, 1, 1).degrees(), 90.0);
  EXPECT_EQ(oneKey(false, 0.0f, 2.0f, 0.0f, -2.0f).tangentAngle(0, false, 1, 1).degrees(), -90.0);
  EXPECT_EQ(oneKey(false, 0.0f, 0.0f, 1.0f, 0.0f).tangentAngle(0, true, 1, 1).degrees(), 0.0);
}

TEST(TangentGeometry, SettingAndEditingComputeWithoutTouchingTheKey) {
  const TparamCurve c = oneKey(true, 3.0f, 0.0f, 3.0f, 0.0f);
  float x = 7.0f, y = 7.0f;
  // The smallest weight is 0.005.
  Access::setTangentWeight(c, 0, 0.001f, false, x, y, 1.0f, 1.0f);
  EXPECT_FLOAT_EQ(x, 0.015f);
  EXPECT_EQ(y, 0.0f);
  c.setTangentWeightAndAngle(0, 2.0f, Tangle(kPi / 2.0), false, x, y, 1.0f, 2.0f);
  EXPECT_NEAR(x, 0.0f, 1e-6f);
  EXPECT_FLOAT_EQ(y, 3.0f);
  float kx = 0.0f, ky = 0.0f;
  c.keyframe(0)->getTanOut(kx, ky);
  EXPECT_EQ(std::pair(kx, ky), std::pair(3.0f, 0.0f));

  // Both sentinels: nothing; a relative weight adds to the handle's length.
  const Tangle noAngle(std::numeric_limits<double>::max(), TangleUnit::kDegrees, false);
  x = y = 7.0f;
  Access::editTangent(c, 0, false, noAngle, FLT_MAX, false, x, y, 1.0f, 1.0f);
  Access::editTangent(c, 0, true, noAngle, FLT_MAX, false, x, y, 1.0f, 1.0f);
  EXPECT_EQ(std::pair(x, y), std::pair(7.0f, 7.0f));
  Access::editTangent(c, 0, true, noAngle, 1.0f, false, x, y, 1.0f, 1.0f);
  EXPECT_FLOAT_EQ(x, 6.0f);
  EXPECT_FLOAT_EQ(y, 0.0f);
  Access::editTangent(c, 0, true, Tangle(kPi / 2.0), FLT_MAX, false, x, y, 1.0f, 1.0f);
  EXPECT_NEAR(x, 0.0f, 1e-6f);
  EXPECT_FLOAT_EQ(y, 3.0f);
  x = y = 7.0f;
  Access::editTangent(c, 5, false, Tangle(1.0), 1.0f, false, x, y, 1.0f, 1.0f);
  EXPECT_EQ(std::pair(x, y), std::pair(7.0f, 7.0f));
}

TEST(TangentGeometry, LockAdjustments) {
  const TparamCurve c = oneKey(false, 1.0f, 0.0f, 1.0f, 0.0f);
  float x = 0.0f, y = 0.0f;
  Access::adjustForWeightLock(c, 1.0f, 1.0f, 3.0f, 4.0f, x, y);  // nothing to scale
  EXPECT_EQ(std::pair(x, y), std::pair(0.0f, 0.0f));
  x = 1.0f;
  Access::adjustForWeightLock(c, 1.0f, 1.0f, 3.0f, 4.0f, x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(5.0f, 0.0f));
  x = -1.0f;  // a tangent never points back in time
  y = 2.0f;
  Access::adjustForWeightLock(c, 0.0f, 0.0f, 3.0f, 4.0f, x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(0.0f, 5.0f));
  x = 0.0f;
  y = 2.0f;
  Access::adjustForAngleLock(c, 1.0f, 1.0f, 3.0f, 4.0f, x, y);
  EXPECT_FLOAT_EQ(x, 1.2f);
  EXPECT_FLOAT_EQ(y, 1.6f);
}

TEST(TangentGeometry, TheOtherSideTurnsAndStretchesAlike) {
  const TparamCurve c = oneKey(false, 1.0f, 0.0f, 1.0f, 0.0f);
  // Turned by 45 degrees and stretched by sqrt(2) - 1: so is the other side.
  float x = 1.0f, y = 1.0f, outX = 0.0f, outY = 0.0f;
  EXPECT_TRUE(Access::preserveTangentLock(c, 1.0f, 1.0f, 0.0f, x, y, 1.0f, 0.0f, outX, outY));
  EXPECT_FLOAT_EQ(outX, 1.0f);
  EXPECT_FLOAT_EQ(outY, 1.0f);
  EXPECT_EQ(std::pair(x, y), std::pair(1.0f, 1.0f));

  // Turned so far that the other side would pass vertical: the dragged side
  // is pulled back until the other stands vertical.
  x = 0.1f;
  y = 1.0f;
  EXPECT_FALSE(Access::preserveTangentLock(c, 1.0f, 1.0f, 0.0f, x, y, 1.0f, 1.0f, outX, outY));
  const double pulled = std::atan2(y, x);
  EXPECT_NEAR(pulled, kPi / 4.0, 1e-6);
  float again = 0.0f;
  EXPECT_TRUE(Access::preserveTangentLock(c, 1.0f, 1.0f, 0.0f, x, y, 1.0f, 1.0f, again, outY));

  // Weighted: shrinking one side so far that the other would vanish.
  const TparamCurve w = oneKey(true, 2.0f, 0.0f, 3.0f, 0.0f);
  x = 0.5f;
  y = 0.0f;
  EXPECT_FALSE(Access::preserveTangentLock(w, 1.0f, 3.0f, 0.0f, x, y, 2.0f, 0.0f, outX, outY));
  EXPECT_FLOAT_EQ(x, 1.005f);
}

TEST(TangentGeometry, ALockThatCannotHoldLeavesTheDraggedSideAsItWas) {
  // Non-weighted: the in side follows the dragged out side.
  TparamCurve c = oneKey(false, 1.0f, 0.0f, 1.0f, 0.0f);
  Access::setTanOut(c, 0, 1.0f, 1.0f);
  EXPECT_TRUE(Access::manageTangentChangeWhenLocked(c, 1.0f, 0, 1.0f, 0.0f, false));
  float x = 0.0f, y = 0.0f;
  c.keyframe(0)->getTanIn(x, y);
  EXPECT_FLOAT_EQ(y / x, 1.0f);
  EXPECT_EQ(c.keyframe(0)->tanInType(), kTangentFixed);

  // Weighted: the out side shrunk from 3 to 0.5 would shrink the in side
  // from 2 to nothing; even pulled back it cannot, so it stays as dragged.
  TparamCurve w = oneKey(true, 2.0f, 0.0f, 3.0f, 0.0f);
  Access::setTanOut(w, 0, 0.5f, 0.0f);
  const Tkeyframe before = *w.keyframe(0);
  EXPECT_FALSE(Access::manageTangentChangeWhenLocked(w, 1.0f, 0, 3.0f, 0.0f, false));
  float bx = 0.0f, by = 0.0f;
  before.getTanOut(bx, by);
  w.keyframe(0)->getTanOut(x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(bx, by));
  EXPECT_EQ(w.keyframe(0)->tanOutType(), before.tanOutType());
  before.getTanIn(bx, by);
  w.keyframe(0)->getTanIn(x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(bx, by));
}

}  // namespace
}  // namespace lumora

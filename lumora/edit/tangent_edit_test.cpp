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
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key.h"
#include "testing/curve_snapshot.h"

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

TpickKey pickOf(TparamCurve& c, unsigned index, unsigned bits) {
  TpickKey pick;
  EXPECT_EQ(pick.create(&c, index, TbitField32(bits)), 0);
  return pick;
}

// A weighted key at 1 s between two others, with both tangents (3, 0) and
// both locks off.
TparamCurve weightedMiddle() {
  TparamCurve c(/*isFloat=*/true);
  c.setIsWeighted(true);
  for (int i = 0; i < 3; ++i) {
    Tkeyframe key(static_cast<float>(i), 0.0, kTangentFixed, kTangentFixed);
    key.setTangent(Tkeyframe::kInSide, 3.0f, 0.0f);
    key.setTangent(Tkeyframe::kOutSide, 3.0f, 0.0f);
    key.setTangentsLocked(false);
    key.setWeightsLocked(false);
    c.add(key);
  }
  return c;
}

TEST(AdjustTangent, TheHandleFollowsThePointerAndALockedKeyTurnsBothSides) {
  TparamCurve c = weightedMiddle();
  const TpickKey out = pickOf(c, 1, TpickKey::kPickOutTangent);
  // The out handle moves by (0.5, 1): the tangent by three times that.
  ASSERT_TRUE(
      c.adjustTangent(out, 0.5f, 1.0f, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f, false, false));
  float x = 0.0f, y = 0.0f;
  c.keyframe(1)->getTanOut(x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(4.5f, 3.0f));
  c.keyframe(1)->getTanIn(x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(3.0f, 0.0f));

  // Locked: the in side turns by the same 45 degrees and grows by as much.
  TparamCurve locked = weightedMiddle();
  locked.setTangentsLocked(1, true);
  const TpickKey lockedOut = pickOf(locked, 1, TpickKey::kPickOutTangent);
  ASSERT_TRUE(locked.adjustTangent(lockedOut, 0.0f, 1.0f, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f,
                                   false, false));
  locked.keyframe(1)->getTanIn(x, y);
  EXPECT_NEAR(x, 3.0f, 1e-5f);
  EXPECT_NEAR(y, 3.0f, 1e-5f);
  EXPECT_EQ(locked.keyframe(1)->tanInType(), kTangentFixed);

  // Shrunk by more than the locked in side is long: the out side is pulled
  // back to where the in side keeps the least length.
  TparamCurve shortIn = weightedMiddle();
  Access::setTanIn(shortIn, 1, 1.0f, 0.0f);
  shortIn.setTangentsLocked(1, true);
  ASSERT_TRUE(shortIn.adjustTangent(pickOf(shortIn, 1, TpickKey::kPickOutTangent), -0.95f, 0.0f,
                                    1.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f, false, false));
  shortIn.keyframe(1)->getTanOut(x, y);
  EXPECT_NEAR(x, 2.005f, 1e-5f);
  shortIn.keyframe(1)->getTanIn(x, y);
  EXPECT_NEAR(x, 0.005f, 1e-5f);
}

TEST(AdjustTangent, ARefusedDragChangesAndRecordsNothing) {
  TparamCurve c = weightedMiddle();
  c.setTangentsLocked(1, true);
  const TcurveSnapshot before(c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  const TpickKey out = pickOf(c, 1, TpickKey::kPickOutTangent);
  // Shrunk to nothing.
  EXPECT_FALSE(
      c.adjustTangent(out, -1.0f, 0.0f, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f, false, false));
  // Nothing picked but the key; an angle lock on weights that are locked.
  EXPECT_FALSE(c.adjustTangent(pickOf(c, 1, TpickKey::kPickKey), 0.1f, 0.0f, 3.0f, 0.0f, 3.0f, 0.0f,
                               1.0f, 1.0f, 1.0f, false, false));
  c.setWeightsLocked(1, true);
  EXPECT_FALSE(
      c.adjustTangent(out, 0.1f, 0.0f, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f, false, true));
  c.setWeightsLocked(1, false);
  EXPECT_FALSE(
      c.adjustTangent(out, NAN, 0.0f, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f, 1.0f, 1.0f, false, false));
  action.endParamCurveMod(c);
  EXPECT_EQ(describeDifference(before, TcurveSnapshot(c)), "");
}

TEST(AdjustTangent, UndoAndRedoGiveBackBothSidesBitForBit) {
  for (bool both : {false, true}) {
    TparamCurve c = weightedMiddle();
    c.setTangentsLocked(1, !both);
    const TcurveSnapshot start(c);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(c);
    const unsigned bits =
        both ? TpickKey::kPickInTangent | TpickKey::kPickOutTangent : TpickKey::kPickOutTangent;
    const TpickKey pick = pickOf(c, 1, bits);
    for (int step = 1; step <= 3; ++step) {
      ASSERT_TRUE(c.adjustTangent(pick, 0.1f * step, 0.4f * step, 3.0f, 0.0f, 3.0f, 0.0f, 1.0f,
                                  2.0f, 1.0f, both, false));
    }
    const TcurveSnapshot end(c);
    ASSERT_TRUE(action.endParamCurveMod(c));
    for (int round = 0; round < 2; ++round) {
      action.undoPC();
      EXPECT_EQ(describeDifference(start, TcurveSnapshot(c)), "");
      action.redoPC();
      EXPECT_EQ(describeDifference(end, TcurveSnapshot(c)), "");
    }
  }
}

}  // namespace
}  // namespace lumora

// Tangent drags and typed edits: what a drag writes, how a locked key's
// other side follows, refusals that leave every bit alone, and undo.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>

#include "lumora/base/angle.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

constexpr unsigned kIn = TpickKey::kPickInTangent;
constexpr unsigned kOut = TpickKey::kPickOutTangent;
constexpr unsigned kBoth = kIn | kOut;
constexpr double kPi = std::numbers::pi;

// Keys at 0, 1, 2 s; the middle one with fixed tangents (in) and (out), no
// locks.
std::unique_ptr<TparamCurve> threeKeys(bool weighted, float inX, float inY, float outX,
                                       float outY) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(weighted);
  for (int i = 0; i < 3; ++i) {
    Tkeyframe key(static_cast<float>(i), i == 1 ? 1.0 : 0.0, kTangentSpline, kTangentSpline);
    if (i == 1) {
      key.setTangentType(Tkeyframe::kInSide, kTangentFixed);
      key.setTangentType(Tkeyframe::kOutSide, kTangentFixed);
      key.setTangent(Tkeyframe::kInSide, inX, inY);
      key.setTangent(Tkeyframe::kOutSide, outX, outY);
    }
    key.setTangentsLocked(false);
    key.setWeightsLocked(false);
    c->add(key);
  }
  return c;
}

TpickKey pickOf(TparamCurve& c, unsigned index, unsigned bits) {
  TpickKey pick;
  EXPECT_EQ(pick.create(&c, index, TbitField32(bits)), 0);
  return pick;
}

std::pair<float, float> side(const TparamCurve& c, unsigned index, bool in) {
  float x = 0.0f, y = 0.0f;
  c.keyframe(index)->getTangent(in ? Tkeyframe::kInSide : Tkeyframe::kOutSide, x, y);
  return {x, y};
}

// Drags the out side of key 1 by (dx, dy) through the pick form, unit scales.
bool dragOut(TparamCurve& c, unsigned bits, float dx, float dy, bool negate = false) {
  return c.adjustTangent(pickOf(c, 1, bits), dx, dy, 0, 0, 0, 0, 1, 1, 1, negate, false);
}

TEST(TangentDrag, AWeightedHandleMovesByTheDrag) {
  auto c = threeKeys(true, 3.0f, 0.0f, 3.0f, 0.0f);
  c->keyframe(1)->setTangentType(Tkeyframe::kOutSide, kTangentSpline);
  // The drag is the pointer against the side's reference point.
  ASSERT_TRUE(c->adjustTangent(pickOf(*c, 1, kOut), 2.0f, 3.0f, 9.0f, 9.0f, 1.0f, 1.0f, 1, 1, 1,
                               false, false));
  EXPECT_EQ(side(*c, 1, false), std::pair(6.0f, 6.0f));
  EXPECT_EQ(c->keyframe(1)->tanOutType(), kTangentFixed);
  EXPECT_EQ(side(*c, 1, true), std::pair(3.0f, 0.0f));  // not locked: the in side stays
  // The in side's drag is taken against the in reference.
  ASSERT_TRUE(c->adjustTangent(pickOf(*c, 1, kIn), 1.0f, 1.0f, 1.0f, 0.0f, 9.0f, 9.0f, 1, 1, 1,
                               false, false));
  EXPECT_EQ(side(*c, 1, true), std::pair(3.0f, 3.0f));

  // Weights locked: the handle keeps its length (5) and takes the direction.
  auto w = threeKeys(true, 3.0f, 0.0f, 3.0f, 4.0f);
  w->keyframe(1)->setWeightsLocked(true);
  ASSERT_TRUE(dragOut(*w, kOut, 1.0f, -8.0f / 3.0f));  // to (6, -4)
  EXPECT_FLOAT_EQ(side(*w, 1, false).first, 3.0f * 6.0f / std::sqrt(52.0f) * 5.0f / 3.0f);
  // Angle lock: keeps the direction (3, 4) and takes the length of (6, 4).
  auto a = threeKeys(true, 3.0f, 0.0f, 3.0f, 4.0f);
  ASSERT_TRUE(a->adjustTangent(pickOf(*a, 1, kOut), 1.0f, 0.0f, 0, 0, 0, 0, 1, 1, 1, false, true));
  EXPECT_FLOAT_EQ(side(*a, 1, false).first, 3.0f * std::sqrt(52.0f) / 5.0f);
  EXPECT_FLOAT_EQ(side(*a, 1, false).second, 4.0f * std::sqrt(52.0f) / 5.0f);
}

TEST(TangentDrag, ANonWeightedDragIsTheDirection) {
  auto c = threeKeys(false, 1.0f, 0.0f, 1.0f, 0.0f);
  ASSERT_TRUE(dragOut(*c, kOut, 2.0f, 2.0f));
  EXPECT_FLOAT_EQ(side(*c, 1, false).first, std::sqrt(0.5f));
  EXPECT_FLOAT_EQ(side(*c, 1, false).second, std::sqrt(0.5f));
  // The dictionary drag turns the handle (a third of the direction) toward
  // the pointer that far off it.
  TpickKeyDictionary picks;
  TpickKey pick = pickOf(*c, 1, kIn);
  picks.insert(pick.time(), pick);
  ASSERT_TRUE(c->adjustTangents(picks, -1.0f / 3.0f, -1.0f / 3.0f, 1, 1, 1, false, false));
  // Straight down: the evaluator's near-vertical form.
  EXPECT_EQ(side(*c, 1, true).first, 0.0001f);
  EXPECT_LT(side(*c, 1, true).second, -572.0f);
}

// The other side turned and stretched as the dragged one, in the lock's
// value scale s.
void expectFollowed(std::pair<float, float> dragged0, std::pair<float, float> dragged1,
                    std::pair<float, float> other0, std::pair<float, float> other1, double s,
                    bool stretch) {
  const auto angle = [s](std::pair<float, float> v) { return std::atan2(v.second / s, v.first); };
  const auto length = [s](std::pair<float, float> v) { return std::hypot(v.first, v.second / s); };
  EXPECT_NEAR(angle(other1) - angle(other0), angle(dragged1) - angle(dragged0), 1e-6);
  // Non-weighted sides are directions: only weighted ones stretch.
  if (stretch) {
    EXPECT_NEAR(length(other1) - length(other0), length(dragged1) - length(dragged0), 1e-5);
  }
}

TEST(TangentDrag, ALockedKeyTurnsAndStretchesItsOtherSideAlike) {
  for (const bool weighted : {true, false}) {
    for (const float s : {1.0f, 4.0f}) {
      auto c = threeKeys(weighted, 2.0f, 1.0f, 1.0f, 0.5f);
      c->setTangentsLocked(1, true);
      const auto in0 = side(*c, 1, true), out0 = side(*c, 1, false);
      ASSERT_TRUE(
          c->adjustTangent(pickOf(*c, 1, kOut), 0.1f, 0.2f, 0, 0, 0, 0, 1, 1, s, false, false));
      expectFollowed(out0, side(*c, 1, false), in0, side(*c, 1, true), s, weighted);
      EXPECT_EQ(c->keyframe(1)->tanInType(), kTangentFixed);
      EXPECT_TRUE(c->tangentsLocked(1));
    }
  }
  // Both tangents picked on an unlocked key: the out side is dragged, the
  // in side follows, and the key is not left locked.
  auto c = threeKeys(true, 2.0f, 1.0f, 1.0f, 0.5f);
  const auto in0 = side(*c, 1, true), out0 = side(*c, 1, false);
  ASSERT_TRUE(dragOut(*c, kBoth, 0.1f, 0.2f, /*negate=*/true));
  EXPECT_FLOAT_EQ(side(*c, 1, false).second, 0.5f - 0.6f);
  expectFollowed(out0, side(*c, 1, false), in0, side(*c, 1, true), 1.0, true);
  EXPECT_FALSE(c->keyframe(1)->locked());
  EXPECT_FALSE(c->tangentsLocked(1));
}

TEST(TangentDrag, RefusalsLeaveEveryBitAlone) {
  auto c = threeKeys(true, 0.1f, 0.0f, 3.0f, 0.0f);
  c->setTangentsLocked(1, true);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  const TcurveSnapshot before(*c);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // The lock cannot hold: the out side shrinking from 3 to 1.5 would leave
  // nothing of the in side (0.1), even pulled back.
  EXPECT_FALSE(dragOut(*c, kOut, -0.5f, 0.0f));
  // Handles shorter than 0.005 in view units, angle locks where there is
  // no length to keep, picks naming no tangent, NaN drags.
  EXPECT_FALSE(dragOut(*c, kOut, -0.999f, 0.0f));
  c->setWeightsLocked(1, true);
  EXPECT_FALSE(c->adjustTangent(pickOf(*c, 1, kOut), 1, 1, 0, 0, 0, 0, 1, 1, 1, false, true));
  c->setWeightsLocked(1, false);
  EXPECT_FALSE(dragOut(*c, TpickKey::kPickKey, 1.0f, 1.0f));
  EXPECT_FALSE(dragOut(*c, kOut, nan, 1.0f));
  EXPECT_FALSE(c->adjustTangent(pickOf(*c, 1, kOut), 1, 1, 0, 0, 0, 0, 1, nan, 1, false, false));
  TpickKey voidPick = pickOf(*c, 1, kOut);
  voidPick.markVoid();
  EXPECT_FALSE(c->adjustTangent(voidPick, 1, 1, 0, 0, 0, 0, 1, 1, 1, false, false));
  EXPECT_FALSE(c->adjustTangent(TpickKey(), 1, 1, 0, 0, 0, 0, 1, 1, 1, false, false));
  auto other = threeKeys(true, 1, 0, 1, 0);
  EXPECT_FALSE(c->adjustTangent(pickOf(*other, 1, kOut), 1, 1, 0, 0, 0, 0, 1, 1, 1, false, false));
  EXPECT_FALSE(
      c->adjustTangent(TkeyframeHandle(c.get(), 1u), false, false, Tangle(1.0), nan, 1, 1));
  EXPECT_FALSE(
      c->adjustTangent(TkeyframeHandle(c.get(), 1u), false, false, Tangle(0.0), 0.1f, 1, 1));
  EXPECT_FALSE(c->adjustTangent(TkeyframeHandle(other.get(), 1u), false, false, Tangle(), 1, 1, 1));
  EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "");
  // The weight lock's changes were recorded; nothing of the refused edits.
  ASSERT_TRUE(action.endParamCurveMod(*c));
  EXPECT_EQ(action.childCount(), 2u);

  // In a selection a key that refuses keeps its bits; the others are dragged.
  auto s = threeKeys(true, 0.1f, 0.0f, 3.0f, 0.0f);
  s->setTangentsLocked(1, true);
  TpickKeyDictionary picks;
  for (unsigned i = 0; i < 3; ++i) {
    TpickKey pick = pickOf(*s, i, kOut);
    picks.insert(pick.time(), pick);
  }
  const TkeySnapshot locked = snapshotOf(*s->keyframe(1));
  const auto last = side(*s, 2, false);
  EXPECT_FALSE(s->adjustTangents(picks, -0.1f, 0.0f, 1, 1, 1, false, false));
  EXPECT_EQ(snapshotOf(*s->keyframe(1)), locked);
  EXPECT_FLOAT_EQ(side(*s, 2, false).first, last.first - 0.3f);
}

TEST(TangentDrag, TypedAnglesAndWeights) {
  auto c = threeKeys(true, 3.0f, 0.0f, 3.0f, 0.0f);
  const TkeyframeHandle key(c.get(), 1u);
  const Tangle leave(std::numeric_limits<double>::max(), TangleUnit::kDegrees, false);
  const TcurveSnapshot before(*c);
  EXPECT_TRUE(c->adjustTangent(key, false, false, leave, FLT_MAX, 1, 1));
  EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "");
  // Absolute: 90 degrees with the view length 2 (value scale 0 counts as 1).
  ASSERT_TRUE(c->adjustTangent(key, false, false, Tangle(kPi / 2.0), 2.0f, 1, 0));
  EXPECT_NEAR(side(*c, 1, false).first, 0.0f, 1e-6f);
  EXPECT_FLOAT_EQ(side(*c, 1, false).second, 6.0f);
  // Relative, over a selection: every picked side turns back by 90 degrees.
  TpickKeyDictionary picks;
  TpickKey pick = pickOf(*c, 1, TpickKey::kPickKey);
  picks.insert(pick.time(), pick);
  ASSERT_TRUE(c->adjustTangents(picks, true, Tangle(-kPi / 2.0), FLT_MAX, 1, 1));
  EXPECT_FLOAT_EQ(side(*c, 1, false).first, 6.0f);
  EXPECT_NEAR(side(*c, 1, true).second, -3.0f, 1e-6f);
}

// An action of `edit` on `c`, undone and redone twice: bit for bit each time.
template <typename Edit>
void expectExactUndo(TparamCurve& c, Edit edit) {
  const TcurveSnapshot before(c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  edit();
  const TcurveSnapshot after(c);
  ASSERT_TRUE(action.endParamCurveMod(c));
  ASSERT_NE(describeDifference(before, after), "");
  for (int round = 0; round < 2; ++round) {
    action.undoPC();
    EXPECT_EQ(describeDifference(before, TcurveSnapshot(c)), "");
    action.redoPC();
    EXPECT_EQ(describeDifference(after, TcurveSnapshot(c)), "");
  }
}

TEST(TangentDrag, EveryEditUndoesAndRedoesBitForBit) {
  for (const bool weighted : {true, false}) {
    SCOPED_TRACE(weighted);
    auto c = threeKeys(weighted, 2.0f, 1.0f, 1.0f, 0.5f);
    c->setTangentsLocked(1, true);
    TpickKeyDictionary picks;
    for (unsigned i = 0; i < 3; ++i) {
      TpickKey pick = pickOf(*c, i, i == 0 ? kIn : i == 1 ? kOut : TpickKey::kPickKey);
      picks.insert(pick.time(), pick);
    }
    expectExactUndo(*c, [&] { EXPECT_TRUE(dragOut(*c, kOut, 0.1f, 0.3f)); });
    expectExactUndo(*c, [&] { EXPECT_TRUE(dragOut(*c, kBoth, 0.2f, -0.1f, true)); });
    expectExactUndo(*c, [&] {
      for (int step = 1; step <= 3; ++step) {
        EXPECT_TRUE(c->adjustTangents(picks, 0.05f * step, 0.1f, 1, 2, 0.5f, false, false));
      }
    });
    expectExactUndo(*c, [&] {
      EXPECT_TRUE(c->adjustTangents(picks, true, Tangle(0.3), 0.25f, 2, 1));
      EXPECT_TRUE(c->adjustTangents(picks, false, Tangle(-0.2), 1.0f, Tangle(0.4), 0.5f, 1, 1));
    });
    expectExactUndo(*c, [&] { EXPECT_TRUE(c->switchInOutTangents(picks)); });

    // A drag made unrecorded, recorded when the pointer is released.
    TfloatArray tangents;
    Tint16Array types;
    c->getTangentsForDeltas(picks, tangents, types);
    ASSERT_EQ(tangents.count(), 12u);
    const TcurveSnapshot start(*c);
    EXPECT_TRUE(c->adjustTangents(picks, 0.3f, -0.2f, 1, 1, 1, false, false));
    const TcurveSnapshot end(*c);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(*c);
    c->generateDeltasForTangents(picks, tangents, types);
    EXPECT_EQ(describeDifference(end, TcurveSnapshot(*c)), "");
    ASSERT_TRUE(action.endParamCurveMod(*c));
    action.undoPC();
    EXPECT_EQ(describeDifference(start, TcurveSnapshot(*c)), "");
    action.redoPC();
    EXPECT_EQ(describeDifference(end, TcurveSnapshot(*c)), "");
  }
}

TEST(TangentDrag, SwitchingSidesSwapsVectorsAndTypes) {
  auto c = threeKeys(false, 1.0f, 0.0f, 0.6f, 0.8f);
  c->keyframe(1)->setTangentType(Tkeyframe::kInSide, kTangentFlat);
  TpickKeyDictionary picks;
  TpickKey pick = pickOf(*c, 1, kIn);
  picks.insert(pick.time(), pick);
  ASSERT_TRUE(c->switchInOutTangents(picks));
  EXPECT_EQ(side(*c, 1, true), std::pair(0.6f, 0.8f));
  EXPECT_EQ(c->keyframe(1)->tanInType(), kTangentFixed);
  EXPECT_EQ(c->keyframe(1)->tanOutType(), kTangentFlat);
  EXPECT_EQ(side(*c, 1, false), std::pair(1.0f, 0.0f));  // computed again: flat
}

}  // namespace
}  // namespace lumora

// Tangent and weight locks: one key, a selection, and their undo.
#include <gtest/gtest.h>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

// Three keys with both locks off, whatever the preferences give new keys.
TparamCurve threeKeys() {
  TparamCurve c(/*isFloat=*/true);
  for (int i = 0; i < 3; ++i) {
    Tkeyframe key(static_cast<float>(i), i * 2.0);
    key.setTangentsLocked(false);
    key.setWeightsLocked(false);
    c.add(key);
  }
  return c;
}

TEST(TangentLocks, OneKeyAndASelection) {
  TparamCurve c = threeKeys();
  c.setTangentsLocked(1, true);
  c.setWeightsLocked(2, true);
  EXPECT_TRUE(c.tangentsLocked(1));
  EXPECT_FALSE(c.weightsLocked(1));
  EXPECT_TRUE(c.weightsLocked(2));
  EXPECT_FALSE(c.tangentsLocked(2));
  // Missing keys: nothing set, false asked.
  c.setTangentsLocked(7, true);
  EXPECT_FALSE(c.tangentsLocked(7));
  EXPECT_FALSE(c.weightsLocked(TparamCurve::kInvalidIndex));

  // A selection: its keys of this curve only; void picks name nothing.
  TparamCurve other = threeKeys();
  TpickKeyDictionary picks;
  for (auto [curve, index] : {std::pair{&c, 0u}, std::pair{&other, 1u}, std::pair{&c, 2u}}) {
    TpickKey pick;
    ASSERT_EQ(pick.create(curve, index, TbitField32(TpickKey::kPickKey)), 0);
    if (curve == &c && index == 2u) pick.markVoid();
    picks.insert(TtimeValue(static_cast<float>(index) + (curve == &c ? 0.0f : 0.5f)), pick);
  }
  EXPECT_TRUE(c.setTangentLockedStatus(picks, true));
  EXPECT_TRUE(c.tangentsLocked(0));
  EXPECT_FALSE(c.tangentsLocked(2));
  EXPECT_FALSE(other.tangentsLocked(1));
  EXPECT_TRUE(c.setWeightLockedStatus(picks, true));
  EXPECT_TRUE(c.weightsLocked(0));
  EXPECT_TRUE(c.setTangentLockedStatus(TpickKeyDictionary(), false));
}

TEST(TangentLocks, UndoAndRedoGiveBackTheFlagsBitForBit) {
  TparamCurve c = threeKeys();
  c.setWeightsLocked(0, true);
  const TcurveSnapshot start(c, TcurveSnapshot::kAllFlags);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  c.setTangentsLocked(1, true);
  c.setWeightsLocked(0, false);
  c.setWeightsLocked(0, false);  // already so: nothing to record
  TpickKeyDictionary picks;
  TpickKey pick;
  ASSERT_EQ(pick.create(&c, 2u, TbitField32(TpickKey::kPickKey)), 0);
  picks.insert(pick.time(), pick);
  c.setTangentLockedStatus(picks, true);
  const TcurveSnapshot end(c, TcurveSnapshot::kAllFlags);
  ASSERT_TRUE(action.endParamCurveMod(c));
  EXPECT_EQ(action.childCount(), 3u);
  for (int round = 0; round < 2; ++round) {
    action.undoPC();
    EXPECT_EQ(describeDifference(start, TcurveSnapshot(c, TcurveSnapshot::kAllFlags)), "");
    action.redoPC();
    EXPECT_EQ(describeDifference(end, TcurveSnapshot(c, TcurveSnapshot::kAllFlags)), "");
  }
}

}  // namespace
}  // namespace lumora

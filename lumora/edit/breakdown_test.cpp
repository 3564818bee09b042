// Breakdown keys keep their proportion between two ordinary neighbours, or
// their offset from one, through direct placement, moves, ripples and undo.
#include "lumora/edit/breakdown.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/base/time_arrays.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/notify/setting_deltas.h"
#include "lumora/select/pick_key_dictionary.h"
#include "testing/curve_invariants.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

// A float curve with keys at `times`; the keys at `breakdowns` are breakdown keys.
std::unique_ptr<TparamCurve> curveAt(std::vector<float> times, std::vector<unsigned> breakdowns) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  for (const float t : times) c->add(Tkeyframe(t, t * 2.0));
  for (const unsigned i : breakdowns) c->setBreakdown(i, true);
  return c;
}

float secondsOf(const TparamCurve& c, unsigned i) {
  return c.seconds(i);
}

TpickKeyDictionary picksOf(TparamCurve& c, std::initializer_list<unsigned> indices) {
  TpickKeyDictionary picks;
  for (const unsigned i : indices) {
    TpickKey pick;
    if (pick.create(&c, i, TbitField32(TpickKey::kPickKey)) == 0) picks.insert(pick.time(), pick);
  }
  return picks;
}

TEST(Breakdown, RecordsKeepProportionOrOffset) {
  auto c = curveAt({0.0f, 2.5f, 10.0f}, {1});
  TkeyframeHandle last(c.get(), 2u);
  c->addBreakdownData(&last);
  c->addBreakdownData(&last);  // each breakdown key is recorded once
  ASSERT_EQ(c->breakdownCacheCount(), 1u);
  EXPECT_EQ(c->breakdownCacheEntry(0)->ratio(), 0.25f);
  EXPECT_EQ(c->findBreakdownData(1), 0);
  EXPECT_EQ(c->findBreakdownData(2), -1);
  c->moveKeyframe(2, TtimeValue(20.0f), 20.0, TparamCurve::kMoveKeepOrder);
  c->applyBreakdownCache();
  EXPECT_EQ(secondsOf(*c, 1), 5.0f);
  c->flushBreakdownCache();
  EXPECT_EQ(c->breakdownCacheCount(), 0u);
  c->applyBreakdownCache();  // nothing to apply

  // Only a previous ordinary key: the offset stays; only a next one: likewise.
  auto after = curveAt({4.0f, 6.0f}, {1});
  std::unique_ptr<TbreakdownData> offset(after->getBreakdownData(1));
  ASSERT_TRUE(offset);
  EXPECT_EQ(std::tuple(offset->ratio(), offset->nextHandle()), std::tuple(2.0f, nullptr));
  TkeyframeHandle first(after.get(), 0u);
  after->addBreakdownData(&first);
  after->moveKeyframe(0, TtimeValue(1.0f), 0.0, TparamCurve::kMoveKeepOrder);
  after->applyBreakdownCache();
  EXPECT_EQ(secondsOf(*after, 1), 3.0f);
  auto before = curveAt({1.0f, 4.0f}, {0});
  std::unique_ptr<TbreakdownData> ahead(before->getBreakdownData(0));
  EXPECT_EQ(ahead->ratio(), -3.0f);

  // No record for an ordinary key, or when no ordinary key is left.
  EXPECT_EQ(c->getBreakdownData(0), nullptr);
  auto all = curveAt({1.0f, 2.0f}, {0, 1});
  EXPECT_EQ(all->getBreakdownData(0), nullptr);
  EXPECT_EQ(all->getBreakdownData(7), nullptr);
}

TEST(Breakdown, TicksRoundToTheNearestTick) {
  TparamCurve c(/*isFloat=*/false);
  for (const int t : {0, 300, 1000}) c.add(Tkeyframe(TanimTime(t), 0.0));
  c.setBreakdown(1, true);
  std::unique_ptr<TbreakdownData> record(c.getBreakdownData(1));
  ASSERT_TRUE(record);
  c.moveKeyframe(2, TtimeValue(TanimTime(1001)), 0.0, TparamCurve::kMoveKeepOrder);
  EXPECT_EQ(record->getDesiredTime(&c), TtimeValue(TanimTime(300)));  // 300.3 ticks
  EXPECT_TRUE(record->getDesiredTime(nullptr).isNeither());
}

// The breakdown keys between moved keys follow every kind of move, and undo
// puts them back with everything else.
TEST(Breakdown, FollowMovesRipplesAndUndo) {
  for (const auto option :
       {TparamCurve::kMoveKeepOrder, TparamCurve::kMoveRipple, TparamCurve::kMovePass}) {
    auto c = curveAt({0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 6.0f}, {2, 5});
    Tkeyframe* between = c->keyframe(2);
    Tkeyframe* tail = c->keyframe(5);
    const TcurveSnapshot start(*c);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(*c);
    ASSERT_TRUE(
        c->moveKeys(picksOf(*c, {3, 4}), TtimeValue(0.5f), 0.0, true, option, true, true, false));
    action.endParamCurveMod(*c);
    // Halfway between 1 s and the moved key at 3.5 s; 2 s after the key at 4.5 s.
    EXPECT_EQ(c->seconds(c->keyframe(2)), 2.25f) << option;
    EXPECT_EQ(std::tuple(c->keyframe(2), c->seconds(tail)), std::tuple(between, 6.5f)) << option;
    EXPECT_EQ(between->value(), 4.0);  // breakdown keys keep their values
    EXPECT_EQ(checkCurveInvariants(*c), "");
    action.undoPC();
    EXPECT_EQ(describeDifference(start, TcurveSnapshot(*c)), "") << option;
  }
  // Without moveBreakdowns they stay.
  auto c = curveAt({0.0f, 1.0f, 2.0f, 3.0f}, {2});
  ASSERT_TRUE(c->moveKeys(picksOf(*c, {3}), TtimeValue(0.5f), 0.0, true,
                          TparamCurve::kMoveKeepOrder, false, true, false));
  EXPECT_EQ(c->seconds(2), 2.0f);
}

TEST(Breakdown, TheMarkIsRecordedAndSwappedBack) {
  auto c = curveAt({0.0f, 1.0f, 2.0f}, {});
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  EXPECT_TRUE(c->setBreakdown(1, true));
  EXPECT_TRUE(c->setBreakdown(1, true));  // already so: nothing recorded
  EXPECT_FALSE(c->setBreakdown(9, true));
  ASSERT_TRUE(action.endParamCurveMod(*c));
  ASSERT_EQ(action.childCount(), 1u);
  EXPECT_TRUE(isDeltaOfType(action.child(0), TPCDbreakdownTmeta));
  for (int round = 0; round < 2; ++round) {
    action.undoPC();
    EXPECT_FALSE(c->breakdown(1));
    action.redoPC();
    EXPECT_TRUE(c->breakdown(1));
  }
  // Removing every key drops the records, whose keys are gone.
  TkeyframeHandle last(c.get(), 2u);
  c->addBreakdownData(&last);
  ASSERT_EQ(c->breakdownCacheCount(), 1u);
  c->removeAllKeys();
  EXPECT_EQ(c->breakdownCacheCount(), 0u);
  c->applyBreakdownCache();
}

}  // namespace
}  // namespace lumora

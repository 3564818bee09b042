// Moving keys: the collision rule of every option, the drag of a whole
// selection undone and redone bit for bit, and bad input changing nothing.
#include "lumora/edit/move_keys.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key_dictionary.h"
#include "testing/curve_invariants.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

using Toption = TparamCurve::TmoveOption;
constexpr Toption kOptions[] = {TparamCurve::kMoveKeepOrder, TparamCurve::kMoveRipple,
                                TparamCurve::kMovePass, TparamCurve::kMovePassRelative};

// A tick curve with `n` spline keys 100 ticks apart (values wave up and down).
std::unique_ptr<TparamCurve> tickCurve(unsigned n) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/false);
  for (unsigned i = 0; i < n; ++i) {
    c->add(Tkeyframe(TanimTime(static_cast<std::int32_t>(100 * i)), (i * 7) % 5, kTangentSpline,
                     kTangentSpline));
  }
  return c;
}

std::int32_t ticks(const TparamCurve& c, unsigned i) {
  return c.keyframe(i)->timeAsTicks();
}

std::vector<std::int32_t> allTicks(const TparamCurve& c) {
  std::vector<std::int32_t> out;
  for (unsigned i = 0; i < c.keyframeCount(); ++i) out.push_back(ticks(c, i));
  return out;
}

std::set<const Tkeyframe*> keyObjects(const TparamCurve& c) {
  std::set<const Tkeyframe*> out;
  for (unsigned i = 0; i < c.keyframeCount(); ++i) out.insert(c.keyframe(i));
  return out;
}

TpickKeyDictionary picksOf(TparamCurve& c, std::initializer_list<unsigned> indices,
                           unsigned flags = TpickKey::kPickKey) {
  TpickKeyDictionary picks;
  for (const unsigned i : indices) {
    TpickKey pick;
    if (pick.create(&c, i, TbitField32(flags)) == 0) picks.insert(pick.time(), pick);
  }
  return picks;
}

TtimeValue byTicks(std::int32_t t) {
  return TtimeValue(TanimTime(t));
}

bool moveBy(TparamCurve& c, const TpickKeyDictionary& picks, std::int32_t dt, Toption option,
            double dv = 0.0) {
  return c.moveKeys(picks, byTicks(dt), dv, /*relative=*/true, option, /*moveBreakdowns=*/true,
                    /*setTime=*/true, /*setValue=*/true);
}

// --- The rules of each option ---------------------------------------------------------------

TEST(MoveKeys, KeepOrderStopsATickShortOfTheNeighbour) {
  auto c = tickCurve(5);  // 0 100 200 300 400
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {1}), 1000, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 199, 200, 300, 400}));
  // A block moved too far packs a tick apart before the next key, in order.
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {0, 1}), 1000, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{198, 199, 200, 300, 400}));
  // Backward, a tick after the previous key; the first key has none.
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {3, 4}), -1000, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{198, 199, 200, 201, 202}));
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {0}), -1000, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(ticks(*c, 0), -802);
}

TEST(MoveKeys, RippleShiftsEveryKeyOnwardInTheDirectionOfTheMove) {
  auto c = tickCurve(5);
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {2}), 10, TparamCurve::kMoveRipple));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 100, 210, 310, 410}));
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {2}), -10, TparamCurve::kMoveRipple));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{-10, 90, 200, 310, 410}));
  // Far enough to reach a neighbour: the shifted keys take it along.
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {1}), 500, TparamCurve::kMoveRipple, 1.0));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{-10, 590, 700, 810, 910}));
  EXPECT_EQ(c->keyframe(1)->value(), 3.0);  // the picked key alone takes the value offset
  EXPECT_EQ(c->keyframe(2)->value(), 4.0);
}

TEST(MoveKeys, PassingKeysResortAndStepOffExactCollisions) {
  for (const Toption option : {TparamCurve::kMovePass, TparamCurve::kMovePassRelative}) {
    auto c = tickCurve(5);
    Tkeyframe* moved = c->keyframe(1);
    EXPECT_TRUE(moveBy(*c, picksOf(*c, {1}), 250, option));  // to 350, past 200 and 300
    EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 200, 300, 350, 400}));
    EXPECT_EQ(c->keyframe(3), moved);
    EXPECT_TRUE(moveBy(*c, picksOf(*c, {3}), 50, option));  // onto 400: a tick back
    EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 200, 300, 399, 400}));
    EXPECT_TRUE(moveBy(*c, picksOf(*c, {3}), -399, option));  // onto 0: a tick after
    EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 1, 200, 300, 400}));
    EXPECT_EQ(c->keyframe(1), moved);
    EXPECT_EQ(checkCurveInvariants(*c), "");
  }
}

TEST(MoveKeys, CanMoveTellsWhetherKeepOrderWouldStop) {
  auto c = tickCurve(5);
  const auto one = picksOf(*c, {1});
  const auto can = [&](std::int32_t dt, Toption option, bool relative = true) {
    return c->canMove(one, byTicks(dt), 0.0, relative, option, /*check=*/true);
  };
  EXPECT_EQ(std::tuple(can(100, TparamCurve::kMoveKeepOrder), can(101, TparamCurve::kMoveKeepOrder),
                       can(-100, TparamCurve::kMoveKeepOrder),
                       can(-101, TparamCurve::kMoveKeepOrder), can(101, TparamCurve::kMovePass)),
            std::tuple(true, false, true, false, true));
  EXPECT_EQ(std::tuple(can(150, TparamCurve::kMoveKeepOrder, false),
                       can(250, TparamCurve::kMoveKeepOrder, false)),
            std::tuple(true, false));
  const auto two = picksOf(*c, {1, 2});
  EXPECT_FALSE(
      c->canMove(two, byTicks(150), 0.0, /*relative=*/false, TparamCurve::kMovePass, true));
  EXPECT_TRUE(c->canMove(two, TtimeValue(1.0f), 0.0, true, TparamCurve::kMovePass, false));
  EXPECT_FALSE(c->canMove(two, TtimeValue(1.0f), 0.0, true, TparamCurve::kMovePass, true));
  EXPECT_FALSE(
      c->canMove(TpickKeyDictionary(), byTicks(1), 0.0, true, TparamCurve::kMovePass, false));

  TkeyframeHandle h1(c.get(), 1u), h3(c.get(), 3u);
  TkeyframeHandlePtrArray handles;
  handles.addLast(&h1);
  EXPECT_EQ(std::tuple(c->canMove(handles, byTicks(100), 0.0, true, TparamCurve::kMoveKeepOrder),
                       c->canMove(handles, byTicks(101), 0.0, true, TparamCurve::kMoveKeepOrder),
                       c->canMove(handles, byTicks(5), 0.0, false, TparamCurve::kMovePass),
                       c->canMove(handles, byTicks(5), 0.0, false, TparamCurve::kMoveKeepOrder)),
            std::tuple(true, false, true, false));
  handles.addLast(&h3);
  EXPECT_FALSE(c->canMove(handles, byTicks(5), 0.0, false, TparamCurve::kMovePass));
}

TEST(MoveKeys, AbsoluteMovesAreForOneKey) {
  for (const Toption option : kOptions) {
    auto c = tickCurve(5);
    const TcurveSnapshot before(*c);
    EXPECT_FALSE(c->moveKeys(picksOf(*c, {1, 2}), byTicks(150), 0.0, /*relative=*/false, option,
                             true, /*setTime=*/true, false))
        << option;
    EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "");
    EXPECT_FALSE(c->isEdit());
    const bool single = c->moveKeys(picksOf(*c, {1}), byTicks(150), 7.0, false, option, true, true,
                                    /*setValue=*/true);
    EXPECT_EQ(single, option == TparamCurve::kMoveKeepOrder || option == TparamCurve::kMovePass);
    if (single) {
      EXPECT_EQ(std::tuple(ticks(*c, 1), c->keyframe(1)->value()), std::tuple(150, 7.0));
    }
  }
}

TEST(MoveKeys, AZeroTimeMoveChangesValuesOnlyAndTellsClients) {
  auto c = tickCurve(4);
  TmessageRecorder rec;
  rec.listenTo(*c);
  rec.listenTo(*c, TkeyframeMovedMsgTmeta);
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {1, 2}), 0, TparamCurve::kMoveKeepOrder, 0.5));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 100, 200, 300}));
  EXPECT_EQ(std::tuple(c->keyframe(1)->value(), c->keyframe(2)->value()), std::tuple(2.5, 4.5));
  EXPECT_EQ(rec.count(TrecordedMsg::kMoved), 0u);
  unsigned keyChanged = 0;
  for (const TrecordedMsg& m : rec.only(TrecordedMsg::kModified)) {
    keyChanged += m.messageType == TparamCurveModifiedMsg::kKeyChanged ? 1u : 0u;
  }
  EXPECT_EQ(keyChanged, 2u);
  // A move in time is announced to listeners of moved keys, key by key.
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {1, 2}), 10, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(rec.count(TrecordedMsg::kMoved), 2u);
}

// Every option, both directions, single keys and blocks at the ends and in
// the middle: the keys stay strictly ordered, none is lost, merged or made,
// and with kMoveKeepOrder canMove says exactly whether every key arrives.
TEST(MoveKeys, EveryOptionKeepsTheKeysAndTheirOrder) {
  const std::vector<std::vector<unsigned>> selections = {{0},       {4},       {9},       {0, 1, 2},
                                                         {3, 4, 5}, {7, 8, 9}, {1, 4, 8}, {0, 9}};
  const std::int32_t offsets[] = {1, 60, 100, 101, 250, 1000, -1, -99, -100, -101, -420, -1000};
  for (const Toption option : kOptions) {
    for (const auto& selection : selections) {
      for (const std::int32_t dt : offsets) {
        auto c = tickCurve(10);
        const auto keys = keyObjects(*c);
        TpickKeyDictionary picks;
        std::vector<std::int32_t> starts;
        for (const unsigned i : selection) {
          TpickKey pick;
          ASSERT_EQ(pick.create(c.get(), i, TbitField32(TpickKey::kPickKey)), 0);
          picks.insert(pick.time(), pick);
          starts.push_back(ticks(*c, i));
        }
        std::vector<const Tkeyframe*> movedKeys;
        for (const unsigned i : selection) movedKeys.push_back(c->keyframe(i));
        const bool allowed = c->canMove(picks, byTicks(dt), 0.0, true, option, true);
        const std::string what = "option " + std::to_string(option) + " by " + std::to_string(dt);
        ASSERT_TRUE(moveBy(*c, picks, dt, option)) << what;
        EXPECT_EQ(checkCurveInvariants(*c), "") << what;
        EXPECT_EQ(keyObjects(*c), keys) << what;
        bool arrived = true;
        for (std::size_t k = 0; k < movedKeys.size(); ++k) {
          arrived = arrived && movedKeys[k]->timeAsTicks() == starts[k] + dt;
        }
        if (option == TparamCurve::kMoveKeepOrder && selection.size() == 1) {
          // Landing exactly on the neighbour passes the check, and the key
          // then stays a tick away from it.
          const std::int32_t target = starts[0] + dt;
          const bool onNeighbour =
              target % 100 == 0 && target >= 0 && target <= 900 && std::abs(dt) == 100;
          EXPECT_EQ(allowed, arrived || onNeighbour) << what;
        }
        if (option == TparamCurve::kMoveRipple) {
          EXPECT_TRUE(arrived) << what;
        }
      }
    }
  }
}

// --- Drags and their undo -------------------------------------------------------------------

// A float curve whose tangents were partly written by hand, so that undo can
// only give them back by keeping them, not by computing them again.
std::unique_ptr<TparamCurve> dragCurve(unsigned n) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  for (unsigned i = 0; i < n; ++i) {
    const TtangentType type = i % 3 == 0 ? kTangentClamped : kTangentSpline;
    c->add(Tkeyframe(0.1f * static_cast<float>(i), std::sin(i * 0.7), type, type));
  }
  TdoubleArray ys;
  for (unsigned i = 0; i < n; ++i) ys.addLast(0.3 * std::cos(i * 1.3));
  c->setBlockTangentYValue(0, n - 1, ys, /*inSide=*/false);
  c->setBreakdown(5, true);
  return c;
}

TEST(MoveDrag, AWholeDragUndoesAndRedoesBitForBitWithOneRecordPerKey) {
  for (const Toption option : kOptions) {
    for (const float direction : {1.0f, -1.0f}) {
      auto c = dragCurve(30);
      std::vector<TkeyframeHandle> owned;
      for (const unsigned i : {2u, 3u, 7u, 12u, 20u, 29u}) owned.emplace_back(c.get(), i);
      TkeyframeHandlePtrArray handles;
      for (TkeyframeHandle& h : owned) handles.addLast(&h);
      TtimeValueArray starts;
      for (TkeyframeHandle& h : owned) starts.addLast(h.timeValue());
      const TcurveSnapshot before(*c);

      TparamCurveDeltaUser action;
      action.beginParamCurveMod(*c);
      ASSERT_TRUE(c->beginEdit(TparamCurve::kEditMoveKeys, handles));
      // Offsets from the start that grow, turn back and grow again: keys
      // pass and return across neighbours on the way.
      for (int step = 1; step <= 40; ++step) {
        const float dx = direction * 0.0137f * static_cast<float>(step < 25 ? step : 50 - step);
        ASSERT_TRUE(
            c->moveKeys(handles, starts, TtimeValue(dx), 0.0, option, true, true, true, false));
        ASSERT_EQ(checkCurveInvariants(*c), "");
      }
      EXPECT_TRUE(c->endEdit());
      ASSERT_TRUE(action.endParamCurveMod(*c));
      const TcurveSnapshot after(*c);

      unsigned dragRecords = 0;
      std::set<const Tkeyframe*> dragged;
      for (unsigned i = 0; i < action.childCount(); ++i) {
        const auto* d = static_cast<const TPCDdragKey*>(action.child(i));
        if (!isDeltaOfType(d, TPCDdragKeyTmeta)) continue;
        ++dragRecords;
        dragged.insert(d->handle()->keyframe());
      }
      EXPECT_EQ(dragRecords, dragged.size()) << "one record per key, option " << option;
      if (option != TparamCurve::kMoveRipple) {
        EXPECT_LE(dragRecords, 8u);
      }
      for (int round = 0; round < 2; ++round) {
        action.undoPC();
        EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "") << option << " " << round;
        action.redoPC();
        EXPECT_EQ(describeDifference(after, TcurveSnapshot(*c)), "") << option << " " << round;
      }
    }
  }
}

TEST(MoveDrag, OneShotMovesOfEveryFormUndoExactly) {
  auto c = dragCurve(12);
  const auto roundTrip = [&](auto edit, const char* what) {
    const TcurveSnapshot before(*c);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(*c);
    edit();
    action.endParamCurveMod(*c);
    const TcurveSnapshot after(*c);
    action.undoPC();
    EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "") << what;
    action.redoPC();
    EXPECT_EQ(describeDifference(after, TcurveSnapshot(*c)), "") << what;
  };
  roundTrip([&] { moveBy(*c, picksOf(*c, {1, 2, 6}), 0, TparamCurve::kMovePass, 0.25); }, "values");
  roundTrip(
      [&] {
        c->moveKeys(picksOf(*c, {3}), TtimeValue(0.52f), 0.0, true, TparamCurve::kMovePass, true,
                    true, false);
      },
      "pass");
  roundTrip([&] { c->moveKeyframe(0, TtimeValue(-1.0f), 3.0, TparamCurve::kMoveKeepOrder); },
            "one key");
  roundTrip([&] { c->moveKeyframeInValue(4, -2.0); }, "value");
  roundTrip(
      [&] {
        TkeyframeHandle a(c.get(), 2u), b(c.get(), 8u);
        TkeyframeHandlePtrArray handles;
        handles.addLast(&a);
        handles.addLast(&b);
        ASSERT_TRUE(c->beginEdit(TparamCurve::kEditMoveKeys, handles));
        TtimeValueArray newTimes, oldTimes;
        TdoubleArray newValues, oldValues;
        newTimes.addLast(TtimeValue(0.95f));  // the two keys swap sides
        newTimes.addLast(TtimeValue(0.15f));
        for (TkeyframeHandle* h : {&a, &b}) {
          oldTimes.addLast(h->timeValue());
          oldValues.addLast(h->value());
          newValues.addLast(h->value() + 1.0);
        }
        EXPECT_TRUE(c->moveKeys(handles, newTimes, oldTimes, newValues, oldValues,
                                TparamCurve::kMovePass, true));
        EXPECT_EQ(std::tuple(a.seconds(), b.seconds()), std::tuple(0.95f, 0.15f));
        c->endEdit();
      },
      "each key");
  EXPECT_EQ(checkCurveInvariants(*c), "");
}

TEST(MoveDrag, ChainedDragsMergeIntoOneRecordFromTheFirstStart) {
  auto c = tickCurve(4);
  Tkeyframe* key = c->keyframe(1);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  c->setPreInfinityType(TparamCurve::kLinear);
  for (int i = 1; i <= 5; ++i) moveBy(*c, picksOf(*c, {1}), 10, TparamCurve::kMoveKeepOrder, 1.0);
  action.endParamCurveMod(*c);
  ASSERT_EQ(action.childCount(), 2u);
  const auto* drag = static_cast<const TPCDdragKey*>(action.child(1));
  ASSERT_TRUE(isDeltaOfType(drag, TPCDdragKeyTmeta));
  EXPECT_EQ(std::tuple(drag->oldTime(), drag->newTime(), drag->oldValue(), drag->newValue(),
                       drag->handle()->keyframe()),
            std::tuple(byTicks(100), byTicks(150), 2.0, 7.0, key));
  action.undoPC();
  EXPECT_EQ(std::tuple(key->timeAsTicks(), key->value(), c->keyframe(1)),
            std::tuple(100, 2.0, key));
}

// Drags of one key with another edit between them are put back in turn: the
// later drag does not take over the earlier one across the edit, and undo
// passes through the edit's own state on the way.
TEST(MoveDrag, DragsAroundAnotherEditUndoAndRedoExactly) {
  auto c = tickCurve(5);
  Tkeyframe* key = c->keyframe(1);
  const TcurveSnapshot start(*c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  ASSERT_TRUE(moveBy(*c, picksOf(*c, {1}), 30, TparamCurve::kMoveKeepOrder));
  ASSERT_TRUE(c->insert(byTicks(150), /*breakdown=*/false, /*allSiblings=*/false));
  ASSERT_TRUE(moveBy(*c, picksOf(*c, {1}), 20, TparamCurve::kMoveKeepOrder, 0.5));
  const TcurveSnapshot end(*c);
  ASSERT_TRUE(action.endParamCurveMod(*c));
  EXPECT_EQ(action.childCount(), 3u);
  for (int round = 0; round < 2; ++round) {
    action.undoPC();
    EXPECT_EQ(describeDifference(start, TcurveSnapshot(*c)), "");
    EXPECT_EQ(c->keyframe(1), key);
    action.redoPC();
    EXPECT_EQ(describeDifference(end, TcurveSnapshot(*c)), "");
  }
}

// A move that leaves a key where it is changes nothing, not even tangents
// that the rules would compute otherwise.
TEST(MoveKeys, AMoveThatMovesNothingChangesNothing) {
  TparamCurve c(/*isFloat=*/true);
  c.add(Tkeyframe(-FLT_MAX, 1.0, kTangentSpline, kTangentFixed));
  c.add(Tkeyframe(0.0f, 2.0, kTangentSpline, kTangentSpline));
  TdoubleArray zero;
  zero.addLast(0.0);
  c.setBlockTangentXValue(0, 0, zero, /*inSide=*/true);  // not the computed tangent
  const TcurveSnapshot before(c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  // -FLT_MAX - 0.125 s is -FLT_MAX again.
  EXPECT_TRUE(c.moveKeys(picksOf(c, {0}), TtimeValue(-0.125f), 0.0, true,
                         TparamCurve::kMoveKeepOrder, false, true, false));
  EXPECT_FALSE(action.endParamCurveMod(c));
  EXPECT_EQ(describeDifference(before, TcurveSnapshot(c)), "");
}

// Keys a few ticks apart far from zero still move in the right order: the
// last key of a forward block goes first, so none stops at another.
TEST(MoveKeys, BlocksFarFromZeroMoveWhole) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/false);
  for (const int t : {-741092397, -741092391, -13605933, -750}) {
    c->add(Tkeyframe(TanimTime(t), 1.0, kTangentSpline, kTangentSpline));
  }
  ASSERT_TRUE(moveBy(*c, picksOf(*c, {0, 1, 2}), 86250, TparamCurve::kMoveKeepOrder));
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{-741006147, -741006141, -13519683, -750}));
}

// Far from zero a tick is smaller than the spacing of floats: a key kept a
// tick from its neighbour still lands apart from it.
TEST(MoveKeys, KeepOrderFarFromZeroStillKeepsKeysApart) {
  TparamCurve c(/*isFloat=*/true);
  for (const float t : {10000.0f, 10001.0f, -FLT_MAX, -FLT_MAX / 2}) c.add(Tkeyframe(t, 1.0));
  ASSERT_TRUE(c.moveKeys(picksOf(c, {3}), TtimeValue(-5.0f), 0.0, true, TparamCurve::kMoveKeepOrder,
                         false, true, false));
  ASSERT_TRUE(c.moveKeys(picksOf(c, {1}), TtimeValue(-FLT_MAX), 0.0, true,
                         TparamCurve::kMoveKeepOrder, false, true, false));
  EXPECT_EQ(c.seconds(3u), std::nextafter(10000.0f, FLT_MAX));
  EXPECT_EQ(c.seconds(1u), std::nextafter(-FLT_MAX, FLT_MAX));
  EXPECT_EQ(checkCurveInvariants(c), "");
}

// Times, values and key objects come back; automatic tangents follow the
// keys (the states they had before the unrecorded move were never recorded).
TEST(MoveDrag, MovesMadeUnrecordedAreRecordedAfterwards) {
  const auto keysOf = [](const TparamCurve& c) {
    std::vector<std::tuple<const Tkeyframe*, std::int32_t, double>> out;
    for (unsigned i = 0; i < c.keyframeCount(); ++i) {
      out.emplace_back(c.keyframe(i), ticks(c, i), c.keyframe(i)->value());
    }
    return out;
  };
  for (const bool rigid : {true, false}) {
    auto c = tickCurve(6);
    TkeyframeHandle a(c.get(), 1u), b(c.get(), 3u);
    TkeyframeHandlePtrArray handles;
    handles.addLast(&a);
    handles.addLast(&b);
    const auto before = keysOf(*c);
    TtimeValueArray starts;
    TdoubleArray values;
    for (TkeyframeHandle* h : {&a, &b}) {
      starts.addLast(h->timeValue());
      values.addLast(h->value());
    }
    ASSERT_TRUE(c->beginEdit(TparamCurve::kEditMoveKeys, handles));
    ASSERT_TRUE(c->moveKeys(handles, starts, byTicks(250), 0.0, TparamCurve::kMovePass, true, true,
                            true, false));
    if (!rigid) c->moveKeyframeInValue(a.index(), 9.0);
    const auto after = keysOf(*c);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(*c);
    c->generateDeltasForMove(handles, starts, &values, nullptr, nullptr, TparamCurve::kMovePass);
    c->endEdit();
    ASSERT_TRUE(action.endParamCurveMod(*c));
    EXPECT_EQ(isDeltaOfType(action.child(0), TPCDdragSegmentTmeta), rigid);
    EXPECT_EQ(action.childCount(), rigid ? 1u : 2u);
    action.undoPC();
    EXPECT_EQ(keysOf(*c), before);
    action.redoPC();
    EXPECT_EQ(keysOf(*c), after);
  }
}

// --- Bad input --------------------------------------------------------------------------------

TEST(MoveBadInput, RefusedMovesChangeNothingAndRecordNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  auto c = tickCurve(5);
  TparamCurve floats(/*isFloat=*/true);
  floats.add(Tkeyframe(0.0f, 1.0));
  TpickKeyDictionary voidPicks = picksOf(*c, {1});
  voidPicks.first()->data().markVoid();
  auto other = tickCurve(3);
  TpickKeyDictionary removed = picksOf(*other, {1});
  other->remove(1);
  TkeyframeHandle h(c.get(), 1u);
  TkeyframeHandlePtrArray handles;
  handles.addLast(&h);
  TtimeValueArray starts;  // no start time for the pick
  TdoubleArray values;
  const TcurveSnapshot before(*c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  const auto bad = static_cast<Toption>(4);
  const auto one = picksOf(*c, {1});
  EXPECT_FALSE(moveBy(*c, TpickKeyDictionary(), 10, TparamCurve::kMovePass));
  EXPECT_FALSE(moveBy(*c, voidPicks, 10, TparamCurve::kMovePass));
  EXPECT_FALSE(moveBy(*c, removed, 10, TparamCurve::kMovePass));
  EXPECT_FALSE(moveBy(*c, one, 10, bad));
  EXPECT_FALSE(moveBy(*c, one, 10, static_cast<Toption>(-1)));
  EXPECT_FALSE(moveBy(*c, one, 10, TparamCurve::kMovePass, nan));
  EXPECT_FALSE(c->moveKeys(one, TtimeValue(1.0f), 0.0, true, TparamCurve::kMovePass, true, true,
                           true));  // seconds on a tick curve
  EXPECT_FALSE(floats.moveKeys(picksOf(floats, {0}), TtimeValue(inf), 0.0, true,
                               TparamCurve::kMovePass, true, true, true));
  EXPECT_FALSE(floats.moveKeyframe(0, TtimeValue(std::nanf("")), 0.0, TparamCurve::kMovePass));
  // The drag and newTimes forms need an open move list, and start times.
  EXPECT_FALSE(c->moveKeys(handles, starts, byTicks(10), 0.0, TparamCurve::kMovePass, true, true,
                           true, false));
  EXPECT_FALSE(c->replaceKeys(handles, starts, starts, TparamCurve::kMovePass));
  EXPECT_FALSE(c->endEdit());
  ASSERT_TRUE(c->beginEdit(TparamCurve::kEditMoveKeys, handles));
  EXPECT_FALSE(c->moveKeys(handles, starts, byTicks(10), 0.0, TparamCurve::kMovePass, true, true,
                           true, false));
  EXPECT_FALSE(c->moveKeys(handles, starts, starts, values, values, TparamCurve::kMovePass, true));
  EXPECT_TRUE(c->endEdit());
  EXPECT_FALSE(c->endEdit());
  EXPECT_FALSE(c->beginEdit(static_cast<TparamCurve::TeditMode>(7), handles));
  EXPECT_FALSE(c->moveKeyframe(99, byTicks(1), 0.0, TparamCurve::kMovePass));
  EXPECT_FALSE(c->moveForDeltaUndoRedo(nullptr, byTicks(1), 0.0, 1.0, TparamCurve::kMovePass));
  EXPECT_FALSE(c->canMove(TkeyframeHandlePtrArray(), byTicks(1), 0.0, true, bad));
  c->generateDeltasForMove(handles, starts, nullptr, nullptr, nullptr, TparamCurve::kMovePass);
  EXPECT_FALSE(action.endParamCurveMod(*c));
  EXPECT_EQ(describeDifference(before, TcurveSnapshot(*c)), "");
  EXPECT_FALSE(c->isEdit());
}

// An observer that tries to edit, or to end the edit, from inside the curve's
// own messages: every such call is refused while the move runs.
TEST(MoveBadInput, ObserversCannotPullTheMoveListFromUnderAMove) {
  auto c = tickCurve(6);
  struct Tmeddler : Tclient {
    TparamCurve* curve = nullptr;
    unsigned refused = 0;
    static void hear(Tclient* self, TclientServer*, const TserverMsg&) {
      auto* m = static_cast<Tmeddler*>(self);
      TparamCurve& c = *m->curve;
      m->refused += !c.endEdit();
      m->refused += !c.beginEdit(TparamCurve::kEditMoveKeys, TpickKeyDictionary());
      m->refused += !c.moveKeyframe(0, TtimeValue(TanimTime(-5)), 0.0, TparamCurve::kMovePass);
      c.endMoveKeys();
      c.flushBreakdownCache();
      (void)c.evaluate(TtimeValue(TanimTime(50)));
    }
  } meddler;
  meddler.curve = c.get();
  c->addClient(&meddler, TparamCurveModifiedMsgTmeta, &Tmeddler::hear);
  c->addClient(&meddler, TkeyframeMovedMsgTmeta, &Tmeddler::hear);
  c->setBreakdown(2, true);
  EXPECT_TRUE(moveBy(*c, picksOf(*c, {1, 3, 4}), 30, TparamCurve::kMovePass));
  EXPECT_EQ(meddler.refused % 3, 0u);
  EXPECT_GT(meddler.refused, 0u);
  EXPECT_EQ(allTicks(*c), (std::vector<std::int32_t>{0, 130, 230, 330, 430, 500}));
  c->removeClient(&meddler);
}

TEST(MoveKeys, TangentTypesOfASelection) {
  auto c = tickCurve(4);
  auto picks = picksOf(*c, {1});
  TpickKey inOnly;
  ASSERT_EQ(inOnly.create(c.get(), 2u, TbitField32(TpickKey::kPickInTangent)), 0);
  picks.insert(inOnly.time(), inOnly);
  EXPECT_TRUE(c->setTangentType(picks, kTangentFlat, kTangentLinear, true, true));
  EXPECT_EQ(std::tuple(c->keyframe(1)->tanInType(), c->keyframe(1)->tanOutType(),
                       c->keyframe(2)->tanInType(), c->keyframe(2)->tanOutType()),
            std::tuple(kTangentFlat, kTangentLinear, kTangentFlat, kTangentSpline));
}

}  // namespace
}  // namespace lumora

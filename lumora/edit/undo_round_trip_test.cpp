// Undo and redo of key edits put every key back bit for bit, and bad input
// changes nothing.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <tuple>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/key_deltas.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

// Every stored field of every key and the key objects, selection aside: undo
// records leave the selection to the key object.
TcurveSnapshot stateOf(const TparamCurve& c) {
  return TcurveSnapshot(c, ~TcurveSnapshot::kSelectionFlags);
}

// A unit direction that ThermiteSegmentEvaluator moves by a bit when it
// normalises it a second time.
bool unstableDirection(float& x, float& y) {
  for (float a = 0.1f; a < 10.0f; a += 0.37f) {
    for (float b = 0.1f; b < 10.0f; b += 0.13f) {
      float tx = 0.0f, ty = 0.0f;
      ThermiteSegmentEvaluator::directionToStorage(a, b, x, y);
      ThermiteSegmentEvaluator::directionToStorage(x, y, tx, ty);
      if (tx != x || ty != y) return true;
    }
  }
  return false;
}

// A non-weighted float curve with keys at 0, 1, 2 and 3 s (values 0, 2, 4, 1).
std::unique_ptr<TparamCurve> makeCurve(TtangentType type) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(false);
  for (int i = 0; i < 4; ++i) c->add(Tkeyframe(static_cast<float>(i), (i * 7) % 5, type, type));
  return c;
}

// Records `edit` in `action` (a new one unless given), then checks that undo
// gives back the state before it and redo the state after it, three times over.
template <typename Edit, typename Action = TparamCurveDeltaUser>
void expectRoundTrip(TparamCurve& c, Edit edit, Action&& action = Action()) {
  const auto before = stateOf(c);
  action.beginParamCurveMod(c);
  edit();
  const auto after = stateOf(c);
  ASSERT_TRUE(action.endParamCurveMod(c));
  for (int round = 0; round < 3; ++round) {
    action.undoPC();
    EXPECT_EQ(describeDifference(before, stateOf(c)), "") << "undo " << round;
    action.redoPC();
    EXPECT_EQ(describeDifference(after, stateOf(c)), "") << "redo " << round;
  }
}

TEST(KeyEditUndo, RestoresEveryKeyBitwise) {
  float x = 0.0f, y = 0.0f;
  ASSERT_TRUE(unstableDirection(x, y));
  auto c = makeCurve(kTangentFixed);
  c->keyframe(1)->setTanOut(x, y);
  c->keyframe(2)->setTanIn(x, y);
  // Shape-keeping insertion next to fixed unit tangents, and drags of them.
  expectRoundTrip(*c, [&] { c->insert(TtimeValue(1.5f), false, false); });
  expectRoundTrip(*c, [&] { c->dragTangent(1, x, y * 2.0f, false); });
  // Removing the first key leaves the new first key's tangents alone;
  // adding one in front recomputes them.
  c = makeCurve(kTangentSpline);
  TkeyframeHandle handle(c.get(), c->keyframe(0), /*makeClient=*/true);
  TparamCurveDeltaUser removal;
  expectRoundTrip(
      *c, [&] { c->remove(0); }, removal);
  EXPECT_FALSE(handle.isValid());
  removal.undoPC();  // the same key object comes back, and handles to it with it
  EXPECT_TRUE(handle.isValid());
  removal.redoPC();
  expectRoundTrip(*c, [&] { c->add(Tkeyframe(-1.0f, 4.0, kTangentSpline, kTangentSpline)); });
  // Several kinds of edit in one action: added, overwritten, inserted keeping
  // the shape, tangent dragged, removed.
  expectRoundTrip(*c, [&] {
    EXPECT_TRUE(c->add(Tkeyframe(4.0f, 30.0, kTangentSpline, kTangentSpline)) &&
                c->add(Tkeyframe(1.0f, 15.0, kTangentFlat, kTangentFlat)) &&
                c->insert(Tkeyframe(0.5f, 0.0), /*keepShape=*/true, false) &&
                c->dragTangent(2, 1.0f, 4.0f, /*inSide=*/false));
    c->remove(0);
  });
  // Weighted keys keep their handle lengths through undo.
  auto weighted = makeCurve(kTangentSpline);
  weighted->setIsWeighted(true);
  expectRoundTrip(*weighted, [&] {
    EXPECT_TRUE(weighted->insert(Tkeyframe(2.5f, 1.0), /*keepShape=*/false, false));
    weighted->remove(1);
  });
  // Undoing twice is undoing once.
  const auto before = stateOf(*c);
  TparamCurveDeltaUser overwrite;
  expectRoundTrip(
      *c, [&] { c->add(Tkeyframe(1.0f, -6.0, kTangentFlat, kTangentFlat)); }, overwrite);
  overwrite.undoPC();
  overwrite.undoPC();
  EXPECT_EQ(describeDifference(before, stateOf(*c)), "");
  // The first key of an empty curve keeps the tangents it was given.
  TparamCurve empty(/*isFloat=*/true);
  expectRoundTrip(empty, [&] { empty.add(Tkeyframe(1.0f, 2.0, kTangentLinear, kTangentLinear)); });
}

TEST(KeyEditUndo, TypeChangeBesideLinearSpanRestoresVector) {
  auto c = makeCurve(kTangentLinear);
  c->setTanInType(1, kTangentFixed);
  c->keyframe(1)->setTanIn(0.6f, 0.8f);
  ASSERT_EQ(c->keyframe(1)->interpMethod(), Tkeyframe::kSpanLinear);
  ASSERT_FALSE(c->dragTangent(1, 1.0f, 0.0f, /*inSide=*/true));  // refused there
  expectRoundTrip(*c, [&] { c->setTanInType(1, kTangentFlat); });
}

TEST(KeyEditUndo, SnapshotKeepsSpanMethodsAndSelection) {
  auto c = makeCurve(kTangentLinear);
  Tint16Array fixed;
  fixed.addLast(kTangentFixed);
  ASSERT_TRUE(c->setBlockTanType(1, 1, fixed, /*inSide=*/false));  // span bit left as it was
  expectRoundTrip(*c, [&] {
    c->generateCurveDeltas();
    c->add(Tkeyframe(0.5f, 9.0, kTangentSpline, kTangentSpline));
  });
  // Edits made after the snapshot are swapped out by undo, but the selection stays.
  TparamCurveDeltaUser action;
  expectRoundTrip(
      *c, [&] { c->generateCurveDeltas(); }, action);
  const auto before = stateOf(*c);
  c->setValue(1, 99.0);
  c->keyframe(1)->setTanOut(2.0f, 3.0f);
  c->keyframe(1)->setActive(TbitField32(TpickKey::kPickKey), true);
  action.undoPC();
  EXPECT_EQ(describeDifference(before, stateOf(*c)), "");
  EXPECT_TRUE(c->keyframe(1)->isKeyframeActive());
  action.redoPC();
  EXPECT_EQ(c->keyframe(1)->value(), 99.0);
}

TEST(KeyEditUndo, ConsecutiveDragsOfOneKeyMergeIntoOneAtTheEnd) {
  auto c = makeCurve(kTangentSpline);
  Tkeyframe* const key = c->keyframe(0);
  TkeyframeHandle handle(c.get(), key, /*makeClient=*/true);
  const auto drag = [&](float from, float to, double oldValue, double newValue) {
    auto* d = new TPCDdragKey(c.get(), new TkeyframeHandle(handle), from, to, oldValue, newValue,
                              1.0, 1.0, 0);
    d->redo();  // performs the drag it describes
    TparamCurveTestAccess::addDelta(*c, d, false);
    return d;
  };
  TparamCurveDeltaUser action;
  TPCDdragKey* second = nullptr;
  expectRoundTrip(
      *c,
      [&] {
        drag(0.0f, 0.5f, 0.0, 5.0);
        c->setPreInfinityType(TparamCurve::kLinear);  // another delta in between
        second = drag(0.5f, 1.5f, 5.0, 7.0);          // past the key at 1 s: the key changes places
      },
      action);
  ASSERT_EQ(action.childCount(), 2u);
  EXPECT_EQ(std::tuple(action.child(1), second->oldTime(), second->oldValue(), c->keyframe(1),
                       key->timeAsFloat(), key->value(), handle.isValid()),
            std::tuple(second, TtimeValue(0.0f), 0.0, key, 1.5f, 7.0, true));
}

TEST(KeyEditUndo, BlockDeltaTakesKeysOutByListOrByRange) {
  auto c = makeCurve(kTangentSpline);
  TanimTimeArray times;
  TdoubleArray values;
  for (int i = 4; i < 7; ++i) {
    times.addLast(TanimTime(6000 * i));
    values.addLast(10.0 * i);
  }
  const auto before = stateOf(*c);
  ASSERT_TRUE(c->blockAdd(times, values, kTangentSpline, kTangentSpline));
  TPCDblockAddRemoveKey added(c.get(), TPCDblockAddRemoveKey::kBlockAdded, &times, &values,
                              kTangentSpline, kTangentSpline, /*ownsArrays=*/false);
  added.undo();
  EXPECT_EQ(describeDifference(before, stateOf(*c)), "");
  added.redo();
  ASSERT_EQ(c->keyframeCount(), 7u);
  EXPECT_EQ(c->keyframe(5)->value(), 50.0);
  added.setRangeMode(2.5f, 5.0f);  // takes the keys at 3, 4 and 5 s
  added.undo();
  ASSERT_EQ(c->keyframeCount(), 4u);
  EXPECT_EQ(c->keyframe(3)->value(), 60.0);
}

TEST(KeyEditBadInput, NonFiniteValuesAreRefused) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  auto c = makeCurve(kTangentSpline);
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(0), 1.0));
  const auto before = stateOf(*c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  EXPECT_FALSE(c->dragTangent(1, nan, 1.0f, false));
  EXPECT_FALSE(c->dragTangent(1, 1.0f, inf, true));
  EXPECT_FALSE(action.endParamCurveMod(*c));  // nothing recorded
  EXPECT_EQ(describeDifference(before, stateOf(*c)), "");
  EXPECT_FALSE(ticks.insert(TtimeValue(nan), false, false));
  EXPECT_FALSE(ticks.insert(TtimeValue(inf), false, false));
  EXPECT_EQ(ticks.keyframeCount(), 1u);
}

}  // namespace
}  // namespace lumora

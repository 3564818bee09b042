// Undo gives back the curve bit for bit, and redo repeats the edit, even
// where the rules would compute the keys around an edit differently from
// what they held: tangents written directly, handle lengths one weighting
// mode cannot hold, vectors the evaluator normalises, keys that entered
// without an undo record.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/param_curve_delta.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

// Records `edit` as one action, then undoes and redoes it twice, comparing
// the whole curve with its state before and after the edit each time.
template <typename Edit>
void expectExactRoundTrip(TparamCurve& c, Edit edit, const char* what) {
  const TcurveSnapshot before(c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  edit();
  action.endParamCurveMod(c);
  const TcurveSnapshot after(c);
  for (int round = 0; round < 2; ++round) {
    action.undoPC();
    EXPECT_EQ(describeDifference(before, TcurveSnapshot(c)), "") << what << ": undo " << round;
    action.redoPC();
    EXPECT_EQ(describeDifference(after, TcurveSnapshot(c)), "") << what << ": redo " << round;
  }
}

// Spline keys at 0..5 s whose out tangents were then written directly, so
// that none of them follows its rule any more.
std::unique_ptr<TparamCurve> curveWithWrittenTangents(bool weighted) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(weighted);
  for (int i = 0; i < 6; ++i) {
    c->add(Tkeyframe(static_cast<float>(i), (i * 7) % 4, kTangentSpline, kTangentSpline));
  }
  TdoubleArray ys;
  for (int i = 0; i < 6; ++i) ys.addLast(0.25 * i - 0.6);
  c->setBlockTangentYValue(0, 5, ys, /*inSide=*/false);
  c->setBlockTangentYValue(0, 5, ys, /*inSide=*/true);
  return c;
}

TEST(ExactUndo, EditsBesideKeysThatDoNotFollowTheirRules) {
  for (const bool weighted : {false, true}) {
    auto c = curveWithWrittenTangents(weighted);
    expectExactRoundTrip(
        *c, [&] { c->insert(c->makeTimeValue(2.5f), false, false); }, "insert keeping shape");
    expectExactRoundTrip(
        *c, [&] { c->insert(Tkeyframe(3.5f, 9.0), /*keepShape=*/false, false); }, "insert");
    expectExactRoundTrip(
        *c, [&] { c->add(Tkeyframe(4.25f, -2.0)); }, "add");
    expectExactRoundTrip(
        *c, [&] { c->add(Tkeyframe(1.0f, 7.0)); }, "overwrite");
    expectExactRoundTrip(
        *c, [&] { c->remove(0); }, "remove the first key");
    expectExactRoundTrip(
        *c, [&] { c->remove(2); }, "remove");
    expectExactRoundTrip(
        *c, [&] { c->setTanOutType(1, kTangentFlat); }, "type");
    expectExactRoundTrip(
        *c, [&] { c->dragTangent(2, 0.3f, 0.7f, true); }, "drag");
  }
}

TEST(ExactUndo, KeysLoadedWithFixedTypesKeepTheirTangents) {
  TparamCurve c(false);
  TanimTimeArray times;
  TdoubleArray values;
  for (int i = 0; i < 5; ++i) {
    times.addLast(TanimTime(1000 * i));
    values.addLast(i % 2 ? 3.0 : -1.0);
  }
  // A fixed in side computes no tangents at all, whatever the out side.
  ASSERT_TRUE(c.blockAdd(times, values, kTangentFixed, kTangentSpline));
  expectExactRoundTrip(
      c, [&] { c.add(Tkeyframe(TanimTime(2500), 5.0)); }, "add");
  expectExactRoundTrip(
      c, [&] { c.remove(1); }, "remove");
}

TEST(ExactUndo, WeightingBackAndForthKeepsFixedHandleLengths) {
  TparamCurve c(true);
  c.setIsWeighted(true);
  for (int i = 0; i < 4; ++i) c.add(Tkeyframe(static_cast<float>(i), i * 1.5));
  for (unsigned i = 0; i < 4; ++i) c.dragTangent(i, 0.9f - 0.2f * i, 0.4f * i, /*inSide=*/false);
  expectExactRoundTrip(
      c, [&] { c.setIsWeighted(false); }, "unweight");
  expectExactRoundTrip(
      c,
      [&] {
        c.setIsWeighted(false);
        c.setIsWeighted(true);
      },
      "unweight and weight again");
}

TEST(ExactUndo, RedoneOverwriteClearsTheStaticFlag) {
  TparamCurve c(true);
  c.add(Tkeyframe(0.0f, 2.0, kTangentFlat, kTangentFlat));
  c.add(Tkeyframe(1.0f, 2.0, kTangentFlat, kTangentFlat));
  ASSERT_TRUE(c.staticCurve());
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  c.add(Tkeyframe(1.0f, 6.0, kTangentFlat, kTangentFlat));
  action.endParamCurveMod(c);
  action.undoPC();
  EXPECT_TRUE(c.staticCurve());
  action.redoPC();
  EXPECT_FALSE(c.staticCurve());
  EXPECT_EQ(c.evaluate(1.0f), 6.0);
}

TEST(ExactUndo, SettingATypeThatIsStoredAlreadyUndoesToTheSameSide) {
  // Type 0 stands for the preference default and an unknown type is stored
  // as spline: both leave a spline side as it was, and so must undo.
  for (const int type : {0, 42}) {
    TparamCurve c(true);
    for (int i = 0; i < 3; ++i) c.add(Tkeyframe(static_cast<float>(i), i * i, kTangentSpline));
    expectExactRoundTrip(
        c, [&] { c.setTanInType(1, static_cast<TtangentType>(type)); }, "type");
    EXPECT_EQ(c.keyframe(1)->tanInType(), kTangentSpline) << type;
  }
}

TEST(ExactUndo, SnapshotKeepsKeysThatARemovalStillHolds) {
  // A key enters without an undo record, after a snapshot, and is then
  // removed with one. Undoing the snapshot must not delete the key the
  // removal holds; redo must bring everything back in order.
  TparamCurve c(true);
  for (int i = 0; i < 3; ++i) c.add(Tkeyframe(static_cast<float>(i), i));
  const TcurveSnapshot start(c);
  auto action = std::make_unique<TparamCurveDeltaUser>();
  action->beginParamCurveMod(c);
  c.generateCurveDeltas();
  TdoubleArray times, values;
  times.addLast(5.0);
  values.addLast(8.0);
  ASSERT_TRUE(c.blockAdd(Tkeyframe(), &times, &values));
  Tkeyframe* loaded = c.keyframe(3);
  const TkeyframeHandle handle(&c, loaded, /*makeClient=*/true);
  c.remove(3);
  action->endParamCurveMod(c);
  const TcurveSnapshot end(c);
  action->undoPC();
  EXPECT_EQ(describeDifference(start, TcurveSnapshot(c)), "");
  EXPECT_EQ(handle.value(), 8.0);  // kept outside the curve, not deleted
  action->redoPC();
  EXPECT_EQ(describeDifference(end, TcurveSnapshot(c)), "");
  action->undoPC();
  action.reset();  // whoever holds the key last deletes it, once
  EXPECT_EQ(handle.keyframe(), nullptr);
  EXPECT_EQ(describeDifference(start, TcurveSnapshot(c)), "");
}

TEST(ExactUndo, RecordsSkipKeysDeletedBehindTheirBacks) {
  // Removals in block-add mode record nothing and delete at once: the
  // records of the earlier edits of those keys must not read them again.
  TparamCurve c(true);
  c.add(Tkeyframe(0.0f, 1.0));
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  c.add(Tkeyframe(1.0f, 2.0));                    // added
  c.add(Tkeyframe(0.0f, 3.0));                    // overwritten
  c.insert(c.makeTimeValue(0.5f), false, false);  // inserted keeping the shape
  c.setBlockAddMode(true);
  while (c.keyframeCount() > 0) c.remove(0);
  c.setBlockAddMode(false);
  action.endParamCurveMod(c);
  action.undoPC();
  action.redoPC();
  EXPECT_EQ(c.keyframeCount(), 0u);
}

}  // namespace
}  // namespace lumora

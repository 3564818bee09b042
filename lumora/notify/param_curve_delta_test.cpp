#include "lumora/notify/param_curve_delta.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/delta_module.h"

namespace lumora {
namespace {

using Access = TparamCurveTestAccess;

// A curve delta that writes what happens to it into a shared log.
class TloggingDelta : public TparamCurveDelta {
 public:
  TloggingDelta(std::vector<std::string>& log, std::string name)
      : TparamCurveDelta(nullptr), fLog(log), fName(std::move(name)) {}
  ~TloggingDelta() override { fLog.push_back("~" + fName); }
  void undo() override { fLog.push_back("u" + fName), setUndone(true); }
  void redo() override { fLog.push_back("r" + fName), setUndone(false); }

 private:
  std::vector<std::string>& fLog;
  std::string fName;
};

TPCDdragKey* drag(TparamCurve* curve, TtimeValue from, TtimeValue to, double oldValue,
                  double newValue, TkeyframeHandle* handle = nullptr) {
  return new TPCDdragKey(curve, handle, from, to, oldValue, newValue, 1.0, 1.0, 0);
}

// Everything undo must put back, key by key, compared bitwise.
using TkeyState = std::tuple<Tkeyframe*, std::int32_t, double, std::uint32_t, float, float, float,
                             float, TtangentType, TtangentType>;

std::vector<TkeyState> stateOf(const TparamCurve& curve) {
  std::vector<TkeyState> state;
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    Tkeyframe* k = curve.keyframe(i);
    TkeyState& s = state.emplace_back(k, k->timeAsTicks(), k->value(), k->flags().bits(), 0.0f,
                                      0.0f, 0.0f, 0.0f, k->tanInType(), k->tanOutType());
    k->getTanIn(std::get<4>(s), std::get<5>(s));
    k->getTanOut(std::get<6>(s), std::get<7>(s));
  }
  return state;
}

// A float curve with keys at 0, 1 and 2 s (values 0, 10, 20).
class CurveDeltas : public ::testing::Test {
 protected:
  void SetUp() override {
    internal::startDeltaRecords();  // normally done when the library loads
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(
          curve.add(Tkeyframe(static_cast<float>(i), 10.0 * i, kTangentSpline, kTangentSpline)));
    }
    for (unsigned i = 0; i < 3; ++i) keys[i] = curve.keyframe(i);
  }

  std::vector<std::string> log;
  TparamCurve curve{/*isFloat=*/true};
  Tkeyframe* keys[3] = {};
  TparamCurveDeltaUser action;
};

// --- Composites --------------------------------------------------------------------------

// Undo runs backward, redo forward; children are deleted in the order of the state.
TEST_F(CurveDeltas, CompositeOrdersUndoRedoAndDeletion) {
  {
    TparamCurveDeltaComp done, undone;
    for (const char* name : {"a", "b", "c"}) done.addLast(new TloggingDelta(log, name));
    for (const char* name : {"d", "e"}) undone.addLast(new TloggingDelta(log, name));
    done.undo();
    EXPECT_TRUE(done.isUndone());
    done.redo();
    EXPECT_FALSE(done.isUndone());
    undone.undo();
  }
  EXPECT_EQ(log, (std::vector<std::string>{"uc", "ub", "ua", "ra", "rb", "rc", "ue", "ud", "~e",
                                           "~d", "~a", "~b", "~c"}));
}

// --- Recording into the curve ------------------------------------------------------------

TEST_F(CurveDeltas, AddDeltaRecordsOnlyWhileInModification) {
  EXPECT_TRUE(Access::addDelta(curve, nullptr, /*atEnd=*/true));
  EXPECT_FALSE(Access::addDelta(curve, nullptr, /*atEnd=*/false));

  auto* ignored = new TloggingDelta(log, "x");  // not recording: stays ours
  EXPECT_FALSE(Access::addDelta(curve, ignored, false));
  EXPECT_EQ(curve.currentDelta(), nullptr);
  delete ignored;

  curve.beginMod();
  auto* first = new TloggingDelta(log, "a");
  EXPECT_TRUE(Access::addDelta(curve, first, false));
  EXPECT_EQ(curve.currentDelta(), first);  // a single delta is kept as it is

  EXPECT_TRUE(Access::addDelta(curve, new TloggingDelta(log, "b"), false));
  ASSERT_TRUE(isDeltaOfType(curve.currentDelta(), TparamCurveDeltaCompTmeta));
  const auto* composite = static_cast<const TparamCurveDeltaComp*>(curve.currentDelta());
  EXPECT_EQ(composite->child(0), first);

  EXPECT_FALSE(Access::addDelta(curve, new TloggingDelta(log, "c"), false));
  auto* appended = new TloggingDelta(log, "d");
  EXPECT_TRUE(Access::addDelta(curve, appended, true));
  EXPECT_EQ(std::tuple(curve.currentDelta(), composite->childCount(), composite->child(3)),
            std::tuple(composite, 4u, appended));

  delete curve.endMod();
  EXPECT_EQ(log, (std::vector<std::string>{"~x", "~a", "~b", "~c", "~d"}));
}

TEST_F(CurveDeltas, EndParamCurveModFlattensTheCurvesComposite) {
  EXPECT_FALSE(action.endParamCurveMod(curve));  // not in modification

  action.beginParamCurveMod(curve);
  EXPECT_TRUE(curve.isMod());
  EXPECT_FALSE(action.endParamCurveMod(curve) || curve.isMod());  // nothing recorded

  action.beginParamCurveMod(curve);
  curve.setPreInfinityType(TparamCurve::kLinear);
  curve.setPostInfinityType(TparamCurve::kCycle);
  curve.setRotationInterpolation(TparamCurve::kSynchronizedEuler);
  ASSERT_TRUE(isDeltaOfType(curve.currentDelta(), TparamCurveDeltaCompTmeta));
  EXPECT_TRUE(action.endParamCurveMod(curve));

  EXPECT_EQ(curve.currentDelta(), nullptr);
  ASSERT_EQ(action.childCount(), 3u);
  for (unsigned i = 0; i < action.childCount(); ++i) {
    EXPECT_FALSE(isDeltaOfType(action.child(i), TdeltaCompositeTmeta)) << i;
  }
  EXPECT_TRUE(isDeltaOfType(action.child(0), TPCDinfinityTypeTmeta));
  EXPECT_TRUE(isDeltaOfType(action.child(2), TPCDrotationInterpolationTmeta));
}

// --- Merging drags -----------------------------------------------------------------------

TEST_F(CurveDeltas, ConsecutiveDragsOfOneKeyMergeIntoOneAtTheEnd) {
  TkeyframeHandle handle(&curve, keys[0], /*makeClient=*/true);
  const std::vector<TkeyState> initial = stateOf(curve);
  action.beginParamCurveMod(curve);
  TPCDdragKey* first = drag(&curve, 0.0f, 0.5f, 0.0, 5.0, new TkeyframeHandle(handle));
  first->redo();  // performs the drag it describes
  Access::addDelta(curve, first, false);
  Access::addDelta(curve, new TloggingDelta(log, "between"), false);
  // Ends past the key at 1 s, so the key object changes places.
  TPCDdragKey* second = drag(&curve, 0.5f, 1.5f, 5.0, 7.0, new TkeyframeHandle(handle));
  second->redo();
  Access::addDelta(curve, second, false);
  ASSERT_TRUE(action.endParamCurveMod(curve));

  ASSERT_EQ(action.childCount(), 2u);
  EXPECT_EQ(std::tuple(action.child(1), second->oldTime(), second->oldValue(), curve.keyframe(1)),
            std::tuple(second, TtimeValue(0.0f), 0.0, keys[0]));
  const std::vector<TkeyState> dragged = stateOf(curve);
  action.undoPC();
  EXPECT_EQ(stateOf(curve), initial);
  EXPECT_TRUE(handle.isValid());
  action.redoPC();
  EXPECT_EQ(stateOf(curve), dragged);
  EXPECT_EQ(std::tuple(keys[0]->timeAsFloat(), keys[0]->value()), std::tuple(1.5f, 7.0));
}

TEST_F(CurveDeltas, DragsThatDoNotContinueEachOtherStaySeparate) {
  TparamCurve other(/*isFloat=*/true);
  // What the second drag differs in, and the children that result.
  const std::tuple<const char*, TparamCurve*, TtimeValue, double, unsigned> cases[] = {
      {"continues", &curve, 1.0f, 5.0 + 5e-11, 1u},
      {"value 1e-9 apart", &curve, 1.0f, 5.0 + 1e-9, 2u},
      {"time apart", &curve, 1.00001f, 5.0, 2u},
      {"other curve", &other, 1.0f, 5.0, 2u},
  };
  for (const auto& [what, secondCurve, start, startValue, children] : cases) {
    TparamCurveDeltaComp composite;
    Tdelta& target = composite;  // offered as plain deltas, the way a curve offers them
    target.merge(drag(&curve, 0.0f, 1.0f, 0.0, 5.0));
    target.merge(drag(secondCurve, start, 2.0f, startValue, 9.0));
    EXPECT_EQ(composite.childCount(), children) << what;
  }
  curve.beginMod();  // appending at the end never merges
  Access::addDelta(curve, drag(&curve, 0.0f, 1.0f, 0.0, 5.0), true);
  Access::addDelta(curve, drag(&curve, 1.0f, 2.0f, 5.0, 9.0), true);
  const auto* composite = static_cast<const TparamCurveDeltaComp*>(curve.currentDelta());
  ASSERT_TRUE(isDeltaOfType(composite, TparamCurveDeltaCompTmeta));
  EXPECT_EQ(composite->childCount(), 2u);
  delete curve.endMod();
}

// --- Round trips through undo and redo ---------------------------------------------------

TEST_F(CurveDeltas, SettingsRoundTrip) {
  const bool weighted = curve.isWeighted();
  action.beginParamCurveMod(curve);
  curve.setPostInfinityType(TparamCurve::kCycle);
  curve.setIsWeighted(!weighted);
  curve.setRotationInterpolation(TparamCurve::kQuaternion);
  curve.setRotationInterpolation(static_cast<TparamCurve::TrotationInterpolation>(7));
  ASSERT_TRUE(action.endParamCurveMod(curve));
  EXPECT_EQ(action.childCount(), 3u);  // the invalid mode is neither stored nor recorded

  const auto settings = [&] {
    return std::tuple(curve.postInfinityType(), curve.isWeighted(),
                      curve.getRotationInterpolation());
  };
  action.undoPC();
  EXPECT_EQ(settings(), std::tuple(TparamCurve::kConstant, weighted, TparamCurve::kEuler));
  action.redoPC();
  EXPECT_EQ(settings(), std::tuple(TparamCurve::kCycle, !weighted, TparamCurve::kQuaternion));
  action.undoPC();  // the weighting toggle works both ways more than once
  EXPECT_EQ(curve.isWeighted(), weighted);
}

TEST_F(CurveDeltas, UndoingARemovalBringsBackTheSameKeyObject) {
  TkeyframeHandle handle(&curve, keys[1], /*makeClient=*/true);
  action.beginParamCurveMod(curve);
  curve.remove(1);
  ASSERT_TRUE(action.endParamCurveMod(curve));
  EXPECT_FALSE(handle.isValid());

  action.undoPC();
  EXPECT_EQ(std::tuple(curve.keyframeCount(), curve.keyframe(1), handle.isValid()),
            std::tuple(3u, keys[1], true));
  action.redoPC();  // out again; the action owns it from here on
  EXPECT_EQ(std::tuple(curve.keyframeCount(), handle.isValid()), std::tuple(2u, false));
}

TEST_F(CurveDeltas, CurveSnapshotSwapsEveryKeyBackAndKeepsSelection) {
  action.beginParamCurveMod(curve);
  curve.generateCurveDeltas();
  ASSERT_TRUE(action.endParamCurveMod(curve));
  std::vector<TkeyState> before = stateOf(curve);
  curve.setValue(1, 99.0);
  keys[1]->setTanOut(2.0f, 3.0f);
  keys[1]->setActive(TbitField32(TpickKey::kPickKey), true);
  std::get<3>(before[1]) = keys[1]->flags().bits();  // the selection is kept

  action.undoPC();
  EXPECT_EQ(stateOf(curve), before);
  EXPECT_TRUE(keys[1]->isKeyframeActive());

  action.redoPC();
  EXPECT_EQ(keys[1]->value(), 99.0);
}

TEST_F(CurveDeltas, KeyEditsOfOneActionRoundTripExactly) {
  const std::vector<TkeyState> initial = stateOf(curve);
  action.beginParamCurveMod(curve);
  ASSERT_TRUE(curve.add(Tkeyframe(3.0f, 30.0, kTangentSpline, kTangentSpline)));  // added
  ASSERT_TRUE(curve.add(Tkeyframe(1.0f, 15.0, kTangentFlat, kTangentFlat)));      // overwritten
  ASSERT_TRUE(curve.insert(Tkeyframe(0.5f, 0.0), /*keepShape=*/true, false));     // shape kept
  ASSERT_TRUE(curve.dragTangent(2, 1.0f, 4.0f, /*inSide=*/false));
  curve.remove(0);
  ASSERT_TRUE(action.endParamCurveMod(curve));
  const std::vector<TkeyState> edited = stateOf(curve);

  action.undoPC();
  EXPECT_EQ(stateOf(curve), initial);
  action.redoPC();
  EXPECT_EQ(stateOf(curve), edited);
  action.undoPC();
  EXPECT_EQ(stateOf(curve), initial);
}

TEST_F(CurveDeltas, BlockDeltaTakesKeysOutByListOrByRange) {
  TanimTimeArray times;
  TdoubleArray values;
  for (int i = 3; i < 6; ++i) {
    times.addLast(TanimTime(6000 * i));
    values.addLast(10.0 * i);
  }
  const std::vector<TkeyState> initial = stateOf(curve);
  ASSERT_TRUE(curve.blockAdd(times, values, kTangentSpline, kTangentSpline));
  TPCDblockAddRemoveKey added(&curve, TPCDblockAddRemoveKey::kBlockAdded, &times, &values,
                              kTangentSpline, kTangentSpline, /*ownsArrays=*/false);
  added.undo();
  EXPECT_EQ(stateOf(curve), initial);
  added.redo();
  ASSERT_EQ(curve.keyframeCount(), 6u);
  EXPECT_EQ(curve.keyframe(4)->value(), 40.0);

  added.setRangeMode(1.5f, 4.0f);  // takes the keys at 2, 3 and 4 s
  added.undo();
  ASSERT_EQ(curve.keyframeCount(), 3u);
  EXPECT_EQ(curve.keyframe(2)->value(), 50.0);
}

// --- Type records ------------------------------------------------------------------------

TEST_F(CurveDeltas, RecordsFollowTheClassTree) {
  const std::tuple<Tmetaclass*, const char*, Tmetaclass*> rows[] = {
      {TdeltaTmeta, "Tdelta", nullptr},
      {TdeltaCompositeTmeta, "TdeltaComposite", TdeltaTmeta},
      {TparamCurveDeltaTmeta, "TparamCurveDelta", TdeltaTmeta},
      {TPCDinfinityTypeTmeta, "TPCDinfinityType", TparamCurveDeltaTmeta},
      {TPCDblockAddRemoveKeyTmeta, "TPCDblockAddRemoveKey", TparamCurveDeltaTmeta},
      {TPCDaddRemoveKeyTmeta, "TPCDaddRemoveKey", TparamCurveDeltaTmeta},
      {TPCDinsertKeyTmeta, "TPCDinsertKey", TparamCurveDeltaTmeta},
      {TPCDscaleKeyTmeta, "TPCDscaleKey", TparamCurveDeltaTmeta},
      {TPCDdragKeyTmeta, "TPCDdragKey", TparamCurveDeltaTmeta},
      {TPCDdragSegmentTmeta, "TPCDdragSegment", TparamCurveDeltaTmeta},
      {TPCDdragTanTmeta, "TPCDdragTan", TparamCurveDeltaTmeta},
      {TPCDcurveDeltaTmeta, "TPCDcurveDelta", TparamCurveDeltaTmeta},
      {TPCDweightedTangentsTmeta, "TPCDweightedTangents", TparamCurveDeltaTmeta},
      {TPCDbreakdownTmeta, "TPCDbreakdown", TparamCurveDeltaTmeta},
      {TPCDrotationInterpolationTmeta, "TPCDrotationInterpolation", TparamCurveDeltaTmeta},
      {TparamCurveDeltaCompTmeta, "TparamCurveDeltaComp", TdeltaCompositeTmeta},
  };
  for (const auto& [record, name, parent] : rows) {
    ASSERT_NE(record, nullptr) << name;
    EXPECT_STREQ(record->name(), name);
    EXPECT_EQ(record->parent(), parent) << name;
  }
  // The host's composite has no record of its own.
  EXPECT_EQ(action.typeof(), TparamCurveDeltaCompTmeta);
  TPCDdragTan tan(&curve, 0, true, kTangentSpline, kTangentFixed, 0.0f, 0.0f, 1.0f, 1.0f);
  EXPECT_EQ(tan.cast(TparamCurveDeltaTmeta), static_cast<TparamCurveDelta*>(&tan));
  EXPECT_EQ(tan.cast(TdeltaCompositeTmeta), nullptr);
  internal::stopDeltaRecords();
  EXPECT_EQ(TPCDdragKeyTmeta, nullptr);
  EXPECT_FALSE(isDeltaOfType(&tan, TparamCurveDeltaTmeta));
  internal::startDeltaRecords();
  EXPECT_TRUE(isDeltaOfType(&tan, TparamCurveDeltaTmeta));
}

}  // namespace
}  // namespace lumora

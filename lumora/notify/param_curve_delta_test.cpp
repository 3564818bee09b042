#include "lumora/notify/param_curve_delta.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/key_deltas.h"
#include "lumora/notify/setting_deltas.h"

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
                  double newValue) {
  return new TPCDdragKey(curve, nullptr, from, to, oldValue, newValue, 1.0, 1.0, 0);
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
  }

  std::vector<std::string> log;
  TparamCurve curve{/*isFloat=*/true};
  TparamCurveDeltaUser action;
};

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

TEST_F(CurveDeltas, AddDeltaRecordsOnlyWhileInModification) {
  auto* ignored = new TloggingDelta(log, "x");  // not recording: stays ours
  EXPECT_EQ(std::tuple(Access::addDelta(curve, nullptr, /*atEnd=*/true),
                       Access::addDelta(curve, nullptr, /*atEnd=*/false),
                       Access::addDelta(curve, ignored, false), curve.currentDelta()),
            std::tuple(true, false, false, nullptr));
  delete ignored;

  curve.beginMod();
  auto* first = new TloggingDelta(log, "a");
  EXPECT_TRUE(Access::addDelta(curve, first, false));
  EXPECT_EQ(curve.currentDelta(), first);  // a single delta is kept as it is
  EXPECT_TRUE(Access::addDelta(curve, new TloggingDelta(log, "b"), false));
  ASSERT_TRUE(isDeltaOfType(curve.currentDelta(), TparamCurveDeltaCompTmeta));
  const auto* composite = static_cast<const TparamCurveDeltaComp*>(curve.currentDelta());
  EXPECT_FALSE(Access::addDelta(curve, new TloggingDelta(log, "c"), false));  // offered, taken
  auto* appended = new TloggingDelta(log, "d");
  EXPECT_TRUE(Access::addDelta(curve, appended, true));
  EXPECT_EQ(std::tuple(curve.currentDelta(), composite->childCount(), composite->child(0),
                       composite->child(3)),
            std::tuple(composite, 4u, first, appended));
  delete curve.endMod();
  EXPECT_EQ(log, (std::vector<std::string>{"~x", "~a", "~b", "~c", "~d"}));
}

// Only a drag that starts where an earlier one of the same curve ended merges.
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

// The action takes the curve's deltas one by one, never a nested composite.
TEST_F(CurveDeltas, SettingsRoundTripThroughTheFlattenedAction) {
  EXPECT_FALSE(action.endParamCurveMod(curve));  // not in modification
  action.beginParamCurveMod(curve);
  EXPECT_TRUE(curve.isMod());
  EXPECT_FALSE(action.endParamCurveMod(curve) || curve.isMod());  // nothing recorded

  const bool weighted = curve.isWeighted();
  action.beginParamCurveMod(curve);
  curve.setPostInfinityType(TparamCurve::kCycle);
  curve.setIsWeighted(!weighted);
  curve.setRotationInterpolation(TparamCurve::kQuaternion);
  curve.setRotationInterpolation(static_cast<TparamCurve::TrotationInterpolation>(7));
  ASSERT_TRUE(isDeltaOfType(curve.currentDelta(), TparamCurveDeltaCompTmeta));
  ASSERT_TRUE(action.endParamCurveMod(curve));
  EXPECT_EQ(curve.currentDelta(), nullptr);
  ASSERT_EQ(action.childCount(), 3u);  // the invalid mode is neither stored nor recorded
  EXPECT_TRUE(isDeltaOfType(action.child(0), TPCDinfinityTypeTmeta) &&
              isDeltaOfType(action.child(1), TPCDweightedTangentsTmeta) &&
              isDeltaOfType(action.child(2), TPCDrotationInterpolationTmeta));

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

TEST_F(CurveDeltas, RecordsFollowTheClassTree) {
  ASSERT_NE(TparamCurveDeltaCompTmeta, nullptr);
  EXPECT_EQ(TparamCurveDeltaCompTmeta->parent(), TdeltaCompositeTmeta);
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

// Each family registers its own records; together they form one tree, and
// stopping takes every one of them down.
TEST_F(CurveDeltas, EveryFamilyRegistersItsRecordsUnderTheBase) {
  struct Trow {
    Tmetaclass* const* exported;
    const char* name;
    Tmetaclass* const* parent;
  };
  const Trow rows[] = {
      {&TdeltaTmeta, "Tdelta", nullptr},
      {&TdeltaCompositeTmeta, "TdeltaComposite", &TdeltaTmeta},
      {&TparamCurveDeltaTmeta, "TparamCurveDelta", &TdeltaTmeta},
      {&TparamCurveDeltaCompTmeta, "TparamCurveDeltaComp", &TdeltaCompositeTmeta},
      {&TPCDaddRemoveKeyTmeta, "TPCDaddRemoveKey", &TparamCurveDeltaTmeta},
      {&TPCDinsertKeyTmeta, "TPCDinsertKey", &TparamCurveDeltaTmeta},
      {&TPCDblockAddRemoveKeyTmeta, "TPCDblockAddRemoveKey", &TparamCurveDeltaTmeta},
      {&TPCDcurveDeltaTmeta, "TPCDcurveDelta", &TparamCurveDeltaTmeta},
      {&TPCDdragKeyTmeta, "TPCDdragKey", &TparamCurveDeltaTmeta},
      {&TPCDdragSegmentTmeta, "TPCDdragSegment", &TparamCurveDeltaTmeta},
      {&TPCDdragTanTmeta, "TPCDdragTan", &TparamCurveDeltaTmeta},
      {&TPCDinfinityTypeTmeta, "TPCDinfinityType", &TparamCurveDeltaTmeta},
      {&TPCDweightedTangentsTmeta, "TPCDweightedTangents", &TparamCurveDeltaTmeta},
      {&TPCDrotationInterpolationTmeta, "TPCDrotationInterpolation", &TparamCurveDeltaTmeta},
      {&TPCDbreakdownTmeta, "TPCDbreakdown", &TparamCurveDeltaTmeta},
  };
  internal::startDeltaRecords();  // a second start changes nothing
  for (const Trow& row : rows) {
    ASSERT_NE(*row.exported, nullptr) << row.name;
    EXPECT_STREQ((*row.exported)->name(), row.name);
    EXPECT_EQ((*row.exported)->parent(), row.parent ? *row.parent : nullptr) << row.name;
  }
  internal::stopDeltaRecords();
  for (const Trow& row : rows) EXPECT_EQ(*row.exported, nullptr) << row.name;
  internal::stopDeltaRecords();  // a second stop changes nothing
  internal::startDeltaRecords();
  for (const Trow& row : rows) EXPECT_NE(*row.exported, nullptr) << row.name;
}

}  // namespace
}  // namespace lumora

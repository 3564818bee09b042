#include <gtest/gtest.h>

#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key_dictionary.h"
#include "lumora/select/select_test_support.h"

namespace lumora {
namespace {

using pick_test::makeCurve;
using pick_test::pickOf;
using Kind = TrecordedMsg::Tkind;
constexpr unsigned kKey = TpickKey::kPickKey;
constexpr unsigned kIn = TpickKey::kPickInTangent;
constexpr unsigned kOut = TpickKey::kPickOutTangent;

// The active bits of every key, as pick bits.
std::vector<unsigned> active(const TparamCurve& curve) {
  std::vector<unsigned> out;
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    const Tkeyframe* k = curve.keyframe(i);
    out.push_back((k->isKeyframeActive() ? kKey : 0) | (k->isInTangentActive() ? kIn : 0) |
                  (k->isOutTangentActive() ? kOut : 0));
  }
  return out;
}

TpickKeyDictionary picksOf(TparamCurve& curve, std::vector<std::pair<unsigned, unsigned>> picks) {
  TpickKeyDictionary d;
  for (const auto& [i, flags] : picks) d.insert(curve.timeValue(i), pickOf(curve, i, flags));
  return d;
}

TEST(CurveSelection, SetsAndClearsTheNamedPartsInOneQuietChange) {
  auto curve = makeCurve(5);
  TmessageRecorder rec;
  rec.listenGlobally();
  rec.listenTo(*curve);
  curve->setActive(picksOf(*curve, {{1, kKey}, {2, kIn}, {3, kIn | kOut}}), true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, kIn, kIn | kOut, 0}));
  EXPECT_EQ(rec.count(Kind::kModified), 0u);
  ASSERT_EQ(rec.only(Kind::kChanged).size(), 1u);
  EXPECT_EQ(rec.only(Kind::kChanged)[0].curves, std::vector<TparamCurve*>{curve.get()});
  // Activating merges by the pick rule; clearing takes off only the named bits.
  curve->setActive(picksOf(*curve, {{1, kOut}, {2, kKey}}), true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kOut, kKey, kIn | kOut, 0}));
  curve->setActive(picksOf(*curve, {{2, kIn}, {3, kOut}}), false);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kOut, kKey, kIn, 0}));

  // Refused by the helpers of a procedural curve: nothing changes, nobody hears.
  const TpickKeyDictionary first = picksOf(*curve, {{0, kKey}});
  rec.log.clear();
  curve->isProcedural(true);
  curve->setActive(first, true);
  EXPECT_EQ(std::tuple(active(*curve)[0], rec.count(Kind::kChanged)), std::tuple(0u, 0u));
  // A curve without keys opens no change at all.
  TparamCurve keyless(/*isFloat=*/true);
  keyless.setActive(TpickKeyDictionary(), true);
  EXPECT_EQ(rec.count(Kind::kHelper), 1u);  // the refused question only
}

TEST(CurveSelection, ReachesOnlyKeysOfThisCurveWhereverTheyMoved) {
  auto curve = makeCurve(6), other = makeCurve(6);
  TpickKeyDictionary picks =
      picksOf(*curve, {{0, kKey}, {1, kKey}, {3, kIn}, {4, kOut}, {5, kKey}});
  picks.first()->data().markVoid();
  const TpickKey foreign = pickOf(*other, 2, kKey);
  picks.insert(foreign.time(), foreign);
  picks.insert(9.0f, TpickKey());
  ASSERT_TRUE(curve->setTime(5, TtimeValue(5.5f)));  // its node's time is stale
  // Key 3 is removed with undo (its object lives on); key 4 is deleted.
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*curve);
  curve->remove(3);
  ASSERT_TRUE(action.endParamCurveMod(*curve));
  curve->remove(3);
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, 0, kKey}));
  EXPECT_EQ(active(*other), (std::vector<unsigned>{0, 0, 0, 0, 0, 0}));
  action.undoPC();  // key 3 returns: the same picks reach it now
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, 0, kIn, kKey}));
}

}  // namespace
}  // namespace lumora

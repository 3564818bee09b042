#include <gtest/gtest.h>

#include <memory>
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

// The active bits of every key of `curve`, as pick bits.
std::vector<unsigned> active(const TparamCurve& curve) {
  std::vector<unsigned> out;
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    const Tkeyframe* k = curve.keyframe(i);
    out.push_back((k->isKeyframeActive() ? kKey : 0) | (k->isInTangentActive() ? kIn : 0) |
                  (k->isOutTangentActive() ? kOut : 0));
  }
  return out;
}

class CurveSelection : public ::testing::Test {
 protected:
  void add(TpickKeyDictionary& d, unsigned index, unsigned flags) {
    const TpickKey p = pickOf(*curve, index, flags);
    d.insert(p.time(), p);
  }
  std::unique_ptr<TparamCurve> curve = makeCurve(5);
};

TEST_F(CurveSelection, SetsAndClearsTheNamedPartsInOneChange) {
  TmessageRecorder rec;
  rec.listenGlobally();
  rec.listenTo(*curve);
  TpickKeyDictionary picks;
  add(picks, 1, kKey);
  add(picks, 2, kIn);
  add(picks, 3, kIn | kOut);
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, kIn, kIn | kOut, 0}));
  // Selection sends no key message: global clients hear of the curve once.
  EXPECT_EQ(rec.count(Kind::kModified), 0u);
  ASSERT_EQ(rec.only(Kind::kChanged).size(), 1u);
  EXPECT_EQ(rec.only(Kind::kChanged)[0].curves, std::vector<TparamCurve*>{curve.get()});

  // Activating merges by the pick rule: a tangent on a selected key replaces it.
  TpickKeyDictionary more;
  add(more, 1, kOut);
  add(more, 2, kKey);
  curve->setActive(more, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kOut, kKey, kIn | kOut, 0}));
  // Clearing takes off only the named bits.
  TpickKeyDictionary off;
  add(off, 3, kOut);
  add(off, 2, kIn);  // not active: nothing to clear
  curve->setActive(off, false);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kOut, kKey, kIn, 0}));
}

TEST_F(CurveSelection, SkipsPicksThatDoNotNameAKeyOfThisCurve) {
  auto other = makeCurve(5);
  TpickKeyDictionary picks;
  add(picks, 0, kKey);
  picks.first()->data().markVoid();
  add(picks, 1, kKey);
  const TpickKey foreign = pickOf(*other, 2, kKey);
  picks.insert(foreign.time(), foreign);
  add(picks, 3, kIn);
  add(picks, 4, kOut);
  picks.insert(9.0f, TpickKey());

  // Key 3 is removed with undo (its object lives on); key 4 is deleted.
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*curve);
  curve->remove(3);
  ASSERT_TRUE(action.endParamCurveMod(*curve));
  curve->remove(3);  // the former key 4, not recorded
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, 0}));
  EXPECT_EQ(active(*other), (std::vector<unsigned>{0, 0, 0, 0, 0}));
  // Undo brings key 3 back unselected; the same picks now reach it.
  action.undoPC();
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, kKey, 0, kIn}));
}

TEST_F(CurveSelection, FollowsMovedKeysAndRespectsRefusals) {
  TpickKeyDictionary picks;
  add(picks, 2, kKey);
  ASSERT_TRUE(curve->setTime(2, TtimeValue(2.5f)));  // the node's time is stale
  TmessageRecorder rec;
  rec.listenGlobally();
  curve->isProcedural(true);
  curve->setActive(picks, true);  // refused: nothing changes, nobody hears of it
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, 0, 0, 0, 0}));
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);
  rec.approveProcedural = true;
  curve->setActive(picks, true);
  EXPECT_EQ(active(*curve), (std::vector<unsigned>{0, 0, kKey, 0, 0}));

  // A curve without keys opens no change at all.
  TparamCurve empty(/*isFloat=*/true);
  rec.log.clear();
  empty.setActive(picks, true);
  empty.setActive(TpickKeyDictionary(), false);
  EXPECT_TRUE(rec.log.empty());
}

}  // namespace
}  // namespace lumora

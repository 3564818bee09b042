#include "lumora/select/pick_key.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/select_test_support.h"

namespace lumora {
namespace {

using pick_test::makeCurve;
using pick_test::pickOf;
constexpr unsigned kKey = TpickKey::kPickKey;
constexpr unsigned kIn = TpickKey::kPickInTangent;
constexpr unsigned kOut = TpickKey::kPickOutTangent;
constexpr unsigned kVoid = TpickKey::kPickNoHandle;

TbitField32 bits(unsigned b) {
  return TbitField32(b);
}

// The pick's visible state: created, flags, the key it names, its time.
auto state(const TpickKey& p) {
  return std::tuple(p.isCreated(), p.flags().bits(), p.handle() ? p.handle()->keyframe() : nullptr,
                    p.time());
}

class PickKey : public ::testing::Test {
 protected:
  std::unique_ptr<TparamCurve> curve = makeCurve(4);
  Tkeyframe* key(unsigned i) const { return curve->keyframe(i); }
};

TEST_F(PickKey, EveryCreateFormNamesTheKeyAndKeepsFlagsWellFormed) {
  TpickKey byTime, byIndex, byHandle;
  EXPECT_EQ(byTime.create(curve.get(), 1.000004f, bits(kKey | kIn | kOut)), 0);  // tolerance
  EXPECT_EQ(byIndex.create(curve.get(), 2u, bits(kIn | kVoid)), 0);
  EXPECT_EQ(byHandle.create(TkeyframeHandle(curve.get(), 3u), bits(kOut)), 0);
  EXPECT_EQ(state(byTime), std::tuple(true, kKey, key(1), TtimeValue(1.0f)));
  EXPECT_EQ(state(byIndex), std::tuple(true, kIn, key(2), TtimeValue(2.0f)));
  EXPECT_EQ(state(byHandle), std::tuple(true, kOut, key(3), TtimeValue(3.0f)));
  EXPECT_TRUE(byTime.isValid() && byTime.namesKey() && byTime.somethingPicked());
  EXPECT_EQ(byTime.startTime(), byTime.time());

  // A created pick is not created again, whatever the arguments.
  EXPECT_EQ(byTime.create(curve.get(), 0u, bits(kIn)), -1);
  EXPECT_EQ(state(byTime), std::tuple(true, kKey, key(1), TtimeValue(1.0f)));

  // Flags 0 make a pick that holds a key but picks nothing.
  const TpickKey nothing = pickOf(*curve, 0, 0);
  EXPECT_TRUE(nothing.isCreated() && !nothing.somethingPicked());
}

TEST_F(PickKey, CreateRefusesWhatNamesNoKeyAndLeavesThePickEmpty) {
  TparamCurve empty(/*isFloat=*/true);
  TkeyframeHandle deleted(curve.get(), 3u);
  curve->remove(3);  // not recorded: the key object is deleted at once
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const std::tuple<const char*, std::function<int(TpickKey&)>> cases[] = {
      {"null curve by time", [](TpickKey& p) { return p.create(nullptr, 1.0f, bits(kKey)); }},
      {"null curve by index", [](TpickKey& p) { return p.create(nullptr, 1u, bits(kKey)); }},
      {"NaN time", [&](TpickKey& p) { return p.create(curve.get(), nan, bits(kKey)); }},
      {"infinite time", [&](TpickKey& p) { return p.create(curve.get(), inf, bits(kKey)); }},
      {"no key there", [&](TpickKey& p) { return p.create(curve.get(), 0.5f, bits(kKey)); }},
      {"index past the end", [&](TpickKey& p) { return p.create(curve.get(), 3u, bits(kKey)); }},
      {"invalid index", [&](TpickKey& p) { return p.create(curve.get(), 0xFFFFFFFFu, bits(1)); }},
      {"empty curve", [&](TpickKey& p) { return p.create(&empty, 0u, bits(kKey)); }},
      {"empty handle", [](TpickKey& p) { return p.create(TkeyframeHandle(), bits(kKey)); }},
      {"deleted key", [&](TpickKey& p) { return p.create(deleted, bits(kKey)); }},
  };
  for (const auto& [what, attempt] : cases) {
    TpickKey p;
    EXPECT_EQ(attempt(p), -1) << what;
    EXPECT_EQ(state(p), std::tuple(false, 0u, nullptr, TtimeValue())) << what;
  }
}

TEST_F(PickKey, HelpersDecideOnProceduralCurvesUnlessTheCheckIsSkipped) {
  TmessageRecorder helper;
  helper.listenGlobally();
  curve->isProcedural(true);
  TpickKey p;
  EXPECT_EQ(p.create(curve.get(), 1u, bits(kKey)), -1);
  EXPECT_FALSE(p.isCreated());
  EXPECT_EQ(p.create(curve.get(), 1u, bits(kKey), false, /*skipSelectCheck=*/true), 0);
  // Copies of a pick never ask again: its key was allowed when it was made.
  const unsigned asked = helper.count(TparamCurveHelperMsg::kHelpProcedural);
  const TpickKey copy(p);
  EXPECT_TRUE(copy.isCreated());
  EXPECT_EQ(helper.count(TparamCurveHelperMsg::kHelpProcedural), asked);
  helper.approveProcedural = true;
  TpickKey approved;
  EXPECT_EQ(approved.create(TkeyframeHandle(curve.get(), 2u), bits(kIn)), 0);
}

TEST(PickKeyFlags, MergeRule) {
  const std::tuple<unsigned, unsigned, unsigned> table[] = {
      {kKey, kIn, kIn},         // a tangent picked on a picked key: that tangent only
      {kIn, kKey, kKey},        // the key replaces tangent picks
      {kIn, kOut, kIn | kOut},  // tangents add up
      {kKey, 0, 0},             // merging nothing into a key pick still drops the key
      {kIn | kOut, kIn, kIn | kOut},
      {kVoid | kIn, kOut, kIn | kOut},  // the void bit never survives a merge
  };
  for (const auto& [a, b, merged] : table) {
    EXPECT_EQ(TpickKey::merge(bits(a), bits(b)).bits(), merged) << a << " + " << b;
  }
  // Every merge is well formed, and merging a well-formed word into itself
  // keeps it.
  for (unsigned a = 0; a < 16; ++a) {
    for (unsigned b = 0; b < 16; ++b) {
      const unsigned m = TpickKey::merge(bits(a), bits(b)).bits();
      EXPECT_TRUE(m == kKey || (m & ~(kIn | kOut)) == 0) << a << " + " << b;
    }
    const unsigned wellFormed = (a & kKey) ? kKey : (a & (kIn | kOut));
    EXPECT_EQ(TpickKey::merge(bits(wellFormed), bits(wellFormed)).bits(), wellFormed);
  }
}

TEST_F(PickKey, FlagOperationsActOnlyOnPicksWithHandles) {
  const std::tuple<unsigned, unsigned, unsigned, unsigned, unsigned> table[] = {
      // this, other, merge, difference, intersection
      {kKey, kIn, kIn, kKey, 0},  // a key pick holds no tangent bit to take off or share
      {kIn | kOut, kOut, kIn | kOut, kIn, kOut},
      {kIn, kKey, kKey, kIn, 0},
      {kKey, kKey, kKey, 0, kKey},
  };
  for (const auto& [mine, theirs, merged, difference, intersection] : table) {
    const TpickKey other = pickOf(*curve, 2, theirs);
    TpickKey m = pickOf(*curve, 1, mine), d = pickOf(*curve, 1, mine), i = pickOf(*curve, 1, mine);
    m.setFlagsMerge(other);
    d.setFlagsDifference(other);
    i.setFlagsIntersection(other);
    EXPECT_EQ(std::tuple(m.flags().bits(), d.flags().bits(), i.flags().bits()),
              std::tuple(merged, difference, intersection))
        << mine << " with " << theirs;
  }
  // Without a handle nothing changes; the other pick's handle does not matter.
  const TpickKey in = pickOf(*curve, 1, kIn);
  TpickKey empty, voided = pickOf(*curve, 1, kOut);
  voided.markVoid();
  for (TpickKey* p : {&empty, &voided}) {
    const unsigned before = p->flags().bits();
    p->setFlagsMerge(in);
    p->setFlagsIntersection(in);
    p->setFlagsDifference(in);
    EXPECT_EQ(p->flags().bits(), before);
  }
  TpickKey out = pickOf(*curve, 1, kOut);
  out.setFlagsMerge(TpickKey());  // an empty pick has flags 0: nothing to add
  EXPECT_EQ(out.flags().bits(), kOut);
}

TEST_F(PickKey, VoidPicksNameNothingAndCanBeFilledAgain) {
  TpickKey p = pickOf(*curve, 2, kIn);
  p.markVoid();
  EXPECT_EQ(state(p), std::tuple(false, kVoid, nullptr, TtimeValue()));
  EXPECT_TRUE(p.isVoid() && !p.somethingPicked() && !p.namesKey());
  EXPECT_FALSE(p.samePickFlagsAs(p));
  const TpickKey copy(p);
  EXPECT_EQ(state(copy), std::tuple(false, 0u, nullptr, TtimeValue()));
  EXPECT_EQ(p.create(curve.get(), 1u, bits(kOut)), 0);
  EXPECT_EQ(state(p), std::tuple(true, kOut, key(1), TtimeValue(1.0f)));
}

TEST_F(PickKey, CopiesOwnTheirHandlesAndMovesHandThemOver) {
  TpickKey original = pickOf(*curve, 1, kIn | kOut);
  TpickKey copy(original);
  EXPECT_NE(copy.handle(), original.handle());
  EXPECT_TRUE(copy == original && copy.samePickFlagsAs(original));

  TpickKey assigned = pickOf(*curve, 3, kKey);
  assigned = original;
  EXPECT_EQ(state(assigned), state(original));
  EXPECT_NE(assigned.handle(), original.handle());
  assigned = static_cast<const TpickKey&>(assigned);  // self-assignment keeps the pick
  EXPECT_EQ(state(assigned), state(original));
  assigned = TpickKey();  // emptied, ready to be created again
  EXPECT_EQ(state(assigned), std::tuple(false, 0u, nullptr, TtimeValue()));

  TkeyframeHandle* handle = original.handle();
  TpickKey moved(std::move(original));
  EXPECT_EQ(moved.handle(), handle);
  EXPECT_EQ(state(original),
            std::tuple(false, 0u, nullptr, TtimeValue()));  // NOLINT(bugprone-use-after-move)
  assigned = std::move(moved);
  EXPECT_EQ(assigned.handle(), handle);

  // The copy outlives the original it was made from.
  {
    TpickKey scoped = pickOf(*curve, 0, kKey);
    copy = scoped;
  }
  EXPECT_EQ(state(copy), std::tuple(true, kKey, key(0), TtimeValue(0.0f)));
}

TEST_F(PickKey, RegisteredPicksFollowRemovalAndUndo) {
  TpickKey registered, plain;
  ASSERT_EQ(registered.create(curve.get(), 1u, bits(kKey), /*ensureUnique=*/true), 0);
  ASSERT_EQ(plain.create(curve.get(), 1u, bits(kKey)), 0);
  auto action = std::make_unique<TparamCurveDeltaUser>();
  action->beginParamCurveMod(*curve);
  curve->remove(1);
  ASSERT_TRUE(action->endParamCurveMod(*curve));
  // The key object lives on in the undo record: both picks still name it.
  EXPECT_EQ(std::tuple(registered.handle()->isValid(), plain.handle()->isValid()),
            std::tuple(false, true));
  EXPECT_EQ(registered.time(), TtimeValue(1.0f));
  action->undoPC();
  EXPECT_TRUE(registered.handle()->isValid());
  // A copy made with ensureUnique hears the next removal by itself.
  const TpickKey copy(plain, /*ensureUnique=*/true);
  action->redoPC();
  EXPECT_FALSE(copy.handle()->isValid());
  action.reset();  // deletes the key: nothing is named any more
  for (const TpickKey* p : {&std::as_const(registered), &std::as_const(plain), &copy}) {
    EXPECT_EQ(std::tuple(p->isCreated(), p->namesKey(), p->time(), p->handle()->keyframe()),
              std::tuple(true, false, TtimeValue(), nullptr));
  }
  EXPECT_EQ(registered.conflictsInTimeWith(plain), TpickKey::kNoConflict);
  EXPECT_FALSE(TpickKey(registered).isCreated());
}

TEST_F(PickKey, TimesFollowTheKeyAndOrderThePicks) {
  const TpickKey a = pickOf(*curve, 1, kKey), b = pickOf(*curve, 2, kIn);
  ASSERT_TRUE(curve->setTime(1, TtimeValue(1.5f)));
  EXPECT_EQ(a.time(), TtimeValue(1.5f));
  EXPECT_EQ(std::tuple(a<b, a> b, a <= b, a >= b, b < a, a <= a, a < a),
            std::tuple(true, false, true, false, false, true, false));
  const TpickKey empty;
  EXPECT_EQ(std::tuple(a<empty, a> empty, a <= empty, a >= empty, empty < a, empty <= empty),
            std::tuple(false, false, false, false, false, false));
}

TEST_F(PickKey, EqualityNeedsOneKeyAndOneFlagWordWhileTimesOnlyNeedOneTime) {
  auto other = makeCurve(4);
  const TpickKey a = pickOf(*curve, 1, kIn), sameKey = pickOf(*curve, 1, kIn);
  const TpickKey otherFlags = pickOf(*curve, 1, kOut), otherCurve = pickOf(*other, 1, kIn);
  const TpickKey later = pickOf(*curve, 2, kIn), empty;
  EXPECT_EQ(std::tuple(a == sameKey, a == otherFlags, a == otherCurve, a == later, empty == empty),
            std::tuple(true, false, false, false, false));
  EXPECT_EQ(std::tuple(a != otherFlags, a.samePickFlagsAs(otherCurve), a.samePickFlagsAs(empty)),
            std::tuple(true, true, false));
  EXPECT_EQ(std::tuple(a.conflictsInTimeWith(otherFlags), a.conflictsInTimeWith(otherCurve),
                       a.conflictsInTimeWith(later), a.conflictsInTimeWith(empty)),
            std::tuple(TpickKey::kSameTime, TpickKey::kSameTime, TpickKey::kNoConflict,
                       TpickKey::kNoConflict));
  // Keys of a tick curve meet float keys at the same seconds.
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(6000), 0.0));
  EXPECT_EQ(a.conflictsInTimeWith(pickOf(ticks, 0, kKey)), TpickKey::kSameTime);
}

}  // namespace
}  // namespace lumora

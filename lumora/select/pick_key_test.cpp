#include "lumora/select/pick_key.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>

#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/select_test_support.h"

namespace lumora {
namespace {

using pick_test::bits;
using pick_test::makeCurve;
using pick_test::pickOf;
constexpr unsigned kKey = TpickKey::kPickKey;
constexpr unsigned kIn = TpickKey::kPickInTangent;
constexpr unsigned kOut = TpickKey::kPickOutTangent;

// Created, flags, the key named and its time.
auto state(const TpickKey& p) {
  return std::tuple(p.isCreated(), p.flags().bits(), p.handle() ? p.handle()->keyframe() : nullptr,
                    p.time());
}
const auto kEmpty = std::tuple(false, 0u, static_cast<Tkeyframe*>(nullptr), TtimeValue());

TEST(PickKey, CreateNamesAnExistingKeyWithWellFormedFlags) {
  auto curve = makeCurve(4);
  TpickKey byTime, byIndex, byHandle;
  EXPECT_EQ(byTime.create(curve.get(), 1.000004f, bits(kKey | kIn | kOut)), 0);  // tolerance
  EXPECT_EQ(byIndex.create(curve.get(), 2u, bits(kIn | TpickKey::kPickNoHandle)), 0);
  EXPECT_EQ(byHandle.create(TkeyframeHandle(curve.get(), 3u), bits(kOut)), 0);
  EXPECT_EQ(state(byTime), std::tuple(true, kKey, curve->keyframe(1), TtimeValue(1.0f)));
  EXPECT_EQ(state(byIndex), std::tuple(true, kIn, curve->keyframe(2), TtimeValue(2.0f)));
  EXPECT_EQ(state(byHandle), std::tuple(true, kOut, curve->keyframe(3), TtimeValue(3.0f)));
  EXPECT_EQ(byTime.create(curve.get(), 0u, bits(kIn)), -1);  // already created: unchanged
  EXPECT_EQ(state(byTime), std::tuple(true, kKey, curve->keyframe(1), TtimeValue(1.0f)));

  // Whatever names no key is refused, and the pick stays empty.
  TparamCurve keyless(/*isFloat=*/true);
  const TkeyframeHandle deleted(curve.get(), 3u);
  curve->remove(3);  // not recorded: the key object is deleted
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const std::function<int(TpickKey&)> attempts[] = {
      [](TpickKey& p) { return p.create(nullptr, 1.0f, bits(kKey)); },
      [](TpickKey& p) { return p.create(nullptr, 1u, bits(kKey)); },
      [&](TpickKey& p) { return p.create(curve.get(), nan, bits(kKey)); },
      [&](TpickKey& p) { return p.create(curve.get(), inf, bits(kKey)); },
      [&](TpickKey& p) { return p.create(curve.get(), 0.5f, bits(kKey)); },
      [&](TpickKey& p) { return p.create(curve.get(), 3u, bits(kKey)); },
      [&](TpickKey& p) { return p.create(curve.get(), 0xFFFFFFFFu, bits(kKey)); },
      [&](TpickKey& p) { return p.create(&keyless, 0u, bits(kKey)); },
      [](TpickKey& p) { return p.create(TkeyframeHandle(), bits(kKey)); },
      [&](TpickKey& p) { return p.create(deleted, bits(kKey)); },
  };
  for (std::size_t i = 0; i < std::size(attempts); ++i) {
    TpickKey p;
    EXPECT_EQ(attempts[i](p), -1) << i;
    EXPECT_EQ(state(p), kEmpty) << i;
  }
}

TEST(PickKey, HelpersDecideOnProceduralCurvesUnlessTheCheckIsSkipped) {
  auto curve = makeCurve(3);
  TmessageRecorder helper;
  helper.listenGlobally();
  curve->isProcedural(true);
  TpickKey p;
  EXPECT_EQ(p.create(curve.get(), 1u, bits(kKey)), -1);
  EXPECT_EQ(state(p), kEmpty);
  EXPECT_EQ(p.create(curve.get(), 1u, bits(kKey), false, /*skipSelectCheck=*/true), 0);
  const unsigned asked = helper.count(TparamCurveHelperMsg::kHelpProcedural);
  EXPECT_TRUE(TpickKey(p).isCreated());  // a copy does not ask again
  EXPECT_EQ(helper.count(TparamCurveHelperMsg::kHelpProcedural), asked);
  helper.approveProcedural = true;
  EXPECT_EQ(TpickKey().create(TkeyframeHandle(curve.get(), 2u), bits(kIn)), 0);
}

TEST(PickKey, FlagArithmetic) {
  const std::tuple<unsigned, unsigned, unsigned, unsigned, unsigned> table[] = {
      // this, other: merge, difference, intersection
      {kKey, kIn, kIn, kKey, 0},  // a tangent on a key pick: that tangent only
      {kIn, kKey, kKey, kIn, 0},
      {kIn, kOut, kIn | kOut, kIn, 0},
      {kIn | kOut, kOut, kIn | kOut, kIn, kOut},
      {kKey, kKey, kKey, 0, kKey},
      {kKey, 0, 0, kKey, 0},  // merging nothing into a key pick drops the key too
  };
  auto curve = makeCurve(3);
  for (const auto& [mine, theirs, merged, difference, intersection] : table) {
    EXPECT_EQ(TpickKey::merge(bits(mine), bits(theirs)).bits(), merged);
    const TpickKey other = pickOf(*curve, 2, theirs);
    TpickKey m = pickOf(*curve, 1, mine), d = pickOf(*curve, 1, mine), i = pickOf(*curve, 1, mine);
    m.setFlagsMerge(other);
    d.setFlagsDifference(other);
    i.setFlagsIntersection(other);
    EXPECT_EQ(std::tuple(m.flags().bits(), d.flags().bits(), i.flags().bits()),
              std::tuple(merged, difference, intersection))
        << mine << " with " << theirs;
  }
  // Picks without a handle keep their flags.
  TpickKey empty, voided = pickOf(*curve, 1, kOut);
  voided.markVoid();
  for (TpickKey* p : {&empty, &voided}) {
    const unsigned before = p->flags().bits();
    p->setFlagsMerge(pickOf(*curve, 1, kIn));
    p->setFlagsDifference(pickOf(*curve, 1, kIn));
    EXPECT_EQ(p->flags().bits(), before);
  }
}

TEST(PickKey, CopiesOwnTheirHandlesAndVoidPicksNameNothing) {
  auto curve = makeCurve(4);
  TpickKey original = pickOf(*curve, 1, kIn | kOut);
  TpickKey copy = pickOf(*curve, 3, kKey);
  copy = original;
  EXPECT_TRUE(copy == original && copy.handle() != original.handle());
  copy = std::as_const(copy);
  EXPECT_EQ(state(copy), state(original));
  TkeyframeHandle* handle = original.handle();
  const TpickKey moved(std::move(original));
  EXPECT_EQ(moved.handle(), handle);
  EXPECT_EQ(state(original), kEmpty);  // NOLINT(bugprone-use-after-move)
  {
    const TpickKey scoped = pickOf(*curve, 0, kKey);
    copy = scoped;
  }
  EXPECT_EQ(state(copy), std::tuple(true, kKey, curve->keyframe(0), TtimeValue(0.0f)));

  copy.markVoid();
  EXPECT_EQ(state(copy), std::tuple(false, unsigned{TpickKey::kPickNoHandle},
                                    static_cast<Tkeyframe*>(nullptr), TtimeValue()));
  EXPECT_FALSE(copy.somethingPicked() || copy.namesKey() || copy.samePickFlagsAs(copy));
  EXPECT_EQ(state(TpickKey(copy)), kEmpty);
  EXPECT_EQ(copy.create(curve.get(), 2u, bits(kOut)), 0);  // a void pick can be filled again
}

TEST(PickKey, RegisteredPicksFollowRemovalAndUndo) {
  auto curve = makeCurve(4);
  TpickKey registered, plain;
  ASSERT_EQ(registered.create(curve.get(), 1u, bits(kKey), /*ensureUnique=*/true), 0);
  ASSERT_EQ(plain.create(curve.get(), 1u, bits(kKey)), 0);
  auto action = std::make_unique<TparamCurveDeltaUser>();
  action->beginParamCurveMod(*curve);
  curve->remove(1);
  ASSERT_TRUE(action->endParamCurveMod(*curve));
  // The undo record keeps the key: both still name it, one knows it is out.
  EXPECT_EQ(
      std::tuple(registered.handle()->isValid(), plain.handle()->isValid(), registered.time()),
      std::tuple(false, true, TtimeValue(1.0f)));
  action->undoPC();
  EXPECT_TRUE(registered.handle()->isValid());
  const TpickKey copy(plain, /*ensureUnique=*/true);  // hears the next removal itself
  action->redoPC();
  EXPECT_FALSE(copy.handle()->isValid());
  action.reset();  // deletes the key
  for (const TpickKey* p : {&std::as_const(registered), &std::as_const(plain), &copy}) {
    EXPECT_EQ(std::tuple(p->isCreated(), p->namesKey(), p->time()),
              std::tuple(true, false, TtimeValue()));
  }
  EXPECT_EQ(registered.conflictsInTimeWith(plain), TpickKey::kNoConflict);
  EXPECT_EQ(state(TpickKey(registered)), kEmpty);
}

TEST(PickKey, OrderEqualityAndConflictsGoByTheKeysCurrentTimes) {
  auto curve = makeCurve(4), other = makeCurve(4);
  const TpickKey a = pickOf(*curve, 1, kIn), b = pickOf(*curve, 2, kIn), empty;
  ASSERT_TRUE(curve->setTime(1, TtimeValue(1.5f)));
  EXPECT_EQ(std::tuple(a.time(), a.startTime()), std::tuple(TtimeValue(1.5f), TtimeValue(1.5f)));
  EXPECT_EQ(std::tuple(a<b, a> b, a <= b, a >= b, a <= a, a < a),
            std::tuple(true, false, true, false, true, false));
  EXPECT_EQ(std::tuple(a < empty, empty < a, a >= empty, empty <= empty),
            std::tuple(false, false, false, false));

  const TpickKey sameKey = pickOf(*curve, 1, kIn), otherFlags = pickOf(*curve, 1, kOut);
  const TpickKey otherCurve = pickOf(*other, 1, kIn);
  ASSERT_TRUE(other->setTime(1, TtimeValue(1.5f)));
  EXPECT_EQ(std::tuple(a == sameKey, a == otherFlags, a == otherCurve, a != b, empty == empty),
            std::tuple(true, false, false, true, false));
  EXPECT_EQ(std::tuple(a.samePickFlagsAs(otherCurve), a.samePickFlagsAs(empty)),
            std::tuple(true, false));
  EXPECT_EQ(std::tuple(a.conflictsInTimeWith(otherFlags), a.conflictsInTimeWith(otherCurve),
                       a.conflictsInTimeWith(b), a.conflictsInTimeWith(empty)),
            std::tuple(TpickKey::kSameTime, TpickKey::kSameTime, TpickKey::kNoConflict,
                       TpickKey::kNoConflict));
  // Tick and float keys meet at equal seconds.
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(12000), 0.0));
  EXPECT_EQ(b.conflictsInTimeWith(pickOf(ticks, 0, kKey)), TpickKey::kSameTime);
}

}  // namespace
}  // namespace lumora

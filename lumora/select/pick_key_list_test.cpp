#include "lumora/select/pick_key_list.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/select/select_test_support.h"

namespace lumora {
namespace {

using pick_test::entries;
using pick_test::makeCurve;
using pick_test::pickOf;
using Tentry = pick_test::Tentry;
constexpr unsigned kKey = TpickKey::kPickKey;
constexpr unsigned kIn = TpickKey::kPickInTangent;
constexpr unsigned kOut = TpickKey::kPickOutTangent;
constexpr unsigned kBoth = kIn | kOut;

using Tpicks = std::map<unsigned, unsigned>;  // key index -> flags

class PickKeyList : public ::testing::Test {
 protected:
  std::unique_ptr<TparamCurve> curve = makeCurve(40);
  TpickKeyList list(const Tpicks& picks) const {
    TpickKeyList out;
    for (const auto& [i, flags] : picks) out.insert(curve->timeValue(i), pickOf(*curve, i, flags));
    return out;
  }
  // What a list of `picks` filed under their keys' times shows.
  std::vector<Tentry> expected(const Tpicks& picks) const {
    std::vector<Tentry> out;
    for (const auto& [i, flags] : picks) {
      out.emplace_back(curve->timeValue(i), curve->keyframe(i), flags);
    }
    return out;
  }
};

TEST_F(PickKeyList, CombiningByTime) {
  TpickKeyList a = list({{1, kKey}, {2, kIn}, {3, kOut}, {4, kKey}});
  a.merge(list({{1, kIn}, {2, kOut}, {3, kKey}, {5, kBoth}}));
  EXPECT_EQ(entries(a), expected({{1, kIn}, {2, kBoth}, {3, kKey}, {4, kKey}, {5, kBoth}}));
  // One pick merges only into a pick at its time, whichever curve it names.
  auto other = makeCurve(8);
  EXPECT_FALSE(TpickKeyList().merge(pickOf(*curve, 1, kKey)));
  EXPECT_FALSE(a.merge(pickOf(*curve, 6, kKey)));  // nothing at 6 s: not inserted either
  EXPECT_FALSE(a.merge(TpickKey()));
  EXPECT_TRUE(a.merge(pickOf(*other, 5, kKey)));
  EXPECT_TRUE(a.merge(pickOf(*curve, 4, 0)));  // nothing merged into a key pick: gone
  EXPECT_EQ(entries(a), expected({{1, kIn}, {2, kBoth}, {3, kKey}, {5, kKey}}));

  // Removing takes parts off; a key pick holds no tangent bit to take.
  EXPECT_TRUE(a.remove(list({{1, kIn}, {2, kIn}, {3, kIn}, {9, kKey}})));
  EXPECT_EQ(entries(a), expected({{2, kOut}, {3, kKey}, {5, kKey}}));
  EXPECT_FALSE(a.remove(list({{3, kBoth}, {9, kKey}})));

  const TpickKeyList b = list({{2, kBoth}, {3, kOut}, {6, kKey}});
  TpickKeyList result = list({{7, kKey}});  // emptied first
  EXPECT_TRUE(a.getIntersection(b, result));
  EXPECT_EQ(entries(result), expected({{2, kOut}, {3, 0}}));  // kept with nothing shared
  EXPECT_TRUE(a.getDifference(b, result));
  EXPECT_EQ(entries(result), expected({{2, kOut}, {3, kKey}, {5, kKey}}));
  EXPECT_FALSE(a.getDifference(a, result));
  EXPECT_TRUE(a.getConflicts(b, result));
  EXPECT_TRUE(a.getConflicts(list({{5, kIn}}), result));  // gathers
  EXPECT_EQ(entries(result), expected({{2, kOut}, {3, kKey}, {5, kKey}}));
  EXPECT_EQ(std::tuple(a.intersects(b), a.intersects(list({{8, kKey}})), a.intersects({})),
            std::tuple(true, false, false));

  // Any list may also be the result, or the other list.
  TpickKeyList self = a;
  EXPECT_TRUE(self.getIntersection(b, self));
  EXPECT_EQ(entries(self), expected({{2, kOut}, {3, 0}}));
  self.merge(self);
  EXPECT_EQ(entries(self), expected({{2, kOut}}));  // merging nothing into nothing: gone
  EXPECT_TRUE(self.remove(self));
  EXPECT_TRUE(self.empty());
}

TEST_F(PickKeyList, FollowsMovedKeysAndForgetsDeletedOnes) {
  TpickKeyDictionary stale;
  stale.insert(0.0f, pickOf(*curve, 3, kKey));
  stale.insert(1.0f, TpickKey());
  EXPECT_EQ(entries(TpickKeyList(stale)), expected({{3, kKey}}));

  TpickKeyList a = list({{1, kIn}, {2, kKey}, {5, kOut}, {6, kKey}});
  const TpickKeyDictionaryNode* node = a.first();
  a.updateDictionary();
  EXPECT_EQ(a.first(), node);  // up to date: untouched
  ASSERT_TRUE(curve->setTime(1, TtimeValue(0.5f)));
  ASSERT_TRUE(curve->setTime(5, TtimeValue(5.5f)));
  curve->remove(2);  // not recorded: deleted, and the keys after it move down
  a.search(6.0f)->markVoid();
  TtimeValue first, last;
  ASSERT_TRUE(a.timeRange(first, last));  // by the keys' times, in list order
  EXPECT_EQ(std::tuple(first, last), std::tuple(TtimeValue(0.5f), TtimeValue(5.5f)));
  a.merge(list({{0, kKey}, {1, kOut}}));
  EXPECT_EQ(entries(a), expected({{0, kKey}, {1, kBoth}, {4, kOut}}));
  ASSERT_TRUE(curve->setTime(4, TtimeValue(5.25f)));
  EXPECT_TRUE(a.remove(list({{4, kOut}})));
  EXPECT_EQ(entries(a), expected({{0, kKey}, {1, kBoth}}));
  a.first()->data().markVoid();
  a.last()->data().markVoid();
  EXPECT_FALSE(a.timeRange(first, last));
}

TEST_F(PickKeyList, InsertRangeTakesBothEndsInEitherKindOfTime) {
  TpickKeyList a = list({{2, kIn}, {6, kOut}});
  EXPECT_TRUE(a.insertRange(curve.get(), 1.999999f, TtimeValue(TanimTime(24000))));  // 2 to 4 s
  EXPECT_EQ(entries(a), expected({{2, kKey}, {3, kKey}, {4, kKey}, {6, kOut}}));
  auto ticks = makeCurve(5, /*isFloat=*/false);  // keys 100 ticks apart
  TpickKeyList t;
  EXPECT_TRUE(t.insertRange(ticks.get(), TtimeValue(TanimTime(100)), 300.0f / 6000.0f));
  EXPECT_EQ(entries(t), (std::vector<Tentry>{{TanimTime(100), ticks->keyframe(1), kKey},
                                             {TanimTime(200), ticks->keyframe(2), kKey},
                                             {TanimTime(300), ticks->keyframe(3), kKey}}));

  TparamCurve keyless(/*isFloat=*/true);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(std::tuple(t.insertRange(ticks.get(), 1.0f, 0.0f), t.insertRange(&keyless, 0.0f, 1.0f),
                       t.insertRange(nullptr, 0.0f, 1.0f), t.insertRange(ticks.get(), nan, 1.0f),
                       t.insertRange(ticks.get(), 0.0f, nan),
                       t.insertRange(ticks.get(), TtimeValue(), 1.0f)),
            std::tuple(true, true, false, false, false, false));
  TmessageRecorder helper;
  helper.listenGlobally();
  ticks->isProcedural(true);
  EXPECT_FALSE(t.insertRange(ticks.get(), 0.0f, 1.0f));
  EXPECT_EQ(t.count(), 3u);
  helper.approveProcedural = true;
  EXPECT_TRUE(t.insertRange(ticks.get(), 0.0f, 1.0f));
  EXPECT_EQ(t.count(), 5u);
}

// --- Algebra on random lists ---------------------------------------------------------

class PickKeyListAlgebra : public PickKeyList {
 protected:
  std::mt19937 random{12345};
  unsigned anyFlags() { return std::array{kKey, kIn, kOut, kBoth, 0u}[random() % 5]; }
  Tpicks anyPicks() {
    Tpicks picks;
    for (unsigned i = 0; i < 40; ++i) {
      if (random() % 2) picks[i] = anyFlags();
    }
    return picks;
  }
};

TEST_F(PickKeyListAlgebra, MergeThenRemoveOfTheSamePicksGivesBackTheStart) {
  for (int round = 0; round < 50; ++round) {
    // Where both pick a key they pick different tangents: the one overlap
    // that merging and removing undo exactly. No pick of nothing is merged:
    // merging it twice would remove it.
    Tpicks start, added;
    for (unsigned i = 0; i < 40; ++i) {
      const unsigned roll = random() % 4;
      if (roll == 0) start[i] = anyFlags() | kIn;
      if (roll == 1) added[i] = anyFlags() | kIn;
      if (roll == 2) {
        start[i] = random() % 2 ? kIn : kOut;
        added[i] = kBoth & ~start[i];
      }
    }
    TpickKeyList a = list(start), once = list(start);
    const TpickKeyList b = list(added);
    a.merge(b);
    a.merge(b);
    once.merge(b);
    ASSERT_EQ(entries(a), entries(once)) << round;  // idempotent
    a.remove(b);
    ASSERT_EQ(entries(a), entries(list(start))) << round;
  }
}

TEST_F(PickKeyListAlgebra, IntersectionDifferenceAndConflictsAgree) {
  for (int round = 0; round < 50; ++round) {
    const Tpicks pa = anyPicks();
    Tpicks pb = anyPicks();
    for (const auto& [i, flags] : pa) {
      if (random() % 3 == 0) pb[i] = flags;  // some picks in both exactly
    }
    const TpickKeyList a = list(pa), b = list(pb);
    TpickKeyList ab, ba, difference, conflicts;
    a.getIntersection(b, ab);
    b.getIntersection(a, ba);
    a.getDifference(b, difference);
    a.getConflicts(b, conflicts);
    Tpicks shared, differing, agreeing;
    for (const auto& [i, flags] : pa) {
      if (pb.count(i)) shared[i] = flags & pb.at(i);
      (pb.count(i) && pb.at(i) == flags ? agreeing : differing)[i] = flags;
    }
    // The intersection lies within both lists, the same from either side.
    ASSERT_EQ(entries(ab), expected(shared)) << round;
    ASSERT_EQ(entries(ba).size(), shared.size());
    ASSERT_EQ(std::tuple(a.intersects(b), b.intersects(a)),
              std::tuple(!shared.empty(), !shared.empty()));
    // The difference and the picks equal in both partition the list.
    ASSERT_EQ(entries(difference), expected(differing)) << round;
    TpickKeyList rest = a;
    rest.remove(difference);
    ASSERT_EQ(entries(rest), expected(agreeing)) << round;
    std::set<TtimeValue, std::less<>> sharedTimes, conflictTimes;
    for (const auto& [i, flags] : shared) sharedTimes.insert(curve->timeValue(i));
    for (const Tentry& e : entries(conflicts)) conflictTimes.insert(std::get<0>(e));
    ASSERT_EQ(conflictTimes, sharedTimes);
  }
}

}  // namespace
}  // namespace lumora

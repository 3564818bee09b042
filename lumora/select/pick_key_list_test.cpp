#include "lumora/select/pick_key_list.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <tuple>
#include <utility>
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

// Key index -> flags.
using Tpicks = std::map<unsigned, unsigned>;

class PickKeyList : public ::testing::Test {
 protected:
  std::unique_ptr<TparamCurve> curve = makeCurve(8);
  Tkeyframe* key(unsigned i) const { return curve->keyframe(i); }
  TpickKey pick(unsigned i, unsigned flags) const { return pickOf(*curve, i, flags); }
  TpickKeyList list(const Tpicks& picks) const {
    TpickKeyList out;
    for (const auto& [i, flags] : picks) out.insert(pick(i, flags).time(), pick(i, flags));
    return out;
  }
  // What a list made of `picks` shows, key times as node times.
  std::vector<Tentry> expected(const Tpicks& picks) const {
    std::vector<Tentry> out;
    for (const auto& [i, flags] : picks) out.emplace_back(curve->timeValue(i), key(i), flags);
    return out;
  }
};

TEST_F(PickKeyList, MergeCombinesPicksAtEqualTimesAndAddsTheRest) {
  TpickKeyList a = list({{1, kKey}, {2, kIn}, {3, kOut}, {4, kKey}});
  a.merge(list({{1, kIn}, {2, kOut}, {3, kKey}, {5, kBoth}}));
  // A tangent merged into a key pick leaves that tangent; a key replaces tangents.
  EXPECT_EQ(entries(a), expected({{1, kIn}, {2, kBoth}, {3, kKey}, {4, kKey}, {5, kBoth}}));

  // Merging into an empty list inserts everything; merging a list into itself
  // changes nothing.
  TpickKeyList empty;
  empty.merge(a);
  EXPECT_EQ(entries(empty), entries(a));
  a.merge(a);
  EXPECT_EQ(entries(a), entries(empty));
}

TEST_F(PickKeyList, MergeOfOnePickNeedsAPickAtItsTime) {
  TpickKeyList a;
  EXPECT_FALSE(a.merge(pick(1, kKey)));  // empty list
  a = list({{1, kKey}, {3, kIn}});
  EXPECT_FALSE(a.merge(pick(2, kKey)));  // nothing at 2 s: not inserted either
  EXPECT_FALSE(a.merge(TpickKey()));
  EXPECT_TRUE(a.merge(pick(3, kOut)));
  EXPECT_EQ(entries(a), expected({{1, kKey}, {3, kBoth}}));
  // Merging nothing into a key pick leaves nothing there: the node goes.
  EXPECT_TRUE(a.merge(pick(1, 0)));
  EXPECT_EQ(entries(a), expected({{3, kBoth}}));
  // Picks meet by time: a key of another curve at 3 s merges into this pick.
  auto other = makeCurve(8);
  EXPECT_TRUE(a.merge(pickOf(*other, 3, kKey)));
  EXPECT_EQ(entries(a), expected({{3, kKey}}));
}

TEST_F(PickKeyList, RemoveTakesPartsOffAndDropsPicksLeftEmpty) {
  TpickKeyList a = list({{1, kKey}, {2, kBoth}, {3, kIn}, {4, kKey}});
  EXPECT_TRUE(a.remove(list({{2, kIn}, {3, kIn}, {4, kIn}, {6, kKey}})));
  // A key pick holds no tangent bit, so taking the in tangent off it does nothing.
  EXPECT_EQ(entries(a), expected({{1, kKey}, {2, kOut}, {4, kKey}}));
  EXPECT_FALSE(a.remove(list({{4, kBoth}, {5, kKey}})));
  EXPECT_FALSE(a.remove(TpickKeyList()));
  EXPECT_TRUE(a.remove(list({{1, kKey}})));
  EXPECT_EQ(entries(a), expected({{2, kOut}, {4, kKey}}));
  EXPECT_TRUE(a.remove(a));  // a list taken off itself leaves nothing
  EXPECT_TRUE(a.empty());
  EXPECT_FALSE(a.remove(list({{2, kOut}})));
}

TEST_F(PickKeyList, MergeAndRemoveFirstFollowMovedKeys) {
  TpickKeyList a = list({{1, kIn}, {2, kKey}, {5, kOut}});
  ASSERT_TRUE(curve->setTime(2, TtimeValue(2.5f)));
  ASSERT_TRUE(curve->setTime(1, TtimeValue(0.5f)));
  a.merge(list({{1, kOut}}));  // at its new time, 0.5 s
  EXPECT_EQ(entries(a), (std::vector<Tentry>{
                            {0.5f, key(1), kBoth}, {2.5f, key(2), kKey}, {5.0f, key(5), kOut}}));
  ASSERT_TRUE(curve->setTime(5, TtimeValue(5.25f)));
  EXPECT_TRUE(a.remove(list({{5, kOut}})));
  EXPECT_EQ(entries(a), (std::vector<Tentry>{{0.5f, key(1), kBoth}, {2.5f, key(2), kKey}}));
}

TEST_F(PickKeyList, UpdateDictionaryRekeysAndDropsPicksOfDeletedKeys) {
  // A list made from a dictionary files its picks by their keys' times.
  TpickKeyDictionary d;
  d.insert(0.0f, pick(3, kKey));  // under a stale time
  d.insert(1.0f, TpickKey());
  EXPECT_EQ(entries(TpickKeyList(d)), expected({{3, kKey}}));

  TpickKeyList a = list({{1, kIn}, {2, kKey}, {6, kOut}});
  const TpickKeyDictionaryNode* firstNode = a.first();
  a.updateDictionary();  // up to date: the nodes stay
  EXPECT_EQ(a.first(), firstNode);

  curve->remove(2);                                  // not recorded: the key object is deleted
  ASSERT_TRUE(curve->setTime(5, TtimeValue(5.5f)));  // key 6 (was) is now key 5
  a.first()->data().markVoid();
  a.updateDictionary();
  EXPECT_EQ(entries(a), (std::vector<Tentry>{{5.5f, key(5), kOut}}));
}

TEST_F(PickKeyList, IntersectionKeepsSharedPartsAtSharedTimes) {
  const TpickKeyList a = list({{1, kKey}, {2, kBoth}, {3, kIn}, {4, kOut}});
  const TpickKeyList b = list({{1, kKey}, {2, kIn}, {3, kOut}, {5, kKey}});
  TpickKeyList result = list({{7, kKey}});  // emptied first
  EXPECT_TRUE(a.getIntersection(b, result));
  // At 3 s nothing is shared, and the pick stays to say where the lists meet.
  EXPECT_EQ(entries(result), expected({{1, kKey}, {2, kIn}, {3, 0}}));
  EXPECT_FALSE(a.getIntersection(list({{6, kKey}}), result));
  EXPECT_TRUE(result.empty());
  // The result may be one of the operands.
  TpickKeyList self = a;
  EXPECT_TRUE(self.getIntersection(b, self));
  EXPECT_EQ(entries(self), expected({{1, kKey}, {2, kIn}, {3, 0}}));
}

TEST_F(PickKeyList, DifferenceKeepsEveryPickWithoutAnEqualOne) {
  auto other = makeCurve(8);
  const TpickKeyList a = list({{1, kKey}, {2, kIn}, {3, kOut}, {4, kKey}});
  TpickKeyList b = list({{1, kKey}, {2, kBoth}, {5, kKey}});
  b.insert(4.0f, pickOf(*other, 4, kKey));  // same time and flags, another key
  TpickKeyList result = list({{7, kKey}});
  EXPECT_TRUE(a.getDifference(b, result));
  EXPECT_EQ(entries(result), expected({{2, kIn}, {3, kOut}, {4, kKey}}));
  EXPECT_FALSE(a.getDifference(a, result));
  EXPECT_TRUE(result.empty());
  TpickKeyList self = a;
  EXPECT_TRUE(self.getDifference(b, self));
  EXPECT_EQ(entries(self), expected({{2, kIn}, {3, kOut}, {4, kKey}}));
}

TEST_F(PickKeyList, ConflictsGatherWithoutEmptyingTheResult) {
  const TpickKeyList a = list({{1, kKey}, {2, kIn}, {3, kOut}});
  const TpickKeyList b = list({{2, kOut}, {4, kKey}});
  const TpickKeyList c = list({{3, kKey}});
  EXPECT_EQ(std::tuple(a.intersects(b), b.intersects(a), a.intersects(list({{5, kKey}})),
                       a.intersects(TpickKeyList()), TpickKeyList().intersects(a)),
            std::tuple(true, true, false, false, false));
  TpickKeyList result;
  EXPECT_FALSE(a.getConflicts(list({{5, kKey}}), result));
  EXPECT_TRUE(a.getConflicts(b, result));
  EXPECT_TRUE(a.getConflicts(c, result));
  EXPECT_EQ(entries(result), expected({{2, kIn}, {3, kOut}}));  // this list's picks
  TpickKeyList self = a;
  EXPECT_TRUE(self.getConflicts(b, self));
  EXPECT_EQ(entries(self), entries(a));
}

TEST_F(PickKeyList, TimeRangeSkipsPicksThatNameNothing) {
  TtimeValue first(-1.0f), last(-1.0f);
  EXPECT_FALSE(TpickKeyList().timeRange(first, last));
  TpickKeyList a = list({{0, kKey}, {2, kIn}, {5, kOut}, {7, kKey}});
  a.first()->data().markVoid();
  a.last()->data().markVoid();
  ASSERT_TRUE(a.timeRange(first, last));
  EXPECT_EQ(std::tuple(first, last), std::tuple(TtimeValue(2.0f), TtimeValue(5.0f)));
  ASSERT_TRUE(curve->setTime(5, TtimeValue(5.5f)));  // read through the handle
  ASSERT_TRUE(a.timeRange(first, last));
  EXPECT_EQ(last, TtimeValue(5.5f));
  a.search(2.0f)->markVoid();
  a.search(5.0f)->markVoid();
  first = last = TtimeValue(-1.0f);
  EXPECT_FALSE(a.timeRange(first, last));
  EXPECT_EQ(std::tuple(first, last), std::tuple(TtimeValue(-1.0f), TtimeValue(-1.0f)));
}

TEST_F(PickKeyList, InsertRangePicksEveryKeyBetweenBothEnds) {
  TpickKeyList a = list({{2, kIn}, {6, kOut}});
  EXPECT_TRUE(a.insertRange(curve.get(), 1.999999f, TtimeValue(TanimTime(24000))));  // 2..4 s
  EXPECT_EQ(entries(a), expected({{2, kKey}, {3, kKey}, {4, kKey}, {6, kOut}}));
  EXPECT_TRUE(a.insertRange(curve.get(), 6.5f, 5.5f));  // reversed: nothing
  EXPECT_TRUE(a.insertRange(curve.get(), 7.5f, 9.0f));  // past the keys: nothing
  EXPECT_EQ(a.count(), 4u);

  // Tick curves take times of either kind; keys sit 100 ticks apart.
  auto ticks = makeCurve(5, /*isFloat=*/false);
  TpickKeyList t;
  EXPECT_TRUE(t.insertRange(ticks.get(), TtimeValue(TanimTime(100)), 300.0f / 6000.0f));
  EXPECT_EQ(entries(t), (std::vector<Tentry>{{TanimTime(100), ticks->keyframe(1), kKey},
                                             {TanimTime(200), ticks->keyframe(2), kKey},
                                             {TanimTime(300), ticks->keyframe(3), kKey}}));
  EXPECT_TRUE(t.insertRange(ticks.get(), 0.0f, -1.0f));
  TparamCurve keyless(/*isFloat=*/true);
  EXPECT_TRUE(t.insertRange(&keyless, 0.0f, 10.0f));

  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(std::tuple(t.insertRange(nullptr, 0.0f, 1.0f), t.insertRange(ticks.get(), nan, 1.0f),
                       t.insertRange(ticks.get(), 0.0f, nan),
                       t.insertRange(ticks.get(), TtimeValue(), 1.0f), t.count()),
            std::tuple(false, false, false, false, 3u));

  // Helpers decide for procedural curves.
  TmessageRecorder helper;
  helper.listenGlobally();
  ticks->isProcedural(true);
  EXPECT_FALSE(t.insertRange(ticks.get(), 0.0f, 1.0f));
  EXPECT_EQ(t.count(), 3u);
  helper.approveProcedural = true;
  EXPECT_TRUE(t.insertRange(ticks.get(), 0.0f, 1.0f));
  EXPECT_EQ(t.count(), 5u);
}

// --- Algebra on random lists ---------------------------------------------------

class PickKeyListAlgebra : public PickKeyList {
 protected:
  void SetUp() override { curve = makeCurve(kKeys); }
  static constexpr unsigned kKeys = 40;
  std::mt19937 random{12345};

  unsigned anyFlags() {
    static constexpr unsigned kChoices[] = {kKey, kIn, kOut, kBoth, 0};
    return kChoices[random() % 5];
  }
  Tpicks anyPicks() {
    Tpicks picks;
    for (unsigned i = 0; i < kKeys; ++i) {
      if (random() % 2) picks[i] = anyFlags();
    }
    return picks;
  }
  static std::set<TtimeValue, std::less<>> times(const TpickKeyList& l) {
    std::set<TtimeValue, std::less<>> out;
    for (auto* n = l.first(); n; n = TpickKeyList::next(n)) out.insert(n->key());
    return out;
  }
};

TEST_F(PickKeyListAlgebra, MergeThenRemoveOfTheSamePicksGivesBackTheStart) {
  for (int round = 0; round < 50; ++round) {
    // Where both lists pick a key they pick different tangents, the only
    // overlap that merging and removing undo exactly.
    Tpicks start, added;
    for (unsigned i = 0; i < kKeys; ++i) {
      switch (random() % 4) {
        case 0:
          start[i] = anyFlags();
          break;
        case 1:
          // Never a pick of nothing: merging one twice removes it.
          added[i] = anyFlags() | kIn;
          break;
        case 2:
          start[i] = random() % 2 ? kIn : kOut;
          added[i] = kBoth & ~start[i];
          break;
        default:
          break;
      }
    }
    // Picks of nothing are dropped by remove, so the start has none.
    for (auto& [i, flags] : start) flags = flags ? flags : kKey;
    TpickKeyList a = list(start);
    const TpickKeyList b = list(added);
    a.merge(b);
    a.merge(b);  // merging is idempotent
    TpickKeyList once = list(start);
    once.merge(b);
    ASSERT_EQ(entries(a), entries(once)) << round;
    a.remove(b);
    ASSERT_EQ(entries(a), expected(start)) << round;
  }
}

TEST_F(PickKeyListAlgebra, IntersectionLiesWithinBothLists) {
  for (int round = 0; round < 50; ++round) {
    const TpickKeyList a = list(anyPicks()), b = list(anyPicks());
    TpickKeyList ab, ba;
    const bool met = a.getIntersection(b, ab);
    b.getIntersection(a, ba);
    std::set<TtimeValue, std::less<>> shared;
    const auto inB = times(b);
    for (const TtimeValue& t : times(a)) {
      if (inB.count(t)) shared.insert(t);
    }
    ASSERT_EQ(times(ab), shared) << round;
    ASSERT_EQ(std::tuple(met, a.intersects(b), b.intersects(a)),
              std::tuple(!shared.empty(), !shared.empty(), !shared.empty()));
    for (auto* n = ab.first(); n; n = TpickKeyList::next(n)) {
      const unsigned f = n->data().flags().bits();
      const unsigned fa = a.search(n->key())->flags().bits();
      const unsigned fb = b.search(n->key())->flags().bits();
      ASSERT_EQ(f, fa & fb) << round;
      // The same parts from either side, of this list's key.
      ASSERT_EQ(ba.search(n->key())->flags().bits(), f);
      ASSERT_EQ(n->data().handle()->keyframe(), a.search(n->key())->handle()->keyframe());
    }
    TpickKeyList conflicts;
    a.getConflicts(b, conflicts);
    ASSERT_EQ(times(conflicts), shared);
  }
}

TEST_F(PickKeyListAlgebra, DifferenceAndEqualPicksPartitionTheList) {
  for (int round = 0; round < 50; ++round) {
    const Tpicks pa = anyPicks();
    Tpicks pb = anyPicks();
    for (const auto& [i, flags] : pa) {
      if (random() % 3 == 0) pb[i] = flags;  // some picks in both lists exactly
    }
    const TpickKeyList a = list(pa), b = list(pb);
    TpickKeyList difference;
    a.getDifference(b, difference);
    Tpicks kept;
    for (const auto& [i, flags] : pa) {
      const bool inB = pb.count(i) && pb.at(i) == flags;
      ASSERT_EQ(difference.search(curve->timeValue(i)) != nullptr, !inB) << round << " key " << i;
      if (!inB) kept[i] = flags;
    }
    ASSERT_EQ(entries(difference), expected(kept));
    // What the difference leaves out is exactly where a and b agree whole.
    TpickKeyList rest = a;
    rest.remove(difference);
    TpickKeyList intersection;
    a.getIntersection(b, intersection);
    for (auto* n = rest.first(); n; n = TpickKeyList::next(n)) {
      ASSERT_TRUE(intersection.search(n->key())->samePickFlagsAs(n->data()));
    }
  }
}

}  // namespace
}  // namespace lumora

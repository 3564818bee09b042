#include "lumora/select/pick_key_dictionary.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "lumora/base/server_msg.h"
#include "lumora/select/pick_key_list.h"
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

class PickKeyDictionary : public ::testing::Test {
 protected:
  std::unique_ptr<TparamCurve> curve = makeCurve(5);
  Tkeyframe* key(unsigned i) const { return curve->keyframe(i); }
  TpickKey pick(unsigned i, unsigned flags) const { return pickOf(*curve, i, flags); }
};

TEST_F(PickKeyDictionary, KeepsOnePickPerTimeInTimeOrder) {
  TpickKeyDictionary d;
  for (unsigned i : {3u, 0u, 4u, 1u})
    ASSERT_NE(d.insert(TtimeValue(static_cast<float>(i)), pick(i, kKey)), nullptr);
  EXPECT_EQ(
      entries(d),
      (std::vector<Tentry>{
          {0.0f, key(0), kKey}, {1.0f, key(1), kKey}, {3.0f, key(3), kKey}, {4.0f, key(4), kKey}}));
  // A taken time gets the new pick in the same node.
  TpickKeyDictionaryNode* node = d.findNode(1.0f);
  const TpickKey in = pick(2, kIn);
  EXPECT_EQ(d.insert(1.0f, in), node);
  EXPECT_EQ(std::tuple(d.count(), node->key(), node->data().handle()->keyframe(),
                       node->data().flags().bits()),
            std::tuple(4u, TtimeValue(1.0f), key(2), kIn));
  EXPECT_NE(node->data().handle(), in.handle());  // stored as a copy
  EXPECT_EQ(d.search(1.0f), &node->data());
  EXPECT_EQ(std::tuple(d.search(2.0f), d.findNode(2.0f)), std::tuple(nullptr, nullptr));

  EXPECT_TRUE(d.remove(3.0f));
  EXPECT_FALSE(d.remove(3.0f));
  EXPECT_EQ(std::tuple(d.first()->key(), d.last()->key(), d.previous(d.last())->key()),
            std::tuple(TtimeValue(0.0f), TtimeValue(4.0f), TtimeValue(1.0f)));
  EXPECT_EQ(TpickKeyDictionary::next(d.last()), nullptr);
  EXPECT_EQ(TpickKeyDictionary::next(nullptr), nullptr);
}

TEST_F(PickKeyDictionary, NaNTimesAreNeverStoredOrFound) {
  TpickKeyDictionary d;
  d.insert(1.0f, pick(1, kKey));
  const TtimeValue nan(std::numeric_limits<float>::quiet_NaN());
  Tbookmark mark(d);
  ASSERT_TRUE(mark.valid());
  EXPECT_EQ(d.insert(nan, pick(2, kKey), mark), nullptr);
  EXPECT_FALSE(mark.valid());
  EXPECT_EQ(std::tuple(d.insert(nan, pick(2, kKey)), d.findNode(nan), d.search(nan), d.remove(nan),
                       d.count()),
            std::tuple(nullptr, nullptr, nullptr, false, 1u));
  mark.moveToFirst();
  EXPECT_EQ(d.findNode(nan, mark), nullptr);
  EXPECT_FALSE(mark.valid());
  mark.moveToFirst();
  EXPECT_FALSE(d.remove(nan, mark));
  EXPECT_FALSE(mark.valid());
  // Infinities and the "neither" time (0 s) are ordinary times.
  const float inf = std::numeric_limits<float>::infinity();
  ASSERT_NE(d.insert(inf, pick(4, kKey)), nullptr);
  ASSERT_NE(d.insert(TtimeValue(), pick(0, kKey)), nullptr);
  EXPECT_EQ(std::tuple(d.search(0.0f) != nullptr, d.last()->key(), d.count()),
            std::tuple(true, TtimeValue(inf), 3u));
}

TEST_F(PickKeyDictionary, BookmarksFollowInsertionAndLookup) {
  TpickKeyDictionary d;
  Tbookmark mark;
  TpickKeyDictionaryNode* at2 = d.insert(2.0f, pick(2, kKey), mark);
  EXPECT_EQ(d.nodeAt(mark), at2);
  d.insert(4.0f, pick(4, kKey));
  d.insert(0.0f, pick(0, kKey));
  EXPECT_EQ(d.nodeAt(mark), at2);  // insertions keep bookmarks
  // A miss leaves the bookmark after the time; one step back is the node before.
  EXPECT_EQ(d.findNode(3.0f, mark), nullptr);
  EXPECT_EQ(d.nodeAt(mark)->key(), TtimeValue(4.0f));
  mark.previous();
  EXPECT_EQ(d.nodeAt(mark), at2);
  EXPECT_EQ(d.search(0.0f, mark), &d.first()->data());
  // Removal moves the bookmark to the following node.
  EXPECT_TRUE(d.remove(2.0f, mark));
  EXPECT_EQ(d.nodeAt(mark)->key(), TtimeValue(4.0f));
  // A bookmark of another dictionary names no node here.
  TpickKeyDictionary other;
  other.insert(4.0f, pick(4, kKey));
  EXPECT_EQ(d.nodeAt(Tbookmark(other)), nullptr);
  EXPECT_EQ(d.nodeAt(Tbookmark()), nullptr);
}

TEST_F(PickKeyDictionary, CopiesCloneEveryPick) {
  TpickKeyDictionary d;
  for (unsigned i = 0; i < 5; ++i)
    d.insert(static_cast<float>(i), pick(i, i % 2 ? kIn | kOut : kKey));
  const std::vector<Tentry> before = entries(d);
  TpickKeyDictionary copy(d);
  TpickKeyList assigned;
  assigned.insert(9.0f, pick(1, kKey));
  assigned = TpickKeyList(d);
  EXPECT_EQ(entries(copy), before);
  EXPECT_EQ(entries(assigned), before);
  // The copies' picks are their own.
  copy.first()->data().markVoid();
  copy.remove(1.0f);
  EXPECT_NE(copy.last()->data().handle(), d.last()->data().handle());
  EXPECT_EQ(entries(d), before);

  TpickKeyDictionary moved(std::move(copy));
  EXPECT_EQ(std::tuple(moved.count(), copy.count()), std::tuple(4u, 0u));  // NOLINT
  copy = d;
  copy = std::move(moved);
  EXPECT_EQ(copy.count(), 4u);
}

TEST_F(PickKeyDictionary, TypeRecords) {
  ASSERT_NE(TpickKeyDictionaryNodeTmeta, nullptr);
  ASSERT_NE(TpickKeyDictionaryTmeta, nullptr);
  EXPECT_STREQ(TpickKeyDictionaryNodeTmeta->name(), "TpickKeyDictionaryNode");
  EXPECT_STREQ(TpickKeyDictionaryTmeta->name(), "TpickKeyDictionary");

  TpickKeyDictionaryNode node(2.0f, pick(2, kKey));
  TpickKeyList list;
  EXPECT_EQ(std::tuple(node.typeof(), list.typeof()),
            std::tuple(TpickKeyDictionaryNodeTmeta, TpickKeyDictionaryTmeta));
  EXPECT_EQ(std::tuple(node.cast(TpickKeyDictionaryNodeTmeta), node.cast(TpickKeyDictionaryTmeta),
                       node.cast(nullptr), list.cast(TpickKeyDictionaryTmeta)),
            std::tuple(static_cast<void*>(&node), nullptr, nullptr,
                       static_cast<void*>(static_cast<TpickKeyDictionary*>(&list))));

  std::unique_ptr<TpickKeyDictionaryNode> made(
      TpickKeyDictionaryNode::construct(TpickKeyDictionaryNodeTmeta));
  std::unique_ptr<TpickKeyDictionary> dict(TpickKeyDictionary::construct(TpickKeyDictionaryTmeta));
  ASSERT_TRUE(made && dict);
  EXPECT_EQ(std::tuple(made->key(), made->data().isCreated(), dict->empty()),
            std::tuple(TtimeValue(), false, true));
  EXPECT_EQ(std::tuple(TpickKeyDictionaryNode::construct(TpickKeyDictionaryTmeta),
                       TpickKeyDictionaryNode::construct(nullptr),
                       TpickKeyDictionary::construct(TserverMsgTmeta)),
            std::tuple(nullptr, nullptr, nullptr));
}

TEST_F(PickKeyDictionary, NodesCompareByTime) {
  const TpickKeyDictionaryNode one(1.0f), two(2.0f), alsoTwo(2.0f, pick(3, kOut));
  const TpickKeyDictionaryNode ticks(TtimeValue(TanimTime(12000)));  // 2 s
  EXPECT_EQ(std::tuple(one.compare(two), two.compare(one), two.compare(alsoTwo), ticks.compare(two),
                       ticks.compare(one)),
            std::tuple(-1, 1, 0, 0, 1));
}

// Random insertions and removals agree with an ordered map of the same times.
TEST_F(PickKeyDictionary, AgreesWithAnOrderedMap) {
  std::mt19937 random(7);
  TpickKeyDictionary d;
  std::map<float, std::pair<unsigned, unsigned>> model;  // time -> key index, flags
  for (int step = 0; step < 2000; ++step) {
    const float t = static_cast<float>(random() % 64) * 0.25f;
    const unsigned k = random() % 5;
    const unsigned flags = 1u + random() % 6;
    if (random() % 3 == 0) {
      EXPECT_EQ(d.remove(t), model.erase(t) == 1) << step;
    } else {
      const TpickKey p = pick(k, flags);
      d.insert(t, p);
      model[t] = {k, p.flags().bits()};
    }
  }
  std::vector<Tentry> expected;
  for (const auto& [t, kf] : model) expected.emplace_back(t, key(kf.first), kf.second);
  EXPECT_EQ(entries(d), expected);
  EXPECT_EQ(d.count(), model.size());
}

}  // namespace
}  // namespace lumora

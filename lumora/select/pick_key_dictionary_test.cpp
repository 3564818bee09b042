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

// Random insertions (replacing what a time holds) and removals agree with an
// ordered map; copies hold the same picks through handles of their own.
TEST(PickKeyDictionary, KeepsOnePickPerTimeInOrderAndCopiesThem) {
  auto curve = makeCurve(5);
  std::mt19937 random(7);
  TpickKeyDictionary d;
  std::map<float, std::pair<unsigned, unsigned>> model;  // time -> key index, flags
  for (int step = 0; step < 2000; ++step) {
    const float t = static_cast<float>(random() % 64) * 0.25f;
    if (random() % 3 == 0) {
      ASSERT_EQ(d.remove(t), model.erase(t) == 1) << step;
      continue;
    }
    const TpickKey p = pickOf(*curve, random() % 5, 1u + random() % 6);
    ASSERT_EQ(d.insert(t, p)->key(), TtimeValue(t));
    model[t] = {p.handle()->index(), p.flags().bits()};
  }
  std::vector<Tentry> expected;
  for (const auto& [t, kf] : model) expected.emplace_back(t, curve->keyframe(kf.first), kf.second);
  EXPECT_EQ(entries(d), expected);

  const TpickKeyDictionary copy(d);
  TpickKeyDictionary assigned;
  assigned.insert(99.0f, pickOf(*curve, 0, 1));
  assigned = d;
  EXPECT_EQ(entries(copy), expected);
  EXPECT_EQ(entries(assigned), expected);
  EXPECT_NE(copy.first()->data().handle(), d.first()->data().handle());
  EXPECT_EQ(d.search(copy.first()->key()), &d.first()->data());
}

TEST(PickKeyDictionary, LookupsAndBookmarks) {
  auto curve = makeCurve(5);
  TpickKeyDictionary d;
  Tbookmark mark;
  TpickKeyDictionaryNode* at2 = d.insert(2.0f, pickOf(*curve, 2, 1), mark);
  d.insert(4.0f, pickOf(*curve, 4, 1));
  d.insert(TtimeValue(), pickOf(*curve, 0, 1));  // the "neither" time counts as 0 s
  EXPECT_EQ(d.nodeAt(mark), at2);                // insertions keep bookmarks
  EXPECT_EQ(d.findNode(3.0f, mark), nullptr);
  EXPECT_EQ(d.nodeAt(mark)->key(), TtimeValue(4.0f));  // a miss: at the next node
  mark.previous();
  EXPECT_EQ(d.nodeAt(mark), at2);
  EXPECT_EQ(std::tuple(d.search(0.0f) != nullptr, d.last()->key(), d.previous(at2)->key()),
            std::tuple(true, TtimeValue(4.0f), TtimeValue()));
  EXPECT_TRUE(d.remove(2.0f, mark));
  EXPECT_EQ(d.nodeAt(mark)->key(), TtimeValue(4.0f));  // removal: at the following node
  EXPECT_EQ(std::tuple(d.nodeAt(Tbookmark(TpickKeyDictionary(d))), d.nodeAt(Tbookmark())),
            std::tuple(nullptr, nullptr));  // another dictionary's bookmark

  // NaN is no time: never stored, never found, and bookmarks end at "no node".
  const TtimeValue nan(std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(std::tuple(d.insert(nan, pickOf(*curve, 1, 1)), d.findNode(nan), d.search(nan),
                       d.remove(nan)),
            std::tuple(nullptr, nullptr, nullptr, false));
  mark.moveToFirst();
  EXPECT_EQ(d.insert(nan, pickOf(*curve, 1, 1), mark), nullptr);
  EXPECT_FALSE(mark.valid());
  EXPECT_EQ(d.count(), 2u);
}

TEST(PickKeyDictionary, TypeRecords) {
  ASSERT_TRUE(TpickKeyDictionaryNodeTmeta && TpickKeyDictionaryTmeta);
  EXPECT_STREQ(TpickKeyDictionaryNodeTmeta->name(), "TpickKeyDictionaryNode");
  EXPECT_STREQ(TpickKeyDictionaryTmeta->name(), "TpickKeyDictionary");
  std::unique_ptr<TpickKeyDictionaryNode> node(
      TpickKeyDictionaryNode::construct(TpickKeyDictionaryNodeTmeta));
  std::unique_ptr<TpickKeyDictionary> dict(TpickKeyDictionary::construct(TpickKeyDictionaryTmeta));
  ASSERT_TRUE(node && dict);
  TpickKeyList list;
  EXPECT_EQ(
      std::tuple(node->typeof(), dict->typeof(), list.typeof()),
      std::tuple(TpickKeyDictionaryNodeTmeta, TpickKeyDictionaryTmeta, TpickKeyDictionaryTmeta));
  EXPECT_EQ(std::tuple(node->cast(TpickKeyDictionaryNodeTmeta), node->cast(TpickKeyDictionaryTmeta),
                       dict->cast(TpickKeyDictionaryTmeta)),
            std::tuple(static_cast<void*>(node.get()), nullptr, static_cast<void*>(dict.get())));
  EXPECT_EQ(std::tuple(TpickKeyDictionaryNode::construct(TpickKeyDictionaryTmeta),
                       TpickKeyDictionary::construct(nullptr),
                       TpickKeyDictionary::construct(TserverMsgTmeta)),
            std::tuple(nullptr, nullptr, nullptr));
}

}  // namespace
}  // namespace lumora

#include "lumora/base/dictionary.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

namespace lumora {
namespace {

class CountedNode;
const CountedNode& as(const TdictionaryNode* n);

// An int-keyed node with an int payload that counts live instances, so leaks
// and double destruction show up as a wrong count. A negative payload makes
// clones fail.
class CountedNode : public TdictionaryNode {
 public:
  static inline int sLive = 0;

  explicit CountedNode(int key, int value = 0, int level = 0)
      : TdictionaryNode(level), fKey(key), fValue(value) {
    ++sLive;
  }
  ~CountedNode() override { --sLive; }

  int compare(const TdictionaryNode& other) const override {
    const int k = as(&other).fKey;
    return fKey < k ? -1 : (fKey > k ? 1 : 0);
  }
  void setValue(const TdictionaryNode& other) override { fValue = as(&other).fValue; }
  TdictionaryNode* clone(int level) const override {
    return fValue < 0 ? nullptr : new CountedNode(fKey, fValue, level);
  }

  int fKey;
  int fValue;
};

const CountedNode& as(const TdictionaryNode* n) {
  return *static_cast<const CountedNode*>(n);
}

using Pairs = std::vector<std::pair<int, int>>;

Pairs contents(const Tdictionary& d) {
  Pairs out;
  for (const TdictionaryNode* n = d.first(); n != nullptr; n = Tdictionary::next(n)) {
    out.emplace_back(as(n).fKey, as(n).fValue);
  }
  return out;
}

// The key at the bookmark; -1 at "no node".
int keyAt(const Tbookmark& m) {
  return m.valid() ? as(m.node()).fKey : -1;
}

TEST(Tdictionary, MatchesOrderedMapOverRandomEdits) {
  {
    Tdictionary d;
    std::map<int, int> model;
    std::minstd_rand rnd;
    for (int step = 0; step < 20000; ++step) {
      const int key = static_cast<int>(rnd() % 2000) - 1000, op = static_cast<int>(rnd() % 10);
      if (op < 5) {
        const int value = static_cast<int>(rnd() % 1000);
        const TdictionaryNode* n = d.insertNode(CountedNode(key, value));
        ASSERT_EQ(n ? as(n).fKey : -1, key);
        model[key] = value;
      } else if (op < 8) {
        ASSERT_EQ(d.removeNode(CountedNode(key)), model.erase(key) == 1) << step;
      } else {
        const TdictionaryNode* n = d.searchNode(CountedNode(key));
        const auto it = model.find(key);
        ASSERT_EQ(n ? as(n).fValue : -1, it != model.end() ? it->second : -1) << step;
      }
      ASSERT_EQ(d.count(), model.size());
    }
    ASSERT_EQ(contents(d), Pairs(model.begin(), model.end()));
    EXPECT_EQ(CountedNode::sLive, static_cast<int>(model.size()));
    Pairs backward;
    Tbookmark m(d);
    for (m.moveToLast(); m.valid(); m.previous())
      backward.emplace_back(keyAt(m), as(m.node()).fValue);
    EXPECT_EQ(backward, Pairs(model.rbegin(), model.rend()));
  }
  // Destroying the dictionary destroyed every node exactly once.
  EXPECT_EQ(CountedNode::sLive, 0);
}

TEST(Tdictionary, DuplicateInsertAbsentRemoveFailedCloneAndReset) {
  Tdictionary d;
  EXPECT_FALSE(d.removeNode(CountedNode(1)));
  EXPECT_EQ(std::tuple(d.first(), d.last()), std::tuple(nullptr, nullptr));
  for (int k : {5, 1, 3}) d.insertNode(CountedNode(k));
  // An equal key updates the stored node in place.
  EXPECT_EQ(d.insertNode(CountedNode(3, 2)), d.searchNode(CountedNode(3)));
  EXPECT_FALSE(d.removeNode(CountedNode(2)));
  EXPECT_EQ(d.insertNode(CountedNode(4, -1)), nullptr);  // changes nothing
  EXPECT_EQ(std::tuple(contents(d), CountedNode::sLive),
            std::tuple(Pairs{{1, 0}, {3, 2}, {5, 0}}, 3));
  d.reset();
  EXPECT_EQ(std::tuple(d.empty(), d.first(), CountedNode::sLive), std::tuple(true, nullptr, 0));
  d.insertNode(CountedNode(9));  // usable after reset
  EXPECT_EQ(contents(d), (Pairs{{9, 0}}));
}

TEST(Tdictionary, CopyAndMoveOwnTheirNodes) {
  {
    Tdictionary a;
    for (int k = 0; k < 100; ++k) a.insertNode(CountedNode(k * 7 % 100, k));
    Tdictionary b(a);
    EXPECT_EQ(contents(b), contents(a));
    EXPECT_TRUE(b.first() != a.first() && CountedNode::sLive == 200);
    b.removeNode(CountedNode(50));
    EXPECT_NE(a.searchNode(CountedNode(50)), nullptr);
    Tdictionary c(std::move(b));
    EXPECT_TRUE(b.empty() && c.count() == 99u);  // NOLINT: moved-from state is documented
    c = a;
    const Tdictionary& alias = c;
    c = alias;
    EXPECT_EQ(contents(c), contents(a));
    a = std::move(c);
    EXPECT_EQ(CountedNode::sLive, 100);
    EXPECT_EQ(a.searchNode(CountedNode(99))->forward(0), nullptr);
  }
  EXPECT_EQ(CountedNode::sLive, 0);
}

TEST(Tdictionary, SameEditsBuildTheSameStructure) {
  Tdictionary a, b;
  for (int k = 0; k < 500; ++k) a.insertNode(CountedNode(k)), b.insertNode(CountedNode(k));
  // Links spread over several levels, so searches are not linear walks.
  int tall = 0;
  for (const TdictionaryNode *x = a.first(), *y = b.first(); x != nullptr;
       x = Tdictionary::next(x), y = Tdictionary::next(y)) {
    ASSERT_EQ(x->levels(), y->levels());
    tall += x->levels() >= 3;
  }
  EXPECT_GT(tall, 10);
  EXPECT_LT(tall, 100);
}

TEST(TdictionaryNode, ForwardOutsideItsLevelsIsAHarmlessScratchSlot) {
  CountedNode node(1, 0, 2), other(2);
  node.forward(1) = &other;
  node.forward(5) = &other;
  node.forward(-1) = &other;
  EXPECT_EQ(std::tuple(node.levels(), node.forward(5), node.forward(1), node.forward(0)),
            std::tuple(2, nullptr, &other, nullptr));
  EXPECT_EQ(CountedNode(3, 0, -4).levels(), 0);
  EXPECT_EQ(std::tuple(Tdictionary::next(&other), Tdictionary::next(nullptr)),
            std::tuple(nullptr, nullptr));
}

TEST(Tbookmark, WalksSearchesAndRetiresThroughTheNoNodePosition) {
  Tdictionary d;
  for (int k : {30, 10, 20}) d.insertNode(CountedNode(k));
  Tbookmark m(d);

  // Each step: what the call answered, then the key at the bookmark. Past
  // either end lies "no node", and one more step wraps; a miss stops at the
  // following node, so previous() reaches the one before.
  std::vector<int> seen;
  const auto note = [&](int answer) { seen.insert(seen.end(), {answer, keyAt(m)}); };
  note((m.next(), m.next(), m.next(), 0));
  note((m.next(), 0));
  note((m.previous(), m.previous(), 0));
  note(d.searchNode(CountedNode(20), m) != nullptr);
  note(d.searchNode(CountedNode(25), m) != nullptr);
  note((m.previous(), 0));
  note(d.searchNode(CountedNode(35), m) != nullptr);
  note((m.previous(), 0));
  note(as(d.insertNode(CountedNode(15), m)).fKey);
  note((m.next(), 0));
  note(d.removeNode(CountedNode(20), m));
  note(d.removeNode(CountedNode(12), m));
  // Insertions keep bookmarks; removing a node elsewhere or resetting
  // retires them to "no node".
  note(d.insertNode(CountedNode(40)) != nullptr);
  note(d.removeNode(CountedNode(30)));
  note((m.next(), 0));
  note((d.reset(), 0));
  EXPECT_EQ(seen, (std::vector<int>{0,  -1, 0, 10, 0, 30, 1, 20, 0, 30, 0, 20, 0, -1, 0, 30,
                                    15, 15, 0, 20, 1, 30, 0, 15, 1, 15, 1, -1, 0, 10, 0, -1}));

  Tbookmark unbound;
  unbound.next();
  EXPECT_FALSE(unbound.valid());
  EXPECT_EQ(Tbookmark(Tdictionary()).node(), nullptr);

  // Removing while walking with the same bookmark.
  for (int k = 0; k < 10; ++k) d.insertNode(CountedNode(k));
  for (Tbookmark w(d); w.valid();) {
    if (keyAt(w) % 2 != 0) w.next();
    if (keyAt(w) % 2 == 0) d.removeNode(CountedNode(keyAt(w)), w);
  }
  EXPECT_EQ(contents(d), (Pairs{{1, 0}, {3, 0}, {5, 0}, {7, 0}, {9, 0}}));
}

}  // namespace
}  // namespace lumora

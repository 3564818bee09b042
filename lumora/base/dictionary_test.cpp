#include "lumora/base/dictionary.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace lumora {
namespace {

// An int-keyed node with an int payload that counts live instances, so leaks
// and double destruction show up as a wrong count.
class CountedNode : public TdictionaryNode {
 public:
  static inline int sLive = 0;
  static inline int sSetValueCalls = 0;

  explicit CountedNode(int key, int value = 0, int level = 0)
      : TdictionaryNode(level), fKey(key), fValue(value) {
    ++sLive;
  }
  ~CountedNode() override { --sLive; }

  int compare(const TdictionaryNode& other) const override {
    const int k = static_cast<const CountedNode&>(other).fKey;
    return fKey < k ? -1 : (fKey > k ? 1 : 0);
  }
  void setValue(const TdictionaryNode& other) override {
    ++sSetValueCalls;
    fValue = static_cast<const CountedNode&>(other).fValue;
  }
  TdictionaryNode* clone(int level) const override { return new CountedNode(fKey, fValue, level); }

  int fKey;
  int fValue;
};

// A node type whose clones can be told to fail.
class FailingNode : public CountedNode {
 public:
  using CountedNode::CountedNode;
  TdictionaryNode* clone(int) const override { return nullptr; }
};

const CountedNode& as(const TdictionaryNode* n) {
  return *static_cast<const CountedNode*>(n);
}

std::vector<std::pair<int, int>> contents(const Tdictionary& d) {
  std::vector<std::pair<int, int>> out;
  for (const TdictionaryNode* n = d.first(); n != nullptr; n = Tdictionary::next(n)) {
    out.emplace_back(as(n).fKey, as(n).fValue);
  }
  return out;
}

std::vector<std::pair<int, int>> contents(const std::map<int, int>& m) {
  return {m.begin(), m.end()};
}

// The key at the bookmark; -1 at "no node".
int keyAt(const Tbookmark& m) {
  return m.valid() ? as(m.node()).fKey : -1;
}

// Keys and values from a fixed linear congruential sequence.
struct Lcg {
  unsigned state = 12345;
  int operator()(int range) {
    state = state * 1103515245u + 12345u;
    return static_cast<int>((state >> 8) % static_cast<unsigned>(range));
  }
};

TEST(Tdictionary, MatchesOrderedMapOverRandomEdits) {
  {
    Tdictionary d;
    std::map<int, int> model;
    Lcg rnd;
    for (int step = 0; step < 20000; ++step) {
      const int key = rnd(2000) - 1000;
      const int op = rnd(10);
      if (op < 5) {
        const int value = rnd(1000);
        TdictionaryNode* n = d.insertNode(CountedNode(key, value));
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
      ASSERT_TRUE(step % 1000 != 0 || contents(d) == contents(model)) << step;
    }
    ASSERT_EQ(contents(d), contents(model));
    EXPECT_EQ(CountedNode::sLive, static_cast<int>(model.size()));
    ASSERT_FALSE(model.empty());
    std::vector<std::pair<int, int>> backward;
    Tbookmark m(d);
    for (m.moveToLast(); m.valid(); m.previous()) {
      backward.emplace_back(as(m.node()).fKey, as(m.node()).fValue);
    }
    EXPECT_EQ(backward, (std::vector<std::pair<int, int>>(model.rbegin(), model.rend())));
    EXPECT_EQ(as(d.last()).fKey, model.rbegin()->first);
    EXPECT_EQ(as(d.previous(d.last())).fKey, std::next(model.rbegin())->first);
    EXPECT_EQ(d.previous(d.first()), nullptr);
  }
  // Destroying the dictionary destroyed every node exactly once.
  EXPECT_EQ(CountedNode::sLive, 0);
}

TEST(Tdictionary, DuplicateInsertUpdatesTheStoredNode) {
  Tdictionary d;
  CountedNode::sSetValueCalls = 0;
  TdictionaryNode* first = d.insertNode(CountedNode(7, 1));
  TdictionaryNode* again = d.insertNode(CountedNode(7, 2));
  EXPECT_EQ(std::tuple(again, as(first).fValue, CountedNode::sSetValueCalls, d.count(),
                       CountedNode::sLive),
            std::tuple(first, 2, 1, 1u, 1));
}

TEST(Tdictionary, RemoveAbsentResetAndFailedClones) {
  Tdictionary d;
  EXPECT_FALSE(d.removeNode(CountedNode(1)));
  EXPECT_EQ(std::tuple(d.first(), d.last()), std::tuple(nullptr, nullptr));
  for (int k : {5, 1, 3}) d.insertNode(CountedNode(k));
  EXPECT_FALSE(d.removeNode(CountedNode(2)));
  EXPECT_EQ(d.insertNode(FailingNode(4)), nullptr);  // a probe whose clone fails changes nothing
  EXPECT_EQ(contents(d), (std::vector<std::pair<int, int>>{{1, 0}, {3, 0}, {5, 0}}));
  d.reset();
  EXPECT_EQ(std::tuple(d.empty(), d.first(), CountedNode::sLive), std::tuple(true, nullptr, 0));
  d.insertNode(CountedNode(9));  // usable after reset
  EXPECT_EQ(contents(d), (std::vector<std::pair<int, int>>{{9, 0}}));
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
    EXPECT_EQ(contents(c), contents(a));
    const Tdictionary& alias = c;
    c = alias;
    EXPECT_EQ(c.count(), 100u);
    a = std::move(c);
    EXPECT_EQ(CountedNode::sLive, 100);
    EXPECT_EQ(a.searchNode(CountedNode(99))->forward(0), nullptr);
  }
  EXPECT_EQ(CountedNode::sLive, 0);
}

TEST(Tdictionary, SameEditsBuildTheSameStructure) {
  Tdictionary a, b;
  for (int k = 0; k < 500; ++k) {
    a.insertNode(CountedNode(k));
    b.insertNode(CountedNode(k));
  }
  for (const TdictionaryNode *x = a.first(), *y = b.first(); x != nullptr;
       x = Tdictionary::next(x), y = Tdictionary::next(y)) {
    ASSERT_EQ(x->levels(), y->levels());
  }
  // Links spread over several levels, so searches are not linear walks.
  int tall = 0;
  for (const TdictionaryNode* x = a.first(); x != nullptr; x = Tdictionary::next(x)) {
    if (x->levels() >= 3) ++tall;
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

TEST(Tbookmark, WalksBothWaysThroughTheNoNodePosition) {
  Tdictionary d;
  for (int k : {40, 10, 30, 20}) d.insertNode(CountedNode(k));

  std::vector<int> forward, backward;
  for (Tbookmark m(d); m.valid(); m.next()) forward.push_back(as(m.node()).fKey);
  Tbookmark m(d);
  for (m.moveToLast(); m.valid(); m.previous()) backward.push_back(as(m.node()).fKey);
  EXPECT_EQ(forward, (std::vector<int>{10, 20, 30, 40}));
  EXPECT_EQ(backward, (std::vector<int>{40, 30, 20, 10}));

  // m is at "no node" before the first; one step either way wraps.
  m.next();
  EXPECT_EQ(keyAt(m), 10);
  m.previous();
  m.previous();
  EXPECT_EQ(keyAt(m), 40);

  Tbookmark unbound;
  unbound.next();
  EXPECT_FALSE(unbound.valid());
  EXPECT_EQ(Tbookmark(Tdictionary()).node(), nullptr);
}

TEST(Tbookmark, LeftWhereTheProbeIsOrWouldBe) {
  Tdictionary d;
  for (int k : {10, 20, 30}) d.insertNode(CountedNode(k));
  Tbookmark m;

  // Each step: what the call answered, then the key at the bookmark. A miss
  // stops at the following node; previous() reaches the one before.
  std::vector<int> seen;
  const auto note = [&](int answer) { seen.insert(seen.end(), {answer, keyAt(m)}); };
  note(d.searchNode(CountedNode(20), m) != nullptr);
  note(d.searchNode(CountedNode(25), m) != nullptr);
  note((m.previous(), 0));
  note(d.searchNode(CountedNode(35), m) != nullptr);
  note((m.previous(), 0));
  note(as(d.insertNode(CountedNode(15), m)).fKey);
  note((m.next(), 0));
  note(d.removeNode(CountedNode(20), m));
  note(d.removeNode(CountedNode(12), m));
  EXPECT_EQ(seen,
            (std::vector<int>{1, 20, 0, 30, 0, 20, 0, -1, 0, 30, 15, 15, 0, 20, 1, 30, 0, 15}));
}

TEST(Tbookmark, RemovalElsewhereRetiresOldBookmarks) {
  Tdictionary d;
  for (int k : {1, 2, 3}) d.insertNode(CountedNode(k));
  Tbookmark m;
  d.searchNode(CountedNode(2), m);
  d.insertNode(CountedNode(4));
  EXPECT_EQ(keyAt(m), 2);  // insertions keep bookmarks
  d.removeNode(CountedNode(2));
  EXPECT_EQ(keyAt(m), -1);  // its node is gone; it reads as "no node"
  m.next();
  EXPECT_EQ(keyAt(m), 1);
  d.reset();
  EXPECT_FALSE(m.valid());

  // Removing while walking with the same bookmark.
  for (int k = 0; k < 10; ++k) d.insertNode(CountedNode(k));
  for (Tbookmark w(d); w.valid();) {
    if (keyAt(w) % 2 != 0) w.next();
    if (keyAt(w) % 2 == 0) d.removeNode(CountedNode(keyAt(w)), w);
  }
  EXPECT_EQ(contents(d),
            (std::vector<std::pair<int, int>>{{1, 0}, {3, 0}, {5, 0}, {7, 0}, {9, 0}}));
}

}  // namespace
}  // namespace lumora

#include "lumora/base/ptr_array.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace lumora {
namespace {

struct Tnode {
  int id;
};

// Declared the way owners of element classes declare their named arrays.
class TnodePtrArray : public TptrArray<Tnode> {
 public:
  using TptrArray::TptrArray;
};

// 1 for each call that failed, 0 for each that succeeded, in order.
std::vector<int> failed(std::initializer_list<int> results) {
  std::vector<int> out;
  for (int r : results) out.push_back(r != 0 ? 1 : 0);
  return out;
}

// Five nodes, and a helper that reads an array back as node ids (-1 for null).
Tnode n[5] = {{0}, {1}, {2}, {3}, {4}};

std::vector<int> ids(const TnodePtrArray& a) {
  std::vector<int> out;
  for (unsigned i = 0; i < a.count(); ++i) out.push_back(a[i] != nullptr ? a[i]->id : -1);
  return out;
}

TnodePtrArray allFive() {
  TnodePtrArray a;
  for (Tnode& node : n) EXPECT_EQ(a.addLast(&node), 0);
  return a;
}

TEST(TptrArray, InsertsTakeCountBeforeIndexAndGapsAreNull) {
  TnodePtrArray a;
  EXPECT_EQ(a.last(), nullptr);
  Tnode* const middle[] = {&n[1], &n[2], &n[3]};
  // Past the end, or without elements: refused.
  EXPECT_EQ(failed({a.addLast(&n[0]), a.addLast(&n[4]), a.insert(middle, /*count=*/3, /*index=*/1),
                    a.insert(&n[2], 5), a.insert(middle, 1, 8), a.insert(&n[0], 8),
                    a.insert(nullptr, 2, 0), a.addLast(middle, 2), a.createAndSet(&n[4], 9, 1)}),
            (std::vector<int>{0, 0, 0, 0, 1, 1, 1, 0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{0, 1, 2, 3, 4, 2, 1, 2, -1, 4}));
  a[0] = &n[3];
  a[10] = &n[3];  // out of range: discarded
  EXPECT_EQ(std::vector<Tnode*>({a[0], a[10], a.last()}),
            (std::vector<Tnode*>{&n[3], nullptr, &n[4]}));
}

TEST(TptrArray, FindAndRemoveFirstOccurrence) {
  TnodePtrArray a = allFive();
  ASSERT_EQ(a.addLast(&n[1]), 0);
  unsigned index = 99;
  ASSERT_EQ(a.find(&n[1], index), 0);
  EXPECT_EQ(index, 1u);
  EXPECT_EQ(failed({a.remove(&n[1]), a.find(&n[1], index), a.remove(&n[1]), a.find(&n[1]),
                    a.remove(&n[1]), a.find(nullptr), a.removeAt(1, 2), a.removeAt(1, 2)}),
            (std::vector<int>{0, 0, 0, 1, 1, 1, 0, 1}));
  EXPECT_EQ(std::tuple(index, ids(a)), std::tuple(4u, std::vector<int>{0, 4}));
}

TEST(TptrArray, CopyAndCatenateRanges) {
  const TnodePtrArray five = allFive();
  TnodePtrArray a = allFive();
  ASSERT_EQ(failed({a.copy(five, 5), a.copy(five, 3), a.catenate(five, 1, 2), a.catenate(five, 4)}),
            (std::vector<int>{0, 0, 0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{3, 4, 1, 2, 4}));
  ASSERT_EQ(failed({a.catenate(a), a.copy(a, 4, 3)}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{4, 3, 4}));
  EXPECT_EQ(failed({a.copy(five), a.copy(five, 6), a.copy(five, 4, 2), a.catenate(five, 6),
                    a.catenate(five, 2, 0xFFFFFFFF)}),
            (std::vector<int>{0, 1, 1, 1, 1}));
  EXPECT_EQ(ids(a), (std::vector<int>{0, 1, 2, 3, 4}));
  Tnode* buffer[5] = {};
  EXPECT_EQ(failed({a.copyTo(buffer), a.copyTo(nullptr)}), (std::vector<int>{0, 1}));
  EXPECT_EQ(std::vector<Tnode*>(buffer, buffer + 5), std::vector<Tnode*>(a.data(), a.data() + 5));
}

}  // namespace
}  // namespace lumora

#include "lumora/base/ptr_array.h"

#include <gtest/gtest.h>

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

class TnodePtrArrayPtrList : public TptrArray<TnodePtrArray> {
 public:
  using TptrArray::TptrArray;
};

// 1 for each call that failed, 0 for each that succeeded, in order.
std::vector<int> failed(std::initializer_list<int> results) {
  std::vector<int> out;
  for (int r : results) out.push_back(r != 0 ? 1 : 0);
  return out;
}

// Five nodes and a helper that reads an array back as node ids (-1 for null).
struct PtrArrayTest : ::testing::Test {
  Tnode n[5] = {{0}, {1}, {2}, {3}, {4}};
  static std::vector<int> ids(const TnodePtrArray& a) {
    std::vector<int> out;
    for (unsigned i = 0; i < a.count(); ++i) out.push_back(a[i] != nullptr ? a[i]->id : -1);
    return out;
  }
  TnodePtrArray allFive() {
    TnodePtrArray a;
    for (Tnode& node : n) EXPECT_EQ(a.addLast(&node), 0);
    return a;
  }
};

TEST_F(PtrArrayTest, MultiInsertTakesCountBeforeIndex) {
  TnodePtrArray a;
  Tnode* const middle[] = {&n[1], &n[2], &n[3]};
  EXPECT_EQ(
      failed({a.addLast(&n[0]), a.addLast(&n[4]), a.insert(middle, /*count=*/3, /*index=*/1)}),
      (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{0, 1, 2, 3, 4}));
  // Past the end, or without elements: refused.
  EXPECT_EQ(failed({a.insert(middle, 1, 0), a.insert(&n[2], 6), a.insert(middle, 1, 8),
                    a.insert(&n[0], 8), a.insert(nullptr, 2, 0)}),
            (std::vector<int>{0, 0, 1, 1, 1}));
  EXPECT_EQ(ids(a), (std::vector<int>{1, 0, 1, 2, 3, 4, 2}));
}

TEST_F(PtrArrayTest, AddLastCreateAndSetAndLast) {
  TnodePtrArray a(1);
  EXPECT_EQ(a.last(), nullptr);
  Tnode* const pair[] = {&n[3], nullptr};
  EXPECT_EQ(failed({a.addLast(pair, 2), a.createAndSet(&n[1], 1, 2)}), (std::vector<int>{0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{3, 1, 1}));
  ASSERT_EQ(a.createAndSet(&n[2], 4, 1), 0);
  EXPECT_EQ(ids(a), (std::vector<int>{3, 1, 1, -1, 2}));
  EXPECT_EQ(a.last(), &n[2]);
  EXPECT_EQ(a.data()[0], &n[3]);
  a[0] = &n[4];
  a[5] = &n[4];  // out of range: discarded
  EXPECT_EQ(std::vector<Tnode*>({a[0], a[5]}), (std::vector<Tnode*>{&n[4], nullptr}));
  EXPECT_EQ(a.count(), 5u);
}

TEST_F(PtrArrayTest, FindAndRemoveFirstOccurrence) {
  TnodePtrArray a = allFive();
  ASSERT_EQ(a.addLast(&n[1]), 0);
  unsigned index = 99;
  ASSERT_EQ(a.find(&n[1], index), 0);
  EXPECT_EQ(index, 1u);
  ASSERT_EQ(failed({a.remove(&n[1]), a.find(&n[1], index)}), (std::vector<int>{0, 0}));
  EXPECT_EQ(index, 4u);
  EXPECT_EQ(failed({a.remove(&n[1]), a.find(&n[1]), a.remove(&n[1]), a.find(nullptr),
                    a.removeAt(1, 2), a.removeAt(1, 2)}),
            (std::vector<int>{0, 1, 1, 1, 0, 1}));
  EXPECT_EQ(ids(a), (std::vector<int>{0, 4}));
}

TEST_F(PtrArrayTest, CopyAndCatenateRanges) {
  const TnodePtrArray five = allFive();
  TnodePtrArray a;
  ASSERT_EQ(a.copy(five), 0);
  EXPECT_EQ(ids(a), (std::vector<int>{0, 1, 2, 3, 4}));
  ASSERT_EQ(failed({a.copy(five, 3), a.catenate(five, 1, 2), a.catenate(five, 4)}),
            (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(ids(a), (std::vector<int>{3, 4, 1, 2, 4}));
  ASSERT_EQ(a.catenate(a), 0);
  EXPECT_EQ(ids(a), (std::vector<int>{3, 4, 1, 2, 4, 3, 4, 1, 2, 4}));
  ASSERT_EQ(a.copy(a, 2, 3), 0);
  EXPECT_EQ(ids(a), (std::vector<int>{1, 2, 4}));
  ASSERT_EQ(a.copy(five, 5), 0);  // the empty tail
  EXPECT_EQ(a.count(), 0u);
  EXPECT_EQ(failed({a.copy(five, 1, 2), a.copy(five, 6), a.copy(five, 4, 2), a.catenate(five, 6),
                    a.catenate(five, 2, 0xFFFFFFFF)}),
            (std::vector<int>{0, 1, 1, 1, 1}));
  EXPECT_EQ(ids(a), (std::vector<int>{1, 2}));
  Tnode* buffer[2] = {nullptr, nullptr};
  EXPECT_EQ(failed({a.copyTo(buffer), a.copyTo(nullptr)}), (std::vector<int>{0, 1}));
  EXPECT_EQ(buffer[1], &n[2]);
}

TEST_F(PtrArrayTest, SwapAndListsOfArrays) {
  TnodePtrArray a = allFive();
  TnodePtrArray b;
  b.swap(a);
  EXPECT_EQ(a.count(), 0u);
  EXPECT_EQ(ids(b), (std::vector<int>{0, 1, 2, 3, 4}));
  TnodePtrArrayPtrList list;
  ASSERT_EQ(failed({list.addLast(&a), list.addLast(&b), list.find(&b)}),
            (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(list.last()->count(), 5u);
}

}  // namespace
}  // namespace lumora

#include "lumora/base/array.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "lumora/base/time_arrays.h"

namespace lumora {
namespace {

std::vector<int> contents(const Tarray& a) {
  const int* p = static_cast<const int*>(a.data());
  return std::vector<int>(p, p + a.count());
}

// The index of every result that is not 0, so a failed check names the call.
std::vector<int> failures(std::initializer_list<int> results) {
  std::vector<int> out;
  for (const int* r = results.begin(); r != results.end(); ++r)
    if (*r != 0) out.push_back(static_cast<int>(r - results.begin()));
  return out;
}
const std::vector<int> kNone;

Tarray intsOf(std::initializer_list<int> values) {
  Tarray a(sizeof(int));
  for (int v : values) EXPECT_EQ(a.appendElement(&v), 0);
  return a;
}

// Counts reallocations and can refuse capacities above a limit, standing in
// for an allocator that runs out of memory.
class TcountingArray : public Tarray {
 public:
  explicit TcountingArray(unsigned refuseAbove = kMaxCount)
      : Tarray(sizeof(int)), fRefuseAbove(refuseAbove) {}
  unsigned fAllocations = 0;
  unsigned fRefuseAbove;
  void corruptCount(unsigned count) { fCount = count; }

 protected:
  int allocateArray(unsigned capacity) override {
    if (capacity > fRefuseAbove) return -1;
    ++fAllocations;
    return Tarray::allocateArray(capacity);
  }
};

TEST(Tarray, AppendsGrowGeometricallyAndKeepContents) {
  TcountingArray a;
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(a.appendElement(&i), 0);
  EXPECT_LT(a.fAllocations, 40u);
  const std::vector<int> got = contents(a);
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(got.at(i), i);
}

TEST(Tarray, CreateKeepsLowerElementsAndZeroesNewOnes) {
  Tarray a = intsOf({7, 8, 9});
  ASSERT_EQ(a.create(5, 20), 0);
  EXPECT_EQ(contents(a), (std::vector<int>{7, 8, 9, 0, 0}));
  EXPECT_GE(a.capacity(), 20u);
  ASSERT_EQ(failures({a.create(1, 0), a.changeLogicalSizeTo(3)}), kNone);
  EXPECT_EQ(contents(a), (std::vector<int>{7, 0, 0}));
}

TEST(Tarray, BadRequestsFailAndChangeNothing) {
  Tarray a = intsOf({1, 2, 3});
  const int x = 9;
  const unsigned capacity = a.capacity();
  unsigned index = 77;
  // Oversized requests (createAndInitialise's index + count wraps), then bad
  // indices and null elements: only the empty range at the end (13) is
  // accepted, and removeAt(1, ...) wraps.
  EXPECT_EQ(
      failures({a.create(0xFFFFFFFF, 0xFFFFFFFF), a.create(0, a.maxCapacity() + 1),
                a.changeLogicalSizeTo(0xFFFFFFFF), a.changePhysicalSizeTo(0xFFFFFFFF),
                a.insertElement(&x, 1, 0xFFFFFFFF), a.createAndInitialise(&x, 0xFFFFFFFE, 2),
                a.copyElements(2, &x, 0xFFFFFFFF), a.insertElement(&x, 4),
                a.insertElement(nullptr, 0), a.appendElement(nullptr), a.removeAt(3, 1),
                a.removeAt(1, 0xFFFFFFFF), a.removeAt(4, 0), a.removeAt(3, 0),
                a.findElement(nullptr, index), a.findElement(&x, index), a.removeElement(&x)}),
      (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16}));
  EXPECT_EQ(std::tuple(contents(a), a.capacity(), index, a.elementAt(3)),
            std::tuple(std::vector<int>{1, 2, 3}, capacity, 77u, nullptr));
  EXPECT_EQ(a.maxCapacity(), Tarray::kMaxBytes / sizeof(int));
  EXPECT_NE(Tarray(/*elementSize=*/0).appendElement(&x), 0);
}

TEST(Tarray, RefusedAllocationAndBadBookkeepingLeaveTheElements) {
  TcountingArray a(/*refuseAbove=*/4);
  // The geometric jump to 8 slots is refused; growth falls back to the minimum.
  for (int i = 0; i < 4; ++i) ASSERT_EQ(a.appendElement(&i), 0);
  const int x = 99;
  EXPECT_EQ(failures({a.appendElement(&x), a.insertElement(&x, 0, 2), a.copyElements(3, &x, 2),
                      a.changeLogicalSizeTo(5)}),
            (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(std::tuple(contents(a), a.capacity()), std::tuple(std::vector<int>{0, 1, 2, 3}, 4u));
  // A count past the capacity is reported and clamped.
  a.corruptCount(9);
  EXPECT_EQ(failures({a.validateAndUpdate(), a.validateAndUpdate()}), std::vector<int>{0});
  EXPECT_EQ(contents(a), (std::vector<int>{0, 1, 2, 3}));
}

TEST(Tarray, InsertsAndWritesAtAnyPositionFillingGapsWithZero) {
  Tarray a = intsOf({1, 2, 3});
  const int x = 5;
  const int run[] = {6, 7, 8};
  ASSERT_EQ(failures({a.insertElement(&x, 1, 3), a.insertElements(run, 0, 2),
                      a.insertElements(run, 8, 1)}),
            kNone);
  EXPECT_EQ(contents(a), (std::vector<int>{6, 7, 1, 5, 5, 5, 2, 3, 6}));
  // Finding and removing take the first bytewise match; the removal leaves a
  // stale value behind the end that a gap must not show.
  unsigned index = 9;
  EXPECT_EQ(failures({a.findElement(run, index), a.removeElement(run)}), kNone);
  EXPECT_EQ(index, 0u);
  ASSERT_EQ(failures({a.findElement(run, index), a.createAndInitialise(&x, 1, 2),
                      a.createAndInitialise(&x, 9, 1), a.copyElements(10, run, 3),
                      a.copyElements(0, run + 2, 1)}),
            kNone);
  EXPECT_EQ(index, 7u);
  EXPECT_EQ(contents(a), (std::vector<int>{8, 5, 5, 5, 5, 2, 3, 6, 0, 5, 6, 7, 8}));
}

TEST(Tarray, ElementsTakenFromItsOwnBlockSurviveGrowth) {
  Tarray a = intsOf({1, 2, 3});
  ASSERT_EQ(a.changePhysicalSizeTo(3), 0);
  ASSERT_EQ(a.appendElement(a.elementAt(0)), 0);           // block moves
  ASSERT_EQ(a.insertElements(a.data(), 1, a.count()), 0);  // source shifts
  ASSERT_EQ(a.createAndInitialise(a.elementAt(2), 7, 2), 0);
  EXPECT_EQ(contents(a), (std::vector<int>{1, 1, 2, 3, 1, 2, 3, 2, 2}));
  ASSERT_EQ(failures({a.appendFrom(a, 1, 2), a.assignFrom(a, 7, 4)}), kNone);
  EXPECT_EQ(contents(a), (std::vector<int>{2, 2, 1, 2}));
}

TEST(Tarray, CopyMoveAndSwapCarryElementsAndSizes) {
  Tarray a = intsOf({1, 2, 3});
  Tarray b(a), c(sizeof(char), 4), e(sizeof(char));
  c = b;  // takes b's element size too
  Tarray d(std::move(b));
  e.swap(d);
  // A copy's capacity is its count.
  EXPECT_EQ(std::tuple(e.capacity(), b.data(), d.elementSize()), std::tuple(3u, nullptr, 1u));
  for (const Tarray* x : {&c, &e}) {
    EXPECT_EQ(std::tuple(x->elementSize(), contents(*x)),
              std::tuple(4u, std::vector<int>{1, 2, 3}));
  }
  // The element sizes differ.
  EXPECT_EQ(failures({d.assignFrom(a, 0, 1), d.appendFrom(a, 0, 1)}), (std::vector<int>{0, 1}));
}

TEST(Tarray, CapacityTrimsButNeverBelowTheCount) {
  Tarray a(sizeof(int), 1000);
  for (int i = 0; i < 600; ++i) a.appendElement(&i);
  ASSERT_EQ(a.changePhysicalSizeTo(10), 0);
  EXPECT_EQ(a.capacity(), 600u);
  ASSERT_EQ(a.removeAt(10, 580), 0);  // under a quarter in use: shrinks to twice the count
  EXPECT_EQ(std::tuple(a.capacity(), contents(a).back()), std::tuple(40u, 599));
  ASSERT_EQ(a.resyncAndClean(), 0);
  EXPECT_EQ(a.capacity(), a.count());
  ASSERT_EQ(failures({a.changeLogicalSizeTo(0), a.resyncAndClean()}), kNone);
  EXPECT_EQ(a.data(), nullptr);
}

TEST(TobjArray, SlotsAreNullAndBadIndicesHitAScratchSlot) {
  TobjArray a;
  int target = 0;
  ASSERT_EQ(failures({a.create(2, 4), a.addLast(&target), a.insertElement(1, 2)}), kNone);
  EXPECT_EQ(std::vector<void*>(a.data(), a.data() + a.count()),
            (std::vector<void*>{nullptr, nullptr, nullptr, nullptr, &target}));
  a[9] = &target;
  EXPECT_EQ(a[9], nullptr);
  EXPECT_NE(a.insertElement(6, 1), 0);
}

// Every typed array is the same template; doubles stand for the rest.
TEST(TtypedArray, AddInsertRemoveCheckedAccessAndZeroSlots) {
  TdoubleArray a(2);
  for (int i = 0; i < 50; ++i) ASSERT_EQ(a.addLast(i), 0);
  EXPECT_EQ(failures({a.insert(99, 10), a.remove(0), a.insert(1, 51), a.remove(50)}),
            (std::vector<int>{2, 3}));
  ASSERT_EQ(a.count(), 50u);
  EXPECT_EQ(std::tuple(a[9], a[0], a.last(), a.data()[10], a.valueAt(50)),
            std::tuple(99.0, 1.0, 49.0, 10.0, 0.0));
  TdoubleArray empty;
  empty.last() = 3;  // a scratch value: the write is lost
  EXPECT_EQ(empty.last(), 0.0);
  // Created slots are zero bytes: for a quaternion that is not the identity.
  TquaternionArray q;
  ASSERT_EQ(failures({q.create(1, 0), q.addLast(Tquaternion())}), kNone);
  EXPECT_TRUE(q[0] == Tquaternion(0, 0, 0, 0) && q[1] == Tquaternion(0, 0, 0, 1));
}

}  // namespace
}  // namespace lumora

#include "lumora/base/sorted_array.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

// Float keys that count as equal within 1e-5, the way key times compare, each
// carrying a tag that the order ignores so that the placement of equal keys
// can be seen.
struct Tkeyed {
  float key;
  int tag;
};

class TkeyedArray : public TsortedArray {
 public:
  explicit TkeyedArray(bool allowDuplicates) : TsortedArray(sizeof(Tkeyed), 4, allowDuplicates) {}
  int compare(const void* a, const void* b) const override {
    const float x = static_cast<const Tkeyed*>(a)->key, y = static_cast<const Tkeyed*>(b)->key;
    return std::fabs(x - y) <= 1e-5f ? 0 : (x < y ? -1 : 1);
  }
  // Where the key went or would go (~index when refused or missing).
  unsigned insert(float key, int tag) {
    const Tkeyed k{key, tag};
    unsigned index = 0;
    return insertSorted(&k, index) == 0 ? index : ~index;
  }
  unsigned find(float key) const {
    const Tkeyed k{key, 0};
    unsigned index = 77;
    return search(&k, index) ? index : ~index;
  }
  std::vector<int> tags() const {
    std::vector<int> out;
    for (unsigned i = 0; i < count(); ++i)
      out.push_back(static_cast<const Tkeyed*>(elementAt(i))->tag);
    return out;
  }
};

TEST(TsortedArray, WithoutDuplicatesAnEqualKeyIsRefused) {
  TkeyedArray a(/*allowDuplicates=*/false);
  std::vector<unsigned> at;
  int tag = 0;
  for (float key : {50.0f, 10.0f, 30.0f, 90.0f, -5.0f, 30.0f, 10.000004f, 9.99998f}) {
    at.push_back(a.insert(key, ++tag));
  }
  // A refusal names the equal key already there, which stays as it was.
  EXPECT_EQ(at, (std::vector<unsigned>{0, 0, 1, 3, 0, ~2u, ~1u, 1}));
  EXPECT_EQ(a.tags(), (std::vector<int>{5, 8, 2, 3, 1, 4}));
  // The index of the key, or ~ of where it would go.
  const std::tuple<float, unsigned> probes[] = {{-6, ~0u}, {-5, 0}, {9.999995f, 2},
                                                {40, ~4u}, {90, 5}, {91, ~6u}};
  for (const auto& [key, where] : probes) EXPECT_EQ(a.find(key), where) << key;
  EXPECT_EQ(a.validateAndUpdate(), 0);
}

TEST(TsortedArray, DuplicatesGoAfterTheirEqualRun) {
  TkeyedArray a(/*allowDuplicates=*/true);
  std::vector<unsigned> at;
  int tag = 0;
  for (float key : {2.0f, 1.0f, 2.000004f, 3.0f, 1.999996f}) at.push_back(a.insert(key, ++tag));
  EXPECT_EQ(at, (std::vector<unsigned>{0, 0, 2, 3, 3}));
  EXPECT_EQ(a.tags(), (std::vector<int>{2, 1, 3, 5, 4}));
  EXPECT_EQ(a.find(2), 1u);  // first of the run
  for (unsigned i = 0; i < a.count(); ++i) EXPECT_TRUE(a.orderValidAt(i)) << i;
}

TEST(TsortedArray, OrderChecksFindBrokenPlaces) {
  TkeyedArray strict(/*allowDuplicates=*/false), loose(/*allowDuplicates=*/true);
  for (float v : {1.0f, 2.0f, 3.0f}) strict.insert(v, 0);
  const Tkeyed stray{5, 0}, one{1, 0};
  ASSERT_EQ(strict.insertElement(&stray, 1), 0);  // plain insert ignores order
  std::vector<bool> valid;
  for (unsigned i = 0; i <= 4; ++i) valid.push_back(strict.orderValidAt(i));
  EXPECT_EQ(valid, (std::vector<bool>{true, false, false, true, false}));  // 4: no such element
  EXPECT_NE(strict.validateAndUpdate(), 0);
  // Equal neighbours break only the strict order.
  ASSERT_EQ(strict.create(0, 0), 0);
  ASSERT_EQ(strict.insertElement(&one, 0, 2), 0);
  ASSERT_EQ(loose.insertElement(&one, 0, 2), 0);
  EXPECT_EQ(std::tuple(loose.orderValidAt(1), strict.orderValidAt(0), strict.orderValidAt(1)),
            std::tuple(true, false, false));
}

TEST(TsortedArray, DefaultOrderIsUnsignedBytes) {
  TsortedArray a(1, 0, /*allowDuplicates=*/false);
  unsigned index = 0;
  for (unsigned char c : {0x80, 0x00, 0x7F}) ASSERT_EQ(a.insertSorted(&c, index), 0);
  const auto* bytes = static_cast<const unsigned char*>(a.data());
  EXPECT_EQ(std::vector<int>(bytes, bytes + a.count()), (std::vector<int>{0x00, 0x7F, 0x80}));
  EXPECT_NE(a.insertSorted(nullptr, index), 0);
  EXPECT_FALSE(a.search(nullptr, index));
  EXPECT_EQ(index, 0u);
}

}  // namespace
}  // namespace lumora

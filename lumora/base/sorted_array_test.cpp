#include "lumora/base/sorted_array.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

// Float times that count as equal within 1e-5, the way key times compare.
class TtolerantFloatArray : public TsortedArray {
 public:
  explicit TtolerantFloatArray(bool allowDuplicates)
      : TsortedArray(sizeof(float), 0, allowDuplicates) {}
  int compare(const void* a, const void* b) const override {
    const float x = *static_cast<const float*>(a), y = *static_cast<const float*>(b);
    return std::fabs(x - y) <= 1e-5f ? 0 : (x < y ? -1 : 1);
  }
  int insert(float v) {
    unsigned index = 0;
    return insertSorted(&v, index);
  }
  float at(unsigned i) const { return *static_cast<const float*>(elementAt(i)); }
};

// Exactly ordered int32 keys, each carrying a tag that the order ignores so
// that the placement of equal keys can be seen.
struct Tkeyed {
  std::int32_t key;
  std::int32_t tag;
};

class TkeyedArray : public TsortedArray {
 public:
  explicit TkeyedArray(bool allowDuplicates) : TsortedArray(sizeof(Tkeyed), 4, allowDuplicates) {}
  int compare(const void* a, const void* b) const override {
    const std::int32_t x = static_cast<const Tkeyed*>(a)->key,
                       y = static_cast<const Tkeyed*>(b)->key;
    return x < y ? -1 : (x > y ? 1 : 0);
  }
  int insert(std::int32_t key, std::int32_t tag, unsigned& index) {
    const Tkeyed k{key, tag};
    return insertSorted(&k, index);
  }
  std::vector<std::int32_t> tags() const {
    std::vector<std::int32_t> out;
    for (unsigned i = 0; i < count(); ++i)
      out.push_back(static_cast<const Tkeyed*>(elementAt(i))->tag);
    return out;
  }
};

TEST(TsortedArray, ExactKeysWithoutDuplicatesRefuseAnEqualKey) {
  TkeyedArray a(/*allowDuplicates=*/false);
  unsigned index = 0;
  for (std::int32_t key : {50, 10, 30, 90}) ASSERT_EQ(a.insert(key, key, index), 0);
  ASSERT_EQ(a.insert(-5, -5, index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_NE(a.insert(30, 99, index), 0);
  EXPECT_EQ(index, 2u);  // names the key already there
  EXPECT_EQ(a.tags(), (std::vector<std::int32_t>{-5, 10, 30, 50, 90}));

  // Key, found, and the index of the key or of where it would go.
  const std::tuple<std::int32_t, bool, unsigned> probes[] = {
      {-6, false, 0}, {-5, true, 0}, {40, false, 3}, {90, true, 4}, {91, false, 5}};
  for (const auto& [key, found, where] : probes) {
    const Tkeyed probe{key, 0};
    unsigned at = 77;
    const bool hit = a.search(&probe, at);
    EXPECT_EQ(std::tuple(hit, at), std::tuple(found, where)) << key;
  }
}

TEST(TsortedArray, DuplicatesGoAfterTheirEqualRun) {
  TkeyedArray a(/*allowDuplicates=*/true);
  unsigned index = 0;
  std::vector<unsigned> at;  // where each insertion went
  for (std::int32_t key : {2, 1, 2, 3, 2}) {
    ASSERT_EQ(a.insert(key, static_cast<std::int32_t>(at.size()) + 1, index), 0);
    at.push_back(index);
  }
  EXPECT_EQ(at, (std::vector<unsigned>{0, 0, 2, 3, 3}));
  EXPECT_EQ(a.tags(), (std::vector<std::int32_t>{2, 1, 3, 5, 4}));
  const Tkeyed probe{2, 0};
  ASSERT_TRUE(a.search(&probe, index));
  EXPECT_EQ(index, 1u);  // first of the run
  for (unsigned i = 0; i < a.count(); ++i) EXPECT_TRUE(a.orderValidAt(i)) << i;
}

TEST(TsortedArray, TolerantFloatsMergeNearbyValues) {
  TtolerantFloatArray a(/*allowDuplicates=*/false);
  std::vector<bool> refused;
  for (float v : {2.0f, 1.0f, 1.000004f, 1.999995f, 1.00002f}) refused.push_back(a.insert(v) != 0);
  EXPECT_EQ(refused, (std::vector<bool>{false, false, true, true, false}));
  ASSERT_EQ(a.count(), 3u);
  EXPECT_EQ(a.at(1), 1.00002f);
  const float probe = 1.999992f;
  unsigned index = 0;
  ASSERT_TRUE(a.search(&probe, index));
  EXPECT_EQ(index, 2u);
  EXPECT_EQ(a.validateAndUpdate(), 0);
}

TEST(TsortedArray, TolerantFloatsWithDuplicatesKeepInsertionOrder) {
  TtolerantFloatArray a(/*allowDuplicates=*/true);
  for (float v : {3.0f, 1.0f, 1.000004f, 0.999996f, 2.0f}) ASSERT_EQ(a.insert(v), 0);
  const std::vector<float> expected = {1.0f, 1.000004f, 0.999996f, 2.0f, 3.0f};
  for (unsigned i = 0; i < a.count(); ++i) {
    EXPECT_EQ(a.at(i), expected[i]) << i;
    EXPECT_TRUE(a.orderValidAt(i)) << i;
  }
}

TEST(TsortedArray, OrderChecksFindBrokenPlaces) {
  TtolerantFloatArray strict(/*allowDuplicates=*/false);
  for (float v : {1.0f, 2.0f, 3.0f}) strict.insert(v);
  const float stray = 5.0f;
  ASSERT_EQ(strict.insertElement(&stray, 1), 0);  // plain insert ignores order
  EXPECT_EQ(
      std::vector<bool>({strict.orderValidAt(0), strict.orderValidAt(1), strict.orderValidAt(2),
                         strict.orderValidAt(3), strict.orderValidAt(4)}),
      (std::vector<bool>{true, false, false, true, false}));  // 4: no such element
  EXPECT_NE(strict.validateAndUpdate(), 0);

  const float one = 1.0f;
  TtolerantFloatArray loose(/*allowDuplicates=*/true);
  loose.insertElement(&one, 0, 2);
  strict.create(0, 0);
  strict.insertElement(&one, 0, 2);
  EXPECT_TRUE(loose.orderValidAt(1));
  EXPECT_FALSE(strict.orderValidAt(1));
}

TEST(TsortedArray, DefaultOrderIsUnsignedBytes) {
  TsortedArray a(1, 0, /*allowDuplicates=*/false);
  unsigned index = 0;
  for (unsigned char c : {0x80, 0x00, 0x7F}) ASSERT_EQ(a.insertSorted(&c, index), 0);
  const auto* bytes = static_cast<const unsigned char*>(a.data());
  EXPECT_EQ(std::vector<int>(bytes, bytes + a.count()), (std::vector<int>{0x00, 0x7F, 0x80}));
  EXPECT_FALSE(a.allowsDuplicates());
  EXPECT_NE(a.insertSorted(nullptr, index), 0);
  EXPECT_FALSE(a.search(nullptr, index));
}

}  // namespace
}  // namespace lumora

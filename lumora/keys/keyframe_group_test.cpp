#include "lumora/keys/keyframe_group.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace lumora {
namespace {

TEST(TkeyframeGroup, OrdersByTimeThenCountsThenFlags) {
  // Ascending: each row orders after the one before it.
  const TkeyframeGroup rows[] = {
      TkeyframeGroup(TtimeValue(0.5f), 9, 9, 9),
      TkeyframeGroup(TtimeValue(1.0f), 1, 5, 7),
      TkeyframeGroup(TtimeValue(1.0f), 2, 0, 0),
      TkeyframeGroup(TtimeValue(1.0f), 2, 1, 0),
      TkeyframeGroup(TtimeValue(1.0f), 2, 1, 4),
      TkeyframeGroup(TtimeValue(TanimTime(12000)), 0, 0, 0),
  };
  const std::size_t n = std::size(rows);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      EXPECT_EQ(rows[i] < rows[j], i < j) << i << " " << j;
      EXPECT_EQ(rows[i] == rows[j], i == j) << i << " " << j;
      EXPECT_EQ(rows[i] >= rows[j], i >= j) << i << " " << j;
    }
  }
}

TEST(TkeyframeGroup, TimesOfDifferentKindsCompareBySeconds) {
  const TkeyframeGroup ticks(TtimeValue(TanimTime(6000)), 2);
  const TkeyframeGroup secs(TtimeValue(1.0f), 2);
  EXPECT_TRUE(ticks == secs);
  EXPECT_TRUE(ticks <= secs && ticks >= secs);
  EXPECT_TRUE(TkeyframeGroup() < secs);
}

TEST(TkeyframeGroupPtrSObj, OwnsMovesAndReleases) {
  TkeyframeGroupPtrSObj owner(new TkeyframeGroup(TtimeValue(1.0f), 4));
  EXPECT_EQ(owner->numCurves(), 4u);
  TkeyframeGroupPtrSObj moved(std::move(owner));
  EXPECT_FALSE(owner);
  ASSERT_TRUE(moved);

  TkeyframeGroupPtrArray groups;
  TkeyframeGroup* raw = moved.get();
  ASSERT_EQ(groups.addLast(moved.release()), 0);
  EXPECT_EQ(moved.get(), nullptr);
  EXPECT_EQ(groups[0], raw);
  moved.reset(groups[0]);  // back in charge of deleting it
  moved.reset(raw);        // the same group again: kept, not deleted
  EXPECT_EQ((*moved).numCurves(), 4u);
}

TEST(TkeyframeGroupPtrArray, SortsByGroupOrder) {
  TkeyframeGroup late(TtimeValue(3.0f)), early(TtimeValue(1.0f)), mid(TtimeValue(2.0f), 1);
  TkeyframeGroupPtrArray groups;
  for (TkeyframeGroup* g : {&late, &early, &mid}) ASSERT_EQ(groups.addLast(g), 0);
  std::sort(groups.data(), groups.data() + groups.count(),
            [](const TkeyframeGroup* x, const TkeyframeGroup* y) { return *x < *y; });
  EXPECT_EQ(groups[0], &early);
  EXPECT_EQ(groups[1], &mid);
  EXPECT_EQ(groups[2], &late);
}

}  // namespace
}  // namespace lumora

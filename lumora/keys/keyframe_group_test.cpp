#include "lumora/keys/keyframe_group.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

namespace lumora {
namespace {

TEST(TkeyframeGroup, OrdersByTimeThenCountsThenFlags) {
  // Ascending: each row orders after the one before it.
  const TkeyframeGroup rows[] = {TkeyframeGroup(TtimeValue(0.5f), 9, 9, 9),
                                 TkeyframeGroup(TtimeValue(1.0f), 1, 5, 7),
                                 TkeyframeGroup(TtimeValue(1.0f), 2, 0, 0),
                                 TkeyframeGroup(TtimeValue(1.0f), 2, 1, 0),
                                 TkeyframeGroup(TtimeValue(1.0f), 2, 1, 4),
                                 TkeyframeGroup(TtimeValue(TanimTime(12000)), 0, 0, 0)};
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    for (std::size_t j = 0; j < std::size(rows); ++j) {
      EXPECT_EQ(std::tuple(rows[i] < rows[j], rows[i] == rows[j], rows[i] >= rows[j]),
                std::tuple(i < j, i == j, i >= j))
          << i << " " << j;
    }
  }
}

TEST(TkeyframeGroup, TimesOfDifferentKindsCompareBySeconds) {
  const TkeyframeGroup ticks(TtimeValue(TanimTime(6000)), 2), secs(TtimeValue(1.0f), 2);
  EXPECT_TRUE(ticks == secs && ticks <= secs && ticks >= secs);
  EXPECT_TRUE(TkeyframeGroup() < secs);
}

TEST(TkeyframeGroupPtrSObj, OwnsMovesAndReleases) {
  TkeyframeGroupPtrSObj owner(new TkeyframeGroup(TtimeValue(1.0f), 4));
  TkeyframeGroupPtrSObj moved(std::move(owner));
  EXPECT_FALSE(owner);
  ASSERT_TRUE(moved);
  TkeyframeGroup* raw = moved.release();
  EXPECT_EQ(moved.get(), nullptr);
  moved.reset(raw);  // back in charge of deleting it
  moved.reset(raw);  // the same group again: kept, not deleted
  EXPECT_EQ((*moved).numCurves(), 4u);
}

}  // namespace
}  // namespace lumora

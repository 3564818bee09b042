#include "lumora/base/arena.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

// Counts the pages that pass through it; can be told to refuse.
class TcountingAllocator : public Tallocator {
 public:
  void* allocate(std::size_t size, std::size_t alignment) override {
    if (fRefuse) return nullptr;
    ++fAllocated;
    return Tallocator::allocate(size, alignment);
  }
  void release(void* block) override {
    ++fReleased;
    Tallocator::release(block);
  }

  int fAllocated = 0;
  int fReleased = 0;
  bool fRefuse = false;
};

std::uintptr_t address(const void* p) {
  return reinterpret_cast<std::uintptr_t>(p);
}

// A byte pattern derived from a block's address, written into each live
// block, shows up overlapping blocks and scribbling by the arena.
unsigned char stampOf(const void* block) {
  return static_cast<unsigned char>(address(block) >> 4);
}
void stamp(void* block, std::size_t size) {
  std::memset(block, stampOf(block), size);
}
bool stampIntact(const void* block, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + size, [&](unsigned char b) { return b == stampOf(block); });
}

TEST(TcompactArena, GeometryFollowsTheRequest) {
  TcompactArena keys(48, 131072, sMallocAllocator, "Keys");
  EXPECT_STREQ(keys.name(), "Keys");
  // 32-byte header + 43 bitmap words (344 bytes), rounded to 16, then slots.
  EXPECT_EQ(std::tuple(keys.slotAlignment(), keys.slotsPerPage()),
            std::tuple(16u, (131072u - 384u) / 48u));
  TcompactArena odd(40, 3000, sMallocAllocator, nullptr);
  EXPECT_STREQ(odd.name(), "");
  // Pages are rounded up to a power of two, then grown until a block fits.
  EXPECT_EQ(std::tuple(odd.pageSize(), odd.slotSize()), std::tuple(4096u, 48u));
  TcompactArena big(10000, 4096, sMallocAllocator, "big");
  EXPECT_EQ(std::tuple(big.pageSize(), big.slotsPerPage()), std::tuple(16384u, 1u));
  EXPECT_EQ(TcompactArena(0, 0, sMallocAllocator, "tiny").pageSize(), 256u);
  TcompactArena impossible(std::size_t{1} << 31, 4096, sMallocAllocator, "impossible");
  EXPECT_EQ(impossible.allocate(1, 0), nullptr);
}

TEST(TcompactArena, AlignmentAndSizeLimits) {
  EXPECT_EQ(std::tuple(sMallocAllocator.allocate(0, 16), sMallocAllocator.allocate(64, 24),
                       sMallocAllocator.allocate(SIZE_MAX - 8, 4096)),
            std::tuple(nullptr, nullptr, nullptr));

  TcompactArena wide(64, 4096, sMallocAllocator, "wide");
  for (int i = 0; i < 200; ++i) ASSERT_EQ(address(wide.allocate(64, 64)) % 64, 0u);
  TcompactArena keys(48, 4096, sMallocAllocator, "Keys");
  // Too big, too aligned, not a power of two; 48-byte slots are only 16-aligned.
  EXPECT_EQ(std::tuple(wide.allocate(65, 0), wide.allocate(8, 128), wide.allocate(8, 24),
                       keys.allocate(48, 32)),
            std::tuple(nullptr, nullptr, nullptr, nullptr));
  EXPECT_TRUE(keys.deallocate(keys.allocate(0, 0)));
}

TEST(TcompactArena, RefusesWhatItDidNotHandOut) {
  TcompactArena keys(48, 4096, sMallocAllocator, "Keys");
  TcompactArena other(48, 4096, sMallocAllocator, "Other");
  void* block = keys.allocate(48, 8);
  void* neighbour = keys.allocate(48, 8);
  void* foreign = other.allocate(48, 8);
  int onStack = 0;
  std::unique_ptr<char[]> onHeap(new char[64]);

  char* const b = static_cast<char*>(block);
  // Inside a block, in the page header, and past the last slot but still in the page.
  for (void* p : {static_cast<void*>(nullptr), static_cast<void*>(&onStack),
                  static_cast<void*>(onHeap.get()), reinterpret_cast<void*>(0x10), foreign,
                  static_cast<void*>(b + 8), static_cast<void*>(b - 16),
                  static_cast<void*>(b + keys.slotsPerPage() * keys.slotSize())}) {
    EXPECT_FALSE(keys.deallocate(p)) << p;
  }
  EXPECT_EQ(keys.liveCount(), 2u);
  EXPECT_TRUE(keys.deallocate(block));
  EXPECT_FALSE(keys.deallocate(block));  // second free
  EXPECT_EQ(std::tuple(keys.isLive(block), keys.isLive(neighbour), keys.liveCount()),
            std::tuple(false, true, 1u));
  EXPECT_TRUE(other.deallocate(foreign));
  // A stale pointer into a released page is not read: AddressSanitizer would report it.
  ASSERT_TRUE(keys.deallocate(neighbour));
  keys.releaseEmptyPages();
  EXPECT_EQ(keys.pageCount(), 0u);
  EXPECT_FALSE(keys.deallocate(block) || keys.isLive(neighbour));
}

TEST(TcompactArena, FillsPagesInOrderAndReusesFreedSlots) {
  TcompactArena keys(48, 4096, sMallocAllocator, "Keys");
  const std::size_t perPage = keys.slotsPerPage();
  std::vector<char*> blocks;
  for (std::size_t i = 0; i < perPage; ++i)
    blocks.push_back(static_cast<char*>(keys.allocate(48, 8)));
  for (std::size_t i = 1; i < perPage; ++i) EXPECT_EQ(blocks[i] - blocks[i - 1], 48);
  EXPECT_EQ(keys.pageCount(), 1u);

  EXPECT_NE(keys.allocate(48, 8), nullptr);
  EXPECT_EQ(std::tuple(keys.pageCount(), keys.bytesReserved()), std::tuple(2u, 2u * 4096u));

  // A freed slot of the full first page is found again once the second page
  // is full too, before any third page is taken.
  ASSERT_TRUE(keys.deallocate(blocks[7]));
  for (std::size_t i = 1; i < perPage; ++i) keys.allocate(48, 8);
  EXPECT_EQ(keys.allocate(48, 8), blocks[7]);
  EXPECT_EQ(std::tuple(keys.pageCount(), keys.liveCount()), std::tuple(2u, 2 * perPage));
}

TEST(TcompactArena, PagesComeAndGoThroughTheAllocator) {
  TcountingAllocator pages;
  {
    TcompactArena keys(48, 4096, pages, "Keys");
    pages.fRefuse = true;
    EXPECT_EQ(keys.allocate(48, 8), nullptr);
    pages.fRefuse = false;
    const std::size_t perPage = keys.slotsPerPage();
    std::vector<void*> blocks;
    for (std::size_t i = 0; i < 5 * perPage; ++i) blocks.push_back(keys.allocate(48, 8));
    EXPECT_EQ(keys.pageCount(), 5u);
    for (void* block : blocks) ASSERT_TRUE(keys.deallocate(block));
    // The first emptied page is the spare; the next three go back; the
    // current page stays.
    EXPECT_EQ(std::tuple(keys.pageCount(), pages.fReleased, keys.liveCount()),
              std::tuple(2u, 3, 0u));

    // Refilling takes the current page, then the spare, before asking again.
    for (std::size_t i = 0; i < 2 * perPage; ++i) keys.allocate(48, 8);
    EXPECT_EQ(pages.fAllocated, 5);

    void* kept = keys.allocate(48, 8);  // a third page, partly used
    EXPECT_EQ(pages.fAllocated, 6);
    keys.releaseEmptyPages();  // nothing is empty
    EXPECT_TRUE(keys.pageCount() == 3u && keys.isLive(kept));

    keys.deallocate(kept);  // the current page, now empty, goes too
    keys.releaseEmptyPages();
    EXPECT_EQ(std::tuple(keys.pageCount(), keys.bytesReserved()), std::tuple(2u, 2u * 4096u));
  }
  EXPECT_EQ(pages.fReleased, pages.fAllocated);  // the destructor gives the rest back
}

TEST(TcompactArena, SpareLimitKeepsEmptiedPagesForReuse) {
  TcountingAllocator pages;
  TcompactArena keys(48, 4096, pages, "Keys");
  keys.setSparePageLimit(3);
  const std::size_t perPage = keys.slotsPerPage();
  std::vector<void*> blocks;
  for (int round = 0; round < 2; ++round) {
    blocks.clear();
    for (std::size_t i = 0; i < 5 * perPage; ++i) blocks.push_back(keys.allocate(48, 8));
    for (void* block : blocks) ASSERT_TRUE(keys.deallocate(block));
  }
  // Three spares and the current page stay; the second round reused them.
  EXPECT_EQ(std::tuple(keys.pageCount(), pages.fAllocated, pages.fReleased), std::tuple(4u, 6, 2));
  keys.releaseEmptyPages();
  EXPECT_EQ(keys.pageCount(), 0u);
}

// Random allocations and frees against a model: live blocks never overlap,
// keep their contents, and are exactly the ones the arena accepts back.
TEST(TcompactArena, RandomTrafficMatchesModel) {
  TcompactArena arena(40, 1024, sMallocAllocator, "model");
  std::map<std::uintptr_t, bool> live;  // block -> still live
  std::vector<void*> freed;
  std::mt19937 random(12345);
  for (int step = 0; step < 60000; ++step) {
    const bool allocating = live.empty() || random() % 100 < (step < 30000 ? 60u : 40u);
    if (allocating) {
      void* block = arena.allocate(40, 8);
      ASSERT_NE(block, nullptr);
      ASSERT_FALSE(live.count(address(block))) << "block handed out twice";
      const auto next = live.upper_bound(address(block));
      ASSERT_TRUE(next == live.end() || next->first >= address(block) + 40) << "overlap";
      ASSERT_TRUE(next == live.begin() || std::prev(next)->first + 40 <= address(block));
      stamp(block, 40);
      live[address(block)] = true;
      continue;
    }
    auto victim = live.begin();
    std::advance(victim, random() % live.size());
    void* block = reinterpret_cast<void*>(victim->first);
    ASSERT_TRUE(stampIntact(block, 40));
    ASSERT_TRUE(arena.deallocate(block));
    live.erase(victim);
    freed.push_back(block);
    if (freed.size() > 64) freed.erase(freed.begin());
    // A recently freed block that was not handed out again is refused.
    void* stale = freed[random() % freed.size()];
    ASSERT_TRUE(live.count(address(stale)) || !arena.deallocate(stale));
  }
  EXPECT_EQ(arena.liveCount(), live.size());
  for (const auto& [block, unused] : live) {
    EXPECT_TRUE(stampIntact(reinterpret_cast<void*>(block), 40));
    EXPECT_TRUE(arena.deallocate(reinterpret_cast<void*>(block)));
  }
  EXPECT_EQ(arena.liveCount(), 0u);
  EXPECT_LE(arena.pageCount(), 2u);
}

TEST(TcompactArena, LargeCounts) {
  constexpr std::size_t kCount = 200000;
  TcompactArena keys(48, 131072, sMallocAllocator, "Keys");
  std::vector<void*> blocks(kCount);
  for (void*& block : blocks) {
    block = keys.allocate(48, 8);
    ASSERT_NE(block, nullptr);
  }
  const std::size_t pages = (kCount + keys.slotsPerPage() - 1) / keys.slotsPerPage();
  EXPECT_EQ(std::tuple(keys.liveCount(), keys.pageCount(), keys.bytesReserved()),
            std::tuple(kCount, pages, pages * 131072));

  for (std::size_t i = 0; i < kCount; i += 2) ASSERT_TRUE(keys.deallocate(blocks[i]));
  for (std::size_t i = 0; i < kCount; i += 2) blocks[i] = keys.allocate(48, 8);
  EXPECT_EQ(keys.pageCount(), pages);  // the holes were filled, no new pages
  for (std::size_t i = kCount; i-- > 0;) ASSERT_TRUE(keys.deallocate(blocks[i]));
  EXPECT_EQ(std::tuple(keys.liveCount(), keys.pageCount()), std::tuple(0u, 2u));
}

TEST(TcompactArena, PurifyModeUsesSeparateBlocks) {
  TpureArena::sPurifyInUse = true;
  TcompactArena keys(48, 131072, sMallocAllocator, "Keys");
  TpureArena::sPurifyInUse = false;  // the arena keeps the mode it started in
  ASSERT_TRUE(keys.isPure());

  void* a = keys.allocate(48, 16);
  void* b = keys.allocate(20, 0);
  ASSERT_TRUE(a != nullptr && b != nullptr);
  EXPECT_EQ(std::tuple(address(a) % 16, keys.allocate(49, 0), keys.liveCount(), keys.pageCount()),
            std::tuple(0u, nullptr, 2u, 0u));
  int onStack = 0;
  EXPECT_FALSE(keys.deallocate(&onStack) || keys.deallocate(static_cast<char*>(a) + 16));
  EXPECT_TRUE(keys.deallocate(a));
  EXPECT_EQ(std::tuple(keys.isLive(a), keys.isLive(b), keys.liveCount()),
            std::tuple(false, true, 1u));
  // b is left for the destructor to free.
}

}  // namespace
}  // namespace lumora

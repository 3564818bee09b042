#include "lumora/base/arena.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <set>
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

// Each live block is filled with a byte derived from its address, so blocks
// that overlap or that the arena scribbles on show up as changed bytes.
unsigned char stampOf(const void* block) {
  return static_cast<unsigned char>(address(block) >> 4);
}
bool stampIntact(const void* block, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + size, [&](unsigned char b) { return b == stampOf(block); });
}

TEST(TcompactArena, GeometryFollowsTheRequest) {
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
  void* const strangers[] = {
      nullptr, &onStack, onHeap.get(), reinterpret_cast<void*>(0x10),
      foreign, b + 8,    b - 16,       b + keys.slotsPerPage() * keys.slotSize()};
  for (void* p : strangers) EXPECT_FALSE(keys.deallocate(p)) << p;
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

// Large pages have a bitmap of many words, searched from where the last
// allocation left off and wrapping round to the start.
TEST(TcompactArena, FillsPagesInOrderAndReusesFreedSlots) {
  TcompactArena keys(48, 131072, sMallocAllocator, "Keys");
  const std::size_t perPage = keys.slotsPerPage();
  // 32-byte header + 43 bitmap words (344 bytes), rounded to 16, then slots.
  EXPECT_EQ(std::tuple(keys.slotAlignment(), perPage), std::tuple(16u, (131072u - 384u) / 48u));
  std::vector<char*> blocks;
  for (std::size_t i = 0; i < perPage; ++i)
    blocks.push_back(static_cast<char*>(keys.allocate(48, 8)));
  for (std::size_t i = 1; i < perPage; ++i) ASSERT_EQ(blocks[i] - blocks[i - 1], 48) << i;
  EXPECT_EQ(keys.pageCount(), 1u);
  EXPECT_NE(keys.allocate(48, 8), nullptr);
  EXPECT_EQ(std::tuple(keys.pageCount(), keys.bytesReserved()), std::tuple(2u, 2u * 131072u));

  // Freed slots of the full first page are found again once the second page
  // is full too, before any third page is taken.
  ASSERT_TRUE(keys.deallocate(blocks[100]) && keys.deallocate(blocks[perPage - 3]));
  for (std::size_t i = 1; i < perPage; ++i) keys.allocate(48, 8);
  EXPECT_EQ((std::set<void*>{keys.allocate(48, 8), keys.allocate(48, 8)}),
            (std::set<void*>{blocks[100], blocks[perPage - 3]}));
  EXPECT_EQ(std::tuple(keys.pageCount(), keys.liveCount()), std::tuple(2u, 2 * perPage));
}

// Fills `pages` pages of `arena` with blocks, then frees them all.
void fillAndEmpty(TcompactArena& arena, std::size_t pages) {
  std::vector<void*> blocks;
  for (std::size_t i = 0; i < pages * arena.slotsPerPage(); ++i) {
    blocks.push_back(arena.allocate(arena.elementSize(), 0));
  }
  for (void* block : blocks) ASSERT_TRUE(arena.deallocate(block));
}

TEST(TcompactArena, PagesComeAndGoThroughTheAllocator) {
  TcountingAllocator pages;
  {
    TcompactArena keys(48, 4096, pages, "Keys");
    pages.fRefuse = true;
    EXPECT_EQ(keys.allocate(48, 8), nullptr);
    pages.fRefuse = false;
    fillAndEmpty(keys, 5);
    // The first emptied page is the spare; the next three go back; the
    // current page stays.
    EXPECT_EQ(std::tuple(pages.fAllocated, keys.pageCount(), pages.fReleased, keys.liveCount()),
              std::tuple(5, 2u, 3, 0u));

    // Refilling takes the current page, then the spare, before asking again.
    for (std::size_t i = 0; i < 2 * keys.slotsPerPage(); ++i) keys.allocate(48, 8);
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
  fillAndEmpty(keys, 5);
  fillAndEmpty(keys, 5);
  // Three spares and the current page stay; the second round reused them.
  EXPECT_EQ(std::tuple(keys.pageCount(), pages.fAllocated, pages.fReleased), std::tuple(4u, 6, 2));
  keys.releaseEmptyPages();
  EXPECT_EQ(keys.pageCount(), 0u);
}

// Random allocations and frees against a model: live blocks never overlap,
// keep their contents, and are exactly the ones the arena accepts back.
TEST(TcompactArena, RandomTrafficMatchesModel) {
  TcompactArena arena(40, 1024, sMallocAllocator, "model");
  std::set<std::uintptr_t> live;
  std::vector<void*> freed;
  std::mt19937 random(12345);
  for (int step = 0; step < 60000; ++step) {
    const bool allocating = live.empty() || random() % 100 < (step < 30000 ? 60u : 40u);
    if (allocating) {
      void* block = arena.allocate(40, 8);
      ASSERT_NE(block, nullptr);
      const auto next = live.upper_bound(address(block));  // overlap with a live block?
      ASSERT_TRUE((next == live.end() || *next >= address(block) + 40) &&
                  (next == live.begin() || *std::prev(next) + 40 <= address(block)));
      std::memset(block, stampOf(block), 40);
      live.insert(address(block));
      continue;
    }
    auto victim = live.begin();
    std::advance(victim, random() % live.size());
    void* block = reinterpret_cast<void*>(*victim);
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
  for (const std::uintptr_t block : live) {
    EXPECT_TRUE(stampIntact(reinterpret_cast<void*>(block), 40));
    EXPECT_TRUE(arena.deallocate(reinterpret_cast<void*>(block)));
  }
  EXPECT_EQ(arena.liveCount(), 0u);
  EXPECT_LE(arena.pageCount(), 2u);
}

TEST(TcompactArena, PurifyModeUsesSeparateBlocks) {
  TpureArena::sPurifyInUse = true;
  TcompactArena keys(48, 131072, sMallocAllocator, "Keys");
  TpureArena::sPurifyInUse = false;  // the arena keeps the mode it started in
  ASSERT_TRUE(keys.isPure());

  void* a = keys.allocate(48, 16);
  void* b = keys.allocate(20, 0);
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

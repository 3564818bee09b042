#include "lumora/base/arena.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lumora {

// --- Tallocator ------------------------------------------------------------------

void* Tallocator::allocate(std::size_t size, std::size_t alignment) {
  if (alignment == 0) alignment = alignof(std::max_align_t);
  if (size == 0 || !std::has_single_bit(alignment)) return nullptr;
  // aligned_alloc wants a size that is a multiple of the alignment.
  const std::size_t rounded = (size + alignment - 1) & ~(alignment - 1);
  if (rounded < size) return nullptr;
  return std::aligned_alloc(alignment, rounded);
}

void Tallocator::release(void* block) {
  std::free(block);
}

Tallocator sMallocAllocator;

bool TpureArena::sPurifyInUse = false;

// --- Page layout ---------------------------------------------------------------

// The header at the start of every page. The occupancy bitmap follows it
// directly; bits past the last slot are kept set so that a search of the
// bitmap never finds them. Slots start at fFirstSlotOffset.
struct TcompactArena::Tpage {
  Tpage* fPrev;  // neighbours in the available list
  Tpage* fNext;
  // fListed sits between the two counters so that compilers do not fuse
  // their updates into one vector store, which stalls the next allocation's
  // loads of them.
  std::uint32_t fNextSlot;  // the slot the fast path tries first
  std::uint32_t fListed;    // nonzero while in the available list
  std::uint32_t fUsed;      // slots in use
  std::uint32_t fPadding;   // keeps the header a whole number of bitmap words

  std::uint64_t* bitmap() { return reinterpret_cast<std::uint64_t*>(this + 1); }
  const std::uint64_t* bitmap() const { return reinterpret_cast<const std::uint64_t*>(this + 1); }
};

struct TcompactArena::Tcell {
  std::uintptr_t fKey;
  std::uintptr_t fValue;  // 0 marks an empty cell
};

namespace {

constexpr std::uint32_t kMinStride = 16;
constexpr std::uint32_t kPageAlignment = 64;  // also the largest slot alignment
constexpr std::size_t kMinPageSize = 256;
constexpr std::size_t kMaxPageSize = std::size_t{1} << 30;
constexpr std::size_t kHeaderBytes = 32;  // sizeof(Tpage)

__extension__ using Tuint128 = unsigned __int128;

// n / d for n < 2^32, given magic = 2^64 / d rounded up (exact for d < 2^32).
inline std::uint32_t divide(std::uint64_t n, std::uint64_t magic) {
  return static_cast<std::uint32_t>((static_cast<Tuint128>(magic) * n) >> 64);
}

constexpr std::size_t roundUp(std::size_t n, std::size_t multiple) {
  return (n + multiple - 1) / multiple * multiple;
}

std::uint32_t bitmapWords(std::uint32_t slots) {
  return (slots + 63) / 64;
}

std::size_t firstSlotOffset(std::uint32_t slots, std::uint32_t alignment) {
  return roundUp(kHeaderBytes + std::size_t{bitmapWords(slots)} * 8, alignment);
}

// The most slots of `stride` bytes that fit in a page after its header.
std::uint32_t slotsThatFit(std::size_t pageSize, std::uint32_t stride, std::uint32_t alignment) {
  if (pageSize <= kHeaderBytes) return 0;
  std::size_t slots = (pageSize - kHeaderBytes) / stride;
  while (slots > 0 &&
         firstSlotOffset(static_cast<std::uint32_t>(slots), alignment) + slots * stride >
             pageSize) {
    --slots;
  }
  return static_cast<std::uint32_t>(slots);
}

}  // namespace

// --- Construction ----------------------------------------------------------------

TcompactArena::TcompactArena(std::size_t elementSize, std::size_t pageSize, Tallocator& allocator,
                             const char* name)
    : fName(name != nullptr ? name : ""),
      fAllocator(&allocator),
      fElementSize(elementSize == 0 ? 1 : elementSize),
      fPure(TpureArena::sPurifyInUse) {
  static_assert(sizeof(Tpage) == kHeaderBytes, "the bitmap starts right after the header");
  if (fElementSize > kMaxPageSize / 2) return;  // no page can hold it
  fStride = static_cast<std::uint32_t>(roundUp(fElementSize, kMinStride));
  // The largest power of two dividing the stride keeps every slot aligned.
  fSlotAlignment = std::min<std::uint32_t>(fStride & (~fStride + 1), kPageAlignment);

  std::size_t page = std::bit_ceil(std::clamp(pageSize, kMinPageSize, kMaxPageSize));
  while (slotsThatFit(page, fStride, fSlotAlignment) == 0 && page < kMaxPageSize) page *= 2;
  fSlotsPerPage = slotsThatFit(page, fStride, fSlotAlignment);
  if (fSlotsPerPage == 0) return;

  fPageSize = page;
  fPageShift = static_cast<unsigned>(std::countr_zero(page));
  fBitmapWords = bitmapWords(fSlotsPerPage);
  fFirstSlotOffset = static_cast<std::uint32_t>(firstSlotOffset(fSlotsPerPage, fSlotAlignment));
  fDivMagic = UINT64_MAX / fStride + 1;
}

TcompactArena::~TcompactArena() {
  for (std::size_t i = 0; fTable != nullptr && i <= fTableMask; ++i) {
    const Tcell cell = fTable[i];
    if (cell.fValue == 0) continue;
    void* const memory = reinterpret_cast<void*>(cell.fValue);
    if (fPure) {
      std::free(memory);
    } else if (cell.fKey == cell.fValue >> fPageShift) {
      fAllocator->release(memory);  // once per page: under its first window
    }
  }
  delete[] fTable;
}

std::size_t TcompactArena::liveCount() const {
  if (fPure) return fPureCount;
  std::size_t live = 0;
  for (std::size_t i = 0; fTable != nullptr && i <= fTableMask; ++i) {
    const Tcell cell = fTable[i];
    if (cell.fValue == 0 || cell.fKey != cell.fValue >> fPageShift) continue;
    live += reinterpret_cast<const Tpage*>(cell.fValue)->fUsed;
  }
  return live;
}

// --- Allocation ------------------------------------------------------------------
// allocate() and deallocate() handle only the common case: the current page
// (or the page of the previous deallocation) and a valid request. Everything
// else, including purify mode, where those pages stay null, goes out of line,
// so that the common case needs no stack frame.

void* TcompactArena::allocate(std::size_t size, std::size_t alignment) {
  Tpage* const page = fCurrent;
  if (page == nullptr || !acceptable(size, alignment)) return allocateElsewhere(size, alignment);
  const std::uint32_t slot = page->fNextSlot;
  if (slot < fSlotsPerPage) {
    std::uint64_t& word = page->bitmap()[slot >> 6];
    const std::uint64_t bit = std::uint64_t{1} << (slot & 63);
    if ((word & bit) == 0) {
      word |= bit;
      page->fNextSlot = slot + 1;
      ++page->fUsed;
      return slotAddress(page, slot);
    }
  }
  return allocateElsewhere(size, alignment);
}

bool TcompactArena::acceptable(std::size_t size, std::size_t alignment) const {
  return size <= fElementSize && alignment <= fSlotAlignment && (alignment & (alignment - 1)) == 0;
}

[[gnu::noinline]] void* TcompactArena::allocateElsewhere(std::size_t size, std::size_t alignment) {
  if (!acceptable(size, alignment)) return nullptr;
  if (fPure) return allocatePure(size);
  if (fCurrent != nullptr && fCurrent->fUsed < fSlotsPerPage) return allocateSearch(fCurrent);
  return allocateSlow();
}

void* TcompactArena::allocateSearch(Tpage* page) {
  // The page has a free slot (fUsed < fSlotsPerPage), so some word of the
  // bitmap has a clear bit; start looking where the fast path left off.
  assert(page->fUsed < fSlotsPerPage && "only a page with a free slot is searched");
  std::uint64_t* const bitmap = page->bitmap();
  const std::uint32_t start = std::min(page->fNextSlot / 64, fBitmapWords - 1);
  for (std::uint32_t n = 0; n < fBitmapWords; ++n) {
    std::uint32_t w = start + n;
    if (w >= fBitmapWords) w -= fBitmapWords;
    const std::uint64_t word = bitmap[w];
    if (word == ~std::uint64_t{0}) continue;
    const std::uint32_t slot = w * 64 + static_cast<std::uint32_t>(std::countr_one(word));
    bitmap[w] = word | (std::uint64_t{1} << (slot & 63));
    page->fNextSlot = slot + 1;
    ++page->fUsed;
    return slotAddress(page, slot);
  }
  assert(false && "fUsed counts a free slot that the bitmap does not have");
  return nullptr;  // unreachable while fUsed is accurate
}

void* TcompactArena::allocateSlow() {
  if (fSlotsPerPage == 0) return nullptr;
  Tpage* page = fAvailable;
  if (page != nullptr) {
    unlinkAvailable(page);
  } else if (fSpare != nullptr) {
    page = fSpare;
    fSpare = page->fNext;
    page->fNext = nullptr;
    --fSpareCount;
  } else {
    page = newPage();
    if (page == nullptr) return nullptr;
  }
  // A full current page is left unlisted; freeing one of its slots lists it.
  fCurrent = page;
  return allocateSearch(page);
}

void* TcompactArena::slotAddress(Tpage* page, std::uint32_t slot) const {
  return reinterpret_cast<char*>(page) + fFirstSlotOffset + std::size_t{slot} * fStride;
}

// --- Deallocation ----------------------------------------------------------------
// Only memory of a page that the table vouched for is ever read. fLastHit is
// such a page, and whether an address falls in it is decided by arithmetic
// alone.

TcompactArena::Tpage* TcompactArena::pageOf(std::uintptr_t address) const {
  if (fTable == nullptr) return nullptr;
  const std::uintptr_t window = address >> fPageShift;
  for (std::size_t i = home(window);; i = (i + 1) & fTableMask) {
    const Tcell cell = fTable[i];
    if (cell.fValue == 0) return nullptr;
    if (cell.fKey == window && address - cell.fValue < fPageSize) {
      return reinterpret_cast<Tpage*>(cell.fValue);
    }
  }
}

[[gnu::always_inline]] inline bool TcompactArena::slotOf(const Tpage* page, std::uintptr_t address,
                                                         std::uint32_t& slot) const {
  const std::uintptr_t offset = address - reinterpret_cast<std::uintptr_t>(page);
  if (offset < fFirstSlotOffset) return false;
  const std::uintptr_t relative = offset - fFirstSlotOffset;
  const std::uint32_t index = divide(relative, fDivMagic);
  if (index >= fSlotsPerPage || std::uintptr_t{index} * fStride != relative) return false;
  if ((page->bitmap()[index >> 6] & (std::uint64_t{1} << (index & 63))) == 0) return false;
  slot = index;
  return true;
}

[[gnu::always_inline]] inline bool TcompactArena::freeSlot(Tpage* page, std::uintptr_t address) {
  std::uint32_t slot;
  if (!slotOf(page, address, slot)) return false;
  page->bitmap()[slot >> 6] &= ~(std::uint64_t{1} << (slot & 63));
  const std::uint32_t used = --page->fUsed;
  if (page == fCurrent) {
    // Start again from the bottom so that a drained page refills in order.
    if (used == 0) page->fNextSlot = 0;
    return true;
  }
  if (used == 0) {
    pageEmptied(page);
  } else if (used + 1 == fSlotsPerPage) {
    linkAvailable(page);  // it was full
  }
  return true;
}

bool TcompactArena::deallocate(void* block) {
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  Tpage* const page = fLastHit;
  if (page == nullptr || address - reinterpret_cast<std::uintptr_t>(page) >= fPageSize) {
    return deallocateElsewhere(block);
  }
  return freeSlot(page, address);
}

[[gnu::noinline]] bool TcompactArena::deallocateElsewhere(void* block) {
  if (block == nullptr) return false;
  if (fPure) return deallocatePure(block);
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  Tpage* const page = pageOf(address);
  if (page == nullptr) return false;
  fLastHit = page;
  return freeSlot(page, address);
}

bool TcompactArena::isLive(const void* block) const {
  if (block == nullptr) return false;
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  if (fPure) return tableHasPair(address, address);
  const Tpage* page = fLastHit;
  if (page == nullptr || address - reinterpret_cast<std::uintptr_t>(page) >= fPageSize) {
    page = pageOf(address);
    if (page == nullptr) return false;
  }
  std::uint32_t slot;
  return slotOf(page, address, slot);
}

// --- Pages -----------------------------------------------------------------------

TcompactArena::Tpage* TcompactArena::newPage() {
  if (!tableReserve(2)) return nullptr;
  void* memory = fAllocator->allocate(fPageSize, kPageAlignment);
  if (memory == nullptr) return nullptr;
  const auto base = reinterpret_cast<std::uintptr_t>(memory);
  if (base % kPageAlignment != 0) {  // an allocator that ignored the alignment
    fAllocator->release(memory);
    return nullptr;
  }
  const std::uintptr_t first = base >> fPageShift;
  const std::uintptr_t last = (base + fPageSize - 1) >> fPageShift;
  tableInsert(first, base);
  if (last != first) tableInsert(last, base);

  auto* page = new (memory) Tpage{nullptr, nullptr, 0, 0, 0, 0};
  std::uint64_t* bitmap = page->bitmap();
  std::memset(bitmap, 0, std::size_t{fBitmapWords} * 8);
  if (const std::uint32_t tail = fSlotsPerPage % 64; tail != 0) {
    bitmap[fBitmapWords - 1] = ~std::uint64_t{0} << tail;
  }
  ++fPageCount;
  return page;
}

void TcompactArena::releasePage(Tpage* page) {
  if (page->fListed != 0) unlinkAvailable(page);
  if (fCurrent == page) fCurrent = nullptr;
  if (fLastHit == page) fLastHit = nullptr;
  const auto base = reinterpret_cast<std::uintptr_t>(page);
  tableErase(base >> fPageShift, base);
  tableErase((base + fPageSize - 1) >> fPageShift, base);
  --fPageCount;
  fAllocator->release(page);
}

[[gnu::noinline]] void TcompactArena::pageEmptied(Tpage* page) {
  if (page->fListed != 0) unlinkAvailable(page);
  if (fSpareCount >= fSpareLimit) {
    releasePage(page);
    return;
  }
  page->fNextSlot = 0;
  page->fPrev = nullptr;
  page->fNext = fSpare;
  fSpare = page;
  ++fSpareCount;
}

[[gnu::noinline]] void TcompactArena::linkAvailable(Tpage* page) {
  page->fPrev = nullptr;
  page->fNext = fAvailable;
  if (fAvailable != nullptr) fAvailable->fPrev = page;
  fAvailable = page;
  page->fListed = 1;
}

void TcompactArena::unlinkAvailable(Tpage* page) {
  if (page->fPrev != nullptr) {
    page->fPrev->fNext = page->fNext;
  } else {
    fAvailable = page->fNext;
  }
  if (page->fNext != nullptr) page->fNext->fPrev = page->fPrev;
  page->fPrev = nullptr;
  page->fNext = nullptr;
  page->fListed = 0;
}

void TcompactArena::releaseEmptyPages() {
  while (fSpare != nullptr) {
    Tpage* const page = fSpare;
    fSpare = page->fNext;
    page->fNext = nullptr;
    --fSpareCount;
    releasePage(page);
  }
  if (fCurrent != nullptr && fCurrent->fUsed == 0) releasePage(fCurrent);
  // Emptied pages never stay listed, but a sweep costs little and keeps the
  // promise whatever the history.
  for (Tpage* page = fAvailable; page != nullptr;) {
    Tpage* const next = page->fNext;
    if (page->fUsed == 0) releasePage(page);
    page = next;
  }
}

// --- Purify mode -------------------------------------------------------------------

void* TcompactArena::allocatePure(std::size_t size) {
  if (fSlotsPerPage == 0 || !tableReserve(1)) return nullptr;
  // Only the size asked for (rounded to the alignment, as aligned_alloc
  // wants), so that the checker flags overruns at once.
  void* block = std::aligned_alloc(fSlotAlignment, roundUp(size == 0 ? 1 : size, fSlotAlignment));
  if (block == nullptr) return nullptr;
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  tableInsert(address, address);
  ++fPureCount;
  return block;
}

bool TcompactArena::deallocatePure(void* block) {
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  if (!tableHasPair(address, address)) return false;
  tableErase(address, address);
  --fPureCount;
  std::free(block);
  return true;
}

// --- The table -------------------------------------------------------------------
// Linear probing with backward-shift deletion, kept at most half full.

std::size_t TcompactArena::home(std::uintptr_t key) const {
  // Fibonacci hashing: the multiply spreads neighbouring keys (consecutive
  // windows, blocks 16 bytes apart) over the top bits that are kept.
  return static_cast<std::size_t>((static_cast<std::uint64_t>(key) * 0x9E3779B97F4A7C15ull) >>
                                  fTableShift);
}

bool TcompactArena::tableHasPair(std::uintptr_t key, std::uintptr_t value) const {
  if (fTable == nullptr) return false;
  for (std::size_t i = home(key);; i = (i + 1) & fTableMask) {
    if (fTable[i].fValue == 0) return false;
    if (fTable[i].fKey == key && fTable[i].fValue == value) return true;
  }
}

bool TcompactArena::tableInsert(std::uintptr_t key, std::uintptr_t value) {
  if (!tableReserve(1)) return false;
  std::size_t i = home(key);
  while (fTable[i].fValue != 0) {
    if (fTable[i].fKey == key && fTable[i].fValue == value) return true;
    i = (i + 1) & fTableMask;
  }
  fTable[i] = {key, value};
  ++fTableCount;
  return true;
}

void TcompactArena::tableErase(std::uintptr_t key, std::uintptr_t value) {
  if (fTable == nullptr) return;
  std::size_t hole = home(key);
  while (fTable[hole].fKey != key || fTable[hole].fValue != value) {
    if (fTable[hole].fValue == 0) return;
    hole = (hole + 1) & fTableMask;
  }
  // Pull later members of the probe run back into the hole so that lookups
  // never stop early at it.
  for (std::size_t i = (hole + 1) & fTableMask; fTable[i].fValue != 0; i = (i + 1) & fTableMask) {
    const std::size_t wanted = home(fTable[i].fKey);
    // The cell may stay when its home lies cyclically in (hole, i].
    const bool stays = hole <= i ? (hole < wanted && wanted <= i) : (hole < wanted || wanted <= i);
    if (stays) continue;
    fTable[hole] = fTable[i];
    hole = i;
  }
  fTable[hole] = {0, 0};
  --fTableCount;
}

bool TcompactArena::tableReserve(std::size_t extra) {
  const std::size_t capacity = fTable == nullptr ? 0 : fTableMask + 1;
  if (2 * (fTableCount + extra) <= capacity) return true;
  std::size_t grown = capacity == 0 ? 16 : 2 * capacity;
  while (2 * (fTableCount + extra) > grown) grown *= 2;
  auto* table = new (std::nothrow) Tcell[grown]();
  if (table == nullptr) return false;

  Tcell* const old = fTable;
  fTable = table;
  fTableMask = grown - 1;
  fTableShift = 64 - static_cast<unsigned>(std::countr_zero(grown));
  fTableCount = 0;
  for (std::size_t i = 0; i < capacity; ++i) {
    if (old[i].fValue != 0) tableInsert(old[i].fKey, old[i].fValue);  // room is assured
  }
  delete[] old;
  return true;
}

}  // namespace lumora

// Memory: the allocator interface and a compact arena of fixed-size blocks.
//
// A TcompactArena hands out blocks of one size from large pages, for objects
// that are small, numerous and created and destroyed in bulk (curve keys):
//
//   TcompactArena keys(sizeof(Tkey), 131072, sMallocAllocator, "Keys");
//   void* p = keys.allocate(sizeof(Tkey), alignof(Tkey));
//   Tkey* key = new (p) Tkey;
//   ...
//   key->~Tkey();
//   keys.deallocate(key);          // false if `key` was not a live block of `keys`
//
// Allocation and deallocation are both constant time in the common case;
// deallocation checks that the pointer really is a live block of the arena
// without reading any memory the arena does not own, so foreign pointers,
// pointers into the middle of a block and second frees are refused rather
// than corrupting anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lumora/base/export.h"

namespace lumora {

/// A source of raw memory. The base class allocates with std::aligned_alloc
/// and releases with std::free; derived allocators may draw on other pools.
class LUMORA_API Tallocator {
 public:
  constexpr Tallocator() = default;
  // Deliberately trivial and non-virtual: sMallocAllocator must stay usable
  // until the very end of the process, so it must never be destroyed at exit.
  // Allocators are not deleted through Tallocator pointers.
  ~Tallocator() = default;

  /// `size` bytes aligned to `alignment` (a power of two; 0 asks for the
  /// alignment of std::max_align_t). Null for a size of 0, an alignment that
  /// is not a power of two, or when memory is refused.
  virtual void* allocate(std::size_t size, std::size_t alignment);
  /// Gives back a block from allocate(); null is ignored.
  virtual void release(void* block);
};

/// The process-wide allocator over the C heap.
extern LUMORA_API Tallocator sMallocAllocator;

/// Settings shared by every pooled allocator.
class LUMORA_API TpureArena {
 public:
  /// True while a memory-checking tool watches the process: pooled allocators
  /// then give every block its own malloc so that the tool can follow each
  /// one. Set it before the first arena is created; false by default.
  static bool sPurifyInUse;
};

/// An arena of equal-sized blocks carved from pages of one size.
///
/// A page is one block of pageSize() bytes from the allocator. It starts with a
/// header: an occupancy bitmap with one bit per slot, the index of the next
/// slot to try and the number of slots in use. Allocation takes the next slot
/// of the current page while it is free, otherwise searches that page's bitmap,
/// otherwise moves to another page with free slots or takes a new page from
/// the allocator. A page that becomes empty is kept as the one spare, or given
/// back to the allocator if there already is one.
///
/// Deallocation finds a block's page without touching memory it does not own:
/// the page of the previous deallocation is checked by address arithmetic
/// alone, other pages through a hash table indexed by address windows of
/// pageSize() bytes (a page overlaps at most two windows, and a window at most
/// two pages). Pages therefore need only 64-byte alignment from the allocator:
/// asking the C heap for pages aligned to their own size would make it map and
/// unmap every page separately, which costs more than all the blocks on it.
///
/// Every slot is aligned to slotAlignment() (at least 16); requests for a
/// larger alignment or for more than elementSize() bytes fail with null.
///
/// An arena created while TpureArena::sPurifyInUse is set stays in that mode
/// for its whole life: each block is then a separate malloc, and the arena
/// still refuses pointers that are not its live blocks.
///
/// The arena does not construct or destroy objects, and is not thread-safe.
/// Destroying it gives every page back, live blocks included.
class LUMORA_API TcompactArena {
 public:
  // --- Construction ----------------------------------------------------------

  /// An arena of blocks of `elementSize` bytes (0 is read as 1) in pages of
  /// `pageSize` bytes, rounded up to a power of two and grown as needed to hold
  /// at least one block. `allocator` must outlive the arena. `name` (null is
  /// read as "") is copied. An element size too large for any page (over 1 GiB)
  /// gives an arena whose allocations all fail.
  TcompactArena(std::size_t elementSize, std::size_t pageSize, Tallocator& allocator,
                const char* name);
  ~TcompactArena();
  TcompactArena(const TcompactArena&) = delete;
  TcompactArena& operator=(const TcompactArena&) = delete;

  // --- Blocks ----------------------------------------------------------------

  /// A free block for an object of `size` bytes aligned to `alignment` (0
  /// means the slot alignment). Null when `size` exceeds elementSize(), when
  /// `alignment` is not a power of two or exceeds slotAlignment(), or when no
  /// page can be had.
  void* allocate(std::size_t size, std::size_t alignment);
  /// Returns `block` to the arena. False, with nothing changed, for null and
  /// for anything that is not a live block of this arena: foreign pointers,
  /// pointers into a block, blocks already freed.
  bool deallocate(void* block);
  /// True when `block` is a live block of this arena.
  bool isLive(const void* block) const;

  // --- Pages -----------------------------------------------------------------

  /// Gives every empty page back to the allocator, the spare and an empty
  /// current page included.
  void releaseEmptyPages();
  /// How many empty pages the arena keeps for reuse instead of giving them
  /// back to the allocator at once (1 by default). A pool that is emptied and
  /// refilled in bulk keeps its pages warm with a larger limit;
  /// releaseEmptyPages() still gives every empty page back.
  void setSparePageLimit(std::size_t pages) { fSpareLimit = pages; }
  std::size_t sparePageLimit() const { return fSpareLimit; }

  // --- Description -----------------------------------------------------------

  const char* name() const { return fName.c_str(); }
  std::size_t elementSize() const { return fElementSize; }
  /// Distance between neighbouring slots: elementSize() rounded up to 16.
  std::size_t slotSize() const { return fStride; }
  std::size_t slotAlignment() const { return fSlotAlignment; }
  std::size_t pageSize() const { return fPageSize; }
  std::size_t slotsPerPage() const { return fSlotsPerPage; }
  /// Blocks handed out and not yet given back (counted over the pages).
  std::size_t liveCount() const;
  /// Pages held (0 in purify mode).
  std::size_t pageCount() const { return fPageCount; }
  /// Bytes of page memory held: pageCount() * pageSize().
  std::size_t bytesReserved() const { return fPageCount * fPageSize; }
  /// True when the arena gives each block its own malloc (see above).
  bool isPure() const { return fPure; }

 private:
  struct Tpage;  // the page header, defined in arena.cpp
  struct Tcell;  // one cell of the lookup table

  bool acceptable(std::size_t size, std::size_t alignment) const;
  void* allocateElsewhere(std::size_t size, std::size_t alignment);
  void* allocateSearch(Tpage* page);
  void* allocateSlow();
  void* slotAddress(Tpage* page, std::uint32_t slot) const;
  bool deallocateElsewhere(void* block);
  Tpage* pageOf(std::uintptr_t address) const;
  bool slotOf(const Tpage* page, std::uintptr_t address, std::uint32_t& slot) const;
  bool freeSlot(Tpage* page, std::uintptr_t address);
  Tpage* newPage();
  void releasePage(Tpage* page);
  void pageEmptied(Tpage* page);
  void linkAvailable(Tpage* page);
  void unlinkAvailable(Tpage* page);

  void* allocatePure(std::size_t size);
  bool deallocatePure(void* block);

  // Open-addressed table of (window, page) pairs, or in purify mode of
  // (block, block) pairs. Keys may repeat; pairs do not.
  bool tableHasPair(std::uintptr_t key, std::uintptr_t value) const;
  bool tableInsert(std::uintptr_t key, std::uintptr_t value);
  void tableErase(std::uintptr_t key, std::uintptr_t value);
  bool tableReserve(std::size_t extra);
  std::size_t home(std::uintptr_t key) const;

  std::string fName;
  Tallocator* fAllocator;
  std::size_t fElementSize;
  std::size_t fPageSize = 0;
  unsigned fPageShift = 0;  // log2(fPageSize)
  std::uint32_t fStride = 0;
  std::uint32_t fSlotAlignment = 0;
  std::uint32_t fFirstSlotOffset = 0;
  std::uint32_t fSlotsPerPage = 0;  // 0: the arena cannot allocate
  std::uint32_t fBitmapWords = 0;
  std::uint64_t fDivMagic = 0;  // divides by fStride with a multiply
  bool fPure;

  Tpage* fCurrent = nullptr;    // where allocation happens
  Tpage* fLastHit = nullptr;    // the page of the last block freed
  Tpage* fAvailable = nullptr;  // pages with free slots, besides the current one
  Tpage* fSpare = nullptr;      // empty pages kept back, linked through fNext
  std::size_t fSpareCount = 0;
  std::size_t fSpareLimit = 1;
  std::size_t fPageCount = 0;
  std::size_t fPureCount = 0;  // live blocks in purify mode

  Tcell* fTable = nullptr;
  std::size_t fTableMask = 0;  // capacity - 1 (capacity 0 while fTable is null)
  std::size_t fTableCount = 0;
  unsigned fTableShift = 64;  // 64 - log2(capacity)
};

}  // namespace lumora

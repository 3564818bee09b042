// Growable arrays of fixed-size elements whose size is known only at run time.
//
// A Tarray keeps its elements in one contiguous block obtained with malloc.
// It has a logical size (count(), the elements in use) and a physical capacity
// (capacity(), the slots allocated). Elements are raw bytes: they are copied
// with memcpy, compared with memcmp and never constructed or destroyed, so only
// trivially copyable values belong in one.
//
//   Tarray a(sizeof(double));
//   double x = 2.5;
//   a.appendElement(&x);                        // 0: success
//   a.insertElement(&x, /*index=*/0, /*count=*/3);
//   unsigned where;
//   if (a.findElement(&x, where) == 0) a.removeAt(where);
//   double* values = static_cast<double*>(a.data());
//
// TobjArray is the same container holding untyped object pointers. Typed
// views live in typed_array.h, sorted_array.h and ptr_array.h.
#pragma once

#include <cstddef>

#include "lumora/base/export.h"

namespace lumora {

/// A growable array of elements of `elementSize()` bytes.
///
/// Every operation that returns `int` returns 0 on success and nonzero on
/// failure; a failed operation leaves the array exactly as it was. Failures
/// are: an index out of range, a null element pointer where elements are
/// needed, a size that would pass `maxCapacity()`, and an allocation that
/// malloc or realloc refuses. Nothing throws and nothing aborts.
///
/// Any operation that changes the array may move the element block, so
/// pointers from data() and elementAt() are valid only until the next change.
/// Element arguments may point into the array itself; they are read before
/// the block moves.
///
/// The block is limited to `kMaxBytes` bytes and `kMaxCount` elements: byte
/// offsets then fit in 31 bits and `kInvalidIndex` can never be a real index.
class LUMORA_API Tarray {
 public:
  /// The index that names no element.
  static constexpr unsigned kInvalidIndex = 0xFFFFFFFFu;
  /// The most elements any array holds.
  static constexpr unsigned kMaxCount = 0xFFFFFFFEu;
  /// The largest element block, in bytes.
  static constexpr std::size_t kMaxBytes = 0x7FFFFFFFu;

  // --- Construction --------------------------------------------------------

  /// An empty array with room for `initialCapacity` elements. If that room
  /// cannot be had (too large, or malloc refuses) the array starts with none.
  /// An element size of 0 gives an array that can never hold an element.
  explicit Tarray(unsigned elementSize, unsigned initialCapacity = 0);
  /// Copies the elements; the copy's capacity equals its count. If the
  /// allocation fails the copy is empty (use assign() to see the failure).
  Tarray(const Tarray& other);
  /// Copies the elements (and the element size); a block already large enough
  /// is reused, so the capacity may exceed the count, as with std::vector.
  /// On failure this array is unchanged.
  Tarray& operator=(const Tarray& other);
  /// Takes over the block; `other` is left empty with its element size.
  Tarray(Tarray&& other) noexcept;
  Tarray& operator=(Tarray&& other) noexcept;
  virtual ~Tarray();

  /// Makes this array a copy of `other` (element size included).
  int assign(const Tarray& other);
  /// Exchanges contents, capacities and element sizes.
  void swap(Tarray& other) noexcept;

  // --- Size and access -----------------------------------------------------

  unsigned elementSize() const { return fElementSize; }
  unsigned count() const { return fCount; }
  unsigned capacity() const { return fCapacity; }
  bool empty() const { return fCount == 0; }
  /// The most elements an array of this element size can hold (0 when the
  /// element size is 0).
  unsigned maxCapacity() const;

  /// The element block; null when the capacity is 0.
  void* data() { return fData; }
  const void* data() const { return fData; }
  /// Element `i`, or null when `i >= count()`.
  void* elementAt(unsigned i);
  const void* elementAt(unsigned i) const;

  // --- Sizing --------------------------------------------------------------

  /// Sets the logical size to `count` and makes room for at least
  /// max(count, capacity) elements. Elements below `count` are kept; slots
  /// that become part of the array are zeroed.
  int create(unsigned count, unsigned capacity);
  /// Sets the logical size; elements added at the end are zeroed.
  int changeLogicalSizeTo(unsigned count);
  /// Sets the capacity. A request below the logical size trims the capacity
  /// to the logical size instead: elements are never dropped this way.
  int changePhysicalSizeTo(unsigned capacity);

  // --- Adding elements -----------------------------------------------------

  /// Makes slots index .. index+count-1 each a copy of `*element`, growing
  /// the logical size as needed. Slots between the old size and `index` are
  /// zeroed. A count of 0 does nothing and succeeds.
  int createAndInitialise(const void* element, unsigned index, unsigned count);
  /// Inserts `count` copies of `*element` before `index` (index <= count()).
  int insertElement(const void* element, unsigned index, unsigned count = 1);
  /// Inserts the `count` consecutive elements at `elements` before `index`.
  int insertElements(const void* elements, unsigned index, unsigned count);
  /// Adds a copy of `*element` at the end.
  int appendElement(const void* element);
  /// Overwrites the elements from `index` on with `count` elements from
  /// `source`, growing the logical size when they run past the end. Slots
  /// between the old size and `index` are zeroed.
  int copyElements(unsigned index, const void* source, unsigned count);
  /// Replaces the contents with `count` elements of `source` starting at
  /// `index`. The element sizes must match; `source` may be this array.
  int assignFrom(const Tarray& source, unsigned index, unsigned count);
  /// Appends `count` elements of `source` starting at `index`. The element
  /// sizes must match; `source` may be this array.
  int appendFrom(const Tarray& source, unsigned index, unsigned count);

  // --- Finding and removing ------------------------------------------------

  /// Looks for the first element whose bytes equal `*element`. Returns 0 and
  /// sets `index` when found; nonzero, with `index` untouched, when absent.
  int findElement(const void* element, unsigned& index) const;
  /// Removes the first element equal to `*element`; nonzero when absent.
  int removeElement(const void* element);
  /// Removes `count` elements from `index`; the range must lie inside the
  /// array (an empty range may start at count()).
  int removeAt(unsigned index, unsigned count = 1);

  // --- Maintenance ---------------------------------------------------------

  /// Checks the internal bookkeeping (see internalConsistencyCheck()).
  /// Returns 0 when consistent. A logical size above the capacity, which
  /// only a subclass writing the data members can cause, is clamped to the
  /// capacity; the result still reports the fault.
  int validateAndUpdate();
  /// Validates, then trims the capacity to the logical size.
  int resyncAndClean();

 protected:
  // --- Memory hooks --------------------------------------------------------
  // Every change of the block goes through allocateArray(). Overrides may
  // refuse a request or adjust it, but the block itself must keep coming
  // from malloc/realloc by way of Tarray::allocateArray(), because the
  // destructor releases it with free().

  /// Ensures room for `minimumCapacity` elements, growing geometrically so
  /// that repeated appends cost amortised constant time. When the geometric
  /// size is refused, exactly `minimumCapacity` is tried before failing.
  virtual int expandArray(unsigned minimumCapacity);
  /// Reallocates the block to exactly `capacity` elements, keeping the
  /// elements in use. Fails when `capacity` is below the logical size or
  /// above maxCapacity(); a capacity of 0 frees the block.
  virtual int allocateArray(unsigned capacity);
  /// Trims the capacity to the logical size.
  virtual int reclaimUnusedPhysicalMemory();
  /// Called after elements are removed: when less than a quarter of a
  /// sizeable block is in use, the capacity is reduced to twice the count.
  /// A refused shrink leaves the array as it was, so nothing is reported.
  virtual void deleteSurplusMemory();
  /// 0 when the bookkeeping is consistent; otherwise a nonzero code naming
  /// the first fault found. Subclasses may add checks of their own.
  virtual int internalConsistencyCheck() const;

  // --- Helpers for subclasses ----------------------------------------------

  /// Bytes taken by `n` elements (callers keep n within maxCapacity()).
  std::size_t bytesFor(unsigned n) const { return static_cast<std::size_t>(n) * fElementSize; }
  char* slot(unsigned i) const { return fData + bytesFor(i); }

  // --- Data ----------------------------------------------------------------

  char* fData = nullptr;      ///< The element block (malloc'd), null when fCapacity is 0.
  unsigned fCount = 0;        ///< Elements in use.
  unsigned fCapacity = 0;     ///< Elements the block can hold.
  unsigned fElementSize = 0;  ///< Bytes per element.

 private:
  bool overlapsBlock(const void* p, std::size_t bytes) const;
  void zeroSlots(unsigned from, unsigned to);
  int insertBytes(const void* elements, bool repeat, unsigned index, unsigned count);
  int writeRange(const void* source, bool repeat, unsigned index, unsigned count);
};

/// A Tarray of untyped object pointers, as kept by lists of registered
/// objects. It never owns what its elements point to: removing an element or
/// destroying the array leaves the objects alone. New slots are null.
class LUMORA_API TobjArray : public Tarray {
 public:
  explicit TobjArray(unsigned initialCapacity = 0) : Tarray(sizeof(void*), initialCapacity) {}

  /// Sets the logical size to `count` (new slots null), room for at least
  /// max(count, capacity) pointers.
  int create(unsigned count, unsigned capacity) { return Tarray::create(count, capacity); }
  /// Inserts `count` null slots before `index` (index <= count()).
  int insertElement(unsigned index, unsigned count);
  int removeAt(unsigned index, unsigned count = 1) { return Tarray::removeAt(index, count); }
  int changeLogicalSizeTo(unsigned count) { return Tarray::changeLogicalSizeTo(count); }
  int changePhysicalSizeTo(unsigned capacity) { return Tarray::changePhysicalSizeTo(capacity); }
  /// Adds `object` at the end.
  int addLast(void* object) { return appendElement(&object); }

  /// Slot `index`. An index at or past count() yields a scratch slot that
  /// reads as null and whose writes are discarded.
  void*& operator[](unsigned index);
  void* operator[](unsigned index) const;
  void** data() { return reinterpret_cast<void**>(fData); }
  void* const* data() const { return reinterpret_cast<void* const*>(fData); }
};

}  // namespace lumora

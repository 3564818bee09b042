#include "lumora/base/array.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace lumora {

namespace {

constexpr int kFailure = -1;
// Smallest capacity a growing array jumps to, so that the first appends do
// not reallocate one by one.
constexpr unsigned kMinimumGrowth = 8;
// Blocks this small are not worth shrinking after removals.
constexpr std::size_t kShrinkFloorBytes = 256;

// memmove/memset with a zero length may be handed null pointers by an empty
// array; the C library does not allow that even for zero bytes.
void moveBytes(void* to, const void* from, std::size_t bytes) {
  if (bytes != 0) std::memmove(to, from, bytes);
}
void clearBytes(void* to, std::size_t bytes) {
  if (bytes != 0) std::memset(to, 0, bytes);
}

// Holds the caller's elements while the array is reshaped. When they live
// inside the array's own block they are copied aside first, because growing
// may move the block and inserting shifts the elements.
class TstagedSource {
 public:
  TstagedSource(const void* source, std::size_t bytes, bool copyAside) : fSource(source) {
    if (!copyAside) return;
    void* copy = bytes <= sizeof(fLocal) ? static_cast<void*>(fLocal) : std::malloc(bytes);
    if (copy != fLocal) fHeap = copy;
    if (copy != nullptr) std::memcpy(copy, source, bytes);
    fSource = copy;
  }
  ~TstagedSource() { std::free(fHeap); }
  TstagedSource(const TstagedSource&) = delete;
  TstagedSource& operator=(const TstagedSource&) = delete;

  const char* bytes() const { return static_cast<const char*>(fSource); }
  bool ok() const { return fSource != nullptr; }

 private:
  alignas(std::max_align_t) unsigned char fLocal[64];
  void* fHeap = nullptr;
  const void* fSource;
};

// The slot that out-of-range subscripts of object arrays answer with.
void* scratchSlot = nullptr;

}  // namespace

// --- Construction ------------------------------------------------------------

Tarray::Tarray(unsigned elementSize, unsigned initialCapacity) : fElementSize(elementSize) {
  if (initialCapacity > 0) (void)Tarray::allocateArray(initialCapacity);
}

Tarray::Tarray(const Tarray& other) : fElementSize(other.fElementSize) {
  if (other.fCount == 0 || Tarray::allocateArray(other.fCount) != 0) return;
  std::memcpy(fData, other.fData, bytesFor(other.fCount));
  fCount = other.fCount;
}

Tarray& Tarray::operator=(const Tarray& other) {
  (void)assign(other);
  return *this;
}

Tarray::Tarray(Tarray&& other) noexcept
    : fData(other.fData),
      fCount(other.fCount),
      fCapacity(other.fCapacity),
      fElementSize(other.fElementSize) {
  other.fData = nullptr;
  other.fCount = 0;
  other.fCapacity = 0;
}

Tarray& Tarray::operator=(Tarray&& other) noexcept {
  if (this == &other) return *this;
  std::free(fData);
  fData = std::exchange(other.fData, nullptr);
  fCount = std::exchange(other.fCount, 0u);
  fCapacity = std::exchange(other.fCapacity, 0u);
  fElementSize = other.fElementSize;
  return *this;
}

Tarray::~Tarray() {
  std::free(fData);
}

int Tarray::assign(const Tarray& other) {
  if (this == &other) return 0;
  if (other.fElementSize != fElementSize) {
    // Build the copy on the side so that a failure leaves this array alone.
    Tarray staged(other.fElementSize);
    if (staged.assign(other) != 0) return kFailure;
    swap(staged);
    return 0;
  }
  return assignFrom(other, 0, other.fCount);
}

void Tarray::swap(Tarray& other) noexcept {
  std::swap(fData, other.fData);
  std::swap(fCount, other.fCount);
  std::swap(fCapacity, other.fCapacity);
  std::swap(fElementSize, other.fElementSize);
}

// --- Size and access ---------------------------------------------------------

unsigned Tarray::maxCapacity() const {
  if (fElementSize == 0) return 0;
  return static_cast<unsigned>(std::min<std::size_t>(kMaxCount, kMaxBytes / fElementSize));
}

void* Tarray::elementAt(unsigned i) {
  return i < fCount ? slot(i) : nullptr;
}

const void* Tarray::elementAt(unsigned i) const {
  return i < fCount ? slot(i) : nullptr;
}

// --- Sizing ------------------------------------------------------------------

int Tarray::create(unsigned count, unsigned capacity) {
  const unsigned needed = std::max(count, capacity);
  if (needed > fCapacity && allocateArray(needed) != 0) return kFailure;
  if (count > fCount) zeroSlots(fCount, count);
  fCount = count;
  return 0;
}

int Tarray::changeLogicalSizeTo(unsigned count) {
  if (count <= fCount) {
    fCount = count;
    deleteSurplusMemory();
    return 0;
  }
  if (expandArray(count) != 0) return kFailure;
  zeroSlots(fCount, count);
  fCount = count;
  return 0;
}

int Tarray::changePhysicalSizeTo(unsigned capacity) {
  return allocateArray(std::max(capacity, fCount));
}

// --- Adding elements ---------------------------------------------------------

int Tarray::createAndInitialise(const void* element, unsigned index, unsigned count) {
  return writeRange(element, /*repeat=*/true, index, count);
}

int Tarray::insertElement(const void* element, unsigned index, unsigned count) {
  return insertBytes(element, /*repeat=*/true, index, count);
}

int Tarray::insertElements(const void* elements, unsigned index, unsigned count) {
  return insertBytes(elements, /*repeat=*/false, index, count);
}

int Tarray::appendElement(const void* element) {
  return insertBytes(element, /*repeat=*/true, fCount, 1);
}

int Tarray::copyElements(unsigned index, const void* source, unsigned count) {
  return writeRange(source, /*repeat=*/false, index, count);
}

int Tarray::assignFrom(const Tarray& source, unsigned index, unsigned count) {
  if (source.fElementSize != fElementSize) return kFailure;
  if (index > source.fCount || count > source.fCount - index) return kFailure;
  if (this == &source) {
    moveBytes(fData, slot(index), bytesFor(count));
    fCount = count;
    deleteSurplusMemory();
    return 0;
  }
  // A copy gets exactly the room it needs rather than geometric slack.
  if (count > fCapacity && allocateArray(count) != 0) return kFailure;
  moveBytes(fData, source.slot(index), bytesFor(count));
  fCount = count;
  return 0;
}

int Tarray::appendFrom(const Tarray& source, unsigned index, unsigned count) {
  if (source.fElementSize != fElementSize) return kFailure;
  if (index > source.fCount || count > source.fCount - index) return kFailure;
  return insertElements(source.slot(index), fCount, count);
}

// --- Finding and removing ----------------------------------------------------

int Tarray::findElement(const void* element, unsigned& index) const {
  if (element == nullptr) return kFailure;
  for (unsigned i = 0; i < fCount; ++i) {
    if (std::memcmp(slot(i), element, fElementSize) != 0) continue;
    index = i;
    return 0;
  }
  return kFailure;
}

int Tarray::removeElement(const void* element) {
  unsigned index = 0;
  if (findElement(element, index) != 0) return kFailure;
  return removeAt(index, 1);
}

int Tarray::removeAt(unsigned index, unsigned count) {
  if (index > fCount || count > fCount - index) return kFailure;
  if (count == 0) return 0;
  moveBytes(slot(index), slot(index + count), bytesFor(fCount - index - count));
  fCount -= count;
  deleteSurplusMemory();
  return 0;
}

// --- Maintenance -------------------------------------------------------------

int Tarray::validateAndUpdate() {
  const int fault = internalConsistencyCheck();
  if (fData == nullptr) {
    fCapacity = 0;
    fCount = 0;
  }
  if (fCount > fCapacity) fCount = fCapacity;
  return fault;
}

int Tarray::resyncAndClean() {
  if (validateAndUpdate() != 0) return kFailure;
  return reclaimUnusedPhysicalMemory();
}

// --- Memory hooks ------------------------------------------------------------

int Tarray::expandArray(unsigned minimumCapacity) {
  if (minimumCapacity <= fCapacity) return 0;
  const unsigned limit = maxCapacity();
  if (minimumCapacity > limit) return kFailure;
  std::uint64_t grown = static_cast<std::uint64_t>(fCapacity) + fCapacity / 2;
  grown = std::max<std::uint64_t>({grown, kMinimumGrowth, minimumCapacity});
  grown = std::min<std::uint64_t>(grown, limit);
  if (allocateArray(static_cast<unsigned>(grown)) == 0) return 0;
  // The slack was refused; the bare minimum may still be had.
  if (grown == minimumCapacity) return kFailure;
  return allocateArray(minimumCapacity);
}

int Tarray::allocateArray(unsigned capacity) {
  if (capacity < fCount || capacity > maxCapacity()) return kFailure;
  if (capacity == fCapacity) return 0;
  if (capacity == 0) {
    std::free(fData);
    fData = nullptr;
    fCapacity = 0;
    return 0;
  }
  void* block = std::realloc(fData, bytesFor(capacity));
  if (block == nullptr) return kFailure;
  fData = static_cast<char*>(block);
  fCapacity = capacity;
  return 0;
}

int Tarray::reclaimUnusedPhysicalMemory() {
  return allocateArray(fCount);
}

void Tarray::deleteSurplusMemory() {
  if (bytesFor(fCapacity) <= kShrinkFloorBytes) return;
  if (fCount >= fCapacity / 4) return;
  (void)allocateArray(std::max(fCount * 2, kMinimumGrowth));
}

int Tarray::internalConsistencyCheck() const {
  if (fCount > fCapacity) return 1;
  if ((fData == nullptr) != (fCapacity == 0)) return 2;
  if (fCapacity > maxCapacity()) return 3;
  return 0;
}

// --- Private helpers ---------------------------------------------------------

bool Tarray::overlapsBlock(const void* p, std::size_t bytes) const {
  if (fData == nullptr) return false;
  const auto first = reinterpret_cast<std::uintptr_t>(p);
  const auto block = reinterpret_cast<std::uintptr_t>(fData);
  return first < block + bytesFor(fCapacity) && first + bytes > block;
}

void Tarray::zeroSlots(unsigned from, unsigned to) {
  clearBytes(slot(from), bytesFor(to - from));
}

int Tarray::insertBytes(const void* elements, bool repeat, unsigned index, unsigned count) {
  if (index > fCount) return kFailure;
  if (count == 0) return 0;
  if (elements == nullptr || count > maxCapacity() - fCount) return kFailure;

  const std::size_t sourceBytes = repeat ? fElementSize : bytesFor(count);
  const TstagedSource source(elements, sourceBytes, overlapsBlock(elements, sourceBytes));
  if (!source.ok() || expandArray(fCount + count) != 0) return kFailure;

  moveBytes(slot(index + count), slot(index), bytesFor(fCount - index));
  if (repeat) {
    for (unsigned i = 0; i < count; ++i) std::memcpy(slot(index + i), source.bytes(), fElementSize);
  } else {
    std::memcpy(slot(index), source.bytes(), sourceBytes);
  }
  fCount += count;
  return 0;
}

int Tarray::writeRange(const void* source, bool repeat, unsigned index, unsigned count) {
  if (count == 0) return 0;
  const unsigned limit = maxCapacity();
  if (source == nullptr || index > limit || count > limit - index) return kFailure;

  const unsigned end = index + count;
  const std::size_t sourceBytes = repeat ? fElementSize : bytesFor(count);
  const TstagedSource staged(source, sourceBytes, overlapsBlock(source, sourceBytes));
  if (!staged.ok()) return kFailure;
  if (end > fCount && expandArray(end) != 0) return kFailure;

  if (index > fCount) zeroSlots(fCount, index);
  if (repeat) {
    for (unsigned i = index; i < end; ++i) std::memcpy(slot(i), staged.bytes(), fElementSize);
  } else {
    std::memcpy(slot(index), staged.bytes(), sourceBytes);
  }
  fCount = std::max(fCount, end);
  return 0;
}

// --- TobjArray ---------------------------------------------------------------

int TobjArray::insertElement(unsigned index, unsigned count) {
  void* const null = nullptr;
  return Tarray::insertElement(&null, index, count);
}

void*& TobjArray::operator[](unsigned index) {
  if (index < fCount) return data()[index];
  scratchSlot = nullptr;
  return scratchSlot;
}

void* TobjArray::operator[](unsigned index) const {
  return index < fCount ? data()[index] : nullptr;
}

}  // namespace lumora

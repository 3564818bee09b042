#include "lumora/base/sorted_array.h"

#include <cstring>

namespace lumora {

TsortedArray::TsortedArray(unsigned elementSize, unsigned capacity, bool allowDuplicates)
    : Tarray(elementSize, capacity), fAllowDuplicates(allowDuplicates) {}

int TsortedArray::compare(const void* a, const void* b) const {
  return std::memcmp(a, b, fElementSize);
}

unsigned TsortedArray::boundFor(const void* probe, bool upper) const {
  unsigned low = 0;
  unsigned high = fCount;
  while (low < high) {
    const unsigned mid = low + (high - low) / 2;
    const int order = compare(slot(mid), probe);
    const bool goesLeftOfProbe = upper ? order <= 0 : order < 0;
    if (goesLeftOfProbe) {
      low = mid + 1;
    } else {
      high = mid;
    }
  }
  return low;
}

int TsortedArray::insertSorted(const void* element, unsigned& index) {
  if (element == nullptr) return -1;
  unsigned at = 0;
  if (search(element, at) && !fAllowDuplicates) {
    index = at;
    return -1;
  }
  if (fAllowDuplicates) at = boundFor(element, /*upper=*/true);
  if (insertElement(element, at, 1) != 0) return -1;
  index = at;
  return 0;
}

bool TsortedArray::search(const void* probe, unsigned& index) const {
  if (probe == nullptr) {
    index = 0;
    return false;
  }
  index = boundFor(probe, /*upper=*/false);
  return index < fCount && compare(slot(index), probe) == 0;
}

bool TsortedArray::orderValidAt(unsigned index) const {
  if (index >= fCount) return false;
  const void* element = slot(index);
  if (index > 0) {
    const int before = compare(slot(index - 1), element);
    if (fAllowDuplicates ? before > 0 : before >= 0) return false;
  }
  if (index + 1 < fCount) {
    const int after = compare(element, slot(index + 1));
    if (fAllowDuplicates ? after > 0 : after >= 0) return false;
  }
  return true;
}

int TsortedArray::internalConsistencyCheck() const {
  if (const int fault = Tarray::internalConsistencyCheck(); fault != 0) return fault;
  for (unsigned i = 1; i < fCount; ++i) {
    if (!orderValidAt(i)) return 4;
  }
  return 0;
}

}  // namespace lumora

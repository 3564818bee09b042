#include "lumora/curve/internal/key_array.h"

#include <cmath>

namespace lumora {

TkeyArray::TkeyArray(bool ticks) : TsortedArray(sizeof(Tkeyframe*), 8, false), fTicks(ticks) {}

int TkeyArray::compareKeys(const Tkeyframe& a, const Tkeyframe& b) const {
  if (fTicks) {
    const auto ta = a.timeAsTicks();
    const auto tb = b.timeAsTicks();
    return ta < tb ? -1 : (ta > tb ? 1 : 0);
  }
  if (a < b) return -1;
  if (a > b) return 1;
  return 0;
}

int TkeyArray::compare(const void* a, const void* b) const {
  const auto* ka = *static_cast<Tkeyframe* const*>(a);
  const auto* kb = *static_cast<Tkeyframe* const*>(b);
  return compareKeys(*ka, *kb);
}

int TkeyArray::insertKey(Tkeyframe* key, unsigned& index) {
  if (!key || key->fInCurve) return 1;
  if (!fTicks && !std::isfinite(key->timeAsFloat())) return 1;
  const int result = insertSorted(&key, index);
  if (result == 0) key->fInCurve = 1;
  return result;
}

int TkeyArray::appendKey(Tkeyframe* key) {
  if (!key || key->fInCurve) return 1;
  if (!fTicks && !std::isfinite(key->timeAsFloat())) return 1;
  const unsigned n = count();
  if (n > 0 && compareKeys(*keys()[n - 1], *key) >= 0) return 1;
  // Keys added one by one in time order all arrive here; while the block has
  // room the pointer is stored directly instead of through the general insertion.
  if (n < capacity()) {
    keys()[n] = key;
    ++fCount;
  } else if (appendElement(&key) != 0) {
    return 1;
  }
  key->fInCurve = 1;
  return 0;
}

Tkeyframe* TkeyArray::removeKey(unsigned i) {
  Tkeyframe* key = at(i);
  if (!key) return nullptr;
  removeAt(i);
  key->fInCurve = 0;
  return key;
}

void TkeyArray::putBack(Tkeyframe* key, unsigned index) {
  if (!key || insertElement(&key, index) != 0) return;
  key->fInCurve = 1;
}

void TkeyArray::releaseAll() {
  const unsigned n = count();
  for (unsigned i = 0; i < n; ++i) keys()[i]->fInCurve = 0;
  changeLogicalSizeTo(0);
}

bool TkeyArray::keyOrderValid(unsigned i) const {
  const unsigned n = count();
  if (i >= n) return false;
  const Tkeyframe* k = keys()[i];
  if (i > 0 && compareKeys(*keys()[i - 1], *k) >= 0) return false;
  if (i + 1 < n && compareKeys(*k, *keys()[i + 1]) >= 0) return false;
  return true;
}

}  // namespace lumora

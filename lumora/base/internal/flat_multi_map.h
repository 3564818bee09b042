// TflatMultiMap: keys to 32-bit values in one open-addressed array.
//
// The undo bookkeeping of an interactive drag looks up, per dragged key and
// per step, whether it has seen the key (or the time it ended at) before.
// A node-based map pays an allocation and a cache miss per entry there, and
// an entry is dropped and another added for every key on every step. Here a
// lookup is a linear probe through adjacent slots, a removal leaves a marked
// slot behind, and nothing is allocated until the array grows. Keys may
// repeat; forEach visits every live entry of a key. Not installed.
//
//   TflatMultiMap<const void*, ThashPointer> seen;
//   seen.insert(p, 7);
//   seen.forEach(p, [&](Tslot& s) { use(s.value); seen.erase(s); return true; });
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumora::internal {

// Spreads pointer-like bits over the whole word: slots are taken from the
// high bits of a multiplicative hash.
inline std::uint64_t mixBits(std::uint64_t x) {
  x ^= x >> 33;
  x *= 0xFF51AFD7ED558CCDull;
  x ^= x >> 33;
  return x;
}

// Objects from one pool lie side by side and are mostly visited in the order
// they were made: their addresses, as they are, keep neighbours in
// neighbouring slots, where a mixing hash would send each probe to a line
// of its own.
struct ThashPointer {
  std::uint64_t operator()(const void* p) const {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p)) >> 4;
  }
};

template <typename Key, typename Hash>
class TflatMultiMap {
 public:
  // Values at or above kErased are reserved.
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;
  static constexpr std::uint32_t kErased = 0xFFFFFFFEu;

  struct Tslot {
    Key key{};
    std::uint32_t value = kEmpty;
    std::uint32_t tag = 0;  // the caller's, kept with the entry
    bool live() const { return value < kErased; }
  };

  std::size_t size() const { return fLive; }
  bool empty() const { return fLive == 0; }

  /// Adds an entry; the slot stays valid until the next insert.
  Tslot& insert(const Key& key, std::uint32_t value, std::uint32_t tag = 0) {
    if ((fUsed + 1) * 4 > fSlots.size() * 3) rehash();
    const std::size_t mask = fSlots.size() - 1;
    std::size_t i = Hash()(key) & mask;
    while (fSlots[i].live()) i = (i + 1) & mask;
    if (fSlots[i].value == kEmpty) ++fUsed;
    fSlots[i] = Tslot{key, value, tag};
    ++fLive;
    return fSlots[i];
  }

  /// Calls visit(slot) for each live entry of `key` in probe order until it
  /// returns false. The visitor may erase the slot it is given.
  template <typename Visit>
  void forEach(const Key& key, Visit visit) {
    if (fSlots.empty()) return;
    const std::size_t mask = fSlots.size() - 1;
    for (std::size_t i = Hash()(key) & mask; fSlots[i].value != kEmpty; i = (i + 1) & mask) {
      if (fSlots[i].live() && fSlots[i].key == key && !visit(fSlots[i])) return;
    }
  }

  /// The first live entry of `key`, or null.
  Tslot* find(const Key& key) {
    Tslot* found = nullptr;
    forEach(key, [&found](Tslot& s) {
      found = &s;
      return false;
    });
    return found;
  }

  void erase(Tslot& slot) {
    if (!slot.live()) return;
    slot.value = kErased;
    --fLive;
  }

  /// Calls change(value) for every live entry, to renumber the values.
  template <typename Change>
  void forEachValue(Change change) {
    for (Tslot& s : fSlots) {
      if (s.live()) change(s.value);
    }
  }

  void clear() {
    fSlots.clear();
    fLive = fUsed = 0;
  }

 private:
  // Grows (or, when erased slots fill it, rebuilds) the array to twice the
  // live entries' need; erased slots are dropped.
  void rehash() {
    std::size_t capacity = 16;
    while (capacity < (fLive + 1) * 2) capacity *= 2;
    std::vector<Tslot> old;
    old.swap(fSlots);
    fSlots.assign(capacity, Tslot{});
    fLive = fUsed = 0;
    for (const Tslot& s : old) {
      if (s.live()) insert(s.key, s.value, s.tag);
    }
  }

  std::vector<Tslot> fSlots;
  std::size_t fLive = 0;
  std::size_t fUsed = 0;  // live and erased slots
};

}  // namespace lumora::internal

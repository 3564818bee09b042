// Small fixed-width bit sets.
//
//   TbitField32 flags;
//   flags.setBit(22, true);
//   if (flags.testBit(22)) ...
//
// Bit 0 is the least significant bit. Indices at or past the width are
// ignored: testBit answers false and setBit changes nothing.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"

namespace lumora {

template <typename Word>
class TbitFieldOf {
 public:
  static constexpr unsigned kBits = sizeof(Word) * 8;

  constexpr TbitFieldOf() = default;
  constexpr explicit TbitFieldOf(Word bits) : fBits(bits) {}

  constexpr bool testBit(unsigned index) const {
    return index < kBits && ((fBits >> index) & Word{1}) != 0;
  }
  constexpr void setBit(unsigned index, bool on) {
    if (index >= kBits) return;
    const Word mask = static_cast<Word>(Word{1} << index);
    fBits = on ? static_cast<Word>(fBits | mask) : static_cast<Word>(fBits & ~mask);
  }
  constexpr Word bits() const { return fBits; }
  constexpr void setBits(Word bits) { fBits = bits; }
  constexpr void clear() { fBits = 0; }

  constexpr bool operator==(const TbitFieldOf&) const = default;

 private:
  Word fBits = 0;
};

using TbitField16 = TbitFieldOf<std::uint16_t>;
using TbitField32 = TbitFieldOf<std::uint32_t>;

}  // namespace lumora

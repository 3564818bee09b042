// Pick keys: which parts of a key a selection names.
//
// A pick names the key itself, its in tangent or its out tangent, as bits of a
// TbitField32:
//
//   TbitField32 picked = TpickKey::merge(current, TbitField32(TpickKey::kPickInTangent));
//
// Merging is not a plain union: picking the key itself replaces any tangent
// pick, and merging a tangent pick into a key pick keeps only the tangents.
#pragma once

#include "lumora/base/bit_field.h"
#include "lumora/base/export.h"

namespace lumora {

class LUMORA_API TpickKey {
 public:
  enum TpickBits : unsigned {
    kPickKey = 1,         ///< the key itself
    kPickInTangent = 2,   ///< its in tangent
    kPickOutTangent = 4,  ///< its out tangent
    kPickNoHandle = 8,    ///< the pick holds no key handle
  };

  /// Merges pick bits `b` into `a`: when `b` picks the key the result is
  /// exactly the key bit; otherwise the union of the two tangent bits. The key
  /// bit of `a` is deliberately dropped, so adding a tangent pick to a key
  /// pick leaves only the tangent.
  static TbitField32 merge(const TbitField32& a, const TbitField32& b) {
    if (b.bits() & kPickKey) return TbitField32(kPickKey);
    return TbitField32((a.bits() | b.bits()) & (kPickInTangent | kPickOutTangent));
  }
};

}  // namespace lumora

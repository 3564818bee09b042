// Tangent types: the rule by which a key side gets its tangent.
//
// Every side of a key stores one of the values 1 to 10. Except for
// kTangentFixed each value names a rule that the curve re-runs whenever the key
// or a neighbour changes. 0 is accepted by setters and means "take the default
// of the keyframe preference item"; it is never stored.
//
// The numbers are saved in files and in preference text: do not change values;
// only add.
#pragma once

#include <cstdint>

namespace lumora {

enum TtangentType : std::int32_t {
  kTangentGlobal = 0,         ///< use the keyframe preference default
  kTangentFixed = 1,          ///< "fixed": never recomputed
  kTangentLinear = 2,         ///< "linear": points at the neighbouring key
  kTangentFlat = 3,           ///< "flat": horizontal
  kTangentSmooth = 4,         ///< weighted: length-averaged slope; else as spline
  kTangentStep = 5,           ///< "step": the span holds its start value
  kTangentSlow = 6,           ///< "slow": fixed slope 0.5772
  kTangentFast = 7,           ///< "fast": fixed slope 1.732
  kTangentClampedSmooth = 8,  ///< flat near an equal neighbour, else smooth
  kTangentSpline = 9,         ///< "spline": slope of the chord between neighbours
  kTangentClamped = 10,       ///< "clamped": flat near an equal neighbour, else spline
};

/// The keyword under which a type is saved ("spline", "flat", ...), or null for
/// the types that are internal and never written (0, 4, 8, out of range).
const char* tangentTypeKeyword(TtangentType type);

}  // namespace lumora

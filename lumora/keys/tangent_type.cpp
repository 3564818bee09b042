#include "lumora/keys/tangent_type.h"

namespace lumora {

const char* tangentTypeKeyword(TtangentType type) {
  switch (type) {
    case kTangentFixed:
      return "fixed";
    case kTangentLinear:
      return "linear";
    case kTangentFlat:
      return "flat";
    case kTangentStep:
      return "step";
    case kTangentSlow:
      return "slow";
    case kTangentFast:
      return "fast";
    case kTangentSpline:
      return "spline";
    case kTangentClamped:
      return "clamped";
    default:
      return nullptr;
  }
}

}  // namespace lumora

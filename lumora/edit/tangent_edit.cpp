// TparamCurve: reading tangents as view-space angles and weights, and dragging.
#include <cmath>

#include "lumora/base/angle.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/key_states.h"

namespace lumora {

double TparamCurve::tangentWeight(unsigned index, bool inSide, float a, float b) const {
  const Tkeyframe* key = keyframe(index);
  if (!key) return 0.0;
  float x = 0.0f, y = 0.0f;
  key->getTangent(inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide, x, y);
  if (isWeighted()) {
    // The handle is one third of the tangent (the Bezier control point).
    const double hx = static_cast<double>(x) / 3.0 * a;
    const double hy = static_cast<double>(y) / 3.0 * b;
    return std::sqrt(hx * hx + hy * hy);
  }
  return (std::fabs(x) > 1e-10 || std::fabs(y) > 1e-10) ? 1.0 : 0.0;
}

Tangle TparamCurve::tangentAngle(unsigned index, bool inSide, float a, float b) const {
  const Tkeyframe* key = keyframe(index);
  if (!key) return Tangle();
  float x = 0.0f, y = 0.0f;
  key->getTangent(inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide, x, y);
  if (std::fabs(x) > 1e-10) {
    return Tangle(std::atan((static_cast<double>(y) * b) / (static_cast<double>(x) * a)));
  }
  if (std::fabs(y) > 1e-10) return Tangle(y >= 0.0f ? 90.0 : -90.0, TangleUnit::kDegrees, false);
  return Tangle(0.0, TangleUnit::kDegrees, false);
}

bool TparamCurve::dragTangent(unsigned index, float x, float y, bool inSide) {
  Tkeyframe* key = keyframe(index);
  if (!key || !std::isfinite(x) || !std::isfinite(y)) return false;
  if (inSide && key->interpMethod() == Tkeyframe::kSpanLinear) return false;
  if (!beginChange()) return false;
  TkeyStatesRecorder states(*this, index, TkeyStates::kNeighbourReach);

  const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  if (inFileIO()) {
    // Files carry final tangents: no type change and nothing to undo.
    key->setTangent(side, x, y);
  } else {
    float oldX = 0.0f, oldY = 0.0f;
    key->getTangent(side, oldX, oldY);
    const TtangentType oldType = key->tangentType(side);
    setTangent(key, side, x, y);
    setTangentTypeHelper(index, kTangentFixed, side);
    if (isMod()) {
      float newX = 0.0f, newY = 0.0f;
      key->getTangent(side, newX, newY);
      addDelta(new TPCDdragTan(this, index, inSide, oldType, kTangentFixed, oldX, oldY, newX, newY),
               false);
    }
  }
  if (staticCurve()) checkStaticTanCondition(index);
  invalidateCache(static_cast<int>(index));
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  states.finish(index, TkeyStates::kNeighbourReach);
  endChange(true);
  return true;
}

}  // namespace lumora

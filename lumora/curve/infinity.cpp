// TparamCurve: behaviour before the first and after the last key.
//
// Constant infinities are handled by evaluate itself. The others map the time
// into the keyed range (cycling, oscillating) or extend the end tangent
// (linear). The arithmetic rounds to float at the same places as the key
// times are stored, so cycled samples land on the same values as the
// originals.
#include <cmath>

#include "lumora/base/angle.h"
#include "lumora/curve/param_curve.h"

namespace lumora {

double TparamCurve::evaluateInfinities(float t, bool pre) {
  const unsigned n = keyframeCount();
  if (n == 0) return 0.0;
  const Tkeyframe* first = keyframe(0);
  const Tkeyframe* last = keyframe(n - 1);
  const float tStart = seconds(first);
  const float tEnd = seconds(last);
  const float range = tEnd - tStart;
  if (range == 0.0f) return first->value();

  const double x = t <= tEnd ? (static_cast<double>(t) - tStart) / range
                             : (static_cast<double>(t) - tEnd) / range;
  double ip = 0.0;
  const double f = std::fabs(std::modf(x, &ip));
  float local = static_cast<float>(range * f);
  const double cycles = std::fabs(ip) + 1.0;
  const bool oddCycle = std::fmod(cycles * 0.5, 1.0) != 0.0;
  const TinfinityType type = pre ? fPreInfinity : fPostInfinity;

  if (!pre) {
    switch (type) {
      case kOscillate:
        local = oddCycle ? tEnd - local : local + tStart;
        break;
      case kCycle:
      case kCycleRelative:
        local = local + tStart;
        break;
      case kLinear: {
        const double angle = tangentAngle(n - 1, /*inSide=*/true, 1.0f, 1.0f).radians();
        return last->value() + std::tan(angle) * static_cast<float>(t - tEnd);
      }
      default:
        break;  // a stored 2 evaluates at the raw offset within one period
    }
  } else {
    switch (type) {
      case kOscillate:
        local = oddCycle ? local + tStart : tEnd - local;
        break;
      case kCycle:
      case kCycleRelative:
        local = tEnd - local;
        break;
      case kLinear: {
        // Both ends extend along the in tangent of their key.
        const double angle = tangentAngle(0, /*inSide=*/true, 1.0f, 1.0f).radians();
        return first->value() - std::tan(angle) * static_cast<float>(tStart - t);
      }
      default:
        break;
    }
  }

  const double v = evaluate(local);
  if (type != kCycleRelative) return v;
  const double shift = (last->value() - first->value()) * cycles;
  return pre ? v - shift : v + shift;
}

double TparamCurve::evaluateInfinities(const TtimeValue& t, bool pre) {
  const unsigned n = keyframeCount();
  if (n == 0) return 0.0;
  const Tkeyframe* first = keyframe(0);
  const Tkeyframe* last = keyframe(n - 1);
  const float tStart = seconds(first);
  const float tEnd = seconds(last);
  const float range = tEnd - tStart;
  if (range == 0.0f) return first->value();

  const float ts = t.inSeconds();
  const double x = t <= timeValue(last) ? (static_cast<double>(ts) - tStart) / range
                                        : (static_cast<double>(ts) - tEnd) / range;
  double ip = 0.0;
  const double f = std::fabs(std::modf(x, &ip));
  float local = static_cast<float>(range * f);
  const double cycles = std::fabs(ip) + 1.0;
  const bool oddCycle = std::fmod(cycles * 0.5, 1.0) != 0.0;
  const TinfinityType type = pre ? fPreInfinity : fPostInfinity;

  switch (type) {
    case kOscillate:
      local = (oddCycle != pre) ? tEnd - local : local + tStart;
      break;
    case kCycle:
    case kCycleRelative:
      local = pre ? tEnd - local : local + tStart;
      break;
    case kLinear: {
      const unsigned index = pre ? 0 : n - 1;
      const double angle = tangentAngle(index, /*inSide=*/true, 1.0f, 1.0f).radians();
      if (pre) return first->value() - std::tan(angle) * static_cast<float>(tStart - ts);
      return last->value() + std::tan(angle) * static_cast<float>(ts - tEnd);
    }
    default:
      break;
  }

  const double v = evaluate(makeTimeValue(local));
  if (type != kCycleRelative) return v;
  const double shift = (last->value() - first->value()) * cycles;
  return pre ? v - shift : v + shift;
}

void TparamCurve::setPreInfinityType(TinfinityType type) { setInfinityType(type, true); }

void TparamCurve::setPostInfinityType(TinfinityType type) { setInfinityType(type, false); }

void TparamCurve::setInfinityType(TinfinityType type, bool pre) {
  TparamCurve* curves[3] = {this, nullptr, nullptr};
  if (fRotationInterpolation == kQuaternion) {
    TparamCurve* x = nullptr;
    TparamCurve* y = nullptr;
    TparamCurve* z = nullptr;
    if (getSiblingRotationCurves(&x, &y, &z, false) && x && y && z) {
      curves[0] = x;
      curves[1] = y;
      curves[2] = z;
    }
  }
  const bool accepted = type == kLinear || type == kCycle || type == kCycleRelative ||
                        type == kOscillate;
  const TinfinityType stored = accepted ? type : kConstant;
  for (TparamCurve* c : curves) {
    if (!c) continue;
    TinfinityType& slot = pre ? c->fPreInfinity : c->fPostInfinity;
    // Compared before normalising: setting 2 on a constant curve still
    // announces a change, which hosts rely on to refresh.
    if (slot == type) continue;
    if (!c->beginChange()) continue;
    const TinfinityType old = slot;
    slot = stored;
    c->recordInfinityDelta(pre, old, stored);
    c->invalidateCache(-1);
    c->notifyClientsOfChange(c->keyframe(0), 3);
    c->endChange(true);
  }
}

}  // namespace lumora

// TparamCurve: reading tangents as view-space angles and weights, and dragging.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "lumora/base/angle.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/keys/keyframe_handle.h"
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

// --- Angles and weights --------------------------------------------------------------------

namespace {

constexpr double kMinimumWeight = 0.005;
constexpr double kPi = std::numbers::pi;

// View scales of 0 count as 1, so that no tangent becomes infinite.
double viewScale(float scale) {
  return scale == 0.0f ? 1.0 : static_cast<double>(scale);
}

// The tangent of a handle at `angle` with view length `weight`: the
// tangent is three handles long.
void tangentOf(double angle, double weight, float a, float b, float& x, float& y) {
  x = static_cast<float>(std::cos(angle) * weight * 3.0 / viewScale(a));
  y = static_cast<float>(std::sin(angle) * weight * 3.0 / viewScale(b));
}

// Hosts pass these to leave a part of editTangent's edit alone. An angle of
// the largest double in degrees does not come back as exactly that from
// radians, so the sentinel is also known by its own round trip.
bool weightGiven(float weight) {
  return weight != std::numeric_limits<float>::max();
}
bool angleGiven(const Tangle& angle) {
  static const double sentinel =
      Tangle(std::numeric_limits<double>::max(), TangleUnit::kDegrees, false).degrees();
  const double degrees = angle.degrees();
  return degrees != std::numeric_limits<double>::max() && degrees != sentinel;
}

// The view length of (x, y) under the scales, times the 24 the lock
// adjustments carry (it cancels in every ratio they take).
double lockLength(double sa, double sb, double x, double y) {
  return std::sqrt((x / sa) * (x / sa) + (y / sb) * (y / sb)) * 24.0;
}

}  // namespace

void TparamCurve::setTangentAngle(unsigned index, const Tangle& angle, bool inSide, float& x,
                                  float& y, float a, float b) const {
  if (!keyframe(index)) return;
  tangentOf(angle.radians(), tangentWeight(index, inSide, a, b), a, b, x, y);
}

void TparamCurve::setTangentWeight(unsigned index, float weight, bool inSide, float& x, float& y,
                                   float a, float b) const {
  if (!keyframe(index)) return;
  const Tangle angle = tangentAngle(index, inSide, a, b);
  tangentOf(angle.radians(), std::max(static_cast<double>(weight), kMinimumWeight), a, b, x, y);
}

void TparamCurve::setTangentWeightAndAngle(unsigned index, float weight, const Tangle& angle,
                                           bool /*inSide*/, float& x, float& y, float a,
                                           float b) const {
  if (!keyframe(index) || std::isnan(weight)) return;
  tangentOf(angle.radians(), std::max(static_cast<double>(weight), kMinimumWeight), a, b, x, y);
}

void TparamCurve::editTangent(unsigned index, bool relative, const Tangle& angle, float weight,
                              bool inSide, float& x, float& y, float a, float b) const {
  if (index >= keyframeCount() || std::isnan(weight)) return;
  const bool hasWeight = weightGiven(weight);
  const bool hasAngle = angleGiven(angle);
  if (!hasWeight && !hasAngle) return;
  float w = weight;
  Tangle theta = angle;
  if (relative) {
    if (hasWeight) w = static_cast<float>(tangentWeight(index, inSide, a, b) + weight);
    if (hasAngle) theta = tangentAngle(index, inSide, a, b) + angle;
  }
  if (hasWeight && hasAngle) {
    setTangentWeightAndAngle(index, w, theta, inSide, x, y, a, b);
  } else if (hasWeight) {
    setTangentWeight(index, w, inSide, x, y, a, b);
  } else {
    setTangentAngle(index, theta, inSide, x, y, a, b);
  }
}

void TparamCurve::adjustForWeightLock(float a, float b, float refX, float refY, float& x,
                                      float& y) const {
  const double sa = viewScale(a), sb = viewScale(b);
  if (x < 0.0f) x = 0.0f;
  const double length = lockLength(sa, sb, x, y);
  if (length == 0.0) return;
  const double r = lockLength(sa, sb, refX, refY) / length;
  x = static_cast<float>(x * r);
  y = static_cast<float>(y * r);
}

void TparamCurve::adjustForAngleLock(float a, float b, float refX, float refY, float& x,
                                     float& y) const {
  const double sa = viewScale(a), sb = viewScale(b);
  if (x < 0.0f) x = 0.0f;
  const double length = lockLength(sa, sb, x, y);
  const double reference = lockLength(sa, sb, refX, refY);
  // No direction to take from a reference of no length.
  if (length == 0.0 || reference == 0.0) return;
  const double r = length / reference;
  x = static_cast<float>(refX * r);
  y = static_cast<float>(refY * r);
}

bool TparamCurve::preserveTangentLock(float s, float oldX, float oldY, float& x, float& y,
                                      float otherX, float otherY, float& outX, float& outY) const {
  const double scale = s == 0.0f ? 1.0 : static_cast<double>(s);
  const auto angleOf = [scale](double u, double v) {
    if (u == 0.0) return v >= 0.0 ? kPi / 2.0 : -kPi / 2.0;
    return std::atan((v / scale) / u);
  };
  const auto lengthOf = [scale](double u, double v) {
    return std::sqrt(u * u + (v / scale) * (v / scale));
  };
  const double a0 = angleOf(oldX, oldY);
  double a1 = angleOf(x, y);
  const double a2 = angleOf(otherX, otherY);
  // The other side turns by as much as the dragged one...
  const double beta = a2 + (a1 - a0);
  double ox = std::cos(beta);
  double oy = std::sin(beta) * scale;
  const bool pastVertical = std::cos(beta) < 0.0;
  // ...and grows or shrinks by as much.
  const double l1 = lengthOf(x, y);
  const double length = l1 - lengthOf(oldX, oldY) + lengthOf(otherX, otherY);
  const bool tooShort = isWeighted() && length <= kMinimumWeight;
  outX = static_cast<float>(length * ox);
  outY = static_cast<float>(length * oy);
  if (pastVertical) {
    // Pull the dragged side back so that the other stops at vertical.
    const double d = beta - (beta >= 0.0 ? kPi / 2.0 : -kPi / 2.0);
    if (std::fabs(d) > 1e-5) {
      a1 -= d;
      x = static_cast<float>(std::cos(a1) * l1);
      y = static_cast<float>(std::sin(a1) * l1 * scale);
    }
  }
  if (tooShort) {
    const double e = kMinimumWeight - length;
    if (std::fabs(e) > 1e-5) {
      x = static_cast<float>((l1 + e) * std::cos(a1));
      y = static_cast<float>((l1 + e) * std::sin(a1) * scale);
    }
  }
  return !pastVertical && !tooShort;
}

bool TparamCurve::manageTangentChangeWhenLocked(float s, unsigned index, float oldX, float oldY,
                                                bool inSide) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  const TpickKey::TpickBits otherSide = inSide ? Tkeyframe::kOutSide : Tkeyframe::kInSide;
  float savedX = 0.0f, savedY = 0.0f, otherX = 0.0f, otherY = 0.0f;
  key->getTangent(side, savedX, savedY);
  const TtangentType savedType = key->tangentType(side);
  key->getTangent(otherSide, otherX, otherY);
  float x = savedX, y = savedY, outX = 0.0f, outY = 0.0f;
  if (!preserveTangentLock(s, oldX, oldY, x, y, otherX, otherY, outX, outY)) {
    // The dragged side goes back as far as the other side can follow.
    setTangent(key, side, x, y);
    setTangentTypeHelper(index, kTangentFixed, side);
    key->getTangent(side, x, y);
    if (!preserveTangentLock(s, oldX, oldY, x, y, otherX, otherY, outX, outY)) {
      setTangent(key, side, savedX, savedY);
      setTangentTypeHelper(index, savedType, side);
      return false;
    }
  }
  setTangent(key, otherSide, outX, outY);
  setTangentTypeHelper(index, kTangentFixed, otherSide);
  return true;
}

// --- Dragging handles ----------------------------------------------------------------------

bool TparamCurve::adjustTangent(const TpickKey& pick, float dx, float dy, float inX, float inY,
                                float outX, float outY, float xScale, float yScale,
                                float valueScale, bool mirror, bool angleLock) {
  const unsigned bits = pick.flags().bits();
  const bool inPicked = (bits & TpickKey::kPickInTangent) != 0;
  const bool outPicked = (bits & TpickKey::kPickOutTangent) != 0;
  const TkeyframeHandle* handle = pick.handle();
  if ((!inPicked && !outPicked) || !handle || handle->paramCurve() != this) return false;
  Tkeyframe* key = handle->keyframe();
  const unsigned index = key ? handle->index() : kInvalidIndex;
  if (!key || keyframe(index) != key) return false;
  for (const float v : {dx, dy, inX, inY, outX, outY, xScale, yScale, valueScale}) {
    if (!std::isfinite(v)) return false;
  }
  if (angleLock && (!isWeighted() || key->weightsLocked())) return false;
  if (!beginChange()) return false;
  invalidateCache(static_cast<int>(index));
  // A drag that cannot be made puts the keys around back bit for bit and
  // records nothing: the attempt runs unrecorded, and only a drag that
  // holds is recorded, as the changes of its two sides.
  const TkeyStates untouched(*this, index, TkeyStates::kNeighbourReach);
  TkeyStatesRecorder states(*this, index, TkeyStates::kNeighbourReach);
  const bool recording = isMod();
  if (recording) fFlags &= ~kInModification;

  const float xs = isWeighted() && isAnimTime() ? 1.0f : xScale;
  const float ys = yScale == 0.0f ? 1.0f : yScale;
  const bool both = inPicked && outPicked;
  const bool inSide = inPicked && !outPicked;
  const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  const bool wasLocked = key->locked();
  // With both sides picked the in side follows through a lock for the drag.
  const bool lockForDrag = both && !key->tangentsLocked();
  if (lockForDrag) key->setLocked(true);
  if (both && mirror) dy = -dy;

  float oldX = 0.0f, oldY = 0.0f, otherX = 0.0f, otherY = 0.0f;
  const TpickKey::TpickBits otherSide = inSide ? Tkeyframe::kOutSide : Tkeyframe::kInSide;
  key->getTangent(side, oldX, oldY);
  key->getTangent(otherSide, otherX, otherY);
  const TtangentType oldType = key->tangentType(side);
  const TtangentType otherType = key->tangentType(otherSide);
  // The handle moves with the pointer from where it was when the drag
  // began; the in handle lies before the key.
  const float sign = inSide ? -1.0f : 1.0f;
  float x = (inSide ? inX : outX) + sign * 3.0f * dx;
  float y = (inSide ? inY : outY) + sign * 3.0f * dy;
  bool rejected = false;
  if (isWeighted()) {
    if (x < 0.0f) x = 0.0f;
    const double hx = static_cast<double>(x) * xs / 3.0;
    const double hy = static_cast<double>(y) * ys / 3.0;
    rejected = std::sqrt(hx * hx + hy * hy) < kMinimumWeight;
    if (!rejected && angleLock) adjustForAngleLock(xs, ys, oldX, oldY, x, y);
    if (!rejected && key->weightsLocked()) adjustForWeightLock(xs, ys, oldX, oldY, x, y);
  }
  bool held = !rejected;
  if (held) {
    setTangent(key, side, x, y);
    setTangentTypeHelper(index, kTangentFixed, side);
    if (both || key->tangentsLocked()) {
      held = manageTangentChangeWhenLocked(valueScale, index, oldX, oldY, inSide);
    }
  }
  if (recording) fFlags |= kInModification;
  if (!held) {
    untouched.restore(*this, /*after=*/false);
    endChange(false);
    return false;
  }
  if (staticCurve()) checkStaticTanCondition(index);
  if (lockForDrag) key->setLocked(wasLocked);
  if (recording) {
    float newX = 0.0f, newY = 0.0f;
    key->getTangent(side, newX, newY);
    addDelta(new TPCDdragTan(this, index, inSide, oldType, key->tangentType(side), oldX, oldY, newX,
                             newY),
             false);
    key->getTangent(otherSide, newX, newY);
    if (newX != otherX || newY != otherY || key->tangentType(otherSide) != otherType) {
      addDelta(new TPCDdragTan(this, index, !inSide, otherType, key->tangentType(otherSide), otherX,
                               otherY, newX, newY),
               false);
    }
  }
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  states.finish(index, TkeyStates::kNeighbourReach);
  endChange(true);
  return true;
}

}  // namespace lumora

// TparamCurve: reading tangents as view-space angles and weights, and dragging.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <optional>
#include <vector>

#include "lumora/base/angle.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/key_states_delta.h"
#include "lumora/notify/key_states.h"
#include "lumora/select/pick_key_dictionary.h"

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

// The weight is a float and keeps the shortest weight as a float too.
float atLeastMinimumWeight(float weight) {
  return weight < kMinimumWeight ? static_cast<float>(kMinimumWeight) : weight;
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
  if (!keyframe(index) || std::isnan(weight)) return;
  const Tangle angle = tangentAngle(index, inSide, a, b);
  tangentOf(angle.radians(), atLeastMinimumWeight(weight), a, b, x, y);
}

void TparamCurve::setTangentWeightAndAngle(unsigned index, float weight, const Tangle& angle,
                                           bool /*inSide*/, float& x, float& y, float a,
                                           float b) const {
  if (!keyframe(index) || std::isnan(weight)) return;
  tangentOf(angle.radians(), atLeastMinimumWeight(weight), a, b, x, y);
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
  // The direction is stored in the outputs first and scaled there, so it is
  // rounded to float before the length multiplies it.
  outX = static_cast<float>(std::cos(beta));
  outY = static_cast<float>(std::sin(beta) * scale);
  const bool pastVertical = std::cos(beta) < 0.0;
  // ...and grows or shrinks by as much.
  const double l1 = lengthOf(x, y);
  const double length = l1 - lengthOf(oldX, oldY) + lengthOf(otherX, otherY);
  const bool tooShort = isWeighted() && length <= kMinimumWeight;
  outX = static_cast<float>(length * outX);
  outY = static_cast<float>(length * outY);
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

// --- Drags and typed edits -----------------------------------------------------------------

namespace {

constexpr TpickKey::TpickBits kIn = Tkeyframe::kInSide;
constexpr TpickKey::TpickBits kOut = Tkeyframe::kOutSide;
constexpr unsigned kBothTangents = TpickKey::kPickInTangent | TpickKey::kPickOutTangent;

TpickKey::TpickBits sideOf(bool inSide) {
  return inSide ? kIn : kOut;
}

bool allFinite(std::initializer_list<float> values) {
  return std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); });
}

// What one side of a key holds: its vector and its type.
struct TsideState {
  float x = 0.0f;
  float y = 0.0f;
  TtangentType type = kTangentSpline;
};

TsideState sideState(const Tkeyframe& key, TpickKey::TpickBits side) {
  TsideState state;
  key.getTangent(side, state.x, state.y);
  state.type = key.tangentType(side);
  return state;
}

bool sameBits(const TsideState& a, const TsideState& b) {
  return std::bit_cast<std::uint32_t>(a.x) == std::bit_cast<std::uint32_t>(b.x) &&
         std::bit_cast<std::uint32_t>(a.y) == std::bit_cast<std::uint32_t>(b.y) && a.type == b.type;
}

// Puts `state` into `key` as it was, keeping the key's own quaternion cache
// (which belongs to the curve's cache, not to the key's state).
void putBack(Tkeyframe& key, const Tkeyframe& state) {
  float* cache = key.getQuaternionEulerCache();
  key = state;
  key.setQuaternionEulerCache(cache);
}

// The keys a tangent edit of one key may write, on this curve and on the
// rotation siblings whose types follow it: the key and its neighbours (a
// type change computes their automatic sides again), with the static flags.
class TtangentEditBackup {
 public:
  void add(TparamCurve& curve, unsigned index) {
    fStatic[fCurves] = curve.staticCurve();
    fCurve[fCurves++] = &curve;
    for (unsigned i = index == 0 ? 0 : index - 1; i <= index + 1; ++i) {
      Tkeyframe* key = curve.keyframe(i);
      if (key) fEntries[fCount++] = {key, *key};
    }
  }
  void restore() const {
    for (unsigned i = 0; i < fCount; ++i) putBack(*fEntries[i].key, fEntries[i].state);
    for (unsigned i = 0; i < fCurves; ++i) {
      if (fCurve[i]->staticCurve() != fStatic[i]) fCurve[i]->setStaticCurve(fStatic[i]);
    }
  }
  unsigned curveCount() const { return fCurves; }
  TparamCurve* curve(unsigned i) const { return fCurve[i]; }

 private:
  struct Tentry {
    Tkeyframe* key = nullptr;
    Tkeyframe state;
  };
  Tentry fEntries[9];
  unsigned fCount = 0;
  TparamCurve* fCurve[3] = {};
  bool fStatic[3] = {};
  unsigned fCurves = 0;
};

}  // namespace

unsigned TparamCurve::pickedIndex(const TpickKey& pick, unsigned hint) const {
  const TkeyframeHandle* handle = pick.handle();
  if (!handle || handle->paramCurve() != this) return kInvalidIndex;
  const Tkeyframe* key = handle->keyframe();
  if (!key) return kInvalidIndex;
  // Picks come in time order, so a key mostly lies just past the previous
  // pick's; the search is only for the gaps between picks.
  if (hint != kInvalidIndex) {
    for (unsigned i = hint; i <= hint + 2; ++i) {
      if (keyframe(i) == key) return i;
    }
  }
  unsigned index = 0;
  if (find(timeValue(key), index) && keyframe(index) == key) return index;
  return kInvalidIndex;
}

bool TparamCurve::writeTangentEdit(unsigned index, bool inSide, float x, float y, bool follow,
                                   bool temporaryLock, float s) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  const TpickKey::TpickBits side = sideOf(inSide);
  const TpickKey::TpickBits otherSide = sideOf(!inSide);
  TparamCurve* curves[3];
  rotationCurveSet(curves);
  TtangentEditBackup backup;
  for (TparamCurve* c : curves) {
    if (c) backup.add(*c, index);
  }
  // Undo gets the states of the keys around the edit; the rotation
  // siblings, whose types follow this curve's, get theirs in records of
  // their own.
  TkeyStatesRecorder states(*this, index, TkeyStates::kNeighbourReach);
  std::optional<TkeyStatesRecorder> siblingStates[3];
  bool recording[3] = {};
  for (unsigned i = 0; i < backup.curveCount(); ++i) {
    TparamCurve* c = backup.curve(i);
    if (c != this) siblingStates[i].emplace(*c, index, TkeyStates::kNeighbourReach);
    // Nothing is recorded until the edit is known to hold: a refused edit
    // leaves no record behind, and the records made afterwards describe the
    // whole edit, the other side's turn included.
    recording[i] = c->isMod();
    c->fFlags &= ~kInModification;
  }
  const auto resumeRecording = [&] {
    for (unsigned i = 0; i < backup.curveCount(); ++i) {
      if (recording[i]) backup.curve(i)->fFlags |= kInModification;
    }
  };

  const TsideState oldSide = sideState(*key, side);
  const TsideState oldOther = sideState(*key, otherSide);
  if (temporaryLock) key->setLocked(true);
  setTangent(key, side, x, y);
  setTangentTypeHelper(index, kTangentFixed, side);
  if (follow && !manageTangentChangeWhenLocked(s, index, oldSide.x, oldSide.y, inSide)) {
    backup.restore();
    for (unsigned i = 0; i < backup.curveCount(); ++i) backup.curve(i)->invalidateCache(-1);
    notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
    resumeRecording();
    return false;
  }
  if (temporaryLock) key->setLocked(false);
  if (staticCurve()) checkStaticTanCondition(index);
  invalidateCache(static_cast<int>(index));
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  resumeRecording();

  if (isMod()) {
    const TsideState newSide = sideState(*key, side);
    const TsideState newOther = sideState(*key, otherSide);
    addDelta(new TPCDdragTan(this, index, inSide, oldSide.type, newSide.type, oldSide.x, oldSide.y,
                             newSide.x, newSide.y),
             false);
    if (!sameBits(oldOther, newOther)) {
      addDelta(new TPCDdragTan(this, index, !inSide, oldOther.type, newOther.type, oldOther.x,
                               oldOther.y, newOther.x, newOther.y),
               false);
    }
  }
  for (unsigned i = 0; i < backup.curveCount(); ++i) {
    TparamCurve* c = backup.curve(i);
    if (c == this || !c->isMod()) continue;
    c->addDelta(new internal::TkeyStatesDelta(c), false);
    siblingStates[i]->finish(index, TkeyStates::kNeighbourReach);
  }
  states.finish(index, TkeyStates::kNeighbourReach);
  return true;
}

bool TparamCurve::adjustPickedTangent(unsigned bits, unsigned index, float dragX, float dragY,
                                      float xScale, float yScale, float valueScale,
                                      bool angleLock) {
  Tkeyframe* key = keyframe(index);
  if (!key || (bits & kBothTangents) == 0) return false;
  if (!allFinite({dragX, dragY, xScale, yScale, valueScale})) return false;
  if (angleLock && (!isWeighted() || key->weightsLocked())) return false;
  if (!beginChange()) return false;
  invalidateCache(static_cast<int>(index));

  // A weighted tick curve measures handles in whole seconds whatever the view.
  const float xs = (isWeighted() && isAnimTime()) || xScale == 0.0f ? 1.0f : xScale;
  const float ys = yScale == 0.0f ? 1.0f : yScale;
  const bool both = (bits & kBothTangents) == kBothTangents;
  const bool inSide = !both && (bits & TpickKey::kPickInTangent) != 0;
  // Both sides picked: the out side is dragged and the in side follows
  // through the lock, which the key holds for the moment if it has none.
  const bool temporaryLock = both && !key->tangentsLocked() && !key->locked();

  float oldX = 0.0f, oldY = 0.0f;
  key->getTangent(sideOf(inSide), oldX, oldY);
  float x = dragX, y = dragY;
  if (isWeighted()) {
    // The control point, a third of the tangent, moves by the drag.
    x = oldX + 3.0f * dragX;
    y = oldY + 3.0f * dragY;
    if (x < 0.0f) x = 0.0f;
    const double hx = static_cast<double>(x) * xs / 3.0;
    const double hy = static_cast<double>(y) * ys / 3.0;
    if (!(std::sqrt(hx * hx + hy * hy) >= kMinimumWeight)) {
      endChange(false);
      return false;
    }
    if (angleLock) {
      adjustForAngleLock(xs, ys, oldX, oldY, x, y);
    } else if (key->weightsLocked()) {
      adjustForWeightLock(xs, ys, oldX, oldY, x, y);
    }
  }
  // On a non-weighted curve the drag is the direction; the segment evaluator
  // normalises it as it stores it.
  const bool follow = both || key->tangentsLocked();
  const bool done = writeTangentEdit(index, inSide, x, y, follow, temporaryLock, valueScale);
  endChange(done);
  return done;
}

bool TparamCurve::adjustTangent(const TpickKey& pick, float dragX, float dragY, float inRefX,
                                float inRefY, float outRefX, float outRefY, float xScale,
                                float yScale, float valueScale, bool negateVertical,
                                bool angleLock) {
  const unsigned bits = pick.flags().bits() & kBothTangents;
  const unsigned index = pickedIndex(pick, kInvalidIndex);
  if (bits == 0 || index == kInvalidIndex) return false;
  if (!allFinite({dragX, dragY, inRefX, inRefY, outRefX, outRefY})) return false;
  const bool inSide = bits == TpickKey::kPickInTangent;
  const float dx = dragX - (inSide ? inRefX : outRefX);
  float dy = dragY - (inSide ? inRefY : outRefY);
  if (bits == kBothTangents && negateVertical) dy = -dy;
  return adjustPickedTangent(bits, index, dx, dy, xScale, yScale, valueScale, angleLock);
}

bool TparamCurve::adjustTangents(const TpickKeyDictionary& picks, float dragX, float dragY,
                                 float xScale, float yScale, float valueScale, bool negateVertical,
                                 bool angleLock) {
  if (!allFinite({dragX, dragY, xScale, yScale, valueScale})) return false;
  if (!beginChange()) return false;
  bool all = true;
  unsigned hint = kInvalidIndex;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const unsigned index = pickedIndex(pick, hint);
    if (index == kInvalidIndex) continue;
    hint = index;
    unsigned bits = pick.flags().bits();
    // A picked key drags as its two tangents do.
    bits = (bits & TpickKey::kPickKey) != 0 ? kBothTangents : bits & kBothTangents;
    if (bits == 0) continue;
    const bool inSide = bits == TpickKey::kPickInTangent;
    float dx = dragX;
    float dy = bits == kBothTangents && negateVertical ? -dragY : dragY;
    if (!isWeighted()) {
      // The pointer stands off the handle by the drag; the handle sits at a
      // third of the stored direction.
      float hx = 0.0f, hy = 0.0f;
      keyframe(index)->getTangent(sideOf(inSide), hx, hy);
      dx += hx / 3.0f;
      dy += hy / 3.0f;
    }
    if (!adjustPickedTangent(bits, index, dx, dy, xScale, yScale, valueScale, angleLock)) {
      all = false;
    }
  }
  endChange(true);
  return all;
}

bool TparamCurve::typeTangent(unsigned index, bool inSide, bool relative, const Tangle& angle,
                              float weight, float xScale, float yScale) {
  Tkeyframe* key = keyframe(index);
  if (!key || !allFinite({weight, xScale, yScale})) return false;
  if (!weightGiven(weight) && !angleGiven(angle)) return true;
  const float a = xScale == 0.0f ? 1.0f : xScale;
  const float b = yScale == 0.0f ? 1.0f : yScale;
  float x = std::numeric_limits<float>::quiet_NaN();
  float y = x;
  editTangent(index, relative, angle, weight, inSide, x, y, a, b);
  if (!std::isfinite(x) || !std::isfinite(y)) return false;
  if (!beginChange()) return false;
  if (isWeighted() && key->weightsLocked()) {
    float oldX = 0.0f, oldY = 0.0f;
    key->getTangent(sideOf(inSide), oldX, oldY);
    adjustForWeightLock(a, b, oldX, oldY, x, y);
  }
  // The other side turns in the view's proportions.
  const auto s = static_cast<float>(static_cast<double>(a) / b);
  const bool done = writeTangentEdit(index, inSide, x, y, key->tangentsLocked(), false, s);
  endChange(done);
  return done;
}

bool TparamCurve::adjustTangent(const TkeyframeHandle& handle, bool inSide, bool relative,
                                const Tangle& angle, float weight, float xScale, float yScale) {
  if (handle.paramCurve() != this || !handle.keyframe()) return false;
  unsigned index = 0;
  const Tkeyframe* key = handle.keyframe();
  if (!find(timeValue(key), index) || keyframe(index) != key) return false;
  return typeTangent(index, inSide, relative, angle, weight, xScale, yScale);
}

bool TparamCurve::adjustTangents(const TpickKeyDictionary& picks, bool relative,
                                 const Tangle& inAngle, float inWeight, const Tangle& outAngle,
                                 float outWeight, float xScale, float yScale) {
  if (!beginChange()) return false;
  bool all = true;
  unsigned hint = kInvalidIndex;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const unsigned index = pickedIndex(pick, hint);
    if (index == kInvalidIndex) continue;
    hint = index;
    const unsigned bits = pick.flags().bits();
    const bool key = (bits & TpickKey::kPickKey) != 0;
    if ((key || (bits & TpickKey::kPickInTangent) != 0) &&
        !typeTangent(index, true, relative, inAngle, inWeight, xScale, yScale)) {
      all = false;
    }
    if ((key || (bits & TpickKey::kPickOutTangent) != 0) &&
        !typeTangent(index, false, relative, outAngle, outWeight, xScale, yScale)) {
      all = false;
    }
  }
  endChange(true);
  return all;
}

bool TparamCurve::adjustTangents(const TpickKeyDictionary& picks, bool relative,
                                 const Tangle& angle, float weight, float xScale, float yScale) {
  return adjustTangents(picks, relative, angle, weight, angle, weight, xScale, yScale);
}

void TparamCurve::getTangentsForDeltas(const TpickKeyDictionary& picks, TfloatArray& tangents,
                                       Tint16Array& types) const {
  tangents.changeLogicalSizeTo(0);
  types.changeLogicalSizeTo(0);
  unsigned hint = kInvalidIndex;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const unsigned index = pickedIndex(n->data(), hint);
    TsideState in, out;
    in.type = out.type = TtangentType{};
    if (index != kInvalidIndex) {
      hint = index;
      in = sideState(*keyframe(index), kIn);
      out = sideState(*keyframe(index), kOut);
    }
    for (const float v : {in.x, in.y, out.x, out.y}) tangents.addLast(v);
    types.addLast(static_cast<std::int16_t>(in.type));
    types.addLast(static_cast<std::int16_t>(out.type));
  }
}

void TparamCurve::generateDeltasForTangents(const TpickKeyDictionary& picks,
                                            const TfloatArray& tangents, const Tint16Array& types) {
  if (!isMod()) return;
  unsigned count = 0;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) ++count;
  if (tangents.count() / 4 < count || types.count() / 2 < count) return;
  if (!beginChange()) return;
  struct Tpending {
    unsigned index;
    TsideState was[2];
    TsideState now[2];
    Tkeyframe keyAfter;
    Tkeyframe previousAfter;
  };
  std::vector<Tpending> pending;
  unsigned hint = kInvalidIndex;
  unsigned at = 0;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n), ++at) {
    const unsigned index = pickedIndex(n->data(), hint);
    if (index == kInvalidIndex) continue;
    hint = index;
    Tpending p{index, {}, {}, *keyframe(index), index > 0 ? *keyframe(index - 1) : Tkeyframe()};
    bool usable = true;
    for (unsigned side = 0; side < 2; ++side) {
      p.was[side].x = tangents[4 * at + 2 * side];
      p.was[side].y = tangents[4 * at + 2 * side + 1];
      const int type = types[2 * at + side];
      usable = usable && std::isfinite(p.was[side].x) && std::isfinite(p.was[side].y) &&
               type >= 1 && type <= 10;
      p.was[side].type = static_cast<TtangentType>(type);
      p.now[side] = sideState(p.keyAfter, side == 0 ? kIn : kOut);
    }
    if (usable && (!sameBits(p.was[0], p.now[0]) || !sameBits(p.was[1], p.now[1]))) {
      pending.push_back(p);
    }
  }
  // Every key takes its recorded sides back for a moment, with the span
  // interpolation its types give (which reaches the previous key), so that
  // each record takes the states from before of its key and its neighbours;
  // then the keys are made as they are now again, one record at a time.
  for (const Tpending& p : pending) {
    Tkeyframe* key = keyframe(p.index);
    for (unsigned side = 0; side < 2; ++side) {
      key->setTangent(side == 0 ? kIn : kOut, p.was[side].x, p.was[side].y);
      key->setTangentType(side == 0 ? kIn : kOut, p.was[side].type);
    }
  }
  for (const Tpending& p : pending) setSpanInterpMethod(p.index);
  for (const Tpending& p : pending) {
    TkeyStatesRecorder states(*this, p.index, TkeyStates::kNeighbourReach);
    putBack(*keyframe(p.index), p.keyAfter);
    if (p.index > 0) putBack(*keyframe(p.index - 1), p.previousAfter);
    for (unsigned side = 0; side < 2; ++side) {
      if (sameBits(p.was[side], p.now[side])) continue;
      addDelta(new TPCDdragTan(this, p.index, side == 0, p.was[side].type, p.now[side].type,
                               p.was[side].x, p.was[side].y, p.now[side].x, p.now[side].y),
               false);
    }
    states.finish(p.index, TkeyStates::kNeighbourReach);
  }
  endChange(false);
}

bool TparamCurve::switchInOutTangents(const TpickKeyDictionary& picks) {
  if (!beginChange()) return false;
  unsigned hint = kInvalidIndex;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const unsigned index = pickedIndex(pick, hint);
    if (index == kInvalidIndex || (pick.flags().bits() & TpickKey::kPickMask) == 0) continue;
    hint = index;
    Tkeyframe* key = keyframe(index);
    const TsideState in = sideState(*key, kIn);
    const TsideState out = sideState(*key, kOut);
    TkeyStatesRecorder states(*this, index, TkeyStates::kNeighbourReach);
    // Written as stored: each vector is already in the form its side holds.
    key->setTangent(kIn, out.x, out.y).setTangentType(kIn, out.type);
    key->setTangent(kOut, in.x, in.y).setTangentType(kOut, in.type);
    setSpanInterpMethod(index);
    modifyTangents(index);
    if (staticCurve()) checkStaticTanCondition(index);
    invalidateCache(static_cast<int>(index));
    notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
    if (isMod()) {
      const TsideState newIn = sideState(*key, kIn);
      const TsideState newOut = sideState(*key, kOut);
      addDelta(
          new TPCDdragTan(this, index, true, in.type, newIn.type, in.x, in.y, newIn.x, newIn.y),
          false);
      addDelta(new TPCDdragTan(this, index, false, out.type, newOut.type, out.x, out.y, newOut.x,
                               newOut.y),
               false);
    }
    states.finish(index, TkeyStates::kNeighbourReach);
  }
  endChange(true);
  return true;
}

}  // namespace lumora

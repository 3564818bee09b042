#include "lumora/curve/segment_evaluator.h"

#include <cmath>
#include <initializer_list>

#include "lumora/base/time_value.h"

namespace lumora {

namespace {

// Keys closer in value than this (or exactly this far apart) count as level
// for the clamped rules.
constexpr double kClampThreshold = 0.05;

constexpr double kSlowSlope = 0.5772;
constexpr double kFastSlope = 1.732;

// Shared by slow and fast, which differ only in their slope.
struct TfixedSlopeResult {
  double inX, inY, outX, outY;
};

TfixedSlopeResult fixedSlope(bool hasPrev, bool hasNext, double dtIn, double dvIn, double dtOut,
                             double dvOut, double slope) {
  const double inLength2 = hasPrev ? dvIn * dvIn + dtIn * dtIn : 0.0;
  const double outLength2 = hasNext ? dvOut * dvOut + dtOut * dtOut : 0.0;
  if (hasPrev && hasNext && !(inLength2 == 0.0 && outLength2 == 0.0)) {
    return {dtIn, slope * dtIn, dtOut, slope * dtOut};
  }
  // One neighbour (or two that coincide with the key): both sides share the
  // last vector computed.
  if (hasNext) return {dtOut, slope * dtOut, dtOut, slope * dtOut};
  if (hasPrev) return {dtIn, slope * dtIn, dtIn, slope * dtIn};
  return {0.0, 0.0, 0.0, 0.0};
}

}  // namespace

double verticalSlope() {
  static const double slope = std::tan(1.5707961522619713);
  return slope;
}

double machineEpsilon() {
  static const double epsilon = [] {
    double e = 1.0;
    double half = 0.5;
    while (1.0 + half > 1.0) {
      e = half;
      half *= 0.5;
    }
    // The loop ends at the first half that no longer changes 1.0; e is twice
    // that value.
    return e;
  }();
  return epsilon;
}

TsegmentEvaluator::TsegmentEvaluator(bool isFloat) {
  fFlags.setBit(kFloatTimeBit, isFloat);
}

TsegmentEvaluator::~TsegmentEvaluator() = default;

double TsegmentEvaluator::keySeconds(const Tkeyframe& key) const {
  if (isFloat()) return static_cast<double>(key.timeAsFloat());
  return static_cast<double>(key.timeAsTicks()) * static_cast<double>(TanimTime::kSecondsPerTick);
}

TsegmentEvaluator::Tspans TsegmentEvaluator::spans(const Tkeyframe* prev, const Tkeyframe& key,
                                                   const Tkeyframe* next) const {
  const auto seconds = [this](const Tkeyframe& k) {
    return static_cast<double>(static_cast<float>(keySeconds(k)));
  };
  Tspans s;
  const double tk = seconds(key);
  const double vk = key.value();
  if (prev != nullptr) {
    s.hasPrev = true;
    s.dtIn = tk - seconds(*prev);
    s.dvIn = vk - prev->value();
  }
  if (next != nullptr) {
    s.hasNext = true;
    s.dtOut = seconds(*next) - tk;
    s.dvOut = next->value() - vk;
  }
  if (prev != nullptr && next != nullptr) {
    s.dtChord = seconds(*next) - seconds(*prev);
    s.dvChord = next->value() - prev->value();
  }
  return s;
}

void TsegmentEvaluator::writeRuleResult(Tkeyframe* key, TtangentType type, double inX, double inY,
                                        double outX, double outY) {
  if (key->tanInType() == type) {
    setTanIn(key, static_cast<float>(inX), static_cast<float>(inY));
  }
  if (key->tanOutType() == type) {
    setTanOut(key, static_cast<float>(outX), static_cast<float>(outY));
  }
}

void TsegmentEvaluator::segmentValueBounds(double y0, double y1, double y2, double y3,
                                           double& minValue, double& maxValue) const {
  for (const double y : {y0, y1, y2, y3}) {
    if (y < minValue) minValue = y;
    if (y > maxValue) maxValue = y;
  }
}

// --- Shared tangent rules -------------------------------------------------------

void TsegmentEvaluator::tangentFixed(Tkeyframe*, Tkeyframe*, Tkeyframe*) {}

void TsegmentEvaluator::tangentLinear(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  const double inX = s.hasPrev ? s.dtIn : 1.0;
  const double inY = s.hasPrev ? s.dvIn : 0.0;
  const double outX = s.hasNext ? s.dtOut : 1.0;
  const double outY = s.hasNext ? s.dvOut : 0.0;
  writeRuleResult(key, kTangentLinear, inX, inY, outX, outY);
}

void TsegmentEvaluator::tangentFlat(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  double a = s.dtIn;
  double b = s.dtOut;
  if (!s.hasPrev) a = b;
  if (!s.hasNext) b = a;
  writeRuleResult(key, kTangentFlat, a, 0.0, b, 0.0);
}

void TsegmentEvaluator::tangentStep(Tkeyframe*, Tkeyframe* key, Tkeyframe*) {
  if (key == nullptr) return;
  writeRuleResult(key, kTangentStep, 0.0, 0.0, 0.0, 0.0);
}

void TsegmentEvaluator::tangentSlow(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  const TfixedSlopeResult r =
      fixedSlope(s.hasPrev, s.hasNext, s.dtIn, s.dvIn, s.dtOut, s.dvOut, kSlowSlope);
  writeRuleResult(key, kTangentSlow, r.inX, r.inY, r.outX, r.outY);
}

void TsegmentEvaluator::tangentFast(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  const TfixedSlopeResult r =
      fixedSlope(s.hasPrev, s.hasNext, s.dtIn, s.dvIn, s.dtOut, s.dvOut, kFastSlope);
  writeRuleResult(key, kTangentFast, r.inX, r.inY, r.outX, r.outY);
}

void TsegmentEvaluator::tangentClamped(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const double vk = key->value();
  const auto far = [vk](double v) { return std::fabs(v - vk) > kClampThreshold; };

  if (prev != nullptr && key->tanInType() == kTangentClamped) {
    const double vp = prev->value();
    const double vn = next != nullptr ? next->value() : vp;
    if (far(vp) && far(vn)) {
      key->setTanInType(kTangentSpline);
      tangentSpline(prev, key, next);
      key->setTanInType(kTangentClamped);
    } else {
      const bool outClamped = key->tanOutType() == kTangentClamped;
      key->setTanInType(kTangentFlat);
      if (outClamped) key->setTanOutType(kTangentFlat);
      tangentFlat(prev, key, next);
      key->setTanInType(kTangentClamped);
      if (outClamped) key->setTanOutType(kTangentClamped);
    }
  }

  if (next != nullptr && key->tanOutType() == kTangentClamped) {
    const double vn = next->value();
    const double vp = prev != nullptr ? prev->value() : vn;
    if (far(vp) && far(vn)) {
      key->setTanOutType(kTangentSpline);
      tangentSpline(prev, key, next);
      key->setTanOutType(kTangentClamped);
    } else {
      const bool inClamped = key->tanInType() == kTangentClamped;
      key->setTanOutType(kTangentFlat);
      if (inClamped) key->setTanInType(kTangentFlat);
      tangentFlat(prev, key, next);
      key->setTanOutType(kTangentClamped);
      if (inClamped) key->setTanInType(kTangentClamped);
    }
  }

  float x = 0.0f;
  float y = 0.0f;
  if (prev == nullptr && key->tanInType() == kTangentClamped) {
    key->getTanOut(x, y);
    setTanIn(key, x, y);
  }
  if (next == nullptr && key->tanOutType() == kTangentClamped) {
    key->getTanIn(x, y);
    setTanOut(key, x, y);
  }
}

void TsegmentEvaluator::tangentClampedSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const double vk = key->value();
  const auto near = [vk](double v) { return std::fabs(v - vk) <= kClampThreshold; };

  if (prev != nullptr && key->tanInType() == kTangentClampedSmooth) {
    if (near(prev->value())) {
      key->setTanInType(kTangentFlat);
      tangentFlat(prev, key, next);
    } else {
      key->setTanInType(kTangentSmooth);
      tangentSmooth(prev, key, next);
    }
    key->setTanInType(kTangentClampedSmooth);
  }

  if (next != nullptr && key->tanOutType() == kTangentClampedSmooth) {
    if (near(next->value())) {
      key->setTanOutType(kTangentFlat);
      tangentFlat(prev, key, next);
    } else {
      key->setTanOutType(kTangentSmooth);
      tangentSmooth(prev, key, next);
    }
    key->setTanOutType(kTangentClampedSmooth);
  }

  float x = 0.0f;
  float y = 0.0f;
  if (prev == nullptr && key->tanInType() == kTangentClampedSmooth) {
    key->getTanOut(x, y);
    setTanIn(key, x, y);
  }
  if (next == nullptr && key->tanOutType() == kTangentClampedSmooth) {
    key->getTanIn(x, y);
    setTanOut(key, x, y);
  }
}

// --- Dispatch -----------------------------------------------------------------------

void TsegmentEvaluator::runRule(TtangentType type, Tkeyframe* prev, Tkeyframe* key,
                                Tkeyframe* next) {
  switch (type) {
    case kTangentFixed:
      tangentFixed(prev, key, next);
      return;
    case kTangentLinear:
      tangentLinear(prev, key, next);
      return;
    case kTangentFlat:
      tangentFlat(prev, key, next);
      return;
    case kTangentSmooth:
      tangentSmooth(prev, key, next);
      return;
    case kTangentStep:
      tangentStep(prev, key, next);
      return;
    case kTangentSlow:
      tangentSlow(prev, key, next);
      return;
    case kTangentFast:
      tangentFast(prev, key, next);
      return;
    case kTangentClampedSmooth:
      tangentClampedSmooth(prev, key, next);
      return;
    case kTangentSpline:
      tangentSpline(prev, key, next);
      return;
    case kTangentClamped:
      tangentClamped(prev, key, next);
      return;
    default:
      return;  // not a rule: nothing is recomputed
  }
}

void TsegmentEvaluator::computeTangents(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const TtangentType inType = key->tanInType();
  runRule(inType, prev, key, next);
  const TtangentType outType = key->tanOutType();
  if (outType != inType) runRule(outType, prev, key, next);
}

}  // namespace lumora

// TparamCurve: automatic tangents and their scheduling.
//
// The rules themselves live in the segment evaluator (they differ between
// weighted and non-weighted curves); this file decides which keys to run them
// on after an edit, sets tangent types and scales fixed tangents.
#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/key_states.h"

namespace lumora {

namespace {

bool isClampedKind(TtangentType t) {
  return t == kTangentClamped || t == kTangentClampedSmooth;
}

// How many times the rules of `key` run for one of its sides: the decision of
// tangentMethodIdentifier. Both types are read before any run.
int ruleRuns(const Tkeyframe& key, bool inSide, bool otherSideDone) {
  const TtangentType type = inSide ? key.tanInType() : key.tanOutType();
  const TtangentType other = inSide ? key.tanOutType() : key.tanInType();
  if (type < kTangentFixed || type > kTangentClamped) return 0;
  // Fixed still runs the rules so that a differing other side is computed.
  if (type != kTangentSmooth && type != kTangentSpline) return 1;
  int runs = 0;
  if (!otherSideDone || (other != kTangentSpline && other != kTangentSmooth)) ++runs;
  // A spline side next to a clamped side is computed again with the first
  // result in place, because the clamped rule reads the current tangents.
  if (!otherSideDone && isClampedKind(other)) ++runs;
  return runs;
}

}  // namespace

bool TparamCurve::modifyTangents(unsigned index) {
  const unsigned n = keyframeCount();
  if (index >= n) return false;
  // Every key added one by one comes here. The keys are read straight from
  // the array and the rules run in place: the same runs, in the same order,
  // as tangentMethodIdentifier would make, without a lookup per question.
  const TkeyArray& array = *keyArray();
  const auto side = [&](unsigned i, bool inSide, bool otherSideDone) {
    Tkeyframe* key = array.at(i);
    if (!key) return;
    for (int runs = ruleRuns(*key, inSide, otherSideDone); runs > 0; --runs) {
      if (!fSegmentEvaluator) continue;
      fSegmentEvaluator->computeTangents(i > 0 ? array.at(i - 1) : nullptr, key, array.at(i + 1));
      invalidateCache(static_cast<int>(i));
    }
  };
  side(index, /*inSide=*/true, /*otherSideDone=*/false);
  side(index, /*inSide=*/false, /*otherSideDone=*/true);
  if (index < n - 1) side(index + 1, /*inSide=*/true, false);
  if (index > 0) side(index - 1, /*inSide=*/false, false);
  return true;
}

bool TparamCurve::tangentMethodIdentifier(unsigned index, bool inSide, bool otherSideDone) {
  const Tkeyframe* key = keyframe(index);
  if (!key) return false;
  for (int runs = ruleRuns(*key, inSide, otherSideDone); runs > 0; --runs) {
    modifyTangentHelper(index);
  }
  return true;
}

void TparamCurve::modifyTangentHelper(unsigned index) {
  if (!fSegmentEvaluator) return;
  Tkeyframe* key = keyframe(index);
  if (!key) return;
  Tkeyframe* prev = index > 0 ? keyframe(index - 1) : nullptr;
  fSegmentEvaluator->computeTangents(prev, key, keyframe(index + 1));
  invalidateCache(static_cast<int>(index));
}

bool TparamCurve::modifySmoothTangents(unsigned first, unsigned last) {
  if (!fSegmentEvaluator) return false;
  const unsigned n = keyframeCount();
  for (unsigned i = first; i <= last && i < n; ++i) {
    Tkeyframe* prev = i > 0 ? keyframe(i - 1) : nullptr;
    Tkeyframe* next = i + 1 < n ? keyframe(i + 1) : nullptr;
    fSegmentEvaluator->computeTangents(prev, keyframe(i), next);
  }
  invalidateCache(-1);
  return true;
}

bool TparamCurve::modifyLinearTangents(unsigned first, unsigned last) {
  if (!fSegmentEvaluator) return false;
  const unsigned n = keyframeCount();
  for (unsigned i = first; i <= last && i < n; ++i) {
    Tkeyframe* key = keyframe(i);
    const Tkeyframe* prev = i > 0 ? keyframe(i - 1) : nullptr;
    const Tkeyframe* next = i + 1 < n ? keyframe(i + 1) : nullptr;
    const float t = seconds(key);
    float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
    if (prev) {
      inX = t - seconds(prev);
      inY = static_cast<float>(key->value() - prev->value());
    }
    if (next) {
      outX = seconds(next) - t;
      outY = static_cast<float>(next->value() - key->value());
    }
    fSegmentEvaluator->setTanIn(key, inX, inY);
    fSegmentEvaluator->setTanOut(key, outX, outY);
    key->setInterpMethod(Tkeyframe::kSpanLinear);
  }
  invalidateCache(-1);
  return true;
}

void TparamCurve::recomputeTangents(TkeyframeHandlePtrArray& keys) {
  if (keys.count() == 0 || keyframeCount() == 0) return;
  if (!beginChange()) return;
  unsigned hint = kInvalidIndex;
  unsigned previous = kInvalidIndex;
  for (unsigned h = 0; h < keys.count(); ++h) {
    const TkeyframeHandle* handle = keys[h];
    if (!handle || !handle->keyframe()) continue;
    unsigned index = hint;
    if (!incrementalFind(timeValue(handle->keyframe()), index, /*forward=*/true)) continue;
    hint = index;
    if (previous == kInvalidIndex || index != previous + 1) {
      modifyTangents(index);
    } else {
      const Tkeyframe* key = keyframe(index);
      if (!key || key->tanInType() != key->tanOutType()) {
        tangentMethodIdentifier(index, /*inSide=*/false, false);
      }
      if (index < keyframeCount() - 1) tangentMethodIdentifier(index + 1, /*inSide=*/true, false);
    }
    previous = index;
  }
  endChange(true);
}

void TparamCurve::setTanIn(Tkeyframe* key, float x, float y) {
  if (!fSegmentEvaluator || !key || !beginChange()) return;
  const bool changed = fSegmentEvaluator->setTanIn(key, x, y);
  if (changed) {
    unsigned index = 0;
    if (find(timeValue(key), index)) invalidateCache(static_cast<int>(index));
    notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  }
  endChange(changed);
}

void TparamCurve::setTanOut(Tkeyframe* key, float x, float y) {
  if (!fSegmentEvaluator || !key || !beginChange()) return;
  const bool changed = fSegmentEvaluator->setTanOut(key, x, y);
  if (changed) {
    unsigned index = 0;
    if (find(timeValue(key), index)) invalidateCache(static_cast<int>(index));
    notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  }
  endChange(changed);
}

void TparamCurve::setTangent(Tkeyframe* key, TpickKey::TpickBits side, float x, float y) {
  if (side == Tkeyframe::kInSide) {
    setTanIn(key, x, y);
    return;
  }
  setTanOut(key, x, y);
}

void TparamCurve::scaleTangentX(Tkeyframe* key, float factor) {
  if (!fSegmentEvaluator || !key || factor == 1.0f) return;
  TtangentType in = key->tanInType();
  TtangentType out = key->tanOutType();
  if (factor < 0.0f && !(in != kTangentFixed && in == out)) {
    // Mirrored time: each fixed side moves to the other side, y flipped.
    float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
    key->getTanIn(inX, inY);
    key->getTanOut(outX, outY);
    if (out == kTangentFixed) fSegmentEvaluator->setTanIn(key, outX, -outY);
    if (in == kTangentFixed) fSegmentEvaluator->setTanOut(key, inX, -inY);
    key->setTanInType(out);
    key->setTanOutType(in);
    std::swap(in, out);
    factor = -factor;
  }
  float x = 0.0f, y = 0.0f;
  if (in == kTangentFixed) {
    key->getTanIn(x, y);
    fSegmentEvaluator->setTanIn(key, x * factor, y);
  }
  if (out == kTangentFixed) {
    key->getTanOut(x, y);
    fSegmentEvaluator->setTanOut(key, x * factor, y);
  }
}

void TparamCurve::scaleTangentY(Tkeyframe* key, float factor) {
  if (!fSegmentEvaluator || !key || factor == 1.0f) return;
  float x = 0.0f, y = 0.0f;
  if (key->tanInType() == kTangentFixed) {
    key->getTanIn(x, y);
    fSegmentEvaluator->setTanIn(key, x, y * factor);
  }
  if (key->tanOutType() == kTangentFixed) {
    key->getTanOut(x, y);
    fSegmentEvaluator->setTanOut(key, x, y * factor);
  }
}

void TparamCurve::checkStaticValueCondition(unsigned index) {
  const Tkeyframe* key = keyframe(index);
  if (!key) return;
  if (index > 0) {
    const Tkeyframe* prev = keyframe(index - 1);
    if (prev && prev->value() != key->value()) setStaticCurve(false);
  }
  // During file input later keys are not loaded yet, so only look back.
  if (inFileIO() || !staticCurve() || index + 1 >= keyframeCount()) return;
  const Tkeyframe* next = keyframe(index + 1);
  if (next && next->value() != key->value()) setStaticCurve(false);
}

void TparamCurve::checkStaticTanCondition(unsigned index) {
  Tkeyframe* key = keyframe(index);
  if (!key) return;
  float x = 0.0f, inY = 0.0f, outY = 0.0f;
  key->getTanIn(x, inY);
  key->getTanOut(x, outY);
  // The y components are compared with the key's value itself; hosts rely on
  // this exact test to decide when a curve stops being static.
  if (inY != key->value() || outY != key->value()) {
    setStaticCurve(false);
    notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  }
}

void TparamCurve::setTangentTypeHelper(unsigned index, TtangentType type,
                                       TpickKey::TpickBits side) {
  const bool inSide = side == Tkeyframe::kInSide;
  TparamCurve* curves[3];
  rotationCurveSet(curves);
  for (TparamCurve* c : curves) {
    if (!c) continue;
    Tkeyframe* key = c->keyframe(index);
    if (!key) continue;
    const TtangentType old = key->tangentType(side);
    if (old == type) continue;
    if (!c->beginChange()) continue;
    TkeyStatesRecorder states(*c, index, TkeyStates::kNeighbourReach);
    float x = 0.0f, y = 0.0f;
    key->getTangent(side, x, y);
    key->setTangentType(side, type);
    c->setSpanInterpMethod(index);
    c->invalidateCache(static_cast<int>(index));
    if (c->isMod()) {
      const TtangentType now = key->tangentType(side);
      c->addDelta(new TPCDdragTan(c, index, inSide, old, now, x, y, x, y), false);
    }
    c->modifyTangents(index);
    c->notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
    states.finish(index, TkeyStates::kNeighbourReach);
    c->endChange(true);
  }
}

}  // namespace lumora

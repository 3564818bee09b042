// TparamCurve: adding, inserting and removing keys.
//
// Every operation here keeps the key array strictly ordered by time, re-derives
// the span interpolation method and the automatic tangents of the keys it
// touches, records an undo delta while the curve is in modification and tells
// the curve's clients about each key it changes. The bulk loaders (blockAdd)
// are the exception to part of that: they record nothing and compute tangents
// once for the whole curve, because they load curves of millions of keys.
//
// Operations with an allSiblings argument work on the three sibling rotation
// curves (x, y, z) when the host's provider names all three; otherwise on
// this curve alone. A sibling that lacks a key at the edited time gets one
// that lies on its own curve, so the three stay keyed at the same times.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/notify/key_deltas.h"
#include "lumora/notify/key_states.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

namespace {

using Tmsg = TparamCurveModifiedMsg;

// The keys an edit of one key may change, in both directions.
constexpr unsigned kReach = TkeyStates::kNeighbourReach;

// The curves one operation works on: this curve, or the three siblings.
struct TcurveSet {
  TparamCurve* curves[3] = {nullptr, nullptr, nullptr};
  unsigned count = 0;

  TparamCurve* const* begin() const { return curves; }
  TparamCurve* const* end() const { return curves + count; }
};

TcurveSet chooseCurves(TparamCurve& self, bool allSiblings, bool create) {
  TcurveSet set;
  set.curves[0] = &self;
  set.count = 1;
  if (!allSiblings) return set;
  TparamCurve* x = nullptr;
  TparamCurve* y = nullptr;
  TparamCurve* z = nullptr;
  if (!self.getSiblingRotationCurves(&x, &y, &z, create) || !x || !y || !z) return set;
  set.curves[0] = x;
  set.curves[1] = y;
  set.curves[2] = z;
  set.count = 3;
  return set;
}

// `t` expressed in the kind of time that `curve` stores; the "neither" time
// for a curve without storage, a time that is neither, and seconds that are
// not finite (which would otherwise clamp to some tick).
TtimeValue inKindOf(const TparamCurve& curve, const TtimeValue& t) {
  if (t.isNeither() || (t.isFloat() && !std::isfinite(t.asFloat()))) return {};
  if (curve.isAnimTime()) return t.isAnimTime() ? t : TtimeValue(t.asAnimTime());
  if (curve.isFloat()) return t.isFloat() ? t : TtimeValue(t.inSeconds());
  return {};
}

// A time a key may be placed at: of some kind, and finite when it is seconds.
bool isUsableTime(const TtimeValue& t) {
  if (t.isNeither()) return false;
  return !t.isFloat() || std::isfinite(t.asFloat());
}

// A key the curve may take: finite time (float curves), value and tangents.
bool isUsableKey(const TparamCurve& curve, const Tkeyframe& key) {
  if (curve.isFloat() && !std::isfinite(key.timeAsFloat())) return false;
  float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
  key.getTanIn(inX, inY);
  key.getTanOut(outX, outY);
  return std::isfinite(key.value()) && std::isfinite(inX) && std::isfinite(inY) &&
         std::isfinite(outX) && std::isfinite(outY) && std::isfinite(key.quaternionW());
}

// Looks `t` up through the process-wide scratch time, as every lookup here does.
bool findTime(const TparamCurve& curve, const TtimeValue& t, unsigned& index) {
  TparamCurve::fsTimeValue = t;
  return curve.find(TparamCurve::fsTimeValue, index);
}

// The value a key added to `curve` at `t` must have to leave it unchanged.
// Quaternion rotation curves would take their component of the three curves'
// interpolated rotation here (and the quaternion W with it); until rotation
// interpolation is built each curve evaluates its own keys and W stays 1.
double siblingValue(TparamCurve& curve, const TtimeValue& t) {
  return curve.evaluate(t);
}

// A key on `curve` at `t` that lies on the curve, with the default tangent
// types and no breakdown mark. Its value is clamped like any key's; where
// the curve's own arithmetic overflows (keys near the ends of the double
// range) it is NaN, and insertKey refuses it.
Tkeyframe siblingKey(TparamCurve& curve, const TtimeValue& t) {
  Tkeyframe k(t, 0.0);
  k.setValue(siblingValue(curve, t));
  return k;
}

// The key `add` puts into `curve` at index `i`: a copy of `key` for the curve
// asked, and for a sibling without a neighbour to copy; otherwise a copy of
// the sibling's neighbour moved to `t` with the sibling's own value there.
Tkeyframe* makeAddedKey(TparamCurve& curve, bool isSelf, const Tkeyframe& key, const TtimeValue& t,
                        unsigned i) {
  if (isSelf) return new Tkeyframe(key);
  const Tkeyframe* neighbour = curve.keyframe(i > 0 ? i - 1 : 0);
  auto* k = new Tkeyframe(neighbour ? *neighbour : key);
  k->setTime(t);
  k->setBreakdown(false);
  if (neighbour) k->setValue(siblingValue(curve, t));
  if (!std::isfinite(k->value())) {
    // The sibling's own arithmetic overflowed there: no key can lie on it.
    delete k;
    return nullptr;
  }
  // The W of the interpolated rotation belongs here once siblings evaluate
  // as one rotation; until then it is the identity's.
  if (curve.getRotationInterpolation() == TparamCurve::kQuaternion) k->setQuaternionW(1.0f);
  return k;
}

// Puts back the time word of `from` exactly as it was stored.
void restoreTime(const TparamCurve& curve, Tkeyframe& key, const Tkeyframe& from) {
  if (curve.isAnimTime()) {
    key.setTime(from.timeAsAnimTime());
  } else {
    key.setTime(from.timeAsFloat());
  }
}

// Whether `undoKey` may be what undoing the removal of key `index` brings
// back: a usable key whose time is free once key `index` is gone. Anything
// else would put a non-finite value or a second key at one time into the
// curve, so the removed key then comes back as it was.
bool isUsableUndoKey(TparamCurve& curve, const Tkeyframe* undoKey, unsigned index) {
  if (!undoKey || !isUsableKey(curve, *undoKey)) return false;
  unsigned at = 0;
  return !findTime(curve, curve.timeValue(undoKey), at) || at == index;
}

// `k`, or null (and `k` deleted) when the curve's arithmetic overflowed into
// a value that no key may hold.
Tkeyframe* finiteOrNothing(Tkeyframe* k) {
  if (std::isfinite(k->value())) return k;
  delete k;
  return nullptr;
}

// True for the automatic types a new key may share with both neighbours and
// still match the segment it splits.
bool isSmoothFamily(TtangentType t) {
  return t == kTangentSpline || t == kTangentSmooth || t == kTangentClamped ||
         t == kTangentClampedSmooth;
}

// Room for `more` keys at once, so that a bulk load grows the array once.
// A refusal is harmless: the array then grows as keys arrive.
void reserveKeys(TkeyArray& array, unsigned more) {
  const std::uint64_t needed = static_cast<std::uint64_t>(array.count()) + more;
  if (needed <= array.capacity() || needed > Tarray::kMaxCount) return;
  array.changePhysicalSizeTo(static_cast<unsigned>(needed));
}

// Whether the values a block setter writes to keys first..last are all
// finite once narrowed to single precision.
bool isFiniteBlock(const TdoubleArray& values, unsigned first, unsigned last) {
  for (unsigned j = 0; first + j <= last && j < values.count(); ++j) {
    if (!std::isfinite(static_cast<float>(values[j]))) return false;
  }
  return true;
}

// Writes one component of one side straight into the key, keeping the other.
void writeComponent(Tkeyframe& key, bool inSide, bool xComponent, float v) {
  const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  float x = 0.0f, y = 0.0f;
  key.getTangent(side, x, y);
  (xComponent ? x : y) = v;
  key.setTangent(side, x, y);
}

}  // namespace

// --- Adding --------------------------------------------------------------------------

bool TparamCurve::add(const Tkeyframe& key, bool /*ignored*/, bool allSiblings) {
  if (!isUsableKey(*this, key)) return false;
  const TtimeValue time = timeValue(&key);
  bool result = false;
  for (TparamCurve* c : chooseCurves(*this, allSiblings, /*create=*/true)) {
    const bool isSelf = c == this;
    const TtimeValue t = inKindOf(*c, time);
    unsigned i = 0;
    if (findTime(*c, t, i)) {
      if (!isSelf) continue;  // a sibling's own key is never overwritten
      if (!beginChange()) return false;
      TkeyStatesRecorder states(*this, i, kReach);
      Tkeyframe* existing = keyframe(i);
      if (isMod()) {
        addDelta(new TPCDaddRemoveKey(this, TPCDaddRemoveKey::kKeyReplaced,
                                      new Tkeyframe(*existing), existing),
                 false);
      }
      const bool valueChanged = existing->value() != key.value();
      const Tkeyframe before(*existing);
      *existing = key;
      // A time within the tolerance of the old one can still come within the
      // tolerance of a neighbour; the old time then stays.
      if (!keyArray()->keyOrderValid(i)) restoreTime(*this, *existing, before);
      setSpanInterpMethod(i);
      modifyTangents(i);
      if (staticCurve()) checkStaticValueCondition(i);
      // The cache goes before the message: a client may sample the curve.
      invalidateCache(static_cast<int>(i));
      if (valueChanged) notifyClientsOfChange(existing, Tmsg::kKeyChanged);
      states.finish(i, kReach);
      endChange(true);
      result = true;
      continue;
    }

    if (!c->beginChange()) return false;
    TkeyStatesRecorder states(*c, i, kReach);
    Tkeyframe* k = makeAddedKey(*c, isSelf, key, t, i);
    const int at = k ? c->arrayInsert(k, i) : -1;
    if (at < 0) {
      delete k;
      c->endChange(false);
      if (isSelf) result = false;
      continue;
    }
    i = static_cast<unsigned>(at);
    if (isSelf) result = true;
    if (c->staticCurve()) c->checkStaticValueCondition(i);
    c->invalidateCache(at);
    c->setSpanInterpMethod(i);
    if (c->isMod()) c->addDelta(new TPCDaddRemoveKey(c, TPCDaddRemoveKey::kKeyAdded, k), false);
    if (c->keyframeCount() > 1) c->modifyTangents(i);
    c->notifyClientsOfChange(k, Tmsg::kKeyAdded);
    states.finish(i, kReach);
    c->endChange(true);
  }
  return result;
}

// --- Inserting -------------------------------------------------------------------------

bool TparamCurve::insert(const TtimeValue& time, bool breakdown, bool allSiblings) {
  const TtimeValue own = inKindOf(*this, time);
  if (!isUsableTime(own)) return false;
  bool ok = true;
  const TcurveSet set = chooseCurves(*this, allSiblings, /*create=*/true);
  for (unsigned n = 0; n < set.count && ok; ++n) {
    TparamCurve* c = set.curves[n];
    const TtimeValue t = inKindOf(*c, own);
    const bool mark = breakdown && c == this;  // sibling keys are never breakdowns
    if (c->keyframeCount() == 0) {
      Tkeyframe k(t, 0.0);
      k.setBreakdown(mark);
      ok = c->add(k, /*ignored=*/true, /*allSiblings=*/true);
      continue;
    }
    unsigned i = 0;
    if (findTime(*c, t, i)) continue;
    Tkeyframe k = siblingKey(*c, t);
    k.setBreakdown(mark);
    ok = c->insertKey(k, /*keepShape=*/true);
  }
  return ok;
}

bool TparamCurve::insert(const Tkeyframe& key, bool keepShape, bool allSiblings) {
  if (!isUsableKey(*this, key)) return false;
  const TtimeValue time = timeValue(&key);
  bool ok = true;
  const TcurveSet set = chooseCurves(*this, allSiblings, /*create=*/true);
  for (unsigned n = 0; n < set.count && ok; ++n) {
    TparamCurve* c = set.curves[n];
    const bool isSelf = c == this;
    const TtimeValue t = inKindOf(*c, time);
    if (c->keyframeCount() == 0) {
      if (isSelf) {
        ok = add(key, keepShape, allSiblings);
        continue;
      }
      Tkeyframe copy(key);
      copy.setTime(t);
      copy.setBreakdown(false);
      ok = c->add(copy, keepShape, allSiblings);
      continue;
    }
    unsigned i = 0;
    if (findTime(*c, t, i)) continue;  // an existing key is never overwritten here
    if (isSelf) {
      ok = insertKey(key, keepShape);
      continue;
    }
    ok = c->insertKey(siblingKey(*c, t), keepShape);
  }
  return ok;
}

bool TparamCurve::insert(Tkeyframe* key, bool allSiblings) {
  if (!key || !isUsableKey(*this, *key)) return false;
  const TtimeValue time = timeValue(key);
  bool changed = false;
  bool adopted = false;
  for (TparamCurve* c : chooseCurves(*this, allSiblings, /*create=*/true)) {
    if (!c->beginChange()) return adopted;
    const TtimeValue t = inKindOf(*c, time);
    unsigned i = 0;
    if (!findTime(*c, t, i)) {
      bool inserted = false;
      if (c == this) {
        const int at = arrayInsert(key, i);
        inserted = at >= 0;
        if (inserted) i = static_cast<unsigned>(at);
        adopted = inserted;
      } else {
        inserted = c->insertKey(siblingKey(*c, t), /*keepShape=*/true);
      }
      if (inserted) {
        c->setSpanInterpMethod(i);
        c->modifyTangents(i);
        c->invalidateCache(static_cast<int>(i));
        changed = true;
        if (c->staticCurve()) c->checkStaticValueCondition(i);
      }
    }
    if (changed) c->notifyClientsOfChange(c->keyframe(i), Tmsg::kKeyChanged);
    c->endChange(changed);
  }
  // The result tells the caller who owns `key`, so it reports adoption; the
  // siblings' keys are the curves' own either way.
  return adopted;
}

bool TparamCurve::insertKey(const Tkeyframe& key, bool keepShape) {
  // Nothing may bring a non-finite value or tangent into the curve.
  if (!isUsableKey(*this, key)) return false;
  if (!fSegmentEvaluator || !beginChange()) return false;
  unsigned i = 0;
  const bool exists = findTime(*this, timeValue(&key), i);
  TkeyStatesRecorder states(*this, i, kReach);
  if (exists) {
    if (!add(key, /*ignored=*/true, /*allSiblings=*/true)) {
      endChange(false);
      return false;
    }
    notifyClientsOfChange(keyframe(i), Tmsg::kKeyAdded);
    states.finish(i, kReach);
    endChange(true);
    return true;
  }

  auto* k = new Tkeyframe(key);
  Tkeyframe* prev = i > 0 ? keyframe(i - 1) : nullptr;
  Tkeyframe* next = keyframe(i);
  Tkeyframe* prevCopy = nullptr;
  Tkeyframe* nextCopy = nullptr;
  if (keepShape) {
    // Snapshots for undo, which puts the neighbours' frozen sides back.
    if (prev) prevCopy = new Tkeyframe(*prev);
    if (next) nextCopy = new Tkeyframe(*next);
    if (prev && !next) {
      prev->setTanInType(kTangentFixed);
    } else if (!prev && next) {
      next->setTanOutType(kTangentFixed);
    } else if (prev && next) {
      if (next->tanOutType() != kTangentStep) next->setTanOutType(kTangentFixed);
      prev->setTanInType(kTangentFixed);
      if (prev->tanOutType() == kTangentStep) {
        // A stepped span stays stepped on both sides of the new key.
        k->setTanInType(kTangentSpline);
        k->setTanOutType(kTangentStep);
      } else {
        setInterpolationInterval(i - 1);
        float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
        float prevOutX = 0.0f, prevOutY = 0.0f, nextInX = 0.0f, nextInY = 0.0f;
        // The split value is not stored: the key keeps the value it was given.
        fSegmentEvaluator->splitSegment(static_cast<double>(seconds(k)), inX, inY, outX, outY,
                                        prevOutX, prevOutY, nextInX, nextInY);
        k->setTanIn(inX, inY);
        k->setTanOut(outX, outY);
        k->setTanInType(kTangentFixed);
        k->setTanOutType(kTangentFixed);
        next->setTanInType(kTangentFixed);
        fSegmentEvaluator->setTanIn(next, nextInX, nextInY);
        prev->setTanOutType(kTangentFixed);
        fSegmentEvaluator->setTanOut(prev, prevOutX, prevOutY);
      }
    }
  }

  const int at = arrayInsert(k, i);
  if (at < 0) {
    // Nothing may stay half done: the neighbours get their old state back.
    if (prev && prevCopy) *prev = *prevCopy;
    if (next && nextCopy) *next = *nextCopy;
    delete prevCopy;
    delete nextCopy;
    delete k;
    invalidateCache(static_cast<int>(i));
    endChange(false);
    return false;
  }
  i = static_cast<unsigned>(at);
  setSpanInterpMethod(i);
  modifyTangents(i);
  if (isMod()) {
    if (keepShape) {
      addDelta(new TPCDinsertKey(this, k, prevCopy, nextCopy, i), false);
    } else {
      addDelta(new TPCDaddRemoveKey(this, TPCDaddRemoveKey::kKeyAdded, k), false);
    }
  } else {
    delete prevCopy;
    delete nextCopy;
  }
  invalidateCache(at);
  if (staticCurve()) checkStaticValueCondition(i);
  notifyClientsOfChange(k, Tmsg::kKeyAdded);
  states.finish(i, kReach);
  endChange(true);
  return true;
}

Tkeyframe* TparamCurve::newMatchingKeyframe(const TtimeValue& time) {
  const TtimeValue t = inKindOf(*this, time);
  if (!isUsableTime(t)) return nullptr;
  unsigned i = 0;
  if (findTime(*this, t, i)) return new Tkeyframe(*keyframe(i));

  auto* k = new Tkeyframe(t, 0.0);
  const unsigned n = keyframeCount();
  float x = 0.0f, y = 0.0f;
  if (i == 0 || i >= n) {
    // Outside the keys: the value of the infinity, with the end key's
    // outward tangent on both sides.
    const Tkeyframe* end = i == 0 ? keyframe(0) : keyframe(n - 1);
    if (end && i == 0) end->getTanIn(x, y);
    if (end && i != 0) end->getTanOut(x, y);
    k->setTanIn(x, y);
    k->setTanOut(x, y);
    k->setValue(evaluate(t));
    return finiteOrNothing(k);
  }

  const Tkeyframe* prev = keyframe(i - 1);
  const Tkeyframe* next = keyframe(i);
  const Tkeyframe::TspanInterpMethod method = next->interpMethod();
  if (!fSegmentEvaluator) {
    k->setValue(evaluate(t));
    return finiteOrNothing(k);
  }
  if (method == Tkeyframe::kSpanLinear || method == Tkeyframe::kSpanStep) {
    const TtangentType type = method == Tkeyframe::kSpanLinear ? kTangentLinear : kTangentStep;
    k->setValue(evaluate(t));
    k->setTanInType(type);
    k->setTanOutType(type);
    k->setInterpMethod(method);
    return finiteOrNothing(k);
  }

  setInterpolationInterval(i - 1);
  float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
  float prevOutX = 0.0f, prevOutY = 0.0f, nextInX = 0.0f, nextInY = 0.0f;
  const double value =
      fSegmentEvaluator->splitSegment(static_cast<double>(t.inSeconds()), inX, inY, outX, outY,
                                      prevOutX, prevOutY, nextInX, nextInY);
  k->setValue(value);
  k->setTanIn(inX, inY);
  k->setTanOut(outX, outY);
  const TtangentType shared = next->tanInType();
  if (shared == prev->tanOutType() && isSmoothFamily(shared)) {
    k->setTanInType(shared);
    k->setTanOutType(shared);
  } else {
    k->setTanInType(kTangentFixed);
    k->setTanOutType(kTangentFixed);
    k->setTangentsLocked(true);
  }
  return finiteOrNothing(k);
}

// --- Loading in bulk ---------------------------------------------------------------------

bool TparamCurve::blockAdd(const Tkeyframe& templ, const TdoubleArray* times,
                           const TdoubleArray* values) {
  if (!times || !values || times->count() == 0 || times->count() != values->count()) return false;
  TkeyArray* array = keyArray();
  // Opens no scope, so the curve's own messages are checked here.
  if (!array || fSendDepth != 0) return false;
  const unsigned count = times->count();
  for (unsigned j = 0; j < count; ++j) {
    const bool usable =
        std::isfinite(static_cast<float>((*times)[j])) && std::isfinite((*values)[j]);
    if (!usable) return false;
  }
  reserveKeys(*array, count);

  const TtangentType inType = templ.tanInType();
  const TtangentType outType = templ.tanOutType();
  for (unsigned j = 0; j < count; ++j) {
    const TtimeValue t = makeTimeValue(static_cast<float>((*times)[j]));
    unsigned i = 0;
    if (findTime(*this, t, i)) {
      Tkeyframe* existing = keyframe(i);
      existing->setValue((*values)[j]);
      existing->setTanInType(inType);
      existing->setTanOutType(outType);
    } else {
      auto* k = new Tkeyframe(t, (*values)[j], inType, outType);
      const int at = arrayInsert(k, i);
      if (at < 0) {
        delete k;
        continue;
      }
      i = static_cast<unsigned>(at);
    }
    if (staticCurve()) checkStaticValueCondition(i);
  }

  const unsigned n = keyframeCount();
  for (unsigned i = 0; i < n; ++i) {
    tangentMethodIdentifier(i, /*inSide=*/true, /*otherSideDone=*/false);
    tangentMethodIdentifier(i, /*inSide=*/false, /*otherSideDone=*/true);
  }
  invalidateCache(-1);
  return true;
}

bool TparamCurve::blockAdd(TanimTimeArray& times, TdoubleArray& values, TtangentType inType,
                           TtangentType outType) {
  return blockAdd(&times, &values, inType, outType, /*ascending=*/false);
}

bool TparamCurve::blockAdd(TanimTimeArray* times, TdoubleArray* values, TtangentType inType,
                           TtangentType outType, bool ascending) {
  if (!times || !values || times->count() == 0 || times->count() != values->count()) return false;
  TkeyArray* array = keyArray();
  if (!array) return false;
  const unsigned count = times->count();
  for (unsigned j = 0; j < count; ++j) {
    if (!std::isfinite((*values)[j])) return false;
  }
  if (!beginChange()) return false;
  reserveKeys(*array, count);

  const bool ticks = isAnimTime();
  for (unsigned j = 0; j < count; ++j) {
    const TanimTime at = (*times)[j];
    const TtimeValue t = ticks ? TtimeValue(at) : TtimeValue(at.inSeconds());
    auto* k = new Tkeyframe(t, (*values)[j], inType, outType);
    // Appending needs no search; a key that breaks the caller's promise of
    // ascending times falls back to a sorted insertion.
    const unsigned hint = ascending ? array->count() : kInvalidIndex;
    const int index = arrayInsert(k, hint);
    if (index < 0) {
      delete k;
      continue;
    }
    if (staticCurve()) checkStaticValueCondition(static_cast<unsigned>(index));
    notifyClientsOfChange(k, Tmsg::kKeyAdded);
  }

  // One pass over the whole curve is cheaper than recomputing around each key.
  const unsigned n = keyframeCount();
  const bool bothSpline = inType == kTangentSpline && outType == kTangentSpline;
  const bool bothSmooth = inType == kTangentSmooth && outType == kTangentSmooth;
  if (n == 0) {
    // Every key was refused: nothing to compute.
  } else if (bothSpline || bothSmooth) {
    modifySmoothTangents(0, n - 1);
  } else if (inType == kTangentLinear && outType == kTangentLinear) {
    modifyLinearTangents(0, n - 1);
  } else if (inType == kTangentFixed) {
    // Fixed in sides keep the tangents the keys were made with, whatever the
    // out type.
  } else if (outType != kTangentFixed) {
    for (unsigned i = 0; i < n; ++i) {
      tangentMethodIdentifier(i, /*inSide=*/true, /*otherSideDone=*/false);
      if (i > 0) tangentMethodIdentifier(i - 1, /*inSide=*/false, /*otherSideDone=*/false);
      setSpanInterpMethod(i);
    }
  }
  invalidateCache(-1);
  endChange(true);
  return true;
}

// --- Block tangent setters ------------------------------------------------------------------

bool TparamCurve::setBlockTangentXValue(unsigned first, unsigned last, TdoubleArray& values,
                                        bool inSide) {
  return setBlockTangentComponent(first, last, values, inSide, /*xComponent=*/true);
}

bool TparamCurve::setBlockTangentYValue(unsigned first, unsigned last, TdoubleArray& values,
                                        bool inSide) {
  return setBlockTangentComponent(first, last, values, inSide, /*xComponent=*/false);
}

bool TparamCurve::setBlockTangentComponent(unsigned first, unsigned last, TdoubleArray& values,
                                           bool inSide, bool xComponent) {
  const unsigned n = keyframeCount();
  if (n == 0 || first > n - 1) return false;
  last = std::min(last, n - 1);
  if (!isFiniteBlock(values, first, last) || !beginChange()) return false;
  for (unsigned i = first; i <= last && i - first < values.count(); ++i) {
    Tkeyframe* key = keyframe(i);
    writeComponent(*key, inSide, xComponent, static_cast<float>(values[i - first]));
    notifyClientsOfChange(key, Tmsg::kTangentChanged);
  }
  invalidateCache(-1);
  endChange(true);
  return true;
}

bool TparamCurve::setBlockTanType(unsigned first, unsigned last, Tint16Array& types, bool inSide) {
  const unsigned n = keyframeCount();
  if (n == 0 || first > n - 1) return false;
  if (!beginChange()) return false;
  last = std::min(last, n - 1);
  for (unsigned i = first; i <= last && i - first < types.count(); ++i) {
    Tkeyframe* key = keyframe(i);
    const auto type = static_cast<TtangentType>(types[i - first]);
    key->setTangentType(inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide, type);
    notifyClientsOfChange(key, Tmsg::kTangentChanged);
  }
  invalidateCache(-1);
  endChange(true);
  return true;
}

// --- Removing ----------------------------------------------------------------------------------

void TparamCurve::remove(unsigned index, const Tkeyframe* undoKey, bool allSiblings) {
  for (TparamCurve* c : chooseCurves(*this, allSiblings, /*create=*/false)) {
    if (index >= c->keyframeCount() || !c->beginChange()) return;
    Tkeyframe* key = c->keyframe(index);
    c->sendAddDeleteMessage(key, /*added=*/false);
    c->notifyClientsOfChange(key, Tmsg::kKeyRemoved);
    // While recording, the delta keeps the key object itself, so that undo
    // brings back the very object that handles point at.
    const bool keptByDelta = c->isMod() && !c->blockAddMode();
    if (keptByDelta && isUsableUndoKey(*c, undoKey, index)) *key = *undoKey;
    // Taken once the key holds what undo must bring back.
    TkeyStatesRecorder states(*c, index, keptByDelta ? kReach : 0);
    if (keptByDelta)
      c->addDelta(new TPCDaddRemoveKey(c, TPCDaddRemoveKey::kKeyRemoved, key), false);
    c->keyArray()->removeKey(index);
    if (!keptByDelta) delete key;
    if (index > 0) {
      c->setSpanInterpMethod(index - 1);
      c->modifyTangents(index - 1);
    } else if (c->keyframeCount() > 0) {
      // The new first key was computed with a neighbour that is gone; it is
      // brought up to date like any other neighbour of a removed key.
      c->modifyTangents(0);
    }
    c->invalidateCache(static_cast<int>(index));
    if (c->keyframeCount() == 0) c->setStaticCurve(true);
    if (keptByDelta) states.finish(index, kReach);
    c->endChange(true);
  }
}

// --- Undo entry points ---------------------------------------------------------------------------

bool TparamCurve::addRemovedKey(Tkeyframe* key) {
  if (!key || !beginChange()) return false;
  bool result = false;
  unsigned i = 0;
  if (!findTime(*this, timeValue(key), i)) {
    const int at = arrayInsert(key, i);
    if (at >= 0) {
      i = static_cast<unsigned>(at);
      invalidateCache(at);
      setSpanInterpMethod(i);
      // As in add, a key alone in the curve keeps the tangents it comes with,
      // so redoing the first key of a curve gives back the key add made.
      if (keyframeCount() > 1) modifyTangents(i);
      sendAddDeleteMessage(key, /*added=*/true);
      if (staticCurve()) checkStaticValueCondition(i);
      notifyClientsOfChange(key, Tmsg::kKeyAdded);
      result = true;
    }
  }
  endChange(result);
  return result;
}

bool TparamCurve::replaceKey(Tkeyframe* key, const Tkeyframe& newState) {
  if (!key || !beginChange()) return false;
  unsigned i = 0;
  // Only a key of this curve is replaced: the key found at its time must be it.
  if (!findTime(*this, timeValue(key), i) || keyframe(i) != key) {
    endChange(false);
    return false;
  }
  const bool sameValue = newState.value() == key->value();
  const Tkeyframe before(*key);
  *key = newState;  // the array is deliberately not re-sorted
  // A time that would reach a neighbour (the curve changed since the state
  // was saved) is not taken: the key keeps its place and its time.
  if (!keyArray()->keyOrderValid(i)) restoreTime(*this, *key, before);
  invalidateCache(static_cast<int>(i));
  setSpanInterpMethod(i);
  modifyTangents(i);
  if (!sameValue) notifyClientsOfChange(key, Tmsg::kKeyChanged);
  endChange(true);
  return true;
}

}  // namespace lumora

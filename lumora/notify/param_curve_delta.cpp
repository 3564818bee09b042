// Curve deltas: the composites that gather them, the kinds, and their type
// records.
#include "lumora/notify/param_curve_delta.h"
#include "lumora/base/internal/module_storage.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <utility>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/delta_module.h"

namespace lumora {

Tmetaclass* TparamCurveDeltaTmeta = nullptr;
Tmetaclass* TPCDinfinityTypeTmeta = nullptr;
Tmetaclass* TPCDblockAddRemoveKeyTmeta = nullptr;
Tmetaclass* TPCDaddRemoveKeyTmeta = nullptr;
Tmetaclass* TPCDinsertKeyTmeta = nullptr;
Tmetaclass* TPCDdragKeyTmeta = nullptr;
Tmetaclass* TPCDdragTanTmeta = nullptr;
Tmetaclass* TPCDcurveDeltaTmeta = nullptr;
Tmetaclass* TPCDweightedTangentsTmeta = nullptr;
Tmetaclass* TPCDrotationInterpolationTmeta = nullptr;
Tmetaclass* TparamCurveDeltaCompTmeta = nullptr;

namespace {

constexpr unsigned kNoIndex = TparamCurve::kInvalidIndex;

// Two drags chain when the second starts where the first ended, up to this
// difference in value.
constexpr double kDragValueTolerance = 1e-10;

// Tangent coordinates closer than this count as unchanged.
constexpr float kTangentTolerance = 1e-5f;

// Relative difference up to which a tangent component written again through
// the evaluator is the same component, moved only by renormalising.
constexpr float kRenormalisationSlack = 1e-6f;

// Selection bits of a key (flag bits 22 to 24) as a TpickKey mask.
std::uint32_t pickStateOf(const Tkeyframe& key) {
  std::uint32_t picks = 0;
  if (key.isKeyframeActive()) picks |= TpickKey::kPickKey;
  if (key.isInTangentActive()) picks |= TpickKey::kPickInTangent;
  if (key.isOutTangentActive()) picks |= TpickKey::kPickOutTangent;
  return picks;
}

void setPickState(Tkeyframe& key, std::uint32_t picks) {
  key.setActive(
      TbitField32(TpickKey::kPickKey | TpickKey::kPickInTangent | TpickKey::kPickOutTangent),
      false);
  for (const std::uint32_t bit :
       {TpickKey::kPickKey, TpickKey::kPickInTangent, TpickKey::kPickOutTangent}) {
    if (picks & bit) key.setActive(TbitField32(bit), true);
  }
}

// Exchanges the full states of two keys; each keeps its own selection.
void swapStates(Tkeyframe& a, Tkeyframe& b) {
  const std::uint32_t picksA = pickStateOf(a);
  const std::uint32_t picksB = pickStateOf(b);
  const Tkeyframe held(a);
  a = b;
  b = held;
  setPickState(a, picksA);
  setPickState(b, picksB);
}

TparamCurveDelta* asCurveDelta(Tdelta* delta) {
  return isDeltaOfType(delta, TparamCurveDeltaTmeta) ? static_cast<TparamCurveDelta*>(delta)
                                                     : nullptr;
}

TparamCurveDeltaComp* asCurveComposite(Tdelta* delta) {
  return isDeltaOfType(delta, TparamCurveDeltaCompTmeta) ? static_cast<TparamCurveDeltaComp*>(delta)
                                                         : nullptr;
}

TPCDdragKey* asDragKey(Tdelta* delta) {
  return isDeltaOfType(delta, TPCDdragKeyTmeta) ? static_cast<TPCDdragKey*>(delta) : nullptr;
}

}  // namespace

bool isDeltaOfType(const Tdelta* delta, const Tmetaclass* record) {
  if (!delta || !record) return false;
  const Tmetaclass* own = delta->typeof();
  return own && own->istype(record);
}

// --- TparamCurveDelta --------------------------------------------------------------------

TparamCurveDelta::TparamCurveDelta(TparamCurve* curve) : Tdelta(curve), fCurve(curve) {}

TparamCurveDelta::~TparamCurveDelta() = default;

Tmetaclass* TparamCurveDelta::typeof() const {
  return TparamCurveDeltaTmeta;
}

void* TparamCurveDelta::cast(Tmetaclass* record) {
  if (record && record == TparamCurveDeltaTmeta) return this;
  return Tdelta::cast(record);
}

void TparamCurveDelta::setSubjectKey(Tkeyframe* key) {
  fSubjectKey = key;
}

unsigned TparamCurveDelta::indexOfKey(const TparamCurve& curve, const Tkeyframe* key) {
  if (!key) return kNoIndex;
  unsigned index = 0;
  if (curve.find(curve.timeValue(key), index) && curve.keyframe(index) == key) return index;
  // A key whose time was overwritten in place may sit where a search does
  // not look.
  const unsigned n = curve.physicalCount();
  for (unsigned i = 0; i < n; ++i) {
    if (curve.keyframe(i) == key) return i;
  }
  return kNoIndex;
}

bool TparamCurveDelta::detachKey(TparamCurve& curve, Tkeyframe* key, bool refreshNewFirst) {
  const unsigned index = indexOfKey(curve, key);
  if (index == kNoIndex) return false;
  if (!curve.beginChange()) return false;
  curve.sendAddDeleteMessage(key, /*added=*/false);
  curve.notifyClientsOfChange(key, 1);
  curve.keyArray()->removeAt(index);
  if (index > 0) {
    curve.setSpanInterpMethod(index - 1);
    curve.modifyTangents(index - 1);
  } else if (refreshNewFirst && curve.keyframeCount() > 0) {
    // The new first key has lost the previous neighbour it was computed with.
    curve.modifyTangents(0);
  }
  curve.invalidateCache(static_cast<int>(index));
  if (curve.keyframeCount() == 0) curve.setStaticCurve(true);
  curve.endChange(true);
  return true;
}

void TparamCurveDelta::restoreKey(TparamCurve& curve, unsigned index, const TtimeValue& time,
                                  double value, double w) {
  Tkeyframe* key = curve.keyframe(index);
  if (!key) return;
  if (!curve.beginChange()) return;
  TkeyArray* array = curve.keyArray();
  const TtimeValue before = curve.timeValue(key);
  unsigned now = index;
  if (!curve.setTime(index, time) && !array->keyOrderValid(index)) {
    // The key passed a neighbour: move the same object to its new place.
    array->removeAt(index);
    if (array->insertKey(key, now) != 0) {
      // Another key holds that time; the key keeps the time it had.
      key->setTime(before);
      if (array->insertKey(key, now) != 0) {
        now = index;
        array->insertElement(&key, index);
      }
    }
    curve.invalidateCache(-1);
  }
  if (std::isnan(w)) {
    curve.setValue(now, value);
  } else {
    curve.setValue(now, value, static_cast<float>(w));
  }
  // Tangents follow the new spacing at both the old and the new place.
  const unsigned n = curve.keyframeCount();
  for (const unsigned i : {index > 0 ? index - 1 : 0u, index, now}) {
    if (i >= n) continue;
    curve.setSpanInterpMethod(i);
    curve.modifyTangents(i);
  }
  curve.endChange(true);
}

// --- TparamCurveDeltaComp ----------------------------------------------------------------

TparamCurveDeltaComp::TparamCurveDeltaComp()
    : fEntries(/*elementSize=*/4, /*capacity=*/0, /*allowDuplicates=*/false) {}

TparamCurveDeltaComp::~TparamCurveDeltaComp() = default;

Tmetaclass* TparamCurveDeltaComp::typeof() const {
  return TparamCurveDeltaCompTmeta;
}

void* TparamCurveDeltaComp::cast(Tmetaclass* record) {
  if (record && record == TparamCurveDeltaCompTmeta) return this;
  return TdeltaComposite::cast(record);
}

bool TparamCurveDeltaComp::merge(Tdelta* delta) {
  if (!delta || delta == this) return true;
  if (TparamCurveDeltaComp* composite = asCurveComposite(delta)) {
    if (merge(composite)) return true;
  } else if (TparamCurveDelta* curveDelta = asCurveDelta(delta)) {
    if (merge(curveDelta)) return true;
  }
  return TdeltaComposite::merge(delta);
}

bool TparamCurveDeltaComp::merge(TparamCurveDeltaComp* other) {
  if (!other) return true;
  if (other == this) return false;
  const unsigned n = other->fChildren.count();
  for (unsigned i = 0; i < n; ++i) merge(other->fChildren[i]);
  other->reset();
  delete other;
  return true;
}

bool TparamCurveDeltaComp::merge(TparamCurveDelta* delta) {
  if (!delta) return true;
  TPCDdragKey* drag = asDragKey(delta);
  if (!drag) return false;
  const unsigned n = fChildren.count();
  for (unsigned i = 0; i < n; ++i) {
    TPCDdragKey* earlier = asDragKey(fChildren[i]);
    if (!earlier || earlier == drag || earlier->curve() != drag->curve()) continue;
    if (earlier->newTime() != drag->oldTime()) continue;
    if (!(std::fabs(earlier->newValue() - drag->oldValue()) < kDragValueTolerance)) continue;
    drag->setOldState(earlier->oldTime(), earlier->oldValue(), earlier->oldW());
    fChildren.removeAt(i);
    delete earlier;
    fChildren.addLast(drag);
    return true;
  }
  return false;
}

void TparamCurveDeltaComp::addLast(Tdelta* delta) {
  if (!delta || delta == this) return;
  if (TparamCurveDeltaComp* composite = asCurveComposite(delta)) {
    const unsigned n = composite->fChildren.count();
    for (unsigned i = 0; i < n; ++i) addLast(composite->fChildren[i]);
    return;
  }
  if (asCurveDelta(delta)) {
    fChildren.addLast(delta);
    return;
  }
  TdeltaComposite::merge(delta);
}

void TparamCurveDeltaComp::reset() {
  fChildren.changeLogicalSizeTo(0);
}

void TparamCurveDeltaComp::releaseFlattened(TparamCurveDeltaComp* flattened) {
  if (!flattened) return;
  const unsigned n = flattened->fChildren.count();
  for (unsigned i = 0; i < n; ++i) {
    releaseFlattened(asCurveComposite(flattened->fChildren[i]));
  }
  flattened->reset();
  delete flattened;
}

// --- TparamCurveDeltaUser ----------------------------------------------------------------

void TparamCurveDeltaUser::beginParamCurveMod(TparamCurve& curve) {
  curve.beginMod();
}

bool TparamCurveDeltaUser::endParamCurveMod(TparamCurve& curve) {
  if (!curve.isMod()) return false;
  Tdelta* gathered = curve.endMod();
  if (!gathered) return false;
  addLast(gathered);
  releaseFlattened(asCurveComposite(gathered));
  return true;
}

// --- TPCDinfinityType --------------------------------------------------------------------

TPCDinfinityType::TPCDinfinityType(TparamCurve* curve, bool isPre,
                                   TparamCurve::TinfinityType oldType,
                                   TparamCurve::TinfinityType newType)
    : TparamCurveDelta(curve), fIsPre(isPre), fOldType(oldType), fNewType(newType) {}

Tmetaclass* TPCDinfinityType::typeof() const {
  return TPCDinfinityTypeTmeta;
}

void* TPCDinfinityType::cast(Tmetaclass* record) {
  if (record && record == TPCDinfinityTypeTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDinfinityType::undo() {
  apply(fOldType);
  setUndone(true);
}

void TPCDinfinityType::redo() {
  apply(fNewType);
  setUndone(false);
}

void TPCDinfinityType::apply(TparamCurve::TinfinityType type) {
  if (!fCurve) return;
  if (fIsPre) {
    fCurve->setPreInfinityType(type);
  } else {
    fCurve->setPostInfinityType(type);
  }
}

// --- TPCDaddRemoveKey --------------------------------------------------------------------

TPCDaddRemoveKey::TPCDaddRemoveKey(TparamCurve* curve, int operation, Tkeyframe* keyframe,
                                   Tkeyframe* subject)
    : TparamCurveDelta(curve),
      fOperation(operation),
      fKeyframe(keyframe),
      fKeyOut(operation == kKeyRemoved) {
  if (operation == kKeyReplaced) setSubjectKey(subject);
}

TPCDaddRemoveKey::~TPCDaddRemoveKey() {
  if (fOperation == kKeyReplaced || fKeyOut) delete fKeyframe;
}

Tmetaclass* TPCDaddRemoveKey::typeof() const {
  return TPCDaddRemoveKeyTmeta;
}

void* TPCDaddRemoveKey::cast(Tmetaclass* record) {
  if (record && record == TPCDaddRemoveKeyTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDaddRemoveKey::undo() {
  if (fCurve) {
    if (fOperation == kKeyAdded) takeOut();
    if (fOperation == kKeyRemoved) putBack();
    if (fOperation == kKeyReplaced && !fStateSwapped) fStateSwapped = swapState();
  }
  setUndone(true);
}

void TPCDaddRemoveKey::redo() {
  if (fCurve) {
    if (fOperation == kKeyAdded) putBack();
    if (fOperation == kKeyRemoved) takeOut();
    if (fOperation == kKeyReplaced && fStateSwapped) fStateSwapped = !swapState();
  }
  setUndone(false);
}

void TPCDaddRemoveKey::putBack() {
  if (!fKeyOut || !fKeyframe) return;
  // The same object goes back, so handles to it become valid again.
  if (fCurve->addRemovedKey(fKeyframe)) fKeyOut = false;
}

void TPCDaddRemoveKey::takeOut() {
  if (fKeyOut) return;
  // Redoing a removal repeats remove(), which leaves a new first key alone;
  // undoing an addition in front must give that key its old tangents back.
  if (detachKey(*fCurve, fKeyframe, /*refreshNewFirst=*/fOperation == kKeyAdded)) fKeyOut = true;
}

bool TPCDaddRemoveKey::swapState() {
  if (!fKeyframe || indexOfKey(*fCurve, fSubjectKey) == kNoIndex) return false;
  const Tkeyframe replaced(*fSubjectKey);
  if (!fCurve->replaceKey(fSubjectKey, *fKeyframe)) return false;
  *fKeyframe = replaced;
  return true;
}

// --- TPCDinsertKey -----------------------------------------------------------------------

TPCDinsertKey::TPCDinsertKey(TparamCurve* curve, Tkeyframe* inserted, Tkeyframe* prevCopy,
                             Tkeyframe* nextCopy, unsigned index)
    : TparamCurveDelta(curve),
      fInserted(inserted),
      fPrevCopy(prevCopy),
      fNextCopy(nextCopy),
      fIndex(index) {}

TPCDinsertKey::~TPCDinsertKey() {
  delete fPrevCopy;
  delete fNextCopy;
  if (fKeyOut) delete fInserted;
}

Tmetaclass* TPCDinsertKey::typeof() const {
  return TPCDinsertKeyTmeta;
}

void* TPCDinsertKey::cast(Tmetaclass* record) {
  if (record && record == TPCDinsertKeyTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDinsertKey::undo() {
  setUndone(true);
  if (!fCurve || fKeyOut) return;
  const unsigned i = indexOfKey(*fCurve, fInserted);
  if (i == kNoIndex || !fCurve->beginChange()) return;
  fIndex = i;
  swapNeighbours(i, i + 1);
  if (detachKey(*fCurve, fInserted, /*refreshNewFirst=*/true)) {
    fKeyOut = true;
  } else {
    swapNeighbours(i, i + 1);
  }
  fCurve->endChange(true);
}

void TPCDinsertKey::redo() {
  setUndone(false);
  if (!fCurve || !fKeyOut || !fInserted) return;
  unsigned i = 0;
  if (fCurve->find(fCurve->timeValue(fInserted), i)) return;  // the time is taken meanwhile
  if (!fCurve->beginChange()) return;
  fIndex = i;
  swapNeighbours(i, i);
  if (fCurve->addRemovedKey(fInserted)) {
    fKeyOut = false;
  } else {
    swapNeighbours(i, i);
  }
  fCurve->endChange(true);
}

void TPCDinsertKey::swapNeighbours(unsigned at, unsigned next) {
  // The previous neighbour sits just before `at`, the next one at `next`; a
  // neighbour is only exchanged with a copy of itself (same time word).
  const auto exchange = [this](Tkeyframe* key, Tkeyframe* copy, bool inSide) {
    if (!key || !copy || key->timeAsTicks() != copy->timeAsTicks()) return;
    swapStates(*key, *copy);
    float x = 0.0f;
    float y = 0.0f;
    const TtangentType type = inSide ? key->tanInType() : key->tanOutType();
    if (type == kTangentFixed) {
      // Written again through the curve so that its caches follow. A unit
      // vector normalised again can move by its last bit, so the swapped-in
      // bits are put back afterwards.
      if (inSide) {
        key->getTanIn(x, y);
        fCurve->setTanIn(key, x, y);
        key->setTanIn(x, y);
      } else {
        key->getTanOut(x, y);
        fCurve->setTanOut(key, x, y);
        key->setTanOut(x, y);
      }
    }
    fCurve->notifyClientsOfChange(key, 3);
  };
  exchange(at > 0 ? fCurve->keyframe(at - 1) : nullptr, fPrevCopy, /*inSide=*/false);
  exchange(fCurve->keyframe(next), fNextCopy, /*inSide=*/true);
  fCurve->invalidateCache(-1);
}

// --- TPCDblockAddRemoveKey ---------------------------------------------------------------

TPCDblockAddRemoveKey::TPCDblockAddRemoveKey(TparamCurve* curve, int operation,
                                             TanimTimeArray* times, TdoubleArray* values,
                                             TtangentType inType, TtangentType outType,
                                             bool ownsArrays)
    : TparamCurveDelta(curve),
      fOperation(operation),
      fTimes(times),
      fValues(values),
      fInType(inType),
      fOutType(outType),
      fOwnsArrays(ownsArrays) {}

TPCDblockAddRemoveKey::~TPCDblockAddRemoveKey() {
  if (!fOwnsArrays) return;
  delete fTimes;
  delete fValues;
}

Tmetaclass* TPCDblockAddRemoveKey::typeof() const {
  return TPCDblockAddRemoveKeyTmeta;
}

void* TPCDblockAddRemoveKey::cast(Tmetaclass* record) {
  if (record && record == TPCDblockAddRemoveKeyTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDblockAddRemoveKey::setRangeMode(TtimeValue first, TtimeValue last) {
  fFirst = first;
  fLast = last;
  fRangeMode = true;
}

void TPCDblockAddRemoveKey::undo() {
  if (fOperation == kBlockAdded) removeBlock();
  if (fOperation == kBlockRemoved) addBlock();
  setUndone(true);
}

void TPCDblockAddRemoveKey::redo() {
  if (fOperation == kBlockAdded) addBlock();
  if (fOperation == kBlockRemoved) removeBlock();
  setUndone(false);
}

void TPCDblockAddRemoveKey::addBlock() {
  if (!fCurve || !fTimes || !fValues) return;
  fCurve->blockAdd(*fTimes, *fValues, fInType, fOutType);
}

void TPCDblockAddRemoveKey::removeBlock() {
  if (!fCurve) return;
  // One scope around the whole block, so that global clients hear of it once.
  if (!fCurve->beginChange()) return;
  bool changed = false;
  if (fRangeMode) {
    for (unsigned i = fCurve->keyframeCount(); i-- > 0;) {
      const TtimeValue t = fCurve->timeValue(i);
      if (t < fFirst || fLast < t) continue;
      fCurve->remove(i, nullptr, /*allSiblings=*/false);
      changed = true;
    }
  } else if (fTimes) {
    for (unsigned j = fTimes->count(); j-- > 0;) {
      unsigned i = 0;
      if (!fCurve->find(TtimeValue((*fTimes)[j]), i)) continue;
      fCurve->remove(i, nullptr, /*allSiblings=*/false);
      changed = true;
    }
  }
  fCurve->endChange(changed);
}

// --- TPCDdragKey -------------------------------------------------------------------------

TPCDdragKey::TPCDdragKey(TparamCurve* curve, TkeyframeHandle* handle, const TtimeValue& oldTime,
                         const TtimeValue& newTime, double oldValue, double newValue, double oldW,
                         double newW, int moveOption)
    : TparamCurveDelta(curve),
      fOldTime(oldTime),
      fNewTime(newTime),
      fOldValue(oldValue),
      fNewValue(newValue),
      fOldW(oldW),
      fNewW(newW),
      fMoveOption(moveOption),
      fHandle(handle) {}

TPCDdragKey::~TPCDdragKey() {
  delete fHandle;
}

Tmetaclass* TPCDdragKey::typeof() const {
  return TPCDdragKeyTmeta;
}

void* TPCDdragKey::cast(Tmetaclass* record) {
  if (record && record == TPCDdragKeyTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDdragKey::setOldState(const TtimeValue& time, double value, double w) {
  fOldTime = time;
  fOldValue = value;
  fOldW = w;
}

void TPCDdragKey::undo() {
  apply(fOldTime, fOldValue, fOldW);
  setUndone(true);
}

void TPCDdragKey::redo() {
  apply(fNewTime, fNewValue, fNewW);
  setUndone(false);
}

void TPCDdragKey::apply(const TtimeValue& time, double value, double w) {
  if (!fCurve || !fHandle) return;
  const unsigned index = fHandle->index();
  // The handle may name a key of another curve, or one that is gone.
  if (index == kNoIndex || fCurve->keyframe(index) != fHandle->keyframe()) return;
  restoreKey(*fCurve, index, time, value, w);
}

// --- TPCDdragTan -------------------------------------------------------------------------

TPCDdragTan::TPCDdragTan(TparamCurve* curve, unsigned index, bool inSide, TtangentType oldType,
                         TtangentType newType, float oldX, float oldY, float newX, float newY)
    : TparamCurveDelta(curve),
      fInSide(inSide),
      fIndex(index),
      fOldType(oldType),
      fNewType(newType),
      fOldX(oldX),
      fNewX(newX),
      fOldY(oldY),
      fNewY(newY) {}

Tmetaclass* TPCDdragTan::typeof() const {
  return TPCDdragTanTmeta;
}

void* TPCDdragTan::cast(Tmetaclass* record) {
  if (record && record == TPCDdragTanTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDdragTan::undo() {
  apply(fOldType, fOldX, fOldY);
  setUndone(true);
}

void TPCDdragTan::redo() {
  apply(fNewType, fNewX, fNewY);
  setUndone(false);
}

void TPCDdragTan::apply(TtangentType type, float x, float y) {
  if (!fCurve || fIndex >= fCurve->keyframeCount()) return;
  // A fixed tangent that did not move needs no drag; any other change is
  // replayed as one, which also makes the side fixed for the moment.
  const bool unmoved = fOldType == kTangentFixed && fNewType == kTangentFixed &&
                       std::fabs(fOldX - fNewX) < kTangentTolerance &&
                       std::fabs(fOldY - fNewY) < kTangentTolerance;
  if (!unmoved) replayDrag(x, y);
  if (fOldType != fNewType) {
    fCurve->setTangentTypeHelper(fIndex, type, fInSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide);
  }
}

void TPCDdragTan::replayDrag(float x, float y) {
  Tkeyframe* key = fCurve->keyframe(fIndex);
  if (!key) return;
  if (!fCurve->dragTangent(fIndex, x, y, fInSide)) {
    // dragTangent refuses the in side of a key that starts a linear span, yet
    // a type change recorded there must still bring its vector back: the
    // same write and fixed type, without the refusal.
    if (!fInSide || key->interpMethod() != Tkeyframe::kSpanLinear) return;
    if (!fCurve->beginChange()) return;
    fCurve->setTanIn(key, x, y);
    fCurve->setTangentTypeHelper(fIndex, kTangentFixed, Tkeyframe::kInSide);
    fCurve->endChange(true);
  }
  // The recorded vectors were read from the key in their stored form, and
  // normalising a unit vector again can move its last bit; those bits
  // themselves go back.
  float storedX = 0.0f;
  float storedY = 0.0f;
  key->getTangent(fInSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide, storedX, storedY);
  const auto near = [](float stored, float recorded) {
    return std::fabs(stored - recorded) <=
           kRenormalisationSlack * std::fmax(1.0f, std::fabs(recorded));
  };
  if ((storedX == x && storedY == y) || !near(storedX, x) || !near(storedY, y)) return;
  if (fInSide) {
    key->setTanIn(x, y);
  } else {
    key->setTanOut(x, y);
  }
  fCurve->invalidateCache(static_cast<int>(fIndex));
}

// --- TPCDcurveDelta ----------------------------------------------------------------------

TPCDcurveDelta::TPCDcurveDelta(TparamCurve* curve) : TparamCurveDelta(curve) {
  if (!curve) return;
  const unsigned n = curve->physicalCount();
  fEntries.reserve(n);
  for (unsigned i = 0; i < n; ++i) {
    Tkeyframe* key = curve->keyframe(i);
    if (key) fEntries.push_back({key, std::make_unique<Tkeyframe>(*key)});
  }
  std::sort(fEntries.begin(), fEntries.end(), byKey);
}

TPCDcurveDelta::~TPCDcurveDelta() = default;

Tmetaclass* TPCDcurveDelta::typeof() const {
  return TPCDcurveDeltaTmeta;
}

void* TPCDcurveDelta::cast(Tmetaclass* record) {
  if (record && record == TPCDcurveDeltaTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDcurveDelta::undo() {
  if (!fSwapped) fSwapped = exchange();
  setUndone(true);
}

void TPCDcurveDelta::redo() {
  if (fSwapped) fSwapped = !exchange();
  setUndone(false);
}

bool TPCDcurveDelta::byKey(const Tentry& a, const Tentry& b) {
  return std::less<const Tkeyframe*>()(a.key, b.key);
}

bool TPCDcurveDelta::inSnapshot(const Tkeyframe* key) const {
  const Tentry probe{const_cast<Tkeyframe*>(key), nullptr};
  return std::binary_search(fEntries.begin(), fEntries.end(), probe, byKey);
}

bool TPCDcurveDelta::exchange() {
  if (!fCurve || !fCurve->keyArray()) return false;
  if (!fCurve->beginChange()) return false;

  std::vector<Tkeyframe*> present;
  const unsigned before = fCurve->physicalCount();
  for (unsigned i = 0; i < before; ++i) present.push_back(fCurve->keyframe(i));
  fCurve->removeAllKeys(/*recreate=*/true, /*deleteKeys=*/false);

  // Keys the snapshot does not know belong to the state being left; once
  // the array has forgotten them nobody else would delete them.
  for (Tkeyframe* key : present) {
    if (inSnapshot(key)) continue;
    fCurve->sendAddDeleteMessage(key, /*added=*/false);
    fCurve->notifyClientsOfChange(key, 1);
    delete key;
  }

  // Only saved keys that were in the curve go back: one held outside by
  // another record is that record's.
  std::sort(present.begin(), present.end(), std::less<Tkeyframe*>());
  for (Tentry& entry : fEntries) {
    if (!std::binary_search(present.begin(), present.end(), entry.key, std::less<Tkeyframe*>())) {
      continue;
    }
    swapStates(*entry.key, *entry.copy);
    if (fCurve->arrayInsert(entry.key, kNoIndex) < 0) {
      // Two saved keys at one time cannot both go back; the one refused
      // leaves the curve for good.
      fCurve->sendAddDeleteMessage(entry.key, /*added=*/false);
      delete entry.key;
      entry.key = nullptr;
    }
  }
  std::erase_if(fEntries, [](const Tentry& entry) { return entry.key == nullptr; });

  // The saved states carry their span methods and tangents; only the
  // curve's static flag, which removeAllKeys set, is derived again.
  const unsigned n = fCurve->physicalCount();
  for (unsigned i = 0; i < n; ++i) fCurve->checkStaticValueCondition(i);
  fCurve->invalidateCache(-1);
  for (unsigned i = 0; i < n; ++i) fCurve->notifyClientsOfChange(i, 2);
  fCurve->endChange(true);
  return true;
}

// --- TPCDweightedTangents ----------------------------------------------------------------

TPCDweightedTangents::TPCDweightedTangents(TparamCurve* curve, bool weighted)
    : TparamCurveDelta(curve), fWeighted(weighted) {}

Tmetaclass* TPCDweightedTangents::typeof() const {
  return TPCDweightedTangentsTmeta;
}

void* TPCDweightedTangents::cast(Tmetaclass* record) {
  if (record && record == TPCDweightedTangentsTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDweightedTangents::undo() {
  toggle();
  setUndone(true);
}

void TPCDweightedTangents::redo() {
  toggle();
  setUndone(false);
}

void TPCDweightedTangents::toggle() {
  if (!fCurve) return;
  const bool before = fCurve->isWeighted();
  fCurve->setIsWeighted(fWeighted);
  // A refused change leaves the saved state as it was.
  if (fCurve->isWeighted() != before) fWeighted = before;
}

// --- TPCDrotationInterpolation -----------------------------------------------------------

TPCDrotationInterpolation::TPCDrotationInterpolation(TparamCurve* curve,
                                                     TparamCurve::TrotationInterpolation oldMode,
                                                     TparamCurve::TrotationInterpolation newMode)
    : TparamCurveDelta(curve), fOldMode(oldMode), fNewMode(newMode) {}

Tmetaclass* TPCDrotationInterpolation::typeof() const {
  return TPCDrotationInterpolationTmeta;
}

void* TPCDrotationInterpolation::cast(Tmetaclass* record) {
  if (record && record == TPCDrotationInterpolationTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDrotationInterpolation::undo() {
  if (fCurve) fCurve->setRotationInterpolation(fOldMode);
  setUndone(true);
}

void TPCDrotationInterpolation::redo() {
  if (fCurve) fCurve->setRotationInterpolation(fNewMode);
  setUndone(false);
}

// --- Type records ------------------------------------------------------------------------

namespace {

constexpr std::size_t kRecordCount = 13;

// In creation order, parents first; stopping destroys them back to front.
internal::TmoduleStorage<Tmetaclass> sRecords[kRecordCount];
bool sStarted = false;

}  // namespace

namespace internal {

void startDeltaRecords() {
  if (sStarted) return;
  sStarted = true;
  struct TrecordRow {
    Tmetaclass** exported;
    const char* name;
    std::size_t size;
    TconstructFunction construct;  // only classes that need no curve have one
    Tmetaclass** parent;           // the parent's exported pointer; null for a root
  };
  const TrecordRow rows[kRecordCount] = {
      {&TdeltaTmeta, "Tdelta", sizeof(Tdelta), &constructInstance<Tdelta>, nullptr},
      {&TdeltaCompositeTmeta, "TdeltaComposite", sizeof(TdeltaComposite),
       &constructInstance<TdeltaComposite>, &TdeltaTmeta},
      {&TparamCurveDeltaTmeta, "TparamCurveDelta", sizeof(TparamCurveDelta), nullptr, &TdeltaTmeta},
      {&TPCDinfinityTypeTmeta, "TPCDinfinityType", sizeof(TPCDinfinityType), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDblockAddRemoveKeyTmeta, "TPCDblockAddRemoveKey", sizeof(TPCDblockAddRemoveKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDaddRemoveKeyTmeta, "TPCDaddRemoveKey", sizeof(TPCDaddRemoveKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDinsertKeyTmeta, "TPCDinsertKey", sizeof(TPCDinsertKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDdragKeyTmeta, "TPCDdragKey", sizeof(TPCDdragKey), nullptr, &TparamCurveDeltaTmeta},
      {&TPCDdragTanTmeta, "TPCDdragTan", sizeof(TPCDdragTan), nullptr, &TparamCurveDeltaTmeta},
      {&TPCDcurveDeltaTmeta, "TPCDcurveDelta", sizeof(TPCDcurveDelta), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDweightedTangentsTmeta, "TPCDweightedTangents", sizeof(TPCDweightedTangents), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDrotationInterpolationTmeta, "TPCDrotationInterpolation",
       sizeof(TPCDrotationInterpolation), nullptr, &TparamCurveDeltaTmeta},
      {&TparamCurveDeltaCompTmeta, "TparamCurveDeltaComp", sizeof(TparamCurveDeltaComp),
       &constructInstance<TparamCurveDeltaComp>, &TdeltaCompositeTmeta},
  };
  for (std::size_t i = 0; i < kRecordCount; ++i) {
    const TrecordRow& row = rows[i];
    sRecords[i].emplace(row.exported, row.name, row.size, row.construct,
                        row.parent ? *row.parent : nullptr);
  }
}

void stopDeltaRecords() {
  if (!sStarted) return;
  sStarted = false;
  for (auto record = std::rbegin(sRecords); record != std::rend(sRecords); ++record) {
    record->reset();
  }
}

}  // namespace internal

}  // namespace lumora

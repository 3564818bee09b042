// Curve deltas: the base class, the composites that gather them, and the
// type records of those.
#include "lumora/notify/param_curve_delta.h"

#include <cassert>
#include <cmath>

#include "lumora/curve/internal/key_array.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/curve_delta_access.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/delta_records.h"

namespace lumora {

Tmetaclass* TparamCurveDeltaTmeta = nullptr;
Tmetaclass* TparamCurveDeltaCompTmeta = nullptr;

namespace {

using Access = internal::TcurveDeltaAccess;

// Two drags chain when the second starts where the first ended, up to this
// difference in value.
constexpr double kDragValueTolerance = 1e-10;

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

bool TparamCurveDelta::beginReplay() {
  return fCurve != nullptr && Access::beginChange(*fCurve);
}

void TparamCurveDelta::endReplay(bool opened, bool after) {
  if (!opened) return;
  fKeyStates.restore(*fCurve, after);
  // The kind's own steps and the restore reported their changes themselves.
  Access::endChange(*fCurve, /*changed=*/false);
}

unsigned TparamCurveDelta::indexOfKey(const TparamCurve& curve, const Tkeyframe* key) {
  if (!key) return kNoIndex;
  unsigned index = 0;
  if (curve.find(curve.timeValue(key), index) && curve.keyframe(index) == key) return index;
  // A key whose time was overwritten in place may sit where a search does
  // not look.
  const unsigned n = Access::physicalCount(curve);
  for (unsigned i = 0; i < n; ++i) {
    if (curve.keyframe(i) == key) return i;
  }
  return kNoIndex;
}

bool TparamCurveDelta::detachKey(TparamCurve& curve, Tkeyframe* key, bool refreshNewFirst) {
  const unsigned index = indexOfKey(curve, key);
  if (index == kNoIndex) return false;
  if (!Access::beginChange(curve)) return false;
  assert(Access::keyArray(curve) && "a key found in the curve means it has key storage");
  Access::sendAddDeleteMessage(curve, key, /*added=*/false);
  Access::notifyClientsOfChange(curve, key, TparamCurveModifiedMsg::kKeyRemoved);
  Access::keyArray(curve)->removeKey(index);
  if (index > 0) {
    Access::setSpanInterpMethod(curve, index - 1);
    Access::modifyTangents(curve, index - 1);
  } else if (refreshNewFirst && curve.keyframeCount() > 0) {
    // The new first key has lost the previous neighbour it was computed with.
    Access::modifyTangents(curve, 0);
  }
  Access::invalidateCache(curve, static_cast<int>(index));
  if (curve.keyframeCount() == 0) curve.setStaticCurve(true);
  Access::endChange(curve, true);
  return true;
}

void TparamCurveDelta::restoreKey(TparamCurve& curve, unsigned index, const TtimeValue& time,
                                  double value, double w) {
  Tkeyframe* key = curve.keyframe(index);
  if (!key) return;
  if (!Access::beginChange(curve)) return;
  TkeyArray* array = Access::keyArray(curve);
  assert(array && "a key found in the curve means it has key storage");
  const TtimeValue before = curve.timeValue(key);
  unsigned now = index;
  if (!curve.setTime(index, time) && !array->keyOrderValid(index)) {
    // The key passed a neighbour: move the same object to its new place.
    array->removeKey(index);
    if (array->insertKey(key, now) != 0) {
      // Another key holds that time; the key keeps the time it had.
      key->setTime(before);
      if (array->insertKey(key, now) != 0) {
        now = index;
        array->putBack(key, index);
      }
    }
    Access::invalidateCache(curve, -1);
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
    Access::setSpanInterpMethod(curve, i);
    Access::modifyTangents(curve, i);
  }
  Access::endChange(curve, true);
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

// --- Type records ------------------------------------------------------------------------

namespace {

// Parents first; stopping destroys them back to front.
constinit internal::TrecordSet<4> sRecords;

}  // namespace

namespace internal {

void startDeltaRecords() {
  const TrecordRow rows[] = {
      {&TdeltaTmeta, "Tdelta", sizeof(Tdelta), &constructInstance<Tdelta>, nullptr},
      {&TdeltaCompositeTmeta, "TdeltaComposite", sizeof(TdeltaComposite),
       &constructInstance<TdeltaComposite>, &TdeltaTmeta},
      {&TparamCurveDeltaTmeta, "TparamCurveDelta", sizeof(TparamCurveDelta), nullptr, &TdeltaTmeta},
      {&TparamCurveDeltaCompTmeta, "TparamCurveDeltaComp", sizeof(TparamCurveDeltaComp),
       &constructInstance<TparamCurveDeltaComp>, &TdeltaCompositeTmeta},
  };
  sRecords.start(rows);
  startKeyDeltaRecords();
  startDragDeltaRecords();
  startSettingDeltaRecords();
}

void stopDeltaRecords() {
  stopSettingDeltaRecords();
  stopDragDeltaRecords();
  stopKeyDeltaRecords();
  sRecords.stop();
}

}  // namespace internal

}  // namespace lumora

// Undo records of curve-wide settings, and their type records.
#include "lumora/notify/setting_deltas.h"

#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/delta_records.h"

namespace lumora {

Tmetaclass* TPCDinfinityTypeTmeta = nullptr;
Tmetaclass* TPCDweightedTangentsTmeta = nullptr;
Tmetaclass* TPCDrotationInterpolationTmeta = nullptr;
Tmetaclass* TPCDbreakdownTmeta = nullptr;

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
  replay(/*after=*/false, [this] { toggle(); });
  setUndone(true);
}

void TPCDweightedTangents::redo() {
  replay(/*after=*/true, [this] { toggle(); });
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

// --- TPCDbreakdown ----------------------------------------------------------------------

TPCDbreakdown::TPCDbreakdown(TparamCurve* curve, unsigned index, bool breakdown)
    : TparamCurveDelta(curve), fBreakdown(breakdown), fIndex(index) {}

Tmetaclass* TPCDbreakdown::typeof() const {
  return TPCDbreakdownTmeta;
}

void* TPCDbreakdown::cast(Tmetaclass* record) {
  if (record && record == TPCDbreakdownTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDbreakdown::undo() {
  swap();
  setUndone(true);
}

void TPCDbreakdown::redo() {
  swap();
  setUndone(false);
}

void TPCDbreakdown::swap() {
  if (!fCurve || fIndex >= fCurve->keyframeCount()) return;
  const bool before = fCurve->breakdown(fIndex);
  // A refused change leaves the stored mark as it was.
  if (fCurve->setBreakdown(fIndex, fBreakdown) && fCurve->breakdown(fIndex) != before) {
    fBreakdown = before;
  }
}

// --- Type records ------------------------------------------------------------------------

namespace {

constinit internal::TrecordSet<4> sRecords;

}  // namespace

namespace internal {

void startSettingDeltaRecords() {
  const TrecordRow rows[] = {
      {&TPCDinfinityTypeTmeta, "TPCDinfinityType", sizeof(TPCDinfinityType), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDweightedTangentsTmeta, "TPCDweightedTangents", sizeof(TPCDweightedTangents), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDrotationInterpolationTmeta, "TPCDrotationInterpolation",
       sizeof(TPCDrotationInterpolation), nullptr, &TparamCurveDeltaTmeta},
      {&TPCDbreakdownTmeta, "TPCDbreakdown", sizeof(TPCDbreakdown), nullptr,
       &TparamCurveDeltaTmeta},
  };
  sRecords.start(rows);
}

void stopSettingDeltaRecords() {
  sRecords.stop();
}

}  // namespace internal

}  // namespace lumora

// TparamCurve: gathering undo deltas while the curve is in modification, and
// the settings whose only side effect besides the change is a delta.
#include "lumora/curve/param_curve.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/move_journal.h"
#include "lumora/notify/key_deltas.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/notify/setting_deltas.h"

namespace lumora {

namespace {

// Hands `delta` to `composite`: appended as it is when `atEnd`, otherwise
// offered for merging. A curve composite appended this way is flattened and
// then disposed of, since its children now belong to `composite`.
void gather(TparamCurveDeltaComp& composite, Tdelta* delta, bool atEnd) {
  if (!atEnd) {
    composite.merge(delta);
    return;
  }
  composite.addLast(delta);
  if (isDeltaOfType(delta, TparamCurveDeltaCompTmeta)) {
    TparamCurveDeltaComp::releaseFlattened(static_cast<TparamCurveDeltaComp*>(delta));
  }
}

}  // namespace

bool TparamCurve::addDelta(Tdelta* delta, bool atEnd) {
  // The caller keeps a delta that is not recorded.
  if (!delta || !isMod()) return atEnd;
  if (delta == fCurrentDelta) return true;
  if (fMoveJournal && !isDeltaOfType(delta, TPCDdragKeyTmeta)) {
    // Any other record ends the run of moves that one journal puts back as
    // a whole: that record is undone between the moves before it and the
    // moves after it, which keep states of their own.
    fMoveJournal->captureAfter();
    fMoveJournal.reset();
  }
  if (!fCurrentDelta) {
    fCurrentDelta = delta;
    return true;
  }
  if (isDeltaOfType(fCurrentDelta, TparamCurveDeltaCompTmeta)) {
    gather(*static_cast<TparamCurveDeltaComp*>(fCurrentDelta), delta, atEnd);
    return atEnd;
  }
  auto* composite = new TparamCurveDeltaComp;
  gather(*composite, fCurrentDelta, atEnd);
  gather(*composite, delta, atEnd);
  fCurrentDelta = composite;
  return true;
}

void TparamCurve::generateCurveDeltas() {
  if (!isMod()) return;
  addDelta(new TPCDcurveDelta(this), /*atEnd=*/false);
}

void TparamCurve::recordInfinityDelta(bool pre, TinfinityType oldType, TinfinityType newType) {
  if (!isMod()) return;
  addDelta(new TPCDinfinityType(this, pre, oldType, newType), /*atEnd=*/false);
}

void TparamCurve::recordWeightedDelta() {
  // Called before the flag changes: the delta keeps the state to go back to.
  if (!isMod()) return;
  addDelta(new TPCDweightedTangents(this, isWeighted()), /*atEnd=*/false);
}

void TparamCurve::setRotationInterpolation(TrotationInterpolation mode) {
  if (!isRotationInterpolationValid(mode) || fSendDepth != 0) return;
  if (isMod()) {
    addDelta(new TPCDrotationInterpolation(this, fRotationInterpolation, mode), /*atEnd=*/false);
  }
  fRotationInterpolation = mode;
  dirtyQuaternionEulerCache(-1);
  // Quaternion curves evaluate through their siblings: no loaded span stays trusted.
  invalidateCache(-1);
}

}  // namespace lumora

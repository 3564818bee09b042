// Undo records of key and tangent drags, and their type records.
#include "lumora/notify/drag_deltas.h"

#include <cmath>

#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/curve_delta_access.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/delta_records.h"
#include "lumora/notify/internal/move_journal.h"

namespace lumora {

Tmetaclass* TPCDdragKeyTmeta = nullptr;
Tmetaclass* TPCDdragSegmentTmeta = nullptr;
Tmetaclass* TPCDdragTanTmeta = nullptr;

namespace {

using Access = internal::TcurveDeltaAccess;

// Tangent coordinates closer than this count as unchanged.
constexpr float kTangentTolerance = 1e-5f;

// Relative difference up to which a tangent component written again through
// the evaluator is the same component, moved only by renormalising.
constexpr float kRenormalisationSlack = 1e-6f;

}  // namespace

// --- TPCDdragKey -------------------------------------------------------------------------

TPCDdragKey::TPCDdragKey(TparamCurve* curve, TkeyframeHandle* handle, const TtimeValue& oldTime,
                         const TtimeValue& newTime, double oldValue, double newValue, double oldW,
                         double newW, int moveOption, bool dictionaryMove)
    : TparamCurveDelta(curve),
      fOldTime(oldTime),
      fNewTime(newTime),
      fOldValue(oldValue),
      fNewValue(newValue),
      fOldW(oldW),
      fNewW(newW),
      fMoveOption(moveOption),
      fHandle(handle) {
  fDictionaryMove = dictionaryMove;
}

TPCDdragKey::~TPCDdragKey() {
  if (fJournal) fJournal->removeMember();
  delete fHandle;
}

void TPCDdragKey::setJournal(std::shared_ptr<internal::TmoveJournal> journal) {
  if (fJournal) fJournal->removeMember();
  fJournal = std::move(journal);
  if (fJournal) fJournal->addMember();
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

void TPCDdragKey::setNewState(const TtimeValue& time, double value, double w, int moveOption) {
  fNewTime = time;
  fNewValue = value;
  fNewW = w;
  fMoveOption = moveOption;
}

void TPCDdragKey::undo() {
  if (fJournal && fCurve) {
    fJournal->memberUndone();
  } else {
    replay(/*after=*/false, [this] { apply(fOldTime, fOldValue, fOldW); });
  }
  setUndone(true);
}

void TPCDdragKey::redo() {
  if (fJournal && fCurve) {
    fJournal->memberRedone();
  } else {
    replay(/*after=*/true, [this] { apply(fNewTime, fNewValue, fNewW); });
  }
  setUndone(false);
}

void TPCDdragKey::apply(const TtimeValue& time, double value, double w) {
  if (!fCurve || !fHandle) return;
  // The handle may name a key of another curve, or one that is gone.
  if (fHandle->paramCurve() != fCurve || fHandle->index() == kNoIndex) return;
  fCurve->moveForDeltaUndoRedo(fHandle, time, value, w,
                               static_cast<TparamCurve::TmoveOption>(fMoveOption));
}

// --- TPCDdragSegment ---------------------------------------------------------------------

TPCDdragSegment::TPCDdragSegment(TparamCurve* curve, TkeyframeHandlePtrArray handles,
                                 const TtimeValue& timeOffset, double valueOffset, int moveOption,
                                 bool moveBreakdowns)
    : TparamCurveDelta(curve),
      fHandles(std::move(handles)),
      fTimeOffset(timeOffset),
      fValueOffset(valueOffset),
      fMoveOption(moveOption),
      fMoveBreakdowns(moveBreakdowns) {}

TPCDdragSegment::~TPCDdragSegment() {
  for (unsigned i = 0; i < fHandles.count(); ++i) delete fHandles[i];
}

Tmetaclass* TPCDdragSegment::typeof() const {
  return TPCDdragSegmentTmeta;
}

void* TPCDdragSegment::cast(Tmetaclass* record) {
  if (record && record == TPCDdragSegmentTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDdragSegment::undo() {
  apply(/*forward=*/false);
  setUndone(true);
}

void TPCDdragSegment::redo() {
  apply(/*forward=*/true);
  setUndone(false);
}

void TPCDdragSegment::apply(bool forward) {
  if (!fCurve || fHandles.count() == 0) return;
  const TtimeValue offset = forward ? fTimeOffset : -fTimeOffset;
  Access::moveBlockForDeltaUndoRedo(
      *fCurve, fHandles, offset, forward ? fValueOffset : -fValueOffset,
      static_cast<TparamCurve::TmoveOption>(fMoveOption), fMoveBreakdowns);
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
  replay(/*after=*/false, [this] { apply(fOldType, fOldX, fOldY); });
  setUndone(true);
}

void TPCDdragTan::redo() {
  replay(/*after=*/true, [this] { apply(fNewType, fNewX, fNewY); });
  setUndone(false);
}

void TPCDdragTan::apply(TtangentType type, float x, float y) {
  if (!fCurve || fIndex >= fCurve->keyframeCount()) return;
  // A tangent that did not move under one type needs no drag (a drag would
  // leave the side fixed, and a type that was set again without changing
  // has no other type to go back to); any other change is replayed as one,
  // which also makes the side fixed for the moment.
  const bool unmoved = fOldType == fNewType && std::fabs(fOldX - fNewX) < kTangentTolerance &&
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
    if (!Access::beginChange(*fCurve)) return;
    Access::setTangent(*fCurve, key, Tkeyframe::kInSide, x, y);
    fCurve->setTangentTypeHelper(fIndex, kTangentFixed, Tkeyframe::kInSide);
    Access::endChange(*fCurve, true);
  }
  // The recorded vectors were read from the key in their stored form, and
  // normalising a unit vector again can move its last bit; those bits
  // themselves go back.
  const TpickKey::TpickBits side = fInSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  float storedX = 0.0f;
  float storedY = 0.0f;
  key->getTangent(side, storedX, storedY);
  const auto near = [](float stored, float recorded) {
    return std::fabs(stored - recorded) <=
           kRenormalisationSlack * std::fmax(1.0f, std::fabs(recorded));
  };
  if ((storedX == x && storedY == y) || !near(storedX, x) || !near(storedY, y)) return;
  key->setTangent(side, x, y);
  Access::invalidateCache(*fCurve, static_cast<int>(fIndex));
}

// --- Type records ------------------------------------------------------------------------

namespace {

constinit internal::TrecordSet<3> sRecords;

}  // namespace

namespace internal {

void startDragDeltaRecords() {
  const TrecordRow rows[] = {
      {&TPCDdragKeyTmeta, "TPCDdragKey", sizeof(TPCDdragKey), nullptr, &TparamCurveDeltaTmeta},
      {&TPCDdragSegmentTmeta, "TPCDdragSegment", sizeof(TPCDdragSegment), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDdragTanTmeta, "TPCDdragTan", sizeof(TPCDdragTan), nullptr, &TparamCurveDeltaTmeta},
  };
  sRecords.start(rows);
}

void stopDragDeltaRecords() {
  sRecords.stop();
}

}  // namespace internal

}  // namespace lumora

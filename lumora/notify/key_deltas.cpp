// Undo records of keys entering and leaving a curve, and their type records.
#include "lumora/notify/key_deltas.h"

#include <algorithm>
#include <cstdint>
#include <functional>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/notify/internal/curve_delta_access.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/delta_records.h"

namespace lumora {

Tmetaclass* TPCDblockAddRemoveKeyTmeta = nullptr;
Tmetaclass* TPCDaddRemoveKeyTmeta = nullptr;
Tmetaclass* TPCDinsertKeyTmeta = nullptr;
Tmetaclass* TPCDcurveDeltaTmeta = nullptr;

namespace {

using Access = internal::TcurveDeltaAccess;

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

}  // namespace

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
  if (Access::addRemovedKey(*fCurve, fKeyframe)) fKeyOut = false;
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
  if (!Access::replaceKey(*fCurve, fSubjectKey, *fKeyframe)) return false;
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
  if (i == kNoIndex || !Access::beginChange(*fCurve)) return;
  fIndex = i;
  swapNeighbours(i, i + 1);
  if (detachKey(*fCurve, fInserted, /*refreshNewFirst=*/true)) {
    fKeyOut = true;
  } else {
    swapNeighbours(i, i + 1);
  }
  Access::endChange(*fCurve, true);
}

void TPCDinsertKey::redo() {
  setUndone(false);
  if (!fCurve || !fKeyOut || !fInserted) return;
  unsigned i = 0;
  if (fCurve->find(fCurve->timeValue(fInserted), i)) return;  // the time is taken meanwhile
  if (!Access::beginChange(*fCurve)) return;
  fIndex = i;
  swapNeighbours(i, i);
  if (Access::addRemovedKey(*fCurve, fInserted)) {
    fKeyOut = false;
  } else {
    swapNeighbours(i, i);
  }
  Access::endChange(*fCurve, true);
}

void TPCDinsertKey::swapNeighbours(unsigned at, unsigned next) {
  // The previous neighbour sits just before `at`, the next one at `next`; a
  // neighbour is only exchanged with a copy of itself (same time word).
  const auto exchange = [this](Tkeyframe* key, Tkeyframe* copy, bool inSide) {
    if (!key || !copy || key->timeAsTicks() != copy->timeAsTicks()) return;
    swapStates(*key, *copy);
    const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
    float x = 0.0f;
    float y = 0.0f;
    if (key->tangentType(side) == kTangentFixed) {
      // Written again through the curve so that its caches follow. A unit
      // vector normalised again can move by its last bit, so the swapped-in
      // bits are put back afterwards.
      key->getTangent(side, x, y);
      Access::setTangent(*fCurve, key, side, x, y);
      key->setTangent(side, x, y);
    }
    Access::notifyClientsOfChange(*fCurve, key, TparamCurveModifiedMsg::kTangentChanged);
  };
  exchange(at > 0 ? fCurve->keyframe(at - 1) : nullptr, fPrevCopy, /*inSide=*/false);
  exchange(fCurve->keyframe(next), fNextCopy, /*inSide=*/true);
  Access::invalidateCache(*fCurve, -1);
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
  if (!Access::beginChange(*fCurve)) return;
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
  Access::endChange(*fCurve, changed);
}

// --- TPCDcurveDelta ----------------------------------------------------------------------

TPCDcurveDelta::TPCDcurveDelta(TparamCurve* curve) : TparamCurveDelta(curve) {
  if (!curve) return;
  const unsigned n = Access::physicalCount(*curve);
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
  if (!fCurve || !Access::keyArray(*fCurve)) return false;
  if (!Access::beginChange(*fCurve)) return false;

  std::vector<Tkeyframe*> present;
  const unsigned before = Access::physicalCount(*fCurve);
  for (unsigned i = 0; i < before; ++i) present.push_back(fCurve->keyframe(i));
  fCurve->removeAllKeys(/*recreate=*/true, /*deleteKeys=*/false);

  // Keys the snapshot does not know belong to the state being left; once
  // the array has forgotten them nobody else would delete them.
  for (Tkeyframe* key : present) {
    if (inSnapshot(key)) continue;
    Access::sendAddDeleteMessage(*fCurve, key, /*added=*/false);
    Access::notifyClientsOfChange(*fCurve, key, TparamCurveModifiedMsg::kKeyRemoved);
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
    if (Access::arrayInsert(*fCurve, entry.key, kNoIndex) < 0) {
      // Two saved keys at one time cannot both go back; the one refused
      // leaves the curve for good.
      Access::sendAddDeleteMessage(*fCurve, entry.key, /*added=*/false);
      delete entry.key;
      entry.key = nullptr;
    }
  }
  std::erase_if(fEntries, [](const Tentry& entry) { return entry.key == nullptr; });

  // The saved states carry their span methods and tangents; only the
  // curve's static flag, which removeAllKeys set, is derived again.
  const unsigned n = Access::physicalCount(*fCurve);
  for (unsigned i = 0; i < n; ++i) Access::checkStaticValueCondition(*fCurve, i);
  Access::invalidateCache(*fCurve, -1);
  for (unsigned i = 0; i < n; ++i)
    Access::notifyClientsOfChange(*fCurve, i, TparamCurveModifiedMsg::kKeyChanged);
  Access::endChange(*fCurve, true);
  return true;
}

// --- Type records ------------------------------------------------------------------------

namespace {

constinit internal::TrecordSet<4> sRecords;

}  // namespace

namespace internal {

void startKeyDeltaRecords() {
  const TrecordRow rows[] = {
      {&TPCDblockAddRemoveKeyTmeta, "TPCDblockAddRemoveKey", sizeof(TPCDblockAddRemoveKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDaddRemoveKeyTmeta, "TPCDaddRemoveKey", sizeof(TPCDaddRemoveKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDinsertKeyTmeta, "TPCDinsertKey", sizeof(TPCDinsertKey), nullptr,
       &TparamCurveDeltaTmeta},
      {&TPCDcurveDeltaTmeta, "TPCDcurveDelta", sizeof(TPCDcurveDelta), nullptr,
       &TparamCurveDeltaTmeta},
  };
  sRecords.start(rows);
}

void stopKeyDeltaRecords() {
  sRecords.stop();
}

}  // namespace internal

}  // namespace lumora

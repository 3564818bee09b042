// Undo records of keys entering and leaving a curve, and their type records.
#include "lumora/notify/key_deltas.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <unordered_set>

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
  const Tkeyframe* held = operation == kKeyReplaced ? subject : keyframe;
  if (curve && held && operation != kKeyRemoved) fKeyTime = curve->timeValue(held);
}

TPCDaddRemoveKey::~TPCDaddRemoveKey() {
  if (fOperation == kKeyReplaced || fKeyOut) delete fKeyframe.get();
}

Tmetaclass* TPCDaddRemoveKey::typeof() const {
  return TPCDaddRemoveKeyTmeta;
}

void* TPCDaddRemoveKey::cast(Tmetaclass* record) {
  if (record && record == TPCDaddRemoveKeyTmeta) return this;
  return TparamCurveDelta::cast(record);
}

void TPCDaddRemoveKey::undo() {
  replay(/*after=*/false, [this] {
    if (fCurve) {
      if (fOperation == kKeyAdded) takeOut();
      if (fOperation == kKeyRemoved) putBack();
      if (fOperation == kKeyReplaced && !fStateSwapped) fStateSwapped = swapState();
    }
  });
  setUndone(true);
}

void TPCDaddRemoveKey::redo() {
  replay(/*after=*/true, [this] {
    if (fCurve) {
      if (fOperation == kKeyAdded) putBack();
      if (fOperation == kKeyRemoved) takeOut();
      if (fOperation == kKeyReplaced && fStateSwapped) fStateSwapped = !swapState();
    }
  });
  setUndone(false);
}

void TPCDaddRemoveKey::putBack() {
  if (!fKeyOut || !fKeyframe.get()) return;
  // The same object goes back, so handles to it become valid again.
  if (Access::addRemovedKey(*fCurve, fKeyframe.get())) fKeyOut = false;
}

void TPCDaddRemoveKey::takeOut() {
  if (fKeyOut) return;
  Tkeyframe* key = fOperation == kKeyAdded ? keyOrKeyAtTime(fKeyframe) : fKeyframe.get();
  if (detachKey(*fCurve, key, /*refreshNewFirst=*/true)) fKeyOut = true;
}

Tkeyframe* TPCDaddRemoveKey::keyOrKeyAtTime(TkeyPointer& key) const {
  if (key.get() || fKeyTime.isNeither()) return key.get();
  unsigned index = 0;
  if (!fCurve->find(fKeyTime, index)) return nullptr;
  key = fCurve->keyframe(index);
  return key.get();
}

bool TPCDaddRemoveKey::swapState() {
  Tkeyframe* subject = keyOrKeyAtTime(fSubjectKey);
  Tkeyframe* saved = fKeyframe.get();
  if (!saved || !subject || indexOfKey(*fCurve, subject) == kNoIndex) return false;
  const Tkeyframe replaced(*subject);
  if (!Access::replaceKey(*fCurve, subject, *saved)) return false;
  *saved = replaced;
  return true;
}

// --- TPCDinsertKey -----------------------------------------------------------------------

TPCDinsertKey::TPCDinsertKey(TparamCurve* curve, Tkeyframe* inserted, Tkeyframe* prevCopy,
                             Tkeyframe* nextCopy, unsigned index)
    : TparamCurveDelta(curve),
      fInserted(inserted),
      fInsertedTime(curve && inserted ? curve->timeValue(inserted) : TtimeValue()),
      fPrevCopy(prevCopy),
      fNextCopy(nextCopy),
      fIndex(index) {}

TPCDinsertKey::~TPCDinsertKey() {
  delete fPrevCopy;
  delete fNextCopy;
  if (fKeyOut) delete fInserted.get();
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
  unsigned at = 0;
  if (!fInserted.get() && !fInsertedTime.isNeither() && fCurve->find(fInsertedTime, at)) {
    // Deleted behind this record's back: the key now at its time stands in.
    fInserted = fCurve->keyframe(at);
  }
  const unsigned i = indexOfKey(*fCurve, fInserted.get());
  if (i == kNoIndex || !beginReplay()) return;
  fIndex = i;
  swapNeighbours(i, i + 1);
  if (detachKey(*fCurve, fInserted.get(), /*refreshNewFirst=*/true)) {
    fKeyOut = true;
  } else {
    swapNeighbours(i, i + 1);
  }
  endReplay(/*opened=*/true, /*after=*/false);
}

void TPCDinsertKey::redo() {
  setUndone(false);
  if (!fCurve || !fKeyOut || !fInserted.get()) return;
  unsigned i = 0;
  // The time is taken meanwhile.
  if (fCurve->find(fCurve->timeValue(fInserted.get()), i)) return;
  if (!beginReplay()) return;
  fIndex = i;
  swapNeighbours(i, i);
  if (Access::addRemovedKey(*fCurve, fInserted.get())) {
    fKeyOut = false;
  } else {
    swapNeighbours(i, i);
  }
  endReplay(/*opened=*/true, /*after=*/true);
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

// One saved key: the object (watched, so that its deletion is noticed), its
// saved state, and whether this delta holds the object outside the curve.
class TPCDcurveDelta::Tentry final : public TkeyWatch {
 public:
  Tentry(Tkeyframe* key, bool held) : state(*key), held(held) { watch(key); }
  ~Tentry() override {
    if (held) delete watchedKey();
  }
  Tkeyframe* key() const { return watchedKey(); }

  Tkeyframe state;
  bool held;

 private:
  void keyDeleted(Tkeyframe* /*key*/) override { held = false; }
};

TPCDcurveDelta::TPCDcurveDelta(TparamCurve* curve) : TparamCurveDelta(curve) {
  if (!curve) return;
  const unsigned n = Access::physicalCount(*curve);
  fEntries.reserve(n);
  for (unsigned i = 0; i < n; ++i) {
    if (Tkeyframe* key = curve->keyframe(i))
      fEntries.push_back(std::make_unique<Tentry>(key, false));
  }
  fStatic = curve->staticCurve();
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

bool TPCDcurveDelta::exchange() {
  if (!fCurve || !Access::keyArray(*fCurve)) return false;
  if (!Access::beginChange(*fCurve)) return false;
  using Tmsg = TparamCurveModifiedMsg;

  // The state being left, as the next exchange will bring it back.
  const bool leavingStatic = fCurve->staticCurve();
  std::vector<std::unique_ptr<Tentry>> leaving;
  const unsigned count = Access::physicalCount(*fCurve);
  leaving.reserve(count);
  std::unordered_set<const Tkeyframe*> saved;
  for (const auto& entry : fEntries) {
    if (entry->key()) saved.insert(entry->key());
  }
  for (unsigned i = 0; i < count; ++i) {
    Tkeyframe* key = fCurve->keyframe(i);
    // A key the saved state does not know leaves the curve and is held here.
    if (key) leaving.push_back(std::make_unique<Tentry>(key, !saved.contains(key)));
  }
  fCurve->removeAllKeys(/*recreate=*/true, /*deleteKeys=*/false);
  for (const auto& entry : leaving) {
    if (!entry->held) continue;
    Access::sendAddDeleteMessage(*fCurve, entry->key(), /*added=*/false);
    Access::notifyClientsOfChange(*fCurve, entry->key(), Tmsg::kKeyRemoved);
  }

  std::unordered_set<const Tkeyframe*> present;
  for (const auto& entry : leaving) present.insert(entry->key());
  for (auto& entry : fEntries) {
    Tkeyframe* key = entry->key();
    const bool wasHeld = entry->held;
    if (!key) {
      // Deleted since it was saved: the state comes back in a new object.
      key = new Tkeyframe(entry->state);
    } else if (wasHeld) {
      entry->held = false;
    } else if (present.contains(key)) {
      // Assignment keeps the key's own selection; the cache pointer is not
      // state either.
      float* cache = key->getQuaternionEulerCache();
      *key = entry->state;
      key->setQuaternionEulerCache(cache);
    } else {
      continue;  // alive outside the curve: another record's
    }
    if (Access::arrayInsert(*fCurve, key, kNoIndex) < 0) {
      // Only a curve changed behind the records' backs can refuse a saved
      // key; the key then stays out, with whoever held it.
      if (!entry->key()) delete key;
      if (wasHeld) entry->held = true;
      continue;
    }
    // Every key that goes back left the array for a moment, and handles
    // heard so; a key that was not in the curve is also announced as added.
    Access::sendAddDeleteMessage(*fCurve, key, /*added=*/true);
    if (!present.contains(key)) Access::notifyClientsOfChange(*fCurve, key, Tmsg::kKeyAdded);
  }
  fEntries = std::move(leaving);

  fCurve->setStaticCurve(fStatic);
  fStatic = leavingStatic;
  Access::invalidateCache(*fCurve, -1);
  const unsigned n = Access::physicalCount(*fCurve);
  for (unsigned i = 0; i < n; ++i) Access::notifyClientsOfChange(*fCurve, i, Tmsg::kKeyChanged);
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

// Breakdown keys: their records, the curve's cache of them, and the
// breakdown mark itself.
#include "lumora/edit/breakdown.h"

#include "lumora/curve/param_curve.h"
#include "lumora/edit/internal/breakdown_cache.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/setting_deltas.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora {

namespace {

constexpr unsigned kNone = TparamCurve::kInvalidIndex;

TkeyframeHandle* handleOf(const TparamCurve* curve, unsigned index) {
  if (index == kNone) return nullptr;
  return new TkeyframeHandle(const_cast<TparamCurve*>(curve), index, /*makeClient=*/false);
}

// The key a handle names when it is in `curve`, with its index.
Tkeyframe* liveKey(const TparamCurve& curve, const TkeyframeHandle* handle, unsigned& index) {
  if (!handle || handle->paramCurve() != &curve) return nullptr;
  index = handle->index();
  return index == TparamCurve::kInvalidIndex ? nullptr : curve.keyframe(index);
}

}  // namespace

// --- TbreakdownData ----------------------------------------------------------------------

TbreakdownData::TbreakdownData(const TparamCurve* curve, unsigned prevIndex, unsigned keyIndex,
                               unsigned nextIndex) {
  if (!curve) return;
  const Tkeyframe* key = curve->keyframe(keyIndex);
  if (!key) return;
  fKey = handleOf(curve, keyIndex);
  fPrevious = curve->keyframe(prevIndex) ? handleOf(curve, prevIndex) : nullptr;
  fNext = curve->keyframe(nextIndex) ? handleOf(curve, nextIndex) : nullptr;
  fSavedKey = new Tkeyframe(*key);
  const float t = curve->seconds(key);
  if (fPrevious && fNext) {
    const float previous = curve->seconds(prevIndex);
    // The distance to the previous key is rounded to single precision
    // before the division, so the proportion is the one a float time
    // line shows.
    const auto numerator = static_cast<float>(static_cast<double>(t) - previous);
    fRatio = numerator / (curve->seconds(nextIndex) - previous);
  } else if (fPrevious) {
    fRatio = t - curve->seconds(prevIndex);
  } else if (fNext) {
    fRatio = t - curve->seconds(nextIndex);
  }
}

TbreakdownData::~TbreakdownData() {
  delete fKey;
  delete fPrevious;
  delete fNext;
  delete fSavedKey;
}

float TbreakdownData::desiredSeconds(float prevSeconds, float nextSeconds, float ownSeconds) const {
  const double ratio = fRatio;
  if (fPrevious && fNext) {
    return static_cast<float>(prevSeconds +
                              (static_cast<double>(nextSeconds) - prevSeconds) * ratio);
  }
  if (fPrevious) return static_cast<float>(prevSeconds + ratio);
  if (fNext) return static_cast<float>(nextSeconds + ratio);
  return ownSeconds;
}

TtimeValue TbreakdownData::getDesiredTime(const TparamCurve* curve) const {
  if (!curve || !fKey || !fKey->keyframe()) return {};
  if (!fPrevious && !fNext) return fKey->timeValue();
  const float seconds = desiredSeconds(fPrevious ? fPrevious->seconds() : 0.0f,
                                       fNext ? fNext->seconds() : 0.0f, fKey->seconds());
  return curve->makeTimeValue(seconds);
}

// --- The cache -----------------------------------------------------------------------------

namespace internal {

void TbreakdownCache::append(TbreakdownData* record) {
  if (!record) return;
  fRecords.emplace_back(record);
  const Tkeyframe* key = record->keyHandle() ? record->keyHandle()->keyframe() : nullptr;
  if (key) fByKey.emplace(key, static_cast<int>(fRecords.size() - 1));
}

int TbreakdownCache::find(const Tkeyframe* key) const {
  if (!key) return -1;
  const auto it = fByKey.find(key);
  if (it == fByKey.end()) return -1;
  // A record whose key object was deleted names nothing, even if a new key
  // took the same address since.
  const TbreakdownData* record = fRecords[static_cast<std::size_t>(it->second)].get();
  return record->keyHandle() && record->keyHandle()->keyframe() == key ? it->second : -1;
}

}  // namespace internal

// --- TparamCurve -----------------------------------------------------------------------------

bool TparamCurve::breakdown(unsigned index) const {
  const Tkeyframe* key = keyframe(index);
  return key && key->breakdown();
}

bool TparamCurve::setBreakdown(unsigned index, bool on) {
  Tkeyframe* key = keyframe(index);
  if (!key) return false;
  if (key->breakdown() == on) return true;
  if (!beginChange()) return false;
  if (isMod()) addDelta(new TPCDbreakdown(this, index, key->breakdown()), false);
  key->setBreakdown(on);
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kKeyChanged);
  endChange(true);
  return true;
}

TbreakdownData* TparamCurve::getBreakdownData(unsigned index) const {
  const unsigned n = physicalCount();
  const Tkeyframe* key = keyframe(index);
  if (!key || !key->breakdown()) return nullptr;
  unsigned previous = kNone;
  for (unsigned i = index; i-- > 0;) {
    if (!keyframe(i)->breakdown()) {
      previous = i;
      break;
    }
  }
  unsigned next = kNone;
  for (unsigned i = index + 1; i < n; ++i) {
    if (!keyframe(i)->breakdown()) {
      next = i;
      break;
    }
  }
  if (previous == kNone && next == kNone) return nullptr;
  return new TbreakdownData(this, previous, index, next);
}

int TparamCurve::findBreakdownData(unsigned index) const {
  const Tkeyframe* key = keyframe(index);
  if (!fBreakdownCache || !key || !key->breakdown()) return -1;
  return fBreakdownCache->find(key);
}

void TparamCurve::addBreakdownData(const TkeyframeHandle* handle) {
  unsigned index = 0;
  const Tkeyframe* key = liveKey(*this, handle, index);
  if (!key || key->breakdown()) return;
  const auto record = [this](unsigned i) {
    if (findBreakdownData(i) != -1) return;
    if (!fBreakdownCache) fBreakdownCache = new internal::TbreakdownCache;
    fBreakdownCache->append(getBreakdownData(i));
  };
  // The breakdown keys just before it, back to the previous ordinary key.
  unsigned start = index;
  while (start > 0 && keyframe(start - 1)->breakdown()) --start;
  for (unsigned i = start; i < index; ++i) record(i);
  // And those just after it, up to the next ordinary key.
  const unsigned n = physicalCount();
  for (unsigned i = index + 1; i < n && keyframe(i)->breakdown(); ++i) record(i);
}

void TparamCurve::getAffectedBreakdowns(const TkeyframeHandlePtrArray& handles) {
  for (unsigned i = 0; i < handles.count(); ++i) addBreakdownData(handles[i]);
}

void TparamCurve::getAffectedBreakdowns(const TpickKeyDictionary& picks) {
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    if ((pick.flags().bits() & TpickKey::kPickKey) == 0) continue;
    addBreakdownData(pick.handle());
  }
}

void TparamCurve::applyBreakdownCache() {
  if (!fBreakdownCache || fSendDepth != 0) return;
  unsigned previousIndex = kNone;
  for (unsigned r = 0; r < fBreakdownCache->count(); ++r) {
    const TbreakdownData* record = fBreakdownCache->at(r);
    unsigned index = kNone;
    Tkeyframe* key = liveKey(*this, record->keyHandle(), index);
    if (!key) continue;
    const TtimeValue desired = record->getDesiredTime(this);
    if (desired.isNeither() || timeValue(key) == desired) continue;
    // Records are made in time order, so the next one is usually the key
    // right after the one placed last.
    if (previousIndex != kNone && keyframe(previousIndex + 1) == key) index = previousIndex + 1;
    if (moveKeyframe(index, desired, key->value(), kMovePass, /*recordUndo=*/true)) {
      previousIndex = record->keyHandle()->index();
    }
  }
}

void TparamCurve::flushBreakdownCache() {
  delete fBreakdownCache;
  fBreakdownCache = nullptr;
}

unsigned TparamCurve::breakdownCacheCount() const {
  return fBreakdownCache ? fBreakdownCache->count() : 0;
}

const TbreakdownData* TparamCurve::breakdownCacheEntry(unsigned position) const {
  return fBreakdownCache ? fBreakdownCache->at(position) : nullptr;
}

}  // namespace lumora

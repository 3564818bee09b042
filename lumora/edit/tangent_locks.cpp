// TparamCurve: the tangent and weight locks of keys.
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/key_states_delta.h"
#include "lumora/notify/key_states.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora {

void TparamCurve::setKeyLock(unsigned index, bool locked, bool weights) {
  Tkeyframe* key = keyframe(index);
  if (!key || (weights ? key->weightsLocked() : key->tangentsLocked()) == locked) return;
  // A lock is part of the key's state that undo gives back, though no record
  // kind describes it: the key's states before and after are recorded.
  TkeyStatesRecorder states(*this, index, /*reach=*/0);
  if (weights) {
    key->setWeightsLocked(locked);
  } else {
    key->setTangentsLocked(locked);
  }
  if (isMod()) addDelta(new internal::TkeyStatesDelta(this), false);
  notifyClientsOfChange(key, TparamCurveModifiedMsg::kTangentChanged);
  states.finish(index, /*reach=*/0);
}

bool TparamCurve::setPickedLocks(const TpickKeyDictionary& picks, bool locked, bool weights) {
  if (!beginChange()) return false;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TkeyframeHandle* handle = n->data().handle();
    if (!handle || handle->paramCurve() != this || !handle->keyframe()) continue;
    const unsigned index = handle->index();
    if (keyframe(index) == handle->keyframe()) setKeyLock(index, locked, weights);
  }
  endChange(true);
  return true;
}

void TparamCurve::setTangentsLocked(unsigned index, bool locked) {
  if (!keyframe(index) || !beginChange()) return;
  setKeyLock(index, locked, /*weights=*/false);
  endChange(true);
}

bool TparamCurve::tangentsLocked(unsigned index) const {
  const Tkeyframe* key = keyframe(index);
  return key && key->tangentsLocked();
}

bool TparamCurve::setTangentLockedStatus(const TpickKeyDictionary& picks, bool locked) {
  return setPickedLocks(picks, locked, /*weights=*/false);
}

void TparamCurve::setWeightsLocked(unsigned index, bool locked) {
  if (!keyframe(index) || !beginChange()) return;
  setKeyLock(index, locked, /*weights=*/true);
  endChange(true);
}

bool TparamCurve::weightsLocked(unsigned index) const {
  const Tkeyframe* key = keyframe(index);
  return key && key->weightsLocked();
}

bool TparamCurve::setWeightLockedStatus(const TpickKeyDictionary& picks, bool locked) {
  return setPickedLocks(picks, locked, /*weights=*/true);
}

}  // namespace lumora

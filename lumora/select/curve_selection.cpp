// Selection state of a curve's keys, copied in from a selection.
//
// The active flags of keys are what a graph editor draws as selected; the
// selection itself lives in pick-key dictionaries owned by the host.
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora {

void TparamCurve::setActive(const TpickKeyDictionary& picks, bool active) {
  if (keyframeCount() == 0 || !beginChange()) return;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const TkeyframeHandle* handle = pick.handle();
    if (handle == nullptr || handle->paramCurve() != this) continue;
    // index() finds the key object itself in the curve: a key that an undo
    // record holds, or one deleted since, has none, and its flags are not
    // this curve's business.
    Tkeyframe* key = handle->keyframe();
    if (key == nullptr || handle->index() == kInvalidIndex) continue;
    key->setActive(pick.flags(), active);
  }
  // Selection is not undoable and draws nothing per key, so keys send no
  // message of their own; the changed-curves message tells global clients
  // to redraw once.
  endChange(true);
}

}  // namespace lumora

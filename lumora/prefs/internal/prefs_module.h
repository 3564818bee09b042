// Module start and stop of the preference subsystem.
#pragma once

namespace lumora {
class TpreferenceItem;
class TprefKeyframe;
}  // namespace lumora

namespace lumora::internal {

/// Creates the TprefKeyframe record and registers the init basket that puts a
/// keyframe preference item into the global manager.
void startPrefsModule();
/// Unregisters the init basket and destroys the record.
void stopPrefsModule();

/// `item` as a keyframe preference item, or null when it is not one. Keys ask
/// this for every key made with a default tangent type, so the answer for the
/// last item checked is remembered (and forgotten when that item dies).
TprefKeyframe* asKeyframePreference(TpreferenceItem* item);

/// The keyframe preference item (number 201) of the global manager, or null
/// when there is none or it is not of that class.
TprefKeyframe* keyframePreference();

}  // namespace lumora::internal

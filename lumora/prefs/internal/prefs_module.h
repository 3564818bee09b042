// Module start and stop of the preference subsystem.
#pragma once

namespace lumora::internal {

/// Creates the TprefKeyframe record and registers the init basket that puts a
/// keyframe preference item into the global manager.
void startPrefsModule();
/// Unregisters the init basket and destroys the record.
void stopPrefsModule();

}  // namespace lumora::internal

// Module start and stop of the notification subsystem, and its test hooks.
#pragma once

namespace lumora {
class TparamCurveMsgDepot;
}

namespace lumora::internal {

/// Creates the five message type records (after the base records they derive
/// from) and the global message depot, and resets the module-wide flags.
/// Calling it again while started changes nothing.
void startNotifyModule();
/// Destroys the depot and then the message records, in reverse order of
/// creation. Clients still registered with the depot hear TserverDeletedMsg.
void stopNotifyModule();
/// The depot, or null outside the module's lifetime.
TparamCurveMsgDepot* msgDepot();

/// Puts the module-wide change-scope flags back to their start values.
void resetChangeScopeFlags();
/// Whether per-curve modified messages are silenced. The library never sets
/// this; it is a hook kept for hosts built against it and for tests.
bool messagesSilenced();
void setMessagesSilenced(bool silenced);
/// True once the first per-curve message of the current outermost change
/// scope has told the helpers to stop model updates.
bool modelUpdatesDisabled();

}  // namespace lumora::internal

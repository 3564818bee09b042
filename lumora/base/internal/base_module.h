// Start and stop of the base services' type records.
//
// The module's start-up code calls startBaseRecords() before anything uses a
// message, server, client or preference record, and stopBaseRecords() at exit:
//
//   startBaseRecords();    // TserverMsgTmeta and the others now non-null
//   ...
//   stopBaseRecords();     // all null again
//
// Records are created parents first and destroyed in the reverse order. They
// live in static storage, so a record restarted after a stop has its old
// address again. Calling start twice, or stop without start, does nothing.
#pragma once

namespace lumora {

/// Creates the records of TserverMsg, TserverModifiedMsg, TserverDeletedMsg,
/// TclientServer, Tclient, TpreferenceItem and Tbasket and publishes them
/// through their exported pointers.
void startBaseRecords();
/// Destroys those records; their exported pointers become null.
void stopBaseRecords();

}  // namespace lumora

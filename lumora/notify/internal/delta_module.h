// Module start and stop of the undo records' type records.
//
//   startDeltaRecords();   // TdeltaTmeta, TPCDdragKeyTmeta, ... now non-null
//   ...
//   stopDeltaRecords();    // all null again
//
// Records are created parents first and destroyed in the reverse order.
// Calling start twice, or stop without start, does nothing.
#pragma once

namespace lumora::internal {

/// Creates the thirteen records of Tdelta, TdeltaComposite, TparamCurveDelta,
/// the nine curve delta kinds and TparamCurveDeltaComp, and publishes them
/// through their exported pointers.
void startDeltaRecords();
/// Destroys those records; their exported pointers become null.
void stopDeltaRecords();

}  // namespace lumora::internal

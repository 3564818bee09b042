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

/// Creates the fifteen records of Tdelta, TdeltaComposite, TparamCurveDelta,
/// TparamCurveDeltaComp and the eleven curve delta kinds, and publishes them
/// through their exported pointers: the base records first, then each family
/// below in the order listed.
void startDeltaRecords();
/// Destroys those records, families first, in the reverse order; their
/// exported pointers become null.
void stopDeltaRecords();

// Each family of kinds registers the records of its own classes beside them
// (key_deltas.cpp, drag_deltas.cpp, setting_deltas.cpp). The base records
// must exist when a family starts.
void startKeyDeltaRecords();
void stopKeyDeltaRecords();
void startDragDeltaRecords();
void stopDragDeltaRecords();
void startSettingDeltaRecords();
void stopSettingDeltaRecords();

}  // namespace lumora::internal

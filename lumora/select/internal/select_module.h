// Module start and stop of the selection classes' type records.
//
//   startSelectRecords();   // TpickKeyDictionaryNodeTmeta, TpickKeyDictionaryTmeta set
//   ...
//   stopSelectRecords();    // both null again
//
// The records have no parent record, so they may start at any point after
// the base records. Calling start twice, or stop without start, does nothing.
#pragma once

namespace lumora::internal {

void startSelectRecords();
void stopSelectRecords();

}  // namespace lumora::internal

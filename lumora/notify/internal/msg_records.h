// Type records of the messages that only the library itself sends and hears.
//
// Key handles register with their curve for TkeyframeAddDeleteMsg through
// this record; hosts are not meant to, so the record is not exported.
#pragma once

#include "lumora/base/metaclass.h"

namespace lumora {

/// Record of TkeyframeAddDeleteMsg; null while the module is stopped.
extern Tmetaclass* TkeyframeAddDeleteMsgTmeta;
/// Record of TkeyframeMovedMsg; null while the module is stopped.
extern Tmetaclass* TkeyframeMovedMsgTmeta;

}  // namespace lumora

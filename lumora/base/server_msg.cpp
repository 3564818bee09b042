#include "lumora/base/server_msg.h"

namespace lumora {

Tmetaclass* TserverMsgTmeta = nullptr;
Tmetaclass* TserverModifiedMsgTmeta = nullptr;
Tmetaclass* TserverDeletedMsgTmeta = nullptr;

// --- TserverMsg ---------------------------------------------------------------

Tmetaclass* TserverMsg::typeof() const {
  return TserverMsgTmeta;
}

void* TserverMsg::cast(Tmetaclass* record) {
  if (record == nullptr || record != TserverMsgTmeta) return nullptr;
  return this;
}

TserverMsg::~TserverMsg() = default;

bool TserverMsg::merge(const TserverMsg& /*other*/) {
  return false;
}

void TserverMsg::copy(const TserverMsg& /*other*/) {}

TserverMsg* TserverMsg::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TserverMsgTmeta)) return nullptr;
  return static_cast<TserverMsg*>(record->construct(TserverMsgTmeta));
}

// --- TserverModifiedMsg -------------------------------------------------------

Tmetaclass* TserverModifiedMsg::typeof() const {
  return TserverModifiedMsgTmeta;
}

void* TserverModifiedMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TserverModifiedMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TserverModifiedMsg* TserverModifiedMsg::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TserverModifiedMsgTmeta)) return nullptr;
  return static_cast<TserverModifiedMsg*>(record->construct(TserverModifiedMsgTmeta));
}

// --- TserverDeletedMsg --------------------------------------------------------

Tmetaclass* TserverDeletedMsg::typeof() const {
  return TserverDeletedMsgTmeta;
}

void* TserverDeletedMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TserverDeletedMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TserverDeletedMsg* TserverDeletedMsg::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TserverDeletedMsgTmeta)) return nullptr;
  return static_cast<TserverDeletedMsg*>(record->construct(TserverDeletedMsgTmeta));
}

}  // namespace lumora

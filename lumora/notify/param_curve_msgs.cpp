#include "lumora/notify/param_curve_msgs.h"

#include "lumora/notify/internal/msg_records.h"

namespace lumora {

// The records are made and destroyed by the notify module (msg_depot.cpp).
Tmetaclass* TparamCurveModifiedMsgTmeta = nullptr;
Tmetaclass* TparamCurveChangedMsgTmeta = nullptr;
Tmetaclass* TparamCurveHelperMsgTmeta = nullptr;
Tmetaclass* TkeyframeAddDeleteMsgTmeta = nullptr;
Tmetaclass* TkeyframeMovedMsgTmeta = nullptr;

namespace {

// The shared shape of every construct(): only records of the class (or
// derived from it) are asked, and they are asked for this class's part.
template <class T>
T* constructFrom(Tmetaclass* record, Tmetaclass* own) {
  if (record == nullptr || !record->istype(own)) return nullptr;
  return static_cast<T*>(record->construct(own));
}

}  // namespace

// --- TparamCurveModifiedMsg ----------------------------------------------------

Tmetaclass* TparamCurveModifiedMsg::typeof() const {
  return TparamCurveModifiedMsgTmeta;
}

void* TparamCurveModifiedMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TparamCurveModifiedMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TparamCurveModifiedMsg* TparamCurveModifiedMsg::construct(Tmetaclass* record) {
  return constructFrom<TparamCurveModifiedMsg>(record, TparamCurveModifiedMsgTmeta);
}

// --- TparamCurveChangedMsg -----------------------------------------------------

Tmetaclass* TparamCurveChangedMsg::typeof() const {
  return TparamCurveChangedMsgTmeta;
}

void* TparamCurveChangedMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TparamCurveChangedMsgTmeta) return this;
  return TserverModifiedMsg::cast(record);
}

TparamCurveChangedMsg* TparamCurveChangedMsg::construct(Tmetaclass* record) {
  return constructFrom<TparamCurveChangedMsg>(record, TparamCurveChangedMsgTmeta);
}

bool TparamCurveChangedMsg::merge(const TserverMsg& /*other*/) {
  return false;
}

void TparamCurveChangedMsg::copy(const TserverMsg& other) {
  // cast() only inspects the message; it is non-const because it hands out a
  // mutable pointer, which is not used for writing here.
  auto* changed = static_cast<TparamCurveChangedMsg*>(
      const_cast<TserverMsg&>(other).cast(TparamCurveChangedMsgTmeta));
  if (changed == nullptr) return;
  fCurves = changed->fCurves;
}

// --- TparamCurveHelperMsg ------------------------------------------------------

Tmetaclass* TparamCurveHelperMsg::typeof() const {
  return TparamCurveHelperMsgTmeta;
}

void* TparamCurveHelperMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TparamCurveHelperMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TparamCurveHelperMsg* TparamCurveHelperMsg::construct(Tmetaclass* record) {
  return constructFrom<TparamCurveHelperMsg>(record, TparamCurveHelperMsgTmeta);
}

// --- TkeyframeAddDeleteMsg -----------------------------------------------------

Tmetaclass* TkeyframeAddDeleteMsg::typeof() const {
  return TkeyframeAddDeleteMsgTmeta;
}

void* TkeyframeAddDeleteMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TkeyframeAddDeleteMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TkeyframeAddDeleteMsg* TkeyframeAddDeleteMsg::construct(Tmetaclass* record) {
  return constructFrom<TkeyframeAddDeleteMsg>(record, TkeyframeAddDeleteMsgTmeta);
}

// --- TkeyframeMovedMsg ---------------------------------------------------------

Tmetaclass* TkeyframeMovedMsg::typeof() const {
  return TkeyframeMovedMsgTmeta;
}

void* TkeyframeMovedMsg::cast(Tmetaclass* record) {
  if (record != nullptr && record == TkeyframeMovedMsgTmeta) return this;
  return TserverMsg::cast(record);
}

TkeyframeMovedMsg* TkeyframeMovedMsg::construct(Tmetaclass* record) {
  return constructFrom<TkeyframeMovedMsg>(record, TkeyframeMovedMsgTmeta);
}

}  // namespace lumora

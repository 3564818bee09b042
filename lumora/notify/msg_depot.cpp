#include "lumora/notify/msg_depot.h"

#include <cassert>

#include "lumora/base/internal/module_storage.h"
#include "lumora/base/server_msg.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

namespace {

// Module-lifetime objects live in static storage and are constructed in place
// at module start, so starting cannot fail for want of memory. The optionals
// are constant-initialised and empty again after stopNotifyModule(), so their
// own destruction at exit does nothing.
internal::TmoduleStorage<Tmetaclass> gModifiedRecord;
internal::TmoduleStorage<Tmetaclass> gChangedRecord;
internal::TmoduleStorage<Tmetaclass> gHelperRecord;
internal::TmoduleStorage<Tmetaclass> gAddDeleteRecord;
internal::TmoduleStorage<Tmetaclass> gMovedRecord;
internal::TmoduleStorage<TparamCurveMsgDepot> gDepot;

}  // namespace

// --- TparamCurveMsgDepot ---------------------------------------------------------

TparamCurveMsgDepot::~TparamCurveMsgDepot() = default;

void TparamCurveMsgDepot::addChangedCurve(TparamCurve* curve) {
  if (fUpdatesSuspended || curve == nullptr) return;
  // Every outermost change scope ends here. When the list would be sent at
  // once to nobody, listing the curve only to empty the list again is skipped.
  if (fDelayCount == 0 && fChangedCurves.empty() &&
      (clientCount() == 0 || !hasClientMessage(nullptr, TparamCurveChangedMsgTmeta))) {
    fPendingFlag = 0;
    return;
  }
  if (fChangedCurves.find(curve) != 0) fChangedCurves.addLast(curve);
  if (fDelayCount != 0) return;
  sendChangedCurves();
}

void TparamCurveMsgDepot::removeChangedCurve(TparamCurve* curve) {
  if (curve == nullptr) return;
  fChangedCurves.remove(curve);
}

void TparamCurveMsgDepot::delayMessages() {
  ++fDelayCount;
}

void TparamCurveMsgDepot::resumeMessagesAndUpdate() {
  // Deliberately unguarded: an unmatched resume wraps to 65535 and keeps
  // messages delayed rather than sending early.
  --fDelayCount;
  if (fDelayCount != 0) return;
  if (!fChangedCurves.empty()) {
    sendChangedCurves();
    return;
  }
  fPendingFlag = 0;
}

bool TparamCurveMsgDepot::suspendUpdates(bool suspend) {
  const bool previous = fUpdatesSuspended;
  fUpdatesSuspended = suspend;
  return previous;
}

void TparamCurveMsgDepot::sendChangedCurves() {
  const TparamCurveChangedMsg msg(&fChangedCurves);
  notifyClients(msg);
  // Emptied, not freed: the list is reused by every send.
  fChangedCurves.changeLogicalSizeTo(0);
  fPendingFlag = 0;
}

// --- TparamCurve: global hooks ---------------------------------------------------

TparamCurveMsgDepot& TparamCurve::globalMsgDepot() {
  // Only reachable outside the module's lifetime by code that runs during
  // static initialisation or destruction; a depot made here keeps the
  // reference valid, and it is destroyed at exit like the module's own.
  if (!gDepot) gDepot.emplace();
  return *gDepot;
}

void TparamCurve::addGlobalClient(Tclient* client, TclientCallback callback) {
  if (!gDepot) return;
  gDepot->addClient(client, TparamCurveChangedMsgTmeta, callback);
}

void TparamCurve::addGlobalHelper(Tclient* client, TclientCallback callback) {
  if (!gDepot) return;
  gDepot->addClient(client, TparamCurveHelperMsgTmeta, callback);
}

void TparamCurve::removeGlobalClient(Tclient* client) {
  // Only the changed-curves registration: helpers withdraw through the
  // depot's own removeClient.
  if (!gDepot) return;
  gDepot->removeClient(client, TparamCurveChangedMsgTmeta);
}

void TparamCurve::delayMessages() {
  if (gDepot) gDepot->delayMessages();
}

void TparamCurve::resumeMessagesAndUpdate() {
  if (gDepot) gDepot->resumeMessagesAndUpdate();
}

bool TparamCurve::suspendUpdates(bool suspend) {
  if (!gDepot) return false;
  return gDepot->suspendUpdates(suspend);
}

// --- Module start and stop -------------------------------------------------------

namespace internal {

void startNotifyModule() {
  if (gModifiedRecord) return;
  // Parents first: the base message records already exist.
  assert(TserverMsgTmeta && TserverModifiedMsgTmeta && "the base module starts first");
  gModifiedRecord.emplace(&TparamCurveModifiedMsgTmeta, "TparamCurveModifiedMsg",
                          sizeof(TparamCurveModifiedMsg), nullptr, TserverMsgTmeta);
  gChangedRecord.emplace(&TparamCurveChangedMsgTmeta, "TparamCurveChangedMsg",
                         sizeof(TparamCurveChangedMsg), &constructInstance<TparamCurveChangedMsg>,
                         TserverModifiedMsgTmeta);
  gHelperRecord.emplace(&TparamCurveHelperMsgTmeta, "TparamCurveHelperMsg",
                        sizeof(TparamCurveHelperMsg), nullptr, TserverMsgTmeta);
  gAddDeleteRecord.emplace(&TkeyframeAddDeleteMsgTmeta, "TkeyframeAddDeleteMsg",
                           sizeof(TkeyframeAddDeleteMsg), nullptr, TserverMsgTmeta);
  gMovedRecord.emplace(&TkeyframeMovedMsgTmeta, "TkeyframeMovedMsg", sizeof(TkeyframeMovedMsg),
                       nullptr, TserverMsgTmeta);
  resetChangeScopeFlags();
  if (!gDepot) gDepot.emplace();
}

void stopNotifyModule() {
  if (!gModifiedRecord) return;
  // The depot first: its clients still hear the deleted message, whose
  // record belongs to the base module and outlives this one.
  gDepot.reset();
  gMovedRecord.reset();
  gAddDeleteRecord.reset();
  gHelperRecord.reset();
  gChangedRecord.reset();
  gModifiedRecord.reset();
  resetChangeScopeFlags();
}

TparamCurveMsgDepot* msgDepot() {
  return gDepot ? &*gDepot : nullptr;
}

}  // namespace internal
}  // namespace lumora

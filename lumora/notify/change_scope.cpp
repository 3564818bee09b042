// Change scopes of TparamCurve and the messages they send.
//
// Every edit runs between beginChange() and endChange(). Procedural and
// referenced curves ask the global helpers for leave first; the outermost
// scope asks whether connections must be marked dirty, and on closing tells
// the helpers and then hands the curve to the depot, which tells the global
// clients. Per-key messages go to the curve's own clients as each key changes.
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/move_journal.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

namespace {

// Module-wide, unguarded (everything runs on the caller's thread).
// Set once the helpers have been told to stop model updates in the current
// outermost scope; cleared when any curve opens an outermost scope.
bool gModelUpdatesDisabled = false;
// Never set by the library: a hook that silences per-curve modified messages.
bool gMessagesSilenced = false;

// Sends `msg` to the global helpers. Without a depot (the module is stopped)
// nobody hears it, so every question stays unanswered. The depot is asked
// first whether any registration would receive the question: every edit asks
// at least twice, and most hosts never register a helper.
inline void askHelpers(const TparamCurveHelperMsg& msg) {
  TparamCurveMsgDepot* depot = internal::msgDepot();
  if (depot && depot->clientCount() != 0 &&
      depot->hasClientMessage(nullptr, TparamCurveHelperMsgTmeta)) {
    depot->notifyClients(msg);
  }
}

// True when the helpers allow `request` on a curve; `approved` reads the
// bit that must have been set.
bool helpersApprove(TparamCurveHelperMsg::ThelpRequest request,
                    bool (TparamCurveHelperMsg::*approved)() const) {
  const TparamCurveHelperMsg query(request, /*markConnectionsDirty=*/true);
  askHelpers(query);
  return (query.*approved)();
}

// Counts one send of a curve's own message for as long as it lasts.
class TsendScope {
 public:
  explicit TsendScope(std::uint16_t& depth) : fDepth(depth) { ++fDepth; }
  ~TsendScope() { --fDepth; }
  TsendScope(const TsendScope&) = delete;
  TsendScope& operator=(const TsendScope&) = delete;

 private:
  std::uint16_t& fDepth;
};

}  // namespace

// --- Module-wide flags -------------------------------------------------------------

namespace internal {

void resetChangeScopeFlags() {
  gModelUpdatesDisabled = false;
  gMessagesSilenced = false;
}

bool messagesSilenced() {
  return gMessagesSilenced;
}
void setMessagesSilenced(bool silenced) {
  gMessagesSilenced = silenced;
}
bool modelUpdatesDisabled() {
  return gModelUpdatesDisabled;
}

}  // namespace internal

// --- Scopes --------------------------------------------------------------------------

bool TparamCurve::canSelect() {
  const TsendScope sending(fSendDepth);
  if (isProcedural() && !helpersApprove(TparamCurveHelperMsg::kHelpProcedural,
                                        &TparamCurveHelperMsg::creatingProceduralObjectState)) {
    return false;
  }
  if (isReference() && !helpersApprove(TparamCurveHelperMsg::kHelpReference,
                                       &TparamCurveHelperMsg::creatingReferenceObjectState)) {
    return false;
  }
  return true;
}

bool TparamCurve::beginChange() {
  // An observer editing this curve from inside one of its messages would
  // pull keys from under the edit that sent it.
  if (fSendDepth != 0) return false;
  // Asked on every call, nested or not: a refusal leaves the depth alone.
  if (!canSelect()) return false;
  // Any change other than a move ends the run of moves: the states its
  // journal will put back on redo are those before this change.
  if (fMoveJournal && fMoveDepth == 0) fMoveJournal->captureAfter();
  if (fChangeDepth == 0) {
    const TsendScope sending(fSendDepth);
    gModelUpdatesDisabled = false;
    const TparamCurveHelperMsg query(TparamCurveHelperMsg::kHelpBeginChange,
                                     /*markConnectionsDirty=*/true);
    askHelpers(query);
    fConnectionsDirty = query.markConnectionsDirtyState();
  }
  ++fChangeDepth;
  return true;
}

void TparamCurve::endChange(bool changed) {
  // Unguarded on purpose: an unmatched call wraps the 16-bit depth.
  --fChangeDepth;
  if (changed) fChangedInChange = true;
  if (fChangeDepth != 0) return;

  // Helpers hear of the close before global clients hear of the curve.
  askHelpers(TparamCurveHelperMsg(TparamCurveHelperMsg::kHelpUpdate, fConnectionsDirty));
  if (fChangedInChange) {
    if (TparamCurveMsgDepot* depot = internal::msgDepot()) depot->addChangedCurve(this);
  }
  fChangedInChange = false;
}

// --- Per-curve messages ------------------------------------------------------------

void TparamCurve::notifyClientsOfChange(Tkeyframe* key, TparamCurveModifiedMsg::TmessageType type) {
  if (inFileIO() && !notifyClientsDuringFileIO()) return;
  if (gMessagesSilenced) return;

  const TsendScope sending(fSendDepth);
  // The handle costs an allocation, and adding keys one by one sends a message
  // per key: it is built only when a registration would receive the message.
  // The helpers below hear of the first key message all the same.
  if (clientCount() != 0 && hasClientMessage(nullptr, TparamCurveModifiedMsgTmeta)) {
    TkeyframeHandle handle(this, key, /*makeClient=*/false);
    const TparamCurveModifiedMsg msg(&handle, type);
    notifyClients(msg);
    // The key is on its way out of the curve: a copy of the handle that a
    // client took during the send must not read as valid once it is out.
    if (type == TparamCurveModifiedMsg::kKeyRemoved) handle.markInvalid();
  }
  if (fChangeDepth != 0 && !gModelUpdatesDisabled) disableAnimCurveModelUpdates();
}

void TparamCurve::notifyClientsOfChange(unsigned index, TparamCurveModifiedMsg::TmessageType type) {
  notifyClientsOfChange(keyframe(index), type);
}

void TparamCurve::disableAnimCurveModelUpdates() {
  gModelUpdatesDisabled = true;
  askHelpers(TparamCurveHelperMsg(TparamCurveHelperMsg::kHelpUpdate,
                                  /*markConnectionsDirty=*/false));
}

void TparamCurve::sendAddDeleteMessage(Tkeyframe* key, bool added) {
  // Built only when someone listens: removals in bulk stay cheap.
  if (!hasClientMessage(nullptr, TkeyframeAddDeleteMsgTmeta)) return;
  const TsendScope sending(fSendDepth);
  const TkeyframeAddDeleteMsg msg(key, added);
  notifyClients(msg);
}

void TparamCurve::markDirty() {
  if (keyframeCount() == 0) return;
  if (!beginChange()) return;
  invalidateCache(-1);
  if (isQuaternion(fRotationInterpolation)) dirtyQuaternionEulerCache(-1);
  notifyClientsOfChange(keyframe(0), TparamCurveModifiedMsg::kKeyChanged);
  endChange(true);
}

}  // namespace lumora

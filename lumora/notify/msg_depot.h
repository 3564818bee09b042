// The global message depot: where changed curves are gathered and announced.
//
// There is one depot per process, made when the library starts and reached
// through TparamCurve::globalMsgDepot(). When the outermost change scope of a
// curve closes, the curve is handed to the depot, which tells the global
// clients with one TparamCurveChangedMsg. A host that is about to change many
// curves can batch the announcements:
//
//   TparamCurve::delayMessages();
//   for (TparamCurve* c : curves) c->setValue(0, 1.0);   // nothing announced yet
//   TparamCurve::resumeMessagesAndUpdate();              // one message, every curve
//
// The same depot carries TparamCurveHelperMsg questions to the global helpers
// (see param_curve_msgs.h).
#pragma once

#include <cstdint>

#include "lumora/base/client_server.h"
#include "lumora/base/export.h"
#include "lumora/curve/param_curve.h"

namespace lumora {

/// Gathers changed curves and announces them to global clients.
///
/// The depot is either sending at once (delay count 0) or gathering (delay
/// count above 0), and independently recording or ignoring (updates
/// suspended). While ignoring, changed curves are lost, not deferred.
///
/// The counters are not guarded on purpose: a resume without a matching delay
/// wraps the 16-bit delay count to 65535, which keeps messages delayed from
/// then on. The list of changed curves is reused between sends (emptied, not
/// freed). Nothing here is thread-safe.
class LUMORA_API TparamCurveMsgDepot : public TclientServer {
 public:
  // --- Construction ----------------------------------------------------------

  /// A depot that sends at once and records.
  TparamCurveMsgDepot() = default;
  /// Tells its remaining clients that it is going away (TserverDeletedMsg).
  ~TparamCurveMsgDepot() override;
  TparamCurveMsgDepot(const TparamCurveMsgDepot&) = delete;
  TparamCurveMsgDepot& operator=(const TparamCurveMsgDepot&) = delete;

  // --- Gathering and sending -------------------------------------------------

  /// Records `curve` as changed (once; the first change decides its place in
  /// the list) and, when messages are not delayed, sends the list at once
  /// and empties it. Does nothing at all while updates are suspended, and
  /// nothing for a null curve.
  void addChangedCurve(TparamCurve* curve);
  /// Drops `curve` from the gathered list, for a curve that is destroyed
  /// while messages are delayed. Nothing when it is not listed.
  void removeChangedCurve(TparamCurve* curve);
  /// Starts (or nests) a delay: changed curves are gathered, not sent.
  void delayMessages();
  /// Ends one level of delay; when the last one ends, sends one message with
  /// every gathered curve (none when the list is empty). Unmatched calls wrap
  /// the counter, see the class comment.
  void resumeMessagesAndUpdate();
  /// Sets whether changed curves are ignored; returns the previous setting,
  /// so that callers can restore it.
  bool suspendUpdates(bool suspend);

  // --- State -----------------------------------------------------------------

  /// The curves gathered since the last send, in the order of their first change.
  const TparamCurvePtrArray& changedCurves() const { return fChangedCurves; }
  std::uint16_t delayCount() const { return fDelayCount; }
  /// Cleared after every send; the library itself never sets it.
  std::uint8_t pendingFlag() const { return fPendingFlag; }
  bool updatesSuspended() const { return fUpdatesSuspended; }

 private:
  void sendChangedCurves();

  TparamCurvePtrArray fChangedCurves;
  std::uint16_t fDelayCount = 0;
  std::uint8_t fPendingFlag = 0;
  bool fUpdatesSuspended = false;
};

}  // namespace lumora

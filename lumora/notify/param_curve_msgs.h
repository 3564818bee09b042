// The messages a curve sends about its changes.
//
// Two audiences hear of a change. The curve's own clients (key handles,
// views) register with the curve and receive, synchronously and per key:
//
//   TparamCurveModifiedMsg  one per changed key, with a handle to the key
//   TkeyframeAddDeleteMsg   a key object left the curve or came back (undo)
//   TkeyframeMovedMsg       a key moved in time (only built when someone listens)
//
// Global clients and helpers register with the one message depot
// (msg_depot.h) and receive:
//
//   TparamCurveChangedMsg   the curves changed by one outermost change scope,
//                           or by everything done while messages were delayed
//   TparamCurveHelperMsg    questions the host answers by setting bits
//
//   void onChanged(Tclient*, TclientServer*, const TserverMsg& msg) {
//     const auto& changed = static_cast<const TparamCurveChangedMsg&>(msg);
//     for (unsigned i = 0; i < changed.curves()->count(); ++i) redraw((*changed.curves())[i]);
//   }
//   TparamCurve::addGlobalClient(&myClient, &onChanged);
//
// Every message lives only for the duration of one send: receivers copy what
// they want to keep (a key handle, the curve list) instead of keeping pointers
// into the message.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/server_msg.h"
#include "lumora/base/time_value.h"

namespace lumora {

class Tkeyframe;
class TkeyframeHandle;
class TparamCurvePtrArray;

/// Record of TparamCurveModifiedMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TparamCurveModifiedMsgTmeta;
/// Record of TparamCurveChangedMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TparamCurveChangedMsgTmeta;
/// Record of TparamCurveHelperMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TparamCurveHelperMsgTmeta;

/// One key of a curve changed; sent to the curve's own clients at once.
///
/// The handle points at a temporary that dies with the send: copy it
/// (`TkeyframeHandle mine(*msg.keyframeHandle(), true)`) to keep it. For
/// curve-wide changes the handle is empty. Nothing is sent during file input
/// unless the curve asks for it.
class LUMORA_API TparamCurveModifiedMsg : public TserverMsg {
 public:
  /// What changed. Stored by hosts: do not change values; only add.
  enum TmessageType : std::int32_t {
    kKeyAdded = 0,
    kKeyRemoved = 1,
    kKeyChanged = 2,        ///< time or value
    kTangentChanged = 3,    ///< tangents, tangent types or curve shape (infinities)
    kWeightingChanged = 4,  ///< weighted / non-weighted switch
  };

  TparamCurveModifiedMsg(TkeyframeHandle* handle, TmessageType type)
      : fKeyframeHandle(handle), fMessageType(type) {}
  TparamCurveModifiedMsg(const TparamCurveModifiedMsg&) = default;
  TparamCurveModifiedMsg& operator=(const TparamCurveModifiedMsg&) = default;

  // --- Run-time type ---------------------------------------------------------

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// What `record` constructs, cast to this class; null for a null record or
  /// one that is not this class or derived from it. This class's own record
  /// constructs nothing (the message needs a handle), so that gives null too.
  static TparamCurveModifiedMsg* construct(Tmetaclass* record);

  // --- Contents --------------------------------------------------------------

  /// The changed key; never null when sent by a curve, but possibly empty.
  TkeyframeHandle* keyframeHandle() const { return fKeyframeHandle; }
  TmessageType messageType() const { return fMessageType; }

 private:
  TkeyframeHandle* fKeyframeHandle;
  TmessageType fMessageType;
};

/// The curves that changed, sent by the depot to global clients.
///
/// `curves()` points at the depot's own list, which is emptied right after
/// the send: copy the curves, never the pointer. Each curve is listed once,
/// in the order of its first change. Two of these messages never merge.
class LUMORA_API TparamCurveChangedMsg : public TserverModifiedMsg {
 public:
  /// A message without a list (curves() is null).
  TparamCurveChangedMsg() = default;
  explicit TparamCurveChangedMsg(const TparamCurvePtrArray* curves) : fCurves(curves) {}
  TparamCurveChangedMsg(const TparamCurveChangedMsg&) = default;
  TparamCurveChangedMsg& operator=(const TparamCurveChangedMsg&) = default;

  // --- Run-time type ---------------------------------------------------------

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// A new empty message for this record (or a derived one); null otherwise.
  /// The caller owns it.
  static TparamCurveChangedMsg* construct(Tmetaclass* record);

  // --- Queueing --------------------------------------------------------------

  /// Always false: each batch of changed curves is its own message.
  bool merge(const TserverMsg& other) override;
  /// Takes the list pointer of `other` when it is a changed-curves message;
  /// anything else leaves this message as it was.
  void copy(const TserverMsg& other) override;

  // --- Contents --------------------------------------------------------------

  const TparamCurvePtrArray* curves() const { return fCurves; }

 private:
  const TparamCurvePtrArray* fCurves = nullptr;
};

/// A question to the global helpers, answered by setting bits in the message.
///
/// Helpers receive the message by const reference, as every receiver does;
/// the state setters are therefore const and write a mutable flag word, which
/// the sender reads back once the send returns:
///
///   void onHelp(Tclient*, TclientServer*, const TserverMsg& msg) {
///     const auto& q = static_cast<const TparamCurveHelperMsg&>(msg);
///     if (q.helpRequest() == TparamCurveHelperMsg::kHelpProcedural)
///       q.creatingProceduralObjectState(true);   // approve the edit
///   }
class LUMORA_API TparamCurveHelperMsg : public TserverMsg {
 public:
  /// The question. Do not change values; only add.
  enum ThelpRequest : std::int32_t {
    kHelpUpdate = 0,       ///< an outermost change scope closed (or sent its first message)
    kHelpBeginChange = 1,  ///< an outermost change scope opens; answer: connections dirty?
    kHelpProcedural = 2,   ///< may this procedural curve change or be selected?
    kHelpReference = 3,    ///< may this referenced curve change or be selected?
  };

  /// Flag-word bit values.
  enum TstateBit : std::uint32_t {
    kMarkConnectionsDirty = 1,
    kCreatingProceduralObject = 2,
    kCreatingReferenceObject = 4,
  };

  /// The request with state flags 0, plus the mark-connections-dirty bit
  /// when `markConnectionsDirty` is true.
  TparamCurveHelperMsg(ThelpRequest request, bool markConnectionsDirty)
      : fHelpRequest(request), fStateFlags(markConnectionsDirty ? kMarkConnectionsDirty : 0u) {}
  TparamCurveHelperMsg(const TparamCurveHelperMsg&) = default;
  TparamCurveHelperMsg& operator=(const TparamCurveHelperMsg&) = default;

  // --- Run-time type ---------------------------------------------------------

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// What `record` constructs, cast to this class; null for a null record, a
  /// record that is not this class or derived from it, or this class's own
  /// record, which has no construct function.
  static TparamCurveHelperMsg* construct(Tmetaclass* record);

  // --- Request ---------------------------------------------------------------

  ThelpRequest helpRequest() const { return fHelpRequest; }
  void helpRequest(ThelpRequest request) { fHelpRequest = request; }

  // --- Answers ---------------------------------------------------------------
  // Each setter sets or clears its own bit only.

  bool markConnectionsDirtyState() const { return testState(kMarkConnectionsDirty); }
  void markConnectionsDirtyState(bool on) const { setState(kMarkConnectionsDirty, on); }
  bool creatingProceduralObjectState() const { return testState(kCreatingProceduralObject); }
  void creatingProceduralObjectState(bool on) const { setState(kCreatingProceduralObject, on); }
  bool creatingReferenceObjectState() const { return testState(kCreatingReferenceObject); }
  void creatingReferenceObjectState(bool on) const { setState(kCreatingReferenceObject, on); }
  /// The whole flag word.
  std::uint32_t stateFlags() const { return fStateFlags; }

 private:
  bool testState(TstateBit bit) const { return (fStateFlags & bit) != 0; }
  void setState(TstateBit bit, bool on) const {
    fStateFlags = on ? (fStateFlags | bit) : (fStateFlags & ~static_cast<std::uint32_t>(bit));
  }

  ThelpRequest fHelpRequest;
  mutable std::uint32_t fStateFlags;
};

/// A key object was taken out of its curve (`added` false) or put back into
/// it (`added` true, undo). Sent on the curve itself, only when some client
/// registered for it. The key object outlives the removal (an undo record
/// keeps it), which is why handles may keep pointing at it.
///
/// The type record of this message is private to the library.
class LUMORA_API TkeyframeAddDeleteMsg : public TserverMsg {
 public:
  TkeyframeAddDeleteMsg(Tkeyframe* key, bool added) : fKeyframe(key), fAdded(added) {}
  TkeyframeAddDeleteMsg(const TkeyframeAddDeleteMsg&) = default;
  TkeyframeAddDeleteMsg& operator=(const TkeyframeAddDeleteMsg&) = default;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// What `record` constructs, cast to this class; null for a null record, a
  /// record that is not this class or derived from it, or this class's own
  /// record, which has no construct function.
  static TkeyframeAddDeleteMsg* construct(Tmetaclass* record);

  Tkeyframe* keyframe() const { return fKeyframe; }
  bool added() const { return fAdded; }

 private:
  Tkeyframe* fKeyframe;
  bool fAdded;
};

/// A key moved in time, with the move option that governed the move. Sent on
/// the curve itself, and built only when some client registered for it.
///
/// The type record of this message is private to the library.
class LUMORA_API TkeyframeMovedMsg : public TserverMsg {
 public:
  TkeyframeMovedMsg(const TtimeValue& fromTime, const TtimeValue& toTime, std::int32_t moveOption)
      : fFromTime(fromTime), fToTime(toTime), fMoveOption(moveOption) {}
  TkeyframeMovedMsg(const TkeyframeMovedMsg&) = default;
  TkeyframeMovedMsg& operator=(const TkeyframeMovedMsg&) = default;

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// What `record` constructs, cast to this class; null for a null record, a
  /// record that is not this class or derived from it, or this class's own
  /// record, which has no construct function.
  static TkeyframeMovedMsg* construct(Tmetaclass* record);

  const TtimeValue& fromTime() const { return fFromTime; }
  const TtimeValue& toTime() const { return fToTime; }
  /// The TparamCurve::TmoveOption of the move.
  std::int32_t moveOption() const { return fMoveOption; }

 private:
  TtimeValue fFromTime;
  TtimeValue fToTime;
  std::int32_t fMoveOption;
};

}  // namespace lumora

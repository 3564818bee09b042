// Test-only: an observer that records every message it hears. Not installed.
//
//   TmessageRecorder rec;
//   rec.listenGlobally();                 // changed curves and helper questions
//   rec.listenTo(curve);                  // the curve's modified messages
//   curve.markDirty();
//   EXPECT_EQ(rec.count(TrecordedMsg::kChanged), 1u);
//
// As a helper it answers the questions it is configured to answer, the way a
// host does: by setting bits in the message it was handed.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "lumora/base/client_server.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

struct TrecordedMsg {
  enum Tkind { kModified, kChanged, kHelper, kAddDelete, kMoved, kDeleted, kOther };

  Tkind kind = kOther;
  TclientServer* server = nullptr;
  // kModified: the type and what the handle named during the send.
  TparamCurveModifiedMsg::TmessageType messageType = TparamCurveModifiedMsg::kKeyAdded;
  Tkeyframe* key = nullptr;
  bool keyValid = false;
  // kHelper: the request and the state bits as sent, before any answer.
  TparamCurveHelperMsg::ThelpRequest request = TparamCurveHelperMsg::kHelpUpdate;
  std::uint32_t stateAsSent = 0;
  // kChanged: a copy of the list (the message's own list is emptied after the send).
  std::vector<TparamCurve*> curves;
  bool curvesNull = false;
  // kAddDelete.
  bool added = false;
};

class TmessageRecorder : public Tclient {
 public:
  // --- Answers given as a helper ---
  bool approveProcedural = false;
  bool approveReference = false;
  /// Written into the mark-connections-dirty bit of begin-change questions.
  std::optional<bool> connectionsDirtyAnswer;

  std::vector<TrecordedMsg> log;

  void listenGlobally() {
    TparamCurve::addGlobalClient(this, &TmessageRecorder::record);
    TparamCurve::addGlobalHelper(this, &TmessageRecorder::record);
  }
  void listenTo(TclientServer& server, Tmetaclass* type = TparamCurveModifiedMsgTmeta) {
    server.addClient(this, type, &TmessageRecorder::record);
  }

  unsigned count(TrecordedMsg::Tkind kind) const {
    unsigned n = 0;
    for (const TrecordedMsg& m : log) n += m.kind == kind ? 1u : 0u;
    return n;
  }
  unsigned count(TparamCurveHelperMsg::ThelpRequest request) const {
    unsigned n = 0;
    for (const TrecordedMsg& m : log) {
      n += (m.kind == TrecordedMsg::kHelper && m.request == request) ? 1u : 0u;
    }
    return n;
  }
  std::vector<TrecordedMsg::Tkind> kinds() const {
    std::vector<TrecordedMsg::Tkind> out;
    for (const TrecordedMsg& m : log) out.push_back(m.kind);
    return out;
  }
  /// The messages of one kind, in order.
  std::vector<TrecordedMsg> only(TrecordedMsg::Tkind kind) const {
    std::vector<TrecordedMsg> out;
    for (const TrecordedMsg& m : log) {
      if (m.kind == kind) out.push_back(m);
    }
    return out;
  }

  static void record(Tclient* client, TclientServer* server, const TserverMsg& msg) {
    static_cast<TmessageRecorder*>(client)->hear(server, msg);
  }

 private:
  template <class T>
  static const T* as(const TserverMsg& msg, Tmetaclass* record) {
    return static_cast<const T*>(const_cast<TserverMsg&>(msg).cast(record));
  }

  void hear(TclientServer* server, const TserverMsg& msg) {
    TrecordedMsg r;
    r.server = server;
    if (const auto* m = as<TparamCurveModifiedMsg>(msg, TparamCurveModifiedMsgTmeta)) {
      r.kind = TrecordedMsg::kModified;
      r.messageType = m->messageType();
      r.key = m->keyframeHandle() ? m->keyframeHandle()->keyframe() : nullptr;
      r.keyValid = m->keyframeHandle() && m->keyframeHandle()->isValid();
    } else if (const auto* c = as<TparamCurveChangedMsg>(msg, TparamCurveChangedMsgTmeta)) {
      r.kind = TrecordedMsg::kChanged;
      r.curvesNull = c->curves() == nullptr;
      if (c->curves()) {
        for (unsigned i = 0; i < c->curves()->count(); ++i) r.curves.push_back((*c->curves())[i]);
      }
    } else if (const auto* h = as<TparamCurveHelperMsg>(msg, TparamCurveHelperMsgTmeta)) {
      r.kind = TrecordedMsg::kHelper;
      r.request = h->helpRequest();
      r.stateAsSent = h->stateFlags();
      answer(*h);
    } else if (const auto* a = as<TkeyframeAddDeleteMsg>(msg, TkeyframeAddDeleteMsgTmeta)) {
      r.kind = TrecordedMsg::kAddDelete;
      r.key = a->keyframe();
      r.added = a->added();
    } else if (as<TkeyframeMovedMsg>(msg, TkeyframeMovedMsgTmeta)) {
      r.kind = TrecordedMsg::kMoved;
    } else if (as<TserverDeletedMsg>(msg, TserverDeletedMsgTmeta)) {
      r.kind = TrecordedMsg::kDeleted;
    }
    log.push_back(r);
  }

  void answer(const TparamCurveHelperMsg& h) const {
    switch (h.helpRequest()) {
      case TparamCurveHelperMsg::kHelpProcedural:
        if (approveProcedural) h.creatingProceduralObjectState(true);
        break;
      case TparamCurveHelperMsg::kHelpReference:
        if (approveReference) h.creatingReferenceObjectState(true);
        break;
      case TparamCurveHelperMsg::kHelpBeginChange:
        if (connectionsDirtyAnswer) h.markConnectionsDirtyState(*connectionsDirtyAnswer);
        break;
      case TparamCurveHelperMsg::kHelpUpdate:
        break;
    }
  }
};

}  // namespace lumora

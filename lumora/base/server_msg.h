// Messages that servers send to their clients.
//
// A message is a small object built by the sender, handed by const reference
// to every client registered for its type (or a parent type), and destroyed by
// the sender after the send. Because the very object is handed round, a
// receiver may answer a question by setting fields in it, which the sender
// reads back once the send returns:
//
//   TmyQueryMsg query;                  // derived from TserverMsg
//   server.notifyClients(query);
//   if (query.approved()) ...           // set by a client during the send
//
// Message types are told apart by their run-time type records (metaclass.h);
// see client_server.h for how a message finds its receivers.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"

namespace lumora {

/// Record of TserverMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TserverMsgTmeta;
/// Record of TserverModifiedMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TserverModifiedMsgTmeta;
/// Record of TserverDeletedMsg; null while the module is stopped.
extern LUMORA_API Tmetaclass* TserverDeletedMsgTmeta;

/// Base of all messages. It carries no data; its type is the message.
class LUMORA_API TserverMsg {
 public:
  TserverMsg() = default;
  TserverMsg(const TserverMsg&) = default;
  TserverMsg& operator=(const TserverMsg&) = default;

  // --- Run-time type ---------------------------------------------------------

  virtual Tmetaclass* typeof() const;
  /// `this` for TserverMsg's record, otherwise null.
  virtual void* cast(Tmetaclass* record);
  virtual ~TserverMsg();

  // --- Queueing --------------------------------------------------------------

  /// Folds `other` into this message when both say the same thing in a way
  /// that one message can carry; true when merged. The base never merges.
  virtual bool merge(const TserverMsg& other);
  /// Takes over the contents of `other` (a message of the same type). The
  /// base has no contents, so it does nothing.
  virtual void copy(const TserverMsg& other);

  /// A new TserverMsg-derived instance made by `record`; null for a null
  /// record, a record that is not a TserverMsg, or one that cannot construct.
  static TserverMsg* construct(Tmetaclass* record);
};

/// The general "something about the server changed" message.
class LUMORA_API TserverModifiedMsg : public TserverMsg {
 public:
  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;

  static TserverModifiedMsg* construct(Tmetaclass* record);
};

/// Sent by a server to its clients as the server is destroyed. A client that
/// registered without a callback receives it through Tclient::serverDeleted.
class LUMORA_API TserverDeletedMsg : public TserverMsg {
 public:
  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;

  static TserverDeletedMsg* construct(Tmetaclass* record);
};

}  // namespace lumora

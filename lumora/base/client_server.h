// Observers: servers, clients and the registrations between them.
//
// A TclientServer is something that can be observed. A Tclient registers with
// it for one or more message types, each with an optional callback:
//
//   void onModified(Tclient* c, TclientServer* s, const TserverMsg& m) { ... }
//
//   TclientServer server;
//   Tclient client;
//   server.addClient(&client, TserverModifiedMsgTmeta, &onModified);
//   TserverModifiedMsg msg;
//   server.notifyClients(msg);          // calls onModified(&client, &server, msg)
//
// Delivery rules. A registration for type R receives a message of type M when
// M is R or derives from R: a client registered for TserverMsg hears every
// message, one registered for TserverModifiedMsg does not hear a plain
// TserverMsg. Messages are delivered synchronously, in registration order;
// a client with two matching registrations (say for TserverMsg and for
// TserverModifiedMsg) hears the message once through each. The very message
// object is handed to every receiver, so receivers may answer
// by writing into it (through a const_cast) and the sender reads the answer
// back after the send. A registration without a callback is delivered to
// Tclient::serverDeleted for a TserverDeletedMsg and to Tclient::serverModified
// for everything else.
//
// Neither side can be left holding a dangling pointer: a client remembers the
// servers it is registered with and withdraws from them when destroyed, and a
// server sends a TserverDeletedMsg to the clients registered for it (or a
// parent type) when destroyed and then detaches every client.
//
// Callbacks may add and remove registrations (their own or others'), destroy
// clients, send further messages through the same server, and even destroy
// the server, while a send is in progress. Removed registrations are skipped
// for the rest of the send; registrations added during a send are first
// called by the next send.
//
// No operation is thread-safe; a server and its clients belong to one thread.
#pragma once

#include <vector>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/server_msg.h"

namespace lumora {

class Tclient;
class TclientServer;

/// Record of TclientServer; null while the module is stopped.
extern LUMORA_API Tmetaclass* TclientServerTmeta;
/// Record of Tclient; null while the module is stopped.
extern LUMORA_API Tmetaclass* TclientTmeta;

/// A registration's callback: the client, the server sending, the message.
using TclientCallback = void (*)(Tclient* client, TclientServer* server, const TserverMsg& msg);

/// An object that clients observe.
///
/// Copying a server does not copy its clients: a copy starts without any, and
/// assigning one server to another leaves the target's clients as they were.
/// A callback may even destroy the server that is calling it: the base class's
/// sends notice this and return at once without touching the server again. An
/// override of notifyClients that uses its members after calling the base
/// must not allow its clients to do that.
class LUMORA_API TclientServer {
 public:
  /// One message type with its callback, for registering several at once.
  struct TclientRegistration {
    Tmetaclass* messageType;
    TclientCallback callback;
  };

  // --- Construction ----------------------------------------------------------

  TclientServer() = default;
  /// A server with no clients.
  TclientServer(const TclientServer& other);
  /// Keeps this server's own clients.
  TclientServer& operator=(const TclientServer& other);

  // --- Run-time type ---------------------------------------------------------

  virtual Tmetaclass* typeof() const;
  /// `this` for TclientServer's record, otherwise null.
  virtual void* cast(Tmetaclass* record);
  /// Sends a TserverDeletedMsg to the clients registered for it, then
  /// detaches every client. Callbacks receive a server whose derived parts are
  /// already destroyed: they may use the pointer only to tell servers apart
  /// and to withdraw from it.
  virtual ~TclientServer();

  // --- Sending ---------------------------------------------------------------

  /// Delivers `msg` to every registration whose type is the message's type or
  /// one of its parents. Nothing is delivered when the message has no record
  /// (the module is stopped).
  virtual void notifyClients(const TserverMsg& msg);
  /// Delivers `msg` to the matching registrations of `client` only; nothing
  /// for a null or unregistered client.
  virtual void notifyClient(Tclient* client, const TserverMsg& msg);

  // --- Hooks -----------------------------------------------------------------

  /// Called when `client` becomes a client of this server (its first
  /// registration). The base does nothing.
  virtual void addClientHook(Tclient* client);
  /// Called when `client` stops being a client of this server (its last
  /// registration removed). When a client is being destroyed this runs from
  /// Tclient's destructor, so only the client's address may be used. The base
  /// does nothing.
  virtual void removeClientHook(Tclient* client);

  // --- Registrations ---------------------------------------------------------

  /// Registers `client` for `messageType` with `callback` (null: deliver to
  /// the client's virtual operations). Registering the same client for the
  /// same type again replaces the callback. Returns 0, or -1 for a null
  /// client or type (nothing is registered then).
  int addClient(Tclient* client, Tmetaclass* messageType, TclientCallback callback = nullptr);
  /// Registers `client` for each of the `count` pairs. Returns 0, or -1 when
  /// the client is null or any pair has a null type, or `registrations` is null
  /// while `count` is not 0; nothing is registered on failure.
  int addClient(Tclient* client, const TclientRegistration* registrations, unsigned count);
  /// Removes every registration of `client`; nothing for a stranger or null.
  void removeClient(Tclient* client);
  /// Removes the registration of `client` for exactly `messageType`
  /// (registrations for parent or derived types stay).
  void removeClient(Tclient* client, Tmetaclass* messageType);

  // --- Queries ---------------------------------------------------------------

  /// True when a registration of `client` would receive a message of type
  /// `messageType`, i.e. its type is `messageType` or one of its parents.
  /// A null client stands for any client, a null type for any type.
  bool hasClientMessage(const Tclient* client, const Tmetaclass* messageType) const;
  /// Number of distinct clients with at least one registration.
  unsigned clientCount() const { return fClientCount; }

  static TclientServer* construct(Tmetaclass* record);

 private:
  friend class Tclient;

  struct Tentry {
    Tclient* fClient;  // null once removed during a send (a tombstone)
    Tmetaclass* fType;
    TclientCallback fCallback;
  };
  // One per send in progress, innermost first. The destructor marks them so
  // that sends interrupted by the server's destruction return at once.
  struct TsendFrame {
    TsendFrame* fOuter;
    bool fServerDestroyed;
  };

  void deliver(Tclient* only, const TserverMsg& msg);
  void dispatch(const Tentry& entry, const Tmetaclass* type, const TserverMsg& msg);
  void addEntry(Tclient* client, Tmetaclass* messageType, TclientCallback callback);
  void dropEntry(std::size_t index);
  void compact();
  void clientLeft(Tclient* client);

  std::vector<Tentry> fEntries;
  TsendFrame* fSendFrames = nullptr;
  unsigned fClientCount = 0;
  bool fHasTombstones = false;
};

/// An observer.
///
/// A client keeps a list of the servers it is registered with and withdraws
/// from all of them when destroyed. Copying a client does not copy its
/// registrations; assigning keeps the target's own.
class LUMORA_API Tclient {
 public:
  // --- Construction ----------------------------------------------------------

  Tclient() = default;
  /// A client registered nowhere.
  Tclient(const Tclient& other);
  /// Keeps this client's own registrations.
  Tclient& operator=(const Tclient& other);

  // --- Run-time type ---------------------------------------------------------

  virtual Tmetaclass* typeof() const;
  /// `this` for Tclient's record, otherwise null.
  virtual void* cast(Tmetaclass* record);
  /// Removes this client from every server it is registered with.
  virtual ~Tclient();

  // --- Receiving -------------------------------------------------------------

  /// A server this client observes is being destroyed (registrations without
  /// a callback). The server detaches the client afterwards on its own. The
  /// base ignores the message.
  virtual void serverDeleted(TclientServer* server, const TserverMsg& msg);
  /// Any other message (registrations without a callback). The base ignores
  /// the message.
  virtual void serverModified(TclientServer* server, const TserverMsg& msg);
  /// Moves this client's registrations (types and callbacks) from `oldServer`
  /// to `newServer`, keeping their order. With a null `newServer` the
  /// registrations are only removed; a null or unobserved `oldServer`, or the
  /// same server twice, changes nothing.
  virtual void replaceServer(TclientServer* oldServer, TclientServer* newServer);

  // --- Queries ---------------------------------------------------------------

  /// Number of servers this client is registered with.
  unsigned serverCount() const { return static_cast<unsigned>(fServers.size()); }
  /// True when this client has a registration with `server`.
  bool isClientOf(const TclientServer* server) const;

  static Tclient* construct(Tmetaclass* record);

 private:
  friend class TclientServer;

  struct TserverLink {
    TclientServer* fServer;
    unsigned fRegistrations;
  };

  TserverLink* findLink(const TclientServer* server);
  void unlink(const TclientServer* server);

  std::vector<TserverLink> fServers;
};

}  // namespace lumora

#include "lumora/base/client_server.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace lumora {

Tmetaclass* TclientServerTmeta = nullptr;
Tmetaclass* TclientTmeta = nullptr;

namespace {

// Makes room for `extra` more elements with geometric growth, so that the
// push_backs that follow cannot fail. False when memory is refused.
template <class T>
bool makeRoom(std::vector<T>& v, std::size_t extra) {
  const std::size_t needed = v.size() + extra;
  if (needed <= v.capacity()) return true;
  try {
    v.reserve(std::max(needed, 2 * v.capacity()));
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  return true;
}

}  // namespace

// --- TclientServer: construction and type --------------------------------------

TclientServer::TclientServer(const TclientServer& /*other*/) {}

TclientServer& TclientServer::operator=(const TclientServer& /*other*/) {
  return *this;
}

Tmetaclass* TclientServer::typeof() const {
  return TclientServerTmeta;
}

void* TclientServer::cast(Tmetaclass* record) {
  if (record == nullptr || record != TclientServerTmeta) return nullptr;
  return this;
}

TclientServer::~TclientServer() {
  if (TserverDeletedMsgTmeta != nullptr) {
    TserverDeletedMsg notice;
    deliver(nullptr, notice);
  }
  // Sends still running further up the stack (the server is being destroyed
  // by one of their callbacks) must not touch it again.
  for (TsendFrame* frame = fSendFrames; frame != nullptr; frame = frame->fOuter) {
    frame->fServerDestroyed = true;
  }
  for (const Tentry& entry : fEntries) {
    if (entry.fClient != nullptr) entry.fClient->unlink(this);
  }
}

TclientServer* TclientServer::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TclientServerTmeta)) return nullptr;
  return static_cast<TclientServer*>(record->construct(TclientServerTmeta));
}

// --- TclientServer: sending -----------------------------------------------------

void TclientServer::notifyClients(const TserverMsg& msg) {
  deliver(nullptr, msg);
}

void TclientServer::notifyClient(Tclient* client, const TserverMsg& msg) {
  if (client == nullptr) return;
  deliver(client, msg);
}

void TclientServer::deliver(Tclient* only, const TserverMsg& msg) {
  const Tmetaclass* type = msg.typeof();
  if (type == nullptr) return;

  TsendFrame frame{fSendFrames, false};
  fSendFrames = &frame;
  // Entries are only tombstoned, never erased, while a send is running, so
  // indices stay put; entries appended by callbacks lie past `end`.
  const std::size_t end = fEntries.size();
  for (std::size_t i = 0; i < end; ++i) {
    const Tentry entry = fEntries[i];
    if (entry.fClient == nullptr) continue;
    if (only != nullptr && entry.fClient != only) continue;
    if (!type->istype(entry.fType)) continue;
    dispatch(entry, type, msg);
    if (frame.fServerDestroyed) return;
  }
  fSendFrames = frame.fOuter;
  if (fSendFrames == nullptr && fHasTombstones) compact();
}

void TclientServer::dispatch(const Tentry& entry, const Tmetaclass* type, const TserverMsg& msg) {
  if (entry.fCallback != nullptr) {
    entry.fCallback(entry.fClient, this, msg);
    return;
  }
  if (type->istype(TserverDeletedMsgTmeta)) {
    entry.fClient->serverDeleted(this, msg);
    return;
  }
  entry.fClient->serverModified(this, msg);
}

// --- TclientServer: hooks -------------------------------------------------------

void TclientServer::addClientHook(Tclient* /*client*/) {}

void TclientServer::removeClientHook(Tclient* /*client*/) {}

// --- TclientServer: registrations -----------------------------------------------

int TclientServer::addClient(Tclient* client, Tmetaclass* messageType, TclientCallback callback) {
  const TclientRegistration registration{messageType, callback};
  return addClient(client, &registration, 1);
}

int TclientServer::addClient(Tclient* client, const TclientRegistration* registrations,
                             unsigned count) {
  if (client == nullptr) return -1;
  if (count == 0) return 0;
  if (registrations == nullptr) return -1;
  for (unsigned i = 0; i < count; ++i) {
    if (registrations[i].messageType == nullptr) return -1;
  }
  if (!makeRoom(fEntries, count) || !makeRoom(client->fServers, 1)) return -1;

  for (unsigned i = 0; i < count; ++i) {
    addEntry(client, registrations[i].messageType, registrations[i].callback);
  }
  return 0;
}

void TclientServer::addEntry(Tclient* client, Tmetaclass* messageType, TclientCallback callback) {
  Tclient::TserverLink* link = client->findLink(this);
  if (link == nullptr) {
    fEntries.push_back({client, messageType, callback});
    client->fServers.push_back({this, 1});
    ++fClientCount;
    addClientHook(client);
    return;
  }
  for (Tentry& entry : fEntries) {
    if (entry.fClient == client && entry.fType == messageType) {
      entry.fCallback = callback;
      return;
    }
  }
  fEntries.push_back({client, messageType, callback});
  ++link->fRegistrations;
}

void TclientServer::removeClient(Tclient* client) {
  if (client == nullptr || client->findLink(this) == nullptr) return;
  for (std::size_t i = 0; i < fEntries.size(); ++i) {
    if (fEntries[i].fClient == client) dropEntry(i);
  }
  if (fSendFrames == nullptr) compact();
  clientLeft(client);
}

void TclientServer::removeClient(Tclient* client, Tmetaclass* messageType) {
  if (client == nullptr || messageType == nullptr) return;
  Tclient::TserverLink* link = client->findLink(this);
  if (link == nullptr) return;
  for (std::size_t i = 0; i < fEntries.size(); ++i) {
    if (fEntries[i].fClient != client || fEntries[i].fType != messageType) continue;
    dropEntry(i);
    if (fSendFrames == nullptr) compact();
    if (--link->fRegistrations == 0) clientLeft(client);
    return;
  }
}

void TclientServer::dropEntry(std::size_t index) {
  fEntries[index].fClient = nullptr;
  fHasTombstones = true;
}

void TclientServer::compact() {
  std::erase_if(fEntries, [](const Tentry& entry) { return entry.fClient == nullptr; });
  fHasTombstones = false;
}

void TclientServer::clientLeft(Tclient* client) {
  client->unlink(this);
  --fClientCount;
  removeClientHook(client);
}

// --- TclientServer: queries -----------------------------------------------------

bool TclientServer::hasClientMessage(const Tclient* client, const Tmetaclass* messageType) const {
  for (const Tentry& entry : fEntries) {
    if (entry.fClient == nullptr) continue;
    if (client != nullptr && entry.fClient != client) continue;
    if (messageType != nullptr && !messageType->istype(entry.fType)) continue;
    return true;
  }
  return false;
}

// --- Tclient ---------------------------------------------------------------------

Tclient::Tclient(const Tclient& /*other*/) {}

Tclient& Tclient::operator=(const Tclient& /*other*/) {
  return *this;
}

Tmetaclass* Tclient::typeof() const {
  return TclientTmeta;
}

void* Tclient::cast(Tmetaclass* record) {
  if (record == nullptr || record != TclientTmeta) return nullptr;
  return this;
}

Tclient::~Tclient() {
  // Each removal unlinks the server from fServers, so this ends.
  while (!fServers.empty()) fServers.back().fServer->removeClient(this);
}

void Tclient::serverDeleted(TclientServer* /*server*/, const TserverMsg& /*msg*/) {}

void Tclient::serverModified(TclientServer* /*server*/, const TserverMsg& /*msg*/) {}

void Tclient::replaceServer(TclientServer* oldServer, TclientServer* newServer) {
  if (oldServer == nullptr || oldServer == newServer || !isClientOf(oldServer)) return;

  std::vector<TclientServer::TclientRegistration> moved;
  try {
    for (const TclientServer::Tentry& entry : oldServer->fEntries) {
      if (entry.fClient == this) moved.push_back({entry.fType, entry.fCallback});
    }
  } catch (const std::bad_alloc&) {
    return;  // nothing has changed yet
  }
  oldServer->removeClient(this);
  if (newServer == nullptr) return;
  newServer->addClient(this, moved.data(), static_cast<unsigned>(moved.size()));
}

bool Tclient::isClientOf(const TclientServer* server) const {
  return std::any_of(fServers.begin(), fServers.end(),
                     [server](const TserverLink& link) { return link.fServer == server; });
}

Tclient* Tclient::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TclientTmeta)) return nullptr;
  return static_cast<Tclient*>(record->construct(TclientTmeta));
}

Tclient::TserverLink* Tclient::findLink(const TclientServer* server) {
  for (TserverLink& link : fServers) {
    if (link.fServer == server) return &link;
  }
  return nullptr;
}

void Tclient::unlink(const TclientServer* server) {
  std::erase_if(fServers, [server](const TserverLink& link) { return link.fServer == server; });
}

}  // namespace lumora

#include "lumora/base/client_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "lumora/base/internal/base_module.h"

namespace lumora {
namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::InSequence;
using ::testing::Ref;

class MockClient : public Tclient {
 public:
  MOCK_METHOD(void, serverDeleted, (TclientServer*, const TserverMsg&), (override));
  MOCK_METHOD(void, serverModified, (TclientServer*, const TserverMsg&), (override));
};

// A client whose behaviour during a send is set by each test.
struct TscriptedClient : Tclient {
  std::string fName;
  std::vector<std::string>* fLog = nullptr;
  std::function<void(TclientServer*)> fOnMessage;
};

void scriptedCallback(Tclient* client, TclientServer* server, const TserverMsg&) {
  auto* scripted = static_cast<TscriptedClient*>(client);
  if (scripted->fLog != nullptr) scripted->fLog->push_back(scripted->fName);
  if (scripted->fOnMessage) scripted->fOnMessage(server);
}

class ClientServer : public ::testing::Test {
 protected:
  ClientServer() { startBaseRecords(); }

  // More clients, named "a", "b", ... in order of making, registered for
  // TserverMsg.
  void makeClients(TclientServer& server, int count) {
    for (int i = 0; i < count; ++i) {
      auto client = std::make_unique<TscriptedClient>();
      client->fName = std::string(1, static_cast<char>('a' + fClients.size()));
      client->fLog = &fLog;
      ASSERT_EQ(server.addClient(client.get(), TserverMsgTmeta, &scriptedCallback), 0);
      fClients.push_back(std::move(client));
    }
  }

  std::vector<std::string> fLog;
  std::vector<std::unique_ptr<TscriptedClient>> fClients;
};

// Registrations without a callback reach the client's virtual operations, and
// the very message sent: receivers may answer through it.
TEST_F(ClientServer, RoutesByTypeAndParentTypesOnly) {
  auto server = std::make_unique<TclientServer>();
  MockClient modifiedOnly, everything;
  server->addClient(&modifiedOnly, TserverModifiedMsgTmeta);
  server->addClient(&everything, TserverMsgTmeta);
  TclientServer* const s = server.get();
  TserverMsg plain;
  TserverModifiedMsg modified;
  TserverDeletedMsg deleted;
  {
    InSequence order;
    EXPECT_CALL(everything, serverModified(s, Ref(plain)));
    EXPECT_CALL(modifiedOnly, serverModified(s, Ref(modified)));
    EXPECT_CALL(everything, serverModified(s, Ref(modified)));
    EXPECT_CALL(everything, serverDeleted(s, Ref(deleted)));
    EXPECT_CALL(everything, serverDeleted(s, _));  // the server's own deletion notice
  }
  EXPECT_CALL(modifiedOnly, serverDeleted(_, _)).Times(0);
  server->notifyClients(plain);
  server->notifyClients(modified);
  server->notifyClients(deleted);
  server.reset();
  EXPECT_EQ(everything.serverCount() + modifiedOnly.serverCount(), 0u);
}

TEST_F(ClientServer, ReRegistrationReplacesAndOtherTypesAdd) {
  TclientServer server;
  makeClients(server, 2);
  static std::vector<std::string>* log;  // reached from a plain function pointer
  log = &fLog;
  server.addClient(fClients[0].get(), TserverMsgTmeta,
                   [](Tclient*, TclientServer*, const TserverMsg&) { log->push_back("a2"); });
  server.addClient(fClients[1].get(), TserverModifiedMsgTmeta, &scriptedCallback);
  EXPECT_EQ(server.clientCount(), 2u);
  server.notifyClients(TserverModifiedMsg());
  EXPECT_THAT(fLog, ElementsAre("a2", "b", "b"));  // a keeps its place; b hears it twice
  fLog.clear();
  server.notifyClient(fClients[1].get(), TserverMsg());
  EXPECT_THAT(fLog, ElementsAre("b"));
}

TEST_F(ClientServer, ChangesDuringSendTakeEffectSafely) {
  TclientServer server;
  makeClients(server, 5);
  fClients[1]->fOnMessage = [&](TclientServer* s) {
    s->removeClient(fClients[1].get());                   // itself
    s->removeClient(fClients[2].get(), TserverMsgTmeta);  // a later one's only registration
    s->removeClient(fClients[0].get());                   // an earlier one
    fClients[3].reset();                                  // destroys a later one
    makeClients(*s, 1);                                   // "f": first called by the next send
    fClients[1]->fOnMessage = nullptr;
  };
  server.notifyClients(TserverMsg());
  EXPECT_EQ(std::tuple(server.clientCount(), fClients[1]->serverCount(),
                       server.hasClientMessage(fClients[2].get(), nullptr)),
            std::tuple(2u, 0u, false));
  server.notifyClients(TserverMsg());
  EXPECT_THAT(fLog, ElementsAre("a", "b", "e", "e", "f"));
}

TEST_F(ClientServer, NestedSendsShareRemovals) {
  int depth = 0;  // outlives the server, whose deletion notice runs the callbacks too
  TclientServer server;
  makeClients(server, 3);
  fClients[0]->fOnMessage = [&](TclientServer* s) {
    if (depth++ > 0) return;
    s->notifyClients(TserverMsg());  // inner send
  };
  fClients[1]->fOnMessage = [&](TclientServer* s) {
    s->removeClient(fClients[2].get());  // seen by the inner send, then the outer
  };
  server.notifyClients(TserverMsg());
  // outer a -> inner a, b (removes c), inner ends -> outer b, c skipped.
  EXPECT_THAT(fLog, ElementsAre("a", "a", "b", "b"));
  EXPECT_EQ(server.clientCount(), 2u);
}

TEST_F(ClientServer, ServerDestroyedByItsOwnCallback) {
  auto server = std::make_unique<TclientServer>();
  makeClients(*server, 3);
  fClients[1]->fOnMessage = [&](TclientServer*) { server.reset(); };
  server->notifyClients(TserverMsg());
  // b's deletion notice reaches a, b and c; the interrupted send stops.
  EXPECT_THAT(fLog, ElementsAre("a", "b", "a", "b", "c"));
  for (const auto& client : fClients) EXPECT_EQ(client->serverCount(), 0u);
}

TEST_F(ClientServer, DestroyedClientLeavesEveryServer) {
  TclientServer first, second;
  auto client = std::make_unique<Tclient>();
  first.addClient(client.get(), TserverMsgTmeta);
  second.addClient(client.get(), TserverModifiedMsgTmeta);
  second.addClient(client.get(), TserverDeletedMsgTmeta);
  client.reset();
  EXPECT_EQ(first.clientCount() + second.clientCount(), 0u);
  EXPECT_FALSE(second.hasClientMessage(nullptr, nullptr));
}

TEST_F(ClientServer, HasClientMessageWithNullArguments) {
  TclientServer server;
  Tclient a, b;
  const auto has = [&](Tclient* c, Tmetaclass* type) { return server.hasClientMessage(c, type); };
  EXPECT_FALSE(has(nullptr, nullptr));
  server.addClient(&a, TserverModifiedMsgTmeta);
  // A registration for TserverModifiedMsg would not receive a TserverMsg.
  EXPECT_EQ(std::vector<bool>({has(nullptr, nullptr), has(&a, nullptr), has(&b, nullptr),
                               has(nullptr, TserverModifiedMsgTmeta), has(nullptr, TserverMsgTmeta),
                               has(&a, TserverDeletedMsgTmeta)}),
            (std::vector<bool>{true, true, false, true, false, false}));
  server.addClient(&b, TserverMsgTmeta);
  EXPECT_TRUE(has(&b, TserverDeletedMsgTmeta) && has(nullptr, TserverDeletedMsgTmeta));
}

TEST_F(ClientServer, RegistrationBookkeepingAndHooks) {
  struct ThookServer : TclientServer {
    std::vector<std::string> fEvents;
    void addClientHook(Tclient*) override { fEvents.push_back("add"); }
    void removeClientHook(Tclient*) override { fEvents.push_back("remove"); }
  } server;
  Tclient client;
  using Tregistration = TclientServer::TclientRegistration;
  const Tregistration mixed[] = {{TserverMsgTmeta, nullptr}, {nullptr, nullptr}};
  const Tregistration pair[] = {{TserverMsgTmeta, nullptr}, {TserverModifiedMsgTmeta, nullptr}};
  // The mixed list is refused as a whole: nothing registered.
  EXPECT_EQ(std::vector<int>(
                {server.addClient(nullptr, TserverMsgTmeta), server.addClient(&client, nullptr),
                 server.addClient(&client, mixed, 2), server.addClient(&client, nullptr, 1)}),
            (std::vector<int>{-1, -1, -1, -1}));
  EXPECT_EQ(client.serverCount(), 0u);
  EXPECT_EQ(server.addClient(&client, pair, 2), 0);
  server.removeClient(&client, TserverDeletedMsgTmeta);  // not registered for it
  EXPECT_TRUE(server.hasClientMessage(&client, TserverMsgTmeta));
  server.removeClient(&client, TserverMsgTmeta);
  EXPECT_EQ(std::tuple(server.hasClientMessage(&client, TserverMsgTmeta),
                       server.hasClientMessage(&client, TserverModifiedMsgTmeta)),
            std::tuple(false, true));
  EXPECT_THAT(server.fEvents, ElementsAre("add"));
  server.removeClient(&client, TserverModifiedMsgTmeta);
  EXPECT_THAT(server.fEvents, ElementsAre("add", "remove"));
  EXPECT_EQ(client.serverCount(), 0u);
}

TEST_F(ClientServer, ReplaceServerMovesRegistrations) {
  TclientServer oldServer, newServer;
  makeClients(oldServer, 2);
  oldServer.addClient(fClients[0].get(), TserverDeletedMsgTmeta, &scriptedCallback);
  fClients[0]->replaceServer(&oldServer, &newServer);
  oldServer.notifyClients(TserverMsg());
  newServer.notifyClients(TserverDeletedMsg());  // both moved registrations match
  EXPECT_THAT(fLog, ElementsAre("b", "a", "a"));

  fClients[1]->replaceServer(&newServer, &oldServer);  // not a client: no change
  EXPECT_TRUE(fClients[1]->isClientOf(&oldServer));
  fClients[1]->replaceServer(&oldServer, nullptr);
  EXPECT_EQ(fClients[1]->serverCount(), 0u);
}

}  // namespace
}  // namespace lumora

#include "lumora/base/internal/base_module.h"

#include <iterator>

#include "lumora/base/client_server.h"
#include "lumora/base/internal/module_storage.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/preference.h"
#include "lumora/base/server_msg.h"

namespace lumora {

namespace {

// Storage for the records, in creation order; stopping destroys them back to
// front so that no record outlives its parent.
internal::TmoduleStorage<Tmetaclass> sRecords[7];
bool sStarted = false;

}  // namespace

void startBaseRecords() {
  if (sStarted) return;
  sStarted = true;
  Tmetaclass* const root = nullptr;
  sRecords[0].emplace(&TserverMsgTmeta, "TserverMsg", sizeof(TserverMsg),
                      &constructInstance<TserverMsg>, root);
  sRecords[1].emplace(&TserverModifiedMsgTmeta, "TserverModifiedMsg", sizeof(TserverModifiedMsg),
                      &constructInstance<TserverModifiedMsg>, TserverMsgTmeta);
  sRecords[2].emplace(&TserverDeletedMsgTmeta, "TserverDeletedMsg", sizeof(TserverDeletedMsg),
                      &constructInstance<TserverDeletedMsg>, TserverMsgTmeta);
  sRecords[3].emplace(&TclientServerTmeta, "TclientServer", sizeof(TclientServer),
                      &constructInstance<TclientServer>, root);
  sRecords[4].emplace(&TclientTmeta, "Tclient", sizeof(Tclient), &constructInstance<Tclient>, root);
  sRecords[5].emplace(&TpreferenceItemTmeta, "TpreferenceItem", sizeof(TpreferenceItem),
                      &constructInstance<TpreferenceItem>, root);
  sRecords[6].emplace(&TbasketTmeta, "Tbasket", sizeof(Tbasket), &constructInstance<Tbasket>, root);
}

void stopBaseRecords() {
  if (!sStarted) return;
  sStarted = false;
  for (auto record = std::rbegin(sRecords); record != std::rend(sRecords); ++record) {
    record->reset();
  }
}

}  // namespace lumora

// Start and stop of the library as a whole.
//
// Everything global is made here, in dependency order, when the shared
// library is loaded, and taken down in reverse order when it is unloaded:
// type records, the keyframe preference item, the key pool, the message depot
// and the process constants. Nothing else in the library has static state
// that needs construction, so the order of static initialisation across files
// never matters.
#include "lumora/base/internal/base_module.h"
#include "lumora/base/preference.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/keys/internal/key_pool.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/prefs/internal/prefs_module.h"
#include "lumora/select/internal/select_module.h"

namespace lumora::internal {
namespace {

class TmoduleLifetime {
 public:
  TmoduleLifetime() {
    startBaseRecords();
    startPrefsModule();
    startNotifyModule();
    startDeltaRecords();
    startSelectRecords();
    startKeyPool();
    (void)verticalSlope();
    TinitBasket::runAll();
  }
  ~TmoduleLifetime() {
    TglobalPrefMgr::global().destroyBaskets();
    stopKeyPool();
    stopSelectRecords();
    stopDeltaRecords();
    stopNotifyModule();
    stopPrefsModule();
    stopBaseRecords();
  }
  TmoduleLifetime(const TmoduleLifetime&) = delete;
  TmoduleLifetime& operator=(const TmoduleLifetime&) = delete;
};

const TmoduleLifetime gModule;

}  // namespace
}  // namespace lumora::internal

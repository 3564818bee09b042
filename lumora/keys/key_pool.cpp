#include "lumora/keys/internal/key_pool.h"
#include "lumora/base/arena.h"
#include "lumora/keys/keyframe.h"

namespace lumora::internal {

namespace {
// Pages of 128 KiB hold a few thousand keys each; the pool is made at module
// start, before any curve exists, and outlives every well-behaved curve.
constexpr std::size_t kKeyPageSize = 131072;
TcompactArena* gKeyPool = nullptr;
}  // namespace

TcompactArena* keyPool() {
  return gKeyPool;
}

void startKeyPool() {
  if (gKeyPool) return;
  gKeyPool = new TcompactArena(sizeof(Tkeyframe), kKeyPageSize, sMallocAllocator, "Keys");
  // Scenes are loaded and thrown away whole: keep up to 64 MiB of emptied
  // pages warm for the next load rather than faulting fresh memory in again.
  gKeyPool->setSparePageLimit((std::size_t{64} << 20) / kKeyPageSize);
}

void stopKeyPool() {
  if (!gKeyPool) return;
  if (gKeyPool->liveCount() != 0) return;  // leaked keys may still be deleted later
  delete gKeyPool;
  gKeyPool = nullptr;
}

}  // namespace lumora::internal

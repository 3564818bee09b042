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
}

void stopKeyPool() {
  if (!gKeyPool) return;
  if (gKeyPool->liveCount() != 0) return;  // leaked keys may still be deleted later
  delete gKeyPool;
  gKeyPool = nullptr;
}

}  // namespace lumora::internal

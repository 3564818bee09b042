// Bulk allocation through the "Keys"-shaped arena against the C heap: a
// million 48-byte blocks are allocated, then all freed, in allocation order.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "lumora/base/arena.h"

namespace {

constexpr std::size_t kBlocks = 1'000'000;
constexpr std::size_t kBlockBytes = 48;
constexpr std::size_t kPageBytes = 131072;

void BM_ArenaAllocFree48(benchmark::State& state) {
  lumora::TcompactArena arena(kBlockBytes, kPageBytes, lumora::sMallocAllocator, "Keys");
  std::vector<void*> blocks(kBlocks);
  for (auto _ : state) {
    for (void*& block : blocks) {
      block = arena.allocate(kBlockBytes, alignof(double));
      benchmark::DoNotOptimize(block);
    }
    for (void* block : blocks) benchmark::DoNotOptimize(arena.deallocate(block));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kBlocks));
}
BENCHMARK(BM_ArenaAllocFree48)->Unit(benchmark::kMillisecond);

void BM_MallocFree48(benchmark::State& state) {
  std::vector<void*> blocks(kBlocks);
  for (auto _ : state) {
    for (void*& block : blocks) {
      block = std::malloc(kBlockBytes);
      benchmark::DoNotOptimize(block);
    }
    for (void* block : blocks) std::free(block);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kBlocks));
}
BENCHMARK(BM_MallocFree48)->Unit(benchmark::kMillisecond);

}  // namespace

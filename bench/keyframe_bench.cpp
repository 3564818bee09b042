// Keys through the "Keys" pool against plain malloc/free of the same size.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <vector>

#include "lumora/keys/keyframe.h"

namespace {

constexpr int kKeys = 1000000;

void BM_KeyframeNewDelete(benchmark::State& state) {
  std::vector<lumora::Tkeyframe*> keys(kKeys);
  for (auto _ : state) {
    for (auto& k : keys) k = new lumora::Tkeyframe();
    benchmark::DoNotOptimize(keys.data());
    for (auto* k : keys) delete k;
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
  state.counters["sizeof_key"] = sizeof(lumora::Tkeyframe);
}
BENCHMARK(BM_KeyframeNewDelete)->Unit(benchmark::kMillisecond);

// The same work without the pool: a raw block per key, constructed in place.
void BM_KeyframeMallocFree(benchmark::State& state) {
  std::vector<void*> blocks(kKeys);
  for (auto _ : state) {
    for (auto& b : blocks) {
      b = std::malloc(sizeof(lumora::Tkeyframe));
      ::new (b) lumora::Tkeyframe();
    }
    benchmark::DoNotOptimize(blocks.data());
    for (void* b : blocks) {
      static_cast<lumora::Tkeyframe*>(b)->~Tkeyframe();
      std::free(b);
    }
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_KeyframeMallocFree)->Unit(benchmark::kMillisecond);

}  // namespace

// Selection hot paths: copying a whole-curve selection into the keys' active
// flags, and merging two large selections that half overlap (a box drag that
// extends a selection).
//
// Each runs at several sizes and reports its growth, which must stay
// O(n log n): a per-pick search of a list or of the curve is fine, a per-pick
// walk is not.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"
#include "lumora/select/pick_key_list.h"

namespace {

using lumora::TanimTime;
using lumora::TanimTimeArray;
using lumora::TbitField32;
using lumora::TdoubleArray;
using lumora::TparamCurve;
using lumora::TpickKey;
using lumora::TpickKeyDictionary;
using lumora::TpickKeyList;

// A tick curve with `keys` keys a frame (100 ticks) apart.
std::unique_ptr<TparamCurve> makeCurve(unsigned keys) {
  auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
  TanimTimeArray times;
  TdoubleArray values;
  for (unsigned i = 0; i < keys; ++i) {
    times.addLast(TanimTime(static_cast<std::int32_t>(i) * 100));
    values.addLast(static_cast<double>(i % 17));
  }
  curve->blockAdd(&times, &values, lumora::kTangentFlat, lumora::kTangentFlat,
                  /*ascending=*/true);
  return curve;
}

// Picks of keys [from, to) of `curve` with `flags`, into `picks`.
void pickRange(TparamCurve& curve, unsigned from, unsigned to, unsigned flags,
               TpickKeyDictionary& picks) {
  for (unsigned i = from; i < to; ++i) {
    TpickKey pick;
    if (pick.create(&curve, i, TbitField32(flags)) == 0) picks.insert(pick.time(), pick);
  }
}

void BM_SetActive(benchmark::State& state) {
  const auto n = static_cast<unsigned>(state.range(0));
  auto curve = makeCurve(n);
  TpickKeyDictionary picks;
  pickRange(*curve, 0, n, TpickKey::kPickKey, picks);
  bool on = true;
  for (auto _ : state) {
    curve->setActive(picks, on);
    on = !on;
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_SetActive)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

// Lists of n picks each; the second starts halfway through the first, and
// picks tangents, so the overlap merges pick by pick.
void BM_ListMerge(benchmark::State& state) {
  const auto n = static_cast<unsigned>(state.range(0));
  auto curve = makeCurve(n + n / 2);
  TpickKeyList first;
  TpickKeyList second;
  pickRange(*curve, 0, n, TpickKey::kPickKey, first);
  pickRange(*curve, n / 2, n + n / 2, TpickKey::kPickInTangent, second);
  for (auto _ : state) {
    state.PauseTiming();
    TpickKeyList merged(first);
    state.ResumeTiming();
    merged.merge(second);
    benchmark::DoNotOptimize(merged.count());
    state.PauseTiming();
    {
      const TpickKeyList done(std::move(merged));  // freed outside the timing
    }
    state.ResumeTiming();
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ListMerge)
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

}  // namespace

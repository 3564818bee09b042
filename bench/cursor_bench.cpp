// Sampling through a caller's cursor against the curve's own evaluate(float),
// on the same curves and times as the sequential and random evaluation
// benchmarks: a cursor must cost no more than the curve's own cache.
//
// Every benchmark reports items per second, one item being one sample.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

constexpr unsigned kKeys = 1000;
constexpr unsigned kSamplesPerSpan = 100;
constexpr unsigned kRandomSamples = 100000;
constexpr unsigned kSeed = 20240611;

std::vector<float> orderedTimes(unsigned spans, double offset) {
  std::vector<float> times;
  for (unsigned i = 0; i < spans; ++i) {
    for (unsigned j = 0; j < kSamplesPerSpan; ++j) {
      times.push_back(static_cast<float>(offset + i + static_cast<double>(j) / kSamplesPerSpan));
    }
  }
  return times;
}

std::vector<float> shuffledTimes(double end) {
  std::vector<float> times;
  std::uint64_t state = kSeed;
  for (unsigned i = 0; i < kRandomSamples; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    times.push_back(static_cast<float>(static_cast<double>(state >> 11) * 0x1p-53 * end));
  }
  return times;
}

TparamCurve splineCurve(TparamCurve::TinfinityType post) {
  TparamCurve c(/*isFloat=*/true);
  reference::denseSpline(c, kKeys, kSeed);
  c.setPostInfinityType(post);
  return c;
}

// One benchmark body for both ways of sampling: `cursor` false samples
// through the curve's own evaluate(float).
void sample(benchmark::State& state, const TparamCurve& source, const std::vector<float>& times,
            bool cursor) {
  TparamCurve curve(source);
  const TparamCurve& shared = curve;
  TevalCursor own;
  std::vector<double> values(times.size());
  for (auto _ : state) {
    if (cursor) {
      for (std::size_t i = 0; i < times.size(); ++i) values[i] = shared.evaluate(times[i], own);
    } else {
      for (std::size_t i = 0; i < times.size(); ++i) values[i] = curve.evaluate(times[i]);
    }
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}

void BM_OrderedOwnCache(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kConstant), orderedTimes(kKeys - 1, 0.0), false);
}
BENCHMARK(BM_OrderedOwnCache);

void BM_OrderedCursor(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kConstant), orderedTimes(kKeys - 1, 0.0), true);
}
BENCHMARK(BM_OrderedCursor);

void BM_CycledOwnCache(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kCycle), orderedTimes((kKeys - 1) * 3, kKeys - 1), false);
}
BENCHMARK(BM_CycledOwnCache);

void BM_CycledCursor(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kCycle), orderedTimes((kKeys - 1) * 3, kKeys - 1), true);
}
BENCHMARK(BM_CycledCursor);

void BM_RandomOwnCache(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kConstant), shuffledTimes(kKeys - 1), false);
}
BENCHMARK(BM_RandomOwnCache);

void BM_RandomCursor(benchmark::State& state) {
  sample(state, splineCurve(TparamCurve::kConstant), shuffledTimes(kKeys - 1), true);
}
BENCHMARK(BM_RandomCursor);

}  // namespace
}  // namespace lumora

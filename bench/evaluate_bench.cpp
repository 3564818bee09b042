// Curve evaluation against a floor (bench/floor_curve.h): the ratio of a curve
// benchmark to its floor is the cost of the curve machinery: cache checks,
// time conversions, segment loads and, for weighted curves, root finding.
//
// Every benchmark reports items per second, one item being one sample.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench/floor_curve.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

using bench::bezierValueFloor;
using bench::floorAt;
using bench::floorRandom;
using bench::floorSequential;
using bench::hermiteFloor;
using bench::kSeed;
using bench::makeOffThirdsCurve;
using bench::randomTimes;
using bench::TfloorCurve;

constexpr unsigned kSequentialKeys = 1000;
constexpr unsigned kRandomKeys = 10000;
constexpr unsigned kSamplesPerSpan = 100;
constexpr unsigned kRandomSamples = 100000;
constexpr unsigned kCycles = 10;

// Samples `curve` at `times` one call at a time.
template <typename Curve>
void sampleEach(Curve& curve, const std::vector<float>& times, double* out) {
  for (std::size_t i = 0; i < times.size(); ++i) out[i] = curve.evaluate(times[i]);
}

// --- Curves and sample times -----------------------------------------------------------

// `perSpan` ascending samples in every span of keys at 0, 1, 2, ... seconds,
// starting `offset` seconds on.
std::vector<float> sequentialTimes(unsigned spans, unsigned perSpan, double offset) {
  std::vector<float> times;
  times.reserve(static_cast<std::size_t>(spans) * perSpan);
  for (unsigned i = 0; i < spans; ++i) {
    for (unsigned j = 0; j < perSpan; ++j) {
      times.push_back(static_cast<float>(offset + i + static_cast<double>(j) / perSpan));
    }
  }
  return times;
}

// Each benchmark samples its own copy, so no run inherits another's cache.
const TparamCurve& sequentialCurve() {
  static const TparamCurve curve = [] {
    TparamCurve c(/*isFloat=*/true);
    reference::denseSpline(c, kSequentialKeys, kSeed);
    return c;
  }();
  return curve;
}

// --- Sequential sampling -----------------------------------------------------------------

void BM_SequentialEvaluate(benchmark::State& state) {
  TparamCurve curve(sequentialCurve());
  const std::vector<float> times = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampleEach(curve, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_SequentialEvaluate);

void BM_SequentialEvaluateArray(benchmark::State& state) {
  TparamCurve curve(sequentialCurve());
  const std::vector<float> narrow = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  const std::vector<double> times(narrow.begin(), narrow.end());
  std::vector<double> values(times.size());
  for (auto _ : state) {
    curve.evaluate(static_cast<unsigned>(times.size()), times.data(), values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_SequentialEvaluateArray);

void BM_SequentialFloor(benchmark::State& state) {
  const TfloorCurve floor = hermiteFloor(sequentialCurve());
  const std::vector<float> times = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  // The floor must compute the same curve, or the comparison means nothing.
  TparamCurve curve(sequentialCurve());
  for (std::size_t i = 0; i < times.size(); i += 97) {
    if (std::fabs(floorAt(floor, times[i]) - curve.evaluate(times[i])) > 1e-9) {
      state.SkipWithError("the floor does not match the curve");
      return;
    }
  }
  std::vector<double> values(times.size());
  for (auto _ : state) {
    floorSequential(floor, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_SequentialFloor);

// --- Random access -----------------------------------------------------------------------

void BM_RandomEvaluate(benchmark::State& state) {
  TparamCurve curve(/*isFloat=*/true);
  reference::denseSpline(curve, kRandomKeys, kSeed);
  const std::vector<float> times = randomTimes(kRandomSamples, kRandomKeys - 1);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampleEach(curve, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_RandomEvaluate);

void BM_RandomFloor(benchmark::State& state) {
  TparamCurve curve(/*isFloat=*/true);
  reference::denseSpline(curve, kRandomKeys, kSeed);
  const TfloorCurve floor = hermiteFloor(curve);
  const std::vector<float> times = randomTimes(kRandomSamples, kRandomKeys - 1);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    floorRandom(floor, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_RandomFloor);

// --- Weighted curves ---------------------------------------------------------------------

void BM_WeightedOffThirdsEvaluate(benchmark::State& state) {
  const std::unique_ptr<TparamCurve> curve = makeOffThirdsCurve(kSequentialKeys);
  const std::vector<float> times = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampleEach(*curve, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_WeightedOffThirdsEvaluate);

void BM_WeightedOffThirdsFloor(benchmark::State& state) {
  const TfloorCurve floor = bezierValueFloor(*makeOffThirdsCurve(kSequentialKeys));
  const std::vector<float> times = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    floorSequential(floor, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_WeightedOffThirdsFloor);

// Handles at the thirds: the evaluator skips root finding.
void BM_WeightedThirdsEvaluate(benchmark::State& state) {
  TparamCurve curve(sequentialCurve());
  curve.setIsWeighted(true);
  const std::vector<float> times = sequentialTimes(kSequentialKeys - 1, kSamplesPerSpan, 0.0);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampleEach(curve, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_WeightedThirdsEvaluate);

// --- Infinities --------------------------------------------------------------------------

void BM_PostCycleEvaluate(benchmark::State& state) {
  TparamCurve curve(sequentialCurve());
  curve.setPostInfinityType(TparamCurve::kCycle);
  const unsigned spans = kSequentialKeys - 1;
  // Ten periods after the last key, the same density as the sequential run.
  const std::vector<float> times = sequentialTimes(spans * kCycles, kSamplesPerSpan, spans);
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampleEach(curve, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(times.size()));
}
BENCHMARK(BM_PostCycleEvaluate);

}  // namespace
}  // namespace lumora

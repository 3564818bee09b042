// Compiled samplers against the floors of bench/floor_curve.h: random access
// on large curves, building a sampler, and one frame of a scene sampled on one
// and two threads.
//
// Every sampling benchmark reports items per second, one item being one
// sample; the floors are measured here again so that a run compares like
// with like.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "bench/floor_curve.h"
#include "lumora/curve/curve_sampler.h"
#include "lumora/curve/param_curve.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

using bench::kSeed;

constexpr unsigned kRandomKeys = 10000;
constexpr unsigned kRandomSamples = 100000;
constexpr unsigned kBuildKeys = 100000;
constexpr unsigned kSceneCurves = 1000;
constexpr unsigned kSceneKeys = 100;
constexpr unsigned kSceneFrames = 1000;

void setSamples(benchmark::State& state, std::size_t perIteration) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(perIteration));
}

const TparamCurve& randomSpline() {
  static const TparamCurve curve = [] {
    TparamCurve c(/*isFloat=*/true);
    reference::denseSpline(c, kRandomKeys, kSeed);
    return c;
  }();
  return curve;
}

// The floor of random access: upper_bound on the key times, then Horner.
void floorOneByOne(benchmark::State& state, const bench::TfloorCurve& floor,
                   const std::vector<float>& times) {
  std::vector<double> values(times.size());
  for (auto _ : state) {
    bench::floorRandom(floor, times, values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  setSamples(state, times.size());
}

// Random access, one evaluate call per time.
void sampleOneByOne(benchmark::State& state, const TcurveSampler& sampler,
                    const std::vector<float>& times) {
  std::vector<double> values(times.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < times.size(); ++i) values[i] = sampler.evaluate(times[i]);
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  setSamples(state, times.size());
}

// --- Random access ---------------------------------------------------------------------

void BM_SamplerRandomFloor(benchmark::State& state) {
  const bench::TfloorCurve floor = bench::hermiteFloor(randomSpline());
  const std::vector<float> times = bench::randomTimes(kRandomSamples, kRandomKeys - 1);
  floorOneByOne(state, floor, times);
}
BENCHMARK(BM_SamplerRandomFloor);

void BM_SamplerRandom(benchmark::State& state) {
  const TcurveSampler sampler(randomSpline());
  const std::vector<float> times = bench::randomTimes(kRandomSamples, kRandomKeys - 1);
  sampleOneByOne(state, sampler, times);
}
BENCHMARK(BM_SamplerRandom);

// The same through the array call, times given as doubles.
void BM_SamplerRandomArray(benchmark::State& state) {
  const TcurveSampler sampler(randomSpline());
  const std::vector<float> narrow = bench::randomTimes(kRandomSamples, kRandomKeys - 1);
  const std::vector<double> times(narrow.begin(), narrow.end());
  std::vector<double> values(times.size());
  for (auto _ : state) {
    sampler.evaluate(static_cast<unsigned>(times.size()), times.data(), values.data());
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
  setSamples(state, times.size());
}
BENCHMARK(BM_SamplerRandomArray);

void BM_SamplerWeightedRandomFloor(benchmark::State& state) {
  const bench::TfloorCurve floor = bench::bezierValueFloor(*bench::makeOffThirdsCurve(kRandomKeys));
  const std::vector<float> times = bench::randomTimes(kRandomSamples, kRandomKeys - 1);
  floorOneByOne(state, floor, times);
}
BENCHMARK(BM_SamplerWeightedRandomFloor);

// Handles away from the thirds: every sample solves for the curve parameter.
void BM_SamplerWeightedRandom(benchmark::State& state) {
  const TcurveSampler sampler(*bench::makeOffThirdsCurve(kRandomKeys));
  const std::vector<float> times = bench::randomTimes(kRandomSamples, kRandomKeys - 1);
  sampleOneByOne(state, sampler, times);
}
BENCHMARK(BM_SamplerWeightedRandom);

// --- Building ---------------------------------------------------------------------------

void BM_SamplerBuild(benchmark::State& state) {
  TparamCurve curve(/*isFloat=*/true);
  reference::denseSpline(curve, kBuildKeys, kSeed);
  for (auto _ : state) {
    const TcurveSampler sampler(curve);
    benchmark::DoNotOptimize(&sampler);
  }
  state.counters["keys"] = kBuildKeys;
}
BENCHMARK(BM_SamplerBuild)->Unit(benchmark::kMillisecond);

// --- One frame of a scene ---------------------------------------------------------------
// A host plays a scene back frame after frame: every channel at the frame's
// time, the next frame only once this one is done (its results feed the
// scene). Two threads therefore share each frame, each sampling half of the
// channels, and meet at a barrier before the next frame.

struct Tscene {
  std::vector<std::unique_ptr<TparamCurve>> curves;
  std::vector<TcurveSampler> samplers;
  std::vector<const TcurveSampler*> channels;
};

const Tscene& scene() {
  static const Tscene s = [] {
    Tscene built;
    for (unsigned i = 0; i < kSceneCurves; ++i) {
      auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
      reference::denseSpline(*c, kSceneKeys, kSeed + i);
      built.samplers.emplace_back(*c);
      built.curves.push_back(std::move(c));
    }
    for (const TcurveSampler& sampler : built.samplers) built.channels.push_back(&sampler);
    return built;
  }();
  return s;
}

float frameSeconds(unsigned frame) {
  return static_cast<float>(frame) * (static_cast<float>(kSceneKeys - 1) / kSceneFrames);
}

// Two threads meeting once per frame: spinning, as a frame lasts microseconds.
class TspinBarrier {
 public:
  void arriveAndWait() {
    const unsigned generation = fGeneration.load(std::memory_order_acquire);
    if (fArrived.fetch_add(1, std::memory_order_acq_rel) == 1) {
      fArrived.store(0, std::memory_order_relaxed);
      fGeneration.fetch_add(1, std::memory_order_release);
      return;
    }
    while (fGeneration.load(std::memory_order_acquire) == generation) {
#if defined(__x86_64__) || defined(__i386__)
      __builtin_ia32_pause();
#endif
    }
  }

 private:
  std::atomic<unsigned> fArrived{0};
  std::atomic<unsigned> fGeneration{0};
};

void playChannels(const Tscene& s, unsigned first, unsigned last, double* values,
                  TspinBarrier* barrier) {
  for (unsigned frame = 0; frame < kSceneFrames; ++frame) {
    TcurveSampler::evaluateAll(last - first, s.channels.data() + first, frameSeconds(frame),
                               values + first);
    benchmark::DoNotOptimize(values);
    if (barrier) barrier->arriveAndWait();
  }
}

void BM_SceneFrames(benchmark::State& state) {
  const Tscene& s = scene();
  const bool twoThreads = state.range(0) == 2;
  std::vector<double> values(kSceneCurves);
  for (auto _ : state) {
    if (!twoThreads) {
      playChannels(s, 0, kSceneCurves, values.data(), nullptr);
    } else {
      TspinBarrier barrier;
      std::thread helper(playChannels, std::cref(s), kSceneCurves / 2, kSceneCurves, values.data(),
                         &barrier);
      playChannels(s, 0, kSceneCurves / 2, values.data(), &barrier);
      helper.join();
    }
    benchmark::ClobberMemory();
  }
  setSamples(state, static_cast<std::size_t>(kSceneCurves) * kSceneFrames);
}
BENCHMARK(BM_SceneFrames)->ArgName("threads")->Arg(1)->Arg(2)->UseRealTime();

// The same frames through the curves themselves, one thread: each curve's
// cache follows its own playback.
void BM_SceneFramesThroughCurves(benchmark::State& state) {
  const Tscene& s = scene();
  std::vector<std::unique_ptr<TparamCurve>> curves;
  for (const auto& c : s.curves) curves.push_back(std::make_unique<TparamCurve>(*c));
  std::vector<double> values(kSceneCurves);
  for (auto _ : state) {
    for (unsigned frame = 0; frame < kSceneFrames; ++frame) {
      const float t = frameSeconds(frame);
      for (unsigned i = 0; i < kSceneCurves; ++i) values[i] = curves[i]->evaluate(t);
      benchmark::DoNotOptimize(values.data());
    }
    benchmark::ClobberMemory();
  }
  setSamples(state, static_cast<std::size_t>(kSceneCurves) * kSceneFrames);
}
BENCHMARK(BM_SceneFramesThroughCurves);

}  // namespace
}  // namespace lumora

// The cost of one weighted span sample on its own, without any curve around
// it: TweightedSpan::evaluate() on preloaded spans against a floor that
// evaluates each span's value cubic by Horner's rule in the same loop. The
// difference is the time solve: the guess, its Halley step and the checks.
//
// Spans are off the thirds (handles 0.4 of the span forwards, 0.25 back), so
// time is never linear in the curve parameter. Every benchmark reports items
// per second, one item being one sample.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "lumora/curve/span_math.h"

namespace lumora {
namespace {

constexpr unsigned kSpans = 1000;
constexpr unsigned kSamplesPerSpan = 100;
constexpr unsigned kRandomSamples = 100000;
constexpr std::uint32_t kSeed = 20240611;

struct Tcubic {
  double a, b, c, d;
};

struct Tsample {
  std::uint32_t span;
  double t;
};

// Spans from i to i + 1 seconds with random values and slopes.
std::vector<TweightedSpan> offThirdsSpans() {
  std::vector<double> values;
  std::vector<double> slopes;
  std::uint32_t state = kSeed;
  for (unsigned i = 0; i <= kSpans; ++i) {
    state = state * 1664525u + 1013904223u;
    values.push_back(static_cast<double>(state >> 8) / 8388608.0 - 1.0);
    slopes.push_back(static_cast<double>(static_cast<int>(state % 200) - 100) / 100.0);
  }
  std::vector<TweightedSpan> spans(kSpans);
  for (unsigned i = 0; i < kSpans; ++i) {
    const double x0 = i;
    double x1 = x0 + 0.4;
    double y1 = values[i] + 0.4 * slopes[i];
    double x2 = x0 + 0.75;
    double y2 = values[i + 1] - 0.25 * slopes[i + 1];
    spans[i].load(x0, values[i], x1, y1, x2, y2, x0 + 1.0, values[i + 1], true);
  }
  return spans;
}

// The value cubic of each span in the time offset from its start, as if time
// ran linearly in the curve parameter (each span lasts one second).
std::vector<Tcubic> valueFloor(const std::vector<TweightedSpan>& spans) {
  std::vector<Tcubic> floor;
  for (const TweightedSpan& w : spans) floor.push_back({w.yc3, w.yc2, w.yc1, w.yc0});
  return floor;
}

double horner(const Tcubic& c, double s) {
  return ((c.a * s + c.b) * s + c.c) * s + c.d;
}

std::vector<Tsample> sequentialSamples() {
  std::vector<Tsample> samples;
  for (unsigned i = 0; i < kSpans; ++i) {
    for (unsigned j = 0; j < kSamplesPerSpan; ++j) {
      samples.push_back({i, i + (j + 0.5) / kSamplesPerSpan});
    }
  }
  return samples;
}

std::vector<Tsample> randomSamples() {
  std::vector<Tsample> samples;
  std::uint64_t state = kSeed;
  for (unsigned i = 0; i < kRandomSamples; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    const double t = static_cast<double>(state >> 11) * 0x1p-53 * kSpans;
    const auto span = static_cast<std::uint32_t>(t);
    samples.push_back({span < kSpans ? span : kSpans - 1, t});
  }
  return samples;
}

void runSpans(benchmark::State& state, const std::vector<Tsample>& samples) {
  const std::vector<TweightedSpan> spans = offThirdsSpans();
  std::vector<double> out(samples.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < samples.size(); ++i) {
      out[i] = spans[samples[i].span].evaluate(samples[i].t);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}

void runFloor(benchmark::State& state, const std::vector<Tsample>& samples) {
  const std::vector<Tcubic> floor = valueFloor(offThirdsSpans());
  std::vector<double> out(samples.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const std::uint32_t span = samples[i].span;
      out[i] = horner(floor[span], samples[i].t - span);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(samples.size()));
}

void BM_WeightedSpanSequential(benchmark::State& state) {
  runSpans(state, sequentialSamples());
}
BENCHMARK(BM_WeightedSpanSequential);

void BM_WeightedSpanSequentialFloor(benchmark::State& state) {
  runFloor(state, sequentialSamples());
}
BENCHMARK(BM_WeightedSpanSequentialFloor);

void BM_WeightedSpanRandom(benchmark::State& state) {
  runSpans(state, randomSamples());
}
BENCHMARK(BM_WeightedSpanRandom);

void BM_WeightedSpanRandomFloor(benchmark::State& state) {
  runFloor(state, randomSamples());
}
BENCHMARK(BM_WeightedSpanRandomFloor);

// The cost of load() itself, which a random sample through a curve pays
// each time it lands in another span.
void BM_WeightedSpanLoad(benchmark::State& state) {
  const std::vector<TweightedSpan> spans = offThirdsSpans();
  TweightedSpan w;
  std::uint32_t i = 0;
  for (auto _ : state) {
    const TweightedSpan& from = spans[i];
    double x1 = from.x0 + 0.4;
    double y1 = from.yc0 + from.yc1 / 3.0;
    double x2 = from.x0 + 0.75;
    double y2 = from.yc0 + from.yc1 + from.yc2 + from.yc3;
    w.load(from.x0, from.yc0, x1, y1, x2, y2, from.x3, y2, true);
    benchmark::DoNotOptimize(w);
    i = i + 1 < kSpans ? i + 1 : 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_WeightedSpanLoad);

}  // namespace
}  // namespace lumora

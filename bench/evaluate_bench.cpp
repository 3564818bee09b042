// Curve evaluation against a floor: the same spans' cubics, precomputed once
// and evaluated by Horner's rule at the same sample times, with the span found
// by a forward walk (sequential) or std::upper_bound (random access). Nothing
// can sample a cubic curve faster than the floor, so the ratio of a curve
// benchmark to its floor is the cost of the curve machinery: cache checks,
// time conversions, segment loads and, for weighted curves, root finding.
//
// Every benchmark reports items per second, one item being one sample.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

constexpr unsigned kSequentialKeys = 1000;
constexpr unsigned kRandomKeys = 10000;
constexpr unsigned kSamplesPerSpan = 100;
constexpr unsigned kRandomSamples = 100000;
constexpr unsigned kCycles = 10;
constexpr unsigned kSeed = 20240611;

// --- The floor -------------------------------------------------------------------------

// ((a s + b) s + c) s + d with s = t - start of the span.
struct Tcubic {
  double a = 0.0;
  double b = 0.0;
  double c = 0.0;
  double d = 0.0;
};

struct TfloorCurve {
  std::vector<double> keyTimes;
  std::vector<Tcubic> spans;  // spans[i] runs from keyTimes[i] to keyTimes[i + 1]
};

double horner(const Tcubic& c, double s) {
  return ((c.a * s + c.b) * s + c.c) * s + c.d;
}

// The Hermite cubic of each span of a non-weighted curve: only the slopes of
// the tangents matter.
TfloorCurve hermiteFloor(const TparamCurve& curve) {
  TfloorCurve f;
  const unsigned n = curve.keyframeCount();
  for (unsigned i = 0; i < n; ++i) f.keyTimes.push_back(curve.seconds(i));
  for (unsigned i = 0; i + 1 < n; ++i) {
    float ox = 0.0f, oy = 0.0f, ix = 0.0f, iy = 0.0f;
    curve.keyframe(i)->getTanOut(ox, oy);
    curve.keyframe(i + 1)->getTanIn(ix, iy);
    const double h = f.keyTimes[i + 1] - f.keyTimes[i];
    const double y0 = curve.keyframe(i)->value();
    const double dy = curve.keyframe(i + 1)->value() - y0;
    const double m0 = static_cast<double>(oy) / ox;
    const double m1 = static_cast<double>(iy) / ix;
    f.spans.push_back(
        {(m0 + m1) / (h * h) - 2.0 * dy / (h * h * h), (3.0 * dy / h - 2.0 * m0 - m1) / h, m0, y0});
  }
  return f;
}

// The value polynomial of each span of a weighted curve, taken as if time ran
// linearly in the Bezier parameter: the cost of a weighted sample without its
// root finding, and the same work per sample as hermiteFloor.
TfloorCurve bezierValueFloor(const TparamCurve& curve) {
  TfloorCurve f;
  const unsigned n = curve.keyframeCount();
  for (unsigned i = 0; i < n; ++i) f.keyTimes.push_back(curve.seconds(i));
  for (unsigned i = 0; i + 1 < n; ++i) {
    float ox = 0.0f, oy = 0.0f, ix = 0.0f, iy = 0.0f;
    curve.keyframe(i)->getTanOut(ox, oy);
    curve.keyframe(i + 1)->getTanIn(ix, iy);
    const double h = f.keyTimes[i + 1] - f.keyTimes[i];
    const double p0 = curve.keyframe(i)->value();
    const double p3 = curve.keyframe(i + 1)->value();
    const double p1 = p0 + oy / 3.0;
    const double p2 = p3 - iy / 3.0;
    // Power basis in u = s / h, rescaled to s.
    const double c3 = p3 - 3.0 * p2 + 3.0 * p1 - p0;
    const double c2 = 3.0 * (p2 - 2.0 * p1 + p0);
    const double c1 = 3.0 * (p1 - p0);
    f.spans.push_back({c3 / (h * h * h), c2 / (h * h), c1 / h, p0});
  }
  return f;
}

// Samples are written to an output buffer, as a host fills an animation
// channel; the curve benchmarks do the same, so both pay the same stores.
void floorSequential(const TfloorCurve& f, const std::vector<float>& times, double* out) {
  std::size_t span = 0;
  const std::size_t lastSpan = f.spans.size() - 1;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const double t = times[i];
    while (span < lastSpan && t >= f.keyTimes[span + 1]) ++span;
    out[i] = horner(f.spans[span], t - f.keyTimes[span]);
  }
}

double floorAt(const TfloorCurve& f, double t) {
  const auto after = std::upper_bound(f.keyTimes.begin(), f.keyTimes.end(), t);
  const std::ptrdiff_t lastSpan = static_cast<std::ptrdiff_t>(f.spans.size()) - 1;
  const auto span = static_cast<std::size_t>(
      std::clamp<std::ptrdiff_t>(after - f.keyTimes.begin() - 1, 0, lastSpan));
  return horner(f.spans[span], t - f.keyTimes[span]);
}

void floorRandom(const TfloorCurve& f, const std::vector<float>& times, double* out) {
  for (std::size_t i = 0; i < times.size(); ++i) out[i] = floorAt(f, times[i]);
}

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

std::vector<float> randomTimes(unsigned count, double end) {
  std::vector<float> times;
  std::uint64_t state = kSeed;
  for (unsigned i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    times.push_back(static_cast<float>(static_cast<double>(state >> 11) * 0x1p-53 * end));
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

// Weighted keys whose handles reach 0.4 of the span forwards and 0.25 back,
// so time is not linear in the Bezier parameter anywhere.
std::unique_ptr<TparamCurve> makeOffThirdsCurve(unsigned keys) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(true);
  std::uint32_t state = kSeed;
  for (unsigned i = 0; i < keys; ++i) {
    state = state * 1664525u + 1013904223u;
    const double value = static_cast<double>(state >> 8) / 8388608.0 - 1.0;
    const float slope = static_cast<float>(static_cast<int>(state % 200) - 100) / 100.0f;
    Tkeyframe key(static_cast<float>(i), value, kTangentFixed, kTangentFixed);
    key.setTanIn(0.75f, 0.75f * slope);
    key.setTanOut(1.2f, 1.2f * slope);
    c->add(key);
  }
  return c;
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

// Curve queries on long curves: finding the key closest to a time, or the
// next key (in the keys or in a cycled copy), must stay logarithmic in the
// keys (a search, then the neighbours), and a bounding box linear.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"

namespace {

using lumora::TanimTime;
using lumora::TparamCurve;
using lumora::TtimeValue;

// A tick curve with `keys` spline keys a frame (100 ticks) apart.
std::unique_ptr<TparamCurve> makeCurve(unsigned keys) {
  auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
  lumora::TanimTimeArray times;
  lumora::TdoubleArray values;
  for (unsigned i = 0; i < keys; ++i) {
    times.addLast(TanimTime(static_cast<std::int32_t>(i) * 100));
    values.addLast(static_cast<double>((i * 7919u) % 101u) / 10.0);
  }
  curve->blockAdd(&times, &values, lumora::kTangentSpline, lumora::kTangentSpline,
                  /*ascending=*/true);
  return curve;
}

// Times spread over the whole curve, off the keys, in a scattered order.
std::vector<TtimeValue> probeTimes(unsigned keys) {
  std::vector<TtimeValue> times;
  std::uint32_t state = 12345u;
  for (unsigned i = 0; i < 4096; ++i) {
    state = state * 1664525u + 1013904223u;
    const auto tick = static_cast<std::int32_t>((state >> 4) % (keys * 100u));
    times.emplace_back(TanimTime(tick | 1));
  }
  return times;
}

void BM_FindClosestKeyframe(benchmark::State& state) {
  const auto keys = static_cast<unsigned>(state.range(0));
  const auto curve = makeCurve(keys);
  const std::vector<TtimeValue> times = probeTimes(keys);
  std::size_t i = 0;
  for (auto _ : state) {
    const std::unique_ptr<lumora::TkeyframeHandle> h(
        curve->findClosestKeyframe(times[i++ % times.size()]));
    benchmark::DoNotOptimize(h.get());
  }
}
BENCHMARK(BM_FindClosestKeyframe)->Arg(1000)->Arg(1000000);

// The next key after scattered times, half of them in a cycled copy (a new
// key the caller deletes).
void BM_GetNextKey(benchmark::State& state) {
  const auto keys = static_cast<unsigned>(state.range(0));
  const auto curve = makeCurve(keys);
  curve->setPostInfinityType(TparamCurve::kCycleRelative);
  std::vector<TtimeValue> times = probeTimes(keys);
  for (std::size_t k = 0; k < times.size(); k += 2) {
    times[k] = TtimeValue(
        TanimTime(times[k].asAnimTime().inTicks() + static_cast<std::int32_t>(keys) * 100));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    bool allocated = false;
    lumora::Tkeyframe* key = curve->getNextKey(times[i++ % times.size()], true, allocated);
    benchmark::DoNotOptimize(key);
    if (allocated) delete key;
  }
}
BENCHMARK(BM_GetNextKey)->Arg(1000)->Arg(1000000);

void BM_BoundingBox(benchmark::State& state) {
  const auto keys = static_cast<unsigned>(state.range(0));
  const auto curve = makeCurve(keys);
  for (auto _ : state) {
    float minTime = 0.0f, maxTime = 0.0f;
    double minValue = 0.0, maxValue = 0.0;
    curve->boundingBox(minTime, minValue, maxTime, maxValue, false);
    benchmark::DoNotOptimize(minValue);
    benchmark::DoNotOptimize(maxValue);
  }
}
BENCHMARK(BM_BoundingBox)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

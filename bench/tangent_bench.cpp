// An interactive tangent drag: 1,000 picked keys spread over a 100,000-key
// curve, every picked key's tangents locked and both of its tangents picked,
// dragged by many successive adjustTangents steps inside one recording, as
// a graph editor does while the pointer moves. Every step turns both sides
// of every picked key and records two tangent records per key.
//
// Reported:
//   ms_per_call     the mean time of one adjustTangents step
//   first_call_ms   the first step of the drag
//   last_call_ms    the last step (the recording grows; steps must not)
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <memory>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"

namespace {

using lumora::TanimTime;
using lumora::TparamCurve;
using lumora::TpickKey;
using lumora::TpickKeyDictionary;

constexpr unsigned kKeys = 100000;
constexpr std::int32_t kTicksPerKey = 100;
constexpr int kCalls = 60;

std::unique_ptr<TparamCurve> lockedCurve(bool weighted) {
  lumora::TanimTimeArray times;
  lumora::TdoubleArray values;
  for (unsigned i = 0; i < kKeys; ++i) {
    times.addLast(TanimTime(static_cast<std::int32_t>(i) * kTicksPerKey));
    values.addLast(std::sin(i * 0.01) * 10.0);
  }
  auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
  curve->setIsWeighted(weighted);
  curve->blockAdd(&times, &values, lumora::kTangentSpline, lumora::kTangentSpline, true);
  for (unsigned i = 0; i < kKeys; ++i) curve->keyframe(i)->setTangentsLocked(true);
  return curve;
}

void BM_TangentDragPickedKeys(benchmark::State& state) {
  const bool weighted = state.range(0) != 0;
  const auto picked = static_cast<unsigned>(state.range(1));
  double total = 0.0;
  double first = 0.0;
  double last = 0.0;
  long calls = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto curve = lockedCurve(weighted);
    TpickKeyDictionary picks;
    for (unsigned p = 0; p < picked; ++p) {
      TpickKey pick;
      pick.create(curve.get(), p * (kKeys / picked) + 7,
                  lumora::TbitField32(TpickKey::kPickInTangent | TpickKey::kPickOutTangent));
      picks.insert(pick.time(), pick);
    }
    lumora::TparamCurveDeltaUser action;
    action.beginParamCurveMod(*curve);
    state.ResumeTiming();
    for (int call = 1; call <= kCalls; ++call) {
      const auto t0 = std::chrono::steady_clock::now();
      // Small steps up and to the right, as a pointer moves between frames.
      const bool dragged =
          curve->adjustTangents(picks, 0.0005f, 0.002f, 1.0f, 1.0f, 1.0f, false, false);
      const double ms =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
      if (!dragged) state.SkipWithError("adjustTangents refused");
      total += ms;
      if (call == 1) first += ms;
      if (call == kCalls) last += ms;
      ++calls;
    }
    state.PauseTiming();
    action.endParamCurveMod(*curve);
    curve.reset();
    state.ResumeTiming();
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["ms_per_call"] = total / static_cast<double>(calls);
  state.counters["first_call_ms"] = first / runs;
  state.counters["last_call_ms"] = last / runs;
}
BENCHMARK(BM_TangentDragPickedKeys)
    ->ArgsProduct({{0, 1}, {1000}})
    ->ArgNames({"weighted", "picks"})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace

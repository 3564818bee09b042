// An interactive drag: picked keys spread over a long curve, moved by many
// successive moveKeys calls of a growing offset measured from their start
// times, all inside one recording, as a graph editor does while the mouse
// moves. Each key passes at most a couple of neighbours.
//
// Reported per option (0 keep order, 1 ripple, 2 pass, 3 pass relative):
//   ms_per_call     the mean time of one moveKeys call
//   first_call_ms   the first call of the drag
//   last_call_ms    the last call (merging must not grow with the drag)
// Run with 1,000 and 10,000 picks to see how the cost grows with the picks.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <vector>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/param_curve_delta.h"

namespace {

using lumora::TanimTime;
using lumora::TkeyframeHandle;
using lumora::TkeyframeHandlePtrArray;
using lumora::TparamCurve;
using lumora::TtimeValue;
using lumora::TtimeValueArray;

constexpr unsigned kKeys = 100000;
constexpr std::int32_t kTicksPerKey = 100;
constexpr int kCalls = 60;
// Per call the offset grows by 3 ticks: after 60 calls 180 ticks, under two
// key spacings.
constexpr std::int32_t kStepTicks = 3;

std::unique_ptr<TparamCurve> longCurve() {
  lumora::TanimTimeArray times;
  lumora::TdoubleArray values;
  for (unsigned i = 0; i < kKeys; ++i) {
    times.addLast(TanimTime(static_cast<std::int32_t>(i) * kTicksPerKey));
    values.addLast(std::sin(i * 0.01) * 10.0);
  }
  auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
  curve->blockAdd(&times, &values, lumora::kTangentSpline, lumora::kTangentSpline, true);
  return curve;
}

void BM_DragPickedKeys(benchmark::State& state) {
  const auto option = static_cast<TparamCurve::TmoveOption>(state.range(0));
  const auto picks = static_cast<unsigned>(state.range(1));
  double total = 0.0;
  double first = 0.0;
  double last = 0.0;
  long calls = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto curve = longCurve();
    std::vector<TkeyframeHandle> owned;
    owned.reserve(picks);
    for (unsigned p = 0; p < picks; ++p) owned.emplace_back(curve.get(), p * (kKeys / picks) + 7);
    TkeyframeHandlePtrArray handles;
    TtimeValueArray starts;
    for (TkeyframeHandle& h : owned) {
      handles.addLast(&h);
      starts.addLast(h.timeValue());
    }
    lumora::TparamCurveDeltaUser action;
    action.beginParamCurveMod(*curve);
    curve->beginEdit(TparamCurve::kEditMoveKeys, handles);
    state.ResumeTiming();
    for (int call = 1; call <= kCalls; ++call) {
      const auto t0 = std::chrono::steady_clock::now();
      const bool moved = curve->moveKeys(handles, starts, TtimeValue(TanimTime(call * kStepTicks)),
                                         0.0, option, true, true, true, false);
      const double ms =
          std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
      if (!moved) state.SkipWithError("moveKeys refused");
      total += ms;
      if (call == 1) first += ms;
      if (call == kCalls) last += ms;
      ++calls;
    }
    state.PauseTiming();
    curve->endEdit();
    action.endParamCurveMod(*curve);
    curve.reset();
    state.ResumeTiming();
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["ms_per_call"] = total / static_cast<double>(calls);
  state.counters["first_call_ms"] = first / runs;
  state.counters["last_call_ms"] = last / runs;
}
BENCHMARK(BM_DragPickedKeys)
    ->ArgsProduct({{0, 1, 2, 3}, {1000, 10000}})
    ->ArgNames({"option", "picks"})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

}  // namespace

// Curve editing hot paths: loading a long curve in bulk, adding keys one by
// one in time order (the shape of a recording or an importer), and inserting
// a key that keeps the curve's shape into the middle of a long curve.
//
// BM_BlockAddMillionKeys also reports the memory a loaded key costs:
// bytes_per_key = (key pool pages taken + the key array's block + the curve
// object) / keys.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <memory>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "lumora/base/arena.h"
#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/internal/key_pool.h"
#include "lumora/keys/keyframe.h"

namespace {

using lumora::TanimTime;
using lumora::TanimTimeArray;
using lumora::TdoubleArray;
using lumora::Tkeyframe;
using lumora::TparamCurve;
using lumora::TtimeValue;

constexpr unsigned kMillion = 1000000;
// Keys 1/60 s apart: a long take sampled every frame.
constexpr std::int32_t kTicksPerKey = 100;

void fillAscending(unsigned keys, TanimTimeArray& times, TdoubleArray& values) {
  times.changePhysicalSizeTo(keys);
  values.changePhysicalSizeTo(keys);
  for (unsigned i = 0; i < keys; ++i) {
    times.addLast(TanimTime(static_cast<std::int32_t>(i) * kTicksPerKey));
    values.addLast(std::sin(i * 0.01) * 10.0);
  }
}

std::size_t poolBytes() {
  const lumora::TcompactArena* pool = lumora::internal::keyPool();
  return pool ? pool->bytesReserved() : 0;
}

// Bytes the process holds from malloc, small blocks and mapped ones alike.
// The key array is private to the curve, so its block is measured as the
// heap growth that the pool does not account for.
std::size_t heapBytes() {
#if defined(__GLIBC__)
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#else
  return 0;
#endif
}

void BM_BlockAddMillionKeys(benchmark::State& state) {
  TanimTimeArray times;
  TdoubleArray values;
  fillAscending(kMillion, times, values);
  double bytesPerKey = 0.0;
  for (auto _ : state) {
    state.PauseTiming();
    auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
    // Pages kept warm by earlier runs would hide what this load takes.
    if (lumora::TcompactArena* pool = lumora::internal::keyPool()) pool->releaseEmptyPages();
    const std::size_t pool0 = poolBytes();
    const std::size_t heap0 = heapBytes();
    state.ResumeTiming();

    const bool ok = curve->blockAdd(&times, &values, lumora::kTangentSpline, lumora::kTangentSpline,
                                    /*ascending=*/true);

    state.PauseTiming();
    const unsigned keys = curve->keyframeCount();
    if (!ok || keys != kMillion) state.SkipWithError("blockAdd refused keys");
    const std::size_t poolGrowth = poolBytes() - pool0;
    std::size_t arrayBytes = heapBytes() - heap0;
    arrayBytes = arrayBytes > poolGrowth ? arrayBytes - poolGrowth : keys * sizeof(void*);
    bytesPerKey = static_cast<double>(poolGrowth + arrayBytes + sizeof(TparamCurve)) / keys;
    curve.reset();
    state.ResumeTiming();
  }
  state.counters["bytes_per_key"] = bytesPerKey;
  state.SetItemsProcessed(state.iterations() * kMillion);
}
BENCHMARK(BM_BlockAddMillionKeys)->Unit(benchmark::kMillisecond);

void BM_AddAscending(benchmark::State& state) {
  const auto keys = static_cast<unsigned>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    auto curve = std::make_unique<TparamCurve>(/*isFloat=*/false);
    state.ResumeTiming();
    for (unsigned i = 0; i < keys; ++i) {
      const Tkeyframe key(TanimTime(static_cast<std::int32_t>(i) * kTicksPerKey),
                          std::sin(i * 0.01) * 10.0, lumora::kTangentSpline,
                          lumora::kTangentSpline);
      curve->add(key);
    }
    state.PauseTiming();
    if (curve->keyframeCount() != keys) state.SkipWithError("add refused keys");
    curve.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * keys);
}
BENCHMARK(BM_AddAscending)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_InsertKeepShapeMiddle(benchmark::State& state) {
  constexpr unsigned kKeys = 100000;
  TanimTimeArray times;
  TdoubleArray values;
  fillAscending(kKeys, times, values);
  TparamCurve curve(/*isFloat=*/false);
  curve.blockAdd(&times, &values, lumora::kTangentSpline, lumora::kTangentSpline, true);
  unsigned span = kKeys / 2;
  for (auto _ : state) {
    // Halfway between two neighbouring keys near the middle of the curve.
    const TtimeValue at(
        TanimTime(static_cast<std::int32_t>(span) * kTicksPerKey + kTicksPerKey / 2));
    if (!curve.insert(at, /*breakdown=*/false, /*allSiblings=*/false)) {
      state.SkipWithError("insert refused");
      break;
    }
    state.PauseTiming();
    curve.remove(span + 1);  // back to the same number of keys
    span = span + 1 < kKeys / 2 + 1000 ? span + 1 : kKeys / 2;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_InsertKeepShapeMiddle)->Unit(benchmark::kMicrosecond);

}  // namespace

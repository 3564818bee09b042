// Appending values one by one and summing them by index: the pattern of
// sampling a curve into a buffer. TdoubleArray should keep pace with
// std::vector<double> here.
#include <benchmark/benchmark.h>

#include <vector>

#include "lumora/base/typed_array.h"

namespace {

constexpr unsigned kValues = 1000000;

void BM_TdoubleArrayAppendAndSum(benchmark::State& state) {
  for (auto _ : state) {
    lumora::TdoubleArray values;
    for (unsigned i = 0; i < kValues; ++i) values.addLast(static_cast<double>(i) * 0.5);
    double sum = 0.0;
    for (unsigned i = 0; i < values.count(); ++i) sum += values[i];
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(BM_TdoubleArrayAppendAndSum);

void BM_StdVectorAppendAndSum(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<double> values;
    for (unsigned i = 0; i < kValues; ++i) values.push_back(static_cast<double>(i) * 0.5);
    double sum = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) sum += values[i];
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kValues);
}
BENCHMARK(BM_StdVectorAppendAndSum);

}  // namespace

// Every algorithm's public kernel on one block: resampling, arithmetic and conversion to 16 bits. What the methods
// differ in is their arithmetic.
#include <benchmark/benchmark.h>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "benchmarks/memory_scene.h"
#include "benchmarks/opened_run.h"
#include "framework/row_kernel.h"
#include "framework/shared_division.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/simple_pan_sharpening_fusion.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace {

FusionParam Param() {
  const bench::MemoryScene& scene = bench::OneBlockScene();
  FusionParam param;
  param.m_strPanFile = scene.pan;
  param.m_strMSFile = scene.ms;
  param.m_strOutFile = L"/vsimem/benchmark/fused.tif";
  param.m_eOutDataType = PDT_UINT16;
  return param;
}

/// What an algorithm is given by others before its run.
template <typename Algorithm>
void Supply(Algorithm& /*algorithm*/) {}

void Supply(CHpfFusion& algorithm) {
  static double deviations[bench::kBands] = {300.0, 300.0, 300.0, 300.0};
  algorithm.SetMulStdvValue(deviations);
}

void Supply(BayesPanSharpeningFusion& algorithm) {
  constexpr std::size_t n = bench::kBands;
  BayesianModel model;
  model.weight = 0.5;
  model.panMean = 10.0;
  model.panVariance = 1.0;
  model.panCovariance.assign(n, 0.2);
  model.transform.assign(n * n, 0.01);
  for (std::size_t i = 0; i < n; ++i) model.transform[i * (n + 1)] = 0.9;
  algorithm.SetModel(model);
}

template <typename Algorithm>
void FuseBlock(benchmark::State& state) {
  FusionParam param = Param();
  bench::OpenedRun<Algorithm> run(param);
  Supply(static_cast<Algorithm&>(run));
  if (!run.Open() || !run.Load(run.Grid().Block(0, 0))) {
    state.SkipWithError("cannot open the scene");
    return;
  }
  // Stands for the smoothed pan image of the sharpening; high-pass fusion is measured with one filter.
  constexpr bool kTakesDetail = std::is_same_v<Algorithm, CSimplePanSharpeningFusion>;
  const std::int64_t pixels = std::int64_t{bench::MemoryScene::kWidth} * bench::MemoryScene::kHeight;
  std::vector<double> detail = bench::RandomValues(kTakesDetail ? static_cast<std::size_t>(pixels) : 0);
  for (auto _ : state) {
    void** bands = run.Fuse(kTakesDetail ? detail.data() : nullptr);
    benchmark::DoNotOptimize(bands);
    if (!bands) state.SkipWithError("the kernel made nothing");
    fusion::FreeBlock(run.Type(), run.BandCount(), bands);
  }
  state.SetItemsProcessed(state.iterations() * pixels);
}

/// The ways to divide, by the bands' sum, rows that stay in the cache.
void ShareRows(benchmark::State& state) {
  const auto way = static_cast<fusion::Division>(state.range(0));
  if (!fusion::CanDivide(way)) {
    state.SkipWithError("not on this processor");
    return;
  }
  constexpr std::size_t kWidth = 2048;
  const std::vector<double> values = bench::RandomValues(kWidth * (bench::kBands + 2));
  std::vector<double> out(kWidth * bench::kBands);
  std::vector<const double*> rows;
  std::vector<double*> targets;
  for (std::size_t b = 0; b < bench::kBands; ++b) {
    rows.push_back(values.data() + b * kWidth);
    targets.push_back(out.data() + b * kWidth);
  }
  const double* const pan = values.data() + bench::kBands * kWidth;
  for ([[maybe_unused]] auto _ : state) {
    fusion::ShareRows(rows.data(), pan, pan + kWidth, bench::kBands, kWidth, targets.data(), way);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kWidth));
}
BENCHMARK(ShareRows)->DenseRange(0, 2);

// Wall time: some kernels share their rows out among threads.
BENCHMARK(FuseBlock<CBroveyFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CMultipleFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CWeightFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CIhsTranFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CPrinComponentFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CHpfFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<CSimplePanSharpeningFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(FuseBlock<BayesPanSharpeningFusion>)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

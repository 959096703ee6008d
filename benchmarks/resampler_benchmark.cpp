// The row resampler on one tile of a block.
#include <benchmark/benchmark.h>

#include "benchmarks/memory_scene.h"
#include "framework/resampling/kernels.h"
#include "framework/resampling/row_resampler.h"
#include "framework/row_kernel.h"

namespace {

constexpr int kTileWidth = 1024;
constexpr int kMargin = 10;

/// The multispectral pixels under a tile, with the block loop's margin.
struct Tile {
  CRect rect{0, 0, kTileWidth / bench::kRatio + 2 * kMargin, bench::kBlockHeight / bench::kRatio + 2 * kMargin};
  std::vector<std::vector<double>> bands;
  std::vector<const double*> pointers;
  std::vector<std::vector<double>> out;
  std::vector<double*> outPointers;
  std::vector<double> x = std::vector<double>(kTileWidth);
  std::vector<double> y = std::vector<double>(kTileWidth);

  Tile() {
    const auto slack = static_cast<std::size_t>(rect.Width()) + 2;
    for (int b = 0; b < bench::kBands; ++b) {
      bands.push_back(bench::RandomValues(static_cast<std::size_t>(rect.Area()) + slack));
      out.emplace_back(kTileWidth);
    }
    for (const auto& band : bands) pointers.push_back(band.data());
    for (auto& row : out) outPointers.push_back(row.data());
    for (int i = 0; i < kTileWidth; ++i) x[static_cast<std::size_t>(i)] = Position(i);
  }

  static double Position(int pixel) { return kMargin + (pixel + 0.5) / bench::kRatio - 0.5; }
  fusion::RowResampler Resampler(const benchmark::State& state) const {
    return {static_cast<ResampleType>(state.range(0)), pointers.data(), bench::kBands, rect};
  }
};

void CountPixels(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * std::int64_t{kTileWidth} * bench::kBlockHeight);
}

void ResampleRows(benchmark::State& state) {
  Tile tile;
  for (auto _ : state) {
    fusion::RowResampler resampler = tile.Resampler(state);
    resampler.SetColumns(tile.x.data(), kTileWidth);
    for (int row = 0; row < bench::kBlockHeight; ++row) {
      resampler.ResampleRow(Tile::Position(row), tile.outPointers.data());
      benchmark::ClobberMemory();
    }
  }
  CountPixels(state);
}

/// Positions as a reprojection gives them: every pixel has its own, along slightly rotated rows.
void ResamplePoints(benchmark::State& state) {
  constexpr double kSlope = 0.004;
  Tile tile;
  for (auto _ : state) {
    fusion::RowResampler resampler = tile.Resampler(state);
    for (int row = 0; row < bench::kBlockHeight; ++row) {
      for (std::size_t i = 0; i < tile.y.size(); ++i) {
        tile.y[i] = Tile::Position(row) + kSlope * static_cast<double>(i);
      }
      resampler.ResamplePoints(tile.x.data(), tile.y.data(), kTileWidth, tile.outPointers.data());
      benchmark::ClobberMemory();
    }
  }
  CountPixels(state);
}

void AllKernels(benchmark::internal::Benchmark* b) {
  b->ArgName("kernel")->Unit(benchmark::kMillisecond);
  for (const ResampleType type : fusion::kResampleTypes) b->Arg(type);
}

BENCHMARK(ResampleRows)->Apply(AllKernels);
BENCHMARK(ResamplePoints)->Apply(AllKernels);

}  // namespace

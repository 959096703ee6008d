// Reading and writing GeoTIFFs in memory in blocks of whole rows, through the platform layer.
#include <benchmark/benchmark.h>

#include <string>

#include "benchmarks/memory_scene.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"

namespace {

constexpr int kWidth = 4096;
constexpr int kHeight = 2 * bench::kBlockHeight;
constexpr std::int64_t kPixels = std::int64_t{kWidth} * kHeight;

using Options = std::vector<const char*>;

/// Opened anew each time, so that no block is in a cache.
void ReadBlocks(benchmark::State& state, const Options& options) {
  const std::wstring path = L"/vsimem/benchmark/read.tif";
  bench::WriteRandomRaster(path, kWidth, kHeight, 1, 1.0, options);
  std::vector<double> values(static_cast<std::size_t>(kWidth) * bench::kBlockHeight);
  for (auto _ : state) {
    CRasterSource source;
    bool read = source.OpenSimple(path);
    for (int top = 0; read && top < kHeight; top += bench::kBlockHeight) {
      read = source.GetRasterBand(0)->ReadBlock(0, top, kWidth, bench::kBlockHeight, values.data(), kWidth,
                                                bench::kBlockHeight, PDT_FLOAT64) == 0;
      benchmark::ClobberMemory();
    }
    if (!read) state.SkipWithError("cannot read");
  }
  state.SetItemsProcessed(state.iterations() * kPixels);
  CRasterSource::DeleteFileW(path);
}
BENCHMARK_CAPTURE(ReadBlocks, strips, Options{})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadBlocks, tiles, Options{"TILED=YES"})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadBlocks, deflate_strips, Options{"COMPRESS=DEFLATE"})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadBlocks, deflate_tiles, Options{"COMPRESS=DEFLATE", "TILED=YES"})->Unit(benchmark::kMillisecond);

/// All bands of an output, from creation to close.
void WriteBlocks(benchmark::State& state, PixelDataType type) {
  const std::wstring path = L"/vsimem/benchmark/write.tif";
  const double geoTransform[6] = {440000.0, 1.0, 0.0, 4475000.0, 0.0, -1.0};
  const std::vector<char> block(static_cast<std::size_t>(kWidth * bench::kBlockHeight * platform::PixelSize(type)), 1);
  for (auto _ : state) {
    CRasterSource source;
    bool written =
        source.CreateRaster(kFormatGeoTiff, path, kWidth, kHeight, bench::kBands, type, geoTransform, L"", nullptr);
    for (int top = 0; written && top < kHeight; top += bench::kBlockHeight) {
      for (int b = 0; written && b < bench::kBands; ++b) {
        written = source.GetRasterBand(b)->WriteBlock(0, top, kWidth, bench::kBlockHeight, block.data(), kWidth,
                                                      bench::kBlockHeight, type) == 0;
      }
    }
    if (!source.Close() || !written) state.SkipWithError("cannot write");
  }
  state.SetItemsProcessed(state.iterations() * kPixels);
  CRasterSource::DeleteFileW(path);
}
BENCHMARK_CAPTURE(WriteBlocks, uint16, PDT_UINT16)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteBlocks, float32, PDT_FLOAT32)->Unit(benchmark::kMillisecond);

}  // namespace

// From computed rows of doubles to output pixels, for every pixel type.
#include <benchmark/benchmark.h>

#include <limits>

#include "benchmarks/memory_scene.h"
#include "platform/algorithm/value_conversion.h"
#include "platform/raster/raster_algorithm.h"

namespace {

constexpr std::size_t kRowWidth = 1024;

void ConvertRow(benchmark::State& state) {
  const auto type = static_cast<PixelDataType>(state.range(0));
  platform::ValueConversion conversion;
  conversion.m_bStretch = state.range(1) != 0;
  CRasterAlgorithm::GetMaxMinVal(type, conversion.m_dOutMax, conversion.m_dOutMin);
  std::vector<double> values = bench::RandomValues(kRowWidth);
  // What a conversion must also cope with.
  values[1] = -1e300;
  values[2] = 1e300;
  values[3] = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> out(kRowWidth);  // large enough for every type
  for (auto _ : state) {
    conversion.ConvertRow(type, values.data(), out.data(), kRowWidth);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kRowWidth));
}
BENCHMARK(ConvertRow)->ArgNames({"type", "stretch"})->ArgsProduct({{1, 2, 3, 4, 5, 6, 7}, {0, 1}});

}  // namespace

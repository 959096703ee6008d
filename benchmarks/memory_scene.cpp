#include "benchmarks/memory_scene.h"

#include <random>
#include <stdexcept>

#include "platform/raster/raster_source.h"

namespace bench {

std::vector<double> RandomValues(std::size_t n) {
  std::mt19937 generator(1);
  std::vector<double> values(n);
  for (double& value : values) value = 200.0 + static_cast<double>(generator() % 3801);
  return values;
}

void WriteRandomRaster(const std::wstring& path, int width, int height, int bands, double pixel,
                       const std::vector<const char*>& options) {
  const double geoTransform[6] = {440000.0, pixel, 0.0, 4475000.0, 0.0, -pixel};
  std::vector<const char*> list = options;
  list.push_back(nullptr);
  CRasterSource source;
  bool written = source.CreateRaster(kFormatGeoTiff, path, width, height, bands, PDT_UINT16, geoTransform,
                                     L"EPSG:32630", list.data());
  const std::vector<double> values = RandomValues(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (int b = 0; written && b < bands; ++b) {
    written = source.GetRasterBand(b)->WriteBlock(0, 0, width, height, values.data(), width, height, PDT_FLOAT64) == 0;
  }
  if (!source.Close() || !written) throw std::runtime_error("cannot write a raster in memory");
}

const MemoryScene& OneBlockScene() {
  static const MemoryScene scene = [] {
    const MemoryScene made;
    WriteRandomRaster(made.pan, MemoryScene::kWidth, MemoryScene::kHeight, 1, 1.0);
    WriteRandomRaster(made.ms, MemoryScene::kWidth / kRatio, MemoryScene::kHeight / kRatio, kBands, kRatio);
    return made;
  }();
  return scene;
}

}  // namespace bench

#pragma once

#include <string>
#include <vector>

#include "platform/raster/raster_types.h"

/// Rasters in memory for the micro-benchmarks: the same random values in every run.
namespace bench {

constexpr int kBands = 4;
constexpr int kRatio = 4;          ///< multispectral pixel over pan pixel
constexpr int kBlockHeight = 512;  ///< lines of a block of the library's block loop

/// n values between 200 and 4000.
std::vector<double> RandomValues(std::size_t n);

/// A GeoTIFF of random 16-bit values. Options are GDAL's, such as "TILED=YES".
/// @throw std::runtime_error where it cannot be written
void WriteRandomRaster(const std::wstring& path, int width, int height, int bands, double pixel,
                       const std::vector<const char*>& options = {});

/// A pan and a multispectral raster that make one block of the block loop.
struct MemoryScene {
  static constexpr int kWidth = 2048;
  static constexpr int kHeight = kBlockHeight;
  std::wstring pan = L"/vsimem/benchmark/pan.tif";
  std::wstring ms = L"/vsimem/benchmark/ms.tif";
};

/// Written on first use.
const MemoryScene& OneBlockScene();

}  // namespace bench

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/raster/raster_types.h"

/// Rasters of any shape for tests, written with GDAL alone, none of the library's code.
namespace test_support {

struct TestRaster {
  int width = 0;
  int height = 0;
  std::vector<std::vector<double>> bands;  ///< row-major; must be representable in the type
  PixelDataType type = PDT_FLOAT64;
  std::optional<std::vector<double>> geoTransform;  ///< six terms; may be rotated
  std::string wkt;
  std::optional<double> noData;
  std::string driver = "GTiff";
  std::vector<std::string> options;  ///< GDAL creation options, NAME=VALUE
};

/// A raster of one band whose pixel (x, y) is f(x, y).
template <typename F>
TestRaster MakeRaster(int width, int height, const F& f) {
  TestRaster raster;
  raster.width = width;
  raster.height = height;
  raster.bands.emplace_back();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) raster.bands[0].push_back(f(x, y));
  }
  return raster;
}

/// False, and a test failure, when it cannot be written.
bool WriteRaster(const TestRaster& raster, const std::wstring& path);

/// A fresh name in the memory file system.
std::wstring MemoryPath(const std::wstring& extension = L"tif");

/// A folder on disk that disappears with the object.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Root() const { return m_path; }
  std::wstring Path(const std::wstring& name) const;
  /// Names of all files, sorted.
  std::vector<std::string> Files() const;

 private:
  std::filesystem::path m_path;
};

/// Makes a text file, in memory or on disk.
void WriteText(const std::wstring& path, const std::string& text);
/// A file's bytes; empty where it does not exist.
std::string FileContent(const std::wstring& path);

/// The folder of a real scene with its pan.tif and ms.tif; empty where the scenes are not installed beside the
/// checkout. Tests skip then.
std::wstring RealSceneFolder(const std::string& scene);

/// EPSG code as WKT.
std::string WktOfEpsg(int code);
std::wstring WideWktOfEpsg(int code);
/// One band of an image, counted from 1, as an image of its own.
void CopyBand(const std::string& from, int band, const std::string& to);
/// Whether a file's name stands for a format that GDAL as it is built here does not know. That of Windows stands on
/// fewer libraries.
bool IsOfUnknownFormat(const std::string& file);

}  // namespace test_support

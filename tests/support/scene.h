#pragma once

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "framework/fusion_param.h"
#include "tests/support/reference_kernel.h"

/// Small pan and multispectral scenes in memory, known to the reference kernel and written as files for the library.
namespace test_support {

/// Writes an image as a GeoTIFF. Values must be representable in the type. Options are GDAL's, such as "TILED=YES".
void WriteImage(const reference::Image& image, const std::wstring& path, PixelDataType type,
                const std::string& wkt = "", std::optional<double> noData = std::nullopt,
                const std::vector<std::string>& options = {});
/// Reads a whole raster as doubles.
reference::Image ReadImage(const std::wstring& path);
bool FileExists(const std::wstring& path);
/// Files in the memory file system whose name contains the text.
std::vector<std::wstring> FilesNamedLike(const std::wstring& text);

struct SceneOptions {
  int panWidth = 37;
  int panHeight = 29;
  double ratio = 2.0;  ///< MS pixel over pan pixel
  int msBands = 3;
  double msShiftX = 0.0;  ///< of the MS origin, in pan pixels
  double msShiftY = 0.0;
  int msWidth = 0;  ///< 0: enough to cover the pan image
  int msHeight = 0;
  PixelDataType panType = PDT_UINT16;
  PixelDataType msType = PDT_UINT16;
  std::string panWkt;
  std::string msWkt;
  std::optional<double> panNoData;
  std::optional<double> msNoData;
  double low = 1.0;
  double high = 1000.0;
  bool southUp = false;
};

/// A random scene; the files are removed with the object.
class Scene {
 public:
  explicit Scene(unsigned seed, const SceneOptions& options = {});
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// Parameters that fuse the scene: paths, area filled in by the run, output type as given.
  FusionParam Param(PixelDataType outType = PDT_FLOAT64) const;
  /// The reference run that belongs to them.
  reference::Run Reference(const FusionParam& param) const;

  reference::Image pan;
  reference::Image ms;
  std::wstring panFile;
  std::wstring msFile;
  std::wstring outFile;
};

/// The library's output equals the reference, element by element, but for the given part of a finite value.
void ExpectEqual(const reference::Image& actual, const std::vector<std::vector<double>>& expected,
                 double tolerance = 0.0);

/// UTM zone 30 north and WGS 84 geographic as WKT.
std::string UtmWkt();
std::string Wgs84Wkt();

/// A vector file with one triangle and no coordinate system of its own.
void WriteTriangle(const std::wstring& path, reference::Position a, reference::Position b, reference::Position c);
/// The same with several triangles.
void WriteTriangles(const std::wstring& path, const std::vector<std::vector<reference::Position>>& triangles);

}  // namespace test_support

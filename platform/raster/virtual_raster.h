#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace platform {

/// A file that does not open, and GDAL's reason for it, which may be empty.
class OpenFailure : public std::runtime_error {
 public:
  OpenFailure(const std::wstring& file, const std::wstring& reason);
  const std::wstring& File() const { return m_strFile; }
  const std::wstring& Reason() const { return m_strReason; }

 private:
  std::wstring m_strFile;
  std::wstring m_strReason;
};

/// An in-memory view of a raster file: a choice of its bands and, if wanted, another georeference. The file itself is
/// not touched; the view disappears with the object.
class VirtualRaster {
 public:
  /// @param bands zero-based, in the order wanted; empty takes all
  /// @param geoTransform six terms or null for the file's own
  /// @param wkt coordinate system, empty for none, or null for the file's own
  /// @param noData declared for all bands where given
  /// @param northUp look at a rotated raster as CRasterSource presents it
  /// The file's mask, and its alpha where that is not among the bands, is the view's mask.
  /// Throws OpenFailure when the file does not open, std::runtime_error when it has no such band.
  VirtualRaster(const std::wstring& file, const std::vector<int>& bands, const double* geoTransform,
                const std::wstring* wkt, std::optional<double> noData = std::nullopt, bool northUp = false);
  ~VirtualRaster();
  VirtualRaster(const VirtualRaster&) = delete;
  VirtualRaster& operator=(const VirtualRaster&) = delete;

  /// Adds a band of another file of the same size, counted from 0, behind the others. Throws as the constructor does.
  void AddBand(const std::wstring& file, int band);
  /// The name under which CRasterSource opens the view.
  const std::wstring& Path() const { return m_strPath; }

 private:
  std::wstring m_strNorthUpPath;  ///< of what the view looks at, where that is no file
  std::wstring m_strPath;
};

}  // namespace platform

#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/raster/affine.h"
#include "platform/raster/bounding_box.h"
#include "platform/raster/raster_band.h"
#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

#ifdef DeleteFileW
#undef DeleteFileW
#endif

class CBaseProgress;

namespace platform {
class Survey;
class SurveyPass;
class Workers;
class WrittenRaster;
}  // namespace platform

/// A raster file. Pixel coordinates are corner-based: pixel (c, r) covers c..c+1 by r..r+1. Samples may be read and
/// written from several threads while it stays open.
class FUSION_API CRasterSource {
 public:
  CRasterSource();
  ~CRasterSource();
  CRasterSource(const CRasterSource&) = delete;
  CRasterSource& operator=(const CRasterSource&) = delete;

  /// Opens a file. With option true a raster whose georeference is not a plain north-up grid (rotated, ground control
  /// points, RPC) is presented through a north-up warp; with false it is taken as it lies.
  bool Open(const std::wstring& path, GISDataAccess access, bool option);
  /// Open(path, GDA_READ, false).
  bool OpenSimple(const std::wstring& path);
  /// Why the last Open failed, in the words of the library below; empty where it had none.
  const std::wstring& GetOpenFailure() const { return m_strOpenFailure; }

  /// Creates a file, replacing an existing one, and opens it for writing. Formats that can only be copied are written
  /// to a temporary GeoTIFF beside the path and copied at Close. False when the path cannot be written; nothing
  /// half-made stays behind then.
  bool CreateRaster(RasterDataFormat format, const std::wstring& path, int width, int height, int bandCount,
                    PixelDataType type, const double geoTransform[6], const std::wstring& wkt,
                    const char* const* options);
  /// The same with creation options of the format's driver, NAME=VALUE each.
  bool CreateRaster(RasterDataFormat format, const std::wstring& path, int width, int height, int bandCount,
                    PixelDataType type, const double geoTransform[6], const std::wstring& wkt,
                    const std::vector<std::string>& options);
  /// False when pending data could not be written. Closing a closed raster is a success. The reporter follows the copy
  /// that some formats end with, and may cancel it: that is a failure too, and *cancelled tells it.
  bool Close(CBaseProgress* progress = nullptr, bool* cancelled = nullptr);
  /// Closes a raster whose run has failed; that copy is not made.
  void Abandon();
  bool IsOpen() const;
  /// Until it is closed, the raster's samples that are not valid (declared no-data value, NaN, an infinity, left out by
  /// a mask band or by alpha) read as NaN where they are read as packed doubles.
  void SetMaskNoData(bool mask);
  bool IsMaskNoData() const;
  /// Until it is closed, passes over whole bands for their statistics read ahead on a thread of their own.
  void SetReadAhead(bool ahead);
  bool IsReadAhead() const;
  /// Until it is closed, such passes share their work out among these; null: among nobody. Not owned.
  void SetWorkers(platform::Workers* workers);
  platform::Workers* GetWorkers() const;
  /// Until it is closed, such passes are those of a survey; null: of none. Not owned.
  /// @param role what the raster is to the run, in the names of the passes
  void SetSurvey(platform::Survey* survey, const std::string& role);
  /// A pass over so many pieces of the raster.
  platform::SurveyPass Pass(const std::string& name, std::int64_t pieces) const;
  /// Until it is closed, a raster just created tells what it is and what its bands get; null: nobody.
  void TellWritten(std::shared_ptr<platform::WrittenRaster> written);
  platform::WrittenRaster* GetWritten() const;
  /// Declares one no-data value for all bands of a raster just created, where its type can hold it. Formats that cannot
  /// keep it do without.
  void DeclareNoData(double value);
  bool IsWritable() const;
  /// Whether Open presented it through a north-up warp.
  bool IsNorthUpView() const;

  std::wstring GetPath() const;
  int GetWidth() const;
  int GetHeight() const;
  int GetBandCount() const;
  /// Counted from 0, null outside.
  CRasterBand* GetRasterBand(int index) const;
  /// The type of band 0, PDT_UNKNOWN when closed.
  PixelDataType GetRasterDataType() const;
  /// Native block size of band 0.
  int GetBlockXSize() const;
  int GetBlockYSize() const;

  /// True, and six terms in GDAL's order, for an open raster; the identity where the file has no georeference.
  bool GetGeoTransform(double geoTransform[6]) const;
  /// False where positions on the ground are unknown (no geotransform in the file).
  bool HasGeoTransform() const;
  /// The coordinate system as WKT, empty where unknown.
  std::wstring GetSpatialReferenceWKT() const;

  /// Corner-based pixel coordinates to the ground.
  void ImageToGround(double x, double y, double& groundX, double& groundY) const;
  /// The same for the pixel's upper left corner.
  void ImageToGround(int x, int y, double& groundX, double& groundY) const;
  /// The ground coordinates of a rectangle's first and last edges (a rotated raster: bounding box of its corners).
  CBoundingBox ImageToGround(const CRect& rect) const;
  /// The ground to sample coordinates, see platform::SampleCoordinate: a whole number is the centre of a pixel.
  void GroundToImage(double groundX, double groundY, double& x, double& y) const;
  /// The smallest whole-pixel rectangle, corner-based, that covers the box, with a tolerance of 1e-6 pixel.
  CRect GroundToImage(const CBoundingBox& box) const;

  /// Both directions of the georeference, for code that maps whole rows.
  const platform::Affine& PixelToGround() const;
  const platform::Affine& GroundToPixel() const;

  /// Format number by file name extension, 0 when unknown.
  static RasterDataFormat GetDataFormat(const std::wstring& path);
  /// Removes a raster file with its companions (overviews, header, auxiliary files); an empty path does nothing.
  static bool DeleteFileW(const std::wstring& path);

  /// The dataset behind the raster, for the rest of the platform.
  void* NativeHandle() const;
  /// The band of it that is its opacity; null for none. Looked for once, whatever number of bands a file declares.
  void* AlphaHandle() const;
  /// Whoever transfers samples of the dataset holds this.
  std::mutex& TransferLock() const;

 private:
  void Adopt(void* handle, const std::wstring& path, bool writable);

  struct Impl;
  std::unique_ptr<Impl> m_impl;
  std::wstring m_strOpenFailure;
};

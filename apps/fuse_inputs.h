#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/console_progress.h"
#include "apps/fuse_options.h"
#include "apps/notices.h"
#include "platform/raster/virtual_raster.h"

namespace app {

/// The two input images as the run gets them: opened once for checking, seen through views where a choice of bands or
/// another georeference must look like a file.
class FuseInputs {
 public:
  /// Throws CommandError for wrong usage and for an input that cannot be used.
  FuseInputs(const FuseOptions& options, const CheckedOptions& checked, Notices& notices,
             const CBaseProgress& progress);

  /// Files, bands, window and reprojection into the record.
  void FillParam(FusionParam& param) const;
  /// Means and deviations of the chosen multispectral bands. Throws CommandError.
  void ComputeTargets(std::vector<double>& means, std::vector<double>& stdDevs, CBaseProgress& progress) const;
  /// The window in the pixels of a raster on the pan grid; empty where the run is no part of a scene.
  CRect PartOf(const std::wstring& file) const;
  PixelDataType MsType() const { return m_msType; }
  /// The chosen bands of the multispectral image as it was given, counted from 0.
  const std::vector<int>& Bands() const { return m_chosen; }
  /// What the multispectral image says of them.
  const platform::RasterDescription& Description() const { return m_description; }
  /// Whether the run is a part of a scene, with statistics of the whole.
  bool IsPart() const { return !m_scene.IsRectEmpty(); }
  /// Whether the run takes pixels without data for missing.
  bool MasksNoData() const { return m_maskNoData; }

 private:
  void CheckArea(const CRasterSource& pan) const;
  void CheckBands(const Method& method, int panBandCount, int msBandCount);
  std::vector<int> ChosenBands(const CRasterSource& ms) const;
  /// Declares --nodata, settles whether the run masks, and leaves alpha out of the bands then.
  void SettleNoData(CRasterSource& pan, CRasterSource& ms, const CBaseProgress& progress);
  void Declare(CRasterSource& source, std::wstring& file);
  void Open(CRasterSource& source, const std::wstring& file) const;
  void CutWindow(const CRasterSource& pan, const CRect& overlap);
  void CheckValidPixels() const;

  const FuseOptions& m_options;
  Notices& m_notices;
  std::wstring m_panFile;
  std::wstring m_msFile;
  std::vector<int> m_chosen;  ///< zero-based, of the multispectral image as it was given
  platform::RasterDescription m_description;
  std::vector<int> m_bands;  ///< zero-based, of m_msFile
  int m_panBand = 0;         ///< zero-based, of m_panFile
  CRect m_window;
  CRect m_scene;  ///< the common area that the window is a part of; empty without window, or with its own statistics
  bool m_needReproject = false;
  bool m_maskNoData = false;
  bool m_leavesOutAlpha = false;
  PixelDataType m_msType = PDT_UNKNOWN;
  std::vector<std::unique_ptr<platform::VirtualRaster>> m_views;
};

}  // namespace app

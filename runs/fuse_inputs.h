#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/raster_description.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/virtual_raster.h"
#include "runs/fuse_checks.h"
#include "runs/ms_files.h"
#include "runs/notices.h"

namespace fusion {

struct MatchTargets;

/// The two input images as the run gets them: opened once for all that is planned, seen through views where a choice of
/// bands or another georeference must look like a file.
class FuseInputs {
 public:
  /// Throws RunFailure for wrong usage and for an input that cannot be used.
  FuseInputs(const FuseRequest& options, const CheckedRequest& checked, Notices& notices,
             const CBaseProgress& progress);

  /// Closes the images, which the algorithms open for themselves.
  void Close();
  /// Files, bands, window and reprojection into the record.
  void FillParam(FusionParam& param) const;
  /// Adds means and deviations of the chosen multispectral bands, as robust as the targets are to be. Until Close.
  /// Throws RunFailure.
  void ComputeTargets(MatchTargets& targets, CBaseProgress& progress) const;
  /// Multispectral over pan pixel width, both on pan's ground; 0 where the run does not ask for it.
  double PixelRatio() const { return m_pixelRatio; }
  PixelDataType MsType() const { return m_msType; }
  /// "1024x1024, 1 band of uint16", as the files have it.
  const std::string& PanSize() const { return m_panSize; }
  const std::string& MsSize() const { return m_msSize; }
  /// Pixels of one of its bands.
  double MsPixels() const { return static_cast<double>(m_ms.GetWidth()) * m_ms.GetHeight(); }
  /// The chosen bands of the multispectral image as it was given, counted from 0.
  const std::vector<int>& Bands() const { return m_chosen; }
  /// What the multispectral image says of them.
  const platform::RasterDescription& Description() const { return m_description; }
  /// The part of the pan image that the run covers at most.
  const CRect& Area() const { return m_area; }
  /// The files of the multispectral image, as they were given or found.
  const std::vector<std::string>& MsFiles() const { return m_msImage.Files(); }
  /// Rows of the whole output, where the run has rows of its own.
  int WholeHeight() const { return m_wholeHeight; }
  const CRasterSource& Pan() const { return m_pan; }
  /// Pan pixels that the output covers: where both images are, cut to the window and to the area of interest. Until
  /// Close.
  CRect OutputArea() const;
  /// Whether the run is a part of a scene, with statistics of the whole.
  bool IsPart() const { return !m_scene.IsRectEmpty(); }
  /// Whether the run takes pixels without data for missing.
  bool MasksNoData() const { return m_maskNoData; }

 private:
  void CheckArea();
  void CheckBands(const Method& method);
  std::vector<int> ChosenBands() const;
  /// Declares --nodata, settles whether the run masks, and leaves alpha out of the bands then.
  void SettleNoData(const CBaseProgress& progress);
  void Declare(CRasterSource& source, std::wstring& file);
  void Describe();
  void SettleExtent();
  /// Views for what the method does not choose by itself.
  void ChooseFiles(const Method& method);
  /// Has a file seen through a view from now on.
  void LookThrough(std::unique_ptr<platform::VirtualRaster> view, std::wstring& file);
  void CutWindow(const CRect& overlap);
  /// Cuts the run to some of its rows.
  void CutRows(const CRect& overlap);
  /// Refuses a survey of something else.
  void CheckSurvey() const;
  /// Whether there is room for what a run over both images makes, before a sample is looked at.
  void CheckRoom(PixelDataType type);
  void CheckPixelSizes();
  void CheckValidPixels() const;

  const FuseRequest& m_options;
  const CheckedRequest& m_checked;
  Notices& m_notices;
  MsImage m_msImage;
  std::vector<std::unique_ptr<platform::VirtualRaster>> m_views;
  std::wstring m_panFile;
  std::wstring m_msFile;
  CRasterSource m_pan;
  CRasterSource m_ms;
  std::string m_panSize;
  std::string m_msSize;
  std::vector<int> m_chosen;  ///< zero-based, of the multispectral image as it was given
  platform::RasterDescription m_description;
  std::vector<int> m_bands;  ///< zero-based, of m_msFile
  int m_panBand = 0;         ///< zero-based, of m_panFile
  CRect m_aoi;               ///< what covers the area of interest; empty without one
  CRect m_window;
  CRect m_area;
  CRect m_scene;  ///< the common area that the window is a part of; empty without window, or with its own statistics
  int m_wholeHeight = 0;
  bool m_needReproject = false;
  double m_pixelRatio = 0.0;
  bool m_maskNoData = false;
  bool m_leavesOutAlpha = false;
  PixelDataType m_msType = PDT_UNKNOWN;
};

}  // namespace fusion

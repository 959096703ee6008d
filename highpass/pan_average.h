#pragma once

#include <memory>
#include <vector>

#include "framework/run/block_buffers.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"

namespace fusion {

/// A stretch of one axis in pan pixels, corner-based.
struct PanSpan {
  double first = 0.0;
  double last = 0.0;
};

/// The pan image averaged over multispectral pixels, pan pixels weighted with the exact share of their area. A
/// multispectral pixel is the rectangle it covers in the pan image; where the two images are turned against each other,
/// or lie in different coordinate systems, the upright rectangle of the pixel's size around its centre.
class PanAverage {
 public:
  /// @param band of the pan image
  PanAverage(const CRasterSource& pan, CRasterBand& band, const CRasterSource& ms);

  /// For images in different coordinate systems; before anything else. False where the transformation cannot be built.
  bool Reproject(CRasterSource& pan, CRasterSource& ms);
  /// Pan pixels across a multispectral pixel, the larger of both directions.
  double Ratio() const;
  /// Averages over the pixels of a multispectral rectangle. False after a failed read.
  bool Load(const CRect& msRect);
  /// Row by row over the loaded rectangle; NaN where a pixel does not lie wholly on valid pan pixels.
  const std::vector<double>& Values() const { return m_values; }

 private:
  bool LoadGrid(const CRect& msRect);
  bool LoadPoints(const CRect& msRect);
  bool ReadPan(const std::vector<PanSpan>& columns, const std::vector<PanSpan>& rows);
  const double* Row(int row) const;
  /// @param values of the rectangle read's columns
  double SumOfColumns(const double* values, const PanSpan& columns) const;

  CRasterBand& m_band;
  double m_noData;
  int m_width;
  int m_height;
  platform::Affine m_msToGround;
  platform::Affine m_groundToPan;
  bool m_isGrid;       ///< columns depend on columns alone, rows on rows
  double m_cellWidth;  ///< of a multispectral pixel in pan pixels
  double m_cellHeight;
  std::unique_ptr<CReproject> m_reproject;

  std::vector<double> m_values;
  BandBuffers m_pan;
  CRect m_panRect;
};

}  // namespace fusion

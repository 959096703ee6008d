#pragma once

#include <memory>
#include <vector>

#include "estimation/low_pass.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/reproject.h"
#include "platform/system/workers.h"

namespace fusion {

/// How the multispectral sensor is taken to have blurred what pan shows.
struct PanBlur {
  bool isBox = false;  ///< the mean over the pixel's area
  double width = 1.0;  ///< else of a Gaussian; 1 leaves kUsualGain at the multispectral Nyquist frequency

  LowPassShape Shape(double ratio) const;
};

/// Where the centres of a rectangle of multispectral pixels lie in the pan image, in its sample coordinates.
struct PanPositions {
  int width = 0;  ///< of the rectangle
  int height = 0;
  bool isGrid = true;
  std::vector<double> x;  ///< of its columns, or, where they form no grid, of its pixels, row by row
  std::vector<double> y;  ///< likewise of its rows
};

/// The pan image as the multispectral sensor would have seen it, over a rectangle of multispectral pixels.
class PanLowPass {
 public:
  /// @param shiftX, shiftY pan pixels by which the multispectral image is moved
  /// @param leastShare of the weight that has to lie on pan for a value
  PanLowPass(const PanPositions& positions, double shiftX, double shiftY, const LowPassShape& alongX,
             const LowPassShape& alongY, int panWidth, int panHeight, double leastShare = kLeastShare);

  /// The part of the pan image that Apply looks at.
  CRect Reads() const;
  /// @param pan row-major over panRect, which holds what Reads answers; a NaN for a pixel without data
  /// @param out row-major over the rectangle; NaN where there is too little pan
  /// @param workers who share the rows out among them; null: the caller alone
  void Apply(const double* pan, const CRect& panRect, double* out, platform::Workers* workers = nullptr) const;

 private:
  CRect m_rect;
  std::unique_ptr<SeparableFilter> m_grid;
  std::unique_ptr<PointFilter> m_points;
  std::vector<double> m_x;
  std::vector<double> m_y;
};

/// The multispectral image's pixels in the pan image.
class PanGrid {
 public:
  PanGrid(const CRasterSource& pan, const CRasterSource& ms);

  /// For images in different coordinate systems; before anything else. False where the transformation cannot be built.
  bool Reproject(CRasterSource& pan, CRasterSource& ms);
  /// Pan pixels across and down a multispectral pixel; of one that lies askew, the upright rectangle around it.
  double RatioX() const { return m_ratioX; }
  double RatioY() const { return m_ratioY; }
  bool IsGrid() const { return m_isGrid; }
  int PanWidth() const { return m_panWidth; }
  int PanHeight() const { return m_panHeight; }
  PanPositions Positions(const CRect& msRect) const;

 private:
  int m_panWidth;
  int m_panHeight;
  platform::Affine m_msToGround;
  platform::Affine m_groundToPan;
  bool m_isGrid;
  double m_ratioX;
  double m_ratioY;
  std::unique_ptr<CReproject> m_reproject;
};

}  // namespace fusion

#include "estimation/pan_grid.h"

#include <algorithm>
#include <cmath>

namespace fusion {
namespace {

std::vector<double> Moved(std::vector<double> positions, double by) {
  for (double& v : positions) v += by;
  return positions;
}

}  // namespace

LowPassShape PanBlur::Shape(double ratio) const {
  return isBox ? LowPassShape::Box(ratio) : LowPassShape::Gaussian(width * DeviationOfGain(ratio, kUsualGain));
}

PanLowPass::PanLowPass(const PanPositions& positions, double shiftX, double shiftY, const LowPassShape& alongX,
                       const LowPassShape& alongY, int panWidth, int panHeight, double leastShare)
    : m_rect(0, 0, positions.width, positions.height),
      m_x(Moved(positions.x, shiftX)),
      m_y(Moved(positions.y, shiftY)) {
  if (positions.isGrid) {
    m_grid = std::make_unique<SeparableFilter>(AxisFilter(alongX, m_x, panWidth), AxisFilter(alongY, m_y, panHeight),
                                               leastShare);
  } else {
    m_points = std::make_unique<PointFilter>(alongX, alongY, panWidth, panHeight, leastShare);
  }
}

CRect PanLowPass::Reads() const {
  return m_grid ? m_grid->Reads(m_rect) : m_points->Reads(m_x.data(), m_y.data(), static_cast<int>(m_x.size()));
}

void PanLowPass::Apply(const double* pan, const CRect& panRect, double* out, platform::Workers* workers) const {
  // Rows that pay for their beginning.
  constexpr int kRows = 16;
  const std::ptrdiff_t width = m_rect.Width();
  platform::ForEach(workers, (m_rect.Height() + kRows - 1) / kRows, [&](int i) {
    const CRect piece(0, i * kRows, m_rect.right, std::min((i + 1) * kRows, m_rect.bottom));
    const std::ptrdiff_t first = piece.top * width;
    if (m_grid) {
      m_grid->Apply(pan, panRect, piece, out + first);
    } else {
      m_points->Apply(pan, panRect, m_x.data() + first, m_y.data() + first, static_cast<int>(piece.Area()),
                      out + first);
    }
  });
}

PanGrid::PanGrid(const CRasterSource& pan, const CRasterSource& ms)
    : m_panWidth(pan.GetWidth()),
      m_panHeight(pan.GetHeight()),
      m_msToGround(ms.PixelToGround()),
      m_groundToPan(pan.GroundToPixel()),
      m_isGrid(m_msToGround.IsAxisAligned() && m_groundToPan.IsAxisAligned()) {
  // The upright rectangle around a turned pixel of the composed map.
  const platform::Affine& g = m_msToGround;
  const platform::Affine& p = m_groundToPan;
  m_ratioX = std::fabs(p.t[1] * g.t[1] + p.t[2] * g.t[4]) + std::fabs(p.t[1] * g.t[2] + p.t[2] * g.t[5]);
  m_ratioY = std::fabs(p.t[4] * g.t[1] + p.t[5] * g.t[4]) + std::fabs(p.t[4] * g.t[2] + p.t[5] * g.t[5]);
}

bool PanGrid::Reproject(CRasterSource& pan, CRasterSource& ms) {
  CBoundingBox extent;
  m_reproject.reset(CReproject::Create(&pan, ms.GetSpatialReferenceWKT(), nullptr, nullptr));
  if (!m_reproject || !CReproject::GetExtent(&ms, pan.GetSpatialReferenceWKT(), extent)) return false;
  // An estimate sees shifts that no picture shows, so the grid is finer than one made for resampling.
  const double cell = std::max(8.0, std::max(ms.GetWidth(), ms.GetHeight()) / 1024.0);
  m_reproject->CreateGrid(ms.ImageToGround(CRect(0, 0, ms.GetWidth(), ms.GetHeight())),
                          cell * std::hypot(m_msToGround.t[1], m_msToGround.t[4]),
                          cell * std::hypot(m_msToGround.t[2], m_msToGround.t[5]), 3);
  const platform::Affine& toGround = pan.PixelToGround();
  m_ratioX = (extent.MaxX() - extent.MinX()) / ms.GetWidth() / std::hypot(toGround.t[1], toGround.t[4]);
  m_ratioY = (extent.MaxY() - extent.MinY()) / ms.GetHeight() / std::hypot(toGround.t[2], toGround.t[5]);
  m_isGrid = false;
  return true;
}

PanPositions PanGrid::Positions(const CRect& msRect) const {
  PanPositions positions{msRect.Width(), msRect.Height(), m_isGrid, {}, {}};
  std::vector<double>& x = positions.x;
  std::vector<double>& y = positions.y;
  // From a corner-based coordinate to that of samples, wherever it lies.
  constexpr double kToSample = -0.5;
  if (m_isGrid) {
    for (int c = msRect.left; c < msRect.right; ++c) {
      x.push_back(m_groundToPan.X(m_msToGround.X(c + 0.5, 0.0), 0.0) + kToSample);
    }
    for (int r = msRect.top; r < msRect.bottom; ++r) {
      y.push_back(m_groundToPan.Y(0.0, m_msToGround.Y(0.0, r + 0.5)) + kToSample);
    }
    return positions;
  }
  x.reserve(static_cast<std::size_t>(msRect.Area()));
  y.reserve(x.capacity());
  for (int r = msRect.top; r < msRect.bottom; ++r) {
    for (int c = msRect.left; c < msRect.right; ++c) {
      x.push_back(m_msToGround.X(c + 0.5, r + 0.5));
      y.push_back(m_msToGround.Y(c + 0.5, r + 0.5));
    }
  }
  if (m_reproject) {
    // Positions on the outermost samples may have been moved there from beyond, where too little pan lies under them.
    m_reproject->GetSrcPos(x.data(), y.data(), x.data(), y.data(), static_cast<int>(x.size()));
    return positions;
  }
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double groundX = x[i];
    x[i] = m_groundToPan.X(groundX, y[i]) + kToSample;
    y[i] = m_groundToPan.Y(groundX, y[i]) + kToSample;
  }
  return positions;
}

}  // namespace fusion

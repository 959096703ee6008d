#include "highpass/pan_average.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/row_math.h"
#include "platform/validity/no_data.h"

namespace fusion {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// A pixel edge that rounding errors moved off a whole number must not touch the next pixel.
double Snap(double v) {
  const double whole = std::round(v);
  return std::fabs(v - whole) < 1e-6 ? whole : v;
}

PanSpan Between(double a, double b) { return {Snap(std::min(a, b)), Snap(std::max(a, b))}; }
PanSpan Around(double center, double size) { return Between(center - size / 2, center + size / 2); }

bool LiesInside(const PanSpan& span, int size) {
  return span.first >= 0.0 && span.last <= size && span.first < span.last;
}

int FirstPixel(const PanSpan& span) { return static_cast<int>(std::floor(span.first)); }
int EndPixel(const PanSpan& span) { return static_cast<int>(std::ceil(span.last)); }

/// The part of a pixel that a span covers.
double Share(const PanSpan& span, int pixel) {
  return std::min(span.last, pixel + 1.0) - std::max(span.first, static_cast<double>(pixel));
}

/// The pixels that the spans within an image touch, as first and end.
std::pair<int, int> Covered(const std::vector<PanSpan>& spans, int size) {
  int first = std::numeric_limits<int>::max();
  int end = 0;
  for (const PanSpan& span : spans) {
    if (!LiesInside(span, size)) continue;
    first = std::min(first, FirstPixel(span));
    end = std::max(end, EndPixel(span));
  }
  return {std::min(first, end), end};
}

}  // namespace

PanAverage::PanAverage(const CRasterSource& pan, CRasterBand& band, const CRasterSource& ms)
    : m_band(band),
      m_noData(platform::NoDataSample(band)),
      m_width(pan.GetWidth()),
      m_height(pan.GetHeight()),
      m_msToGround(ms.PixelToGround()),
      m_groundToPan(pan.GroundToPixel()),
      m_isGrid(m_msToGround.IsAxisAligned() && m_groundToPan.IsAxisAligned()),
      m_pan(1, 0) {
  // The upright rectangle around a turned pixel of the composed map.
  const platform::Affine& g = m_msToGround;
  const platform::Affine& p = m_groundToPan;
  m_cellWidth = std::fabs(p.t[1] * g.t[1] + p.t[2] * g.t[4]) + std::fabs(p.t[1] * g.t[2] + p.t[2] * g.t[5]);
  m_cellHeight = std::fabs(p.t[4] * g.t[1] + p.t[5] * g.t[4]) + std::fabs(p.t[4] * g.t[2] + p.t[5] * g.t[5]);
}

bool PanAverage::Reproject(CRasterSource& pan, CRasterSource& ms) {
  CBoundingBox extent;
  m_reproject.reset(CReproject::Create(&pan, ms.GetSpatialReferenceWKT(), nullptr, nullptr));
  if (!m_reproject || !CReproject::GetExtent(&ms, pan.GetSpatialReferenceWKT(), extent)) return false;
  // A regression sees shifts that no picture shows, so the grid is finer than one made for resampling.
  const double cell = std::max(8.0, std::max(ms.GetWidth(), ms.GetHeight()) / 1024.0);
  m_reproject->CreateGrid(ms.ImageToGround(CRect(0, 0, ms.GetWidth(), ms.GetHeight())),
                          cell * std::hypot(m_msToGround.t[1], m_msToGround.t[4]),
                          cell * std::hypot(m_msToGround.t[2], m_msToGround.t[5]), 3);
  const platform::Affine& toGround = pan.PixelToGround();
  m_cellWidth = (extent.MaxX() - extent.MinX()) / ms.GetWidth() / std::hypot(toGround.t[1], toGround.t[4]);
  m_cellHeight = (extent.MaxY() - extent.MinY()) / ms.GetHeight() / std::hypot(toGround.t[2], toGround.t[5]);
  m_isGrid = false;
  return true;
}

double PanAverage::Ratio() const { return std::max(m_cellWidth, m_cellHeight); }

bool PanAverage::Load(const CRect& msRect) {
  m_values.assign(static_cast<std::size_t>(msRect.Area()), kNaN);
  return m_isGrid ? LoadGrid(msRect) : LoadPoints(msRect);
}

bool PanAverage::ReadPan(const std::vector<PanSpan>& columns, const std::vector<PanSpan>& rows) {
  const auto [left, right] = Covered(columns, m_width);
  const auto [top, bottom] = Covered(rows, m_height);
  m_panRect = CRect(left, top, right, bottom);
  if (m_panRect.Area() == 0) return true;
  if (!m_pan.Read(0, &m_band, m_panRect)) return false;
  platform::MarkInvalid(m_pan[0], m_panRect.Area(), m_noData);
  return true;
}

const double* PanAverage::Row(int row) const {
  return m_pan[0] + static_cast<std::ptrdiff_t>(row - m_panRect.top) * m_panRect.Width();
}

double PanAverage::SumOfColumns(const double* values, const PanSpan& columns) const {
  double sum = 0.0;
  for (int x = FirstPixel(columns); x < EndPixel(columns); ++x) sum += Share(columns, x) * values[x - m_panRect.left];
  return sum;
}

bool PanAverage::LoadGrid(const CRect& msRect) {
  std::vector<PanSpan> columns;
  std::vector<PanSpan> rows;
  const auto x = [this](int column) { return m_groundToPan.X(m_msToGround.X(column, 0.0), 0.0); };
  const auto y = [this](int row) { return m_groundToPan.Y(0.0, m_msToGround.Y(0.0, row)); };
  for (int c = msRect.left; c < msRect.right; ++c) columns.push_back(Between(x(c), x(c + 1)));
  for (int r = msRect.top; r < msRect.bottom; ++r) rows.push_back(Between(y(r), y(r + 1)));
  if (!ReadPan(columns, rows)) return false;
  if (m_panRect.Area() == 0) return true;

  // Down the columns first, which is most of the work and goes along whole rows.
  std::vector<double> sums(static_cast<std::size_t>(m_panRect.Width()));
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const PanSpan& row = rows[r];
    if (!LiesInside(row, m_height)) continue;
    ClearRow(m_panRect.Width(), sums.data());
    for (int panRow = FirstPixel(row); panRow < EndPixel(row); ++panRow) {
      AddScaledRow(Row(panRow), Share(row, panRow), m_panRect.Width(), sums.data());
    }
    for (std::size_t c = 0; c < columns.size(); ++c) {
      if (!LiesInside(columns[c], m_width)) continue;
      const double area = (row.last - row.first) * (columns[c].last - columns[c].first);
      m_values[r * columns.size() + c] = SumOfColumns(sums.data(), columns[c]) / area;
    }
  }
  return true;
}

bool PanAverage::LoadPoints(const CRect& msRect) {
  std::vector<double> x;
  std::vector<double> y;
  for (int r = msRect.top; r < msRect.bottom; ++r) {
    for (int c = msRect.left; c < msRect.right; ++c) {
      x.push_back(m_msToGround.X(c + 0.5, r + 0.5));
      y.push_back(m_msToGround.Y(c + 0.5, r + 0.5));
    }
  }
  const auto map = [&](std::size_t i) {
    const double groundX = x[i];
    x[i] = platform::SampleCoordinate(m_groundToPan.X(groundX, y[i]), m_width);
    y[i] = platform::SampleCoordinate(m_groundToPan.Y(groundX, y[i]), m_height);
  };
  if (m_reproject) {
    m_reproject->GetSrcPos(x.data(), y.data(), x.data(), y.data(), static_cast<int>(x.size()));
  } else {
    for (std::size_t i = 0; i < x.size(); ++i) map(i);
  }
  // From sample to corner-based coordinates. A position on the outermost samples may have been moved there from beyond;
  // an empty span lies nowhere.
  const auto span = [](double sample, int size, double cell) {
    return sample > 0.0 && sample < size - 1.0 ? Around(sample + 0.5, cell) : PanSpan();
  };
  std::vector<PanSpan> columns;
  std::vector<PanSpan> rows;
  for (std::size_t i = 0; i < x.size(); ++i) {
    const PanSpan column = span(x[i], m_width, m_cellWidth);
    const PanSpan row = span(y[i], m_height, m_cellHeight);
    const bool inside = LiesInside(column, m_width) && LiesInside(row, m_height);
    columns.push_back(inside ? column : PanSpan());
    rows.push_back(inside ? row : PanSpan());
  }
  if (!ReadPan(columns, rows)) return false;

  for (std::size_t i = 0; i < x.size(); ++i) {
    if (!LiesInside(columns[i], m_width)) continue;
    double sum = 0.0;
    for (int panRow = FirstPixel(rows[i]); panRow < EndPixel(rows[i]); ++panRow) {
      sum += Share(rows[i], panRow) * SumOfColumns(Row(panRow), columns[i]);
    }
    m_values[i] = sum / ((rows[i].last - rows[i].first) * (columns[i].last - columns[i].first));
  }
  return true;
}

}  // namespace fusion

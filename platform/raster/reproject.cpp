#include "platform/raster/reproject.h"

#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/raster/box_carrier.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/position_grid.h"

namespace {

using Transformation = std::unique_ptr<OGRCoordinateTransformation>;

/// Of an edge of a box, between 21 points.
constexpr int kIntervals = 20;

using platform::BoxCarrier;
using platform::Envelope;
using platform::PositionGrid;
using Point = PositionGrid::Point;

/// A full turn of a geographic system's longitudes, in its units, else 0.
double FullTurn(const OGRSpatialReference& crs) {
  constexpr double kTurn = 6.283185307179586;
  return crs.IsGeographic() ? kTurn / crs.GetAngularUnits() : 0.0;
}

}  // namespace

struct CReproject::Impl {
  Transformation toSource;
  Transformation toGround;
  mutable std::mutex mutex;  ///< PROJ's objects serve one thread at a time
  platform::Affine sourceToPixel;
  int width = 0;
  int height = 0;
  double fullTurn = 0.0;  ///< of a geographic source's longitudes, in its units, else 0
  double middleX = 0.0;   ///< of the source, on its ground
  std::optional<BoxCarrier> boxToSource;
  std::optional<BoxCarrier> boxToGround;
  CBoundingBox extent;  ///< of the source, on the ground
  PositionGrid grid;

  /// The longitude that lies nearest to the source; an image may reach over the date line, or count from 0 to 360.
  double NearSource(double x) const {
    return fullTurn > 0.0 ? x + fullTurn * std::nearbyint((middleX - x) / fullTurn) : x;
  }

  /// Corner-based source pixel positions in place; failed points become NaN.
  void ToPixels(std::vector<Point>& points) const {
    Apply(*toSource, points);
    for (Point& p : points) {
      const double near = NearSource(p.x);
      p = {sourceToPixel.X(near, p.y), sourceToPixel.Y(near, p.y)};
    }
  }

  /// A box of corner-based source pixel positions around a ground box.
  Envelope PixelEnvelope(const CBoundingBox& box) const {
    Envelope envelope;
    for (const CBoundingBox& part : PartsNearSource(box)) AddPixels(part, envelope);
    return envelope;
  }

  /// Of a box far larger than the source the parts around it, which the points of the whole would miss; else the box.
  std::vector<CBoundingBox> PartsNearSource(const CBoundingBox& box) const {
    constexpr double kFarLarger = 2.0;
    const bool fits = box.MaxX() - box.MinX() <= kFarLarger * (extent.MaxX() - extent.MinX()) &&
                      box.MaxY() - box.MinY() <= kFarLarger * (extent.MaxY() - extent.MinY());
    std::vector<CBoundingBox> parts;
    if (!fits) parts = platform::CommonParts(box, extent, boxToGround->FullTurn());
    if (parts.empty()) parts.push_back(box);
    return parts;
  }

  void AddPixels(const CBoundingBox& box, Envelope& envelope) const {
    std::vector<Point> points = boxToSource->Carry(box, kIntervals, middleX);
    for (Point& p : points) p = {sourceToPixel.X(p.x, p.y), sourceToPixel.Y(p.x, p.y)};
    Envelope added;
    for (const Point& p : points) added.Add(p);
    if (added.IsEmpty()) return;
    // An edge bends out between its points by up to an eighth of their second difference.
    Point bend = {0.0, 0.0};
    for (std::size_t i = 1; i + 1 < 4 * (kIntervals + 1); ++i) {
      if (i % (kIntervals + 1) == 0 || (i + 1) % (kIntervals + 1) == 0) continue;
      const Point& p = points[i];
      bend.x = std::max(bend.x, std::fabs(points[i - 1].x - 2.0 * p.x + points[i + 1].x) / 8.0);
      bend.y = std::max(bend.y, std::fabs(points[i - 1].y - 2.0 * p.y + points[i + 1].y) / 8.0);
    }
    // The margin that every reader adds covers less.
    if (bend.x < 1.0) bend.x = 0.0;
    if (bend.y < 1.0) bend.y = 0.0;
    envelope.Add({added.minX - bend.x, added.minY - bend.y});
    envelope.Add({added.maxX + bend.x, added.maxY + bend.y});
  }

  void Apply(OGRCoordinateTransformation& transformation, std::vector<Point>& points) const {
    std::vector<double> x;
    std::vector<double> y;
    for (const Point& p : points) {
      x.push_back(p.x);
      y.push_back(p.y);
    }
    std::vector<int> ok(x.size(), 0);
    const platform::GdalErrors quiet;
    const std::lock_guard<std::mutex> lock(mutex);
    transformation.Transform(static_cast<int>(x.size()), x.data(), y.data(), nullptr, ok.data());
    for (std::size_t i = 0; i < points.size(); ++i) points[i] = ok[i] ? Point{x[i], y[i]} : Point{NAN, NAN};
  }

  PositionGrid SampleGrid(const CBoundingBox& box, int columns, int rows) const {
    PositionGrid result;
    result.cells = {
        box.m_dLeft, box.m_dTop, (box.m_dRight - box.m_dLeft) / columns, (box.m_dBottom - box.m_dTop) / rows,
        columns,     rows};
    const platform::GroundCells& cells = result.cells;
    for (int r = 0; r <= rows; ++r) {
      for (int c = 0; c <= columns; ++c) {
        result.nodes.push_back({cells.left + cells.cellX * c, cells.top + cells.cellY * r});
      }
    }
    ToPixels(result.nodes);
    return result;
  }

  /// Whether interpolation stays close to the exact positions where it errs most: the middles of cells and edges.
  bool IsAccurate(const PositionGrid& candidate) const {
    // Half the tolerance here leaves room for the points between.
    constexpr double kTolerance = 0.01 / 2;
    const platform::GroundCells& cells = candidate.cells;
    std::vector<Point> exact;
    std::vector<double> x;
    std::vector<double> y;
    std::vector<int> outside;
    for (int r = 0; r <= 2 * cells.rows; ++r) {
      exact.clear();
      x.clear();
      y.clear();
      outside.clear();
      // In half cells; the nodes themselves, at even numbers, are exact.
      for (int c = r % 2 == 0 ? 1 : 0; c <= 2 * cells.columns; c += r % 2 == 0 ? 2 : 1) {
        exact.push_back({cells.left + cells.cellX * 0.5 * c, cells.top + cells.cellY * 0.5 * r});
        x.push_back(exact.back().x);
        y.push_back(exact.back().y);
      }
      candidate.Interpolate(x.data(), y.data(), static_cast<int>(x.size()), x.data(), y.data(), outside);
      ToPixels(exact);
      // A point that rounding puts outside the box is taken exactly there.
      for (const int i : outside) {
        const auto k = static_cast<std::size_t>(i);
        exact[k] = {x[k], y[k]};
      }
      for (std::size_t i = 0; i < exact.size(); ++i) {
        // Written so that a NaN is not accurate.
        if (!(std::hypot(x[i] - exact[i].x, y[i] - exact[i].y) < kTolerance)) return false;
      }
    }
    return true;
  }
};

CReproject::CReproject() : m_impl(std::make_unique<Impl>()) {}
CReproject::~CReproject() = default;

CReproject* CReproject::Create(CRasterSource* source, const std::wstring& wkt, const void* /*reserved1*/,
                               const void* /*reserved2*/) {
  if (!source || !source->IsOpen()) return nullptr;
  const std::wstring sourceWkt = source->GetSpatialReferenceWKT();
  OGRSpatialReference ground;
  OGRSpatialReference sourceCrs;
  if (!CCoordinateAlgorithm::IsValidCoordinate(wkt) || !CCoordinateAlgorithm::IsValidCoordinate(sourceWkt) ||
      !platform::ReadWkt(wkt, ground) || !platform::ReadWkt(sourceWkt, sourceCrs)) {
    return nullptr;
  }
  const platform::GdalErrors quiet;
  std::unique_ptr<CReproject> result(new CReproject());
  result->m_impl->toSource.reset(OGRCreateCoordinateTransformation(&ground, &sourceCrs));
  result->m_impl->toGround.reset(OGRCreateCoordinateTransformation(&sourceCrs, &ground));
  if (!result->m_impl->toSource || !result->m_impl->toGround) return nullptr;
  Impl& impl = *result->m_impl;
  impl.sourceToPixel = source->GroundToPixel();
  impl.width = source->GetWidth();
  impl.height = source->GetHeight();
  impl.fullTurn = FullTurn(sourceCrs);
  if (impl.fullTurn > 0.0) {
    double middleY = 0.0;
    source->ImageToGround(0.5 * source->GetWidth(), 0.5 * source->GetHeight(), impl.middleX, middleY);
  }
  const BoxCarrier::Transform toSource = [&impl](std::vector<Point>& points) { impl.Apply(*impl.toSource, points); };
  const BoxCarrier::Transform toGround = [&impl](std::vector<Point>& points) { impl.Apply(*impl.toGround, points); };
  impl.boxToSource.emplace(toSource, toGround, impl.fullTurn);
  impl.boxToGround.emplace(toGround, toSource, FullTurn(ground));
  result->Src2DestBox(CGISDataSource::GetExtent(source), impl.extent, 0.0, 0.0);
  return result.release();
}

bool CReproject::CreateGrid(const CBoundingBox& box, double cellX, double cellY, int maxRefinements) {
  m_impl->grid = PositionGrid();
  const double width = std::fabs(box.m_dRight - box.m_dLeft);
  const double height = std::fabs(box.m_dBottom - box.m_dTop);
  if (!(width > 0.0 && height > 0.0 && std::isfinite(width) && std::isfinite(height))) return false;
  const Envelope pixels = m_impl->PixelEnvelope(box);
  if (pixels.IsEmpty()) return false;
  // Left to itself it starts with cells of some 256 source pixels, which most pairs of systems need no finer.
  constexpr double kFirstCell = 256.0;
  const double sourcePixels = std::max(pixels.maxX - pixels.minX, pixels.maxY - pixels.minY);
  const double firstCell = std::max(width, height) * kFirstCell / sourcePixels;
  const auto cells = [firstCell](double size, double cell) {
    return static_cast<std::int64_t>(std::clamp(std::ceil(size / (cell > 0.0 ? cell : firstCell)), 1.0, 1e6));
  };
  std::int64_t columns = cells(width, cellX);
  std::int64_t rows = cells(height, cellY);
  // A grid of more cells than this would cost more than it saves.
  constexpr std::int64_t kMostCells = std::int64_t{1} << 21;
  for (int i = 0; i <= maxRefinements && columns * rows <= kMostCells; ++i, columns *= 2, rows *= 2) {
    PositionGrid candidate = m_impl->SampleGrid(box, static_cast<int>(columns), static_cast<int>(rows));
    if (!m_impl->IsAccurate(candidate)) continue;
    m_impl->grid = std::move(candidate);
    return true;
  }
  return false;
}

bool CReproject::GetSrcPos(const double* groundX, const double* groundY, double* sourceX, double* sourceY, int n,
                           int edge) const {
  std::vector<int> exact;
  if (m_impl->grid.IsEmpty()) {
    for (int i = 0; i < n; ++i) {
      sourceX[i] = groundX[i];
      sourceY[i] = groundY[i];
      exact.push_back(i);
    }
  } else {
    m_impl->grid.Interpolate(groundX, groundY, n, sourceX, sourceY, exact);
  }
  if (!exact.empty()) {
    std::vector<Point> points;
    points.reserve(exact.size());
    for (const int i : exact) points.push_back({sourceX[i], sourceY[i]});
    m_impl->ToPixels(points);
    for (std::size_t k = 0; k < exact.size(); ++k) {
      sourceX[exact[k]] = points[k].x;
      sourceY[exact[k]] = points[k].y;
    }
  }
  platform::ToSampleCoordinates(sourceX, n, m_impl->width, edge);
  platform::ToSampleCoordinates(sourceY, n, m_impl->height, edge);
  return true;
}

bool CReproject::GetInImgEnveFromGeoOut(const CBoundingBox& box, CRect& rect, double /*reserved1*/,
                                        double /*reserved2*/) const {
  const Envelope envelope = m_impl->PixelEnvelope(box);
  if (envelope.IsEmpty()) return false;
  constexpr double kMargin = 10.0;
  const auto clip = [](double v, int size) {
    return static_cast<std::int32_t>(std::clamp(v, 0.0, static_cast<double>(size)));
  };
  const CRect result(clip(std::floor(envelope.minX) - kMargin, m_impl->width),
                     clip(std::floor(envelope.minY) - kMargin, m_impl->height),
                     clip(std::ceil(envelope.maxX) + kMargin, m_impl->width),
                     clip(std::ceil(envelope.maxY) + kMargin, m_impl->height));
  if (result.Area() == 0) return false;
  rect = result;
  return true;
}

bool CReproject::Src2DestBox(const CBoundingBox& box, CBoundingBox& result, double /*reserved1*/,
                             double /*reserved2*/) const {
  Envelope envelope = m_impl->boxToGround->EnvelopeOf(box, kIntervals);
  // More points where they find what is more than a quarter of a source pixel outside.
  constexpr int kMostIntervals = kIntervals << 8;
  const double quarter = 0.25 / std::max(m_impl->width, m_impl->height);
  for (int intervals = 2 * kIntervals; intervals <= kMostIntervals; intervals *= 2) {
    const Envelope closer = m_impl->boxToGround->EnvelopeOf(box, intervals);
    const double x = quarter * (closer.maxX - closer.minX);
    const double y = quarter * (closer.maxY - closer.minY);
    if (!(envelope.minX - closer.minX > x || closer.maxX - envelope.maxX > x || envelope.minY - closer.minY > y ||
          closer.maxY - envelope.maxY > y)) {
      break;
    }
    envelope = closer;
  }
  if (envelope.IsEmpty()) return false;
  result.SetBoundingBox(envelope.minX, envelope.maxY, envelope.maxX, envelope.minY);
  return true;
}

bool CReproject::GetExtent(CRasterSource* source, const std::wstring& wkt, CBoundingBox& extent) {
  const std::unique_ptr<CReproject> reproject(Create(source, wkt, nullptr, nullptr));
  return reproject && reproject->Src2DestBox(CGISDataSource::GetExtent(source), extent, 0.0, 0.0);
}

std::vector<CBoundingBox> CReproject::CommonGround(const CRasterSource& image, CRasterSource* source) {
  const std::unique_ptr<CReproject> reproject(Create(source, image.GetSpatialReferenceWKT(), nullptr, nullptr));
  if (!reproject) return {};
  const Impl& impl = *reproject->m_impl;
  return platform::CommonParts(CGISDataSource::GetExtent(&image), impl.extent, impl.boxToGround->FullTurn());
}

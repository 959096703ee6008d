#include "platform/raster/raster_aoi.h"

#include <gdal_priv.h>
#include <ogr_geometry.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "platform/raster/gdal_access.h"
#include "platform/utility/common_fun.h"

namespace {

struct Vertex {
  double x;
  double y;
};
using Ring = std::vector<Vertex>;

/// A polygon in pixel coordinates: its outer ring and holes, filled even-odd.
struct Polygon {
  std::vector<Ring> rings;
  double minX = INFINITY;
  double maxX = -INFINITY;
  double minY = INFINITY;
  double maxY = -INFINITY;
};

void AddRing(const OGRLinearRing& source, const platform::Affine& toPixel, Polygon& polygon) {
  Ring ring;
  for (int i = 0; i < source.getNumPoints(); ++i) {
    const Vertex v{toPixel.X(source.getX(i), source.getY(i)), toPixel.Y(source.getX(i), source.getY(i))};
    polygon.minX = std::min(polygon.minX, v.x);
    polygon.maxX = std::max(polygon.maxX, v.x);
    polygon.minY = std::min(polygon.minY, v.y);
    polygon.maxY = std::max(polygon.maxY, v.y);
    ring.push_back(v);
  }
  polygon.rings.push_back(std::move(ring));
}

void AddPolygons(const OGRGeometry& geometry, const platform::Affine& toPixel, std::vector<Polygon>& polygons) {
  const OGRwkbGeometryType type = wkbFlatten(geometry.getGeometryType());
  if (type == wkbPolygon) {
    const OGRPolygon* source = geometry.toPolygon();
    if (source->IsEmpty()) return;
    Polygon polygon;
    for (const OGRLinearRing* ring : *source) AddRing(*ring, toPixel, polygon);
    polygons.push_back(std::move(polygon));
  } else if (OGR_GT_IsSubClassOf(type, wkbGeometryCollection)) {
    for (const OGRGeometry* part : *geometry.toGeometryCollection()) AddPolygons(*part, toPixel, polygons);
  }
}

/// Marks the pixels of one row whose centres lie inside a polygon.
void FillRow(const Polygon& polygon, int row, int left, int width, unsigned char* marks) {
  const double y = row + 0.5;
  if (y < polygon.minY || y > polygon.maxY) return;
  std::vector<double> crossings;
  for (const Ring& ring : polygon.rings) {
    for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
      const Vertex& a = ring[i];
      const Vertex& b = ring[i + 1];
      // Half-open in y, so that a shared vertex counts once.
      if ((a.y <= y) == (b.y <= y)) continue;
      crossings.push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
    }
  }
  std::sort(crossings.begin(), crossings.end());
  for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
    // Centres c + 0.5 with first <= c + 0.5 < last.
    const double first = std::ceil(crossings[i] - 0.5) - left;
    const double last = std::ceil(crossings[i + 1] - 0.5) - left;
    const auto from = static_cast<int>(std::clamp(first, 0.0, static_cast<double>(width)));
    const auto to = static_cast<int>(std::clamp(last, 0.0, static_cast<double>(width)));
    if (from < to) std::fill(marks + from, marks + to, static_cast<unsigned char>(1));
  }
}

}  // namespace

struct CRasterAOI::Impl {
  std::vector<Polygon> polygons;
  CRect cached;
  std::vector<unsigned char> marks;
};

CRasterAOI::CRasterAOI() : m_impl(std::make_unique<Impl>()) {}
CRasterAOI::~CRasterAOI() = default;

bool CRasterAOI::Load(const std::wstring& path, const CRasterSource& raster) {
  platform::InitialiseGdal();
  *m_impl = Impl();
  const platform::GdalErrors quiet;
  const std::unique_ptr<GDALDataset> file(
      GDALDataset::Open(CommonFun::U2Utf8(path).c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
  if (!file) return false;
  OGRSpatialReference rasterCrs;
  const bool rasterHasCrs = platform::ReadWkt(raster.GetSpatialReferenceWKT(), rasterCrs);
  for (OGRLayer* layer : file->GetLayers()) {
    std::unique_ptr<OGRCoordinateTransformation> carry;
    if (const OGRSpatialReference* crs = layer->GetSpatialRef(); crs && rasterHasCrs) {
      OGRSpatialReference layerCrs(*crs);
      layerCrs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
      if (!layerCrs.IsSame(&rasterCrs)) carry.reset(OGRCreateCoordinateTransformation(&layerCrs, &rasterCrs));
    }
    for (const auto& feature : *layer) {
      const OGRGeometry* geometry = feature->GetGeometryRef();
      if (!geometry) continue;
      // Curves become chains of short lines.
      const std::unique_ptr<OGRGeometry> linear(geometry->getLinearGeometry());
      if (!linear || (carry && linear->transform(carry.get()) != OGRERR_NONE)) continue;
      AddPolygons(*linear, raster.GroundToPixel(), m_impl->polygons);
    }
  }
  return !m_impl->polygons.empty();
}

CRect CRasterAOI::GetCoveringRect() const {
  Polygon all;
  for (const Polygon& p : m_impl->polygons) {
    all.minX = std::min(all.minX, p.minX);
    all.maxX = std::max(all.maxX, p.maxX);
    all.minY = std::min(all.minY, p.minY);
    all.maxY = std::max(all.maxY, p.maxY);
  }
  if (!(all.minX <= all.maxX && all.minY <= all.maxY)) return {};
  const auto whole = [](double v) { return static_cast<std::int32_t>(std::clamp(v, -1e9, 1e9)); };
  constexpr double kTolerance = 1e-6;
  return {whole(std::floor(all.minX + kTolerance)), whole(std::floor(all.minY + kTolerance)),
          whole(std::ceil(all.maxX - kTolerance)), whole(std::ceil(all.maxY - kTolerance))};
}

int CRasterAOI::ReadCacheAoiBuffer(int left, int top, int width, int height) {
  m_impl->cached = CRect();
  m_impl->marks.clear();
  if (width <= 0 || height <= 0) return 0;
  m_impl->cached = CRect(left, top, left + width, top + height);
  m_impl->marks.assign(static_cast<std::size_t>(m_impl->cached.Area()), 0);
  for (int r = 0; r < height; ++r) {
    unsigned char* row = m_impl->marks.data() + static_cast<std::ptrdiff_t>(r) * width;
    for (const Polygon& polygon : m_impl->polygons) FillRow(polygon, top + r, left, width, row);
  }
  const auto inside = std::count(m_impl->marks.begin(), m_impl->marks.end(), static_cast<unsigned char>(1));
  if (inside == 0) return 0;
  return inside == m_impl->cached.Area() ? 3 : 1;
}

bool CRasterAOI::IsInAOI(int column, int row) const {
  const CRect& rect = m_impl->cached;
  if (column < rect.left || column >= rect.right || row < rect.top || row >= rect.bottom) return false;
  return m_impl->marks[static_cast<std::size_t>(row - rect.top) * static_cast<std::size_t>(rect.Width()) +
                       static_cast<std::size_t>(column - rect.left)] != 0;
}

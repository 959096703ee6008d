#include "platform/validity/raster_aoi.h"

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

  void Add(Ring ring) {
    for (const Vertex& v : ring) {
      minX = std::min(minX, v.x);
      maxX = std::max(maxX, v.x);
      minY = std::min(minY, v.y);
      maxY = std::max(maxY, v.y);
    }
    rings.push_back(std::move(ring));
  }
};

/// Carries polygons to pixel coordinates. A straight edge of another coordinate system is a curve there, so it is cut
/// until its pieces follow the curve within a small part of a pixel.
class PixelPolygons {
 public:
  PixelPolygons(const platform::Affine& toPixel, OGRCoordinateTransformation* carry, std::vector<Polygon>& polygons)
      : m_toPixel(toPixel), m_carry(carry), m_polygons(polygons) {}

  void Add(const OGRGeometry& geometry) {
    const OGRwkbGeometryType type = wkbFlatten(geometry.getGeometryType());
    if (OGR_GT_IsSubClassOf(type, wkbPolygon)) {
      AddPolygon(*geometry.toPolygon());
    } else if (OGR_GT_IsSubClassOf(type, wkbGeometryCollection)) {
      for (const OGRGeometry* part : *geometry.toGeometryCollection()) Add(*part);
    }
  }

 private:
  void AddPolygon(const OGRPolygon& source) {
    Polygon polygon;
    for (const OGRLinearRing* line : source) {
      Ring ring;
      const int count = line->getNumPoints();
      Vertex ground{};
      for (int i = 0; i <= count && count > 0; ++i) {
        // Back to the first point at the end, whether or not the file closes its rings.
        const Vertex next{line->getX(i % count), line->getY(i % count)};
        Vertex pixel{};
        // A polygon that reaches to where the image's coordinate system has no values cannot be laid on it.
        if (!ToPixel(next, pixel)) return;
        if (m_carry && i > 0) AddCurve(ground, ring.back(), next, pixel, 0, ring);
        ring.push_back(pixel);
        ground = next;
      }
      polygon.Add(std::move(ring));
    }
    if (polygon.minY <= polygon.maxY) m_polygons.push_back(std::move(polygon));
  }

  bool ToPixel(const Vertex& ground, Vertex& pixel) const {
    double x = ground.x;
    double y = ground.y;
    if (m_carry && !m_carry->Transform(1, &x, &y)) return false;
    pixel = {m_toPixel.X(x, y), m_toPixel.Y(x, y)};
    // Written so that a NaN fails; below the limit no difference of two coordinates overflows.
    constexpr double kLimit = 1e300;
    return std::fabs(pixel.x) <= kLimit && std::fabs(pixel.y) <= kLimit;
  }

  /// The points strictly between the two ends.
  void AddCurve(const Vertex& groundA, const Vertex& pixelA, const Vertex& groundB, const Vertex& pixelB, int depth,
                Ring& ring) const {
    constexpr double kTolerance = 0.02;
    constexpr int kDeepest = 12;
    const Vertex ground{(groundA.x + groundB.x) / 2, (groundA.y + groundB.y) / 2};
    Vertex pixel{};
    if (depth == kDeepest || !ToPixel(ground, pixel)) return;
    const double error = std::hypot(pixel.x - (pixelA.x + pixelB.x) / 2, pixel.y - (pixelA.y + pixelB.y) / 2);
    if (error < kTolerance) return;
    // By value: the ring moves its points when it grows.
    const Vertex first = pixelA;
    AddCurve(groundA, first, ground, pixel, depth + 1, ring);
    ring.push_back(pixel);
    AddCurve(ground, pixel, groundB, pixelB, depth + 1, ring);
  }

  const platform::Affine& m_toPixel;
  OGRCoordinateTransformation* m_carry;
  std::vector<Polygon>& m_polygons;
};

/// Some formats cannot leave a layer without a coordinate system and write one that says nothing.
bool IsKnown(const OGRSpatialReference& crs) {
  const char* name = crs.GetName();
  return (crs.IsProjected() || crs.IsGeographic()) && !(name && STARTS_WITH_CI(name, "Undefined"));
}

/// Marks the pixels of a rectangle whose centres lie inside a polygon.
void Fill(const Polygon& polygon, const CRect& rect, unsigned char* marks) {
  // Rows whose centre lines y = row + 0.5 satisfy from <= y < to, counted from the rectangle's first.
  const auto rowFrom = [&rect](double y) {
    return static_cast<int>(std::clamp(std::ceil(y - 0.5) - rect.top, 0.0, static_cast<double>(rect.Height())));
  };
  const int first = rowFrom(polygon.minY);
  const int last = rowFrom(polygon.maxY);
  if (first >= last) return;
  std::vector<std::vector<double>> crossings(static_cast<std::size_t>(last - first));
  for (const Ring& ring : polygon.rings) {
    for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
      // Always walked downwards, so that neighbours that share an edge see the same crossings. Half-open in y, so that
      // a shared vertex counts once.
      const bool down = ring[i].y <= ring[i + 1].y;
      const Vertex& a = down ? ring[i] : ring[i + 1];
      const Vertex& b = down ? ring[i + 1] : ring[i];
      for (int row = rowFrom(a.y); row < rowFrom(b.y); ++row) {
        const double y = rect.top + row + 0.5;
        crossings[static_cast<std::size_t>(row - first)].push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
      }
    }
  }
  const int width = rect.Width();
  const auto columnFrom = [&rect, width](double x) {
    return static_cast<int>(std::clamp(std::ceil(x - 0.5) - rect.left, 0.0, static_cast<double>(width)));
  };
  for (int row = first; row < last; ++row) {
    auto& line = crossings[static_cast<std::size_t>(row - first)];
    std::sort(line.begin(), line.end());
    unsigned char* rowMarks = marks + static_cast<std::ptrdiff_t>(row) * width;
    for (std::size_t i = 0; i + 1 < line.size(); i += 2) {
      std::fill(rowMarks + columnFrom(line[i]), rowMarks + columnFrom(line[i + 1]), static_cast<unsigned char>(1));
    }
  }
}

}  // namespace

struct CRasterAOI::Impl {
  std::vector<Polygon> polygons;
  std::wstring failure;
  bool unbounded = false;
  CRect cached;
  std::vector<unsigned char> marks;

  /// 0: no pixel of the rectangle is inside, 1: some are, 3: all are.
  int Relation() const {
    const auto inside = std::count(marks.begin(), marks.end(), static_cast<unsigned char>(1));
    if (inside == 0) return 0;
    return inside == cached.Area() ? 3 : 1;
  }
};

CRasterAOI::CRasterAOI() : m_impl(std::make_unique<Impl>()) {}
CRasterAOI::~CRasterAOI() = default;

bool CRasterAOI::Load(const std::wstring& path, const CRasterSource& raster) {
  platform::InitialiseGdal();
  *m_impl = Impl();
  const platform::GdalErrors errors;
  const std::unique_ptr<GDALDataset> file(platform::OpenNamed(
      CommonFun::U2Utf8(path), static_cast<unsigned int>(GDAL_OF_VECTOR | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR)));
  if (!file) {
    m_impl->failure = CommonFun::Utf82U(errors.Reason());
    return false;
  }
  OGRSpatialReference rasterCrs;
  const bool rasterHasCrs = platform::ReadWkt(raster.GetSpatialReferenceWKT(), rasterCrs);
  bool anyPolygon = false;
  for (OGRLayer* layer : file->GetLayers()) {
    std::unique_ptr<OGRCoordinateTransformation> carry;
    const OGRSpatialReference* layerCrs = layer->GetSpatialRef();
    if (layerCrs && rasterHasCrs && IsKnown(*layerCrs) && !layerCrs->IsSame(&rasterCrs)) {
      carry.reset(OGRCreateCoordinateTransformation(layerCrs, &rasterCrs));
      if (!carry) {
        m_impl->failure = L"its coordinate system cannot be carried into that of the pan image";
        return false;
      }
    }
    PixelPolygons polygons(raster.GroundToPixel(), carry.get(), m_impl->polygons);
    for (const auto& feature : *layer) {
      const OGRGeometry* geometry = feature->GetGeometryRef();
      if (!geometry) continue;
      // Curves become chains of short lines.
      const std::unique_ptr<OGRGeometry> linear(geometry->getLinearGeometry());
      if (!linear) continue;
      polygons.Add(*linear);
      anyPolygon = anyPolygon || OGR_G_GetDimension(OGRGeometry::ToHandle(linear.get())) == 2;
    }
  }
  if (!m_impl->polygons.empty()) return true;
  m_impl->failure = anyPolygon ? L"none of its polygons can be laid on the pan image" : L"it holds no polygon";
  return false;
}

const std::wstring& CRasterAOI::GetLoadFailure() const { return m_impl->failure; }

void CRasterAOI::SetUnbounded() {
  *m_impl = Impl();
  m_impl->unbounded = true;
}

CRect CRasterAOI::GetCoveringRect() const {
  if (m_impl->unbounded) return {INT32_MIN / 2, INT32_MIN / 2, INT32_MAX / 2, INT32_MAX / 2};
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
  if (width <= 0 || height <= 0 || left > INT32_MAX - width || top > INT32_MAX - height) return 0;
  m_impl->cached = CRect(left, top, left + width, top + height);
  // Without bounds there is nothing to mark before something is left out.
  if (m_impl->unbounded) return 3;
  m_impl->marks.assign(static_cast<std::size_t>(m_impl->cached.Area()), 0);
  for (const Polygon& polygon : m_impl->polygons) Fill(polygon, m_impl->cached, m_impl->marks.data());
  return m_impl->Relation();
}

int CRasterAOI::Restrict(const unsigned char* keep) {
  if (m_impl->unbounded && m_impl->marks.empty()) {
    m_impl->marks.assign(static_cast<std::size_t>(m_impl->cached.Area()), 1);
  }
  for (unsigned char& mark : m_impl->marks) {
    if (*keep++ == 0) mark = 0;
  }
  return m_impl->Relation();
}

bool CRasterAOI::IsInAOI(int column, int row) const {
  unsigned char inside = 0;
  MarkRow(column, row, 1, &inside);
  return inside != 0;
}

void CRasterAOI::MarkRow(int left, int row, int count, unsigned char* inside) const {
  const CRect& rect = m_impl->cached;
  std::fill_n(inside, count, static_cast<unsigned char>(0));
  const int first = std::max(left, rect.left);
  const auto end = static_cast<int>(std::min<std::int64_t>(std::int64_t{left} + count, rect.right));
  if (row < rect.top || row >= rect.bottom || first >= end) return;
  if (m_impl->marks.empty()) {
    std::fill_n(inside + (first - left), end - first, static_cast<unsigned char>(1));
    return;
  }
  const unsigned char* marks = m_impl->marks.data() + std::int64_t{row - rect.top} * rect.Width();
  for (int x = first; x < end; ++x) inside[x - left] = marks[x - rect.left] != 0;
}

#include "runs/assess_scene.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "framework/messages.h"
#include "framework/overlap.h"
#include "platform/algorithm/base_algorithm.h"
#include "runs/failures.h"
#include "runs/notices.h"
#include "runs/threads.h"

namespace fusion {
namespace {

/// What a scene is looked at whole up to, in pan pixels, and what the tiles of a larger one are wide and high.
constexpr int kWhole = 1280;
constexpr int kTile = 1024;
/// Below it there is nothing to measure, in multispectral pixels.
constexpr int kLeast = 16;

int RoundDown(int value, int step) { return value / step * step; }
int RoundUp(int value, int step) { return RoundDown(value + step - 1, step); }

/// The edges of count cells between two multiples of step, each a multiple, too.
std::vector<int> CellEdges(int from, int to, int count, int step) {
  std::vector<int> edges;
  for (int i = 0; i <= count; ++i) {
    const auto units = static_cast<std::int64_t>((to - from) / step);
    edges.push_back(from + static_cast<int>(units * i / count) * step);
  }
  return edges;
}

/// some of count cells, spread evenly.
std::vector<int> Spread(int count, int some) {
  std::vector<int> chosen;
  chosen.reserve(static_cast<std::size_t>(some));
  for (int i = 0; i < some; ++i) chosen.push_back((2 * i + 1) * count / (2 * some));
  return chosen;
}

}  // namespace

AssessScene::AssessScene(const AssessRequest& request, Notices& notices)
    : m_workers(MakeWorkers(request.threads)),
      m_ms(request.ms, request.moreMs, request.pan),
      m_pair({request.pan, m_ms.Path(), request.bands, request.panBand, request.sameExtent, request.noData}, notices) {
  if (m_pair.Bands().size() < 2) throw UsageError("A fusion needs at least 2 multispectral bands.");
  CRasterSource& ms = m_pair.Ms();
  const std::optional<CRect> common = FindOverlap(ms, m_pair.Pan(), m_reproject);
  if (!common) throw RunError(ERR_NONE, messages::kWrongExtent);
  SettleGrid();
  m_common = {std::max(common->left, 0), std::max(common->top, 0), std::min(common->right, ms.GetWidth()),
              std::min(common->bottom, ms.GetHeight())};
  ChooseTiles(m_common, request.tiles);
}

void AssessScene::SettleGrid() {
  m_grid = std::make_unique<PanGrid>(m_pair.Pan(), m_pair.Ms());
  if (m_reproject && !m_grid->Reproject(m_pair.Pan(), m_pair.Ms()))
    throw RunError(ERR_REPROJECT, messages::kReprojectFailed);
  m_ratioX = static_cast<int>(std::lround(m_grid->RatioX()));
  m_ratioY = static_cast<int>(std::lround(m_grid->RatioY()));
  if (m_ratioX < 2 || m_ratioY < 2) {
    throw UsageError(
        "The multispectral pixels are not twice as large as pan's: there is no resolution to be gained, and none to "
        "be assessed. Check the georeferences, or use --same-extent.");
  }
}

void AssessScene::ChooseTiles(const CRect& common, int most) {
  const int left = RoundDown(common.left, m_ratioX);
  const int top = RoundDown(common.top, m_ratioY);
  const int right = RoundDown(std::min(RoundUp(common.right, m_ratioX), MsWidth()), m_ratioX);
  const int bottom = RoundDown(std::min(RoundUp(common.bottom, m_ratioY), MsHeight()), m_ratioY);
  if (right - left < std::max(kLeast, m_ratioX) || bottom - top < std::max(kLeast, m_ratioY)) {
    throw UsageError("The images share " + std::to_string(std::max(common.Width(), 0)) + " x " +
                     std::to_string(std::max(common.Height(), 0)) + " multispectral pixels; at least " +
                     std::to_string(kLeast) + " x " + std::to_string(kLeast) + " are needed to assess anything.");
  }
  const auto cells = [](int size, int ratio) {
    const std::int64_t pixels = static_cast<std::int64_t>(size) * ratio;
    return pixels <= kWhole ? 1 : static_cast<int>((pixels + kTile - 1) / kTile);
  };
  const int across = cells(right - left, m_ratioX);
  const int down = cells(bottom - top, m_ratioY);
  const double even = std::sqrt(static_cast<double>(most) * across / down);
  const int columns = std::clamp(static_cast<int>(std::lround(even)), 1, std::min(across, most));
  const int rows = std::clamp(most / columns, 1, down);
  const std::vector<int> x = CellEdges(left, right, across, m_ratioX);
  const std::vector<int> y = CellEdges(top, bottom, down, m_ratioY);
  double covered = 0.0;
  for (const int row : Spread(down, rows)) {
    for (const int column : Spread(across, columns)) {
      const auto i = static_cast<std::size_t>(column);
      const auto j = static_cast<std::size_t>(row);
      m_tiles.emplace_back(x[i], y[j], x[i + 1], y[j + 1]);
      covered += static_cast<double>(m_tiles.back().Area());
    }
  }
  m_share = covered / static_cast<double>(CRect(left, top, right, bottom).Area());
}

PixelDataType AssessScene::StoredType() const {
  const auto fits = [](PixelDataType type) {
    return type == PDT_UINT8 || type == PDT_UINT16 || type == PDT_INT16 || type == PDT_FLOAT32;
  };
  return fits(m_pair.Pan().GetRasterDataType()) && fits(m_pair.Ms().GetRasterDataType()) ? PDT_FLOAT32 : PDT_FLOAT64;
}

PlacedImage AssessScene::ReadMs(const CRect& rect) { return Placed(m_pair.Ms(), m_pair.ReadMs(rect), rect); }

PlacedImage AssessScene::ReadPan(const CRect& rect) { return Placed(m_pair.Pan(), {m_pair.ReadPan(rect)}, rect); }

PlacedImage AssessScene::Placed(const CRasterSource& source, std::vector<std::vector<double>> bands,
                                const CRect& rect) {
  PlacedImage placed;
  placed.image.width = rect.Width();
  placed.image.height = rect.Height();
  placed.image.bands = std::move(bands);
  source.GetGeoTransform(placed.geoTransform);
  double* t = placed.geoTransform;
  t[0] += rect.left * t[1];
  t[3] += rect.top * t[5];
  placed.wkt = source.GetSpatialReferenceWKT();
  return placed;
}

}  // namespace fusion

#include "highpass/bayesian_scene.h"

#include <algorithm>
#include <cmath>

#include "framework/band_choice.h"
#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/pixel_type.h"
#include "platform/system/task_queue.h"
#include "platform/validity/no_data.h"

namespace fusion {
namespace {

/// Columns of multispectral pixels that are low-passed at a time where they form no grid with pan: the upright
/// rectangle around many that lie askew would be most of the image.
constexpr int kAskewColumns = 512;

CRect Common(const CRect& a, const CRect& b) {
  const CRect both(std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                   std::min(a.bottom, b.bottom));
  return both.Area() > 0 ? both : CRect();
}

CRect Around(const CRect& a, const CRect& b) {
  if (a.Area() == 0 || b.Area() == 0) return a.Area() == 0 ? b : a;
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
}

/// The pan pixels on common ground.
CRect OverlapInPan(CRasterSource& pan, CRasterSource& ms, bool reprojects) {
  const CRect whole(0, 0, pan.GetWidth(), pan.GetHeight());
  CRect rect;
  if (reprojects) {
    for (const CBoundingBox& part : CReproject::CommonGround(pan, &ms)) rect = Around(rect, pan.GroundToImage(part));
  } else {
    CBoundingBox overlap;
    if (!CGISDataSource::GetExtent(&pan).Intersect(CGISDataSource::GetExtent(&ms), overlap)) return {};
    rect = pan.GroundToImage(overlap);
  }
  return Common(rect, whole);
}

}  // namespace

BayesianScene::BayesianScene(const BayesianFusionParam& param, bool overlapped, platform::Workers* workers)
    : m_param(param), m_overlapped(overlapped), m_workers(workers), m_buffer(2, 0), m_reader(1, overlapped) {
  m_buffer.SetAfterRead([](const CRasterBand& band, int, double* values, std::int64_t count) {
    const double noData = platform::NoDataSample(band);
    const bool isAllValid = noData != noData && !platform::IsFloatType(band.GetRasterDataType());
    if (!isAllValid) platform::MarkInvalid(values, count, noData);
  });
}

std::optional<BayesianScene::Failure> BayesianScene::Open(const CRect& panArea) {
  for (const auto& [source, path] : {std::pair(&m_pan, m_param.m_strPanFile), std::pair(&m_ms, m_param.m_strMSFile)}) {
    if (!source->Open(path, GDA_READ, m_param.m_bOpenOption)) return Failure{ERR_OPEN, messages::OpenFailed(path)};
    source->SetMaskNoData(m_param.m_bMaskNoData);
  }
  m_chosen.assign(m_param.m_vecMSBands.begin(), m_param.m_vecMSBands.end());
  ChooseAllBands(m_ms, m_chosen);
  for (const int b : m_chosen) m_bands.push_back(m_ms.GetRasterBand(b));
  const bool exist =
      std::all_of(m_bands.begin(), m_bands.end(), [](const CRasterBand* band) { return band != nullptr; });
  if (!exist || !m_pan.GetRasterBand(m_param.m_nPanBand)) return Failure{ERR_READ, messages::kReadFailed};
  if (m_bands.size() < 2) return Failure{ERR_BANDS, messages::kWrongBands};
  m_grid.emplace(m_pan, m_ms);
  if (m_param.m_bNeedReproject && !m_grid->Reproject(m_pan, m_ms)) {
    return Failure{ERR_REPROJECT, messages::kReprojectFailed};
  }
  SettleArea(panArea);
  return std::nullopt;
}

void BayesianScene::SettleArea(const CRect& panArea) {
  m_commonInPan = OverlapInPan(m_pan, m_ms, m_param.m_bNeedReproject);
  const CRect looked = panArea.Area() > 0 ? fusion::Common(m_commonInPan, panArea) : m_commonInPan;
  if (looked.Area() == 0) return;
  m_common = MsUnder(looked);
  if (m_common.Area() == 0) return;
  const CRect whole(0, 0, m_ms.GetWidth(), m_ms.GetHeight());
  // As far as a run reads, and from an even pixel on, so that every area of an image is halved alike.
  constexpr int kMargin = 10;
  m_area = fusion::Common({(m_common.left - kMargin) / 2 * 2, (m_common.top - kMargin) / 2 * 2,
                           m_common.right + kMargin, m_common.bottom + kMargin},
                          whole);
  constexpr double kPanPixels = 1 << 22;
  const double rows = kPanPixels / std::max(m_area.Width() * m_grid->RatioX() * m_grid->RatioY(), 1.0);
  m_strips = {m_area.Width(), m_area.Height(), m_area.Width(), static_cast<int>(std::clamp(rows, 32.0, 128.0)),
              m_area.left,    m_area.top};
  constexpr std::int64_t kEnough = std::int64_t{1} << 20;
  const std::int64_t perStrip = std::int64_t{m_strips.blockWidth} * m_strips.blockHeight;
  m_countedStrips = static_cast<int>(std::min<std::int64_t>(kEnough / perStrip + 1, m_strips.Count()));
  // A few strips less are not worth their borders.
  if (m_countedStrips > m_strips.Count() / 2) m_countedStrips = m_strips.Count();
}

CRect BayesianScene::MsUnder(const CRect& panRect) {
  const CRect whole(0, 0, m_ms.GetWidth(), m_ms.GetHeight());
  const CBoundingBox box = m_pan.ImageToGround(panRect);
  if (!m_param.m_bNeedReproject) return fusion::Common(m_ms.GroundToImage(box), whole);
  CRect under = whole;
  const std::unique_ptr<CReproject> back(CReproject::Create(&m_ms, m_pan.GetSpatialReferenceWKT(), nullptr, nullptr));
  if (back) back->GetInImgEnveFromGeoOut(box, under, 0.0, 0.0);
  return under;
}

bool BayesianScene::IsRead(int strip, const CRect& panRect, const RegistrationResult& found) {
  // What a run reads around a block, the edges that it repeats, and a move.
  const double moved =
      std::max(std::fabs(found.shiftX), std::fabs(found.shiftY)) / std::min(m_grid->RatioX(), m_grid->RatioY());
  const int margin = 16 + static_cast<int>(std::ceil(moved));
  const CRect under = MsUnder(panRect);
  const CRect rows = m_strips.Block(0, strip);
  return rows.bottom > under.top - margin && rows.top < under.bottom + margin;
}

platform::Affine BayesianScene::Moved(double shiftX, double shiftY) const {
  const int x = std::clamp((m_common.left + m_common.right) / 2, 0, m_ms.GetWidth() - 1);
  const int y = std::clamp((m_common.top + m_common.bottom) / 2, 0, m_ms.GetHeight() - 1);
  // Where a pixel in the middle and its neighbours lie in the pan image tells what a pan pixel is in these.
  const auto place = [this](int column, int row) {
    const PanPositions at = m_grid->Positions({column, row, column + 1, row + 1});
    return std::pair(at.x[0], at.y[0]);
  };
  const auto [x0, y0] = place(x, y);
  const auto [x1, y1] = place(x + 1, y);
  const auto [x2, y2] = place(x, y + 1);
  const double determinant = (x1 - x0) * (y2 - y0) - (x2 - x0) * (y1 - y0);
  const double columns = (shiftX * (y2 - y0) - shiftY * (x2 - x0)) / determinant;
  const double rows = (shiftY * (x1 - x0) - shiftX * (y1 - y0)) / determinant;
  platform::Affine moved = m_ms.PixelToGround();
  moved.t[0] += columns * moved.t[1] + rows * moved.t[2];
  moved.t[3] += columns * moved.t[4] + rows * moved.t[5];
  return moved;
}

bool BayesianScene::ReadBands(const CRect& rect, std::vector<std::vector<double>>& bands) {
  bands.resize(std::max(bands.size(), m_bands.size()));
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    if (!m_buffer.Read(1, m_bands[b], rect)) return false;
    bands[b].assign(m_buffer[1], m_buffer[1] + rect.Area());
  }
  return true;
}

bool BayesianScene::ReadPan(const CRect& rect) {
  return rect.Area() == 0 || m_buffer.Read(0, m_pan.GetRasterBand(m_param.m_nPanBand), rect);
}

bool BayesianScene::ReadTiles(std::vector<RegistrationTile>& tiles) {
  if (m_common.Area() == 0) return true;
  for (const CRect& rect : ChooseTiles(m_common, *m_grid)) {
    RegistrationTile tile{m_grid->Positions(rect), {}, {}, {}};
    tile.panRect = Registration::Reads(tile.positions, *m_grid);
    if (!ReadBands(rect, tile.bands) || !ReadPan(tile.panRect)) return false;
    if (tile.panRect.Area() > 0) tile.pan.assign(m_buffer[0], m_buffer[0] + tile.panRect.Area());
    tiles.push_back(std::move(tile));
  }
  return true;
}

bool BayesianScene::ForEachStrip(const std::vector<int>& strips, const RegistrationResult& found, double restoring,
                                 const std::function<bool(int strip, BayesianStrip&)>& use) {
  // At once for the largest strip, which is none at an edge.
  const CRect second = m_strips.Count() > 1 ? m_strips.Block(0, 1) : CRect();
  if (m_grid->IsGrid() && second.Area() > 0) m_buffer.Reserve(FiltersOf(second, found, restoring).Reads());
  m_ahead.reset();
  BayesianStrip loaded[2];
  bool wanted = true;
  const auto load = [&](std::size_t i, int slot) {
    return LoadStrip(strips[i], i + 1 < strips.size() ? strips[i + 1] : -1, found, restoring, loaded[slot]);
  };
  const auto take = [&](std::size_t i, int slot) {
    wanted = use(strips[i], loaded[slot]);
    return wanted;
  };
  return platform::LoadInTurn(m_overlapped, strips.size(), load, take) || !wanted;
}

bool BayesianScene::Counts(int strip) const {
  const std::int64_t counted = m_countedStrips;
  const std::int64_t count = std::max(m_strips.Count(), 1);
  return (strip + 1) * counted / count != strip * counted / count;
}

bool BayesianScene::LoadStrip(int i, int next, const RegistrationResult& found, double restoring,
                              BayesianStrip& strip) {
  strip.rect = m_strips.Block(0, i);
  strip.images.resize(m_bands.size() + 1);
  strip.counts = m_takesMoments && Counts(i);
  if (!LowPass(i, next, found, restoring, strip)) return false;
  const auto hasGaps = [&strip] {
    return std::any_of(strip.lowPass.begin(), strip.lowPass.end(), [](double v) { return v != v; });
  };
  strip.hasBands = strip.counts || m_param.m_bMaskNoData || hasGaps();
  return !strip.hasBands || ReadBands(strip.rect, strip.images);
}

CRect BayesianScene::Filters::Reads() const { return Around(plain.Reads(), restored.Reads()); }

BayesianScene::Filters BayesianScene::FiltersOf(const CRect& part, const RegistrationResult& found,
                                                double restoring) const {
  const PanPositions positions = m_grid->Positions(part);
  const auto filter = [&](double width) {
    const PanBlur blur{found.blur.isBox, found.blur.width * width};
    return PanLowPass(positions, found.shiftX, found.shiftY, blur.Shape(m_grid->RatioX()), blur.Shape(m_grid->RatioY()),
                      m_grid->PanWidth(), m_grid->PanHeight());
  };
  return {filter(1.0), filter(restoring)};
}

bool BayesianScene::LowPass(int i, int next, const RegistrationResult& found, double restoring, BayesianStrip& strip) {
  const CRect& rect = strip.rect;
  const auto widthOf = [&](int which) { return m_takesMoments && Counts(which) ? restoring : 1.0; };
  const bool restores = widthOf(i) != 1.0;
  std::vector<double>& wide = strip.images.back();
  strip.lowPass.resize(static_cast<std::size_t>(rect.Area()));
  wide.resize(strip.lowPass.size());
  const int columns = m_grid->IsGrid() ? rect.Width() : kAskewColumns;
  std::vector<double> values;
  for (int left = rect.left; left < rect.right; left += columns) {
    const CRect part(left, rect.top, std::min(left + columns, rect.right), rect.bottom);
    const Filters filters = m_ahead ? std::move(*m_ahead) : FiltersOf(part, found, widthOf(i));
    m_ahead.reset();
    const CRect reads = filters.Reads();
    if (!ReadPan(reads)) return false;
    if (m_overlapped && m_grid->IsGrid() && next >= 0) {
      m_ahead.emplace(FiltersOf(m_strips.Block(0, next), found, widthOf(next)));
      m_buffer.Expect(0, m_pan.GetRasterBand(m_param.m_nPanBand), m_ahead->Reads(), m_reader);
    }
    const auto put = [&](const PanLowPass& lowPass, std::vector<double>& out) {
      if (part == rect) {
        lowPass.Apply(m_buffer[0], reads, out.data(), m_workers);
        return;
      }
      values.resize(static_cast<std::size_t>(part.Area()));
      lowPass.Apply(m_buffer[0], reads, values.data(), m_workers);
      const auto width = static_cast<std::size_t>(part.Width());
      for (int y = 0; y < part.Height(); ++y) {
        std::copy_n(values.data() + static_cast<std::size_t>(y) * width, width,
                    out.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(rect.Width()) +
                        (part.left - rect.left));
      }
    };
    if (m_takesLowPass || !restores) put(filters.plain, strip.lowPass);
    if (restores) put(filters.restored, wide);
  }
  if (!restores && strip.counts) wide = strip.lowPass;
  return true;
}

}  // namespace fusion

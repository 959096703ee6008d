#include "runs/check.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>

#include "estimation/pair_shift.h"
#include "framework/overlap.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/gis_data_source.h"
#include "platform/raster/references.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"
#include "runs/check_figures.h"
#include "runs/check_findings.h"
#include "runs/failures.h"
#include "runs/fuse_checks.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/run_progress.h"
#include "runs/scene_pair.h"
#include "runs/threads.h"

namespace fusion {
namespace {

/// The first name in a description of a coordinate system.
std::string SystemName(const CRasterSource& source) {
  std::string wkt = CommonFun::U2Utf8(source.GetSpatialReferenceWKT());
  const std::size_t start = wkt.find('"');
  if (start == std::string::npos) return wkt;
  return wkt.substr(start + 1, wkt.find('"', start + 1) - start - 1);
}

CheckImage Describe(const CRasterSource& source) {
  CheckImage image;
  image.width = source.GetWidth();
  image.height = source.GetHeight();
  image.bands = source.GetBandCount();
  image.type = TypeName(source.GetRasterDataType());
  const platform::Affine& ground = source.PixelToGround();
  image.pixelWidth = std::hypot(ground.t[1], ground.t[4]);
  image.pixelHeight = std::hypot(ground.t[2], ground.t[5]);
  image.hasPlace = source.HasGeoTransform();
  image.system = SystemName(source);
  return image;
}

bool Declares(const CRasterSource& source, int band) {
  const CRasterBand* samples = source.GetRasterBand(band);
  return samples->IsHaveNoData() || samples->HasMask();
}

/// The rectangle on an image.
CRect On(const CRasterSource& image, const CRect& rect) {
  return {std::max(rect.left, 0), std::max(rect.top, 0), std::min(rect.right, image.GetWidth()),
          std::min(rect.bottom, image.GetHeight())};
}

class PairCheck {
 public:
  PairCheck(const CheckRequest& request, RunProgress& progress)
      : m_workers(MakeWorkers(request.threads)),
        m_ms(request.ms, request.moreMs, request.pan),
        m_pair({request.pan, m_ms.Path(), request.bands, request.panBand, request.sameExtent, request.noData},
               m_placingNotices),
        m_progress(progress) {}

  CheckReport Run() {
    m_report.pan = Describe(m_pair.Pan());
    m_report.ms = Describe(m_pair.Ms());
    // What was laid on pan on request, or because nothing else is known, has no place of its own.
    if (m_pair.HowPlaced() == ScenePair::Placing::kTakenSameExtent) m_report.ms.hasPlace = false;
    m_progress.Begin({"check"}, L"check", kSteps);
    PairFigures figures;
    PairShift shift;
    CheckFacts facts{.report = m_report,
                     .placing = m_pair.HowPlaced(),
                     .figures = nullptr,
                     .shift = nullptr,
                     .declaresPan = Declares(m_pair.Pan(), m_pair.PanBand()),
                     .declaresMs = Declares(m_pair.Ms(), m_pair.Bands().empty() ? 0 : m_pair.Bands()[0])};
    if (FindGround(facts)) {
      figures = WalkPair(m_pair, *m_grid, m_msArea, m_panArea, m_workers.get(),
                         [this](double done) { m_progress.Advance(static_cast<int>(done * kWalked)); });
      Take(figures);
      facts.figures = &figures;
      shift = Measure();
      facts.shift = &shift;
      Take(shift);
    }
    m_report.findings = JudgePair(facts);
    m_progress.Advance(kSteps);
    m_progress.Finish();
    return m_report;
  }

 private:
  static constexpr int kSteps = 100;
  static constexpr int kWalked = 60;  ///< of the steps, when the figures are taken

  /// The common ground, and the grids that lie on it. False where there is none.
  bool FindGround(CheckFacts& facts) {
    CRasterSource& pan = m_pair.Pan();
    CRasterSource& ms = m_pair.Ms();
    CBoundingBox overlap;
    const CBoundingBox panGround = CGISDataSource::GetExtent(&pan);
    const CBoundingBox msGround = CGISDataSource::GetExtent(&ms);
    facts.numbersOverlap = panGround.Intersect(msGround, overlap);
    const std::optional<CRect> inMs = FindOverlap(ms, pan, m_report.reprojects);
    const std::optional<CRect> inPan = FindOverlap(pan, ms, m_report.reprojects);
    m_grid = std::make_unique<PanGrid>(pan, ms);
    PanGrid back(ms, pan);
    if (m_report.reprojects) facts.systemsFit = m_grid->Reproject(pan, ms) && back.Reproject(ms, pan);
    m_report.ratioX = m_grid->RatioX();
    m_report.ratioY = m_grid->RatioY();
    if (!inMs || !inPan || !facts.systemsFit) return false;
    m_msArea = On(ms, *inMs);
    m_panArea = On(pan, *inPan);
    if (m_msArea.Area() == 0 || m_panArea.Area() == 0) return false;
    if (m_report.reprojects) {
      m_report.ms.overlap = ShareInside(*m_grid, ms);
      m_report.pan.overlap = ShareInside(back, pan);
    } else {
      const auto area = [](const CBoundingBox& b) { return (b.MaxX() - b.MinX()) * (b.MaxY() - b.MinY()); };
      m_report.ms.overlap = area(overlap) / area(msGround);
      m_report.pan.overlap = area(overlap) / area(panGround);
    }
    return true;
  }

  /// The share of an image's pixels, of some all over it, that lie inside the other one.
  static double ShareInside(const PanGrid& grid, const CRasterSource& image) {
    constexpr int kSide = 128;
    const int across = std::min(kSide, image.GetWidth());
    const int down = std::min(kSide, image.GetHeight());
    const auto place = [](int i, int count, int size) {
      return static_cast<int>((2 * std::int64_t{i} + 1) * size / (2 * std::int64_t{count}));
    };
    int inside = 0;
    for (int j = 0; j < down; ++j) {
      for (int i = 0; i < across; ++i) {
        const int x = place(i, across, image.GetWidth());
        const int y = place(j, down, image.GetHeight());
        const PanPositions at = grid.Positions({x, y, x + 1, y + 1});
        // Positions on the outermost samples may have been moved there from beyond.
        inside += at.x[0] > 0.0 && at.y[0] > 0.0 && at.x[0] < grid.PanWidth() - 1 && at.y[0] < grid.PanHeight() - 1;
      }
    }
    return static_cast<double>(inside) / (static_cast<double>(across) * down);
  }

  void Take(const PairFigures& figures) {
    m_report.share = figures.share;
    m_report.covered = figures.covered;
    m_report.panBand = figures.pan;
    m_report.panBand->name = "pan";
    m_report.bands = figures.bands;
    m_report.mixCorrelation = figures.mixCorrelation;
  }

  PairShift Measure() {
    constexpr double kLeastRatio = 1.2;
    if (m_report.ratioX < kLeastRatio || m_report.ratioY < kLeastRatio) return {};
    int read = 0;
    const auto tell = [&] { m_progress.Advance(kWalked + std::min(read, kSteps - kWalked)); };
    const std::vector<CRect> windows = ChooseTiles(m_msArea, *m_grid);
    return MeasureShift(
        windows, *m_grid,
        [&](const CRect& rect, const PanPositions& positions) {
          tell();
          ++read;
          return m_pair.ReadTile(rect, positions, *m_grid);
        },
        m_workers.get(), tell);
  }

  void Take(const PairShift& shift) {
    if (shift.windows == 0) return;
    m_report.shift = {shift.x, shift.y, shift.spreadX, shift.spreadY, shift.windows, shift.score, shift.inPlace};
    const double ratio = std::sqrt(m_report.ratioX * m_report.ratioY);
    m_report.blur = {shift.blur.isBox ? "box" : "gaussian", shift.blur.width, shift.blur.Shape(ratio).size};
  }

  Notices m_placingNotices{nullptr};
  std::shared_ptr<platform::Workers> m_workers;
  MsImage m_ms;
  ScenePair m_pair;
  RunProgress& m_progress;
  std::unique_ptr<PanGrid> m_grid;
  CRect m_msArea;
  CRect m_panArea;
  CheckReport m_report;
};

}  // namespace

CheckRequest::CheckRequest() = default;
CheckRequest::~CheckRequest() = default;
CheckRequest::CheckRequest(const CheckRequest&) = default;
CheckRequest& CheckRequest::operator=(const CheckRequest&) = default;

CheckReport Check(const CheckRequest& request, RunObserver* observer) {
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  const auto start = std::chrono::steady_clock::now();
  platform::ClearWriteError();
  return AsRun([&] {
    RunProgress progress(observer);
    CheckReport report = PairCheck(request, progress).Run();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
  });
}

}  // namespace fusion

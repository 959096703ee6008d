#include "platform/raster/raster_algorithm.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/read_window.h"
#include "platform/statistics/running_covariance.h"
#include "platform/statistics/survey.h"
#include "platform/system/workers.h"
#include "platform/validity/no_data.h"
#include "platform/validity/raster_aoi.h"

bool CRasterAlgorithm::GetMaxMinVal(PixelDataType type, double& maximum, double& minimum) {
  return platform::DispatchPixelType(type, [&](auto element) {
    using Limits = std::numeric_limits<decltype(element)>;
    maximum = static_cast<double>(Limits::max());
    minimum = static_cast<double>(Limits::lowest());
    return true;
  });
}

namespace {

/// Reads all bands window after window and hands on the pixels that are valid in every band, inside the area if there
/// is one.
class ValidPixels {
 public:
  ValidPixels(CRasterSource& source, CRasterAOI* aoi, CDataProgress* progress)
      : m_source(source), m_aoi(aoi), m_progress(progress) {
    constexpr std::int64_t kMostValues = std::int64_t{2} << 20;
    m_windows = platform::ReadWindows(*source.GetRasterBand(0), kMostValues / source.GetBandCount());
    m_values.assign(static_cast<std::size_t>(source.GetBandCount()),
                    std::vector<double>(static_cast<std::size_t>(m_windows.step.Area())));
    for (int b = 0; b < source.GetBandCount(); ++b) {
      m_noData.push_back(platform::NoDataSample(*source.GetRasterBand(b)));
    }
  }

  std::int64_t WindowCount() const { return m_windows.Count(); }

  /// The covariance of the pixels of a window; none after a failed read or a cancellation.
  std::optional<platform::RunningCovariance> Look(std::int64_t window) {
    if (m_progress && m_progress->IsCancelRequested()) return std::nullopt;
    const CRect rect = m_windows.At(window);
    if (!Read(rect)) return std::nullopt;
    const auto count = static_cast<std::int64_t>(Keep(rect));
    platform::RunningCovariance covariance(static_cast<int>(m_values.size()));
    // In pieces that stay in the processor's cache while each column meets each.
    constexpr std::int64_t kPiece = std::int64_t{1} << 12;
    platform::FoldInOrder(
        m_source.GetWorkers(), static_cast<int>((count + kPiece - 1) / kPiece),
        [&](int piece) {
          const std::int64_t first = kPiece * piece;
          std::vector<const double*> columns;
          for (const auto& values : m_values) columns.push_back(values.data() + first);
          platform::RunningCovariance part(static_cast<int>(m_values.size()));
          part.Add(columns.data(), std::min(kPiece, count - first));
          return part;
        },
        [&](const platform::RunningCovariance& part) { covariance.Add(part); });
    return covariance;
  }

 private:
  bool Read(const CRect& rect) {
    for (std::size_t b = 0; b < m_values.size(); ++b) {
      CRasterBand* band = m_source.GetRasterBand(static_cast<int>(b));
      if (band->ReadBlock(rect.left, rect.top, rect.Width(), rect.Height(), m_values[b].data(), rect.Width(),
                          rect.Height(), PDT_FLOAT64) != 0) {
        return false;
      }
    }
    if (m_aoi) m_aoi->ReadCacheAoiBuffer(rect.left, rect.top, rect.Width(), rect.Height());
    return true;
  }

  /// Moves the pixels that count to the front of every band. Answers how many there are.
  std::size_t Keep(const CRect& rect) {
    const auto width = static_cast<std::size_t>(rect.Width());
    std::vector<unsigned char> counts(width);
    std::size_t kept = 0;
    for (int row = 0; row < rect.Height(); ++row) {
      const std::size_t first = static_cast<std::size_t>(row) * width;
      std::fill(counts.begin(), counts.end(), 1);
      if (m_aoi) m_aoi->MarkRow(rect.left, rect.top + row, rect.Width(), counts.data());
      for (std::size_t b = 0; b < m_values.size(); ++b) {
        for (std::size_t i = 0; i < width; ++i) {
          if (!platform::IsValidSample(m_values[b][first + i], m_noData[b])) counts[i] = 0;
        }
      }
      std::size_t end = kept;
      for (auto& values : m_values) {
        end = kept;
        for (std::size_t i = 0; i < width; ++i) {
          values[end] = values[first + i];
          end += counts[i] != 0 ? 1 : 0;
        }
      }
      kept = end;
    }
    return kept;
  }

  CRasterSource& m_source;
  CRasterAOI* m_aoi;
  CDataProgress* m_progress;
  platform::WindowGrid m_windows{};
  std::vector<std::vector<double>> m_values;
  std::vector<double> m_noData;
};

/// Signs and the scale of the first row. Sums and entries that only rounding keeps from 0 count as 0.
void FixScale(Eigen::MatrixXd& components) {
  constexpr double kZero = 1e-12;
  for (Eigen::Index r = 0; r < components.rows(); ++r) {
    auto row = components.row(r);
    bool negative = row.sum() < 0.0;
    if (std::fabs(row.sum()) < kZero) {
      const auto first = std::find_if(row.begin(), row.end(), [](double entry) { return std::fabs(entry) > kZero; });
      negative = first != row.end() && *first < 0.0;
    }
    if (negative) row = -row;
  }
  const double sum = components.row(0).sum();
  if (sum > 1e-6) components.row(0) /= sum;
}

}  // namespace

bool CRasterAlgorithm::ComputeStaticsFromAOI(CRasterSource* source, CRasterAOI* aoi, long long& count, double* means,
                                             double* stdDevs, double* eigenvalues, double* components,
                                             bool /*approximate*/, CDataProgress* progress) {
  count = 0;
  if (!source || !source->IsOpen()) return false;
  count = -1;
  if (platform::RasterFails(platform::RasterOperation::kStatistics, source->GetPath())) return false;
  const auto n = static_cast<Eigen::Index>(source->GetBandCount());
  ValidPixels pixels(*source, aoi, progress);
  platform::RunningCovariance figures(source->GetBandCount());
  const auto fold = [&figures](const platform::RunningCovariance& part) { figures.Add(part); };
  const platform::SurveyPass pass = source->Pass("covariance", pixels.WindowCount());
  for (const std::int64_t window : pass.Pieces()) {
    std::optional<platform::RunningCovariance> part = pixels.Look(window);
    if (!part) return false;
    pass.Take(window, *part, fold);
  }
  count = 0;
  if (!pass.End<platform::RunningCovariance>(fold) || figures.Count() == 0) return false;
  count = figures.Count();
  Eigen::VectorXd mean(n);
  Eigen::MatrixXd covariance(n, n);
  for (Eigen::Index a = 0; a < n; ++a) {
    mean[a] = figures.Mean(static_cast<int>(a));
    for (Eigen::Index b = 0; b < n; ++b) {
      covariance(a, b) = figures.Covariance(static_cast<int>(a), static_cast<int>(b));
    }
  }

  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(covariance);
  if (solver.info() != Eigen::Success) return false;
  // The solver's eigenvalues rise and its vectors are columns; wanted are falling ones and rows.
  Eigen::MatrixXd rows = solver.eigenvectors().transpose().colwise().reverse();
  FixScale(rows);
  for (Eigen::Index b = 0; b < n; ++b) {
    means[b] = mean[b];
    stdDevs[b] = std::sqrt(std::max(covariance(b, b), 0.0));
    eigenvalues[b] = std::max(solver.eigenvalues()[n - 1 - b], 0.0);
    for (Eigen::Index c = 0; c < n; ++c) components[b * n + c] = rows(b, c);
  }
  return true;
}

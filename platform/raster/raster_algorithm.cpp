#include "platform/raster/raster_algorithm.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/read_window.h"
#include "platform/system/multiversion.h"
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

/// One run of pixels of a row: the samples of every band, and 1 for a pixel that counts, else 0.
struct PixelRun {
  std::vector<const double*> bands;
  std::vector<double> counts;
  std::vector<unsigned char> inside;  ///< scratch
};

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

  /// Calls visit with one run after another. False after a failed read or a cancellation.
  template <typename Visit>
  bool ForEachRun(const Visit& visit) {
    PixelRun run;
    for (std::int64_t i = 0; i < m_windows.Count(); ++i) {
      if (m_progress && m_progress->IsCancelRequested()) return false;
      const CRect rect = m_windows.At(i);
      if (!Read(rect)) return false;
      for (int row = 0; row < rect.Height(); ++row) {
        Fill(rect, row, run);
        visit(run);
      }
    }
    return true;
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

  void Fill(const CRect& rect, int row, PixelRun& run) const {
    run.bands.clear();
    run.counts.assign(static_cast<std::size_t>(rect.Width()), 1.0);
    for (std::size_t b = 0; b < m_values.size(); ++b) {
      const double* samples = m_values[b].data() + static_cast<std::ptrdiff_t>(row) * rect.Width();
      run.bands.push_back(samples);
      const double noData = m_noData[b];
      for (std::size_t i = 0; i < run.counts.size(); ++i) {
        run.counts[i] = platform::IsValidSample(samples[i], noData) ? run.counts[i] : 0.0;
      }
    }
    if (!m_aoi) return;
    run.inside.resize(run.counts.size());
    m_aoi->MarkRow(rect.left, rect.top + row, rect.Width(), run.inside.data());
    for (std::size_t i = 0; i < run.counts.size(); ++i) {
      if (!run.inside[i]) run.counts[i] = 0.0;
    }
  }

  CRasterSource& m_source;
  CRasterAOI* m_aoi;
  CDataProgress* m_progress;
  platform::WindowGrid m_windows{};
  std::vector<std::vector<double>> m_values;
  std::vector<double> m_noData;
};

/// Independent lanes let the sum vectorise although additions may not be reordered.
FUSION_MULTIVERSION(double, Dot, (const double* a, const double* b, std::size_t count), (a, b, count)) {
  constexpr std::size_t kLanes = 16;
  double lanes[kLanes] = {};
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (std::size_t l = 0; l < kLanes; ++l) lanes[l] += a[i + l] * b[i + l];
  }
  double sum = 0.0;
  for (; i < count; ++i) sum += a[i] * b[i];
  for (const double lane : lanes) sum += lane;
  return sum;
}

/// A band's differences from a value; pixels that do not count differ by nothing.
void Centre(const double* samples, const std::vector<double>& counts, double middle, std::vector<double>& centred) {
  centred.resize(counts.size());
  for (std::size_t i = 0; i < counts.size(); ++i) centred[i] = counts[i] != 0.0 ? samples[i] - middle : 0.0;
}

bool ComputeMeans(ValidPixels& pixels, long long& count, Eigen::VectorXd& means) {
  std::vector<double> centred;
  return pixels.ForEachRun([&](const PixelRun& run) {
    const std::size_t n = run.counts.size();
    const double added = Dot(run.counts.data(), run.counts.data(), n);
    if (added == 0.0) return;
    count += static_cast<long long>(added);
    // Differences from the running mean keep their digits whatever the mean.
    for (std::size_t b = 0; b < run.bands.size(); ++b) {
      double& mean = means[static_cast<Eigen::Index>(b)];
      Centre(run.bands[b], run.counts, mean, centred);
      mean += Dot(centred.data(), run.counts.data(), n) / static_cast<double>(count);
    }
  }) && count > 0;
}

bool ComputeCovariance(ValidPixels& pixels, long long count, const Eigen::VectorXd& means,
                       Eigen::MatrixXd& covariance) {
  std::vector<std::vector<double>> centred(static_cast<std::size_t>(means.size()));
  Eigen::VectorXd rest = Eigen::VectorXd::Zero(means.size());
  const bool read = pixels.ForEachRun([&](const PixelRun& run) {
    for (Eigen::Index a = 0; a < means.size(); ++a) {
      const auto first = static_cast<std::size_t>(a);
      Centre(run.bands[first], run.counts, means[a], centred[first]);
      rest[a] += Dot(centred[first].data(), run.counts.data(), run.counts.size());
      for (Eigen::Index b = 0; b <= a; ++b) {
        covariance(a, b) += Dot(centred[first].data(), centred[static_cast<std::size_t>(b)].data(), run.counts.size());
      }
    }
  });
  // What rounding left of the means is taken out again.
  rest /= static_cast<double>(count);
  covariance = covariance / static_cast<double>(count) - rest * rest.transpose();
  covariance.triangularView<Eigen::StrictlyUpper>() = covariance.transpose();
  return read;
}

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
  const auto n = static_cast<Eigen::Index>(source->GetBandCount());
  ValidPixels pixels(*source, aoi, progress);
  Eigen::VectorXd mean = Eigen::VectorXd::Zero(n);
  Eigen::MatrixXd covariance = Eigen::MatrixXd::Zero(n, n);
  if (!ComputeMeans(pixels, count, mean) || !ComputeCovariance(pixels, count, mean, covariance)) return false;

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

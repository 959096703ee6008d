#include "platform/raster/raster_algorithm.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "platform/algorithm/base_progress.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_aoi.h"

bool CRasterAlgorithm::GetMaxMinVal(PixelDataType type, double& maximum, double& minimum) {
  return platform::DispatchPixelType(type, [&](auto element) {
    using Limits = std::numeric_limits<decltype(element)>;
    maximum = static_cast<double>(Limits::max());
    minimum = static_cast<double>(Limits::lowest());
    return true;
  });
}

namespace {

/// Reads all bands row after row and hands on the pixels that are valid in every band, inside the area if there is one.
class ValidPixels {
 public:
  ValidPixels(CRasterSource& source, CRasterAOI* aoi, CDataProgress* progress)
      : m_source(source), m_aoi(aoi), m_progress(progress) {
    const std::int64_t bytes = std::int64_t{8} * source.GetWidth() * source.GetBandCount();
    m_rows = static_cast<int>(std::clamp<std::int64_t>((std::int64_t{16} << 20) / bytes, 1, source.GetHeight()));
    const int block = std::max(source.GetBlockYSize(), 1);
    if (m_rows > block) m_rows -= m_rows % block;
    m_values.resize(static_cast<std::size_t>(source.GetBandCount()));
    for (auto& band : m_values)
      band.resize(static_cast<std::size_t>(m_rows) * static_cast<std::size_t>(source.GetWidth()));
  }

  /// Calls visit with one row of values per band and a flag for each pixel. False after a failed read or a
  /// cancellation.
  template <typename Visit>
  bool ForEachRow(const Visit& visit) {
    const int width = m_source.GetWidth();
    std::vector<unsigned char> valid(static_cast<std::size_t>(width));
    std::vector<const double*> row(m_values.size());
    for (int top = 0; top < m_source.GetHeight(); top += m_rows) {
      if (m_progress && m_progress->IsCancelRequested()) return false;
      const int count = std::min(m_rows, m_source.GetHeight() - top);
      for (std::size_t b = 0; b < m_values.size(); ++b) {
        CRasterBand* band = m_source.GetRasterBand(static_cast<int>(b));
        if (band->ReadBlock(0, top, width, count, m_values[b].data(), width, count, PDT_FLOAT64) != 0) return false;
      }
      if (m_aoi) m_aoi->ReadCacheAoiBuffer(0, top, width, count);
      for (int r = 0; r < count; ++r) {
        for (std::size_t b = 0; b < row.size(); ++b)
          row[b] = m_values[b].data() + static_cast<std::ptrdiff_t>(r) * width;
        Flag(row, top + r, valid);
        visit(row, valid);
      }
    }
    return true;
  }

 private:
  void Flag(const std::vector<const double*>& row, int y, std::vector<unsigned char>& valid) const {
    std::fill(valid.begin(), valid.end(), static_cast<unsigned char>(1));
    for (std::size_t b = 0; b < row.size(); ++b) {
      const platform::NoDataTest isNoData = m_source.GetRasterBand(static_cast<int>(b))->GetNoDataTest();
      for (std::size_t i = 0; i < valid.size(); ++i) {
        if (std::isnan(row[b][i]) || isNoData(row[b][i])) valid[i] = 0;
      }
    }
    if (!m_aoi) return;
    for (std::size_t i = 0; i < valid.size(); ++i) {
      if (!m_aoi->IsInAOI(static_cast<int>(i), y)) valid[i] = 0;
    }
  }

  CRasterSource& m_source;
  CRasterAOI* m_aoi;
  CDataProgress* m_progress;
  int m_rows;
  std::vector<std::vector<double>> m_values;
};

void FixScale(Eigen::MatrixXd& components) {
  for (Eigen::Index r = 0; r < components.rows(); ++r) {
    double sum = components.row(r).sum();
    bool negative = sum < 0.0;
    if (sum == 0.0) {
      Eigen::Index c = 0;
      while (c + 1 < components.cols() && components(r, c) == 0.0) ++c;
      negative = components(r, c) < 0.0;
    }
    if (negative) {
      components.row(r) *= -1.0;
      sum = -sum;
    }
    if (r == 0 && sum > 1e-6) components.row(r) /= sum;
  }
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
  const bool summed = pixels.ForEachRow([&](const auto& row, const auto& valid) {
    // A row's sums of differences from the running mean keep their digits whatever the mean.
    Eigen::VectorXd sum = Eigen::VectorXd::Zero(n);
    long long rowCount = 0;
    for (const unsigned char v : valid) rowCount += v;
    if (rowCount == 0) return;
    for (Eigen::Index b = 0; b < n; ++b) {
      const double* values = row[static_cast<std::size_t>(b)];
      double s = 0.0;
      for (std::size_t i = 0; i < valid.size(); ++i) s += valid[i] ? values[i] - mean[b] : 0.0;
      sum[b] = s;
    }
    count += rowCount;
    mean += sum / static_cast<double>(count);
  });
  if (!summed || count == 0) return false;

  Eigen::MatrixXd covariance = Eigen::MatrixXd::Zero(n, n);
  const bool multiplied = pixels.ForEachRow([&](const auto& row, const auto& valid) {
    for (Eigen::Index a = 0; a < n; ++a) {
      const double* first = row[static_cast<std::size_t>(a)];
      for (Eigen::Index b = a; b < n; ++b) {
        const double* second = row[static_cast<std::size_t>(b)];
        double s = 0.0;
        for (std::size_t i = 0; i < valid.size(); ++i) {
          s += valid[i] ? (first[i] - mean[a]) * (second[i] - mean[b]) : 0.0;
        }
        covariance(a, b) += s;
      }
    }
  });
  if (!multiplied) return false;
  covariance /= static_cast<double>(count);
  covariance.triangularView<Eigen::StrictlyLower>() = covariance.transpose();

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

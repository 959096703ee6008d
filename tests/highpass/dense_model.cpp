#include "tests/highpass/dense_model.h"

#include <algorithm>
#include <cmath>

namespace highpass_test {
namespace {

constexpr double kTolerance = 1e-6;

/// The area of a box in a pixel.
double CommonArea(const Box& box, int column, int row) {
  const double width = std::min(box.right, column + 1.0) - std::max(box.left, static_cast<double>(column));
  const double height = std::min(box.bottom, row + 1.0) - std::max(box.top, static_cast<double>(row));
  return width > kTolerance && height > kTolerance ? width * height : 0.0;
}

/// Empty where the box leaves the image or touches a pixel without data.
std::optional<double> Average(const reference::Image& pan, const Box& box, std::optional<double> noData) {
  if (!(box.left >= -kTolerance && box.top >= -kTolerance && box.right <= pan.width + kTolerance &&
        box.bottom <= pan.height + kTolerance)) {
    return std::nullopt;
  }
  double sum = 0.0;
  double area = 0.0;
  const int firstRow = std::max(static_cast<int>(box.top) - 1, 0);
  const int lastRow = std::min(static_cast<int>(box.bottom) + 1, pan.height - 1);
  const int firstColumn = std::max(static_cast<int>(box.left) - 1, 0);
  const int lastColumn = std::min(static_cast<int>(box.right) + 1, pan.width - 1);
  for (int r = firstRow; r <= lastRow; ++r) {
    for (int c = firstColumn; c <= lastColumn; ++c) {
      const double common = CommonArea(box, c, r);
      if (common == 0.0) continue;
      const double value =
          pan.bands[0][static_cast<std::size_t>(r) * static_cast<std::size_t>(pan.width) + static_cast<std::size_t>(c)];
      if (std::isnan(value) || (noData && value == *noData)) return std::nullopt;
      sum += common * value;
      area += common;
    }
  }
  return sum / area;
}

}  // namespace

DenseSamples CollectSamples(const reference::Image& pan, const reference::Image& ms, const std::vector<int>& bands,
                            const std::function<Box(int, int)>& cell, std::optional<double> panNoData,
                            std::optional<double> msNoData) {
  std::vector<std::vector<double>> rows;  // bands, details, pan
  for (int r = 0; r < ms.height; ++r) {
    for (int c = 0; c < ms.width; ++c) {
      const auto average = Average(pan, cell(c, r), panNoData);
      if (!average) continue;
      bool valid = true;
      std::vector<double> values;
      std::vector<double> details;
      for (const int b : bands) {
        double sum = 0.0;
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            const int y = std::clamp(r + dy, 0, ms.height - 1);
            const int x = std::clamp(c + dx, 0, ms.width - 1);
            const double v = ms.bands[static_cast<std::size_t>(b)][static_cast<std::size_t>(y * ms.width + x)];
            if (!std::isfinite(v) || (msNoData && v == *msNoData)) valid = false;
            sum += v;
          }
        }
        const double v = ms.bands[static_cast<std::size_t>(b)][static_cast<std::size_t>(r * ms.width + c)];
        values.push_back(v);
        details.push_back(v - sum / 9.0);
      }
      if (!valid) continue;
      values.insert(values.end(), details.begin(), details.end());
      values.push_back(*average);
      rows.push_back(values);
    }
  }
  const auto count = static_cast<Eigen::Index>(rows.size());
  const auto n = static_cast<Eigen::Index>(bands.size());
  DenseSamples samples{Eigen::MatrixXd(count, n), Eigen::MatrixXd(count, n), Eigen::VectorXd(count)};
  for (Eigen::Index i = 0; i < count; ++i) {
    const auto& row = rows[static_cast<std::size_t>(i)];
    for (Eigen::Index b = 0; b < n; ++b) {
      samples.bands(i, b) = row[static_cast<std::size_t>(b)];
      samples.details(i, b) = row[static_cast<std::size_t>(n + b)];
    }
    samples.pan(i) = row.back();
  }
  return samples;
}

std::function<Box(int, int)> GridCells(const reference::Image& pan, const reference::Image& ms) {
  return [p = pan.geoTransform, m = ms.geoTransform](int column, int row) {
    const auto x = [&](int c) { return (m[0] + c * m[1] - p[0]) / p[1]; };
    const auto y = [&](int r) { return (m[3] + r * m[5] - p[3]) / p[5]; };
    return Box{std::min(x(column), x(column + 1)), std::min(y(row), y(row + 1)), std::max(x(column), x(column + 1)),
               std::max(y(row), y(row + 1))};
  };
}

DenseModel Fit(const DenseSamples& samples) {
  const Eigen::Index count = samples.pan.size();
  Eigen::MatrixXd system(count, samples.bands.cols() + 1);
  system << Eigen::VectorXd::Ones(count), samples.bands;
  const Eigen::VectorXd solution = system.colPivHouseholderQr().solve(samples.pan);
  const Eigen::VectorXd residual = samples.pan - system * solution;
  const Eigen::VectorXd centred = residual.array() - residual.mean();
  const Eigen::MatrixXd details = samples.details.rowwise() - samples.details.colwise().mean();
  const auto n = static_cast<double>(count);
  return {solution(0), solution.tail(samples.bands.cols()), centred.squaredNorm() / n,
          details.transpose() * details / n};
}

DenseFigures Figures(double weight, const Eigen::VectorXd& beta, double variance, const Eigen::MatrixXd& sigma) {
  const Eigen::MatrixXd inverse = sigma.inverse();
  const Eigen::MatrixXd v =
      (2.0 * (1.0 - weight) * inverse + 2.0 * weight * beta * beta.transpose() / variance).inverse();
  return {v * beta, (1.0 - weight) / weight * (v * inverse).transpose()};
}

}  // namespace highpass_test

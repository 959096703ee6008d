#include "estimation/injection_model.h"

#include <algorithm>
#include <cmath>

#include "estimation/low_pass.h"
#include "platform/utility/matrix_operation.h"

namespace fusion {
namespace {

/// The second moments that the fit stands on, the regressors first: low-passed bands and low-passed pan about their
/// means, details about 0.
class Moments {
 public:
  Moments(const platform::RunningCovariance& statistics, int n) : m_statistics(statistics), m_n(n) {}

  double operator()(int i, int j) const {
    const double product = IsDetail(i) && IsDetail(j) ? m_statistics.Mean(i) * m_statistics.Mean(j) : 0.0;
    return m_statistics.Covariance(i, j) + product;
  }
  /// Of what a regressor does to the mean of the result.
  double Mean(int i) const { return i == m_n ? 0.0 : m_statistics.Mean(i); }

 private:
  bool IsDetail(int i) const { return i == m_n || i > m_n + 1; }

  const platform::RunningCovariance& m_statistics;
  int m_n;
};

std::size_t At(int i) { return static_cast<std::size_t>(i); }

double Dot(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

/// The ridge regression of what the plain gains leave.
class Correction {
 public:
  Correction(const Moments& moments, int n) : m_size(n + 2), m_inverse(At(m_size) * At(m_size)) {
    constexpr double kRidge = 0.1;
    for (int i = 0; i < m_size; ++i) {
      const double spread = std::sqrt(moments(i, i));
      // What does not vary explains nothing.
      m_spreads.push_back(spread);
      m_means.push_back(spread > 0.0 ? moments.Mean(i) / spread : 0.0);
    }
    for (int i = 0; i < m_size; ++i) {
      for (int j = 0; j < m_size; ++j) {
        const double scale = m_spreads[At(i)] * m_spreads[At(j)];
        m_inverse[At(i * m_size + j)] = (scale > 0.0 ? moments(i, j) / scale : 0.0) + (i == j ? kRidge : 0.0);
      }
    }
    m_solvable = CMatrixOperation::InverseMatrix(m_inverse.data(), m_size);
    m_meansSolved = Solve(m_means);
  }

  bool IsSolvable() const { return m_solvable; }
  /// The coefficients for a right side of moments with the regressors.
  std::vector<double> Coefficients(const std::vector<double>& right) const {
    std::vector<double> scaled(right);
    for (std::size_t i = 0; i < scaled.size(); ++i) scaled[i] = m_spreads[i] > 0.0 ? right[i] / m_spreads[i] : 0.0;
    std::vector<double> x = Solve(scaled);
    // The mean stays.
    const double weight = Dot(m_means, m_meansSolved);
    const double excess = weight > 0.0 ? Dot(m_means, x) / weight : 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      x[i] = m_spreads[i] > 0.0 ? (x[i] - m_meansSolved[i] * excess) / m_spreads[i] : 0.0;
    }
    return x;
  }

 private:
  std::vector<double> Solve(const std::vector<double>& right) const {
    std::vector<double> solution(right.size());
    CMatrixOperation::Multimatrix(m_inverse.data(), right.data(), m_size, m_size, 1, solution.data());
    return solution;
  }

  int m_size;
  std::vector<double> m_inverse;
  std::vector<double> m_spreads;
  std::vector<double> m_means;
  std::vector<double> m_meansSolved;
  bool m_solvable;
};

}  // namespace

InjectionModel InjectionModel::Scaled(double factor) const {
  InjectionModel scaled = *this;
  const std::size_t n = panGains.size();
  for (std::size_t b = 0; b < n; ++b) {
    scaled.panGains[b] *= factor;
    scaled.lowPassGains[b] *= factor;
    for (std::size_t j = 0; j < n; ++j) {
      const double kept = b == j ? 1.0 : 0.0;
      scaled.bandGains[b * n + j] = kept + factor * (bandGains[b * n + j] - kept);
    }
  }
  return scaled;
}

InjectionModel FitInjection(const platform::RunningCovariance& statistics, int n, bool correct, InjectionDoubt& doubt) {
  // Less detail than this part of pan is what rounding leaves.
  constexpr double kRounding = 1e-10;
  constexpr std::int64_t kSamplesPerRegressor = 10;
  InjectionModel model;
  model.panGains.assign(At(n), 0.0);
  model.lowPassGains.assign(At(n), 0.0);
  model.detailGains.assign(At(n), 0.0);
  for (int i = 0; i < n * n; ++i) model.bandGains.push_back(i % (n + 1) == 0 ? 1.0 : 0.0);

  const Moments moments(statistics, n);
  const double detail = moments(n, n);
  const double level = std::fabs(statistics.Mean(n + 1)) + std::sqrt(moments(n + 1, n + 1));
  if (statistics.Count() == 0 || !(std::sqrt(detail) > kRounding * level) || !std::isfinite(detail)) {
    doubt = InjectionDoubt::kNoDetail;
    return model;
  }
  const bool enough = statistics.Count() >= kSamplesPerRegressor * (n + 2);
  const Correction correction(moments, n);
  if (correct && !enough) doubt = InjectionDoubt::kFewSamples;
  if (correct && enough && !correction.IsSolvable()) doubt = InjectionDoubt::kUnsolvable;
  const bool corrects = correct && enough && correction.IsSolvable();
  for (int b = 0; b < n; ++b) {
    const double gain = moments(n, n + 2 + b) / detail;
    std::vector<double> x(At(n) + 2, 0.0);
    if (corrects) {
      std::vector<double> left;
      left.reserve(At(n) + 2);
      for (int i = 0; i < n + 2; ++i) left.push_back(moments(i, n + 2 + b) - moments(i, n) * gain);
      x = correction.Coefficients(left);
    }
    model.detailGains[At(b)] = gain;
    model.panGains[At(b)] = gain + x[At(n)];
    model.lowPassGains[At(b)] = x[At(n) + 1] - model.panGains[At(b)];
    for (int j = 0; j < n; ++j) model.bandGains[At(b * n + j)] += x[At(j)];
  }
  return model;
}

double RestoringWidth(bool isBox, double width, double ratio) {
  constexpr double kPanSpread = 0.6;  // the point spread of pan, in its pixels
  constexpr double kMost = 1.25;
  if (isBox || !(ratio > kMost)) return 1.0;
  const double square = ratio * ratio;
  const double spread = width * DeviationOfGain(ratio, kUsualGain);
  const double wanted = std::min(kPanSpread * std::sqrt(square - 1.0) / spread,
                                 kMost * std::sqrt((square - 1.0) / (square - kMost * kMost)));
  return 1.0 + std::max(0.0, wanted - 1.0) * std::clamp((width - 0.65) / 0.15, 0.0, 1.0);
}

}  // namespace fusion

#include "highpass/bayesian_model.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "framework/band_choice.h"
#include "framework/messages.h"
#include "highpass/bayesian_samples.h"
#include "platform/statistics/running_covariance.h"
#include "platform/utility/matrix_operation.h"

namespace messages = fusion::messages;
using platform::RunningCovariance;

namespace {

constexpr double kSingular = 1e12;
constexpr double kLeastVariance = 1e-8;

/// Whether a quantity varies by no more than the rounding errors of its mean. Sums that overflowed are left to the
/// regression.
bool IsConstant(const RunningCovariance& statistics, int i) {
  return std::sqrt(statistics.Covariance(i, i)) <= 1e-12 * std::fabs(statistics.Mean(i));
}

/// Solves covariance x solution = right hand side, the bands scaled to unit variance so that their units do not matter.
class BandSystem {
 public:
  /// @param statistics whose first n components are the bands
  BandSystem(const RunningCovariance& statistics, int n) : m_n(static_cast<std::size_t>(n)), m_inverse(m_n * m_n) {
    for (int i = 0; i < n; ++i) m_deviations.push_back(std::sqrt(statistics.Covariance(i, i)));
    for (std::size_t i = 0; i < m_n; ++i) {
      for (std::size_t j = 0; j < m_n; ++j) {
        m_inverse[i * m_n + j] =
            statistics.Covariance(static_cast<int>(i), static_cast<int>(j)) / (m_deviations[i] * m_deviations[j]);
      }
    }
    m_solvable = CMatrixOperation::ConditionNumber(m_inverse.data(), n) < kSingular &&
                 CMatrixOperation::InverseMatrix(m_inverse.data(), n);
  }

  bool IsSolvable() const { return m_solvable; }
  std::vector<double> Solve(std::vector<double> right) const {
    std::vector<double> solution(m_n);
    const int n = static_cast<int>(m_n);
    for (std::size_t i = 0; i < m_n; ++i) right[i] /= m_deviations[i];
    CMatrixOperation::Multimatrix(m_inverse.data(), right.data(), n, n, 1, solution.data());
    for (std::size_t i = 0; i < m_n; ++i) solution[i] /= m_deviations[i];
    return solution;
  }

 private:
  std::size_t m_n;
  std::vector<double> m_deviations;
  std::vector<double> m_inverse;
  bool m_solvable;
};

/// The covariances of the last component with the others.
std::vector<double> CovariancesWithLast(const RunningCovariance& statistics, int n) {
  std::vector<double> result(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) result[static_cast<std::size_t>(i)] = statistics.Covariance(i, n);
  return result;
}

std::vector<double> DetailCovariance(const RunningCovariance& details, int n) {
  std::vector<double> sigma;
  double trace = 0.0;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) sigma.push_back(details.Covariance(i, j));
    trace += details.Covariance(i, i);
  }
  if (CMatrixOperation::ConditionNumber(sigma.data(), n) > kSingular) {
    for (int i = 0; i < n; ++i)
      sigma[static_cast<std::size_t>(i) * (static_cast<std::size_t>(n) + 1)] += 1e-9 * trace / n;
  }
  return sigma;
}

double Dot(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}

struct FitError {
  int type;
  const wchar_t* message;
};

/// The model from two passes over the samples.
class ModelFit {
 public:
  explicit ModelFit(int n) : m_n(n), m_values(n + 1), m_details(n), m_residuals(n + 1) {}

  /// First pass.
  void AddValues(const fusion::BayesianBatch& batch) {
    m_columns = batch.bands;
    m_columns.push_back(batch.pan);
    m_values.Add(m_columns.data(), batch.count);
    m_details.Add(batch.details.data(), batch.count);
  }

  std::optional<FitError> Solve() {
    if (m_values.Count() < m_n + 2) return FitError{ERR_STATISTICS, L"有效的公共像元太少，无法估计贝叶斯模型！"};
    for (int i = 0; i <= m_n; ++i) {
      // Details are compared with the values they were taken from.
      const bool flat = i < m_n && m_details.Covariance(i, i) < 1e-24 * m_values.Covariance(i, i);
      if (flat || IsConstant(m_values, i)) {
        return FitError{ERR_ZERO_DEVIATION, L"影像数据标准差为零，无法估计贝叶斯模型！"};
      }
    }
    m_system.emplace(m_values, m_n);
    if (!m_system->IsSolvable()) return FitError{ERR_STATISTICS, L"多光谱波段线性相关，无法估计贝叶斯模型！"};
    m_beta = m_system->Solve(CovariancesWithLast(m_values, m_n));
    m_intercept = Intercept();
    return std::nullopt;
  }

  /// Second pass: the residuals themselves, since their variance may be lost in the digits of pan's.
  void AddResiduals(const fusion::BayesianBatch& batch) {
    m_residual.assign(batch.pan, batch.pan + batch.count);
    for (double& e : m_residual) e -= m_intercept;
    for (std::size_t b = 0; b < m_beta.size(); ++b) {
      for (std::size_t i = 0; i < m_residual.size(); ++i) m_residual[i] -= m_beta[b] * batch.bands[b][i];
    }
    m_columns = batch.bands;
    m_columns.push_back(m_residual.data());
    m_residuals.Add(m_columns.data(), batch.count);
  }

  BayesianModel Model(double weight) {
    // What of the residuals still goes with the bands belongs to the last digits of beta.
    const std::vector<double> left = CovariancesWithLast(m_residuals, m_n);
    const std::vector<double> correction = m_system->Solve(left);
    for (std::size_t b = 0; b < m_beta.size(); ++b) m_beta[b] += correction[b];
    const double variance = std::max(m_residuals.Covariance(m_n, m_n) - Dot(correction, left), 0.0);
    return fusion::MakeBayesianModel(weight, Intercept(), m_beta, variance, DetailCovariance(m_details, m_n));
  }

 private:
  double Intercept() const {
    double intercept = m_values.Mean(m_n);
    for (int i = 0; i < m_n; ++i) intercept -= m_beta[static_cast<std::size_t>(i)] * m_values.Mean(i);
    return intercept;
  }

  int m_n;
  RunningCovariance m_values;  ///< bands and pan
  RunningCovariance m_details;
  RunningCovariance m_residuals;  ///< bands and residual
  std::optional<BandSystem> m_system;
  std::vector<double> m_beta;
  double m_intercept = 0.0;
  std::vector<double> m_residual;
  std::vector<const double*> m_columns;
};

}  // namespace

namespace fusion {

BayesianModel MakeBayesianModel(double weight, double intercept, const std::vector<double>& coefficients,
                                double residualVariance, const std::vector<double>& sigma) {
  const std::size_t n = coefficients.size();
  BayesianModel model;
  model.weight = weight;
  model.panMean = intercept;
  model.panVariance = residualVariance < kLeastVariance ? 1.0 : residualVariance;
  model.coefficients = coefficients;

  // V is the inverse of a matrix plus a product of a vector with itself: by Sherman and Morrison's formula, with
  // k = w / ((1-w) s), it is (Sigma - k Sigma beta beta' Sigma / (1 + k beta' Sigma beta)) / (2(1-w)), and no matrix
  // has to be inverted.
  std::vector<double> spread(n);
  const int size = static_cast<int>(n);
  CMatrixOperation::Multimatrix(sigma.data(), coefficients.data(), size, size, 1, spread.data());
  const double k = weight / ((1.0 - weight) * model.panVariance);
  const double scale = 1.0 + k * Dot(coefficients, spread);
  for (std::size_t i = 0; i < n; ++i) {
    model.panCovariance.push_back(spread[i] / (2.0 * (1.0 - weight) * scale));
    for (std::size_t j = 0; j < n; ++j) {
      const double identity = i == j ? 1.0 : 0.0;
      model.transform.push_back((identity - k * coefficients[i] * spread[j] / scale) / (2.0 * weight));
    }
  }
  return model;
}

}  // namespace fusion

BayesianModelEstimator::BayesianModelEstimator(const BayesianFusionParam& param) : m_param(param) {}
BayesianModelEstimator::~BayesianModelEstimator() = default;

void BayesianModelEstimator::Process() {
  ClearError();
  m_model = {};
  Guard([this] { Estimate(); });
}

bool BayesianModelEstimator::Open(CRasterSource& pan, CRasterSource& ms, std::vector<CRasterBand*>& bands) {
  if (!(m_param.m_dBayesParam > 0.0 && m_param.m_dBayesParam < 1.0)) {
    Fail(ERR_EXCEPTION, L"贝叶斯权重必须大于0且小于1！");
    return false;
  }
  for (const auto& [source, path] : {std::pair(&pan, m_param.m_strPanFile), std::pair(&ms, m_param.m_strMSFile)}) {
    if (source->Open(path, GDA_READ, m_param.m_bOpenOption)) {
      source->SetMaskNoData(m_param.m_bMaskNoData);
      source->SetReadAhead(m_overlappedIo);
      continue;
    }
    Fail(ERR_OPEN, messages::OpenFailed(path));
    return false;
  }
  std::vector<std::int32_t> chosen = m_param.m_vecMSBands;
  fusion::ChooseAllBands(ms, chosen);
  for (const int b : chosen) bands.push_back(ms.GetRasterBand(b));
  const bool exist = std::all_of(bands.begin(), bands.end(), [](const CRasterBand* band) { return band != nullptr; });
  if (exist && pan.GetRasterBand(m_param.m_nPanBand)) return true;
  Fail(ERR_READ, messages::kReadFailed);
  return false;
}

void BayesianModelEstimator::Estimate() {
  CRasterSource pan;
  CRasterSource ms;
  std::vector<CRasterBand*> bands;
  if (!Open(pan, ms, bands)) return;
  fusion::PanAverage average(pan, *pan.GetRasterBand(m_param.m_nPanBand), ms);
  if (m_param.m_bNeedReproject && !average.Reproject(pan, ms)) return Fail(ERR_REPROJECT, messages::kReprojectFailed);

  fusion::BayesianSamples samples(ms, bands, average, m_overlappedIo);
  if (m_pProgress) {
    m_pProgress->Begin({platform::stages::kModelEstimation}, messages::RunTitle(L"贝叶斯模型估计"),
                       2 * samples.TileCount());
  }
  int step = 0;
  const auto pass = [&](const std::function<void(const fusion::BayesianBatch&)>& visit) {
    const bool read = samples.ForEachTile([&](const fusion::BayesianBatch& batch) {
      visit(batch);
      if (!m_pProgress || m_pProgress->Step(++step, messages::kProcessing)) return true;
      m_nLastErrorType = ERR_CANCELLED;
      return false;
    });
    if (!read) Fail(ERR_READ, messages::kReadFailed);
    return m_nLastErrorType == ERR_NONE;
  };

  ModelFit fit(static_cast<int>(bands.size()));
  if (!pass([&](const fusion::BayesianBatch& batch) { fit.AddValues(batch); })) return;
  if (const auto error = fit.Solve()) return Fail(error->type, error->message);
  if (!pass([&](const fusion::BayesianBatch& batch) { fit.AddResiduals(batch); })) return;
  m_model = fit.Model(m_param.m_dBayesParam);
  if (m_pProgress) m_pProgress->Finish();
}

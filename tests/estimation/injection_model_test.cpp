#include "estimation/injection_model.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <random>

namespace {

using fusion::FitInjection;
using fusion::InjectionDoubt;
using fusion::InjectionModel;
using fusion::RestoringWidth;

/// Samples in the order of DetailMoments: low-passed bands, pan's detail, low-passed pan, the bands' details.
using Samples = std::vector<std::vector<double>>;

Samples MakeSamples(int n, int count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, 1.0);
  Samples samples(static_cast<std::size_t>(2 * n + 2));
  for (int k = 0; k < count; ++k) {
    const double common = normal(random);
    const double detail = 5.0 * normal(random) + 0.3;
    for (int b = 0; b < n; ++b) {
      const double low = 300.0 + 50.0 * b + 40.0 * common + 15.0 * normal(random);
      samples[static_cast<std::size_t>(b)].push_back(low);
      samples[static_cast<std::size_t>(n + 2 + b)].push_back((0.5 + 0.2 * b) * detail + 0.02 * (low - 300.0) +
                                                             normal(random));
    }
    samples[static_cast<std::size_t>(n)].push_back(detail);
    samples[static_cast<std::size_t>(n + 1)].push_back(350.0 + 45.0 * common + 4.0 * normal(random));
  }
  return samples;
}

platform::RunningCovariance StatisticsOf(const Samples& samples) {
  platform::RunningCovariance statistics(static_cast<int>(samples.size()));
  std::vector<const double*> columns;
  for (const auto& column : samples) columns.push_back(column.data());
  statistics.Add(columns.data(), static_cast<std::int64_t>(samples[0].size()));
  return statistics;
}

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double v : values) sum += v;
  return sum / static_cast<double>(values.size());
}

/// The definition, with matrices.
struct Dense {
  Eigen::MatrixXd x;  ///< regressors x bands
  Eigen::VectorXd g;
  Eigen::VectorXd q;  ///< what each regressor does to the mean
};

Dense Fit(const Samples& samples, int n) {
  const auto count = static_cast<Eigen::Index>(samples[0].size());
  const auto m = static_cast<std::size_t>(n) + 2;
  Eigen::MatrixXd z1(static_cast<Eigen::Index>(m), count);
  Eigen::MatrixXd z2(n, count);
  Eigen::VectorXd means(static_cast<Eigen::Index>(m));
  for (std::size_t i = 0; i < m; ++i) {
    const double mean = i == static_cast<std::size_t>(n) ? 0.0 : Mean(samples[i]);
    means(static_cast<Eigen::Index>(i)) = mean;
    for (Eigen::Index k = 0; k < count; ++k) {
      z1(static_cast<Eigen::Index>(i), k) = samples[i][static_cast<std::size_t>(k)] - mean;
    }
  }
  for (int b = 0; b < n; ++b) {
    for (Eigen::Index k = 0; k < count; ++k) {
      z2(b, k) = samples[m + static_cast<std::size_t>(b)][static_cast<std::size_t>(k)];
    }
  }
  const Eigen::MatrixXd a = z1 * z1.transpose() / static_cast<double>(count);
  const Eigen::MatrixXd b = z1 * z2.transpose() / static_cast<double>(count);
  Dense dense;
  dense.g = b.row(n).transpose() / a(n, n);
  const Eigen::MatrixXd r = b - a.col(n) * dense.g.transpose();
  const Eigen::VectorXd d = a.diagonal().cwiseSqrt();
  const Eigen::MatrixXd h = (a.array() / (d * d.transpose()).array()).matrix() +
                            0.1 * Eigen::MatrixXd::Identity(static_cast<Eigen::Index>(m), static_cast<Eigen::Index>(m));
  dense.q = means;
  const Eigen::VectorXd q = means.cwiseQuotient(d);
  const Eigen::MatrixXd inverse = h.inverse();
  dense.x.resize(static_cast<Eigen::Index>(m), n);
  for (int band = 0; band < n; ++band) {
    const Eigen::VectorXd y = inverse * r.col(band).cwiseQuotient(d);
    dense.x.col(band) = (y - inverse * q * (q.dot(y) / q.dot(inverse * q))).cwiseQuotient(d);
  }
  return dense;
}

TEST(Injection, IsTheRidgeRegressionThatKeepsTheMeans) {
  for (const int n : {2, 4, 12}) {
    const Samples samples = MakeSamples(n, 2000, static_cast<unsigned>(n));
    const Dense dense = Fit(samples, n);
    InjectionDoubt doubt = InjectionDoubt::kNone;
    const InjectionModel model = FitInjection(StatisticsOf(samples), n, true, doubt);
    EXPECT_EQ(doubt, InjectionDoubt::kNone);
    for (int b = 0; b < n; ++b) {
      const auto at = static_cast<std::size_t>(b);
      EXPECT_NEAR(model.detailGains[at], dense.g(b), 1e-9);
      EXPECT_NEAR(model.panGains[at], dense.g(b) + dense.x(n, b), 1e-9);
      EXPECT_NEAR(model.lowPassGains[at], dense.x(n + 1, b) - (dense.g(b) + dense.x(n, b)), 1e-9);
      double change = 0.0;
      for (int j = 0; j < n; ++j) {
        const double a = model.bandGains[at * static_cast<std::size_t>(n) + static_cast<std::size_t>(j)];
        EXPECT_NEAR(a, (b == j ? 1.0 : 0.0) + dense.x(j, b), 1e-9);
        change += (a - (b == j ? 1.0 : 0.0)) * dense.q(j);
      }
      // Beside k (pan - Q) nothing moves the mean.
      change += (model.lowPassGains[at] + model.panGains[at]) * dense.q(n + 1);
      EXPECT_NEAR(change, 0.0, 1e-8);
      EXPECT_GT(dense.x.col(b).cwiseAbs().maxCoeff(), 1e-4) << "nothing to correct";
    }
  }
}

TEST(Injection, ByHand) {
  // Pan's detail is 1, -1, 2, -2 and the band's 2, -2, 4, -4 and 0.5, -0.5, 1, -1: gains of 2 and a half. What is low
  // goes with neither, and nothing is left to correct.
  const Samples samples = {{10, 10, 20, 20}, {30, 30, 10, 10}, {1, -1, 2, -2},
                           {5, 5, 9, 9},     {2, -2, 4, -4},   {0.5, -0.5, 1, -1}};
  Samples many(samples.size());
  for (int i = 0; i < 20; ++i) {
    for (std::size_t c = 0; c < samples.size(); ++c)
      many[c].insert(many[c].end(), samples[c].begin(), samples[c].end());
  }
  InjectionDoubt doubt = InjectionDoubt::kNone;
  const InjectionModel model = FitInjection(StatisticsOf(many), 2, true, doubt);
  EXPECT_EQ(doubt, InjectionDoubt::kNone);
  const double gains[] = {2.0, 0.5};
  for (std::size_t b = 0; b < 2; ++b) {
    EXPECT_NEAR(model.panGains[b], gains[b], 1e-12);
    EXPECT_NEAR(model.lowPassGains[b], -gains[b], 1e-12);
    for (std::size_t j = 0; j < 2; ++j) EXPECT_NEAR(model.bandGains[b * 2 + j], b == j ? 1.0 : 0.0, 1e-12);
  }
}

TEST(Injection, FewSamplesOrAWishGiveOneGainABand) {
  const int n = 3;
  const Samples samples = MakeSamples(n, 49, 8);  // one less than 10 (n + 2)
  const Dense dense = Fit(samples, n);
  const auto expectPlain = [&](const InjectionModel& model, const Eigen::VectorXd& g) {
    for (int b = 0; b < n; ++b) {
      const auto at = static_cast<std::size_t>(b);
      EXPECT_NEAR(model.panGains[at], g(b), 1e-9);
      EXPECT_EQ(model.lowPassGains[at], -model.panGains[at]);
      for (int j = 0; j < n; ++j) EXPECT_EQ(model.bandGains[at * 3 + static_cast<std::size_t>(j)], b == j ? 1.0 : 0.0);
    }
  };
  InjectionDoubt doubt = InjectionDoubt::kNone;
  expectPlain(FitInjection(StatisticsOf(samples), n, true, doubt), dense.g);
  EXPECT_EQ(doubt, InjectionDoubt::kFewSamples);

  const Samples enough = MakeSamples(n, 50, 8);
  doubt = InjectionDoubt::kNone;
  expectPlain(FitInjection(StatisticsOf(enough), n, false, doubt), Fit(enough, n).g);
  EXPECT_EQ(doubt, InjectionDoubt::kNone);
  EXPECT_NE(FitInjection(StatisticsOf(enough), n, true, doubt).bandGains[1], 0.0);
  EXPECT_EQ(doubt, InjectionDoubt::kNone);
}

TEST(Injection, WithoutDetailNothingIsAdded) {
  Samples samples = MakeSamples(2, 500, 9);
  for (double& v : samples[2]) v = 1e-12;
  for (const Samples& none : {samples, Samples(6)}) {
    InjectionDoubt doubt = InjectionDoubt::kNone;
    const InjectionModel model = FitInjection(StatisticsOf(none), 2, true, doubt);
    EXPECT_EQ(doubt, InjectionDoubt::kNoDetail);
    EXPECT_EQ(model.panGains, (std::vector<double>{0.0, 0.0}));
    EXPECT_EQ(model.lowPassGains, (std::vector<double>{0.0, 0.0}));
    EXPECT_EQ(model.bandGains, (std::vector<double>{1.0, 0.0, 0.0, 1.0}));
  }
}

TEST(Injection, AConstantBandExplainsNothingAndGetsNothing) {
  Samples samples = MakeSamples(3, 500, 10);
  for (double& v : samples[1]) v = 77.0;
  for (double& v : samples[6]) v = 0.0;
  InjectionDoubt doubt = InjectionDoubt::kNone;
  const InjectionModel model = FitInjection(StatisticsOf(samples), 3, true, doubt);
  EXPECT_EQ(doubt, InjectionDoubt::kNone);
  EXPECT_EQ(model.panGains[1], 0.0);
  for (std::size_t b = 0; b < 3; ++b) EXPECT_EQ(model.bandGains[b * 3 + 1], b == 1 ? 1.0 : 0.0);
  for (const double v : model.bandGains) EXPECT_TRUE(std::isfinite(v));
  EXPECT_NE(model.panGains[0], 0.0);
}

TEST(Injection, TwiceTheSameBandHasASolution) {
  Samples samples = MakeSamples(3, 500, 11);
  samples[2] = samples[0];
  samples[7] = samples[5];
  InjectionDoubt doubt = InjectionDoubt::kNone;
  const InjectionModel model = FitInjection(StatisticsOf(samples), 3, true, doubt);
  EXPECT_EQ(doubt, InjectionDoubt::kNone);
  EXPECT_NEAR(model.panGains[0], model.panGains[2], 1e-9);
}

TEST(Injection, APartOfAModelLiesBetweenTheBandsAndTheWhole) {
  const InjectionModel model{{2.0, 4.0}, {-1.0, -3.0}, {1.5, 0.25, -0.5, 0.75}, {2.0, 4.0}};
  const InjectionModel half = model.Scaled(0.5);
  EXPECT_EQ(half.panGains, (std::vector<double>{1.0, 2.0}));
  EXPECT_EQ(half.lowPassGains, (std::vector<double>{-0.5, -1.5}));
  EXPECT_EQ(half.bandGains, (std::vector<double>{1.25, 0.125, -0.25, 0.875}));
  EXPECT_EQ(model.Scaled(0.0).bandGains, (std::vector<double>{1.0, 0.0, 0.0, 1.0}));
  EXPECT_EQ(model.Scaled(1.0).bandGains, model.bandGains);
}

TEST(Restoring, IsWhatPansOwnBlurTook) {
  const double unit = std::sqrt(-2.0 * std::log(0.3)) / 3.14159265358979323846;
  // Ratio 4, width 1: 0.6 sqrt(15) / (4 unit) is the lesser of both.
  EXPECT_NEAR(RestoringWidth(false, 1.0, 4.0), 0.6 * std::sqrt(15.0) / (4.0 * unit), 1e-12);
  // Ratio 2 and a width of 0.8: 1.25 sqrt(3 / 2.4375) is more than 0.6 sqrt(3) / (1.6 unit).
  EXPECT_NEAR(RestoringWidth(false, 0.8, 2.0), 0.6 * std::sqrt(3.0) / (1.6 * unit), 1e-12);
  // Of a narrow blur the other bound is the lesser; it fades in from 0.65 to 0.8.
  EXPECT_NEAR(RestoringWidth(false, 0.7, 4.0), 1.0 + (1.25 * std::sqrt(15.0 / (16.0 - 1.5625)) - 1.0) * (0.05 / 0.15),
              1e-12);
  EXPECT_EQ(RestoringWidth(false, 0.65, 4.0), 1.0);
  EXPECT_EQ(RestoringWidth(false, 0.5, 4.0), 1.0);
  // Pan that is blurred more than the bands has nothing to restore.
  EXPECT_EQ(RestoringWidth(false, 1.9, 4.0), 1.0);
  EXPECT_EQ(RestoringWidth(true, 1.0, 4.0), 1.0);
  EXPECT_EQ(RestoringWidth(false, 1.0, 1.2), 1.0);
}

}  // namespace

#pragma once

#include <vector>

#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"

/// The model that BayesPanSharpeningFusion applies.
///
/// Source: Fasbender, Radoux and Bogaert, Bayesian data fusion for adaptable image pansharpening, IEEE Transactions on
/// Geoscience and Remote Sensing 46(6), 2008. There the posterior density of the unknown vector Z of high-resolution
/// bands is proportional to f(Z | multispectral)^(2(1-w)) x f(Z | pan)^(2w), both Gaussian. The terms here:
///
/// - f(Z | multispectral) has its mean at the resampled multispectral vector x and the covariance Sigma of what
///   resampling cannot know, taken as the covariance of the bands less their 3 x 3 mean.
/// - pan is a linear image of the bands, p = a + beta' Z + e with Var e = s: intercept a (the "pan mean" m of the
///   kernel, the mean of pan given no light in the bands), coefficients beta, residual variance s.
/// - The product is Gaussian with covariance V = (2(1-w) Sigma^-1 + 2w beta beta' / s)^-1 and mean
///   V (2(1-w) Sigma^-1 x + 2w beta (p - a) / s) = 2w c (p - a) / s + 2w (x' M)'
///   with c = V beta and M = ((1-w)/w) (V Sigma^-1)'.
///
/// With w near 0 the result is x; with w near 1 the pan value predicted from the result is the pan value.
struct BayesianModel {
  double weight = 0.0;                ///< w
  double panMean = 0.0;               ///< m = a
  double panVariance = 0.0;           ///< s; a residual variance below 1e-8 counts as 1
  std::vector<double> panCovariance;  ///< c, one per band
  std::vector<double> transform;      ///< M, n x n, row-major
  std::vector<double> coefficients;   ///< beta, one per band; what c and M were made from
};

/// Fits the model to a pan and a multispectral image: least squares of the pan image, averaged over multispectral
/// pixels, on the chosen bands, over all pixels of both whole images that have all data (see fusion::BayesianSamples).
/// Streams twice over both images with bounded memory.
///
/// Errors: 2 (also a band that does not exist), 4 and 20 as in a fusion run; 6 for a weight that is not between 0 and
/// 1; 7 for too few common pixels or bands that are linearly dependent; 10 for a pan image, a band or a band's detail
/// without spread; 1 when cancelled.
class FUSION_API BayesianModelEstimator : public CBaseAlgorithm {
 public:
  /// Reads the record's files, bands, reprojection flag, open option and weight.
  explicit BayesianModelEstimator(const BayesianFusionParam& param);
  ~BayesianModelEstimator() override;

  void Process() override;
  /// Of the last successful run.
  const BayesianModel& GetModel() const { return m_model; }

 private:
  void Estimate();
  bool Open(CRasterSource& pan, CRasterSource& ms, std::vector<CRasterBand*>& bands);

  BayesianFusionParam m_param;
  BayesianModel m_model;
};

namespace fusion {

/// The model from its parts.
/// @param coefficients beta, n values; sigma n x n; residualVariance s
BayesianModel MakeBayesianModel(double weight, double intercept, const std::vector<double>& coefficients,
                                double residualVariance, const std::vector<double>& sigma);

}  // namespace fusion

#pragma once

#include "framework/row_fusion.h"
#include "highpass/bayesian_model.h"

/// The application step of Bayesian pan-sharpening: a linear estimate of the high-resolution multispectral vector from
/// the resampled one and the pan value,
///
///   out(b) = (pan - m) x 2w x c(b) / s + 2w x t(b),  t = ms x M,
///
/// with the weight w, the mean m and variance s of pan, the per-band pan covariance c and the matrix M of BayesianModel
/// (Fasbender, Radoux and Bogaert, Bayesian data fusion for adaptable image pansharpening, IEEE Transactions on
/// Geoscience and Remote Sensing 46(6), 2008). The class estimates nothing: run BayesianModelEstimator first and hand
/// its model to SetModel.
class FUSION_API BayesPanSharpeningFusion : public CRowFusion {
 public:
  /// The weight is part of the model; that of a BayesianFusionParam given here is not taken over.
  explicit BayesPanSharpeningFusion(FusionParam* param);
  ~BayesPanSharpeningFusion() override;
  BayesPanSharpeningFusion(const BayesPanSharpeningFusion&);
  BayesPanSharpeningFusion& operator=(const BayesPanSharpeningFusion&);

  /// An estimated model brings its own multispectral source: the record's bands and, behind them, the low-passed pan. A
  /// run whose bands are not as many as the model's is error type 7.
  void SetModel(const BayesianModel& model);

  /// Needs no statistics.
  GISError Preproccess() override;
  GISError StartBolckProcess() override;

 protected:
  BayesianFusionParam m_bayesParam;                        ///< its m_dBayesParam is w
  double m_dPanVariance = 0.0;                             ///< s; below 1e-8 it becomes 1 on first use
  double m_dPanMean = 0.0;                                 ///< m
  int m_nModelBands = 0;                                   ///< n
  SharedArray m_pPanCovariance;                            ///< c, n values
  SharedArray m_pTransform;                                ///< M, n x n, row-major
  std::shared_ptr<const fusion::BayesianSource> m_source;  ///< what an estimated model reads; kept for the runs

 private:
  static fusion::RowMethod MakeRows(CRowFusion& fusion, const fusion::FusionBlock& block);
};

#pragma once

#include <vector>

#include "framework/row_fusion.h"

/// Correlation-weighted fusion: each fused band is a weighted mean of the resampled multispectral band and pan; the
/// better a band correlates with pan over the whole scene, the more of pan it takes:
///   fused = ((1 - a) ms + (1 + a) pan) / 2,  a = |sqrt(correlation / number of bands)|.
///
/// Source: Pohl and van Genderen, Multisensor image fusion in remote sensing, International Journal of Remote Sensing
/// 19(5), 1998 (weighted combination by correlation coefficients).
class FUSION_API CWeightFusion : public CRowFusion {
 public:
  explicit CWeightFusion(FusionParam* param);
  ~CWeightFusion() override;
  CWeightFusion(const CWeightFusion&);
  CWeightFusion& operator=(const CWeightFusion&);

  /// Lets the next runs hand bands without a weight on as resampled, instead of leaving them empty.
  void KeepBandsWithoutWeight(bool keeps) { m_keepsBands = keeps; }
  bool KeepsBandsWithoutWeight() const { return m_keepsBands; }

  /// The statistics and the correlation pass.
  GISError Preproccess() override;
  /// Frees the statistics; no spectral matching.
  void EndProccess() override;

  /// Why the correlation of a band and pan gives no weight, so that the fused band is empty.
  enum class WeightDoubt { kNone, kNegative, kConstantBand, kConstantPan, kNoPixels };
  /// One of the last run for each chosen band; empty where the run did not come so far.
  const std::vector<WeightDoubt>& GetWeightDoubts() const { return m_doubts; }

  /// What a band takes of pan, the a above, one for each chosen band of the last run; 0 where it has none.
  const std::vector<double>& GetWeights() const { return m_weights; }

  /// Adds a block's (ms - mean) (pan - mean) to covSum, for every pixel in the area of interest and every band, and 1
  /// to count for each of them: count grows by the number of bands per pixel. The deviations are not read.
  void ComputeCovSum(double* panBuf, CRect* panRect, double panMean, double panStdDev, double** mulBufs, int bandCount,
                     CRect* mulRect, double* mulMeans, double* mulStdDevs, double* covSum, long& count,
                     CRasterAOI* aoi);

 protected:
  double m_dPanMax = 255.0;
  double m_dPanMin = 0.0;
  SharedArray m_pMulMax;  ///< one per chosen band, null until Preproccess
  SharedArray m_pMulMin;
  SharedArray m_pWeight;

 private:
  static fusion::RowMethod MakeRows(CRowFusion& self, const fusion::FusionBlock& block);
  struct Figures;
  static WeightDoubt DoubtOf(const Figures& figures, std::size_t band, double r);
  GISError ComputeFigures(Figures& figures);
  struct RowSums;
  /// Of each row of a block.
  std::vector<RowSums> SumRows(const fusion::FusionBlock& block, double panMean, const double* means);
  bool SumCovariances(const Figures& figures, std::vector<double>& covSum, long long& count);

  std::vector<WeightDoubt> m_doubts;
  std::vector<double> m_weights;
  bool m_keepsBands = false;
};

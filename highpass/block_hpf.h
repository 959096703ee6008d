#pragma once

#include "highpass/block_filters.h"
#include "highpass/hpf_fusion.h"
#include "platform/statistics/band_figures.h"

namespace fusion {

/// High-pass-filter fusion from two files to one, to the bit what CHpfFusionProcessAlg makes, as one run over blocks:
/// filters, green mix and spectral correction work on the blocks on their way, so that there is no file but the
/// output. What they need of whole images is measured before: the filtered pan image, the multispectral bands, and the
/// fused result, for which the blocks are fused twice.
class BlockHpf : public CHpfFusion {
 public:
  /// m_strPanFile of the record is the pan image itself. Resampling is always bicubic.
  explicit BlockHpf(HpfFusionParam* param);

  /// As in CHpfFusionProcessAlg.
  void CapDetail(bool caps) { m_capsDetail = caps; }
  double GetDetailWeight() const { return m_detailWeight; }
  bool HasCappedDetail() const { return m_detailWeight < m_hpfParam.m_dDetailWeight1; }

  /// What the bands are brought to at the end, one for each chosen band.
  std::vector<double> GetBandMeans() const { return ValuesOf(m_means); }
  std::vector<double> GetBandDeviations() const { return ValuesOf(m_stdDevs); }

  void Process() override;
  GISError Preproccess() override;

 private:
  std::vector<double> ValuesOf(const double* values) const;
  bool OpenRasters(CRasterSource& pan, CRasterSource& ms);
  bool MeasureFiltered(const platform::FilteredBand& filtered, const platform::Stage& stage, const wchar_t* title,
                       platform::BandFigures& figures);
  bool MeasureMs();
  bool MeasureMsBand(int band, double& mean, double& stdDev);
  bool MeasurePan(double& stdDev);
  /// @param pan its deviation
  bool CapWeight(const platform::BandFigures& detail, double pan, double& weight);
  /// The error state of statistics that cannot be had.
  bool FailStatistics();

  BlockFilters m_filters;
  SharedArray m_means;  ///< of the multispectral bands
  SharedArray m_stdDevs;
  bool m_capsDetail = false;
  double m_detailWeight = 0.0;
};

}  // namespace fusion

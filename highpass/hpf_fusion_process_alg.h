#pragma once

#include "framework/fusion_param.h"
#include "framework/shared_array.h"
#include "platform/algorithm/base_algorithm.h"

namespace fusion {
class StagePipeline;
}

/// High-pass-filter fusion from files to file: filters the pan image (m_filter1, and m_filter2 with m_bSecondFilter
/// on), mixes near infrared into green where m_bMakeGreen is on, fuses with CHpfFusion, brings the result to the
/// multispectral means and deviations in the multispectral image's pixel type (32-bit float after the green mix), with
/// m_bDataStretch on adjusts its level to 8 bits, and builds pyramids. Resampling is always bicubic. The stages hand
/// 32-bit float rasters to each other in temporary files beside the output.
class FUSION_API CHpfFusionProcessAlg : public CBaseAlgorithm {
 public:
  /// The record should be an HpfFusionParam; of a plain one the rest keeps its defaults.
  explicit CHpfFusionProcessAlg(FusionParam* param);
  ~CHpfFusionProcessAlg() override;
  /// Copies share the statistics.
  CHpfFusionProcessAlg(const CHpfFusionProcessAlg&);
  CHpfFusionProcessAlg& operator=(const CHpfFusionProcessAlg&);

  /// Lets the next runs give detail no larger weight than the share that it has of pan's deviation: in a scene that
  /// lives of its large forms (clouds, water and land) it would else be blown up to a part of theirs.
  void CapDetail(bool caps) { m_capsDetail = caps; }
  /// The weight that the last run gave the detail of the first filter, and whether that is less than the record's.
  double GetDetailWeight() const { return m_detailWeight; }
  bool HasCappedDetail() const { return m_detailWeight < m_hpfParam.m_dDetailWeight1; }

  /// A stage's error type and message become the run's; files left are those that were there before, and the output of
  /// a successful run.
  void Process() override;
  /// Means and standard deviations of the first bands of the multispectral file, as many as are processed, in file
  /// order: choose all bands, or hand in a file of the chosen ones.
  virtual GISError Preproccess();

 private:
  bool RunStages(fusion::StagePipeline& pipeline);
  bool Fuse(fusion::StagePipeline& pipeline, const std::wstring& highPass, const std::wstring& secondHighPass,
            std::wstring& fused);
  bool CorrectSpectrally(fusion::StagePipeline& pipeline, const std::wstring& fused, std::wstring& corrected);
  GISError FailStatistics();
  /// A weight, or the detail's share of pan's deviation where that is less and runs cap it. False after a failure.
  bool CapWeight(const std::wstring& highPass, double& weight);

  HpfFusionParam m_hpfParam;
  SharedArray m_pMulMeans;  ///< one per processed band, null until Preproccess
  SharedArray m_pMulStdvs;
  PixelDataType m_eMSDataType = PDT_UNKNOWN;
  bool m_capsDetail = false;
  double m_detailWeight = 0.0;
};

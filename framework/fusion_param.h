#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/algorithm/algorithm_param.h"
#include "platform/algorithm/string_param_parser.h"

/// Blocks are not taken lower than this: neighbours read the rows twice that kernels reach beyond them.
inline constexpr std::int64_t kLeastBlockRows = 64;
/// Rows of so wide a block that is to hold no more pixels than these, if kLeastBlockRows are not more.
inline std::int64_t BlockRows(std::int64_t mostPixels, int width) {
  return std::max(mostPixels / std::max(width, 1), kLeastBlockRows);
}

/// Parameters of a fusion run. A value: every algorithm keeps its own copy.
struct FUSION_API FusionParam : AlgorithmParam {
  FusionParam();
  ~FusionParam() override;
  FusionParam(const FusionParam&);
  FusionParam& operator=(const FusionParam&);

  std::wstring m_strPanFile;  ///< high-resolution panchromatic image
  std::wstring m_strMSFile;   ///< low-resolution multispectral image
  /// Whether the multispectral image must be reprojected onto the pan grid. Callers set it, usually from
  /// CCoordinateAlgorithm::IsNeededProject.
  bool m_bNeedReproject = false;
  ResampleType m_eResampleType = RT_BICUBIC;
  /// Let kernels see two more rows and columns around the multispectral image, which repeat its edges, where they would
  /// see nothing or give way to simpler kernels.
  bool m_bRepeatMsEdges = false;
  /// Keep what bicubic resampling makes between the least and the largest of the samples that it is made from.
  bool m_bKeepSampleRange = false;
  /// End with ERR_READ where the figures of a band could not be read; otherwise a run goes on with figures of 0.
  bool m_bNeedsFigures = false;
  /// Blocks as wide as the output that hold more pixels than this are taken lower, but no lower than kLeastBlockRows
  /// and in whole blocks of the output, which gives the same result and takes less memory; 0 leaves them as they are.
  std::int64_t m_nMostBlockPixels = 0;
  std::int32_t m_nPanBand = 0;              ///< zero-based
  std::vector<std::int32_t> m_vecMSBands;   ///< zero-based, in output order; empty means all
  bool m_bSpectralMatch = false;            ///< stretch the result to the multispectral means and deviations
  bool m_bMakeGreen = false;                ///< mix near infrared into green, where an algorithm has that stage
  std::vector<std::int32_t> m_vecRGBBands;  ///< positions in m_vecMSBands of the three colour channels (IHS)
};

/// A convolution kernel as the high-pass family takes it.
struct FilterDescription {
  double m_dScale = 0.0;
  std::vector<double> m_vecCoefficients;  ///< row-major
  std::int32_t m_nWidth = 0;
  std::int32_t m_nHeight = 0;
  std::int32_t m_nCenterX = 0;
  std::int32_t m_nCenterY = 0;
};

/// Parameters of the high-pass-filter family.
struct FUSION_API HpfFusionParam : FusionParam {
  HpfFusionParam();
  ~HpfFusionParam() override;
  HpfFusionParam(const HpfFusionParam&);
  HpfFusionParam& operator=(const HpfFusionParam&);

  bool m_bHpfFlag1 = false;
  bool m_bSecondFilter = false;  ///< also inject detail from a second high-pass image
  bool m_bDataStretch = false;   ///< pipelines end with an automatic level adjustment
  bool m_bHpfFlag4 = false;
  std::wstring m_strSecondHpfFile;
  FilterDescription m_filter1;
  FilterDescription m_filter2;
  double m_dDetailWeight1 = 0.5;
  double m_dDetailWeight2 = 0.35;
};

/// Parameters of Bayesian pan-sharpening.
struct FUSION_API BayesianFusionParam : FusionParam {
  BayesianFusionParam();
  ~BayesianFusionParam() override;
  BayesianFusionParam(const BayesianFusionParam&);
  BayesianFusionParam& operator=(const BayesianFusionParam&);

  double m_dBayesParam = 0.0;  ///< weight of the pan image, in (0, 1)
};

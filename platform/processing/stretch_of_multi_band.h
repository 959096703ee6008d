#pragma once

#include <vector>

#include "platform/algorithm/multi_band_io_process.h"

struct FUSION_API CStretchAlgorithmParam : AlgorithmParam {
  const double* m_pMeans = nullptr;    ///< target mean of each band, not owned
  const double* m_pStdDevs = nullptr;  ///< target standard deviation of each band, not owned
  bool m_bMakeGreen = false;           ///< mix near infrared into green first, see CMakeGreenAlg
};

/// Brings each band to a target mean and standard deviation: (v - mean) / deviation * target deviation + target mean,
/// with the band's own statistics; a band without spread (below 1e-8) becomes its target mean. No-data pixels stay,
/// pixels outside the area of interest become 0. Integer types round to nearest, half up.
class FUSION_API CStretchOfMultiBand : public CMultiBandIOProcess {
 public:
  explicit CStretchOfMultiBand(AlgorithmParam* param);
  ~CStretchOfMultiBand() override;
};

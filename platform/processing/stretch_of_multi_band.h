#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/algorithm/multi_band_io_process.h"

namespace platform {
class MomentMatching;
}

/// Parameters of CStretchOfMultiBand: one target for each output band.
struct FUSION_API CStretchAlgorithmParam : AlgorithmParam {
  const double* m_pMeans = nullptr;    ///< target mean of each band, not owned
  const double* m_pStdDevs = nullptr;  ///< target standard deviation of each band, not owned
  bool m_bMakeGreen = false;           ///< mix near infrared into green first, see CMakeGreenAlg
  bool m_bRobust = false;              ///< single values far beyond all others do not decide a band's own statistics
};

/// Brings each band to a target mean and standard deviation: (v - mean) / deviation * target deviation + target mean,
/// with the band's own statistics; a band without spread (below 1e-8) becomes its target mean. No-data pixels stay,
/// pixels outside the area of interest become 0 and do not count in the statistics. Integer types round to nearest,
/// half up. Band count 0 takes all bands.
class FUSION_API CStretchOfMultiBand : public CMultiBandIOProcess {
 public:
  /// Needs a CStretchAlgorithmParam with both arrays, one value each per output band; a run without them fails.
  explicit CStretchOfMultiBand(AlgorithmParam* param);
  ~CStretchOfMultiBand() override;

  /// Of a run that was robust: how many values counted as lying nearer, and the factor by which they would have widened
  /// a band's deviation at most.
  std::int64_t GetOutliers() const;
  double GetWidening() const;

 protected:
  bool Configure(const CRasterSource& input, platform::StagePlan& plan) override;
  bool Prepare() override;
  void ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) override;

 private:
  const double* m_pMeans = nullptr;
  const double* m_pStdDevs = nullptr;
  bool m_bMakeGreen = false;
  bool m_bRobust = false;

  std::shared_ptr<platform::MomentMatching> m_matching;
  std::vector<int> m_scanBands;
  std::vector<const double*> m_rows;  ///< the present row of each band read
};

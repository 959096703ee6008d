#pragma once

#include <memory>
#include <vector>

#include "platform/algorithm/single_band_io_process.h"

namespace platform {
class BandLevel;
}

/// Parameters of COutoAdjustLevel.
struct FUSION_API OutoAdjustLevelParam : AlgorithmParam {
  double m_dRatio = 0.01;  ///< share of the valid pixels cut off at each end, at least 0 and below 0.5
  int m_nMode = 0;         ///< 0 is the only mode
};

/// Adjusts the level of every band: cuts int(ratio x N) of its N valid pixels off each end by exact order statistics
/// and maps the rest linearly to the whole range of the output type, 0 to 1 for the float types. No-data pixels stay,
/// pixels outside the area of interest become 0 and do not count. Integer types round to nearest, half up. Band
/// count 0 takes all bands.
class FUSION_API COutoAdjustLevel : public CSingleBandIOProcess {
 public:
  explicit COutoAdjustLevel(AlgorithmParam* param);
  ~COutoAdjustLevel() override;

 protected:
  bool Configure(const CRasterSource& input, platform::StagePlan& plan) override;
  bool Prepare() override;
  void ProcessBandRow(int index, const platform::RowBuffer& rows, int row, double* out) override;

 private:
  double m_dRatio = 0.01;
  int m_nMode = 0;
  PixelDataType m_outType = PDT_UNKNOWN;
  std::shared_ptr<std::vector<platform::BandLevel>> m_bands;
};

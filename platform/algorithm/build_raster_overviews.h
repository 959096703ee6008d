#pragma once

#include <string>

#include "platform/algorithm/base_algorithm.h"

/// Builds external overviews (pyramids) of an open raster.
class FUSION_API CBuildRasterOverviews : public CBaseAlgorithm {
 public:
  /// @param resampling GDAL's name, for instance "AVERAGE"
  /// @param levelCount, levels reduction factors; count 0 means powers of two until the smaller side is below 256
  /// @param text, flag unused
  CBuildRasterOverviews(CRasterSource* source, const char* resampling, int levelCount, int* levels,
                        CBaseProgress* progress, std::wstring text, bool flag);
  void Process() override;

  /// Process-wide switch; off makes Process do nothing. SetBuildsOverviews is the choice of one run.
  static void SetEnabled(bool enabled);
  static bool IsEnabled();

 private:
  void Build();

  CRasterSource* m_pSource;
  std::string m_strResampling;
  int m_nLevelCount;
  int* m_pLevels;
};

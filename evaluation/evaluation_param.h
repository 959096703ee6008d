#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/algorithm/stage.h"
#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

/// Parameters of an evaluation run. A value.
struct FusionEvaluateParam {
  std::wstring m_strTaskName;    ///< part of the progress titles
  platform::Stage m_stage;       ///< what the run is, whatever its task name
  std::wstring m_strPanFile;     ///< panchromatic image
  std::wstring m_strMulFile;     ///< multispectral image that went into the fusion
  std::wstring m_strFusionFile;  ///< fused image; its grid is the grid of the evaluation
  double m_dReserved[2] = {0.0, 0.0};
  std::int32_t m_bReproject = 0;               ///< non-zero: the multispectral image has another coordinate system
  std::int32_t m_nPanBand = 0;                 ///< zero-based
  std::vector<std::int32_t> m_vecMulBands;     ///< zero-based
  std::vector<std::int32_t> m_vecFusionBands;  ///< zero-based; entry i is compared with entry i of m_vecMulBands
  CRect m_rcPanOffset;                         ///< left and top: the fused image's first pixel in the pan image
  /// Whether samples are left out that are not valid, whatever makes them so (CRasterSource::SetMaskNoData); else only
  /// those that equal their band's no-data value.
  bool m_bMaskNoData = false;
  /// Native blocks of the fused image that are as wide as it and hold more pixels than this are taken in pieces of
  /// whole rows, which gives the same figures and takes less memory; 0 leaves them whole.
  std::int64_t m_nMostBlockPixels = 0;
  bool m_bWaitFirst = true;  ///< whether the run begins with a second's sleep
};

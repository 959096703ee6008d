#pragma once

#include <string>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"
#include "platform/system/window.h"

/// What every algorithm's parameter record carries.
struct FUSION_API AlgorithmParam {
  AlgorithmParam();
  virtual ~AlgorithmParam();
  AlgorithmParam(const AlgorithmParam&);
  AlgorithmParam& operator=(const AlgorithmParam&);

  std::wstring m_strAlgName;  ///< display name, part of the progress title
  std::wstring m_strInFile;   ///< input of an algorithm with one input
  std::wstring m_strOutFile;
  std::wstring m_strAoiFile;                       ///< vector file of the area of interest, may be empty
  CRect m_rcProcess;                               ///< area to process in pixels; empty: the algorithm decides
  PixelDataType m_eOutDataType = PDT_UNKNOWN;      ///< PDT_UNKNOWN: the input's own
  RasterDataFormat m_eOutFormat = kFormatUnknown;  ///< kFormatUnknown: by the output's extension
  int m_nOutBandCount = 0;                         ///< 0: the algorithm decides
  INotifyWindow* m_pNotifyWnd = nullptr;           ///< receiver of the completion message, not owned
  bool m_bOpenOption = true;  ///< present inputs through a north-up warp where they are not north-up
};

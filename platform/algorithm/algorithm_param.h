#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/algorithm/stage.h"
#include "platform/raster/raster_description.h"
#include "platform/raster/raster_types.h"
#include "platform/system/export.h"
#include "platform/system/window.h"

namespace platform {
class RasterNotes;
class Survey;
class WrittenRaster;
}  // namespace platform

/// What every algorithm's parameter record carries.
struct FUSION_API AlgorithmParam {
  AlgorithmParam();
  virtual ~AlgorithmParam();
  AlgorithmParam(const AlgorithmParam&);
  AlgorithmParam& operator=(const AlgorithmParam&);

  std::wstring m_strAlgName;  ///< display name, part of the progress title
  platform::Stage m_stage;    ///< what the run is, whatever its display name
  std::wstring m_strInFile;   ///< input of an algorithm with one input
  std::wstring m_strOutFile;
  std::wstring m_strAoiFile;  ///< vector file of the area of interest, may be empty
  CRect m_rcProcess;          ///< area to process in pixels; empty: the algorithm decides
  /// The area whose run this one is a part of, around m_rcProcess: statistics and positions are those of a run over it,
  /// so that what is written is a crop of its result. Empty: m_rcProcess stands for itself.
  CRect m_rcScene;
  PixelDataType m_eOutDataType = PDT_UNKNOWN;      ///< PDT_UNKNOWN: the input's own
  RasterDataFormat m_eOutFormat = kFormatUnknown;  ///< kFormatUnknown: by the output's extension
  int m_nOutBandCount = 0;                         ///< 0: the algorithm decides
  INotifyWindow* m_pNotifyWnd = nullptr;           ///< receiver of the completion message, not owned
  /// Take samples without data (declared no-data value, NaN, mask band, alpha) for missing, not for values: they enter
  /// nothing, and pixels without data are written as 0, which the output then declares as its no-data value.
  bool m_bMaskNoData = false;
  /// What the output says of its bands and itself beside its samples; null for nothing.
  std::shared_ptr<const platform::RasterDescription> m_pDescription;
  std::shared_ptr<const platform::RasterNotes> m_pNotes;  ///< in a domain of their own; null for nothing
  std::shared_ptr<platform::WrittenRaster> m_pWritten;    ///< learns what the output is and gets; null for nobody
  std::vector<std::string> m_vecCreationOptions;          ///< for the driver that writes the output: NAME=VALUE each
  /// Has what is taken from whole images, or gathers it, of m_rcScene: a run that gathers writes no output. Null: the
  /// run looks at all for itself.
  std::shared_ptr<platform::Survey> m_pSurvey;
  bool m_bOpenOption = true;  ///< present inputs through a north-up warp where they are not north-up
};

#pragma once

#include <memory>
#include <string>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_types.h"
#include "runs/fuse.h"
#include "runs/guards.h"
#include "runs/methods.h"
#include "runs/threads.h"

namespace platform {
class Survey;
}

namespace fusion {

/// A request after all checks that need no file.
struct CheckedRequest {
  const Method* method = nullptr;
  ResampleType resample = RT_BICUBIC;
  Guards guards;
  bool sceneStatistics = true;       ///< a window's statistics are those of the whole scene
  PixelDataType type = PDT_UNKNOWN;  ///< PDT_UNKNOWN: the multispectral image's own
  RasterDataFormat format = kFormatUnknown;
  std::vector<std::string> creationOptions;  ///< with that of the compression
  bool matched = false;
  std::shared_ptr<platform::Workers> workers;
  std::shared_ptr<platform::Survey> survey;  ///< that is used, or gathered; null: none. For the caller
};

/// What --resample may be: the kernels' names, and auto.
std::vector<std::string> ResampleWords();
/// A pixel type by name. Throws a usage error for an unknown one.
PixelDataType ParsePixelType(const std::string& name);
/// The name of a pixel type; empty for PDT_UNKNOWN.
std::string TypeName(PixelDataType type);

/// Throws a usage error for anything that cannot work, whatever the files.
CheckedRequest CheckFuseRequest(const FuseRequest& request);

}  // namespace fusion

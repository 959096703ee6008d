#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/methods.h"
#include "platform/raster/raster_types.h"

namespace CLI {
class App;
}

namespace app {

/// The `fuse` command's arguments as given; empty where not given.
struct FuseOptions {
  std::string pan;
  std::string ms;
  std::string out;
  std::string method;
  std::optional<std::string> resample;
  std::optional<std::string> type;
  std::vector<int> bands;  ///< counted from 1
  int panBand = 1;         ///< counted from 1
  std::vector<int> rgb;    ///< positions counted from 1 among the chosen bands
  std::vector<int> window;
  std::string statistics = "scene";
  std::string aoi;
  std::string spectralMatch = "auto";
  std::string noDataMask = "auto";
  std::optional<double> noData;
  bool makeGreen = false;
  bool autoLevel = false;
  bool stretch = false;
  std::optional<int> kernelSize;
  std::optional<int> secondKernelSize;
  std::optional<double> detailWeight;
  std::optional<double> secondDetailWeight;
  std::optional<double> bayesWeight;
  bool sameExtent = false;
  bool noOverviews = false;
  std::string format;
  bool overwrite = false;
  bool quiet = false;
  std::string log;
  bool json = false;
  std::string given;  ///< the options as they were given, for the log
};

/// Declares an option that takes a list, separated by commas, in one argument: of whole numbers, or of words.
void AddList(CLI::App& command, const std::string& name, std::vector<int>& values, const std::string& description);
void AddList(CLI::App& command, const std::string& name, std::vector<std::string>& words,
             const std::string& description);

/// Declares the options on a subcommand.
void AddFuseOptions(CLI::App& command, FuseOptions& options);

/// The arguments after all checks that need no file.
struct CheckedOptions {
  const Method* method = nullptr;
  ResampleType resample = RT_BICUBIC;
  PixelDataType type = PDT_UNKNOWN;  ///< PDT_UNKNOWN: the multispectral image's own
  RasterDataFormat format = kFormatUnknown;
  bool matched = false;
};

/// A pixel type by name. Throws a usage error for an unknown one.
PixelDataType ParsePixelType(const std::string& name);
/// The name of a pixel type; empty for PDT_UNKNOWN.
std::string TypeName(PixelDataType type);

/// Throws a usage error for anything that cannot work, whatever the files.
CheckedOptions CheckOptions(const FuseOptions& options);

}  // namespace app

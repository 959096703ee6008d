#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/system/export.h"

class CRasterSource;

namespace platform {

/// Facts by name, as files keep them beside their samples.
using NamedFacts = std::map<std::string, std::string>;

/// What a file says of a band.
struct BandDescription {
  std::string name;
  int colour = 0;  ///< GDAL's number of the colour that the band shows; 0 for none
  std::optional<double> scale;
  std::optional<double> offset;
  std::string unit;
  NamedFacts facts;
};

/// What a file says of its bands and of itself, for an image that shows the same on another grid: neither what only its
/// own samples bear out (statistics, no-data values) nor what belongs to its own grid or file.
struct FUSION_API RasterDescription {
  RasterDescription();
  /// Of some bands of an open raster, counted from 0, in this order. No band is opacity any more.
  RasterDescription(const CRasterSource& source, const std::vector<int>& bands);

  /// Leaves out what tells how values are to be read.
  void ForgetValues();
  /// Says it of a raster just created, before its first sample is written: the file then has it where it belongs, and
  /// nothing is written twice. Bands beyond those of the raster are left out; a format keeps what it can.
  void Apply(CRasterSource& created) const;

  std::vector<BandDescription> bands;
  NamedFacts facts;
};

}  // namespace platform

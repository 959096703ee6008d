#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/raster/raster_types.h"
#include "platform/system/export.h"

enum ResampleType : std::int32_t { RT_NEAREST = 0, RT_BILINEAR = 1, RT_BICUBIC = 2 };

namespace platform {

/// One row of the format table.
struct RasterFormat {
  RasterDataFormat number;
  const char* driver;                    ///< GDAL's name of the driver
  const wchar_t* name;                   ///< what a user calls it
  std::vector<std::wstring> extensions;  ///< without dot, lower case, the usual one first
  bool copyOnly;                         ///< can only be made as a copy of a finished raster
  std::vector<PixelDataType> types;      ///< that it keeps value by value; empty for all
  bool isPicture;                        ///< takes one band, or three for red, green and blue; more would be opacity
};

/// All formats whose driver the installation has.
FUSION_API const std::vector<RasterFormat>& RasterFormats();
/// Null for an unknown number.
FUSION_API const RasterFormat* FindRasterFormat(RasterDataFormat number);
/// By file name extension, without or with its dot; null for an unknown one.
FUSION_API const RasterFormat* FindRasterFormat(const std::wstring& extension);
/// What is wrong with creation options, NAME=VALUE each, in the words of the library below; empty where a format's
/// driver takes them.
FUSION_API std::string CreationOptionFault(const RasterFormat& format, const std::vector<std::string>& options);
/// Whether an extension without its dot is that of another kind of file that GDAL knows.
FUSION_API bool IsForeignExtension(const std::wstring& extension);

}  // namespace platform

/// Names of resampling methods, pixel types and formats, in any case.
class FUSION_API CStringParamParser {
 public:
  /// nearest, bilinear, bicubic (cubic); unknown gives RT_NEAREST.
  static ResampleType GetResampleType(const std::wstring& name);
  /// Index of a type name or one of its usual synonyms (uint8, byte, uint16, int16, uint32, int32, float32, float,
  /// float64, double); unknown gives 0.
  static int OutDataTypeString2DataTypeIndex(const std::wstring& name);
  static PixelDataType GetOutDataType(int index);
  /// Format by file name extension (without or with its dot); an unknown one ends as GeoTIFF.
  static RasterDataFormat GetOutDataFormat(const std::wstring& extension);
};

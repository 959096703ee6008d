#pragma once

#include <cstdint>

/// A pixel rectangle; right and bottom are exclusive.
struct CRect {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;

  CRect() = default;
  CRect(std::int32_t l, std::int32_t t, std::int32_t r, std::int32_t b) : left(l), top(t), right(r), bottom(b) {}

  std::int32_t Width() const { return right - left; }
  std::int32_t Height() const { return bottom - top; }
  /// Number of pixels, 0 for an inverted rectangle.
  std::int64_t Area() const { return Width() > 0 && Height() > 0 ? static_cast<std::int64_t>(Width()) * Height() : 0; }
  bool IsRectEmpty() const { return right == left || bottom == top; }
  bool operator==(const CRect&) const = default;
};

enum PixelDataType : std::int32_t {
  PDT_UNKNOWN = 0,
  PDT_UINT8 = 1,
  PDT_UINT16 = 2,
  PDT_INT16 = 3,
  PDT_UINT32 = 4,
  PDT_INT32 = 5,
  PDT_FLOAT32 = 6,
  PDT_FLOAT64 = 7,
};

/// Result of a preparing or writing step.
enum GISError : std::int32_t {
  GIS_SUCCESS = 0,
  GIS_OPEN_FAILED = 2,
  GIS_FAILED = 4,
};

enum GISDataAccess : std::int32_t { GDA_READ = 0, GDA_UPDATE = 1 };

/// Number of a file format, see CStringParamParser; 0 is unknown.
using RasterDataFormat = std::int32_t;
constexpr RasterDataFormat kFormatUnknown = 0;
constexpr RasterDataFormat kFormatGeoTiff = 20;

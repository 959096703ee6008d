#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/raster/raster_types.h"

namespace platform {

/// Calls f with a value of the element type behind a pixel type and answers what f answers; a default-constructed
/// result (null, false, 0) for any other value. The only place where pixel types become C++ types.
template <typename F>
auto DispatchPixelType(PixelDataType type, F&& f) {
  using Result = std::invoke_result_t<F, double>;
  switch (type) {
    case PDT_UINT8:
      return f(std::uint8_t{});
    case PDT_UINT16:
      return f(std::uint16_t{});
    case PDT_INT16:
      return f(std::int16_t{});
    case PDT_UINT32:
      return f(std::uint32_t{});
    case PDT_INT32:
      return f(std::int32_t{});
    case PDT_FLOAT32:
      return f(float{});
    case PDT_FLOAT64:
      return f(double{});
    default:
      return Result();
  }
}

/// Bytes of one element, 0 for an unknown type.
inline int PixelSize(PixelDataType type) {
  return DispatchPixelType(type, [](auto element) { return static_cast<int>(sizeof(element)); });
}

inline bool IsPixelType(PixelDataType type) { return type >= PDT_UINT8 && type <= PDT_FLOAT64; }
inline bool IsFloatType(PixelDataType type) { return type == PDT_FLOAT32 || type == PDT_FLOAT64; }

}  // namespace platform

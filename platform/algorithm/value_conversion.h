#pragma once

#include <cstddef>

#include "platform/raster/pixel_type.h"
#include "platform/system/export.h"

namespace platform {

/// From a computed double to an output pixel: optional linear stretch, clamp, truncation toward zero for the integer
/// types. A NaN becomes 0 in the integer types and stays NaN in the float types.
struct FUSION_API ValueConversion {
  double m_dSrcMin = 0.0;
  double m_dSrcMax = 255.0;
  double m_dOutMin = 0.0;
  double m_dOutMax = 255.0;
  bool m_bStretch = false;
  bool m_bAddOne = false;  ///< narrows the output range by one at each end

  /// Without a stretch, to all that a type can hold.
  static ValueConversion FullRange(PixelDataType type);
  /// Limits after the add-one switch.
  double Low() const { return m_dOutMin + (m_bAddOne ? 1.0 : 0.0); }
  double High() const { return m_dOutMax - (m_bAddOne ? 1.0 : 0.0); }
  /// True where the stretch is on and the source range differs from the output range by more than 1e-8.
  bool IsRescaling() const;
  /// (value - srcMin) / (srcMax - srcMin) * outMax where the range is rescaled, else the value.
  double Rescale(double value) const;

  /// Converts n values to elements of the given type. Does nothing for an unknown type.
  void ConvertRow(PixelDataType type, const double* values, void* out, std::size_t n) const;

  template <typename T>
  T Convert(double value) const {
    T result{};
    ConvertOne(value, result);
    return result;
  }

 private:
  void ConvertOne(double value, unsigned char& out) const;
  void ConvertOne(double value, unsigned short& out) const;
  void ConvertOne(double value, short& out) const;
  void ConvertOne(double value, unsigned int& out) const;
  void ConvertOne(double value, int& out) const;
  void ConvertOne(double value, float& out) const;
  void ConvertOne(double value, double& out) const;
};

}  // namespace platform

#include "framework/resampling.h"

#include <cmath>

namespace fusion {
namespace {

/// Positions that no image can hold would not survive the conversion to int.
double Sane(double position) {
  constexpr double kFar = 1073741824.0;
  return position >= -kFar && position <= kFar ? position : -1e9;
}

/// One sample of a band buffer by its linear index; 0 outside the buffer.
struct Samples {
  std::int64_t stride;
  std::int64_t count;

  explicit Samples(const CRect& rect)
      : stride(static_cast<std::int64_t>(rect.right) - rect.left),
        count(stride * (static_cast<std::int64_t>(rect.bottom) - rect.top)) {}

  double At(const double* band, std::int64_t row, std::int64_t column) const {
    const std::int64_t index = row * stride + column;
    return index >= 0 && index < count ? band[index] : 0.0;
  }
};

void Nearest(double x, double y, const double* const* bands, int bandCount, const CRect& rect, double* out) {
  const Samples samples(rect);
  const auto column = MakeNearestTap(x, rect.left, rect.Width()).index;
  const auto row = MakeNearestTap(y, rect.top, rect.Height()).index;
  for (int b = 0; b < bandCount; ++b) out[b] = samples.At(bands[b], row, column);
}

void Linear(double x, double y, const double* const* bands, int bandCount, const CRect& rect, double* out) {
  const Samples samples(rect);
  const LinearTaps c = MakeLinearTaps(x, rect.left);
  const LinearTaps r = MakeLinearTaps(y, rect.top);
  for (int b = 0; b < bandCount; ++b) {
    const double* band = bands[b];
    const double upper =
        c.toFirst * samples.At(band, r.first, c.second) + c.toSecond * samples.At(band, r.first, c.first);
    const double lower =
        c.toFirst * samples.At(band, r.second, c.second) + c.toSecond * samples.At(band, r.second, c.first);
    out[b] = upper * r.toSecond + lower * r.toFirst;
  }
}

void Cubic(double x, double y, const double* const* bands, int bandCount, const CRect& rect, double* out) {
  const Samples samples(rect);
  const CubicTaps c = MakeCubicTaps(x, rect.left);
  const CubicTaps r = MakeCubicTaps(y, rect.top);
  for (int b = 0; b < bandCount; ++b) {
    double sum = 0.0;
    for (int j = 0; j < 4; ++j) {
      double line = 0.0;
      for (int k = 0; k < 4; ++k) line += c.weight[k] * samples.At(bands[b], r.first + j, c.first + k);
      sum += r.weight[j] * line;
    }
    out[b] = sum;
  }
}

}  // namespace

bool BicubicFitsColumn(double x, const CRect& rect) {
  const int ix = static_cast<int>(Sane(x));
  return ix + 1 < rect.right - 1 && ix >= 1;
}

bool BicubicFitsRow(double y, const CRect& rect) {
  const int iy = static_cast<int>(Sane(y));
  // Unlike for columns, equality is allowed: the fourth row may lie just behind the rectangle and then counts as 0.
  return iy + 1 <= rect.bottom - 1 && iy >= 1;
}

bool BilinearFitsColumn(double x, const CRect& rect) {
  const int ix = static_cast<int>(Sane(x));
  return ix < rect.right - 1 && ix >= 0;
}

bool BilinearFitsRow(double y, const CRect& rect) {
  const int iy = static_cast<int>(Sane(y));
  return iy < rect.bottom - 1 && iy >= 0;
}

NearestTap MakeNearestTap(double position, int origin, int size) {
  const std::int64_t index = static_cast<std::int64_t>(static_cast<int>(Sane(position) + 0.5)) - origin;
  // The upper clamp is one past the last sample.
  const std::int64_t cut = index > size ? size : index;
  return {cut < 0 ? 0 : cut};
}

LinearTaps MakeLinearTaps(double position, int origin) {
  const double local = position - origin;
  LinearTaps taps;
  taps.first = static_cast<std::int64_t>(static_cast<int>(position)) - origin;
  taps.second = static_cast<std::int64_t>(static_cast<int>(position + 1.0)) - origin;
  taps.toFirst = local - static_cast<double>(taps.first);
  taps.toSecond = static_cast<double>(taps.second) - local;
  return taps;
}

CubicTaps MakeCubicTaps(double position, int origin) {
  const int whole = static_cast<int>(position);
  const double fraction = position - whole;
  CubicTaps taps;
  taps.first = static_cast<std::int64_t>(whole) - origin - 1;
  for (int k = 0; k < 4; ++k) taps.weight[k] = CubicWeight(fraction + 1 - k);
  return taps;
}

void ResamplePoint(ResampleType type, double x, double y, const double* const* bands, int bandCount, const CRect& rect,
                   double* out) {
  switch (type) {
    case RT_BICUBIC:
      if (BicubicFitsColumn(x, rect) && BicubicFitsRow(y, rect)) {
        Cubic(x, y, bands, bandCount, rect, out);
        return;
      }
      [[fallthrough]];
    case RT_BILINEAR:
      if (BilinearFitsColumn(x, rect) && BilinearFitsRow(y, rect)) {
        Linear(x, y, bands, bandCount, rect, out);
        return;
      }
      [[fallthrough]];
    case RT_NEAREST:
      Nearest(x, y, bands, bandCount, rect, out);
      return;
    default:
      return;
  }
}

}  // namespace fusion

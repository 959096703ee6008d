#pragma once

#include <functional>
#include <vector>

#include "platform/raster/raster_types.h"

/// The definition of a fusion run, one pixel after another, written without any of the library's code: slow and plain.
/// Tests hold the library's output against it.
namespace reference {

struct Image {
  int width = 0;
  int height = 0;
  double geoTransform[6] = {0.0, 1.0, 0.0, 0.0, 0.0, -1.0};
  std::vector<std::vector<double>> bands;  ///< row-major
};

struct Position {
  double x;
  double y;
};

/// Sample coordinates of a ground point: a whole number is a pixel centre; clamped up to one pixel off the image.
Position GroundToSample(const Image& image, double groundX, double groundY);
/// One axis of it: from the corner-based coordinate.
double ToSample(double corner, int size);

/// One value per buffer at a position; resampleType 0 nearest, 1 bilinear, 2 bicubic, any other leaves zeros.
std::vector<double> Resample(int resampleType, double x, double y, const std::vector<std::vector<double>>& buffers,
                             const CRect& rect);

struct Conversion {
  int type = 7;
  bool stretch = false;
  bool addOne = false;
  double srcMin = 0.0;
  double srcMax = 255.0;
  double Apply(double value) const;
};

/// What the arithmetic of a method sees of one pixel.
struct Pixel {
  double pan;
  double detail;
  std::vector<double> ms;
};

struct Run {
  const Image* pan = nullptr;
  const Image* ms = nullptr;
  const Image* detail = nullptr;
  CRect process;             ///< in pan pixels
  std::vector<int> msBands;  ///< zero-based
  int panBand = 0;
  int resampleType = 2;
  int outBandCount = 0;
  Conversion conversion;
  double tolerance = 0.0;      ///< by what part of itself a value of the library's may differ
  bool startAtOutput = false;  ///< positions from the output raster's geotransform instead of the pan image's
  int blockRows = 512;
  std::function<bool(int column, int row)> inside;  ///< mask in pan pixels, empty for none
  /// Applied to every multispectral value read (band list index) and to every pan value (index -1).
  std::function<double(int msIndex, double value)> afterRead;
  /// Under reprojection: ground point to sample position, and the rectangle read for a ground box.
  std::function<Position(double groundX, double groundY)> reproject;
  std::function<CRect(double left, double top, double right, double bottom)> reprojectedRect;
  double reprojectedOffset = 0.0;
  /// One value per output band; called for pixels inside the mask only.
  std::function<std::vector<double>(const Pixel&)> arithmetic;
  /// Where it answers true the pan value itself is stored, without stretch and add-one.
  std::function<bool(double pan)> panNoData;
};

/// Output bands as doubles, row-major over the processing rectangle.
std::vector<std::vector<double>> Fuse(const Run& run);

/// Brovey's arithmetic for the given number of output bands.
std::vector<double> Brovey(const Pixel& pixel, int outBandCount);

}  // namespace reference

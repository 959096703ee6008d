#include "tests/support/reference_kernel.h"

#include <gdal.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace reference {
namespace {

double Weight(double t) {
  const double s = t < 0 ? -t : t;
  if (s < 1) return 1 - 2 * s * s + s * s * s;
  if (s < 2) return 4 - 8 * s + 5 * s * s - s * s * s;
  return 0;
}

double Element(const std::vector<double>& buffer, long long index, long long size) {
  if (index < 0 || index >= size) return 0.0;
  return buffer[static_cast<std::size_t>(index)];
}

struct Inverse {
  double t[6];
  explicit Inverse(const Image& image) {
    double forward[6];
    std::copy_n(image.geoTransform, 6, forward);
    if (!GDALInvGeoTransform(forward, t)) throw std::invalid_argument("singular geotransform");
  }
};

}  // namespace

double ToSample(double corner, int size) {
  double sample = corner - 0.5;
  if (-1.0 <= corner && corner <= size + 1.0) sample = std::min(std::max(sample, 0.0), size - 1.0);
  if (std::isnan(sample) || std::fabs(sample) > 1073741824.0) return -1e9;
  return sample;
}

Position GroundToSample(const Image& image, double groundX, double groundY) {
  const Inverse inverse(image);
  return {ToSample(inverse.t[0] + groundX * inverse.t[1] + groundY * inverse.t[2], image.width),
          ToSample(inverse.t[3] + groundX * inverse.t[4] + groundY * inverse.t[5], image.height)};
}

std::vector<double> Resample(int resampleType, double x, double y, const std::vector<std::vector<double>>& buffers,
                             const CRect& rect) {
  const long long w = rect.right - rect.left;
  const long long h = rect.bottom - rect.top;
  std::vector<double> out(buffers.size(), 0.0);
  if (resampleType < 0 || resampleType > 2) return out;
  const int ix = static_cast<int>(x);
  const int iy = static_cast<int>(y);

  if (resampleType == 2) {
    if (iy + 1 <= rect.bottom - 1 && ix + 1 < rect.right - 1 && ix >= 1 && iy >= 1) {
      const double fx = x - ix;
      const double fy = y - iy;
      for (std::size_t b = 0; b < buffers.size(); ++b) {
        double sum = 0.0;
        for (int j = 0; j < 4; ++j) {
          double line = 0.0;
          for (int k = 0; k < 4; ++k) {
            const long long index = static_cast<long long>(iy - rect.top - 1 + j) * w + (ix - rect.left - 1 + k);
            line += Weight(fx + 1 - k) * Element(buffers[b], index, w * h);
          }
          sum += Weight(fy + 1 - j) * line;
        }
        out[b] = sum;
      }
      return out;
    }
  }
  if (resampleType >= 1) {
    if (iy < rect.bottom - 1 && ix < rect.right - 1 && ix >= 0 && iy >= 0) {
      const double xl = x - rect.left;
      const double yl = y - rect.top;
      const long long c0 = ix - rect.left;
      const long long c1 = static_cast<int>(x + 1.0) - rect.left;
      const long long r0 = iy - rect.top;
      const long long r1 = static_cast<int>(y + 1.0) - rect.top;
      const double fx = xl - static_cast<double>(c0);
      const double gx = static_cast<double>(c1) - xl;
      const double fy = yl - static_cast<double>(r0);
      const double gy = static_cast<double>(r1) - yl;
      for (std::size_t b = 0; b < buffers.size(); ++b) {
        const auto& v = buffers[b];
        out[b] = (fx * Element(v, r0 * w + c1, w * h) + gx * Element(v, r0 * w + c0, w * h)) * gy +
                 (fx * Element(v, r1 * w + c1, w * h) + gx * Element(v, r1 * w + c0, w * h)) * fy;
      }
      return out;
    }
  }
  const long long c = std::clamp<long long>(static_cast<int>(x + 0.5) - rect.left, 0, w);
  const long long r = std::clamp<long long>(static_cast<int>(y + 0.5) - rect.top, 0, h);
  for (std::size_t b = 0; b < buffers.size(); ++b) out[b] = Element(buffers[b], r * w + c, w * h);
  return out;
}

double Conversion::Apply(double value) const {
  static const double kMin[] = {
      0, 0, 0, -32768, 0, -2147483648.0, -std::numeric_limits<float>::max(), -std::numeric_limits<double>::max()};
  static const double kMax[] = {0,
                                255,
                                65535,
                                32767,
                                4294967295.0,
                                2147483647.0,
                                std::numeric_limits<float>::max(),
                                std::numeric_limits<double>::max()};
  const double outMin = kMin[type];
  const double outMax = kMax[type];
  if (stretch && (std::fabs(srcMin - outMin) > 1e-8 || std::fabs(srcMax - outMax) > 1e-8)) {
    value = (value - srcMin) / (srcMax - srcMin) * outMax;
  }
  const double lo = outMin + (addOne ? 1 : 0);
  const double hi = outMax - (addOne ? 1 : 0);
  if (std::isnan(value)) return type >= 6 ? value : 0.0;
  if (value < lo) value = lo;
  if (value > hi) value = hi;
  if (type == 7) return value;
  if (type == 6) return static_cast<double>(static_cast<float>(value));
  return static_cast<double>(static_cast<long long>(value));
}

std::vector<std::vector<double>> Fuse(const Run& run) {
  const Image& pan = *run.pan;
  const Image& ms = *run.ms;
  const int width = run.process.Width();
  const int height = run.process.Height();
  const double* p = pan.geoTransform;
  // The output raster lies on the pan grid: same steps, its origin at the processing rectangle.
  const auto corner = [&](int column, int row) {
    return Position{p[0] + column * p[1] + row * p[2], p[3] + column * p[4] + row * p[5]};
  };
  const Position first = corner(run.process.left, run.process.top);
  const Position last = corner(run.process.right, run.process.bottom);
  const double out[6] = {first.x, (last.x - first.x) / width, 0.0, first.y, 0.0, (last.y - first.y) / height};
  const auto outGround = [&](double x, double y) {
    return Position{out[0] + x * out[1] + y * out[2], out[3] + x * out[4] + y * out[5]};
  };

  std::vector<std::vector<double>> result(static_cast<std::size_t>(run.outBandCount),
                                          std::vector<double>(static_cast<std::size_t>(width) * height));
  for (int top = 0; top < height; top += run.blockRows) {
    const int bottom = std::min(top + run.blockRows, height);
    const Position boxFirst = outGround(0, top);
    const Position boxLast = outGround(width, bottom);
    CRect rect;
    if (run.reproject) {
      rect = run.reprojectedRect(boxFirst.x, boxFirst.y, boxLast.x, boxLast.y);
    } else {
      const Inverse inverse(ms);
      const double x0 = inverse.t[0] + boxFirst.x * inverse.t[1];
      const double x1 = inverse.t[0] + boxLast.x * inverse.t[1];
      const double y0 = inverse.t[3] + boxFirst.y * inverse.t[5];
      const double y1 = inverse.t[3] + boxLast.y * inverse.t[5];
      rect.left = std::max(static_cast<int>(std::floor(std::min(x0, x1) + 1e-6)) - 10, 0);
      rect.top = std::max(static_cast<int>(std::floor(std::min(y0, y1) + 1e-6)) - 10, 0);
      rect.right = std::min(static_cast<int>(std::ceil(std::max(x0, x1) - 1e-6)) + 10, ms.width);
      rect.bottom = std::min(static_cast<int>(std::ceil(std::max(y0, y1) - 1e-6)) + 10, ms.height);
    }
    std::vector<std::vector<double>> buffers;
    for (std::size_t i = 0; i < run.msBands.size(); ++i) {
      std::vector<double> buffer;
      for (int r = rect.top; r < rect.bottom; ++r) {
        for (int c = rect.left; c < rect.right; ++c) {
          double value = ms.bands[static_cast<std::size_t>(run.msBands[i])][static_cast<std::size_t>(r * ms.width + c)];
          if (run.afterRead) value = run.afterRead(static_cast<int>(i), value);
          buffer.push_back(value);
        }
      }
      buffers.push_back(buffer);
    }

    for (int y = top; y < bottom; ++y) {
      for (int x = 0; x < width; ++x) {
        const std::size_t at = static_cast<std::size_t>(y) * width + x;
        const int panX = run.process.left + x;
        const int panY = run.process.top + y;
        if (run.inside && !run.inside(panX, panY)) continue;
        const std::size_t panAt = static_cast<std::size_t>(panY) * pan.width + panX;
        Pixel pixel;
        pixel.pan = pan.bands[static_cast<std::size_t>(run.panBand)][panAt];
        if (run.afterRead) pixel.pan = run.afterRead(-1, pixel.pan);
        pixel.detail = run.detail ? run.detail->bands[static_cast<std::size_t>(run.panBand)][panAt] : 0.0;

        Position at2;
        if (run.reproject) {
          const Position ground = outGround(x + run.reprojectedOffset, y + run.reprojectedOffset);
          at2 = run.reproject(ground.x, ground.y);
        } else if (run.startAtOutput) {
          const Position ground = outGround(x + 0.5, y + 0.5);
          at2 = GroundToSample(ms, ground.x, ground.y);
        } else {
          const double cx = panX + 0.5;
          const double cy = panY + 0.5;
          at2 = GroundToSample(ms, p[0] + cx * p[1] + cy * p[2], p[3] + cx * p[4] + cy * p[5]);
        }
        pixel.ms = Resample(run.resampleType, at2.x, at2.y, buffers, rect);
        pixel.ms.resize(std::max<std::size_t>(pixel.ms.size(), static_cast<std::size_t>(run.outBandCount)), 0.0);

        const bool storePan = run.panNoData && run.panNoData(pixel.pan);
        const std::vector<double> values = run.arithmetic(pixel);
        for (std::size_t b = 0; b < result.size(); ++b) {
          Conversion plain = run.conversion;
          plain.stretch = plain.addOne = false;
          result[b][at] = storePan ? plain.Apply(pixel.pan) : run.conversion.Apply(values[b]);
        }
      }
    }
  }
  return result;
}

std::vector<double> Brovey(const Pixel& pixel, int outBandCount) {
  double sum = 0.0;
  for (int b = 0; b < outBandCount; ++b) sum += pixel.ms[static_cast<std::size_t>(b)];
  std::vector<double> out;
  for (int b = 0; b < outBandCount; ++b) {
    out.push_back(std::fabs(sum) < 1e-8 ? pixel.pan / outBandCount
                                        : pixel.ms[static_cast<std::size_t>(b)] * pixel.pan / sum);
  }
  return out;
}

}  // namespace reference

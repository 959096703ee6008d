#include "runs/contact_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/letters.h"
#include "runs/output_file.h"
#include "runs/run_failure.h"

namespace fusion {
namespace {

constexpr int kGap = 6;
constexpr int kTitle = kLetterHeight + 6;
constexpr int kMostColumns = 4;
constexpr std::uint8_t kPaper = 255;
constexpr std::uint8_t kInk = 0;

RasterDataFormat PngFormat() { return CStringParamParser::GetOutDataFormat(L"png"); }

struct Limits {
  double low;
  double high;
};

Limits LimitsOf(const std::vector<double>& band) {
  std::vector<double> values;
  for (const double v : band) {
    if (std::isfinite(v)) values.push_back(v);
  }
  if (values.empty()) return {0.0, 1.0};
  const auto at = [&](double share) {
    const auto n = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + n, values.end());
    return values[static_cast<std::size_t>(n)];
  };
  constexpr double kTail = 0.02;
  const double low = at(kTail);
  const double high = at(1.0 - kTail);
  return {low, high > low ? high : low + 1.0};
}

std::uint8_t Stretched(double value, const Limits& limits) {
  if (!std::isfinite(value)) return kPaper;
  const double share = (value - limits.low) / (limits.high - limits.low);
  return static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(share, 0.0, 1.0)));
}

}  // namespace

ContactSheet::ContactSheet(const std::string& file, bool overwrite, const std::vector<std::wstring>& inputs)
    : m_file(CommonFun::Utf82U(file)), m_pending(m_file, overwrite, inputs) {
  if (CStringParamParser::GetOutDataFormat(CommonFun::GetExtensionName(m_file)) != PngFormat()) {
    throw UsageError("--picture writes a PNG: " + file + " should end with .png.");
  }
  ThrowObstacle(m_pending.Foresee(PngFormat()), m_file);
}

ContactSheet::Crop ContactSheet::CropOf(const std::string& name, const quality::Image& image,
                                        const std::vector<int>& bands) {
  Crop crop{name, {}};
  crop.image.width = std::min(kCrop, image.width);
  crop.image.height = std::min(kCrop, image.height);
  const int left = (image.width - crop.image.width) / 2;
  const int top = (image.height - crop.image.height) / 2;
  for (const int band : bands) {
    const auto& values = image.bands[static_cast<std::size_t>(band)];
    std::vector<double> part;
    for (int y = top; y < top + crop.image.height; ++y) {
      const auto row = values.begin() + static_cast<std::ptrdiff_t>(y) * image.width + left;
      part.insert(part.end(), row, row + crop.image.width);
    }
    crop.image.bands.push_back(std::move(part));
  }
  return crop;
}

void ContactSheet::AddPan(const std::string& name, const quality::Image& pan) {
  m_crops.push_back(CropOf(name, pan, {0}));
}

void ContactSheet::AddColour(const std::string& name, const quality::Image& image, const std::vector<int>& rgb) {
  m_crops.push_back(CropOf(name, image, rgb));
}

void ContactSheet::Write() {
  if (m_crops.empty()) return;
  std::vector<Limits> colours;
  for (const Crop& crop : m_crops) {
    if (crop.image.bands.size() == 1 || !colours.empty()) continue;
    for (const auto& band : crop.image.bands) colours.push_back(LimitsOf(band));
  }
  // Names may be wider than small images.
  int cellWidth = m_crops[0].image.width + kGap;
  for (const Crop& crop : m_crops)
    cellWidth = std::max(cellWidth, kLetterStep * static_cast<int>(crop.name.size()) + kGap);
  const int cellHeight = m_crops[0].image.height + kTitle + kGap;
  const int columns = std::min(kMostColumns, static_cast<int>(m_crops.size()));
  const int rows = (static_cast<int>(m_crops.size()) + columns - 1) / columns;
  const int width = columns * cellWidth + kGap;
  const int height = rows * cellHeight + kGap;
  std::vector<std::vector<std::uint8_t>> sheet(
      3, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), kPaper));
  for (std::size_t i = 0; i < m_crops.size(); ++i) {
    const quality::Image& image = m_crops[i].image;
    const int left = kGap + static_cast<int>(i) % columns * cellWidth;
    const int top = kGap + static_cast<int>(i) / columns * cellHeight;
    for (std::size_t b = 0; b < sheet.size(); ++b) {
      const bool grey = image.bands.size() == 1;
      const auto& band = image.bands[grey ? 0 : b];
      const Limits limits = grey ? LimitsOf(band) : colours[b];
      DrawText(m_crops[i].name, left, top, width, height, kInk, sheet[b]);
      for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
          sheet[b][static_cast<std::size_t>(top + kTitle + y) * static_cast<std::size_t>(width) +
                   static_cast<std::size_t>(left + x)] =
              Stretched(band[static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) +
                             static_cast<std::size_t>(x)],
                        limits);
        }
      }
    }
  }
  const double noPlace[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  CRasterSource raster;
  bool written = m_pending.Begin() && raster.CreateRaster(PngFormat(), m_pending.WorkPath(), width, height, 3,
                                                          PDT_UINT8, noPlace, L"", nullptr);
  for (int b = 0; written && b < 3; ++b) {
    written = raster.GetRasterBand(b)->WriteBlock(0, 0, width, height, sheet[static_cast<std::size_t>(b)].data(), width,
                                                  height, PDT_UINT8) == 0;
  }
  if (!written || !raster.Close()) throw FileFailure(m_file);
  ThrowObstacle(m_pending.Publish(), m_file);
}

}  // namespace fusion

#include "runs/picture.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/jpeg.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/letters.h"
#include "runs/output_file.h"
#include "runs/run_failure.h"
#include "runs/text.h"

namespace fusion {
namespace {

constexpr std::uint8_t kPaper = 255;
constexpr std::uint8_t kInk = 0;

RasterDataFormat PngFormat() { return CStringParamParser::GetOutDataFormat(L"png"); }

std::uint8_t Stretched(double value, const Stretch& stretch) {
  const double share = std::clamp((value - stretch.low) / (stretch.high - stretch.low), 0.0, 1.0);
  return static_cast<std::uint8_t>(std::lround(255.0 * (stretch.bend == 1.0 ? share : std::pow(share, stretch.bend))));
}

/// Whether one of the words of a name is a colour's. A red edge and near infrared are none.
bool Names(const std::string& name, const std::string& colour) {
  std::vector<std::string> words(1);
  for (const char c : Lower(name)) {
    if (c >= 'a' && c <= 'z') {
      words.back() += c;
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  const auto has = [&words](const char* word) { return std::find(words.begin(), words.end(), word) != words.end(); };
  return has(colour.c_str()) && !has("edge") && !has("near") && !has("infra");
}

}  // namespace

Stretch StretchOf(const std::vector<double>& values) {
  std::vector<double> known;
  for (const double v : values) {
    if (std::isfinite(v)) known.push_back(v);
  }
  if (known.empty()) return {};
  const auto at = [&](double share) {
    const auto n = static_cast<std::ptrdiff_t>(share * static_cast<double>(known.size() - 1));
    std::nth_element(known.begin(), known.begin() + n, known.end());
    return known[static_cast<std::size_t>(n)];
  };
  constexpr double kTail = 0.02;
  const double low = at(kTail);
  const double high = at(1.0 - kTail);
  return {low, high > low ? high : low + 1.0};
}

std::vector<Stretch> StretchesOf(const quality::Image& image, const std::vector<int>& bands) {
  std::vector<Stretch> stretches;
  stretches.reserve(bands.size());
  for (const int band : bands) stretches.push_back(StretchOf(image.bands[static_cast<std::size_t>(band)]));
  return stretches;
}

std::vector<int> NaturalColours(const std::vector<platform::BandDescription>& bands) {
  // GDAL's numbers of the colours.
  constexpr int kRed = 3;
  const auto find = [&](const auto& shows) -> std::optional<std::vector<int>> {
    std::vector<int> found;
    for (int colour = 0; colour < 3; ++colour) {
      const auto band = std::find_if(bands.begin(), bands.end(), [&](const auto& b) { return shows(b, colour); });
      if (band == bands.end()) return std::nullopt;
      found.push_back(static_cast<int>(band - bands.begin()));
    }
    return found;
  };
  if (const auto said = find([](const auto& band, int colour) { return band.colour == kRed + colour; })) return *said;
  const char* const names[] = {"red", "green", "blue"};
  if (const auto named = find([&](const auto& band, int colour) { return Names(band.name, names[colour]); })) {
    return *named;
  }
  if (bands.size() == 1) return {0};
  if (bands.size() == 2) return {0, 1, 1};
  if (bands.size() == 3) return {0, 1, 2};
  return {2, 1, 0};
}

Picture::Picture(int width, int height)
    : m_width(width),
      m_height(height),
      m_colours(
          3, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), kPaper)) {}

void Picture::Put(int x, int y, std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
  if (x < 0 || y < 0 || x >= m_width || y >= m_height) return;
  const std::size_t i = static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
  m_colours[0][i] = red;
  m_colours[1][i] = green;
  m_colours[2][i] = blue;
}

void Picture::Draw(const quality::Image& image, const std::vector<int>& bands, const std::vector<Stretch>& stretches,
                   int left, int top, int zoom) {
  for (int y = 0; y < image.height * zoom; ++y) {
    for (int x = 0; x < image.width * zoom; ++x) {
      const std::size_t i = static_cast<std::size_t>(y / zoom) * static_cast<std::size_t>(image.width) +
                            static_cast<std::size_t>(x / zoom);
      const auto value = [&](std::size_t b) { return image.bands[static_cast<std::size_t>(bands[b])][i]; };
      const auto shown = [&](std::size_t colour) {
        const std::size_t b = bands.size() == 1 ? 0 : colour;
        return Stretched(value(b), stretches[b]);
      };
      bool known = true;
      for (std::size_t b = 0; b < bands.size(); ++b) known = known && std::isfinite(value(b));
      if (known) Put(left + x, top + y, shown(0), shown(1), shown(2));
    }
  }
}

void Picture::Write(const std::string& text, int left, int top) {
  for (auto& colour : m_colours) DrawText(text, left, top, m_width, m_height, kInk, colour);
}

void Picture::Hatch() {
  constexpr int kStripe = 4;
  constexpr std::uint8_t kLight = 168;
  constexpr std::uint8_t kDark = 120;
  for (int y = 0; y < m_height; ++y) {
    for (int x = 0; x < m_width; ++x) {
      const std::uint8_t grey = (x + y) / kStripe % 2 == 0 ? kLight : kDark;
      Put(x, y, grey, grey, grey);
    }
  }
}

void Picture::Frame(int left, int top, int width, int height) {
  constexpr std::uint8_t kYellow[] = {255, 220, 0};
  for (int y = top; y < top + height; ++y) {
    for (int x = left; x < left + width; ++x) {
      const bool inside = x > left && x < left + width - 1 && y > top && y < top + height - 1;
      if (!inside) Put(x, y, kYellow[0], kYellow[1], kYellow[2]);
    }
  }
}

void Picture::CheckFile(const std::string& option, const std::wstring& file, const platform::PendingOutput& pending) {
  if (CStringParamParser::GetOutDataFormat(CommonFun::GetExtensionName(file)) != PngFormat()) {
    throw UsageError(option + " writes a PNG: " + CommonFun::U2Utf8(file) + " should end with .png.");
  }
  ThrowObstacle(pending.Foresee(PngFormat()), file);
}

void Picture::Save(const std::wstring& file, platform::PendingOutput& pending) const {
  const double noPlace[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  CRasterSource raster;
  bool written = pending.Begin() && raster.CreateRaster(PngFormat(), pending.WorkPath(), m_width, m_height, 3,
                                                        PDT_UINT8, noPlace, L"", nullptr);
  for (int b = 0; written && b < 3; ++b) {
    written =
        raster.GetRasterBand(b)->WriteBlock(0, 0, m_width, m_height, m_colours[static_cast<std::size_t>(b)].data(),
                                            m_width, m_height, PDT_UINT8) == 0;
  }
  if (!written || !raster.Close()) throw FileFailure(file);
  ThrowObstacle(pending.Publish(), file);
}

std::string Picture::Jpeg(int quality) const {
  std::string bytes = platform::EncodeJpeg(m_colours, m_width, m_height, quality);
  if (bytes.empty()) throw RunFailure(RunFailure::Kind::kFailed, "A picture cannot be made: GDAL writes no JPEG.");
  return bytes;
}

}  // namespace fusion

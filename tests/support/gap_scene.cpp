#include "tests/support/gap_scene.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace test_support {
namespace {

SceneOptions Complete(SceneOptions options, PixelDataType type) {
  options.panType = type;
  options.msType = type;
  options.low = 3.0;
  options.high = 200.0;
  return options;
}

std::size_t At(const reference::Image& image, int column, int row) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(column);
}

reference::Image Filled(reference::Image image, const std::vector<std::vector<bool>>& gaps, double fill) {
  for (std::size_t b = 0; b < image.bands.size(); ++b) {
    for (std::size_t i = 0; i < image.bands[b].size(); ++i) {
      if (gaps[b][i]) image.bands[b][i] = fill;
    }
  }
  return image;
}

/// The least and the largest value of a band go to pixels with data.
void PinExtremes(std::vector<double>& values, const std::vector<bool>& gaps) {
  std::size_t first = 0;
  std::size_t last = values.size() - 1;
  while (gaps[first]) ++first;
  while (gaps[last]) --last;
  values[first] = 2.0;
  values[last] = 201.0;
}

}  // namespace

std::string NameOf(GapShape shape) {
  static const char* const kNames[] = {"hole", "collar", "speckles"};
  return kNames[static_cast<int>(shape)];
}

std::pair<double, double> FillValues(PixelDataType type) {
  static const std::pair<double, double> kValues[] = {{0, 0},
                                                      {0, 255},
                                                      {0, 65535},
                                                      {-32768, 32767},
                                                      {0, 4294967295.0},
                                                      {-2147483648.0, 2147483647.0},
                                                      {-3.4028234663852886e38, std::nan("")},
                                                      {1.5e308, std::nan("")}};
  return kValues[type];
}

GapScene::GapScene(unsigned seed, GapShape shape, PixelDataType type, SceneOptions options)
    : scene(seed, Complete(options, type)), m_type(type), m_panWkt(options.panWkt), m_msWkt(options.msWkt) {
  for (int row = 0; row < scene.pan.height; ++row) {
    for (int column = 0; column < scene.pan.width; ++column) {
      const reference::Position p = Position(column, row);
      if (!(p.x >= 0 && p.y >= 0 && p.x <= scene.ms.width - 1 && p.y <= scene.ms.height - 1)) continue;
      double& v = scene.pan.bands[0][At(scene.pan, column, row)];
      const int x = static_cast<int>(p.x + 0.5);
      const int y = static_cast<int>(p.y + 0.5);
      v = std::floor((v + 3 * scene.ms.bands[0][At(scene.ms, x, y)]) / 4);
    }
  }
  Cut(shape, seed);
  PinExtremes(scene.pan.bands[0], panGaps);
  for (std::size_t b = 0; b < msGaps.size(); ++b) PinExtremes(scene.ms.bands[b], msGaps[b]);
}

void GapScene::Cut(GapShape shape, unsigned seed) {
  std::mt19937 random(seed + 1);
  const auto cut = [&](const reference::Image& image, int x, int y) {
    const int w = image.width;
    const int h = image.height;
    if (shape == GapShape::kHole) return 4 * x > w && 2 * x < w && 4 * y > h && 20 * y < 9 * h;
    // Tilted, so that its edges run across the grid.
    if (shape == GapShape::kCollar) return 8 * x + y < w || x + 6 * y < h || 9 * x > 8 * w + y || 8 * y > 7 * h + x;
    return random() % 50 == 0;
  };
  for (int y = 0; y < scene.pan.height; ++y) {
    for (int x = 0; x < scene.pan.width; ++x) panGaps.push_back(cut(scene.pan, x, y));
  }
  msGaps.resize(scene.ms.bands.size());
  for (int y = 0; y < scene.ms.height; ++y) {
    for (int x = 0; x < scene.ms.width; ++x) {
      const bool all = cut(scene.ms, x, y);
      for (auto& gaps : msGaps) gaps.push_back(all || (shape == GapShape::kSpeckles && random() % 60 == 0));
      // A piece that only one band lacks, larger than any kernel.
      if (shape == GapShape::kHole && x > scene.ms.width - 8 && y > scene.ms.height - 7) msGaps[1].back() = true;
      if (shape == GapShape::kCollar && x == scene.ms.width / 2) msGaps[2].back() = true;
    }
  }
}

reference::Position GapScene::Position(int column, int row) const {
  const double* t = scene.pan.geoTransform;
  return reference::GroundToSample(scene.ms, t[0] + (column + 0.5) * t[1], t[3] + (row + 0.5) * t[5]);
}

reference::Image GapScene::Pan(double fill) const { return Filled(scene.pan, {panGaps}, fill); }
reference::Image GapScene::Ms(double fill) const { return Filled(scene.ms, msGaps, fill); }

void GapScene::Write(double fill, bool declared) const {
  const auto value = declared ? std::optional(fill) : std::nullopt;
  WriteImage(Pan(fill), scene.panFile, m_type, m_panWkt, value);
  WriteImage(Ms(fill), scene.msFile, m_type, m_msWkt, value);
}

void GapScene::WriteWhole(double declared) const {
  WriteImage(scene.pan, scene.panFile, m_type, m_panWkt, declared);
  WriteImage(scene.ms, scene.msFile, m_type, m_msWkt, declared);
}

bool GapScene::HasData(int column, int row) const {
  if (panGaps[At(scene.pan, column, row)]) return false;
  const reference::Position p = Position(column, row);
  if (p.x < 0 || p.y < 0 || p.x > scene.ms.width - 1 || p.y > scene.ms.height - 1) return false;
  const std::size_t at = At(scene.ms, static_cast<int>(p.x + 0.5), static_cast<int>(p.y + 0.5));
  for (const auto& gaps : msGaps) {
    if (!gaps[at]) return true;
  }
  return false;
}

bool GapScene::IsFarFromGaps(int column, int row) const {
  for (int y = std::max(row - 3, 0); y <= std::min(row + 3, scene.pan.height - 1); ++y) {
    for (int x = std::max(column - 3, 0); x <= std::min(column + 3, scene.pan.width - 1); ++x) {
      if (panGaps[At(scene.pan, x, y)]) return false;
    }
  }
  const reference::Position p = Position(column, row);
  for (int y = 0; y < scene.ms.height; ++y) {
    for (int x = 0; x < scene.ms.width; ++x) {
      if (std::fabs(x - p.x) > 2.5 || std::fabs(y - p.y) > 2.5) continue;
      for (const auto& gaps : msGaps) {
        if (gaps[At(scene.ms, x, y)]) return false;
      }
    }
  }
  return true;
}

void AddMask(const std::wstring& path, const std::vector<bool>& gaps) {
  std::vector<unsigned char> opacity;
  for (const bool gap : gaps) opacity.push_back(gap ? 0 : 255);
  CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", "YES");
  const std::unique_ptr<GDALDataset> file(
      GDALDataset::Open(CommonFun::U2Utf8(path).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
  ASSERT_TRUE(file);
  ASSERT_EQ(file->CreateMaskBand(GMF_PER_DATASET), CE_None);
  ASSERT_EQ(file->GetRasterBand(1)->GetMaskBand()->RasterIO(
                GF_Write, 0, 0, file->GetRasterXSize(), file->GetRasterYSize(), opacity.data(), file->GetRasterXSize(),
                file->GetRasterYSize(), GDT_Byte, 0, 0, nullptr),
            CE_None);
  CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", nullptr);
}

MaskedOutput ReadMasked(const std::wstring& path) {
  MaskedOutput output{ReadImage(path), true};
  CRasterSource source;
  EXPECT_TRUE(source.OpenSimple(path));
  for (int b = 0; b < source.GetBandCount(); ++b) {
    const CRasterBand& band = *source.GetRasterBand(b);
    if (!band.IsHaveNoData() || band.GetNoDataValue() != 0.0) output.declaresZero = false;
  }
  return output;
}

void ExpectMask(const MaskedOutput& output, const GapScene& scene) {
  EXPECT_TRUE(output.declaresZero);
  const reference::Image& image = output.image;
  ASSERT_EQ(image.width, scene.scene.pan.width);
  ASSERT_EQ(image.height, scene.scene.pan.height);
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      for (const auto& band : image.bands) {
        ASSERT_EQ(band[At(image, column, row)] != 0.0, scene.HasData(column, row)) << column << ' ' << row;
      }
    }
  }
}

}  // namespace test_support

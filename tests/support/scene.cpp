#include "tests/support/scene.h"

#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>

#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"
#include "tests/support/test_raster.h"

namespace test_support {
namespace {

using Dataset = std::unique_ptr<GDALDataset, decltype(&GDALClose)>;

Dataset Own(GDALDataset* dataset) { return {dataset, &GDALClose}; }

}  // namespace

void WriteImage(const reference::Image& image, const std::wstring& path, PixelDataType type, const std::string& wkt,
                std::optional<double> noData, const std::vector<std::string>& options) {
  TestRaster raster;
  raster.width = image.width;
  raster.height = image.height;
  raster.bands = image.bands;
  raster.type = type;
  raster.geoTransform.emplace(image.geoTransform, image.geoTransform + 6);
  raster.wkt = wkt;
  raster.noData = noData;
  raster.options = options;
  ASSERT_TRUE(WriteRaster(raster, path));
}

reference::Image ReadImage(const std::wstring& path) {
  GDALAllRegister();
  reference::Image image;
  auto file = Own(GDALDataset::Open(CommonFun::U2Utf8(path).c_str()));
  if (!file) {
    ADD_FAILURE() << "cannot open " << CommonFun::U2Utf8(path);
    return image;
  }
  image.width = file->GetRasterXSize();
  image.height = file->GetRasterYSize();
  file->GetGeoTransform(image.geoTransform);
  for (int b = 1; b <= file->GetRasterCount(); ++b) {
    image.bands.emplace_back(static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height));
    EXPECT_EQ(file->GetRasterBand(b)->RasterIO(GF_Read, 0, 0, image.width, image.height, image.bands.back().data(),
                                               image.width, image.height, GDT_Float64, 0, 0, nullptr),
              CE_None);
  }
  return image;
}

bool FileExists(const std::wstring& path) {
  VSIStatBufL stat;
  return VSIStatL(CommonFun::U2Utf8(path).c_str(), &stat) == 0;
}

std::vector<std::wstring> FilesNamedLike(const std::wstring& text) {
  std::vector<std::wstring> files;
  char** names = VSIReadDir("/vsimem/");
  for (char** name = names; name && *name; ++name) {
    const std::wstring file = CommonFun::Utf82U(*name);
    if (file.find(text) != std::wstring::npos) files.push_back(file);
  }
  CSLDestroy(names);
  return files;
}

Scene::Scene(unsigned seed, const SceneOptions& options) {
  static int count = 0;
  const std::wstring name = L"/vsimem/scene" + std::to_wstring(++count);
  panFile = name + L"_pan.tif";
  msFile = name + L"_ms.tif";
  outFile = name + L"_out.tif";

  std::mt19937 random(seed);
  const bool whole = !platform::IsFloatType(options.panType);
  const bool msWhole = !platform::IsFloatType(options.msType);
  std::uniform_real_distribution<double> value(options.low, options.high);
  // Half of a float's digits, so that the value survives the file whatever the float type.
  const auto draw = [&](bool integer) {
    const double v = value(random);
    return integer ? std::floor(v) : std::floor(v * 64.0) / 64.0;
  };

  const double sign = options.southUp ? 1.0 : -1.0;
  const double step = 10.0;
  pan.width = options.panWidth;
  pan.height = options.panHeight;
  const double panTransform[6] = {440000.0, step, 0.0, 4470000.0, 0.0, sign * step};
  std::copy_n(panTransform, 6, pan.geoTransform);
  ms.width = options.msWidth ? options.msWidth : static_cast<int>(std::ceil(options.panWidth / options.ratio));
  ms.height = options.msHeight ? options.msHeight : static_cast<int>(std::ceil(options.panHeight / options.ratio));
  const double msTransform[6] = {
      440000.0 + options.msShiftX * step, step * options.ratio, 0.0, 4470000.0 + sign * options.msShiftY * step, 0.0,
      sign * step * options.ratio};
  std::copy_n(msTransform, 6, ms.geoTransform);

  pan.bands.emplace_back();
  for (int i = 0; i < pan.width * pan.height; ++i) pan.bands[0].push_back(draw(whole));
  for (int b = 0; b < options.msBands; ++b) {
    ms.bands.emplace_back();
    for (int i = 0; i < ms.width * ms.height; ++i) ms.bands.back().push_back(draw(msWhole));
  }
  WriteImage(pan, panFile, options.panType, options.panWkt, options.panNoData);
  WriteImage(ms, msFile, options.msType, options.msWkt, options.msNoData);
}

Scene::~Scene() {
  for (const auto& file : {panFile, msFile, outFile}) VSIUnlink(CommonFun::U2Utf8(file).c_str());
}

FusionParam Scene::Param(PixelDataType outType) const {
  FusionParam param;
  param.m_strAlgName = L"test";
  param.m_strPanFile = panFile;
  param.m_strMSFile = msFile;
  param.m_strOutFile = outFile;
  param.m_eOutDataType = outType;
  return param;
}

reference::Run Scene::Reference(const FusionParam& param) const {
  reference::Run run;
  run.pan = &pan;
  run.ms = &ms;
  run.process = param.m_rcProcess.IsRectEmpty() ? CRect(0, 0, pan.width, pan.height) : param.m_rcProcess;
  run.msBands.assign(param.m_vecMSBands.begin(), param.m_vecMSBands.end());
  if (run.msBands.empty()) {
    for (std::size_t b = 0; b < ms.bands.size(); ++b) run.msBands.push_back(static_cast<int>(b));
  }
  run.panBand = param.m_nPanBand;
  run.resampleType = param.m_eResampleType;
  run.outBandCount = param.m_nOutBandCount ? param.m_nOutBandCount : static_cast<int>(run.msBands.size());
  run.conversion.type = param.m_eOutDataType;
  return run;
}

void ExpectEqual(const reference::Image& actual, const std::vector<std::vector<double>>& expected, double tolerance) {
  ASSERT_EQ(actual.bands.size(), expected.size());
  for (std::size_t b = 0; b < expected.size(); ++b) {
    ASSERT_EQ(actual.bands[b].size(), expected[b].size());
    for (std::size_t i = 0; i < expected[b].size(); ++i) {
      const double value = actual.bands[b][i];
      ASSERT_TRUE(
          value == expected[b][i] || (std::isnan(value) && std::isnan(expected[b][i])) ||
          (std::isfinite(expected[b][i]) && std::fabs(value - expected[b][i]) <= tolerance * std::fabs(expected[b][i])))
          << "band " << b << " column " << i % static_cast<std::size_t>(actual.width) << " row "
          << i / static_cast<std::size_t>(actual.width) << ": " << value << " instead of " << expected[b][i];
    }
  }
}

std::string UtmWkt() { return WktOfEpsg(32630); }
std::string Wgs84Wkt() { return WktOfEpsg(4326); }

void WriteTriangle(const std::wstring& path, reference::Position a, reference::Position b, reference::Position c) {
  WriteTriangles(path, {{a, b, c}});
}

void WriteTriangles(const std::wstring& path, const std::vector<std::vector<reference::Position>>& triangles) {
  // CSV is the one text format whose geometries come without a coordinate system.
  std::ostringstream text;
  text.precision(17);
  text << "WKT,id\n";
  for (const auto& corners : triangles) {
    text << "\"POLYGON((";
    for (const auto& corner : corners) text << corner.x << ' ' << corner.y << ',';
    text << corners.front().x << ' ' << corners.front().y << "))\",1\n";
  }
  WriteText(path, text.str());
}

}  // namespace test_support

#include "tests/support/test_raster.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <memory>
#include <random>

#include "platform/utility/common_fun.h"

namespace test_support {
namespace {

GDALDataType GdalType(PixelDataType type) {
  static const GDALDataType kTypes[] = {GDT_Unknown, GDT_Byte,  GDT_UInt16,  GDT_Int16,
                                        GDT_UInt32,  GDT_Int32, GDT_Float32, GDT_Float64};
  return kTypes[type];
}

bool Fill(GDALDataset& file, const TestRaster& raster) {
  if (raster.geoTransform) {
    auto transform = *raster.geoTransform;
    if (file.SetGeoTransform(transform.data()) != CE_None) return false;
  }
  if (!raster.wkt.empty() && file.SetProjection(raster.wkt.c_str()) != CE_None) return false;
  for (std::size_t b = 0; b < raster.bands.size(); ++b) {
    GDALRasterBand* band = file.GetRasterBand(static_cast<int>(b) + 1);
    if (raster.noData && band->SetNoDataValue(*raster.noData) != CE_None) return false;
    auto values = raster.bands[b];
    if (band->RasterIO(GF_Write, 0, 0, raster.width, raster.height, values.data(), raster.width, raster.height,
                       GDT_Float64, 0, 0, nullptr) != CE_None) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool WriteRaster(const TestRaster& raster, const std::wstring& path) {
  GDALAllRegister();
  CPLStringList options;
  for (const auto& option : raster.options) options.AddString(option.c_str());
  const std::unique_ptr<GDALDataset> file(GetGDALDriverManager()
                                              ->GetDriverByName(raster.driver.c_str())
                                              ->Create(CommonFun::U2Utf8(path).c_str(), raster.width, raster.height,
                                                       static_cast<int>(raster.bands.size()), GdalType(raster.type),
                                                       options.List()));
  const bool written = file && Fill(*file, raster);
  EXPECT_TRUE(written) << "cannot write " << CommonFun::U2Utf8(path);
  return written;
}

std::wstring MemoryPath(const std::wstring& extension) {
  static int count = 0;
  return L"/vsimem/raster" + std::to_wstring(++count) + L"." + extension;
}

TempFolder::TempFolder() {
  std::random_device random;
  m_path = std::filesystem::temp_directory_path() / ("fusion_test_" + std::to_string(random()));
  std::filesystem::create_directories(m_path);
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

std::wstring TempFolder::Path(const std::wstring& name) const {
  return CommonFun::Utf82U((m_path / CommonFun::ToPath(name)).string());
}

std::vector<std::string> TempFolder::Files() const {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(m_path))
    files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  return files;
}

void WriteText(const std::wstring& path, const std::string& text) {
  VSILFILE* file = VSIFOpenL(CommonFun::U2Utf8(path).c_str(), "wb");
  ASSERT_TRUE(file);
  EXPECT_EQ(VSIFWriteL(text.data(), 1, text.size(), file), text.size());
  EXPECT_EQ(VSIFCloseL(file), 0);
}

std::string FileContent(const std::wstring& path) {
  VSILFILE* file = VSIFOpenL(CommonFun::U2Utf8(path).c_str(), "rb");
  if (!file) return {};
  std::string content;
  char buffer[4096];
  for (std::size_t n = 0; (n = VSIFReadL(buffer, 1, sizeof(buffer), file)) > 0;) content.append(buffer, n);
  VSIFCloseL(file);
  return content;
}

std::wstring RealSceneFolder(const std::string& scene) {
  const std::filesystem::path folder = std::filesystem::path(FUSION_TEST_DATA) / scene;
  std::error_code ignored;
  return std::filesystem::is_directory(folder, ignored) ? CommonFun::Utf82U(folder.string()) + L"/" : std::wstring();
}

std::string WktOfEpsg(int code) {
  OGRSpatialReference crs;
  EXPECT_EQ(crs.importFromEPSG(code), OGRERR_NONE);
  char* text = nullptr;
  crs.exportToWkt(&text);
  std::string wkt = text;
  CPLFree(text);
  return wkt;
}

std::wstring WideWktOfEpsg(int code) { return CommonFun::Utf82U(WktOfEpsg(code)); }

void CopyBand(const std::string& from, int band, const std::string& to) {
  GDALAllRegister();
  const GDALDatasetUniquePtr source(GDALDataset::Open(from.c_str(), GDAL_OF_RASTER));
  ASSERT_TRUE(source) << from;
  CPLStringList arguments;
  arguments.AddString("-b").AddString(std::to_string(band).c_str());
  GDALTranslateOptions* options = GDALTranslateOptionsNew(arguments.List(), nullptr);
  GDALDatasetH copy = GDALTranslate(to.c_str(), GDALDataset::ToHandle(source.get()), options, nullptr);
  GDALTranslateOptionsFree(options);
  ASSERT_TRUE(copy) << to;
  GDALClose(copy);
}

bool IsOfUnknownFormat(const std::string& file) {
  GDALAllRegister();
  const auto lacks = [&](const char* suffix, const char* driver) {
    return file.ends_with(suffix) && !GetGDALDriverManager()->GetDriverByName(driver);
  };
  return lacks(".jp2", "JP2OpenJPEG") || lacks(".gif", "GIF");
}

}  // namespace test_support

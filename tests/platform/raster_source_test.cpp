// Opening, creating and closing raster files.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#ifndef _WIN32
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#endif

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/coordinate_algorithm.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "tests/support/test_raster.h"

namespace {

using platform::RasterOperation;
using test_support::MakeRaster;
using test_support::MemoryPath;
using test_support::TempFolder;
using Names = std::vector<std::string>;

const double kTransform[6] = {440000.0, 10.0, 0.0, 4470000.0, 0.0, -10.0};

std::wstring UtmWkt() { return test_support::WideWktOfEpsg(32630); }

/// A sample that differs from its neighbours and between the bands.
double SampleOf(int band, int x, int y) { return (40 + 2 * x + y + 10 * band) % 250; }

class RasterSource : public testing::Test {
 protected:
  ~RasterSource() override { platform::SetRasterFault({}); }

  static bool Create(CRasterSource& source, const std::wstring& path, RasterDataFormat format = kFormatGeoTiff,
                     int bands = 1, PixelDataType type = PDT_UINT8, const char* const* options = nullptr) {
    return source.CreateRaster(format, path, 40, 30, bands, type, kTransform, UtmWkt(), options);
  }
  static bool Write(CRasterSource& source) {
    bool ok = true;
    for (int b = 0; b < source.GetBandCount(); ++b) {
      std::vector<double> values;
      for (int y = 0; y < source.GetHeight(); ++y) {
        for (int x = 0; x < source.GetWidth(); ++x) values.push_back(SampleOf(b, x, y));
      }
      ok = source.GetRasterBand(b)->WriteBlock(0, 0, source.GetWidth(), source.GetHeight(), values.data(),
                                               source.GetWidth(), source.GetHeight(), PDT_FLOAT64) == 0 &&
           ok;
    }
    return ok;
  }
  /// Largest difference between a file's samples and the written ones.
  static double LargestError(CRasterSource& source) {
    double largest = 0.0;
    for (int b = 0; b < source.GetBandCount(); ++b) {
      std::vector<double> row(static_cast<std::size_t>(source.GetWidth()));
      for (int y = 0; y < source.GetHeight(); ++y) {
        EXPECT_EQ(source.GetRasterBand(b)->ReadBlock(0, y, source.GetWidth(), 1, row.data(), source.GetWidth(), 1,
                                                     PDT_FLOAT64),
                  0);
        for (int x = 0; x < source.GetWidth(); ++x) {
          largest = std::max(largest, std::abs(row[static_cast<std::size_t>(x)] - SampleOf(b, x, y)));
        }
      }
    }
    return largest;
  }
  static bool Exists(const std::wstring& path) { return CommonFun::IsExistingFile(path); }
};

TEST_F(RasterSource, EveryFormatIsWrittenAndReadBack) {
  ASSERT_GE(platform::RasterFormats().size(), 3U);
  for (const auto& format : platform::RasterFormats()) {
    SCOPED_TRACE(format.driver);
    const TempFolder folder;
    const std::wstring path = folder.Path(L"out." + (format.extensions.empty() ? L"tif" : format.extensions.front()));
    CRasterSource created;
    ASSERT_TRUE(Create(created, path, format.number, 3));
    EXPECT_EQ(created.GetBandCount(), 3);
    EXPECT_TRUE(created.IsWritable());
    EXPECT_TRUE(Write(created));
    EXPECT_TRUE(created.Close());
    EXPECT_FALSE(created.IsOpen());
    for (const std::string& name : folder.Files()) EXPECT_EQ(name.find('~'), std::string::npos) << name;

    CRasterSource read;
    ASSERT_TRUE(read.Open(path, GDA_READ, true));
    EXPECT_EQ(read.GetWidth(), 40);
    EXPECT_EQ(read.GetHeight(), 30);
    EXPECT_EQ(read.GetBandCount(), 3);
    EXPECT_EQ(read.GetRasterDataType(), PDT_UINT8);
    EXPECT_LE(LargestError(read), std::string(format.driver) == "JPEG" ? 12.0 : 0.0);
    double t[6] = {};
    EXPECT_TRUE(read.GetGeoTransform(t));
    for (int i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(t[i], kTransform[i]);
    EXPECT_TRUE(CCoordinateAlgorithm::IsSameCoordinate(read.GetSpatialReferenceWKT(), UtmWkt()));
    read.Close();
    EXPECT_TRUE(CRasterSource::DeleteFileW(path));
    EXPECT_EQ(folder.Files(), Names{}) << "companions go with the file";
  }
}

TEST_F(RasterSource, TheFormatComesFromTheExtension) {
  EXPECT_EQ(CRasterSource::GetDataFormat(L"a/b.TIF"), kFormatGeoTiff);
  EXPECT_EQ(CRasterSource::GetDataFormat(L"a.img"), platform::FindRasterFormat(std::wstring(L"img"))->number);
  EXPECT_EQ(CRasterSource::GetDataFormat(L"a.unknown"), kFormatUnknown);
  EXPECT_EQ(CRasterSource::GetDataFormat(L""), kFormatUnknown);
}

TEST_F(RasterSource, ANewGeoTiffIsBandInterleavedAndTakesOptions) {
  const std::wstring path = MemoryPath();
  CRasterSource created;
  const char* const options[] = {"COMPRESS=DEFLATE", "TILED=YES", nullptr};
  ASSERT_TRUE(Create(created, path, kFormatGeoTiff, 3, PDT_UINT8, options));
  EXPECT_TRUE(created.Close());
  GDALAllRegister();
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(CommonFun::U2Utf8(path).c_str()));
  ASSERT_TRUE(file);
  EXPECT_STREQ(file->GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE"), "BAND");
  EXPECT_STREQ(file->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), "DEFLATE");
  int width = 0;
  int height = 0;
  file->GetRasterBand(1)->GetBlockSize(&width, &height);
  EXPECT_EQ(width, 256);
  VSIUnlink(CommonFun::U2Utf8(path).c_str());
}

TEST_F(RasterSource, CreatingReplacesAnExistingFileAndItsCompanions) {
  const TempFolder folder;
  const std::wstring path = folder.Path(L"a.tif");
  auto old = MakeRaster(9, 9, [](int, int) { return 5.0; });
  old.noData = 5.0;
  test_support::WriteRaster(old, path);
  std::ofstream(CommonFun::ToPath(path + L".aux.xml"))
      << "<PAMDataset><PAMRasterBand band=\"1\"><NoDataValue>5</NoDataValue></PAMRasterBand></PAMDataset>";
  CRasterSource created;
  ASSERT_TRUE(Create(created, path));
  EXPECT_TRUE(Write(created));
  EXPECT_TRUE(created.Close());
  CRasterSource read;
  ASSERT_TRUE(read.OpenSimple(path));
  EXPECT_EQ(read.GetWidth(), 40);
  EXPECT_FALSE(read.GetRasterBand(0)->IsHaveNoData());
  EXPECT_EQ(folder.Files(), Names{"a.tif"});
  EXPECT_EQ(LargestError(read), 0.0);
}

TEST_F(RasterSource, WhatCannotBeCreatedIsRefusedAndLeavesNothing) {
  const TempFolder folder;
  CRasterSource source;
  EXPECT_FALSE(Create(source, folder.Path(L"no/such/folder/a.tif")));
  EXPECT_FALSE(Create(source, L""));
  EXPECT_FALSE(Create(source, folder.Path(L"")));
  EXPECT_FALSE(Create(source, folder.Path(L"a.tif"), kFormatUnknown));
  EXPECT_FALSE(Create(source, folder.Path(L"a.tif"), 99));
  EXPECT_FALSE(Create(source, folder.Path(L"a.tif"), kFormatGeoTiff, 0));
  EXPECT_FALSE(Create(source, folder.Path(L"a.tif"), kFormatGeoTiff, 1, PDT_UNKNOWN));
  for (const auto& [width, height] : {std::pair(0, 5), {5, 0}, {-5, 5}}) {
    EXPECT_FALSE(source.CreateRaster(kFormatGeoTiff, folder.Path(L"a.tif"), width, height, 1, PDT_UINT8, kTransform,
                                     L"", nullptr));
  }
  EXPECT_FALSE(source.IsOpen());
  EXPECT_EQ(folder.Files(), Names{});
}

TEST_F(RasterSource, TypesAndBandCountsThatAFormatCannotHoldAreRefusedAtOnce) {
  const TempFolder folder;
  for (const wchar_t* extension : {L"png", L"jpg"}) {
    const auto* format = platform::FindRasterFormat(std::wstring(extension));
    if (!format) continue;
    SCOPED_TRACE(format->driver);
    const std::wstring path = folder.Path(L"a." + std::wstring(extension));
    CRasterSource source;
    EXPECT_FALSE(Create(source, path, format->number, 1, PDT_FLOAT32));
    EXPECT_FALSE(Create(source, path, format->number, 7));
    EXPECT_EQ(folder.Files(), Names{});
    EXPECT_TRUE(Create(source, path, format->number, 1));
    EXPECT_TRUE(source.Close());
    EXPECT_TRUE(CRasterSource::DeleteFileW(path));
  }
  CRasterSource source;
  if (const auto* jpeg = platform::FindRasterFormat(std::wstring(L"jpg"))) {
    EXPECT_FALSE(
        source.CreateRaster(jpeg->number, folder.Path(L"a.jpg"), 65536, 1, 1, PDT_UINT8, kTransform, L"", nullptr));
  }
  EXPECT_EQ(folder.Files(), Names{});
}

TEST_F(RasterSource, AnExistingFileOutlivesARefusedCreation) {
  const TempFolder folder;
  const std::wstring path = folder.Path(L"a.tif");
  test_support::WriteRaster(MakeRaster(2, 2, [](int, int) { return 1.0; }), path);
  const std::string before = test_support::FileContent(path);
  CRasterSource source;
  EXPECT_FALSE(Create(source, path, kFormatGeoTiff, 1, PDT_UNKNOWN));
  const auto* png = platform::FindRasterFormat(std::wstring(L"png"));
  if (png) {
    EXPECT_FALSE(Create(source, path, png->number, 1, PDT_FLOAT64));
  }
  platform::SetRasterFault([](RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == RasterOperation::kCreate;
  });
  EXPECT_FALSE(Create(source, path));
  EXPECT_EQ(test_support::FileContent(path), before);
  EXPECT_EQ(folder.Files(), Names{"a.tif"});
}

TEST_F(RasterSource, AFailedCopyLeavesTheOlderFileAndNoOther) {
  const auto* png = platform::FindRasterFormat(std::wstring(L"png"));
  if (!png) GTEST_SKIP() << "no PNG driver";
  const TempFolder folder;
  const std::wstring path = folder.Path(L"a.png");
  CRasterSource first;
  ASSERT_TRUE(Create(first, path, png->number));
  EXPECT_TRUE(Write(first));
  EXPECT_TRUE(first.Close());
  const Names files = folder.Files();
  const std::string before = test_support::FileContent(path);

  CRasterSource second;
  const char* const wrong[] = {"ZLEVEL=99", nullptr};
  ASSERT_TRUE(Create(second, path, png->number, 1, PDT_UINT8, wrong));
  EXPECT_FALSE(second.Close());
  EXPECT_EQ(test_support::FileContent(path), before);
  EXPECT_EQ(folder.Files(), files);
}

TEST_F(RasterSource, AFaultAtCloseIsReported) {
  for (const wchar_t* name : {L"a.tif", L"a.png"}) {
    const auto* format = platform::FindRasterFormat(CommonFun::GetExtensionName(name));
    if (!format) continue;
    const TempFolder folder;
    CRasterSource source;
    ASSERT_TRUE(Create(source, folder.Path(name), format->number));
    platform::SetRasterFault([](RasterOperation operation, const std::wstring&, int, const CRect&) {
      return operation == RasterOperation::kClose;
    });
    EXPECT_FALSE(source.Close());
    platform::SetRasterFault({});
    EXPECT_FALSE(source.IsOpen());
    EXPECT_TRUE(source.Close()) << "closing a closed raster";
    if (format->copyOnly) {
      EXPECT_EQ(folder.Files(), Names{});
    }
  }
}

#ifndef _WIN32
/// Files may not grow beyond a size while it lives, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    m_handler = std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &m_before);
    const rlimit limited{bytes, m_before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, m_handler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit m_before{};
  void (*m_handler)(int) = nullptr;
};

TEST_F(RasterSource, AFullDiskIsFoundAtTheLatestWhenClosing) {
  for (const wchar_t* name : {L"a.tif", L"a.img", L"a.dat", L"a.png"}) {
    const auto* format = platform::FindRasterFormat(CommonFun::GetExtensionName(name));
    if (!format) continue;
    SCOPED_TRACE(format->driver);
    const TempFolder folder;
    bool ok = true;
    {
      const FileSizeLimit limit(100000);
      CRasterSource source;
      ok = source.CreateRaster(format->number, folder.Path(name), 1000, 1000, 1, PDT_UINT8, kTransform, L"", nullptr) &&
           Write(source);
      ok = source.Close() && ok;
    }
    EXPECT_FALSE(ok);
  }
}

TEST_F(RasterSource, AReadOnlyFolderIsRefused) {
  const TempFolder folder;
  std::wstring inner = folder.Path(L"inner");
  std::filesystem::create_directory(CommonFun::ToPath(inner));
  std::filesystem::permissions(CommonFun::ToPath(inner),
                               std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  // Permissions do not bind the superuser, but nobody makes files among the processes.
  if (geteuid() == 0) inner = L"/proc";
  CRasterSource source;
  EXPECT_FALSE(Create(source, inner + L"/a.tif"));
  EXPECT_FALSE(Exists(inner + L"/a.tif"));
}
#else
TEST_F(RasterSource, AFullDiskIsFoundAtTheLatestWhenClosing) { GTEST_SKIP() << "no limit on the size of files here"; }
TEST_F(RasterSource, AReadOnlyFolderIsRefused) { GTEST_SKIP() << "rights are not set by modes here"; }
#endif

TEST_F(RasterSource, OpeningWhatIsNoRasterFailsQuietly) {
  const TempFolder folder;
  test_support::WriteRaster(MakeRaster(2, 2, [](int, int) { return 1.0; }), folder.Path(L"a.tif"));
  CRasterSource source;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(source.OpenSimple(folder.Path(L"missing.tif")));
  EXPECT_FALSE(source.OpenSimple(folder.Path(L"")));
  EXPECT_FALSE(source.OpenSimple(L""));
  EXPECT_FALSE(source.Open(L"/vsimem/missing.tif", GDA_UPDATE, true));
  VSILFILE* file = VSIFOpenL(CommonFun::U2Utf8(folder.Path(L"text.tif")).c_str(), "wb");
  VSIFWriteL("not a raster", 1, 12, file);
  VSIFCloseL(file);
  EXPECT_FALSE(source.OpenSimple(folder.Path(L"text.tif")));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(source.IsOpen());
  EXPECT_EQ(source.GetWidth(), 0);
  EXPECT_EQ(source.GetBandCount(), 0);
  EXPECT_EQ(source.GetRasterDataType(), PDT_UNKNOWN);
  EXPECT_EQ(source.GetBlockXSize(), 0);
}

TEST_F(RasterSource, FaultsStopOpeningAndReading) {
  const std::wstring path = MemoryPath();
  test_support::WriteRaster(MakeRaster(4, 4, [](int, int) { return 1.0; }), path);
  CRasterSource source;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& file, int, const CRect&) {
    return operation == RasterOperation::kOpen && file == path;
  });
  EXPECT_FALSE(source.OpenSimple(path));
  platform::SetRasterFault([](RasterOperation operation, const std::wstring&, int band, const CRect& rect) {
    return operation == RasterOperation::kRead && band == 0 && rect == CRect(1, 2, 2, 4);
  });
  ASSERT_TRUE(source.OpenSimple(path));
  double values[2] = {};
  EXPECT_NE(source.GetRasterBand(0)->ReadBlock(1, 2, 1, 2, values, 1, 2, PDT_FLOAT64), 0);
  EXPECT_EQ(source.GetRasterBand(0)->ReadBlock(1, 1, 1, 2, values, 1, 2, PDT_FLOAT64), 0);
  source.Close();
  CRasterSource::DeleteFileW(path);
}

TEST_F(RasterSource, NamesMayHaveAnyLetters) {
  const TempFolder folder;
  const std::wstring path = folder.Path(L"\u878d\u5408 \u00e9\u00df \u0416.tif");
  CRasterSource source;
  ASSERT_TRUE(Create(source, path));
  EXPECT_EQ(source.GetPath(), path);
  EXPECT_TRUE(Write(source));
  EXPECT_TRUE(source.Close());
  EXPECT_TRUE(Exists(path));
  ASSERT_TRUE(source.OpenSimple(path));
  EXPECT_EQ(LargestError(source), 0.0);
  source.Close();
  EXPECT_TRUE(CRasterSource::DeleteFileW(path));
  EXPECT_EQ(folder.Files(), Names{});
}

TEST_F(RasterSource, ReadingLeavesNothingBesideTheInput) {
  for (const char* driver : {"GTiff", "HFA", "ENVI"}) {
    const TempFolder folder;
    auto raster = MakeRaster(60, 50, [](int x, int y) { return x + y; });
    raster.driver = driver;
    raster.geoTransform.emplace(kTransform, kTransform + 6);
    const std::wstring path = folder.Path(L"in");
    test_support::WriteRaster(raster, path);
    const Names before = folder.Files();
    const std::string content = test_support::FileContent(path);
    for (const auto access : {GDA_READ, GDA_UPDATE}) {
      CRasterSource source;
      ASSERT_TRUE(source.Open(path, access, true)) << driver;
      double a = 0.0;
      double b = 0.0;
      double c = 0.0;
      double d = 0.0;
      EXPECT_TRUE(source.GetRasterBand(0)->ComputeStatics(&a, &b, &c, &d, true, nullptr));
      EXPECT_TRUE(source.GetRasterBand(0)->ComputeMinMax(&a, &b, true));
      EXPECT_TRUE(source.Close());
    }
    EXPECT_EQ(folder.Files(), before) << driver;
    EXPECT_EQ(test_support::FileContent(path), content) << driver;
  }
}

}  // namespace

// Outputs on a disk that is full, or becomes full at any write.
#include "platform/raster/write_guard.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>

#ifndef _WIN32
#include <sys/resource.h>
#include <unistd.h>
#endif

#include "platform/algorithm/build_raster_overviews.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/system/disk.h"
#include "platform/utility/common_fun.h"
#include "tests/support/recording_progress.h"
#include "tests/support/test_raster.h"

namespace {

using platform::RasterOperation;
using Names = std::vector<std::string>;

class WriteGuards : public testing::Test {
 protected:
  void SetUp() override {
    platform::ClearWriteError();
    // Without the guard some formats write for ever; that must end as a failure.
    EndAfter(60);
  }
  void TearDown() override {
    EndAfter(0);
    platform::SetRasterFault({});
    platform::ClearWriteError();
  }

  /// From this write on the disk is full. Negative: never; then m_writes counts.
  void FillDiskAt(int write) {
    m_writes = 0;
    platform::SetRasterFault([this, write](RasterOperation operation, const std::wstring&, int, const CRect&) {
      return operation == RasterOperation::kStore && m_writes++ >= write && write >= 0;
    });
  }
  bool Create(CRasterSource& source, RasterDataFormat format, const std::wstring& name, int size = kSize) const {
    return source.CreateRaster(format, m_folder.Path(name), size, size, 3, PDT_UINT8, nullptr, L"", nullptr);
  }
  static bool Fill(CRasterSource& source) {
    const int width = source.GetWidth();
    std::vector<unsigned char> row(static_cast<std::size_t>(width));
    for (int y = 0; y < source.GetHeight(); ++y) {
      for (std::size_t x = 0; x < row.size(); ++x)
        row[x] = static_cast<unsigned char>(x * 7 + static_cast<std::size_t>(y));
      for (int b = 0; b < 3; ++b) {
        if (source.GetRasterBand(b)->WriteBlock(0, y, width, 1, row.data(), width, 1, PDT_UINT8) != 0) return false;
      }
    }
    return true;
  }
  bool Make(RasterDataFormat format, const std::wstring& name, int size = kSize) const {
    CRasterSource source;
    return Create(source, format, name, size) && Fill(source) && source.Close();
  }

  static void EndAfter([[maybe_unused]] unsigned int seconds) {
#ifndef _WIN32
    alarm(seconds);
#endif
  }

  static constexpr int kSize = 300;
  test_support::TempFolder m_folder;
  int m_writes = 0;
};

TEST_F(WriteGuards, AFullDiskEndsEveryFormatAtOnceWhereverItComes) {
  for (const auto& format : platform::RasterFormats()) {
    const std::wstring name = L"a." + (format.extensions.empty() ? L"tif" : format.extensions[0]);
    FillDiskAt(-1);
    ASSERT_TRUE(Make(format.number, name)) << format.driver;
    const int writes = m_writes;
    ASSERT_GT(writes, 0) << format.driver;
    for (int at = 0; at < writes; at += writes / 40 + 1) {
      platform::ClearWriteError();
      FillDiskAt(at);
      EXPECT_FALSE(Make(format.number, name)) << format.driver << " at " << at;
      EXPECT_EQ(platform::FirstWriteError(), ENOSPC);
      EXPECT_EQ(m_writes, at + 1) << "nothing is tried after a write that failed";
    }
    platform::SetRasterFault({});
    EXPECT_TRUE(Make(format.number, name)) << format.driver << ": the same name again";
    CRasterSource::DeleteFileW(m_folder.Path(name));
    EXPECT_EQ(m_folder.Files(), Names()) << format.driver;
  }
}

TEST_F(WriteGuards, AFailureOfOneRasterIsNotTheOthers) {
  CRasterSource broken;
  CRasterSource whole;
  ASSERT_TRUE(Create(broken, kFormatGeoTiff, L"broken.tif"));
  ASSERT_TRUE(Create(whole, kFormatGeoTiff, L"whole.tif"));
  platform::SetRasterFault([](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    return operation == RasterOperation::kStore && path.ends_with(L"broken.tif");
  });
  Fill(broken);
  EXPECT_FALSE(broken.Close());
  EXPECT_TRUE(Fill(whole));
  EXPECT_TRUE(whole.Close());
}

TEST_F(WriteGuards, OverviewsThatDoNotFitAreAFailureAndGone) {
  ASSERT_TRUE(Make(kFormatGeoTiff, L"a.tif", 600));
  const auto build = [this] {
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(m_folder.Path(L"a.tif")));
    CBuildRasterOverviews overviews(&source, "AVERAGE", 0, nullptr, nullptr, L"", false);
    overviews.Process();
    return overviews.GetLastErrorType();
  };
  FillDiskAt(-1);
  ASSERT_EQ(build(), 0);
  const int writes = m_writes;
  for (int at = 0; at < writes; ++at) {
    CRasterSource::DeleteFileW(m_folder.Path(L"a.tif.ovr"));
    FillDiskAt(at);
    EXPECT_EQ(build(), 3) << at;
    platform::SetRasterFault({});
    EXPECT_EQ(m_folder.Files(), Names{"a.tif"}) << at;
  }
}

TEST_F(WriteGuards, WhatCannotFitIsNotBegun) {
  CRasterSource source;
  EXPECT_FALSE(source.CreateRaster(kFormatGeoTiff, m_folder.Path(L"a.tif"), 200000, 200000, 4000, PDT_FLOAT64, nullptr,
                                   L"", nullptr));
  EXPECT_EQ(platform::FirstWriteError(), ENOSPC);
  EXPECT_EQ(m_folder.Files(), Names());
  // A compressed one may fit.
  const char* const options[] = {"COMPRESS=DEFLATE", "SPARSE_OK=YES", nullptr};
  platform::ClearWriteError();
  EXPECT_TRUE(source.CreateRaster(kFormatGeoTiff, m_folder.Path(L"a.tif"), 200000, 200000, 100, PDT_FLOAT64, nullptr,
                                  L"", options));
  source.Abandon();
}

TEST_F(WriteGuards, RoomIsThatOfTheDiskAndOfTheLimitOnFiles) {
  EXPECT_EQ(platform::LackOfRoom(m_folder.Root(), 1.0), 0);
  EXPECT_EQ(platform::LackOfRoom(m_folder.Root(), 1e30), ENOSPC);
  EXPECT_EQ(platform::LackOfRoom(m_folder.Root() / "missing", 1.0), 0) << "creating the file tells";
#ifndef _WIN32
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{1000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(platform::LackOfRoom(m_folder.Root(), 1000.0), 0);
  EXPECT_EQ(platform::LackOfRoom(m_folder.Root(), 1001.0), EFBIG);
  setrlimit(RLIMIT_FSIZE, &before);
#endif
  for (const int error : {ENOSPC, EFBIG}) EXPECT_TRUE(platform::IsLackOfRoom(error));
  EXPECT_FALSE(platform::IsLackOfRoom(EACCES));
}

TEST_F(WriteGuards, LackOfMemoryIsToldFromOtherFailures) {
  {
    const platform::GdalErrors errors;
    CPLError(CE_Failure, CPLE_FileIO, "disk");
    EXPECT_FALSE(errors.OutOfMemory());
    CPLError(CE_Failure, CPLE_OutOfMemory, "memory");
    EXPECT_TRUE(errors.OutOfMemory());
    EXPECT_EQ(errors.Reason(), "disk");
  }
  errno = ENOMEM;
  const platform::GdalErrors errors;
  CPLError(CE_Failure, CPLE_AppDefined, "an older error is another's");
  EXPECT_FALSE(errors.OutOfMemory());
  errno = ENOMEM;
  CPLError(CE_Failure, CPLE_AppDefined, "no space for a strip buffer");
  EXPECT_TRUE(errors.OutOfMemory());
}

/// A raster whose samples GDAL has no memory for.
class GreedyBand : public GDALRasterBand {
 public:
  GreedyBand() {
    nRasterXSize = nRasterYSize = nBlockXSize = nBlockYSize = 4;
    eDataType = GDT_Byte;
  }
  CPLErr IReadBlock(int, int, void*) override {
    CPLError(CE_Failure, CPLE_OutOfMemory, "too much");
    return CE_Failure;
  }
};
class GreedyRaster : public GDALDataset {
 public:
  GreedyRaster() {
    nRasterXSize = nRasterYSize = 4;
    SetBand(1, new GreedyBand);
  }
  static GDALDataset* Open(GDALOpenInfo* info) {
    return EQUAL(CPLGetExtension(info->pszFilename), "greedy") ? new GreedyRaster : nullptr;
  }
};

TEST_F(WriteGuards, LackOfMemoryInATransferIsThrown) {
  auto* driver = new GDALDriver;
  driver->SetDescription("GREEDY");
  driver->SetMetadataItem(GDAL_DCAP_RASTER, "YES");
  driver->pfnOpen = GreedyRaster::Open;
  GetGDALDriverManager()->RegisterDriver(driver);
  const std::wstring path = m_folder.Path(L"a.greedy");
  VSIFCloseL(VSIFOpenL(CommonFun::U2Utf8(path).c_str(), "wb"));
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(path));
  double values[16];
  EXPECT_THROW(source.GetRasterBand(0)->ReadBlock(0, 0, 4, 4, values, 4, 4, PDT_FLOAT64), std::bad_alloc);
  source.Close();
  GetGDALDriverManager()->DeregisterDriver(driver);
  delete driver;
}

TEST_F(WriteGuards, TheFinalCopyIsReportedAndCanBeCancelled) {
  for (const RasterDataFormat format : {23, 26}) {
    if (!platform::FindRasterFormat(format)) continue;
    constexpr int kLarge = 1100;  // several blocks of either
    test_support::RecordingProgress progress;
    CRasterSource source;
    ASSERT_TRUE(Create(source, format, L"a.x", kLarge));
    ASSERT_TRUE(Fill(source));
    EXPECT_TRUE(source.Close(&progress));
    ASSERT_GT(progress.Steps(), 1) << format;
    EXPECT_EQ(progress.Calls().front(), L"Start 正在进行格式转换... 100");
    EXPECT_EQ(progress.Calls().back(), L"Step 100 处理中...");
    EXPECT_FALSE(progress.Finished()) << "the run is not";
    const std::string before = test_support::FileContent(m_folder.Path(L"a.x"));
    const Names files = m_folder.Files();

    progress.CancelAtStep(50);
    ASSERT_TRUE(Create(source, format, L"a.x", kLarge));
    ASSERT_TRUE(Fill(source));
    bool cancelled = false;
    EXPECT_FALSE(source.Close(&progress, &cancelled)) << format;
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(test_support::FileContent(m_folder.Path(L"a.x")), before);
    EXPECT_EQ(m_folder.Files(), files);

    // What has failed before is not copied at all.
    ASSERT_TRUE(Create(source, format, L"a.x", kLarge));
    source.Abandon();
    EXPECT_FALSE(source.IsOpen());
    EXPECT_EQ(test_support::FileContent(m_folder.Path(L"a.x")), before);
    EXPECT_EQ(m_folder.Files(), files);
  }
}

}  // namespace

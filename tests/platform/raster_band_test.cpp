// Reading and writing blocks, pixel types, no-data.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "tests/support/numbers.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MakeRaster;
using test_support::MemoryPath;
using test_support::TestRaster;

using test_support::kNaN;

/// A raster in memory, open.
class RasterBand : public testing::Test {
 protected:
  ~RasterBand() override {
    m_source.Close();
    if (!m_path.empty()) CRasterSource::DeleteFileW(m_path);
  }
  CRasterBand& Open(const TestRaster& raster, GISDataAccess access = GDA_READ) {
    m_source.Close();
    m_path = MemoryPath();
    test_support::WriteRaster(raster, m_path);
    EXPECT_TRUE(m_source.Open(m_path, access, false));
    return *m_source.GetRasterBand(0);
  }
  static std::vector<double> Read(CRasterBand& band, int left, int top, int width, int height) {
    std::vector<double> values(static_cast<std::size_t>(width * height), -77.0);
    EXPECT_EQ(band.ReadBlock(left, top, width, height, values.data(), width, height, PDT_FLOAT64), 0);
    return values;
  }

  std::wstring m_path;
  CRasterSource m_source;
};

TestRaster Counting(int width = 7, int height = 5) {
  return MakeRaster(width, height, [](int x, int y) { return 10.0 * y + x; });
}

TEST_F(RasterBand, ReadsARectangle) {
  CRasterBand& band = Open(Counting());
  EXPECT_EQ(Read(band, 2, 1, 3, 2), (std::vector<double>{12, 13, 14, 22, 23, 24}));
  EXPECT_EQ(Read(band, 6, 4, 1, 1), std::vector<double>{46});
  EXPECT_EQ(band.GetWidth(), 7);
  EXPECT_EQ(band.GetHeight(), 5);
}

TEST_F(RasterBand, SpacingsPlaceElementsInBytes) {
  CRasterBand& band = Open(Counting());
  // Every third element, and a gap of one element behind each row of two.
  std::vector<std::int16_t> buffer(14, -1);
  ASSERT_EQ(band.ReadBlock(3, 2, 2, 2, buffer.data(), 2, 2, PDT_INT16, 6, 14), 0);
  EXPECT_EQ(buffer, (std::vector<std::int16_t>{23, -1, -1, 24, -1, -1, -1, 33, -1, -1, 34, -1, -1, -1}));
}

TEST_F(RasterBand, RefusesWhatIsNotARectangleOfTheRaster) {
  CRasterBand& band = Open(Counting(), GDA_UPDATE);
  const int big = std::numeric_limits<int>::max();
  const int small = std::numeric_limits<int>::min();
  const std::vector<std::vector<int>> wrong = {
      {-1, 0, 2, 2},  {0, -1, 2, 2},    {6, 0, 2, 2},       {0, 4, 2, 2},        {0, 0, 8, 1}, {0, 0, 0, 1},
      {0, 0, 1, 0},   {3, 3, -1, 1},    {3, 3, 1, -2},      {7, 0, 1, 1},        {0, 5, 1, 1}, {big, big, 2, 2},
      {2, 2, big, 1}, {small, 0, 1, 1}, {0, small, 1, big}, {0, 0, small, small}};
  std::vector<double> buffer(64, 5.0);
  for (const auto& r : wrong) {
    EXPECT_NE(band.ReadBlock(r[0], r[1], r[2], r[3], buffer.data(), r[2], r[3], PDT_FLOAT64), 0);
    EXPECT_NE(band.WriteBlock(r[0], r[1], r[2], r[3], buffer.data(), r[2], r[3], PDT_FLOAT64), 0);
  }
  EXPECT_EQ(buffer, std::vector<double>(64, 5.0)) << "the buffer is untouched";
  EXPECT_EQ(Read(band, 0, 0, 2, 1), (std::vector<double>{0, 1})) << "the raster too";
}

TEST_F(RasterBand, RefusesOtherWrongArguments) {
  CRasterBand& band = Open(Counting(), GDA_UPDATE);
  std::vector<double> buffer(64);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, nullptr, 2, 2, PDT_FLOAT64), 0);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data(), 4, 4, PDT_FLOAT64), 0) << "no resampling";
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data(), 2, 2, PDT_UNKNOWN), 0);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data(), 2, 2, static_cast<PixelDataType>(8)), 0);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data(), 2, 2, static_cast<PixelDataType>(-3)), 0);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data() + 32, 2, 2, PDT_FLOAT64, -8, 0), 0);
  EXPECT_NE(band.ReadBlock(0, 0, 2, 2, buffer.data() + 32, 2, 2, PDT_FLOAT64, 0, -16), 0);
  EXPECT_NE(band.WriteBlock(0, 0, 2, 2, nullptr, 2, 2, PDT_FLOAT64), 0);
}

TEST_F(RasterBand, AReadOnlyRasterIsNotWritten) {
  CRasterBand& band = Open(Counting());
  const double value = 99.0;
  EXPECT_NE(band.WriteBlock(0, 0, 1, 1, &value, 1, 1, PDT_FLOAT64), 0);
  EXPECT_EQ(Read(band, 0, 0, 1, 1), std::vector<double>{0});
  EXPECT_TRUE(m_source.Close());
}

TEST_F(RasterBand, AnUpdatedRasterKeepsWhatWasWritten) {
  CRasterBand& band = Open(Counting(), GDA_UPDATE);
  const std::vector<float> values = {1.5F, 2.5F};
  EXPECT_EQ(band.WriteBlock(3, 4, 2, 1, values.data(), 2, 1, PDT_FLOAT32), 0);
  EXPECT_TRUE(m_source.Close());
  ASSERT_TRUE(m_source.OpenSimple(m_path));
  EXPECT_EQ(Read(*m_source.GetRasterBand(0), 2, 4, 4, 1), (std::vector<double>{42, 1.5, 2.5, 45}));
}

/// Writes rows over each other in all the ways that a file of strips may take them: whole strips past the cache of
/// decoded blocks, parts of strips and other types through it.
TEST_F(RasterBand, TheLastWriteCountsHoweverTheStripsAreWritten) {
  const double identity[6] = {0, 1, 0, 0, 0, 1};
  const int width = 1500;  // GeoTIFF makes strips of 2 rows of it
  const int height = 9;
  for (const bool partFirst : {false, true}) {
    const std::wstring path = MemoryPath();
    std::vector<double> expected(width * height, 0.0);
    CRasterSource created;
    ASSERT_TRUE(created.CreateRaster(kFormatGeoTiff, path, width, height, 2, PDT_UINT16, identity, L"", nullptr));
    CRasterBand& band = *created.GetRasterBand(1);
    ASSERT_EQ(band.GetBlockYSize(), 2);
    int next = 1;
    const auto write = [&](int left, int top, int columns, int rows, bool asDouble) {
      std::vector<std::uint16_t> values(static_cast<std::size_t>(columns * rows));
      for (auto& v : values) v = static_cast<std::uint16_t>(next++ % 60000);
      const std::vector<double> doubles(values.begin(), values.end());
      for (int y = 0; y < rows; ++y) {
        std::copy_n(doubles.begin() + y * columns, columns, expected.begin() + (top + y) * width + left);
      }
      const void* buffer = asDouble ? static_cast<const void*>(doubles.data()) : values.data();
      EXPECT_EQ(band.WriteBlock(left, top, columns, rows, buffer, columns, rows, asDouble ? PDT_FLOAT64 : PDT_UINT16),
                0);
    };
    if (partFirst) write(3, 0, 20, 5, false);
    write(0, 0, width, 4, false);
    write(0, 2, width, 4, false);
    write(0, 8, width, 1, false);
    write(0, 4, width, 2, true);
    write(0, 3, width, 2, false);
    write(10, 5, 30, 4, false);
    write(0, 4, width, 2, false);
    EXPECT_TRUE(created.Close());
    ASSERT_TRUE(m_source.OpenSimple(path));
    EXPECT_EQ(Read(*m_source.GetRasterBand(1), 0, 0, width, height), expected) << partFirst;
    EXPECT_EQ(Read(*m_source.GetRasterBand(0), 0, 0, width, height), std::vector<double>(width * height, 0.0));
  }
}

TEST_F(RasterBand, WholeRowsAreTheSameFromStripsOfEveryKind) {
  const auto value = [](int x, int y) { return (7 * x + 13 * y) % 251; };
  for (int type = PDT_UINT8; type <= PDT_FLOAT64; ++type) {
    for (const char* option : {"INTERLEAVE=BAND", "INTERLEAVE=PIXEL", "COMPRESS=LZW", "NBITS=12", "TILED=YES"}) {
      TestRaster raster = MakeRaster(40, 10, value);
      raster.bands.push_back(raster.bands[0]);
      raster.bands[0].assign(raster.bands[0].size(), 3.0);
      raster.type = static_cast<PixelDataType>(type);
      raster.options = {option, "BLOCKYSIZE=16", "ENDIANNESS=BIG"};
      if (std::string(option) != "TILED=YES") raster.options[1] = "BLOCKYSIZE=3";
      Open(raster);
      CRasterBand& band = *m_source.GetRasterBand(1);
      for (int top = 0; top < 10; ++top) {
        for (int rows = 1; top + rows <= 10; ++rows) {
          std::vector<double> expected;
          for (int i = 0; i < 40 * rows; ++i) expected.push_back(value(i % 40, top + i / 40));
          ASSERT_EQ(Read(band, 0, top, 40, rows), expected) << type << ' ' << option << ' ' << top << ' ' << rows;
        }
      }
    }
  }
}

/// The ends of a type's range and numbers between.
std::vector<double> ValuesOf(PixelDataType type) {
  return platform::DispatchPixelType(type, [](auto element) {
    using Limits = std::numeric_limits<decltype(element)>;
    return std::vector<double>{
        static_cast<double>(Limits::lowest()), static_cast<double>(Limits::max()), 0.0, 1.0, 7.0, 100.0};
  });
}

TEST_F(RasterBand, EveryTypeGoesThereAndBack) {
  for (int t = PDT_UINT8; t <= PDT_FLOAT64; ++t) {
    const auto type = static_cast<PixelDataType>(t);
    const std::wstring path = MemoryPath();
    const double identity[6] = {0, 1, 0, 0, 0, 1};
    CRasterSource created;
    ASSERT_TRUE(created.CreateRaster(kFormatGeoTiff, path, 3, 2, 1, type, identity, L"", nullptr));
    const std::vector<double> values = ValuesOf(type);
    EXPECT_EQ(created.GetRasterBand(0)->WriteBlock(0, 0, 3, 2, values.data(), 3, 2, PDT_FLOAT64), 0);
    EXPECT_TRUE(created.Close());
    CRasterSource read;
    ASSERT_TRUE(read.OpenSimple(path));
    EXPECT_EQ(read.GetRasterDataType(), type);
    EXPECT_EQ(read.GetRasterBand(0)->GetRasterDataType(), type);
    EXPECT_EQ(Read(*read.GetRasterBand(0), 0, 0, 3, 2), values) << "type " << t;
    read.Close();
    CRasterSource::DeleteFileW(path);
  }
}

TEST_F(RasterBand, BlockSizesAreTheFiles) {
  TestRaster tiled = Counting(100, 80);
  tiled.options = {"TILED=YES", "BLOCKXSIZE=32", "BLOCKYSIZE=16"};
  CRasterBand& band = Open(tiled);
  EXPECT_EQ(band.GetBlockXSize(), 32);
  EXPECT_EQ(band.GetBlockYSize(), 16);
  EXPECT_EQ(m_source.GetBlockXSize(), 32);
  EXPECT_EQ(m_source.GetBlockYSize(), 16);
}

TEST_F(RasterBand, NoDataIsTheDeclaredValueAlone) {
  CRasterBand& none = Open(Counting());
  EXPECT_FALSE(none.IsHaveNoData());
  EXPECT_EQ(none.GetNoDataValue(), 0.0);
  EXPECT_FALSE(none.IsNoData(0.0));
  EXPECT_FALSE(none.IsNoData(kNaN));

  TestRaster raster = Counting();
  raster.noData = 12.0;
  CRasterBand& declared = Open(raster);
  EXPECT_TRUE(declared.IsHaveNoData());
  EXPECT_EQ(declared.GetNoDataValue(), 12.0);
  EXPECT_TRUE(declared.IsNoData(12.0));
  EXPECT_FALSE(declared.IsNoData(12.5));
  EXPECT_FALSE(declared.IsNoData(kNaN));
}

TEST_F(RasterBand, NoDataNaNEqualsNaN) {
  TestRaster raster = Counting();
  raster.noData = kNaN;
  CRasterBand& band = Open(raster);
  EXPECT_TRUE(band.IsHaveNoData());
  EXPECT_TRUE(band.IsNoData(kNaN));
  EXPECT_FALSE(band.IsNoData(0.0));
}

TEST_F(RasterBand, NoDataOfAFloatBandComparesInFloat) {
  TestRaster raster = Counting();
  raster.type = PDT_FLOAT32;
  raster.noData = 0.1;
  CRasterBand& band = Open(raster);
  EXPECT_TRUE(band.IsNoData(0.1));
  EXPECT_TRUE(band.IsNoData(static_cast<double>(0.1F)));
  EXPECT_FALSE(band.IsNoData(0.1001));
  raster.type = PDT_FLOAT64;
  EXPECT_FALSE(Open(raster).IsNoData(static_cast<double>(0.1F)));
}

/// A raster of a GDAL type that has no counterpart, written by GDAL.
std::wstring WriteForeign(GDALDataType type, const std::vector<double>& pairs, const char* const* options = nullptr) {
  GDALAllRegister();
  const std::wstring path = MemoryPath();
  const std::unique_ptr<GDALDataset> file(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
      CommonFun::U2Utf8(path).c_str(), static_cast<int>(pairs.size() / 2), 1, 1, type, const_cast<char**>(options)));
  auto values = pairs;
  EXPECT_EQ(file->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, static_cast<int>(pairs.size() / 2), 1, values.data(),
                                             static_cast<int>(pairs.size() / 2), 1, GDT_CFloat64, 0, 0, nullptr),
            CE_None);
  return path;
}

TEST_F(RasterBand, ComplexSamplesAreReadByTheirRealPart) {
  const std::pair<GDALDataType, PixelDataType> types[] = {
      {GDT_CInt16, PDT_INT16}, {GDT_CInt32, PDT_INT32}, {GDT_CFloat32, PDT_FLOAT32}, {GDT_CFloat64, PDT_FLOAT64}};
  for (const auto& [type, expected] : types) {
    m_path = WriteForeign(type, {3.0, 4.0, -5.0, 6.0});
    ASSERT_TRUE(m_source.OpenSimple(m_path));
    EXPECT_EQ(m_source.GetRasterDataType(), expected);
    EXPECT_EQ(Read(*m_source.GetRasterBand(0), 0, 0, 2, 1), (std::vector<double>{3.0, -5.0}));
    m_source.Close();
    CRasterSource::DeleteFileW(m_path);
  }
}

TEST_F(RasterBand, SixtyFourBitIntegersAreReadAsDoubles) {
  m_path = WriteForeign(GDT_Int64, {1099511627777.0, 0.0, -3.0, 0.0});
  ASSERT_TRUE(m_source.OpenSimple(m_path));
  EXPECT_EQ(m_source.GetRasterDataType(), PDT_FLOAT64);
  EXPECT_EQ(Read(*m_source.GetRasterBand(0), 0, 0, 2, 1), (std::vector<double>{1099511627777.0, -3.0}));
}

TEST_F(RasterBand, SignedBytesKeepTheirSign) {
  const char* const options[] = {"PIXELTYPE=SIGNEDBYTE", nullptr};
  // 254 and 128 are the bytes of -2 and -128.
  m_path = WriteForeign(GDT_Byte, {1.0, 0.0, 254.0, 0.0, 128.0, 0.0}, options);
  ASSERT_TRUE(m_source.Open(m_path, GDA_UPDATE, false));
  CRasterBand& band = *m_source.GetRasterBand(0);
  EXPECT_EQ(band.GetRasterDataType(), PDT_INT16);
  EXPECT_EQ(Read(band, 0, 0, 3, 1), (std::vector<double>{1.0, -2.0, -128.0}));
  std::vector<float> spaced(5, 9.0F);
  ASSERT_EQ(band.ReadBlock(1, 0, 2, 1, spaced.data(), 2, 1, PDT_FLOAT32, 8, 0), 0);
  EXPECT_EQ(spaced, (std::vector<float>{-2.0F, 9.0F, -128.0F, 9.0F, 9.0F}));
  const double value = 1.0;
  EXPECT_NE(band.WriteBlock(0, 0, 1, 1, &value, 1, 1, PDT_FLOAT64), 0) << "read only";
}

TEST_F(RasterBand, BandsOfARasterAreCountedFromZero) {
  TestRaster raster = Counting();
  raster.bands.push_back(std::vector<double>(35, 8.0));
  Open(raster);
  EXPECT_EQ(m_source.GetBandCount(), 2);
  EXPECT_EQ(Read(*m_source.GetRasterBand(1), 0, 0, 1, 1), std::vector<double>{8.0});
  EXPECT_EQ(m_source.GetRasterBand(2), nullptr);
  EXPECT_EQ(m_source.GetRasterBand(-1), nullptr);
  m_source.Close();
  EXPECT_EQ(m_source.GetRasterBand(0), nullptr);
}

class TruncatedRasterBand : public RasterBand, public testing::WithParamInterface<const char*> {};

TEST_P(TruncatedRasterBand, FailsToReadCleanly) {
  TestRaster raster = MakeRaster(300, 200, [](int x, int y) { return (x * 7 + y * 13) % 251; });
  raster.type = PDT_UINT16;
  raster.options = {GetParam()};
  m_path = MemoryPath();
  ASSERT_TRUE(test_support::WriteRaster(raster, m_path));
  const std::string content = test_support::FileContent(m_path);
  VSILFILE* file = VSIFOpenL(CommonFun::U2Utf8(m_path).c_str(), "wb");
  ASSERT_TRUE(file);
  VSIFWriteL(content.data(), 1, content.size() * 6 / 10, file);
  VSIFCloseL(file);
  ASSERT_TRUE(m_source.OpenSimple(m_path));
  CRasterBand& band = *m_source.GetRasterBand(0);
  std::vector<double> values(300 * 200);
  EXPECT_NE(band.ReadBlock(0, 0, 300, 200, values.data(), 300, 200, PDT_FLOAT64), 0);
  double a = 1.0;
  double b = 1.0;
  double c = 1.0;
  double d = 1.0;
  EXPECT_FALSE(band.ComputeStatics(&a, &b, &c, &d, true, nullptr));
  EXPECT_EQ(a, 0.0);
  EXPECT_EQ(d, 0.0);
}

INSTANTIATE_TEST_SUITE_P(Strips, TruncatedRasterBand, testing::Values("COMPRESS=DEFLATE", "COMPRESS=NONE"));

}  // namespace

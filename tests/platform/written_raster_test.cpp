// What a file must give back of what was written into it.
#include "platform/raster/written_raster.h"

#include <gmock/gmock.h>

#include <cstring>

#include "platform/raster/raster_notes.h"
#include "platform/raster/raster_source.h"
#include "tests/support/command.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr double kGrid[6] = {1000.0, 2.0, 0.0, 5000.0, 0.0, -2.0};

class WrittenRasterTest : public testing::Test {
 protected:
  /// A raster of 5 x 4 pixels in two bands; the second band's rows come in an order of their own.
  void Write(const std::string& name, const std::vector<int>& secondRows, PixelDataType type = PDT_UINT16,
             const double* grid = kGrid) {
    m_written = std::make_shared<platform::WrittenRaster>(true);
    CRasterSource file;
    ASSERT_TRUE(file.CreateRaster(kFormatGeoTiff, m_folder.WidePath(name), 5, 4, 2, type, grid, L"",
                                  std::vector<std::string>{}));
    m_written->Begin(file);
    file.TellWritten(m_written);
    for (const int row : {0, 1, 2, 3}) WriteRow(file, 0, row);
    for (const int row : secondRows) WriteRow(file, 1, row);
    ASSERT_TRUE(file.Close());
  }
  static void WriteRow(CRasterSource& file, int band, int row) {
    std::vector<std::uint16_t> samples(5);
    for (int x = 0; x < 5; ++x) samples[static_cast<std::size_t>(x)] = Sample(band, row, x);
    EXPECT_EQ(file.GetRasterBand(band)->WriteBlock(0, row, 5, 1, samples.data(), 5, 1, PDT_UINT16), 0);
  }
  static std::uint16_t Sample(int band, int row, int x) {
    return static_cast<std::uint16_t>(1000 * band + 50 * row + x);
  }
  static std::string Expected(int band) {
    platform::Crc32c sum;
    for (int row = 0; row < 4; ++row) {
      for (int x = 0; x < 5; ++x) {
        const unsigned char bytes[] = {static_cast<unsigned char>(Sample(band, row, x) & 0xFF),
                                       static_cast<unsigned char>(Sample(band, row, x) >> 8)};
        sum.Add(bytes, 2);
      }
    }
    return sum.Text();
  }
  std::string DifferenceOf(const std::string& name) const {
    CRasterSource file;
    EXPECT_TRUE(file.OpenSimple(m_folder.WidePath(name)));
    return m_written->Difference(file);
  }

  test_support::TemporaryFolder m_folder;
  std::shared_ptr<platform::WrittenRaster> m_written;
};

TEST_F(WrittenRasterTest, TellsTheShareOfItsTypesLargestValue) {
  // Every third row has it, of the second band the rows behind those. Of fewer than 2048 rows all are looked at, of
  // 4000 every third one, whatever the blocks.
  const auto shareOf = [&](int height) {
    m_written = std::make_shared<platform::WrittenRaster>(false);
    CRasterSource file;
    EXPECT_TRUE(file.CreateRaster(kFormatGeoTiff, m_folder.WidePath("high.tif"), 2, height, 2, PDT_INT16, kGrid, L"",
                                  std::vector<std::string>{}));
    m_written->Begin(file);
    file.TellWritten(m_written);
    EXPECT_EQ(m_written->ShareOfLargest(), 0.0);
    for (int b = 0; b < 2; ++b) {
      for (int top = 0; top < height; top += 7) {
        const int rows = std::min(7, height - top);
        std::vector<std::int16_t> samples;
        for (int row = top; row < top + rows; ++row) samples.resize(samples.size() + 2, row % 3 == b ? 32767 : -32768);
        EXPECT_EQ(file.GetRasterBand(b)->WriteBlock(0, top, 2, rows, samples.data(), 2, rows, PDT_INT16), 0);
      }
    }
    return m_written->ShareOfLargest();
  };
  EXPECT_DOUBLE_EQ(shareOf(9), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(shareOf(2046), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(shareOf(4000), 0.5);
}

TEST_F(WrittenRasterTest, ChecksumsAreThoseOfTheRowsAndOfTheFile) {
  Write("a.tif", {0, 1, 2, 3});
  const std::vector<std::string> expected = {Expected(0), Expected(1)};
  EXPECT_EQ(m_written->Checksums(), expected);
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(m_folder.WidePath("a.tif")));
  const auto goesOn = [](void* who, int percent) {
    *static_cast<int*>(who) = percent;
    return true;
  };
  int percent = 0;
  EXPECT_EQ(platform::ChecksumsOf(file, goesOn, &percent), expected);
  EXPECT_EQ(percent, 100);
  EXPECT_THAT(platform::ChecksumsOf(
                  file, [](void*, int) { return false; }, nullptr),
              IsEmpty());
}

TEST_F(WrittenRasterTest, RowsInAnotherOrderAreTakenFromTheFile) {
  for (const std::vector<int>& rows : {std::vector<int>{1, 0, 2, 3}, {0, 1, 2}, {0, 1, 2, 3, 3}}) {
    Write("a.tif", rows);
    EXPECT_THAT(m_written->Checksums(), IsEmpty());
  }
}

TEST_F(WrittenRasterTest, AnotherFileIsToldApart) {
  Write("a.tif", {0, 1, 2, 3});
  EXPECT_EQ(DifferenceOf("a.tif"), "");
  const double moved[6] = {1000.0, 2.0, 0.0, 5000.5, 0.0, -2.0};
  const double hardly[6] = {1000.0000001, 2.0, 0.0, 5000.0, 0.0, -2.0000001};
  const auto original = m_written;
  Write("moved.tif", {0}, PDT_UINT16, moved);
  Write("hardly.tif", {0}, PDT_UINT16, hardly);
  Write("nowhere.tif", {0}, PDT_UINT16, nullptr);
  Write("type.tif", {0}, PDT_INT32);
  m_written = original;
  EXPECT_THAT(DifferenceOf("moved.tif"), HasSubstr("georeference"));
  EXPECT_EQ(DifferenceOf("hardly.tif"), "") << "far less than a pixel";
  EXPECT_THAT(DifferenceOf("nowhere.tif"), HasSubstr("reads as none"));
  EXPECT_THAT(DifferenceOf("type.tif"), HasSubstr("band 1 reads as another type"));
  {
    CRasterSource small;
    ASSERT_TRUE(small.CreateRaster(kFormatGeoTiff, m_folder.WidePath("small.tif"), 5, 3, 2, PDT_UINT16, kGrid, L"",
                                   std::vector<std::string>{}));
  }
  EXPECT_EQ(DifferenceOf("small.tif"), "it was made as 5x4 with 2 bands and reads as 5x3 with 2 bands");
}

TEST_F(WrittenRasterTest, SumsAreTakenWhereTheyAreGoingToBeAskedFor) {
  for (const bool sums : {true, false}) {
    const auto written = std::make_shared<platform::WrittenRaster>(sums);
    CRasterSource file;
    ASSERT_TRUE(file.CreateRaster(kFormatGeoTiff, m_folder.WidePath("a.tif"), 5, 4, 1, PDT_UINT8, kGrid, L"",
                                  std::vector<std::string>{}));
    file.TellWritten(written);
    const std::vector<unsigned char> values(20, 7);
    ASSERT_EQ(file.GetRasterBand(0)->WriteBlock(0, 0, 5, 4, values.data(), 5, 4, PDT_UINT8), 0);
    EXPECT_EQ(written->Checksums().empty(), !sums);
  }
}

TEST_F(WrittenRasterTest, ALostCoordinateSystemIsSeen) {
  const std::wstring metres = L"LOCAL_CS[\"plan\",UNIT[\"metre\",1]]";
  const auto make = [&](const std::string& name, const std::wstring& wkt) {
    CRasterSource file;
    EXPECT_TRUE(file.CreateRaster(kFormatGeoTiff, m_folder.WidePath(name), 5, 4, 1, PDT_UINT8, kGrid, wkt,
                                  std::vector<std::string>{}));
    m_written = std::make_shared<platform::WrittenRaster>(true);
    file.TellWritten(m_written);
  };
  make("without.tif", L"");
  make("with.tif", metres);
  EXPECT_EQ(DifferenceOf("with.tif"), "");
  EXPECT_EQ(DifferenceOf("without.tif"), "it has lost its coordinate system");
}

TEST_F(WrittenRasterTest, LateNotesGoIntoTheRoomThatWasKeptForThem) {
  platform::RasterNotes notes("OWN");
  notes.Set("EARLY", "a \"word\"");
  notes.Await("LATE", 64);
  notes.Await("NEVER", 40);
  const std::wstring path = m_folder.WidePath("notes.tif");
  {
    CRasterSource file;
    ASSERT_TRUE(file.CreateRaster(kFormatGeoTiff, path, 5, 4, 1, PDT_UINT8, kGrid, L"", std::vector<std::string>{}));
    notes.Apply(file);
    ASSERT_TRUE(file.Close());
  }
  const std::size_t size = test_support::FileBytes(m_folder.Path("notes.tif")).size();
  ASSERT_TRUE(notes.Complete(path, {{"LATE", "known now"}}));
  EXPECT_EQ(test_support::FileBytes(m_folder.Path("notes.tif")).size(), size);
  EXPECT_FALSE(m_folder.Has("notes.tif.aux.xml"));
  CRasterSource file;
  ASSERT_TRUE(file.OpenSimple(path));
  const auto read = platform::RasterNotes::Read(file, "OWN");
  EXPECT_EQ(read.at("EARLY"), "a \"word\"");
  EXPECT_EQ(read.at("LATE"), "known now");
  EXPECT_TRUE(!read.contains("NEVER") || read.at("NEVER").empty());
}

}  // namespace

// What a file says of its bands, and how it comes into another file.
#include "platform/raster/raster_description.h"

#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "tests/support/test_raster.h"

namespace {

using platform::RasterDescription;
using test_support::MemoryPath;

const double kTransform[6] = {440000.0, 10.0, 0.0, 4470000.0, 0.0, -10.0};
constexpr int kSize = 64;

/// A finished GeoTIFF of the memory file system.
class Created {
 public:
  explicit Created(int bands, PixelDataType type, const std::function<void(CRasterSource&)>& describe = {})
      : m_path(MemoryPath(L"tif")) {
    CRasterSource source;
    EXPECT_TRUE(source.CreateRaster(kFormatGeoTiff, m_path, kSize, kSize, bands, type, kTransform, L"", nullptr));
    if (describe) describe(source);
    const std::vector<double> values(static_cast<std::size_t>(kSize * kSize), 7.0);
    for (int b = 0; b < bands; ++b) {
      EXPECT_EQ(source.GetRasterBand(b)->WriteBlock(0, 0, kSize, kSize, values.data(), kSize, kSize, PDT_FLOAT64), 0);
    }
    EXPECT_TRUE(source.Close());
    m_file.reset(GDALDataset::Open(CommonFun::U2Utf8(m_path).c_str(), GDAL_OF_RASTER));
  }
  ~Created() {
    m_file.reset();
    CRasterSource::DeleteFileW(m_path);
  }
  Created(const Created&) = delete;
  Created& operator=(const Created&) = delete;

  GDALDataset& File() const { return *m_file; }
  GDALColorInterp Colour(int band) const { return m_file->GetRasterBand(band)->GetColorInterpretation(); }
  const std::wstring& Path() const { return m_path; }

  /// The first value of a tag of the first directory, read from the bytes; -1 where there is none.
  int Tag(unsigned wanted) const {
    vsi_l_offset length = 0;
    const GByte* bytes = VSIGetMemFileBuffer(CommonFun::U2Utf8(m_path).c_str(), &length, FALSE);
    const auto number = [&](std::size_t at, int size) {
      unsigned value = 0;
      for (int i = 0; i < size; ++i) value |= static_cast<unsigned>(bytes[at + static_cast<std::size_t>(i)]) << (8 * i);
      return value;
    };
    const std::size_t directory = number(4, 4);
    for (unsigned entry = 0; entry < number(directory, 2); ++entry) {
      const std::size_t at = directory + 2 + std::size_t{12} * entry;
      if (number(at, 2) == wanted) return static_cast<int>(number(at + 8, 2));
    }
    return -1;
  }

 private:
  std::wstring m_path;
  std::unique_ptr<GDALDataset> m_file;
};

constexpr unsigned kPhotometric = 262;
constexpr unsigned kExtraSamples = 338;
constexpr int kBlackIsZero = 1;
constexpr int kRgb = 2;

RasterDescription Colours(const std::vector<int>& colours) {
  RasterDescription description;
  for (const int colour : colours) description.bands.emplace_back().colour = colour;
  return description;
}

TEST(RasterDescription, AFourthBandOfBytesIsNoOpacity) {
  const Created plain(4, PDT_UINT8);
  EXPECT_EQ(plain.Colour(4), GCI_Undefined);
  EXPECT_EQ(plain.File().GetRasterBand(1)->GetMaskFlags(), GMF_ALL_VALID);
  EXPECT_EQ(plain.Tag(kPhotometric), kBlackIsZero);
  const Created coloured(4, PDT_UINT8, [](CRasterSource& source) {
    Colours({GCI_RedBand, GCI_GreenBand, GCI_BlueBand, GCI_Undefined}).Apply(source);
  });
  EXPECT_EQ(coloured.Colour(1), GCI_RedBand);
  EXPECT_EQ(coloured.Colour(4), GCI_Undefined);
  EXPECT_EQ(coloured.Tag(kPhotometric), kRgb);
  EXPECT_EQ(coloured.Tag(kExtraSamples), 0) << "neither kind of opacity";
}

TEST(RasterDescription, ColoursInAnotherOrderAreNoRgb) {
  for (const PixelDataType type : {PDT_UINT8, PDT_UINT16, PDT_FLOAT32}) {
    const Created file(4, type, [](CRasterSource& source) {
      Colours({GCI_BlueBand, GCI_GreenBand, GCI_RedBand, GCI_Undefined}).Apply(source);
    });
    EXPECT_EQ(file.Colour(1), GCI_BlueBand);
    EXPECT_EQ(file.Colour(3), GCI_RedBand);
    EXPECT_EQ(file.Colour(4), GCI_Undefined);
    EXPECT_EQ(file.Tag(kPhotometric), kBlackIsZero);
  }
}

TEST(RasterDescription, ColoursThatNobodyKnowsAreTheDrivers) {
  const Created file(3, PDT_UINT8, [](CRasterSource& source) { Colours({0, 0, 0}).Apply(source); });
  EXPECT_EQ(file.Tag(kPhotometric), kRgb);
}

TEST(RasterDescription, OpacityGreyAndStatisticsStayBehind) {
  const std::wstring path = MemoryPath(L"tif");
  {
    GDALAllRegister();
    const std::unique_ptr<GDALDataset> file(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        CommonFun::U2Utf8(path).c_str(), kSize, kSize, 4, GDT_UInt16, nullptr));
    file->GetRasterBand(1)->SetColorInterpretation(GCI_GrayIndex);
    file->GetRasterBand(4)->SetColorInterpretation(GCI_AlphaBand);
    GDALRasterBand& band = *file->GetRasterBand(2);
    band.SetDescription("green");
    band.SetScale(1.0);
    band.SetOffset(0.25);
    band.SetUnitType("K");
    for (const char* name : {"WAVELENGTH", "wavelength_units", "SENSOR", "radiance_mult", "Scale_Factor", "_FillValue",
                             "STATISTICS_MEAN", "valid_min", "LAYER_TYPE"}) {
      band.SetMetadataItem(name, "1");
    }
    for (const char* name : {"SENSOR", "TIFFTAG_XRESOLUTION", "TIFFTAG_ARTIST", "TIFFTAG_DATETIME", "NODATA_VALUES",
                             "Band_1", "Band_names"}) {
      file->SetMetadataItem(name, "1");
    }
  }
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(path));
  RasterDescription description(source, {3, 1, 0});
  source.Close();
  CRasterSource::DeleteFileW(path);
  const auto names = [](const platform::NamedFacts& facts) {
    std::vector<std::string> list;
    for (const auto& [name, value] : facts) list.push_back(name);
    return list;
  };
  using Names = std::vector<std::string>;
  ASSERT_EQ(description.bands.size(), 3U);
  EXPECT_EQ(description.bands[0].colour, GCI_Undefined) << "opacity";
  EXPECT_EQ(description.bands[2].colour, GCI_Undefined) << "grey";
  EXPECT_EQ(description.bands[1].name, "green");
  EXPECT_FALSE(description.bands[1].scale) << "a scale of 1 says nothing";
  EXPECT_EQ(description.bands[1].offset, 0.25);
  EXPECT_EQ(description.bands[1].unit, "K");
  EXPECT_EQ(names(description.bands[1].facts),
            (Names{"SENSOR", "Scale_Factor", "WAVELENGTH", "radiance_mult", "wavelength_units"}));
  EXPECT_EQ(names(description.facts), (Names{"Band_names", "SENSOR", "TIFFTAG_ARTIST"}));
  description.ForgetValues();
  EXPECT_FALSE(description.bands[1].offset);
  EXPECT_EQ(description.bands[1].unit, "");
  EXPECT_EQ(description.bands[1].name, "green");
  EXPECT_EQ(names(description.bands[1].facts), (Names{"SENSOR", "WAVELENGTH", "wavelength_units"}));
}

TEST(RasterDescription, BandsBeyondThoseOfTheRasterAreLeftOut) {
  const Created file(2, PDT_UINT16, [](CRasterSource& source) {
    RasterDescription description = Colours({GCI_RedBand, GCI_GreenBand, GCI_BlueBand});
    for (auto& band : description.bands) band.name = "b";
    description.Apply(source);
  });
  EXPECT_EQ(file.File().GetRasterCount(), 2);
  EXPECT_STREQ(file.File().GetRasterBand(2)->GetDescription(), "b");
}

}  // namespace

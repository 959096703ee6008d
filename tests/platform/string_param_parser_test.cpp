#include "platform/algorithm/string_param_parser.h"

#include <gdal.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

namespace {

TEST(ResampleNames, AreKnownInAnyCase) {
  EXPECT_EQ(CStringParamParser::GetResampleType(L"nearest"), RT_NEAREST);
  EXPECT_EQ(CStringParamParser::GetResampleType(L"Bilinear"), RT_BILINEAR);
  EXPECT_EQ(CStringParamParser::GetResampleType(L"BICUBIC"), RT_BICUBIC);
  EXPECT_EQ(CStringParamParser::GetResampleType(L"cubic"), RT_BICUBIC);
  EXPECT_EQ(CStringParamParser::GetResampleType(L"lanczos"), RT_NEAREST);
  EXPECT_EQ(CStringParamParser::GetResampleType(L""), RT_NEAREST);
}

TEST(TypeNames, AndTheirSynonymsAreKnownInAnyCase) {
  const std::map<std::wstring, int> names = {
      {L"uint8", 1}, {L"Byte", 1},   {L"UCHAR", 1},   {L"uint16", 2}, {L"ushort", 2},  {L"int16", 3},
      {L"short", 3}, {L"UInt32", 4}, {L"uint", 4},    {L"int32", 5},  {L"int", 5},     {L"Float32", 6},
      {L"float", 6}, {L"real", 6},   {L"float64", 7}, {L"Double", 7}, {L"complex", 0}, {L"", 0},
  };
  for (const auto& [name, index] : names) {
    EXPECT_EQ(CStringParamParser::OutDataTypeString2DataTypeIndex(name), index);
    EXPECT_EQ(CStringParamParser::GetOutDataType(index), static_cast<PixelDataType>(index));
  }
  EXPECT_EQ(CStringParamParser::GetOutDataType(8), PDT_UNKNOWN);
  EXPECT_EQ(CStringParamParser::GetOutDataType(-1), PDT_UNKNOWN);
}

TEST(FormatNames, FollowTheExtensionAndEndAsGeoTiff) {
  for (const wchar_t* extension : {L"tif", L"TIFF", L".tif", L"xyz", L"", L"hdr", L"."}) {
    EXPECT_EQ(CStringParamParser::GetOutDataFormat(extension), 20);
  }
  const std::map<std::wstring, std::string> drivers = {
      {L"img", "HFA"}, {L".IMG", "HFA"}, {L"dat", "ENVI"},  {L"envi", "ENVI"},       {L"bsq", "ENVI"},
      {L"png", "PNG"}, {L"jpg", "JPEG"}, {L"JPEG", "JPEG"}, {L"jp2", "JP2OpenJPEG"},
  };
  for (const auto& [extension, driver] : drivers) {
    GDALAllRegister();
    const RasterDataFormat number = CStringParamParser::GetOutDataFormat(extension);
    if (!GDALGetDriverByName(driver.c_str())) {
      EXPECT_EQ(number, 20);
      continue;
    }
    const platform::RasterFormat* format = platform::FindRasterFormat(number);
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(format->driver, driver);
  }
}

TEST(FormatTable, NumbersAreUniqueAndTheirDriversExist) {
  std::set<int> numbers;
  for (const platform::RasterFormat& format : platform::RasterFormats()) {
    EXPECT_TRUE(numbers.insert(format.number).second);
    EXPECT_GE(format.number, 20);
    EXPECT_NE(GDALGetDriverByName(format.driver), nullptr) << format.driver;
    EXPECT_EQ(platform::FindRasterFormat(format.number), &format);
    for (const std::wstring& extension : format.extensions) {
      EXPECT_EQ(CStringParamParser::GetOutDataFormat(extension), format.number);
    }
  }
  EXPECT_EQ(platform::FindRasterFormat(0), nullptr);
  EXPECT_EQ(platform::FindRasterFormat(99), nullptr);
  ASSERT_NE(platform::FindRasterFormat(20), nullptr);
  EXPECT_STREQ(platform::FindRasterFormat(20)->driver, "GTiff");
}

TEST(FormatTable, OnlyFormatsWithoutDirectCreationAreCopied) {
  for (const platform::RasterFormat& format : platform::RasterFormats()) {
    const char* create = GDALGetMetadataItem(GDALGetDriverByName(format.driver), GDAL_DCAP_CREATE, nullptr);
    EXPECT_EQ(format.copyOnly, create == nullptr) << format.driver;
  }
}

TEST(FormatNames, ExtensionsOfOtherKindsOfFilesAreForeign) {
  for (const wchar_t* foreign : {L"vrt", L"XYZ", L"shp", L"nc", L"ecw", L"json", L"pdf"}) {
    EXPECT_TRUE(platform::IsForeignExtension(foreign)) << foreign;
  }
  for (const wchar_t* own : {L"tif", L"TIFF", L"img", L"dat", L"png", L"jpg", L"", L"fused", L"2024"}) {
    EXPECT_FALSE(platform::IsForeignExtension(own)) << own;
  }
}

}  // namespace

// Samples in memory, read where they lie.
#include "platform/raster/memory_raster.h"

#include <cpl_vsi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace {

using platform::MemoryRaster;
using platform::MemorySamples;

constexpr int kWidth = 5;
constexpr int kHeight = 3;
constexpr int kBands = 2;

/// The place of a sample in a list, of steps between columns, rows and bands.
std::size_t PlaceOf(int column, int row, int band, int pixel, int line, int field) {
  const auto step = [](int count, int space) {
    return static_cast<std::size_t>(count) * static_cast<std::size_t>(space);
  };
  return step(column, pixel) + step(row, line) + step(band, field);
}

double ValueOf(int band, int row, int column) { return 100 * band + 10 * row + column; }

void ExpectValues(const MemoryRaster& raster, PixelDataType type) {
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(CommonFun::Utf82U(raster.Path())));
  EXPECT_EQ(source.GetWidth(), kWidth);
  EXPECT_EQ(source.GetHeight(), kHeight);
  ASSERT_EQ(source.GetBandCount(), kBands);
  EXPECT_EQ(source.GetRasterDataType(), type);
  for (int b = 0; b < kBands; ++b) {
    std::array<double, kWidth * kHeight> read{};
    ASSERT_EQ(source.GetRasterBand(b)->ReadBlock(0, 0, kWidth, kHeight, read.data(), kWidth, kHeight, PDT_FLOAT64), 0);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) EXPECT_EQ(read[PlaceOf(x, y, 0, 1, kWidth, 0)], ValueOf(b, y, x));
    }
  }
}

/// Samples of a type, so many elements apart.
template <typename Element>
struct Field {
  Field(PixelDataType type, int pixel, int line, int plane) : elements(PlaceOf(0, 0, kBands, pixel, line, plane) + 1) {
    for (int b = 0; b < kBands; ++b) {
      for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
          elements[PlaceOf(x, y, b, pixel, line, plane)] = static_cast<Element>(ValueOf(b, y, x));
        }
      }
    }
    samples = {.first = elements.data(),
               .type = type,
               .width = kWidth,
               .height = kHeight,
               .bands = kBands,
               .pixelSpace = pixel * static_cast<int>(sizeof(Element)),
               .lineSpace = line * static_cast<int>(sizeof(Element)),
               .bandSpace = plane * static_cast<int>(sizeof(Element))};
  }
  std::vector<Element> elements;
  MemorySamples samples;
};

TEST(MemoryRaster, IsAnImageOfEachType) {
  for (int t = PDT_UINT8; t <= PDT_FLOAT64; ++t) {
    const auto type = static_cast<PixelDataType>(t);
    platform::DispatchPixelType(type, [&](auto element) {
      const Field<decltype(element)> field(type, 1, kWidth, kWidth * kHeight);
      ExpectValues(MemoryRaster(field.samples, nullptr, ""), type);
      return 0;
    });
  }
}

TEST(MemoryRaster, ReadsSamplesThatLieApart) {
  // Bands of a pixel together; and every second sample of every third row.
  Field<std::int16_t> together(PDT_INT16, 3, 3 * kWidth, 3 * kWidth * kHeight);
  for (int b = 0; b < kBands; ++b) {
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        together.elements[PlaceOf(x, y, b, 3, 3 * kWidth, 1)] = static_cast<std::int16_t>(ValueOf(b, y, x));
      }
    }
  }
  together.samples.bandSpace = sizeof(std::int16_t);
  ExpectValues(MemoryRaster(together.samples, nullptr, ""), PDT_INT16);
  const Field<float> second(PDT_FLOAT32, 2, 6 * kWidth, 6 * kWidth * kHeight);
  ExpectValues(MemoryRaster(second.samples, nullptr, ""), PDT_FLOAT32);
}

TEST(MemoryRaster, ReadsTheBytesOfOtherMachines) {
  Field<std::uint16_t> field(PDT_UINT16, 1, kWidth, kWidth * kHeight);
  for (std::uint16_t& element : field.elements) element = static_cast<std::uint16_t>(element << 8U | element >> 8U);
  field.samples.swapped = true;
  ExpectValues(MemoryRaster(field.samples, nullptr, ""), PDT_UINT16);
}

TEST(MemoryRaster, CopiesNothing) {
  Field<std::uint8_t> field(PDT_UINT8, 1, kWidth, kWidth * kHeight);
  for (std::uint8_t& element : field.elements) element = 7;
  const MemoryRaster raster(field.samples, nullptr, "");
  for (int b = 0; b < kBands; ++b) {
    for (int i = 0; i < kWidth * kHeight; ++i) {
      field.elements[PlaceOf(i, 0, b, 1, 0, kWidth * kHeight)] =
          static_cast<std::uint8_t>(ValueOf(b, i / kWidth, i % kWidth));
    }
  }
  ExpectValues(raster, PDT_UINT8);
}

TEST(MemoryRaster, HasThePlaceAndTheNoDataValueThatItIsGiven) {
  const Field<std::uint8_t> field(PDT_UINT8, 1, kWidth, kWidth * kHeight);
  const double place[6] = {440000, 2.5, 0, 4470000, 0, -2.5};
  const MemoryRaster raster(field.samples, place, "EPSG:32630", 12.0);
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(CommonFun::Utf82U(raster.Path())));
  double read[6] = {};
  ASSERT_TRUE(source.GetGeoTransform(read));
  EXPECT_TRUE(source.HasGeoTransform());
  EXPECT_TRUE(std::equal(read, read + 6, place));
  EXPECT_NE(source.GetSpatialReferenceWKT().find(L"32630"), std::wstring::npos);
  for (int b = 0; b < kBands; ++b) {
    EXPECT_TRUE(source.GetRasterBand(b)->IsHaveNoData());
    EXPECT_EQ(source.GetRasterBand(b)->GetNoDataValue(), 12.0);
  }

  const MemoryRaster nowhere(field.samples, nullptr, "");
  ASSERT_TRUE(source.OpenSimple(CommonFun::Utf82U(nowhere.Path())));
  EXPECT_FALSE(source.HasGeoTransform());
  EXPECT_TRUE(source.GetSpatialReferenceWKT().empty());
  EXPECT_FALSE(source.GetRasterBand(0)->IsHaveNoData());
}

TEST(MemoryRaster, ItsNameGoesWithIt) {
  const Field<std::uint8_t> field(PDT_UINT8, 1, kWidth, kWidth * kHeight);
  std::string path;
  {
    const MemoryRaster raster(field.samples, nullptr, "");
    const MemoryRaster another(field.samples, nullptr, "");
    path = raster.Path();
    EXPECT_NE(path, another.Path());
  }
  CRasterSource source;
  EXPECT_FALSE(source.OpenSimple(CommonFun::Utf82U(path)));
  VSIStatBufL status;
  EXPECT_NE(VSIStatL(path.c_str(), &status), 0);
}

TEST(MemoryRaster, RefusesWhatIsNoImage) {
  const Field<std::uint8_t> field(PDT_UINT8, 1, kWidth, kWidth * kHeight);
  const auto refuses = [](const MemorySamples& samples, const std::string& system) {
    EXPECT_THROW(MemoryRaster(samples, nullptr, system), std::invalid_argument);
  };
  refuses(field.samples, "EPSG:1");
  // No file is looked into for a system.
  const std::string file = testing::TempDir() + "memory_raster_system.txt";
  const MemoryRaster placed(field.samples, nullptr, "EPSG:32630");
  CRasterSource source;
  ASSERT_TRUE(source.OpenSimple(CommonFun::Utf82U(placed.Path())));
  std::ofstream(file) << CommonFun::U2Utf8(source.GetSpatialReferenceWKT());
  refuses(field.samples, file);
  MemorySamples samples = field.samples;
  samples.first = nullptr;
  refuses(samples, "");
  samples = field.samples;
  samples.type = PDT_UNKNOWN;
  refuses(samples, "");
  samples = field.samples;
  samples.height = 0;
  refuses(samples, "");
  samples = field.samples;
  samples.lineSpace = -kWidth;
  refuses(samples, "");
  samples = field.samples;
  samples.pixelSpace = 0;
  refuses(samples, "");
  samples = field.samples;
  samples.lineSpace = std::int64_t{1} << 31;
  refuses(samples, "");
  std::remove(file.c_str());
}

}  // namespace

// Removing rasters together with their companions, and with nothing else.
#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace {

const std::string kFolder = "/vsimem/raster_files/";

class RasterFiles : public testing::Test {
 protected:
  void SetUp() override { GDALAllRegister(); }
  void TearDown() override { VSIRmdirRecursive(kFolder.c_str()); }

  static std::string In(const std::string& name) { return kFolder + name; }
  static std::wstring Wide(const std::string& name) { return CommonFun::Utf82U(In(name)); }
  static bool Exists(const std::string& name) {
    VSIStatBufL status;
    return VSIStatL(In(name).c_str(), &status) == 0;
  }
  static void Write(const std::string& name, const std::string& text) {
    VSILFILE* file = VSIFOpenL(In(name).c_str(), "wb");
    ASSERT_NE(file, nullptr);
    VSIFWriteL(text.data(), 1, text.size(), file);
    VSIFCloseL(file);
  }
  /// A raster of 64 x 64 pixels that all hold one value.
  static void MakeRaster(const std::string& name, int value, const char* driver = "GTiff",
                         const char* const* options = nullptr) {
    const std::unique_ptr<GDALDataset> raster(GetGDALDriverManager()->GetDriverByName(driver)->Create(
        In(name).c_str(), 64, 64, 1, GDT_Byte, const_cast<char**>(options)));
    ASSERT_NE(raster, nullptr);
    ASSERT_EQ(raster->GetRasterBand(1)->Fill(value), CE_None);
  }
  static void AddOverviews(const std::string& name) {
    const std::unique_ptr<GDALDataset> raster(GDALDataset::Open(In(name).c_str(), GDAL_OF_RASTER));
    ASSERT_NE(raster, nullptr);
    int level = 2;
    ASSERT_EQ(raster->BuildOverviews("AVERAGE", 1, &level, 0, nullptr, nullptr, nullptr), CE_None);
  }
  /// The value of the raster's first pixel, -1 when it does not open.
  static int ValueOf(const std::string& name) {
    const std::unique_ptr<GDALDataset> raster(GDALDataset::Open(In(name).c_str(), GDAL_OF_RASTER));
    unsigned char value = 0;
    if (!raster || raster->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 1, 1, &value, 1, 1, GDT_Byte, 0, 0) != CE_None) {
      return -1;
    }
    return value;
  }
};

TEST_F(RasterFiles, AnEnviHeaderGoesAlong) {
  MakeRaster("out.dat", 9, "ENVI");
  ASSERT_TRUE(Exists("out.hdr"));
  EXPECT_TRUE(CRasterSource::DeleteFileW(Wide("out.dat")));
  EXPECT_FALSE(Exists("out.dat"));
  EXPECT_FALSE(Exists("out.hdr"));
}

TEST_F(RasterFiles, MetadataThatOtherImagesShareStays) {
  // The GeoTIFF driver counts a Landsat scene's metadata file among the files of every band file beside it.
  Write("LC8_MTL.txt",
        "GROUP = L1_METADATA_FILE\n  GROUP = PRODUCT_METADATA\n    SPACECRAFT_ID = \"LANDSAT_8\"\n"
        "  END_GROUP = PRODUCT_METADATA\nEND_GROUP = L1_METADATA_FILE\nEND\n");
  MakeRaster("LC8_B8.TIF", 3);
  {
    const std::unique_ptr<GDALDataset> raster(GDALDataset::Open(In("LC8_B8.TIF").c_str(), GDAL_OF_RASTER));
    char** files = raster->GetFileList();
    const bool listed = CSLFindString(files, In("LC8_MTL.txt").c_str()) >= 0;
    CSLDestroy(files);
    ASSERT_TRUE(listed) << "the driver no longer lists it; this test says nothing";
  }
  EXPECT_TRUE(CRasterSource::DeleteFileW(Wide("LC8_B8.TIF")));
  EXPECT_FALSE(Exists("LC8_B8.TIF"));
  EXPECT_TRUE(Exists("LC8_MTL.txt"));
}

TEST_F(RasterFiles, SourcesOfAMosaicStay) {
  MakeRaster("source.tif", 3);
  {
    const std::unique_ptr<GDALDataset> source(GDALDataset::Open(In("source.tif").c_str(), GDAL_OF_RASTER));
    const std::unique_ptr<GDALDataset> mosaic(GetGDALDriverManager()->GetDriverByName("VRT")->CreateCopy(
        In("mosaic.vrt").c_str(), source.get(), FALSE, nullptr, nullptr, nullptr));
    ASSERT_NE(mosaic, nullptr);
  }
  EXPECT_TRUE(CRasterSource::DeleteFileW(Wide("mosaic.vrt")));
  EXPECT_FALSE(Exists("mosaic.vrt"));
  EXPECT_EQ(ValueOf("source.tif"), 3);
}

TEST_F(RasterFiles, DeletingNothingAndLeftoversSucceeds) {
  EXPECT_TRUE(CRasterSource::DeleteFileW(L""));
  EXPECT_TRUE(CRasterSource::DeleteFileW(Wide("missing.tif")));
  Write("empty.tif", "");
  EXPECT_TRUE(CRasterSource::DeleteFileW(Wide("empty.tif")));
  EXPECT_FALSE(Exists("empty.tif"));
}

}  // namespace

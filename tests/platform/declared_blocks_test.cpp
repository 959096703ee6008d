// Files that declare blocks which they cannot hold: GDAL would make room for one before it looks.
#include <cpl_string.h>
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <filesystem>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "tests/support/command.h"

namespace {

using testing::HasSubstr;

class DeclaredBlocks : public testing::Test {
 protected:
  /// A GeoTIFF of three rows whose blocks, one row of all bands each, are nowhere in it.
  std::wstring Write(const std::string& name, int width, int bands, const std::vector<std::string>& more = {}) const {
    GDALAllRegister();
    CPLStringList options;
    // Of options that stand there twice the first one counts.
    for (const std::string& option : more) options.AddString(option.c_str());
    for (const char* option : {"SPARSE_OK=TRUE", "INTERLEAVE=PIXEL", "BLOCKYSIZE=1"}) options.AddString(option);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    GDALClose(driver->Create(m_folder.Path(name).c_str(), width, 3, bands, GDT_UInt16, options.List()));
    return m_folder.WidePath(name);
  }
  static std::wstring FailureOf(const std::wstring& path) {
    CRasterSource file;
    return file.OpenSimple(path) ? L"" : file.GetOpenFailure();
  }

  test_support::TemporaryFolder m_folder;
};

TEST_F(DeclaredBlocks, FarBeyondTheFileAreRefusedWithBothSizes) {
  // 400000 samples of two bytes in 1000 bands.
  const std::wstring plain = Write("plain.tif", 400000, 1000);
  const auto said = CommonFun::U2Utf8(FailureOf(plain));
  EXPECT_THAT(said, HasSubstr("it declares blocks of 8e+08 bytes and has "));
  EXPECT_THAT(said, HasSubstr("it is damaged or cut off"));
  EXPECT_THAT(CommonFun::U2Utf8(FailureOf(Write("packed.tif", 400000, 1000, {"COMPRESS=DEFLATE"}))),
              HasSubstr("it declares blocks of 8e+08 bytes"));
}

TEST_F(DeclaredBlocks, ThatAFileMayHoldAreRead) {
  const std::wstring plain = Write("plain.tif", 400000, 1000);
  ASSERT_NE(FailureOf(plain), L"");
  // As long as one block, if it were there: nobody looks whether it is.
  std::filesystem::resize_file(CommonFun::ToPath(plain), 800000000);
  EXPECT_EQ(FailureOf(plain), L"");
  std::filesystem::resize_file(CommonFun::ToPath(plain), 799999999);
  EXPECT_NE(FailureOf(plain), L"");
  // Packed to one hundred-thousandth.
  const std::wstring packed = Write("packed.tif", 400000, 1000, {"COMPRESS=DEFLATE"});
  std::filesystem::resize_file(CommonFun::ToPath(packed), 8000);
  EXPECT_EQ(FailureOf(packed), L"");
}

TEST_F(DeclaredBlocks, OfNoGreatSizeAreNotLookedAt) {
  // 200 MB of nothing in a few kilobytes: a sparse file.
  EXPECT_EQ(FailureOf(Write("sparse.tif", 100000, 1000)), L"");
  // Of bands that lie apart each has blocks of its own.
  EXPECT_EQ(FailureOf(Write("apart.tif", 400000, 1000, {"INTERLEAVE=BAND"})), L"");
}

}  // namespace

// What the driver that writes the output is told.
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include "runs/methods.h"
#include "tests/apps/scene_command.h"

namespace {

using testing::HasSubstr;

class CreationOptions : public SceneCommand {
 protected:
  using File = std::unique_ptr<GDALDataset>;

  void SetUp() override {
    SceneCommand::SetUp();
    GDALAllRegister();
  }
  File Open(const std::string& name) const { return File(GDALDataset::Open(Path(name).c_str(), GDAL_OF_RASTER)); }
  static std::string Structure(GDALDataset& file, const char* item) {
    const char* value = file.GetMetadataItem(item, "IMAGE_STRUCTURE");
    return value ? value : "";
  }
  static std::vector<double> Samples(GDALDataset& file) {
    const int width = file.GetRasterXSize();
    const int height = file.GetRasterYSize();
    const int bands = file.GetRasterCount();
    std::vector<double> samples(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                static_cast<std::size_t>(bands));
    EXPECT_EQ(file.RasterIO(GF_Read, 0, 0, width, height, samples.data(), width, height, GDT_Float64, bands, nullptr, 0,
                            0, 0, nullptr),
              CE_None);
    return samples;
  }
};

TEST_F(CreationOptions, ReachTheOutputOfEveryMethodAndChangeNoSample) {
  for (const fusion::Method& method : fusion::Methods()) {
    SCOPED_TRACE(method.name);
    std::vector<std::string> options = {"--method", method.name, "--quiet", "--overwrite", "--no-overviews"};
    ASSERT_EQ(Fuse("plain.tif", options).status, 0);
    options.insert(options.end(), {"--co", "COMPRESS=DEFLATE", "--co", "TILED=YES", "--co", "INTERLEAVE=PIXEL"});
    const auto run = Fuse("packed.tif", options);
    ASSERT_EQ(run.status, 0) << run.err;
    const File plain = Open("plain.tif");
    const File packed = Open("packed.tif");
    ASSERT_TRUE(plain && packed);
    EXPECT_EQ(Structure(*plain, "COMPRESSION"), "");
    EXPECT_EQ(Structure(*packed, "COMPRESSION"), "DEFLATE");
    EXPECT_EQ(Structure(*packed, "INTERLEAVE"), "PIXEL");
    int blockWidth = 0;
    int blockHeight = 0;
    packed->GetRasterBand(1)->GetBlockSize(&blockWidth, &blockHeight);
    EXPECT_EQ(blockWidth, 256);
    EXPECT_EQ(Samples(*packed), Samples(*plain));
  }
}

TEST_F(CreationOptions, AreTheDriversOfTheFormat) {
  const auto run = Fuse("out.img", {"--method", "brovey", "--quiet", "--co", "COMPRESSED=YES"});
  ASSERT_EQ(run.status, 0) << run.err;
  const File file = Open("out.img");
  ASSERT_TRUE(file);
  const char* packed = file->GetRasterBand(1)->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
  ASSERT_TRUE(packed);
  EXPECT_STREQ(packed, "RLE");
}

TEST_F(CreationOptions, ThatTheDriverDoesNotKnowAreRefusedInItsWords) {
  struct Case {
    const char* option;
    const char* words;
  };
  for (const Case& c :
       {Case{"COMPRESSED=YES", "COMPRESSED"}, Case{"COMPRESS=NOTHING", "COMPRESS"},
        Case{"BLOCKXSIZE=wide", "BLOCKXSIZE"}, Case{"TILED", "NAME=VALUE"}, Case{"=YES", "NAME=VALUE"}}) {
    const auto run = Fuse("out.tif", {"--method", "brovey", "--quiet", "--co", c.option});
    EXPECT_EQ(run.status, 2) << c.option;
    EXPECT_THAT(run.err, HasSubstr("--co")) << c.option;
    EXPECT_THAT(run.err, HasSubstr(c.words)) << c.option;
    EXPECT_EQ(run.err.find(".."), std::string::npos) << run.err;
    EXPECT_FALSE(Open("out.tif")) << c.option;
  }
}

}  // namespace

// Where the command takes its two images to lie: on their georeferences, or on the same ground without any.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/apps/scene_command.h"
#include "tests/support/test_raster.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class CommonGround : public SceneCommand {
 protected:
  /// Writes an image without a georeference.
  void WritePlain(const reference::Image& image, const std::string& name) const {
    test_support::TestRaster raster;
    raster.width = image.width;
    raster.height = image.height;
    raster.bands = image.bands;
    raster.type = PDT_UINT16;
    ASSERT_TRUE(test_support::WriteRaster(raster, m_folder.WidePath(name)));
  }
};

TEST_F(CommonGround, ImagesWithoutGeoreferenceAreTakenAsTheSameGround) {
  // Wider than high.
  ASSERT_EQ(Run({"sample", Path(""), "--size", "64x32", "--overwrite", "--quiet"}).status, 0);
  ASSERT_EQ(Fuse("placed.tif", {"--method", "pca", "--quiet"}).status, 0);
  for (const std::string name : {"pan.tif", "ms.tif"}) WritePlain(Image(name), name);
  const auto run = Fuse("plain.tif", {"--method", "pca"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("(--same-extent)"));
  EXPECT_TRUE(Image("plain.tif").bands == Image("placed.tif").bands);
  EXPECT_THAT(Fuse("told.tif", {"--method", "pca", "--same-extent"}).err, Not(HasSubstr("--same-extent")));
}

TEST_F(CommonGround, OtherImagesAreNotTakenAsTheSameGround) {
  // One without a georeference alone lies far from the other.
  const auto ms = Image("ms.tif");
  WritePlain(ms, "plain.tif");
  const auto fuse = [&](const std::string& name, const std::vector<std::string>& more = {}) {
    std::vector<std::string> options = {"fuse", Path("pan.tif"), Path(name), Path("out.tif"), "--overwrite"};
    options.insert(options.end(), more.begin(), more.end());
    return Run(options);
  };
  const auto apart = fuse("plain.tif");
  EXPECT_EQ(apart.status, 1);
  EXPECT_THAT(apart.err, HasSubstr("error 0: "));
  EXPECT_EQ(fuse("plain.tif", {"--same-extent", "--quiet"}).status, 0);

  // The size of pan must be a whole multiple, in columns and in rows.
  WritePlain(Image("pan.tif"), "pan.tif");
  for (const bool columns : {true, false}) {
    reference::Image part = ms;
    (columns ? part.width : part.height) = 15;
    for (auto& band : part.bands) band.resize(15 * 16);
    WritePlain(part, "part.tif");
    const auto run = fuse("part.tif");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("overlaid on their pixel coordinates"));
    EXPECT_EQ(Image("out.tif").width, columns ? 15 : 16);
  }
}

TEST_F(CommonGround, AWindowIsCutToTheCommonGround) {
  // The multispectral image begins 20 pan pixels of half a metre to the right, 12 below.
  auto ms = Image("ms.tif");
  ms.geoTransform[0] += 10.0;
  ms.geoTransform[3] -= 6.0;
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  const auto run = Fuse("out.tif", {"--window", "10,5,30,33"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, HasSubstr("--window is cut to where both images have data: 20,12,20,26."));
  const auto out = Image("out.tif");
  EXPECT_EQ(out.width, 20);
  EXPECT_EQ(out.height, 26);
  EXPECT_DOUBLE_EQ(out.geoTransform[0], 440010.0);
  EXPECT_DOUBLE_EQ(out.geoTransform[3], 4474994.0);
}

TEST_F(CommonGround, TheKernelGoesByTheMultispectralPixelsInMetresWhateverTheirUnit) {
  // Two metres in degrees; the scene lies at 3.7073 west, 40.4235 north, and the image reaches 4 m over it.
  auto ms = Image("ms.tif");
  ms.width = ms.height = 20;
  for (auto& band : ms.bands) {
    for (std::size_t i = band.size(); i < 20 * 20; ++i) band.push_back(band[i - 256]);
  }
  const double degrees[6] = {-3.70734, 2.36e-5, 0.0, 40.42351, 0.0, -1.80e-5};
  std::copy_n(degrees, 6, ms.geoTransform);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16, test_support::Wgs84Wkt());
  const auto fused = [&](std::vector<std::string> options) {
    options.insert(options.begin(), {"--method", "hpf", "--no-overviews", "--overwrite", "--quiet"});
    const auto run = Fuse("out.tif", options);
    EXPECT_EQ(run.status, 0) << run.err;
    return Image("out.tif").bands;
  };
  const auto byDefault = fused({});
  EXPECT_TRUE(byDefault == fused({"--kernel-size", "9"})) << "a ratio of 4";
  EXPECT_FALSE(byDefault == fused({"--kernel-size", "5"}));
}

}  // namespace

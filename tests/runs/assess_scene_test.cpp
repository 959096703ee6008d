// What of a scene is assessed, and which scenes are refused.
#include "runs/assess_scene.h"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <functional>
#include <set>

#include "runs/assess_methods.h"
#include "runs/fuse.h"
#include "runs/notices.h"
#include "tests/support/run_scene.h"
#include "tests/support/test_raster.h"

namespace {

using fusion::AssessRequest;
using fusion::RunFailure;
using reference::Image;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class AssessSceneTest : public test_support::RunScene {
 protected:
  AssessRequest Assessing() const {
    AssessRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.methods = {"brovey"};
    return request;
  }
  /// Images of one value, of a size in multispectral pixels.
  AssessRequest Plain(int width, int height, int ratio) const {
    Image pan;
    Image ms;
    ms.width = width;
    ms.height = height;
    pan.width = width * ratio;
    pan.height = height * ratio;
    pan.geoTransform[1] = 1.0;
    ms.geoTransform[1] = ratio;
    ms.geoTransform[5] = -ratio;
    pan.bands.assign(
        1, std::vector<double>(static_cast<std::size_t>(pan.width) * static_cast<std::size_t>(pan.height), 7.0));
    ms.bands.assign(2, std::vector<double>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 7.0));
    test_support::WriteImage(pan, m_folder.WidePath("plain_pan.tif"), PDT_UINT8);
    test_support::WriteImage(ms, m_folder.WidePath("plain_ms.tif"), PDT_UINT8);
    AssessRequest request = Assessing();
    request.pan = m_folder.Path("plain_pan.tif");
    request.ms = m_folder.Path("plain_ms.tif");
    return request;
  }
  /// How an assessment fails.
  static RunFailure FailureOf(const AssessRequest& request) {
    try {
      fusion::Assess(request);
    } catch (const RunFailure& failure) {
      return failure;
    }
    ADD_FAILURE() << "no failure";
    return {RunFailure::Kind::kFailed, ""};
  }
  static std::string Refusal(const AssessRequest& request) {
    const RunFailure failure = FailureOf(request);
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kWrongUsage) << failure.what();
    return failure.Sentence();
  }
};

TEST_F(AssessSceneTest, LargeScenesAreAssessedOnPartsSpreadEvenly) {
  fusion::Notices notices(nullptr);
  // 3200 x 2100 pan pixels: four cells by three of 200 and 175 multispectral pixels.
  AssessRequest request = Plain(800, 525, 4);
  request.tiles = 16;
  const fusion::AssessScene whole(request, notices);
  ASSERT_EQ(whole.Tiles().size(), 12U);
  EXPECT_EQ(whole.Share(), 1.0);
  std::vector<int> covered(800 * 525, 0);
  for (const CRect& tile : whole.Tiles()) {
    // Each is a scene that the ratio divides.
    EXPECT_EQ(tile.Width() % 4, 0);
    EXPECT_EQ(tile.Height() % 4, 0);
    EXPECT_EQ(tile.left % 4, 0);
    EXPECT_EQ(tile.top % 4, 0);
    EXPECT_LE(tile.Width(), 256);
    EXPECT_LE(tile.Height(), 256);
    for (int y = tile.top; y < tile.bottom; ++y) {
      for (int x = tile.left; x < tile.right; ++x) ++covered[static_cast<std::size_t>(800 * y + x)];
    }
  }
  // All of it once, but for the last row, which makes no degraded pixel.
  EXPECT_EQ(std::count(covered.begin(), covered.end(), 1), 800 * 524);
  EXPECT_EQ(std::count(covered.begin(), covered.end(), 0), 800);

  request.tiles = 4;
  const fusion::AssessScene some(request, notices);
  ASSERT_EQ(some.Tiles().size(), 4U);
  std::set<std::pair<int, int>> corners;
  for (const CRect& tile : some.Tiles()) {
    corners.insert({tile.left, tile.top});
    EXPECT_THAT(whole.Tiles(), Contains(tile));
  }
  // Two of the columns 0, 200, 400, 600, and of the rows 0, 172, 348.
  EXPECT_THAT(corners, ElementsAre(std::pair(200, 0), std::pair(200, 348), std::pair(600, 0), std::pair(600, 348)));
  EXPECT_NEAR(some.Share(), 2.0 * 200.0 * (172.0 + 176.0) / (800.0 * 524.0), 1e-12);

  request.tiles = 1;
  const fusion::AssessScene one(request, notices);
  ASSERT_EQ(one.Tiles().size(), 1U);
  EXPECT_EQ(one.Tiles()[0], CRect(400, 172, 600, 348));
}

TEST_F(AssessSceneTest, ScenesOfUsualCropsAreAssessedWhole) {
  fusion::Notices notices(nullptr);
  const fusion::AssessScene scene(Plain(640, 300, 2), notices);
  EXPECT_THAT(scene.Tiles(), ElementsAre(CRect(0, 0, 640, 300)));
  EXPECT_EQ(scene.RatioX(), 2);
}

TEST_F(AssessSceneTest, OnlyTheCommonGroundIsAssessed) {
  fusion::Notices notices(nullptr);
  Image ms = Read("ms.tif");
  // The multispectral image begins 11 pan pixels east of pan: its last six columns, in part, lie beyond.
  ms.geoTransform[0] += 11.0;
  test_support::WriteImage(ms, m_folder.WidePath("moved.tif"), PDT_UINT16);
  AssessRequest request = Assessing();
  request.ms = m_folder.Path("moved.tif");
  request.protocol = "wald";
  request.keep = m_folder.Path("kept");
  EXPECT_THAT(fusion::AssessScene(request, notices).Tiles(), ElementsAre(CRect(0, 0, 16, 20)));
  const fusion::AssessReport report = fusion::Assess(request);
  EXPECT_THAT(report.failures, IsEmpty());
  EXPECT_TRUE(std::isfinite(report.tables[0].rows[0].values[0]));
  // The degraded pan image lies where the multispectral pixels do.
  EXPECT_EQ(Read("kept/wald_1/pan.tif").geoTransform[0], ms.geoTransform[0]);
}

TEST_F(AssessSceneTest, ImagesWithoutAGeoreferenceAreTakenAsCoveringTheSameGround) {
  for (const std::string name : {"pan", "ms"}) {
    const Image image = Read(name + ".tif");
    test_support::TestRaster plain;
    plain.width = image.width;
    plain.height = image.height;
    plain.bands = image.bands;
    plain.type = PDT_UINT16;
    ASSERT_TRUE(test_support::WriteRaster(plain, m_folder.WidePath("plain_" + name + ".tif")));
  }
  AssessRequest request = Assessing();
  const fusion::AssessReport placed = fusion::Assess(request);
  request.pan = m_folder.Path("plain_pan.tif");
  request.ms = m_folder.Path("plain_ms.tif");
  const fusion::AssessReport report = fusion::Assess(request);
  EXPECT_THAT(report.notices, Contains(HasSubstr("taken as covering the same ground")));
  for (std::size_t t = 0; t < 2; ++t) {
    for (std::size_t m = 0; m < report.tables[t].measures.size(); ++m) {
      EXPECT_NEAR(report.tables[t].rows[0].values[m], placed.tables[t].rows[0].values[m], 1e-6);
    }
  }
}

TEST_F(AssessSceneTest, ImagesOfDifferentSystemsAreAssessed) {
  // A scene in Spain, its multispectral image in degrees.
  Image pan = Read("pan.tif");
  pan.geoTransform[0] = 440000.0;
  pan.geoTransform[1] = 15.0;
  pan.geoTransform[3] = 4475000.0;
  pan.geoTransform[5] = -15.0;
  Image ms = Read("ms.tif");
  ms.geoTransform[0] = -3.7073;
  ms.geoTransform[1] = 0.00036;
  ms.geoTransform[3] = 40.4239;
  ms.geoTransform[5] = -0.00027;
  test_support::WriteImage(pan, m_folder.WidePath("utm.tif"), PDT_UINT16, test_support::UtmWkt());
  test_support::WriteImage(ms, m_folder.WidePath("degrees.tif"), PDT_UINT16, test_support::Wgs84Wkt());
  AssessRequest request = Assessing();
  request.pan = m_folder.Path("utm.tif");
  request.ms = m_folder.Path("degrees.tif");
  const fusion::AssessReport report = fusion::Assess(request);
  EXPECT_THAT(report.failures, IsEmpty());
  EXPECT_EQ(report.ratioX, 2);
  EXPECT_EQ(report.ratioY, 2);
  for (const auto& table : report.tables) {
    for (const auto& row : table.rows) EXPECT_TRUE(std::isfinite(row.values[0])) << table.protocol << row.method;
  }
}

TEST_F(AssessSceneTest, WhatCannotBeAssessedIsRefusedWithASentence) {
  const auto with = [&](const std::function<void(AssessRequest&)>& change) {
    AssessRequest request = Assessing();
    change(request);
    return Refusal(request);
  };
  EXPECT_EQ(with([](auto& r) { r.methods = {"beauty"}; }),
            "Unknown method 'beauty'; known are bayesian, brovey, multiplicative, weighted, ihs, pca, hpf and sharpen, "
            "or all.");
  EXPECT_EQ(with([](auto& r) { r.protocol = "half"; }), "--protocol is wald, full or both, not 'half'.");
  for (const std::vector<double>& gains : {std::vector{0.0}, {1.0}, {-0.5}, {0.3, 1.5}, {0.3, 0.2, 0.1}}) {
    EXPECT_EQ(with([&](auto& r) { r.mtf = gains; }),
              "--mtf is auto, G or G,P: gains that lie between 0 and 1, both excluded.");
  }
  EXPECT_EQ(with([](auto& r) { r.tiles = 0; }), "--tiles must be at least 1.");
  EXPECT_EQ(with([](auto& r) { r.bands = {1, 5}; }), "--bands 5: the multispectral image has bands 1 to 4.");
  EXPECT_EQ(with([](auto& r) { r.panBand = 2; }), "--pan-band 2: the pan image has bands 1 to 1.");
  EXPECT_EQ(with([](auto& r) { r.bands = {3}; }), "A fusion needs at least 2 multispectral bands.");
  EXPECT_EQ(with([](auto& r) { r.extra = {"other"}; }),
            "--extra names results in the folder of --keep; without it there are none.");
  EXPECT_THAT(with([&](auto& r) {
                r.keep = m_folder.Path("kept");
                r.extra = {"hpf"};
              }),
              HasSubstr("--extra hpf: a name of its own is needed"));
  EXPECT_THAT(with([](auto& r) { r.pan = r.ms; }), HasSubstr("not twice as large as pan's"));
  EXPECT_THAT(with([&](auto& r) { r.picture = m_folder.Path("picture.jpg"); }), HasSubstr("should end with .png"));
  EXPECT_THAT(m_folder.Names(), ElementsAre("ms.tif", "pan.tif"));
  EXPECT_EQ(Refusal(Plain(40, 15, 2)),
            "The images share 40 x 15 multispectral pixels; at least 16 x 16 are needed to assess anything.");
}

TEST_F(AssessSceneTest, ImagesThatCannotBeUsedAreFailures) {
  AssessRequest request = Assessing();
  request.ms = m_folder.Path("nix.tif");
  RunFailure failure = FailureOf(request);
  EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(failure.Type(), 4);
  EXPECT_EQ(failure.Sentence(), request.ms + " does not exist.");

  Image far = Read("ms.tif");
  far.geoTransform[0] += 1000.0;
  test_support::WriteImage(far, m_folder.WidePath("far.tif"), PDT_UINT16);
  request.ms = m_folder.Path("far.tif");
  failure = FailureOf(request);
  EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(failure.Type(), 0);

  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == platform::RasterOperation::kRead;
  });
  failure = FailureOf(Assessing());
  EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(failure.Type(), 2);
}

TEST_F(AssessSceneTest, WithoutDataOrDetailThereIsNoAdvice) {
  const fusion::AssessReport report = fusion::Assess(Plain(20, 20, 2));
  EXPECT_THAT(report.best, IsEmpty());
  EXPECT_EQ(report.advice, "No method could be measured: too little of the scene has data and detail in both images.");
}

}  // namespace

// What a check reads, and how it ends.
#include <gmock/gmock.h>

#include <string>

#include "runs/check.h"
#include "tests/runs/check_request.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"
#include "tests/support/seen_scene.h"

namespace {

using fusion::CheckReport;
using fusion::CheckRequest;
using test_support::Request;
using test_support::SeenScene;
using testing::HasSubstr;

TEST(CheckRun, LooksAtPartsOfALargeScene) {
  // A ramp down the image: strips that are spread evenly have its mean.
  const test_support::TemporaryFolder folder;
  constexpr int kWidth = 2000;
  constexpr int kHeight = 1200;
  const auto ramp = [&](const std::string& name, int ratio) {
    reference::Image image;
    image.width = kWidth * ratio;
    image.height = kHeight * ratio;
    image.geoTransform[1] = 2.0 / ratio;
    image.geoTransform[5] = -2.0 / ratio;
    image.bands.assign(1, {});
    for (auto& band : image.bands) {
      for (int y = 0; y < image.height; ++y) {
        const int value = y / ratio;
        band.insert(band.end(), static_cast<std::size_t>(image.width), value);
      }
    }
    test_support::WriteImage(image, folder.WidePath(name), PDT_UINT16);
    return folder.Path(name);
  };
  CheckRequest request;
  request.pan = ramp("pan.tif", 2);
  request.ms = ramp("ms.tif", 1);
  const CheckReport report = fusion::Check(request);
  EXPECT_GT(report.share, 0.3);
  EXPECT_LT(report.share, 0.6);
  // The last of the strips that are looked at may be cut.
  EXPECT_NEAR(report.bands[0].mean, 599.5, 16.0);
  EXPECT_NEAR(report.panBand->mean, 599.5, 16.0);
  EXPECT_NEAR(report.bands[0].panRatio, 1.0, 1e-6);
  EXPECT_LT(report.bands[0].minimum, 40.0);
  EXPECT_GT(report.bands[0].maximum, 1160.0);
}

TEST(CheckRun, ThreadsSeeTheSame) {
  const SeenScene scene(120, {.moveX = 1.0});
  CheckRequest request = Request(scene.panFile, scene.msFile);
  request.threads = "1";
  const CheckReport one = fusion::Check(request);
  request.threads = "3";
  const CheckReport three = fusion::Check(request);
  EXPECT_EQ(one.shift->dx, three.shift->dx);
  EXPECT_EQ(one.shift->score, three.shift->score);
  EXPECT_EQ(one.mixCorrelation, three.mixCorrelation);
  EXPECT_EQ(one.panBand->stdDev, three.panBand->stdDev);
}

TEST(CheckRun, EndsWhereItsWatcherWantsThat) {
  class Impatient : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { m_stage = stage.identity.name; }
    bool WantsCancel() override { return true; }
    std::string m_stage;
  };
  const SeenScene scene(130, {});
  Impatient watcher;
  try {
    fusion::Check(Request(scene.panFile, scene.msFile), &watcher);
    ADD_FAILURE() << "went on";
  } catch (const fusion::RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kCancelled);
  }
  EXPECT_EQ(watcher.m_stage, "check");
}

TEST(CheckRun, RefusesWhatCannotBeLookedAt) {
  const SeenScene scene(140, {});
  const auto sentence = [](const CheckRequest& request) {
    try {
      fusion::Check(request);
    } catch (const fusion::RunFailure& failure) {
      return failure.Sentence();
    }
    return std::string();
  };
  CheckRequest request = Request(scene.panFile, scene.msFile);
  request.panBand = 2;
  EXPECT_THAT(sentence(request), HasSubstr("--pan-band 2"));
  request.panBand = 1;
  request.bands = {4};
  EXPECT_THAT(sentence(request), HasSubstr("--bands 4"));
  EXPECT_THAT(sentence(Request(L"/vsimem/nowhere.tif", scene.msFile)), HasSubstr("does not exist"));
}

}  // namespace

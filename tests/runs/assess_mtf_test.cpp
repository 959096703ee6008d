// What an assessment takes the sensors' filters to be.
#include "runs/assess_mtf.h"

#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <functional>

#include "runs/assess.h"
#include "runs/assess_scene.h"
#include "runs/notices.h"
#include "runs/options.h"
#include "runs/sample.h"
#include "tests/support/command.h"
#include "tests/support/numbers.h"
#include "tests/support/scene.h"

namespace {

using fusion::AssessReport;
using fusion::AssessRequest;
using reference::Image;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using test_support::kPi;

/// The deviation of a Gaussian, in pixels, that keeps a share of a pattern with a period of two of them.
double DeviationOf(double gain) { return std::sqrt(-2.0 * std::log(gain)) / kPi; }

// A made-up scene's sensors: the bands keep 0.3 of the finest pattern of their pixels, pan's lens has a deviation of
// 0.7 of its pixels. What is between them is known from that.
double KnownWidth(double ratio) { return std::sqrt(1.0 - std::pow(0.7 / (ratio * DeviationOf(0.3)), 2)); }
double KnownGain(double ratio) { return 0.3 / std::exp(-std::pow(kPi * 0.7 / ratio, 2) / 2.0); }

/// Half of the step in which widths are looked at.
constexpr double kWidthTolerance = 0.05;

class AssessMtf : public testing::Test {
 protected:
  AssessRequest Scene(int ratio, std::vector<double> shift = {}, unsigned seed = 3) const {
    fusion::SampleRequest sample;
    sample.folder = m_folder.Path("scene");
    sample.width = sample.height = 480;
    sample.ratio = ratio;
    sample.seed = seed;
    sample.shift = std::move(shift);
    sample.overwrite = true;
    fusion::MakeSample(sample);
    AssessRequest request;
    request.pan = m_folder.Path("scene/pan.tif");
    request.ms = m_folder.Path("scene/ms.tif");
    request.methods = {"brovey"};
    request.protocol = "wald";
    return request;
  }
  static fusion::SceneBlur BlurOf(const AssessRequest& request) {
    fusion::Notices notices(nullptr);
    fusion::AssessScene scene(request, notices);
    return fusion::MeasureBlur(scene, [] {});
  }
  /// The scene with another multispectral image.
  AssessRequest With(AssessRequest request, const std::function<void(Image&)>& change) const {
    Image ms = test_support::ReadImage(m_folder.WidePath("scene/ms.tif"));
    change(ms);
    test_support::WriteImage(ms, m_folder.WidePath("changed.tif"), PDT_FLOAT64);
    request.ms = m_folder.Path("changed.tif");
    return request;
  }
  /// The report of a scene whose images do not tell.
  AssessReport Untold(const AssessRequest& request, const std::string& reason) const {
    AssessReport report = fusion::Assess(request);
    EXPECT_EQ(report.mtfSource, "published");
    EXPECT_EQ(report.mtf, 0.3);
    EXPECT_EQ(report.fullMtf, 0.3);
    EXPECT_EQ(report.panMtf, 0.15);
    EXPECT_THAT(report.notices, ElementsAre(HasSubstr("cannot be told from the images: " + reason + ".")));
    return report;
  }

  test_support::TemporaryFolder m_folder;
};

TEST_F(AssessMtf, TheBlurOfKnownSensorsIsFound) {
  for (const int ratio : {2, 3, 4}) {
    const AssessReport report = fusion::Assess(Scene(ratio));
    SCOPED_TRACE(ratio);
    ASSERT_TRUE(report.blur);
    EXPECT_NEAR(report.blur->width, KnownWidth(ratio), kWidthTolerance);
    EXPECT_LT(report.blur->apart, kWidthTolerance);
    EXPECT_GT(report.blur->score, 0.9);
    EXPECT_EQ(report.mtfSource, "estimated");
    EXPECT_THAT(report.notices, IsEmpty());
    // A width w stands for 0.3 to the power of its square.
    const double least = std::pow(0.3, std::pow(KnownWidth(ratio) + kWidthTolerance, 2));
    const double most = std::pow(0.3, std::pow(KnownWidth(ratio) - kWidthTolerance, 2));
    EXPECT_NEAR(std::pow(0.3, std::pow(KnownWidth(ratio), 2)), KnownGain(ratio), 1e-12);
    EXPECT_GT(report.fullMtf, least);
    EXPECT_LT(report.fullMtf, most);
  }
}

TEST_F(AssessMtf, TheDegradedPairHasTheBlurOfTheScene) {
  for (const int ratio : {2, 4}) {
    AssessRequest request = Scene(ratio);
    request.keep = m_folder.Path("kept");
    request.overwrite = true;
    const auto degraded = [&] {
      fusion::Assess(request);
      AssessRequest pair;
      pair.pan = m_folder.Path("kept/wald_1/pan.tif");
      pair.ms = m_folder.Path("kept/wald_1/ms.tif");
      return BlurOf(pair).width;
    };
    EXPECT_NEAR(degraded(), BlurOf(request).width, kWidthTolerance) << ratio;
    if (ratio != 2) continue;
    // With published gains the variances beyond pan's add up to another blur, in squares of the scene's pan pixels.
    request.mtf = {0.3, 0.15};
    const double scene = std::pow(KnownWidth(2) * 2.0 * DeviationOf(0.3), 2);
    const double pair = (scene + std::pow(4.0 * DeviationOf(0.3), 2) - std::pow(2.0 * DeviationOf(0.15), 2)) / 4.0;
    const double other = std::sqrt(pair) / (2.0 * DeviationOf(0.3));
    EXPECT_GT(other, KnownWidth(2) + 2.0 * kWidthTolerance);
    EXPECT_NEAR(degraded(), other, kWidthTolerance);
  }
}

TEST_F(AssessMtf, TheGainKeepsTheBlurWhateverThePanFilter) {
  for (const double ratio : {2.0, 4.0}) {
    for (const double width : {0.6, 1.0, 1.4}) {
      for (const double panGain : {0.1, 0.3}) {
        const double beyond = std::pow(width * ratio * DeviationOf(0.3), 2);
        const double bands = std::pow(ratio * ratio * DeviationOf(fusion::GainThatKeeps(width, ratio, panGain)), 2);
        const double pan = std::pow(ratio * DeviationOf(panGain), 2);
        EXPECT_NEAR((beyond + bands - pan) / (ratio * ratio), beyond, 1e-12);
      }
    }
  }
  EXPECT_NEAR(fusion::GainBeyondPan(1.0), 0.3, 1e-15);
  EXPECT_NEAR(fusion::GainBeyondPan(0.5), std::pow(0.3, 0.25), 1e-15);
}

TEST_F(AssessMtf, ImagesBesideEachOtherAreNotTakenForBlurred) {
  const AssessRequest request = Scene(4, {2.0, -1.5});
  EXPECT_NEAR(BlurOf(request).width, KnownWidth(4), kWidthTolerance);
}

TEST_F(AssessMtf, WhatIsGivenIsTaken) {
  AssessRequest request = Scene(4);
  request.mtf = {0.25};
  AssessReport report = fusion::Assess(request);
  EXPECT_EQ(report.mtfSource, "given");
  EXPECT_FALSE(report.blur);
  EXPECT_EQ(report.mtf, 0.25);
  EXPECT_EQ(report.fullMtf, 0.25);
  EXPECT_EQ(report.panMtf, 0.15);
  fusion::SetOption(request, "mtf", "0.2,0.4");
  report = fusion::Assess(request);
  EXPECT_EQ(report.mtf, 0.2);
  EXPECT_EQ(report.panMtf, 0.4);
  fusion::SetOption(request, "mtf", "auto");
  EXPECT_THAT(request.mtf, IsEmpty());
}

TEST_F(AssessMtf, TooFewPixelsDoNotTell) {
  // 22 x 44 of either half have all neighbours; with a fifth of the columns missing, fewer than 500 are left.
  AssessRequest request = With(Scene(10), [](Image& ms) {
    for (auto& band : ms.bands) {
      for (std::size_t i = 0; i < band.size(); ++i) {
        if (i % 48 % 5 == 0) band[i] = std::nan("");
      }
    }
  });
  Untold(request, "too few pixels have data");
}

TEST_F(AssessMtf, PanOfAnotherGroundDoesNotTell) {
  AssessRequest request = With(Scene(4, {}, 4), [](Image&) {});
  request.pan = Scene(4, {}, 5).pan;
  const AssessReport report = Untold(request, "pan's detail is not mostly that of the bands");
  ASSERT_TRUE(report.blur);
  EXPECT_LT(report.blur->score, 0.5);
}

TEST_F(AssessMtf, PlainMeansAreNoLens) {
  const AssessRequest request = Scene(4);
  const Image pan = test_support::ReadImage(m_folder.WidePath("scene/pan.tif"));
  Untold(With(request,
              [&](Image& ms) {
                for (std::size_t b = 0; b < ms.bands.size(); ++b) {
                  for (std::size_t i = 0; i < ms.bands[b].size(); ++i) {
                    double sum = 0.0;
                    for (std::size_t k = 0; k < 16; ++k) {
                      sum += pan.bands[0][(i / 120 * 4 + k / 4) * 480 + i % 120 * 4 + k % 4];
                    }
                    ms.bands[b][i] = sum / 16.0 * (1.0 + static_cast<double>(b));
                  }
                }
              }),
         "the blur between pan and bands is not that of a lens");
}

TEST_F(AssessMtf, HalvesThatDisagreeDoNotTell) {
  // Weights of 1, 6 and 1 along both axes leave half of the finest pattern: the width there is far above 0.93.
  const AssessRequest request = With(Scene(4), [](Image& ms) {
    for (auto& band : ms.bands) {
      for (const std::size_t step : {std::size_t{1}, std::size_t{120}}) {
        const std::vector<double> before = band;
        for (std::size_t i = 120; i + 120 < band.size(); ++i) {
          if (i % 120 > 60) band[i] = (before[i - step] + 6.0 * before[i] + before[i + step]) / 8.0;
        }
      }
    }
  });
  const AssessReport report = Untold(request, "the halves of the scene disagree");
  EXPECT_GT(report.blur->apart, 0.2);
}

TEST_F(AssessMtf, TheSearchEndsWhereItsWatcherWantsThat) {
  class Patient : public fusion::RunObserver {
   public:
    explicit Patient(int patience) : m_patience(patience) {}
    void StageBegins(const fusion::RunStage& stage) override { begun = stage.identity.name; }
    bool WantsCancel() override { return begun.empty() && ++asked > m_patience; }

    std::string begun;
    int asked = 0;  ///< before the first method

   private:
    int m_patience;
  };
  const AssessRequest request = Scene(4);
  Patient whole(1 << 30);
  fusion::Assess(request, &whole);
  EXPECT_EQ(whole.begun, "assess");
  // Tiles are read, and then dozens of places looked at, of each half.
  EXPECT_GT(whole.asked, 100);
  Patient half(whole.asked / 2);
  try {
    fusion::Assess(request, &half);
    ADD_FAILURE() << "went on";
  } catch (const fusion::RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kCancelled);
  }
  EXPECT_EQ(half.asked, whole.asked / 2 + 1);
  EXPECT_EQ(half.begun, "");
}

}  // namespace

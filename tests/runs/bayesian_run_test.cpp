// The Bayesian run: what it finds out about its images, what it tells of it, and what it does with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "runs/fuse.h"
#include "runs/run_failure.h"
#include "runs/sample.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BayesianRun : public testing::Test {
 protected:
  void Make(std::vector<double> shift) {
    fusion::SampleRequest sample;
    sample.folder = m_folder.Path("scene");
    sample.width = sample.height = 360;
    sample.shift = std::move(shift);
    sample.overwrite = true;
    ASSERT_NO_THROW(fusion::MakeSample(sample));
    m_request.pan = m_folder.Path("scene/pan.tif");
    m_request.ms = m_folder.Path("scene/ms.tif");
    m_request.out = m_folder.Path("out.tif");
    m_request.type = "float32";
    m_request.overwrite = true;
  }
  fusion::FuseReport Fuse(const std::string& registration) {
    m_request.registration = registration;
    return fusion::Fuse(m_request);
  }
  reference::Image Out() const { return test_support::ReadImage(m_folder.WidePath("out.tif")); }

  test_support::TemporaryFolder m_folder;
  fusion::FuseRequest m_request;
};

TEST_F(BayesianRun, MovesTheMultispectralImageOntoPanAndSaysSo) {
  // The bands' picture lies 2 pan pixels to the right of its place and one and a quarter above it.
  Make({2.0, -1.25});
  const fusion::FuseReport moved = Fuse("auto");
  ASSERT_TRUE(moved.registration);
  EXPECT_TRUE(moved.registration->applied);
  EXPECT_NEAR(moved.registration->dx, -2.0, 0.2);
  EXPECT_NEAR(moved.registration->dy, 1.25, 0.2);
  EXPECT_GE(moved.registration->agreement, 0.75);
  EXPECT_GT(moved.registration->score, 0.5);
  ASSERT_EQ(moved.notices.size(), 1U);
  EXPECT_THAT(moved.notices[0], HasSubstr("is moved"));
  EXPECT_THAT(moved.notices[0], HasSubstr("to the left and"));
  EXPECT_THAT(moved.notices[0], HasSubstr("down"));
  EXPECT_THAT(moved.notices[0], HasSubstr("--registration off"));
  EXPECT_EQ(moved.width, 360);
  EXPECT_EQ(moved.height, 360);
  const auto registered = Out();

  const fusion::FuseReport told = Fuse("report");
  EXPECT_FALSE(told.registration->applied);
  EXPECT_EQ(told.registration->dx, moved.registration->dx);
  EXPECT_EQ(told.registration->dy, moved.registration->dy);
  EXPECT_LT(told.registration->score, moved.registration->score);
  ASSERT_EQ(told.notices.size(), 1U);
  EXPECT_THAT(told.notices[0], HasSubstr("--registration auto"));
  const auto asItLies = Out();
  EXPECT_NE(asItLies.bands, registered.bands);

  const fusion::FuseReport off = Fuse("off");
  EXPECT_FALSE(off.registration);
  EXPECT_THAT(off.notices, IsEmpty());
  EXPECT_EQ(Out().bands, asItLies.bands);

  const auto truth = test_support::ReadImage(m_folder.WidePath("scene/truth.tif"));
  const auto error = [&](const reference::Image& image) {
    double sum = 0.0;
    for (int y = 16; y < 344; ++y) {
      for (int x = 16; x < 344; ++x) {
        const auto i = static_cast<std::size_t>(y * 360 + x);
        sum += std::pow(image.bands[0][i] - truth.bands[0][i], 2);
      }
    }
    return std::sqrt(sum);
  };
  EXPECT_LT(error(registered), 0.8 * error(asItLies));
}

TEST_F(BayesianRun, AnImageInItsPlaceStaysThere) {
  Make({});
  const fusion::FuseReport report = Fuse("auto");
  ASSERT_TRUE(report.registration);
  EXPECT_FALSE(report.registration->applied);
  EXPECT_EQ(report.registration->dx, 0.0);
  EXPECT_EQ(report.registration->dy, 0.0);
  EXPECT_THAT(report.notices, IsEmpty());
  ASSERT_TRUE(report.model);
  EXPECT_EQ(report.model->shape, "gaussian");
  EXPECT_GT(report.model->blur, 0.7);
  EXPECT_LT(report.model->blur, 1.2);
  EXPECT_GE(report.model->restoring, 1.0);
  EXPECT_EQ(report.model->gains.size(), 4U);
  EXPECT_EQ(report.model->samples, 84 * 84);
  const auto automatic = Out();
  Fuse("off");
  EXPECT_EQ(Out().bands, automatic.bands);
}

TEST_F(BayesianRun, AWindowOfAMovedSceneIsACrop) {
  Make({1.5, 1.0});
  m_request.type = "float64";
  ASSERT_TRUE(Fuse("auto").registration->applied);
  const auto whole = Out();
  for (const std::vector<int>& window :
       {std::vector<int>{0, 0, 90, 70}, std::vector<int>{100, 130, 80, 110}, std::vector<int>{260, 270, 100, 90}}) {
    m_request.window = window;
    EXPECT_TRUE(Fuse("auto").registration->applied);
    const auto part = Out();
    ASSERT_EQ(part.width, window[2]);
    for (std::size_t b = 0; b < part.bands.size(); ++b) {
      for (int y = 0; y < part.height; ++y) {
        for (int x = 0; x < part.width; ++x) {
          ASSERT_EQ(part.bands[b][static_cast<std::size_t>(y * part.width + x)],
                    whole.bands[b][static_cast<std::size_t>((y + window[1]) * 360 + x + window[0])])
              << x << ", " << y;
        }
      }
    }
  }
}

TEST_F(BayesianRun, AWindowWithStatisticsOfItsOwnIsEstimatedFromItself) {
  Make({});
  m_request.window = {40, 40, 160, 160};
  const auto scene = Fuse("off");
  m_request.statistics = "window";
  const auto window = Fuse("off");
  EXPECT_LT(window.model->samples, scene.model->samples);
  EXPECT_GE(window.model->samples, 34 * 34);
  EXPECT_NE(window.model->gains, scene.model->gains);
}

TEST_F(BayesianRun, TheWeightGoesFromPlainUpsamplingBeyondTheEstimate) {
  Make({});
  const auto fused = [&](double weight) {
    m_request.bayesWeight = weight;
    Fuse("off");
    return Out().bands;
  };
  const auto plain = fused(0.0);
  const auto whole = fused(0.5);
  const auto half = fused(0.25);
  const auto twice = fused(1.0);
  for (std::size_t i = 0; i < plain[1].size(); i += 37) {
    const double step = whole[1][i] - plain[1][i];
    EXPECT_NEAR(half[1][i], plain[1][i] + 0.5 * step, 0.02);
    EXPECT_NEAR(twice[1][i], plain[1][i] + 2.0 * step, 0.02);
  }
  EXPECT_NE(plain, whole);
}

TEST_F(BayesianRun, DoubtsAreTold) {
  Make({});
  // Pan without any detail, then pan of another ground.
  auto pan = test_support::ReadImage(m_folder.WidePath("scene/pan.tif"));
  const auto original = pan;
  std::fill(pan.bands[0].begin(), pan.bands[0].end(), 700.0);
  test_support::WriteImage(pan, m_folder.WidePath("scene/pan.tif"), PDT_UINT16);
  EXPECT_THAT(Fuse("auto").notices, ElementsAre(HasSubstr("shows no detail")));
  for (std::size_t i = 0; i < pan.bands[0].size(); ++i)
    pan.bands[0][i] = original.bands[0][pan.bands[0].size() - 1 - i];
  test_support::WriteImage(pan, m_folder.WidePath("scene/pan.tif"), PDT_UINT16);
  EXPECT_THAT(Fuse("auto").notices, ElementsAre(HasSubstr("same ground?")));
}

TEST_F(BayesianRun, LeavesNothingBesideTheOutput) {
  Make({2.0, 0.0});
  Fuse("auto");
  EXPECT_THAT(m_folder.Names(), ElementsAre("out.tif", "scene"));
  EXPECT_TRUE(test_support::FilesNamedLike(L"fusion_").empty());
}

TEST_F(BayesianRun, OtherMethodsEstimateNothing) {
  Make({});
  m_request.method = "brovey";
  const fusion::FuseReport report = fusion::Fuse(m_request);
  EXPECT_FALSE(report.registration);
  EXPECT_FALSE(report.model);
}

}  // namespace

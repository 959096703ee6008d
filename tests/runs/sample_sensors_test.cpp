#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "runs/fuse.h"
#include "runs/options.h"
#include "runs/sample.h"
#include "runs/sample_scene.h"
#include "runs/sample_sensor.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

using Band = std::vector<double>;

// The brightest white of a type that is not 8 bits wide.
constexpr double kWhite = 10000.0;
// Shares of the four bands in pan.
constexpr double kPanShares[] = {0.22, 0.30, 0.32, 0.16};

struct Files {
  reference::Image pan;
  reference::Image ms;
  reference::Image truth;
};

fusion::SampleRequest Request() {
  fusion::SampleRequest request;
  request.width = 96;
  request.height = 72;
  request.type = "float64";
  request.noise = 0.0;
  return request;
}

Files Make(fusion::SampleRequest request) {
  const test_support::TemporaryFolder folder;
  request.folder = folder.Path("");
  request.overwrite = true;
  fusion::MakeSample(request);
  const auto read = [&](const char* name) { return test_support::ReadImage(folder.WidePath(name)); };
  return {read("pan.tif"), read("ms.tif"), read("truth.tif")};
}

/// The standard deviation in pixels of the Gaussian that keeps a share of a pattern with a period of two pixels: the
/// transform of exp(-(x / s)^2 / 2) at 1/2 is exp(-(pi s)^2 / 2).
double SpreadOf(double gain) { return std::sqrt(-2.0 * std::log(gain)) / std::acos(-1.0); }

/// The mean of what lies around (x, y), whole numbers being centres of pixels, weighed by a Gaussian up to four
/// standard deviations on each axis.
double GaussianMean(const std::function<double(int column, int row)>& value, double x, double y, double spread) {
  double sum = 0.0;
  double weights = 0.0;
  for (int row = static_cast<int>(y) - 100; row <= y + 100; ++row) {
    if (std::fabs(row - y) > 4.0 * spread) continue;
    for (int column = static_cast<int>(x) - 100; column <= x + 100; ++column) {
      if (std::fabs(column - x) > 4.0 * spread) continue;
      const double distance2 = (column - x) * (column - x) + (row - y) * (row - y);
      const double weight = std::exp(-distance2 / (2.0 * spread * spread));
      sum += weight * value(column, row);
      weights += weight;
    }
  }
  return sum / weights;
}

/// The landscape of a request by itself, also beside its picture.
class Landscape {
 public:
  explicit Landscape(const fusion::SampleRequest& request)
      : m_scene(request.seed, request.width, request.height, request.bands, request.clouds), m_width(request.width) {
    for (int row = -kMargin; row < request.height + kMargin; ++row) {
      m_rows.emplace_back(static_cast<std::size_t>(request.bands),
                          Band(static_cast<std::size_t>(m_width + 2 * kMargin)));
      m_scene.Row(row, -kMargin, m_rows.back());
    }
  }
  double At(std::size_t band, int column, int row) const { return m_rows[Index(row)][band][Index(column)]; }

 private:
  static constexpr int kMargin = fusion::SampleScene::kBeyond;
  static std::size_t Index(int position) {
    const int fromMargin = position + kMargin;
    return static_cast<std::size_t>(fromMargin);
  }

  fusion::SampleScene m_scene;
  int m_width;
  std::vector<std::vector<Band>> m_rows;
};

/// Every pixel of pan.tif and ms.tif against the mean that its sensor is said to take of the landscape.
void ExpectSensors(const fusion::SampleRequest& request, double shiftX, double shiftY) {
  const Files files = Make(request);
  const Landscape landscape(request);
  const auto at = [](const reference::Image& image, std::size_t band, int column, int row) {
    return image.bands[band][static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) +
                             static_cast<std::size_t>(column)];
  };
  for (int row = 0; row < files.pan.height; ++row) {
    for (int column = 0; column < files.pan.width; ++column) {
      const auto mix = [&](int x, int y) {
        double sum = 0.0;
        for (std::size_t b = 0; b < 4; ++b) sum += kPanShares[b] * landscape.At(b, x, y);
        return sum;
      };
      ASSERT_NEAR(at(files.pan, 0, column, row), kWhite * GaussianMean(mix, column, row, 0.7), 1e-6);
      for (std::size_t b = 0; b < 4; ++b) {
        ASSERT_NEAR(at(files.truth, b, column, row), kWhite * landscape.At(b, column, row), 1e-9);
      }
    }
  }
  const int ratio = request.ratio;
  for (std::size_t b = 0; b < 4; ++b) {
    for (int row = 0; row < files.ms.height; ++row) {
      for (int column = 0; column < files.ms.width; ++column) {
        // What lies to the right in the picture has come from the left.
        const double x = column * ratio + (ratio - 1) / 2.0 - shiftX;
        const double y = row * ratio + (ratio - 1) / 2.0 - shiftY;
        const double mean =
            GaussianMean([&](int i, int j) { return landscape.At(b, i, j); }, x, y, ratio * SpreadOf(0.3));
        ASSERT_NEAR(at(files.ms, b, column, row), kWhite * mean, 1e-6) << b << ' ' << column << ' ' << row;
      }
    }
  }
}

TEST(SampleSensors, TakeGaussianMeansOfTheTruthUpToTheBorders) {
  for (const int ratio : {1, 2, 3, 4, 8}) {
    SCOPED_TRACE(ratio);
    fusion::SampleRequest request = Request();
    request.ratio = ratio;
    ExpectSensors(request, 0.0, 0.0);
  }
}

TEST(SampleSensors, ShiftMovesTheMultispectralPictureAlone) {
  fusion::SampleRequest request = Request();
  request.shift = {0.5, -0.25};
  ExpectSensors(request, 0.5, -0.25);
  request.shift = {-1.375, 16.0};
  request.ratio = 2;
  ExpectSensors(request, -1.375, 16.0);
}

TEST(SampleSensors, ShiftIsToTheRightAndDown) {
  fusion::SampleRequest request = Request();
  const Files before = Make(request);
  request.shift = {4.0, 8.0};
  const Files after = Make(request);
  // One multispectral pixel to the right, two down.
  for (std::size_t b = 0; b < 4; ++b) {
    for (std::size_t row = 2; row < 18; ++row) {
      for (std::size_t column = 1; column < 24; ++column) {
        ASSERT_NEAR(after.ms.bands[b][row * 24 + column], before.ms.bands[b][(row - 2) * 24 + column - 1], 1e-6);
      }
    }
  }
  EXPECT_EQ(after.pan.bands, before.pan.bands);
  EXPECT_EQ(after.truth.bands, before.truth.bands);
  EXPECT_THAT(after.ms.geoTransform, testing::ElementsAreArray(before.ms.geoTransform)) << "nobody knows of it";
}

/// What a sensor makes of stripes of +1 and -1, each one pixel of the sensor wide.
double GainOfStripes(int step, double spread, bool across) {
  fusion::SampleSensor sensor({16, 16, 1, step, step * spread});
  const int reach = sensor.Reach();
  double largest = 0.0;
  for (int row = -reach; row < 16 * step + reach; ++row) {
    fusion::SampleRows landscape(1, Band(static_cast<std::size_t>(16 * step + 2 * reach)));
    for (std::size_t i = 0; i < landscape[0].size(); ++i) {
      // As waves: a pixel's centre lies on a crest or in a trough.
      const double along = (across ? static_cast<int>(i) - reach : row) - (step - 1) / 2.0;
      landscape[0][i] = std::cos(std::acos(-1.0) * along / step);
    }
    if (sensor.Take(row, -reach, landscape) < 0) continue;
    for (const double value : sensor.Seen()[0]) largest = std::max(largest, std::fabs(value));
  }
  return largest;
}

TEST(SampleSensors, KeepOfTheFinestPatternsWhatSensorsInOrbitKeep) {
  for (const bool across : {true, false}) {
    for (const int ratio : {2, 4, 5, 16}) EXPECT_NEAR(GainOfStripes(ratio, SpreadOf(0.3), across), 0.3, 0.002) << ratio;
    EXPECT_NEAR(GainOfStripes(1, 0.7, across), 0.18, 0.005);
  }
}

TEST(SampleSensors, RowsAreCompleteOnceAndInOrder) {
  for (const int step : {1, 2, 3, 7}) {
    fusion::SampleSensor sensor({4, 5, 2, step, 0.5 * step, 1.25, -3.5});
    const int reach = sensor.Reach();
    const fusion::SampleRows landscape(2, Band(static_cast<std::size_t>(4 * step + 2 * reach), 0.25));
    std::vector<int> rows;
    for (int row = -reach; row < 5 * step + reach; ++row) {
      const int complete = sensor.Take(row, -reach, landscape);
      if (complete < 0) continue;
      rows.push_back(complete);
      for (const Band& band : sensor.Seen()) EXPECT_THAT(band, testing::Each(testing::DoubleNear(0.25, 1e-12)));
    }
    EXPECT_THAT(rows, testing::ElementsAre(0, 1, 2, 3, 4)) << step;
  }
}

TEST(SampleSensors, NoiseHasTheDeviationThatIsAskedFor) {
  fusion::SampleRequest request = Request();
  request.width = request.height = 512;
  request.ratio = 2;
  const Files clean = Make(request);
  request.noise = 0.004;
  const Files noisy = Make(request);
  EXPECT_EQ(clean.truth.bands, noisy.truth.bands);
  const double deviation = 0.004 * kWhite;

  const auto expectNoise = [&](const reference::Image& before, const reference::Image& after, std::size_t band) {
    double sum = 0.0;
    double squares = 0.0;
    double beside = 0.0;
    double count = 0.0;
    double last = 0.0;
    for (std::size_t i = 0; i < before.bands[band].size(); ++i) {
      // Next to black, counts end at 0.
      if (before.bands[band][i] < 4.0 * deviation) continue;
      const double noise = after.bands[band][i] - before.bands[band][i];
      sum += noise;
      squares += noise * noise;
      beside += noise * last;
      last = noise;
      ++count;
    }
    ASSERT_GT(count, 40000.0);
    // Four standard errors of each.
    EXPECT_NEAR(sum / count, 0.0, 4.0 * deviation / std::sqrt(count));
    EXPECT_NEAR(squares / count / (deviation * deviation), 1.0, 4.0 * std::sqrt(2.0 / count));
    EXPECT_NEAR(beside / count / (deviation * deviation), 0.0, 4.0 / std::sqrt(count));
  };
  expectNoise(clean.pan, noisy.pan, 0);
  for (std::size_t b = 0; b < 4; ++b) expectNoise(clean.ms, noisy.ms, b);

  double between = 0.0;
  for (std::size_t i = 0; i < clean.ms.bands[0].size(); ++i) {
    between += (noisy.ms.bands[2][i] - clean.ms.bands[2][i]) * (noisy.ms.bands[3][i] - clean.ms.bands[3][i]);
  }
  const auto pixels = static_cast<double>(clean.ms.bands[0].size());
  EXPECT_NEAR(between / pixels / (deviation * deviation), 0.0, 4.0 / std::sqrt(pixels)) << "each band has its own";
}

TEST(SampleSensors, CountsDoNotGoBelowZero) {
  fusion::SampleRequest request = Request();
  request.noise = 0.05;
  const Files files = Make(request);
  for (const reference::Image* image : {&files.pan, &files.ms}) {
    for (const Band& band : image->bands) EXPECT_EQ(*std::min_element(band.begin(), band.end()), 0.0);
  }
}

TEST(SampleSensors, GiveAFusionTheirShiftAndTheirBlurToFind) {
  const test_support::TemporaryFolder folder;
  fusion::SampleRequest scene;
  scene.folder = folder.Path("");
  scene.width = scene.height = 640;
  scene.shift = {0.75, -1.25};
  scene.clouds = 0.05;
  fusion::MakeSample(scene);
  fusion::FuseRequest request;
  request.pan = folder.Path("pan.tif");
  request.ms = folder.Path("ms.tif");
  request.out = folder.Path("fused.tif");
  const fusion::FuseReport report = fusion::Fuse(request);
  ASSERT_TRUE(report.registration && report.model);
  // Back to where it belongs, in steps of an eighth.
  EXPECT_TRUE(report.registration->applied);
  EXPECT_NEAR(report.registration->dx, -0.75, 0.13);
  EXPECT_NEAR(report.registration->dy, 1.25, 0.13);
  // Pan is blurred already, and the variances of blurs add up: what is missing to that of the bands.
  const double bands = 4.0 * SpreadOf(0.3);
  EXPECT_EQ(report.model->shape, "gaussian");
  EXPECT_NEAR(report.model->blur, std::sqrt(bands * bands - 0.7 * 0.7) / bands, 0.03);
}

TEST(SampleLandscape, CloudsHideTheShareThatIsAskedFor) {
  fusion::SampleRequest request = Request();
  request.width = 700;
  request.height = 500;
  const Files clear = Make(request);
  for (const double share : {0.05, 0.3, 1.0}) {
    request.clouds = share;
    const Files cloudy = Make(request);
    double hidden = 0.0;
    for (std::size_t i = 0; i < clear.truth.bands[0].size(); ++i) {
      // A cloud that hides a share of the ground adds the same to all bands, so that share of their difference is gone.
      const double before = clear.truth.bands[3][i] - clear.truth.bands[0][i];
      const double after = cloudy.truth.bands[3][i] - cloudy.truth.bands[0][i];
      if (std::fabs(after) <= 0.5 * std::fabs(before) + 1e-6) ++hidden;
    }
    EXPECT_NEAR(hidden / static_cast<double>(clear.truth.bands[0].size()), share, 0.01);
  }
  // White where nothing of the ground is left.
  request.clouds = 1.0;
  const Band white = Make(request).truth.bands[0];
  EXPECT_GT(*std::max_element(white.begin(), white.end()), 0.8 * kWhite);
}

TEST(SampleLandscape, WaterIsNextToBlack) {
  fusion::SampleRequest request = Request();
  request.width = request.height = 512;
  const Files files = Make(request);
  const auto share = [](const Band& band, double below) {
    const auto count = std::count_if(band.begin(), band.end(), [&](double v) { return v < below; });
    return static_cast<double>(count) / static_cast<double>(band.size());
  };
  // The river is 56 of 512 columns wide, but for its banks and bridges.
  EXPECT_NEAR(share(files.truth.bands[3], 0.002 * kWhite), 0.1, 0.02);
  EXPECT_NEAR(share(files.ms.bands[3], 0.005 * kWhite), 0.1, 0.03);
  EXPECT_NEAR(share(files.pan.bands[0], 0.015 * kWhite), 0.1, 0.03);
}

TEST(SampleLandscape, ARiverLeavesRoomInANarrowPicture) {
  fusion::SampleRequest request = Request();
  const Band infrared = Make(request).truth.bands[3];
  const auto water = std::count_if(infrared.begin(), infrared.end(), [](double v) { return v < 0.002 * kWhite; });
  EXPECT_GT(water, 0);
  EXPECT_LE(static_cast<double>(water), static_cast<double>(infrared.size()) / 5.0);
}

TEST(SampleLandscape, IsTheSameWhateverTheSensors) {
  fusion::SampleRequest request = Request();
  const Files files = Make(request);
  request.ratio = 8;
  request.shift = {-7.0, 3.0};
  request.noise = 0.1;
  EXPECT_EQ(Make(request).truth.bands, files.truth.bands);
}

TEST(SampleOptions, AreRefusedWithWhatTheyMayBe) {
  const auto refusal = [](const std::string& option, const std::string& value) -> std::string {
    fusion::SampleRequest request = Request();
    const test_support::TemporaryFolder folder;
    request.folder = folder.Path("scene");
    try {
      fusion::SetOption(request, option, value);
      fusion::MakeSample(request);
    } catch (const fusion::RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kWrongUsage);
      EXPECT_THAT(folder.Names(), testing::IsEmpty());
      return failure.Sentence();
    }
    return "";
  };
  EXPECT_EQ(refusal("shift", "a,1"), "--shift: 'a' is no number; a list looks like 0.5,-0.25.");
  for (const char* shift : {"1", "1,2,3", "16.01,0", "0,-16.01", "nan,0"}) {
    EXPECT_EQ(refusal("shift", shift), "--shift is DX,DY in pan pixels, each from -16 to 16.") << shift;
  }
  for (const char* share : {"-0.01", "1.01", "nan"}) {
    EXPECT_EQ(refusal("noise", share), "--noise must lie between 0 and 1.") << share;
    EXPECT_EQ(refusal("clouds", share), "--clouds must lie between 0 and 1.") << share;
  }
  EXPECT_EQ(refusal("clouds", "many"), "--clouds: 'many' is no number.");
  EXPECT_EQ(refusal("shift", "-16,16"), "");
  EXPECT_EQ(refusal("clouds", "1"), "");
}

}  // namespace

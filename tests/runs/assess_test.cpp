// Comparisons of the methods on a scene, by independent formulas.
#include "runs/assess.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "quality/errors.h"
#include "quality/qnr.h"
#include "quality/sam.h"
#include "quality/sharpness.h"
#include "quality/uiqi.h"
#include "runs/fuse.h"
#include "tests/support/numbers.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::AssessReport;
using fusion::AssessRequest;
using fusion::AssessRow;
using fusion::AssessTable;
using reference::Image;
using testing::ElementsAre;
using testing::HasSubstr;

using test_support::kPi;

/// The Gaussian with a gain at the Nyquist frequency of pixels ratio samples wide, at a position, in one dimension.
std::vector<double> Weights(double position, double ratio, double gain, int size) {
  const double deviation = ratio * std::sqrt(-2.0 * std::log(gain)) / kPi;
  std::vector<double> weights;
  double sum = 0.0;
  for (int i = 0; i < size; ++i) {
    const double distance = i - position;
    const bool near = std::fabs(distance) <= 4.0 * deviation + 1.0;
    weights.push_back(near ? std::exp(-distance * distance / (2.0 * deviation * deviation)) : 0.0);
    sum += weights.back();
  }
  for (double& w : weights) w /= sum;
  return weights;
}

double Filtered(const Image& image, std::size_t band, double x, double y, double ratio, double gain) {
  const std::vector<double> alongX = Weights(x, ratio, gain, image.width);
  const std::vector<double> alongY = Weights(y, ratio, gain, image.height);
  double sum = 0.0;
  for (std::size_t j = 0; j < alongY.size(); ++j) {
    for (std::size_t i = 0; i < alongX.size(); ++i)
      sum += alongX[i] * alongY[j] * image.bands[band][j * alongX.size() + i];
  }
  return sum;
}

const AssessRow& RowOf(const AssessTable& table, const std::string& method) {
  const auto found =
      std::find_if(table.rows.begin(), table.rows.end(), [&](const AssessRow& r) { return r.method == method; });
  if (found == table.rows.end()) throw std::runtime_error("no row of " + method);
  return *found;
}

double Value(const AssessTable& table, const std::string& method, const std::string& measure) {
  for (std::size_t m = 0; m < table.measures.size(); ++m) {
    if (table.measures[m].name == measure) return RowOf(table, method).values[m];
  }
  throw std::runtime_error("no measure " + measure);
}

/// An image of a file with a border that does not count.
quality::Image Inside(const Image& image, int borderX, int borderY) {
  quality::Image inside;
  inside.width = image.width;
  inside.height = image.height;
  inside.bands = image.bands;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const bool counts = x >= borderX && y >= borderY && x < image.width - borderX && y < image.height - borderY;
      inside.valid.push_back(counts ? 1 : 0);
    }
  }
  return inside;
}

class AssessTest : public test_support::RunScene {
 protected:
  AssessRequest Assessing(const std::string& protocol, const std::vector<std::string>& methods = {"brovey"}) const {
    AssessRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.protocol = protocol;
    request.methods = methods;
    return request;
  }
  /// The request with its files kept, and an image of them.
  AssessRequest Keeping(AssessRequest request) const {
    request.keep = m_folder.Path("kept");
    request.overwrite = true;
    return request;
  }
  Image Kept(const std::string& name) const { return Read("kept/" + name); }
};

TEST_F(AssessTest, TheReducedPairIsTheSceneThroughTheSensorsFilters) {
  // The scene is too small to tell its filters.
  for (const auto& [gain, panGain] : {std::pair(0.3, 0.15), {0.15, 0.15}, {0.2, 0.4}}) {
    AssessRequest request = Keeping(Assessing("wald"));
    if (gain != 0.3) request.mtf = {gain};
    if (panGain != 0.15) request.mtf.push_back(panGain);
    const AssessReport report = fusion::Assess(request);
    EXPECT_EQ(report.mtf, gain);
    EXPECT_EQ(report.panMtf, panGain);
    const Image ms = Read("ms.tif");
    const Image pan = Read("pan.tif");
    const Image low = Kept("wald_1/ms.tif");
    const Image lowPan = Kept("wald_1/pan.tif");
    ASSERT_EQ(low.width, 10);
    ASSERT_EQ(low.bands.size(), 4U);
    ASSERT_EQ(lowPan.width, 20);
    EXPECT_EQ(low.geoTransform[1], 4.0);
    EXPECT_EQ(lowPan.geoTransform[1], 2.0);
    EXPECT_TRUE(Kept("wald_1/truth.tif").bands == ms.bands);
    for (int y = 0; y < 10; ++y) {
      for (int x = 0; x < 10; ++x) {
        // Two pixels become one, whose centre lies between theirs.
        const double expected = Filtered(ms, 2, 2 * x + 0.5, 2 * y + 0.5, 2.0, gain);
        ASSERT_NEAR(low.bands[2][static_cast<std::size_t>(10 * y + x)], expected, 1e-3);
      }
    }
    for (int y = 0; y < 20; ++y) {
      for (int x = 0; x < 20; ++x) {
        const double expected = Filtered(pan, 0, 2 * x + 0.5, 2 * y + 0.5, 2.0, panGain);
        ASSERT_NEAR(lowPan.bands[0][static_cast<std::size_t>(20 * y + x)], expected, 1e-3);
      }
    }
  }
}

TEST_F(AssessTest, AtReducedResolutionTheMultispectralImageIsTheTruth) {
  const AssessReport report = fusion::Assess(Keeping(Assessing("wald")));
  ASSERT_EQ(report.tables.size(), 1U);
  const AssessTable& table = report.tables[0];
  EXPECT_EQ(table.protocol, "wald");
  // Of 20 pixels a border of one is left out.
  const quality::Image truth = Inside(Read("ms.tif"), 1, 1);
  const quality::Image fused = Inside(Kept("wald_1/brovey.tif"), 1, 1);
  EXPECT_NEAR(Value(table, "brovey", "ERGAS"), quality::Ergas(truth, fused, 2.0), 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "SAM"), quality::Sam(truth, fused), 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "Q4"), quality::Q2n(truth, fused), 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "UIQI"), quality::Uiqi(truth, fused), 1e-9);
  const AssessRow& row = RowOf(table, "brovey");
  const std::vector<double> rmse = quality::Rmse(truth, fused);
  ASSERT_EQ(row.rmse.size(), 4U);
  for (std::size_t b = 0; b < 4; ++b) EXPECT_NEAR(row.rmse[b], rmse[b], 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "RMSE"), (rmse[0] + rmse[1] + rmse[2] + rmse[3]) / 4.0, 1e-9);
  const std::vector<double> bias = quality::Bias(truth, fused);
  double size = 0.0;
  for (const double b : bias) size += std::fabs(b) / 4.0;
  EXPECT_NEAR(Value(table, "brovey", "bias"), size, 1e-12);
}

TEST_F(AssessTest, UpsampledIsTheBicubicKernelOfTheCommand) {
  const AssessReport report = fusion::Assess(Keeping(Assessing("wald")));
  const Image low = Kept("wald_1/ms.tif");
  // Cubic convolution with -1 at positions a quarter pixel beside the centres, away from the edges.
  const auto cubic = [](double t) {
    const double s = std::fabs(t);
    if (s < 1.0) return 1.0 - 2.0 * s * s + s * s * s;
    return s < 2.0 ? 4.0 - 8.0 * s + 5.0 * s * s - s * s * s : 0.0;
  };
  quality::Image truth;
  truth.width = truth.height = 10;
  quality::Image upsampled = truth;
  const Image ms = Read("ms.tif");
  for (std::size_t b = 0; b < 4; ++b) {
    truth.bands.emplace_back();
    upsampled.bands.emplace_back();
    for (int y = 5; y < 15; ++y) {
      for (int x = 5; x < 15; ++x) {
        double sum = 0.0;
        for (int j = 0; j < 10; ++j) {
          for (int i = 0; i < 10; ++i) {
            sum += cubic((x + 0.5) / 2.0 - 0.5 - i) * cubic((y + 0.5) / 2.0 - 0.5 - j) *
                   low.bands[b][static_cast<std::size_t>(10 * j + i)];
          }
        }
        truth.bands[b].push_back(ms.bands[b][static_cast<std::size_t>(20 * y + x)]);
        upsampled.bands[b].push_back(sum);
      }
    }
  }
  // The kept result of another program, everywhere but in the middle the truth, has the error of the middle.
  Image other = Read("ms.tif");
  for (std::size_t b = 0; b < 4; ++b) {
    for (int y = 5; y < 15; ++y) {
      for (int x = 5; x < 15; ++x) {
        other.bands[b][static_cast<std::size_t>(20 * y + x)] =
            upsampled.bands[b][static_cast<std::size_t>(10 * (y - 5) + x - 5)];
      }
    }
  }
  test_support::WriteImage(other, m_folder.WidePath("kept/wald_1/other.tif"), PDT_FLOAT64);
  AssessRequest request = Keeping(Assessing("wald"));
  request.extra = {"other"};
  const AssessTable again = fusion::Assess(request).tables[0];
  const double all = Value(again, fusion::kUpsampled, "RMSE");
  const std::vector<double> middle = quality::Rmse(truth, upsampled);
  // 100 of the 324 pixels that count.
  EXPECT_NEAR(Value(again, "other", "RMSE"),
              (middle[0] + middle[1] + middle[2] + middle[3]) / 4.0 * std::sqrt(100.0 / 324.0), 1e-4);
  EXPECT_EQ(all, Value(report.tables[0], fusion::kUpsampled, "RMSE"));
  EXPECT_GT(all, Value(again, "other", "RMSE"));
}

TEST_F(AssessTest, TheTruthAsAResultIsPerfect) {
  fusion::Assess(Keeping(Assessing("wald")));
  std::filesystem::copy_file(CommonFun::ToPath(m_folder.WidePath("ms.tif")),
                             CommonFun::ToPath(m_folder.WidePath("kept/wald_1/perfect.tif")));
  AssessRequest request = Keeping(Assessing("wald", {"brovey", "hpf"}));
  request.extra = {"perfect"};
  const AssessReport report = fusion::Assess(request);
  const AssessTable& table = report.tables[0];
  EXPECT_EQ(table.rows[0].method, "perfect");
  EXPECT_EQ(Value(table, "perfect", "ERGAS"), 0.0);
  EXPECT_NEAR(Value(table, "perfect", "SAM"), 0.0, 2e-6);
  EXPECT_NEAR(Value(table, "perfect", "Q4"), 1.0, 1e-12);
  EXPECT_NEAR(Value(table, "perfect", "UIQI"), 1.0, 1e-12);
  EXPECT_NEAR(Value(table, "perfect", "sCC"), 1.0, 1e-12);
  for (const auto& measure : table.measures) EXPECT_EQ(measure.best, 0) << measure.name;
  // Advice names methods of the library.
  EXPECT_THAT((std::vector<std::string>{"brovey", "hpf"}), testing::Contains(report.best));
}

TEST_F(AssessTest, AtFullResolutionBothScalesAreCompared) {
  const AssessReport report = fusion::Assess(Keeping(Assessing("full")));
  const AssessTable& table = report.tables[0];
  EXPECT_EQ(table.protocol, "full");
  EXPECT_TRUE(Kept("full_1/pan.tif").bands == Read("pan.tif").bands);
  EXPECT_TRUE(Kept("full_1/ms.tif").bands == Read("ms.tif").bands);
  const Image pan = Read("pan.tif");
  const Image fused = Kept("full_1/brovey.tif");
  const quality::Image ms = Inside(Read("ms.tif"), 1, 1);
  // What a sensor would have seen on the multispectral pixels.
  const auto lowered = [](const Image& image, double gain) {
    Image low;
    low.width = low.height = 20;
    for (std::size_t b = 0; b < image.bands.size(); ++b) {
      low.bands.emplace_back();
      for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 20; ++x) low.bands[b].push_back(Filtered(image, b, 2 * x + 0.5, 2 * y + 0.5, 2.0, gain));
      }
    }
    // At the edge less than 98 % of the weight lies on the image; one pixel inside, 98.7 % and more.
    return Inside(low, 1, 1);
  };
  quality::NoReferenceSums sums(2);
  sums.Add(Inside(pan, 2, 2), Inside(fused, 2, 2), lowered(pan, 0.15), ms);
  EXPECT_NEAR(Value(table, "brovey", "D_lambda"), sums.DLambda(), 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "D_s"), sums.DS(), 1e-9);
  EXPECT_NEAR(Value(table, "brovey", "QNR"), sums.Qnr(), 1e-9);
  const double khan = quality::KhanDLambda(ms, lowered(fused, 0.3));
  EXPECT_NEAR(Value(table, "brovey", "HQNR"), (1.0 - khan) * (1.0 - sums.DS()), 1e-6);
  EXPECT_NEAR(Value(table, "brovey", "sharpness"), quality::Sharpness(Inside(pan, 2, 2), Inside(fused, 2, 2)), 1e-9);
}

TEST_F(AssessTest, ATableIsSortedAndEachColumnsBestMarked) {
  const AssessReport report = fusion::Assess(Assessing("both", {}));
  ASSERT_EQ(report.tables.size(), 2U);
  for (const AssessTable& table : report.tables) {
    ASSERT_EQ(table.rows.size() + report.failures.size(), 9U);
    for (std::size_t r = 1; r < table.rows.size(); ++r) {
      const double before = table.rows[r - 1].values[0];
      const double value = table.rows[r].values[0];
      if (std::isnan(value)) continue;
      EXPECT_TRUE(table.protocol == "wald" ? before <= value : before >= value);
    }
    for (std::size_t m = 0; m < table.measures.size(); ++m) {
      const std::string& better = table.measures[m].better;
      const double best = table.rows[static_cast<std::size_t>(table.measures[m].best)].values[m];
      for (const AssessRow& row : table.rows) {
        const double v = row.values[m];
        if (std::isnan(v)) continue;
        const bool reached = better == "less"   ? best <= v
                             : better == "more" ? best >= v
                                                : std::fabs(best - 1.0) <= std::fabs(v - 1.0);
        EXPECT_TRUE(reached) << table.measures[m].name << ' ' << row.method;
      }
    }
  }
  const std::string first = report.tables[0].rows[0].method;
  EXPECT_EQ(report.best, first == fusion::kUpsampled ? report.tables[0].rows[1].method : first);
  EXPECT_THAT(report.advice, HasSubstr("Take " + report.best));
  EXPECT_EQ(report.ratioX, 2);
  EXPECT_EQ(report.ratioY, 2);
  EXPECT_EQ(report.tiles, 1);
  EXPECT_EQ(report.share, 1.0);
  EXPECT_THAT(report.bands, ElementsAre("band 1", "band 2", "band 3", "band 4"));
  EXPECT_GT(report.seconds, 0.0);
}

TEST_F(AssessTest, WhatHasNoDataIsLeftOut) {
  // A hole of the multispectral image and one of pan. What stands in them is never seen.
  std::vector<AssessReport> reports;
  std::vector<Image> truths;
  for (const double fill : {0.0, 40000.0}) {
    Image ms = Read("ms.tif");
    Image pan = Read("pan.tif");
    for (auto& band : ms.bands) band[20 * 8 + 17] = fill;
    pan.bands[0][40 * 18 + 35] = fill;
    test_support::WriteImage(ms, m_folder.WidePath("holes.tif"), PDT_UINT16, "", fill);
    test_support::WriteImage(pan, m_folder.WidePath("pan_holes.tif"), PDT_UINT16, "", fill);
    AssessRequest request = Keeping(Assessing("both"));
    request.ms = m_folder.Path("holes.tif");
    request.pan = m_folder.Path("pan_holes.tif");
    reports.push_back(fusion::Assess(request));
    truths.push_back(Kept("wald_1/truth.tif"));
    EXPECT_TRUE(std::isnan(truths.back().bands[0][20 * 8 + 17]));
    EXPECT_TRUE(std::isnan(Kept("wald_1/pan.tif").bands[0][20 * 9 + 17]));
    // A degraded pixel with a hole under its filter has no data, one beyond its reach has.
    EXPECT_TRUE(std::isnan(Kept("wald_1/ms.tif").bands[0][10 * 4 + 8]));
    EXPECT_FALSE(std::isnan(Kept("wald_1/ms.tif").bands[0][10 * 4 + 1]));
  }
  for (std::size_t t = 0; t < 2; ++t) {
    for (const std::string method : {"brovey", fusion::kUpsampled}) {
      const std::vector<double>& values = RowOf(reports[0].tables[t], method).values;
      for (std::size_t m = 0; m < values.size(); ++m) {
        EXPECT_EQ(values[m], RowOf(reports[1].tables[t], method).values[m]) << method << m;
      }
    }
  }
  // By a plain walk: pixels whose four by four multispectral neighbours have data, inside the border.
  const Image low = Kept("wald_1/ms.tif");
  const Image pan = Kept("wald_1/pan.tif");
  const Image fused = Kept("wald_1/brovey.tif");
  std::vector<double> square(4, 0.0);
  int count = 0;
  for (int y = 1; y < 19; ++y) {
    for (int x = 1; x < 19; ++x) {
      const auto i = static_cast<std::size_t>(20 * y + x);
      bool counts = std::isfinite(truths[1].bands[0][i]) && std::isfinite(pan.bands[0][i]);
      const int left = static_cast<int>(std::floor((x + 0.5) / 2.0 - 0.5)) - 1;
      const int top = static_cast<int>(std::floor((y + 0.5) / 2.0 - 0.5)) - 1;
      for (int j = 0; j < 4; ++j) {
        for (int k = 0; k < 4; ++k) {
          const bool on = left + k >= 0 && left + k < 10 && top + j >= 0 && top + j < 10;
          if (on && std::isnan(low.bands[0][static_cast<std::size_t>(10 * (top + j) + left + k)])) counts = false;
        }
      }
      if (!counts) continue;
      ++count;
      for (std::size_t b = 0; b < 4; ++b) square[b] += std::pow(fused.bands[b][i] - truths[1].bands[b][i], 2.0);
    }
  }
  ASSERT_GT(count, 50);
  ASSERT_LT(count, 300);
  for (std::size_t b = 0; b < 4; ++b) {
    EXPECT_NEAR(RowOf(reports[1].tables[0], "brovey").rmse[b], std::sqrt(square[b] / count), 1e-9);
  }
}

}  // namespace

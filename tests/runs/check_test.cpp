// What a check sees of pairs whose making is known.
#include "runs/check.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "tests/runs/check_request.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"
#include "tests/support/seen_scene.h"
#include "tests/support/test_raster.h"

namespace {

using fusion::CheckFinding;
using fusion::CheckReport;
using fusion::CheckRequest;
using test_support::Request;
using test_support::SeenScene;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CheckReport Checked(const SeenScene& scene) { return fusion::Check(Request(scene.panFile, scene.msFile)); }

/// The names of the warnings, or of the notes.
std::vector<std::string> Names(const CheckReport& report, bool warnings = true) {
  std::vector<std::string> names;
  for (const CheckFinding& finding : report.findings) {
    if (finding.isWarning == warnings) names.push_back(finding.name);
    EXPECT_FALSE(finding.text.empty());
    EXPECT_EQ(finding.advice.empty(), !finding.isWarning) << finding.text;
  }
  EXPECT_EQ(report.IsFine(), std::none_of(report.findings.begin(), report.findings.end(),
                                          [](const CheckFinding& f) { return f.isWarning; }));
  return names;
}

CheckFinding Warning(const CheckReport& report, const std::string& name) {
  for (const CheckFinding& finding : report.findings) {
    if (finding.isWarning && finding.name == name) return finding;
  }
  ADD_FAILURE() << "no warning " << name;
  return {};
}

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double v : values) sum += v;
  return sum / static_cast<double>(values.size());
}

double Covariance(const std::vector<double>& a, const std::vector<double>& b) {
  const double meanA = Mean(a);
  const double meanB = Mean(b);
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += (a[i] - meanA) * (b[i] - meanB);
  return sum / static_cast<double>(a.size());
}

double Correlation(const std::vector<double>& a, const std::vector<double>& b) {
  return Covariance(a, b) / std::sqrt(Covariance(a, a) * Covariance(b, b));
}

/// Each pixel less the mean of the nine around it, without the outermost.
std::vector<double> Detail(const std::vector<double>& image, int width) {
  std::vector<double> detail;
  const auto height = static_cast<int>(image.size()) / width;
  const auto at = [&](int x, int y) {
    const int place = y * width + x;
    return image[static_cast<std::size_t>(place)];
  };
  for (int y = 1; y + 1 < height; ++y) {
    for (int x = 1; x + 1 < width; ++x) {
      double sum = 0.0;
      for (int j = -1; j <= 1; ++j) {
        for (int i = -1; i <= 1; ++i) sum += at(x + i, y + j);
      }
      detail.push_back(at(x, y) - sum / 9.0);
    }
  }
  return detail;
}

TEST(Check, TellsTheShiftAndTheBlurOfThePair) {
  unsigned seed = 10;
  for (const auto& [x, y] : {std::pair(0.0, 0.0), {0.25, 0.0}, {0.0, -1.0}, {-3.0, 1.0}, {3.0, 3.0}}) {
    const CheckReport report = Checked(SeenScene(++seed, {.blur = 0.85, .moveX = x, .moveY = y}));
    ASSERT_TRUE(report.shift && report.blur);
    EXPECT_NEAR(report.shift->dx, x, 0.05);
    EXPECT_NEAR(report.shift->dy, y, 0.05);
    EXPECT_GE(report.shift->windows, 1);
    EXPECT_EQ(report.blur->shape, "gaussian");
    EXPECT_NEAR(report.blur->width, 0.85, 0.05);
    // A gain of 0.3 at the bands' Nyquist frequency: 0.494 multispectral pixels.
    EXPECT_NEAR(report.blur->deviation, report.blur->width * 0.49393916550014252 * 4.0, 1e-9);
    if (std::hypot(x, y) < 0.5) {
      EXPECT_THAT(Names(report), IsEmpty());
    } else {
      EXPECT_THAT(Names(report), ElementsAre("shift"));
      EXPECT_GT(report.shift->score, report.shift->inPlace);
    }
  }
  const CheckReport report = Checked(SeenScene(20, {.moveX = -1.5}));
  EXPECT_THAT(Warning(report, "shift").text, HasSubstr("moved 1.5 pan pixels to the left."));
  EXPECT_THAT(Warning(report, "shift").advice, HasSubstr("bayesian moves it by itself"));
}

TEST(Check, FindsImagesThatLieFarApart) {
  const CheckReport report = Checked(SeenScene(21, {.msWidth = 110, .msHeight = 100, .moveX = 24.0, .moveY = -10.0}));
  EXPECT_NEAR(report.shift->dx, 24.0, 0.1);
  EXPECT_NEAR(report.shift->dy, -10.0, 0.1);
  EXPECT_THAT(Names(report), testing::Contains("shift"));
  EXPECT_THAT(Warning(report, "shift").advice, HasSubstr("more than any method finds"));
}

TEST(Check, TellsTheFiguresOfTheBands) {
  const SeenScene scene(30, {});
  const CheckReport report = Checked(scene);
  EXPECT_EQ(report.pan.width, 256);
  EXPECT_EQ(report.pan.height, 224);
  EXPECT_EQ(report.pan.bands, 1);
  EXPECT_EQ(report.ms.width, 64);
  EXPECT_EQ(report.ms.bands, 3);
  EXPECT_EQ(report.pan.type, "float64");
  EXPECT_EQ(report.pan.pixelWidth, 10.0);
  EXPECT_EQ(report.ms.pixelHeight, 40.0);
  EXPECT_EQ(report.ratioX, 4.0);
  EXPECT_EQ(report.ratioY, 4.0);
  EXPECT_EQ(report.pan.overlap, 1.0);
  EXPECT_EQ(report.ms.overlap, 1.0);
  EXPECT_EQ(report.covered, 1.0);
  EXPECT_EQ(report.share, 1.0);
  EXPECT_FALSE(report.reprojects);

  // Pan as the mean of 4 x 4 pixels.
  std::vector<double> averaged;
  for (int r = 0; r < 56; ++r) {
    for (int c = 0; c < 64; ++c) {
      double sum = 0.0;
      for (int k = 0; k < 16; ++k) {
        const int place = (4 * r + k / 4) * 256 + 4 * c + k % 4;
        sum += scene.pan.bands[0][static_cast<std::size_t>(place)];
      }
      averaged.push_back(sum / 16.0);
    }
  }
  const auto expectFigures = [](const fusion::CheckBand& band, const std::vector<double>& values) {
    EXPECT_EQ(band.minimum, *std::min_element(values.begin(), values.end()));
    EXPECT_EQ(band.maximum, *std::max_element(values.begin(), values.end()));
    EXPECT_NEAR(band.mean, Mean(values), 1e-9);
    EXPECT_NEAR(band.stdDev, std::sqrt(Covariance(values, values)), 1e-9);
    EXPECT_EQ(band.noData, 0.0);
    const auto share = [&](double v) {
      return static_cast<double>(std::count(values.begin(), values.end(), v)) / static_cast<double>(values.size());
    };
    EXPECT_EQ(band.atMinimum, share(band.minimum));
    EXPECT_EQ(band.atMaximum, share(band.maximum));
  };
  ASSERT_TRUE(report.panBand);
  expectFigures(*report.panBand, scene.pan.bands[0]);
  EXPECT_TRUE(std::isnan(report.panBand->correlation));
  ASSERT_EQ(report.bands.size(), 3U);
  for (std::size_t b = 0; b < 3; ++b) {
    expectFigures(report.bands[b], scene.ms.bands[b]);
    EXPECT_EQ(report.bands[b].name, "band " + std::to_string(b + 1));
    EXPECT_NEAR(report.bands[b].panRatio, Mean(averaged) / Mean(scene.ms.bands[b]), 1e-9);
    EXPECT_NEAR(report.bands[b].correlation, Correlation(averaged, scene.ms.bands[b]), 1e-9);
    EXPECT_NEAR(report.bands[b].detail, Correlation(Detail(averaged, 64), Detail(scene.ms.bands[b], 64)), 1e-9);
  }
  // No mix can do worse than its best band.
  EXPECT_GE(report.mixCorrelation, report.bands[0].correlation);
  EXPECT_LE(report.mixCorrelation, 1.0 + 1e-9);
  EXPECT_THAT(Names(report), IsEmpty());
  EXPECT_THAT(Names(report, false), ElementsAre("system"));
}

TEST(Check, KnowsSwappedImages) {
  const SeenScene scene(40, {});
  const CheckReport report = fusion::Check(Request(scene.msFile, scene.panFile));
  EXPECT_THAT(Names(report), ElementsAre("order", "bands"));
  EXPECT_THAT(Warning(report, "order").advice, HasSubstr("swap them"));
  EXPECT_EQ(report.ratioX, 0.25);
  EXPECT_FALSE(report.shift);
  // Nothing is gained from pixels of one size.
  EXPECT_THAT(Names(fusion::Check(Request(scene.msFile, scene.msFile))), ElementsAre("ratio"));
}

TEST(Check, TellsHowMuchOfEachImageTheOtherCovers) {
  SeenScene scene(50, {});
  // Half of the multispectral image to the right of pan.
  scene.ms.geoTransform[0] += 32 * 40.0;
  scene.Write();
  const CheckReport half = Checked(scene);
  EXPECT_DOUBLE_EQ(half.pan.overlap, 0.5);
  EXPECT_DOUBLE_EQ(half.ms.overlap, 0.5);
  EXPECT_THAT(Names(half), testing::Contains("overlap"));
  EXPECT_THAT(Warning(half, "overlap").text, HasSubstr("covers 50 % of the pan image"));
  scene.ms.geoTransform[0] += 1000 * 40.0;
  scene.Write();
  const CheckReport none = Checked(scene);
  EXPECT_EQ(none.pan.overlap, 0.0);
  EXPECT_THAT(Names(none), ElementsAre("overlap"));
  EXPECT_FALSE(none.panBand);
  EXPECT_THAT(none.bands, IsEmpty());
  EXPECT_FALSE(none.shift);
}

TEST(Check, KnowsAWrongCoordinateSystem) {
  const SeenScene scene(60, {});
  const auto write = [&](const std::string& panWkt, const std::string& msWkt) {
    test_support::WriteImage(scene.pan, scene.panFile, PDT_FLOAT64, panWkt);
    test_support::WriteImage(scene.ms, scene.msFile, PDT_FLOAT64, msWkt);
  };
  write(test_support::WktOfEpsg(32630), test_support::WktOfEpsg(32631));
  const CheckReport other = Checked(scene);
  EXPECT_THAT(Names(other), ElementsAre("overlap"));
  EXPECT_THAT(Warning(other, "overlap").advice,
              HasSubstr("one of them, WGS 84 / UTM zone 30N or WGS 84 / UTM zone 31N, is probably wrong"));
  EXPECT_TRUE(other.reprojects);
  write(test_support::WktOfEpsg(32630), "");
  const CheckReport missing = Checked(scene);
  EXPECT_THAT(Names(missing), ElementsAre("system"));
  EXPECT_THAT(missing.findings[0].text, HasSubstr("The multispectral image names no coordinate system"));
  write(test_support::WktOfEpsg(32630), test_support::WktOfEpsg(32630));
  const CheckReport right = Checked(scene);
  EXPECT_THAT(right.findings, IsEmpty());
  EXPECT_EQ(right.pan.system, "WGS 84 / UTM zone 30N");
}

TEST(Check, ImagesInOtherSystemsAreMeasuredToo) {
  const CheckReport report = Checked(SeenScene(61, {.moveX = 1.0, .degrees = true}));
  EXPECT_TRUE(report.reprojects);
  EXPECT_NEAR(report.shift->dx, 1.0, 0.1);
  EXPECT_NEAR(report.shift->dy, 0.0, 0.1);
  EXPECT_THAT(Names(report, false), ElementsAre("system"));
  // The upright image in degrees lies within pan, which reaches 0.2 of it beyond on either side.
  EXPECT_EQ(report.ms.overlap, 1.0);
  EXPECT_NEAR(report.pan.overlap, 64.0 * 56.0 / ((64.0 + 25.5) * (56.0 + 25.5)), 0.03);
}

TEST(Check, KnowsABandThatPanDoesNotSee) {
  SeenScene scene(70, {});
  const SeenScene other(71, {});
  scene.ms.bands[1] = other.ms.bands[1];
  scene.Write();
  const CheckReport report = Checked(scene);
  EXPECT_THAT(Names(report), ElementsAre("coverage"));
  EXPECT_THAT(Warning(report, "coverage").text, HasSubstr("what band 2 shows."));
  EXPECT_NEAR(report.bands[1].detail, 0.0, 0.1);
  // Chosen bands alone count.
  CheckRequest request = Request(scene.panFile, scene.msFile);
  request.bands = {3, 1};
  const CheckReport chosen = fusion::Check(request);
  EXPECT_THAT(Names(chosen), IsEmpty());
  EXPECT_EQ(chosen.bands[0].name, "band 3");
}

TEST(Check, ImagesOfOtherGroundHaveNoDetailInCommon) {
  SeenScene scene(72, {});
  const SeenScene other(73, {});
  scene.ms.bands = other.ms.bands;
  scene.Write();
  EXPECT_THAT(Names(Checked(scene)), ElementsAre("detail"));
}

TEST(Check, TellsWhatHasNoData) {
  SeenScene scene(80, {});
  for (auto& band : scene.ms.bands) std::fill_n(band.begin(), 64 * 14, 0.0);
  scene.Write();
  // A quarter is 0, and nothing says that this is no value.
  const CheckReport fill = Checked(scene);
  EXPECT_THAT(Names(fill), testing::Contains("fill"));
  EXPECT_THAT(Names(fill), testing::Not(testing::Contains("saturation")));
  EXPECT_THAT(Warning(fill, "fill").text, HasSubstr("25 % of the multispectral pixels are 0 in all bands"));
  EXPECT_THAT(Warning(fill, "fill").advice, HasSubstr("--nodata 0"));
  CheckRequest request = Request(scene.panFile, scene.msFile);
  request.noData = 0.0;
  const CheckReport told = fusion::Check(request);
  EXPECT_THAT(Names(told), IsEmpty());
  EXPECT_THAT(Names(told, false), ElementsAre("system", "no-data"));
  EXPECT_EQ(told.bands[0].noData, 0.25);
  EXPECT_EQ(told.panBand->noData, 0.0);
  EXPECT_EQ(told.covered, 0.75);
  EXPECT_GT(told.bands[0].minimum, 0.0);
  // Where pan has no data elsewhere, hardly anything is left.
  std::fill_n(scene.pan.bands[0].begin() + 256 * 112, 256 * 112, 0.0);
  scene.Write(0.0);
  const CheckReport apart = Checked(scene);
  EXPECT_EQ(apart.panBand->noData, 0.5);
  EXPECT_EQ(apart.covered, 0.25);
  EXPECT_THAT(Names(apart), testing::Contains("no-data"));
}

TEST(Check, KnowsAnImageThatIsCutOffAtOneEnd) {
  SeenScene scene(90, {});
  EXPECT_THAT(Names(Checked(scene)), IsEmpty());
  const std::vector<double> pan = scene.pan.bands[0];
  std::vector<double> sorted = pan;
  std::sort(sorted.begin(), sorted.end());
  const double high = sorted[sorted.size() * 95 / 100];
  const double low = sorted[sorted.size() / 20];
  for (double& v : scene.pan.bands[0]) v = std::min(v, high);
  scene.Write();
  const CheckReport bright = Checked(scene);
  EXPECT_THAT(Names(bright), ElementsAre("saturation"));
  EXPECT_THAT(bright.findings[0].text, HasSubstr("pan is cut off at the bright end: up to 5 %"));
  EXPECT_NEAR(bright.panBand->atMaximum, 0.05, 1e-4);
  scene.pan.bands[0] = pan;
  for (double& v : scene.pan.bands[0]) v = std::max(v, low);
  scene.Write();
  EXPECT_THAT(Checked(scene).findings[0].text, HasSubstr("pan is cut off at the dark end: up to 5"));
  scene.pan.bands[0] = pan;
  const double bright3 = 1.05 * Mean(scene.ms.bands[2]);
  for (double& v : scene.ms.bands[2]) v = std::min(v, bright3);
  scene.Write();
  EXPECT_THAT(Warning(Checked(scene), "saturation").text, HasSubstr("band 3 is cut off at the bright end"));
}

TEST(Check, KnowsBandsOfOneValueAndOtherScales) {
  SeenScene scene(100, {});
  for (auto& band : scene.ms.bands) {
    for (double& v : band) v /= 10000.0;
  }
  std::fill(scene.ms.bands[0].begin(), scene.ms.bands[0].end(), 0.07);
  scene.Write();
  const CheckReport report = Checked(scene);
  EXPECT_THAT(Names(report), ElementsAre("constant", "scale"));
  EXPECT_THAT(Warning(report, "constant").text, HasSubstr("band 1 has the same value everywhere"));
}

TEST(Check, KnowsImagesThatAreNotAsSharpAsTheirPixels) {
  // Pan as blurred as the bands.
  const CheckReport blurred = Checked(SeenScene(111, {.blur = 0.3}));
  EXPECT_THAT(Names(blurred), ElementsAre("sharpness"));
  EXPECT_THAT(blurred.findings[0].text, HasSubstr("Pan is hardly sharper"));
  // Bands as of pixels twice as large.
  EXPECT_THAT(Names(Checked(SeenScene(112, {.blur = 2.2}))), ElementsAre("sharpness"));
}

TEST(Check, LaysImagesWithoutAGeoreferenceAsAFusionDoes) {
  const test_support::TemporaryFolder folder;
  for (const auto& [name, side] : {std::pair<std::string, int>("pan.tif", 64), {"ms.tif", 16}, {"odd.tif", 15}}) {
    test_support::TestRaster raster = test_support::MakeRaster(side, side, [](int x, int y) { return x * 7 % 5 + y; });
    raster.bands.push_back(raster.bands[0]);
    test_support::WriteRaster(raster, folder.WidePath(name));
  }
  CheckRequest request;
  request.pan = folder.Path("pan.tif");
  request.ms = folder.Path("ms.tif");
  const CheckReport taken = fusion::Check(request);
  EXPECT_EQ(taken.ratioX, 4.0);
  EXPECT_FALSE(taken.pan.hasPlace);
  EXPECT_FALSE(taken.ms.hasPlace);
  EXPECT_THAT(Names(taken, false), testing::Contains("georeference"));
  EXPECT_THAT(Names(taken), testing::Not(testing::Contains("georeference")));
  request.ms = folder.Path("odd.tif");
  EXPECT_THAT(Names(fusion::Check(request)), testing::Contains("georeference"));
  request.sameExtent = true;
  const CheckReport asked = fusion::Check(request);
  EXPECT_THAT(Names(asked), testing::Not(testing::Contains("georeference")));
  EXPECT_NEAR(asked.ratioX, 64.0 / 15.0, 1e-12);
}

TEST(Check, JudgesRealScenesAsTheyAre) {
  // Good ones, pairs that lie beside each other, a part, bands beyond the reach of pan.
  const std::vector<std::pair<std::string, std::vector<std::string>>> scenes = {
      {"l8_istanbul_3band", {}},         {"l8_momotombo_triple", {}},     {"l8_swath_nodata", {}},
      {"l8_pamplona_float", {"shift"}},  {"wv2_rotterdam_r4", {"shift"}}, {"l8_partial_overlap", {"overlap"}},
      {"l8_alabama_8band", {"coverage"}}};
  for (const auto& [scene, warnings] : scenes) {
    const std::wstring folder = test_support::RealSceneFolder(scene);
    if (folder.empty()) GTEST_SKIP() << "the real scenes are not there";
    EXPECT_EQ(Names(fusion::Check(Request(folder + L"/pan.tif", folder + L"/ms.tif"))), warnings) << scene;
  }
}

}  // namespace

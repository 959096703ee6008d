// `evaluate` as its users run it: its figures as JSON and as tables, how long it takes, what it says of a failure.
#include "apps/evaluate_command.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <ogr_spatialref.h>

#include <array>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "apps/exit_status.h"
#include "platform/system/sleep.h"
#include "tests/apps/scene_command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class EvaluateCommand : public SceneCommand {
 protected:
  test_support::CommandResult Evaluate(const std::string& fused, std::vector<std::string> options,
                                       const std::string& ms = "ms.tif") const {
    options.insert(options.begin(), {"evaluate", Path("pan.tif"), Path(ms), Path(fused), "--quiet"});
    return Run(options);
  }
  /// A part of 24 x 20 pixels of one of the scene's images on the pan grid, as part_NAME.
  void WritePart(const std::string& name, int left, int top) const {
    const auto whole = Image(name);
    auto part = whole;
    part.width = 24;
    part.height = 20;
    part.geoTransform[0] += left * whole.geoTransform[1];
    part.geoTransform[3] += top * whole.geoTransform[5];
    for (auto& band : part.bands) {
      const auto all = band;
      band.clear();
      for (int y = 0; y < part.height; ++y) {
        const auto row = all.begin() + (top + y) * whole.width + left;
        band.insert(band.end(), row, row + part.width);
      }
    }
    test_support::WriteImage(part, m_folder.WidePath("part_" + name), PDT_UINT16);
  }
  void Describe(const std::string& file, const std::vector<std::string>& names) const {
    GDALAllRegister();
    const std::unique_ptr<GDALDataset> dataset(GDALDataset::Open(Path(file).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ASSERT_TRUE(dataset);
    for (std::size_t b = 0; b < names.size(); ++b) {
      dataset->GetRasterBand(static_cast<int>(b) + 1)->SetDescription(names[b].c_str());
    }
  }
};

/// What stands between the blanks of each line.
std::vector<std::vector<std::string>> Words(const std::string& text) {
  std::vector<std::vector<std::string>> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    std::istringstream parts(line);
    lines.emplace_back();
    for (std::string word; parts >> word;) lines.back().push_back(word);
  }
  return lines;
}

TEST_F(EvaluateCommand, JsonNamesTheFiguresAsTheyArePublished) {
  ASSERT_EQ(Fuse("out.tif", {"--quiet"}).status, 0);
  const std::vector<std::string> files = {"evaluate", Path("pan.tif"), Path("ms.tif"), Path("out.tif")};
  const auto evaluate = [&](std::vector<std::string> options) {
    options.insert(options.begin(), files.begin(), files.end());
    return Run(options);
  };
  const auto run =
      evaluate({"--json", "--quiet", "--metric", "statistics,snr", "--bands", "2,3", "--fused-bands", "2,3"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, IsEmpty());
  const auto json = nlohmann::ordered_json::parse(run.out);
  ASSERT_EQ(json.size(), 2U);
  EXPECT_EQ(json["statistics"].size(), 7U);
  EXPECT_EQ(json["snr"].size(), 2U);
  const auto ms = Image("ms.tif");
  double mean = 0.0;
  for (const double v : ms.bands[1]) mean += v / static_cast<double>(ms.bands[1].size());
  EXPECT_NEAR(json["statistics"]["m_pMulMean"][0].get<double>(), mean, 1e-6);
  EXPECT_EQ(json["statistics"]["m_pFusionMean"].size(), 2U);

  EXPECT_EQ(evaluate({"--metric", "beauty"}).status, 2);
  EXPECT_EQ(evaluate({"--bands", "1,2"}).status, 2);
  EXPECT_EQ(evaluate({"--fused-bands", "9"}).status, 2);
  EXPECT_EQ(evaluate({"--pan-band", "2"}).status, 2);
  const auto missing = Run({"evaluate", Path("pan.tif"), Path("ms.tif"), Path("nix.tif"), "--json"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(nlohmann::json::parse(missing.out)["error_type"], 4);
  EXPECT_EQ(Run({"evaluate", Path("pan.tif"), Path("ms.tif"), Path("ms.tif")}).status, 2) << "not on pan's grid";
}

TEST_F(EvaluateCommand, HasAllMetricsUnlessSomeAreChosen) {
  const auto json = nlohmann::ordered_json::parse(Evaluate("truth.tif", {"--json"}).out);
  std::vector<std::string> metrics;
  for (const auto& [name, figures] : json.items()) metrics.push_back(name);
  EXPECT_THAT(metrics, ElementsAre("entropy", "statistics", "snr", "gradient"));
}

TEST_F(EvaluateCommand, JsonSpellsInfinitiesAndHasNullForWhatIsUndefined) {
  // Signal without strength, 10 log 0; and errors in parts of a fused band of zeros.
  auto ms = Image("ms.tif");
  auto fused = Image("truth.tif");
  ms.bands[0].assign(ms.bands[0].size(), 0.0);
  fused.bands[1].assign(fused.bands[1].size(), 0.0);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  test_support::WriteImage(fused, m_folder.WidePath("fused.tif"), PDT_UINT16);
  const auto json = nlohmann::json::parse(Evaluate("fused.tif", {"--metric", "snr,statistics", "--json"}).out);
  EXPECT_EQ(json["snr"]["m_pSNR"][0], "-inf");
  EXPECT_EQ(json["statistics"]["m_pRelativeError"][1], "inf");
  EXPECT_TRUE(json["statistics"]["m_pCorrelation"][1].is_null());
  EXPECT_TRUE(json["statistics"]["m_pCorrelation"][2].is_number());
}

TEST_F(EvaluateCommand, AFusedPartIsComparedWithItsOwnPartOfPan) {
  for (const std::string name : {"pan.tif", "truth.tif"}) WritePart(name, 17, 30);
  const auto joint = [&](const std::string& pan) {
    const auto run = Run(
        {"evaluate", Path(pan), Path("ms.tif"), Path("part_truth.tif"), "--metric", "entropy", "--json", "--quiet"});
    EXPECT_EQ(run.status, 0) << run.err;
    return nlohmann::json::parse(run.out)["entropy"]["m_pJointEntropy"];
  };
  // Pan's pixels count in the joint entropy: those of the part, the same as from a file that holds no others.
  EXPECT_EQ(joint("pan.tif"), joint("part_pan.tif"));
}

TEST_F(EvaluateCommand, AFusedImageThatReachesOutOfPanIsWrongUsage) {
  // A pixel of half a metre beyond each side.
  for (const auto& [east, south] : {std::pair{-0.5, 0.0}, {0.5, 0.0}, {0.0, -0.5}, {0.0, 0.5}}) {
    auto moved = Image("truth.tif");
    moved.geoTransform[0] += east;
    moved.geoTransform[3] -= south;
    test_support::WriteImage(moved, m_folder.WidePath("moved.tif"), PDT_UINT16);
    const auto run = Evaluate("moved.tif", {});
    EXPECT_EQ(run.status, 2) << east << ' ' << south;
    EXPECT_EQ(run.err, "fusion: The fused image does not lie inside the pan image.\n");
  }
}

TEST_F(EvaluateCommand, ImagesOfDifferentSystemsAreComparedOnTheSameGround) {
  // The same projection with the origin of its coordinates 60 m further west: the scene's 440000 is 440060 there.
  OGRSpatialReference system;
  system.SetWellKnownGeogCS("WGS84");
  system.SetTM(0.0, -3.0, 0.9996, 500060.0, 0.0);
  char* wkt = nullptr;
  ASSERT_EQ(system.exportToWkt(&wkt), OGRERR_NONE);
  // 900 where the scene would lie without that, 100 where it does lie, and around it.
  reference::Image ms;
  ms.width = 60;
  ms.height = 24;
  const double transform[6] = {439992.0, 2.0, 0.0, 4475008.0, 0.0, -2.0};
  std::copy_n(transform, 6, ms.geoTransform);
  ms.bands.emplace_back();
  for (int y = 0; y < ms.height; ++y) {
    for (int x = 0; x < ms.width; ++x) ms.bands[0].push_back(439992 + 2 * x < 440050 ? 900.0 : 100.0);
  }
  test_support::WriteImage(ms, m_folder.WidePath("other.tif"), PDT_UINT16, wkt);
  CPLFree(wkt);
  const auto run = Evaluate("truth.tif", {"--fused-bands", "1", "--metric", "statistics", "--json"}, "other.tif");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_DOUBLE_EQ(nlohmann::json::parse(run.out)["statistics"]["m_pMulMean"][0].get<double>(), 100.0);
}

TEST_F(EvaluateCommand, TablesHaveAColumnForEachPairOfBandsUnderItsLabel) {
  auto fused = Image("truth.tif");
  // Nothing to tell: an entropy of 0, which no band of the scene has.
  fused.bands[1].assign(fused.bands[1].size(), 7.0);
  test_support::WriteImage(fused, m_folder.WidePath("fused.tif"), PDT_UINT16);
  Describe("ms.tif", {"", "grün", "red edge, between red and infrared"});
  const std::vector<std::string> pairs = {"--bands", "1,2,3", "--fused-bands", "1,2,4"};
  auto asked = pairs;
  asked.insert(asked.end(), {"--metric", "entropy,snr"});
  const auto table = Evaluate("fused.tif", asked);
  ASSERT_EQ(table.status, 0) << table.err;
  asked.emplace_back("--json");
  const auto json = nlohmann::json::parse(Evaluate("fused.tif", asked).out);

  std::istringstream text(table.out);
  std::string header;
  std::getline(text, header);
  EXPECT_THAT(header, testing::StartsWith("entropy "));
  EXPECT_THAT(header, HasSubstr("  band 1 "));
  EXPECT_THAT(header, HasSubstr("  grün "));
  EXPECT_THAT(header, testing::EndsWith("  red edge, between red and infrared / 4"));

  const auto lines = Words(table.out);
  const auto row = [&](std::size_t line, std::vector<std::string> name, const nlohmann::json& values,
                       std::size_t first) {
    ASSERT_EQ(lines.at(line).size(), name.size() + 3) << line;
    for (std::size_t i = 0; i < name.size(); ++i) EXPECT_EQ(lines[line][i], name[i]);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(std::stod(lines[line][name.size() + i]), values[first + i].get<double>(), 1e-6) << line << ' ' << i;
    }
  };
  // Heading and five rows, heading and two rows.
  ASSERT_EQ(lines.size(), 9U);
  row(1, {"m_pEntropy", "(ms)"}, json["entropy"]["m_pEntropy"], 0);
  row(2, {"m_pEntropy", "(fused)"}, json["entropy"]["m_pEntropy"], 3);
  EXPECT_NE(lines[1][3], "0");
  EXPECT_EQ(lines[2][3], "0");
  EXPECT_EQ(lines[4][0], "m_pDeviationEntropy");
  EXPECT_EQ(lines[6][0], "snr");
  row(7, {"m_pSNR"}, json["snr"]["m_pSNR"], 0);

  // The widest label makes all columns as wide, in letters and not in bytes.
  std::getline(text, header);
  EXPECT_EQ(header.size(), 26U + 3 * (std::string("red edge, between red and infrared / 4").size() + 2));
}

TEST_F(EvaluateCommand, DoesNotWaitForEachMetric) {
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(Evaluate("truth.tif", {}).status, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3900)) << "a second for each of four";
}

/// In this process, where sleeping can be watched.
TEST_F(EvaluateCommand, DoesNotSleep) {
  int waits = 0;
  platform::SetSleep([&](unsigned int) { ++waits; });
  app::EvaluateOptions options;
  options.pan = Path("pan.tif");
  options.ms = Path("ms.tif");
  options.fused = Path("truth.tif");
  options.quiet = true;
  testing::internal::CaptureStdout();
  EXPECT_EQ(app::RunEvaluate(options), app::kSuccess);
  options.fused = Path("nix.tif");
  EXPECT_THROW(app::RunEvaluate(options), fusion::RunFailure);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(waits, 0);
  platform::SetSleep({});
}

TEST_F(EvaluateCommand, ImagesWithoutCommonGroundAreToldSo) {
  auto far = Image("ms.tif");
  far.geoTransform[0] += 1e6;
  test_support::WriteImage(far, m_folder.WidePath("far.tif"), PDT_UINT16);
  for (const std::string json : {"", "--json"}) {
    const auto run = Evaluate("truth.tif", json.empty() ? std::vector<std::string>{} : std::vector{json}, "far.tif");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "fusion: error 0: The fused and the multispectral image have no common ground. (设置的影像范围有误！)\n");
    EXPECT_EQ(run.out.empty(), json.empty());
  }
  // Common ground, but blocks beyond it: fused pixels in rows of their own reach out of the multispectral image.
  ASSERT_EQ(Run({"sample", Path("wide"), "--size", "1100x64", "--quiet"}).status, 0);
  auto wide = Image("wide/ms.tif");
  wide.geoTransform[3] += 20.0;
  test_support::WriteImage(wide, m_folder.WidePath("wide.tif"), PDT_UINT16);
  const auto run = Run({"evaluate", Path("wide/pan.tif"), Path("wide.tif"), Path("wide/truth.tif"), "--quiet"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("error 2: Part of the fused image has no multispectral pixels under it"));
}

}  // namespace

// Rows that are fused with a survey, gathered by rows and merged, are those of the whole run, byte for byte.
#include "runs/survey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <tuple>

#include "platform/utility/common_fun.h"
#include "runs/fuse.h"
#include "tests/support/part_scene.h"

namespace {

using reference::Image;
using test_support::Case;
using test_support::SceneOptions;
using testing::HasSubstr;

/// What a part needs of all its scene, and what else there is.
std::vector<Case> AllCases() {
  using R = fusion::FuseRequest;
  const auto method = [](const char* name, const std::function<void(R&)>& more) {
    return [=](R& o) {
      o.method = name;
      more(o);
    };
  };
  const auto published = [](R& o) { o.asPublished = true; };
  std::vector<Case> cases = test_support::Cases();
  cases.push_back({"bayesian, stretched", method("bayesian", [](R& o) { o.stretch = true; })});
  cases.push_back({"brovey, plain moments", method("brovey", [](R& o) { o.matchMoments = "plain"; })});
  cases.push_back({"brovey, green mix", method("brovey", [](R& o) { o.makeGreen = true; })});
  cases.push_back({"multiplicative, as published", method("multiplicative", published)});
  cases.push_back({"pca, as published", method("pca", published)});
  cases.push_back({"weighted, some bands", method("weighted", [](R& o) { o.bands = {4, 2, 1}; })});
  cases.push_back({"hpf, some bands", method("hpf", [](R& o) { o.bands = {4, 2, 1}; })});
  return cases;
}

class Surveys : public test_support::PartScene {
 protected:
  static fusion::SurveyRequest Survey(const fusion::FuseRequest& options) {
    fusion::SurveyRequest request;
    static_cast<fusion::FuseRequest&>(request) = options;
    request.overwrite = true;
    return request;
  }

  /// Random places between 0 and a height, ends included.
  std::vector<int> Cuts(int height, int parts) {
    std::vector<int> cuts = {0, height};
    for (int i = 1; i < parts; ++i) cuts.push_back(std::uniform_int_distribution<int>(0, height)(m_random));
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    return cuts;
  }

  /// Gathers and merges rounds until nothing is missing. Answers how many there were.
  int Gather(const fusion::FuseRequest& options, int parts, std::string& survey) {
    fusion::SurveyRequest request = Survey(options);
    survey.clear();
    for (int round = 0; round < 8; ++round) {
      request.survey = survey;
      request.dryRun = true;
      request.rows.clear();
      request.out.clear();
      const fusion::SurveyReport plan = fusion::MakeSurvey(request);
      m_height = plan.height;
      if (plan.complete) return round;
      request.dryRun = false;
      fusion::SurveyRequest merge;
      merge.overwrite = true;
      if (!survey.empty()) merge.merge = {survey};
      std::vector<int> cuts = Cuts(plan.height, parts);
      for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
        request.rows = {cuts[i], cuts[i + 1]};
        request.out = m_folder.Path("part" + std::to_string(i) + ".survey");
        fusion::MakeSurvey(request);
        merge.merge.push_back(request.out);
      }
      std::shuffle(merge.merge.begin(), merge.merge.end(), m_random);
      merge.out = m_folder.Path("round" + std::to_string(round) + ".survey");
      fusion::MakeSurvey(merge);
      survey = merge.out;
    }
    return -1;
  }

  void ExpectRowsOfWhole(const fusion::FuseRequest& given, const std::string& name) {
    SCOPED_TRACE(name);
    fusion::FuseRequest options = given;
    options.overwrite = true;
    options.noOverviews = true;
    options.out = m_folder.Path("whole.tif");
    fusion::Fuse(options);
    const Image whole = test_support::ReadImage(m_folder.WidePath("whole.tif"));
    std::string survey;
    const int rounds = m_rounds = Gather(options, 3, survey);
    ASSERT_GE(rounds, 0) << "more rounds than there can be";
    EXPECT_LE(rounds, given.autoLevel ? 6 : 3);
    ASSERT_EQ(m_height, whole.height);
    options.survey = survey;
    const std::vector<int> cuts = Cuts(whole.height, 3);
    for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
      options.rows = {cuts[i], cuts[i + 1]};
      options.out = m_folder.Path("rows.tif");
      fusion::Fuse(options);
      const Image part = test_support::ReadImage(m_folder.WidePath("rows.tif"));
      ASSERT_EQ(part.width, whole.width);
      ASSERT_EQ(part.height, cuts[i + 1] - cuts[i]);
      EXPECT_DOUBLE_EQ(part.geoTransform[0], whole.geoTransform[0]);
      EXPECT_NEAR(part.geoTransform[3], whole.geoTransform[3] + cuts[i] * whole.geoTransform[5], 1e-9);
      std::int64_t different = 0;
      for (std::size_t b = 0; b < whole.bands.size(); ++b) {
        const auto from = whole.bands[b].begin() + static_cast<std::ptrdiff_t>(cuts[i]) * whole.width;
        different += std::memcmp(&*from, part.bands[b].data(), part.bands[b].size() * sizeof(double)) != 0 ? 1 : 0;
      }
      EXPECT_EQ(different, 0) << "bands differ in rows " << cuts[i] << ":" << cuts[i + 1];
    }
  }
  void ExpectRowsOfWhole(const std::vector<Case>& cases = AllCases()) {
    for (const Case& c : cases) {
      fusion::FuseRequest options = m_options;
      c.choose(options);
      ExpectRowsOfWhole(options, c.name);
    }
  }

  std::mt19937 m_random{20};
  int m_height = 0;
  int m_rounds = 0;
};

TEST_F(Surveys, OfAnyRowsMakeTheRowsOfTheWholeWithEveryMethod) {
  SceneOptions options;
  options.panWidth = 24;
  options.panHeight = 1700;  // four blocks
  options.ratio = 2.37;
  Write(options);
  ExpectRowsOfWhole();
}

TEST_F(Surveys, AreTheSameWhereTheImagesOverlapInPart) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  options.msShiftX = 9.0;
  options.msShiftY = -7.0;
  options.msWidth = 20;
  options.msHeight = 18;
  Write(options);
  ExpectRowsOfWhole();
}

TEST_F(Surveys, AreTheSameBetweenCoordinateSystems) {
  WriteInTwoSystems();
  ExpectRowsOfWhole();
}

TEST_F(Surveys, AreTheSameWithGapsAndAnAreaOfInterest) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  options.panNoData = 0.0;
  options.msNoData = 0.0;
  Write(options);
  Image pan = m_scene->pan;
  for (std::size_t i = 0; i < pan.bands[0].size(); i += 7) pan.bands[0][i] = 0.0;
  test_support::WriteImage(pan, m_scene->panFile, PDT_UINT16, "", 0.0);
  ChooseArea({3, 2}, {55, 8}, {10, 47});
  ExpectRowsOfWhole();
}

TEST_F(Surveys, AreTheSameWhereEachBandHasAFileOfItsOwn) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  Write(options);
  std::vector<std::string> files;
  for (const auto& band : m_scene->ms.bands) {
    Image one = m_scene->ms;
    one.bands = {band};
    const std::string name = "band" + std::to_string(files.size()) + ".tif";
    test_support::WriteImage(one, m_folder.WidePath(name), PDT_UINT16);
    files.push_back(m_folder.Path(name));
  }
  m_options.ms = files[0];
  m_options.moreMs = {files.begin() + 1, files.end()};
  ExpectRowsOfWhole();
  // Of the last of them, too, it is known whose survey it is.
  m_options.method = "brovey";
  std::string survey;
  ASSERT_EQ(Gather(m_options, 2, survey), 1);
  Image other = m_scene->ms;
  other.bands = {m_scene->ms.bands[0]};
  test_support::WriteImage(other, m_folder.WidePath("band3.tif"), PDT_UINT16);
  m_options.survey = survey;
  m_options.rows = {0, 5};
  m_options.out = m_folder.Path("rows.tif");
  EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);
}

TEST_F(Surveys, AreCompleteWhereBlocksLieOutsideAnAreaOfInterest) {
  SceneOptions options;
  options.panWidth = 24;
  options.panHeight = 1700;
  Write(options);
  // Of the second block of the area no pixel has data.
  ChooseArea({2, 3}, {20, 3}, {2, 1690});
  Image pan = m_scene->pan;
  for (std::size_t i = 24 * 600; i < 24 * 1200; ++i) pan.bands[0][i] = 0.0;
  test_support::WriteImage(pan, m_scene->panFile, PDT_UINT16, "", 0.0);
  for (const char* method : {"weighted", "pca", "brovey"}) {
    m_options.method = method;
    ExpectRowsOfWhole(m_options, method);
  }
}

TEST_F(Surveys, FindOutOnceWhetherFloatsAreMissing) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  options.panType = PDT_FLOAT32;
  options.msType = PDT_FLOAT32;
  Write(options);
  Image pan = m_scene->pan;
  pan.bands[0][2500] = std::nan("");
  test_support::WriteImage(pan, m_scene->panFile, PDT_FLOAT32);
  m_options.method = "brovey";
  ExpectRowsOfWhole(m_options, "brovey");
  EXPECT_EQ(m_rounds, 2) << "what is masked decides what is counted";
}

TEST_F(Surveys, TakeAsManyRoundsAsMethodsNeed) {
  Write({});
  const std::vector<std::tuple<std::string, bool, int>> expected = {{"bayesian", false, 2},
                                                                    {"brovey", true, 1},
                                                                    {"brovey", false, 0},
                                                                    {"multiplicative", true, 1},
                                                                    {"multiplicative", false, 0},
                                                                    {"weighted", true, 3},
                                                                    {"weighted", false, 2},
                                                                    {"ihs", true, 2},
                                                                    {"ihs", false, 1},
                                                                    {"pca", false, 2},
                                                                    {"hpf", false, 2},
                                                                    {"sharpen", true, 1},
                                                                    {"sharpen", false, 0}};
  for (const auto& [method, matched, rounds] : expected) {
    fusion::FuseRequest options = m_options;
    options.method = method;
    if (!matched) options.spectralMatch = "off";
    std::string survey;
    EXPECT_EQ(Gather(options, 2, survey), rounds) << method << (matched ? ", matched" : "");
  }
}

TEST_F(Surveys, AreOfAWindowAndItsStatistics) {
  SceneOptions options;
  options.panWidth = 60;
  options.panHeight = 50;
  Write(options);
  m_options.window = {5, 6, 40, 30};
  for (const char* statistics : {"scene", "window"}) {
    for (const char* method : {"bayesian", "weighted", "hpf", "sharpen"}) {
      m_options.statistics = statistics;
      m_options.method = method;
      ExpectRowsOfWhole(m_options, std::string(method) + " of a " + statistics);
    }
  }
}

// Statistics passes of more than one window, and a model that is fitted to some strips.
TEST_F(Surveys, OfLargerImagesAreInManyPieces) {
  SceneOptions options;
  options.panWidth = 1300;
  options.panHeight = 1750;
  options.ratio = 1.0;
  Write(options);
  std::vector<Case> cases = AllCases();
  const std::vector<std::string> wanted = {"bayesian", "weighted", "ihs, raw", "pca", "hpf"};
  std::erase_if(cases, [&](const Case& c) { return std::count(wanted.begin(), wanted.end(), c.name) == 0; });
  ASSERT_EQ(cases.size(), wanted.size());
  ExpectRowsOfWhole(cases);
}

// Rows so long that blocks are lower than usual, and whole tiles high where tiles are written.
TEST_F(Surveys, AreTheSameWhateverFileIsWritten) {
  SceneOptions options;
  options.panWidth = 17000;
  options.panHeight = 300;
  options.ratio = 8.0;
  Write(options);
  m_options.method = "brovey";
  m_options.bands = {1, 2};
  m_options.creationOptions = {"TILED=YES", "BLOCKYSIZE=256"};
  ExpectRowsOfWhole(m_options, "brovey");
}

TEST_F(Surveys, OfSomethingElseAreRefused) {
  Write({});
  m_options.method = "brovey";
  std::string survey;
  ASSERT_EQ(Gather(m_options, 2, survey), 1);
  m_options.survey = survey;
  m_options.rows = {0, 5};
  m_options.out = m_folder.Path("rows.tif");
  const auto refusal = [](const fusion::FuseRequest& request) {
    try {
      fusion::Fuse(request);
    } catch (const fusion::RunFailure& failure) {
      return std::string(failure.what());
    }
    return std::string();
  };
  EXPECT_EQ(refusal(m_options), "");
  fusion::FuseRequest other = m_options;
  other.method = "sharpen";
  EXPECT_THAT(refusal(other), HasSubstr("is of other options"));
  other = m_options;
  other.pan = m_options.ms;
  EXPECT_THAT(refusal(other), HasSubstr("is of another pan image"));
  // Another image of the same kind in its place.
  Image pan = m_scene->pan;
  for (double& value : pan.bands[0]) value = value < 500.0 ? value + 1.0 : value - 1.0;
  test_support::WriteImage(pan, m_scene->panFile, PDT_UINT16);
  EXPECT_THAT(refusal(m_options), HasSubstr("is of another pan image"));
  other = m_options;
  other.survey = Narrow(m_scene->panFile);
  EXPECT_THAT(refusal(other), testing::Not(""));
}

TEST_F(Surveys, ThatLackSomethingOrAreDamagedAreRefused) {
  Write({});
  m_options.method = "brovey";
  std::string survey;
  ASSERT_EQ(Gather(m_options, 1, survey), 1);
  fusion::SurveyRequest half = Survey(m_options);
  half.rows = {1, 5};
  half.out = m_folder.Path("half.survey");
  fusion::MakeSurvey(half);
  m_options.rows = {0, 5};
  m_options.out = m_folder.Path("rows.tif");
  m_options.survey = half.out;
  EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);

  std::string bytes = test_support::FileBytes(survey);
  ASSERT_GT(bytes.size(), 200U);
  m_options.survey = m_folder.Path("damaged.survey");
  std::mt19937 random(3);
  for (int i = 0; i < 20; ++i) {
    std::string damaged = bytes;
    damaged[std::uniform_int_distribution<std::size_t>(0, bytes.size() - 1)(random)] ^= 0x10;
    std::ofstream(CommonFun::ToPath(CommonFun::Utf82U(m_options.survey)), std::ios::binary) << damaged;
    EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);
  }
  std::ofstream(CommonFun::ToPath(CommonFun::Utf82U(m_options.survey)), std::ios::binary)
      << bytes.substr(0, bytes.size() / 2);
  EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);
}

TEST_F(Surveys, RefuseRowsThatThereAreNot) {
  Write({});
  m_options.out = m_folder.Path("rows.tif");
  for (const std::vector<int>& rows : {std::vector{0, 30}, {-1, 5}, {5, 5}, {5, 4}, {5}}) {
    m_options.rows = rows;
    EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);
  }
  m_options.rows = {0, 29};
  m_options.method = fusion::kBestMethod;
  EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure);
  m_options.method = "brovey";
  EXPECT_NO_THROW(fusion::Fuse(m_options)) << "rows alone need no survey";
  m_options.rows.clear();
  m_options.survey = m_folder.Path("rows.tif");
  EXPECT_THROW(fusion::Fuse(m_options), fusion::RunFailure) << "a survey without rows";
}

}  // namespace

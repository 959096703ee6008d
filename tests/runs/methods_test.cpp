// The table of methods, the checks of a request, and the kernels that a run chooses.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <set>

#include "runs/fuse_checks.h"
#include "runs/highpass_setup.h"
#include "runs/notices.h"
#include "runs/run_progress.h"

namespace {

using fusion::FuseRequest;

FuseRequest Options(const std::string& method) {
  FuseRequest options;
  options.method = method;
  return options;
}

/// The sentence of the refusal, empty where the options are taken.
std::string Refusal(const FuseRequest& options) {
  try {
    fusion::CheckFuseRequest(options);
    return "";
  } catch (const fusion::RunFailure& error) {
    EXPECT_EQ(error.GetKind(), fusion::RunFailure::Kind::kWrongUsage);
    return error.what();
  }
}

TEST(Methods, AreTheEightWithBayesianAsTheDefault) {
  std::set<std::string> names;
  for (const auto& method : fusion::Methods()) names.insert(method.name);
  EXPECT_EQ(names, (std::set<std::string>{"bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf",
                                          "sharpen"}));
  EXPECT_STREQ(fusion::DefaultMethod().name, "bayesian");
  EXPECT_EQ(fusion::FindMethod("Brovey"), nullptr);
}

TEST(Methods, FiveAreMatchedByDefault) {
  const std::set<std::string> matched = {"brovey", "multiplicative", "weighted", "ihs", "sharpen"};
  for (const auto& method : fusion::Methods()) {
    const FuseRequest options = Options(method.name);
    EXPECT_EQ(fusion::CheckFuseRequest(options).matched, matched.contains(method.name)) << method.name;
    FuseRequest off = options;
    off.spectralMatch = "off";
    EXPECT_FALSE(fusion::CheckFuseRequest(off).matched) << method.name;
    FuseRequest on = options;
    on.spectralMatch = "on";
    EXPECT_EQ(Refusal(on).empty(), matched.contains(method.name)) << method.name;
  }
}

TEST(Methods, TellTheOptionsThatNotAllOfThemTake) {
  const std::map<std::string, std::vector<std::string>> expected = {
      {"bayesian", {"--resample", "--type", "--stretch", "--bayes-weight", "--registration"}},
      {"ihs", {"--resample", "--type", "--rgb", "--stretch", "--spectral-match", "--match-moments"}},
      {"hpf",
       {"--auto-level", "--kernel-size", "--detail-weight", "--second-kernel-size", "--second-detail-weight",
        "--detail-cap"}},
      {"sharpen", {"--type", "--spectral-match", "--match-moments", "--auto-level"}}};
  for (const auto& [name, options] : expected)
    EXPECT_EQ(fusion::OwnOptions(*fusion::FindMethod(name)), options) << name;
}

TEST(Methods, RefuseOptionsWithoutEffectAndNameTheMethodsThatTakeThem) {
  struct Case {
    std::function<void(FuseRequest&)> give;
    std::set<std::string> takenBy;
  };
  const std::set<std::string> all = {"bayesian", "brovey", "multiplicative", "weighted", "ihs",
                                     "pca",      "hpf",    "sharpen"};
  const std::set<std::string> plain = {"bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca"};
  std::set<std::string> typed = plain;
  typed.insert("sharpen");
  const std::set<std::string> pipelines = {"hpf", "sharpen"};
  const Case cases[] = {
      {[](FuseRequest& o) { o.resample = "nearest"; }, plain},
      {[](FuseRequest& o) { o.type = "float32"; }, typed},
      {[](FuseRequest& o) {
         o.rgb = {1, 2, 3};
       },
       {"ihs"}},
      {[](FuseRequest& o) { o.stretch = true, o.spectralMatch = "off"; }, plain},
      {[](FuseRequest& o) { o.autoLevel = true; }, pipelines},
      {[](FuseRequest& o) { o.makeGreen = true, o.spectralMatch = "off"; }, pipelines},
      {[](FuseRequest& o) { o.kernelSize = 5; }, {"hpf"}},
      {[](FuseRequest& o) { o.secondKernelSize = 5; }, {"hpf"}},
      {[](FuseRequest& o) { o.detailWeight = 0.5; }, {"hpf"}},
      {[](FuseRequest& o) { o.secondDetailWeight = 0.5; }, {"hpf"}},
      {[](FuseRequest& o) { o.bayesWeight = 0.5; }, {"bayesian"}},
      {[](FuseRequest& o) { o.registration = "off"; }, {"bayesian"}},
      {[](FuseRequest& o) { o.registration = "report"; }, {"bayesian"}},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    for (const auto& method : all) {
      FuseRequest options = Options(method);
      cases[i].give(options);
      const std::string refusal = Refusal(options);
      EXPECT_EQ(refusal.empty(), cases[i].takenBy.contains(method))
          << "case " << i << ", " << method << ": " << refusal;
      if (refusal.empty()) continue;
      for (const auto& taker : cases[i].takenBy) EXPECT_NE(refusal.find(taker), std::string::npos) << refusal;
    }
  }
}

TEST(Methods, RefuseWrongValues) {
  const auto refused = [](const std::string& method, const std::function<void(FuseRequest&)>& give) {
    FuseRequest options = Options(method);
    give(options);
    return !Refusal(options).empty();
  };
  EXPECT_TRUE(refused("magic", [](FuseRequest&) {}));
  EXPECT_TRUE(refused("brovey", [](FuseRequest& o) { o.type = "int12"; }));
  EXPECT_TRUE(refused("brovey", [](FuseRequest& o) { o.resample = "lanczos"; }));
  EXPECT_TRUE(refused("brovey", [](FuseRequest& o) { o.format = "papyrus"; }));
  EXPECT_TRUE(refused("brovey", [](FuseRequest& o) { o.spectralMatch = "maybe"; }));
  EXPECT_TRUE(refused("brovey", [](FuseRequest& o) { o.stretch = true; }));
  EXPECT_TRUE(refused("pca", [](FuseRequest& o) { o.stretch = true, o.type = "float32"; }));
  EXPECT_TRUE(refused("sharpen", [](FuseRequest& o) { o.autoLevel = true, o.spectralMatch = "on"; }));
  EXPECT_TRUE(refused("ihs", [](FuseRequest& o) { o.rgb = {1, 2}; }));
  for (const int size : {-3, 0, 1, 4, 33}) {
    EXPECT_TRUE(refused("hpf", [&](FuseRequest& o) { o.kernelSize = size; })) << size;
    EXPECT_TRUE(refused("hpf", [&](FuseRequest& o) { o.secondKernelSize = size; })) << size;
  }
  EXPECT_TRUE(refused("bayesian", [](FuseRequest& o) { o.registration = "perhaps"; }));
  for (const double weight : {0.0, 1.0}) {
    EXPECT_FALSE(refused("bayesian", [&](FuseRequest& o) { o.bayesWeight = weight; })) << weight;
  }
  for (const double weight : {-0.1, 1.1, std::nan("")}) {
    EXPECT_TRUE(refused("bayesian", [&](FuseRequest& o) { o.bayesWeight = weight; })) << weight;
  }
  for (const double weight : {double{INFINITY}, double{-INFINITY}, std::nan("")}) {
    EXPECT_TRUE(refused("hpf", [&](FuseRequest& o) { o.detailWeight = weight; })) << weight;
    EXPECT_TRUE(refused("hpf", [&](FuseRequest& o) { o.secondDetailWeight = weight; })) << weight;
  }
  for (const std::vector<int>& window : {std::vector<int>{0, 0, 10}, {0, 0, 0, 10}, {0, 0, 10, -1}}) {
    EXPECT_TRUE(refused("brovey", [&](FuseRequest& o) { o.window = window; }));
  }
  EXPECT_FALSE(refused("hpf", [](FuseRequest& o) { o.kernelSize = 31, o.secondKernelSize = 3; }));
  EXPECT_FALSE(refused("brovey", [](FuseRequest& o) { o.window = {-5, -5, 10, 10}; }));
  EXPECT_FALSE(refused("brovey", [](FuseRequest& o) { o.resample = "cubic", o.format = "geotiff"; }));
}

TEST(Methods, AutoLevelSwitchesTheMatchingOff) {
  FuseRequest options = Options("sharpen");
  options.autoLevel = true;
  EXPECT_FALSE(fusion::CheckFuseRequest(options).matched);
}

TEST(HighPassKernels, GrowWithTheRatioOfThePixels) {
  const std::pair<double, int> expected[] = {{1.0, 5},  {2.0, 5},  {2.49, 5}, {2.5, 7},  {3.49, 7},
                                             {3.5, 9},  {4.0, 9},  {5.49, 9}, {5.5, 11}, {7.49, 11},
                                             {7.5, 13}, {9.4, 13}, {9.5, 15}, {40.0, 15}};
  for (const auto& [ratio, size] : expected) EXPECT_EQ(fusion::DefaultKernelSize(ratio), size) << ratio;
}

TEST(HighPassKernels, AreThePixelLessTheMeanAroundIt) {
  FuseRequest options = Options("hpf");
  options.kernelSize = 7;
  options.secondKernelSize = 3;
  HpfFusionParam param;
  fusion::RunProgress progress(nullptr);
  fusion::Notices notices(nullptr);
  fusion::FuseReport found;
  fusion::MakeHpf(param, {options, fusion::Guards(), 0.0, progress, notices, found});
  ASSERT_TRUE(param.m_bSecondFilter);
  const std::pair<const FilterDescription*, int> filters[] = {{&param.m_filter1, 7}, {&param.m_filter2, 3}};
  for (const auto& [filter, size] : filters) {
    SCOPED_TRACE(size);
    EXPECT_EQ(filter->m_nWidth, size);
    EXPECT_EQ(filter->m_nHeight, size);
    EXPECT_EQ(filter->m_nCenterX, size / 2);
    EXPECT_EQ(filter->m_nCenterY, size / 2);
    ASSERT_EQ(filter->m_vecCoefficients.size(), static_cast<std::size_t>(size * size));
    // Every pixel counts for -1/n in the mean, the one in the middle for 1 - 1/n.
    const double n = size * size;
    for (int i = 0; i < size * size; ++i) {
      EXPECT_NEAR(filter->m_vecCoefficients[static_cast<std::size_t>(i)] * filter->m_dScale,
                  i == size * size / 2 ? 1.0 - 1.0 / n : -1.0 / n, 1e-12);
    }
  }
}

}  // namespace

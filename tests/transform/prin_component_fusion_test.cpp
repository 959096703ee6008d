#include "transform/prin_component_fusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <utility>

#include "tests/support/method_sweep.h"

namespace {

using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

/// Shows the matrices of the run that was made last.
class Recorded : public CPrinComponentFusion {
 public:
  using CPrinComponentFusion::CPrinComponentFusion;
  GISError Preproccess() override {
    const GISError result = CPrinComponentFusion::Preproccess();
    const auto n = static_cast<std::size_t>(m_param.m_nOutBandCount);
    if (result == GIS_SUCCESS) {
      s_transform.assign(&m_pTransform[0], &m_pTransform[n * n]);
      s_inverse.assign(&m_pInverseTransform[0], &m_pInverseTransform[n * n]);
    }
    return result;
  }
  static std::vector<double> s_transform;
  static std::vector<double> s_inverse;
};
std::vector<double> Recorded::s_transform;
std::vector<double> Recorded::s_inverse;

std::vector<double> Multiply(const std::vector<double>& matrix, const std::vector<double>& x) {
  std::vector<double> y;
  for (std::size_t r = 0; r < x.size(); ++r) {
    double sum = 0.0;
    for (std::size_t c = 0; c < x.size(); ++c) sum += matrix[r * x.size() + c] * x[c];
    y.push_back(sum);
  }
  return y;
}

/// The definition with the matrices that the run found; how they come about is tested on its own.
reference::Run PcaReference(const Scene& scene, const FusionParam& param) {
  reference::Run run = scene.Reference(param);
  run.arithmetic = [](const reference::Pixel& pixel) {
    std::vector<double> y = Multiply(Recorded::s_transform, pixel.ms);
    y[0] = pixel.pan;
    return Multiply(Recorded::s_inverse, y);
  };
  return run;
}

class PcaDefinition : public test_support::MethodSweep {};

TEST_P(PcaDefinition, HoldsForRatiosOffsetsAreasAndMasks) { Sweep<Recorded>(PcaReference); }

INSTANTIATE_TEST_SUITE_P(AllTypes, PcaDefinition, test_support::AllTypesAndResamplings(), test_support::SweepCaseName);

TEST(PrinComponentFusion, BandsThatAreMultiplesOfEachOtherComeOutInTheirProportion) {
  // Bands 1, 2 and 3 times a common grey: one component only, t = (1, 2, 3) / sqrt(14), scaled by 1 / its sum so that
  // the component is (b1 + 2 b2 + 3 b3) / 6. Back: pan times the vector whose component is 1: pan (1, 2, 3) 6 / 14.
  std::vector<double> grey;
  std::vector<double> pan;
  for (int i = 0; i < 40; ++i) {
    grey.push_back(10.0 + (i * 17) % 40);
    pan.push_back(100.0 + i);
  }
  std::vector<std::vector<double>> bands(3);
  for (const double g : grey) {
    for (std::size_t b = 0; b < 3; ++b) bands[b].push_back(g * static_cast<double>(b + 1));
  }
  const test_support::OneRow row(pan, bands);
  const auto out = row.Fuse<Recorded>();
  EXPECT_NEAR(Recorded::s_transform[0], 1.0 / 6.0, 1e-12);
  EXPECT_NEAR(Recorded::s_transform[1], 2.0 / 6.0, 1e-12);
  EXPECT_NEAR(Recorded::s_transform[2], 3.0 / 6.0, 1e-12);
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < pan.size(); ++i) {
      EXPECT_NEAR(out[b][i], pan[i] * static_cast<double>(b + 1) * 6.0 / 14.0, 1e-9);
    }
  }
}

TEST(PrinComponentFusion, TwoBandsOfEqualSpreadByHand) {
  // Deviations (-3 -1), (-1 -3), (1 3), (3 1): equal variances, covariance 3. Components (1 1), scaled to a mean, and
  // (1 -1) / sqrt(2). With pan for the mean of both bands a pixel becomes pan plus and minus half the bands'
  // difference.
  const test_support::OneRow row({100.0, 50.0, 0.0, 7.0}, {{17.0, 19.0, 21.0, 23.0}, {39.0, 37.0, 43.0, 41.0}});
  const auto out = row.Fuse<Recorded>();
  const double root = std::sqrt(0.5);
  const double transform[] = {0.5, 0.5, root, -root};
  const double inverse[] = {1.0, root, 1.0, -root};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(Recorded::s_transform[i], transform[i], 1e-12);
    EXPECT_NEAR(Recorded::s_inverse[i], inverse[i], 1e-12);
  }
  const double first[] = {89.0, 41.0, -11.0, -2.0};
  const double second[] = {111.0, 59.0, 11.0, 16.0};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_NEAR(out[0][i], first[i], 1e-12);
    EXPECT_NEAR(out[1][i], second[i], 1e-12);
  }
}

/// Mean and deviation of the values that count.
std::pair<double, double> MomentsOf(const std::vector<double>& values, const std::function<bool(std::size_t)>& counts) {
  long double n = 0;
  long double sum = 0;
  long double squares = 0;
  for (std::size_t i = 0; i < values.size(); ++i) n += counts(i) ? 1 : 0, sum += counts(i) ? values[i] : 0.0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    squares += counts(i) ? (values[i] - sum / n) * (values[i] - sum / n) : 0.0L;
  }
  return {static_cast<double>(sum / n), static_cast<double>(std::sqrt(squares / n))};
}

TEST(PrinComponentFusion, PanCanBeBroughtToTheMomentsOfTheFirstComponent) {
  for (const bool inArea : {false, true}) {
    SceneOptions options;
    options.panHeight = 700;  // two blocks
    const Scene scene(72, options);
    FusionParam param = scene.Param();
    const auto counts = [&](std::size_t i) {
      return !inArea || static_cast<double>(i % 37) + 0.5 + static_cast<double>(i / 37) + 0.5 < 20.0;
    };
    if (inArea) {
      param.m_strAoiFile = L"/vsimem/pca_area.csv";
      const double x = scene.pan.geoTransform[0];
      const double y = scene.pan.geoTransform[3];
      test_support::WriteTriangle(param.m_strAoiFile, {x, y}, {x + 200.0, y}, {x, y - 200.0});
    }
    Recorded fusion(&param);
    fusion.MatchPan(true);
    fusion.Process();
    test_support::ExpectSuccess(fusion);
    std::vector<double> component;
    for (std::size_t i = 0; i < scene.ms.bands[0].size(); ++i) {
      const std::vector<double> pixel = {scene.ms.bands[0][i], scene.ms.bands[1][i], scene.ms.bands[2][i]};
      component.push_back(Multiply(Recorded::s_transform, pixel)[0]);
    }
    const auto [mean, deviation] = MomentsOf(component, [](std::size_t) { return true; });
    const auto [panMean, panDeviation] = MomentsOf(scene.pan.bands[0], counts);
    // Of random images either may be.
    const double sign = fusion.GetPanFactor() < 0.0 ? -1.0 : 1.0;
    EXPECT_NEAR(fusion.GetPanFactor(), sign * deviation / panDeviation, 1e-9);
    EXPECT_NEAR(fusion.GetPanOffset(), mean - sign * panMean * deviation / panDeviation, 1e-6);
    reference::Run run = scene.Reference(param);
    if (inArea) {
      run.process = CRect(0, 0, 20, 20);
      run.inside = [&](int column, int row) { return column + 0.5 + row + 0.5 < 20.0; };
    }
    run.arithmetic = [&, f = fusion.GetPanFactor(), o = fusion.GetPanOffset()](const reference::Pixel& pixel) {
      std::vector<double> y = Multiply(Recorded::s_transform, pixel.ms);
      y[0] = pixel.pan * f + o;
      return Multiply(Recorded::s_inverse, y);
    };
    test_support::ExpectEqual(ReadImage(scene.outFile), reference::Fuse(run), 1e-12);
  }
}

TEST(PrinComponentFusion, PanThatGoesAgainstTheFirstComponentIsTurnedOver) {
  // Multiples of a common grey, and pan its negative on another scale: what is brought is the component itself.
  std::vector<double> grey;
  std::vector<double> pan;
  for (int i = 0; i < 40; ++i) {
    grey.push_back(10.0 + (i * 17) % 40);
    pan.push_back(1000.0 - 3.0 * grey.back());
  }
  std::vector<std::vector<double>> bands(3);
  for (const double g : grey) {
    for (std::size_t b = 0; b < 3; ++b) bands[b].push_back(g * static_cast<double>(b + 1));
  }
  const test_support::OneRow row(pan, bands);
  const auto out =
      row.Fuse<CPrinComponentFusion>(PDT_FLOAT64, [](CPrinComponentFusion& fusion) { fusion.MatchPan(true); });
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < pan.size(); ++i) EXPECT_NEAR(out[b][i], bands[b][i], 1e-9);
  }
}

TEST(PrinComponentFusion, PanEqualToTheFirstComponentChangesNothing) {
  SceneOptions options;
  options.ratio = 1.0;
  options.msType = PDT_FLOAT64;
  options.panType = PDT_FLOAT64;
  Scene scene(71, options);
  FusionParam param = scene.Param();
  param.m_eResampleType = RT_NEAREST;
  Recorded(&param).Process();
  for (std::size_t i = 0; i < scene.pan.bands[0].size(); ++i) {
    scene.pan.bands[0][i] =
        Multiply(Recorded::s_transform, {scene.ms.bands[0][i], scene.ms.bands[1][i], scene.ms.bands[2][i]})[0];
  }
  test_support::WriteImage(scene.pan, scene.panFile, PDT_FLOAT64);
  Recorded(&param).Process();
  const auto out = ReadImage(scene.outFile);
  for (std::size_t b = 0; b < 3; ++b) {
    for (std::size_t i = 0; i < out.bands[b].size(); ++i) ASSERT_NEAR(out.bands[b][i], scene.ms.bands[b][i], 1e-9);
  }
}

TEST(PrinComponentFusion, WithTheIdentityThePanTakesTheFirstBand) {
  class Identity : public CPrinComponentFusion {
   public:
    using CPrinComponentFusion::CPrinComponentFusion;
    GISError Preproccess() override {
      const GISError result = CPrinComponentFusion::Preproccess();
      for (int i = 0; i < 9; ++i) m_pTransform[i] = m_pInverseTransform[i] = i % 4 == 0 ? 1.0 : 0.0;
      return result;
    }
  };
  const test_support::OneRow row({5.0, 6.0}, {{1.0, 2.0}, {3.0, 4.0}, {7.0, 9.0}});
  const auto out = row.Fuse<Identity>();
  EXPECT_EQ(out[0], (std::vector<double>{5.0, 6.0}));
  EXPECT_EQ(out[1], (std::vector<double>{3.0, 4.0}));
  EXPECT_EQ(out[2], (std::vector<double>{7.0, 9.0}));
}

TEST(PrinComponentFusion, UnknownResamplingGivesTheBackTransformOfPanAlone) {
  const Scene scene(72);
  FusionParam param = scene.Param();
  param.m_eResampleType = static_cast<ResampleType>(5);
  Recorded(&param).Process();
  const auto out = ReadImage(scene.outFile);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_DOUBLE_EQ(out.bands[b][17], Recorded::s_inverse[b * 3] * scene.pan.bands[0][17]);
  }
}

TEST(PrinComponentFusion, RefusesAnythingButAllBands) {
  const Scene scene(73);
  const auto expectRefusal = [&](const std::vector<std::int32_t>& bands, int outBandCount) {
    FusionParam param = scene.Param();
    param.m_vecMSBands = bands;
    param.m_nOutBandCount = outBandCount;
    test_support::RecordingProgress progress;
    CPrinComponentFusion fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 11);
    EXPECT_EQ(fusion.GetLastErrorMessage(), L"请选择多光谱影像所有波段进行处理！");
    EXPECT_EQ(progress.Errors(), 1);
  };
  expectRefusal({0, 1}, 0);
  expectRefusal({}, 2);
  expectRefusal({}, 4);
  expectRefusal({0, 1, 2, 0}, 0);
}

TEST(PrinComponentFusion, TheNumberOfOutputBandsAloneDecidesWhetherARunIsTaken) {
  // m bands are chosen of an image of three; the matrices are read with rows of m, and hold nothing behind their nine
  // values.
  const Scene scene(75);
  for (const auto& bands : {std::vector<std::int32_t>{2, 0}, {1}, {2, 1, 0}, {0, 1, 2, 0}, {2, 1, 0, 2, 1}}) {
    FusionParam param = scene.Param();
    param.m_vecMSBands = bands;
    param.m_nOutBandCount = 3;
    reference::Run run = scene.Reference(param);
    run.arithmetic = [m = bands.size()](const reference::Pixel& pixel) {
      const auto multiply = [m](const std::vector<double>& matrix, const std::vector<double>& x) {
        std::vector<double> y;
        for (std::size_t r = 0; r < m; ++r) {
          double sum = 0.0;
          for (std::size_t c = 0; c < m; ++c) sum += (r * m + c < 9 ? matrix[r * m + c] : 0.0) * x[c];
          y.push_back(sum);
        }
        return y;
      };
      std::vector<double> y = multiply(Recorded::s_transform, pixel.ms);
      y[0] = pixel.pan;
      std::vector<double> out = multiply(Recorded::s_inverse, y);
      out.resize(3, 0.0);
      return out;
    };
    test_support::ExpectDefinition<Recorded>(scene, param, run);
  }
}

/// Shows what the statistics filled, and what is left at the end.
class OpenedPca : public CPrinComponentFusion {
 public:
  using CPrinComponentFusion::CPrinComponentFusion;
  using CPrinComponentFusion::m_pFirstStatics;
  using CPrinComponentFusion::m_pInverseTransform;
  using CPrinComponentFusion::m_pMeans;
  using CPrinComponentFusion::m_pSecondStatics;
  using CPrinComponentFusion::m_pTransform;
  using CPrinComponentFusion::m_strTempFile;
  GISError Preproccess() override {
    answer = CPrinComponentFusion::Preproccess();
    if (answer == GIS_SUCCESS) {
      first.assign(&m_pFirstStatics[0], &m_pFirstStatics[m_param.m_nOutBandCount]);
      second.assign(&m_pSecondStatics[0], &m_pSecondStatics[m_param.m_nOutBandCount]);
    }
    return answer;
  }
  GISError answer = GIS_SUCCESS;
  std::vector<double> first;
  std::vector<double> second;
};

TEST(PrinComponentFusion, StatisticsAreThoseOfTheWholeImageWhateverAreaAndReporter) {
  SceneOptions options;
  options.msNoData = 7.0;
  const Scene scene(76, options);
  FusionParam param = scene.Param();
  Recorded(&param).Process();
  const auto whole = Recorded::s_transform;
  param.m_rcProcess = {2, 2, 20, 20};
  param.m_strAoiFile = L"/vsimem/pca_area.csv";
  test_support::WriteTriangle(param.m_strAoiFile, {440050.0, 4469960.0}, {440150.0, 4469960.0}, {440050.0, 4469860.0});
  test_support::RecordingProgress progress;
  progress.RequestCancel();
  Recorded fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_EQ(Recorded::s_transform, whole);
}

TEST(PrinComponentFusion, MeansAreTheSecondStatisticsAndDeviationsTheFirst) {
  const Scene scene(77);
  FusionParam param = scene.Param();
  OpenedPca fusion(&param);
  fusion.Process();
  ASSERT_EQ(fusion.first.size(), 3u);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(fusion.second[b], test_support::Mean(scene.ms.bands[b]), 1e-9);
    EXPECT_NEAR(fusion.first[b], test_support::Deviation(scene.ms.bands[b]), 1e-9);
  }
  EXPECT_EQ(fusion.m_pFirstStatics, nullptr) << "all are freed at the end";
  EXPECT_EQ(fusion.m_pSecondStatics, nullptr);
  EXPECT_EQ(fusion.m_pTransform, nullptr);
  EXPECT_EQ(fusion.m_pInverseTransform, nullptr);
}

TEST(PrinComponentFusion, MatchedRunPreparesAndMatchesNothing) {
  const Scene scene(78);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  OpenedPca fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  EXPECT_EQ(fusion.m_pMeans, nullptr);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
  EXPECT_TRUE(test_support::FileExists(fusion.m_strTempFile));
  CRasterSource::DeleteFileW(fusion.m_strTempFile);
}

TEST(PrinComponentFusion, RefusalIsAnsweredWithFour) {
  const Scene scene(79);
  FusionParam param = scene.Param();
  param.m_nOutBandCount = 2;
  OpenedPca fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.answer, 4);
  EXPECT_EQ(fusion.GetLastErrorType(), 11);
}

TEST(PrinComponentFusion, LeavesTheValueConversionToTheCaller) {
  test_support::ExpectConversionKept<CPrinComponentFusion>();
}

TEST(PrinComponentFusion, PreparingWithoutOpenImagesFails) {
  EXPECT_EQ(CPrinComponentFusion(nullptr).Preproccess(), 4);
}

TEST(PrinComponentFusion, ImageWithoutAnyValidPixelGoesOnWithZeroMatrices) {
  SceneOptions options;
  options.msNoData = 5.0;
  Scene scene(74, options);
  for (auto& band : scene.ms.bands) std::fill(band.begin(), band.end(), 5.0);
  test_support::WriteImage(scene.ms, scene.msFile, PDT_UINT16, "", 5.0);
  FusionParam param = scene.Param();
  CPrinComponentFusion fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  for (const auto& band : ReadImage(scene.outFile).bands) {
    for (const double v : band) ASSERT_EQ(v, 0.0);
  }
}

TEST(PrinComponentFusion, ConstantImageStillRuns) {
  const test_support::OneRow row({5.0, 6.0, 7.0}, {{4, 4, 4}, {4, 4, 4}, {4, 4, 4}});
  const auto out = row.Fuse<CPrinComponentFusion>();
  ASSERT_EQ(out.size(), 3u);
  for (const auto& band : out) {
    for (const double v : band) EXPECT_TRUE(std::isfinite(v));
  }
}

TEST(PrinComponentFusion, CommonRulesOfAMethodHold) { test_support::ExpectCommonRules<CPrinComponentFusion>(); }

}  // namespace

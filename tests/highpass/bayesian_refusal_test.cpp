// Where there is no model to be had, and how an estimation ends early.
#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <optional>

#include "highpass/bayesian_model.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"
#include "tests/support/seen_scene.h"

namespace {

using test_support::Scene;
using test_support::SceneOptions;
using test_support::SeenScene;
using test_support::WriteImage;

BayesianFusionParam BayesianRecord(const Scene& scene) {
  BayesianFusionParam param;
  static_cast<FusionParam&>(param) = scene.Param();
  param.m_dBayesParam = 0.5;
  return param;
}

class BayesianRefusal : public testing::Test {
 protected:
  BayesianRefusal() : m_scene(200), m_param(BayesianRecord(m_scene)) {}
  ~BayesianRefusal() override { platform::SetRasterFault({}); }

  void ExpectError(int type, const std::wstring& message = {}) {
    test_support::RecordingProgress progress;
    BayesianModelEstimator estimator(m_param);
    estimator.SetProgress(&progress);
    estimator.SetOverlappedIo(m_overlapped);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), type);
    EXPECT_FALSE(estimator.GetLastErrorMessage().empty());
    if (!message.empty()) {
      EXPECT_EQ(estimator.GetLastErrorMessage(), message);
    }
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_FALSE(progress.Finished());
    EXPECT_TRUE(estimator.GetModel().transform.empty());
    EXPECT_FALSE(estimator.GetModel().source);
    EXPECT_TRUE(estimator.GetEstimate().gains.empty());
  }
  /// What is in the way of a whole model, where there is no error.
  BayesianDoubt Doubt() {
    BayesianModelEstimator estimator(m_param);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 0);
    m_model = estimator.GetModel();
    return estimator.GetEstimate().doubt;
  }
  void Rewrite() {
    WriteImage(m_scene.pan, m_scene.panFile, PDT_FLOAT64, "", m_noData);
    WriteImage(m_scene.ms, m_scene.msFile, PDT_FLOAT64, "", m_noData);
  }

  Scene m_scene;
  BayesianFusionParam m_param;
  std::optional<double> m_noData;
  bool m_overlapped = false;
  BayesianModel m_model;
};

/// Bands that are resampled and nothing else.
void ExpectNothingAdded(const BayesianModel& model) {
  const std::size_t n = model.panCovariance.size();
  EXPECT_EQ(model.panCovariance, std::vector<double>(n, 0.0));
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) EXPECT_EQ(model.transform[i * n + j], i == j && i + 1 < n ? 1.0 : 0.0);
  }
}

TEST_F(BayesianRefusal, TooFewCommonPixelsAreADoubtAndNoError) {
  m_scene.ms.geoTransform[0] += 34.0 * 10.0;  // one whole column under the pan image, a corner of it
  m_scene.ms.geoTransform[3] -= 24.0 * 10.0;
  Rewrite();
  EXPECT_EQ(Doubt(), BayesianDoubt::kNoDetail);
  m_scene.ms.geoTransform[0] += 1e6;
  Rewrite();
  EXPECT_EQ(Doubt(), BayesianDoubt::kNoDetail);
  ExpectNothingAdded(m_model);
}

TEST_F(BayesianRefusal, FewPixelsGetOneGainABand) {
  // The outermost three do not count: 48 are left, where 50 are wanted.
  const test_support::SeenScene scene(72, {.ratioX = 2.0, .ratioY = 2.0, .msWidth = 14, .msHeight = 12});
  m_param = scene.Record();
  EXPECT_EQ(Doubt(), BayesianDoubt::kFewSamples);
  for (std::size_t b = 0; b < 3; ++b) EXPECT_EQ(m_model.transform[12 + b], -m_model.panCovariance[b]);
}

TEST_F(BayesianRefusal, PanWithoutDetailAddsNothing) {
  for (double& v : m_scene.pan.bands[0]) v = 1234.1;
  Rewrite();
  EXPECT_EQ(Doubt(), BayesianDoubt::kNoDetail);
  ExpectNothingAdded(m_model);
}

TEST_F(BayesianRefusal, PanOfAnotherGroundGetsOneGainABand) {
  const test_support::SeenScene scene(70, {.ratioX = 2.0, .ratioY = 2.0});
  const test_support::SeenScene other(71, {.ratioX = 2.0, .ratioY = 2.0});
  m_param = scene.Record();
  EXPECT_EQ(Doubt(), BayesianDoubt::kNone);
  m_param.m_strPanFile = other.panFile;
  EXPECT_EQ(Doubt(), BayesianDoubt::kUnlike);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NE(m_model.panCovariance[b], 0.0);
    EXPECT_EQ(m_model.transform[12 + b], -m_model.panCovariance[b]);
    for (std::size_t j = 0; j < 3; ++j) EXPECT_EQ(m_model.transform[j * 4 + b], j == b ? 1.0 : 0.0);
  }
}

TEST_F(BayesianRefusal, ConstantAndDependentBandsAreNoError) {
  for (double& v : m_scene.ms.bands[1]) v = 0.7;
  Rewrite();
  Doubt();
  EXPECT_NEAR(m_model.panCovariance[1], 0.0, 1e-12);
  m_scene.ms.bands[1] = m_scene.ms.bands[0];
  Rewrite();
  Doubt();
  EXPECT_NEAR(m_model.panCovariance[0], m_model.panCovariance[1], 1e-9);
  for (const double v : m_model.transform) EXPECT_TRUE(std::isfinite(v));
}

TEST_F(BayesianRefusal, ASingleBand) {
  m_param.m_vecMSBands = {1};
  ExpectError(11, L"多光谱数据处理波段错误！");
}

TEST_F(BayesianRefusal, WeightThatIsNotBetweenZeroAndOne) {
  for (const double weight : {-1e-9, -0.5, 1.5, std::nan("")}) {
    m_param.m_dBayesParam = weight;
    ExpectError(6, L"贝叶斯权重必须在0到1之间！");
  }
  for (const double weight : {0.0, 1.0}) {
    m_param.m_dBayesParam = weight;
    Doubt();
  }
}

TEST_F(BayesianRefusal, FilesAndBandsThatAreNotThere) {
  m_param.m_vecMSBands = {0, 3};
  ExpectError(2);
  m_param.m_vecMSBands = {};
  m_param.m_nPanBand = 1;
  ExpectError(2);
  m_param.m_strMSFile = L"/vsimem/没有.tif";
  ExpectError(4, L"打开文件（/vsimem/没有.tif）失败！");
}

TEST_F(BayesianRefusal, ReprojectionWithoutCoordinateSystems) {
  m_param.m_bNeedReproject = true;
  ExpectError(20, L"重投影失败！");
}

TEST_F(BayesianRefusal, FailedReadsOfTheSearchAndOfThePass) {
  for (const auto& file : {m_scene.panFile, m_scene.msFile}) {
    // The one tile takes one read of pan and one of each band.
    for (const int succeeding : {0, file == m_scene.panFile ? 1 : 4}) {
      for (const bool overlapped : {false, true}) {
        int reads = 0;
        platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring& path, int, const CRect&) {
          return op == platform::RasterOperation::kRead && path == file && reads++ >= succeeding;
        });
        m_overlapped = overlapped;
        ExpectError(2, L"读取数据失败！");
      }
    }
  }
}

TEST_F(BayesianRefusal, ALowPassThatCannotBeKept) {
  for (const auto operation : {platform::RasterOperation::kWrite, platform::RasterOperation::kClose}) {
    platform::SetRasterFault([=](platform::RasterOperation op, const std::wstring& path, int, const CRect&) {
      return op == operation && path.find(L"fusion_low_pass") != std::wstring::npos;
    });
    ExpectError(3, L"写数据失败！");
  }
  platform::SetRasterFault([](platform::RasterOperation op, const std::wstring&, int, const CRect&) {
    return op == platform::RasterOperation::kCreate;
  });
  ExpectError(6);
  platform::SetRasterFault({});
  EXPECT_TRUE(test_support::FilesNamedLike(L"fusion_low_pass").empty());
}

TEST_F(BayesianRefusal, ExceptionsFromBelow) {
  platform::SetRasterFault([](platform::RasterOperation op, const std::wstring&, int, const CRect&) -> bool {
    if (op == platform::RasterOperation::kRead) throw std::bad_alloc();
    return false;
  });
  ExpectError(6, L"内存不足！");
}

TEST(BayesianEstimator, StepsThroughTheSearchAndThePassAndCanBeCancelledInEach) {
  SceneOptions options;
  options.panWidth = 40;
  options.panHeight = 800;
  const Scene scene(210, options);  // 400 multispectral rows, four strips
  test_support::RecordingProgress progress;
  BayesianModelEstimator estimator(BayesianRecord(scene));
  estimator.SetProgress(&progress);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_EQ(progress.Calls().front(), L"Start 正在进行贝叶斯模型估计... 5");
  EXPECT_EQ(progress.Steps(), 5);
  EXPECT_EQ(progress.Calls().back(), L"Finish");
  for (const int step : {1, 2, 4, 5}) {
    test_support::RecordingProgress cancelling;
    cancelling.CancelAtStep(step);
    estimator.SetProgress(&cancelling);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 1);
    EXPECT_EQ(cancelling.Steps(), step);
    EXPECT_EQ(cancelling.Errors(), 0);
    EXPECT_FALSE(cancelling.Finished());
    EXPECT_TRUE(estimator.GetModel().transform.empty());
  }
}

/// Asked whether to go on, says no at one of the questions.
class Asked : public CBaseProgress {
 public:
  explicit Asked(int refused) {
    AskForCancel([this, refused] { return m_questions++ >= refused; });
  }
  void Start(const std::wstring& /*title*/, int /*range*/) override {}
  bool Step(int /*position*/, const std::wstring& /*text*/) override { return true; }
  void Finish() override {}
  void Error(int /*type*/, const std::wstring& /*message*/) override { ++m_errors; }
  int Questions() const { return m_questions; }
  int Errors() const { return m_errors; }

 private:
  mutable int m_questions = 0;
  int m_errors = 0;
};

TEST(BayesianEstimator, IsCancelledWhileItSearches) {
  // Found at a pan pixel and a half to the right: past twelve blurs and a box, and eight neighbours of a place or more.
  const SeenScene scene(211, {.msWidth = 60, .msHeight = 56, .moveX = 1.5});
  BayesianModelEstimator estimator(scene.Record());
  estimator.SetRegistration(BayesianRegistration::kMove);
  Asked willing(1 << 30);
  estimator.SetProgress(&willing);
  estimator.Process();
  ASSERT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_TRUE(estimator.GetEstimate().moved);
  EXPECT_GE(willing.Questions(), 13 + 8);
  for (int refused = 0; refused < willing.Questions(); refused += 5) {
    Asked asked(refused);
    estimator.SetProgress(&asked);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 1) << refused;
    EXPECT_EQ(asked.Errors(), 0);
    EXPECT_LE(asked.Questions(), refused + 2) << "it went on after question " << refused;
    EXPECT_TRUE(estimator.GetModel().transform.empty());
  }
}

}  // namespace

// Where there is no model to be had, and how an estimation ends early.
#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <optional>

#include "platform/raster/raster_fault.h"
#include "tests/highpass/bayesian_fixture.h"
#include "tests/support/recording_progress.h"

namespace {

using highpass_test::BayesianRecord;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::WriteImage;

class BayesianRefusal : public testing::Test {
 protected:
  BayesianRefusal() : m_scene(200), m_param(BayesianRecord(m_scene)) {}
  ~BayesianRefusal() override { platform::SetRasterFault({}); }

  void ExpectError(int type, const std::wstring& message = {}) {
    test_support::RecordingProgress progress;
    BayesianModelEstimator estimator(m_param);
    estimator.SetProgress(&progress);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), type);
    EXPECT_FALSE(estimator.GetLastErrorMessage().empty());
    if (!message.empty()) {
      EXPECT_EQ(estimator.GetLastErrorMessage(), message);
    }
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_FALSE(progress.Finished());
    EXPECT_TRUE(estimator.GetModel().coefficients.empty());
  }
  void Rewrite() {
    WriteImage(m_scene.pan, m_scene.panFile, PDT_FLOAT64, "", m_noData);
    WriteImage(m_scene.ms, m_scene.msFile, PDT_FLOAT64, "", m_noData);
  }

  Scene m_scene;
  BayesianFusionParam m_param;
  std::optional<double> m_noData;
};

TEST_F(BayesianRefusal, TooFewCommonPixels) {
  m_scene.ms.geoTransform[0] += 34.0 * 10.0;  // one whole column under the pan image, a corner of it
  m_scene.ms.geoTransform[3] -= 24.0 * 10.0;
  Rewrite();
  ExpectError(7, L"有效的公共像元太少，无法估计贝叶斯模型！");
  m_scene.ms.geoTransform[0] += 1e6;
  Rewrite();
  ExpectError(7, L"有效的公共像元太少，无法估计贝叶斯模型！");
}

TEST_F(BayesianRefusal, PanWithoutSpread) {
  for (double& v : m_scene.pan.bands[0]) v = 1234.1;
  Rewrite();
  ExpectError(10, L"影像数据标准差为零，无法估计贝叶斯模型！");
}

TEST_F(BayesianRefusal, BandWithoutSpread) {
  for (double& v : m_scene.ms.bands[1]) v = 0.7;
  Rewrite();
  ExpectError(10);
}

TEST_F(BayesianRefusal, BandWithoutDetail) {
  m_noData = -1.0;
  const int width = m_scene.ms.width;
  for (int y = 0; y < m_scene.ms.height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool edge = x == 0 || y == 0 || x == width - 1 || y == m_scene.ms.height - 1;
      m_scene.ms.bands[1][static_cast<std::size_t>(y * width + x)] = edge ? -1.0 : 5.0 * x + 9.0 * y;
    }
  }
  Rewrite();
  ExpectError(10);
}

TEST_F(BayesianRefusal, LinearlyDependentBands) {
  m_scene.ms.bands[2] = m_scene.ms.bands[0];
  Rewrite();
  ExpectError(7, L"多光谱波段线性相关，无法估计贝叶斯模型！");
  for (std::size_t i = 0; i < m_scene.ms.bands[2].size(); ++i) {
    m_scene.ms.bands[2][i] = 0.3 * m_scene.ms.bands[0][i] + 0.7 * m_scene.ms.bands[1][i] + 11.0;
  }
  Rewrite();
  ExpectError(7, L"多光谱波段线性相关，无法估计贝叶斯模型！");
  // The same bands chosen twice.
  m_param.m_vecMSBands = {0, 1, 0};
  ExpectError(7);
}

TEST_F(BayesianRefusal, ValuesTooLargeForTheirSquares) {
  for (double& v : m_scene.ms.bands[0]) v *= 1e200;
  Rewrite();
  ExpectError(7);
}

TEST_F(BayesianRefusal, WeightThatIsNotBetweenZeroAndOne) {
  for (const double weight : {0.0, 1.0, -0.5, 1.5, std::nan("")}) {
    m_param.m_dBayesParam = weight;
    ExpectError(6);
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

TEST_F(BayesianRefusal, FailedReadsOfEitherPass) {
  for (const auto& file : {m_scene.panFile, m_scene.msFile}) {
    for (const int succeeding : {0, 1, 4}) {
      int reads = 0;
      platform::SetRasterFault([&](platform::RasterOperation op, const std::wstring& path, int, const CRect&) {
        return op == platform::RasterOperation::kRead && path == file && reads++ >= succeeding;
      });
      if (file == m_scene.panFile && succeeding > 0) continue;  // one tile, which is kept for the second pass
      ExpectError(2, L"读取数据失败！");
    }
  }
}

TEST_F(BayesianRefusal, ExceptionsFromBelow) {
  platform::SetRasterFault([](platform::RasterOperation op, const std::wstring&, int, const CRect&) -> bool {
    if (op == platform::RasterOperation::kRead) throw std::bad_alloc();
    return false;
  });
  ExpectError(6, L"内存不足！");
}

TEST(BayesianEstimator, StepsThroughBothPassesAndCanBeCancelledInEach) {
  SceneOptions options;
  options.panWidth = 40;
  options.panHeight = 400;
  const Scene scene(210, options);  // 200 multispectral rows, four tiles
  test_support::RecordingProgress progress;
  BayesianModelEstimator estimator(BayesianRecord(scene));
  estimator.SetProgress(&progress);
  estimator.Process();
  EXPECT_EQ(estimator.GetLastErrorType(), 0);
  EXPECT_EQ(progress.Calls().front(), L"Start 正在进行贝叶斯模型估计... 8");
  EXPECT_EQ(progress.Steps(), 8);
  EXPECT_EQ(progress.Calls().back(), L"Finish");
  for (const int step : {1, 4, 5, 8}) {
    test_support::RecordingProgress cancelling;
    cancelling.CancelAtStep(step);
    estimator.SetProgress(&cancelling);
    estimator.Process();
    EXPECT_EQ(estimator.GetLastErrorType(), 1);
    EXPECT_EQ(cancelling.Steps(), step);
    EXPECT_EQ(cancelling.Errors(), 0);
    EXPECT_FALSE(cancelling.Finished());
    EXPECT_TRUE(estimator.GetModel().coefficients.empty());
  }
}

}  // namespace

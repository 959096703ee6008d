#include "platform/algorithm/base_algorithm.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using test_support::RecordingProgress;

constexpr wchar_t kBaseIn[] = L"/vsimem/base_in.tif";
constexpr wchar_t kArea[] = L"/vsimem/base_area.csv";

/// Opens what the base class keeps for its heirs.
class Algorithm : public CBaseAlgorithm {
 public:
  void Process() override {}
  using CBaseAlgorithm::ClearError;
  using CBaseAlgorithm::Fail;
  using CBaseAlgorithm::Guard;
  using CBaseAlgorithm::ReportError;
  using CBaseAlgorithm::SetError;
};

TEST(BaseAlgorithm, StartsWithoutErrorProgressOrSwitches) {
  const Algorithm algorithm;
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  EXPECT_EQ(algorithm.GetLastErrorMessage(), L"");
  EXPECT_EQ(algorithm.GetProgress(), nullptr);
  EXPECT_FALSE(algorithm.GetValueConversion().m_bStretch);
  EXPECT_FALSE(algorithm.GetValueConversion().m_bAddOne);
  EXPECT_EQ(algorithm.GetValueConversion().m_dSrcMin, 0.0);
  EXPECT_EQ(algorithm.GetValueConversion().m_dSrcMax, 255.0);
}

TEST(BaseAlgorithm, SettersReachTheConversion) {
  Algorithm algorithm;
  algorithm.SetAddOne(true);
  algorithm.SetStretch(true);
  algorithm.SetSrcMinMaxValue(1.0, 254.0);
  algorithm.SetOutMinMaxValue(-5.0, 5.0);
  const platform::ValueConversion& c = algorithm.GetValueConversion();
  EXPECT_TRUE(c.m_bAddOne);
  EXPECT_TRUE(c.m_bStretch);
  EXPECT_EQ(c.m_dSrcMin, 1.0);
  EXPECT_EQ(c.m_dSrcMax, 254.0);
  EXPECT_EQ(c.m_dOutMin, -5.0);
  EXPECT_EQ(c.m_dOutMax, 5.0);
}

TEST(BaseAlgorithm, FailSetsAndReportsSetErrorOnlySets) {
  Algorithm algorithm;
  RecordingProgress progress;
  algorithm.SetProgress(&progress);
  algorithm.SetError(2, L"读");
  EXPECT_EQ(algorithm.GetLastErrorType(), 2);
  EXPECT_EQ(algorithm.GetLastErrorMessage(), L"读");
  EXPECT_TRUE(progress.Calls().empty());
  algorithm.ReportError();
  algorithm.Fail(3, L"写");
  EXPECT_EQ(progress.Calls(), (std::vector<std::wstring>{L"Error 2 读", L"Error 3 写"}));
  algorithm.ClearError();
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  EXPECT_EQ(algorithm.GetLastErrorMessage(), L"");
  algorithm.SetProgress(nullptr);
  algorithm.Fail(3, L"写");
  EXPECT_EQ(progress.Errors(), 2);
}

TEST(BaseAlgorithm, GuardTurnsExceptionsIntoErrorSix) {
  Algorithm algorithm;
  RecordingProgress progress;
  algorithm.SetProgress(&progress);
  EXPECT_TRUE(algorithm.Guard([] {}));
  EXPECT_EQ(algorithm.GetLastErrorType(), 0);
  EXPECT_FALSE(algorithm.Guard([] { throw std::bad_alloc(); }));
  EXPECT_EQ(algorithm.GetLastErrorType(), 6);
  EXPECT_EQ(algorithm.GetLastErrorMessage(), L"内存不足！");
  EXPECT_FALSE(algorithm.Guard([] { throw std::runtime_error("disk \xe6\xbb\xa1"); }));
  EXPECT_EQ(algorithm.GetLastErrorType(), 6);
  EXPECT_EQ(algorithm.GetLastErrorMessage(), L"disk 满");
  EXPECT_FALSE(algorithm.Guard([] { throw 7; }));
  EXPECT_EQ(algorithm.GetLastErrorType(), 6);
  EXPECT_FALSE(algorithm.GetLastErrorMessage().empty());
  EXPECT_EQ(progress.Errors(), 3);
}

TEST(AlgorithmParam, StartsEmptyAndCopiesByValue) {
  AlgorithmParam param;
  EXPECT_TRUE(param.m_bOpenOption);
  EXPECT_EQ(param.m_eOutDataType, PDT_UNKNOWN);
  EXPECT_EQ(param.m_eOutFormat, 0);
  EXPECT_EQ(param.m_nOutBandCount, 0);
  EXPECT_EQ(param.m_pNotifyWnd, nullptr);
  EXPECT_TRUE(param.m_rcProcess.IsRectEmpty());
  param.m_strAlgName = L"名";
  param.m_strAoiFile = L"a.shp";
  AlgorithmParam copy(param);
  param.m_strAlgName = L"x";
  EXPECT_EQ(copy.m_strAlgName, L"名");
  EXPECT_EQ(copy.m_strAoiFile, L"a.shp");
}

/// A raster of 20 x 10 pixels whose pixel (x, y) lies at the ground (x, 10 - y).
class AreaOfInterest : public testing::Test {
 protected:
  AreaOfInterest() {
    reference::Image image;
    image.width = 20;
    image.height = 10;
    const double transform[6] = {0.0, 1.0, 0.0, 10.0, 0.0, -1.0};
    std::copy_n(transform, 6, image.geoTransform);
    image.bands.emplace_back(200, 1.0);
    test_support::WriteImage(image, kBaseIn, PDT_UINT8);
    EXPECT_TRUE(m_source.OpenSimple(kBaseIn));
    // Covers columns 2..7 and rows 1..6.
    test_support::WriteTriangle(kArea, {2.0, 9.0}, {8.0, 9.0}, {2.0, 3.0});
    m_param.m_strAoiFile = kArea;
  }
  ~AreaOfInterest() override {
    m_source.Close();
    CRasterSource::DeleteFileW(kBaseIn);
    CRasterSource::DeleteFileW(kArea);
  }

  bool Config() {
    CRasterAOI* area = nullptr;
    const bool configured = m_algorithm.ConfigRasterAOI(&m_param, &m_source, &area);
    m_area.reset(area);
    return configured;
  }

  Algorithm m_algorithm;
  CRasterSource m_source;
  AlgorithmParam m_param;
  std::unique_ptr<CRasterAOI> m_area;
};

TEST_F(AreaOfInterest, NoneLeavesEverythingAsItIs) {
  m_param.m_strAoiFile.clear();
  m_param.m_rcProcess = CRect(1, 2, 3, 4);
  EXPECT_TRUE(Config());
  EXPECT_FALSE(m_area);
  EXPECT_EQ(m_param.m_rcProcess, CRect(1, 2, 3, 4));
}

TEST_F(AreaOfInterest, CutsTheWholeRasterWhereNoAreaWasGiven) {
  EXPECT_TRUE(Config());
  EXPECT_TRUE(m_area);
  EXPECT_EQ(m_param.m_rcProcess, CRect(2, 1, 8, 7));
}

TEST_F(AreaOfInterest, CutsTheGivenRectangle) {
  m_param.m_rcProcess = CRect(4, 0, 15, 3);
  EXPECT_TRUE(Config());
  EXPECT_EQ(m_param.m_rcProcess, CRect(4, 1, 8, 3));
}

TEST_F(AreaOfInterest, OneBesideTheRectangleIsAMessageWithoutAType) {
  m_param.m_rcProcess = CRect(8, 0, 20, 10);
  EXPECT_FALSE(Config());
  EXPECT_FALSE(m_area);
  EXPECT_EQ(m_algorithm.GetLastErrorType(), 0);
  EXPECT_EQ(m_algorithm.GetLastErrorMessage(), L"设置的影像范围有误！");
}

TEST_F(AreaOfInterest, FileThatDoesNotOpenIsErrorFour) {
  m_param.m_strAoiFile = L"/vsimem/没有.shp";
  EXPECT_FALSE(Config());
  EXPECT_FALSE(m_area);
  EXPECT_EQ(m_algorithm.GetLastErrorType(), 4);
  EXPECT_EQ(m_algorithm.GetLastErrorMessage(), L"打开文件（/vsimem/没有.shp）失败！");
}

}  // namespace

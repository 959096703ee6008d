// What a stage leaves behind when something fails or the user cancels.
#include <gtest/gtest.h>

#include <new>

#include "tests/platform/row_sum_stage.h"

using namespace stage_test;

namespace {

TEST_F(Stage, CancellationRemovesTheOutput) {
  WriteImage(Numbers(3, 1100, 1), kIn, PDT_UINT16);
  WriteImage(Numbers(1, 1, 1), kOut, PDT_FLOAT64);
  const AlgorithmParam param = Param();
  RecordingProgress progress;
  progress.CancelAtStep(2);
  RowSums stage(&param);
  stage.SetProgress(&progress);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 1);
  EXPECT_EQ(progress.Errors(), 0) << "a cancellation is no error";
  EXPECT_FALSE(progress.Finished());
  ExpectNothingNewBut({L"stage_in.tif"});
}

TEST_F(Stage, CancellationWhileScanningLeavesAnOlderOutputAlone) {
  WriteImage(Numbers(3, 1100, 1), kIn, PDT_UINT16);
  WriteImage(Numbers(1, 1, 1), kOut, PDT_FLOAT64);
  const AlgorithmParam param = Param();
  RecordingProgress progress;
  progress.CancelAtStep(2);
  RowSums stage(&param);
  stage.scans = 1;
  stage.SetProgress(&progress);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 1);
  EXPECT_EQ(ReadImage(kOut).width, 1);
}

TEST_F(Stage, MissingInputIsErrorFour) {
  AlgorithmParam param = Param();
  param.m_strInFile = L"/vsimem/没有.tif";
  RecordingProgress progress;
  RowSums stage(&param);
  stage.SetProgress(&progress);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 4);
  EXPECT_EQ(stage.GetLastErrorMessage(), L"打开文件（/vsimem/没有.tif）失败！");
  EXPECT_EQ(progress.Calls().back(), L"Error 4 打开文件（/vsimem/没有.tif）失败！");
}

TEST_F(Stage, InputAsOutputIsErrorFiveAndStaysWhole) {
  WriteImage(Numbers(7, 5, 1), kIn, PDT_UINT16);
  AlgorithmParam param = Param();
  param.m_strOutFile = L"/vsimem/x/../stage_in.tif";
  RowSums stage(&param);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 5);
  EXPECT_EQ(ReadImage(kIn).bands, Numbers(7, 5, 1).bands);
}

TEST_F(Stage, OutputThatCannotBeCreatedIsErrorFive) {
  WriteImage(Numbers(7, 5, 1), kIn, PDT_UINT16);
  for (const wchar_t* path : {L"/nowhere/at/all/out.tif", L""}) {
    AlgorithmParam param = Param();
    param.m_strOutFile = path;
    RowSums stage(&param);
    stage.Process();
    EXPECT_EQ(stage.GetLastErrorType(), 5);
    EXPECT_EQ(stage.GetLastErrorMessage(), L"创建文件（" + param.m_strOutFile + L"）失败！");
  }
}

TEST_F(Stage, FailuresWhileRunningHaveTheirTypeAndLeaveNoOutput) {
  WriteImage(Numbers(3, 1100, 1), kIn, PDT_UINT16);
  struct Case {
    RasterOperation operation;
    const wchar_t* path;
    int top;
    int type;
    const wchar_t* message;
  };
  const Case cases[] = {{RasterOperation::kRead, kIn, 512, 2, L"读取数据失败！"},
                        {RasterOperation::kWrite, kOut, 1024, 3, L"写数据失败！"},
                        {RasterOperation::kClose, kOut, 0, 3, L"写数据失败！"}};
  for (const Case& c : cases) {
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect& rect) {
      return operation == c.operation && path == c.path && rect.top == c.top;
    });
    const AlgorithmParam param = Param();
    RecordingProgress progress;
    RowSums stage(&param);
    stage.SetProgress(&progress);
    stage.Process();
    EXPECT_EQ(stage.GetLastErrorType(), c.type);
    EXPECT_EQ(stage.GetLastErrorMessage(), c.message);
    EXPECT_EQ(progress.Errors(), 1);
    EXPECT_FALSE(progress.Finished());
    ExpectNothingNewBut({L"stage_in.tif"});
  }
}

TEST_F(Stage, FailedReadOfAScanIsErrorTwo) {
  WriteImage(Numbers(3, 1100, 1), kIn, PDT_UINT16);
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring&, int, const CRect& rect) {
    return operation == RasterOperation::kRead && rect.top > 0;
  });
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.scans = 1;
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 2);
  ExpectNothingNewBut({L"stage_in.tif"});
}

TEST_F(Stage, ExceptionsBecomeErrorSixAndLeaveNoOutput) {
  WriteImage(Numbers(3, 5, 1), kIn, PDT_FLOAT64);
  const AlgorithmParam param = Param();
  RowSums stage(&param);
  stage.inRow = [](int row) {
    if (row == 2) throw std::bad_alloc();
  };
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 6);
  EXPECT_EQ(stage.GetLastErrorMessage(), L"内存不足！");
  ExpectNothingNewBut({L"stage_in.tif"});
  stage.inRow = nullptr;
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 0) << "the next run starts anew";
  EXPECT_EQ(stage.GetLastErrorMessage(), L"");
}

TEST_F(Stage, AreaThatDoesNotTouchTheImageFails) {
  WriteImage(Numbers(6, 4, 1), kIn, PDT_FLOAT64);
  test_support::WriteTriangle(kArea, {1000, 1000}, {1040, 1000}, {1000, 960});
  AlgorithmParam param = Param();
  param.m_strAoiFile = kArea;
  RowSums stage(&param);
  stage.useArea = true;
  stage.Process();
  EXPECT_NE(stage.GetLastErrorType(), 0);
  EXPECT_EQ(stage.GetLastErrorMessage(), L"设置的影像范围有误！");
  EXPECT_FALSE(FileExists(kOut));
}

TEST_F(Stage, AreaFileThatDoesNotOpenIsErrorFour) {
  WriteImage(Numbers(6, 4, 1), kIn, PDT_FLOAT64);
  AlgorithmParam param = Param();
  param.m_strAoiFile = L"/vsimem/none.shp";
  RowSums stage(&param);
  stage.useArea = true;
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 4);
  EXPECT_EQ(stage.GetLastErrorMessage(), L"打开文件（/vsimem/none.shp）失败！");
}

TEST_F(Stage, NullRecordIsAnEmptyOne) {
  RowSums stage(nullptr);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 4);
}

}  // namespace

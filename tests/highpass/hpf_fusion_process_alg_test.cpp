#include "highpass/hpf_fusion_process_alg.h"

#include <algorithm>
#include <cmath>

#include "platform/algorithm/build_raster_overviews.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::RecordingLog;
using platform::RasterOperation;
using test_support::Deviation;
using test_support::Mean;
using test_support::ReadImage;
using test_support::RecordingProgress;

class HpfPipeline : public highpass_test::PipelineFiles {
 protected:
  /// The whole pipeline written out.
  std::vector<std::vector<double>> Expected(const HpfFusionParam& param) const {
    reference::Image ms = m_ms;
    if (param.m_bMakeGreen) highpass_test::MixGreen(ms);
    reference::Run run;
    run.msBands.assign(param.m_vecMSBands.begin(), param.m_vecMSBands.end());
    if (run.msBands.empty()) run.msBands = {0, 1, 2, 3};
    std::vector<double> means;
    std::vector<double> deviations;
    for (std::size_t i = 0; i < run.msBands.size(); ++i) {
      means.push_back(Mean(ms.bands[i]));
      deviations.push_back(Deviation(ms.bands[i]));
    }
    reference::Image detail = m_pan;
    detail.bands[0] = highpass_test::Convolve(m_pan, 0, param.m_filter1);
    reference::Image second = m_pan;
    second.bands[0] = highpass_test::Convolve(m_pan, 0, param.m_filter2);
    const double spread1 = Deviation(detail.bands[0]);
    const double spread2 = Deviation(second.bands[0]);
    run.pan = &detail;
    run.ms = &ms;
    run.detail = &second;
    run.process = param.m_rcProcess.IsRectEmpty() ? CRect(0, 0, m_pan.width, m_pan.height) : param.m_rcProcess;
    run.outBandCount = static_cast<int>(run.msBands.size());
    run.conversion.type = 6;
    run.arithmetic = [&](const reference::Pixel& pixel) {
      std::vector<double> out;
      for (std::size_t b = 0; b < pixel.ms.size(); ++b) {
        double v = deviations[b] / spread1 * param.m_dDetailWeight1 * pixel.pan + pixel.ms[b];
        if (param.m_bSecondFilter) v += deviations[b] / spread2 * param.m_dDetailWeight2 * pixel.detail;
        out.push_back(v);
      }
      return out;
    };
    auto bands = reference::Fuse(run);
    for (std::size_t b = 0; b < bands.size(); ++b) highpass_test::Stretch(bands[b], means[b], deviations[b]);
    return bands;
  }

  static void ExpectClose(const std::vector<std::vector<double>>& actual,
                          const std::vector<std::vector<double>>& expected, double tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t b = 0; b < expected.size(); ++b) {
      ASSERT_EQ(actual[b].size(), expected[b].size());
      for (std::size_t i = 0; i < expected[b].size(); ++i) {
        ASSERT_NEAR(actual[b][i], expected[b][i], tolerance) << "band " << b << " pixel " << i;
      }
    }
  }

  static void RunWell(HpfFusionParam param) {
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.Process();
    EXPECT_EQ(pipeline.GetLastErrorType(), 0);
    EXPECT_TRUE(pipeline.GetLastErrorMessage().empty());
  }
};

TEST_F(HpfPipeline, DetailCanBeCappedAtItsShareOfPan) {
  HpfFusionParam param = Param();
  param.m_dDetailWeight1 = 5.0;
  param.m_bSecondFilter = true;
  param.m_dDetailWeight2 = 0.01;
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.CapDetail(true);
  pipeline.Process();
  ASSERT_EQ(pipeline.GetLastErrorType(), 0);
  const auto capped = ReadImage(param.m_strOutFile);
  const double share = Deviation(highpass_test::Convolve(m_pan, 0, param.m_filter1)) / Deviation(m_pan.bands[0]);
  ASSERT_LT(share, 5.0);
  EXPECT_NEAR(pipeline.GetDetailWeight(), share, 1e-6);
  EXPECT_TRUE(pipeline.HasCappedDetail());
  // The second weight is small enough.
  param.m_dDetailWeight1 = share;
  auto expected = Expected(param);
  for (auto& band : expected) {
    for (double& v : band) v = std::clamp(v, 0.0, 65535.0);
  }
  ExpectClose(capped.bands, expected, 1.0);
}

TEST_F(HpfPipeline, EveryCombinationOfStagesIsTheWrittenOutOne) {
  WriteInputs(PDT_FLOAT64);
  for (const bool second : {false, true}) {
    for (const bool green : {false, true}) {
      for (const bool level : {false, true}) {
        SCOPED_TRACE(testing::Message() << "second " << second << " green " << green << " level " << level);
        HpfFusionParam param = Param();
        param.m_bSecondFilter = second;
        param.m_bMakeGreen = green;
        param.m_bDataStretch = level;
        param.m_dDetailWeight1 = 0.8;
        param.m_dDetailWeight2 = 0.15;
        RunWell(param);
        EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif"}));
        auto expected = Expected(param);
        const auto out = ReadImage(m_outFile).bands;
        if (!level) {
          // 32-bit floats between the stages: seven digits of values up to 20000.
          ExpectClose(out, expected, 0.02);
          continue;
        }
        for (auto& band : expected) {
          highpass_test::Level(band, 0.0001, 255.0);
          for (double& v : band) v = highpass_test::RoundHalfUp(v, 0.0, 255.0);
        }
        ExpectClose(out, expected, 1.0);
        EXPECT_EQ(*std::max_element(out[0].begin(), out[0].end()), 255.0);
        EXPECT_EQ(*std::min_element(out[0].begin(), out[0].end()), 0.0);
      }
    }
  }
}

TEST_F(HpfPipeline, OutputHasTheTypeOfTheMultispectralImageWhateverTheRunAsksFor) {
  HpfFusionParam param = Param();
  const auto typeOf = [&] {
    CRasterSource source;
    EXPECT_TRUE(source.OpenSimple(m_outFile));
    return source.GetRasterDataType();
  };
  for (const auto type : {PDT_UNKNOWN, PDT_UINT8, PDT_FLOAT64}) {
    param.m_eOutDataType = type;
    RunWell(param);
    EXPECT_EQ(typeOf(), PDT_UINT16);
  }
  const auto out = ReadImage(m_outFile).bands;
  for (std::size_t b = 0; b < 4; ++b)
    EXPECT_NEAR(Mean(out[b]), Mean(m_ms.bands[b]), 50.0) << "but for what is cut at 0";
  param.m_bMakeGreen = true;
  RunWell(param);
  EXPECT_EQ(typeOf(), PDT_FLOAT32) << "the green mix is an intermediate file";
  param.m_bDataStretch = true;
  RunWell(param);
  EXPECT_EQ(typeOf(), PDT_UINT8);
}

TEST_F(HpfPipeline, ChoiceOfBandsTakesTheStatisticsOfTheFirstBands) {
  WriteInputs(PDT_FLOAT64);
  HpfFusionParam param = Param();
  param.m_vecMSBands = {3, 2};
  RunWell(param);
  const auto out = ReadImage(m_outFile).bands;
  ExpectClose(out, Expected(param), 0.02);
  EXPECT_NEAR(Mean(out[0]), Mean(m_ms.bands[0]), 0.01);
  EXPECT_NEAR(Deviation(out[1]), Deviation(m_ms.bands[1]), 0.01);
}

TEST_F(HpfPipeline, HandsTheAreaOnToTheFusion) {
  WriteInputs(PDT_FLOAT64);
  HpfFusionParam param = Param();
  param.m_rcProcess = {4, 6, 40, 30};
  RunWell(param);
  const auto out = ReadImage(m_outFile);
  EXPECT_EQ(out.width, 36);
  EXPECT_EQ(out.geoTransform[0], 440040.0);
  ExpectClose(out.bands, Expected(param), 0.02);
}

TEST_F(HpfPipeline, PixelsOutsideTheAreaOfInterestAreZeroAndTheStatisticsAreTakenInside) {
  HpfFusionParam param = Param();
  param.m_strAoiFile = WriteArea();
  WriteInputs(PDT_FLOAT64);
  RunWell(param);
  const auto out = ReadImage(m_outFile);
  ASSERT_EQ(out.width, 30);
  ASSERT_EQ(out.height, 30);
  std::vector<double> inside;
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 30; ++x) {
      const double v = out.bands[0][static_cast<std::size_t>(y * 30 + x)];
      if (x + 0.5 + y + 0.5 < 30.0) {
        inside.push_back(v);
      } else {
        EXPECT_EQ(v, 0.0);
      }
    }
  }
  EXPECT_NEAR(Mean(inside), Mean(m_ms.bands[0]), 0.01);
  EXPECT_NEAR(Deviation(inside), Deviation(m_ms.bands[0]), 0.01);
}

TEST_F(HpfPipeline, TextsAndCountersOfAllStages) {
  HpfFusionParam param = Param();
  param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
  RecordingProgress progress;
  RecordingLog log;
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  ASSERT_EQ(pipeline.GetLastErrorType(), 0);
  const auto& calls = progress.Calls();
  ASSERT_GT(calls.size(), 4u);
  EXPECT_EQ(calls[0], L"Start 正在进行融合... 100");
  EXPECT_EQ(calls[1], L"Step 0 配置参数...");
  // Each stage announces itself with its text as its name; consecutive announcements of one stage count once.
  std::vector<std::wstring> stages;
  for (const auto& call : calls) {
    if (!call.starts_with(L"Start ")) continue;
    const std::wstring title = call.substr(6, call.rfind(L' ') - 6);
    if (stages.empty() || stages.back() != title) stages.push_back(title);
  }
  EXPECT_EQ(stages,
            (std::vector<std::wstring>{L"正在进行融合...", L"正在进行卷积处理(1/4)...", L"正在进行二次卷积(1/4)...",
                                       L"正在进行加绿处理(2/4)...", L"正在进行HPF融合处理(3/4)...",
                                       L"正在进行光谱校正(4/4)...", L"正在进行数据拉伸处理(4/4)..."}));
  EXPECT_EQ(calls.back(), L"Step 100 创建输出影像金字塔(4/4)");
  EXPECT_EQ(log.Entries(), (std::vector<RecordingLog::Entry>{
                               {2, "HpfFusionProcessAlg", "CHpfFusionProcessAlg::Process", L"开始HPF融合处理"},
                               {2, "HpfFusionProcessAlg", "CHpfFusionProcessAlg::Process", L"HPF融合处理结束"}}));
}

TEST_F(HpfPipeline, StagesThatAreNotWantedDoNotRunAndMakeNoFile) {
  // Temporary files that are created, with the output: HP1, F and the output itself.
  for (const auto& [second, green, level, files] :
       {std::tuple(false, false, false, 3), std::tuple(true, false, false, 4), std::tuple(false, true, false, 4),
        std::tuple(false, false, true, 4), std::tuple(true, true, true, 6)}) {
    HpfFusionParam param = Param();
    param.m_bSecondFilter = second;
    param.m_bMakeGreen = green;
    param.m_bDataStretch = level;
    int created = 0;
    platform::SetRasterFault([&](RasterOperation operation, const std::wstring&, int, const CRect&) {
      created += operation == RasterOperation::kCreate ? 1 : 0;
      return false;
    });
    RunWell(param);
    EXPECT_EQ(created, files);
  }
}

TEST_F(HpfPipeline, BuildsPyramidsOfALargeOutputUnlessSwitchedOff) {
  WriteLargeInputs();
  RunWell(Param());
  EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif", L"融合.tif.ovr"}));
  const auto pyramid = ReadImage(m_outFile + L".ovr");
  EXPECT_EQ(pyramid.width, 300);
  EXPECT_EQ(pyramid.bands.size(), 4u);

  CRasterSource::DeleteFileW(m_outFile);
  CBuildRasterOverviews::SetEnabled(false);
  RunWell(Param());
  CBuildRasterOverviews::SetEnabled(true);
  EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif"}));

  HpfFusionParam param = Param();
  CHpfFusionProcessAlg without(&param);
  without.SetBuildsOverviews(false);
  without.Process();
  EXPECT_EQ(without.GetLastErrorType(), 0);
  EXPECT_EQ(NewFiles(), (std::vector<std::wstring>{L"融合.tif"}));
}

TEST_F(HpfPipeline, BuildsPyramidsWhateverTheReporterAnswersToTheirAnnouncement) {
  WriteLargeInputs();
  HpfFusionParam param = Param();
  RecordingProgress progress;
  progress.CancelAtStep(100);
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 0);
  EXPECT_EQ(progress.Calls().back(), L"Step 100 创建输出影像金字塔(4/4)");
  EXPECT_TRUE(test_support::FileExists(m_outFile + L".ovr"));
}

TEST_F(HpfPipeline, OutputThatDoesNotOpenAfterwardsIsLeftWithoutPyramidsSilently) {
  HpfFusionParam param = Param();
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    return operation == RasterOperation::kOpen && path == m_outFile;
  });
  RecordingProgress progress;
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.SetProgress(&progress);
  pipeline.Process();
  EXPECT_EQ(pipeline.GetLastErrorType(), 0);
  EXPECT_EQ(progress.Errors(), 0);
  const auto& calls = progress.Calls();
  // The fusion tells that it is finished; the stages around it, and the pyramids, are parts of the pipeline's run.
  EXPECT_EQ(std::count(calls.begin(), calls.end(), L"Finish"), 1);
  EXPECT_TRUE(calls.back().starts_with(L"Step ") && calls.back().ends_with(L"处理中..."))
      << "the correction's last step";
}

TEST_F(HpfPipeline, RunsAgainAndInCopiesWithTheCallersMultispectralFile) {
  HpfFusionParam param = Param();
  param.m_bMakeGreen = true;
  auto first = std::make_unique<CHpfFusionProcessAlg>(&param);
  first->Process();
  ASSERT_EQ(first->GetLastErrorType(), 0);
  const auto out = ReadImage(m_outFile).bands;
  first->Process();
  EXPECT_EQ(first->GetLastErrorType(), 0);
  EXPECT_EQ(ReadImage(m_outFile).bands, out);
  CHpfFusionProcessAlg copy(*first);
  CHpfFusionProcessAlg assigned(&param);
  assigned = copy;
  first.reset();
  for (CHpfFusionProcessAlg* pipeline : {&copy, &assigned}) {
    pipeline->Process();
    EXPECT_EQ(pipeline->GetLastErrorType(), 0);
    EXPECT_EQ(ReadImage(m_outFile).bands, out);
  }
}

TEST_F(HpfPipeline, PlainRecordHasNoKernelAndFails) {
  FusionParam param = Param();
  CHpfFusionProcessAlg pipeline(&param);
  pipeline.Process();
  EXPECT_NE(pipeline.GetLastErrorType(), 0);
  CHpfFusionProcessAlg none(nullptr);
  none.Process();
  EXPECT_NE(none.GetLastErrorType(), 0);
}

}  // namespace

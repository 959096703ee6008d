// What the pipelines hand to their stages, and what the stages leave for each other.
#include <gdal_priv.h>

#include <cmath>
#include <memory>
#include <set>

#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "platform/utility/common_fun.h"
#include "tests/highpass/pipeline_fixture.h"
#include "tests/support/message_window.h"
#include "tests/support/method_sweep.h"

namespace {

using highpass_test::RecordingLog;
using platform::RasterOperation;
using test_support::ReadImage;
using test_support::RecordingProgress;
using Names = std::vector<std::string>;

constexpr RasterDataFormat kErdasImagine = 21;

template <typename Pipeline>
struct Run : Pipeline {
  explicit Run(HpfFusionParam param, CBaseProgress* progress = nullptr) : Pipeline(&param) {
    this->SetProgress(progress);
    this->Process();
  }
};
using Hpf = Run<CHpfFusionProcessAlg>;
using Sharpen = Run<CSimplePanSharpeningFusionProcessAlg>;

template <typename Pipeline>
void RunWell(const HpfFusionParam& param) {
  const Pipeline run(param);
  EXPECT_EQ(run.GetLastErrorType(), 0);
  EXPECT_TRUE(run.GetLastErrorMessage().empty());
}

class HpfPipelineStages : public highpass_test::PipelineFiles {};
class SharpenPipelineStages : public highpass_test::PipelineFiles {};

TEST_F(HpfPipelineStages, HandOn32BitFloatGeoTiffsWhateverTheOutputIs) {
  m_outFile = m_folder + L"融合.img";
  HpfFusionParam param = Param();
  param.m_eOutFormat = kErdasImagine;
  param.m_eOutDataType = PDT_FLOAT64;
  const auto files = [&] { return TemporaryFiles([&] { RunWell<Hpf>(param); }); };
  const std::string filtered = "GTiff Float32 1";
  const std::string fused = "GTiff Float32 4";
  EXPECT_EQ(files(), (Names{filtered, fused}));
  EXPECT_EQ(OutputFile(), "HFA UInt16 4");
  param.m_bSecondFilter = true;
  param.m_bDataStretch = true;
  EXPECT_EQ(files(), (Names{filtered, filtered, fused, "GTiff UInt16 4"})) << "corrected in the image's own type";
  EXPECT_EQ(OutputFile(), "HFA Byte 4");
  param.m_bMakeGreen = true;
  EXPECT_EQ(files(), (Names{filtered, filtered, fused, fused, fused}));
  EXPECT_EQ(OutputFile(), "HFA Byte 4");
}

TEST_F(SharpenPipelineStages, SmoothAndMixInto32BitFloatGeoTiffsAndFuseIntoTheFormatAndTypeOfTheRun) {
  m_outFile = m_folder + L"融合.img";
  HpfFusionParam param = Param();
  param.m_eOutFormat = kErdasImagine;
  param.m_eOutDataType = PDT_FLOAT64;
  const auto files = [&] { return TemporaryFiles([&] { RunWell<Sharpen>(param); }); };
  EXPECT_EQ(files(), Names{"GTiff Float32 1"});
  EXPECT_EQ(OutputFile(), "HFA Float64 4");
  param.m_bMakeGreen = true;
  param.m_bDataStretch = true;
  EXPECT_EQ(files(), (Names{"GTiff Float32 1", "GTiff Float32 4", "HFA Float64 4"}));
  EXPECT_EQ(OutputFile(), "HFA Float64 4");
}

TEST_F(HpfPipelineStages, CorrectAsManyBandsAsTheRunWantsOfAllThatAreFused) {
  HpfFusionParam param = Param();
  param.m_nOutBandCount = 2;
  EXPECT_EQ(TemporaryFiles([&] { RunWell<Hpf>(param); }), (Names{"GTiff Float32 1", "GTiff Float32 4"}));
  EXPECT_EQ(OutputFile(), "GTiff UInt16 2");
  param.m_bDataStretch = true;
  EXPECT_EQ(TemporaryFiles([&] { RunWell<Hpf>(param); }),
            (Names{"GTiff Float32 1", "GTiff Float32 4", "GTiff UInt16 2"}));
  EXPECT_EQ(OutputFile(), "GTiff Byte 2");
}

TEST_F(SharpenPipelineStages, AdjustTheLevelOfAsManyBandsAsTheRunWantsOfAllThatAreFused) {
  HpfFusionParam param = Param();
  param.m_eOutDataType = PDT_UINT16;
  param.m_nOutBandCount = 2;
  param.m_bDataStretch = true;
  EXPECT_EQ(TemporaryFiles([&] { RunWell<Sharpen>(param); }), (Names{"GTiff Float32 1", "GTiff UInt16 4"}));
  EXPECT_EQ(OutputFile(), "GTiff UInt16 2");
}

TEST_F(HpfPipelineStages, BandThatTheImageDoesNotHaveIsLeftWithoutStatistics) {
  HpfFusionParam param = Param();
  RunWell<Hpf>(param);
  const auto plain = ReadImage(m_outFile).bands;
  param.m_vecMSBands = {0, 1, 2, 3, 0};
  RunWell<Hpf>(param);
  const auto out = ReadImage(m_outFile).bands;
  ASSERT_EQ(out.size(), 5u);
  for (std::size_t b = 0; b < 4; ++b) EXPECT_EQ(out[b], plain[b]);
  // Brought to the mean and the deviation 0.
  EXPECT_EQ(out[4], std::vector<double>(out[4].size(), 0.0));
}

TEST_F(HpfPipelineStages, StatisticsAnswer2ForAnImageThatDoesNotOpenAnd4ForAnyOtherFailure) {
  HpfFusionParam param = Param();
  const auto prepare = [&](const std::wstring& error) {
    RecordingProgress progress;
    CHpfFusionProcessAlg pipeline(&param);
    pipeline.SetProgress(&progress);
    const GISError answer = pipeline.Preproccess();
    EXPECT_EQ(progress.Calls(), error.empty() ? std::vector<std::wstring>{} : std::vector{error});
    return answer;
  };
  EXPECT_EQ(prepare(L""), 0);
  platform::SetRasterFault([](RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == RasterOperation::kRead;
  });
  EXPECT_EQ(prepare(L"Error 7 计算多光谱影像统计值出错！"), 4);
  platform::SetRasterFault({});
  param.m_strMSFile = m_folder + L"none.tif";
  EXPECT_EQ(prepare(L"Error 4 打开多光谱影像失败！"), 2);
}

/// Bands of the pan image that a run reads.
template <typename Pipeline>
std::set<int> PanBandsRead(const HpfFusionParam& param, const std::wstring& message) {
  std::set<int> bands;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int band, const CRect&) {
    if (operation == RasterOperation::kRead && path == param.m_strPanFile) bands.insert(band);
    return false;
  });
  const Pipeline run(param);
  platform::SetRasterFault({});
  EXPECT_EQ(run.GetLastErrorType(), 2);
  EXPECT_EQ(run.GetLastErrorMessage(), message);
  return bands;
}

TEST_F(HpfPipelineStages, FilterThePanBandWhichTheFusionThenLooksForInTheFilteredImage) {
  m_pan.bands.push_back(m_pan.bands[0]);
  WriteInputs();
  HpfFusionParam param = Param();
  param.m_nPanBand = 1;
  EXPECT_EQ(PanBandsRead<Hpf>(param, L"读取全色影像数据失败！"), std::set<int>{1});
}

TEST_F(SharpenPipelineStages, SmoothThePanBandWhichTheFusionThenLooksForInTheSmoothedImage) {
  m_pan.bands.push_back(m_pan.bands[0]);
  WriteInputs();
  HpfFusionParam param = Param();
  param.m_nPanBand = 1;
  EXPECT_EQ(PanBandsRead<Sharpen>(param, L"读取数据失败！"), std::set<int>{1});
}

TEST_F(HpfPipelineStages, FiltersAreTheOnesDescribed) {
  HpfFusionParam param = Param();
  FilterDescription& filter = param.m_filter1;
  filter.m_dScale = 0.3;
  filter.m_nWidth = 5;
  filter.m_nHeight = 3;
  filter.m_nCenterX = 0;
  filter.m_nCenterY = 2;
  filter.m_vecCoefficients.clear();
  for (int i = 0; i < 15; ++i) filter.m_vecCoefficients.push_back(i * i % 7 - 2.0);
  std::vector<double> filtered;
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    // What is opened first beside the inputs is the filtered image.
    const bool isInput = path == m_panFile || path == m_msFile;
    if (operation == RasterOperation::kOpen && !isInput && filtered.empty()) filtered = ReadImage(path).bands[0];
    return false;
  });
  RunWell<Hpf>(param);
  platform::SetRasterFault({});
  const auto expected = highpass_test::Convolve(m_pan, 0, filter);
  ASSERT_EQ(filtered.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(filtered[i], expected[i], 0.01) << i;
}

/// Both images in degrees and metres, the record saying so instead of leaving it to the run.
template <typename Pipeline>
void ExpectReprojection(const HpfFusionParam& whole, const reference::Image& pan) {
  RunWell<Pipeline>(whole);
  const auto out = ReadImage(whole.m_strOutFile);
  ASSERT_EQ(out.width, pan.width);
  ASSERT_EQ(out.height, pan.height);
  HpfFusionParam given = whole;
  given.m_rcProcess = {0, 0, pan.width, pan.height};
  given.m_bNeedReproject = true;
  RunWell<Pipeline>(given);
  EXPECT_EQ(ReadImage(whole.m_strOutFile).bands, out.bands);
}

TEST_F(HpfPipelineStages, AreToldOfTheReprojection) {
  WriteInDegrees();
  ExpectReprojection<Hpf>(Param(), m_pan);
}

TEST_F(SharpenPipelineStages, AreToldOfTheReprojection) {
  WriteInDegrees();
  ExpectReprojection<Sharpen>(Param(), m_pan);
}

TEST_F(HpfPipelineStages, OpenTheirInputsAsTheRunDoes) {
  WriteInputs(PDT_FLOAT64);
  HpfFusionParam param = Param();
  param.m_bMakeGreen = true;
  RunWell<Hpf>(param);
  const auto straight = ReadImage(m_outFile);
  // The same pixels on turned ground, taken as they lie.
  Turn(m_pan, 10.0);
  Turn(m_ms, 20.0);
  WriteInputs(PDT_FLOAT64);
  param.m_bOpenOption = false;
  param.m_rcProcess = {0, 0, m_pan.width, m_pan.height};
  RunWell<Hpf>(param);
  const auto out = ReadImage(m_outFile);
  ASSERT_EQ(out.width, straight.width);
  EXPECT_EQ(out.geoTransform[2], m_pan.geoTransform[2]);
  for (std::size_t b = 0; b < 4; ++b) {
    for (std::size_t i = 0; i < out.bands[b].size(); ++i) {
      ASSERT_NEAR(out.bands[b][i], straight.bands[b][i], 0.02) << b << ' ' << i;
    }
  }
}

/// The area of interest in the result of a level stage: outside it 0, and inside the whole range.
void ExpectLevelOfArea(const reference::Image& out, double top) {
  ASSERT_EQ(out.width, 30);
  ASSERT_EQ(out.height, 30);
  double smallest = top;
  double largest = 0.0;
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 30; ++x) {
      const double v = out.bands[0][static_cast<std::size_t>(y * 30 + x)];
      if (x + 0.5 + y + 0.5 >= 30.0) {
        ASSERT_EQ(v, 0.0) << x << ' ' << y;
        continue;
      }
      smallest = std::min(smallest, v);
      largest = std::max(largest, v);
    }
  }
  EXPECT_EQ(smallest, 0.0);
  EXPECT_EQ(largest, top);
}

TEST_F(HpfPipelineStages, AdjustTheLevelInsideTheAreaOfInterest) {
  HpfFusionParam param = Param();
  param.m_strAoiFile = WriteArea();
  param.m_bDataStretch = true;
  RunWell<Hpf>(param);
  ExpectLevelOfArea(ReadImage(m_outFile), 255.0);
}

TEST_F(SharpenPipelineStages, AdjustTheLevelInsideTheAreaOfInterest) {
  HpfFusionParam param = Param();
  param.m_strAoiFile = WriteArea();
  param.m_bDataStretch = true;
  param.m_eOutDataType = PDT_FLOAT32;
  RunWell<Sharpen>(param);
  ExpectLevelOfArea(ReadImage(m_outFile), 1.0);
}

TEST_F(HpfPipelineStages, CutATenThousandthOffEachEndOfALargeImage) {
  // 36 of 360,000 pixels; 20 lie far out at either end.
  WriteLargeInputs();
  for (std::size_t i = 0; i < 20; ++i) {
    m_pan.bands[0][10007 * i + 3000] = 60000.0;
    m_pan.bands[0][10007 * i + 6000] = 0.0;
  }
  test_support::WriteImage(m_pan, m_panFile, PDT_UINT16);
  test_support::WriteImage(m_ms, m_msFile, PDT_FLOAT64);
  HpfFusionParam param = Param();
  RunWell<Hpf>(param);
  auto expected = ReadImage(m_outFile).bands;
  param.m_bDataStretch = true;
  RunWell<Hpf>(param);
  const auto out = ReadImage(m_outFile).bands;
  for (std::size_t b = 0; b < expected.size(); ++b) {
    highpass_test::Level(expected[b], 0.0001, 255.0);
    for (double& v : expected[b]) v = highpass_test::RoundHalfUp(v, 0.0, 255.0);
    EXPECT_EQ(out[b], expected[b]) << b;
  }
}

struct Window : test_support::MessageWindow {
  Window() : MessageWindow([this](UINT, WPARAM, LPARAM) -> LRESULT { return ++messages; }) {}
  int messages = 0;
};

TEST_F(HpfPipelineStages, NotifyNobody) {
  Window window;
  HpfFusionParam param = Param();
  param.m_pNotifyWnd = &window;
  RunWell<Hpf>(param);
  RunWell<Sharpen>(param);
  EXPECT_EQ(window.messages, 0);
}

/// Sees the folder when the pyramids are announced, and the log in between.
class FolderProgress : public RecordingProgress {
 public:
  explicit FolderProgress(std::function<std::vector<std::wstring>()> look) : m_look(std::move(look)) {}
  bool Step(int position, const std::wstring& text) override {
    if (text == L"创建输出影像金字塔(4/4)") files = m_look();
    return RecordingProgress::Step(position, text);
  }
  std::vector<std::wstring> files;

 private:
  std::function<std::vector<std::wstring>()> m_look;
};

/// Where between the calls of the reporter something is logged.
struct OrderLog : CLog {
  explicit OrderLog(const RecordingProgress& reporter) : progress(reporter) { CLog::m_pLogger = this; }
  ~OrderLog() override { CLog::m_pLogger = nullptr; }
  void WriteLog(int, const char*, int, const char*, const wchar_t*) override { after.push_back(progress.Calls()); }
  const RecordingProgress& progress;
  std::vector<std::vector<std::wstring>> after;
};

template <typename Pipeline>
void ExpectOrder(const HpfFusionParam& param, FolderProgress& progress, const std::wstring& folder) {
  OrderLog log(progress);
  const Pipeline run(param, &progress);
  EXPECT_EQ(run.GetLastErrorType(), 0);
  EXPECT_EQ(progress.files, std::vector<std::wstring>{L"融合.tif"}) << "no temporary file, and no pyramid yet";
  ASSERT_EQ(log.after.size(), 2u);
  EXPECT_EQ(log.after[0], (std::vector<std::wstring>{L"Start 正在进行融合... 100", L"Step 0 配置参数..."}));
  EXPECT_EQ(log.after[1], progress.Calls()) << "the end is logged last";
  EXPECT_TRUE(test_support::FileExists(folder + L"融合.tif.ovr"));
}

TEST_F(HpfPipelineStages, TemporaryFilesAreGoneBeforeThePyramidsAreBuilt) {
  WriteLargeInputs();
  HpfFusionParam param = Param();
  param.m_bSecondFilter = param.m_bMakeGreen = param.m_bDataStretch = true;
  FolderProgress progress([this] { return NewFiles(); });
  ExpectOrder<Hpf>(param, progress, m_folder);
}

TEST_F(SharpenPipelineStages, TemporaryFilesAreGoneBeforeThePyramidsAreBuilt) {
  WriteLargeInputs();
  HpfFusionParam param = Param();
  param.m_bMakeGreen = param.m_bDataStretch = true;
  FolderProgress progress([this] { return NewFiles(); });
  ExpectOrder<Sharpen>(param, progress, m_folder);
}

TEST_F(SharpenPipelineStages, PyramidsAreAverages) {
  WriteLargeInputs();
  HpfFusionParam param = Param();
  param.m_eOutDataType = PDT_FLOAT64;
  RunWell<Sharpen>(param);
  const auto out = ReadImage(m_outFile).bands[0];
  const auto half = ReadImage(m_outFile + L".ovr").bands[0];
  ASSERT_EQ(half.size(), 300u * 300u);
  for (std::size_t y = 0; y < 300; ++y) {
    for (std::size_t x = 0; x < 300; ++x) {
      const std::size_t at = 2 * y * 600 + 2 * x;
      ASSERT_NEAR(half[y * 300 + x], (out[at] + out[at + 1] + out[at + 600] + out[at + 601]) / 4.0, 1e-3);
    }
  }
  // Powers of two until the smaller side is below 256 pixels.
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(CommonFun::U2Utf8(m_outFile).c_str()));
  ASSERT_TRUE(file);
  ASSERT_EQ(file->GetRasterBand(1)->GetOverviewCount(), 2);
  EXPECT_EQ(file->GetRasterBand(1)->GetOverview(1)->GetXSize(), 150);
}

}  // namespace

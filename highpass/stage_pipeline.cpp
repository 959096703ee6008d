#include "highpass/stage_pipeline.h"

#include "framework/messages.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/processing/convolution.h"
#include "platform/processing/make_green_alg.h"
#include "platform/processing/outo_adjust_level.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"

namespace fusion {

StagePipeline::StagePipeline(HpfFusionParam& param, const CBaseAlgorithm& outer, const PipelineLog& log)
    : m_param(param), m_outer(outer), m_progress(outer.GetProgress()), m_log(log), m_msFile(param.m_strMSFile) {}

StagePipeline::~StagePipeline() {
  m_param.m_strMSFile = m_msFile;
  RemoveTempFiles();
}

bool StagePipeline::Execute(const std::function<bool()>& stages) {
  if (m_progress) {
    m_progress->Begin(m_param.m_stage, messages::RunTitle(m_param.m_strAlgName), 100);
    m_progress->Step(0, messages::kConfiguring);
  }
  // No stage sees all three, and the last one would replace the input.
  for (const auto& input : {m_param.m_strPanFile, m_param.m_strMSFile}) {
    if (!CommonFun::IsSameFile(m_param.m_strOutFile, input)) continue;
    Fail(ERR_CREATE, messages::CreateFailed(m_param.m_strOutFile));
    if (m_progress) m_progress->Error(m_errorType, m_errorMessage);
    return false;
  }
  WriteLog(m_log.begin);
  if (!stages()) return false;
  RemoveTempFiles();
  BuildPyramids();
  WriteLog(m_log.end);
  return true;
}

bool StagePipeline::Run(CBaseAlgorithm& stage) {
  stage.RunInside(m_outer);
  stage.Process();
  if (stage.Succeeded()) return true;
  return Fail(stage.GetLastErrorType(), stage.GetLastErrorMessage());
}

bool StagePipeline::MakeTempFile(std::wstring& file) {
  file = CommonFun::GetTempFilePath(m_param.m_strOutFile);
  if (file.empty()) {
    Fail(ERR_CREATE, messages::CreateFailed(m_param.m_strOutFile));
    if (m_progress) m_progress->Error(m_errorType, m_errorMessage);
    return false;
  }
  m_tempFiles.push_back(file);
  return true;
}

void StagePipeline::FillRecord(AlgorithmParam& record, const PipelineStage& stage, const std::wstring& input,
                               const std::wstring& output) const {
  record.m_strAlgName =
      stage.title + (L'(' + std::to_wstring(stage.number)) + L'/' + std::to_wstring(stage.count) + L')';
  record.m_stage = {stage.name, stage.number, stage.count};
  record.m_strInFile = input;
  record.m_strOutFile = output;
  record.m_strAoiFile = m_param.m_strAoiFile;
  record.m_bOpenOption = m_param.m_bOpenOption;
  record.m_bMaskNoData = m_param.m_bMaskNoData;
  if (output == m_param.m_strOutFile) {
    record.m_pDescription = m_param.m_pDescription;
    record.m_vecCreationOptions = m_param.m_vecCreationOptions;
  }
  record.m_eOutDataType = PDT_FLOAT32;
  record.m_eOutFormat = kFormatGeoTiff;
}

HpfFusionParam StagePipeline::FusionRecord(const PipelineStage& stage, const std::wstring& pan,
                                           const std::wstring& second, const std::wstring& output, bool isLast) const {
  HpfFusionParam record;
  FillRecord(record, stage, {}, output);
  record.m_strPanFile = pan;
  record.m_strSecondHpfFile = second;
  record.m_strMSFile = m_param.m_strMSFile;
  const bool isWhole = !isLast && !m_param.m_rcScene.IsRectEmpty();
  record.m_rcProcess = isWhole ? m_param.m_rcScene : m_param.m_rcProcess;
  record.m_rcScene = isWhole ? CRect() : m_param.m_rcScene;
  record.m_nPanBand = m_param.m_nPanBand;
  record.m_vecMSBands = m_param.m_vecMSBands;
  record.m_bNeedReproject = m_param.m_bNeedReproject;
  record.m_eResampleType = RT_BICUBIC;
  record.m_bRepeatMsEdges = m_param.m_bRepeatMsEdges;
  record.m_bKeepSampleRange = m_param.m_bKeepSampleRange;
  record.m_dDetailWeight1 = m_param.m_dDetailWeight1;
  record.m_dDetailWeight2 = m_param.m_dDetailWeight2;
  record.m_bHpfFlag1 = m_param.m_bHpfFlag1;
  return record;
}

bool StagePipeline::CutPart(AlgorithmParam& record) {
  if (m_param.m_rcScene.IsRectEmpty()) return true;
  CRasterSource pan;
  CRasterSource input;
  if (!pan.Open(m_param.m_strPanFile, GDA_READ, m_param.m_bOpenOption) || !input.OpenSimple(record.m_strInFile)) {
    Fail(ERR_OPEN, messages::OpenFailed(record.m_strInFile));
    if (m_progress) m_progress->Error(m_errorType, m_errorMessage);
    return false;
  }
  record.m_rcProcess = input.GroundToImage(pan.ImageToGround(m_param.m_rcProcess));
  return true;
}

bool StagePipeline::Convolve(const PipelineStage& which, const FilterDescription& filter, std::wstring& output) {
  if (!MakeTempFile(output)) return false;
  ConvolutionParam record;
  FillRecord(record, which, m_param.m_strPanFile, output);
  record.m_nBand = m_param.m_nPanBand;
  record.m_dScale = filter.m_dScale;
  record.m_vecCoefficients = filter.m_vecCoefficients;
  record.m_nWidth = filter.m_nWidth;
  record.m_nHeight = filter.m_nHeight;
  record.m_nCenterX = filter.m_nCenterX;
  record.m_nCenterY = filter.m_nCenterY;
  CConvolution stage(&record);
  return Run(stage);
}

bool StagePipeline::MakeGreen(const PipelineStage& which) {
  if (!m_param.m_bMakeGreen) return true;
  std::wstring output;
  if (!MakeTempFile(output)) return false;
  AlgorithmParam record;
  FillRecord(record, which, m_param.m_strMSFile, output);
  CMakeGreenAlg stage(&record);
  if (!Run(stage)) return false;
  m_param.m_strMSFile = output;
  return true;
}

bool StagePipeline::AdjustLevel(const PipelineStage& which, const std::wstring& input, PixelDataType type,
                                double ratio) {
  OutoAdjustLevelParam record;
  FillRecord(record, which, input, m_param.m_strOutFile);
  record.m_eOutDataType = type;
  record.m_eOutFormat = m_param.m_eOutFormat;
  record.m_nOutBandCount = m_param.m_nOutBandCount;
  record.m_dRatio = ratio;
  record.m_nMode = 0;
  if (!CutPart(record)) return false;
  COutoAdjustLevel stage(&record);
  return Run(stage);
}

bool StagePipeline::Fail(int type, const std::wstring& message) {
  m_failed = true;
  m_errorType = type;
  m_errorMessage = message;
  return false;
}

void StagePipeline::RemoveTempFiles() {
  for (const auto& file : m_tempFiles) CRasterSource::DeleteFileW(file);
  m_tempFiles.clear();
}

void StagePipeline::BuildPyramids() {
  CRasterSource output;
  if (!output.OpenSimple(m_param.m_strOutFile)) return;
  // The counter is the same in every pipeline, however many stages it has.
  if (m_progress) m_progress->Step(100, L"创建输出影像金字塔(4/4)");
  CBuildRasterOverviews pyramids(&output, "AVERAGE", 0, nullptr, m_progress, std::wstring(), false);
  pyramids.RunInside(m_outer);
  pyramids.Process();
}

void StagePipeline::WriteLog(const wchar_t* text) const {
  platform::WriteLog(2, m_log.file, m_log.line, m_log.function, text);
}

}  // namespace fusion

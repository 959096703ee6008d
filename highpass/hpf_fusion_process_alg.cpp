#include "highpass/hpf_fusion_process_alg.h"

#include <algorithm>

#include "framework/band_choice.h"
#include "framework/messages.h"
#include "highpass/hpf_fusion.h"
#include "highpass/hpf_param.h"
#include "highpass/stage_pipeline.h"
#include "platform/algorithm/run_threads.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/log.h"

namespace messages = fusion::messages;
namespace stages = platform::stages;

CHpfFusionProcessAlg::CHpfFusionProcessAlg(FusionParam* param) : m_hpfParam(fusion::ToHpfParam(param)) {}
CHpfFusionProcessAlg::~CHpfFusionProcessAlg() = default;
CHpfFusionProcessAlg::CHpfFusionProcessAlg(const CHpfFusionProcessAlg&) = default;
CHpfFusionProcessAlg& CHpfFusionProcessAlg::operator=(const CHpfFusionProcessAlg&) = default;

void CHpfFusionProcessAlg::Process() {
  ClearError();
  const platform::RunThreads threads(*this);
  Guard([this] {
    fusion::StagePipeline pipeline(
        m_hpfParam, *this,
        {"HpfFusionProcessAlg", __LINE__, "CHpfFusionProcessAlg::Process", L"开始HPF融合处理", L"HPF融合处理结束"});
    pipeline.Execute([&] { return RunStages(pipeline); });
    if (pipeline.HasFailed()) SetError(pipeline.ErrorType(), pipeline.ErrorMessage());
  });
}

bool CHpfFusionProcessAlg::RunStages(fusion::StagePipeline& pipeline) {
  std::wstring highPass;
  std::wstring secondHighPass;
  if (!pipeline.Convolve({L"卷积处理", stages::kFiltering, 1, 4}, m_hpfParam.m_filter1, highPass)) return false;
  if (m_hpfParam.m_bSecondFilter &&
      !pipeline.Convolve({L"二次卷积", stages::kSecondFiltering, 1, 4}, m_hpfParam.m_filter2, secondHighPass)) {
    return false;
  }
  if (!pipeline.MakeGreen({L"加绿处理", stages::kGreenMix, 2, 4})) return false;
  if (Preproccess() != GIS_SUCCESS) return false;

  std::wstring fused;
  std::wstring corrected;
  if (!Fuse(pipeline, highPass, secondHighPass, fused) || !CorrectSpectrally(pipeline, fused, corrected)) return false;
  // Eight bits whatever type the run asks for.
  return !m_hpfParam.m_bDataStretch ||
         pipeline.AdjustLevel({L"数据拉伸处理", stages::kLevelAdjustment, 4, 4}, corrected, PDT_UINT8, 0.0001);
}

GISError CHpfFusionProcessAlg::Preproccess() {
  CRasterSource ms;
  if (!ms.Open(m_hpfParam.m_strMSFile, GDA_READ, m_hpfParam.m_bOpenOption)) {
    Fail(ERR_OPEN, messages::kMsOpenFailed);
    return GIS_OPEN_FAILED;
  }
  ms.SetMaskNoData(m_hpfParam.m_bMaskNoData);
  ms.SetReadAhead(m_overlappedIo);
  ms.SetWorkers(m_workers.get());
  fusion::ChooseAllBands(ms, m_hpfParam.m_vecMSBands);
  const std::size_t count = m_hpfParam.m_vecMSBands.size();
  m_pMulMeans = SharedArray(count);
  m_pMulStdvs = SharedArray(count);
  for (std::size_t i = 0; i < count; ++i) {
    // The file's i-th band, not the i-th chosen one.
    CRasterBand* band = ms.GetRasterBand(static_cast<int>(i));
    if (!band) continue;
    double minimum = 0.0;
    double maximum = 0.0;
    if (!band->ComputeStatics(&minimum, &maximum, &m_pMulMeans[i], &m_pMulStdvs[i], true, m_pProgress)) {
      return FailStatistics();
    }
  }
  m_eMSDataType = ms.GetRasterDataType();
  return GIS_SUCCESS;
}

GISError CHpfFusionProcessAlg::FailStatistics() {
  if (m_pProgress && m_pProgress->IsCancelRequested()) {
    m_nLastErrorType = ERR_CANCELLED;
    platform::WriteLog(2, "HpfFusionProcessAlg", __LINE__, "CHpfFusionProcessAlg::Process", messages::kCancelled);
  } else {
    Fail(ERR_STATISTICS, messages::kMsStatisticsFailed);
  }
  return GIS_FAILED;
}

bool CHpfFusionProcessAlg::Fuse(fusion::StagePipeline& pipeline, const std::wstring& highPass,
                                const std::wstring& secondHighPass, std::wstring& fused) {
  if (!pipeline.MakeTempFile(fused)) return false;
  HpfFusionParam record =
      pipeline.FusionRecord({L"HPF融合处理", stages::kHighPassFusion, 3, 4}, highPass, secondHighPass, fused, false);
  record.m_bSecondFilter = m_hpfParam.m_bSecondFilter;
  record.m_bDataStretch = m_hpfParam.m_bDataStretch;
  record.m_bHpfFlag4 = m_hpfParam.m_bHpfFlag4;
  if (!CapWeight(highPass, record.m_dDetailWeight1)) return false;
  if (record.m_bSecondFilter && !CapWeight(secondHighPass, record.m_dDetailWeight2)) return false;
  m_detailWeight = record.m_dDetailWeight1;
  CHpfFusion stage(&record);
  stage.SetMulMeanValue(m_pMulMeans);
  stage.SetMulStdvValue(m_pMulStdvs);
  return pipeline.Run(stage);
}

bool CHpfFusionProcessAlg::CapWeight(const std::wstring& highPass, double& weight) {
  if (!m_capsDetail) return true;
  const auto deviation = [&](const std::wstring& file, int index, double& stdDev) {
    CRasterSource source;
    if (!source.Open(file, GDA_READ, m_hpfParam.m_bOpenOption)) {
      Fail(ERR_OPEN, messages::OpenFailed(file));
      return false;
    }
    source.SetMaskNoData(m_hpfParam.m_bMaskNoData);
    source.SetReadAhead(m_overlappedIo);
    source.SetWorkers(m_workers.get());
    CRasterBand* band = source.GetRasterBand(index);
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    if (band && band->ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, m_pProgress)) return true;
    FailStatistics();
    return false;
  };
  double detail = 0.0;
  double pan = 0.0;
  if (!deviation(highPass, 0, detail)) return false;
  if (!deviation(m_hpfParam.m_strPanFile, m_hpfParam.m_nPanBand, pan)) return false;
  if (pan > 0.0) weight = std::min(weight, detail / pan);
  return true;
}

bool CHpfFusionProcessAlg::CorrectSpectrally(fusion::StagePipeline& pipeline, const std::wstring& fused,
                                             std::wstring& corrected) {
  corrected = m_hpfParam.m_strOutFile;
  if (m_hpfParam.m_bDataStretch && !pipeline.MakeTempFile(corrected)) return false;
  CStretchAlgorithmParam record;
  pipeline.FillRecord(record, {L"光谱校正", stages::kSpectralCorrection, 4, 4}, fused, corrected);
  record.m_eOutDataType = m_eMSDataType;
  record.m_eOutFormat = m_hpfParam.m_bDataStretch ? kFormatGeoTiff : m_hpfParam.m_eOutFormat;
  record.m_nOutBandCount = m_hpfParam.m_nOutBandCount;
  record.m_pMeans = m_pMulMeans;
  record.m_pStdDevs = m_pMulStdvs;
  if (!m_hpfParam.m_bDataStretch && !pipeline.CutPart(record)) return false;
  CStretchOfMultiBand stage(&record);
  return pipeline.Run(stage);
}

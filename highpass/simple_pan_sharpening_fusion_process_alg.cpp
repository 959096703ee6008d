#include "highpass/simple_pan_sharpening_fusion_process_alg.h"

#include "highpass/hpf_param.h"
#include "highpass/mean_filter.h"
#include "highpass/simple_pan_sharpening_fusion.h"
#include "highpass/stage_pipeline.h"
#include "platform/algorithm/run_threads.h"

namespace stages = platform::stages;

FilterDescription fusion::MeanFilter() {
  constexpr int kSize = 7;
  FilterDescription mean;
  mean.m_dScale = 1.0 / (kSize * kSize);
  mean.m_vecCoefficients.assign(kSize * kSize, 1.0);
  mean.m_nWidth = mean.m_nHeight = kSize;
  mean.m_nCenterX = mean.m_nCenterY = kSize / 2;
  return mean;
}

namespace {

/// Knows whether the run has begun to write its output.
class WatchedFusion : public CSimplePanSharpeningFusion {
 public:
  using CSimplePanSharpeningFusion::ConfigDstRaster;
  using CSimplePanSharpeningFusion::CSimplePanSharpeningFusion;
  bool ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* smooth, CRasterSource* ms,
                       CRasterSource* dst, std::vector<int>* bands, CRect* outRect, CRasterAOI** aoi) override {
    const bool configured =
        CSimplePanSharpeningFusion::ConfigDstRaster(param, pan, smooth, ms, dst, bands, outRect, aoi);
    m_created = dst->IsOpen();
    return configured;
  }
  bool HasCreatedOutput() const { return m_created; }

 private:
  bool m_created = false;
};

}  // namespace

CSimplePanSharpeningFusionProcessAlg::CSimplePanSharpeningFusionProcessAlg(FusionParam* param)
    : CFusion(param), m_hpfParam(fusion::ToHpfParam(param)) {}
CSimplePanSharpeningFusionProcessAlg::~CSimplePanSharpeningFusionProcessAlg() = default;
CSimplePanSharpeningFusionProcessAlg::CSimplePanSharpeningFusionProcessAlg(
    const CSimplePanSharpeningFusionProcessAlg&) = default;
CSimplePanSharpeningFusionProcessAlg& CSimplePanSharpeningFusionProcessAlg::operator=(
    const CSimplePanSharpeningFusionProcessAlg&) = default;

void CSimplePanSharpeningFusionProcessAlg::Process() {
  ClearError();
  const platform::RunThreads threads(*this);
  Guard([this] {
    fusion::StagePipeline pipeline(
        m_hpfParam, *this,
        {"SimplePanSharpeningFusionProcessAlg", __LINE__, "CSimplePanSharpeningFusionProcessAlg::Process",
         L"开始SimplePanSharpening融合处理", L"SimplePanSharpening融合处理结束"});
    pipeline.Execute([&] { return RunStages(pipeline); });
    if (pipeline.HasFailed()) SetError(pipeline.ErrorType(), pipeline.ErrorMessage());
  });
}

bool CSimplePanSharpeningFusionProcessAlg::RunStages(fusion::StagePipeline& pipeline) {
  std::wstring smooth;
  if (!pipeline.Convolve({L"卷积处理", stages::kFiltering, 1, 3}, fusion::MeanFilter(), smooth)) return false;
  PixelDataType type = m_hpfParam.m_eOutDataType;
  if (type == PDT_UNKNOWN) {
    // The caller's image decides, not the 32-bit floats that the green mix makes of it.
    CRasterSource ms;
    if (ms.OpenSimple(m_hpfParam.m_strMSFile)) type = ms.GetRasterDataType();
  }
  if (!pipeline.MakeGreen({L"加绿处理", stages::kGreenMix, 2, 3})) return false;
  if (!m_hpfParam.m_bDataStretch) return Fuse(pipeline, smooth, type, m_hpfParam.m_strOutFile);

  std::wstring fused;
  return pipeline.MakeTempFile(fused) && Fuse(pipeline, smooth, type, fused) &&
         pipeline.AdjustLevel({L"数据拉伸处理", stages::kLevelAdjustment, 3, 3}, fused, type, 0.01);
}

bool CSimplePanSharpeningFusionProcessAlg::Fuse(fusion::StagePipeline& pipeline, const std::wstring& smooth,
                                                PixelDataType type, const std::wstring& output) {
  HpfFusionParam record = pipeline.FusionRecord({L"PanSharpening融合", stages::kSharpening, 3, 3},
                                                m_hpfParam.m_strPanFile, smooth, output, !m_hpfParam.m_bDataStretch);
  record.m_eOutDataType = type;
  record.m_eOutFormat = m_hpfParam.m_eOutFormat;
  record.m_bSecondFilter = true;
  WatchedFusion stage(&record);
  if (pipeline.Run(stage)) return true;
  // The block loop leaves behind what it has written so far.
  if (stage.HasCreatedOutput()) CRasterSource::DeleteFileW(output);
  return false;
}

void** CSimplePanSharpeningFusionProcessAlg::AlgorithmProcess(double* /*pan*/, CRect* /*panRect*/, double** /*ms*/,
                                                              int /*msBandCount*/, CRect* /*msRect*/,
                                                              PixelDataType /*outType*/, int /*outBandCount*/,
                                                              CRect* /*dstBlock*/, CRasterAOI* /*aoi*/) {
  return nullptr;
}

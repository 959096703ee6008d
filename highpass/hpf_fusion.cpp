#include "highpass/hpf_fusion.h"

#include <cmath>

#include "framework/band_choice.h"
#include "framework/messages.h"
#include "framework/row_math.h"
#include "framework/run/run_variation.h"
#include "highpass/hpf_param.h"
#include "platform/system/multiversion.h"
#include "platform/utility/common_fun.h"

namespace messages = fusion::messages;

namespace {

FUSION_MULTIVERSION(void, AddDetailRow, (const double* first, double gain1, const double* ms, int n, double* out),
                    (first, gain1, ms, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = gain1 * first[i] + ms[i];
}

FUSION_MULTIVERSION(void, AddBothDetailsRow,
                    (const double* first, double gain1, const double* second, double gain2, const double* ms, int n,
                     double* out),
                    (first, gain1, second, gain2, ms, n, out)) {
  for (int i = 0; i < n; ++i) out[i] = gain1 * first[i] + gain2 * second[i] + ms[i];
}

}  // namespace

CHpfFusion::CHpfFusion(FusionParam* param) : CFusion(param), m_hpfParam(fusion::ToHpfParam(param)) {
  m_positions = {.reprojectedOffset = 0.5};
}
CHpfFusion::~CHpfFusion() = default;
CHpfFusion::CHpfFusion(const CHpfFusion&) = default;
CHpfFusion& CHpfFusion::operator=(const CHpfFusion&) = default;

fusion::RunVariation CHpfFusion::Variation() {
  fusion::RunVariation variation;
  variation.logFile = "HpfFusion";
  variation.logLine = __LINE__;
  variation.logFunction = "CHpfFusion::Process";
  variation.reportsMsRead = true;
  variation.kernel = [this](const fusion::FusionBlock& b) {
    return AlgorithmProcess(b.pan, b.panRect, b.detail, b.ms, b.msBandCount, b.msRect, b.outType, b.outBandCount,
                            b.dstBlock, b.aoi);
  };
  return variation;
}

void CHpfFusion::Process() {
  CRasterSource second;
  m_pSecondSrc = &second;
  fusion::RunVariation variation = Variation();
  variation.configure = [this](CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands,
                               CRect& rect) {
    return ConfigDstRaster(&m_param, &pan, m_pSecondSrc, &ms, &dst, &bands, &rect, &m_pAOI);
  };
  variation.detailSource = &second;
  RunBlocks(variation);
  m_pSecondSrc = nullptr;
}

bool CHpfFusion::ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* secondHighPass,
                                 CRasterSource* ms, CRasterSource* dst, std::vector<int>* bands, CRect* outRect,
                                 CRasterAOI** aoi) {
  if (!OpenInput(*param, pan, param->m_strPanFile) || !OpenInput(*param, ms, param->m_strMSFile)) return false;
  if (m_hpfParam.m_bSecondFilter) {
    const std::wstring& path = m_hpfParam.m_strSecondHpfFile;
    if (!OpenInput(*param, secondHighPass, path)) return false;
    if (secondHighPass->GetWidth() != pan->GetWidth() || secondHighPass->GetHeight() != pan->GetHeight()) {
      SetError(ERR_OPEN, L"二次滤波处理影像与第一次处理影像不匹配！");
      return false;
    }
    // Like the other two inputs, which the rest of the configuration looks at.
    if (CommonFun::IsSameFile(param->m_strOutFile, path)) {
      SetError(ERR_CREATE, messages::CreateFailed(param->m_strOutFile));
      return false;
    }
  }
  return ConfigOpenedRasters(param, pan, ms, dst, bands, outRect, aoi);
}

GISError CHpfFusion::Preproccess() {
  fusion::ChooseAllBands(*m_pMSSrc, m_param.m_vecMSBands);
  if (!m_pMulStdvs) {
    SetError(ERR_STATISTICS, messages::kMsStatisticsFailed);
    return GIS_FAILED;
  }
  const auto takeGains = [this](CRasterBand& highPass, bool second, double weight, double& mean, double& stdv) {
    double minimum = 0.0;
    double maximum = 0.0;
    return MeasureBand(highPass, minimum, maximum, mean, stdv) && SetGains(second, stdv, weight);
  };
  CRasterBand* first = m_pPanSrc->GetRasterBand(m_param.m_nPanBand);
  if (!first) {
    SetError(ERR_READ, L"读取全色影像数据失败！");
    return GIS_FAILED;
  }
  if (!takeGains(*first, false, m_hpfParam.m_dDetailWeight1, m_dFirstMean, m_dFirstStdv)) return GIS_FAILED;
  m_pSecondGains = SharedArray();
  if (!m_hpfParam.m_bSecondFilter) return GIS_SUCCESS;

  // Its first band whatever the pan band: the filter stages write a single one.
  CRasterBand* second = m_pSecondSrc->GetRasterBand(0);
  if (!second) {
    SetError(ERR_OPEN, L"打开二次滤波影像失败！");
    return GIS_FAILED;
  }
  const bool taken = takeGains(*second, true, m_hpfParam.m_dDetailWeight2, m_dSecondMean, m_dSecondStdv);
  return taken ? GIS_SUCCESS : GIS_FAILED;
}

std::vector<double> CHpfFusion::GetGains(bool second) const {
  const double* gains = second ? m_pSecondGains : m_pFirstGains;
  return gains ? std::vector<double>(gains, gains + m_param.m_nOutBandCount) : std::vector<double>();
}

bool CHpfFusion::SetGains(bool second, double stdv, double weight) {
  if (std::fabs(stdv) < 1e-8) {
    SetError(ERR_ZERO_DEVIATION,
             second ? L"出错了，二次滤波后全色影像数据标准差为零！" : L"出错了，全色影像数据标准差为零！");
    return false;
  }
  const SharedArray gains(m_param.m_vecMSBands.size());
  for (std::size_t i = 0; i < m_param.m_vecMSBands.size(); ++i) gains[i] = m_pMulStdvs[i] / stdv * weight;
  (second ? m_pSecondGains : m_pFirstGains) = gains;
  return true;
}

GISError CHpfFusion::StartBolckProcess() { return GIS_SUCCESS; }

void** CHpfFusion::AlgorithmProcess(double* /*pan*/, CRect* /*panRect*/, double** /*ms*/, int /*msBandCount*/,
                                    CRect* /*msRect*/, PixelDataType /*outType*/, int /*outBandCount*/,
                                    CRect* /*dstBlock*/, CRasterAOI* /*aoi*/) {
  return nullptr;
}

void** CHpfFusion::AlgorithmProcess(double* panBlock, CRect* blockRect, double* secondBlock, double** msBlocks,
                                    int msBandCount, CRect* msRect, PixelDataType outType, int outBandCount,
                                    CRect* readRect, CRasterAOI* aoi) {
  const auto addDetail = [this, msBandCount](const fusion::FusionRow& row) {
    for (int b = 0; b < row.outBandCount; ++b) {
      if (b >= msBandCount) {
        fusion::ClearRow(row.width, row.out[b]);
      } else if (row.detail && m_pSecondGains) {
        AddBothDetailsRow(row.pan, m_pFirstGains[b], row.detail, m_pSecondGains[b], row.ms[b], row.width, row.out[b]);
      } else {
        AddDetailRow(row.pan, m_pFirstGains[b], row.ms[b], row.width, row.out[b]);
      }
    }
  };
  return FuseRows(
      {panBlock, blockRect, secondBlock, msBlocks, msBandCount, msRect, outType, outBandCount, readRect, aoi}, {},
      addDetail);
}

void CHpfFusion::EndBolckProcess() {}

void CHpfFusion::EndProccess() {}

double CHpfFusion::ChangeDataType(double v, double inMin, double inMax, double outMin, double outMax) {
  if (v == 0.0 || inMax <= 0.0 || outMax <= 0.0) return v;
  // The lower bound only cuts; it does not enter the scale.
  double r = (v - inMin) / (inMax - inMin) * outMax;
  if (r > outMax) r = outMax;
  if (r < outMin) r = outMin;
  return r;
}

#include "highpass/block_sharpening.h"

#include "highpass/mean_filter.h"
#include "platform/utility/log.h"

namespace fusion {

BlockSharpening::BlockSharpening(HpfFusionParam* param) : CSimplePanSharpeningFusion(param) {
  m_param.m_eResampleType = RT_BICUBIC;
  m_param.m_bSpectralMatch = false;
  constexpr double kCut = 0.01;
  if (m_hpfParam.m_bDataStretch) LevelBlocks({kCut});
}

void BlockSharpening::Process() {
  RunVariation variation = Variation();
  variation.configure = [this](CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands,
                               CRect& rect) {
    return OpenRasters(pan, ms) && ConfigOpenedRasters(&m_param, &pan, &ms, &dst, &bands, &rect, &m_pAOI);
  };
  variation.readDetail = m_filters.ReadDetail();
  if (m_hpfParam.m_bMakeGreen) variation.readMs = m_filters.ReadMs(m_param.m_vecMSBands);
  platform::WriteLog(2, "BlockSharpening", __LINE__, "BlockSharpening::Process", L"开始SimplePanSharpening融合处理");
  RunBlocks(variation);
  m_filters = {};
  if (Succeeded())
    platform::WriteLog(2, "BlockSharpening", __LINE__, "BlockSharpening::Process", L"SimplePanSharpening融合处理结束");
}

bool BlockSharpening::OpenRasters(CRasterSource& pan, CRasterSource& ms) {
  const int band = m_param.m_nPanBand;
  if (!OpenInput(m_param, &pan, m_param.m_strPanFile) || !ExistingBand(pan, band)) return false;
  m_filters.FilterDetail(pan, band, MeanFilter());
  if (!OpenInput(m_param, &ms, m_param.m_strMSFile)) return false;
  if (m_hpfParam.m_bMakeGreen) m_filters.MixGreen(ms, m_param.m_vecMSBands);
  return true;
}

}  // namespace fusion

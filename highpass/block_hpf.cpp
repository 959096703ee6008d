#include "highpass/block_hpf.h"

#include <algorithm>

#include "framework/messages.h"
#include "platform/processing/unwritten_figures.h"
#include "platform/raster/cache_room.h"
#include "platform/utility/log.h"

namespace fusion {

using platform::BandFigures;
namespace stages = platform::stages;

BlockHpf::BlockHpf(HpfFusionParam* param) : CHpfFusion(param) {
  m_param.m_eResampleType = RT_BICUBIC;
  // The multispectral image's, whatever type the run asks for; the green mix makes 32-bit floats of it, the level
  // adjustment eight bits of both.
  m_param.m_eOutDataType = m_hpfParam.m_bMakeGreen ? PDT_FLOAT32 : PDT_UNKNOWN;
  if (m_hpfParam.m_bDataStretch) m_param.m_eOutDataType = PDT_UINT8;
  m_param.m_bSpectralMatch = false;
}

void BlockHpf::Process() {
  RunVariation variation = Variation();
  variation.configure = [this](CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands,
                               CRect& rect) {
    return OpenRasters(pan, ms) && ConfigOpenedRasters(&m_param, &pan, &ms, &dst, &bands, &rect, &m_pAOI);
  };
  variation.readPan = m_filters.ReadPan();
  if (m_hpfParam.m_bSecondFilter) variation.readDetail = m_filters.ReadDetail();
  if (m_hpfParam.m_bMakeGreen) variation.readMs = m_filters.ReadMs(m_param.m_vecMSBands);
  platform::WriteLog(2, "BlockHpf", __LINE__, "BlockHpf::Process", L"开始HPF融合处理");
  RunBlocks(variation);
  m_filters = {};
  if (Succeeded()) platform::WriteLog(2, "BlockHpf", __LINE__, "BlockHpf::Process", L"HPF融合处理结束");
}

bool BlockHpf::OpenRasters(CRasterSource& pan, CRasterSource& ms) {
  const int band = m_param.m_nPanBand;
  if (!OpenInput(m_param, &pan, m_param.m_strPanFile) || !ExistingBand(pan, band)) return false;
  const bool filters = m_filters.FilterPan(pan, band, m_hpfParam.m_filter1) &&
                       (!m_hpfParam.m_bSecondFilter || m_filters.FilterDetail(pan, band, m_hpfParam.m_filter2));
  if (!filters) {
    SetError(ERR_EXCEPTION, messages::kWrongKernel);
    return false;
  }
  if (!OpenInput(m_param, &ms, m_param.m_strMSFile)) {
    if (!m_hpfParam.m_bMakeGreen) SetError(ERR_OPEN, messages::kMsOpenFailed);
    return false;
  }
  if (m_hpfParam.m_bMakeGreen) m_filters.MixGreen(ms, m_param.m_vecMSBands);
  return true;
}

GISError BlockHpf::Preproccess() {
  // Windows of the filtered image reach into the blocks of the file on either side.
  platform::CacheRoom rows;
  rows.Reserve(platform::CacheRoom::BytesToShare(*m_pPanSrc, 0));
  BandFigures first;
  BandFigures second;
  double pan = 0.0;
  if (!MeasureFiltered(*m_filters.Pan(), {stages::kFiltering}, L"卷积处理", first)) return GIS_FAILED;
  if (m_filters.Detail() && !MeasureFiltered(*m_filters.Detail(), {stages::kSecondFiltering}, L"二次卷积", second)) {
    return GIS_FAILED;
  }
  if (!MeasureMs() || (m_capsDetail && !MeasurePan(pan))) return GIS_FAILED;
  if (AwaitsSurvey()) return GIS_SUCCESS;

  double weights[] = {m_hpfParam.m_dDetailWeight1, m_hpfParam.m_dDetailWeight2};
  if (!CapWeight(first, pan, weights[0])) return GIS_FAILED;
  if (m_filters.Detail() && !CapWeight(second, pan, weights[1])) return GIS_FAILED;
  m_detailWeight = weights[0];
  SetMulMeanValue(m_means);
  SetMulStdvValue(m_stdDevs);
  if (!SetGains(false, first.StdDev(), weights[0])) return GIS_FAILED;
  if (m_filters.Detail() && !SetGains(true, second.StdDev(), weights[1])) return GIS_FAILED;

  const int count = m_param.m_nOutBandCount;
  MatchTargets targets;
  targets.means.assign(&m_means[0], &m_means[count]);
  targets.stdDevs.assign(&m_stdDevs[0], &m_stdDevs[count]);
  targets.fusedType = PDT_FLOAT32;
  MatchBlocks(std::move(targets));
  constexpr double kCut = 0.0001;
  if (m_hpfParam.m_bDataStretch) LevelBlocks({kCut, m_filters.Mixed() ? PDT_FLOAT32 : m_pMSSrc->GetRasterDataType()});
  return GIS_SUCCESS;
}

std::vector<double> BlockHpf::ValuesOf(const double* values) const {
  return values ? std::vector<double>(values, values + m_param.m_nOutBandCount) : std::vector<double>();
}

bool BlockHpf::MeasureFiltered(const platform::FilteredBand& filtered, const platform::Stage& stage,
                               const wchar_t* title, BandFigures& figures) {
  constexpr int kPercent = 100;
  if (m_pProgress) m_pProgress->Begin(stage, messages::RunTitle(title), kPercent);
  bool cancelled = false;
  const auto goesOn = [&](std::int64_t done, std::int64_t count) {
    cancelled = m_pProgress && !m_pProgress->Step(static_cast<int>(kPercent * done / count), messages::kProcessing);
    return !cancelled;
  };
  const auto read = [&](const CRect& rect, double* values, bool& gaps) { return filtered.Read(rect, values, gaps); };
  const platform::UnwrittenBand band{m_pPanSrc->GetWidth(), m_pPanSrc->GetHeight(), read, m_param.m_pSurvey.get(),
                                     "pan " + std::string(stage.name)};
  if (platform::Measure(band, m_overlappedIo, m_workers.get(), goesOn, figures)) {
    return true;
  }
  SetError(cancelled ? ERR_CANCELLED : ERR_READ, cancelled ? L"" : messages::kReadFailed);
  return false;
}

bool BlockHpf::MeasureMs() {
  const std::size_t count = m_param.m_vecMSBands.size();
  m_means = SharedArray(count);
  m_stdDevs = SharedArray(count);
  // The file's first bands, not the chosen ones.
  for (int b = 0; b < std::min(static_cast<int>(count), m_pMSSrc->GetBandCount()); ++b) {
    if (!MeasureMsBand(b, m_means[b], m_stdDevs[b])) return false;
  }
  return true;
}

bool BlockHpf::MeasureMsBand(int band, double& mean, double& stdDev) {
  const platform::MixedBands* mixed = m_filters.Mixed();
  if (!mixed) {
    double minimum = 0.0;
    double maximum = 0.0;
    return m_pMSSrc->GetRasterBand(band)->ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, m_pProgress) ||
           FailStatistics();
  }
  BandFigures figures(mixed->NoDataSample());
  bool cancelled = false;
  const auto goesOn = [&](std::int64_t, std::int64_t) {
    cancelled = m_pProgress && m_pProgress->IsCancelRequested();
    return !cancelled;
  };
  const auto read = [&](const CRect& rect, double* values, bool& gaps) {
    return mixed->Read(band, rect, values, gaps);
  };
  const platform::UnwrittenBand unwritten{m_pMSSrc->GetWidth(), m_pMSSrc->GetHeight(), read, m_param.m_pSurvey.get(),
                                          "multispectral mixed band " + std::to_string(band + 1)};
  const bool measured = platform::Measure(unwritten, m_overlappedIo, m_workers.get(), goesOn, figures);
  if (!measured && !cancelled) {
    SetError(ERR_READ, messages::kReadFailed);
    return false;
  }
  mean = figures.Mean();
  stdDev = figures.StdDev();
  return (measured && (!figures.IsEmpty() || AwaitsSurvey())) || FailStatistics();
}

bool BlockHpf::MeasurePan(double& stdDev) {
  double minimum = 0.0;
  double maximum = 0.0;
  double mean = 0.0;
  CRasterBand& band = *m_pPanSrc->GetRasterBand(m_param.m_nPanBand);
  return band.ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, m_pProgress) || FailStatistics();
}

bool BlockHpf::CapWeight(const BandFigures& detail, double pan, double& weight) {
  if (!m_capsDetail) return true;
  if (detail.IsEmpty()) return FailStatistics();
  if (pan > 0.0) weight = std::min(weight, detail.StdDev() / pan);
  return true;
}

bool BlockHpf::FailStatistics() {
  if (m_pProgress && m_pProgress->IsCancelRequested()) {
    SetError(ERR_CANCELLED, L"");
  } else {
    SetError(ERR_STATISTICS, messages::kMsStatisticsFailed);
  }
  return false;
}

}  // namespace fusion

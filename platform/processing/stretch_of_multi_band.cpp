#include "platform/processing/stretch_of_multi_band.h"

#include "platform/algorithm/row_buffer.h"
#include "platform/processing/moment_matching.h"
#include "platform/validity/no_data.h"

using platform::GreenMix;

CStretchOfMultiBand::CStretchOfMultiBand(AlgorithmParam* param) : CMultiBandIOProcess(param) {
  const auto* stretch = dynamic_cast<const CStretchAlgorithmParam*>(param);
  if (!stretch) return;
  m_pMeans = stretch->m_pMeans;
  m_pStdDevs = stretch->m_pStdDevs;
  m_bMakeGreen = stretch->m_bMakeGreen;
  m_bRobust = stretch->m_bRobust;
}

CStretchOfMultiBand::~CStretchOfMultiBand() = default;

std::int64_t CStretchOfMultiBand::GetOutliers() const { return m_matching ? m_matching->Outliers() : 0; }
double CStretchOfMultiBand::GetWidening() const { return m_matching ? m_matching->Widening() : 1.0; }

bool CStretchOfMultiBand::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  if (!m_pMeans || !m_pStdDevs) {
    SetError(ERR_STATISTICS, L"缺少目标统计值！");
    return false;
  }
  if (!PlanFirstBands(input, plan)) return false;
  std::optional<GreenMix> mix;
  if (m_bMakeGreen && plan.outBandCount > GreenMix::kGreen && GreenMix::AppliesTo(input)) {
    mix = GreenMix(input);
    // Near infrared is needed although it may not be written.
    if (plan.outBandCount <= GreenMix::kNearInfrared) plan.bands.push_back(GreenMix::kNearInfrared);
  }
  plan.scanCount = 1;
  plan.roundToNearest = true;
  plan.useArea = true;
  plan.noData = input.GetRasterBand(0);

  m_scanBands = plan.bands;
  m_rows.resize(plan.bands.size());
  std::vector<platform::MomentMatching::Band> bands;
  for (int b = 0; b < plan.outBandCount; ++b) {
    bands.push_back({platform::NoDataSample(*input.GetRasterBand(b)), m_pMeans[b], m_pStdDevs[b]});
  }
  m_matching = std::make_shared<platform::MomentMatching>(std::move(bands), mix, m_bRobust);
  plan.makeRowWork = [this] {
    return [this, room = platform::MomentMatching::Room(), pointers = m_rows](const platform::RowBuffer& from, int row,
                                                                              double* const* out) mutable {
      for (std::size_t b = 0; b < pointers.size(); ++b) pointers[b] = from.Row(static_cast<int>(b), row);
      m_matching->Apply(pointers.data(), from.Width(), out, room);
    };
  };
  return true;
}

bool CStretchOfMultiBand::Prepare() {
  struct Part {
    platform::MomentMatching::Room room;
    platform::MomentMatching::Part counted;
  };
  const auto look = [&](const double* const* rows, const unsigned char* inside, int width, std::any& part) {
    if (!part.has_value()) part = Part();
    auto& own = std::any_cast<Part&>(part);
    m_matching->Reduce(rows, inside, width, own.room, own.counted);
  };
  const bool scanned = ScanParts(
      m_scanBands, look, [&](const std::any& part) { m_matching->Add(std::any_cast<const Part&>(part).counted); });
  m_matching->EndCounting();
  return scanned;
}

void CStretchOfMultiBand::ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) {
  for (std::size_t b = 0; b < m_rows.size(); ++b) m_rows[b] = rows.Row(static_cast<int>(b), row);
  platform::MomentMatching::Room room;
  m_matching->Apply(m_rows.data(), rows.Width(), out, room);
}

#include "platform/processing/outo_adjust_level.h"

#include "platform/algorithm/row_buffer.h"
#include "platform/processing/band_level.h"
#include "platform/validity/no_data.h"

COutoAdjustLevel::COutoAdjustLevel(AlgorithmParam* param) : CSingleBandIOProcess(param) {
  if (const auto* level = dynamic_cast<const OutoAdjustLevelParam*>(param)) {
    m_dRatio = level->m_dRatio;
    m_nMode = level->m_nMode;
  }
}

COutoAdjustLevel::~COutoAdjustLevel() = default;

bool COutoAdjustLevel::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  if (!(m_dRatio >= 0.0 && m_dRatio < 0.5) || m_nMode != 0) {
    SetError(ERR_EXCEPTION, L"色阶调整参数错误！");
    return false;
  }
  if (!PlanFirstBands(input, plan)) return false;
  plan.roundToNearest = true;
  plan.useArea = true;
  plan.noData = input.GetRasterBand(0);
  if (plan.outType == PDT_UNKNOWN) plan.outType = input.GetRasterDataType();
  m_outType = plan.outType;

  plan.makeRowWork = [this] {
    return [this](const platform::RowBuffer& rows, int row, double* const* out) {
      for (int i = 0; i < rows.BandCount(); ++i) ProcessBandRow(i, rows, row, out[i]);
    };
  };

  m_bands = std::make_shared<std::vector<platform::BandLevel>>();
  for (const int b : plan.bands) {
    const CRasterBand& band = *input.GetRasterBand(b);
    m_bands->emplace_back(band.GetRasterDataType(), platform::NoDataSample(band), m_dRatio);
    plan.scanCount += m_bands->back().PassCount();
  }
  return true;
}

bool COutoAdjustLevel::Prepare() {
  for (std::size_t b = 0; b < m_bands->size(); ++b) {
    platform::BandLevel& band = (*m_bands)[b];
    for (int pass = 0; pass < band.PassCount(); ++pass) {
      const bool scanned = Scan({static_cast<int>(b)}, [&](const double* const* rows, const unsigned char* inside,
                                                           int width) { band.Count(rows[0], inside, width); });
      if (!scanned) return false;
      band.EndPass();
    }
  }
  return true;
}

void COutoAdjustLevel::ProcessBandRow(int index, const platform::RowBuffer& rows, int row, double* out) {
  (*m_bands)[static_cast<std::size_t>(index)].Apply(rows.Row(index, row), rows.Width(), m_outType, out);
}

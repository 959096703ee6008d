#include "platform/processing/outo_adjust_level.h"

#include <algorithm>
#include <limits>

#include "platform/algorithm/row_buffer.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/statistics/order_statistics.h"
#include "platform/system/multiversion.h"
#include "platform/validity/no_data.h"

using platform::OrderStatistics;

namespace {

struct Level {
  double noData;
  double low;
  double high;
  double outMin;
  double outMax;
};

FUSION_MULTIVERSION void LevelRow(const double* values, double* out, int width, Level s) {
  for (int i = 0; i < width; ++i) {
    const double v = values[i];
    double leveled = (v - s.low) / (s.high - s.low) * (s.outMax - s.outMin) + s.outMin;
    leveled = v >= s.high ? s.outMax : leveled;
    leveled = v <= s.low ? s.outMin : leveled;
    out[i] = platform::IsValidSample(v, s.noData) ? leveled : v;
  }
}

}  // namespace

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
  m_outMin = 0.0;
  m_outMax = 1.0;
  if (!platform::IsFloatType(plan.outType)) CRasterAlgorithm::GetMaxMinVal(plan.outType, m_outMax, m_outMin);

  m_bands.clear();
  for (const int b : plan.bands) {
    const CRasterBand& band = *input.GetRasterBand(b);
    m_bands.push_back({band.GetRasterDataType(), platform::NoDataSample(band), 0.0, 0.0});
    plan.scanCount += OrderStatistics::PassCount(band.GetRasterDataType());
  }
  return true;
}

bool COutoAdjustLevel::Prepare() {
  // Half the range of a double apart at most, so that the difference stays finite.
  constexpr double kFar = std::numeric_limits<double>::max() / 4.0;
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    Band& band = m_bands[b];
    OrderStatistics order(band.type, m_dRatio);
    for (int pass = 0; pass < OrderStatistics::PassCount(band.type); ++pass) {
      const bool scanned =
          Scan({static_cast<int>(b)}, [&](const double* const* rows, const unsigned char* inside, int width) {
            order.AddRow(rows[0], inside, width, band.noData);
          });
      if (!scanned) return false;
      order.EndPass();
    }
    band.low = std::clamp(order.Low(), -kFar, kFar);
    band.high = std::clamp(order.High(), -kFar, kFar);
  }
  return true;
}

void COutoAdjustLevel::ProcessBandRow(int index, const platform::RowBuffer& rows, int row, double* out) {
  const Band& band = m_bands[static_cast<std::size_t>(index)];
  LevelRow(rows.Row(index, row), out, rows.Width(), {band.noData, band.low, band.high, m_outMin, m_outMax});
}

#include "platform/processing/stretch_of_multi_band.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/raster/no_data.h"
#include "platform/raster/row_statistics.h"
#include "platform/system/multiversion.h"

using platform::GreenMix;

namespace {

struct Stretch {
  double noData;
  double mean;
  double stdDev;
  double targetMean;
  double targetStdDev;
};

FUSION_MULTIVERSION void StretchRow(const double* values, double* out, int width, Stretch s) {
  for (int i = 0; i < width; ++i) {
    const double v = values[i];
    const double stretched = (v - s.mean) / s.stdDev * s.targetStdDev + s.targetMean;
    out[i] = platform::IsValidSample(v, s.noData) ? stretched : v;
  }
}

void FlattenRow(const double* values, double* out, int width, const Stretch& s) {
  for (int i = 0; i < width; ++i) out[i] = platform::IsValidSample(values[i], s.noData) ? s.targetMean : values[i];
}

}  // namespace

CStretchOfMultiBand::CStretchOfMultiBand(AlgorithmParam* param) : CMultiBandIOProcess(param) {
  const auto* stretch = dynamic_cast<const CStretchAlgorithmParam*>(param);
  if (!stretch) return;
  m_pMeans = stretch->m_pMeans;
  m_pStdDevs = stretch->m_pStdDevs;
  m_bMakeGreen = stretch->m_bMakeGreen;
}

CStretchOfMultiBand::~CStretchOfMultiBand() = default;

bool CStretchOfMultiBand::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  if (!m_pMeans || !m_pStdDevs) {
    SetError(ERR_STATISTICS, L"缺少目标统计值！");
    return false;
  }
  if (!PlanFirstBands(input, plan)) return false;
  m_bMixes = m_bMakeGreen && plan.outBandCount > GreenMix::kGreen && GreenMix::AppliesTo(input);
  // Near infrared is needed although it may not be written.
  if (m_bMixes && plan.outBandCount <= GreenMix::kNearInfrared) plan.bands.push_back(GreenMix::kNearInfrared);
  if (m_bMixes) m_mix = GreenMix(input);
  plan.scanCount = 1;
  plan.roundToNearest = true;
  plan.useArea = true;
  plan.noData = input.GetRasterBand(0);

  m_scanBands = plan.bands;
  m_rows.resize(plan.bands.size());
  m_mixedGreen.resize(static_cast<std::size_t>(m_bMixes ? input.GetWidth() : 0));
  m_bands.clear();
  for (int b = 0; b < plan.outBandCount; ++b) {
    m_bands.push_back({platform::NoDataSample(*input.GetRasterBand(b)), 0.0, 0.0});
  }
  return true;
}

void CStretchOfMultiBand::MixGreen(int width) {
  if (!m_bMixes) return;
  const std::size_t nearInfrared = std::min<std::size_t>(GreenMix::kNearInfrared, m_rows.size() - 1);
  m_mix.Apply(m_rows[GreenMix::kGreen], m_rows[nearInfrared], m_mixedGreen.data(), width);
  m_rows[GreenMix::kGreen] = m_mixedGreen.data();
}

bool CStretchOfMultiBand::Prepare() {
  std::vector<platform::RowStatistics> statistics;
  for (const Band& band : m_bands) statistics.emplace_back(band.noData);
  std::vector<double> counted;
  const bool scanned = Scan(m_scanBands, [&](const double* const* rows, const unsigned char* inside, int width) {
    std::copy_n(rows, m_rows.size(), m_rows.begin());
    MixGreen(width);
    for (std::size_t b = 0; b < m_bands.size(); ++b) {
      const double* values = m_rows[b];
      if (inside) {
        counted.assign(values, values + width);
        for (std::size_t x = 0; x < counted.size(); ++x) {
          if (!inside[x]) counted[x] = std::numeric_limits<double>::quiet_NaN();
        }
        values = counted.data();
      }
      statistics[b].Add(values, width);
    }
  });
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    m_bands[b].mean = statistics[b].Mean();
    m_bands[b].stdDev = statistics[b].StdDev();
  }
  return scanned;
}

void CStretchOfMultiBand::ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) {
  for (std::size_t b = 0; b < m_rows.size(); ++b) m_rows[b] = rows.Row(static_cast<int>(b), row);
  MixGreen(rows.Width());
  constexpr double kNoSpread = 1e-8;
  for (std::size_t b = 0; b < m_bands.size(); ++b) {
    const Band& band = m_bands[b];
    const Stretch stretch{band.noData, band.mean, band.stdDev, m_pMeans[b], m_pStdDevs[b]};
    if (band.stdDev < kNoSpread) {
      FlattenRow(m_rows[b], out[b], rows.Width(), stretch);
    } else {
      StretchRow(m_rows[b], out[b], rows.Width(), stretch);
    }
  }
}

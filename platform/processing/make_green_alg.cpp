#include "platform/processing/make_green_alg.h"

#include <algorithm>
#include <numeric>

#include "platform/algorithm/row_buffer.h"
#include "platform/processing/green_mix.h"

using platform::GreenMix;

CMakeGreenAlg::CMakeGreenAlg(AlgorithmParam* param) : CMultiBandIOProcess(param) {}
CMakeGreenAlg::~CMakeGreenAlg() = default;

bool CMakeGreenAlg::Configure(const CRasterSource& input, platform::StagePlan& plan) {
  plan.bands.resize(static_cast<std::size_t>(input.GetBandCount()));
  std::iota(plan.bands.begin(), plan.bands.end(), 0);
  plan.outBandCount = input.GetBandCount();
  plan.noData = input.GetRasterBand(0);
  m_mix = GreenMix::AppliesTo(input) ? std::make_shared<const GreenMix>(input) : nullptr;
  plan.makeRowWork = [this] {
    return [this](const platform::RowBuffer& rows, int row, double* const* out) { ProcessRow(rows, row, out); };
  };
  return true;
}

void CMakeGreenAlg::ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) {
  for (int b = 0; b < rows.BandCount(); ++b) std::copy_n(rows.Row(b, row), rows.Width(), out[b]);
  if (!m_mix) return;
  m_mix->Apply(rows.Row(GreenMix::kGreen, row), rows.Row(GreenMix::kNearInfrared, row), out[GreenMix::kGreen],
               rows.Width());
}

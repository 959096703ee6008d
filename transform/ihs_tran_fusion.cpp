#include "transform/ihs_tran_fusion.h"

#include <algorithm>

#include "framework/messages.h"
#include "framework/run/run_variation.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/system/workers.h"
#include "transform/ihs_model.h"

CIhsTranFusion::CIhsTranFusion(FusionParam* param) : CRowFusion(param, MakeRows) {}
CIhsTranFusion::~CIhsTranFusion() = default;
CIhsTranFusion::CIhsTranFusion(const CIhsTranFusion&) = default;
CIhsTranFusion& CIhsTranFusion::operator=(const CIhsTranFusion&) = default;

void CIhsTranFusion::Process() {
  fusion::RunVariation variation;
  variation.logFile = "IhsTranFusion";
  variation.logLine = 669;
  variation.logFunction = "CIhsTranFusion::Process";
  variation.afterRead = [this](CRasterBand& band, int msIndex, double* values, std::int64_t count) {
    ScaleBlock(band, msIndex, values, count);
  };
  variation.beforeFinish = [this] {
    CRasterSource output;
    if (!output.OpenSimple(m_param.m_strOutFile)) return;
    m_pProgress->Step(100, L"等待创建输出影像金字塔");
    CBuildRasterOverviews overviews(&output, "AVERAGE", 0, nullptr, m_pProgress, L"", false);
    overviews.RunInside(*this);
    overviews.Process();
  };
  RunBlocks(variation);
}

GISError CIhsTranFusion::Preproccess() {
  GISError result = GIS_SUCCESS;
  if (m_pPanSrc && m_pPanSrc->IsOpen()) {
    CRasterBand* pan = ExistingBand(*m_pPanSrc, m_param.m_nPanBand);
    if (!pan) return GIS_FAILED;
    if (!IsMeasured(pan->ComputeMinMax(&m_dPanMin, &m_dPanMax, true), *pan)) return GIS_FAILED;
  } else {
    result = GIS_FAILED;
  }
  if (m_pMSSrc && m_pMSSrc->IsOpen()) {
    FillRgbPositions();
    if (!HasRgbPositions()) {
      SetError(ERR_OPEN, fusion::messages::kWrongBands);
      return GIS_FAILED;
    }
    const std::size_t count = m_param.m_vecMSBands.size();
    m_pMulMax = SharedArray(count);
    m_pMulMin = SharedArray(count);
    for (std::size_t i = 0; i < count; ++i) {
      CRasterBand* band = ExistingBand(*m_pMSSrc, m_param.m_vecMSBands[i]);
      if (!band) return GIS_FAILED;
      if (!IsMeasured(band->ComputeMinMax(&m_pMulMin[i], &m_pMulMax[i], true), *band)) return GIS_FAILED;
    }
  } else {
    result = GIS_FAILED;
  }
  SetAddOne(BothDeclareNoData());
  SetSrcMinMaxValue(0.0, 255.0);
  return result;
}

void CIhsTranFusion::FillRgbPositions() {
  if (!m_param.m_vecRGBBands.empty()) return;
  // Four bands usually come as blue, green, red and near infrared.
  m_param.m_vecRGBBands =
      m_param.m_vecMSBands.size() == 4 ? std::vector<std::int32_t>{2, 1, 0} : std::vector<std::int32_t>{0, 1, 2};
}

bool CIhsTranFusion::HasRgbPositions() const {
  const auto count = static_cast<std::int32_t>(m_param.m_vecMSBands.size());
  const auto& positions = m_param.m_vecRGBBands;
  return count >= 3 && positions.size() >= 3 &&
         std::all_of(positions.begin(), positions.begin() + 3, [=](int p) { return p >= 0 && p < count; });
}

void CIhsTranFusion::ScaleBlock(CRasterBand& band, int msIndex, double* values, std::int64_t count) const {
  // Bytes stay on their own scale.
  if (band.GetRasterDataType() == PDT_UINT8) return;
  const double minimum = msIndex < 0 ? m_dPanMin : m_pMulMin[msIndex];
  const double maximum = msIndex < 0 ? m_dPanMax : m_pMulMax[msIndex];
  constexpr std::int64_t kPiece = std::int64_t{1} << 16;
  platform::ForEach(m_workers.get(), static_cast<int>((count + kPiece - 1) / kPiece), [&](int i) {
    const std::int64_t first = i * kPiece;
    fusion::ScaleToBytes(minimum, maximum, band.GetNoDataRule(), values + first, std::min(kPiece, count - first));
  });
}

fusion::RowMethod CIhsTranFusion::MakeRows(CRowFusion& fusion, const fusion::FusionBlock& /*block*/) {
  auto& self = static_cast<CIhsTranFusion&>(fusion);
  fusion::RowPolicy policy{.scratchRows = 3, .parallelRows = true};
  // A run that masks leaves such pixels out by itself.
  if (!self.m_param.m_bMaskNoData) policy.panNoData = self.m_pPanSrc->GetRasterBand(0)->GetNoDataRule();
  const auto& positions = self.m_param.m_vecRGBBands;
  return {policy, [&self, red = positions.at(0), green = positions.at(1), blue = positions.at(2)](
                      const fusion::FusionRow& row) { self.ReplaceIntensity(row, red, green, blue); }};
}

void CIhsTranFusion::ReplaceIntensity(const fusion::FusionRow& row, int red, int green, int blue) {
  const bool areDistinct = red != green && red != blue && green != blue;
  if (areDistinct) {
    const auto target = [&](int band, int spare) {
      return band < row.outBandCount ? row.out[band] : row.scratch[spare];
    };
    fusion::SubstituteIntensity(row.pan, row.ms[red], row.ms[green], row.ms[blue], row.width, target(red, 0),
                                target(green, 1), target(blue, 2));
  } else {
    // Colours that share a band are seen in the order of their assignment.
    for (int i = 0; i < row.width; ++i) {
      double intensity = 0.0;
      double hue = 0.0;
      double saturation = 0.0;
      RGB2IHS(row.ms[red][i], row.ms[green][i], row.ms[blue][i], intensity, hue, saturation);
      IHS2RGB(row.pan[i], hue, saturation, row.ms[red][i], row.ms[green][i], row.ms[blue][i]);
    }
  }
  for (int band = 0; band < row.outBandCount; ++band) {
    const bool isColour = band == red || band == green || band == blue;
    if (!(areDistinct && isColour)) std::copy_n(row.ms[band], row.width, row.out[band]);
  }
}

void CIhsTranFusion::EndProccess() {
  m_pMulMax.reset();
  m_pMulMin.reset();
}

void CIhsTranFusion::RGB2IHS(double R, double G, double B, double& I, double& H, double& S) {
  const fusion::IhsColour colour = fusion::RgbToIhs(R, G, B);
  I = colour.intensity;
  H = colour.hue;
  S = colour.saturation;
}

void CIhsTranFusion::IHS2RGB(double I, double H, double S, double& R, double& G, double& B) {
  const fusion::IhsShares shares = fusion::SharesOfIhs(I, H, S);
  if (shares.start == 0.0) {
    B = shares.low;
    R = shares.high;
    G = 3.0 * I - (R + B);
  } else if (shares.start == 120.0) {
    R = shares.low;
    G = shares.high;
    B = 3.0 * I - (R + G);
  } else {
    G = shares.low;
    B = shares.high;
    R = 3.0 * I - (G + B);
  }
}

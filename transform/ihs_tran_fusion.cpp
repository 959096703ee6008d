#include "transform/ihs_tran_fusion.h"

#include <algorithm>
#include <cmath>

#include "framework/messages.h"
#include "platform/algorithm/build_raster_overviews.h"
#include "platform/raster/pixel_type.h"

namespace {

constexpr double kPi = 3.141592653589793;

}  // namespace

CIhsTranFusion::CIhsTranFusion(FusionParam* param) : CFusion(param) {}
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
    CBuildRasterOverviews(&output, "AVERAGE", 0, nullptr, m_pProgress, L"", false).Process();
  };
  RunBlocks(variation);
}

GISError CIhsTranFusion::Preproccess() {
  GISError result = GIS_SUCCESS;
  if (m_pPanSrc && m_pPanSrc->IsOpen()) {
    CRasterBand* pan = ExistingBand(*m_pPanSrc, m_param.m_nPanBand);
    if (!pan) return GIS_FAILED;
    pan->ComputeMinMax(&m_dPanMin, &m_dPanMax, true);
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
      band->ComputeMinMax(&m_pMulMin[i], &m_pMulMax[i], true);
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
  const platform::NoDataTest isNoData = band.GetNoDataTest();
  for (std::int64_t i = 0; i < count; ++i) {
    if (!isNoData(values[i])) values[i] = (values[i] - minimum) / (maximum - minimum) * 253.0 + 1.0;
  }
}

void** CIhsTranFusion::AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                                        PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) {
  if (!m_pPanSrc || !platform::IsPixelType(outType)) return nullptr;
  fusion::RowPolicy policy;
  policy.parallelRows = true;
  // A run that masks leaves such pixels out by itself.
  if (!m_param.m_bMaskNoData) policy.panNoData = m_pPanSrc->GetRasterBand(0)->GetNoDataTest();
  const int red = m_param.m_vecRGBBands.at(0);
  const int green = m_param.m_vecRGBBands.at(1);
  const int blue = m_param.m_vecRGBBands.at(2);
  const auto replaceIntensity = [=, this](const fusion::FusionRow& row) {
    double* r = row.ms[red];
    double* g = row.ms[green];
    double* b = row.ms[blue];
    for (int i = 0; i < row.width; ++i) {
      double intensity = 0.0;
      double hue = 0.0;
      double saturation = 0.0;
      RGB2IHS(r[i], g[i], b[i], intensity, hue, saturation);
      IHS2RGB(row.pan[i], hue, saturation, r[i], g[i], b[i]);
    }
    for (int band = 0; band < row.outBandCount; ++band) std::copy_n(row.ms[band], row.width, row.out[band]);
  };
  return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, policy,
                  replaceIntensity);
}

void CIhsTranFusion::EndProccess() {
  m_pMulMax.reset();
  m_pMulMin.reset();
}

void CIhsTranFusion::RGB2IHS(double R, double G, double B, double& I, double& H, double& S) {
  I = (R + G + B) / 3.0;
  const double smallest = std::min({R, G, B});
  const double largest = std::max({R, G, B});
  if (largest == smallest) {
    H = 0.0;
    S = 0.0;
    return;
  }
  S = 1.0 - 3.0 / (R + G + B) * smallest;
  const double cosine = (R - (G + B) * 0.5) / std::sqrt((R - B) * (G - B) + (R - G) * (R - G));
  // Rounding may carry the quotient just outside the range of the arc cosine.
  const double angle = std::acos(std::clamp(cosine, -1.0, 1.0)) / kPi * 180.0;
  H = B > G ? (360.0 - angle) / 360.0 : angle / 360.0;
}

void CIhsTranFusion::IHS2RGB(double I, double H, double S, double& R, double& G, double& B) {
  const double hue = H * 360.0;
  constexpr double kDegree = kPi / 180.0;
  const double low = I * (1.0 - S);
  const auto high = [=](double a, double b) { return I * (1.0 + S * std::cos(a * kDegree) / std::cos(b * kDegree)); };
  if (hue > 0.0 && hue <= 120.0) {
    B = low;
    R = high(hue, 60.0 - hue);
    G = 3.0 * I - (R + B);
  } else if (hue > 120.0 && hue <= 240.0) {
    R = low;
    G = high(hue - 120.0, 180.0 - hue);
    B = 3.0 * I - (R + G);
  } else {
    G = low;
    B = high(hue - 240.0, 300.0 - hue);
    R = 3.0 * I - (G + B);
  }
}

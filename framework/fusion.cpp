#include "framework/fusion.h"

#include <algorithm>
#include <utility>

#include "framework/band_choice.h"
#include "framework/messages.h"
#include "framework/resampling/resample_point.h"
#include "framework/run/run.h"
#include "platform/algorithm/run_threads.h"
#include "platform/processing/stretch_of_multi_band.h"
#include "platform/raster/pixel_type.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/statistics/survey.h"

CFusion::CFusion(FusionParam* param) {
  if (param) m_param = *param;
}

CFusion::~CFusion() = default;
CFusion::CFusion(const CFusion&) = default;
CFusion& CFusion::operator=(const CFusion&) = default;

void CFusion::Process() { RunBlocks({}); }

GISError CFusion::Preproccess() {
  if (m_param.m_bSpectralMatch && m_pMSSrc && m_pMSSrc->IsOpen()) {
    fusion::ChooseAllBands(*m_pMSSrc, m_param.m_vecMSBands);
    const std::size_t count = m_param.m_vecMSBands.size();
    m_pMeans = SharedArray(count);
    m_pStdDevs = SharedArray(count);
    for (std::size_t i = 0; i < count; ++i) {
      CRasterBand* band = ExistingBand(*m_pMSSrc, m_param.m_vecMSBands[i]);
      if (!band) return GIS_FAILED;
      double minimum = 0.0;
      double maximum = 0.0;
      if (!MeasureBand(*band, minimum, maximum, m_pMeans[i], m_pStdDevs[i])) return GIS_FAILED;
    }
  }

  const bool narrowed = BothDeclareNoData();
  SetAddOne(narrowed);
  SetSrcMinMaxValue(narrowed ? 1.0 : 0.0, narrowed ? 254.0 : 255.0);
  return GIS_SUCCESS;
}

CRasterBand* CFusion::ExistingBand(CRasterSource& source, int index) {
  CRasterBand* band = source.GetRasterBand(index);
  if (!band) SetError(ERR_READ, fusion::messages::kReadFailed);
  return band;
}

bool CFusion::MeasureBand(CRasterBand& band, double& minimum, double& maximum, double& mean, double& stdDev) {
  const bool measured = band.ComputeStatics(&minimum, &maximum, &mean, &stdDev, true, m_pProgress);
  if (m_pProgress && m_pProgress->IsCancelRequested()) {
    m_nLastErrorType = ERR_CANCELLED;
    return false;
  }
  return IsMeasured(measured, band);
}

bool CFusion::IsMeasured(bool measured, CRasterBand& band) {
  // A band without a valid pixel has no figures either, which ends no run.
  if (measured || !m_param.m_bNeedsFigures || !band.HasValidPixel()) return true;
  SetError(ERR_READ, fusion::messages::kReadFailed);
  return false;
}

bool CFusion::BothDeclareNoData() const {
  const CRasterBand* ms = m_pMSSrc ? m_pMSSrc->GetRasterBand(0) : nullptr;
  const CRasterBand* pan = m_pPanSrc ? m_pPanSrc->GetRasterBand(0) : nullptr;
  return ms && pan && ms->IsHaveNoData() && pan->IsHaveNoData();
}

void CFusion::GetBlockSize(int& width, int& height) {
  width = 1024;
  height = 1024;
  if (m_pPanSrc && m_pPanSrc->IsOpen() && m_pPanSrc->GetRasterBand(0)) {
    width = m_pPanSrc->GetRasterBand(0)->GetWidth();
    height = 512;
  }
  if (m_pDstSrc && m_pDstSrc->IsOpen()) {
    width = std::min(width, m_pDstSrc->GetWidth());
    height = std::min(height, m_pDstSrc->GetHeight());
  }
}

bool CFusion::GetReadBufferRect(CRect* dstBlock, CRect* msRect) {
  const CBoundingBox box = m_pDstSrc->ImageToGround(*dstBlock);
  if (m_pReproject) {
    // A block without any multispectral pixel keeps an empty rectangle, which fails as a read.
    if (!m_pReproject->GetInImgEnveFromGeoOut(box, *msRect, 0.0, 0.0)) *msRect = CRect();
    return true;
  }
  constexpr int kMargin = 10;
  const CRect rect = m_pMSSrc->GroundToImage(box);
  msRect->left = std::max(rect.left - kMargin, 0);
  msRect->top = std::max(rect.top - kMargin, 0);
  msRect->right = std::min(rect.right + kMargin, m_pMSSrc->GetWidth());
  msRect->bottom = std::min(rect.bottom + kMargin, m_pMSSrc->GetHeight());
  return true;
}

GISError CFusion::StartBolckProcess() { return GIS_SUCCESS; }

void CFusion::EndBolckProcess() {}

void CFusion::MatchBlocks(fusion::MatchTargets targets) { m_matchTargets = std::move(targets); }

void CFusion::EndProccess() {
  if (!m_param.m_bSpectralMatch) return;
  if (!m_pMeans || !m_pStdDevs) {
    SetError(ERR_STATISTICS, fusion::messages::kMsStatisticsFailed);
    CRasterSource::DeleteFileW(m_strTempFile);
    return;
  }
  CStretchAlgorithmParam stretch;
  stretch.m_strAlgName = fusion::messages::kSpectralMatching;
  stretch.m_stage = {platform::stages::kSpectralMatching};
  stretch.m_strInFile = m_strTempFile;
  stretch.m_strOutFile = m_param.m_strOutFile;
  stretch.m_strAoiFile = m_param.m_strAoiFile;
  stretch.m_bOpenOption = m_param.m_bOpenOption;
  stretch.m_bMaskNoData = m_param.m_bMaskNoData;
  stretch.m_eOutFormat = m_param.m_eOutFormat;
  stretch.m_eOutDataType = m_param.m_eOutDataType;
  stretch.m_nOutBandCount = m_param.m_nOutBandCount;
  stretch.m_pDescription = m_param.m_pDescription;
  stretch.m_vecCreationOptions = m_param.m_vecCreationOptions;
  stretch.m_pMeans = m_pMeans;
  stretch.m_pStdDevs = m_pStdDevs;
  stretch.m_bMakeGreen = m_param.m_bMakeGreen;
  CStretchOfMultiBand matching(&stretch);
  matching.RunInside(*this);
  matching.CMultiBandIOProcess::Process();
  CRasterSource::DeleteFileW(m_strTempFile);
}

GISError CFusion::WriteBlock(CRasterSource* dst, int bandCount, CRect* rect, void** bufs) {
  for (int i = 0; i < bandCount; ++i) {
    CRasterBand* band = dst->GetRasterBand(i);
    if (!band || !platform::IsPixelType(band->GetRasterDataType()) || !bufs[i]) continue;
    if (band->WriteBlock(rect->left, rect->top, rect->Width(), rect->Height(), bufs[i], rect->Width(), rect->Height(),
                         band->GetRasterDataType()) != 0) {
      return GIS_FAILED;
    }
  }
  return GIS_SUCCESS;
}

bool CFusion::Resample(double x, double y, const double** bands, int bandCount, CRect* rect, double* out) {
  fusion::ResamplePoint(m_param.m_eResampleType, x, y, bands, bandCount, *rect, out);
  return true;
}

void CFusion::NearestNeighbor(const double** bands, int bandCount, CRect* rect, double x, double y, double* out) {
  fusion::ResamplePoint(RT_NEAREST, x, y, bands, bandCount, *rect, out);
}

void CFusion::Bilinear(const double** bands, int bandCount, CRect* rect, double x, double y, double* out) {
  fusion::ResamplePoint(RT_BILINEAR, x, y, bands, bandCount, *rect, out);
}

void CFusion::Bicubic(const double** bands, int bandCount, CRect* rect, double x, double y, double* out) {
  fusion::ResamplePoint(RT_BICUBIC, x, y, bands, bandCount, *rect, out);
}

void CFusion::SetOutRange(PixelDataType type) {
  double minimum = 0.0;
  double maximum = 0.0;
  CRasterAlgorithm::GetMaxMinVal(type, maximum, minimum);
  SetOutMinMaxValue(minimum, maximum);
}

void CFusion::RunBlocks(const fusion::RunVariation& variation) {
  ClearError();
  m_strTempFile.clear();
  const platform::RunThreads threads(*this);
  fusion::Run(*this, variation).Execute();
}

bool CFusion::VisitBlocks(const platform::Stage& stage, const std::wstring& title,
                          const std::function<void(const fusion::FusionBlock&)>& visit) {
  return m_run && m_run->Visit(stage, title, platform::SurveyPass(nullptr, "", m_run->SceneBlocks()),
                               [&visit](std::int64_t, const fusion::FusionBlock& block) { visit(block); });
}

bool CFusion::VisitBlocks(const platform::Stage& stage, const std::wstring& title, const platform::SurveyPass& pass,
                          const std::function<void(std::int64_t block, const fusion::FusionBlock&)>& visit) {
  return m_run && m_run->Visit(stage, title, pass, visit);
}

platform::SurveyPass CFusion::BlockPass(const std::string& name) {
  return {m_param.m_pSurvey.get(), name, m_run ? m_run->SceneBlocks() : 0};
}

bool CFusion::AwaitsSurvey() const { return m_run && m_run->AwaitsSurvey(); }

fusion::RowGeometry CFusion::Geometry(const CRect& panRect, const CRect& dstBlock) const {
  const bool fromPan = !m_pReproject && m_positions.start == fusion::PositionStart::kPan;
  const bool fromScene = !fromPan && m_run && m_run->Scene().Area() > 0;
  const CRasterSource& start = fromPan ? *m_pPanSrc : *m_pDstSrc;
  return {fromScene ? m_run->SceneToGround() : start.PixelToGround(),
          m_pReproject ? m_positions.reprojectedOffset : 0.5,
          fromScene ? fusion::Shift(panRect, -m_run->Scene().left, -m_run->Scene().top)
          : fromPan ? panRect
                    : dstBlock,
          m_pMSSrc->GroundToPixel(),
          m_pMSSrc->GetWidth(),
          m_pMSSrc->GetHeight(),
          m_pReproject,
          m_param.m_bRepeatMsEdges ? fusion::kRepeatedEdge : 0};
}

bool CFusion::CanFuseRows(PixelDataType outType) const {
  return m_pPanSrc && m_pMSSrc && m_pDstSrc && platform::IsPixelType(outType);
}

void** CFusion::FuseRows(const fusion::FusionBlock& block, const fusion::RowPolicy& policy,
                         const fusion::RowArithmetic& arithmetic) {
  if (!CanFuseRows(block.outType)) return nullptr;
  return fusion::RunRowKernel(block, m_run ? m_run->Gaps() : fusion::BlockGaps(),
                              Geometry(*block.panRect, *block.dstBlock), m_param.m_eResampleType, policy, arithmetic,
                              m_conversion, RangeOf(block), m_workers.get(), m_run ? m_run->Store() : nullptr);
}

std::shared_ptr<const fusion::SampleRange> CFusion::RangeOf(const fusion::FusionBlock& block) const {
  if (!m_param.m_bKeepSampleRange || !fusion::SampleRange::IsNeededBy(m_param.m_eResampleType)) return nullptr;
  return std::make_shared<const fusion::SampleRange>(block.ms, block.msBandCount, *block.msRect, m_workers.get());
}

fusion::RowSource CFusion::MakeRowSource(const fusion::FusionBlock& block) {
  return {Geometry(*block.panRect, *block.dstBlock), m_param.m_eResampleType, block,
          m_run ? m_run->Gaps() : fusion::BlockGaps(), RangeOf(block)};
}

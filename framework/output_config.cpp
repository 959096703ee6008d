#include <algorithm>

#include "framework/band_choice.h"
#include "framework/fusion.h"
#include "framework/messages.h"
#include "framework/overlap.h"
#include "framework/run/run.h"
#include "platform/raster/raster_algorithm.h"
#include "platform/raster/raster_notes.h"
#include "platform/utility/common_fun.h"

namespace messages = fusion::messages;

namespace {

/// The georeference of an output over a rectangle of the pan image.
platform::Affine OutputGeoreference(const FusionParam& param, const CRasterSource& pan, const CRect& rect) {
  const CBoundingBox box = pan.ImageToGround(rect);
  platform::Affine map = {{box.m_dLeft, (box.m_dRight - box.m_dLeft) / rect.Width(), 0.0, box.m_dTop, 0.0,
                           (box.m_dBottom - box.m_dTop) / rect.Height()}};
  double panTransform[6];
  if (!param.m_bOpenOption && pan.GetGeoTransform(panTransform)) {
    map.t[2] = panTransform[2];
    map.t[4] = panTransform[4];
  }
  return map;
}

CRect Common(const CRect& a, const CRect& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

}  // namespace

bool CFusion::ConfigDstRaster(FusionParam* param, CRasterSource* pan, CRasterSource* ms, CRasterSource* dst,
                              std::vector<int>* msBands, CRect* dstRectInPan, CRasterAOI** aoi) {
  return OpenInput(*param, pan, param->m_strPanFile) && OpenInput(*param, ms, param->m_strMSFile) &&
         ConfigOpenedRasters(param, pan, ms, dst, msBands, dstRectInPan, aoi);
}

bool CFusion::OpenInput(const FusionParam& param, CRasterSource* source, const std::wstring& path) {
  if (source->Open(path, GDA_READ, param.m_bOpenOption)) {
    source->SetMaskNoData(param.m_bMaskNoData);
    source->SetReadAhead(m_overlappedIo);
    source->SetWorkers(m_workers.get());
    source->SetSurvey(param.m_pSurvey.get(), path == param.m_strMSFile ? "multispectral" : "pan");
    return true;
  }
  SetError(ERR_OPEN, messages::OpenFailed(path));
  return false;
}

bool CFusion::ConfigOpenedRasters(FusionParam* param, CRasterSource* pan, CRasterSource* ms, CRasterSource* dst,
                                  std::vector<int>* msBands, CRect* dstRectInPan, CRasterAOI** aoi) {
  // Creating the output would destroy an input of the same name.
  if (CommonFun::IsSameFile(param->m_strOutFile, param->m_strPanFile) ||
      CommonFun::IsSameFile(param->m_strOutFile, param->m_strMSFile)) {
    SetError(ERR_CREATE, messages::CreateFailed(param->m_strOutFile));
    return false;
  }
  if (param->m_eOutDataType == PDT_UNKNOWN) param->m_eOutDataType = ms->GetRasterDataType();

  if (param->m_rcProcess.IsRectEmpty() && !GetOutRect(pan, ms, param->m_rcProcess, param->m_bNeedReproject, false)) {
    // The error type is left as it was; the message tells the failure.
    m_strLastErrorMessage = messages::kWrongExtent;
    return false;
  }
  *dstRectInPan = param->m_rcProcess;
  if (!ConfigRasterAOI(param, pan, aoi)) return false;
  *dstRectInPan = param->m_rcProcess;
  CRect scene = param->m_rcScene;
  if (scene.Area() > 0) {
    // A run over the scene would have been cut to the area of interest too.
    if (*aoi) scene = Common(scene, (*aoi)->GetCoveringRect());
    if (m_run) m_run->SetScene(scene, OutputGeoreference(*param, *pan, scene));
  }
  if (param->m_bMaskNoData && !*aoi) {
    *aoi = new CRasterAOI;
    (*aoi)->SetUnbounded();
  }

  fusion::ChooseAllBands(*ms, param->m_vecMSBands);
  msBands->insert(msBands->end(), param->m_vecMSBands.begin(), param->m_vecMSBands.end());
  if (param->m_nOutBandCount == 0) {
    param->m_nOutBandCount = static_cast<int>(param->m_vecMSBands.size());
    if (param->m_nOutBandCount < 2) {
      SetError(ERR_BANDS, messages::kWrongBands);
      return false;
    }
  }

  if (!CreateOutput(param, pan, dst, *dstRectInPan)) return false;
  if (param->m_bNeedReproject) {
    m_pReproject = CReproject::Create(ms, pan->GetSpatialReferenceWKT(), nullptr, nullptr);
    if (!m_pReproject) {
      SetError(ERR_REPROJECT, messages::kReprojectFailed);
      return false;
    }
    m_pReproject->CreateGrid(pan->ImageToGround(scene.Area() > 0 ? scene : *dstRectInPan), 0.0, 0.0, 3);
  }

  SetOutRange(param->m_eOutDataType);
  return true;
}

bool CFusion::CreateOutput(FusionParam* param, CRasterSource* pan, CRasterSource* dst, const CRect& rect) {
  RasterDataFormat format = param->m_eOutFormat;
  if (format == kFormatUnknown) format = CRasterSource::GetDataFormat(param->m_strOutFile);
  if (format == kFormatUnknown) format = kFormatGeoTiff;

  const platform::Affine map = OutputGeoreference(*param, *pan, rect);
  std::wstring path = param->m_strOutFile;
  std::vector<std::string> options = param->m_vecCreationOptions;
  int bandCount = param->m_nOutBandCount;
  if (param->m_bSpectralMatch) {
    m_strTempFile = CommonFun::GetTempFilePath(param->m_strOutFile);
    path = m_strTempFile;
    options.clear();
    bandCount = static_cast<int>(param->m_vecMSBands.size());
  }
  if (path.empty() || !dst->CreateRaster(format, path, rect.Width(), rect.Height(), bandCount, param->m_eOutDataType,
                                         map.t, pan->GetSpatialReferenceWKT(), options)) {
    SetError(ERR_CREATE, messages::CreateFailed(param->m_strOutFile));
    return false;
  }
  if (param->m_pDescription && !param->m_bSpectralMatch) param->m_pDescription->Apply(*dst);
  if (param->m_pNotes && !param->m_bSpectralMatch) param->m_pNotes->Apply(*dst);
  if (param->m_pWritten && !param->m_bSpectralMatch) dst->TellWritten(param->m_pWritten);
  if (param->m_bMaskNoData) dst->DeclareNoData(0.0);
  return true;
}

bool CFusion::GetOutRect(CRasterSource* pan, CRasterSource* ms, CRect& rect, bool& needReproject, bool /*strict*/) {
  if (!pan || !ms) return false;
  const std::optional<CRect> common = fusion::FindOverlap(*pan, *ms, needReproject);
  if (common) rect = *common;
  return common.has_value();
}

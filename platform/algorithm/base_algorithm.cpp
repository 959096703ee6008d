#include "platform/algorithm/base_algorithm.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "platform/algorithm/messages.h"
#include "platform/raster/virtual_raster.h"
#include "platform/utility/common_fun.h"

namespace messages = platform::messages;

CBaseAlgorithm::CBaseAlgorithm() = default;
CBaseAlgorithm::~CBaseAlgorithm() = default;
CBaseAlgorithm::CBaseAlgorithm(const CBaseAlgorithm&) = default;
CBaseAlgorithm& CBaseAlgorithm::operator=(const CBaseAlgorithm&) = default;

bool CBaseAlgorithm::ConfigRasterAOI(AlgorithmParam* param, CRasterSource* source, CRasterAOI** aoi) {
  if (param->m_strAoiFile.empty()) return true;
  auto area = std::make_unique<CRasterAOI>();
  if (!area->Load(param->m_strAoiFile, *source)) {
    SetError(ERR_OPEN, messages::OpenFailed(param->m_strAoiFile));
    return false;
  }
  const CRect whole =
      param->m_rcProcess.IsRectEmpty() ? CRect(0, 0, source->GetWidth(), source->GetHeight()) : param->m_rcProcess;
  const CRect covering = area->GetCoveringRect();
  const CRect cut(std::max(whole.left, covering.left), std::max(whole.top, covering.top),
                  std::min(whole.right, covering.right), std::min(whole.bottom, covering.bottom));
  if (cut.Area() == 0) {
    // The error type is left as it was; the message tells the failure.
    m_strLastErrorMessage = messages::kWrongExtent;
    return false;
  }
  param->m_rcProcess = cut;
  *aoi = area.release();
  return true;
}

void CBaseAlgorithm::SetSrcMinMaxValue(double minimum, double maximum) {
  m_conversion.m_dSrcMin = minimum;
  m_conversion.m_dSrcMax = maximum;
}

void CBaseAlgorithm::SetOutMinMaxValue(double minimum, double maximum) {
  m_conversion.m_dOutMin = minimum;
  m_conversion.m_dOutMax = maximum;
}

void CBaseAlgorithm::ClearError() {
  m_nLastErrorType = ERR_NONE;
  m_strLastErrorMessage.clear();
}

void CBaseAlgorithm::SetError(int type, const std::wstring& message) {
  m_nLastErrorType = type;
  m_strLastErrorMessage = message;
}

void CBaseAlgorithm::ReportError() {
  if (m_pProgress) m_pProgress->Error(m_nLastErrorType, m_strLastErrorMessage);
}

void CBaseAlgorithm::ReportFinished() {
  if (m_pProgress && !m_runsInside) m_pProgress->Finish();
}

void CBaseAlgorithm::ShareThreads(std::shared_ptr<platform::Workers> workers) { m_workers = std::move(workers); }

void CBaseAlgorithm::RunInside(const CBaseAlgorithm& outer) {
  m_pProgress = outer.m_pProgress;
  m_overlappedIo = outer.m_overlappedIo;
  m_threads = outer.m_threads;
  m_workers = outer.m_workers;
  m_buildsOverviews = outer.m_buildsOverviews;
  m_runsInside = true;
}

void CBaseAlgorithm::Fail(int type, const std::wstring& message) {
  SetError(type, message);
  ReportError();
}

void CBaseAlgorithm::FailWithCurrentException() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    Fail(ERR_EXCEPTION, messages::kOutOfMemory);
  } catch (const platform::OpenFailure& failure) {
    Fail(ERR_OPEN, messages::OpenFailed(failure.File()));
  } catch (const std::exception& failure) {
    Fail(ERR_EXCEPTION, CommonFun::Utf82U(failure.what()));
  } catch (...) {
    Fail(ERR_EXCEPTION, messages::kUnknownFailure);
  }
}

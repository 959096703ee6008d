#include "runs/run_log.h"

#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse.h"
#include "runs/options.h"
#include "runs/text.h"

namespace fusion {

RunLog::~RunLog() {
  if (m_log) CLog::m_pLogger = m_before;
}

void RunLog::Open(const FuseRequest& request) {
  if (request.log.empty()) return;
  try {
    m_log.emplace(CommonFun::Utf82U(request.log));
  } catch (const std::exception& e) {
    throw RunError(ERR_CREATE, CommonFun::Utf82U(e.what()), "The log file " + request.log + " cannot be written.");
  }
  m_before = CLog::m_pLogger;
  CLog::m_pLogger = &*m_log;
  std::string ms = request.ms;
  for (const std::string& file : request.moreMs) ms += " " + file;
  LogInformation("fuse pan " + request.pan + ", multispectral " + ms + " by " + request.method + " into " +
                 request.out);
  const std::string options = ShellWords(ArgumentsOf(request));
  if (!options.empty()) LogInformation("options: " + options);
  if (!request.given.empty()) LogInformation(request.given);
}

void RunLog::Fail(const RunFailure& failure) {
  if (!m_log) return;
  constexpr int kError = 3;
  const std::string text = "failed with type " + std::to_string(failure.Type()) + ": " + failure.what();
  m_log->WriteLog(kError, "fusion", __LINE__, "run", CommonFun::Utf82U(text).c_str());
}

void RunLog::TellGaps(const FuseRequest& request, Notices& notices) const {
  if (m_log && m_log->HasFailed()) {
    notices.Add("The log file " + request.log + " cannot be written: it lacks what was done.");
  }
}

void LogInformation(const std::string& text) {
  constexpr int kInformation = 1;
  if (CLog::m_pLogger)
    CLog::m_pLogger->WriteLog(kInformation, "fusion", __LINE__, "run", CommonFun::Utf82U(text).c_str());
}

}  // namespace fusion

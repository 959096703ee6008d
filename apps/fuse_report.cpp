#include "apps/fuse_report.h"

#include <nlohmann/json.hpp>

#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"

namespace app {

FuseReport::FuseReport(const FuseOptions& options) : m_options(options), m_notices(options.quiet) {}

FuseReport::~FuseReport() {
  if (m_log) CLog::m_pLogger = nullptr;
}

void FuseReport::OpenLog() {
  const FuseOptions& o = m_options;
  if (o.log.empty()) return;
  const std::wstring file = CommonFun::Utf82U(o.log);
  try {
    m_log.emplace(file);
  } catch (const std::exception& e) {
    throw RunError(ERR_CREATE, CommonFun::Utf82U(e.what()), "The log file " + o.log + " cannot be written.");
  }
  CLog::m_pLogger = &*m_log;
  LogInformation("fuse pan " + o.pan + ", multispectral " + o.ms + " by " + o.method + " into " + o.out);
  if (!o.given.empty()) LogInformation("options: " + o.given);
}

int FuseReport::Succeed(const FuseOutcome& outcome) {
  LogInformation("written: " + m_options.out + ", " + std::to_string(outcome.width) + "x" +
                 std::to_string(outcome.height) + ", " + std::to_string(outcome.bands) + " bands of " +
                 TypeName(outcome.type) + ", in " + std::to_string(Seconds()) + " s");
  Print(outcome, ERR_NONE, "");
  return kSuccess;
}

int FuseReport::Fail(const CommandError& error) {
  if (m_log) {
    constexpr int kError = 3;
    const std::string text = "failed with type " + std::to_string(error.type) + ": " + error.what();
    m_log->WriteLog(kError, "fusion", __LINE__, "command", CommonFun::Utf82U(text).c_str());
  }
  Print({}, error.type, error.what());
  return Report(error);
}

double FuseReport::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

void FuseReport::Print(const FuseOutcome& outcome, int errorType, const std::string& message) const {
  if (!m_options.json) return;
  PrintJson({{"method", m_options.method},
             {"output", m_options.out},
             {"width", outcome.width},
             {"height", outcome.height},
             {"bands", outcome.bands},
             {"type", TypeName(outcome.type)},
             {"seconds", Seconds()},
             {"valid_share", outcome.validShare ? nlohmann::ordered_json(*outcome.validShare) : nullptr},
             {"error_type", errorType},
             {"message", message},
             {"notices", m_notices.All()}});
}

}  // namespace app

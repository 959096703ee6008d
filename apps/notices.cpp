#include "apps/notices.h"

#include <iostream>

#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"

namespace app {

void Notices::Add(const std::string& text) {
  if (!m_quiet) std::cerr << text << '\n';
  LogInformation(text);
  m_texts.push_back(text);
}

void LogInformation(const std::string& text) {
  constexpr int kInformation = 1;
  if (CLog::m_pLogger)
    CLog::m_pLogger->WriteLog(kInformation, "fusion", __LINE__, "command", CommonFun::Utf82U(text).c_str());
}

}  // namespace app

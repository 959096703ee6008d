#include "platform/utility/log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/ostream_sink.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/utility/common_fun.h"

CLog* CLog::m_pLogger = nullptr;

struct CLog::Impl {
  std::ofstream file;
  std::unique_ptr<spdlog::logger> logger;
};

CLog::CLog() = default;

CLog::CLog(const std::wstring& file) : m_impl(std::make_unique<Impl>()) {
  const std::string name = CommonFun::U2Utf8(file);
  // A stream of its own, because it takes names that the system's narrow encoding cannot write.
  m_impl->file.open(std::filesystem::path(std::u8string(name.begin(), name.end())), std::ios::app | std::ios::binary);
  if (!m_impl->file) throw std::runtime_error("cannot open the log file " + name);
  constexpr bool kFlushEachEntry = true;
  auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(m_impl->file, kFlushEachEntry);
  m_impl->logger = std::make_unique<spdlog::logger>("fusion", std::move(sink));
  m_impl->logger->set_level(spdlog::level::trace);
  m_impl->logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%l] %s:%# %! %v");
}

CLog::~CLog() = default;

void CLog::WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) {
  if (!m_impl) return;
  constexpr spdlog::level::level_enum kLevels[] = {spdlog::level::debug, spdlog::level::info, spdlog::level::warn,
                                                   spdlog::level::err};
  const auto spdLevel = level < 0 ? kLevels[0] : kLevels[level > 3 ? 3 : level];
  const std::string utf8 = CommonFun::U2Utf8(text ? text : L"");
  m_impl->logger->log(spdlog::source_loc(file ? file : "", line, function ? function : ""), spdLevel,
                      spdlog::string_view_t(utf8.data(), utf8.size()));
}

bool CLog::HasFailed() const { return m_impl && m_impl->file.fail(); }

namespace platform {

void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) {
  if (CLog::m_pLogger) CLog::m_pLogger->WriteLog(level, file, line, function, text);
}

}  // namespace platform

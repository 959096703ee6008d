#pragma once

#include <memory>
#include <string>

#include "platform/system/export.h"

/// The program's log.
class FUSION_API CLog {
 public:
  /// Null until a program sets one; not owned.
  static CLog* m_pLogger;

  /// Appends to a UTF-8 text file. Throws std::runtime_error when it cannot be opened.
  explicit CLog(const std::wstring& file);
  virtual ~CLog();
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;

  /// Levels: 0 debug, 1 information, 2 warning, 3 error.
  virtual void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text);

  /// Whether an entry could not be written to the file.
  bool HasFailed() const;

 protected:
  CLog();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

namespace platform {

/// Writes to the program's log, where there is one.
void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text);

}  // namespace platform

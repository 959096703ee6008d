#include "tests/support/command.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

#include "platform/system/files.h"
#include "platform/utility/common_fun.h"

namespace test_support {
namespace {

std::string ToUtf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

std::filesystem::path ToPath(const std::string& utf8) { return CommonFun::ToPath(CommonFun::Utf82U(utf8)); }

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::random_device random;
  m_path = std::filesystem::temp_directory_path() / ToPath("fusion_tést_影像_" + std::to_string(random()));
  std::filesystem::create_directories(m_path);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::permissions(m_path, std::filesystem::perms::owner_all, ignored);
  platform::RemoveTree(m_path);
}

std::string TemporaryFolder::Path(const std::string& name) const { return ToUtf8(m_path / ToPath(name)); }

std::wstring TemporaryFolder::WidePath(const std::string& name) const { return CommonFun::Utf82U(Path(name)); }

std::vector<std::string> TemporaryFolder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
    names.push_back(ToUtf8(entry.path().filename()));
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool TemporaryFolder::Has(const std::string& name) const { return std::filesystem::exists(m_path / ToPath(name)); }

std::string FileBytes(const std::string& path) {
  std::ifstream file(ToPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

#ifdef _WIN32

std::string Quoted(const std::string& text) {
  // Backslashes mean something before a quotation mark alone.
  std::string quoted = "\"";
  std::size_t slashes = 0;
  for (const char c : text) {
    if (c == '"') quoted += std::string(slashes + 1, '\\');
    slashes = c == '\\' ? slashes + 1 : 0;
    quoted += c;
  }
  return quoted + std::string(slashes, '\\') + '"';
}

// The shell takes the outer quotation marks away.
int RunShell(const std::string& line) { return _wsystem((L'"' + CommonFun::Utf82U(line) + L'"').c_str()); }

namespace {

/// Outputs tell when they were made. In tests that is always the same time, so that they can be compared by bytes.
const bool kTimeStandsStill = _wputenv(L"SOURCE_DATE_EPOCH=1700000000") == 0;

HANDLE OpenForChild(const std::string& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return CreateFileW(ToPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// Starts a program; null where that fails.
HANDLE Start(const std::string& program, const std::vector<std::string>& arguments, STARTUPINFOW& start) {
  std::string line = Quoted(program);
  for (const std::string& argument : arguments) line += ' ' + Quoted(argument);
  std::wstring wide = CommonFun::Utf82U(line);
  start.cb = sizeof start;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process)) {
    return nullptr;
  }
  CloseHandle(process.hThread);
  return process.hProcess;
}

}  // namespace

CommandResult RunCommand(const std::string& program, const std::vector<std::string>& arguments) {
  const TemporaryFolder folder;
  STARTUPINFOW start{};
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  start.hStdOutput = OpenForChild(folder.Path("out"));
  start.hStdError = OpenForChild(folder.Path("err"));
  auto status = static_cast<DWORD>(-1);
  if (const HANDLE process = Start(program, arguments, start)) {
    WaitForSingleObject(process, INFINITE);
    GetExitCodeProcess(process, &status);
    CloseHandle(process);
  }
  CloseHandle(start.hStdOutput);
  CloseHandle(start.hStdError);
  return {static_cast<int>(status), FileBytes(folder.Path("out")), FileBytes(folder.Path("err"))};
}

bool KillCommand(const std::string& program, const std::vector<std::string>& arguments,
                 const std::function<bool()>& when) {
  STARTUPINFOW start{};
  const HANDLE process = Start(program, arguments, start);
  if (!process) return false;
  while (WaitForSingleObject(process, 5) == WAIT_TIMEOUT && !when()) {
  }
  const bool killed = TerminateProcess(process, 137) != 0;
  WaitForSingleObject(process, INFINITE);
  CloseHandle(process);
  return killed;
}

#else

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + '\'';
}

int RunShell(const std::string& line) {
  const int result = std::system(line.c_str());
  // The wait status: the exit status stands in its second byte.
  return (result & 0x7F) == 0 ? (result >> 8) & 0xFF : -1;
}

namespace {

/// Outputs tell when they were made. In tests that is always the same time, so that they can be compared by bytes.
const bool kTimeStandsStill = setenv("SOURCE_DATE_EPOCH", "1700000000", 1) == 0;

}  // namespace

CommandResult RunCommand(const std::string& program, const std::vector<std::string>& arguments) {
  const TemporaryFolder folder;
  std::string line = Quoted(program);
  for (const std::string& argument : arguments) line += ' ' + Quoted(argument);
  line += " > " + Quoted(folder.Path("out")) + " 2> " + Quoted(folder.Path("err"));
  const int status = RunShell(line);
  return {status, FileBytes(folder.Path("out")), FileBytes(folder.Path("err"))};
}

bool KillCommand(const std::string& program, const std::vector<std::string>& arguments,
                 const std::function<bool()>& when) {
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  pid_t process = 0;
  if (posix_spawn(&process, program.c_str(), nullptr, nullptr, words.data(), environ) != 0) return false;
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(process, &status, WNOHANG)) == 0 && !when()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (ended != 0) return false;
  kill(process, SIGKILL);
  waitpid(process, &status, 0);
  return WIFSIGNALED(status);
}

#endif

}  // namespace test_support

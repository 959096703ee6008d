#include "platform/system/process_mark.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace platform {
namespace {

constexpr std::size_t kPart = 8;

/// The same on every run and machine, where std::hash need not be.
std::string Hashed(const std::string& text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  char digits[kPart + 1];
  std::snprintf(digits, sizeof digits, "%08x", hash);
  return digits;
}

#ifdef _WIN32
std::string Host() {
  char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD size = sizeof name;
  return GetComputerNameA(name, &size) ? name : "";
}
std::string Boot() { return "windows"; }
unsigned long OwnNumber() { return GetCurrentProcessId(); }

/// When a process was started; empty where there is none, "?" where that is not known.
std::string StartOf(unsigned long number) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, number);
  if (!process) return GetLastError() == ERROR_INVALID_PARAMETER ? "" : "?";
  // One that has ended can be opened as long as anybody has it open.
  if (WaitForSingleObject(process, 0) == WAIT_OBJECT_0) {
    CloseHandle(process);
    return "";
  }
  FILETIME created{};
  FILETIME exited{};
  FILETIME kernel{};
  FILETIME user{};
  const bool known = GetProcessTimes(process, &created, &exited, &kernel, &user) != 0;
  CloseHandle(process);
  if (!known) return "?";
  return std::to_string(created.dwHighDateTime) + ' ' + std::to_string(created.dwLowDateTime);
}
#else
std::string TextOf(const char* file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Host() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  // Containers number their processes anew.
  std::error_code error;
  const std::filesystem::path numbering = std::filesystem::read_symlink("/proc/self/ns/pid", error);
  return std::string(name) + '\n' + TextOf("/etc/machine-id") + numbering.string();
}
std::string Boot() { return TextOf("/proc/sys/kernel/random/boot_id"); }
unsigned long OwnNumber() { return static_cast<unsigned long>(getpid()); }

std::string StartOf(unsigned long number) {
  const std::string text = TextOf(("/proc/" + std::to_string(number) + "/stat").c_str());
  if (text.empty()) return std::filesystem::exists("/proc/self/stat") ? "" : "?";
  // The program's name, in brackets, may hold anything; the state comes behind it.
  std::size_t at = text.rfind(')');
  if (at == std::string::npos || at + 2 >= text.size()) return "?";
  at += 2;
  const bool isDead = text[at] == 'Z' || text[at] == 'X';
  if (isDead) return "";
  constexpr int kFromStateToStart = 19;
  for (int field = 0; field < kFromStateToStart && at != std::string::npos; ++field) at = text.find(' ', at + 1);
  return at == std::string::npos ? "?" : text.substr(at + 1, text.find(' ', at + 1) - at - 1);
}
#endif

}  // namespace

const std::string& OwnProcessMark() {
  // A process that forks has another number.
  static thread_local unsigned long number = 0;
  static thread_local std::string mark;
  if (number != OwnNumber()) {
    number = OwnNumber();
    char digits[kPart + 1];
    std::snprintf(digits, sizeof digits, "%08lx", number & 0xFFFFFFFFUL);
    mark = Hashed(Host()) + Hashed(Boot()) + digits + Hashed(StartOf(number));
  }
  return mark;
}

MarkedProcess LookAtProcess(const std::string& mark) {
  const std::string& own = OwnProcessMark();
  if (mark.size() != own.size() || mark.compare(0, kPart, own, 0, kPart) != 0) return MarkedProcess::kRuns;
  if (mark.compare(kPart, kPart, own, kPart, kPart) != 0) return MarkedProcess::kOfOldRun;
  const std::string start = StartOf(std::stoul(mark.substr(2 * kPart, kPart), nullptr, 16));
  if (start == "?") return MarkedProcess::kRuns;
  return start.empty() || Hashed(start) != mark.substr(3 * kPart) ? MarkedProcess::kEnded : MarkedProcess::kRuns;
}

}  // namespace platform

#include "platform/raster/leftovers.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <memory>
#include <random>
#include <system_error>

#include "platform/raster/companions.h"
#include "platform/system/files.h"
#include "platform/system/process_mark.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kNew[] = L"~new/";
constexpr wchar_t kOld[] = L"~old/";
constexpr std::size_t kRandom = 16;

std::vector<std::wstring> NamesIn(const std::wstring& folder) {
  const CPLStringList list(VSIReadDir(CommonFun::U2Utf8(folder.empty() ? L"." : folder).c_str()));
  std::vector<std::wstring> names;
  for (int i = 0; i < list.size(); ++i) {
    const std::wstring name = CommonFun::Utf82U(list[i]);
    if (name != L"." && name != L"..") names.push_back(name);
  }
  return names;
}

/// The process's mark in a temporary name; empty where the name is none.
std::string MarkIn(const std::wstring& name) {
  const std::size_t start = name.rfind(L'~') + 1;
  const std::size_t length = OwnProcessMark().size() + kRandom;
  if (start == 0 || name.size() < start + length) return {};
  if (name.size() > start + length && name[start + length] != L'.') return {};
  const std::string digits = CommonFun::U2Utf8(name.substr(start, length));
  if (digits.find_first_not_of("0123456789abcdef") != std::string::npos) return {};
  return digits.substr(0, OwnProcessMark().size());
}

/// Whether nothing in a folder, or a file, has changed for a day.
bool IsOld(const fs::path& path) {
  std::error_code error;
  auto last = fs::last_write_time(path, error);
  if (error) return false;
  for (const auto& entry : fs::recursive_directory_iterator(path, error)) {
    last = std::max(last, fs::last_write_time(entry.path(), error));
    if (error) return false;
  }
  return fs::file_time_type::clock::now() - last > std::chrono::hours(24);
}

bool IsLeftover(const std::wstring& path, const std::wstring& name) {
  const std::string mark = MarkIn(name);
  if (mark.empty()) return false;
  const fs::path native = CommonFun::ToPath(path);
  std::error_code error;
  const fs::file_type type = fs::symlink_status(native, error).type();
  if ((type != fs::file_type::directory && type != fs::file_type::regular) || !IsOwnFile(native)) return false;
  switch (LookAtProcess(mark)) {
    case MarkedProcess::kEnded:
      return true;
    case MarkedProcess::kOfOldRun:
      return IsOld(native);
    default:
      return false;
  }
}

/// Takes back renames that were not carried through. The image goes last: once it has gone, all have.
void TakeBack(const std::wstring& folder, const std::wstring& parent) {
  const std::vector<std::wstring> notes = NamesIn(folder + kNew);
  const auto waits = [&](const std::wstring& name) { return CommonFun::IsExistingFile(folder + name); };
  if (std::none_of(notes.begin(), notes.end(), waits)) return;
  std::error_code error;
  for (const std::wstring& name : notes) {
    // A note is a second name of its file: whatever else has the file's name by now is not ours to remove.
    if (!waits(name) && CommonFun::IsSameFile(folder + kNew + name, parent + name)) {
      fs::remove(CommonFun::ToPath(parent + name), error);
    }
  }
  for (const std::wstring& name : NamesIn(folder + kOld)) {
    static_cast<void>(RenameFresh(CommonFun::ToPath(folder + kOld + name), CommonFun::ToPath(parent + name)));
  }
}

}  // namespace

std::wstring TemporarySuffix() {
  std::random_device random;
  wchar_t letters[kRandom + 1];
  std::swprintf(letters, std::size(letters), L"%08x%08x", random(), random());
  return L'~' + CommonFun::Utf82U(OwnProcessMark()) + letters;
}

bool NoteNewFiles(const std::wstring& folder, const std::vector<std::wstring>& names) {
  for (const wchar_t* place : {kNew, kOld}) {
    if (VSIMkdir(CommonFun::U2Utf8(folder + place).c_str(), 0700) != 0) return false;
  }
  if (CommonFun::IsVirtualFile(folder)) return true;
  return std::all_of(names.begin(), names.end(), [&](const std::wstring& name) {
    std::error_code error;
    fs::create_hard_link(CommonFun::ToPath(folder + name), CommonFun::ToPath(folder + kNew + name), error);
    // A file system without second names knows no way back but by hand.
    return !error || error == std::errc::operation_not_permitted || error == std::errc::operation_not_supported ||
           error == std::errc::function_not_supported;
  });
}

std::wstring PlaceForOld(const std::wstring& folder, const std::wstring& name) { return folder + kOld + name; }

void SweepLeftovers(const std::wstring& folder) {
  if (CommonFun::IsVirtualFile(folder)) return;
  std::unique_ptr<FolderLock> lock;
  for (const std::wstring& name : NamesIn(folder)) {
    const std::wstring path = folder + name;
    if (!IsLeftover(path, name)) continue;
    if (!lock) lock = std::make_unique<FolderLock>(CommonFun::ToPath(folder.empty() ? L"." : folder));
    if (CommonFun::IsFolder(path)) TakeBack(path + L'/', folder);
    RemoveTree(CommonFun::ToPath(path));
  }
}

}  // namespace platform

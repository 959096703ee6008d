#include "platform/raster/file_pattern.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <algorithm>
#include <cwctype>

#include "platform/raster/companions.h"
#include "platform/raster/gdal_access.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

/// Whether the class that begins at a bracket holds a character; moves behind it. A bracket that nothing closes is one.
bool InClass(const std::wstring& pattern, std::size_t& at, wchar_t c) {
  std::size_t i = at + 1;
  const bool none = i < pattern.size() && (pattern[i] == L'!' || pattern[i] == L'^');
  if (none) ++i;
  const std::size_t first = i;
  const std::size_t end = pattern.find(L']', first + 1);
  if (end == std::wstring::npos) return pattern[at++] == c;
  bool held = false;
  for (; i < end; ++i) {
    if (i + 2 < end && pattern[i + 1] == L'-') {
      held = held || (pattern[i] <= c && c <= pattern[i + 2]);
      i += 2;
    } else {
      held = held || pattern[i] == c;
    }
  }
  at = end + 1;
  return held != none;
}

}  // namespace

bool MatchesPattern(const std::wstring& name, const std::wstring& pattern) {
  std::size_t n = 0;
  std::size_t p = 0;
  std::size_t star = std::wstring::npos;  // behind the last star, and where its text ends
  std::size_t reach = 0;
  while (n < name.size()) {
    bool same = false;
    std::size_t next = p;
    if (p < pattern.size() && pattern[p] == L'*') {
      star = ++p;
      reach = n;
      continue;
    }
    if (p < pattern.size() && pattern[p] == L'[') {
      same = InClass(pattern, next, name[n]);
    } else if (p < pattern.size()) {
      same = pattern[p] == L'?' || pattern[p] == name[n];
      ++next;
    }
    if (same) {
      ++n;
      p = next;
    } else if (star != std::wstring::npos) {
      p = star;
      n = ++reach;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == L'*') ++p;
  return p == pattern.size();
}

bool ComesBefore(const std::wstring& a, const std::wstring& b) {
  std::size_t i = 0;
  std::size_t k = 0;
  while (i < a.size() && k < b.size()) {
    if (!IsDigit(a[i]) || !IsDigit(b[k])) {
      if (a[i] != b[k]) return a[i] < b[k];
      ++i;
      ++k;
      continue;
    }
    const auto number = [](const std::wstring& text, std::size_t& at) {
      while (at < text.size() && text[at] == L'0') ++at;
      const std::size_t start = at;
      while (at < text.size() && IsDigit(text[at])) ++at;
      return text.substr(start, at - start);
    };
    const std::wstring first = number(a, i);
    const std::wstring second = number(b, k);
    if (first.size() != second.size()) return first.size() < second.size();
    if (first != second) return first < second;
  }
  if (a.size() - i != b.size() - k) return a.size() - i < b.size() - k;
  return a < b;
}

std::vector<std::wstring> FilesMatching(const std::wstring& path) {
  InitialiseGdal();
  // Addresses have question marks of their own.
  const bool isAddress = path.find(L"://") != std::wstring::npos || path.rfind(L"/vsistdin", 0) == 0;
  if (isAddress || path.find_first_of(L"*?[") == std::wstring::npos || CommonFun::IsExistingFile(path)) return {path};
  const std::wstring folder = FolderOf(path);
  const std::wstring pattern = path.substr(folder.size());
  const CPLStringList names(VSIReadDir(folder.empty() ? "." : CommonFun::U2Utf8(folder).c_str()));
  std::vector<std::wstring> files;
  for (int i = 0; i < names.size(); ++i) {
    const std::wstring name = CommonFun::Utf82U(names[i]);
    if (name != L"." && name != L".." && MatchesPattern(name, pattern)) files.push_back(folder + name);
  }
  std::sort(files.begin(), files.end(), ComesBefore);
  return files;
}

}  // namespace platform

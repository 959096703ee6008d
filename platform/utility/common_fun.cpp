#include "platform/utility/common_fun.h"

#include <cpl_vsi.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <type_traits>

#include "platform/raster/leftovers.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#endif

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

void AppendUtf8(char32_t c, std::string& text) {
  if (c > 0x10FFFF || IsSurrogate(c)) c = kReplacement;
  const auto tail = [&](int shift) { text += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | (c >> 6));
    tail(0);
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | (c >> 12));
    tail(6);
    tail(0);
  } else {
    text += static_cast<char>(0xF0 | (c >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

void AppendWide(char32_t c, std::wstring& text) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c >= 0x10000) {
      c -= 0x10000;
      text += static_cast<wchar_t>(0xD800 | (c >> 10));
      c = 0xDC00 | (c & 0x3FF);
    }
  }
  text += static_cast<wchar_t>(c);
}

/// Reads one character of UTF-8 at a position and moves past it; one invalid byte is one replacement character.
char32_t NextUtf8(const std::string& text, std::size_t& at) {
  const auto byte = [&](std::size_t i) -> char32_t {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const char32_t first = byte(at);
  int length = 1;
  char32_t c = first;
  char32_t smallest = 0;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2, c = first & 0x1F, smallest = 0x80;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3, c = first & 0x0F, smallest = 0x800;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4, c = first & 0x07, smallest = 0x10000;
  } else if (first >= 0x80) {
    c = kReplacement;
  }
  for (int i = 1; i < length; ++i) {
    const char32_t next = byte(at + static_cast<std::size_t>(i));
    if ((next & 0xC0) != 0x80) {
      ++at;
      return kReplacement;
    }
    c = (c << 6) | (next & 0x3F);
  }
  if (length > 1 && (c < smallest || c > 0x10FFFF || IsSurrogate(c))) {
    ++at;
    return kReplacement;
  }
  at += static_cast<std::size_t>(length);
  return c;
}

bool CreateExclusively(const std::wstring& path) {
  const std::string utf8 = CommonFun::U2Utf8(path);
  if (CommonFun::IsVirtualFile(path)) {
    VSIStatBufL status;
    if (VSIStatL(utf8.c_str(), &status) == 0) return false;
    VSILFILE* file = VSIFOpenL(utf8.c_str(), "wb");
    return file && VSIFCloseL(file) == 0;
  }
#ifdef _WIN32
  // Its streams cannot be opened exclusively.
  const int file =
      _wopen(CommonFun::ToPath(path).c_str(), _O_CREAT | _O_EXCL | _O_WRONLY | _O_BINARY, _S_IREAD | _S_IWRITE);
  return file >= 0 && _close(file) == 0;
#else
  std::FILE* file = std::fopen(utf8.c_str(), "wbx");
  return file && std::fclose(file) == 0;
#endif
}

/// Where the file name starts behind its folder.
std::size_t FileNameStart(const std::wstring& path) {
  const std::size_t slash = path.find_last_of(L"/\\");
  return slash == std::wstring::npos ? 0 : slash + 1;
}

/// Where the dot of the extension stands; the end of the path where there is none.
std::size_t ExtensionDot(const std::wstring& path) {
  const std::size_t start = FileNameStart(path);
  const std::size_t dot = path.rfind(L'.');
  return dot == std::wstring::npos || dot <= start ? path.size() : dot;
}

}  // namespace

std::wstring CommonFun::M2U(const char* text) {
  if (!text) return {};
#ifdef _WIN32
  const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  if (size <= 1) return {};
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), size);
  wide.pop_back();
  return wide;
#else
  return Utf82U(text);
#endif
}

std::string CommonFun::U2Utf8(const std::wstring& text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = static_cast<std::make_unsigned_t<wchar_t>>(text[i]);
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
      const char32_t low = static_cast<std::make_unsigned_t<wchar_t>>(text[i + 1]);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    AppendUtf8(c, utf8);
  }
  return utf8;
}

std::wstring CommonFun::Utf82U(const std::string& text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) AppendWide(NextUtf8(text, at), wide);
  return wide;
}

std::wstring CommonFun::MakeTempName(const std::wstring& path) {
  const std::size_t start = FileNameStart(path);
  const std::size_t dot = ExtensionDot(path);
  // A long name is cut so that the longer one beside it still fits the file system.
  constexpr std::size_t kLongestStem = 32;
  return path.substr(0, start + std::min(dot - start, kLongestStem)) + platform::TemporarySuffix() + path.substr(dot);
}

std::wstring CommonFun::GetTempFilePath(const std::wstring& path) {
  if (path.empty()) return {};
  for (int attempt = 0; attempt < 16; ++attempt) {
    std::wstring name = MakeTempName(path);
    if (CreateExclusively(name)) return name;
  }
  return {};
}

std::wstring CommonFun::GetExtensionName(const std::wstring& path) {
  const std::size_t dot = ExtensionDot(path);
  return dot == path.size() ? std::wstring() : path.substr(dot + 1);
}

bool CommonFun::IsSameFile(const std::wstring& first, const std::wstring& second) {
  if (first.empty() || second.empty()) return false;
  if (IsVirtualFile(first) || IsVirtualFile(second)) {
    VSIStatBufL status;
    return CommonFun::ToPath(first).lexically_normal() == CommonFun::ToPath(second).lexically_normal() &&
           VSIStatL(U2Utf8(first).c_str(), &status) == 0;
  }
  std::error_code error;
  return std::filesystem::equivalent(CommonFun::ToPath(first), CommonFun::ToPath(second), error) && !error;
}

namespace {

bool Stat(const std::wstring& path, VSIStatBufL& status) {
#ifdef _WIN32
  // A folder with a separator behind its name is not found there.
  const std::size_t last = path.find_last_not_of(L"\\/");
  if (last != std::wstring::npos && last + 1 < path.size() && path[last] != L':') {
    return Stat(path.substr(0, last + 1), status) && VSI_ISDIR(status.st_mode);
  }
#endif
  return VSIStatL(CommonFun::U2Utf8(path).c_str(), &status) == 0;
}

}  // namespace

bool CommonFun::IsVirtualFile(const std::wstring& path) { return path.rfind(L"/vsi", 0) == 0; }

bool CommonFun::IsExistingFile(const std::wstring& path) {
  VSIStatBufL status;
  return Stat(path, status);
}

bool CommonFun::IsFolder(const std::wstring& path) {
  VSIStatBufL status;
  return Stat(path, status) && VSI_ISDIR(status.st_mode);
}

std::filesystem::path CommonFun::ToPath(const std::wstring& path) {
  const std::string utf8 = U2Utf8(path);
  return {std::u8string(utf8.begin(), utf8.end())};
}

#pragma once

#include <filesystem>
#include <string>

#include "platform/system/export.h"
/// Text, wide inside the library and in other encodings outside, and file names.
class FUSION_API CommonFun {
 public:
  /// Narrow to wide: the active code page on Windows, elsewhere UTF-8 whatever the locale; null gives an empty string.
  /// Invalid bytes become U+FFFD.
  static std::wstring M2U(const char* text);
  /// Wide to UTF-8.
  static std::string U2Utf8(const std::wstring& text);
  /// UTF-8 to wide.
  static std::wstring Utf82U(const std::string& text);

  /// A fresh file name beside the given path with the same extension. The file is created exclusively, so the name
  /// stays free for the caller; empty when that is impossible.
  static std::wstring GetTempFilePath(const std::wstring& path);
  /// A name like that, without making the file.
  static std::wstring MakeTempName(const std::wstring& path);
  /// The extension without its dot, empty where there is none.
  static std::wstring GetExtensionName(const std::wstring& path);
  /// For the standard library's file functions.
  static std::filesystem::path ToPath(const std::wstring& path);
  /// Whether a name is one of GDAL's own file systems (memory, archives), known to GDAL alone.
  static bool IsVirtualFile(const std::wstring& path);
  static bool IsExistingFile(const std::wstring& path);  ///< a file or a folder, of GDAL's too
  static bool IsFolder(const std::wstring& path);        ///< likewise
  /// True when both names lead to the same existing file.
  static bool IsSameFile(const std::wstring& first, const std::wstring& second);
};

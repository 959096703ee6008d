#pragma once

#include <string>
#include <vector>

namespace platform {

/// Whether a name matches a pattern: * is any text, ? any character, [a-c1] one of some, [!a] or [^a] none of some.
bool MatchesPattern(const std::wstring& name, const std::wstring& pattern);

/// Whether a stands before b where numbers in the names count as numbers: B2 before B10.
bool ComesBefore(const std::wstring& a, const std::wstring& b);

/// The files of a folder, of GDAL's file systems too, whose names match the last part of a path, in that order. A path
/// without such signs, and one that is a file itself, is its own answer. Empty where nothing matches.
std::vector<std::wstring> FilesMatching(const std::wstring& path);

}  // namespace platform

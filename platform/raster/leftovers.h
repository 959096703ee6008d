#pragma once

#include <string>
#include <vector>

namespace platform {

/// The end of a new temporary name: the process's mark and letters that nobody can guess.
std::wstring TemporarySuffix();

// What a folder for an output notes while its files get their names, so that a run that is killed in the midst of it
// can be taken back by the next one.

/// Notes the files that are to move out of the folder, the image itself among them. False, with errno set, where that
/// is impossible.
bool NoteNewFiles(const std::wstring& folder, const std::vector<std::wstring>& names);
/// Where a file that is replaced lies meanwhile.
std::wstring PlaceForOld(const std::wstring& folder, const std::wstring& name);

/// Removes the temporary files and folders that dead runs of this user and machine have left in a folder, and brings
/// back what they had begun to replace.
void SweepLeftovers(const std::wstring& folder);

}  // namespace platform

#pragma once

#include <string>
#include <vector>

/// Which files of a folder belong together as one image.
namespace platform {

/// The path up to its file name, with the slash; empty where it has no folder.
std::wstring FolderOf(const std::wstring& path);
/// The path without its extension.
std::wstring StemOf(const std::wstring& path);
/// Whether a regular file, or a link to one, has this name.
bool IsRegularFile(const std::wstring& path);

/// The files that GDAL reads for an image, itself included where it is one. Empty where it does not open.
std::vector<std::wstring> FilesOf(const std::wstring& image);

/// All files that are read when an image or a vector file is: with its companions, the sources of a mosaic and what
/// those consist of, as far as they lie in the folder or are mosaics themselves, and the archive that it lies in.
std::vector<std::wstring> FilesBehind(const std::wstring& input, const std::wstring& folder);

/// What lies beside a file name in its folder, whether the file is there or not.
struct Neighbours {
  std::vector<std::wstring> own;     ///< named after the whole file name: companions of nothing else
  std::vector<std::wstring> ofStem;  ///< named after the file name without extension: of any image with this stem
  std::vector<std::wstring> others;  ///< further files of this stem
};
Neighbours NeighboursOf(const std::wstring& path);

/// Whether an image needs a file of its stem, or would need it if the file were there.
bool Reads(const std::wstring& image, const std::wstring& file);

/// Whether a file's name is that of a companion of the other one, whole name or stem.
bool IsCompanionName(const std::wstring& file, const std::wstring& of);

}  // namespace platform

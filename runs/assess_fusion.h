#pragma once

#include <filesystem>
#include <string>

#include "quality/image.h"
#include "runs/assess_tile.h"
#include "runs/fuse.h"

namespace fusion {

/// A folder for files that nobody keeps: it vanishes with the object, with all that is in it.
class ScratchFolder {
 public:
  /// Throws RunFailure where there can be none.
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

/// A pair of images as files in a folder of their own, and what is made of them.
class TileFiles {
 public:
  /// Writes pan.tif and ms.tif.
  /// @param replace what an earlier run has left there
  /// Throws RunFailure.
  TileFiles(const std::filesystem::path& folder, const AssessTile& tile, PixelDataType type, bool replace);

  /// Another image of the same kind, for whoever wants to look at it.
  void Write(const std::string& name, const PlacedImage& placed) const;
  /// Both files, the result NAME.tif and its type, in a request that says all else.
  FuseRequest Complete(FuseRequest request) const;
  /// A result on all of pan's pixels, NaN where it has no data. Throws RunFailure where it is none.
  quality::Image Read(const std::string& name) const;
  bool Has(const std::string& name) const;
  /// The bands on pan's pixels as bicubic resampling gives them, NaN where it meets one.
  quality::Image Upsampled() const;

 private:
  std::wstring File(const std::string& name) const;

  std::filesystem::path m_folder;
  const AssessTile& m_tile;
  PixelDataType m_type;
};

}  // namespace fusion

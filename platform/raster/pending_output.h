#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/raster_types.h"

namespace platform {

/// What stands in the way of an output.
struct OutputObstacle {
  enum Kind {
    kNone,
    kExists,    ///< a file is there and may not be replaced
    kInput,     ///< it would replace what is read, or change how that is read
    kShared,    ///< it would replace what another image needs, or change how that is read
    kNoFile,    ///< something is there that is no regular file
    kNotGiven,  ///< the file system gave it no name
  };
  Kind kind = kNone;
  std::wstring file;  ///< in the way; for kShared the image that needs it
  int error = 0;      ///< for kNotGiven, of the system
};

/// An output while it is made: the raster, and what comes with it (header, overviews, mask, metadata), lie under their
/// own names in a folder beside the output. They leave it together at the end, or vanish with the object. An output
/// that is a link to a file is that file.
class PendingOutput {
 public:
  /// @param replace whether an existing output may be replaced, with its companions
  /// @param inputs files that are read; nothing that belongs to them is ever replaced
  explicit PendingOutput(const std::wstring& path, bool replace = true, const std::vector<std::wstring>& inputs = {});
  ~PendingOutput();
  PendingOutput(const PendingOutput&) = delete;
  PendingOutput& operator=(const PendingOutput&) = delete;

  /// What can be told before anything is written.
  OutputObstacle Foresee(RasterDataFormat format) const;
  /// Whether a file belongs to the inputs, or is the output or named like a companion of it.
  bool Concerns(const std::wstring& file) const;
  /// Makes the folder; false where there can be none.
  bool Begin();
  /// Where the raster is to be written.
  const std::wstring& WorkPath() const;
  /// A text for the user, with the output's name in the place of names in the folder.
  std::wstring InTermsOfOutput(std::wstring text) const;

  /// Waits until what is made, or what was published, lies on the disk. False, with the write error kept, where it
  /// cannot.
  bool Sync() const;
  OutputObstacle Publish();
  /// All outputs, or none.
  static OutputObstacle Publish(const std::vector<PendingOutput*>& outputs);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace platform

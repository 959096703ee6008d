#pragma once

#include <memory>
#include <string>

namespace platform {

/// Stands between GDAL and the files of an output: the first write that fails is the last that reaches the disk. What a
/// driver writes after it goes nowhere and passes for written, so that closing the output ends, whatever the driver
/// tries.
class WriteGuard {
 public:
  /// For a raster and all that its driver makes beside it. Files of GDAL's own file systems go unguarded.
  explicit WriteGuard(const std::wstring& path);
  ~WriteGuard();
  WriteGuard(const WriteGuard&) = delete;
  WriteGuard& operator=(const WriteGuard&) = delete;

  /// The name under which GDAL is to write the raster.
  const std::string& Name() const { return m_name; }
  /// Whether a write, or closing a file, has failed.
  bool HasFailed() const;

  struct State;

 private:
  std::shared_ptr<State> m_state;
  std::string m_name;
};

/// The system's number of the first write to an output that has failed since ClearWriteError: a full disk, say. 0 where
/// none has.
int FirstWriteError();
void ClearWriteError();
/// For whoever finds out before GDAL tries.
void KeepWriteError(int error);

/// Whether so many bytes more can be written to a file. Keeps the error where they cannot.
bool HasRoomFor(const std::wstring& path, double bytes);

}  // namespace platform

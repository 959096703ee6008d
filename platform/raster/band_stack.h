#pragma once

#include <string>
#include <vector>

namespace platform {

/// An in-memory view of several rasters of one band each as one raster of all of them, over all their ground, with
/// pixels as small as the smallest of theirs (the nearest sample of larger ones). It disappears with the object.
class BandStack {
 public:
  /// Throws std::runtime_error, in words, where a file does not open, has another number of bands or another coordinate
  /// system, or does not lie north-up.
  explicit BandStack(const std::vector<std::wstring>& files);
  ~BandStack();
  BandStack(const BandStack&) = delete;
  BandStack& operator=(const BandStack&) = delete;

  const std::wstring& Path() const { return m_path; }

 private:
  std::wstring m_path;
};

}  // namespace platform

#pragma once

#include <string>
#include <vector>

#include "platform/raster/pending_output.h"
#include "quality/image.h"

namespace fusion {

/// Crops of images beside each other as one PNG: pan in grey, all others in colour, with one stretch for all of them,
/// so that other colours are seen as such. A name stands above each.
class ContactSheet {
 public:
  /// The sides of a crop, in pixels.
  static constexpr int kCrop = 256;

  /// @param inputs files that must not be replaced
  /// Throws RunFailure where the file cannot be made.
  ContactSheet(const std::string& file, bool overwrite, const std::vector<std::wstring>& inputs);

  /// @param rgb bands, counted from 0
  void AddPan(const std::string& name, const quality::Image& pan);
  void AddColour(const std::string& name, const quality::Image& image, const std::vector<int>& rgb);
  /// Draws and publishes. The first image in colour gives the stretch: from its 2nd to its 98th percentile, band by
  /// band.
  void Write();

 private:
  struct Crop {
    std::string name;
    quality::Image image;  ///< one band or three
  };

  static Crop CropOf(const std::string& name, const quality::Image& image, const std::vector<int>& bands);

  std::wstring m_file;
  platform::PendingOutput m_pending;
  std::vector<Crop> m_crops;
};

}  // namespace fusion

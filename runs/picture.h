#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/raster/pending_output.h"
#include "platform/raster/raster_description.h"
#include "quality/image.h"

namespace fusion {

/// The values of a band that are shown as black and as white.
struct Stretch {
  double low = 0.0;
  double high = 1.0;
  double bend = 1.0;  ///< exponent of what lies between: less than 1 brightens
};

/// From the 2nd to the 98th percentile of what is a number.
Stretch StretchOf(const std::vector<double>& values);
/// Of some bands of an image.
std::vector<Stretch> StretchesOf(const quality::Image& image, const std::vector<int>& bands);

/// Which bands, counted from 0, are shown as red, green and blue: what the file says they show; else what their names
/// do; else of four and more, which begin with blue, the third to the first. One band is shown in grey.
std::vector<int> NaturalColours(const std::vector<platform::BandDescription>& bands);

/// White paper that images and texts are drawn on, to be written as a PNG.
class Picture {
 public:
  Picture(int width, int height);

  /// @param bands three of the image, or one for grey; @param stretches of each of them
  /// @param zoom pixels across and down for one of the image
  /// What has no data stays as it is.
  void Draw(const quality::Image& image, const std::vector<int>& bands, const std::vector<Stretch>& stretches, int left,
            int top, int zoom = 1);
  void Write(const std::string& text, int left, int top);
  /// A pattern over all of it that nothing in an image looks like: where nothing is drawn on it there is no data.
  void Hatch();
  /// An outline of one pixel in a colour that is seen on most images.
  void Frame(int left, int top, int width, int height);

  /// Throws a usage error for a name that does not end like a PNG, and for a file that may not be replaced.
  /// @param option that names it
  static void CheckFile(const std::string& option, const std::wstring& file, const platform::PendingOutput& pending);
  /// Writes and publishes it. Throws RunFailure.
  void Save(const std::wstring& file, platform::PendingOutput& pending) const;
  /// As the bytes of a JPEG file. Throws RunFailure.
  /// @param quality 1 to 100
  std::string Jpeg(int quality) const;

 private:
  void Put(int x, int y, std::uint8_t red, std::uint8_t green, std::uint8_t blue);

  int m_width;
  int m_height;
  std::vector<std::vector<std::uint8_t>> m_colours;  ///< red, green, blue, each row by row
};

}  // namespace fusion

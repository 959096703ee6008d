#include "quality/image.h"

#include <algorithm>
#include <stdexcept>

namespace quality {
namespace {

void CheckWhole(const Image& image) {
  const std::size_t n = image.PixelCount();
  const bool whole = image.width >= 0 && image.height >= 0 && (image.valid.empty() || image.valid.size() == n) &&
                     std::all_of(image.bands.begin(), image.bands.end(), [n](const auto& b) { return b.size() == n; });
  if (!whole) throw std::invalid_argument("an image has bands or marks of another size than its own");
}

}  // namespace

std::vector<unsigned char> CommonPixels(const Image& first, const Image& second) {
  if (first.valid.empty()) return second.valid;
  std::vector<unsigned char> common = first.valid;
  for (std::size_t i = 0; i < common.size() && !second.valid.empty(); ++i) {
    if (second.valid[i] == 0) common[i] = 0;
  }
  return common;
}

void CheckComparable(const Image& first, const Image& second, bool bandsToo) {
  CheckWhole(first);
  CheckWhole(second);
  if (first.width != second.width || first.height != second.height) {
    throw std::invalid_argument("images of different sizes are not comparable");
  }
  if (bandsToo && first.bands.size() != second.bands.size()) {
    throw std::invalid_argument("images of different numbers of bands are not comparable");
  }
}

}  // namespace quality

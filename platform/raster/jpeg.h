#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// An image as the bytes of a JPEG file; empty where that cannot be made.
/// @param bands one, or red, green and blue: rows of width one after another
/// @param quality 1 to 100
std::string EncodeJpeg(const std::vector<std::vector<std::uint8_t>>& bands, int width, int height, int quality);

}  // namespace platform

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fusion {

/// Writes a text into an 8-bit image: capitals, digits and a few signs of 5 x 7 dots, each dot 2 x 2 pixels; whatever
/// else as a blank.
/// @param pixels rows of width one after another
/// @param left, top of the text; what does not fit is left out
void DrawText(const std::string& text, int left, int top, int width, int height, std::uint8_t value,
              std::vector<std::uint8_t>& pixels);

/// Pixels that a row of text takes.
inline constexpr int kLetterHeight = 14;
/// Pixels from one sign to the next.
inline constexpr int kLetterStep = 12;

}  // namespace fusion

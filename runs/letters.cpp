#include "runs/letters.h"

#include <algorithm>

namespace fusion {
namespace {

constexpr int kColumns = 3;
constexpr int kRows = 5;
constexpr int kDot = 2;

struct Letter {
  char sign;
  const char* dots;  ///< row by row
};

constexpr Letter kLetters[] = {
    {'A', "010101111101101"}, {'B', "110101110101110"}, {'C', "011100100100011"}, {'D', "110101101101110"},
    {'E', "111100110100111"}, {'F', "111100110100100"}, {'G', "011100101101011"}, {'H', "101101111101101"},
    {'I', "111010010010111"}, {'J', "001001001101010"}, {'K', "101101110101101"}, {'L', "100100100100111"},
    {'M', "101111111101101"}, {'N', "110101101101101"}, {'O', "010101101101010"}, {'P', "110101110100100"},
    {'Q', "010101101111011"}, {'R', "110101110101101"}, {'S', "011100010001110"}, {'T', "111010010010010"},
    {'U', "101101101101111"}, {'V', "101101101101010"}, {'W', "101101111111101"}, {'X', "101101010101101"},
    {'Y', "101101010010010"}, {'Z', "111001010100111"}, {'0', "111101101101111"}, {'1', "010110010010111"},
    {'2', "110001010100111"}, {'3', "110001010001110"}, {'4', "101101111001001"}, {'5', "111100110001110"},
    {'6', "011100111101111"}, {'7', "111001010010010"}, {'8', "111101111101111"}, {'9', "111101111001110"},
    {'-', "000000111000000"}, {'_', "000000000000111"}, {'.', "000000000000010"}};

const char* DotsOf(char sign) {
  if (sign >= 'a' && sign <= 'z') sign = static_cast<char>(sign - 'a' + 'A');
  const auto* found =
      std::find_if(std::begin(kLetters), std::end(kLetters), [&](const Letter& l) { return l.sign == sign; });
  return found == std::end(kLetters) ? nullptr : found->dots;
}

static_assert(kLetterStep == (kColumns + 1) * kDot && kLetterHeight == kRows * kDot);

}  // namespace

void DrawText(const std::string& text, int left, int top, int width, int height, std::uint8_t value,
              std::vector<std::uint8_t>& pixels) {
  for (const char sign : text) {
    const char* dots = DotsOf(sign);
    for (int y = 0; dots && y < kRows * kDot; ++y) {
      for (int x = 0; x < kColumns * kDot; ++x) {
        const bool ink = dots[y / kDot * kColumns + x / kDot] == '1';
        const bool inside = left + x >= 0 && left + x < width && top + y >= 0 && top + y < height;
        if (ink && inside)
          pixels[static_cast<std::size_t>(top + y) * static_cast<std::size_t>(width) +
                 static_cast<std::size_t>(left + x)] = value;
      }
    }
    left += kLetterStep;
  }
}

}  // namespace fusion

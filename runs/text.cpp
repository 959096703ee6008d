#include "runs/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace fusion {

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

std::string Formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

std::string MoveInWords(double right, double down) {
  std::vector<std::string> ways;
  const auto add = [&ways](double by, const char* backward, const char* forward) {
    if (by == 0.0) return;
    ways.push_back(Formatted("%.3g", std::fabs(by)) + (std::fabs(by) == 1.0 ? " pan pixel " : " pan pixels ") +
                   (by < 0.0 ? backward : forward));
  };
  add(right, "to the left", "to the right");
  add(down, "up", "down");
  return Join(ways);
}

std::string Join(const std::vector<std::string>& parts, const std::string& last) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += i + 1 == parts.size() ? last : ", ";
    text += parts[i];
  }
  return text;
}

std::string ShellWords(const std::vector<std::string>& words) {
  static constexpr char kPlain[] = "-_./,:=+%@";
  const auto isPlain = [](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::strchr(kPlain, c) != nullptr;
  };
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) {
      line += word;
      continue;
    }
    line += '\'';
    for (const char c : word) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
    line += '\'';
  }
  return line;
}

}  // namespace fusion

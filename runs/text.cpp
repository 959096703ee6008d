#include "runs/text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace fusion {
namespace {

/// Words side by side, as quote gives each that has other characters than those that mean nothing to a shell.
template <typename Quote>
std::string Quoted(const std::vector<std::string>& words, const std::string& morePlain, const Quote& quote) {
  const std::string plain = "-_./,:=+%@" + morePlain;
  const auto isPlain = [&plain](unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           plain.find(static_cast<char>(c)) != std::string::npos;
  };
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    line += !word.empty() && std::all_of(word.begin(), word.end(), isPlain) ? word : quote(word);
  }
  return line;
}

}  // namespace

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

std::string NumberOrDash(const char* format, double value) {
  return std::isnan(value) ? "-" : Formatted(format, value);
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
  return Quoted(words, "", [](const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + '\'';
  });
}

std::vector<std::string> UnquotedWords(const std::string& line) {
  std::vector<std::string> words;
  bool within = false;
  bool begun = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (!within && line[i] == ' ') {
      begun = false;
      continue;
    }
    if (!begun) words.emplace_back();
    begun = true;
    if (line[i] == '\'') {
      within = !within;
    } else {
      if (!within && line[i] == '\\' && i + 1 < line.size()) ++i;
      words.back() += line[i];
    }
  }
  return words;
}

std::string CommandLine(const std::vector<std::string>& words) {
#ifdef _WIN32
  return Quoted(words, "\\", [](const std::string& word) {
    // Backslashes mean something before a quotation mark alone.
    std::string quoted = "\"";
    std::size_t slashes = 0;
    for (const char c : word) {
      if (c == '"') quoted += std::string(slashes + 1, '\\');
      slashes = c == '\\' ? slashes + 1 : 0;
      quoted += c;
    }
    return quoted + std::string(slashes, '\\') + '"';
  });
#else
  return ShellWords(words);
#endif
}

}  // namespace fusion

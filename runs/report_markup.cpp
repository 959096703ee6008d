#include "runs/report_markup.h"

#include <cmath>
#include <cstdint>

#include "runs/text.h"

namespace fusion {
namespace {

/// The length of the sign that begins at a place of a text in UTF-8; 0 where none does.
std::size_t SignAt(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(at);
  if (first < 0x80U) return 1;
  std::size_t length = 0;
  if (first >= 0xC2U && first <= 0xDFU) length = 2;
  if (first >= 0xE0U && first <= 0xEFU) length = 3;
  if (first >= 0xF0U && first <= 0xF4U) length = 4;
  if (length == 0 || at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0U) != 0x80U) return 0;
  }
  // Longer than needed, halves of a pair, beyond the last.
  const unsigned second = byte(at + 1);
  const bool wrong = (first == 0xE0U && second < 0xA0U) || (first == 0xEDU && second > 0x9FU) ||
                     (first == 0xF0U && second < 0x90U) || (first == 0xF4U && second > 0x8FU);
  return wrong ? 0 : length;
}

}  // namespace

std::string Escaped(const std::string& text) {
  constexpr char kUnknown[] = "\xEF\xBF\xBD";
  std::string markup;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = SignAt(text, at);
    const char c = text[at];
    const bool isControl = length == 1 && static_cast<unsigned char>(c) < 0x20U && c != '\n' && c != '\t';
    if (length == 0 || isControl || c == 0x7F) {
      markup += kUnknown;
    } else if (c == '&') {
      markup += "&amp;";
    } else if (c == '<') {
      markup += "&lt;";
    } else if (c == '>') {
      markup += "&gt;";
    } else if (c == '"') {
      markup += "&quot;";
    } else if (c == '\'') {
      markup += "&#39;";
    } else {
      markup.append(text, at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return markup;
}

std::string Element(const std::string& name, const Attributes& attributes, const std::string& content) {
  std::string markup = "<" + name;
  for (const auto& [attribute, text] : attributes) {
    markup += ' ' + attribute;
    markup += "=\"" + Escaped(text) + '"';
  }
  return markup + '>' + content + "</" + name + '>';
}

std::string Element(const std::string& name, const std::string& content) { return Element(name, {}, content); }

std::string TextElement(const std::string& name, const std::string& text, const Attributes& attributes) {
  return Element(name, attributes, Escaped(text));
}

std::string Table(const std::string& caption, const std::vector<std::string>& head,
                  const std::vector<std::vector<Cell>>& rows) {
  std::string heads;
  for (std::size_t i = 0; i < head.size(); ++i) {
    // Over numbers as they stand.
    const bool isNumber = !rows.empty() && i < rows[0].size() && rows[0][i].look.starts_with('n');
    heads += TextElement("th", head[i],
                         isNumber ? Attributes{{"scope", "col"}, {"class", "n"}} : Attributes{{"scope", "col"}});
  }
  std::string body;
  for (const std::vector<Cell>& row : rows) {
    std::string cells;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const Attributes look = row[i].look.empty() ? Attributes() : Attributes{{"class", row[i].look}};
      cells += i == 0 ? Element("th", {{"scope", "row"}}, row[i].content) : Element("td", look, row[i].content);
    }
    body += Element("tr", cells) + '\n';
  }
  std::string table = TextElement("caption", caption);
  if (!head.empty()) table += Element("thead", Element("tr", heads));
  table += '\n' + Element("tbody", '\n' + body);
  // Wide ones scroll by themselves; whoever has no mouse reaches them, too.
  return Element("div", {{"class", "scroll"}, {"tabindex", "0"}, {"role", "region"}, {"aria-label", caption}},
                 Element("table", table)) +
         '\n';
}

std::string NumberText(double value, int digits) {
  if (std::isnan(value)) return "\xE2\x80\x93";
  if (std::isinf(value)) return value > 0.0 ? "\xE2\x88\x9E" : "\xE2\x88\x92\xE2\x88\x9E";
  return Formatted(("%." + std::to_string(digits) + "g").c_str(), value);
}

Cell NumberCell(double value, int digits) { return {NumberText(value, digits), "n"}; }

std::string Fill(const std::string& pattern, const std::vector<std::pair<std::string, std::string>>& values) {
  std::string filled;
  std::size_t at = 0;
  for (std::size_t open = pattern.find("{{"); open != std::string::npos; open = pattern.find("{{", at)) {
    const std::size_t close = pattern.find("}}", open);
    filled.append(pattern, at, open - at);
    const std::string name = pattern.substr(open + 2, close - open - 2);
    for (const auto& [known, text] : values) {
      if (known == name) filled += text;
    }
    at = close + 2;
  }
  return filled + pattern.substr(at);
}

std::string Base64(const std::string& bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8U | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      const bool isRest = at + i > bytes.size();
      text += isRest ? '=' : kDigits[group >> (18U - 6U * i) & 0x3FU];
    }
  }
  return text;
}

}  // namespace fusion

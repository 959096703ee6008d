#pragma once

#include <string>
#include <utility>
#include <vector>

namespace fusion {

// Pieces of HTML. What comes from files and users is text and becomes markup here alone.

/// A text as markup. Bytes that are no UTF-8, and control characters, become U+FFFD.
std::string Escaped(const std::string& text);

using Attributes = std::vector<std::pair<std::string, std::string>>;

/// @param attributes names and texts; @param content markup
std::string Element(const std::string& name, const Attributes& attributes, const std::string& content);
std::string Element(const std::string& name, const std::string& content);
/// An element with a text in it.
std::string TextElement(const std::string& name, const std::string& text, const Attributes& attributes = {});

/// A cell of a table: markup.
struct Cell {
  Cell(std::string markup, std::string kind = "") : content(std::move(markup)), look(std::move(kind)) {}

  std::string content;
  std::string look;  ///< a class; empty: none
};

/// Rows whose first cell is their head, under a row of heads.
/// @param caption, head texts
std::string Table(const std::string& caption, const std::vector<std::string>& head,
                  const std::vector<std::vector<Cell>>& rows);

/// A number with so many digits that count, as a reader expects it.
std::string NumberText(double value, int digits = 5);
/// As a cell.
Cell NumberCell(double value, int digits = 5);

/// Puts a text in the place of {{name}} wherever the template has it.
std::string Fill(const std::string& pattern, const std::vector<std::pair<std::string, std::string>>& values);

/// Bytes as text (RFC 4648).
std::string Base64(const std::string& bytes);

}  // namespace fusion

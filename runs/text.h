#pragma once

#include <string>
#include <vector>

namespace fusion {

/// Plain letters in lower case, whatever the locale.
std::string Lower(std::string text);

/// A number as printf shows it.
std::string Formatted(const char* format, double value);

/// A number as a table shows it: "-" in the place of none.
std::string NumberOrDash(const char* format, double value);

/// Where a move of some pan pixels to the right and down leads: "0.5 pan pixels to the left and 1 pan pixel down";
/// empty for none.
std::string MoveInWords(double right, double down);

/// "a, b and c", with the last separator as given.
std::string Join(const std::vector<std::string>& parts, const std::string& last = " and ");

/// "a b 'c d'": words as a POSIX shell takes them apart again, the same on every system.
std::string ShellWords(const std::vector<std::string>& words);

/// The words of what ShellWords made, or of what else says to be it.
std::vector<std::string> UnquotedWords(const std::string& line);

/// Words as the shell of this system takes them apart again: in single quotation marks or, for cmd and PowerShell, in
/// double ones.
std::string CommandLine(const std::vector<std::string>& words);

}  // namespace fusion

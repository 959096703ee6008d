#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace app {

/// What the parser knows of an option or of a positional argument.
struct OptionText {
  std::string name;                ///< "--co", or "PAN" of a positional one
  std::string shortName;           ///< "-o"; empty for most
  std::string shape;               ///< of its value: "NAME=VALUE"; empty for a switch
  std::vector<std::string> words;  ///< that the value may be; empty where it is free
  std::string description;
  std::string group;
  bool isFile = false;  ///< the value is the name of a file
};

/// A command as its help, its manual page and the completions of the shells tell it: all of them come from here.
struct CommandText {
  std::string name;  ///< empty for the program itself
  std::string description;
  std::vector<OptionText> arguments;  ///< positional
  std::vector<OptionText> options;    ///< in the order of their groups

  /// "fusion fuse PAN MS... OUT [OPTIONS]"
  std::string Usage() const;
};

CommandText TextOf(const CLI::App& command);
/// Those of the program's commands, in its order.
std::vector<CommandText> CommandsOf(const CLI::App& program);

/// Some lines with a text in them, each at most so wide, all but the first behind as many spaces.
std::string Wrapped(const std::string& text, std::size_t indent, std::size_t width = 80);

}  // namespace app

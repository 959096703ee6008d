#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace app {

/// Help of at most 80 columns: the program's on one screen, a command's with its options in groups.
class HelpText : public CLI::FormatterBase {
 public:
  std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
};

}  // namespace app

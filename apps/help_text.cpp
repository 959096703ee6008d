#include "apps/help_text.h"

#include <sstream>

#include "apps/option_reference.h"

namespace app {
namespace {

/// A name in a column of its own, and what it is.
void AddEntry(std::ostream& help, const std::string& name, const std::string& text, std::size_t column) {
  help << "  " << name;
  if (name.size() + 4 > column) {
    help << '\n' << std::string(column, ' ');
  } else {
    help << std::string(column - name.size() - 2, ' ');
  }
  help << Wrapped(text, column) << '\n';
}

std::string NameOf(const OptionText& option) {
  std::string name = option.shortName.empty() ? option.name : option.shortName + "," + option.name;
  if (!option.shape.empty()) name += ' ' + option.shape;
  return name;
}

void AddOptions(std::ostream& help, const CommandText& command, std::size_t column) {
  std::string group;
  for (const OptionText& option : command.options) {
    if (option.group != group) help << '\n' << (group = option.group) << ":\n";
    AddEntry(help, NameOf(option), option.description, column);
  }
}

}  // namespace

std::string HelpText::make_help(const CLI::App* command, std::string /*name*/, CLI::AppFormatMode /*mode*/) const {
  const CommandText text = TextOf(*command);
  std::ostringstream help;
  help << Wrapped(text.description, 0) << "\n\nUsage: " << text.Usage() << '\n';
  if (text.name.empty()) {
    help << '\n';
    for (const CommandText& sub : CommandsOf(*command)) AddEntry(help, sub.name, sub.description, 14);
    help << '\n';
    for (const OptionText& option : text.options) AddEntry(help, NameOf(option), option.description, 14);
    help << "\nExample:\n  $ fusion fuse pan.tif ms.tif fused.tif\n";
    return help.str();
  }
  constexpr std::size_t kColumn = 26;
  if (!text.arguments.empty()) help << '\n';
  for (const OptionText& argument : text.arguments) AddEntry(help, argument.name, argument.description, kColumn);
  AddOptions(help, text, kColumn);
  const std::string footer = command->get_footer();
  if (!footer.empty()) help << '\n' << footer << '\n';
  return help.str();
}

}  // namespace app

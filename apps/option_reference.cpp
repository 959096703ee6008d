#include "apps/option_reference.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "platform/algorithm/string_param_parser.h"
#include "runs/methods.h"

namespace app {
namespace {

/// What stands for a value of some kind: words that the shape itself lists (auto|on|off), or those of the kind.
std::vector<std::string> WordsOf(const std::string& shape) {
  std::vector<std::string> words;
  if (shape.starts_with("METHOD")) {
    for (const fusion::Method& method : fusion::Methods()) words.emplace_back(method.name);
    words.emplace_back(shape == "METHOD" ? "best" : "all");
  } else if (shape == "TYPE") {
    words = {"uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  } else if (shape == "FORMAT") {
    for (const auto& format : platform::RasterFormats()) words.emplace_back(format.driver);
  } else if (shape.find('|') != std::string::npos) {
    std::istringstream parts(shape);
    for (std::string word; std::getline(parts, word, '|');) {
      // Others stand for what is free: N|all.
      if (std::any_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; }) && word != "WxH") {
        words.push_back(word);
      } else if (shape.starts_with("LZW")) {
        words.push_back(word);
      }
    }
  }
  return words;
}

OptionText TextOf(const CLI::Option& option) {
  OptionText text;
  const bool positional = option.get_positional();
  text.name = positional ? option.get_name(true) : "--" + option.get_lnames().front();
  if (!option.get_snames().empty()) text.shortName = "-" + option.get_snames().front();
  if (option.get_items_expected_max() > 0 && !(positional && option.get_type_name() == "TEXT"))
    text.shape = option.get_type_name();
  text.words = WordsOf(text.shape);
  text.description = option.get_description();
  const std::string preset = option.get_default_str();
  if (!preset.empty() && !positional) text.description += " (default: " + preset + ")";
  text.group = option.get_group();
  if (positional && !text.words.empty()) text.shape.clear();
  text.isFile = positional || text.shape == "FILE" || text.shape == "FOLDER" || text.shape == "PATTERN";
  return text;
}

}  // namespace

CommandText TextOf(const CLI::App& command) {
  CommandText text;
  if (command.get_parent()) text.name = command.get_name();
  text.description = command.get_description();
  std::vector<std::string> groups;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) {
      text.arguments.push_back(TextOf(*option));
    } else if (std::find(groups.begin(), groups.end(), option->get_group()) == groups.end()) {
      groups.push_back(option->get_group());
    }
  }
  // What every command has stands at the end.
  std::stable_partition(groups.begin(), groups.end(), [](const std::string& group) { return group != "Options"; });
  for (const std::string& group : groups) {
    for (const CLI::Option* option : command.get_options()) {
      if (!option->get_positional() && option->get_group() == group) text.options.push_back(TextOf(*option));
    }
  }
  return text;
}

std::vector<CommandText> CommandsOf(const CLI::App& program) {
  std::vector<CommandText> commands;
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(TextOf(*command));
  }
  return commands;
}

std::string CommandText::Usage() const {
  std::string line = "fusion";
  if (name.empty()) return line + " COMMAND [OPTIONS]";
  line += ' ' + name;
  for (const OptionText& argument : arguments) line += ' ' + argument.name;
  return options.empty() ? line : line + " [OPTIONS]";
}

std::string Wrapped(const std::string& text, std::size_t indent, std::size_t width) {
  std::istringstream words(text);
  std::string lines;
  std::size_t column = indent;
  for (std::string word; words >> word;) {
    const bool first = column == indent;
    if (!first && column + 1 + word.size() > width) {
      lines += '\n' + std::string(indent, ' ');
      column = indent;
    } else if (!first) {
      lines += ' ';
      ++column;
    }
    lines += word;
    column += word.size();
  }
  return lines;
}

}  // namespace app

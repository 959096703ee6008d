#include "apps/completion.h"

#include <sstream>

#include "runs/run_failure.h"

namespace app {
namespace {

std::string Words(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : " ") + word;
  return list;
}

std::string OptionNames(const CommandText& command) {
  std::vector<std::string> names;
  for (const OptionText& option : command.options) names.push_back(option.name);
  return Words(names);
}

std::string CommandNames(const std::vector<CommandText>& commands) {
  std::vector<std::string> names;
  for (const CommandText& command : commands) names.push_back(command.name);
  return Words(names);
}

/// A text between single quotes of a shell, with some characters behind a backslash.
std::string Quoted(const std::string& text, const std::string& special = "") {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
      continue;
    }
    if (special.find(c) != std::string::npos) quoted += '\\';
    quoted += c;
  }
  return quoted + '\'';
}

std::string Bash(const std::vector<CommandText>& commands) {
  std::ostringstream script;
  script << R"(# bash completion of fusion
_fusion() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]} words=
  # A word break stands between an option and its value.
  if [ "$cur" = "=" ]; then
    cur=
  elif [ "$prev" = "=" ]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}
  fi
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W ")"
         << CommandNames(commands) << R"( --help --version" -- "$cur"))
    return
  fi
  case "$command $prev" in
)";
  for (const CommandText& command : commands) {
    for (const OptionText& option : command.options) {
      if (option.words.empty()) continue;
      script << "    " << Quoted(command.name + " " + option.name) << ") words=" << Quoted(Words(option.words))
             << " ;;\n";
    }
  }
  script << R"(  esac
  if [ -z "$words" ] && [ "${cur:0:1}" = - ]; then
    case "$command" in
)";
  for (const CommandText& command : commands) {
    script << "      " << command.name << ") words=" << Quoted(OptionNames(command)) << " ;;\n";
  }
  script << R"(    esac
  elif [ -z "$words" ]; then
    case "$command" in
)";
  for (const CommandText& command : commands) {
    if (command.arguments.empty() || command.arguments.front().words.empty()) continue;
    script << "      " << command.name << ") words=" << Quoted(Words(command.arguments.front().words)) << " ;;\n";
  }
  script << R"(    esac
  fi
  if [ -n "$words" ]; then
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
  fi
}
complete -o filenames -o bashdefault -o default -F _fusion fusion
)";
  return script.str();
}

std::string Zsh(const std::vector<CommandText>& commands) {
  std::ostringstream script;
  script << "#compdef fusion\n\n_fusion() {\n  local -a commands\n  commands=(\n";
  for (const CommandText& command : commands) {
    script << "    " << Quoted(command.name + ":" + command.description) << '\n';
  }
  script << "  )\n  if (( CURRENT == 2 )); then\n    _describe command commands\n    return\n  fi\n"
            "  local command=$words[2]\n  shift words\n  (( CURRENT-- ))\n  case $command in\n";
  for (const CommandText& command : commands) {
    script << "    " << command.name << ")\n      _arguments \\\n";
    for (const OptionText& option : command.options) {
      std::string value;
      if (!option.words.empty()) {
        value = ":value:(" + Words(option.words) + ")";
      } else if (!option.shape.empty()) {
        value = option.isFile ? ":file:_files" : ":value:";
      }
      const std::string text = Quoted(option.description, "[]:\\");
      script << "        " << Quoted("*" + option.name + (option.shape.empty() ? "" : "=")) << "'['" << text << "']'"
             << Quoted(value) << " \\\n";
    }
    const bool words = !command.arguments.empty() && !command.arguments.front().words.empty();
    script << "        " << Quoted(words ? "*:word:(" + Words(command.arguments.front().words) + ")" : "*:file:_files")
           << "\n      ;;\n";
  }
  script << "  esac\n}\n\n_fusion \"$@\"\n";
  return script.str();
}

std::string Fish(const std::vector<CommandText>& commands) {
  std::ostringstream script;
  script << "# fish completion of fusion\n";
  for (const CommandText& command : commands) {
    script << "complete -c fusion -f -n __fish_use_subcommand -a " << command.name << " -d "
           << Quoted(command.description, "\\") << '\n';
    const std::string seen = "complete -c fusion -n '__fish_seen_subcommand_from " + command.name + "'";
    for (const OptionText& option : command.options) {
      script << seen << " -l " << option.name.substr(2);
      if (!option.words.empty()) {
        script << " -x -a " << Quoted(Words(option.words));
      } else if (!option.shape.empty()) {
        script << (option.isFile ? " -r -F" : " -x");
      }
      script << " -d " << Quoted(option.description, "\\") << '\n';
    }
    if (!command.arguments.empty() && !command.arguments.front().words.empty()) {
      script << seen << " -f -a " << Quoted(Words(command.arguments.front().words)) << '\n';
    }
  }
  return script.str();
}

/// A text as roff takes it literally.
std::string Roff(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      // A dot or an apostrophe at the start of a line would be a request.
      if (escaped.empty() && (c == '.' || c == '\'')) escaped += "\\&";
      escaped += c;
    }
  }
  return escaped;
}

void AddOptions(std::ostream& page, const std::vector<OptionText>& options) {
  for (const OptionText& option : options) {
    page << ".TP\n.B " << Roff(option.shortName.empty() ? option.name : option.shortName + ", " + option.name);
    if (!option.shape.empty()) page << "\\fR \\fI" << Roff(option.shape) << "\\fR";
    page << '\n' << Roff(option.description) << '\n';
  }
}

}  // namespace

std::string Completion(const std::string& shell, const std::vector<CommandText>& commands) {
  if (shell == "bash") return Bash(commands);
  if (shell == "zsh") return Zsh(commands);
  if (shell == "fish") return Fish(commands);
  throw fusion::UsageError("There are completions for bash, zsh and fish, not for '" + shell + "'.");
}

std::string ManualPage(const CommandText& program, const std::vector<CommandText>& commands,
                       const std::string& version) {
  std::ostringstream page;
  page << R"(.TH FUSION 1 "" "fusion )" << version << "\" \"User Commands\"\n.SH NAME\nfusion \\- "
       << "pan\\-sharpening of satellite and aerial images\n.SH SYNOPSIS\n";
  for (const CommandText& command : commands) page << ".B " << Roff(command.Usage()) << "\n.br\n";
  page << ".SH DESCRIPTION\n"
       << Roff(
              "Takes a high-resolution panchromatic raster and a coarser multispectral raster of the same ground and "
              "writes a multispectral raster with the detail of the first. Bands are counted from 1, pixels from 0. "
              "Lists are one argument, separated by commas. Standard output carries data and JSON only; progress, "
              "notices and errors go to standard error.")
       << '\n';
  for (const CommandText& command : commands) {
    page << ".SH FUSION " << Roff(command.name) << '\n' << Roff(command.description + ".") << '\n';
    AddOptions(page, command.arguments);
    std::string group;
    for (const OptionText& option : command.options) {
      if (option.group != group) page << ".SS " << Roff(group = option.group) << '\n';
      AddOptions(page, {option});
    }
  }
  page << ".SH OPTIONS\n";
  AddOptions(page, program.options);
  page << ".SH EXAMPLES\n.nf\n"
       << Roff("fusion fuse pan.tif ms.tif fused.tif") << '\n'
       << Roff("fusion fuse pan.tif blue.tif green.tif red.tif nir.tif -o fused.tif") << '\n'
       << Roff("fusion assess pan.tif ms.tif") << "\n.fi\n.SH EXIT STATUS\n"
       << Roff("0 success; 1 the run failed; 2 wrong usage; 130 cancelled with Ctrl-C; 143, 129 cancelled by a signal.")
       << "\n.SH ENVIRONMENT\n"
       << Roff("FUSION_THREADS, OMP_NUM_THREADS: threads to compute on. SOURCE_DATE_EPOCH: the time that outputs tell.")
       << "\n.SH SEE ALSO\n.BR gdalinfo (1),\n.BR gdal_pansharpen (1)\n";
  return page.str();
}

}  // namespace app

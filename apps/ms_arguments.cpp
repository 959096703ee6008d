#include "apps/ms_arguments.h"

#include <CLI/CLI.hpp>

namespace app {

void AddMsPatterns(CLI::App& command, std::vector<std::string>& patterns) {
  command
      .add_option("--ms", patterns,
                  "Multispectral file, or a pattern of several in their natural order ('LC08*_B[2-5].TIF')")
      ->type_name("PATTERN")
      ->allow_extra_args(false);
}

void AddFiles(CLI::App& command, const std::string& name, std::vector<std::string>& files,
              const std::string& description) {
  command.add_option(name, files, description)->type_name("FILE")->expected(0, CLI::detail::expected_max_vector_size);
}

void KeepStandardInput(std::string& file) {
  if (file == "/vsistdin/") file += "?buffer_limit=-1";
}

void SetMs(std::vector<std::string> files, std::string& ms, std::vector<std::string>& more) {
  if (files.empty()) throw CLI::RequiredError("MS");
  KeepStandardInput(files.front());
  ms = files.front();
  more.assign(files.begin() + 1, files.end());
}

void SortPair(std::string& pan, const std::vector<std::string>& files, const std::vector<std::string>& patterns,
              std::string& ms, std::vector<std::string>& more) {
  if (pan.empty()) throw CLI::RequiredError("PAN");
  if (!patterns.empty() && !files.empty()) throw CLI::ExtrasError(std::vector<std::string>{files.front()});
  KeepStandardInput(pan);
  SetMs(patterns.empty() ? files : patterns, ms, more);
}

}  // namespace app

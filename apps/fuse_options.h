#pragma once

#include <functional>
#include <string>
#include <vector>

#include "runs/fuse.h"

namespace CLI {
class App;
}

namespace app {

/// The `fuse` command's arguments: what is to be done, and how it is told.
struct FuseOptions : fusion::FuseRequest {
  bool quiet = false;
  bool json = false;
  std::vector<std::string> files = {};     ///< behind PAN
  std::vector<std::string> patterns = {};  ///< of --ms
  std::string repeat = {};                 ///< an output whose command is to be printed, and nothing else done
};

/// Declares an option that takes a text of a certain shape in one argument.
void AddText(CLI::App& command, const std::string& name, const std::string& description, const char* shape,
             const std::function<void(const std::string& text)>& take);
/// Declares an option that takes a list, separated by commas, in one argument: of whole numbers, or of words.
void AddList(CLI::App& command, const std::string& name, std::vector<int>& values, const std::string& description);
void AddList(CLI::App& command, const std::string& name, std::vector<std::string>& words,
             const std::string& description);

/// What the picture is made by and of: pixels, method and guards.
void AddSceneOptions(CLI::App& command, fusion::FuseRequest& options);
/// --rows and --survey.
void AddRows(CLI::App& command, fusion::FuseRequest& options, const std::string& description);
/// --allow-network and --confined.
void AddReferences(CLI::App& command, bool& allowNetwork, bool& confined);
/// Declares the option for the threads of a run.
void AddThreads(CLI::App& command, std::string& threads);

/// Declares the options on a subcommand.
void AddFuseOptions(CLI::App& command, FuseOptions& options);

}  // namespace app

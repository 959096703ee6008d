#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace app {

/// --ms, for a multispectral image that is named, or matched, by an option.
void AddMsPatterns(CLI::App& command, std::vector<std::string>& patterns);
/// Files behind others, as many as there are.
void AddFiles(CLI::App& command, const std::string& name, std::vector<std::string>& files,
              const std::string& description);

/// Runs open their inputs more than once, and standard input must not be gone by then.
void KeepStandardInput(std::string& file);
/// Files and patterns as those of a request.
void SetMs(std::vector<std::string> files, std::string& ms, std::vector<std::string>& more);
/// A pan and a multispectral image, which is either files behind pan or patterns.
void SortPair(std::string& pan, const std::vector<std::string>& files, const std::vector<std::string>& patterns,
              std::string& ms, std::vector<std::string>& more);

}  // namespace app

#include "apps/short_options.h"

#include <algorithm>
#include <cstdlib>

#include "runs/run_failure.h"
#include "runs/text.h"

namespace app {
namespace {

std::string Resampling(const std::string& value) {
  const std::string word = fusion::Lower(value);
  if (word == "near" || word == "nearest") return "nearest";
  if (word == "cubic" || word == "bicubic") return "bicubic";
  if (word == "bilinear" || word == "auto") return word;
  throw fusion::UsageError("-r " + value + ": known are nearest, bilinear and cubic.");
}

std::string Type(const std::string& value) {
  const std::string word = fusion::Lower(value);
  return word == "byte" ? "uint8" : word;
}

std::string Threads(const std::string& value) { return fusion::Lower(value) == "all_cpus" ? "all" : value; }

/// Outputs have one mark for what is missing. Who wants it finds it in the inputs, too.
std::string AssignedNoData(const std::string& value) {
  char* end = nullptr;
  if (!value.empty() && std::strtod(value.c_str(), &end) == 0.0 && *end == '\0') return value;
  throw fusion::UsageError("-a_nodata " + value +
                           ": outputs mark pixels without data by 0 and nothing else; --nodata " + value +
                           " says that the inputs mark them so.");
}

}  // namespace

const std::vector<ShortOption>& ShortOptions() {
  static const std::vector<ShortOption> options = {
      {"-r", "--resample", 1, Resampling},
      {"-of", "--format", 1, nullptr},
      {"-co", "--co", 1, nullptr},
      {"-b", "--bands", 1, nullptr},
      {"-ot", "--type", 1, Type},
      {"-nodata", "--nodata", 1, nullptr},
      {"-a_nodata", "--nodata", 1, AssignedNoData},
      {"-srcwin", "--window", 4, nullptr},
      {"-cutline", "--aoi", 1, nullptr},
      {"-threads", "--threads", 1, Threads},
      {"-o", "--out", 1, nullptr},
      {"-q", "--quiet", 0, nullptr},
      {"-quiet", "--quiet", 0, nullptr},
      {"-json", "--json", 0, nullptr},
      {"-overwrite", "--overwrite", 0, nullptr},
      {"-help", "--help", 0, nullptr},
  };
  return options;
}

std::vector<std::string> WithLongOptions(const std::vector<std::string>& arguments,
                                         const std::vector<std::string>& known) {
  std::vector<std::string> result;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--") {
      result.insert(result.end(), arguments.begin() + static_cast<std::ptrdiff_t>(i), arguments.end());
      break;
    }
    const auto& options = ShortOptions();
    const auto found = std::find_if(options.begin(), options.end(), [&](const ShortOption& option) {
      return argument == option.name && std::find(known.begin(), known.end(), option.longName) != known.end();
    });
    if (found == options.end()) {
      result.push_back(argument);
      continue;
    }
    const std::string name = found->longName;
    if (found->values == 0) {
      result.push_back(name);
      continue;
    }
    std::string value;
    for (int taken = 0; taken < found->values; ++taken) {
      if (++i >= arguments.size()) {
        throw fusion::UsageError(argument + (found->values == 1 ? " takes a value." : " takes four numbers."));
      }
      if (taken > 0) value += ',';
      value += found->translate ? found->translate(arguments[i]) : arguments[i];
    }
    result.push_back(name + '=' + value);
  }
  return result;
}

}  // namespace app

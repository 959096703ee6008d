#pragma once

#include <string>
#include <vector>

namespace app {

/// Arguments in the words that users of GDAL's programs know (-of, -co, -b, -ot Byte), in the command's own.
/// @param known the long options of the command, with their dashes
/// Throws RunFailure for a value that has no counterpart.
std::vector<std::string> WithLongOptions(const std::vector<std::string>& arguments,
                                         const std::vector<std::string>& known);

/// A short option and what it stands for.
struct ShortOption {
  const char* name;
  const char* longName;
  int values;                                          ///< how many arguments it takes
  std::string (*translate)(const std::string& value);  ///< null: as it is
};
const std::vector<ShortOption>& ShortOptions();

}  // namespace app

#pragma once

#include <string>
#include <vector>

namespace app {

/// The candidate that begins with the word, or that takes the fewest letters put in, left out or exchanged to make of
/// it; the first of several.
std::string NearestWord(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace app

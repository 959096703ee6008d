#include "apps/nearest_word.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace app {
namespace {

/// Levenshtein, Binary codes capable of correcting deletions, insertions and reversals, 1966.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  // Distances of the present start of a to every start of b.
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t exchanged = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({exchanged, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string NearestWord(const std::string& word, const std::vector<std::string>& candidates) {
  // Half a candidate is an abbreviation of it.
  const auto distance = [&](const std::string& candidate) {
    return candidate.starts_with(word) ? 0 : EditDistance(word, candidate);
  };
  const auto nearer = [&](const std::string& a, const std::string& b) { return distance(a) < distance(b); };
  const auto nearest = std::min_element(candidates.begin(), candidates.end(), nearer);
  return nearest == candidates.end() ? std::string() : *nearest;
}

}  // namespace app

#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace fusion {

/// The middle of the values, of an even number of them the mean of the two in the middle; 0 for none.
inline double Median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2.0;
}

}  // namespace fusion

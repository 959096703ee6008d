#include "framework/row_math.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(RowMath, CombinedRowsAndPlainSumsAreAddedUpInTheirOrder) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> any(-1e6, 1e6);
  const int width = 37;
  for (int count = 0; count <= 9; ++count) {
    std::vector<std::vector<double>> rows(static_cast<std::size_t>(count), std::vector<double>(width));
    std::vector<const double*> pointers;
    std::vector<double> factors;
    for (auto& row : rows) {
      for (double& v : row) v = any(random);
      pointers.push_back(row.data());
      factors.push_back(any(random) / 1e5);
    }
    std::vector<double> out(width, 5.0);
    fusion::CombineRows(pointers.data(), factors.data(), count, width, out.data());
    for (std::size_t i = 0; i < width; ++i) {
      double sum = 0.0;
      for (std::size_t r = 0; r < rows.size(); ++r) sum += factors[r] * rows[r][i];
      ASSERT_EQ(out[i], sum) << count << " rows, place " << i;
    }
    fusion::SumRows(pointers.data(), count, width, out.data());
    for (std::size_t i = 0; i < width; ++i) {
      double sum = 0.0;
      for (const auto& row : rows) sum += row[i];
      ASSERT_EQ(out[i], sum) << count << " rows, place " << i;
    }
  }
}

}  // namespace

#include "framework/row_math.h"

#include <algorithm>

#include "platform/system/multiversion.h"

namespace fusion {

void ClearRow(int n, double* sum) { std::fill_n(sum, n, 0.0); }

FUSION_MULTIVERSION
void AddRow(const double* values, int n, double* sum) {
  for (int i = 0; i < n; ++i) sum[i] += values[i];
}

FUSION_MULTIVERSION
void AddScaledRow(const double* values, double factor, int n, double* sum) {
  for (int i = 0; i < n; ++i) sum[i] += factor * values[i];
}

}  // namespace fusion

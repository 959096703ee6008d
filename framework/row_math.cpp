#include "framework/row_math.h"

#include <algorithm>

#include "platform/system/multiversion.h"

namespace fusion {

void ClearRow(int n, double* sum) { std::fill_n(sum, n, 0.0); }

FUSION_MULTIVERSION(void, AddScaledRow, (const double* values, double factor, int n, double* sum),
                    (values, factor, n, sum)) {
  for (int i = 0; i < n; ++i) sum[i] += factor * values[i];
}

namespace {

FUSION_MULTIVERSION(void, AddFourRows,
                    (const double* const* rows, const double* factors, bool fromZero, int n, double* out),
                    (rows, factors, fromZero, n, out)) {
  const double* r0 = rows[0];
  const double* r1 = rows[1];
  const double* r2 = rows[2];
  const double* r3 = rows[3];
  const double f0 = factors[0];
  const double f1 = factors[1];
  const double f2 = factors[2];
  const double f3 = factors[3];
  for (int i = 0; i < n; ++i) {
    out[i] = (fromZero ? 0.0 : out[i]) + f0 * r0[i] + f1 * r1[i] + f2 * r2[i] + f3 * r3[i];
  }
}

/// @param factorsFrom of a row's number, the factors from that row's on
template <typename FactorsFrom>
void AddUp(const double* const* rows, const FactorsFrom& factorsFrom, int count, int n, double* out) {
  int r = 0;
  for (; r + 4 <= count; r += 4) AddFourRows(rows + r, factorsFrom(r), r == 0, n, out);
  if (r == 0) ClearRow(n, out);
  for (; r < count; ++r) AddScaledRow(rows[r], *factorsFrom(r), n, out);
}

}  // namespace

void SumRows(const double* const* rows, int count, int n, double* out) {
  // A factor of 1 changes no value, and costs no time: the rows are waited for.
  static constexpr double kOnes[] = {1.0, 1.0, 1.0, 1.0};
  AddUp(
      rows, [](int) { return kOnes; }, count, n, out);
}

void CombineRows(const double* const* rows, const double* factors, int count, int n, double* out) {
  AddUp(
      rows, [factors](int r) { return factors + r; }, count, n, out);
}

}  // namespace fusion

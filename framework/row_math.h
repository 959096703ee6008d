#pragma once

namespace fusion {

/// sum[i] = 0
void ClearRow(int n, double* sum);
/// sum[i] += factor * values[i]
void AddScaledRow(const double* values, double factor, int n, double* sum);

/// out[i] = the sum of rows[r][i] over count rows, added up from 0 in their order.
void SumRows(const double* const* rows, int count, int n, double* out);
/// out[i] = the sum of factors[r] * rows[r][i] over count rows, added up from 0 in their order.
void CombineRows(const double* const* rows, const double* factors, int count, int n, double* out);

}  // namespace fusion

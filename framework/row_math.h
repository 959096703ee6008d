#pragma once

namespace fusion {

/// sum[i] = 0
void ClearRow(int n, double* sum);
/// sum[i] += values[i]
void AddRow(const double* values, int n, double* sum);
/// sum[i] += factor * values[i]
void AddScaledRow(const double* values, double factor, int n, double* sum);

}  // namespace fusion

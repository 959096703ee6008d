#pragma once

#include <cstdint>
#include <vector>

#include "platform/validity/no_data_rule.h"

namespace fusion {

// Sums over the rows of the metrics. Every sum is made of kLanes that run side by side, pixel i in lane i modulo
// kLanes, so that they vectorise although additions may not be reordered. What a row holds is added to the caller's
// totals.

/// Sets valid to 0 where the value is no-data. The values may be those of another band; everywhere else they are the
/// band's own samples.
void DropNoData(const double* values, int n, const platform::NoDataRule& test, double* valid);

/// Sets valid to 0 where the value is no-data, and to 1 elsewhere.
void MarkValid(const double* values, int n, const platform::NoDataRule& test, double* valid);
/// Likewise where one of three values at a place is no-data.
void MarkValid(const double* first, const double* second, const double* third, int n, const platform::NoDataRule& test,
               double* valid);

/// Widens a range by the values whose partner in tested is valid. A NaN widens nothing.
void WidenRow(const double* values, const double* tested, int n, const platform::NoDataRule& test, double& minimum,
              double& maximum);

/// The bin of each value in a histogram of 256 between minimum and maximum: the first for an undefined or negative one,
/// the last for one beyond the range; -1 for no-data.
void BinRow(const double* values, int n, const platform::NoDataRule& test, double minimum, double maximum,
            std::int32_t* bins);

/// Adds the valid values and their number.
void SumRow(const double* values, int n, const platform::NoDataRule& test, double& sum, std::int64_t& count);

/// The statistics of a band pair, sums over the pixels.
struct PairSums {
  double fusedSquares = 0.0;  ///< squared deviations from the mean, of the valid values
  double msSquares = 0.0;
  double products = 0.0;    ///< of both deviations; like the rest over the pixels where both are valid
  double errors = 0.0;      ///< squared differences
  double powers = 0.0;      ///< squared fused values
  double deviations = 0.0;  ///< |ms - fused| / |ms| where ms is not 0
  double pairs = 0.0;
  double nonZero = 0.0;
};
/// @param fusedValid, msValid 1, or 0 for no-data
PairSums SumPairs(const double* fused, const double* ms, const double* fusedValid, const double* msValid, int n,
                  double fusedMean, double msMean);

/// Differences of a row with its right neighbours and the row below.
struct GradientSums {
  double dx2 = 0.0;
  double dy2 = 0.0;
  double gradients = 0.0;  ///< square roots of the sum of both
  double count = 0.0;
};
/// @param row n + 1 values
/// @param valid for each pixel whether it counts, 1 or 0
GradientSums SumGradients(const double* row, const double* below, const double* valid, int n);

struct DifferenceSums {
  double absolute = 0.0;
  double squares = 0.0;
  double count = 0.0;
};
DifferenceSums SumDifferences(const double* fused, const double* ms, const double* valid, int n);

/// Widens a range by the values that count, and gives their number.
/// @param valid for each value whether it counts, 1 or 0
std::int64_t WidenValid(const double* values, const double* valid, int n, double& minimum, double& maximum);

}  // namespace fusion

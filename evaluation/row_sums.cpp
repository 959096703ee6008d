#include "evaluation/row_sums.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "platform/system/multiversion.h"

namespace fusion {
namespace {

// Few enough to be added up once a row, enough for the loops over them to pay for their calls.
constexpr int kLanes = 128;

/// The lanes of Count sums.
template <std::size_t Count>
class Lanes {
 public:
  double* operator[](std::size_t i) { return m_values[i]; }
  double Total(std::size_t i) const { return std::accumulate(m_values[i], m_values[i] + kLanes, 0.0); }

 private:
  double m_values[Count][kLanes] = {};
};

/// Calls work(first, count) for the pieces of a row that fill the lanes once.
template <typename Work>
void ForPieces(int n, const Work& work) {
  for (int first = 0; first < n; first += kLanes) work(first, std::min(kLanes, n - first));
}

/// NoDataRule for samples as they were read, without a branch that depends on one.
struct SampleTest {
  explicit SampleTest(const platform::NoDataRule& test)
      : noData(test.AsRead()), isNan(test.declared && std::isnan(test.value)), asFloat(test.asFloat) {}
  bool IsValid(double v) const { return isNan ? v == v : v != noData; }
  /// A value of any image as the band would hold it.
  double Held(double v) const { return asFloat ? static_cast<double>(static_cast<float>(v)) : v; }

  double noData;  ///< NaN, which equals nothing, where there is none
  bool isNan;
  bool asFloat;
};

FUSION_MULTIVERSION(void, TestPiece, (const double* values, int n, SampleTest test, double* valid),
                    (values, n, test, valid)) {
  for (int i = 0; i < n; ++i) valid[i] = test.IsValid(test.Held(values[i])) ? valid[i] : 0.0;
}

/// MarkPiece for no-data that is not a number, and nothing else.
FUSION_MULTIVERSION(void, MarkNumbers,
                    (const double* first, const double* second, const double* third, int n, double* __restrict valid),
                    (first, second, third, n, valid)) {
  for (int i = 0; i < n; ++i) {
    const bool counts = (first[i] == first[i]) & (second[i] == second[i]) & (third[i] == third[i]);
    valid[i] = counts ? 1.0 : 0.0;
  }
}

FUSION_MULTIVERSION(void, MarkPiece,
                    (const double* first, const double* second, const double* third, int n, SampleTest test,
                     double* __restrict valid),
                    (first, second, third, n, test, valid)) {
  for (int i = 0; i < n; ++i) {
    const bool one = test.IsValid(test.Held(first[i]));
    const bool two = test.IsValid(test.Held(second[i]));
    const bool three = test.IsValid(test.Held(third[i]));
    valid[i] = one & two & three ? 1.0 : 0.0;
  }
}

FUSION_MULTIVERSION(void, WidenValidPiece,
                    (const double* values, const double* valid, int n, double* __restrict low, double* __restrict high,
                     double* __restrict count),
                    (values, valid, n, low, high, count)) {
  for (int i = 0; i < n; ++i) {
    const double v = values[i];
    const bool counts = valid[i] != 0.0;
    low[i] = (counts & (v < low[i])) ? v : low[i];
    high[i] = (counts & (v > high[i])) ? v : high[i];
    count[i] += valid[i];
  }
}

FUSION_MULTIVERSION(void, WidenPiece,
                    (const double* values, const double* tested, int n, SampleTest test, double* __restrict low,
                     double* __restrict high),
                    (values, tested, n, test, low, high)) {
  for (int i = 0; i < n; ++i) {
    const bool valid = test.IsValid(tested[i]);
    const double v = values[i];
    low[i] = (valid & (v < low[i])) ? v : low[i];
    high[i] = (valid & (v > high[i])) ? v : high[i];
  }
}

FUSION_MULTIVERSION(void, BinPiece,
                    (const double* values, int n, SampleTest test, double minimum, double maximum,
                     std::int32_t* __restrict bins),
                    (values, n, test, minimum, maximum, bins)) {
  for (int i = 0; i < n; ++i) {
    const double position = (values[i] - minimum) * 255.0 / (maximum - minimum);
    double bin = position > 0.0 ? position : 0.0;
    bin = bin < 255.0 ? bin : 255.0;
    const auto whole = static_cast<std::int32_t>(bin);
    bins[i] = test.IsValid(values[i]) ? whole : -1;
  }
}

FUSION_MULTIVERSION(void, SumPiece,
                    (const double* values, int n, SampleTest test, double* __restrict sum, double* __restrict count),
                    (values, n, test, sum, count)) {
  for (int i = 0; i < n; ++i) {
    const bool valid = test.IsValid(values[i]);
    const double v = values[i];
    sum[i] += valid ? v : 0.0;
    count[i] += valid ? 1.0 : 0.0;
  }
}

FUSION_MULTIVERSION(void, PairPiece,
                    (const double* fused, const double* ms, const double* fusedValid, const double* msValid, int n,
                     double fusedMean, double msMean, double* __restrict fusedSquares, double* __restrict msSquares,
                     double* __restrict products, double* __restrict errors, double* __restrict powers,
                     double* __restrict deviations, double* __restrict pairs, double* __restrict nonZero),
                    (fused, ms, fusedValid, msValid, n, fusedMean, msMean, fusedSquares, msSquares, products, errors,
                     powers, deviations, pairs, nonZero)) {
  for (int i = 0; i < n; ++i) {
    const double f = fused[i];
    const double m = ms[i];
    const double difference = m - f;
    const double fromFusedMean = f - fusedMean;
    const double fromMsMean = m - msMean;
    const double both = fusedValid[i] * msValid[i];
    const double divides = m != 0.0 ? both : 0.0;
    const double relative = std::fabs(difference / m);
    fusedSquares[i] += fusedValid[i] != 0.0 ? fromFusedMean * fromFusedMean : 0.0;
    msSquares[i] += msValid[i] != 0.0 ? fromMsMean * fromMsMean : 0.0;
    products[i] += both != 0.0 ? fromMsMean * fromFusedMean : 0.0;
    errors[i] += both != 0.0 ? difference * difference : 0.0;
    powers[i] += both != 0.0 ? f * f : 0.0;
    deviations[i] += divides != 0.0 ? relative : 0.0;
    pairs[i] += both;
    nonZero[i] += divides;
  }
}

FUSION_MULTIVERSION(void, GradientPiece,
                    (const double* row, const double* below, const double* valid, int n, double* __restrict dx2,
                     double* __restrict dy2, double* __restrict gradients, double* __restrict count),
                    (row, below, valid, n, dx2, dy2, gradients, count)) {
  for (int i = 0; i < n; ++i) {
    const double right = row[i + 1] - row[i];
    const double down = below[i] - row[i];
    const double rightSquare = right * right;
    const double downSquare = down * down;
    const double gradient = std::sqrt(rightSquare + downSquare);
    const bool counts = valid[i] != 0.0;
    dx2[i] += counts ? rightSquare : 0.0;
    dy2[i] += counts ? downSquare : 0.0;
    gradients[i] += counts ? gradient : 0.0;
    count[i] += valid[i];
  }
}

FUSION_MULTIVERSION(void, DifferencePiece,
                    (const double* fused, const double* ms, const double* valid, int n, double* __restrict absolute,
                     double* __restrict squares, double* __restrict count),
                    (fused, ms, valid, n, absolute, squares, count)) {
  for (int i = 0; i < n; ++i) {
    const double d = ms[i] - fused[i];
    const double distance = std::fabs(d);
    const double square = d * d;
    absolute[i] += valid[i] != 0.0 ? distance : 0.0;
    squares[i] += valid[i] != 0.0 ? square : 0.0;
    count[i] += valid[i];
  }
}

}  // namespace

void DropNoData(const double* values, int n, const platform::NoDataRule& test, double* valid) {
  if (test.declared) TestPiece(values, n, SampleTest(test), valid);
}

void MarkValid(const double* values, int n, const platform::NoDataRule& test, double* valid) {
  MarkValid(values, values, values, n, test, valid);
}

void MarkValid(const double* first, const double* second, const double* third, int n, const platform::NoDataRule& test,
               double* valid) {
  const SampleTest sample(test);
  if (!test.declared) {
    std::fill_n(valid, n, 1.0);
  } else if (sample.isNan) {
    MarkNumbers(first, second, third, n, valid);
  } else {
    MarkPiece(first, second, third, n, sample, valid);
  }
}

std::int64_t WidenValid(const double* values, const double* valid, int n, double& minimum, double& maximum) {
  Lanes<3> lanes;
  std::fill_n(lanes[0], kLanes, minimum);
  std::fill_n(lanes[1], kLanes, maximum);
  ForPieces(n, [&](int i, int count) { WidenValidPiece(values + i, valid + i, count, lanes[0], lanes[1], lanes[2]); });
  minimum = *std::min_element(lanes[0], lanes[0] + kLanes);
  maximum = *std::max_element(lanes[1], lanes[1] + kLanes);
  return static_cast<std::int64_t>(lanes.Total(2));
}

void WidenRow(const double* values, const double* tested, int n, const platform::NoDataRule& test, double& minimum,
              double& maximum) {
  Lanes<2> lanes;
  std::fill_n(lanes[0], kLanes, minimum);
  std::fill_n(lanes[1], kLanes, maximum);
  ForPieces(n, [&](int first, int count) {
    WidenPiece(values + first, tested + first, count, SampleTest(test), lanes[0], lanes[1]);
  });
  minimum = *std::min_element(lanes[0], lanes[0] + kLanes);
  maximum = *std::max_element(lanes[1], lanes[1] + kLanes);
}

void BinRow(const double* values, int n, const platform::NoDataRule& test, double minimum, double maximum,
            std::int32_t* bins) {
  BinPiece(values, n, SampleTest(test), minimum, maximum, bins);
}

void SumRow(const double* values, int n, const platform::NoDataRule& test, double& sum, std::int64_t& count) {
  Lanes<2> lanes;
  ForPieces(n, [&](int first, int size) { SumPiece(values + first, size, SampleTest(test), lanes[0], lanes[1]); });
  sum += lanes.Total(0);
  count += static_cast<std::int64_t>(lanes.Total(1));
}

PairSums SumPairs(const double* fused, const double* ms, const double* fusedValid, const double* msValid, int n,
                  double fusedMean, double msMean) {
  Lanes<8> lanes;
  ForPieces(n, [&](int i, int count) {
    PairPiece(fused + i, ms + i, fusedValid + i, msValid + i, count, fusedMean, msMean, lanes[0], lanes[1], lanes[2],
              lanes[3], lanes[4], lanes[5], lanes[6], lanes[7]);
  });
  return {lanes.Total(0), lanes.Total(1), lanes.Total(2), lanes.Total(3),
          lanes.Total(4), lanes.Total(5), lanes.Total(6), lanes.Total(7)};
}

GradientSums SumGradients(const double* row, const double* below, const double* valid, int n) {
  Lanes<4> lanes;
  ForPieces(n, [&](int i, int count) {
    GradientPiece(row + i, below + i, valid + i, count, lanes[0], lanes[1], lanes[2], lanes[3]);
  });
  return {lanes.Total(0), lanes.Total(1), lanes.Total(2), lanes.Total(3)};
}

DifferenceSums SumDifferences(const double* fused, const double* ms, const double* valid, int n) {
  Lanes<3> lanes;
  ForPieces(
      n, [&](int i, int count) { DifferencePiece(fused + i, ms + i, valid + i, count, lanes[0], lanes[1], lanes[2]); });
  return {lanes.Total(0), lanes.Total(1), lanes.Total(2)};
}

}  // namespace fusion

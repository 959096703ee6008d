#include "quality/uiqi.h"

#include <array>
#include <limits>

#include "quality/pair_moments.h"

namespace quality {
namespace {

constexpr int kSize = UiqiSums::kWindow;

/// Which windows count wholly, one byte for each, at the place of its upper left pixel; empty: all do.
std::vector<unsigned char> WholeWindows(const std::vector<unsigned char>& counts, int width, int height) {
  std::vector<unsigned char> whole = counts;
  if (counts.empty()) return whole;
  const auto w = static_cast<std::size_t>(width);
  for (int y = 0; y + kSize <= height; ++y) {
    for (int x = 0; x + kSize <= width; ++x) {
      const std::size_t corner = static_cast<std::size_t>(y) * w + static_cast<std::size_t>(x);
      bool all = true;
      for (std::size_t k = 0; all && k < kSize * kSize; ++k) all = counts[corner + k / kSize * w + k % kSize] != 0;
      whole[corner] = all ? 1 : 0;
    }
  }
  return whole;
}

/// Some value of the band, so that the squares of what lies beside it keep their digits.
double MiddleOf(const std::vector<double>& band, const std::vector<unsigned char>& counts) {
  double sum = 0.0;
  double n = 0.0;
  for (std::size_t i = 0; i < band.size(); ++i) {
    if (!counts.empty() && counts[i] == 0) continue;
    sum += band[i];
    n += 1.0;
  }
  return n > 0.0 ? sum / n : 0.0;
}

/// Sums over the rows of a window, column by column: of t, f, t t, f f, t f.
using ColumnSums = std::array<std::vector<double>, 5>;

void SumColumns(const std::vector<double>& t, const std::vector<double>& f, std::size_t width, std::size_t top,
                ColumnSums& sums) {
  for (auto& sum : sums) sum.assign(width, 0.0);
  for (std::size_t y = top; y < top + kSize; ++y) {
    const double* tRow = t.data() + y * width;
    const double* fRow = f.data() + y * width;
    for (std::size_t x = 0; x < width; ++x) {
      sums[0][x] += tRow[x];
      sums[1][x] += fRow[x];
      sums[2][x] += tRow[x] * tRow[x];
      sums[3][x] += fRow[x] * fRow[x];
      sums[4][x] += tRow[x] * fRow[x];
    }
  }
}

}  // namespace

void UiqiSums::AddBand(const std::vector<double>& truth, const std::vector<double>& fused, double middle, int width,
                       int height, const std::vector<unsigned char>& whole) {
  const auto w = static_cast<std::size_t>(width);
  constexpr double kPixels = kSize * kSize;
  ColumnSums columns;
  double sum = 0.0;
  for (std::size_t y = 0; y + kSize <= static_cast<std::size_t>(height); ++y) {
    SumColumns(truth, fused, w, y, columns);
    for (std::size_t x = 0; x + kSize <= w; ++x) {
      if (!whole.empty() && whole[y * w + x] == 0) continue;
      std::array<double, 5> s{};
      for (std::size_t k = 0; k < s.size(); ++k) {
        for (std::size_t i = 0; i < kSize; ++i) s[k] += columns[k][x + i];
        s[k] /= kPixels;
      }
      sum += QualityIndex({middle + s[0], middle + s[1], s[2] - s[0] * s[0], s[3] - s[1] * s[1], s[4] - s[0] * s[1]});
      ++m_count;
    }
  }
  m_sum += sum;
}

void UiqiSums::Add(const Image& truth, const Image& fused) {
  CheckComparable(truth, fused, true);
  const std::vector<unsigned char> common = CommonPixels(truth, fused);
  const std::vector<unsigned char> whole = WholeWindows(common, truth.width, truth.height);
  for (std::size_t b = 0; b < truth.bands.size(); ++b) {
    const double middle = MiddleOf(truth.bands[b], common);
    std::vector<double> t = truth.bands[b];
    std::vector<double> f = fused.bands[b];
    for (double& v : t) v -= middle;
    for (double& v : f) v -= middle;
    AddBand(t, f, middle, truth.width, truth.height, whole);
  }
}

double UiqiSums::Value() const {
  return m_count == 0 ? std::numeric_limits<double>::quiet_NaN() : m_sum / static_cast<double>(m_count);
}

double Uiqi(const Image& truth, const Image& fused) {
  UiqiSums sums;
  sums.Add(truth, fused);
  return sums.Value();
}

}  // namespace quality

#include "platform/processing/kernel_passes.h"

#include <algorithm>
#include <cmath>

#include "platform/algorithm/row_buffer.h"
#include "platform/system/multiversion.h"
#include "platform/validity/gap_marks.h"

namespace platform {
namespace {

// A stretch of the output that stays in the first cache while all taps are added to it.
constexpr int kTile = 1024;

/// out = sum of weights[t] * taps[t], four taps at a time.
FUSION_MULTIVERSION(void, WeightedSum,
                    (const double* const* taps, const double* weights, int count, double* out, int width),
                    (taps, weights, count, out, width)) {
  for (int first = 0; first < width; first += kTile) {
    const int n = width - first < kTile ? width - first : kTile;
    double* __restrict o = out + first;
    for (int i = 0; i < n; ++i) o[i] = 0.0;
    int t = 0;
    for (; t + 4 <= count; t += 4) {
      const double* a = taps[t] + first;
      const double* b = taps[t + 1] + first;
      const double* c = taps[t + 2] + first;
      const double* d = taps[t + 3] + first;
      const double wa = weights[t];
      const double wb = weights[t + 1];
      const double wc = weights[t + 2];
      const double wd = weights[t + 3];
      for (int i = 0; i < n; ++i) o[i] += (wa * a[i] + wb * b[i]) + (wc * c[i] + wd * d[i]);
    }
    for (; t < count; ++t) {
      const double* a = taps[t] + first;
      const double wa = weights[t];
      for (int i = 0; i < n; ++i) o[i] += wa * a[i];
    }
  }
}

FUSION_MULTIVERSION(void, AddWeighted, (const double* values, double weight, double* __restrict out, int width),
                    (values, weight, out, width)) {
  for (int i = 0; i < width; ++i) out[i] += weight * values[i];
}

/// Whether two numbers are the same but for rounding; far below what two passes may differ from the plain sum.
bool IsClose(double a, double b) { return std::abs(a - b) <= 1e-13 * std::min(std::abs(a), std::abs(b)); }

}  // namespace

std::optional<Kernel> MakeKernel(Kernel kernel, double scale) {
  constexpr int kLargest = 31;
  const auto isSize = [](int size) { return size >= 1 && size <= kLargest; };
  const bool fits =
      isSize(kernel.width) && isSize(kernel.height) && kernel.centerX >= 0 && kernel.centerX < kernel.width &&
      kernel.centerY >= 0 && kernel.centerY < kernel.height &&
      kernel.coefficients.size() == static_cast<std::size_t>(kernel.width) * static_cast<std::size_t>(kernel.height);
  if (!fits) return std::nullopt;
  for (double& c : kernel.coefficients) {
    c *= scale;
    if (!std::isfinite(c)) return std::nullopt;
  }
  return kernel;
}

bool SeparableKernel::Split(const Kernel& kernel) {
  // The pivot lies outside the centre, whose coefficient may be any.
  int pivotX = -1;
  int pivotY = -1;
  double pivot = 0.0;
  for (int y = 0; y < kernel.height; ++y) {
    for (int x = 0; x < kernel.width; ++x) {
      if (x == kernel.centerX || y == kernel.centerY || std::abs(kernel.At(x, y)) <= std::abs(pivot)) continue;
      pivot = kernel.At(x, y);
      pivotX = x;
      pivotY = y;
    }
  }
  if (pivotX < 0) return false;
  row.clear();
  column.clear();
  for (int x = 0; x < kernel.width; ++x) row.push_back(kernel.At(x, pivotY));
  for (int y = 0; y < kernel.height; ++y) column.push_back(kernel.At(pivotX, y) / pivot);
  for (int y = 0; y < kernel.height; ++y) {
    for (int x = 0; x < kernel.width; ++x) {
      if (x == kernel.centerX && y == kernel.centerY) continue;
      const double product = column[static_cast<std::size_t>(y)] * row[static_cast<std::size_t>(x)];
      if (!IsClose(product, kernel.At(x, y))) return false;
    }
  }
  const double wanted = kernel.At(kernel.centerX, kernel.centerY);
  const double product =
      column[static_cast<std::size_t>(kernel.centerY)] * row[static_cast<std::size_t>(kernel.centerX)];
  center = IsClose(product, wanted) ? 0.0 : wanted - product;
  // Two large parts that cancel out would lose the digits of the rest.
  constexpr double kMostCancellation = 4.0;
  return std::abs(product) + std::abs(center) <= kMostCancellation * std::abs(wanted);
}

KernelPasses::KernelPasses(const Kernel& kernel, int imageWidth, int imageHeight)
    : KernelPasses(kernel, imageWidth, imageHeight, {0, imageWidth}) {}

KernelPasses::KernelPasses(const Kernel& kernel, int imageWidth, int imageHeight, const Columns& columns)
    : m_kernel(kernel),
      m_isSeparable(m_separable.Split(kernel)),
      m_imageWidth(imageWidth),
      m_height(imageHeight),
      m_columns(columns),
      m_width(columns.Width()),
      m_padded(static_cast<std::size_t>(m_width) + static_cast<std::size_t>(kernel.width)),
      m_ring(static_cast<std::size_t>(kernel.height)),
      m_ringRows(static_cast<std::size_t>(kernel.height), -1) {
  for (int i = 0; i < kernel.width; ++i) m_rowTaps.push_back(m_padded.data() + i);
  for (auto& row : m_ring) row.resize(m_isSeparable ? static_cast<std::size_t>(m_width) : m_padded.size());
}

void KernelPasses::ProcessRow(const RowBuffer& rows, int row, double* out) {
  m_taps.clear();
  for (int j = 0; j < m_kernel.height; ++j) {
    const double* tapRow = PreparedRow(rows, std::clamp(row + j - m_kernel.centerY, 0, m_height - 1));
    if (m_isSeparable) {
      m_taps.push_back(tapRow);
    } else {
      for (int i = 0; i < m_kernel.width; ++i) m_taps.push_back(tapRow + i);
    }
  }
  const auto& weights = m_isSeparable ? m_separable.column : m_kernel.coefficients;
  WeightedSum(m_taps.data(), weights.data(), static_cast<int>(m_taps.size()), out, m_width);
  if (m_isSeparable && m_separable.center != 0.0) AddWeighted(Samples(rows, row), m_separable.center, out, m_width);
}

void KernelPasses::ProcessRowWithGaps(const RowBuffer& rows, int row, double* out) {
  ProcessRow(rows, row, out);
  // A gap makes a NaN of every pixel whose kernel reaches it, and of no other.
  if (!HasGap(out, static_cast<std::size_t>(m_width))) return;
  const double* samples = Samples(rows, row);
  for (int i = 0; i < m_width; ++i) {
    if (std::isnan(samples[i])) {
      out[i] = samples[i];
    } else if (std::isnan(out[i])) {
      out[i] = ValueBesideGap(rows, row, m_columns.left + i);
    }
  }
}

double KernelPasses::ValueBesideGap(const RowBuffer& rows, int row, int column) const {
  double sum = 0.0;
  double gapWeight = 0.0;
  double total = 0.0;
  int count = 0;
  for (int j = 0; j < m_kernel.height; ++j) {
    const double* samples = rows.Row(0, std::clamp(row + j - m_kernel.centerY, 0, m_height - 1));
    for (int i = 0; i < m_kernel.width; ++i) {
      const double sample = samples[std::clamp(column + i - m_kernel.centerX, 0, m_imageWidth - 1) - rows.Left()];
      if (std::isnan(sample)) {
        gapWeight += m_kernel.At(i, j);
      } else {
        sum += m_kernel.At(i, j) * sample;
        total += sample;
        ++count;
      }
    }
  }
  return sum + gapWeight * (total / count);
}

const double* KernelPasses::PreparedRow(const RowBuffer& rows, int row) {
  const auto place = static_cast<std::size_t>(row % m_kernel.height);
  std::vector<double>& prepared = m_ring[place];
  if (m_ringRows[place] == row) return prepared.data();
  m_ringRows[place] = row;
  if (!m_isSeparable) {
    Pad(rows, row, prepared.data());
    return prepared.data();
  }
  Pad(rows, row, m_padded.data());
  WeightedSum(m_rowTaps.data(), m_separable.row.data(), m_kernel.width, prepared.data(), m_width);
  return prepared.data();
}

void KernelPasses::Pad(const RowBuffer& rows, int row, double* padded) const {
  const int left = m_columns.left - m_kernel.centerX;
  const int right = m_columns.right + m_kernel.width - 1 - m_kernel.centerX;
  const int first = std::max(left, 0);
  const int end = std::min(right, m_imageWidth);
  const double* values = rows.Row(0, row) + (first - rows.Left());
  const int count = end - first;
  std::fill_n(padded, first - left, values[0]);
  std::copy_n(values, count, padded + (first - left));
  std::fill_n(padded + (end - left), right - end, values[count - 1]);
}

}  // namespace platform

#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "platform/algorithm/row_buffer.h"

namespace platform {

/// A rectangle of coefficients, row by row, and the place of the one that lies on the pixel.
struct Kernel {
  int width;
  int height;
  int centerX;
  int centerY;
  std::vector<double> coefficients;

  double At(int column, int row) const {
    return coefficients[static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                        static_cast<std::size_t>(column)];
  }
  /// Rows needed above and below the present one, at most.
  int Halo() const { return std::max(centerY, height - 1 - centerY); }
};

/// The kernel with its coefficients times the scale; none where that is no kernel: 1 to 31 columns and rows, the centre
/// among them, a finite coefficient for each place.
std::optional<Kernel> MakeKernel(Kernel kernel, double scale);
/// The kernel that a record's fields describe.
template <typename Record>
std::optional<Kernel> KernelOf(const Record& record) {
  return MakeKernel({record.m_nWidth, record.m_nHeight, record.m_nCenterX, record.m_nCenterY, record.m_vecCoefficients},
                    record.m_dScale);
}

/// A kernel as the sum of a product of a column and a row, which two one-dimensional passes compute, and a single
/// coefficient at the centre: box filters, Gaussians and the usual high-pass kernels are of this kind.
struct SeparableKernel {
  std::vector<double> column;
  std::vector<double> row;
  double center = 0.0;

  /// False for kernels of another kind, and where the centre's two parts would cancel out.
  bool Split(const Kernel& kernel);
};

/// Correlates the rows of an image, or a range of their columns, one after the other downwards with a kernel. Sums only
/// ever add samples of the window itself, so that one huge value spoils no pixel beyond its reach.
class KernelPasses {
 public:
  KernelPasses(const Kernel& kernel, int imageWidth, int imageHeight);
  /// @param columns those that are computed; the rows hold all that the kernel reaches from them
  KernelPasses(const Kernel& kernel, int imageWidth, int imageHeight, const Columns& columns);

  void ProcessRow(const RowBuffer& rows, int row, double* out);
  /// The same where NaN marks samples without data: such a sample stays NaN; under the kernel of another one it counts
  /// as the mean of those with data there.
  void ProcessRowWithGaps(const RowBuffer& rows, int row, double* out);

 private:
  double ValueBesideGap(const RowBuffer& rows, int row, int column) const;
  /// An image row after the first pass; for kernels that are not separable, with its ends repeated.
  const double* PreparedRow(const RowBuffer& rows, int row);
  /// A row of the columns with what the kernel reaches beside them, the image's edges repeated.
  void Pad(const RowBuffer& rows, int row, double* padded) const;
  /// The computed columns of a row as it was read.
  const double* Samples(const RowBuffer& rows, int row) const {
    return rows.Row(0, row) + (m_columns.left - rows.Left());
  }

  Kernel m_kernel;
  SeparableKernel m_separable;
  bool m_isSeparable;
  int m_imageWidth;
  int m_height;
  Columns m_columns;
  int m_width;
  std::vector<double> m_padded;
  std::vector<const double*> m_taps;
  std::vector<const double*> m_rowTaps;
  // Prepared rows, the image's row r at place r modulo the kernel's height.
  std::vector<std::vector<double>> m_ring;
  std::vector<int> m_ringRows;
};

}  // namespace platform

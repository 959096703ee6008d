#include "platform/utility/matrix_operation.h"

#include <Eigen/LU>

namespace {

using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

}  // namespace

void CMatrixOperation::Multimatrix(const double* a, const double* b, int rowsA, int colsA, int colsB, double* c) {
  if (rowsA < 1 || colsB < 1 || colsA < 0) return;
  Eigen::Map<Matrix>(c, rowsA, colsB).noalias() =
      Eigen::Map<const Matrix>(a, rowsA, colsA) * Eigen::Map<const Matrix>(b, colsA, colsB);
}

bool CMatrixOperation::InverseMatrix(double* matrix, int n) {
  if (!matrix || n < 1) return false;
  Eigen::Map<Matrix> values(matrix, n, n);
  if (!values.allFinite()) return false;
  const Eigen::FullPivLU<Matrix> decomposition(values);
  if (!decomposition.isInvertible()) return false;
  const Matrix inverse = decomposition.inverse();
  if (!inverse.allFinite()) return false;
  values = inverse;
  return true;
}

#include "platform/utility/matrix_operation.h"

#include <Eigen/LU>
#include <Eigen/SVD>
#include <limits>

namespace {

using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
/// Of square matrices, which need no decomposition beforehand.
using Svd = Eigen::JacobiSVD<Eigen::MatrixXd, Eigen::NoQRPreconditioner>;

}  // namespace

void CMatrixOperation::Multimatrix(const double* a, const double* b, int rowsA, int colsA, int colsB, double* c) {
  if (rowsA < 1 || colsB < 1 || colsA < 0) return;
  const Eigen::Map<const Matrix> left(a, rowsA, colsA);
  const Eigen::Map<const Matrix> right(b, colsA, colsB);
  Eigen::Map<Matrix> product(c, rowsA, colsB);
  product.setZero();
  // Term after term, so that an element's last bit does not depend on the size of the product.
  for (int k = 0; k < colsA; ++k) product.noalias() += left.col(k) * right.row(k);
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

bool CMatrixOperation::SolveLeastSquares(const double* matrix, int n, double leastPart, const double* right,
                                         double* x) {
  if (!matrix || n < 1) return false;
  const Eigen::Map<const Matrix> values(matrix, n, n);
  const Eigen::Map<const Eigen::VectorXd> wanted(right, n);
  if (!values.allFinite() || !wanted.allFinite()) return false;
  Svd decomposition(values, Eigen::ComputeFullU | Eigen::ComputeFullV);
  decomposition.setThreshold(leastPart);
  Eigen::Map<Eigen::VectorXd>(x, n) = decomposition.solve(wanted);
  return true;
}

double CMatrixOperation::ConditionNumber(const double* matrix, int n) {
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  if (!matrix || n < 1) return kInfinite;
  const Eigen::Map<const Matrix> values(matrix, n, n);
  if (!values.allFinite()) return kInfinite;
  const auto singular = Svd(values).singularValues();
  return singular[n - 1] > 0.0 ? singular[0] / singular[n - 1] : kInfinite;
}

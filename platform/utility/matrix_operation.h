#pragma once

#include "platform/system/export.h"

/// Dense row-major matrices.
class FUSION_API CMatrixOperation {
 public:
  /// c (rowsA x colsB) = a (rowsA x colsA) times b (colsA x colsB). c must not overlap a or b.
  static void Multimatrix(const double* a, const double* b, int rowsA, int colsA, int colsB, double* c);
  /// Inverts an n x n matrix in place; a singular one answers false and is left unchanged.
  static bool InverseMatrix(double* matrix, int n);
  /// The shortest x that makes |matrix x - right| least, for a symmetric n x n matrix whose singular values below a
  /// part of the largest count as 0. False for entries that are not finite.
  static bool SolveLeastSquares(const double* matrix, int n, double leastPart, const double* right, double* x);
  /// Largest over smallest singular value of an n x n matrix; infinite for a singular one and for entries that are not
  /// finite.
  static double ConditionNumber(const double* matrix, int n);
};

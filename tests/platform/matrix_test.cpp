#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>
#include <vector>

#include "platform/utility/matrix_operation.h"

namespace {

TEST(Matrix, ProductOfRectangularMatrices) {
  const double a[] = {1, 2, 3, 4, 5, 6};
  const double b[] = {7, 8, 9, 10, 11, 12};
  double c[4] = {};
  CMatrixOperation::Multimatrix(a, b, 2, 3, 2, c);
  const double expected[] = {58, 64, 139, 154};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(c[i], expected[i]);
}

TEST(Matrix, ProductOfAColumnAndARow) {
  const double column[] = {2, 3, 5};
  const double row[] = {7, 11};
  double c[6] = {};
  CMatrixOperation::Multimatrix(column, row, 3, 1, 2, c);
  const double expected[] = {14, 22, 21, 33, 35, 55};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(c[i], expected[i]);
}

TEST(Matrix, ProductAddsTermAfterTerm) {
  std::mt19937 random(6);
  std::uniform_real_distribution<double> value(-10.0, 10.0);
  for (const int n : {3, 4, 8, 17}) {
    std::vector<double> a(static_cast<std::size_t>(n * n));
    std::vector<double> b(static_cast<std::size_t>(n));
    for (double& v : a) v = value(random);
    for (double& v : b) v = value(random);
    std::vector<double> c(static_cast<std::size_t>(n));
    CMatrixOperation::Multimatrix(a.data(), b.data(), n, n, 1, c.data());
    for (int r = 0; r < n; ++r) {
      double sum = 0.0;
      for (int k = 0; k < n; ++k) sum += a[static_cast<std::size_t>(r * n + k)] * b[static_cast<std::size_t>(k)];
      EXPECT_EQ(c[static_cast<std::size_t>(r)], sum);
    }
  }
}

TEST(Matrix, EmptyProductTouchesNothing) {
  double c = 4.0;
  CMatrixOperation::Multimatrix(nullptr, nullptr, 0, 0, 0, &c);
  EXPECT_EQ(c, 4.0);
}

TEST(Matrix, InverseByHand) {
  // Determinant 10: the inverse is (6 -7; -2 4) / 10.
  double m[] = {4, 7, 2, 6};
  ASSERT_TRUE(CMatrixOperation::InverseMatrix(m, 2));
  EXPECT_NEAR(m[0], 0.6, 1e-15);
  EXPECT_NEAR(m[1], -0.7, 1e-15);
  EXPECT_NEAR(m[2], -0.2, 1e-15);
  EXPECT_NEAR(m[3], 0.4, 1e-15);
}

TEST(Matrix, InverseNeedsPivoting) {
  double m[] = {0, 1, 2, 0};
  ASSERT_TRUE(CMatrixOperation::InverseMatrix(m, 2));
  EXPECT_EQ(m[0], 0.0);
  EXPECT_EQ(m[1], 0.5);
  EXPECT_EQ(m[2], 1.0);
  EXPECT_EQ(m[3], 0.0);
}

TEST(Matrix, InverseTimesMatrixIsTheIdentity) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> value(-10.0, 10.0);
  for (const int n : {1, 3, 8, 20}) {
    const auto size = static_cast<std::size_t>(n * n);
    std::vector<double> m(size);
    for (double& v : m) v = value(random);
    std::vector<double> inverse = m;
    ASSERT_TRUE(CMatrixOperation::InverseMatrix(inverse.data(), n));
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        double sum = 0.0;
        for (int k = 0; k < n; ++k) {
          sum += inverse[static_cast<std::size_t>(i * n + k)] * m[static_cast<std::size_t>(k * n + j)];
        }
        EXPECT_NEAR(sum, i == j ? 1.0 : 0.0, 1e-9);
      }
    }
  }
}

TEST(Matrix, SmallEntriesAreNotTakenForSingular) {
  double m[] = {2e-200, 0, 0, 4e-200};
  ASSERT_TRUE(CMatrixOperation::InverseMatrix(m, 2));
  EXPECT_DOUBLE_EQ(m[0], 5e199);
  EXPECT_DOUBLE_EQ(m[3], 2.5e199);
}

TEST(Matrix, SingularOnesAreLeftUnchanged) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::vector<double>> singular = {{1, 2, 2, 4},         {0, 0, 0, 0},   {1, 2, 3, 4, 5, 6, 7, 8, 9},
                                                     {0.1, 0.2, 0.3, 0.6}, {nan, 0, 0, 1}, {1.0 / 0.0, 0, 0, 1}};
  for (const auto& matrix : singular) {
    std::vector<double> m = matrix;
    EXPECT_FALSE(CMatrixOperation::InverseMatrix(m.data(), matrix.size() == 9 ? 3 : 2));
    for (std::size_t i = 0; i < m.size(); ++i) {
      if (matrix[i] == matrix[i]) {
        EXPECT_EQ(m[i], matrix[i]);
      }
    }
  }
  EXPECT_FALSE(CMatrixOperation::InverseMatrix(nullptr, 2));
  double one = 1.0;
  EXPECT_FALSE(CMatrixOperation::InverseMatrix(&one, 0));
}

TEST(Matrix, ConditionIsTheRatioOfTheSingularValues) {
  const double diagonal[] = {8, 0, 0, 0, -2, 0, 0, 0, 0.5};
  EXPECT_DOUBLE_EQ(CMatrixOperation::ConditionNumber(diagonal, 3), 16.0);
  // Eigenvalues 3 and 1.
  const double symmetric[] = {2, 1, 1, 2};
  EXPECT_NEAR(CMatrixOperation::ConditionNumber(symmetric, 2), 3.0, 1e-14);
  // m m' is 25, 0 / 0, 1: singular values 5 and 1.
  const double turned[] = {3, -4, 0.8, 0.6};
  EXPECT_NEAR(CMatrixOperation::ConditionNumber(turned, 2), 5.0, 1e-14);
  const double tiny[] = {1e-200, 0, 0, 1e-205};
  EXPECT_NEAR(CMatrixOperation::ConditionNumber(tiny, 2), 1e5, 1e-6);
}

TEST(Matrix, ConditionOfSingularOnesIsBeyondAllLimits) {
  const double zero[] = {0, 0, 0, 0};
  const double dependent[] = {1, 2, 2, 4};
  const double nan[] = {std::numeric_limits<double>::quiet_NaN(), 0, 0, 1};
  const double infinite = std::numeric_limits<double>::infinity();
  EXPECT_EQ(CMatrixOperation::ConditionNumber(zero, 2), infinite);
  EXPECT_GT(CMatrixOperation::ConditionNumber(dependent, 2), 1e15);
  EXPECT_EQ(CMatrixOperation::ConditionNumber(nan, 2), infinite);
  EXPECT_EQ(CMatrixOperation::ConditionNumber(nullptr, 2), infinite);
  EXPECT_EQ(CMatrixOperation::ConditionNumber(zero, 0), infinite);
}

/// A system of two, by rows.
void ExpectLeastSquares(const std::array<double, 4>& matrix, const std::array<double, 2>& right,
                        const std::array<double, 2>& solution) {
  double x[2];
  ASSERT_TRUE(CMatrixOperation::SolveLeastSquares(matrix.data(), 2, 1e-9, right.data(), x));
  for (std::size_t i = 0; i < 2; ++i) EXPECT_NEAR(x[i], solution[i], 1e-14);
}

TEST(Matrix, LeastSquaresOfARegularSystemSolvesIt) {
  // 4 x + 1 y = 9, 1 x + 3 y = 5 has x = 2, y = 1.
  ExpectLeastSquares({4, 1, 1, 3}, {9, 5}, {2.0, 1.0});
}

TEST(Matrix, LeastSquaresOfASingularSystemTakesTheShortestSolution) {
  // Both rows say x + y = 2; the second band of the other one says nothing at all.
  ExpectLeastSquares({1, 1, 1, 1}, {2, 2}, {1.0, 1.0});
  const double right[] = {2, 2};
  double x[2];
  const double nearly[] = {2, 0, 0, 1e-11};
  ASSERT_TRUE(CMatrixOperation::SolveLeastSquares(nearly, 2, 1e-9, right, x));
  EXPECT_NEAR(x[0], 1.0, 1e-14);
  EXPECT_EQ(x[1], 0.0);
  ASSERT_TRUE(CMatrixOperation::SolveLeastSquares(nearly, 2, 1e-12, right, x));
  EXPECT_NEAR(x[1], 2e11, 1.0);
}

TEST(Matrix, LeastSquaresOfWhatIsNoNumberHasNoSolution) {
  const double right[] = {1, std::numeric_limits<double>::infinity()};
  const double m[] = {1, 0, 0, 1};
  double x[2] = {5, 6};
  EXPECT_FALSE(CMatrixOperation::SolveLeastSquares(m, 2, 1e-9, right, x));
  EXPECT_FALSE(CMatrixOperation::SolveLeastSquares(right, 1, 1e-9, right + 1, x));
  EXPECT_FALSE(CMatrixOperation::SolveLeastSquares(nullptr, 2, 1e-9, right, x));
  EXPECT_EQ(x[0], 5.0);
}

}  // namespace

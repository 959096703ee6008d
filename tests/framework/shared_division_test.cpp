#include "framework/shared_division.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using fusion::Division;
using Row = std::vector<double>;

const Division kWays[] = {Division::kPlain, Division::kShared256, Division::kShared512};

std::string NameOf(const testing::TestParamInfo<Division>& way) {
  const char* const names[] = {"Plain", "Shared256", "Shared512"};
  return names[static_cast<int>(way.param)];
}

/// Divisors and products whose quotients lie as near the middle of two neighbouring numbers as quotients can.
///
/// With a divisor of 53 digits D and an odd number M of 54 digits, a middle, M * D + 1 or M * D - 1 is to be a multiple
/// A of 2^54: M is then the inverse of D, or its negative, modulo 2^54, and A / D lies 1 / (D * 2^54) beside M / 2^54.
struct HardCases {
  HardCases(std::mt19937_64& random, std::size_t count) {
    constexpr std::uint64_t kTop = std::uint64_t{1} << 53;
    std::uniform_int_distribution<std::uint64_t> digits(kTop / 2, kTop - 1);
    while (product.size() < count) {
      const std::uint64_t d = digits(random) | 1U;
      std::uint64_t inverse = d;  // right in its last three digits, and each round doubles them
      for (int i = 0; i < 5; ++i) inverse *= 2 - d * inverse;
      for (const bool above : {false, true}) {
        const std::uint64_t middle = (above ? inverse : ~inverse + 1) & (2 * kTop - 1);
        if (middle < kTop) continue;
        // M * D has the digits 0...01 or 1...11 at its end, so that only the whole multiples of 2^54 remain.
        const Wide exact = static_cast<Wide>(middle) * d + (above ? Wide{0} : Wide{1});
        product.push_back(static_cast<double>(static_cast<std::uint64_t>(exact >> 54)));
        divisor.push_back(static_cast<double>(d));
      }
    }
  }

  Row product;
  Row divisor;

 private:
  __extension__ using Wide = unsigned __int128;
};

class SharedDivision : public testing::TestWithParam<Division> {
 protected:
  void SetUp() override {
    if (!fusion::CanDivide(GetParam())) GTEST_SKIP() << "this processor cannot";
  }

  /// The quotients must be those of the definition, bit for bit.
  static void Check(const std::vector<Row>& rows, const Row& factor, const Row& divisor) {
    std::vector<Row> out(rows.size(), Row(factor.size(), 7.0));
    std::vector<const double*> from;
    std::vector<double*> to;
    for (const Row& row : rows) from.push_back(row.data());
    for (Row& row : out) to.push_back(row.data());
    fusion::ShareRows(from.data(), factor.data(), divisor.data(), static_cast<int>(rows.size()),
                      static_cast<int>(factor.size()), to.data(), GetParam());
    for (std::size_t r = 0; r < rows.size(); ++r) {
      for (std::size_t i = 0; i < factor.size(); ++i) {
        const volatile double product = rows[r][i] * factor[i];
        const double quotient = product / divisor[i];
        if (std::isnan(quotient)) {
          ASSERT_TRUE(std::isnan(out[r][i])) << rows[r][i] << " * " << factor[i] << " / " << divisor[i];
        } else {
          ASSERT_EQ(std::bit_cast<std::uint64_t>(out[r][i]), std::bit_cast<std::uint64_t>(quotient))
              << std::hexfloat << rows[r][i] << " * " << factor[i] << " / " << divisor[i];
        }
      }
    }
  }

  /// Any digits, of either sign, between two powers of two.
  Row Numbers(std::size_t count, int from, int to) {
    std::uniform_int_distribution<std::uint64_t> digits(0, (std::uint64_t{1} << 52) - 1);
    std::uniform_int_distribution<int> power(from, to);
    std::uniform_int_distribution<int> sign(0, 1);
    Row row;
    for (std::size_t i = 0; i < count; ++i) {
      const auto one = std::bit_cast<double>(std::bit_cast<std::uint64_t>(1.0) | digits(m_random));
      row.push_back(std::ldexp(sign(m_random) ? -one : one, power(m_random)));
    }
    return row;
  }

  std::mt19937_64 m_random{11};
};

TEST_P(SharedDivision, GivesTheQuotientsOfOrdinaryNumbers) {
  for (int round = 0; round < 20; ++round) {
    const std::size_t n = 20000;
    Check({Numbers(n, -12, 16), Numbers(n, -12, 16), Numbers(n, -300, 300)}, Numbers(n, -12, 16), Numbers(n, -12, 18));
  }
}

TEST_P(SharedDivision, RoundsQuotientsNextToTheMiddleOfTwoNumbers) {
  for (const int power : {0, 200, -200, 500, -480, 900, -960, -1010}) {
    const HardCases cases(m_random, power < 0 ? 20000 : 5000);
    Row product;
    for (const double v : cases.product) product.push_back(std::ldexp(v, power));
    Check({product}, Row(product.size(), 1.0), cases.divisor);
  }
}

TEST_P(SharedDivision, HoldsForDivisorsWithOnlyOnesAsDigits) {
  const Row row = Numbers(5000, -3, 3);
  Check({row}, Row(row.size(), 3.0), Row(row.size(), std::nextafter(2.0, 1.0)));
  Check({row}, Row(row.size(), 3.0), Row(row.size(), std::nextafter(1.0, 2.0)));
}

TEST_P(SharedDivision, GivesWhatIsAtTheEndsOfTheRange) {
  // Among others products and remainders that leave it.
  for (const int power :
       {-1080, -1070, -1022, -1000, -900, -257, -256, -255, -254, 255, 256, 257, 258, 513, 900, 1000, 1022}) {
    for (const int other : {-1074, -1022, -600, -256, -255, -60, 0, 60, 256, 257, 600, 1022}) {
      const Row row = Numbers(257, power - 1, power + 1);
      Check({row, Numbers(257, 0, 1)}, Row(257, 1.0), Numbers(257, other, other + 1));
    }
  }
}

TEST_P(SharedDivision, GivesWhatZerosAndWhatIsNoNumberAsk) {
  const double odd[] = {0.0, -0.0, 5e-324, -5e-324, INFINITY, -INFINITY, NAN, 1.0, -3.0, 1.7976931348623157e308};
  Row row;
  Row factor;
  Row divisor;
  for (const double a : odd) {
    for (const double b : odd) {
      for (const double c : odd) {
        row.push_back(a);
        factor.push_back(b);
        divisor.push_back(c);
      }
    }
  }
  Check({row}, factor, divisor);
  // Each of them alone in a piece of ordinary numbers.
  for (std::size_t i = 0; i < row.size(); ++i) {
    Row rows[] = {Numbers(300, 0, 8), Numbers(300, 0, 8), Numbers(300, 0, 8)};
    rows[0][i % 300] = row[i];
    rows[1][i % 300] = factor[i];
    rows[2][i % 300] = divisor[i];
    Check({rows[0], Numbers(300, 0, 8)}, rows[1], rows[2]);
  }
}

TEST_P(SharedDivision, WritesRowsOfEveryLengthAndNoMore) {
  for (std::size_t n = 0; n < 600; n += n < 40 ? 1 : 97) {
    const Row row = Numbers(n, 0, 8);
    Check({row}, Numbers(n, 0, 8), Numbers(n, 0, 8));
    Row out(n + 8, 7.0);
    const double* from = row.data();
    double* to = out.data();
    fusion::ShareRows(&from, row.data(), row.data(), 1, static_cast<int>(n), &to, GetParam());
    for (std::size_t i = n; i < out.size(); ++i) ASSERT_EQ(out[i], 7.0) << n;
  }
}

INSTANTIATE_TEST_SUITE_P(EveryWay, SharedDivision, testing::ValuesIn(kWays), NameOf);

TEST(FastestDivision, IsOneThatTheProcessorHas) { EXPECT_TRUE(fusion::CanDivide(fusion::FastestDivision())); }

}  // namespace

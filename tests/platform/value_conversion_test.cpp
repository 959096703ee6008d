#include "platform/algorithm/value_conversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using platform::ValueConversion;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct TypeCase {
  double minimum;
  double maximum;
  PixelDataType type;
  bool isFloat;
};

const TypeCase kTypes[] = {
    {0.0, 255.0, PDT_UINT8, false},
    {0.0, 65535.0, PDT_UINT16, false},
    {-32768.0, 32767.0, PDT_INT16, false},
    {0.0, 4294967295.0, PDT_UINT32, false},
    {-2147483648.0, 2147483647.0, PDT_INT32, false},
    {-3.4028234663852886e38, 3.4028234663852886e38, PDT_FLOAT32, true},
    {-1.7976931348623157e308, 1.7976931348623157e308, PDT_FLOAT64, true},
};

/// The conversion as it is defined, one value at a time, through the widest integer.
double Definition(const ValueConversion& c, const TypeCase& type, double value) {
  if (c.m_bStretch && (std::fabs(c.m_dSrcMin - c.m_dOutMin) > 1e-8 || std::fabs(c.m_dSrcMax - c.m_dOutMax) > 1e-8)) {
    value = (value - c.m_dSrcMin) / (c.m_dSrcMax - c.m_dSrcMin) * c.m_dOutMax;
  }
  if (std::isnan(value)) return type.isFloat ? value : 0.0;
  const double low = c.m_dOutMin + (c.m_bAddOne ? 1.0 : 0.0);
  const double high = c.m_dOutMax - (c.m_bAddOne ? 1.0 : 0.0);
  if (value < low) value = low;
  if (value > high) value = high;
  if (type.type == PDT_FLOAT32) return static_cast<double>(static_cast<float>(value));
  return type.isFloat ? value : static_cast<double>(static_cast<long long>(value));
}

double ByValue(const ValueConversion& c, PixelDataType type, double value) {
  switch (static_cast<int>(type)) {
    case 1:
      return c.Convert<unsigned char>(value);
    case 2:
      return c.Convert<unsigned short>(value);
    case 3:
      return c.Convert<short>(value);
    case 4:
      return c.Convert<unsigned int>(value);
    case 5:
      return c.Convert<int>(value);
    case 6:
      return static_cast<double>(c.Convert<float>(value));
    default:
      return c.Convert<double>(value);
  }
}

template <typename T>
double At(const void* row, std::size_t i) {
  T value;
  std::memcpy(&value, static_cast<const char*>(row) + i * sizeof(T), sizeof(T));
  return static_cast<double>(value);
}

double FromRow(PixelDataType type, const void* row, std::size_t i) {
  using Reader = double (*)(const void*, std::size_t);
  const Reader readers[] = {nullptr,          At<unsigned char>, At<unsigned short>, At<short>,
                            At<unsigned int>, At<int>,           At<float>,          At<double>};
  return readers[type](row, i);
}

bool Same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

ValueConversion For(const TypeCase& type) {
  ValueConversion c;
  c.m_dOutMin = type.minimum;
  c.m_dOutMax = type.maximum;
  return c;
}

class EveryType : public testing::TestWithParam<TypeCase> {};
INSTANTIATE_TEST_SUITE_P(ValueConversion, EveryType, testing::ValuesIn(kTypes),
                         [](const auto& each) { return "type" + std::to_string(each.param.type); });

TEST_P(EveryType, EndsAreKeptAndWhatLiesBeyondIsClamped) {
  const TypeCase type = GetParam();
  const ValueConversion c = For(type);
  EXPECT_EQ(ByValue(c, type.type, type.minimum), type.minimum);
  EXPECT_EQ(ByValue(c, type.type, type.maximum), type.maximum);
  EXPECT_EQ(ByValue(c, type.type, kInfinity), type.maximum);
  EXPECT_EQ(ByValue(c, type.type, -kInfinity), type.minimum);
  EXPECT_EQ(ByValue(c, type.type, 1.7976931348623157e308), type.maximum);
  EXPECT_EQ(ByValue(c, type.type, -1.7976931348623157e308), type.minimum);
  if (!type.isFloat) {
    EXPECT_EQ(ByValue(c, type.type, type.maximum + 0.5), type.maximum);
    EXPECT_EQ(ByValue(c, type.type, type.minimum - 0.5), type.minimum);
    EXPECT_EQ(ByValue(c, type.type, type.maximum - 0.25), type.maximum - 1.0);
  }
}

TEST_P(EveryType, AddOneNarrowsTheRangeAtBothEnds) {
  const TypeCase type = GetParam();
  ValueConversion c = For(type);
  c.m_bAddOne = true;
  EXPECT_EQ(c.Low(), type.minimum + 1.0);
  EXPECT_EQ(c.High(), type.maximum - 1.0);
  EXPECT_EQ(ByValue(c, type.type, -kInfinity), type.minimum + 1.0);
  EXPECT_EQ(ByValue(c, type.type, kInfinity), type.maximum - 1.0);
}

TEST_P(EveryType, NanBecomesZeroInIntegersAndStaysInFloats) {
  const TypeCase type = GetParam();
  ValueConversion c = For(type);
  for (const bool addOne : {false, true}) {
    c.m_bAddOne = addOne;
    const double converted = ByValue(c, type.type, kNan);
    if (type.isFloat) {
      EXPECT_TRUE(std::isnan(converted));
    } else {
      EXPECT_EQ(converted, 0.0);
    }
  }
}

TEST(ValueConversion, IntegersTruncateTowardZero) {
  for (const TypeCase& type : kTypes) {
    if (type.isFloat) continue;
    const ValueConversion c = For(type);
    for (const double v : {0.999999, 0.5, 1.5, 2.5, 100.999999999}) {
      EXPECT_EQ(ByValue(c, type.type, v), std::floor(v)) << v;
      EXPECT_EQ(ByValue(c, type.type, -v), type.minimum < 0.0 ? -std::floor(v) : 0.0) << v;
    }
    EXPECT_EQ(ByValue(c, type.type, 0.9999999999999999), 0.0);
  }
}

TEST(ValueConversion, FloatsKeepTheFraction) {
  for (const TypeCase& type : kTypes) {
    if (!type.isFloat) continue;
    for (const double v : {-0.5, 0.75, 1234.5}) EXPECT_EQ(ByValue(For(type), type.type, v), v);
  }
}

TEST_P(EveryType, RowsEqualTheDefinitionAndTheConversionByValue) {
  const TypeCase type = GetParam();
  std::mt19937 random(7U + static_cast<unsigned>(type.type));
  const double special[] = {kNan,  kInfinity,    -kInfinity,   -0.5,         0.999999,     -0.0,         type.minimum,
                            254.5, 2147483647.5, 2147483648.0, 4294967295.9, type.maximum, 2147483648.75};
  for (const bool stretch : {false, true}) {
    for (const bool addOne : {false, true}) {
      ValueConversion c = For(type);
      c.m_bStretch = stretch;
      c.m_bAddOne = addOne;
      c.m_dSrcMin = -3.0;
      c.m_dSrcMax = 1021.0;
      const double reach = stretch ? 1200.0 : std::min(type.maximum * 1.2, 1e39);
      std::uniform_real_distribution<double> value(-reach, reach);
      for (const std::size_t n : {0U, 1U, 3U, 7U, 8U, 9U, 31U, 32U, 33U, 257U}) {
        std::vector<double> values(n);
        for (std::size_t i = 0; i < n; ++i)
          values[i] = i % 5 == 4 ? special[i / 5 % std::size(special)] : value(random);
        // One element of room that must stay untouched.
        std::vector<unsigned char> row((n + 1) * 8, 0xA5);
        c.ConvertRow(type.type, values.data(), row.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
          const double expected = Definition(c, type, values[i]);
          ASSERT_TRUE(Same(FromRow(type.type, row.data(), i), expected)) << values[i] << " of " << n;
          ASSERT_TRUE(Same(ByValue(c, type.type, values[i]), expected)) << values[i];
        }
        const std::size_t used = n * (type.type == 1 ? 1 : type.type <= 3 ? 2 : type.type <= 6 ? 4 : 8);
        for (std::size_t i = used; i < row.size(); ++i) ASSERT_EQ(row[i], 0xA5) << "written beyond the row";
      }
    }
  }
}

TEST_P(EveryType, RangeWiderThanTheTypeIsCutToIt) {
  const TypeCase type = GetParam();
  ValueConversion c;
  c.m_dOutMin = -kInfinity;
  c.m_dOutMax = kInfinity;
  EXPECT_EQ(ByValue(c, type.type, kInfinity), type.maximum);
  EXPECT_EQ(ByValue(c, type.type, -kInfinity), type.minimum);
}

TEST(ValueConversion, StretchMapsTheSourceRange) {
  ValueConversion c;
  c.m_bStretch = true;
  c.m_dSrcMin = 100.0;
  c.m_dSrcMax = 1100.0;
  EXPECT_TRUE(c.IsRescaling());
  EXPECT_EQ(c.Convert<unsigned char>(100.0), 0);
  EXPECT_EQ(c.Convert<unsigned char>(600.0), 127);
  EXPECT_EQ(c.Convert<unsigned char>(1100.0), 255);
  EXPECT_EQ(c.Convert<unsigned char>(50.0), 0);
  EXPECT_EQ(c.Convert<unsigned char>(2000.0), 255);
  EXPECT_DOUBLE_EQ(c.Rescale(600.0), 127.5);
}

TEST(ValueConversion, SwitchedOffItDoesNotRescale) {
  ValueConversion c;
  c.m_dSrcMin = 100.0;
  c.m_dSrcMax = 1100.0;
  EXPECT_FALSE(c.IsRescaling());
  EXPECT_EQ(c.Convert<unsigned char>(100.9), 100);
  EXPECT_EQ(c.Rescale(600.0), 600.0);
}

TEST(ValueConversion, RangesThatDifferByAHundredMillionthAreTheSame) {
  ValueConversion c;
  c.m_bStretch = true;
  c.m_dSrcMin = 1e-8;
  EXPECT_FALSE(c.IsRescaling());
  c.m_dSrcMin = 1.1e-8;
  EXPECT_TRUE(c.IsRescaling());
  c.m_dSrcMin = 0.0;
  c.m_dSrcMax = 255.0 + 1e-6;
  EXPECT_TRUE(c.IsRescaling());
}

TEST(ValueConversion, EmptySourceRangeGoesToTheEndsOrZero) {
  ValueConversion c;
  c.m_bStretch = true;
  c.m_dSrcMin = c.m_dSrcMax = 10.0;
  EXPECT_EQ(c.Convert<unsigned char>(11.0), 255);
  EXPECT_EQ(c.Convert<unsigned char>(9.0), 0);
  EXPECT_EQ(c.Convert<unsigned char>(10.0), 0) << "0 / 0";
}

TEST(ValueConversion, UnknownTypeConvertsNothing) {
  const ValueConversion c;
  const double value = 7.0;
  unsigned char out = 99;
  c.ConvertRow(PDT_UNKNOWN, &value, &out, 1);
  c.ConvertRow(static_cast<PixelDataType>(8), &value, &out, 1);
  EXPECT_EQ(out, 99);
}

}  // namespace

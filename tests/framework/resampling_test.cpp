#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "framework/fusion.h"
#include "framework/resampling/kernels.h"
#include "framework/resampling/resample_point.h"
#include "tests/support/reference_kernel.h"

namespace {

constexpr int kUnknownType = fusion::kResampleTypes.size();

/// The published operations need an object; nothing else of it is used.
class Resampler : public CFusion {
 public:
  explicit Resampler(int type) : CFusion(nullptr) { m_param.m_eResampleType = static_cast<ResampleType>(type); }
  void** AlgorithmProcess(double*, CRect*, double**, int, CRect*, PixelDataType, int, CRect*, CRasterAOI*) override {
    return nullptr;
  }
};

TEST(Kernels, AreFoundByTheirNames) {
  for (std::size_t i = 0; i < fusion::kResampleTypes.size(); ++i) {
    const std::string name = fusion::kResampleNames[i];
    EXPECT_EQ(CStringParamParser::GetResampleType({name.begin(), name.end()}), fusion::kResampleTypes[i]) << name;
  }
  EXPECT_STREQ(fusion::kResampleNames[0], "nearest");
}

/// A 10 x 10 buffer whose element (r, c) is 100 r + c.
std::vector<double> Ramp() {
  std::vector<double> values;
  for (int r = 0; r < 10; ++r) {
    for (int c = 0; c < 10; ++c) values.push_back(100.0 * r + c);
  }
  return values;
}

double At(int type, double x, double y, const std::vector<double>& values, CRect rect = {0, 0, 10, 10}) {
  const double* bands[] = {values.data()};
  double out = -1.0;
  EXPECT_TRUE(Resampler(type).Resample(x, y, bands, 1, &rect, &out));
  return out;
}

TEST(Resampling, KernelsHaveTheTypesFromZeroOn) {
  // Other tests take the number behind the last for an unknown type.
  int next = 0;
  for (const ResampleType type : fusion::kResampleTypes) EXPECT_EQ(type, next++);
  EXPECT_EQ(next, kUnknownType);
}

TEST(Resampling, UnknownTypeLeavesTheResultUntouchedAndStillAnswersTrue) {
  EXPECT_EQ(At(kUnknownType, 4.0, 4.0, Ramp()), -1.0);
  EXPECT_EQ(At(-1, 4.0, 4.0, Ramp()), -1.0);
}

TEST(Resampling, WholePositionsGiveTheSampleItself) {
  for (const ResampleType type : fusion::kResampleTypes) EXPECT_EQ(At(type, 4.0, 5.0, Ramp()), 504.0) << type;
}

TEST(Resampling, EachMethodCanBeCalledByItsName) {
  const std::vector<double> values = Ramp();
  const double* bands[] = {values.data()};
  CRect rect(0, 0, 10, 10);
  double out = -1.0;
  // Whatever the record says.
  Resampler resampler(kUnknownType);
  resampler.NearestNeighbor(bands, 1, &rect, 4.25, 5.5, &out);
  EXPECT_EQ(out, 604.0);
  resampler.Bilinear(bands, 1, &rect, 4.25, 5.5, &out);
  EXPECT_EQ(out, 554.25);
  resampler.Bicubic(bands, 1, &rect, 4.25, 5.5, &out);
  EXPECT_EQ(out, 554.34375);
}

TEST(Resampling, RampIsReproducedByBilinear) { EXPECT_DOUBLE_EQ(At(1, 4.25, 5.5, Ramp()), 554.25); }

TEST(Resampling, BicubicWeightsAtAQuarterAreKeysWithParameterMinusOne) {
  // w(1.25), w(0.25), w(0.75), w(1.75) = -0.140625, 0.890625, 0.296875, -0.046875, so on a ramp of slope 1 a quarter
  // becomes 0.140625 + 0.296875 - 2 x 0.046875 = 0.34375; a half stays a half.
  EXPECT_EQ(At(2, 4.25, 5.5, Ramp()), 554.34375);
}

TEST(Resampling, BicubicWeightsAtAHalfAreKeysWithParameterMinusOne) {
  // At a half sample: w(1.5), w(0.5), w(0.5), w(1.5) = -0.125, 0.625, 0.625, -0.125.
  std::vector<double> values(100, 0.0);
  for (int r = 0; r < 10; ++r) values[static_cast<std::size_t>(r) * 10 + 4] = 8.0;
  EXPECT_EQ(At(2, 3.5, 5.0, values), 5.0);
  EXPECT_EQ(At(2, 4.5, 5.0, values), 5.0);
  EXPECT_EQ(At(2, 5.5, 5.0, values), -1.0);
  EXPECT_EQ(At(2, 2.5, 5.0, values), -1.0);
}

TEST(Resampling, BicubicFallsBackToBilinearAtTheFirstColumn) {
  EXPECT_EQ(At(2, 0.75, 5.0, Ramp()), At(1, 0.75, 5.0, Ramp()));
  EXPECT_DOUBLE_EQ(At(2, 0.75, 5.0, Ramp()), 500.75);
}

TEST(Resampling, SlightlyNegativePositionIsNotAFallback) {
  // Truncation gives column 0 for both samples; the weights -0.2 and 0.2 cancel.
  EXPECT_NEAR(At(1, -0.2, 5.0, Ramp()), 0.0, 1e-9);
}

TEST(Resampling, BicubicAllowsTheLastButOneRowButNotTheColumn) {
  // Row 8.5 needs rows 7 to 10; row 10 counts as 0: 0.625 (800 + 900) - 0.125 (700 + 0) + the column.
  EXPECT_NEAR(At(2, 4.0, 8.5, Ramp()), 0.625 * (804 + 904) - 0.125 * 704, 1e-9);
  // Column 8.5 falls back to bilinear.
  EXPECT_DOUBLE_EQ(At(2, 8.5, 4.0, Ramp()), 408.5);
}

TEST(Resampling, NearestReadsOneColumnPastTheRow) {
  EXPECT_EQ(At(0, 9.6, 3.0, Ramp()), 400.0);
  // The element past the last row counts as 0.
  EXPECT_EQ(At(0, 9.6, 9.0, Ramp()), 0.0);
  EXPECT_EQ(At(0, 3.0, 9.7, Ramp()), 0.0);
}

TEST(Resampling, FarAndUndefinedPositionsStayInsideTheBuffer) {
  const double far[] = {-1e9,
                        1e9,
                        -1e300,
                        1e300,
                        std::numeric_limits<double>::quiet_NaN(),
                        -std::numeric_limits<double>::infinity(),
                        std::numeric_limits<double>::infinity()};
  for (const ResampleType type : fusion::kResampleTypes) {
    for (const double position : far) {
      At(type, position, 4.0, Ramp());
      At(type, 4.0, position, Ramp());
      At(type, position, position, Ramp(), {1000, 1000, 1010, 1010});
    }
  }
}

TEST(Resampling, DefinitionAgreesWithThePlainTranscription) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  for (int round = 0; round < 400; ++round) {
    const int left = static_cast<int>(random() % 40);
    const int top = static_cast<int>(random() % 40);
    const CRect rect(left, top, left + 1 + static_cast<int>(random() % 14), top + 1 + static_cast<int>(random() % 14));
    std::vector<std::vector<double>> buffers(2, std::vector<double>(static_cast<std::size_t>(rect.Area())));
    for (auto& buffer : buffers) {
      for (double& v : buffer) v = value(random);
    }
    const double* bands[] = {buffers[0].data(), buffers[1].data()};
    std::uniform_real_distribution<double> x(rect.left - 4.0, rect.right + 4.0);
    std::uniform_real_distribution<double> y(rect.top - 4.0, rect.bottom + 4.0);
    for (int i = 0; i < 60; ++i) {
      double px = x(random);
      double py = y(random);
      if (i % 5 == 0) px = std::floor(px);
      if (i % 7 == 0) py = std::floor(py) + 0.5;
      for (int type = -1; type <= kUnknownType; ++type) {
        double out[] = {0.0, 0.0};
        fusion::ResamplePoint(static_cast<ResampleType>(type), px, py, bands, 2, rect, out);
        const auto expected = reference::Resample(type, px, py, buffers, rect);
        EXPECT_EQ(out[0], expected[0]) << type << ' ' << px << ' ' << py;
        EXPECT_EQ(out[1], expected[1]) << type << ' ' << px << ' ' << py;
      }
    }
  }
}

}  // namespace

// The correlation of two images' detail.
#include "quality/spatial_correlation.h"

#include "tests/quality/random_image.h"

namespace {

using quality::Image;
using test_support::PlainMoments;
using test_support::RandomImage;

/// Each pixel with all its neighbours, filtered.
std::vector<double> Filtered(const Image& image, std::size_t band) {
  std::vector<double> values;
  for (int y = 1; y + 1 < image.height; ++y) {
    for (int x = 1; x + 1 < image.width; ++x) {
      double sum = 0.0;
      for (int j = -1; j <= 1; ++j) {
        for (int i = -1; i <= 1; ++i) {
          const double weight = i == 0 && j == 0 ? 8.0 : -1.0;
          sum += weight * image.bands[band][static_cast<std::size_t>((y + j) * image.width + x + i)];
        }
      }
      values.push_back(sum);
    }
  }
  return values;
}

double PlainCorrelation(const Image& truth, const Image& fused) {
  double sum = 0.0;
  for (std::size_t b = 0; b < truth.bands.size(); ++b) {
    const PlainMoments m(Filtered(truth, b), Filtered(fused, b));
    sum += m.covariance / std::sqrt(m.varianceA * m.varianceB);
  }
  return sum / static_cast<double>(truth.bands.size());
}

TEST(SpatialCorrelation, IsThatOfTheFilteredBandsByTheDefinition) {
  const Image truth = RandomImage(1, 12, 9, 3);
  const Image fused = test_support::Like(truth, 2, 400.0);
  EXPECT_NEAR(quality::SpatialCorrelation(truth, fused), PlainCorrelation(truth, fused), 1e-12);
}

TEST(SpatialCorrelation, DoesNotSeeScaleAndShift) {
  const Image truth = RandomImage(3, 10, 10, 2);
  EXPECT_NEAR(quality::SpatialCorrelation(truth, truth), 1.0, 1e-12);
  const auto scaled = [&](double factor) {
    return test_support::Mapped(truth, [factor](double v) { return factor * v + 50.0; });
  };
  EXPECT_NEAR(quality::SpatialCorrelation(truth, scaled(0.25)), 1.0, 1e-12);
  EXPECT_NEAR(quality::SpatialCorrelation(truth, scaled(-2.0)), -1.0, 1e-12);
  // Nor a plane, which has no detail.
  Image tilted = truth;
  for (auto& band : tilted.bands) {
    for (std::size_t i = 0; i < band.size(); ++i) band[i] += 30.0 * static_cast<double>(i % 10);
  }
  EXPECT_NEAR(quality::SpatialCorrelation(truth, tilted), 1.0, 1e-12);
  EXPECT_TRUE(std::isnan(quality::SpatialCorrelation(truth, scaled(0.0))));
}

TEST(SpatialCorrelation, CountsPixelsWithAllTheirNeighbours) {
  Image truth = RandomImage(4, 13, 6, 1);
  const Image fused = test_support::Like(truth, 5, 300.0);
  // Column 6 is left out: what counts are columns 1 to 4 and 8 to 11, as in two images without it.
  const Image truths[] = {test_support::Part(truth, 0, 0, 6, 6), test_support::Part(truth, 7, 0, 6, 6)};
  const Image fuseds[] = {test_support::Part(fused, 0, 0, 6, 6), test_support::Part(fused, 7, 0, 6, 6)};
  std::vector<double> t;
  std::vector<double> f;
  quality::DetailSums sums;
  for (int i = 0; i < 2; ++i) {
    for (const double v : Filtered(truths[i], 0)) t.push_back(v);
    for (const double v : Filtered(fuseds[i], 0)) f.push_back(v);
    sums.Add(truths[i], fuseds[i]);
  }
  const PlainMoments m(t, f);
  const double expected = m.covariance / std::sqrt(m.varianceA * m.varianceB);
  EXPECT_NEAR(sums.Correlation(), expected, 1e-12);
  for (std::size_t y = 0; y < 6; ++y) test_support::LeaveOut(truth, y * 13 + 6);
  EXPECT_NEAR(quality::SpatialCorrelation(truth, fused), expected, 1e-12);
  EXPECT_NEAR(quality::SpatialCorrelation(fused, truth), expected, 1e-12);
  EXPECT_TRUE(std::isnan(quality::SpatialCorrelation(RandomImage(1, 2, 9, 1), RandomImage(2, 2, 9, 1))));
}

TEST(SpatialCorrelation, OfImagesThatDoNotFitIsRefused) {
  test_support::ExpectRefusals([](const Image& t, const Image& f) { return quality::SpatialCorrelation(t, f); });
}

}  // namespace

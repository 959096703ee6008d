#include "framework/resampling/row_resampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>

#include "framework/resampling/kernels.h"
#include "tests/support/reference_kernel.h"

namespace {

constexpr auto kTypes = fusion::kResampleTypes.size();

constexpr int kWidths[] = {1, 3, 7, 8, 9, 31, 32, 33, 257};

struct Coarse {
  CRect rect;
  std::vector<std::vector<double>> buffers;
  std::vector<const double*> bands;

  Coarse(std::mt19937& random, int bandCount) {
    const int left = static_cast<int>(random() % 3 == 0 ? 0 : random() % 50);
    const int top = static_cast<int>(random() % 3 == 0 ? 0 : random() % 50);
    rect = CRect(left, top, left + 1 + static_cast<int>(random() % 60), top + 1 + static_cast<int>(random() % 30));
    std::uniform_real_distribution<double> value(-1000.0, 1000.0);
    for (int b = 0; b < bandCount; ++b) {
      buffers.emplace_back(static_cast<std::size_t>(rect.Area()));
      for (double& v : buffers.back()) v = random() % 9 == 0 ? -0.0 : value(random);
    }
    for (const auto& buffer : buffers) bands.push_back(buffer.data());
  }
};

struct Rows {
  std::vector<std::vector<double>> values;
  std::vector<double*> pointers;

  Rows(int bands, int width)
      : values(static_cast<std::size_t>(bands), std::vector<double>(static_cast<std::size_t>(width))) {
    for (auto& row : values) pointers.push_back(row.data());
  }
};

void ExpectSameBits(const Coarse& scene, int type, double x, double y, int column, const Rows& rows) {
  const auto expected = reference::Resample(type, x, y, scene.buffers, scene.rect);
  for (std::size_t b = 0; b < expected.size(); ++b) {
    const double value = rows.values[b][static_cast<std::size_t>(column)];
    ASSERT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected[b]))
        << "type " << type << " at " << x << ", " << y << ": " << value << " instead of " << expected[b];
  }
}

/// Positions of a whole row: a regular grid with a ratio of 1 to 8 that may start outside the rectangle.
std::vector<double> Columns(std::mt19937& random, int width, int first, int size) {
  const double step = 1.0 / (1 + static_cast<int>(random() % 8));
  const double jitter = random() % 2 ? 0.0 : 1e-3 * static_cast<double>(random() % 1000);
  const double start = first - 5.0 + static_cast<double>(random() % static_cast<unsigned>(size + 6)) + jitter;
  std::vector<double> x;
  for (int i = 0; i < width; ++i) x.push_back(start + i * step * (random() % 50 == 0 ? 1.5 : 1.0));
  return x;
}

TEST(RowResampler, SeparableRowsEqualTheDefinitionBitForBit) {
  std::mt19937 random(11);
  for (int round = 0; round < 1500; ++round) {
    const Coarse scene(random, 1 + static_cast<int>(random() % 4));
    const int width = kWidths[random() % std::size(kWidths)];
    const int type = static_cast<int>(random() % (kTypes + 1));  // an unknown one among them
    const auto x = Columns(random, width, scene.rect.left, scene.rect.Width());
    fusion::RowResampler resampler(static_cast<ResampleType>(type), scene.bands.data(),
                                   static_cast<int>(scene.bands.size()), scene.rect);
    resampler.SetColumns(x.data(), width);
    const double step = 1.0 / (1 + static_cast<int>(random() % 8));
    double y = scene.rect.top - 3.0 + 0.125 * static_cast<double>(random() % 16);
    for (int row = 0; row < 12; ++row, y += step * (row % 5 == 4 ? 7.0 : 1.0)) {
      Rows rows(static_cast<int>(scene.bands.size()), width);
      resampler.ResampleRow(y, rows.pointers.data());
      for (int i = 0; i < width; ++i) ExpectSameBits(scene, type, x[static_cast<std::size_t>(i)], y, i, rows);
    }
  }
}

TEST(RowResampler, RowsMayComeInAnyOrder) {
  std::mt19937 random(12);
  for (int round = 0; round < 200; ++round) {
    const Coarse scene(random, 2);
    const int type = static_cast<int>(random() % kTypes);
    const auto x = Columns(random, 33, scene.rect.left, scene.rect.Width());
    fusion::RowResampler resampler(static_cast<ResampleType>(type), scene.bands.data(), 2, scene.rect);
    resampler.SetColumns(x.data(), 33);
    std::uniform_real_distribution<double> position(scene.rect.top - 2.0, scene.rect.bottom + 2.0);
    for (int row = 0; row < 20; ++row) {
      const double y = position(random);
      Rows rows(2, 33);
      resampler.ResampleRow(y, rows.pointers.data());
      for (int i = 0; i < 33; ++i) ExpectSameBits(scene, type, x[static_cast<std::size_t>(i)], y, i, rows);
    }
  }
}

TEST(RowResampler, NewColumnsForgetTheOldOnes) {
  std::mt19937 random(13);
  const Coarse scene(random, 2);
  fusion::RowResampler resampler(RT_BICUBIC, scene.bands.data(), 2, scene.rect);
  for (const double shift : {0.0, 0.3, 0.6}) {
    std::vector<double> x;
    for (int i = 0; i < 9; ++i) x.push_back(scene.rect.left + 2 + shift + i * 0.5);
    resampler.SetColumns(x.data(), 9);
    Rows rows(2, 9);
    const double y = scene.rect.top + 2.25;
    resampler.ResampleRow(y, rows.pointers.data());
    for (int i = 0; i < 9; ++i) ExpectSameBits(scene, 2, x[static_cast<std::size_t>(i)], y, i, rows);
  }
}

TEST(RowResampler, FreePositionsEqualTheDefinitionBitForBit) {
  std::mt19937 random(14);
  const double far[] = {-1e9, 1e9};
  for (int round = 0; round < 600; ++round) {
    const Coarse scene(random, 1 + static_cast<int>(random() % 9));
    const int width = kWidths[random() % std::size(kWidths)];
    const int type = static_cast<int>(random() % (kTypes + 1));  // an unknown one among them
    // Rows all of whose positions lie inside, and others.
    const double reach = random() % 3 == 0 ? -3.0 : 4.0;
    const auto along = [reach](int from, int to) {
      const double a = from - reach;
      return std::uniform_real_distribution<double>(a, std::max<double>(a, to + reach));
    };
    auto px = along(scene.rect.left, scene.rect.right);
    auto py = along(scene.rect.top, scene.rect.bottom);
    std::vector<double> x;
    std::vector<double> y;
    for (int i = 0; i < width; ++i) {
      x.push_back(reach > 0.0 && random() % 60 == 0 ? far[random() % std::size(far)] : px(random));
      y.push_back(reach > 0.0 && random() % 60 == 0 ? far[random() % std::size(far)] : py(random));
      if (random() % 9 == 0) x.back() = std::floor(x.back());
      if (random() % 9 == 0) y.back() = std::floor(y.back());
    }
    Rows rows(static_cast<int>(scene.bands.size()), width);
    fusion::RowResampler resampler(static_cast<ResampleType>(type), scene.bands.data(),
                                   static_cast<int>(scene.bands.size()), scene.rect);
    resampler.ResamplePoints(x.data(), y.data(), width, rows.pointers.data());
    for (int i = 0; i < width; ++i) {
      ExpectSameBits(scene, type, x[static_cast<std::size_t>(i)], y[static_cast<std::size_t>(i)], i, rows);
    }
  }
}

}  // namespace

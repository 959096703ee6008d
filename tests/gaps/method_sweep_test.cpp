// Every method and resampling on scenes with gaps of every shape in every pixel type.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <tuple>

#include "framework/resampling/kernels.h"
#include "tests/support/all_methods.h"
#include "tests/support/gap_scene.h"

namespace {

using test_support::GapScene;
using test_support::GapShape;
using test_support::MaskedOutput;
using test_support::NamedMethod;
using test_support::ReadMasked;

/// The smallest value that a pixel with data may have in place of 0.
double Least(PixelDataType type) {
  if (type == PDT_FLOAT32) return static_cast<double>(std::numeric_limits<float>::min());
  return type == PDT_FLOAT64 ? std::numeric_limits<double>::min() : 1.0;
}

class GapSweep : public testing::TestWithParam<std::tuple<int, int>> {
 protected:
  static PixelDataType Type() { return static_cast<PixelDataType>(std::get<0>(GetParam())); }
  static GapShape Shape() { return test_support::kGapShapes[std::get<1>(GetParam())]; }
  static GapScene MakeScene() {
    test_support::SceneOptions options;
    options.ratio = Shape() == GapShape::kCollar ? 2.37 : 2.0;
    // Other scenes for whoever wants to look at more.
    const char* more = std::getenv("FUSION_GAP_SEED");
    const unsigned seed = more ? static_cast<unsigned>(std::stoul(more)) : 0U;
    return {100 * seed + static_cast<unsigned>(std::get<0>(GetParam())), Shape(), Type(), options};
  }

  /// Calls visit with each method's record, once per resampling.
  template <typename Visit>
  static void ForEachRun(const GapScene& gaps, const Visit& visit) {
    for (const NamedMethod& method : test_support::AllMethods()) {
      for (const ResampleType resample : fusion::kResampleTypes) {
        if (method.isPipeline && resample != RT_BICUBIC) continue;
        SCOPED_TRACE(method.name + ", resampling " + std::to_string(resample));
        FusionParam param = gaps.scene.Param(Type());
        param.m_bMaskNoData = true;
        param.m_eResampleType = resample;
        visit(method, param);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
};

TEST_P(GapSweep, NoPixelDependsOnTheFillValueAndGapsAreZero) {
  const GapScene gaps = MakeScene();
  const auto [first, second] = test_support::FillValues(Type());
  ForEachRun(gaps, [&, a = first, b = second](const NamedMethod& method, const FusionParam& param) {
    gaps.Write(a);
    method.run(param);
    const MaskedOutput output = ReadMasked(param.m_strOutFile);
    ExpectMask(output, gaps);
    gaps.Write(b);
    method.run(param);
    test_support::ExpectEqual(ReadMasked(param.m_strOutFile).image, output.image.bands);
  });
}

TEST_P(GapSweep, PixelsFarFromGapsAreThoseOfTheWholeScene) {
  const GapScene gaps = MakeScene();
  const double fill = test_support::FillValues(Type()).first;
  int compared = 0;
  ForEachRun(gaps, [&](const NamedMethod& method, FusionParam param) {
    if (!method.isLocal) return;
    gaps.Write(fill);
    method.run(param);
    const reference::Image actual = ReadMasked(param.m_strOutFile).image;
    gaps.WriteWhole(fill);
    param.m_bMaskNoData = false;
    method.run(param);
    const reference::Image whole = ReadMasked(param.m_strOutFile).image;
    for (int row = 0; row < actual.height; ++row) {
      for (int column = 0; column < actual.width; ++column) {
        if (!gaps.IsFarFromGaps(column, row)) continue;
        ++compared;
        for (std::size_t b = 0; b < actual.bands.size(); ++b) {
          const auto i = static_cast<std::size_t>(row * actual.width + column);
          const double expected = whole.bands[b][i] == 0.0 ? Least(Type()) : whole.bands[b][i];
          ASSERT_EQ(actual.bands[b][i], expected) << "band " << b << " at " << column << ' ' << row;
        }
      }
    }
  });
  RecordProperty("compared", compared);
  EXPECT_GT(compared, 200);
}

std::string CaseName(const testing::TestParamInfo<std::tuple<int, int>>& info) {
  static const char* const kTypes[] = {"", "uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  return std::string(kTypes[std::get<0>(info.param)]) + "_" + NameOf(test_support::kGapShapes[std::get<1>(info.param)]);
}

INSTANTIATE_TEST_SUITE_P(TypesAndShapes, GapSweep, testing::Combine(testing::Range(1, 8), testing::Range(0, 3)),
                         CaseName);

}  // namespace

#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <tuple>

#include "framework/fusion.h"
#include "framework/resampling/kernels.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/reproject.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

/// What every fusion method is put through.
namespace test_support {

double Mean(const std::vector<double>& values);
double Deviation(const std::vector<double>& values);

using MakeReference = std::function<reference::Run(const Scene&, const FusionParam&)>;

inline void ExpectSuccess(const CBaseAlgorithm& fusion) {
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_TRUE(fusion.GetLastErrorMessage().empty());
}

/// Runs the method and holds its output against the per-pixel definition.
template <typename Method>
void ExpectDefinition(const Scene& scene, FusionParam param, const reference::Run& run) {
  Method fusion(&param);
  fusion.Process();
  ExpectSuccess(fusion);
  ExpectEqual(ReadImage(scene.outFile), reference::Fuse(run), run.tolerance);
}

/// Gives both images origins and pixels that are no round numbers, so that the last bits of a result tell from which
/// raster its positions start.
void MakeUneven(Scene& scene);

/// Positions start where the definition says, to the last bit.
template <typename Method>
void ExpectPositionStart(const MakeReference& make) {
  Scene scene(98);
  MakeUneven(scene);
  FusionParam param = scene.Param();
  param.m_eResampleType = RT_BILINEAR;
  param.m_rcProcess = {5, 3, 31, 26};
  const reference::Run run = make(scene, param);
  ExpectDefinition<Method>(scene, param, run);
  reference::Run other = run;
  other.startAtOutput = !run.startAtOutput;
  EXPECT_NE(reference::Fuse(run), reference::Fuse(other)) << "the scene cannot tell";
}

/// The definition under a reprojection: a multispectral image in degrees under a pan image in UTM. Positions are asked
/// of a reprojection built the way a run builds its own.
class ReprojectedScene {
 public:
  explicit ReprojectedScene(unsigned seed);
  Scene& Base() { return m_scene; }
  /// Completes a reference for the area of a run's output.
  void Complete(reference::Run& run, const reference::Image& output);

 private:
  Scene m_scene;
  std::unique_ptr<CReproject> m_reproject;
};

/// Test cases over the seven output types and three resamplings.
class MethodSweep : public testing::TestWithParam<std::tuple<int, int>> {
 protected:
  template <typename Method>
  void Sweep(const MakeReference& make) {
    const double ratios[] = {1.0, 2.0, 4.0, 2.37};
    for (std::size_t i = 0; i < std::size(ratios); ++i) {
      SceneOptions options;
      options.ratio = ratios[i];
      options.msBands = 3 + static_cast<int>(i % 2);
      options.panType = PDT_INT16;
      options.msType = PDT_FLOAT64;
      const Scene scene(Seed() + static_cast<unsigned>(i), options);
      const FusionParam param = Param(scene);
      SCOPED_TRACE("ratio " + std::to_string(ratios[i]));
      ExpectDefinition<Method>(scene, param, make(scene, param));
    }
    {
      SCOPED_TRACE("chosen area over several blocks");
      SceneOptions options;
      options.panWidth = 24;
      options.panHeight = 1090;
      const Scene scene(Seed() + 10, options);
      FusionParam param = Param(scene);
      param.m_rcProcess = {3, 7, 22, 1060};
      ExpectDefinition<Method>(scene, param, make(scene, param));
    }
    {
      SCOPED_TRACE("area of interest");
      const Scene scene(Seed() + 11);
      FusionParam param = Param(scene);
      param.m_strAoiFile = L"/vsimem/sweep_area.csv";
      const double x = 440000.0 + 5 * 10.0;
      const double y = 4470000.0 - 4 * 10.0;
      WriteTriangle(param.m_strAoiFile, {x, y}, {x + 200.0, y}, {x, y - 200.0});
      reference::Run run = make(scene, param);
      run.process = {5, 4, 25, 24};
      run.inside = [](int column, int row) { return column - 5 + 0.5 + row - 4 + 0.5 < 20.0; };
      ExpectDefinition<Method>(scene, param, run);
    }
    {
      SCOPED_TRACE("reprojection");
      ReprojectedScene reprojected(Seed() + 12);
      FusionParam param = Param(reprojected.Base());
      Method fusion(&param);
      fusion.Process();
      ExpectSuccess(fusion);
      const reference::Image out = ReadImage(reprojected.Base().outFile);
      reference::Run run = make(reprojected.Base(), param);
      reprojected.Complete(run, out);
      ExpectEqual(out, reference::Fuse(run), run.tolerance);
    }
  }

  FusionParam Param(const Scene& scene) const {
    FusionParam param = scene.Param(static_cast<PixelDataType>(std::get<0>(GetParam())));
    param.m_eResampleType = static_cast<ResampleType>(std::get<1>(GetParam()));
    return param;
  }
  static unsigned Seed() { return static_cast<unsigned>(std::get<0>(GetParam()) * 100 + std::get<1>(GetParam()) * 20); }
};

inline auto AllTypesAndResamplings() {
  return testing::Combine(testing::Range(1, 8), testing::Range(0, static_cast<int>(fusion::kResampleTypes.size())));
}
std::string SweepCaseName(const testing::TestParamInfo<std::tuple<int, int>>& info);

/// A scene of one pan row over one row of multispectral samples, so that nearest gives the samples themselves.
class OneRow {
 public:
  OneRow(std::vector<double> pan, std::vector<std::vector<double>> bands, PixelDataType type = PDT_FLOAT64);

  template <typename Method>
  std::vector<std::vector<double>> Fuse(PixelDataType outType = PDT_FLOAT64,
                                        const std::function<void(Method&)>& prepare = {}) const {
    FusionParam param = Param();
    param.m_eOutDataType = outType;
    Method fusion(&param);
    if (prepare) prepare(fusion);
    fusion.Process();
    ExpectSuccess(fusion);
    return ReadImage(param.m_strOutFile).bands;
  }
  FusionParam Param() const;
};

/// For methods that prepare nothing of the value conversion: it stays the caller's, also where both images declare
/// no-data values.
template <typename Method>
void ExpectConversionKept() {
  SceneOptions options;
  options.panNoData = options.msNoData = 5000.0;
  const Scene scene(98, options);
  for (const bool addOne : {false, true}) {
    FusionParam param = scene.Param(PDT_UINT8);
    Method fusion(&param);
    fusion.SetAddOne(addOne);
    fusion.SetSrcMinMaxValue(7.0, 77.0);
    fusion.Process();
    ExpectSuccess(fusion);
    EXPECT_EQ(fusion.GetValueConversion().m_bAddOne, addOne);
    EXPECT_EQ(fusion.GetValueConversion().m_dSrcMin, 7.0);
    EXPECT_EQ(fusion.GetValueConversion().m_dSrcMax, 77.0);
  }
}

/// What holds for every method alike: unknown output types, cancellation, failures, copies.
template <typename Method>
void ExpectCommonRules() {
  const Scene scene(99);
  {
    SCOPED_TRACE("an unknown output type yields no block");
    FusionParam param = scene.Param();
    class Typed : public Method {
     public:
      using Method::Method;
      GISError Preproccess() override {
        const GISError result = Method::Preproccess();
        CRect one(0, 0, 1, 1);
        double value[] = {1.0};
        double sample[] = {1.0, 0.0, 0.0, 0.0};
        double* samples[] = {sample, sample, sample};
        for (const int type : {0, 8, -1}) {
          EXPECT_EQ(
              this->AlgorithmProcess(value, &one, samples, 3, &one, static_cast<PixelDataType>(type), 3, &one, nullptr),
              nullptr);
        }
        return result;
      }
    } fusion(&param);
    fusion.Process();
    ExpectSuccess(fusion);
  }
  {
    SCOPED_TRACE("outside a run there is nothing to prepare and nothing to fuse");
    FusionParam param = scene.Param();
    Method idle(&param);
    double* none[] = {nullptr, nullptr, nullptr};
    CRect rect(0, 0, 1, 1);
    for (const int type : {0, 7, 8}) {
      EXPECT_EQ(
          idle.AlgorithmProcess(nullptr, &rect, none, 3, &rect, static_cast<PixelDataType>(type), 3, &rect, nullptr),
          nullptr);
    }
  }
  {
    SCOPED_TRACE("cancellation");
    FusionParam param = scene.Param();
    RecordingProgress progress;
    progress.CancelAtStep(1);
    Method fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    EXPECT_EQ(fusion.GetLastErrorType(), 1);
    EXPECT_FALSE(progress.Finished());
    EXPECT_EQ(progress.Errors(), 0);
  }
  const auto failing = [&](platform::RasterOperation operation, const std::wstring& path) {
    platform::SetRasterFault([=](platform::RasterOperation op, const std::wstring& file, int, const CRect&) {
      return op == operation && file == path;
    });
    FusionParam param = scene.Param();
    RecordingProgress progress;
    Method fusion(&param);
    fusion.SetProgress(&progress);
    fusion.Process();
    platform::SetRasterFault({});
    EXPECT_FALSE(progress.Finished());
    return fusion.GetLastErrorType();
  };
  EXPECT_EQ(failing(platform::RasterOperation::kOpen, scene.panFile), 4);
  EXPECT_EQ(failing(platform::RasterOperation::kOpen, scene.msFile), 4);
  EXPECT_EQ(failing(platform::RasterOperation::kCreate, scene.outFile), 5);
  EXPECT_EQ(failing(platform::RasterOperation::kRead, scene.msFile), 2);
  EXPECT_EQ(failing(platform::RasterOperation::kRead, scene.panFile), 2);
  EXPECT_EQ(failing(platform::RasterOperation::kWrite, scene.outFile), 3);
  EXPECT_EQ(failing(platform::RasterOperation::kClose, scene.outFile), 3);
  {
    SCOPED_TRACE("copies run on their own and outlive their source");
    FusionParam param = scene.Param();
    auto first = std::make_unique<Method>(&param);
    first->Process();
    const auto before = ReadImage(scene.outFile);
    Method copy(*first);
    Method assigned(&param);
    assigned = copy;
    first.reset();
    copy.Process();
    ExpectSuccess(copy);
    assigned.Process();
    ExpectSuccess(assigned);
    ExpectEqual(ReadImage(scene.outFile), before.bands);
  }
}

}  // namespace test_support

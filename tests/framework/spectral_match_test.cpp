#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "band_arithmetic/brovey_fusion.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace {

using platform::RasterOperation;
using test_support::FilesNamedLike;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::Scene;

struct Figures {
  double mean;
  double deviation;
};

Figures FiguresOf(const std::vector<double>& values) {
  long double sum = 0;
  for (const double v : values) sum += v;
  const long double mean = sum / static_cast<long double>(values.size());
  long double squares = 0;
  for (const double v : values) squares += (v - mean) * (v - mean);
  return {static_cast<double>(mean), std::sqrt(static_cast<double>(squares / static_cast<long double>(values.size())))};
}

class SpectralMatch : public testing::Test {
 protected:
  ~SpectralMatch() override { platform::SetRasterFault({}); }
};

TEST_F(SpectralMatch, FusedBandsTakeTheMultispectralMeansAndDeviations) {
  const Scene scene(31);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  const auto out = ReadImage(scene.outFile);
  ASSERT_EQ(out.bands.size(), 3u);
  for (std::size_t b = 0; b < 3; ++b) {
    const Figures target = FiguresOf(scene.ms.bands[b]);
    const Figures actual = FiguresOf(out.bands[b]);
    EXPECT_NEAR(actual.mean, target.mean, 1e-3);
    EXPECT_NEAR(actual.deviation, target.deviation, 1e-3);
  }
  auto after = FilesNamedLike(L"");
  EXPECT_EQ(after.size(), before.size() + 1) << "only the output is new";
}

TEST_F(SpectralMatch, FailedStretchLeavesNeitherOutputNorTemporaryFile) {
  const Scene scene(32);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  platform::SetRasterFault([&](RasterOperation operation, const std::wstring& path, int, const CRect&) {
    return operation == RasterOperation::kWrite && path == scene.outFile;
  });
  CBroveyFusion fusion(&param);
  fusion.Process();
  // The stretch's own error is not taken over; that no output exists tells the failure.
  EXPECT_EQ(fusion.GetLastErrorType(), 0);
  EXPECT_EQ(FilesNamedLike(L""), before);
}

TEST_F(SpectralMatch, CancelledRunRemovesItsTemporaryFile) {
  const Scene scene(33);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  RecordingProgress progress;
  progress.CancelAtStep(1);
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 1);
  for (const auto& file : FilesNamedLike(L"")) {
    EXPECT_TRUE(L"/vsimem/" + file == scene.outFile || std::find(before.begin(), before.end(), file) != before.end());
  }
}

TEST_F(SpectralMatch, MissingTargetsAreErrorSeven) {
  class NoStatistics : public CBroveyFusion {
   public:
    using CBroveyFusion::CBroveyFusion;
    GISError Preproccess() override { return GIS_SUCCESS; }
  };
  const Scene scene(34);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  const auto before = FilesNamedLike(L"");
  NoStatistics fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 7);
  EXPECT_EQ(FilesNamedLike(L""), before);
}

TEST_F(SpectralMatch, UnknownChosenBandFailsLikeARead) {
  const Scene scene(35);
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_bSpectralMatch = true;
  param.m_vecMSBands = {0, 7};
  CBroveyFusion fusion(&param);
  fusion.Process();
  EXPECT_EQ(fusion.GetLastErrorType(), 2);
}

}  // namespace

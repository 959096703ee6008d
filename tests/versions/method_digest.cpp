// The whole runs of kernel_digest: what is computed behind the library's interfaces.
#include "band_arithmetic/brovey_fusion.h"
#include "framework/match_targets.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "platform/processing/make_green_alg.h"
#include "platform/processing/outo_adjust_level.h"
#include "tests/support/all_methods.h"
#include "tests/support/gap_scene.h"
#include "tests/support/method_sweep.h"
#include "tests/versions/digest.h"

namespace versions {
namespace {

using test_support::NamedMethod;
using test_support::Scene;

void DigestOutput(const std::wstring& path, Digest& digest) {
  for (const Row& band : test_support::ReadImage(path).bands) digest.Add(band);
}

void DigestMethod(const NamedMethod& method, const Scene& scene, FusionParam param, Digest& digest) {
  for (int resample = method.isPipeline ? RT_BICUBIC : RT_NEAREST; resample <= RT_BICUBIC; ++resample) {
    SCOPED_TRACE(method.name + " of " + std::to_string(scene.pan.width) + " columns");
    param.m_eResampleType = static_cast<ResampleType>(resample);
    method.run(param);
    DigestOutput(scene.outFile, digest);
  }
}

/// A matched run, as the command makes it.
void DigestMatching(Digest& digest) {
  const Scene scene(3);
  FusionParam param = scene.Param(PDT_UINT16);
  CBroveyFusion fusion(&param);
  fusion.MatchBlocks({{500.0, 400.0, 300.0}, {90.0, 80.0, 70.0}});
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  DigestOutput(scene.outFile, digest);
}

void DigestTwoDetails(Digest& digest) {
  test_support::SceneOptions options;
  options.msType = PDT_FLOAT64;
  const Scene scene(6, options);
  HpfFusionParam param = test_support::HpfRecord(scene.Param());
  param.m_bSecondFilter = true;
  param.m_filter2 = param.m_filter1;
  CHpfFusionProcessAlg fusion(&param);
  fusion.Process();
  test_support::ExpectSuccess(fusion);
  DigestOutput(scene.outFile, digest);
}

template <typename Stage, typename Param>
void DigestStage(const Scene& scene, Digest& digest) {
  Param param;
  param.m_strInFile = scene.msFile;
  param.m_strOutFile = scene.outFile;
  Stage stage(&param);
  stage.Process();
  EXPECT_EQ(stage.GetLastErrorType(), 0);
  DigestOutput(scene.outFile, digest);
}

}  // namespace

void DigestRuns(Digest& digest) {
  test_support::SceneOptions options;
  options.panWidth = 131;
  options.ratio = 2.37;
  // High-pass fusion writes the multispectral image's type, and rounding would hide last bits.
  options.msType = PDT_FLOAT64;
  const Scene plain(1, options);
  const test_support::GapScene gaps(2, test_support::GapShape::kSpeckles, PDT_INT16, options);
  gaps.Write(test_support::FillValues(PDT_INT16).first);
  test_support::ReprojectedScene reprojected(4);
  for (const NamedMethod& method : test_support::AllMethods()) {
    DigestMethod(method, plain, plain.Param(PDT_FLOAT64), digest);
    DigestMethod(method, plain, plain.Param(PDT_UINT8), digest);
    FusionParam masked = gaps.scene.Param(PDT_INT16);
    masked.m_bMaskNoData = true;
    DigestMethod(method, gaps.scene, masked, digest);
    // A few random pixels between two coordinate systems are too few for a model.
    if (method.name != "bayesian")
      DigestMethod(method, reprojected.Base(), reprojected.Base().Param(PDT_FLOAT32), digest);
    digest.Print(method.name);
  }
  DigestMatching(digest);
  digest.Print("matching");
  DigestTwoDetails(digest);
  digest.Print("two details");
  options.msBands = 4;
  const Scene wide(5, options);
  DigestStage<CMakeGreenAlg, AlgorithmParam>(wide, digest);
  DigestStage<COutoAdjustLevel, OutoAdjustLevelParam>(wide, digest);
  digest.Print("stages");
}

}  // namespace versions

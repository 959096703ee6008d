#include "factory/fusion_algorithm_factory.h"

#include <gtest/gtest.h>

#include <memory>

#include "band_arithmetic/brovey_fusion.h"
#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "highpass/simple_pan_sharpening_fusion_process_alg.h"
#include "tests/support/recording_progress.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace {

template <typename Algorithm>
void ExpectCreates(int type) {
  test_support::RecordingProgress progress;
  FusionParam param;
  const std::unique_ptr<CFusion> algorithm(
      CFusionAlgorithmFactory::CreateAlgorithm(static_cast<FusionType>(type), &progress, &param));
  ASSERT_TRUE(algorithm);
  EXPECT_TRUE(dynamic_cast<Algorithm*>(algorithm.get()));
  EXPECT_EQ(algorithm->GetProgress(), &progress);
}

TEST(FusionAlgorithmFactory, CreatesEachTypeWithTheReporterGiven) {
  ExpectCreates<CIhsTranFusion>(0);
  ExpectCreates<CWeightFusion>(1);
  ExpectCreates<CBroveyFusion>(2);
  ExpectCreates<CMultipleFusion>(3);
  ExpectCreates<CPrinComponentFusion>(4);
  ExpectCreates<CSimplePanSharpeningFusionProcessAlg>(5);
}

TEST(FusionAlgorithmFactory, UnknownTypesGiveNull) {
  FusionParam param;
  for (const int type : {6, 7, 1000, -1}) {
    EXPECT_EQ(CFusionAlgorithmFactory::CreateAlgorithm(static_cast<FusionType>(type), nullptr, &param), nullptr);
  }
}

TEST(FusionAlgorithmFactory, NullRecordGivesAnAlgorithmThatFailsToOpenItsInputs) {
  for (int type = 0; type < 5; ++type) {
    const std::unique_ptr<CFusion> algorithm(
        CFusionAlgorithmFactory::CreateAlgorithm(static_cast<FusionType>(type), nullptr, nullptr));
    ASSERT_TRUE(algorithm);
    algorithm->Process();
    EXPECT_EQ(algorithm->GetLastErrorType(), 4);
  }
}

TEST(FusionAlgorithmFactory, AlgorithmKeepsACopyOfTheRecord) {
  auto param = std::make_unique<FusionParam>();
  param->m_strPanFile = L"/vsimem/gone.tif";
  const std::unique_ptr<CFusion> algorithm(CFusionAlgorithmFactory::CreateAlgorithm(FT_BROVEY, nullptr, param.get()));
  param.reset();
  algorithm->Process();
  EXPECT_EQ(algorithm->GetLastErrorMessage(), L"打开文件（/vsimem/gone.tif）失败！");
}

}  // namespace

// Statistics that cannot be read: classes go on with figures of 0, unless the run needs them.
#include <gtest/gtest.h>

#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "framework/messages.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/scene.h"
#include "transform/ihs_tran_fusion.h"
#include "transform/prin_component_fusion.h"

namespace {

struct Outcome {
  int type;
  std::wstring message;
  int calls;  ///< for statistics
};

/// Of a run whose first statistics cannot be read.
template <typename Algorithm>
Outcome OutcomeOf(bool needed) {
  const test_support::Scene scene(331);
  FusionParam param = scene.Param();
  param.m_bNeedsFigures = needed;
  Algorithm fusion(&param);
  int calls = 0;
  platform::SetRasterFault([&calls](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == platform::RasterOperation::kStatistics && calls++ == 0;
  });
  fusion.Process();
  platform::SetRasterFault({});
  return {fusion.GetLastErrorType(), fusion.GetLastErrorMessage(), calls};
}

TEST(NeededFigures, EndARunWithAFailedReadWhereTheyAreMissing) {
  for (const auto run : {OutcomeOf<CMultipleFusion>, OutcomeOf<CWeightFusion>, OutcomeOf<CIhsTranFusion>,
                         OutcomeOf<CPrinComponentFusion>}) {
    const Outcome outcome = run(true);
    EXPECT_EQ(outcome.type, ERR_READ);
    EXPECT_EQ(outcome.message, fusion::messages::kReadFailed);
  }
}

TEST(NeededFigures, AreZeroOtherwiseAndTheRunGoesOn) {
  for (const auto run : {OutcomeOf<CMultipleFusion>, OutcomeOf<CWeightFusion>, OutcomeOf<CIhsTranFusion>,
                         OutcomeOf<CPrinComponentFusion>}) {
    const Outcome outcome = run(false);
    EXPECT_EQ(outcome.type, ERR_NONE);
    EXPECT_GT(outcome.calls, 0);
  }
}

}  // namespace

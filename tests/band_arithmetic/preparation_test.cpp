// What the multiplicative and the weighted method compute before the block loop, and what is left of it where an image
// or a band is missing.
#include <gtest/gtest.h>

#include <algorithm>

#include "band_arithmetic/multiple_fusion.h"
#include "band_arithmetic/weight_fusion.h"
#include "tests/support/method_sweep.h"

namespace {

using test_support::RecordingProgress;
using test_support::Scene;

double Least(const std::vector<double>& values) { return *std::min_element(values.begin(), values.end()); }
double Largest(const std::vector<double>& values) { return *std::max_element(values.begin(), values.end()); }

/// A method that is prepared by itself, with the images given.
template <typename Method>
class Prepared : public Method {
 public:
  using Method::Method;
  GISError Prepare(CRasterSource* pan, CRasterSource* ms) {
    this->m_pPanSrc = pan;
    this->m_pMSSrc = ms;
    return this->Preproccess();
  }
  void EndProccess() override {
    panMin = m_dPanMin;
    panMax = m_dPanMax;
    Method::EndProccess();
  }
  using Method::m_dPanMax;
  using Method::m_dPanMin;
  using Method::m_pMulMax;
  using Method::m_pMulMin;
  double panMin = 0.0;
  double panMax = 0.0;
};

template <typename Method>
class Preparation : public testing::Test {
 protected:
  Preparation() : scene(61) {
    // A pan image of two bands, the second one with another range.
    scene.pan.bands.push_back(scene.pan.bands[0]);
    for (double& v : scene.pan.bands[1]) v = 2000.0 + 2.0 * v;
    test_support::WriteImage(scene.pan, scene.panFile, PDT_UINT16);
    param = scene.Param();
    param.m_nPanBand = 1;
    param.m_vecMSBands = {2, 0};
    EXPECT_TRUE(pan.OpenSimple(scene.panFile));
    EXPECT_TRUE(ms.OpenSimple(scene.msFile));
  }
  Scene scene;
  FusionParam param;
  CRasterSource pan;
  CRasterSource ms;
  CRasterSource closed;
};

using Methods = testing::Types<CMultipleFusion, CWeightFusion>;
TYPED_TEST_SUITE(Preparation, Methods);

TYPED_TEST(Preparation, WithoutAPanImageTheBandsRangesAreStillComputed) {
  for (CRasterSource* missing : {static_cast<CRasterSource*>(nullptr), &this->closed}) {
    Prepared<TypeParam> method(&this->param);
    EXPECT_EQ(method.Prepare(missing, &this->ms), 4);
    ASSERT_TRUE(method.m_pMulMin && method.m_pMulMax);
    for (std::size_t i = 0; i < 2; ++i) {
      const auto& band = this->scene.ms.bands[i == 0 ? 2 : 0];
      EXPECT_EQ(method.m_pMulMin[i], Least(band));
      EXPECT_EQ(method.m_pMulMax[i], Largest(band));
    }
  }
}

TYPED_TEST(Preparation, WithoutAMultispectralImageThePanRangeIsStillComputed) {
  for (CRasterSource* missing : {static_cast<CRasterSource*>(nullptr), &this->closed}) {
    Prepared<TypeParam> method(&this->param);
    EXPECT_EQ(method.Prepare(&this->pan, missing), 4);
    EXPECT_EQ(method.m_dPanMin, Least(this->scene.pan.bands[1]));
    EXPECT_EQ(method.m_dPanMax, Largest(this->scene.pan.bands[1]));
  }
}

TYPED_TEST(Preparation, PanRangeIsThatOfThePanBand) {
  Prepared<TypeParam> method(&this->param);
  EXPECT_EQ(method.m_dPanMin, 0.0);
  EXPECT_EQ(method.m_dPanMax, 255.0);
  method.Process();
  test_support::ExpectSuccess(method);
  EXPECT_EQ(method.panMin, Least(this->scene.pan.bands[1]));
  EXPECT_EQ(method.panMax, Largest(this->scene.pan.bands[1]));
}

TYPED_TEST(Preparation, MissingBandFailsLikeARead) {
  this->param.m_nPanBand = 2;
  Prepared<TypeParam> withoutPan(&this->param);
  EXPECT_EQ(withoutPan.Prepare(&this->pan, &this->ms), 4);
  EXPECT_EQ(withoutPan.GetLastErrorType(), 2);
  this->param.m_nPanBand = 0;
  this->param.m_vecMSBands = {0, 3};
  Prepared<TypeParam> withoutBand(&this->param);
  EXPECT_EQ(withoutBand.Prepare(&this->pan, &this->ms), 4);
  EXPECT_EQ(withoutBand.GetLastErrorType(), 2);
}

TYPED_TEST(Preparation, BandStatisticsAskWhetherToGoOn) {
  RecordingProgress progress;
  progress.RequestCancel();
  Prepared<TypeParam> method(&this->param);
  method.SetProgress(&progress);
  EXPECT_EQ(method.Prepare(nullptr, &this->ms), 4);
  EXPECT_EQ(method.m_pMulMax[0], 0.0) << "statistics that were ended are zeros";
  // Those of pan are made without the reporter.
  EXPECT_EQ(method.Prepare(&this->pan, nullptr), 4);
  EXPECT_EQ(method.m_dPanMax, Largest(this->scene.pan.bands[1]));
}

TEST(MultiplePreparation, WithoutAPanImageMeansAndDeviationsAreStillComputed) {
  class Exposed : public Prepared<CMultipleFusion> {
   public:
    using Prepared::m_pMeans;
    using Prepared::m_pStdDevs;
    using Prepared::Prepared;
  };
  const Scene scene(62);
  FusionParam param = scene.Param();
  param.m_vecMSBands = {1, 2};
  CRasterSource ms;
  ASSERT_TRUE(ms.OpenSimple(scene.msFile));
  Exposed method(&param);
  EXPECT_EQ(method.Prepare(nullptr, &ms), 4);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_NEAR(method.m_pMeans[i], test_support::Mean(scene.ms.bands[i + 1]), 1e-9);
    EXPECT_NEAR(method.m_pStdDevs[i], test_support::Deviation(scene.ms.bands[i + 1]), 1e-9);
  }
}

}  // namespace

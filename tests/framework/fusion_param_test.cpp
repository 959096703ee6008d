#include "framework/fusion_param.h"

#include <gtest/gtest.h>

namespace {

TEST(FusionParam, DefaultsAreBicubicFloatAndAllBands) {
  const FusionParam param;
  EXPECT_TRUE(param.m_strPanFile.empty());
  EXPECT_TRUE(param.m_strMSFile.empty());
  EXPECT_EQ(param.m_eResampleType, 2);
  EXPECT_EQ(param.m_nPanBand, 0);
  EXPECT_TRUE(param.m_vecMSBands.empty());
  EXPECT_TRUE(param.m_vecRGBBands.empty());
  EXPECT_FALSE(param.m_bSpectralMatch);
  EXPECT_FALSE(param.m_bMakeGreen);
  EXPECT_EQ(param.m_eOutDataType, 6);
  EXPECT_EQ(param.m_eOutFormat, 0);
  EXPECT_EQ(param.m_nOutBandCount, 0);
  EXPECT_TRUE(param.m_bOpenOption);
  EXPECT_EQ(param.m_pNotifyWnd, nullptr);
  EXPECT_TRUE(param.m_rcProcess.IsRectEmpty());
}

TEST(FusionParam, CopyIsDeep) {
  FusionParam source;
  source.m_strPanFile = L"pan.tif";
  source.m_strOutFile = L"out.tif";
  source.m_vecMSBands = {0, 1};
  source.m_vecRGBBands = {2, 1, 0};
  source.m_rcProcess = {1, 2, 3, 4};
  FusionParam copy(source);
  copy.m_strPanFile = L"other.tif";
  copy.m_vecMSBands.push_back(7);
  copy.m_vecRGBBands.clear();
  EXPECT_EQ(source.m_strPanFile, L"pan.tif");
  EXPECT_EQ(source.m_vecMSBands, (std::vector<std::int32_t>{0, 1}));
  EXPECT_EQ(source.m_vecRGBBands, (std::vector<std::int32_t>{2, 1, 0}));
  EXPECT_EQ(copy.m_strOutFile, L"out.tif");
  EXPECT_EQ(copy.m_rcProcess, source.m_rcProcess);
}

TEST(FusionParam, AssignmentToItselfChangesNothing) {
  FusionParam param;
  param.m_strMSFile = L"ms.tif";
  param.m_vecMSBands = {3, 1};
  const FusionParam& same = param;
  param = same;
  EXPECT_EQ(param.m_strMSFile, L"ms.tif");
  EXPECT_EQ(param.m_vecMSBands, (std::vector<std::int32_t>{3, 1}));
}

TEST(HpfFusionParam, DefaultsAreTheClassicWeightsAndNoKernels) {
  const HpfFusionParam param;
  EXPECT_EQ(param.m_dDetailWeight1, 0.5);
  EXPECT_EQ(param.m_dDetailWeight2, 0.35);
  EXPECT_EQ(param.m_eResampleType, 2);
  EXPECT_TRUE(param.m_filter1.m_vecCoefficients.empty());
  EXPECT_TRUE(param.m_filter2.m_vecCoefficients.empty());
  EXPECT_FALSE(param.m_bHpfFlag1);
  EXPECT_FALSE(param.m_bDataStretch);
  EXPECT_FALSE(param.m_bHpfFlag4);
  EXPECT_TRUE(param.m_strSecondHpfFile.empty());
}

TEST(HpfFusionParam, CopyTakesKernelsAndSwitchesAlong) {
  HpfFusionParam source;
  source.m_filter1 = {0.25, {1.0, 1.0, 1.0, 1.0}, 2, 2, 1, 1};
  source.m_bSecondFilter = true;
  source.m_bHpfFlag1 = true;
  source.m_strSecondHpfFile = L"second.tif";
  HpfFusionParam copy;
  copy = source;
  copy.m_filter1.m_vecCoefficients[0] = 9.0;
  EXPECT_EQ(source.m_filter1.m_vecCoefficients[0], 1.0);
  EXPECT_EQ(copy.m_filter1.m_dScale, 0.25);
  EXPECT_TRUE(copy.m_bSecondFilter);
  EXPECT_TRUE(copy.m_bHpfFlag1);
  EXPECT_EQ(copy.m_strSecondHpfFile, L"second.tif");
}

TEST(BayesianFusionParam, CopyTakesTheWeightAlong) {
  BayesianFusionParam source;
  source.m_dBayesParam = 0.75;
  const BayesianFusionParam copy(source);
  EXPECT_EQ(copy.m_dBayesParam, 0.75);
  EXPECT_EQ(copy.m_eResampleType, 2);
}

}  // namespace

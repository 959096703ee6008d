// What the output raster of a run is like: grid, coordinate system, size, bands, type, format.
#include <gdal_priv.h>
#include <gtest/gtest.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "framework/fusion.h"
#include "platform/utility/common_fun.h"
#include "tests/support/method_sweep.h"
#include "tests/support/scene.h"
#include "tests/support/test_raster.h"

namespace {

using test_support::MemoryPath;
using test_support::Scene;
using test_support::SceneOptions;
using test_support::UtmWkt;

/// Writes pan into every band, and shows the run's reprojection while it is there.
class OutputProbe : public CFusion {
 public:
  using CFusion::CFusion;
  void** AlgorithmProcess(double* pan, CRect* panRect, double** ms, int msBandCount, CRect* msRect,
                          PixelDataType outType, int outBandCount, CRect* dstBlock, CRasterAOI* aoi) override {
    bandsWritten = m_pDstSrc->GetBandCount();
    if (m_pReproject && atReprojection) atReprojection(*m_pReproject, *m_pDstSrc);
    return FuseRows({pan, panRect, nullptr, ms, msBandCount, msRect, outType, outBandCount, dstBlock, aoi}, {},
                    [](const fusion::FusionRow& row) {
                      for (int b = 0; b < row.outBandCount; ++b) std::copy_n(row.pan, row.width, row.out[b]);
                    });
  }
  int bandsWritten = 0;
  std::function<void(const CReproject&, const CRasterSource&)> atReprojection;
};

using Dataset = std::unique_ptr<GDALDataset>;
Dataset RunAndOpen(FusionParam param) {
  OutputProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_TRUE(probe.GetLastErrorMessage().empty());
  return Dataset(GDALDataset::Open(CommonFun::U2Utf8(param.m_strOutFile).c_str()));
}

SceneOptions InUtm() {
  SceneOptions options;
  options.panWkt = UtmWkt();
  options.msWkt = UtmWkt();
  return options;
}

TEST(OutputRaster, LiesOnThePanGridInPansCoordinateSystem) {
  const Scene scene(1, InUtm());
  FusionParam param = scene.Param(PDT_INT16);
  param.m_rcProcess = {4, 3, 30, 21};
  const Dataset out = RunAndOpen(param);
  ASSERT_TRUE(out);
  double transform[6];
  ASSERT_EQ(out->GetGeoTransform(transform), CE_None);
  // Pan pixels of 10 m from (440000, 4470000).
  EXPECT_EQ(std::vector<double>(transform, transform + 6),
            (std::vector<double>{440040.0, 10.0, 0.0, 4469970.0, 0.0, -10.0}));
  OGRSpatialReference utm;
  ASSERT_EQ(utm.importFromEPSG(32630), OGRERR_NONE);
  ASSERT_TRUE(out->GetSpatialRef());
  EXPECT_TRUE(out->GetSpatialRef()->IsSame(&utm));
  EXPECT_EQ(out->GetRasterXSize(), 26);
  EXPECT_EQ(out->GetRasterYSize(), 18);
  EXPECT_EQ(out->GetRasterCount(), 3);
  EXPECT_EQ(out->GetRasterBand(1)->GetRasterDataType(), GDT_Int16);
}

TEST(OutputRaster, CoversTheOverlapWhereNoAreaIsGiven) {
  SceneOptions options = InUtm();
  options.msShiftX = 6.0;
  options.msShiftY = 4.0;
  options.msWidth = 9;
  options.msHeight = 8;
  const Scene scene(2, options);
  const Dataset out = RunAndOpen(scene.Param());
  ASSERT_TRUE(out);
  double transform[6];
  ASSERT_EQ(out->GetGeoTransform(transform), CE_None);
  EXPECT_EQ(transform[0], 440060.0);
  EXPECT_EQ(transform[3], 4469960.0);
  EXPECT_EQ(out->GetRasterXSize(), 18);
  EXPECT_EQ(out->GetRasterYSize(), 16);
}

TEST(OutputRaster, TheAreaOfInterestCutsIt) {
  const Scene scene(3);
  FusionParam param = scene.Param();
  param.m_strAoiFile = MemoryPath(L"csv");
  // Pan columns 5 to 15, rows 4 to 12.
  test_support::WriteTriangle(param.m_strAoiFile, {440050.0, 4469960.0}, {440150.0, 4469960.0}, {440050.0, 4469880.0});
  const Dataset out = RunAndOpen(param);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->GetRasterXSize(), 10);
  EXPECT_EQ(out->GetRasterYSize(), 8);
  const auto image = test_support::ReadImage(param.m_strOutFile);
  EXPECT_EQ(image.geoTransform[0], 440050.0);
  EXPECT_EQ(image.geoTransform[3], 4469960.0);
  EXPECT_EQ(image.bands[0][0], scene.pan.bands[0][4 * 37 + 5]) << "and the pan pixels are those of the cut";
}

TEST(OutputRaster, HasAsManyBandsAsTheRecordSays) {
  const Scene scene(4);
  FusionParam param = scene.Param();
  param.m_nOutBandCount = 2;
  EXPECT_EQ(RunAndOpen(param)->GetRasterCount(), 2);
  param.m_nOutBandCount = 0;
  param.m_vecMSBands = {2, 1, 0, 0};
  EXPECT_EQ(RunAndOpen(param)->GetRasterCount(), 4);
}

TEST(OutputRaster, TheTemporaryOneOfAMatchedRunHasABandForEachChosenOne) {
  const Scene scene(10);
  FusionParam param = scene.Param();
  param.m_bSpectralMatch = true;
  param.m_nOutBandCount = 2;
  OutputProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(probe.bandsWritten, 3);
}

TEST(OutputRaster, HasTheFormatOfTheRecordOrElseOfTheExtension) {
  const Scene scene(5);
  FusionParam param = scene.Param(PDT_UINT16);
  param.m_strOutFile = MemoryPath(L"img");
  EXPECT_STREQ(RunAndOpen(param)->GetDriverName(), "HFA");
  param.m_eOutFormat = kFormatGeoTiff;
  EXPECT_STREQ(RunAndOpen(param)->GetDriverName(), "GTiff");
  param.m_strOutFile = MemoryPath(L"tif");
  param.m_eOutFormat = CRasterSource::GetDataFormat(L"x.img");
  EXPECT_STREQ(RunAndOpen(param)->GetDriverName(), "HFA");
}

TEST(OutputRaster, InputsAreOpenedPanFirst) {
  const Scene scene(6);
  FusionParam param = scene.Param();
  param.m_strPanFile = L"/vsimem/no_pan.tif";
  param.m_strMSFile = L"/vsimem/no_ms.tif";
  OutputProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorMessage(), L"打开文件（/vsimem/no_pan.tif）失败！");
}

TEST(OutputRaster, CommonGroundIsLookedForBeforeTheBandsAreCounted) {
  SceneOptions options;
  options.msBands = 1;
  options.msShiftX = 5000.0;
  const Scene scene(7, options);
  FusionParam param = scene.Param();
  OutputProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(probe.GetLastErrorMessage(), L"设置的影像范围有误！");
}

TEST(OutputRaster, OneOfTwoBandsIsTooFewAndTwoAreEnough) {
  SceneOptions options;
  options.msBands = 2;
  const Scene scene(8, options);
  EXPECT_EQ(RunAndOpen(scene.Param())->GetRasterCount(), 2);
  FusionParam param = scene.Param();
  param.m_vecMSBands = {1};
  OutputProbe probe(&param);
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 11);
}

TEST(OutputRaster, PositionsUnderReprojectionComeFromAGridOverIt) {
  test_support::ReprojectedScene reprojected(9);
  const Scene& scene = reprojected.Base();
  FusionParam param = scene.Param();
  param.m_rcProcess = {2, 3, 30, 27};
  param.m_bNeedReproject = true;
  CRasterSource pan;
  CRasterSource ms;
  ASSERT_TRUE(pan.OpenSimple(scene.panFile));
  ASSERT_TRUE(ms.OpenSimple(scene.msFile));
  const auto build = [&](const CRect& rect) {
    std::unique_ptr<CReproject> same(CReproject::Create(&ms, pan.GetSpatialReferenceWKT(), nullptr, nullptr));
    if (rect.Area() > 0) same->CreateGrid(pan.ImageToGround(rect), 0.0, 0.0, 3);
    return same;
  };
  const auto grid = build(param.m_rcProcess);
  const auto exact = build(CRect());
  int seen = 0;
  int apart = 0;
  OutputProbe probe(&param);
  probe.atReprojection = [&](const CReproject& of, const CRasterSource& output) {
    for (int i = 0; i < 20; ++i) {
      double ground[2];
      output.ImageToGround(1.3 * i, 1.1 * i, ground[0], ground[1]);
      const auto position = [&](const CReproject& r) {
        std::pair<double, double> at;
        r.GetSrcPos(&ground[0], &ground[1], &at.first, &at.second, 1);
        return at;
      };
      EXPECT_EQ(position(of), position(*grid));
      EXPECT_NEAR(position(of).first, position(*exact).first, 0.01);
      EXPECT_NEAR(position(of).second, position(*exact).second, 0.01);
      apart += position(of) != position(*exact) ? 1 : 0;
      ++seen;
    }
  };
  probe.Process();
  EXPECT_EQ(probe.GetLastErrorType(), 0);
  EXPECT_EQ(seen, 20);
  EXPECT_GT(apart, 0) << "exact positions would differ in their last bits";
}

}  // namespace

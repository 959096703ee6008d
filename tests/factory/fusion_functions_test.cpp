#include "factory/fusion_functions.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <memory>

#include "factory/fusion_algorithm_factory.h"
#include "platform/utility/common_fun.h"
#include "tests/support/method_sweep.h"

namespace {

using test_support::ReadImage;
using test_support::Scene;
using test_support::SceneOptions;

using OneCall = int (*)(const char*, const char*, const char*, const char*, const char*);

struct Names {
  explicit Names(const Scene& scene)
      : pan(CommonFun::U2Utf8(scene.panFile)),
        ms(CommonFun::U2Utf8(scene.msFile)),
        out(CommonFun::U2Utf8(scene.outFile)) {}
  int Run(OneCall call, const char* resample = "", const char* type = "") const {
    return call(pan.c_str(), ms.c_str(), out.c_str(), resample, type);
  }
  std::string pan;
  std::string ms;
  std::string out;
};

std::string DriverOf(const std::string& path) {
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(path.c_str()));
  return file ? file->GetDriverName() : "";
}

TEST(OneCallFunctions, AllFiveRun) {
  const Scene scene(81);
  const Names names(scene);
  for (const OneCall call : {IHSFusion, WeightFusion, MultipleFusion, BroveyFusion, PCAFusion}) {
    EXPECT_EQ(names.Run(call), 0);
    EXPECT_EQ(ReadImage(scene.outFile).bands.size(), 3u);
    CRasterSource::DeleteFileW(scene.outFile);
  }
}

TEST(OneCallFunctions, EmptyStringsMeanNearestAnd32BitFloat) {
  const Scene scene(82);
  const Names names(scene);
  EXPECT_EQ(names.Run(BroveyFusion), 0);
  CRasterSource out;
  ASSERT_TRUE(out.OpenSimple(scene.outFile));
  EXPECT_EQ(out.GetRasterDataType(), PDT_FLOAT32);
  out.Close();
  FusionParam param = scene.Param(PDT_FLOAT32);
  param.m_eResampleType = RT_NEAREST;
  reference::Run run = scene.Reference(param);
  run.arithmetic = [](const reference::Pixel& pixel) { return reference::Brovey(pixel, 3); };
  test_support::ExpectEqual(ReadImage(scene.outFile), reference::Fuse(run));
}

TEST(OneCallFunctions, NamesChooseResamplingAndType) {
  const Scene scene(83);
  const Names names(scene);
  EXPECT_EQ(names.Run(BroveyFusion, "Cubic", "UInt16"), 0);
  FusionParam param = scene.Param(PDT_UINT16);
  reference::Run run = scene.Reference(param);
  run.arithmetic = [](const reference::Pixel& pixel) { return reference::Brovey(pixel, 3); };
  test_support::ExpectEqual(ReadImage(scene.outFile), reference::Fuse(run));
}

TEST(OneCallFunctions, UnknownTypeNameMeansTheMultispectralImagesOwn) {
  const Scene scene(89);
  EXPECT_EQ(Names(scene).Run(MultipleFusion, "sinc", "colour"), 0);
  CRasterSource out;
  ASSERT_TRUE(out.OpenSimple(scene.outFile));
  EXPECT_EQ(out.GetRasterDataType(), PDT_UINT16);
}

TEST(OneCallFunctions, EachRunsItsOwnMethod) {
  const Scene scene(90);
  const Names names(scene);
  const std::pair<OneCall, FusionType> calls[] = {{IHSFusion, FT_IHS},
                                                  {WeightFusion, FT_WEIGHT},
                                                  {MultipleFusion, FT_MULTIPLE},
                                                  {BroveyFusion, FT_BROVEY},
                                                  {PCAFusion, FT_PRIN_COMPONENT}};
  for (const auto& [call, type] : calls) {
    EXPECT_EQ(names.Run(call, "bilinear", "float64"), 0);
    const auto once = ReadImage(scene.outFile);
    FusionParam param = scene.Param();
    param.m_eResampleType = RT_BILINEAR;
    const std::unique_ptr<CFusion> algorithm(CFusionAlgorithmFactory::CreateAlgorithm(type, nullptr, &param));
    algorithm->Process();
    test_support::ExpectEqual(ReadImage(scene.outFile), once.bands);
  }
}

TEST(OneCallFunctions, NullStringsAreEmptyOnes) {
  EXPECT_EQ(BroveyFusion(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
  const Scene scene(91);
  EXPECT_EQ(Names(scene).Run(PCAFusion, nullptr, nullptr), 0);
}

TEST(OneCallFunctions, ReprojectWhereTheCoordinateSystemsDiffer) {
  test_support::ReprojectedScene scene(92);
  const Names names(scene.Base());
  EXPECT_EQ(names.Run(BroveyFusion), 0);
  const auto out = ReadImage(scene.Base().outFile);
  FusionParam param = scene.Base().Param(PDT_FLOAT32);
  param.m_eResampleType = RT_NEAREST;
  reference::Run run = scene.Base().Reference(param);
  run.arithmetic = [](const reference::Pixel& pixel) { return reference::Brovey(pixel, 3); };
  scene.Complete(run, out);
  test_support::ExpectEqual(out, reference::Fuse(run));
}

TEST(OneCallFunctions, InputThatDoesNotOpenGivesMinusOne) {
  const Scene scene(84);
  Names names(scene);
  names.pan = "/vsimem/missing.tif";
  EXPECT_EQ(names.Run(BroveyFusion), -1);
  names = Names(scene);
  names.ms = "/vsimem/missing.tif";
  EXPECT_EQ(names.Run(PCAFusion), -1);
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
}

TEST(OneCallFunctions, SingleBandGivesEleven) {
  SceneOptions options;
  options.msBands = 1;
  const Scene scene(85, options);
  EXPECT_EQ(Names(scene).Run(BroveyFusion), 11);
}

TEST(OneCallFunctions, UnwritableOutputGivesFive) {
  const Scene scene(86);
  Names names(scene);
  names.out = "/no/such/folder/out.tif";
  EXPECT_EQ(names.Run(WeightFusion), 5);
}

TEST(OneCallFunctions, ImagesWithoutOverlapLeaveNoOutput) {
  SceneOptions options;
  options.msShiftX = 5000.0;
  const Scene scene(87, options);
  EXPECT_EQ(Names(scene).Run(BroveyFusion), 0) << "the error type of a missing overlap is left as it was";
  EXPECT_FALSE(test_support::FileExists(scene.outFile));
}

TEST(OneCallFunctions, ExtensionChoosesTheFormat) {
  const Scene scene(88);
  Names names(scene);
  const std::pair<const char*, const char*> formats[] = {{"tif", "GTiff"}, {"img", "HFA"},  {"dat", "ENVI"},
                                                         {"png", "PNG"},   {"jpg", "JPEG"}, {"unheard", "GTiff"}};
  for (const auto& [extension, driver] : formats) {
    names.out = std::string("/vsimem/one_call.") + extension;
    EXPECT_EQ(names.Run(BroveyFusion, "", "uint8"), 0) << extension;
    EXPECT_EQ(DriverOf(names.out), driver);
    CRasterSource::DeleteFileW(CommonFun::Utf82U(names.out));
  }
  names.out = "/vsimem/one_call.jp2";
  EXPECT_EQ(names.Run(BroveyFusion, "", "uint8"), 0);
  const std::string expected = GDALGetDriverByName("JP2OpenJPEG") ? "JP2OpenJPEG" : "GTiff";
  EXPECT_EQ(DriverOf(names.out), expected);
  CRasterSource::DeleteFileW(CommonFun::Utf82U(names.out));
}

}  // namespace

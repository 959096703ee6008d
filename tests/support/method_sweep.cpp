#include "tests/support/method_sweep.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace test_support {

double Mean(const std::vector<double>& values) {
  long double sum = 0;
  for (const double v : values) sum += v;
  return static_cast<double>(sum / static_cast<long double>(values.size()));
}

double Deviation(const std::vector<double>& values) {
  const long double mean = Mean(values);
  long double squares = 0;
  for (const double v : values) squares += (v - mean) * (v - mean);
  return static_cast<double>(std::sqrt(squares / static_cast<long double>(values.size())));
}

void MakeUneven(Scene& scene) {
  const double pan[] = {440000.1, 0.3, 0.0, 4470000.7, 0.0, -0.3};
  const double ms[] = {439999.9, 0.7, 0.0, 4470000.9, 0.0, -0.7};
  std::copy_n(pan, 6, scene.pan.geoTransform);
  std::copy_n(ms, 6, scene.ms.geoTransform);
  WriteImage(scene.pan, scene.panFile, PDT_UINT16);
  WriteImage(scene.ms, scene.msFile, PDT_UINT16);
}

ReprojectedScene::ReprojectedScene(unsigned seed)
    : m_scene(seed, [] {
        SceneOptions options;
        options.panWkt = UtmWkt();
        return options;
      }()) {
  // The same ground in degrees, a little larger than the pan image on every side.
  reference::Image& ms = m_scene.ms;
  ms.width = 24;
  ms.height = 20;
  const double degrees[6] = {-3.70810, 2.4e-4, 0.0, 40.37860, 0.0, -1.9e-4};
  std::copy_n(degrees, 6, ms.geoTransform);
  std::mt19937 random(seed);
  for (auto& band : ms.bands) {
    band.assign(static_cast<std::size_t>(ms.width) * 20, 0.0);
    for (double& v : band) v = 1.0 + static_cast<double>(random() % 900);
  }
  WriteImage(ms, m_scene.msFile, PDT_UINT16, Wgs84Wkt());
}

void ReprojectedScene::Complete(reference::Run& run, const reference::Image& output) {
  ASSERT_GT(output.width * output.height, 500);
  CRasterSource ms;
  CRasterSource pan;
  ASSERT_TRUE(ms.OpenSimple(m_scene.msFile));
  ASSERT_TRUE(pan.OpenSimple(m_scene.panFile));
  m_reproject.reset(CReproject::Create(&ms, pan.GetSpatialReferenceWKT(), nullptr, nullptr));
  ASSERT_TRUE(m_reproject);
  const int left = static_cast<int>(std::lround((output.geoTransform[0] - m_scene.pan.geoTransform[0]) / 10.0));
  const int top = static_cast<int>(std::lround((m_scene.pan.geoTransform[3] - output.geoTransform[3]) / 10.0));
  run.process = {left, top, left + output.width, top + output.height};
  m_reproject->CreateGrid(pan.ImageToGround(run.process), 0.0, 0.0, 3);
  run.reproject = [this](double gx, double gy) {
    reference::Position p{};
    m_reproject->GetSrcPos(&gx, &gy, &p.x, &p.y, 1);
    return p;
  };
  run.reprojectedRect = [this](double l, double t, double r, double b) {
    CRect rect;
    EXPECT_TRUE(m_reproject->GetInImgEnveFromGeoOut(CBoundingBox(l, t, r, b), rect, 0.0, 0.0));
    return rect;
  };
}

std::string SweepCaseName(const testing::TestParamInfo<std::tuple<int, int>>& info) {
  static const char* kTypes[] = {"", "uint8", "uint16", "int16", "uint32", "int32", "float32", "float64"};
  static const char* kResampling[] = {"nearest", "bilinear", "bicubic"};
  static_assert(std::size(kResampling) == fusion::kResampleTypes.size());
  return std::string(kTypes[std::get<0>(info.param)]) + "_" + kResampling[std::get<1>(info.param)];
}

OneRow::OneRow(std::vector<double> pan, std::vector<std::vector<double>> bands, PixelDataType type) {
  reference::Image panImage;
  panImage.width = static_cast<int>(pan.size());
  panImage.height = 1;
  panImage.bands = {std::move(pan)};
  reference::Image msImage = panImage;
  msImage.bands = std::move(bands);
  WriteImage(panImage, Param().m_strPanFile, type);
  WriteImage(msImage, Param().m_strMSFile, type);
}

FusionParam OneRow::Param() const {
  FusionParam param;
  param.m_strPanFile = L"/vsimem/row_pan.tif";
  param.m_strMSFile = L"/vsimem/row_ms.tif";
  param.m_strOutFile = L"/vsimem/row_out.tif";
  param.m_eResampleType = RT_NEAREST;
  return param;
}

}  // namespace test_support

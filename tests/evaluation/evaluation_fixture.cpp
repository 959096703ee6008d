#include "tests/evaluation/evaluation_fixture.h"

#include <algorithm>

#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/system/sleep.h"
#include "platform/utility/log.h"

namespace test_support {

reference::Image MakeImage(int width, int height, double pixel, std::vector<Band> bands, double left, double top) {
  reference::Image image;
  image.width = width;
  image.height = height;
  const double transform[6] = {left, pixel, 0.0, top, 0.0, -pixel};
  std::copy_n(transform, 6, image.geoTransform);
  image.bands = std::move(bands);
  return image;
}

EvaluationTest::EvaluationTest() {
  static int count = 0;
  const std::wstring name = L"/vsimem/evaluation" + std::to_wstring(++count);
  panFile = name + L"_pan.tif";
  msFile = name + L"_ms.tif";
  fusedFile = name + L"_fused.tif";
  param.m_strTaskName = L"test";
  param.m_strPanFile = panFile;
  param.m_strMulFile = msFile;
  param.m_strFusionFile = fusedFile;
  platform::SetSleep([this](unsigned int milliseconds) { sleeps.push_back(milliseconds); });
}

EvaluationTest::~EvaluationTest() {
  platform::SetSleep({});
  platform::SetRasterFault({});
  CLog::m_pLogger = nullptr;
  for (const auto& file : {panFile, msFile, fusedFile}) CRasterSource::DeleteFileW(file);
}

void EvaluationTest::Write(const reference::Image& pan, const reference::Image& ms, const reference::Image& fused) {
  WriteImage(pan, panFile, panStorage.type, panStorage.wkt, panStorage.noData, panStorage.options);
  WriteImage(ms, msFile, msStorage.type, msStorage.wkt, msStorage.noData, msStorage.options);
  WriteImage(fused, fusedFile, fusedStorage.type, fusedStorage.wkt, fusedStorage.noData, fusedStorage.options);
  const auto all = [](std::size_t count) {
    std::vector<std::int32_t> bands;
    for (std::size_t b = 0; b < count; ++b) bands.push_back(static_cast<std::int32_t>(b));
    return bands;
  };
  param.m_vecMulBands = all(ms.bands.size());
  param.m_vecFusionBands = all(fused.bands.size());
}

void EvaluationTest::WritePair(int width, int height, const Band& ms, const Band& fused) {
  Write(MakeImage(width, height, 1.0, {fused}), MakeImage(width, height, 1.0, {ms}),
        MakeImage(width, height, 1.0, {fused}));
}

void EvaluationTest::FailRead(const std::wstring& path, int nth) {
  platform::SetRasterFault(
      [=, count = 0](platform::RasterOperation operation, const std::wstring& file, int, const CRect&) mutable {
        return operation == platform::RasterOperation::kRead && file == path && count++ == nth;
      });
}

}  // namespace test_support

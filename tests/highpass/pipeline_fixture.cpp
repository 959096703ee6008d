#include "tests/highpass/pipeline_fixture.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "platform/utility/common_fun.h"
#include "tests/support/method_sweep.h"

namespace highpass_test {

using test_support::Deviation;
using test_support::Mean;

void RecordingLog::WriteLog(int level, const char* file, int /*line*/, const char* function, const wchar_t* text) {
  m_entries.push_back({level, file, function, text});
}

namespace {

/// What GDAL sees of a file.
std::string Describe(const std::wstring& path) {
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(CommonFun::U2Utf8(path).c_str()));
  if (!file) return "none";
  return std::string(file->GetDriver()->GetDescription()) + " " +
         GDALGetDataTypeName(file->GetRasterBand(1)->GetRasterDataType()) + " " +
         std::to_string(file->GetRasterCount());
}

}  // namespace

FilterDescription HighPass(int size) {
  FilterDescription filter;
  const auto count = static_cast<std::size_t>(size * size);
  filter.m_dScale = 1.0 / static_cast<double>(count);
  filter.m_vecCoefficients.assign(count, -1.0);
  filter.m_vecCoefficients[count / 2] = static_cast<double>(count - 1);
  filter.m_nWidth = filter.m_nHeight = size;
  filter.m_nCenterX = filter.m_nCenterY = size / 2;
  return filter;
}

PipelineFiles::PipelineFiles() {
  static int count = 0;
  m_folder = L"/vsimem/pipeline" + std::to_wstring(++count) + L"/";
  m_panFile = m_folder + L"pan.tif";
  m_msFile = m_folder + L"ms.tif";
  m_outFile = m_folder + L"融合.tif";
  std::mt19937 random(static_cast<unsigned>(77));
  m_pan.width = 46;
  m_pan.height = 38;
  m_ms.width = 23;
  m_ms.height = 19;
  const double pan[6] = {440000.0, 10.0, 0.0, 4470000.0, 0.0, -10.0};
  const double ms[6] = {440000.0, 20.0, 0.0, 4470000.0, 0.0, -20.0};
  std::copy_n(pan, 6, m_pan.geoTransform);
  std::copy_n(ms, 6, m_ms.geoTransform);
  m_pan.bands.resize(1);
  for (int i = 0; i < 46 * 38; ++i) m_pan.bands[0].push_back(500.0 + static_cast<double>(random() % 4000));
  m_ms.bands.resize(4);
  for (auto& band : m_ms.bands) {
    for (int i = 0; i < 23 * 19; ++i) band.push_back(300.0 + static_cast<double>(random() % 9000));
  }
  WriteInputs();
}

PipelineFiles::~PipelineFiles() {
  platform::SetRasterFault({});
  VSIRmdirRecursive(CommonFun::U2Utf8(m_folder).c_str());
}

void PipelineFiles::WriteInputs(PixelDataType msType) const {
  test_support::WriteImage(m_pan, m_panFile, PDT_UINT16);
  test_support::WriteImage(m_ms, m_msFile, msType);
}

std::vector<std::string> PipelineFiles::TemporaryFiles(const std::function<void()>& run) const {
  std::vector<std::wstring> paths;
  std::vector<std::string> files;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
    if (operation == platform::RasterOperation::kCreate && path != m_outFile) {
      paths.push_back(path);
      files.emplace_back("never read");
      EXPECT_NE(path.find(L"融合"), std::wstring::npos) << "beside the output, by its name";
    }
    const auto found = std::find(paths.begin(), paths.end(), path);
    if (operation == platform::RasterOperation::kOpen && found != paths.end()) {
      files[static_cast<std::size_t>(found - paths.begin())] = Describe(path);
    }
    return false;
  });
  run();
  platform::SetRasterFault({});
  return files;
}

std::string PipelineFiles::OutputFile() const { return Describe(m_outFile); }

void PipelineFiles::WriteLargeInputs() {
  m_pan.width = m_pan.height = 600;
  m_ms.width = m_ms.height = 300;
  m_pan.bands[0].resize(600 * 600);
  for (std::size_t i = 0; i < m_pan.bands[0].size(); ++i) m_pan.bands[0][i] = static_cast<double>(i % 1021);
  for (auto& band : m_ms.bands) {
    band.resize(300 * 300);
    for (std::size_t i = 0; i < band.size(); ++i) band[i] = static_cast<double>(100 + i % 509);
  }
  WriteInputs();
}

void PipelineFiles::WriteInDegrees() {
  m_ms.width = 30;
  m_ms.height = 26;
  const double degrees[6] = {-3.7081, 2.4e-4, 0.0, 40.3786, 0.0, -1.9e-4};
  std::copy_n(degrees, 6, m_ms.geoTransform);
  for (auto& band : m_ms.bands) {
    for (int i = static_cast<int>(band.size()); i < 30 * 26; ++i) band.push_back(300.0 + i % 9000);
  }
  test_support::WriteImage(m_pan, m_panFile, PDT_UINT16, test_support::UtmWkt());
  test_support::WriteImage(m_ms, m_msFile, PDT_UINT16, test_support::Wgs84Wkt());
}

void PipelineFiles::Turn(reference::Image& image, double pixel) {
  const double angle = 3.0 * std::acos(-1.0) / 180.0;
  image.geoTransform[1] = pixel * std::cos(angle);
  image.geoTransform[2] = pixel * std::sin(angle);
  image.geoTransform[4] = pixel * std::sin(angle);
  image.geoTransform[5] = -pixel * std::cos(angle);
}

std::wstring PipelineFiles::WriteArea() const {
  const std::wstring file = m_folder + L"area.csv";
  test_support::WriteTriangle(file, {440050.0, 4469950.0}, {440350.0, 4469950.0}, {440050.0, 4469650.0});
  return file;
}

HpfFusionParam PipelineFiles::Param() const {
  HpfFusionParam param;
  param.m_strAlgName = L"融合";
  param.m_strPanFile = m_panFile;
  param.m_strMSFile = m_msFile;
  param.m_strOutFile = m_outFile;
  param.m_filter1 = HighPass(5);
  param.m_filter2 = HighPass(3);
  return param;
}

std::vector<std::wstring> PipelineFiles::NewFiles() const {
  std::vector<std::wstring> files;
  char** names = VSIReadDir(CommonFun::U2Utf8(m_folder).c_str());
  for (char** name = names; name && *name; ++name) {
    const std::wstring file = CommonFun::Utf82U(*name);
    if (file != L"pan.tif" && file != L"ms.tif") files.push_back(file);
  }
  CSLDestroy(names);
  return files;
}

void PipelineFiles::WriteOlderOutput() const {
  reference::Image older;
  older.width = older.height = 2;
  older.bands = {{1.0, 2.0, 3.0, 4.0}};
  test_support::WriteImage(older, m_outFile, PDT_UINT8);
}

bool PipelineFiles::OlderOutputIsIntact() const {
  return test_support::ReadImage(m_outFile).bands == std::vector<std::vector<double>>{{1.0, 2.0, 3.0, 4.0}};
}

int ForEachFailingOperation(const std::function<bool(platform::RasterOperation)>& which, bool throws,
                            const std::function<void(int n)>& run) {
  for (int n = 0;; ++n) {
    int seen = 0;
    platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect&) -> bool {
      if (!which(operation) || seen++ != n) return false;
      if (throws) throw std::bad_alloc();
      return true;
    });
    run(n);
    platform::SetRasterFault({});
    if (seen <= n) return n;
  }
}

std::vector<double> Convolve(const reference::Image& image, std::size_t band, const FilterDescription& filter) {
  std::vector<double> out;
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      double sum = 0.0;
      for (int j = 0; j < filter.m_nHeight; ++j) {
        for (int i = 0; i < filter.m_nWidth; ++i) {
          const int column = std::clamp(x + i - filter.m_nCenterX, 0, image.width - 1);
          const int row = std::clamp(y + j - filter.m_nCenterY, 0, image.height - 1);
          sum += filter.m_dScale * filter.m_vecCoefficients[static_cast<std::size_t>(j * filter.m_nWidth + i)] *
                 image.bands[band][static_cast<std::size_t>(row * image.width + column)];
        }
      }
      out.push_back(static_cast<double>(static_cast<float>(sum)));
    }
  }
  return out;
}

void MixGreen(reference::Image& ms) {
  for (std::size_t i = 0; i < ms.bands[1].size(); ++i) {
    ms.bands[1][i] = static_cast<double>(static_cast<float>(0.9 * ms.bands[1][i] + 0.1 * ms.bands[3][i]));
  }
}

void Stretch(std::vector<double>& values, double mean, double deviation) {
  const double ownMean = Mean(values);
  const double own = Deviation(values);
  for (double& v : values) v = (v - ownMean) / own * deviation + mean;
}

void Level(std::vector<double>& values, double ratio, double top) {
  std::vector<double> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  const auto cut = static_cast<std::size_t>(ratio * static_cast<double>(sorted.size()));
  const double low = sorted[cut];
  const double high = sorted[sorted.size() - 1 - cut];
  for (double& v : values) v = std::clamp((v - low) / (high - low), 0.0, 1.0) * top;
}

double RoundHalfUp(double value, double low, double high) { return std::clamp(std::floor(value + 0.5), low, high); }

}  // namespace highpass_test

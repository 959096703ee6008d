#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "platform/algorithm/multi_band_io_process.h"
#include "platform/algorithm/row_buffer.h"
#include "platform/raster/raster_fault.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

/// A small stage of the tests' own that shows what every file-to-file stage shares.
namespace stage_test {

using platform::RasterOperation;
using reference::Image;
using test_support::FileExists;
using test_support::FilesNamedLike;
using test_support::ReadImage;
using test_support::RecordingProgress;
using test_support::WriteImage;

inline constexpr wchar_t kIn[] = L"/vsimem/stage_in.tif";
inline constexpr wchar_t kOut[] = L"/vsimem/stage_out.tif";
inline constexpr wchar_t kArea[] = L"/vsimem/stage_area.csv";

/// Every band is the sum of itself over the rows from -halo to +halo.
class RowSums : public CMultiBandIOProcess {
 public:
  explicit RowSums(const AlgorithmParam* param) : CMultiBandIOProcess(param) {}

  bool Configure(const CRasterSource& input, platform::StagePlan& plan) override {
    if (!PlanFirstBands(input, plan)) return false;
    plan.halo = halo;
    plan.scanCount = scans;
    plan.roundToNearest = round;
    plan.useArea = useArea;
    plan.noData = input.GetRasterBand(0);
    return true;
  }
  bool Prepare() override {
    for (int s = 0; s < scans; ++s) {
      if (!Scan({0}, [&](const double* const* rows, const unsigned char* inside, int width) {
            for (int x = 0; x < width; ++x) {
              if (!inside || inside[x]) scanned.push_back(rows[0][x]);
            }
          })) {
        return false;
      }
    }
    return true;
  }
  void ProcessRow(const platform::RowBuffer& rows, int row, double* const* out) override {
    order.push_back(row);
    if (inRow) inRow(row);
    for (int b = 0; b < rows.BandCount(); ++b) {
      std::fill_n(out[b], rows.Width(), 0.0);
      for (int r = row - halo; r <= row + halo; ++r) {
        for (int x = 0; x < rows.Width(); ++x) out[b][x] += rows.Row(b, r)[x];
      }
    }
  }

  int halo = 0;
  int scans = 0;
  bool round = false;
  bool useArea = false;
  std::function<void(int)> inRow;
  std::vector<int> order;
  std::vector<double> scanned;
};

class Stage : public testing::Test {
 protected:
  Stage() { m_before = FilesNamedLike(L""); }
  ~Stage() override {
    platform::SetRasterFault({});
    for (const auto* file : {kIn, kOut, kArea}) CRasterSource::DeleteFileW(file);
  }

  static Image Numbers(int width, int height, int bands) {
    Image image;
    image.width = width;
    image.height = height;
    const double transform[6] = {440000.0, 10.0, 0.0, 4470000.0, 0.0, -10.0};
    std::copy_n(transform, 6, image.geoTransform);
    double value = 1.0;
    for (int b = 0; b < bands; ++b) {
      image.bands.emplace_back();
      for (int i = 0; i < width * height; ++i) image.bands.back().push_back(value++);
    }
    return image;
  }
  static AlgorithmParam Param() {
    AlgorithmParam param;
    param.m_strAlgName = L"行求和";
    param.m_strInFile = kIn;
    param.m_strOutFile = kOut;
    return param;
  }
  void ExpectNothingNewBut(std::vector<std::wstring> files) const {
    files.insert(files.end(), m_before.begin(), m_before.end());
    std::vector<std::wstring> present = FilesNamedLike(L"");
    std::sort(files.begin(), files.end());
    std::sort(present.begin(), present.end());
    EXPECT_EQ(present, files);
  }

  std::vector<std::wstring> m_before;
};

}  // namespace stage_test

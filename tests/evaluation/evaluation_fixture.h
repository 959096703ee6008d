#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "evaluation/evaluation_param.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace test_support {

using Band = std::vector<double>;

/// A north-up image whose upper left corner is the given ground point.
reference::Image MakeImage(int width, int height, double pixel, std::vector<Band> bands, double left = 0.0,
                           double top = 0.0);

/// How one of the three images is stored.
struct Storage {
  PixelDataType type = PDT_FLOAT64;
  std::string wkt;
  std::optional<double> noData;
  std::vector<std::string> options;
};

/// Three images in memory, a record that names them, and a clock that does not wait.
class EvaluationTest : public testing::Test {
 protected:
  EvaluationTest();
  ~EvaluationTest() override;

  /// Writes the images; the record gets all bands of the multispectral and of the fused image.
  void Write(const reference::Image& pan, const reference::Image& ms, const reference::Image& fused);
  /// The multispectral and the fused image with one band each on the same grid; the pan image is the fused one.
  void WritePair(int width, int height, const Band& ms, const Band& fused);

  /// Creates a metric, runs it with the recording reporter.
  template <typename Metric>
  std::unique_ptr<Metric> Run() {
    auto metric = std::make_unique<Metric>(&param);
    metric->SetProgress(&progress);
    metric->Process();
    EXPECT_EQ(metric->GetLastErrorType(), expectedError);
    return metric;
  }

  /// Makes the n-th (from 0) read of a file fail.
  static void FailRead(const std::wstring& path, int nth);

  std::wstring panFile;
  std::wstring msFile;
  std::wstring fusedFile;
  Storage panStorage;
  Storage msStorage;
  Storage fusedStorage;
  FusionEvaluateParam param;
  RecordingProgress progress;
  std::vector<unsigned int> sleeps;
  int expectedError = 0;
};

}  // namespace test_support

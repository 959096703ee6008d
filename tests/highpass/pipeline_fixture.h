#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "framework/fusion_param.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/log.h"
#include "tests/support/recording_progress.h"
#include "tests/support/scene.h"

namespace highpass_test {

/// Keeps what is logged while it lives.
class RecordingLog : public CLog {
 public:
  RecordingLog() { CLog::m_pLogger = this; }
  ~RecordingLog() override { CLog::m_pLogger = nullptr; }
  void WriteLog(int level, const char* file, int line, const char* function, const wchar_t* text) override;

  struct Entry {
    int level;
    std::string file;
    std::string function;
    std::wstring text;
    bool operator==(const Entry&) const = default;
  };
  const std::vector<Entry>& Entries() const { return m_entries; }

 private:
  std::vector<Entry> m_entries;
};

/// A user who cancels at a certain step of the whole run, whatever its stage, and means it.
class ImpatientProgress : public test_support::RecordingProgress {
 public:
  explicit ImpatientProgress(int step) : m_cancelAt(step) {}
  bool Step(int position, const std::wstring& text) override {
    RecordingProgress::Step(position, text);
    if (Steps() >= m_cancelAt) RequestCancel();
    return !IsCancelRequested();
  }

 private:
  int m_cancelAt;
};

/// High-pass kernel of an odd size: -1 everywhere but in the centre, the sum 0.
FilterDescription HighPass(int size);

/// A folder in memory with a pan and a multispectral image (four 16-bit bands at ratio 2), and nothing else.
class PipelineFiles : public testing::Test {
 protected:
  PipelineFiles();
  ~PipelineFiles() override;

  HpfFusionParam Param() const;
  /// All files of the folder but the two inputs.
  std::vector<std::wstring> NewFiles() const;
  void WriteInputs(PixelDataType msType = PDT_UINT16) const;
  /// The temporary files of a run in the order they are made, each as a stage finds it in its input: driver, type and
  /// number of bands.
  std::vector<std::string> TemporaryFiles(const std::function<void()>& run) const;
  /// The same of the output.
  std::string OutputFile() const;
  /// Images whose fused one has pyramids, the first of 300 x 300 pixels.
  void WriteLargeInputs();
  /// The multispectral image in degrees, under all of the pan image in metres.
  void WriteInDegrees();
  /// Turns an image by three degrees around its upper left corner.
  static void Turn(reference::Image& image, double pixel);
  /// A triangle in the upper left half of the 30 x 30 pan pixels behind column and row 5.
  std::wstring WriteArea() const;
  /// Something older under the output's name.
  void WriteOlderOutput() const;
  bool OlderOutputIsIntact() const;

  std::wstring m_folder;
  std::wstring m_panFile;
  std::wstring m_msFile;
  std::wstring m_outFile;
  reference::Image m_pan;
  reference::Image m_ms;
};

/// Runs an algorithm made by make again and again, its n-th raster operation failing each time, until a run needs fewer
/// than n; check is called after each run. Answers the number of runs.
int ForEachFailingOperation(const std::function<bool(platform::RasterOperation)>& which, bool throws,
                            const std::function<void(int n)>& run);

// Stages written out, over whole images in memory.

/// Correlation with a kernel, edges repeated, rounded to 32-bit float.
std::vector<double> Convolve(const reference::Image& image, std::size_t band, const FilterDescription& filter);
/// 0.9 x green + 0.1 x near infrared, rounded to 32-bit float.
void MixGreen(reference::Image& ms);
/// To a mean and deviation.
void Stretch(std::vector<double>& values, double mean, double deviation);
/// To 0 .. top after cutting int(ratio x n) values off each end.
void Level(std::vector<double>& values, double ratio, double top);
double RoundHalfUp(double value, double low, double high);

}  // namespace highpass_test

// fusion_stages PAN MS OUT: where the time of a Brovey run goes. Every stage is timed by itself over the whole scene,
// on one thread and one block after the other, with the library's own code; OUT is written and deleted. Prints JSON.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "band_arithmetic/brovey_fusion.h"
#include "benchmarks/opened_run.h"
#include "framework/row_kernel.h"
#include "platform/raster/pixel_type.h"
#include "platform/system/console.h"
#include "platform/system/memory.h"
#include "platform/utility/common_fun.h"

namespace {

using BroveyRun = bench::OpenedRun<CBroveyFusion>;

constexpr int kTileWidth = 1024;

class Stopwatch {
 public:
  /// Runs work and adds its wall time.
  template <typename Work>
  auto Time(const Work& work) {
    const Adder adder{*this, std::chrono::steady_clock::now()};
    return work();
  }
  double Seconds() const { return m_seconds; }

 private:
  struct Adder {
    Stopwatch& watch;
    std::chrono::steady_clock::time_point start;
    ~Adder() { watch.m_seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }
  };
  double m_seconds = 0.0;
};

/// Rows of doubles.
struct Rows {
  std::vector<std::vector<double>> values;
  std::vector<double*> pointers;

  Rows(int count, int width)
      : values(static_cast<std::size_t>(count), std::vector<double>(static_cast<std::size_t>(width))) {
    for (auto& row : values) pointers.push_back(row.data());
  }
};

struct Stages {
  Stopwatch reading;
  Stopwatch kernel;  ///< resampling, arithmetic and conversion together
  Stopwatch resampling;
  Stopwatch conversion;
  Stopwatch writing;
};

bool ReadAll(BroveyRun& run, Stages& stages) {
  return stages.reading.Time([&] {
    bool read = true;
    run.Grid().ForEach([&](const CRect& block) { return read = run.Load(block); });
    return read;
  });
}

/// In column tiles, like the kernel.
void ResampleBlock(BroveyRun& run, Rows& ms) {
  fusion::RowSource source = run.Rows();
  for (int first = 0; first < source.Width(); first += kTileWidth) {
    source.SetColumns(first, std::min(kTileWidth, source.Width() - first));
    for (int row = 0; row < source.Height(); ++row) source.Resample(row, ms.pointers.data());
  }
}

/// Converts rows that lie in the caches, as they do in the kernel, to the pixels of a whole block.
void ConvertBlock(const BroveyRun& run, const Rows& rows, std::int64_t pixels, void** bands) {
  const int size = platform::PixelSize(run.Type());
  for (std::int64_t at = 0; at < pixels; at += kTileWidth) {
    const auto count = static_cast<std::size_t>(std::min<std::int64_t>(kTileWidth, pixels - at));
    for (int b = 0; b < run.BandCount(); ++b) {
      run.Conversion().ConvertRow(run.Type(), rows.pointers[static_cast<std::size_t>(b)],
                                  static_cast<unsigned char*>(bands[b]) + at * size, count);
    }
  }
}

/// The first block's result, the largest there is, stays for the writing.
bool ComputeAll(BroveyRun& run, Stages& stages, void**& firstBlock) {
  Rows rows(run.BandCount(), kTileWidth);
  bool computed = true;
  run.Grid().ForEach([&](const CRect& block) {
    if (!run.Load(block)) return computed = false;
    void** bands = stages.kernel.Time([&] { return run.Fuse(); });
    if (!bands) return computed = false;
    stages.resampling.Time([&] { ResampleBlock(run, rows); });
    stages.conversion.Time([&] { ConvertBlock(run, rows, block.Area(), bands); });
    if (firstBlock) {
      fusion::FreeBlock(run.Type(), run.BandCount(), bands);
    } else {
      firstBlock = bands;
    }
    return true;
  });
  return computed;
}

bool WriteAll(BroveyRun& run, Stages& stages, void** bands) {
  return stages.writing.Time([&] {
    bool written = true;
    run.Grid().ForEach([&](const CRect& block) { return written = run.Write(block, bands); });
    return run.CloseOutput() && written;
  });
}

void Print(const BroveyRun& run, const Stages& stages) {
  const double pixels = static_cast<double>(run.Grid().width) * run.Grid().height;
  // The kernel keeps its arithmetic to itself, so that is what the other two leave of it.
  const double arithmetic =
      std::max(stages.kernel.Seconds() - stages.resampling.Seconds() - stages.conversion.Seconds(), 0.0);
  std::printf("{\n  \"width\": %d,\n  \"height\": %d,\n  \"bands\": %d,\n  \"stages\": {\n", run.Grid().width,
              run.Grid().height, run.BandCount());
  const auto line = [&](const char* name, double seconds, const char* end) {
    std::printf("    \"%s\": {\"seconds\": %.4f, \"pixels_per_second\": %.0f}%s\n", name, seconds,
                seconds > 0.0 ? pixels / seconds : 0.0, end);
  };
  line("reading", stages.reading.Seconds(), ",");
  line("resampling", stages.resampling.Seconds(), ",");
  line("arithmetic", arithmetic, ",");
  line("conversion", stages.conversion.Seconds(), ",");
  line("writing", stages.writing.Seconds(), "");
  std::printf("  }\n}\n");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments = platform::Utf8Arguments(argc, argv);
  if (arguments.size() != 3) {
    std::fprintf(stderr, "usage: fusion_stages PAN MS OUT\n");
    return 2;
  }
  platform::KeepFreedMemory();
  FusionParam param;
  param.m_strPanFile = CommonFun::Utf82U(arguments[0]);
  param.m_strMSFile = CommonFun::Utf82U(arguments[1]);
  param.m_strOutFile = CommonFun::Utf82U(arguments[2]);
  param.m_eOutDataType = PDT_UNKNOWN;  // the multispectral image's
  param.m_eResampleType = RT_BICUBIC;

  BroveyRun run(param);
  Stages stages;
  void** block = nullptr;
  const bool done =
      run.Open() && ReadAll(run, stages) && ComputeAll(run, stages, block) && block && WriteAll(run, stages, block);
  fusion::FreeBlock(run.Type(), run.BandCount(), block);
  if (!done) {
    std::fprintf(stderr, "fusion_stages: cannot fuse %s and %s to %s\n", arguments[0].c_str(), arguments[1].c_str(),
                 arguments[2].c_str());
    return 1;
  }
  Print(run, stages);
  return 0;
}

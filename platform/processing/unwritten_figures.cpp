#include "platform/processing/unwritten_figures.h"

#include <vector>

#include "platform/raster/read_window.h"
#include "platform/system/task_queue.h"

namespace platform {

bool Measure(const UnwrittenBand& band, bool ahead, Workers* workers,
             const std::function<bool(std::int64_t done, std::int64_t count)>& goesOn, BandFigures& figures) {
  const int stripRows = StripRows(band.width, band.height, sizeof(float));
  const WindowGrid windows = ReadWindows(band.width, band.height, band.width, stripRows, kStatisticsWindow);
  std::vector<double> values[2];
  const auto load = [&](std::int64_t i, int slot) {
    values[slot].resize(static_cast<std::size_t>(windows.step.Area()));
    bool gaps = false;
    return band.read(windows.At(i), values[slot].data(), gaps);
  };
  const auto use = [&](std::int64_t i, int slot) {
    figures.Add(values[slot].data(), windows.At(i).Area(), workers);
    return goesOn(i + 1, windows.Count());
  };
  return LoadInTurn(ahead, windows.Count(), load, use);
}

}  // namespace platform

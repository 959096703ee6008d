#include "platform/processing/unwritten_figures.h"

#include <vector>

#include "platform/raster/read_window.h"
#include "platform/system/task_queue.h"

namespace platform {

bool Measure(const UnwrittenBand& band, bool ahead, Workers* workers,
             const std::function<bool(std::int64_t done, std::int64_t count)>& goesOn, BandFigures& figures) {
  const int stripRows = StripRows(band.width, band.height, sizeof(float));
  const WindowGrid windows = ReadWindows(band.width, band.height, band.width, stripRows, kStatisticsWindow);
  const SurveyPass pass(band.survey, band.name, windows.Count());
  const auto count = static_cast<std::int64_t>(pass.Pieces().size());
  const auto pieceAt = [&](std::int64_t i) { return pass.Pieces()[static_cast<std::size_t>(i)]; };
  const auto fold = [&figures](const BandFigures::Part& part) { figures.Add(part); };
  std::vector<double> values[2];
  const auto load = [&](std::int64_t i, int slot) {
    values[slot].resize(static_cast<std::size_t>(windows.step.Area()));
    bool gaps = false;
    return band.read(windows.At(pieceAt(i)), values[slot].data(), gaps);
  };
  const auto use = [&](std::int64_t i, int slot) {
    BandFigures::Part part = figures.Reduce(values[slot].data(), windows.At(pieceAt(i)).Area(), workers);
    pass.Take(pieceAt(i), part, fold);
    return goesOn(i + 1, count);
  };
  if (!LoadInTurn(ahead, count, load, use)) return false;
  pass.End<BandFigures::Part>(fold);
  return true;
}

}  // namespace platform

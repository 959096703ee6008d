#include "framework/run/block_mask.h"

#include <algorithm>
#include <cmath>

#include "framework/resampling/nearest.h"
#include "platform/system/workers.h"

namespace fusion {
namespace {

bool IsOnImage(const RowGeometry& g, double x, double y) {
  return x >= 0.0 && x <= g.msWidth - 1.0 && y >= 0.0 && y <= g.msHeight - 1.0;
}

/// Whether the whole block lies on the multispectral image: it does where its outline does.
bool LiesOnImage(const RowGeometry& g) {
  const int width = g.rect.Width();
  const int height = g.rect.Height();
  std::vector<double> x(static_cast<std::size_t>(width));
  std::vector<double> y(x.size());
  const auto isOnImage = [&](int first, int count, int row) {
    MapPixels(g, first, count, row, x.data(), y.data());
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      if (!IsOnImage(g, x[i], y[i])) return false;
    }
    return true;
  };
  if (!isOnImage(0, width, 0) || !isOnImage(0, width, height - 1)) return false;
  for (int row = 0; row < height; ++row) {
    if (!isOnImage(0, 1, row) || !isOnImage(width - 1, 1, row)) return false;
  }
  return true;
}

/// One byte per multispectral sample read: 1 where any band has data. Empty where all have.
std::vector<unsigned char> SamplesWithData(const BlockSet& blocks) {
  const BandBuffers& ms = blocks.ms;
  const unsigned char* gaps = ms.Gaps();
  if (std::find(gaps, gaps + ms.Count(), 0) != gaps + ms.Count()) return {};
  std::vector<unsigned char> data(static_cast<std::size_t>(blocks.msRect.Area()), 0);
  for (std::size_t b = 0; b < ms.Count(); ++b) {
    const double* samples = ms[b];
    for (std::size_t i = 0; i < data.size(); ++i) data[i] |= static_cast<unsigned char>(samples[i] == samples[i]);
  }
  return data;
}

void LeaveOutGaps(const BandBuffers& buffers, std::vector<unsigned char>& marks) {
  if (!buffers.Gaps()[0]) return;
  const double* values = buffers[0];
  for (std::size_t i = 0; i < marks.size(); ++i) marks[i] &= static_cast<unsigned char>(values[i] == values[i]);
}

}  // namespace

std::vector<unsigned char> MarkData(const BlockSet& blocks, const RowGeometry& geometry, platform::Workers* workers) {
  const std::vector<unsigned char> samples = SamplesWithData(blocks);
  const bool looksAtMs = !samples.empty() || !LiesOnImage(geometry);
  if (!looksAtMs && !blocks.pan.Gaps()[0] && !blocks.detail.Gaps()[0]) return {};

  const int width = geometry.rect.Width();
  std::vector<unsigned char> marks(static_cast<std::size_t>(geometry.rect.Area()), 1);
  LeaveOutGaps(blocks.pan, marks);
  LeaveOutGaps(blocks.detail, marks);
  if (!looksAtMs) return marks;
  const CRect& read = blocks.msRect;
  struct Positions {
    std::vector<double> x;
    std::vector<double> y;
  };
  const auto markRow = [&](Positions& at, int row) {
    at.x.resize(static_cast<std::size_t>(width));
    at.y.resize(at.x.size());
    MapPixels(geometry, 0, width, row, at.x.data(), at.y.data());
    unsigned char* mark = marks.data() + static_cast<std::ptrdiff_t>(row) * width;
    for (std::size_t i = 0; i < at.x.size(); ++i) {
      if (!IsOnImage(geometry, at.x[i], at.y[i])) {
        mark[i] = 0;
      } else if (!samples.empty()) {
        const auto column =
            std::min<std::int64_t>(Nearest::MakeTaps(at.x[i], read.left, read.Width()).index[0], read.Width() - 1);
        const auto line =
            std::min<std::int64_t>(Nearest::MakeTaps(at.y[i], read.top, read.Height()).index[0], read.Height() - 1);
        mark[i] &= samples[static_cast<std::size_t>(line * read.Width() + column)];
      }
    }
  };
  platform::ForEachWith(
      workers, geometry.rect.Height(), [] { return Positions(); }, markRow);
  return marks;
}

std::vector<unsigned char> MarkInside(CRasterAOI& area, const CRect& panRect) {
  const int width = panRect.Width();
  std::vector<unsigned char> marks(static_cast<std::size_t>(panRect.Area()));
  for (int row = 0; row < panRect.Height(); ++row) {
    area.MarkRow(panRect.left, panRect.top + row, width, marks.data() + std::int64_t{row} * width);
  }
  return marks;
}

}  // namespace fusion

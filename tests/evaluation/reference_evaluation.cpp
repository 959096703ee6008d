#include "tests/evaluation/reference_evaluation.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace reference {
namespace {

constexpr double kTiny = 2.2250738585072014e-308;
constexpr double kHuge = 1.7976931348623157e+308;

struct Block {
  CRect rect;
  CRect read;
};

CRect ReadRect(const Evaluation& e, const CRect& block) {
  const double* t = e.fused->geoTransform;
  const double left = t[0] + block.left * t[1];
  const double right = t[0] + block.right * t[1];
  const double top = t[3] + block.top * t[5];
  const double bottom = t[3] + block.bottom * t[5];
  if (e.reproject) return e.reprojectedRect(left, top, right, bottom);
  const double* m = e.ms->geoTransform;
  const double x0 = (left - m[0]) / m[1];
  const double x1 = (right - m[0]) / m[1];
  const double y0 = (top - m[3]) / m[5];
  const double y1 = (bottom - m[3]) / m[5];
  const auto low = [](double a) { return static_cast<int>(std::floor(a + 1e-6)) - 5; };
  const auto high = [](double a) { return static_cast<int>(std::ceil(a - 1e-6)) + 5; };
  return {std::max(low(x0), 0), std::max(low(y0), 0), std::min(high(x1), e.ms->width),
          std::min(high(y1), e.ms->height)};
}

std::vector<Block> Blocks(const Evaluation& e, int blockWidth, int blockHeight) {
  const int columns = (e.fused->width + blockWidth - 1) / blockWidth;
  const int rows = (e.fused->height + blockHeight - 1) / blockHeight;
  std::vector<Block> blocks;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      Block block;
      block.rect.top = r * blockHeight;
      block.rect.bottom = std::min(block.rect.top + blockHeight, e.fused->height);
      block.rect.left = c * blockHeight;
      block.rect.right = std::min(block.rect.left + blockWidth, e.fused->width);
      block.read = ReadRect(e, block.rect);
      blocks.push_back(block);
    }
  }
  return blocks;
}

std::size_t At(const Image& image, int x, int y) {
  return static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x);
}

int Cell(double position, int begin, int end) {
  const int cell = static_cast<int>(position + 0.5) - begin;
  return begin + std::clamp(cell, 0, end - begin - 1);
}

/// Index of the multispectral pixel under a pixel of the fused image.
std::size_t MsAt(const Evaluation& e, const CRect& read, int x, int y, int shift) {
  const double* t = e.fused->geoTransform;
  Position p{};
  if (e.reproject) {
    p = e.reproject(t[0] + (x + shift) * t[1] + y * t[2], t[3] + (x + shift) * t[4] + y * t[5]);
  } else {
    p = GroundToSample(*e.ms, t[0] + (x + 0.5) * t[1] + (y + 0.5) * t[2], t[3] + (x + 0.5) * t[4] + (y + 0.5) * t[5]);
  }
  return At(*e.ms, Cell(p.x, read.left, read.right), Cell(p.y, read.top, read.bottom));
}

bool Valid(double value, const std::optional<double>& noData) {
  if (!noData) return true;
  return !(value == *noData || (std::isnan(value) && std::isnan(*noData)));
}

const std::vector<double>& MsBand(const Evaluation& e, std::size_t i) {
  return e.ms->bands[static_cast<std::size_t>(e.msBands[i])];
}
const std::vector<double>& FusedBand(const Evaluation& e, std::size_t i) {
  return e.fused->bands[static_cast<std::size_t>(e.fusedBands[i])];
}

/// Calls visit(read, x, y) for the pixels of all blocks.
template <typename Visit>
void ForEachPixel(const Evaluation& e, const Visit& visit) {
  for (const Block& block : Blocks(e, e.blockWidth, e.blockHeight)) {
    for (int y = block.rect.top; y < block.rect.bottom; ++y) {
      for (int x = block.rect.left; x < block.rect.right; ++x) visit(block.read, x, y);
    }
  }
}

struct Range {
  double min;
  double max;
  void Widen(double v) {
    if (v > max) max = v;
    if (v < min) min = v;
  }
};

struct Histogram {
  std::vector<double> counts = std::vector<double>(256, 0.0);

  void Add(double v, const Range& range) {
    const double bin = (v - range.min) * 255.0 / (range.max - range.min);
    std::size_t k = 0;
    if (std::isnan(bin) || bin < 0.0) {
      k = 0;
    } else if (bin >= 256.0) {
      k = 255;
    } else {
      k = static_cast<std::size_t>(bin);
    }
    counts[k] += 1.0;
  }
  std::vector<double> Probability() const {
    double total = 0.0;
    for (const double c : counts) total += c;
    std::vector<double> p;
    for (const double c : counts) p.push_back(c / total);
    return p;
  }
};

}  // namespace

Figures Entropy(const Evaluation& e) {
  const std::size_t n = e.fusedBands.size();
  Range panRange{1e10, -1e10};
  std::vector<Range> msRange(n, {kHuge, kTiny});
  std::vector<Range> fusedRange(n, {kHuge, kTiny});
  ForEachPixel(e, [&](const CRect& read, int x, int y) {
    const double pan = e.pan->bands[0][At(*e.pan, x + e.offsetX, y + e.offsetY)];
    if (Valid(pan, e.panNoData)) panRange.Widen(pan);
    double last = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      last = FusedBand(e, i)[At(*e.fused, x, y)];
      if (Valid(last, e.fusedNoData)) fusedRange[i].Widen(last);
    }
    for (std::size_t j = 0; j < n; ++j) {
      if (Valid(MsBand(e, j)[MsAt(e, read, x, y, 1)], e.msNoData)) msRange[j].Widen(last);
    }
  });

  Histogram panHist;
  std::vector<Histogram> msHist(n);
  std::vector<Histogram> fusedHist(n);
  ForEachPixel(e, [&](const CRect& read, int x, int y) {
    const double pan = e.pan->bands[0][At(*e.pan, x + e.offsetX, y + e.offsetY)];
    if (Valid(pan, e.panNoData)) panHist.Add(pan, panRange);
    for (std::size_t i = 0; i < n; ++i) {
      const double f = FusedBand(e, i)[At(*e.fused, x, y)];
      if (Valid(f, e.fusedNoData)) fusedHist[i].Add(f, fusedRange[i]);
      const double m = MsBand(e, i)[MsAt(e, read, x, y, 1)];
      if (Valid(m, e.msNoData)) msHist[i].Add(m, msRange[i]);
    }
  });

  Figures figures;
  auto& entropy = figures["m_pEntropy"];
  entropy.assign(2 * n, 0.0);
  for (const char* name : {"m_pRelativeEntropy", "m_pDeviationEntropy", "m_pJointEntropy"})
    figures[name].assign(n, 0.0);
  const std::vector<double> q = panHist.Probability();
  for (std::size_t i = 0; i < n; ++i) {
    const std::vector<double> m = msHist[i].Probability();
    const std::vector<double> f = fusedHist[i].Probability();
    for (std::size_t k = 0; k < 256; ++k) {
      if (m[k] > 0.0) entropy[i] += -m[k] * std::log(m[k]);
      if (f[k] > 0.0) entropy[n + i] += -f[k] * std::log(f[k]);
      if (m[k] > 0.0 && f[k] > 0.0) figures["m_pRelativeEntropy"][i] += f[k] * std::log(f[k] / m[k]);
      if (f[k] - m[k] != 1.0) figures["m_pDeviationEntropy"][i] += -m[k] * std::log(1.0 - std::pow(f[k] - m[k], 2.0));
      if (m[k] > 0.0 && f[k] > 0.0 && q[k] > 0.0) figures["m_pJointEntropy"][i] += -std::log(f[k] * m[k] * q[k]);
    }
  }
  return figures;
}

Figures Statistic(const Evaluation& e) {
  Figures figures;
  for (std::size_t i = 0; i < e.fusedBands.size(); ++i) {
    double fSum = 0.0, fCount = 0.0, mSum = 0.0, mCount = 0.0;
    ForEachPixel(e, [&](const CRect& read, int x, int y) {
      const double f = FusedBand(e, i)[At(*e.fused, x, y)];
      const double m = MsBand(e, i)[MsAt(e, read, x, y, 1)];
      if (Valid(f, e.fusedNoData)) fSum += f, fCount += 1.0;
      if (Valid(m, e.msNoData)) mSum += m, mCount += 1.0;
    });
    const double fMean = fSum / fCount;
    const double mMean = mSum / mCount;
    double fSquares = 0.0, mSquares = 0.0, products = 0.0, errors = 0.0, powers = 0.0, deviations = 0.0;
    double pairs = 0.0, nonZero = 0.0;
    ForEachPixel(e, [&](const CRect& read, int x, int y) {
      const double f = FusedBand(e, i)[At(*e.fused, x, y)];
      const double m = MsBand(e, i)[MsAt(e, read, x, y, 1)];
      const bool fValid = Valid(f, e.fusedNoData);
      const bool mValid = Valid(m, e.msNoData);
      if (fValid) fSquares += std::pow(f - fMean, 2.0);
      if (mValid) mSquares += std::pow(m - mMean, 2.0);
      if (!fValid || !mValid) return;
      products += (m - mMean) * (f - fMean);
      errors += std::pow(f - m, 2.0);
      powers += f * f;
      if (m != 0.0) deviations += std::fabs((m - f) / m), nonZero += 1.0;
      pairs += 1.0;
    });
    const double mDev = std::sqrt(mSquares / mCount);
    const double fDev = std::sqrt(fSquares / fCount);
    figures["m_pMulMean"].push_back(mMean);
    figures["m_pFusionMean"].push_back(fMean);
    figures["m_pMulStdDev"].push_back(mDev);
    figures["m_pFusionStdDev"].push_back(fDev);
    figures["m_pCorrelation"].push_back(std::sqrt((products / pairs) / (fDev * mDev)));
    figures["m_pRelativeDeviation"].push_back(deviations / nonZero);
    figures["m_pRelativeError"].push_back(errors / powers);
  }
  return figures;
}

Figures SignalToNoise(const Evaluation& e) {
  Figures figures;
  for (std::size_t i = 0; i < e.fusedBands.size(); ++i) {
    double signal = 0.0, noise = 0.0, pairs = 0.0;
    Range range{kHuge, kTiny};
    ForEachPixel(e, [&](const CRect& read, int x, int y) {
      const double f = FusedBand(e, i)[At(*e.fused, x, y)];
      const double m = MsBand(e, i)[MsAt(e, read, x, y, 1)];
      if (!Valid(f, e.fusedNoData) || !Valid(m, e.msNoData)) return;
      if (e.reproject) {
        signal += m * m;
        noise += (m - f) * (m - f);
      } else {
        signal = m * m;
        noise = (m - f) * (m - f);
      }
      pairs += 1.0;
      range.Widen(m);
    });
    figures["m_pSNR"].push_back(noise != 0.0 ? 10.0 * std::log(signal / noise) : kHuge);
    figures["m_pPSNR"].push_back(noise != 0.0 ? 10.0 * std::log((range.max - range.min) * pairs / noise) : kTiny);
  }
  return figures;
}

Figures Gradient(const Evaluation& e) {
  const int blockWidth = std::min(1024, e.pan->width);
  const int blockHeight = std::min(1024, e.pan->height);
  Figures figures;
  for (std::size_t i = 0; i < e.fusedBands.size(); ++i) {
    const std::vector<double>& ms = MsBand(e, i);
    const std::vector<double>& fused = FusedBand(e, i);
    double mx = 0.0, my = 0.0, mg = 0.0, mc = 0.0, fx = 0.0, fy = 0.0, fg = 0.0, fc = 0.0;
    double absolute = 0.0, squares = 0.0, dc = 0.0;
    for (const Block& block : Blocks(e, blockWidth, blockHeight)) {
      for (int y = block.rect.top; y < block.rect.bottom - 1; ++y) {
        for (int x = block.rect.left; x < block.rect.right - 1; ++x) {
          const double m0 = ms[MsAt(e, block.read, x, y, 0)];
          const double mr = ms[MsAt(e, block.read, x + 1, y, 0)];
          const double md = ms[MsAt(e, block.read, x, y + 1, 0)];
          if (Valid(m0, e.msNoData) && Valid(mr, e.msNoData) && Valid(md, e.msNoData)) {
            mx += (mr - m0) * (mr - m0);
            my += (md - m0) * (md - m0);
            mg += std::sqrt((mr - m0) * (mr - m0) + (md - m0) * (md - m0));
            mc += 1.0;
          }
          const double f0 = fused[At(*e.fused, x, y)];
          const double fr = fused[At(*e.fused, x + 1, y)];
          const double fd = fused[At(*e.fused, x, y + 1)];
          if (Valid(m0, e.fusedNoData) && Valid(fr, e.fusedNoData) && Valid(fd, e.fusedNoData)) {
            fx += (fr - f0) * (fr - f0);
            fy += (fd - f0) * (fd - f0);
            fg += std::sqrt((fr - f0) * (fr - f0) + (fd - f0) * (fd - f0));
            fc += 1.0;
          }
          if (Valid(f0, e.fusedNoData) && Valid(m0, e.msNoData)) {
            absolute += std::fabs(m0 - f0);
            squares += (m0 - f0) * (m0 - f0);
            dc += 1.0;
          }
        }
      }
    }
    figures["m_pFusionMeanGrad"].push_back(fg / fc);
    figures["m_pMulMeanGrad"].push_back(mg / mc);
    figures["m_pFusionRmsGrad"].push_back(std::sqrt((fy + fx) / fc));
    figures["m_pMulRmsGrad"].push_back(std::sqrt((my + mx) / mc));
    figures["m_pMeanAbsDiff"].push_back(absolute / dc);
    figures["m_pDiffNorm"].push_back(std::sqrt(squares) / dc);
  }
  return figures;
}

}  // namespace reference

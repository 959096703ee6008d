#include "platform/statistics/clipped_moments.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include "platform/statistics/survey.h"
#include "platform/validity/no_data.h"

namespace platform {
namespace {

/// A value's bits as a number that grows with the value.
std::uint64_t Sortable(double value) {
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  return bits & kSign ? ~bits : bits | kSign;
}

double FromSortable(std::uint64_t key) {
  constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
  return std::bit_cast<double>(key & kSign ? key ^ kSign : ~key);
}

}  // namespace

class ClippedMoments::Bins {
 public:
  Bins() : m_pages(std::size_t{1} << kPageBits) {}

  void Add(const double* values, std::int64_t count, double noData) {
    for (std::int64_t i = 0; i < count; ++i) {
      if (!IsValidSample(values[i], noData)) continue;
      const std::uint64_t key = Sortable(values[i]);
      Bin& bin = PageOf(key >> (kPlaceBits + kBinBits))[(key >> kPlaceBits) & kBinMask];
      bin.places += (key & kPlaceMask) >> kLostBits;
      ++bin.count;
    }
  }

  void Add(const Bins& other) {
    for (std::size_t p = 0; p < m_pages.size(); ++p) {
      if (!other.m_pages[p]) continue;
      Page& page = PageOf(p);
      for (std::size_t b = 0; b < page.size(); ++b) {
        page[b] += (*other.m_pages[p])[b];
      }
    }
  }

  /// Calls visit(mean, count) for the bins with values, upwards.
  template <typename Visit>
  void ForEach(const Visit& visit) const {
    for (std::size_t p = 0; p < m_pages.size(); ++p) {
      if (!m_pages[p]) continue;
      for (std::size_t b = 0; b < m_pages[p]->size(); ++b) {
        const Bin& bin = (*m_pages[p])[b];
        if (bin.count > 0) visit(bin.Mean((p << kBinBits | b) << kPlaceBits), bin.count);
      }
    }
  }

  /// Place, sum and count of the bins with values, upwards.
  std::vector<std::uint64_t> Packed() const {
    std::vector<std::uint64_t> packed;
    for (std::size_t p = 0; p < m_pages.size(); ++p) {
      if (!m_pages[p]) continue;
      for (std::size_t b = 0; b < m_pages[p]->size(); ++b) {
        const Bin& bin = (*m_pages[p])[b];
        if (bin.count > 0)
          packed.insert(packed.end(), {p << kBinBits | b, bin.places, static_cast<std::uint64_t>(bin.count)});
      }
    }
    return packed;
  }
  void AddPacked(const std::vector<std::uint64_t>& packed) {
    CheckSurveyed(packed.size() % 3 == 0);
    for (std::size_t i = 0; i < packed.size(); i += 3) {
      CheckSurveyed(packed[i] >> kBinBits < m_pages.size());
      PageOf(packed[i] >> kBinBits)[packed[i] & kBinMask] += {packed[i + 1], static_cast<std::int64_t>(packed[i + 2])};
    }
  }

 private:
  static constexpr int kPageBits = 12;   ///< sign and power of two
  static constexpr int kBinBits = 8;     ///< parts of it: few, which the processor's first cache has room for
  static constexpr int kPlaceBits = 44;  ///< the place in a bin
  static constexpr int kLostBits = 22;   ///< of it, far below what any deviation is known to
  static constexpr std::uint64_t kBinMask = (std::uint64_t{1} << kBinBits) - 1;
  static constexpr std::uint64_t kPlaceMask = (std::uint64_t{1} << kPlaceBits) - 1;

  struct Bin {
    std::uint64_t places = 0;  ///< their sum: a whole number, which is the same in whatever order they are added
    std::int64_t count = 0;

    Bin& operator+=(const Bin& other) {
      places += other.places;
      count += other.count;
      return *this;
    }
    double Mean(std::uint64_t first) const {
      const double step = FromSortable(first + (std::uint64_t{1} << kLostBits)) - FromSortable(first);
      return FromSortable(first) + step * (static_cast<double>(places) / static_cast<double>(count));
    }
  };
  using Page = std::array<Bin, 1U << kBinBits>;

  Page& PageOf(std::size_t i) {
    if (!m_pages[i]) m_pages[i] = std::make_unique<Page>();
    return *m_pages[i];
  }

  std::vector<std::unique_ptr<Page>> m_pages;  ///< made when the first value comes
};

ClippedMoments::ClippedMoments(double noData) : m_noData(noData), m_all(noData), m_bins(std::make_shared<Bins>()) {}

void ClippedMoments::Add(const double* values, std::int64_t count) {
  m_all.Add(values, count);
  m_bins->Add(values, count, m_noData);
}

void ClippedMoments::Reduce(const double* values, std::int64_t count, Part& part) const {
  m_all.Reduce(values, count, part.pieces);
  if (!part.bins) part.bins = std::make_shared<Bins>();
  part.bins->Add(values, count, m_noData);
}

void ClippedMoments::Add(const Part& part) {
  m_all.Add(part.pieces);
  if (part.bins) m_bins->Add(*part.bins);
}

void ClippedMoments::Part::Append(const Part& next) {
  pieces.insert(pieces.end(), next.pieces.begin(), next.pieces.end());
  if (!next.bins) return;
  if (!bins) bins = std::make_shared<Bins>();
  bins->Add(*next.bins);
}

std::vector<std::uint64_t> ClippedMoments::Part::PackedBins() const {
  return bins ? bins->Packed() : std::vector<std::uint64_t>();
}

void ClippedMoments::Part::UnpackBins(const std::vector<std::uint64_t>& packed) {
  bins = std::make_shared<Bins>();
  bins->AddPacked(packed);
}

double ClippedMoments::Widening() const {
  if (m_outliers == 0 || !(m_stdDev > 0.0)) return 1.0;
  const double widening = m_all.StdDev() / m_stdDev;
  // The squares of the largest values are no numbers.
  return std::isfinite(widening) ? widening : std::numeric_limits<double>::infinity();
}

double ClippedMoments::ValueOfRank(std::int64_t rank) const {
  double value = 0.0;
  std::int64_t before = 0;
  m_bins->ForEach([&](double mean, std::int64_t inBin) {
    if (before <= rank) value = mean;
    before += inBin;
  });
  return value;
}

void ClippedMoments::Settle() {
  constexpr std::int64_t kPermille = 1000;
  m_mean = m_all.Mean();
  m_stdDev = m_all.StdDev();
  m_outliers = 0;
  const std::int64_t count = m_all.Count();
  const double low = ValueOfRank(count / kPermille);
  const double high = ValueOfRank(count - 1 - count / kPermille);
  const double least = low - (high - low);
  const double most = high + (high - low);
  // What is nearly everywhere the same has no range that others could lie beyond.
  if (!(low < high)) return;
  double sum = 0.0;
  m_bins->ForEach([&](double value, std::int64_t inBin) {
    if (value < least || value > most) m_outliers += inBin;
    sum += std::clamp(value, least, most) * static_cast<double>(inBin);
  });
  if (m_outliers == 0) return;
  m_mean = sum / static_cast<double>(count);
  double squares = 0.0;
  m_bins->ForEach([&](double value, std::int64_t inBin) {
    const double deviation = std::clamp(value, least, most) - m_mean;
    squares += deviation * deviation * static_cast<double>(inBin);
  });
  m_stdDev = std::sqrt(squares / static_cast<double>(count));
}

}  // namespace platform

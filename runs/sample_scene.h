#pragma once

#include <cstdint>
#include <vector>

namespace fusion {

/// A made-up landscape: fields, woods, a river, roads, houses, clouds. The same for a seed on every machine; any row
/// can be asked for by itself.
class SampleScene {
 public:
  /// How far it goes on beyond its picture on every side: sensors see what lies beside it.
  static constexpr int kBeyond = 64;

  /// @param clouds share of the picture, 0 to 1, of which they hide more than half
  SampleScene(unsigned seed, int width, int height, int bandCount, double clouds);

  int Width() const { return m_width; }
  int Height() const { return m_height; }
  int BandCount() const { return m_bandCount; }
  /// Reflectance, 0 to 1, of one row from a column on: one row of values per band, as many as there is room for.
  void Row(int row, int firstColumn, std::vector<std::vector<double>>& bands) const;
  /// Repeatable noise with mean 0 and variance 1; nearly normal, and never beyond 3.5.
  double Noise(unsigned channel, int column, int row) const;
  /// Share of a band in what the panchromatic sensor sees; all shares add up to 1.
  double PanShare(int band) const;

 private:
  struct Surface {
    int kind;
    double brightness;
  };
  std::uint64_t Bits(std::uint32_t channel, std::int64_t x, std::int64_t y) const;
  std::uint32_t Hash(std::uint32_t channel, std::int64_t x, std::int64_t y) const;
  double Unit(std::uint32_t channel, std::int64_t x, std::int64_t y) const;
  double Grain(std::uint32_t channel, int column, int row) const;
  void SmoothRow(std::uint32_t channel, int period, int row, int firstColumn, std::vector<double>& values) const;
  void CloudRow(int row, int firstColumn, std::vector<double>& heights) const;
  double CloudBase(double share) const;
  double RiverAt(int row) const;
  Surface FieldAt(int column, int row) const;
  bool TreeAt(int column, int row, double density, Surface& tree) const;
  Surface SurfaceAt(int column, int row, double town, double river) const;
  double Reflectance(int kind, int band) const;

  std::uint32_t m_seed;
  int m_width;
  int m_height;
  int m_bandCount;
  bool m_cloudy;
  /// The height at which clouds hide half of what is below them.
  double m_cloudBase;
};

}  // namespace fusion

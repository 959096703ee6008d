#pragma once

#include <cstdint>
#include <vector>

namespace fusion {

/// A made-up landscape: fields, woods, a river, roads, houses. The same for a seed on every machine; any row can be
/// asked for by itself.
class SampleScene {
 public:
  SampleScene(unsigned seed, int width, int bandCount);

  int Width() const { return m_width; }
  int BandCount() const { return m_bandCount; }
  /// Reflectance, 0 to 1, of one row: one row of values per band.
  void Row(int row, std::vector<std::vector<double>>& bands) const;
  /// Repeatable noise between -1 and 1.
  double Noise(unsigned channel, int column, int row) const;
  /// Share of a band in what the panchromatic sensor sees; all shares add up to 1.
  double PanShare(int band) const;

 private:
  struct Surface {
    int kind;
    double brightness;
  };
  std::uint32_t Hash(std::uint32_t channel, std::int64_t x, std::int64_t y) const;
  double Unit(std::uint32_t channel, std::int64_t x, std::int64_t y) const;
  void SmoothRow(std::uint32_t channel, int period, int row, std::vector<double>& values) const;
  double RiverAt(int row) const;
  Surface FieldAt(int column, int row) const;
  bool TreeAt(int column, int row, double density, Surface& tree) const;
  Surface SurfaceAt(int column, int row, double town, double river) const;
  double Reflectance(int kind, int band) const;

  std::uint32_t m_seed;
  int m_width;
  int m_bandCount;
};

}  // namespace fusion

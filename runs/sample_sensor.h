#pragma once

#include <vector>

namespace fusion {

/// Rows of values, one for each band.
using SampleRows = std::vector<std::vector<double>>;

/// How a sensor sees a landscape that comes to it row by row: each of its pixels is the mean around its centre, weighed
/// by a Gaussian. It keeps the few rows that are under way.
class SampleSensor {
 public:
  /// What it sees; lengths are in pixels of the landscape.
  struct View {
    int width;   ///< pixels of the sensor
    int height;  ///< likewise
    int bands;
    int step;            ///< of the sensor's pixels
    double spread;       ///< the Gaussian's standard deviation
    double right = 0.0;  ///< how far its picture lies to the right of the landscape
    double down = 0.0;
  };
  explicit SampleSensor(const View& view);

  /// How far it looks beyond the landscape under its own pixels, on any side.
  int Reach() const;
  /// Takes the landscape's next row, which begins at a column at least that far out, and answers the sensor's row that
  /// is complete with it, -1 for none. Rows come in order, the first one that far out, too.
  int Take(int row, int firstColumn, const SampleRows& landscape);
  /// The row that was completed last.
  const SampleRows& Seen() const { return m_seen; }

 private:
  /// The landscape's pixels that a sensor's pixel sees on one axis, from the one at `first` on for the sensor's first.
  struct Taps {
    int first;
    std::vector<double> weights;
  };
  static Taps TapsOf(const View& view, double shift);
  SampleRows& RowUnderWay(int row) { return m_rows[static_cast<std::size_t>(row) % m_rows.size()]; }
  void Finish(const SampleRows& sums, int firstColumn);

  View m_view;
  Taps m_across;
  Taps m_down;
  std::vector<SampleRows> m_rows;
  SampleRows m_seen;
};

}  // namespace fusion

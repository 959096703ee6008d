#pragma once

#include <vector>

#include "estimation/low_pass.h"
#include "estimation/pan_grid.h"
#include "platform/statistics/running_covariance.h"

namespace fusion {

/// An axis of low-passed samples: a blur onto a grid of half as many, whose samples lie on the corners between two, and
/// bicubic interpolation back, edges repeated. What an image loses by it is its detail one level down.
AxisFilter HalvedAndBack(const PanBlur& blur, int size);

/// The moments of one image less its low-passed self, and of the low-passed ones, over the multispectral grid: what is
/// needed to predict the detail of the bands from that of pan, one level down, where both are known.
class DetailMoments {
 public:
  /// @param bands of the multispectral image; pan on its grid comes as one image more
  /// @param blur between two levels
  /// @param workers who low-pass the images; null: the caller alone
  DetailMoments(int bands, int width, int height, const PanBlur& blur, platform::Workers* workers = nullptr);

  /// Begins another image of the same width behind the last one, whose moments are added to those there are.
  void Begin(int height);
  /// Takes the next rows.
  /// @param images one array of rows for each band and one for pan, row by row; NaN where there is no data
  void AddRows(const double* const* images, int rows);

  /// Of the pixels that have all data and do not lie on the outermost three rows or columns: the low-passed bands (n),
  /// pan's detail, the low-passed pan, the bands' details (n). Beside gaps the low-pass is taken of what has data,
  /// where that is at least half of it.
  const platform::RunningCovariance& Statistics() const { return m_statistics; }
  /// The same, and begins anew.
  platform::RunningCovariance TakeStatistics();

 private:
  void Count(int end);
  void CountRows(int first, int end);
  void Forget(int first);

  platform::Workers* m_workers;
  int m_images;
  int m_width;
  int m_height;
  PanBlur m_blur;
  SeparableFilter m_lowPass;
  platform::RunningCovariance m_statistics;
  std::vector<std::vector<double>> m_rows;  ///< of each image, 0 in gaps, and behind them 1 for a pixel with all data
  int m_top = 0;                            ///< of the rows held
  int m_end = 0;
  int m_counted = 0;            ///< rows
  std::vector<bool> m_hasGaps;  ///< of each row held
  std::vector<std::vector<double>> m_low;
};

}  // namespace fusion

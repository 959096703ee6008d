#pragma once

#include <vector>

#include "platform/raster/raster_types.h"

namespace fusion {

/// How a low-pass weighs the samples of a fine image by their distance from a position, along one axis.
struct LowPassShape {
  bool isBox;
  double size;  ///< a Gaussian's standard deviation or a box's length, in fine samples

  static LowPassShape Gaussian(double deviation) { return {false, deviation}; }
  static LowPassShape Box(double length) { return {true, length}; }
};

/// The standard deviation, in fine samples, of the Gaussian that lets a share of the Nyquist frequency of a grid ratio
/// times coarser through: the modulation transfer function of a sensor as the literature takes it, 0.3 for most
/// multispectral bands (Aiazzi, Alparone, Baronti, Garzelli and Selva, MTF-tailored multiscale fusion of
/// high-resolution MS and Pan imagery, Photogrammetric Engineering and Remote Sensing 72(5), 2006).
double DeviationOfGain(double ratio, double gain);
/// The other way round.
double GainOfDeviation(double ratio, double deviation);
/// The share that is taken for a multispectral band of which nothing is known.
constexpr double kUsualGain = 0.3;

/// The weights of a low-pass at one position.
struct LowPassWeights {
  int first = 0;                ///< fine sample of the first weight
  std::vector<double> weights;  ///< of the samples on the image, adding up to 1; empty where there are none
  double share = 0.0;           ///< of all weight that lies on the image
};

/// A Gaussian reaches 4 deviations and one sample more, a box weighs a sample by its part inside.
/// @param position in sample coordinates: a whole number is a sample's centre
/// @param size of the fine image
LowPassWeights WeightsAt(const LowPassShape& shape, double position, int size);

/// The least share of the weight that has to lie on an image for a value there to stand for its ground.
constexpr double kLeastShare = 0.98;

/// What every sample of an output axis takes from an input axis.
class AxisFilter {
 public:
  /// @param size of the input axis
  explicit AxisFilter(int size) : m_size(size) {}
  /// A low-pass at positions on the input axis, in sample coordinates.
  AxisFilter(const LowPassShape& shape, const std::vector<double>& positions, int size);

  void Add(LowPassWeights weights);
  /// This filter behind another one, as one filter of that one's input.
  AxisFilter Behind(const AxisFilter& inner) const;

  int Count() const { return static_cast<int>(m_samples.size()); }
  int InputSize() const { return m_size; }
  const LowPassWeights& operator[](int i) const { return m_samples[static_cast<std::size_t>(i)]; }

 private:
  int m_size;
  std::vector<LowPassWeights> m_samples;
};

/// A filter along the columns and one along the rows, applied to rectangles of an image, so that images of any height
/// go through in pieces. A value is NaN where less than the least share of the weight lies on the image, or a NaN under
/// it.
class SeparableFilter {
 public:
  SeparableFilter(AxisFilter columns, AxisFilter rows, double leastShare = kLeastShare);

  /// The input that a rectangle of the output is made from; empty where that is NaN throughout.
  CRect Reads(const CRect& rect) const;
  /// @param input row-major over inputRect, which holds what Reads answers
  /// @param out row-major over rect
  void Apply(const double* input, const CRect& inputRect, const CRect& rect, double* out) const;

 private:
  bool IsValid(int column, int row) const;
  void CombineColumns(const double* interleaved, int first, const CRect& rect, int row, int rows, double* out) const;

  AxisFilter m_columns;
  AxisFilter m_rows;
  double m_leastShare;
};

/// A low-pass at positions that form no grid.
class PointFilter {
 public:
  /// @param width, height of the fine image
  PointFilter(const LowPassShape& alongX, const LowPassShape& alongY, int width, int height,
              double leastShare = kLeastShare);

  /// The input that count positions need.
  CRect Reads(const double* x, const double* y, int count) const;
  /// The values at count positions, NaN as for SeparableFilter.
  /// @param input row-major over inputRect, which holds what Reads answers
  void Apply(const double* input, const CRect& inputRect, const double* x, const double* y, int count,
             double* out) const;

 private:
  LowPassShape m_alongX;
  LowPassShape m_alongY;
  int m_width;
  int m_height;
  double m_leastShare;
};

}  // namespace fusion

#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "estimation/pan_grid.h"
#include "platform/raster/raster_source.h"
#include "quality/image.h"
#include "runs/notices.h"
#include "runs/scene_pair.h"

namespace fusion {

/// Pan, the bands under it and images on its pixels, in fewer pixels, to be looked at.
class SceneViews {
 public:
  using Row = std::function<void(int y, const std::vector<double>& samples)>;

  /// @param goOn is called between reads, and may throw to end them
  /// Throws RunFailure for wrong usage and for an image that cannot be used.
  SceneViews(const PairNames& names, std::function<void()> goOn);

  ScenePair& Pair() { return m_pair; }
  /// Of the chosen bands those that are shown as red, green and blue, or one for grey; counted from 0.
  const std::vector<int>& Colours() const { return m_colours; }

  // A rectangle of pan's pixels in width x height; NaN where there is no data. They throw RunFailure after a failed
  // read.

  /// @param row is called with each row that was read
  quality::Image Pan(const CRect& rect, int width, int height, const Row& row = {}) const;
  /// The bands that are shown, upsampled.
  quality::Image Ms(const CRect& rect, int width, int height) const;
  /// Bands of an image, whose own pixels the rectangle counts.
  quality::Image Of(const CRasterSource& image, const std::vector<int>& bands, const CRect& rect, int width,
                    int height) const;

 private:
  /// The positions of the centres of a view's pixels in the multispectral image.
  void Place(const CRect& rect, int width, int height, std::vector<double>& x, std::vector<double>& y) const;

  Notices m_notices{nullptr};
  ScenePair m_pair;
  std::function<void()> m_goOn;
  std::vector<int> m_colours;
  std::unique_ptr<PanGrid> m_grid;  ///< where pan's pixels lie in the multispectral image
};

}  // namespace fusion

#pragma once

#include <string>
#include <vector>

#include "quality/errors.h"
#include "quality/q2n.h"
#include "quality/qnr.h"
#include "quality/sam.h"
#include "quality/sharpness.h"
#include "quality/spatial_correlation.h"
#include "quality/uiqi.h"
#include "runs/assess_mtf.h"
#include "runs/assess_scene.h"

namespace fusion {

/// What is measured of one method over all tiles.
struct MethodSums {
  explicit MethodSums(int ratio) : noReference(ratio) {}

  quality::ErrorSums errors;
  quality::AngleSums angles;
  quality::Q2nSums q2n;
  quality::UiqiSums uiqi;
  quality::DetailSums detail;
  quality::NoReferenceSums noReference;
  quality::Q2nSums consistency;
  quality::GradientSums gradients;
};

/// Where a method has moved the multispectral image before it fused, in pan pixels of its pair.
struct Move {
  double x = 0.0;
  double y = 0.0;

  bool IsNone() const { return x == 0.0 && y == 0.0; }
};

/// A pair of images to be fused, and what the result is compared with. Near the edges, where a method sees half of what
/// it sees elsewhere, nothing is measured.
class AssessTile {
 public:
  virtual ~AssessTile() = default;
  AssessTile(const AssessTile&) = delete;
  AssessTile& operator=(const AssessTile&) = delete;

  const PlacedImage& Pan() const { return m_pan; }
  const PlacedImage& Ms() const { return m_ms; }
  /// The bands resampled on pan's pixels, NaN where one of the samples for that has no data. Such pixels do not count.
  const quality::Image& Upsampled() const { return m_upsampled; }
  void SetUpsampled(quality::Image upsampled);
  /// Whether enough of it has data, and pan some detail.
  bool IsWorthIt() const;
  virtual void Measure(const quality::Image& fused, const Move& move, MethodSums& sums) const = 0;

 protected:
  /// @param workers who take the measures
  explicit AssessTile(platform::Workers* workers) : m_workers(workers) {}
  virtual void Mark() = 0;

  platform::Workers* m_workers;
  PlacedImage m_pan;
  PlacedImage m_ms;
  quality::Image m_upsampled;
};

/// Wald's protocol: both images degraded by the ratio, so that the multispectral image itself is the truth.
///
/// L. Wald, T. Ranchin, M. Mangolini, Fusion of satellite images of different spatial resolutions: assessing the
/// quality of resulting images, Photogrammetric Engineering and Remote Sensing 63(6), 1997.
class ReducedTile : public AssessTile {
 public:
  ReducedTile(AssessScene& scene, const CRect& tile, const SensorGains& gains);
  const PlacedImage& Truth() const { return m_truth; }
  void Measure(const quality::Image& fused, const Move& move, MethodSums& sums) const override;

 protected:
  void Mark() override;

 private:
  PlacedImage m_truth;
};

/// The images as they are.
class FullTile : public AssessTile {
 public:
  FullTile(AssessScene& scene, const CRect& tile, const SensorGains& gains);
  void Measure(const quality::Image& fused, const Move& move, MethodSums& sums) const override;

 protected:
  void Mark() override;

 private:
  /// Both images on the multispectral pixels, where a method has moved those, with the pixels that count in both.
  struct Coarse {
    quality::Image pan;
    quality::Image ms;
  };
  Coarse CoarseAt(const Move& move) const;
  /// An image on pan's pixels as a sensor would have seen it on the multispectral ones.
  quality::Image Lowered(const quality::Image& image, const Move& move, double gain) const;

  const AssessScene& m_scene;
  SensorGains m_gains;
  PanPositions m_positions;  ///< of the multispectral pixels on those of m_pan
  Coarse m_still;            ///< where nothing is moved, as with most methods
};

/// Marks what has no data in any band and what lies within a border of the edges.
void MarkInside(quality::Image& image, int borderX, int borderY);

}  // namespace fusion

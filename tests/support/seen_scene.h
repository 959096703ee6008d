#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/fusion_param.h"
#include "tests/support/reference_kernel.h"

class OGRCoordinateTransformation;

namespace test_support {

struct SeenOptions {
  double ratioX = 4.0;
  double ratioY = 4.0;
  int bands = 3;
  int msWidth = 64;
  int msHeight = 56;
  double blur = 1.0;   ///< 1: a gain of 0.3 at the multispectral Nyquist frequency
  double moveX = 0.0;  ///< where the multispectral image lies in truth, in pan pixels from where it says
  double moveY = 0.0;
  double turn = 0.0;  ///< of the multispectral image, radians; it then lies within pan
  bool southUp = false;
  bool degrees = false;  ///< the multispectral image's georeference; pan's is in metres and reaches beyond it
};

/// A ground that two sensors have seen: pan, a mix of the bands with the pixels that the truth has, and the bands,
/// blurred by a Gaussian onto a coarser grid. Files in memory that are removed with the object.
class SeenScene {
 public:
  SeenScene(unsigned seed, const SeenOptions& options);
  ~SeenScene();
  SeenScene(const SeenScene&) = delete;
  SeenScene& operator=(const SeenScene&) = delete;

  void Write(double noData) const;
  void Write() const;
  BayesianFusionParam Record(double weight = 0.5) const;
  /// Where the centre of a multispectral pixel lies by the georeferences, in pan samples.
  reference::Position Place(int column, int row) const;
  /// Pan pixels across the upright rectangle around a multispectral one.
  double PanPerPixel() const { return m_perX; }
  double PanPerPixelDown() const { return m_perY; }

  reference::Image pan;
  reference::Image ms;
  std::vector<std::vector<double>> truth;  ///< the bands at pan's resolution
  std::wstring panFile;
  std::wstring msFile;

 private:
  /// Gives the multispectral image a place in degrees, its upper left corner where it is.
  void PlaceInDegrees();

  double m_perX;
  double m_perY;
  std::string m_panWkt;
  std::string m_msWkt;
  std::shared_ptr<OGRCoordinateTransformation> m_toMetres;  ///< null where both are in metres
};

/// Pan low-passed onto the multispectral grid, pixel by pixel as defined; NaN where less than 98 % of the weight lies
/// on the image, or a NaN under it.
std::vector<double> LowPassOf(const SeenScene& scene, bool isBox, double width, double shiftX, double shiftY);

}  // namespace test_support

#pragma once

#include <string>
#include <vector>

#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// The most pan pixels of a made-up scene on either side.
inline constexpr int kLargestSample = 200000;
/// The most pan pixels by which a made-up multispectral picture may lie beside its place.
inline constexpr double kLargestShift = 16.0;

/// A made-up scene to try things with: pan.tif and ms.tif as sensors see it, whose lenses blur and whose counts are
/// noisy, and truth.tif: the bands as a sensor without any fault would see them with the pixels of pan. Texts are
/// UTF-8.
struct FUSION_API SampleRequest {
  SampleRequest();
  ~SampleRequest();
  SampleRequest(const SampleRequest&);
  SampleRequest& operator=(const SampleRequest&);

  std::string folder;           ///< for the three files, made where it is missing
  int width = 1024;             ///< pan pixels, 1 to kLargestSample; rounded up to a multiple of the ratio
  int height = 1024;            ///< likewise
  unsigned seed = 1;            ///< another one gives another landscape, the same on every machine
  std::string type = "uint16";  ///< of the samples, as in FuseRequest::type
  int ratio = 4;                ///< multispectral over pan pixel, 1 to 16
  int bands = 4;                ///< multispectral, 1 to 16; the first four are blue, green, red, near infrared
  std::vector<double> shift;  ///< how far the multispectral picture lies to the right and down of pan's, in pan pixels,
                              ///< -kLargestShift to kLargestShift; empty: nowhere
  double noise = 0.0015;      ///< standard deviation of both sensors' noise, 0 to 1; 1 is the brightest white
  double clouds = 0.0;        ///< share of the scene that clouds hide, 0 to 1
  bool overwrite = false;     ///< replace existing files
};

/// A file of a scene.
struct SampleFile {
  std::string path;
  int width = 0;   ///< pixels
  int height = 0;  ///< pixels
  int bands = 0;
  double pixelSize = 0.0;  ///< metres
};

/// What was written.
struct SampleReport {
  std::vector<SampleFile> files;     ///< pan, multispectral, truth
  std::vector<std::string> notices;  ///< what the observer was told, too
};

/// Writes all three files, or none. One run at a time, as Fuse.
/// @param observer not owned; null for nobody
/// Throws RunFailure.
FUSION_API SampleReport MakeSample(const SampleRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

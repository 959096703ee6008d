#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// What is to be looked at before a fusion. Texts are UTF-8.
struct FUSION_API CheckRequest {
  CheckRequest();
  ~CheckRequest();
  CheckRequest(const CheckRequest&);
  CheckRequest& operator=(const CheckRequest&);

  std::string pan;                  ///< panchromatic image
  std::string ms;                   ///< multispectral image, as FuseRequest::ms
  std::vector<std::string> moreMs;  ///< further files of it, as FuseRequest::moreMs
  std::vector<int> bands;           ///< multispectral, counted from 1; empty: all but alpha
  int panBand = 1;                  ///< counted from 1
  bool sameExtent = false;          ///< take both images as covering the same ground
  bool allowNetwork = false;        ///< let what inputs refer to be read across the network
  bool confined = false;            ///< and nothing outside the folder of the input that refers to it
  std::optional<double> noData;     ///< no-data value of inputs that declare none
  std::string threads;              ///< as FuseRequest::threads
};

/// One of the two images.
struct CheckImage {
  int width = 0;   ///< pixels
  int height = 0;  ///< pixels
  int bands = 0;   ///< all of the file
  std::string type;
  double pixelWidth = 0.0;  ///< in units of its georeference
  double pixelHeight = 0.0;
  bool hasPlace = false;  ///< whether it has a georeference
  std::string system;     ///< name of its coordinate system; empty where it says none
  double overlap = 0.0;   ///< share of its ground, 0 to 1, that the other image covers
};

/// A band on the common ground. What is undefined is NaN.
struct CheckBand {
  static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  std::string name;
  double minimum = 0.0;
  double maximum = 0.0;
  double mean = 0.0;
  double stdDev = 0.0;
  double noData = 0.0;     ///< share of its pixels, 0 to 1, without data
  double atMinimum = 0.0;  ///< share of the others that have the least value
  double atMaximum = 0.0;  ///< likewise the largest
  // Of pan itself not known:
  double panRatio = kUnknown;     ///< pan's mean over the band's, where both have data
  double correlation = kUnknown;  ///< with pan averaged over the multispectral pixels
  double detail = kUnknown;       ///< likewise of what both differ by from the mean of 3 x 3 pixels
};

/// How the multispectral image lies to the pan image, by their detail.
struct CheckShift {
  double dx = 0.0;       ///< pan pixels by which it has to be moved to the right
  double dy = 0.0;       ///< and down: the median of the windows
  double spreadX = 0.0;  ///< of the windows: as a standard deviation, but from the median distance
  double spreadY = 0.0;
  int windows = 0;       ///< in which both show enough of the same detail
  double score = 0.0;    ///< share of the blurred pan's detail that the detail of the bands explains there
  double inPlace = 0.0;  ///< the same without the move
};

/// By how much more than pan the bands are blurred: how much sharper pan is.
struct CheckBlur {
  std::string shape;       ///< gaussian, or box for the mean over a multispectral pixel
  double width = 0.0;      ///< of the Gaussian that makes pan look like the bands, 1 leaving 0.3 at their Nyquist
                           ///< frequency; looked for from 0.5 to 1.9
  double deviation = 0.0;  ///< the same as its standard deviation in pan pixels; of a box its length
};

/// Something to be known before a fusion.
struct CheckFinding {
  bool isWarning = false;  ///< else a fact that needs nothing to be done
  std::string name;        ///< a word that stays as it is: shift, overlap, saturation, ...
  std::string text;        ///< a sentence
  std::string advice;      ///< what to do; empty where nothing is
};

/// What was seen.
struct CheckReport {
  CheckImage pan;
  CheckImage ms;
  double ratioX = 0.0;  ///< multispectral over pan pixel width
  double ratioY = 0.0;  ///< likewise of the heights
  bool reprojects = false;
  double share = 0.0;                  ///< of the common ground that the figures of the bands were taken from, 0 to 1
  double covered = 0.0;                ///< share of the multispectral pixels there with data in all bands and in pan
  std::optional<CheckBand> panBand;    ///< the figures of pan; where the images have common ground
  std::vector<CheckBand> bands;        ///< the chosen ones; likewise
  double mixCorrelation = 0.0;         ///< of the averaged pan with the best linear mix of the bands
  std::optional<CheckShift> shift;     ///< where the images show the same detail
  std::optional<CheckBlur> blur;       ///< likewise
  std::vector<CheckFinding> findings;  ///< warnings first
  std::vector<std::string> notices;    ///< what the observer was told
  double seconds = 0.0;                ///< that it took

  /// Whether there is nothing to warn of.
  bool IsFine() const { return findings.empty() || !findings.front().isWarning; }
};

/// Looks at a pan and a multispectral image as one should before fusing them. Of a large scene it takes parts that are
/// spread over it. One run at a time, as Fuse.
/// @param observer not owned; null for nobody
/// Throws RunFailure for images that cannot be opened or read, not for what a warning tells.
FUSION_API CheckReport Check(const CheckRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

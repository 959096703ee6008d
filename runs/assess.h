#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// What a comparison of the methods on a pair of images is to be. Texts are UTF-8.
struct FUSION_API AssessRequest {
  AssessRequest();
  ~AssessRequest();
  AssessRequest(const AssessRequest&);
  AssessRequest& operator=(const AssessRequest&);

  std::string pan;                   ///< panchromatic image
  std::string ms;                    ///< multispectral image, as FuseRequest::ms
  std::vector<std::string> moreMs;   ///< further files of it, as FuseRequest::moreMs
  std::vector<std::string> methods;  ///< of Methods(); empty, or "all": all of them
  /// wald (at reduced resolution, against the multispectral image), full (without a truth) or both
  std::string protocol = "both";
  std::vector<int> bands;        ///< multispectral, counted from 1; empty: all but alpha
  int panBand = 1;               ///< counted from 1
  bool sameExtent = false;       ///< take both images as covering the same ground
  bool allowNetwork = false;     ///< let what inputs refer to be read across the network
  bool confined = false;         ///< and nothing outside the folder of the input that refers to it
  std::optional<double> noData;  ///< no-data value of inputs that declare none
  /// gain of the bands' filter at their Nyquist frequency, and of pan's there; or the first of them alone. Empty: by
  /// what the images tell of the blur between them
  std::vector<double> mtf;
  std::string threads;  ///< as FuseRequest::threads
  int tiles = 16;       ///< the most parts of a large scene to look at
  std::string picture;  ///< PNG of crops to write; empty: none
  std::string keep;     ///< folder that what was fused, and the results, are left in; empty: none
  /// names of results that another program has put beside those of an earlier run with keep: NAME.tif in each folder
  std::vector<std::string> extra;
  bool overwrite = false;  ///< replace an existing picture, and what an earlier run has left in keep
};

/// A column of a table.
struct AssessMeasure {
  std::string name;    ///< "ERGAS"
  std::string better;  ///< where its best lies: less, more, 0 or 1
  int best = -1;       ///< the row that is; -1 for none
};

/// What was measured of a method.
struct AssessRow {
  std::string method;          ///< of Methods(); "upsampled" for no fusion at all; or of AssessRequest::extra
  std::vector<double> values;  ///< one for each measure; NaN where undefined
  std::vector<double> rmse;    ///< wald: root mean square error of each band
  std::vector<double> bias;    ///< wald: shift of each band's mean, as a share of it
  double movedX = 0.0;         ///< pan pixels of its pairs by which the method moved the multispectral image to the
  double movedY = 0.0;         ///< right and down before it fused: the mean over all parts
};

/// What was measured by a protocol: by wald the truth is known, by full it is not.
struct AssessTable {
  std::string protocol;  ///< wald or full
  std::vector<AssessMeasure> measures;
  std::vector<AssessRow> rows;  ///< best first, by the first measure
};

/// A method that could not be assessed.
struct AssessFailure {
  std::string method;
  std::string sentence;  ///< why
};

/// By how much more than pan the bands are blurred, as the detail of both tells.
struct AssessBlur {
  double width = 0.0;  ///< of a Gaussian; 1 leaves a gain of 0.3 at the bands' Nyquist frequency
  double apart = 0.0;  ///< difference of what the two halves of the scene tell
  double score = 0.0;  ///< share of the blurred pan's detail that the detail of the bands explains, where it is less
};

/// What was found.
struct AssessReport {
  std::vector<AssessTable> tables;  ///< wald before full
  std::string best;                 ///< the first method of the first table that is one; empty where none is
  std::string advice;               ///< a sentence or two
  std::vector<std::string> bands;   ///< a label for each
  int ratioX = 0;                   ///< multispectral over pan pixel width, rounded
  int ratioY = 0;                   ///< likewise of the heights
  double mtf = 0.0;                 ///< wald: gain of the bands' filter at their Nyquist frequency
  double fullMtf = 0.0;             ///< full: likewise
  double panMtf = 0.0;              ///< and of pan's there
  std::string mtfSource;            ///< estimated, given or published
  std::optional<AssessBlur> blur;   ///< where it was looked for
  int tiles = 0;                    ///< parts of the scene that were looked at
  double share = 0.0;               ///< of the common ground that they cover, 0 to 1
  std::vector<AssessFailure> failures;
  std::vector<std::string> notices;  ///< what the observer was told, too
  double seconds = 0.0;              ///< that it took
};

/// The row of a table that no method has made: the resampled bands.
inline constexpr char kUpsampled[] = "upsampled";

/// Fuses parts of a scene by every method and measures the results. One run at a time, as Fuse.
/// @param observer not owned; null for nobody
/// Throws RunFailure.
FUSION_API AssessReport Assess(const AssessRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

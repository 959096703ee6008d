#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// A page about fused images and what they were made of. Texts are UTF-8.
struct FUSION_API ReportRequest {
  ReportRequest();
  ~ReportRequest();
  ReportRequest(const ReportRequest&);
  ReportRequest& operator=(const ReportRequest&);

  std::string pan;                  ///< panchromatic image
  std::string ms;                   ///< multispectral image, as FuseRequest::ms
  std::vector<std::string> moreMs;  ///< further files of it, as FuseRequest::moreMs
  std::vector<std::string> fused;   ///< fused images, on the pan image's pixels
  std::string out;                  ///< page to write, HTML
  std::string title;                ///< of the page; empty: one that is made of the images' names
  std::vector<int> bands;           ///< multispectral, counted from 1; empty: all but alpha
  /// Of the fused images, counted from 1, as many, compared in pairs; empty: all but alpha, in pairs with the chosen
  /// multispectral ones where they are as many, else with those of the same names
  std::vector<int> fusedBands;
  int panBand = 1;               ///< counted from 1
  bool sameExtent = false;       ///< take pan and multispectral image as covering the same ground
  bool allowNetwork = false;     ///< let what inputs refer to be read across the network
  bool confined = false;         ///< and nothing outside the folder of the input that refers to it
  std::optional<double> noData;  ///< no-data value of inputs that declare none
  bool overwrite = false;        ///< replace an existing out
  std::string threads;           ///< as FuseRequest::threads
};

/// Quality without a truth, at full resolution: the protocol full of Assess.
struct ReportQuality {
  double hqnr = 0.0;
  double qnr = 0.0;
  double dLambda = 0.0;
  double dS = 0.0;
  double sharpness = 0.0;
};

/// A fused image of a report.
struct ReportImage {
  std::string file;
  std::string label;   ///< by which the page calls it
  std::string method;  ///< that made it, where it tells
  EvaluateReport evaluation;
  std::string notEvaluated;  ///< why evaluation is empty; empty where it is not
  std::optional<ReportQuality> quality;
  std::string notMeasured;  ///< why there is no quality; empty where there is
};

/// What was written.
struct WrittenReport {
  std::string out;
  std::int64_t bytes = 0;  ///< of the page
  CheckReport check;
  std::vector<ReportImage> images;   ///< in the order asked for
  std::vector<std::string> notices;  ///< what the observer was told, too
  double seconds = 0.0;              ///< that it took
};

/// Writes a page about fused images: pictures that can be compared, histograms, evaluations, what was seen of the
/// inputs, how the images were made. It is one file, which needs nothing else and asks no network for anything. One run
/// at a time, as Fuse.
/// @param observer not owned; null for nobody
/// Throws RunFailure for images that cannot be opened or read, or do not lie on pan's pixels; what cannot be measured
/// is told in the page.
FUSION_API WrittenReport Report(const ReportRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

#pragma once

#include <string>
#include <vector>

#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// A comparison of a fused image with both its inputs. Texts are UTF-8.
struct FUSION_API EvaluateRequest {
  EvaluateRequest();
  ~EvaluateRequest();
  EvaluateRequest(const EvaluateRequest&);
  EvaluateRequest& operator=(const EvaluateRequest&);

  std::string pan;                   ///< panchromatic image
  std::string ms;                    ///< multispectral image that went into the fusion, as FuseRequest::ms
  std::vector<std::string> moreMs;   ///< further files of it, as FuseRequest::moreMs
  std::string fused;                 ///< fused image, on the pan image's pixels
  std::vector<std::string> metrics;  ///< entropy, statistics, snr, gradient; empty: all
  std::vector<int> bands;            ///< multispectral, counted from 1; empty: all but alpha
  std::vector<int> fusedBands;       ///< counted from 1, as many, compared in pairs; empty: all but alpha
  int panBand = 1;                   ///< counted from 1
  bool sameExtent = false;           ///< take pan and multispectral image as covering the same ground
  bool allowNetwork = false;         ///< let what inputs refer to be read across the network
  bool confined = false;             ///< and nothing outside the folder of the input that refers to it
  std::string threads;               ///< as FuseRequest::threads
};

/// One result array under the name it is published by.
struct Figures {
  std::string name;
  /// A value for each pair of bands, or one for each multispectral band and then one for each fused band; NaN where
  /// it is undefined.
  std::vector<double> values;
};

/// The result arrays of a metric.
struct MetricFigures {
  std::string metric;
  std::vector<Figures> figures;
};

/// What was measured.
struct EvaluateReport {
  std::vector<MetricFigures> metrics;  ///< in the order asked for
  std::vector<std::string> bands;      ///< a label for each pair of bands
  std::vector<std::string> notices;    ///< what the observer was told, too
};

/// Measures the quality of a fused image. One run at a time, as Fuse.
/// @param observer not owned; null for nobody
/// Throws RunFailure.
FUSION_API EvaluateReport Evaluate(const EvaluateRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

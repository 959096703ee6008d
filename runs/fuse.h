#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runs/model_facts.h"
#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// In the place of a method: the one that Assess finds best on parts of the scene.
inline constexpr char kBestMethod[] = "best";

/// A fusion as the `fuse` command does it, from two files to one. Texts are UTF-8, as they come from users and other
/// languages; the words are those of the command's options. What is left alone takes its default.
struct FUSION_API FuseRequest {
  FuseRequest();
  ~FuseRequest();
  FuseRequest(const FuseRequest&);
  FuseRequest& operator=(const FuseRequest&);

  std::string pan;  ///< panchromatic image
  std::string ms;   ///< multispectral image; its file name may be a pattern (LC08*_B[2-5].TIF) that several have
  /// Further files of it, likewise: with more than one each has one band, and they are seen as one image with pixels as
  /// small as their smallest
  std::vector<std::string> moreMs;
  std::string out;     ///< fused image to write
  std::string method;  ///< of Methods(), or kBestMethod; DefaultMethod() by default

  std::optional<std::string> resample;  ///< nearest, bilinear, bicubic or auto (default), which is bicubic with care
  // Guards, docs/guards.md; where nothing is said, the first word, with asPublished the second one.
  std::string edges;         ///< repeat or off: let kernels see the multispectral image's edges repeated
  std::string matchMoments;  ///< robust or plain: the moments of a result that is matched
  std::string productRoot;   ///< multiplicative: auto or off, match the root of the product
  std::string detailCap;     ///< hpf: auto or off, no larger weight of detail than its share of pan
  std::string pcaMatch;      ///< pca: auto or off, bring pan to the first component's mean and deviation
  std::string keepBands;     ///< weighted: auto or off, keep bands that have no weight as resampled
  bool asPublished = false;  ///< everything that is not said otherwise is as the classes do it
  /// uint8, uint16, int16, uint32, int32, float32 or float64; by default the multispectral image's, float32 for a raw
  /// multiplicative run
  std::optional<std::string> type;
  std::vector<int> bands;               ///< multispectral bands, counted from 1, in output order; empty: all
  int panBand = 1;                      ///< counted from 1
  std::vector<int> rgb;                 ///< ihs: red, green and blue, counted from 1 among the chosen bands; or empty
  std::vector<int> window;              ///< column, row, width and height in pan pixels; empty: where both images are
  std::vector<int> rows;                ///< of the output, from and up to which: what is written; empty: all
  std::string survey;                   ///< of MakeSurvey and MergeSurveys; empty: none
  std::string statistics;               ///< what a window's are taken from: scene, or window (with asPublished)
  std::string aoi;                      ///< vector file; fused inside its polygons only. Empty: none
  std::string spectralMatch = "auto";   ///< auto, on or off
  std::string noDataMask = "auto";      ///< auto, on or off: take pixels without data for missing
  std::optional<double> noData;         ///< no-data value of inputs that declare none
  bool makeGreen = false;               ///< green becomes 0.9 green + 0.1 near infrared
  bool autoLevel = false;               ///< hpf, sharpen: end with an automatic level adjustment
  bool stretch = false;                 ///< stretch a raw result from its own range to that of the integer type
  std::optional<int> kernelSize;        ///< hpf: in pan pixels, odd, 3 to 31; by default from the ratio of the pixels
  std::optional<int> secondKernelSize;  ///< hpf: adds the detail of a second kernel
  std::optional<double> detailWeight;   ///< hpf: default 0.5
  std::optional<double> secondDetailWeight;  ///< hpf: likewise adds it; default 0.35
  /// bayesian: how much of the estimated model is applied, 0 (the resampled bands) to 1, default 0.5 (the estimate)
  std::optional<double> bayesWeight;
  std::string registration = "auto";         ///< bayesian: auto, off or report: what to make of a shift of the images
  bool sameExtent = false;                   ///< take both images as covering the same ground
  bool allowNetwork = false;                 ///< let what inputs refer to be read across the network
  bool confined = false;                     ///< and nothing outside the folder of the input that refers to it
  bool noOverviews = false;                  ///< hpf, ihs, sharpen: no overviews of the output
  std::string format;                        ///< by name; empty: by the extension of out
  std::string compress;                      ///< compression of the format's driver, by its name; empty: none
  std::vector<std::string> creationOptions;  ///< of the format's driver in GDAL: NAME=VALUE each
  bool noProvenance = false;                 ///< the output does not tell how it was made
  bool dryRun = false;                       ///< nothing is computed and written; the report tells what would be
  bool sync = false;                         ///< ends when the output lies on the disk
  bool overwrite = false;                    ///< replace an existing out, and what belongs to it
  std::string quicklook;                     ///< PNG of pan, upsampled multispectral and fused image; empty: none

  std::string threads;        ///< to compute on: a number, or all; empty: FUSION_THREADS, OMP_NUM_THREADS or all
  std::string log;            ///< file that the library's log is appended to while the run lasts; empty: none
  std::string given;          ///< what is to be done, in the caller's words, for the log beside the options
  bool measureValid = false;  ///< let the report tell the share of pixels with data, which takes a pass over the output
};

/// How a multispectral image lies to its pan image, by their detail.
struct FuseRegistration {
  double dx = 0.0;         ///< pan pixels by which the multispectral image has to be moved to the right
  double dy = 0.0;         ///< and down; both 0 where no move is certain to make it better
  bool applied = false;    ///< whether it was moved for the run
  double agreement = 0.0;  ///< share of the places looked at that the best move suits better than none
  double score = 0.0;      ///< share of the blurred pan's detail that the detail of the bands explains
};

/// What an estimated model of a fusion consists of.
struct FuseModel {
  std::string shape;          ///< of the blur between pan and the bands: gaussian, or box for the mean over a pixel
  double blur = 0.0;          ///< a Gaussian's width; 1 leaves a gain of 0.3 at the bands' Nyquist frequency
  double restoring = 0.0;     ///< how much more than that pan is blurred for the gains: 1 makes bands as sharp as pan
  std::vector<double> gains;  ///< of pan's detail in each band, at a weight of 0.5
  long long samples = 0;      ///< multispectral pixels that they are fitted to
};

/// What a fusion would do.
struct FusePlan {
  std::string pan;             ///< "1024x1024, 1 band of uint16"
  std::string ms;              ///< likewise
  std::vector<int> area;       ///< of the output: column, row, width and height in pan pixels
  double origin[2] = {};       ///< of the output, on the ground
  double pixelSize[2] = {};    ///< likewise
  std::string format;          ///< by name
  double memory = 0.0;         ///< bytes that the run takes at most, about
  double disk = 0.0;           ///< bytes of the output, overviews among them, without compression
  std::optional<double> free;  ///< bytes that the disk has left, where that can be told
};

/// What a fusion has written.
struct FuseReport {
  std::string method;
  std::string output;  ///< the request's out
  int width = 0;       ///< pixels
  int height = 0;      ///< pixels
  int bands = 0;
  std::string type;                  ///< of the samples, as in FuseRequest::type
  double seconds = 0.0;              ///< that the run took
  std::optional<double> validShare;  ///< of the pixels, 0 to 1, where asked for and the run masked those without data
  std::optional<FuseRegistration> registration;  ///< where the run looked for one
  std::optional<FuseModel> model;                ///< where the method estimates one
  std::optional<FusePlan> plan;                  ///< of a dry run; the size above is that of the output to come
  std::vector<std::string> guards;               ///< the options of those in effect: edges, resample, ...
  std::vector<std::string> notices;              ///< what the observer was told, too
};

/// Fuses. The output appears under its name when everything has succeeded; a failed or cancelled run leaves nothing
/// behind. Runs share what a process has once (log, first write error): one at a time.
/// @param observer not owned; null for nobody
/// Throws RunFailure.
FUSION_API FuseReport Fuse(const FuseRequest& request, RunObserver* observer = nullptr);

}  // namespace fusion

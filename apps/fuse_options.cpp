#include "apps/fuse_options.h"

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <utility>

#include "runs/fuse_checks.h"
#include "runs/options.h"
#include "runs/text.h"

namespace app {

void AddText(CLI::App& command, const std::string& name, const std::string& description, const char* shape,
             const std::function<void(const std::string& text)>& take) {
  // The parser's own lists would take the next argument where they find nothing in theirs.
  command.add_option_function<std::string>(name, take, description)->join()->type_name(shape);
}

void AddList(CLI::App& command, const std::string& name, std::vector<int>& values, const std::string& description) {
  AddText(command, name, description, "N,N,...", [name, &values](const std::string& text) {
    try {
      values = fusion::NumbersOf(text);
    } catch (const std::invalid_argument& e) {
      throw CLI::ValidationError(name, e.what());
    }
  });
}

void AddList(CLI::App& command, const std::string& name, std::vector<std::string>& words,
             const std::string& description) {
  AddText(command, name, description, "NAME,...", [&words](const std::string& text) { words = fusion::WordsOf(text); });
}

void AddThreads(CLI::App& command, std::string& threads) {
  command.add_option("--threads", threads,
                     "Threads to compute on, a number or all (default: FUSION_THREADS, OMP_NUM_THREADS or all)");
}

void AddReferences(CLI::App& command, bool& allowNetwork, bool& confined) {
  command.add_flag("--allow-network", allowNetwork, "Let what inputs refer to be read across the network");
  command.add_flag("--confined", confined, "Let inputs refer to nothing outside the folders that they lie in");
}

void AddFuseOptions(CLI::App& command, FuseOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  command.add_option("MS", o.ms, "Multispectral image");
  command.add_option("OUT", o.out, "Fused image to write");
  command.add_option("--method", o.method, "Fusion method, see 'fusion methods', or best")->capture_default_str();
  command.add_option("--resample", o.resample,
                     fusion::Join(fusion::ResampleWords(), " or ") +
                         ": bicubic, for ratios within its samples' range (default: auto)");
  command.add_option(
      "--edges", o.edges,
      "repeat or off: whether resampling sees the multispectral image's edges repeated (default: repeat)");
  command.add_option("--match-moments", o.matchMoments,
                     "robust or plain: whether single values far beyond all others decide the matching (default: "
                     "robust)");
  command.add_option("--product-root", o.productRoot,
                     "multiplicative: auto or off: match the root of the product (default: auto)");
  command.add_option(
      "--detail-cap", o.detailCap,
      "hpf: auto or off: give detail no larger weight than its share of pan's deviation (default: auto)");
  command.add_option("--pca-match", o.pcaMatch,
                     "pca: auto or off: bring pan to the first component's mean and deviation (default: auto)");
  command.add_option("--keep-bands", o.keepBands,
                     "weighted: auto or off: keep bands without a weight as resampled (default: auto)");
  command.add_flag("--as-published", o.asPublished,
                   "Everything as the library's classes do it: no guard, no matching or mask unless asked for");
  command.add_option("--type", o.type,
                     "uint8, uint16, int16, uint32, int32, float32 or float64 (default: the multispectral image's)");
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")->capture_default_str();
  AddList(command, "--rgb", o.rgb,
          "ihs: which of the chosen bands are red, green and blue (default: 1,2,3; of four bands 3,2,1)");
  AddList(command, "--window", o.window, "XOFF,YOFF,XSIZE,YSIZE in pan pixels");
  command.add_option("--statistics", o.statistics,
                     "scene or window: what a window's statistics are taken from; with scene it is a crop of the whole "
                     "result (default: scene)");
  command.add_option("--aoi", o.aoi, "Vector file: fuse only inside its polygons");
  AddReferences(command, o.allowNetwork, o.confined);
  command
      .add_option("--spectral-match", o.spectralMatch,
                  "auto, on or off: bring the fused bands to the multispectral means and deviations")
      ->capture_default_str();
  command
      .add_option("--nodata-mask", o.noDataMask,
                  "auto, on or off: take pixels without data (no-data value, NaN, mask, alpha) for missing")
      ->capture_default_str();
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none");
  command.add_flag("--make-green", o.makeGreen, "Mix a tenth of near infrared into green (bands B, G, R, NIR)");
  command.add_flag("--auto-level", o.autoLevel, "hpf, sharpen: end with an automatic level adjustment");
  command.add_flag("--stretch", o.stretch, "Stretch the result to the range of an integer type");
  command.add_option("--kernel-size", o.kernelSize, "hpf: odd size of the high-pass kernel, 3 to 31");
  command.add_option("--second-kernel-size", o.secondKernelSize, "hpf: size of a second kernel");
  command.add_option("--detail-weight", o.detailWeight, "hpf: weight of the detail (default: 0.5)");
  command.add_option("--second-detail-weight", o.secondDetailWeight, "hpf: weight of the second detail");
  command.add_option("--bayes-weight", o.bayesWeight,
                     "bayesian: how much of the model is applied, 0 (plain upsampling) to 1 (default: 0.5)");
  command
      .add_option("--registration", o.registration,
                  "bayesian: auto, off or report: move the multispectral image onto the detail of pan")
      ->capture_default_str();
  command.add_flag("--same-extent", o.sameExtent, "Take both images as covering the same ground");
  command.add_flag("--no-overviews", o.noOverviews, "Build no overviews");
  command.add_option("--format", o.format, "Output format (default: by the extension of OUT)");
  command.add_option("--co", o.creationOptions, "Creation option of GDAL's driver, NAME=VALUE; as often as needed")
      ->allow_extra_args(false);
  command.add_flag("--no-provenance", o.noProvenance, "Let OUT not tell how it was made");
  command.add_flag("--sync", o.sync, "End when OUT lies on the disk");
  command.add_flag("--overwrite", o.overwrite, "Replace an existing OUT");
  AddThreads(command, o.threads);
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.add_option("--log", o.log, "Append the library's log to this file");
  command.add_flag("--json", o.json, "Describe the outcome as one JSON object on standard output");
  command.add_option("--repeat", o.repeat, "Print the command that made this image, and do nothing else");
  command.callback([&o] {
    if (!o.repeat.empty()) return;
    for (const auto& [name, file] : {std::pair{"PAN", &o.pan}, {"MS", &o.ms}, {"OUT", &o.out}}) {
      if (file->empty()) throw CLI::RequiredError(name);
    }
  });
}

}  // namespace app

#include "apps/fuse_options.h"

#include <CLI/CLI.hpp>
#include <stdexcept>

#include "apps/ms_arguments.h"
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
  command.add_option("--threads", threads, "Threads to compute on (default: FUSION_THREADS, OMP_NUM_THREADS or all)")
      ->type_name("N|all");
}

void AddReferences(CLI::App& command, bool& allowNetwork, bool& confined) {
  command.add_flag("--allow-network", allowNetwork, "Let what inputs refer to be read across the network");
  command.add_flag("--confined", confined, "Let inputs refer to nothing outside the folders that they lie in");
}

namespace {

void AddFileOptions(CLI::App& command, FuseOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  AddFiles(command, "MS...", o.files, "Multispectral image, or several files of one band each, in their order");
  // Told for the help alone: the last file is the output, where --out names none.
  command.add_option("OUT", "Fused image to write");
  command.option_defaults()->group("Files");
  AddText(command, "-o,--out", "Fused image to write, instead of the last argument", "FILE",
          [&o](const std::string& text) { o.out = text; });
  AddMsPatterns(command, o.patterns);
  command.add_option("--format", o.format, "Output format (default: by the extension of OUT)")->type_name("FORMAT");
  command.add_option("--compress", o.compress, "Compression of a GeoTIFF or COG")
      ->type_name("LZW|DEFLATE|ZSTD|PACKBITS|LZMA|JPEG|WEBP|LERC");
  command.add_option("--co", o.creationOptions, "Creation option of GDAL's driver; as often as needed")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  command.add_flag("--no-overviews", o.noOverviews, "Build no overviews");
  command.add_flag("--no-provenance", o.noProvenance, "Let OUT not tell how it was made");
  command.add_flag("--sync", o.sync, "End when OUT lies on the disk");
  command.add_flag("--overwrite", o.overwrite, "Replace an existing OUT");
  command.add_option("--quicklook", o.quicklook, "PNG of pan, upsampled multispectral and fused image side by side")
      ->type_name("FILE");
}

void AddPixels(CLI::App& command, fusion::FuseRequest& o) {
  command.option_defaults()->group("Bands, pixels and ground");
  command.add_option("--type", o.type, "Pixel type of OUT (default: the multispectral image's)")->type_name("TYPE");
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")
      ->type_name("N")
      ->capture_default_str();
  AddList(command, "--rgb", o.rgb,
          "ihs: which of the chosen bands are red, green and blue (default: 1,2,3; of four bands 3,2,1)");
  AddText(command, "--window", "Part of the pan image, in its pixels", "XOFF,YOFF,XSIZE,YSIZE",
          [&o](const std::string& text) { fusion::SetOption(o, "window", text); });
  command
      .add_option("--statistics", o.statistics,
                  "What a window's statistics are taken from; with scene it is a crop of the whole result (default: "
                  "scene)")
      ->type_name("scene|window");
  command.add_option("--aoi", o.aoi, "Vector file: fuse only inside its polygons")->type_name("FILE");
  command
      .add_option("--nodata-mask", o.noDataMask,
                  "Take pixels without data (no-data value, NaN, mask, alpha) for missing")
      ->type_name("auto|on|off")
      ->capture_default_str();
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none")->type_name("VALUE");
  command.add_flag("--same-extent", o.sameExtent, "Take both images as covering the same ground");
}

void AddMethod(CLI::App& command, fusion::FuseRequest& o) {
  command.option_defaults()->group("Method");
  command
      .add_option("--method", o.method, "Fusion method, see 'fusion methods', or best: the one that suits the scene")
      ->type_name("METHOD")
      ->capture_default_str();
  command
      .add_option("--spectral-match", o.spectralMatch,
                  "Bring the fused bands to the multispectral means and deviations")
      ->type_name("auto|on|off")
      ->capture_default_str();
  command.add_option("--resample", o.resample, "auto is bicubic, for ratios within its samples' range (default: auto)")
      ->type_name("nearest|bilinear|bicubic|auto");
  command.add_flag("--make-green", o.makeGreen, "Mix a tenth of near infrared into green (bands B, G, R, NIR)");
  command.add_flag("--auto-level", o.autoLevel, "hpf, sharpen: end with an automatic level adjustment");
  command.add_flag("--stretch", o.stretch, "Stretch the result to the range of an integer type");
  command
      .add_option("--bayes-weight", o.bayesWeight,
                  "bayesian: how much of the model is applied, 0 (plain upsampling) to 1 (default: 0.5)")
      ->type_name("W");
  command.add_option("--registration", o.registration, "bayesian: move the multispectral image onto the detail of pan")
      ->type_name("auto|off|report")
      ->capture_default_str();
  command.add_option("--kernel-size", o.kernelSize, "hpf: odd size of the high-pass kernel, 3 to 31")->type_name("N");
  command.add_option("--second-kernel-size", o.secondKernelSize, "hpf: size of a second kernel")->type_name("N");
  command.add_option("--detail-weight", o.detailWeight, "hpf: weight of the detail (default: 0.5)")->type_name("W");
  command.add_option("--second-detail-weight", o.secondDetailWeight, "hpf: weight of the second detail")
      ->type_name("W");
}

void AddGuards(CLI::App& command, fusion::FuseRequest& o) {
  command.option_defaults()->group("Guards, each on by default");
  command.add_option("--edges", o.edges, "Let resampling see the multispectral image's edges repeated")
      ->type_name("repeat|off");
  command
      .add_option("--match-moments", o.matchMoments,
                  "Whether single values far beyond all others have no say in the matching")
      ->type_name("robust|plain");
  command.add_option("--product-root", o.productRoot, "multiplicative: match the root of the product")
      ->type_name("auto|off");
  command
      .add_option("--detail-cap", o.detailCap, "hpf: give detail no larger weight than its share of pan's deviation")
      ->type_name("auto|off");
  command.add_option("--pca-match", o.pcaMatch, "pca: bring pan to the first component's mean and deviation")
      ->type_name("auto|off");
  command.add_option("--keep-bands", o.keepBands, "weighted: keep bands without a weight as resampled")
      ->type_name("auto|off");
  command.add_flag("--as-published", o.asPublished,
                   "Everything as the library's classes do it: no guard, no matching or mask unless asked for");
}

void AddRun(CLI::App& command, FuseOptions& o) {
  command.option_defaults()->group("The run");
  AddReferences(command, o.allowNetwork, o.confined);
  AddRows(command, o, "Rows of the whole output that are fused and written, from A up to B");
  command.add_flag("--dry-run", o.dryRun, "Tell what would be done, and do nothing");
  command.add_option("--repeat", o.repeat, "Print the command that made this image, and do nothing else")
      ->type_name("FILE");
  AddThreads(command, o.threads);
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.add_option("--log", o.log, "Append the library's log to this file")->type_name("FILE");
  command.add_flag("--json", o.json, "Describe the outcome as one JSON object on standard output");
}

/// Which of the files is what.
void SortFiles(FuseOptions& o) {
  if (!o.repeat.empty()) return;
  if (o.pan.empty()) throw CLI::RequiredError("PAN");
  std::vector<std::string> files = o.files;
  const bool asOption = !o.patterns.empty();
  if (o.out.empty() && files.size() > (asOption ? 0 : 1)) {
    o.out = files.back();
    files.pop_back();
  }
  if (asOption && !files.empty()) throw CLI::ExtrasError(std::vector<std::string>{files.front()});
  if (asOption) files = o.patterns;
  if (files.empty()) throw CLI::RequiredError("MS");
  if (o.out.empty()) throw CLI::RequiredError("OUT");
  KeepStandardInput(o.pan);
  SetMs(files, o.ms, o.moreMs);
}

}  // namespace

void AddSceneOptions(CLI::App& command, fusion::FuseRequest& o) {
  AddPixels(command, o);
  AddMethod(command, o);
  AddGuards(command, o);
}

void AddRows(CLI::App& command, fusion::FuseRequest& o, const std::string& description) {
  AddText(command, "--rows", description, "A:B", [&o](const std::string& text) { fusion::SetOption(o, "rows", text); });
  command.add_option("--survey", o.survey, "Survey of the whole images, see 'fusion survey'")->type_name("FILE");
}

void AddFuseOptions(CLI::App& command, FuseOptions& o) {
  AddFileOptions(command, o);
  AddSceneOptions(command, o);
  AddRun(command, o);
  command.callback([&o] { SortFiles(o); });
  command.footer("Example:\n  $ fusion fuse pan.tif ms.tif fused.tif --method hpf --bands 3,2,1");
}

}  // namespace app

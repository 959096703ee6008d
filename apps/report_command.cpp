#include "apps/report_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"
#include "apps/report_json.h"
#include "runs/text.h"

namespace app {
namespace {

/// Which of the files is what.
void SortFiles(ReportOptions& o) {
  if (o.pan.empty()) throw CLI::RequiredError("PAN");
  KeepStandardInput(o.pan);
  o.fused = o.files;
  std::vector<std::string> ms = o.patterns;
  if (!o.second.empty() && ms.empty()) {
    ms = {o.second};
  } else if (!o.second.empty()) {
    o.fused.insert(o.fused.begin(), o.second);
  }
  SetMs(ms, o.ms, o.moreMs);
  if (o.fused.empty()) throw CLI::RequiredError("FUSED");
  if (o.out.empty()) throw CLI::RequiredError("--out");
}

}  // namespace

void AddReportOptions(CLI::App& command, ReportOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  command.add_option("MS", o.second, "Multispectral image, where no --ms names it");
  AddFiles(command, "FUSED...", o.files, "Fused images on the pixels of PAN");
  command.add_option("-o,--out", o.out, "Page to write")->type_name("FILE.html");
  AddMsPatterns(command, o.patterns);
  command.add_option("--title", o.title, "Title of the page")->type_name("TEXT");
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  AddList(command, "--fused-bands", o.fusedBands, "Fused bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")
      ->type_name("N")
      ->capture_default_str();
  command.add_flag("--same-extent", o.sameExtent, "Take pan and multispectral image as covering the same ground");
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none")->type_name("VALUE");
  AddReferences(command, o.allowNetwork, o.confined);
  AddThreads(command, o.threads);
  command.add_flag("--overwrite", o.overwrite, "Replace an existing page");
  command.add_flag("--json", o.json, "As one JSON object");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.callback([&o] { SortFiles(o); });
  command.footer("Example:\n  $ fusion report pan.tif ms.tif bayesian.tif brovey.tif -o report.html");
}

int RunReport(const ReportOptions& options) {
  ConsoleProgress console(options.quiet);
  try {
    const fusion::WrittenReport report = fusion::Report(options, &console);
    if (options.json) {
      PrintJson(ToJson(report));
    } else if (!options.quiet) {
      std::cout << report.out << ": " << fusion::Formatted("%.1f", static_cast<double>(report.bytes) / 1e6) << " MB, "
                << report.images.size() << (report.images.size() == 1 ? " image" : " images") << '\n';
    }
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

}  // namespace app

#include "apps/evaluate_command.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/evaluate_table.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"
#include "apps/report_json.h"

namespace app {
namespace {

/// Which of the files is what.
void SortFiles(EvaluateOptions& o) {
  std::vector<std::string> files = o.files;
  if (files.size() > (o.patterns.empty() ? 1U : 0U)) {
    o.fused = files.back();
    KeepStandardInput(o.fused);
    files.pop_back();
  }
  SortPair(o.pan, files, o.patterns, o.ms, o.moreMs);
  if (o.fused.empty()) throw CLI::RequiredError("FUSED");
}

}  // namespace

void AddEvaluateOptions(CLI::App& command, EvaluateOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  AddFiles(command, "MS...", o.files, "Multispectral image that went into the fusion, or several files of it");
  // Told for the help alone: it is the last file.
  command.add_option("FUSED", "Fused image");
  AddMsPatterns(command, o.patterns);
  AddList(command, "--metric", o.metrics, "entropy, statistics, snr, gradient (default: all)");
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  AddList(command, "--fused-bands", o.fusedBands, "Fused bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")
      ->type_name("N")
      ->capture_default_str();
  command.add_flag("--same-extent", o.sameExtent, "Take pan and multispectral image as covering the same ground");
  AddReferences(command, o.allowNetwork, o.confined);
  AddThreads(command, o.threads);
  command.add_flag("--json", o.json, "As one JSON object");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.callback([&o] { SortFiles(o); });
}

int RunEvaluate(const EvaluateOptions& options) {
  ConsoleProgress console(options.quiet);
  try {
    const fusion::EvaluateReport report = fusion::Evaluate(options, &console);
    if (options.json) {
      PrintJson(ToJson(report));
    } else {
      for (const auto& [metric, figures] : report.metrics) PrintTable(metric, figures, report.bands);
    }
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

}  // namespace app

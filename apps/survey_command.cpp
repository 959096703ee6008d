#include "apps/survey_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"
#include "apps/report_json.h"

namespace app {
namespace {

/// What is to be done next, for people.
std::string NextStep(const SurveyOptions& options, const fusion::SurveyReport& report) {
  if (!options.merge.empty()) return "merged: " + std::to_string(report.parts) + " parts";
  if (report.complete) return "complete: fusion fuse --rows A:B --survey " + options.survey + " has all that it needs";
  const std::string rows = "of " + std::to_string(report.height) + " rows";
  if (options.dryRun) return "not complete: survey all parts " + rows + " (--rows), and merge them (--merge)";
  return std::to_string(report.parts) + " parts " + rows + "; merge those of all" +
         (report.awaited ? ", and survey all once more with what comes of it (--survey)" : "");
}

void SortFiles(SurveyOptions& o) {
  if (o.out.empty() && !o.dryRun) throw CLI::RequiredError("--out");
  if (!o.merge.empty()) {
    // A list of files takes what follows it.
    if (!o.pan.empty() || !o.files.empty()) throw CLI::ExtrasError(std::vector<std::string>{o.pan});
    return;
  }
  SortPair(o.pan, o.files, o.patterns, o.ms, o.moreMs);
}

}  // namespace

void AddSurveyOptions(CLI::App& command, SurveyOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  AddFiles(command, "MS...", o.files, "Multispectral image, or several files of one band each, in their order");
  command.option_defaults()->group("Survey");
  AddMsPatterns(command, o.patterns);
  AddText(command, "-o,--out", "Survey to write", "FILE", [&o](const std::string& text) { o.out = text; });
  AddRows(command, o, "Rows of the output whose share is surveyed, from A up to B");
  command.add_option("--merge", o.merge, "Merge these surveys, in any order, and do nothing else")
      ->type_name("FILE...");
  command.add_flag("--overwrite", o.overwrite, "Replace an existing survey");
  command.add_flag("--dry-run", o.dryRun, "Tell whether anything is missing, and do nothing");
  AddSceneOptions(command, o);
  command.option_defaults()->group("The run");
  AddReferences(command, o.allowNetwork, o.confined);
  AddThreads(command, o.threads);
  command.add_flag("--json", o.json, "As one JSON object");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.callback([&o] { SortFiles(o); });
  command.footer(
      "Example:\n  $ fusion survey pan.tif ms.tif --rows 0:500 -o 1.survey\n"
      "  $ fusion survey pan.tif ms.tif --rows 500:1000 -o 2.survey\n"
      "  $ fusion survey --merge 1.survey 2.survey -o all.survey\n"
      "  $ fusion survey pan.tif ms.tif --survey all.survey --dry-run");
}

int RunSurvey(const SurveyOptions& options) {
  ConsoleProgress console(options.quiet);
  try {
    const fusion::SurveyReport report = fusion::MakeSurvey(options, &console);
    if (options.json) {
      PrintJson(ToJson(report));
    } else if (!options.quiet) {
      std::cout << NextStep(options, report) << '\n';
    }
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

}  // namespace app

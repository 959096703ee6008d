#include "apps/check_command.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/check_table.h"
#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"
#include "apps/report_json.h"

namespace app {
namespace {}  // namespace

void AddCheckOptions(CLI::App& command, CheckOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  AddFiles(command, "MS...", o.files, "Multispectral image, or several files of one band each, in their order");
  AddMsPatterns(command, o.patterns);
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")->capture_default_str();
  command.add_flag("--same-extent", o.sameExtent, "Take both images as covering the same ground");
  AddReferences(command, o.allowNetwork, o.confined);
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none");
  AddThreads(command, o.threads);
  command.add_flag("--json", o.json, "As one JSON object");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.callback([&o] { SortPair(o.pan, o.files, o.patterns, o.ms, o.moreMs); });
}

int RunCheck(const CheckOptions& options) {
  ConsoleProgress console(options.quiet);
  try {
    const fusion::CheckReport report = fusion::Check(options, &console);
    if (options.json) {
      PrintJson(ToJson(report));
    } else {
      PrintTable(report);
    }
    return report.IsFine() ? kSuccess : kWarnings;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

}  // namespace app

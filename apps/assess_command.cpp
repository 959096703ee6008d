#include "apps/assess_command.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/assess_table.h"
#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"
#include "apps/report_json.h"
#include "platform/utility/common_fun.h"
#include "runs/ms_files.h"
#include "runs/options.h"
#include "runs/text.h"

namespace app {
namespace {

using Json = nlohmann::ordered_json;

void CheckReport(const AssessOptions& o) {
  if (o.report.empty()) return;
  const std::wstring file = CommonFun::Utf82U(o.report);
  std::vector<std::string> inputs = fusion::MsFiles(o.ms, o.moreMs, o.pan);
  inputs.push_back(o.pan);
  for (const std::string& input : inputs) {
    if (CommonFun::IsSameFile(file, CommonFun::Utf82U(input))) {
      throw fusion::UsageError(o.report + " is an image that is read.");
    }
  }
  if (CommonFun::IsFolder(file)) throw fusion::UsageError(o.report + " is a folder.");
  if (!o.overwrite && CommonFun::IsExistingFile(file)) {
    throw fusion::UsageError(o.report + " exists; add --overwrite to replace it.");
  }
}

void WriteReport(const std::string& name, const Json& object) {
  std::ofstream file(CommonFun::ToPath(CommonFun::Utf82U(name)), std::ios::binary);
  file << JsonText(object) << '\n';
  file.close();
  if (!file) throw fusion::RunFailure(fusion::RunFailure::Kind::kFailed, name + " cannot be written.");
}

/// What the images were seen through, in a line.
std::string Filters(const fusion::AssessReport& report) {
  const auto gain = [](double value) { return fusion::Formatted("%.3g", value); };
  std::string line = "Filters: bands ";
  if (report.tables.size() > 1 && report.fullMtf != report.mtf) {
    line += gain(report.mtf) + " (wald) and " + gain(report.fullMtf) + " (full)";
  } else {
    line += gain(report.tables[0].protocol == "full" ? report.fullMtf : report.mtf);
  }
  line += ", pan " + gain(report.panMtf) + ", " + report.mtfSource;
  if (report.mtfSource == "estimated") line += " from a blur of " + gain(report.blur->width) + " between them";
  return line + ".";
}

void Print(const fusion::AssessReport& report) {
  for (const fusion::AssessTable& table : report.tables) {
    PrintTable(table);
    std::cout << '\n';
  }
  for (const auto& [method, sentence] : report.failures) std::cout << method << " is left out: " << sentence << '\n';
  std::cout << Filters(report) << '\n' << report.advice << '\n';
}

}  // namespace

void AddAssessOptions(CLI::App& command, AssessOptions& o) {
  command.add_option("PAN", o.pan, "Panchromatic image");
  AddFiles(command, "MS...", o.files, "Multispectral image, or several files of one band each, in their order");
  AddMsPatterns(command, o.patterns);
  AddList(command, "--methods", o.methods, "Fusion methods, see 'fusion methods', or all (default: all)");
  command
      .add_option("--protocol", o.protocol,
                  "wald: both images degraded, the multispectral one is the truth; full: as they are; or both")
      ->type_name("wald|full|both")
      ->capture_default_str();
  AddList(command, "--bands", o.bands, "Multispectral bands, counted from 1 (default: all)");
  command.add_option("--pan-band", o.panBand, "Band of the pan image, counted from 1")
      ->type_name("N")
      ->capture_default_str();
  command.add_flag("--same-extent", o.sameExtent, "Take both images as covering the same ground");
  command.add_option("--nodata", o.noData, "No-data value of inputs that declare none")->type_name("VALUE");
  AddText(command, "--mtf",
          "auto, or the gain of the bands' filter at their Nyquist frequency and of pan's there (default: auto, by the "
          "blur between pan and bands; where that cannot be told, 0.3,0.15)",
          "G,P", [&o](const std::string& text) { fusion::SetOption(o, "mtf", text); });
  command.add_option("--tiles", o.tiles, "The most parts of a large scene to look at")
      ->type_name("N")
      ->capture_default_str();
  command.add_option("-o,--report", o.report, "File for the JSON object")->type_name("FILE");
  command.add_option("--picture", o.picture, "PNG for crops of pan, multispectral image and every result")
      ->type_name("FILE");
  command.add_option("--keep", o.keep, "Folder to leave the fused pairs and the results in")->type_name("FOLDER");
  AddList(command, "--extra", o.extra, "Results NAME.tif that another program has added to those kept");
  command.add_flag("--overwrite", o.overwrite, "Replace existing files");
  AddReferences(command, o.allowNetwork, o.confined);
  AddThreads(command, o.threads);
  command.add_flag("--json", o.json, "As one JSON object");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
  command.callback([&o] { SortPair(o.pan, o.files, o.patterns, o.ms, o.moreMs); });
}

int RunAssess(const AssessOptions& options) {
  ConsoleProgress console(options.quiet);
  try {
    CheckReport(options);
    const fusion::AssessReport report = fusion::Assess(options, &console);
    const Json object = ToJson(report);
    if (!options.report.empty()) WriteReport(options.report, object);
    if (options.json) {
      PrintJson(object);
    } else {
      Print(report);
    }
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

}  // namespace app

#include "apps/check_command.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/check_table.h"
#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/ms_arguments.h"

namespace app {
namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const fusion::CheckImage& image) {
  return {{"size", {image.width, image.height}},
          {"bands", image.bands},
          {"type", image.type},
          {"pixel", {image.pixelWidth, image.pixelHeight}},
          {"georeference", image.hasPlace},
          {"coordinate_system", image.system},
          {"overlap", image.overlap}};
}

Json ToJson(const fusion::CheckBand& band) {
  return {{"name", band.name},
          {"minimum", JsonNumber(band.minimum)},
          {"maximum", JsonNumber(band.maximum)},
          {"mean", JsonNumber(band.mean)},
          {"deviation", JsonNumber(band.stdDev)},
          {"no_data", JsonNumber(band.noData)},
          {"at_minimum", JsonNumber(band.atMinimum)},
          {"at_maximum", JsonNumber(band.atMaximum)}};
}

Json ToJson(const fusion::CheckReport& report) {
  Json object{{"fine", report.IsFine()}, {"pan", ToJson(report.pan)}, {"ms", ToJson(report.ms)}};
  object["ratio"] = {report.ratioX, report.ratioY};
  object["reprojected"] = report.reprojects;
  object["looked_at"] = report.share;
  object["covered"] = report.covered;
  object["pan_band"] = report.panBand ? ToJson(*report.panBand) : Json();
  object["bands"] = Json::array();
  for (const fusion::CheckBand& band : report.bands) {
    Json figures = ToJson(band);
    figures["pan_ratio"] = JsonNumber(band.panRatio);
    figures["correlation"] = JsonNumber(band.correlation);
    figures["detail"] = JsonNumber(band.detail);
    object["bands"].push_back(figures);
  }
  object["mix_correlation"] = report.bands.empty() ? Json() : JsonNumber(report.mixCorrelation);
  object["shift"] = nullptr;
  if (const auto& shift = report.shift) {
    object["shift"] = {
        {"dx", shift->dx},           {"dy", shift->dy},       {"spread", {shift->spreadX, shift->spreadY}},
        {"windows", shift->windows}, {"score", shift->score}, {"score_in_place", shift->inPlace}};
  }
  object["blur"] = nullptr;
  if (const auto& blur = report.blur) {
    object["blur"] = {{"shape", blur->shape}, {"width", blur->width}, {"pan_pixels", blur->deviation}};
  }
  object["warnings"] = Json::array();
  object["notes"] = Json::array();
  for (const fusion::CheckFinding& finding : report.findings) {
    Json entry{{"name", finding.name}, {"text", finding.text}};
    if (finding.isWarning) entry["advice"] = finding.advice;
    object[finding.isWarning ? "warnings" : "notes"].push_back(entry);
  }
  object["seconds"] = report.seconds;
  object["error_type"] = 0;
  object["message"] = "";
  object["notices"] = report.notices;
  return object;
}

}  // namespace

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

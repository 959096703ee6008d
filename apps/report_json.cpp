#include "apps/report_json.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace app {
namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const std::optional<fusion::FuseRegistration>& found) {
  if (!found) return nullptr;
  return {{"dx", found->dx},
          {"dy", found->dy},
          {"applied", found->applied},
          {"agreement", found->agreement},
          {"score", found->score}};
}

Json ToJson(const std::optional<fusion::FuseModel>& model) {
  if (!model) return nullptr;
  return {{"shape", model->shape},
          {"blur", model->blur},
          {"restoring", model->restoring},
          {"gains", model->gains},
          {"samples", model->samples}};
}

Json ToJson(const fusion::FusePlan& plan) {
  return {{"pan", plan.pan},
          {"ms", plan.ms},
          {"area", plan.area},
          {"origin", plan.origin},
          {"pixel_size", plan.pixelSize},
          {"format", plan.format},
          {"memory", plan.memory},
          {"disk", plan.disk},
          {"free", plan.free ? Json(*plan.free) : Json()}};
}

Json ToJson(const std::vector<fusion::Figures>& figures) {
  Json object;
  for (const fusion::Figures& f : figures) object[f.name] = f.values;
  return object;
}

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
          {"minimum", band.minimum},
          {"maximum", band.maximum},
          {"mean", band.mean},
          {"deviation", band.stdDev},
          {"no_data", band.noData},
          {"at_minimum", band.atMinimum},
          {"at_maximum", band.atMaximum}};
}

Json ToJson(const fusion::AssessTable& table) {
  Json rows = Json::array();
  for (const fusion::AssessRow& row : table.rows) {
    Json object{{"method", row.method}};
    for (std::size_t m = 0; m < table.measures.size(); ++m) object[table.measures[m].name] = row.values[m];
    if (!row.rmse.empty()) object["band_rmse"] = row.rmse;
    if (!row.bias.empty()) object["band_bias"] = row.bias;
    object["moved"] = {row.movedX, row.movedY};
    rows.push_back(object);
  }
  Json best;
  for (const fusion::AssessMeasure& measure : table.measures) {
    best[measure.name] = measure.best < 0 ? Json() : Json(table.rows[static_cast<std::size_t>(measure.best)].method);
  }
  return {{"rows", rows}, {"best", best}};
}

Json ToJson(const fusion::ReportImage& image) {
  Json object{{"file", image.file}, {"label", image.label}, {"method", image.method}};
  object["quality"] = nullptr;
  if (const auto& q = image.quality) {
    object["quality"] = {
        {"HQNR", q->hqnr}, {"QNR", q->qnr}, {"D_lambda", q->dLambda}, {"D_s", q->dS}, {"sharpness", q->sharpness}};
  }
  object["not_measured"] = image.notMeasured;
  object["evaluated"] = image.notEvaluated.empty();
  object["not_evaluated"] = image.notEvaluated;
  return object;
}

/// With texts for the infinities.
Json Printable(const Json& value) {
  if (value.is_number_float() && std::isinf(value.get<double>())) return value.get<double>() > 0.0 ? "inf" : "-inf";
  if (!value.is_structured()) return value;
  Json printable = value;
  for (Json& part : printable) part = Printable(part);
  return printable;
}

}  // namespace

Json ToJson(const fusion::FuseReport& report, int errorType, const std::string& message) {
  Json object{{"method", report.method},
              {"output", report.output},
              {"width", report.width},
              {"height", report.height},
              {"bands", report.bands},
              {"type", report.type},
              {"seconds", report.seconds},
              {"valid_share", report.validShare ? Json(*report.validShare) : Json()},
              {"registration", ToJson(report.registration)},
              {"model", ToJson(report.model)},
              {"error_type", errorType},
              {"message", message},
              {"guards", report.guards},
              {"notices", report.notices}};
  if (report.plan) object["plan"] = ToJson(*report.plan);
  return object;
}

Json ToJson(const fusion::EvaluateReport& report) {
  Json object;
  for (const auto& [metric, figures] : report.metrics) object[metric] = ToJson(figures);
  return object;
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
    figures["pan_ratio"] = band.panRatio;
    figures["correlation"] = band.correlation;
    figures["detail"] = band.detail;
    object["bands"].push_back(figures);
  }
  object["mix_correlation"] = report.bands.empty() ? Json() : Json(report.mixCorrelation);
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

Json ToJson(const fusion::AssessReport& report) {
  Json object{{"best", report.best.empty() ? Json() : Json(report.best)}, {"advice", report.advice}};
  for (const fusion::AssessTable& table : report.tables) object[table.protocol] = ToJson(table);
  object["bands"] = report.bands;
  object["ratio"] = {report.ratioX, report.ratioY};
  object["mtf"] = report.mtf;
  object["full_mtf"] = report.fullMtf;
  object["pan_mtf"] = report.panMtf;
  object["mtf_source"] = report.mtfSource;
  object["blur"] = nullptr;
  if (report.blur) {
    const fusion::AssessBlur& blur = *report.blur;
    object["blur"] = {{"width", blur.width}, {"apart", blur.apart}, {"score", blur.score}};
  }
  object["tiles"] = report.tiles;
  object["share"] = report.share;
  object["failures"] = Json::array();
  for (const auto& [method, sentence] : report.failures) {
    object["failures"].push_back({{"method", method}, {"message", sentence}});
  }
  object["seconds"] = report.seconds;
  object["error_type"] = 0;
  object["message"] = "";
  object["notices"] = report.notices;
  return object;
}

Json ToJson(const fusion::WrittenReport& report) {
  Json object{{"output", report.out}, {"bytes", report.bytes}, {"fine", report.check.IsFine()}};
  object["images"] = Json::array();
  for (const fusion::ReportImage& image : report.images) object["images"].push_back(ToJson(image));
  object["seconds"] = report.seconds;
  object["error_type"] = 0;
  object["message"] = "";
  object["notices"] = report.notices;
  return object;
}

Json ToJson(const fusion::SurveyReport& report) {
  return {
      {"output", report.output},   {"height", report.height},   {"parts", report.parts}, {"complete", report.complete},
      {"awaited", report.awaited}, {"seconds", report.seconds}, {"error_type", 0},       {"message", ""},
      {"notices", report.notices}};
}

Json ToJson(const fusion::SampleReport& report) {
  Json files = Json::array();
  for (const fusion::SampleFile& file : report.files) {
    files.push_back({{"path", file.path},
                     {"width", file.width},
                     {"height", file.height},
                     {"bands", file.bands},
                     {"pixel_size", file.pixelSize}});
  }
  return {{"files", files}, {"notices", report.notices}};
}

Json ToJson(const fusion::Provenance& p, const std::string& file) {
  Json inputs = Json::array();
  for (const fusion::ProvenanceInput& input : p.inputs) {
    inputs.push_back({{"role", input.role}, {"path", input.path}, {"size", input.size}, {"header", input.header}});
  }
  Json model = Json::object();
  for (const fusion::ModelFact& fact : p.model) model[fact.name] = fact.values;
  return {{"file", file},
          {"output", p.output},
          {"version", p.version},
          {"time", p.time},
          {"method", p.method},
          {"options", p.options},
          {"guards", p.guards},
          {"inputs", inputs},
          {"model", model},
          {"checksums", p.checksums},
          {"command", fusion::RepeatCommand(p, file)}};
}

Json VerifiedJson(const fusion::Provenance& p, const std::string& file) {
  return {{"file", file}, {"output", p.output}, {"checksums", p.checksums}, {"error_type", 0}, {"message", ""}};
}

Json ToJson(const fusion::Method& method) {
  return {{"name", method.name},
          {"summary", method.summary},
          {"formula", method.formula},
          {"source", method.source},
          {"suits", method.suits},
          {"spares", method.spares},
          {"options", fusion::OwnOptions(method)},
          {"default", &method == &fusion::DefaultMethod()},
          {"spectral_match", method.matchedByDefault}};
}

std::string JsonText(const Json& object) {
  return Printable(object).dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace app

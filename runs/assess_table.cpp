#include "runs/assess_table.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "runs/methods.h"
#include "runs/text.h"

namespace fusion {
namespace {

double Mean(const std::vector<double>& values) {
  if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double MeanSize(const std::vector<double>& values) {
  std::vector<double> sizes;
  sizes.reserve(values.size());
  for (const double v : values) sizes.push_back(std::fabs(v));
  return Mean(sizes);
}

/// How far a value is from the best that there could be; less is better. NaN is worst.
double Distance(const AssessMeasure& measure, double value) {
  if (std::isnan(value)) return std::numeric_limits<double>::infinity();
  if (measure.better == "less") return value;
  if (measure.better == "more") return -value;
  return std::fabs(value - (measure.better == "1" ? 1.0 : 0.0));
}

AssessRow RowOf(const std::string& protocol, const AssessEntry& entry, double ratio) {
  const MethodSums& sums = entry.sums;
  AssessRow row;
  row.method = entry.name;
  if (entry.parts > 0) {
    row.movedX = entry.moves.x / entry.parts;
    row.movedY = entry.moves.y / entry.parts;
  }
  if (protocol == "wald") {
    row.rmse = sums.errors.Rmse();
    row.bias = sums.errors.Bias();
    row.values = {sums.errors.Ergas(ratio), sums.angles.Degrees(), sums.q2n.Value(),         sums.uiqi.Value(),
                  Mean(row.rmse),           MeanSize(row.bias),    sums.detail.Correlation()};
  } else {
    const double dS = sums.noReference.DS();
    row.values = {quality::HybridQnr(1.0 - sums.consistency.Value(), dS), sums.noReference.Qnr(),
                  sums.noReference.DLambda(), dS, sums.gradients.Sharpness()};
  }
  return row;
}

std::vector<AssessMeasure> MeasuresOf(const std::string& protocol, int bands) {
  if (protocol == "full") {
    return {{"HQNR", "more"}, {"QNR", "more"}, {"D_lambda", "less"}, {"D_s", "less"}, {"sharpness", "1"}};
  }
  const std::string hypercomplex = "Q" + std::to_string(std::bit_ceil(static_cast<unsigned>(bands)));
  return {{"ERGAS", "less"}, {"SAM", "less"},  {hypercomplex, "more"}, {"UIQI", "more"},
          {"RMSE", "less"},  {"bias", "less"}, {"sCC", "more"}};
}

bool IsMethod(const AssessRow& row) { return FindMethod(row.method) != nullptr; }

}  // namespace

AssessTable MakeTable(const std::string& protocol, const std::vector<AssessEntry>& entries, int bands, double ratio) {
  AssessTable table;
  table.protocol = protocol;
  table.measures = MeasuresOf(protocol, bands);
  for (const AssessEntry& entry : entries) table.rows.push_back(RowOf(protocol, entry, ratio));
  std::stable_sort(table.rows.begin(), table.rows.end(), [&](const AssessRow& a, const AssessRow& b) {
    return Distance(table.measures[0], a.values[0]) < Distance(table.measures[0], b.values[0]);
  });
  for (std::size_t m = 0; m < table.measures.size(); ++m) {
    AssessMeasure& measure = table.measures[m];
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t r = 0; r < table.rows.size(); ++r) {
      const double distance = Distance(measure, table.rows[r].values[m]);
      if (!(distance < least)) continue;
      least = distance;
      measure.best = static_cast<int>(r);
    }
  }
  return table;
}

void Advise(AssessReport& report) {
  const AssessTable& table = report.tables.front();
  const AssessMeasure& measure = table.measures[0];
  const auto best = std::find_if(table.rows.begin(), table.rows.end(),
                                 [](const AssessRow& r) { return IsMethod(r) && std::isfinite(r.values[0]); });
  if (best == table.rows.end()) {
    report.advice = "No method could be measured: too little of the scene has data and detail in both images.";
    return;
  }
  report.best = best->method;
  const bool errors = measure.better == "less";
  const auto figure = [&](const AssessRow& row) {
    return measure.name + " " + Formatted(errors ? "%.3f" : "%.4f", row.values[0]);
  };
  report.advice = "Take " + best->method + " (" + figure(*best);
  const auto next = std::find_if(best + 1, table.rows.end(),
                                 [](const AssessRow& r) { return IsMethod(r) && std::isfinite(r.values[0]); });
  if (next != table.rows.end()) report.advice += "; next is " + next->method + " with " + figure(*next);
  report.advice += ").";
  const auto plain =
      std::find_if(table.rows.begin(), table.rows.end(), [](const AssessRow& r) { return r.method == kUpsampled; });
  if (errors && plain < best) {
    report.advice += " But the plain upsampled bands are nearer to the truth (" + figure(*plain) +
                     "): pan and bands share little detail, or do not lie on each other.";
  } else if (errors && plain != table.rows.end() && std::isfinite(plain->values[0])) {
    report.advice += " It leaves " + Formatted("%.0f", 100.0 * best->values[0] / plain->values[0]) +
                     " % of the error of the plain upsampled bands (" + figure(*plain) + ").";
  }
}

}  // namespace fusion

#include "runs/report_tables.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>

#include "runs/report_charts.h"
#include "runs/report_markup.h"
#include "runs/text.h"

namespace fusion {
namespace {

std::string Percent(double share) {
  return std::isnan(share) ? NumberText(share) : Formatted("%.3g", 100.0 * share) + " %";
}

Cell PercentCell(double share) { return {Percent(share), "n"}; }

std::string Pair(double first, double second) {
  return NumberText(first) + (first == second ? "" : " \xC3\x97 " + NumberText(second));
}

std::string Signed(double value) { return Formatted("%+.2f", value); }

/// What a figure of a metric is called.
const std::map<std::string, std::string>& Words() {
  static const std::map<std::string, std::string> words = {
      {"m_pEntropy", "Entropy"},
      {"m_pRelativeEntropy", "Relative entropy"},
      {"m_pDeviationEntropy", "Deviation of the entropy"},
      {"m_pJointEntropy", "Joint entropy"},
      {"m_pMulMean", "Mean, multispectral"},
      {"m_pFusionMean", "Mean, fused"},
      {"m_pMulStdDev", "Standard deviation, multispectral"},
      {"m_pFusionStdDev", "Standard deviation, fused"},
      {"m_pRelativeDeviation", "Relative deviation"},
      {"m_pRelativeError", "Relative error"},
      {"m_pCorrelation", "Correlation"},
      {"m_pSNR", "Signal-to-noise ratio"},
      {"m_pPSNR", "Peak signal-to-noise ratio"},
      {"m_pFusionMeanGrad", "Mean gradient, fused"},
      {"m_pMulMeanGrad", "Mean gradient, multispectral"},
      {"m_pFusionRmsGrad", "Gradient, root mean square, fused"},
      {"m_pMulRmsGrad", "Gradient, root mean square, multispectral"},
      {"m_pMeanAbsDiff", "Mean absolute difference"},
      {"m_pDiffNorm", "Norm of the difference"},
  };
  return words;
}

std::string FigureHead(const std::string& name, const std::string& of = "") {
  const auto found = Words().find(name);
  std::string words = found == Words().end() ? name : found->second;
  if (!of.empty()) words += ", " + of;
  return Escaped(words) + ' ' + TextElement("code", name);
}

/// The values of a figure; empty where there is none.
std::vector<double> ValuesOf(const EvaluateReport& evaluation, const std::string& name) {
  for (const MetricFigures& metric : evaluation.metrics) {
    for (const Figures& figures : metric.figures) {
      if (figures.name == name) return figures.values;
    }
  }
  return {};
}

double MeanOf(const EvaluateReport& evaluation, const std::string& name) {
  const std::vector<double> values = ValuesOf(evaluation, name);
  double sum = 0.0;
  for (const double v : values) sum += v;
  return values.empty() ? std::nan("") : sum / static_cast<double>(values.size());
}

std::vector<Cell> ValueRow(std::string head, std::vector<double>::const_iterator from, std::size_t count) {
  std::vector<Cell> row = {Cell(std::move(head))};
  for (std::size_t i = 0; i < count; ++i) row.push_back(NumberCell(from[static_cast<std::ptrdiff_t>(i)], 6));
  return row;
}

/// What a metric is drawn by: one figure of the multispectral and one of the fused bands, or one of both.
std::string MetricChart(const std::string& metric, const EvaluateReport& evaluation) {
  const std::size_t count = evaluation.bands.size();
  const auto chart = [&](const char* title, const std::vector<double>& before, const std::vector<double>& after) {
    if (after.size() != count || (!before.empty() && before.size() != count)) return std::string();
    std::vector<ChartSeries> series;
    if (!before.empty()) series.push_back({"multispectral", before});
    series.push_back({"fused", after});
    return BarChart(title, evaluation.bands, series);
  };
  if (metric == "entropy") {
    const std::vector<double> both = ValuesOf(evaluation, "m_pEntropy");
    if (both.size() != 2 * count) return {};
    const auto middle = both.begin() + static_cast<std::ptrdiff_t>(count);
    return chart("Entropy", {both.begin(), middle}, {middle, both.end()});
  }
  if (metric == "statistics") {
    return chart("Standard deviation", ValuesOf(evaluation, "m_pMulStdDev"), ValuesOf(evaluation, "m_pFusionStdDev")) +
           chart("Correlation of both", {}, ValuesOf(evaluation, "m_pCorrelation"));
  }
  if (metric == "snr") return chart("Signal-to-noise ratio", {}, ValuesOf(evaluation, "m_pSNR"));
  return chart("Mean gradient", ValuesOf(evaluation, "m_pMulMeanGrad"), ValuesOf(evaluation, "m_pFusionMeanGrad"));
}

/// A column of the summary.
struct Summary {
  const char* name;
  double best;  ///< infinity: the more the better
  std::function<double(const ReportImage&)> value;
};

std::vector<Summary> Summaries() {
  const auto quality = [](double ReportQuality::*figure) {
    return [figure](const ReportImage& image) { return image.quality ? (*image.quality).*figure : std::nan(""); };
  };
  const auto mean = [](const char* name) {
    return [name](const ReportImage& image) { return MeanOf(image.evaluation, name); };
  };
  const double more = std::numeric_limits<double>::infinity();
  return {{"HQNR", more, quality(&ReportQuality::hqnr)},          {"QNR", more, quality(&ReportQuality::qnr)},
          {"D_lambda", 0.0, quality(&ReportQuality::dLambda)},    {"D_s", 0.0, quality(&ReportQuality::dS)},
          {"sharpness", 1.0, quality(&ReportQuality::sharpness)}, {"correlation", more, mean("m_pCorrelation")},
          {"relative error", 0.0, mean("m_pRelativeError")},      {"signal-to-noise", more, mean("m_pSNR")}};
}

double DistanceTo(double best, double value) {
  if (std::isnan(value)) return std::numeric_limits<double>::infinity();
  return std::isinf(best) ? -value : std::fabs(value - best);
}

}  // namespace

std::string InputTables(const CheckReport& report) {
  const auto row = [](const std::string& name, const std::string& pan, const std::string& ms) {
    return std::vector<Cell>{Cell(Escaped(name)), Cell(Escaped(pan)), Cell(Escaped(ms))};
  };
  const auto size = [](const CheckImage& i) {
    return std::to_string(i.width) + " \xC3\x97 " + std::to_string(i.height) + ", " + std::to_string(i.bands) +
           (i.bands == 1 ? " band" : " bands");
  };
  const auto place = [](const CheckImage& i) {
    if (!i.system.empty()) return i.system;
    return std::string(i.hasPlace ? "not named" : "no georeference");
  };
  std::string markup =
      Table("Both images", {"", "pan", "multispectral"},
            {row("size", size(report.pan), size(report.ms)), row("type", report.pan.type, report.ms.type),
             row("pixel", Pair(report.pan.pixelWidth, report.pan.pixelHeight),
                 Pair(report.ms.pixelWidth, report.ms.pixelHeight)),
             row("coordinate system", place(report.pan), place(report.ms)),
             row("on common ground", Percent(report.pan.overlap), Percent(report.ms.overlap))});
  std::vector<std::vector<Cell>> pair;
  const auto fact = [&pair](const std::string& name, const std::string& text) {
    pair.push_back({Cell(Escaped(name)), Cell(Escaped(text))});
  };
  fact("ratio of the pixels", Pair(report.ratioX, report.ratioY));
  if (report.reprojects) fact("coordinate systems", "differ; the multispectral image is reprojected");
  if (const auto& shift = report.shift) {
    fact("shift", Signed(shift->dx) + ", " + Signed(shift->dy) +
                      " pan pixels (right, down) put the bands on pan; spread " + Formatted("%.2f", shift->spreadX) +
                      ", " + Formatted("%.2f", shift->spreadY) + " over " + std::to_string(shift->windows) +
                      (shift->windows == 1 ? " window" : " windows"));
    fact("common detail", Percent(shift->score) + " of pan's, at the bands' resolution");
  }
  if (const auto& blur = report.blur) {
    fact("sharpness", blur->shape == "box"
                          ? "the mean over a pixel makes pan look like the bands"
                          : "a blur of " + Formatted("%.2f", blur->width) + " (" + Formatted("%.2f", blur->deviation) +
                                " pan pixels) makes pan look like the bands");
  }
  if (!report.bands.empty()) {
    fact("best mix of bands", "correlation " + Formatted("%.3f", report.mixCorrelation) + " with pan");
    fact("data in both", Percent(report.covered) + " of the common ground");
    if (report.share < 1.0) fact("looked at", Percent(report.share) + " of the common ground");
  }
  markup += Table("How they lie to each other", {}, pair);
  std::vector<std::vector<Cell>> bands;
  const auto band = [&bands](const CheckBand& b) {
    bands.push_back({Cell(Escaped(b.name)), NumberCell(b.minimum), NumberCell(b.maximum), NumberCell(b.mean),
                     NumberCell(b.stdDev), PercentCell(b.noData), NumberCell(b.panRatio, 3),
                     NumberCell(b.correlation, 3), NumberCell(b.detail, 3)});
  };
  if (report.panBand) band(*report.panBand);
  for (const CheckBand& b : report.bands) band(b);
  if (bands.empty()) return markup;
  return markup + Table("Values on the common ground",
                        {"band", "minimum", "maximum", "mean", "deviation", "no data", "pan / band",
                         "correlation with pan", "of the detail"},
                        bands);
}

std::string FindingList(const CheckReport& check) {
  std::string items;
  for (const CheckFinding& finding : check.findings) {
    std::string text = TextElement("strong", finding.isWarning ? "Warning: " : "Note: ") + Escaped(finding.text);
    if (!finding.advice.empty()) text += TextElement("span", " " + finding.advice, {{"class", "advice"}});
    items += Element("li", {{"class", finding.isWarning ? "warning" : "note"}}, text) + '\n';
  }
  return items.empty() ? "" : Element("ul", {{"class", "findings"}}, items);
}

std::string SummaryTable(const std::vector<ReportImage>& images) {
  const std::vector<Summary> columns = Summaries();
  std::vector<std::string> head = {"image", "method"};
  std::vector<double> least;
  for (const Summary& column : columns) {
    const std::string best =
        std::isinf(column.best) ? "\xE2\x86\x91" : "\xE2\x86\x92\xC2\xA0" + NumberText(column.best);
    // An arrow stays with its name, and its number with the arrow.
    head.push_back(std::string(column.name).append("\xC2\xA0").append(best));
    least.push_back(std::numeric_limits<double>::infinity());
    for (const ReportImage& image : images) {
      least.back() = std::min(least.back(), DistanceTo(column.best, column.value(image)));
    }
  }
  std::vector<std::vector<Cell>> rows;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const ReportImage& image = images[i];
    std::vector<Cell> row = {Cell(TextElement("a", image.label, {{"href", "#image-" + std::to_string(i + 1)}})),
                             Cell(Escaped(image.method.empty() ? "not told" : image.method))};
    for (std::size_t c = 0; c < columns.size(); ++c) {
      const double value = columns[c].value(image);
      const bool isBest = images.size() > 1 && DistanceTo(columns[c].best, value) <= least[c] && !std::isnan(value);
      Cell cell = NumberCell(value, 4);
      if (isBest)
        cell = {TextElement("strong", NumberText(value, 4)) + TextElement("span", " (best)", {{"class", "unseen"}}),
                "n best"};
      row.push_back(cell);
    }
    rows.push_back(std::move(row));
  }
  std::string markup = Table("All images", head, rows);
  if (images.size() < 2) return markup;
  std::vector<std::string> labels;
  std::vector<double> values;
  for (const ReportImage& image : images) {
    labels.push_back(image.label);
    values.push_back(columns[0].value(image));
  }
  if (std::all_of(values.begin(), values.end(), [](double v) { return std::isnan(v); })) return markup;
  return markup + BarChart("HQNR, 1 is best", labels, {{"HQNR", values}});
}

std::string MetricTables(const EvaluateReport& evaluation) {
  static const std::map<std::string, std::string> titles = {
      {"entropy", "Entropy"}, {"statistics", "Band statistics"}, {"snr", "Signal to noise"}, {"gradient", "Gradient"}};
  std::vector<std::string> head = {""};
  head.insert(head.end(), evaluation.bands.begin(), evaluation.bands.end());
  const std::size_t count = evaluation.bands.size();
  std::string markup;
  for (const MetricFigures& metric : evaluation.metrics) {
    std::vector<std::vector<Cell>> rows;
    for (const Figures& figures : metric.figures) {
      const auto from = figures.values.begin();
      if (figures.values.size() == 2 * count) {
        rows.push_back(ValueRow(FigureHead(figures.name, "multispectral"), from, count));
        rows.push_back(ValueRow(FigureHead(figures.name, "fused"), from + static_cast<std::ptrdiff_t>(count), count));
      } else {
        rows.push_back(ValueRow(FigureHead(figures.name), from, figures.values.size()));
      }
    }
    const auto title = titles.find(metric.metric);
    markup += Element("div", {{"class", "metric"}},
                      Table(title == titles.end() ? metric.metric : title->second, head, rows) +
                          Element("div", {{"class", "charts"}}, MetricChart(metric.metric, evaluation))) +
              '\n';
  }
  return markup;
}

}  // namespace fusion

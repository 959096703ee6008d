#include "runs/report_charts.h"

#include <algorithm>
#include <cmath>

#include "runs/report_markup.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// A place in a drawing.
std::string At(double value) { return Formatted("%.1f", value); }

std::string Text(double x, double y, const char* anchor, const std::string& text) {
  return TextElement("text", text, {{"x", At(x)}, {"y", At(y)}, {"text-anchor", anchor}});
}

std::string Line(double x1, double y1, double x2, double y2) {
  return Element("line", {{"class", "axis"}, {"x1", At(x1)}, {"y1", At(y1)}, {"x2", At(x2)}, {"y2", At(y2)}}, "");
}

/// @param drawn markup; @param words what it shows, for who cannot see it
std::string Drawing(int width, int height, const std::string& words, const std::string& drawn) {
  return Element("svg",
                 {{"viewBox", "0 0 " + std::to_string(width) + ' ' + std::to_string(height)},
                  {"width", std::to_string(width)},
                  {"height", std::to_string(height)},
                  {"role", "img"},
                  {"aria-label", words}},
                 drawn);
}

/// What fits in a place of so many letters.
std::string Short(const std::string& text, std::size_t most) {
  const auto starts = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
  std::size_t letters = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (starts(text[at]) && ++letters > most) return text.substr(0, at) + "\xE2\x80\xA6";
  }
  return text;
}

}  // namespace

std::string BarChart(const std::string& title, const std::vector<std::string>& groups,
                     const std::vector<ChartSeries>& series) {
  constexpr int kHeight = 130;
  constexpr double kTop = 14.0;
  constexpr double kFloor = 112.0;
  constexpr double kBar = 14.0;
  const double group = std::max(56.0, kBar * static_cast<double>(series.size()) + 18.0);
  const int width = static_cast<int>(16.0 + group * static_cast<double>(groups.size()));
  double most = 0.0;
  for (const ChartSeries& s : series) {
    for (const double v : s.values) most = std::isfinite(v) ? std::max(most, v) : most;
  }
  std::string drawn;
  std::string legend;
  for (std::size_t g = 0; g < groups.size(); ++g) {
    const double middle = 8.0 + group * (static_cast<double>(g) + 0.5);
    const double left = middle - kBar * static_cast<double>(series.size()) / 2.0;
    for (std::size_t s = 0; s < series.size(); ++s) {
      const double value = series[s].values[g];
      const double share = std::isfinite(value) && most > 0.0 ? std::max(value, 0.0) / most : 0.0;
      const double height = share * (kFloor - kTop);
      drawn += Element("rect",
                       {{"class", series.size() > 1 ? "series-" + std::to_string(s) : "series-1"},
                        {"x", At(left + kBar * static_cast<double>(s))},
                        {"y", At(kFloor - height)},
                        {"width", At(kBar - 2.0)},
                        {"height", At(height)}},
                       TextElement("title", groups[g] + ", " + series[s].name + ": " + NumberText(value)));
    }
    const double last = series.empty() ? 0.0 : series.back().values[g];
    const double height = std::isfinite(last) && most > 0.0 ? std::max(last, 0.0) / most * (kFloor - kTop) : 0.0;
    const double of = left + kBar * (static_cast<double>(series.size()) - 0.5) - 1.0;
    drawn += Text(of, kFloor - height - 3.0, "middle", NumberText(last, 3));
    drawn += Text(middle, kFloor + 12.0, "middle", Short(groups[g], 10));
  }
  drawn += Line(8.0, kFloor, width - 8.0, kFloor);
  if (series.size() > 1) {
    for (std::size_t s = 0; s < series.size(); ++s) {
      legend += TextElement("span", series[s].name, {{"class", "key series-" + std::to_string(s)}});
    }
  }
  const std::string caption =
      Element("figcaption", Escaped(title) + (legend.empty() ? "" : Element("span", {{"class", "keys"}}, legend)));
  return Element("figure", {{"class", "chart"}},
                 caption + Drawing(width, kHeight, title + ", by bars; the table has the numbers", drawn));
}

std::string HistogramChart(const ReportHistogram& histogram) {
  constexpr int kWidth = 260;
  constexpr int kHeight = 120;
  constexpr double kTop = 6.0;
  constexpr double kFloor = 100.0;
  constexpr double kLeft = 4.0;
  constexpr double kRight = 256.0;
  const std::size_t columns = histogram.ms.size();
  double most = 0.0;
  for (const auto* shares : {&histogram.ms, &histogram.fused}) {
    for (const double share : *shares) most = std::max(most, share);
  }
  const auto outline = [&](const std::vector<double>& shares) {
    std::string path;
    for (std::size_t i = 0; i < columns; ++i) {
      const double x = kLeft + (kRight - kLeft) * (static_cast<double>(i) + 0.5) / static_cast<double>(columns);
      const double y = kFloor - (most > 0.0 ? shares[i] / most : 0.0) * (kFloor - kTop);
      path += (i == 0 ? "M" : "L") + At(x) + ' ' + At(y);
    }
    return path;
  };
  const std::string closed =
      outline(histogram.ms) + "L" + At(kRight) + ' ' + At(kFloor) + "L" + At(kLeft) + ' ' + At(kFloor) + "Z";
  std::string drawn = Element("path", {{"class", "before"}, {"d", closed}}, "");
  drawn += Element("path", {{"class", "after"}, {"d", outline(histogram.fused)}}, "");
  drawn += Line(kLeft, kFloor, kRight, kFloor);
  drawn += Text(kLeft, kFloor + 14.0, "start", NumberText(histogram.low, 4));
  drawn += Text(kRight, kFloor + 14.0, "end", NumberText(histogram.high, 4));
  const std::string words =
      "Histogram of " + histogram.band + ": the multispectral band as an area, the fused one as a line";
  return Element("figure", {{"class", "chart"}},
                 TextElement("figcaption", histogram.band) + Drawing(kWidth, kHeight, words, drawn));
}

}  // namespace fusion

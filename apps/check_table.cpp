#include "apps/check_table.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include "runs/text.h"

namespace app {
namespace {

using fusion::Formatted;

std::string Number(double value, const char* format = "%.5g") { return fusion::NumberOrDash(format, value); }

std::string Percent(double share) { return std::isnan(share) ? "-" : Formatted("%.3g", 100.0 * share) + " %"; }

std::string Count(int bands) { return std::to_string(bands) + (bands == 1 ? " band" : " bands"); }

/// Signs that a text shows, of UTF-8.
std::size_t Length(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

/// Rows of cells in columns that are as wide as they must be: the first to the left, the others to either side.
void PrintRows(const std::vector<std::vector<std::string>>& rows, bool right) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], Length(row[c]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      const std::string blanks(widths[c] - Length(row[c]), ' ');
      if (c > 0) line += "  ";
      line += c > 0 && right ? blanks + row[c] : row[c] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::cout << line << '\n';
  }
}

void PrintImages(const fusion::CheckReport& r) {
  const auto size = [](const fusion::CheckImage& i) {
    return std::to_string(i.width) + "x" + std::to_string(i.height) + ", " + Count(i.bands);
  };
  const auto pixel = [](const fusion::CheckImage& i) {
    const std::string width = Number(i.pixelWidth, "%.7g");
    const std::string height = Number(i.pixelHeight, "%.7g");
    return width == height ? width : width + " x " + height;
  };
  const auto system = [](const fusion::CheckImage& i) { return i.system.empty() ? "-" : i.system; };
  PrintRows({{"image", "pan", "multispectral"},
             {"  size", size(r.pan), size(r.ms)},
             {"  type", r.pan.type, r.ms.type},
             {"  pixel", pixel(r.pan), pixel(r.ms)},
             {"  coordinate system", system(r.pan), system(r.ms)},
             {"  on common ground", Percent(r.pan.overlap), Percent(r.ms.overlap)}},
            false);
}

void PrintPair(const fusion::CheckReport& r) {
  std::vector<std::vector<std::string>> rows = {{"pair"}};
  const std::string ratioX = Number(r.ratioX);
  const std::string ratioY = Number(r.ratioY);
  rows.push_back({"  ratio of the pixels", ratioX == ratioY ? ratioX : ratioX + " x " + ratioY});
  if (r.shift) {
    rows.push_back({"  shift", Number(r.shift->dx, "%+.2f") + ", " + Number(r.shift->dy, "%+.2f") +
                                   " pan pixels (right, down) puts the bands on pan; spread " +
                                   Number(r.shift->spreadX, "%.2f") + ", " + Number(r.shift->spreadY, "%.2f") +
                                   " over " + std::to_string(r.shift->windows) + " windows"});
    rows.push_back({"  common detail", Percent(r.shift->score) + " of pan's, at the bands' resolution"});
  }
  if (r.blur) {
    const bool box = r.blur->shape == "box";
    rows.push_back({"  sharpness", box ? "the mean over a pixel makes pan look like the bands"
                                       : "a blur of " + Number(r.blur->width, "%.2f") + ", " +
                                             Number(r.blur->deviation, "%.2f") +
                                             " pan pixels, makes pan look like the bands"});
  }
  if (!r.bands.empty()) {
    rows.push_back({"  best mix of bands", "correlation " + Number(r.mixCorrelation, "%.3f") + " with pan"});
    rows.push_back({"  data in both", Percent(r.covered) + " of the common ground"});
    if (r.share < 1.0) rows.push_back({"  looked at", Percent(r.share) + " of it"});
  }
  PrintRows(rows, false);
}

void PrintBands(const fusion::CheckReport& r) {
  if (!r.panBand) return;
  std::vector<std::vector<std::string>> rows = {
      {"band", "minimum", "maximum", "mean", "deviation", "no data", "pan/band", "correlation", "of detail"}};
  const auto add = [&rows](const fusion::CheckBand& b) {
    rows.push_back(
        {"  " + b.name, Number(b.minimum), Number(b.maximum), Number(b.mean), Number(b.stdDev), Percent(b.noData)});
  };
  add(*r.panBand);
  for (const fusion::CheckBand& band : r.bands) {
    add(band);
    for (const double v : {band.panRatio, band.correlation, band.detail}) rows.back().push_back(Number(v, "%.3f"));
  }
  PrintRows(rows, true);
}

void PrintFindings(const fusion::CheckReport& r) {
  for (const fusion::CheckFinding& finding : r.findings) {
    std::cout << (finding.isWarning ? "Warning: " : "Note: ") << finding.text << '\n';
    if (!finding.advice.empty()) std::cout << "  " << finding.advice << '\n';
  }
  if (r.IsFine()) std::cout << "Nothing stands against fusing them.\n";
}

}  // namespace

void PrintTable(const fusion::CheckReport& report) {
  PrintImages(report);
  std::cout << '\n';
  PrintPair(report);
  std::cout << '\n';
  PrintBands(report);
  if (report.panBand) std::cout << '\n';
  PrintFindings(report);
}

}  // namespace app

#include "apps/evaluate_table.h"

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace app {
namespace {

constexpr int kNameWidth = 26;

/// Letters as they stand in a column, which are fewer than their bytes in UTF-8.
int Letters(const std::string& text) {
  return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

int ColumnWidth(const std::vector<std::string>& bands) {
  constexpr int kLeast = 16;
  int width = kLeast;
  for (const std::string& band : bands) width = std::max(width, Letters(band) + 2);
  return width;
}

void PrintRow(const std::string& name, const double* values, std::size_t count, int width) {
  std::cout << "  " << std::left << std::setw(kNameWidth - 2) << name << std::right << std::setprecision(8);
  for (std::size_t i = 0; i < count; ++i) std::cout << std::setw(width) << values[i];
  std::cout << '\n';
}

}  // namespace

void PrintTable(const std::string& metric, const std::vector<fusion::Figures>& figures,
                const std::vector<std::string>& bands) {
  const int width = ColumnWidth(bands);
  std::cout << std::left << std::setw(kNameWidth) << metric;
  for (const std::string& band : bands) {
    std::cout << std::string(static_cast<std::size_t>(width - Letters(band)), ' ') << band;
  }
  std::cout << '\n';
  const std::size_t count = bands.size();
  for (const fusion::Figures& f : figures) {
    if (f.values.size() == 2 * count) {
      PrintRow(f.name + " (ms)", f.values.data(), count, width);
      PrintRow(f.name + " (fused)", f.values.data() + count, count, width);
    } else {
      PrintRow(f.name, f.values.data(), f.values.size(), width);
    }
  }
}

}  // namespace app

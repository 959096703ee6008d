#include "apps/assess_table.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>

#include "runs/text.h"

namespace app {
namespace {

constexpr int kWidth = 11;

std::string Padded(const std::string& text, int width) {
  const auto missing = static_cast<std::size_t>(std::max(0, width - static_cast<int>(text.size())));
  return std::string(missing, ' ') + text;
}

}  // namespace

void PrintTable(const fusion::AssessTable& table) {
  std::size_t names = 16;
  for (const fusion::AssessRow& row : table.rows) names = std::max(names, row.method.size() + 2);
  std::string line = table.protocol;
  line.resize(names, ' ');
  // A column of stars stands behind each number.
  for (const fusion::AssessMeasure& measure : table.measures) line += Padded(measure.name, kWidth) + ' ';
  const auto print = [](std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    std::cout << text << '\n';
  };
  print(line);
  for (std::size_t r = 0; r < table.rows.size(); ++r) {
    line = "  " + table.rows[r].method;
    line.resize(names, ' ');
    for (std::size_t m = 0; m < table.measures.size(); ++m) {
      line += Padded(fusion::NumberOrDash("%.4g", table.rows[r].values[m]), kWidth);
      line += table.measures[m].best == static_cast<int>(r) ? '*' : ' ';
    }
    print(line);
  }
}

}  // namespace app

#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "runs/report.h"
#include "tests/support/run_scene.h"

namespace test_support {

/// Pages about images that were fused of a small scene.
class ReportScene : public RunScene {
 protected:
  std::string Fused(const std::string& method, const std::string& out) const {
    return fusion::Fuse(Request(method, out)).output;
  }
  fusion::ReportRequest About(const std::vector<std::string>& fused) const {
    fusion::ReportRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = fused;
    request.out = m_folder.Path("report.html");
    return request;
  }
  std::string Page() const { return FileBytes(m_folder.Path("report.html")); }
  static std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
  }
  /// The part of the page that is about an image, counted from 1.
  static std::string SectionOf(const std::string& page, int image) {
    const std::size_t start = page.find("<section id=\"image-" + std::to_string(image) + "\"");
    EXPECT_NE(start, std::string::npos);
    return page.substr(start, page.find("</section>", start) - start);
  }
  /// The rows that show a figure: their numbers.
  static std::vector<std::vector<std::string>> Rows(const std::string& section, const std::string& name) {
    std::vector<std::vector<std::string>> rows;
    const std::string mark = "<code>" + name + "</code></th>";
    const std::regex cell("<td class=\"n\">([^<]*)</td>");
    for (std::size_t at = section.find(mark); at != std::string::npos; at = section.find(mark, at + 1)) {
      const std::string row = section.substr(at, section.find("</tr>", at) - at);
      rows.emplace_back();
      for (std::sregex_iterator i(row.begin(), row.end(), cell); i != std::sregex_iterator(); ++i) {
        rows.back().push_back((*i)[1]);
      }
    }
    return rows;
  }
};

}  // namespace test_support

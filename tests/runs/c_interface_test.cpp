// The C interface against the C++ one: the program in C has compared what it can by itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "runs/assess.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/fuse.h"
#include "runs/report.h"
#include "tests/support/command.h"
#include "tests/support/scene.h"

namespace {

TEST(CInterface, AnswersWhatCppAnswers) {
  const test_support::TemporaryFolder folder;
  const auto run = test_support::RunCommand(FUSION_C_PROGRAM, {folder.Path("")});
  ASSERT_EQ(run.status, 0) << run.err;

  fusion::FuseRequest fuse;
  // By the very names that the other program gives.
  fuse.pan = folder.Path("") + "/pan.tif";
  fuse.ms = folder.Path("") + "/ms.tif";
  fuse.out = folder.Path("cpp.tif");
  fuse.bands = {3, 1};
  fuse.window = {-8, 4, 30, 20};
  fuse.bayesWeight = 0.7;
  fuse.type = "float64";
  fuse.noDataMask = "on";
  EXPECT_EQ(fusion::Fuse(fuse).width, 22);
  EXPECT_TRUE(test_support::FileBytes(fuse.out) == test_support::FileBytes(folder.Path("c.tif")));

  fusion::EvaluateRequest evaluate;
  evaluate.pan = fuse.pan;
  evaluate.ms = fuse.ms;
  evaluate.fused = folder.Path("truth.tif");
  evaluate.metrics = {"statistics", "snr"};
  std::istringstream lines(run.out);
  for (const auto& [metric, figures] : fusion::Evaluate(evaluate).metrics) {
    for (const auto& array : figures) {
      std::string line;
      ASSERT_TRUE(std::getline(lines, line)) << array.name;
      std::istringstream words(line);
      std::string word;
      words >> word;
      EXPECT_EQ(word, metric);
      words >> word;
      EXPECT_EQ(word, array.name);
      for (const double value : array.values) {
        words >> word;
        EXPECT_EQ(std::stod(word), value) << array.name;
      }
    }
  }

  fusion::AssessRequest assess;
  assess.pan = folder.Path("large/pan.tif");
  assess.ms = folder.Path("large/ms.tif");
  assess.methods = {"brovey", "hpf"};
  assess.mtf = {0.25};
  assess.tiles = 4;
  const fusion::AssessReport report = fusion::Assess(assess);
  const auto& order = report.tables[0].rows;
  for (const auto& table : report.tables) {
    for (std::size_t m = 0; m < table.measures.size(); ++m) {
      std::string protocol;
      std::string name;
      lines >> protocol >> name;
      EXPECT_EQ(protocol, table.protocol);
      EXPECT_EQ(name, table.measures[m].name);
      for (const auto& row : order) {
        const auto same = std::find_if(table.rows.begin(), table.rows.end(),
                                       [&](const auto& other) { return other.method == row.method; });
        double value = 0.0;
        lines >> value;
        EXPECT_EQ(value, same->values[m]) << protocol << name << row.method;
      }
    }
  }
  for (const auto& row : order) {
    std::string label;
    lines >> label;
    EXPECT_EQ(label, row.method);
  }
  std::string best;
  lines >> best;
  EXPECT_EQ(best, report.best);

  fusion::CheckRequest check;
  check.pan = assess.pan;
  check.ms = assess.ms;
  check.bands = {1, 3};
  const fusion::CheckReport seen = fusion::Check(check);
  int fine = 0;
  double overlap = 0.0;
  double dx = 0.0;
  double blur = 0.0;
  int windows = 0;
  std::size_t findings = 0;
  lines >> fine >> overlap >> dx >> blur >> windows >> findings;
  EXPECT_EQ(fine != 0, seen.IsFine());
  EXPECT_EQ(overlap, seen.pan.overlap);
  ASSERT_TRUE(seen.shift && seen.blur);
  EXPECT_EQ(dx, seen.shift->dx);
  EXPECT_EQ(blur, seen.blur->width);
  EXPECT_EQ(windows, seen.shift->windows);
  EXPECT_EQ(findings, seen.findings.size());

  fusion::ReportRequest about;
  about.pan = assess.pan;
  about.ms = assess.ms;
  about.fused = {folder.Path("large/truth.tif")};
  about.out = folder.Path("other.html");
  const fusion::ReportQuality quality = fusion::Report(about).images.at(0).quality.value();
  EXPECT_TRUE(folder.Has("report.html"));
  const std::pair<const char*, double> told[] = {{"HQNR", quality.hqnr},
                                                 {"QNR", quality.qnr},
                                                 {"D_lambda", quality.dLambda},
                                                 {"D_s", quality.dS},
                                                 {"sharpness", quality.sharpness}};
  for (const auto& [name, value] : told) {
    std::string protocol;
    std::string measure;
    double read = 0.0;
    lines >> protocol >> measure >> read;
    EXPECT_EQ(protocol, "full");
    EXPECT_EQ(measure, name);
    EXPECT_EQ(read, value);
  }

  // Rows that were fused with a survey.
  fuse = {};
  fuse.pan = assess.pan;
  fuse.ms = assess.ms;
  fuse.out = folder.Path("whole.tif");
  fuse.method = "brovey";
  fusion::Fuse(fuse);
  const reference::Image whole = test_support::ReadImage(folder.WidePath("whole.tif"));
  const reference::Image rows = test_support::ReadImage(folder.WidePath("rows.tif"));
  ASSERT_EQ(rows.bands.size(), whole.bands.size());
  ASSERT_EQ(rows.height, 40);
  for (std::size_t b = 0; b < rows.bands.size(); ++b) {
    const auto from = whole.bands[b].begin() + static_cast<std::ptrdiff_t>(30) * whole.width;
    EXPECT_TRUE(std::equal(rows.bands[b].begin(), rows.bands[b].end(), from)) << b;
  }
}

}  // namespace

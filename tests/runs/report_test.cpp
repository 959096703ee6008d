// The page about fused images, against the runs that it tells of.
#include "runs/report.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <regex>

#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/provenance.h"
#include "tests/runs/report_scene.h"

namespace {

using fusion::ReportRequest;
using fusion::WrittenReport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string Shown(double value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.6g", value);
  return text;
}

class ReportTest : public test_support::ReportScene {
 protected:
  fusion::EvaluateReport Evaluated(const std::string& fused, const std::vector<int>& bands = {}) const {
    fusion::EvaluateRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = fused;
    request.bands = bands;
    return fusion::Evaluate(request);
  }
  void Describe(const std::string& file, const std::vector<std::string>& names) const {
    const std::unique_ptr<GDALDataset> dataset(
        GDALDataset::Open(m_folder.Path(file).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ASSERT_TRUE(dataset);
    for (std::size_t b = 0; b < names.size(); ++b) {
      dataset->GetRasterBand(static_cast<int>(b) + 1)->SetDescription(names[b].c_str());
    }
  }
};

TEST_F(ReportTest, HasTheFiguresOfTheEvaluations) {
  const std::string file = Fused("brovey", "brovey.tif");
  const WrittenReport report = fusion::Report(About({file}));
  const std::string page = Page();
  EXPECT_EQ(report.bytes, static_cast<std::int64_t>(page.size()));
  const std::string section = SectionOf(page, 1);
  int seen = 0;
  for (const auto& [metric, arrays] : Evaluated(file).metrics) {
    for (const fusion::Figures& figures : arrays) {
      std::vector<std::string> told;
      for (const auto& row : Rows(section, figures.name)) told.insert(told.end(), row.begin(), row.end());
      std::vector<std::string> wanted;
      for (const double v : figures.values) wanted.push_back(Shown(v));
      EXPECT_EQ(told, wanted) << figures.name;
      ++seen;
    }
  }
  EXPECT_EQ(seen, 19);
  EXPECT_EQ(Count(section, "<svg"), 4U + 5U) << "histograms of four bands, and a chart or two of each evaluation";
  EXPECT_THAT(section, HasSubstr("<dt>method</dt><dd>brovey</dd>"));
}

TEST_F(ReportTest, HasTheQualityThatAnAssessmentFinds) {
  // Without rounding, as an assessment fuses.
  fusion::FuseRequest fuse = Request("brovey", "brovey.tif");
  fuse.type = "float32";
  const WrittenReport report = fusion::Report(About({fusion::Fuse(fuse).output}));
  fusion::AssessRequest assess;
  assess.pan = fuse.pan;
  assess.ms = fuse.ms;
  assess.methods = {"brovey"};
  assess.protocol = "full";
  const fusion::AssessTable table = fusion::Assess(assess).tables.at(0);
  const auto row =
      std::find_if(table.rows.begin(), table.rows.end(), [](const auto& r) { return r.method == "brovey"; });
  ASSERT_NE(row, table.rows.end());
  ASSERT_TRUE(report.images[0].quality) << report.images[0].notMeasured;
  const fusion::ReportQuality& quality = *report.images[0].quality;
  const double told[] = {quality.hqnr, quality.qnr, quality.dLambda, quality.dS, quality.sharpness};
  for (std::size_t m = 0; m < 5; ++m) EXPECT_NEAR(told[m], row->values[m], 1e-5) << table.measures[m].name;
  char shown[32];
  std::snprintf(shown, sizeof(shown), "<td class=\"n\">%.4g</td>", quality.hqnr);
  EXPECT_THAT(Page(), HasSubstr(shown));
}

TEST_F(ReportTest, AsksNoNetworkForAnything) {
  fusion::Report(About({Fused("brovey", "brovey.tif")}));
  const std::string page = Page();
  for (const char* link : {"http:", "https:", "ftp:", "//www", "@import", "url(", "<iframe", "<object", "<embed"}) {
    EXPECT_THAT(page, Not(HasSubstr(link)));
  }
  EXPECT_EQ(Count(page, " src="), Count(page, " src=\"data:image/jpeg;base64,"));
  EXPECT_EQ(Count(page, "<link "), 1U);
  EXPECT_THAT(page, HasSubstr("<link rel=\"icon\" href=\"data:,\">"));
  // Whatever gets into it is kept from asking.
  const std::regex policy(
      "http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
      "style-src 'sha256-[A-Za-z0-9+/]{43}='; script-src 'sha256-[A-Za-z0-9+/]{43}='\"");
  EXPECT_TRUE(std::regex_search(page.begin(), page.begin() + std::min<std::ptrdiff_t>(2000, std::ssize(page)), policy));
}

TEST_F(ReportTest, TakesTextsOfFilesForTexts) {
  Describe("ms.tif", {"<script>alert(1)</script>", "a&b", "\"'", "\xFF\x01"});
  Fused("brovey", "brovey.tif");
#ifdef _WIN32
  const std::string name = "it's & so on.tif";
#else
  const std::string name = "<img src=x onerror=alert(2)>\"'&.tif";
#endif
  std::filesystem::rename(CommonFun::ToPath(m_folder.WidePath("brovey.tif")),
                          CommonFun::ToPath(m_folder.WidePath(name)));
  ReportRequest request = About({m_folder.Path(name)});
  request.title = "</title><b>mine</b>";
  fusion::Report(request);
  const std::string page = Page();
  EXPECT_EQ(Count(page, "<script"), 1U);
  EXPECT_EQ(Count(page, "</script>"), 1U);
  EXPECT_EQ(Count(page, "onerror"), Count(page, "&lt;img src=x onerror"));
  EXPECT_THAT(page, Not(HasSubstr("<b>")));
  EXPECT_THAT(page, HasSubstr("<title>&lt;/title&gt;&lt;b&gt;mine&lt;/b&gt;</title>"));
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"));
  EXPECT_THAT(page, HasSubstr("a&amp;b"));
  EXPECT_THAT(page, HasSubstr("&quot;&#39;"));
  EXPECT_THAT(page, Not(HasSubstr("\xFF")));
  EXPECT_THAT(page, Not(HasSubstr("\x01")));
}

TEST_F(ReportTest, PairsBandsByTheirNames) {
  Describe("ms.tif", {"blue", "green", "red", "nir"});
  fusion::FuseRequest two = Request("brovey", "two.tif");
  two.bands = {3, 1};
  const std::string file = fusion::Fuse(two).output;
  const WrittenReport report = fusion::Report(About({file, Fused("brovey", "four.tif")}));
  EXPECT_EQ(report.images[0].notEvaluated, "");
  EXPECT_THAT(report.images[0].evaluation.bands, ElementsAre("red / 1", "blue / 2"));
  const fusion::EvaluateReport evaluated = Evaluated(file, {3, 1});
  std::vector<std::string> wanted;
  for (const double v : evaluated.metrics[1].figures[6].values) wanted.push_back(Shown(v));
  EXPECT_THAT(Rows(SectionOf(Page(), 1), "m_pCorrelation"), ElementsAre(wanted));
}

TEST_F(ReportTest, TellsWhyThereAreNoFigures) {
  fusion::FuseRequest two = Request("brovey", "two.tif");
  two.bands = {3, 1};
  ReportRequest request = About({fusion::Fuse(two).output});
  const WrittenReport report = fusion::Report(request);
  EXPECT_THAT(report.images[0].notEvaluated, HasSubstr("It has 2 bands, the multispectral image 4"));
  EXPECT_FALSE(report.images[0].quality);
  EXPECT_THAT(Page(), HasSubstr("It could not be evaluated: It has 2 bands"));
  EXPECT_EQ(Count(Page(), "class=\"picture\""), 3U);
  request.bands = {3, 1};
  request.overwrite = true;
  EXPECT_EQ(fusion::Report(request).images[0].notEvaluated, "");
  EXPECT_THAT(Page(), Not(HasSubstr("could not be")));
  EXPECT_THAT(Page(), HasSubstr(" --bands 3,1\n"));
}

TEST_F(ReportTest, TellsOfFilesThatTellNothing) {
  fusion::FuseRequest fuse = Request("brovey", "silent.tif");
  fuse.noProvenance = true;
  const WrittenReport report = fusion::Report(About({fusion::Fuse(fuse).output}));
  EXPECT_EQ(report.images[0].method, "");
  EXPECT_THAT(SectionOf(Page(), 1), HasSubstr("The file does not tell how it was made."));
}

}  // namespace

// The page about fused images, against the runs that it tells of and the images that it shows.
#include "runs/report.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>

#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/provenance.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::ReportRequest;
using fusion::RunFailure;
using fusion::WrittenReport;
using reference::Image;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string Shown(double value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.6g", value);
  return text;
}

/// Bytes from base 64, digit by digit.
std::string Decoded(const std::string& text) {
  const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char c : text) {
    if (c == '=') break;
    bits = bits << 6U | static_cast<unsigned>(digits.find(c));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xFFU);
  }
  return bytes;
}

class ReportTest : public test_support::RunScene {
 protected:
  std::string Fused(const std::string& method, const std::string& out) const {
    return fusion::Fuse(Request(method, out)).output;
  }
  ReportRequest About(const std::vector<std::string>& fused) const {
    ReportRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = fused;
    request.out = m_folder.Path("report.html");
    return request;
  }
  std::string Page() const { return test_support::FileBytes(m_folder.Path("report.html")); }
  fusion::EvaluateReport Evaluated(const std::string& fused, const std::vector<int>& bands = {}) const {
    fusion::EvaluateRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = fused;
    request.bands = bands;
    return fusion::Evaluate(request);
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
  /// The pictures of the page, in its order, as their readers see them.
  std::vector<Image> Pictures() const {
    const std::string page = Page();
    const std::string start = "src=\"data:image/jpeg;base64,";
    std::vector<Image> pictures;
    for (std::size_t at = page.find(start); at != std::string::npos; at = page.find(start, at + 1)) {
      const std::size_t from = at + start.size();
      std::ofstream(CommonFun::ToPath(m_folder.WidePath("picture.jpg")), std::ios::binary)
          << Decoded(page.substr(from, page.find('"', from) - from));
      pictures.push_back(Read("picture.jpg"));
    }
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath("picture.jpg")));
    return pictures;
  }
  static std::string SentenceOf(const ReportRequest& request) {
    try {
      fusion::Report(request);
    } catch (const RunFailure& failure) {
      return failure.what();
    }
    return "";
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

/// What is shown of a value in a stretch from the 2nd to the 98th percentile of all.
std::vector<double> Stretched(const std::vector<double>& values, std::vector<double> all) {
  std::sort(all.begin(), all.end());
  const auto last = static_cast<double>(all.size() - 1);
  const double low = all[static_cast<std::size_t>(0.02 * last)];
  const double high = all[static_cast<std::size_t>(0.98 * last)];
  std::vector<double> shown;
  for (const double v : values) {
    shown.push_back(255.0 * std::pow(std::clamp((v - low) / (high - low), 0.0, 1.0), 0.7));
  }
  return shown;
}

double MeanDistance(const std::vector<double>& a, const std::vector<double>& b) {
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += std::fabs(a[i] - b[i]);
  return sum / static_cast<double>(a.size());
}

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double v : values) sum += v;
  return sum / static_cast<double>(values.size());
}

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

TEST_F(ReportTest, ShowsTheImagesInTheStretchOfTheBands) {
  fusion::Report(About({Fused("brovey", "brovey.tif")}));
  const std::vector<Image> pictures = Pictures();
  ASSERT_EQ(pictures.size(), 3U);
  for (const Image& picture : pictures) {
    ASSERT_EQ(picture.width, 40);
    ASSERT_EQ(picture.height, 40);
    ASSERT_EQ(picture.bands.size(), 3U);
  }
  // Next to nothing is lost of a grey picture, more of colours, which JPEG keeps at half the resolution.
  const std::vector<double> pan = Read("pan.tif").bands[0];
  EXPECT_LT(MeanDistance(pictures[0].bands[0], Stretched(pan, pan)), 6.0);
  const Image fused = Read("brovey.tif");
  const Image ms = Read("ms.tif");
  const auto grey = [](const std::vector<std::vector<double>>& rgb, std::size_t i) {
    return 0.299 * rgb[0][i] + 0.587 * rgb[1][i] + 0.114 * rgb[2][i];
  };
  // The stretch is that of the upsampled bands, which bilinear interpolation narrows a little.
  std::vector<std::vector<double>> wanted;
  for (std::size_t colour = 0; colour < 3; ++colour) {
    wanted.push_back(Stretched(fused.bands[2 - colour], ms.bands[2 - colour]));
  }
  std::vector<double> shown;
  std::vector<double> should;
  for (std::size_t i = 0; i < 1600; ++i) {
    shown.push_back(grey(pictures[2].bands, i));
    should.push_back(grey(wanted, i));
  }
  EXPECT_LT(MeanDistance(shown, should), 20.0);
  // The multispectral picture is another one.
  EXPECT_GT(MeanDistance(pictures[1].bands[1], pictures[2].bands[1]), 15.0);
}

TEST_F(ReportTest, AnImageOnAnotherScaleHasAStretchOfItsOwn) {
  fusion::FuseRequest request = Request("brovey", "stretched.tif");
  request.spectralMatch = "off";
  request.stretch = true;
  request.type = "uint8";
  fusion::Report(About({fusion::Fuse(request).output, Fused("brovey", "brovey.tif")}));
  EXPECT_THAT(Page(), HasSubstr("<figcaption>stretched (stretched by itself)</figcaption>"));
  EXPECT_THAT(Page(), HasSubstr("<figcaption>brovey</figcaption>"));
  // Not darker than the others by its range.
  const std::vector<Image> pictures = Pictures();
  ASSERT_EQ(pictures.size(), 4U);
  EXPECT_NEAR(Mean(pictures[2].bands[1]), Mean(pictures[3].bands[1]), 25.0);
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
  EXPECT_THAT(page, testing::ContainsRegex(
                        "http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
                        "style-src 'sha256-[A-Za-z0-9+/]{43}='; script-src 'sha256-[A-Za-z0-9+/]{43}='\""));
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

TEST_F(ReportTest, ShowsManyImages) {
  std::vector<std::string> files;
  for (const char* method : {"bayesian", "brovey", "multiplicative", "weighted", "ihs", "pca", "hpf", "sharpen"}) {
    files.push_back(Fused(method, std::string(method) + ".tif"));
  }
  const WrittenReport report = fusion::Report(About(files));
  const std::string page = Page();
  ASSERT_EQ(report.images.size(), 8U);
  EXPECT_EQ(Count(page, "class=\"picture\""), 10U);
  EXPECT_EQ(Count(page, "<section id=\"image-"), 8U);
  EXPECT_EQ(report.images[6].label, "hpf");
  EXPECT_EQ(report.images[6].method, "hpf");
  for (const std::string& file : files) {
    const std::string command = fusion::RepeatCommand(fusion::ReadProvenance(file), file);
    EXPECT_TRUE(page.find(std::regex_replace(command, std::regex("'"), "&#39;")) != std::string::npos) << command;
  }
  // One is the best of each of eight columns, at least.
  EXPECT_GE(Count(page, "class=\"n best\""), 8U);
}

TEST_F(ReportTest, ImagesOfOtherGroundHavePicturesOfTheirOwn) {
  fusion::FuseRequest part = Request("brovey", "part.tif");
  part.window = {8, 4, 20, 30};
  const WrittenReport report =
      fusion::Report(About({Fused("brovey", "brovey.tif"), fusion::Fuse(part).output, Fused("hpf", "hpf.tif")}));
  const std::vector<Image> pictures = Pictures();
  ASSERT_EQ(pictures.size(), 4U + 3U);
  EXPECT_EQ(pictures[6].width, 20);
  EXPECT_EQ(pictures[6].height, 30);
  const Image pan = Read("pan.tif");
  std::vector<double> inside;
  for (std::size_t y = 4; y < 34; ++y) {
    for (std::size_t x = 8; x < 28; ++x) inside.push_back(pan.bands[0][40 * y + x]);
  }
  EXPECT_LT(MeanDistance(pictures[4].bands[0], Stretched(inside, inside)), 8.0);
  EXPECT_THAT(SectionOf(Page(), 2), HasSubstr("20 \xC3\x97 30 pixels at 8, 4 of pan"));
  EXPECT_EQ(report.images[1].notEvaluated, "");
  EXPECT_EQ(Rows(SectionOf(Page(), 2), "m_pFusionMean").at(0).size(), 4U);
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

TEST_F(ReportTest, HatchesWhatHasNoData) {
  fusion::FuseRequest fuse = Request("brovey", "gaps.tif");
  Image ms = Read("ms.tif");
  for (auto& band : ms.bands) std::fill(band.begin(), band.begin() + 200, 0.0);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16, "", 0.0);
  fusion::Report(About({fusion::Fuse(fuse).output}));
  const std::vector<Image> pictures = Pictures();
  ASSERT_EQ(pictures.size(), 3U);
  // Stripes of two greys, in the upper half.
  const std::vector<double>& green = pictures[2].bands[1];
  EXPECT_NEAR(Mean({green.begin(), green.begin() + 640}), 144.0, 3.0);
  double least = 255.0;
  double most = 0.0;
  for (std::size_t i = 0; i < 640; ++i) {
    least = std::min(least, green[i]);
    most = std::max(most, green[i]);
  }
  EXPECT_NEAR(least, 120.0, 20.0);
  EXPECT_NEAR(most, 168.0, 20.0);
}

TEST_F(ReportTest, TellsOfFilesThatTellNothing) {
  fusion::FuseRequest fuse = Request("brovey", "silent.tif");
  fuse.noProvenance = true;
  const WrittenReport report = fusion::Report(About({fusion::Fuse(fuse).output}));
  EXPECT_EQ(report.images[0].method, "");
  EXPECT_THAT(SectionOf(Page(), 1), HasSubstr("The file does not tell how it was made."));
}

TEST_F(ReportTest, RefusesWhatItCannotShow) {
  const std::string file = Fused("brovey", "brovey.tif");
  EXPECT_THAT(SentenceOf(About({})), HasSubstr("name at least one"));
  EXPECT_THAT(SentenceOf(About({m_folder.Path("none.tif")})), HasSubstr("none.tif does not exist."));
  EXPECT_THAT(SentenceOf(About({m_folder.Path("ms.tif")})),
              HasSubstr("ms.tif: The fused image's pixels are not those"));
  ReportRequest request = About({file});
  request.fusedBands = {7};
  EXPECT_THAT(SentenceOf(request), HasSubstr("--fused-bands 7: "));
  request = About({file});
  request.out = "";
  EXPECT_THAT(SentenceOf(request), HasSubstr("The page needs a name"));
  request.out = file;
  request.overwrite = true;
  EXPECT_THAT(SentenceOf(request), HasSubstr("brovey.tif is an input of this run."));
  EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif"));
}

TEST_F(ReportTest, ReplacesAPageWhenToldTo) {
  ReportRequest request = About({Fused("brovey", "brovey.tif")});
  std::ofstream(CommonFun::ToPath(m_folder.WidePath("report.html"))) << "mine";
  EXPECT_THAT(SentenceOf(request), HasSubstr("report.html exists; add --overwrite to replace it."));
  EXPECT_EQ(Page(), "mine");
  request.overwrite = true;
  fusion::Report(request);
  EXPECT_THAT(Page(), testing::StartsWith("<!DOCTYPE html>"));
}

TEST_F(ReportTest, CanBeEndedAtAnyTime) {
  class Impatient : public fusion::RunObserver {
   public:
    explicit Impatient(std::string stage) : m_stage(std::move(stage)) {}
    void StageBegins(const fusion::RunStage& stage) override {
      last = stage.identity.name;
      m_hasBegun = m_hasBegun || last == m_stage;
    }
    bool WantsCancel() override { return m_hasBegun; }

    std::string last;

   private:
    std::string m_stage;
    bool m_hasBegun = false;
  };
  const std::string file = Fused("brovey", "brovey.tif");
  for (const char* stage : {"check", "evaluation", "quality", "pictures"}) {
    Impatient watcher(stage);
    try {
      fusion::Report(About({file}), &watcher);
      ADD_FAILURE() << stage;
    } catch (const RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << stage;
    }
    EXPECT_EQ(watcher.last, stage) << "it goes on no farther";
    EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif")) << stage;
  }
}

TEST_F(ReportTest, CanBeEndedInTheMiddleOfAnEvaluation) {
  class Impatient : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { last = stage.identity.name; }
    void Progress(int percent) override { m_hasEnough = m_hasEnough || (last == "evaluation" && percent > 0); }
    bool WantsCancel() override { return m_hasEnough; }

    std::string last;

   private:
    bool m_hasEnough = false;
  };
  Impatient watcher;
  EXPECT_THROW(fusion::Report(About({Fused("brovey", "brovey.tif")}), &watcher), RunFailure);
  EXPECT_EQ(watcher.last, "evaluation") << "it goes on no farther";
}

TEST_F(ReportTest, TellsWhatItIsDoing) {
  class Watching : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { stages.push_back(stage.identity.name); }
    void Progress(int percent) override { last = percent; }
    void StageEnds() override { ends.push_back(last); }
    std::vector<std::string> stages;
    std::vector<int> ends;
    int last = 0;
  };
  Watching watcher;
  fusion::Report(About({Fused("brovey", "brovey.tif"), Fused("hpf", "hpf.tif")}), &watcher);
  EXPECT_THAT(watcher.stages, ElementsAre("check", "evaluation", "quality", "pictures"));
  EXPECT_THAT(watcher.ends, ElementsAre(100, 100, 100, 100));
}

TEST_F(ReportTest, LeavesNothingWhereItFails) {
  const std::string file = Fused("brovey", "brovey.tif");
  const auto fails = [&](platform::RasterOperation which, const std::wstring& part) {
    platform::SetRasterFault([=](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      return operation == which && path.find(part) != std::wstring::npos;
    });
    std::string sentence = SentenceOf(About({file}));
    platform::SetRasterFault({});
    EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif"));
    return sentence;
  };
  EXPECT_NE(fails(platform::RasterOperation::kRead, L"brovey.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kRead, L"pan.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kOpen, L"brovey.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kRename, L"report.html"), "");
}

}  // namespace

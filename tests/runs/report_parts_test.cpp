// What a report's page is made of.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "runs/detail_map.h"
#include "runs/notices.h"
#include "runs/report_assets.h"
#include "runs/report_charts.h"
#include "runs/report_histograms.h"
#include "runs/report_markup.h"
#include "tests/support/run_scene.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(ReportMarkup, TextsStayTexts) {
  EXPECT_EQ(fusion::Escaped("a < b && c > \"d\" 'e'"), "a &lt; b &amp;&amp; c &gt; &quot;d&quot; &#39;e&#39;");
  EXPECT_EQ(fusion::Escaped("\xC3\xA4\xE4\xBD\xA0\xF0\x9F\x9B\xB0"), "\xC3\xA4\xE4\xBD\xA0\xF0\x9F\x9B\xB0");
  const std::string unknown = "\xEF\xBF\xBD";
  // Alone, cut, longer than needed, half of a pair, beyond the last; controls.
  for (const std::string wrong :
       {"\xFF", "\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x01", "\x7F"}) {
    const std::string markup = fusion::Escaped(wrong + "x");
    EXPECT_THAT(markup, testing::StartsWith(unknown));
    EXPECT_THAT(markup, testing::EndsWith("x"));
    EXPECT_THAT(markup, Not(HasSubstr(wrong)));
  }
  EXPECT_EQ(fusion::TextElement("b", "<i>", {{"title", "\"><script>"}}),
            "<b title=\"&quot;&gt;&lt;script&gt;\">&lt;i&gt;</b>");
}

TEST(ReportMarkup, BytesBecomeLetters) {
  // The examples of RFC 4648.
  EXPECT_EQ(fusion::Base64(""), "");
  EXPECT_EQ(fusion::Base64("f"), "Zg==");
  EXPECT_EQ(fusion::Base64("fo"), "Zm8=");
  EXPECT_EQ(fusion::Base64("foo"), "Zm9v");
  EXPECT_EQ(fusion::Base64("foob"), "Zm9vYg==");
  EXPECT_EQ(fusion::Base64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(fusion::Base64("\xFB\xFF"), "+/8=");
}

TEST(ReportMarkup, FillsATemplateOnce) {
  EXPECT_EQ(fusion::Fill("a {{x}} {{y}} {{x}}.", {{"x", "{{y}}"}, {"y", "2"}}), "a {{y}} 2 {{y}}.");
  EXPECT_EQ(fusion::Fill("{{none}}", {}), "");
}

TEST(ReportMarkup, NumbersReadWell) {
  EXPECT_EQ(fusion::NumberText(0.123456789, 6), "0.123457");
  EXPECT_EQ(fusion::NumberText(std::nan("")), "\xE2\x80\x93");
  EXPECT_EQ(fusion::NumberText(std::numeric_limits<double>::infinity()), "\xE2\x88\x9E");
}

TEST(ReportAssets, AreInTheLibrary) {
  EXPECT_THAT(fusion::ReportAsset("page.html"), testing::StartsWith("<!DOCTYPE html>\n"));
  EXPECT_THAT(fusion::ReportAsset("image.html"), HasSubstr("{{histograms}}"));
  EXPECT_THAT(fusion::ReportAsset("page.js"), testing::EndsWith("})();\n"));
  EXPECT_THAT(fusion::ReportAsset("page.css"), HasSubstr("prefers-color-scheme: dark"));
  EXPECT_THAT(fusion::ReportAsset("page.js"), Not(HasSubstr("\r")));
  EXPECT_EQ(fusion::ReportAsset("other"), "");
}

TEST(DetailMap, FindsWindowsBesideEachOther) {
  // Stripes in two corners, the stronger ones below to the right.
  fusion::DetailMap map(CRect(0, 0, 80, 80), 10);
  for (int y = 0; y < 80; ++y) {
    std::vector<double> row(80, 100.0);
    for (std::size_t x = 0; x < 80; x += 2) {
      if (y < 20 && x < 20) row[x] += 4.0;
      if (y >= 50 && x >= 50) row[x] += 9.0;
    }
    map.AddRow(y, row);
  }
  const auto corner = [](const CRect& rect) { return std::pair(rect.left, rect.top); };
  const CRect first = map.Best(20, 20);
  EXPECT_GE(first.left, 50);
  EXPECT_GE(first.top, 50);
  EXPECT_EQ(first.Width(), 20);
  const CRect beside(40, 40, 80, 80);
  EXPECT_EQ(corner(map.Best(20, 20, {beside})), std::pair(0, 0));
  EXPECT_EQ(map.Best(20, 20, {CRect(0, 0, 80, 80)}).Area(), 0);
}

TEST(ReportCharts, BarsAreAsHighAsTheirValues) {
  const std::string chart =
      fusion::BarChart("<t>", {"a", "b"}, {{"before", {1.0, 2.0}}, {"after", {4.0, std::nan("")}}});
  // 98 for the largest.
  EXPECT_THAT(chart, HasSubstr("height=\"24.5\""));
  EXPECT_THAT(chart, HasSubstr("height=\"49.0\""));
  EXPECT_THAT(chart, HasSubstr("height=\"98.0\""));
  EXPECT_THAT(chart, HasSubstr("height=\"0.0\""));
  EXPECT_THAT(chart, HasSubstr("&lt;t&gt;"));
  EXPECT_THAT(chart, HasSubstr("<title>a, after: 4</title>"));
}

class ReportHistograms : public test_support::RunScene {};

TEST_F(ReportHistograms, CountEverySampleOfSmallImages) {
  // Values 0 to 95 of the multispectral band: one for each column, if the range is all of them.
  reference::Image ms = Read("ms.tif");
  for (std::size_t i = 0; i < 400; ++i) ms.bands[0][i] = static_cast<double>(i % 96);
  test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
  reference::Image fused = Read("pan.tif");
  fused.bands.resize(1);
  for (std::size_t i = 0; i < 1600; ++i) fused.bands[0][i] = i < 400 ? 0.0 : 95.0;
  test_support::WriteImage(fused, m_folder.WidePath("fused.tif"), PDT_UINT16);
  fusion::Notices silent(nullptr);
  fusion::ScenePair pair({m_folder.Path("pan.tif"), m_folder.Path("ms.tif"), {1}, 1, false, {}}, silent);
  fusion::ReportRequest request;
  request.fused = {m_folder.Path("fused.tif")};
  const auto images = fusion::OpenFused(request, pair);
  const auto histograms = fusion::MakeHistograms(pair, images[0], [] {});
  ASSERT_EQ(histograms.size(), 1U);
  const fusion::ReportHistogram& histogram = histograms[0];
  EXPECT_EQ(histogram.band, "band 1");
  EXPECT_EQ(histogram.low, 0.0);
  EXPECT_EQ(histogram.high, 95.0);
  // Columns are 95 / 96 wide: each value below 95 has one of its own, the last shares that of its column.
  ASSERT_EQ(histogram.ms.size(), 96U);
  double sum = 0.0;
  for (std::size_t value = 0; value < 96; ++value) {
    int count = 0;
    for (std::size_t i = 0; i < 400; ++i) count += i % 96 == value;
    const auto column = std::min<std::size_t>(95, static_cast<std::size_t>(static_cast<double>(value) * 96.0 / 95.0));
    EXPECT_NEAR(histogram.ms[column], count / 400.0, 1e-12) << value;
    sum += histogram.ms[value];
  }
  EXPECT_NEAR(sum, 1.0, 1e-12);
  EXPECT_NEAR(histogram.fused[0], 0.25, 1e-12);
  EXPECT_NEAR(histogram.fused[95], 0.75, 1e-12);
}

}  // namespace

// The pictures of the page, against the images that they show.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>

#include "platform/utility/common_fun.h"
#include "runs/provenance.h"
#include "runs/report.h"
#include "tests/runs/report_scene.h"

namespace {

using fusion::WrittenReport;
using reference::Image;
using testing::HasSubstr;

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

class ReportPictures : public test_support::ReportScene {
 protected:
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
};

TEST_F(ReportPictures, ShowsTheImagesInTheStretchOfTheBands) {
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

TEST_F(ReportPictures, AnImageOnAnotherScaleHasAStretchOfItsOwn) {
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

TEST_F(ReportPictures, ShowsManyImages) {
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
    const std::string shown =
        std::regex_replace(std::regex_replace(command, std::regex("'"), "&#39;"), std::regex("\""), "&quot;");
    EXPECT_TRUE(page.find(shown) != std::string::npos) << command;
  }
  // One is the best of each of eight columns, at least.
  EXPECT_GE(Count(page, "class=\"n best\""), 8U);
}

TEST_F(ReportPictures, ImagesOfOtherGroundHavePicturesOfTheirOwn) {
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

TEST_F(ReportPictures, HatchesWhatHasNoData) {
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

}  // namespace

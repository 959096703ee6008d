// The picture of an assessment.
#include "runs/contact_sheet.h"

#include <gmock/gmock.h>

#include "platform/raster/raster_source.h"
#include "runs/assess.h"
#include "runs/letters.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::RunFailure;
using reference::Image;

class ContactSheetTest : public test_support::RunScene {
 protected:
  static quality::Image Ramp(int width, int height, int bands, double from, double step) {
    quality::Image image;
    image.width = width;
    image.height = height;
    for (int b = 0; b < bands; ++b) {
      image.bands.emplace_back();
      for (int i = 0; i < width * height; ++i) image.bands.back().push_back(from + step * i + 1000.0 * b);
    }
    return image;
  }
};

/// The sample of a picture at a place in a crop: crops begin 6 pixels from the edges, under 20 of title.
double At(const Image& sheet, std::size_t band, int x, int y, int left = 6, int top = 26) {
  return sheet.bands[band][static_cast<std::size_t>((top + y) * sheet.width + left + x)];
}

TEST_F(ContactSheetTest, HasOneStretchForAllColours) {
  fusion::ContactSheet sheet(m_folder.Path("sheet.png"), false, {});
  // 0 to 100 and 101 pixels: the 2nd percentile is 2, the 98th 98.
  sheet.AddPan("pan", Ramp(101, 1, 1, 0.0, 5.0));
  sheet.AddColour("first", Ramp(101, 1, 4, 0.0, 1.0), {3, 1, 0});
  sheet.AddColour("second", Ramp(101, 1, 4, 10.0, 1.0), {3, 1, 0});
  sheet.Write();
  const Image picture = Read("sheet.png");
  ASSERT_EQ(picture.bands.size(), 3U);
  EXPECT_EQ(picture.width, 3 * (101 + 6) + 6);
  EXPECT_EQ(picture.height, 1 + 20 + 6 + 6);
  for (int x = 0; x <= 100; ++x) {
    const auto scaled = [](double v) { return std::round(255.0 * std::clamp((v - 2.0) / 96.0, 0.0, 1.0)); };
    for (std::size_t b = 0; b < 3; ++b) {
      EXPECT_EQ(At(picture, b, x, 0), scaled(x)) << "pan has a stretch of its own";
      EXPECT_EQ(At(picture, b, x, 0, 6 + 107), scaled(x));
      EXPECT_EQ(At(picture, b, x, 0, 6 + 2 * 107), scaled(x + 10.0));
    }
  }
}

TEST_F(ContactSheetTest, ShowsTheMiddleOfLargeImagesAndPaperForWhatHasNoData) {
  fusion::ContactSheet sheet(m_folder.Path("sheet.png"), false, {});
  quality::Image image = Ramp(300, 260, 1, 0.0, 1.0);
  image.bands[0][static_cast<std::size_t>(2 * 300 + 22 + 5)] = std::nan("");
  sheet.AddPan("pan", image);
  sheet.Write();
  const Image picture = Read("sheet.png");
  EXPECT_EQ(picture.width, 256 + 12);
  EXPECT_EQ(picture.height, 256 + 32);
  EXPECT_EQ(At(picture, 0, 5, 0), 255.0);
  EXPECT_EQ(At(picture, 0, 4, 0), 0.0);
  EXPECT_EQ(At(picture, 0, 255, 255), 255.0);
}

TEST_F(ContactSheetTest, NamesWiderThanTheImagesDoNotMeet) {
  fusion::ContactSheet sheet(m_folder.Path("sheet.png"), false, {});
  sheet.AddColour("multiplicative", Ramp(20, 20, 3, 0.0, 1.0), {0, 1, 2});
  sheet.AddColour("i", Ramp(20, 20, 3, 0.0, 1.0), {0, 1, 2});
  sheet.Write();
  const Image picture = Read("sheet.png");
  // 14 letters of 12 pixels, and the gap.
  EXPECT_EQ(picture.width, 2 * (14 * 12 + 6) + 6);
  EXPECT_EQ(At(picture, 0, 0, 10, 6 + 14 * 12 + 6), At(picture, 0, 0, 10)) << "the same image in the second place";
}

TEST_F(ContactSheetTest, StandsForAnAssessment) {
  fusion::AssessRequest request;
  request.pan = m_folder.Path("pan.tif");
  request.ms = m_folder.Path("ms.tif");
  request.methods = {"brovey", "hpf"};
  for (const auto& [protocol, size] : {std::pair<std::string, int>{"both", 40}, {"full", 40}, {"wald", 20}}) {
    request.protocol = protocol;
    request.picture = m_folder.Path(protocol + ".png");
    fusion::Assess(request);
    const Image picture = Read(protocol + ".png");
    // Wide enough for the nine letters of "upsampled".
    EXPECT_EQ(picture.width, 4 * (9 * 12 + 6) + 6) << protocol;
    EXPECT_EQ(picture.height, size + 32) << protocol;
  }
  // Pan, from its 2nd to its 98th percentile.
  std::vector<double> pan = Read("pan.tif").bands[0];
  const double first = pan[0];
  std::sort(pan.begin(), pan.end());
  const double low = pan[31];
  const double high = pan[1567];
  EXPECT_EQ(At(Read("full.png"), 1, 0, 0), std::round(255.0 * std::clamp((first - low) / (high - low), 0.0, 1.0)));
  // It replaces nothing unasked, and no image that is read.
  EXPECT_THROW(fusion::Assess(request), RunFailure);
  request.overwrite = true;
  EXPECT_NO_THROW(fusion::Assess(request));
}

TEST_F(ContactSheetTest, ThatCannotBeWrittenIsAFailure) {
  fusion::ContactSheet sheet(m_folder.Path("nowhere/sheet.png"), false, {});
  sheet.AddPan("pan", Ramp(4, 4, 1, 0.0, 1.0));
  try {
    sheet.Write();
    ADD_FAILURE();
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
    EXPECT_THAT(failure.Sentence(), testing::HasSubstr("cannot be written"));
  }
}

TEST(Letters, AreDrawnByTheirDots) {
  // An I and a T of 5 x 7 dots of 2 x 2 pixels, a blank dot between them; what does not fit is left out.
  const std::vector<std::string> dots = {".111..11111", "..1.....1..", "..1.....1..", "..1.....1..",
                                         "..1.....1..", "..1.....1..", ".111....1.."};
  constexpr int kWidth = 26;
  std::vector<std::uint8_t> pixels(kWidth * 16, 9);
  fusion::DrawText("it", 2, 1, kWidth, 16, 5, pixels);
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int column = (x - 2) / 2;
      const int row = (y - 1) / 2;
      const bool inside = x >= 2 && y >= 1 && column < 11 && row < 7;
      const bool ink = inside && dots[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] == '1';
      EXPECT_EQ(pixels[static_cast<std::size_t>(y * kWidth + x)], ink ? 5 : 9) << x << ' ' << y;
    }
  }
  const std::vector<std::uint8_t> before(8, 9);
  std::vector<std::uint8_t> small = before;
  fusion::DrawText("it", 20, 0, 4, 2, 5, small);
  fusion::DrawText("??", 0, 0, 4, 2, 5, small);
  EXPECT_EQ(small, before);
}

}  // namespace

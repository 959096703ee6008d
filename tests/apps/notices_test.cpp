// What a run of the command has to say of its result.
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/apps/scene_command.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class NoticesOfRuns : public SceneCommand {
 protected:
  /// The notices of a quiet run that succeeds.
  std::vector<std::string> Notices(std::vector<std::string> options, const std::string& pan = "pan.tif",
                                   const std::string& ms = "ms.tif") const {
    options.insert(options.begin(), {"fuse", Path(pan), Path(ms), Path("out.tif"), "--overwrite", "--json", "--quiet"});
    const auto run = Run(options);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    return nlohmann::json::parse(run.out)["notices"];
  }
  std::optional<double> DeclaredNoData() const {
    GDALAllRegister();
    const std::unique_ptr<GDALDataset> file(GDALDataset::Open(Path("out.tif").c_str(), GDAL_OF_RASTER));
    int declared = 0;
    const double value = file->GetRasterBand(1)->GetNoDataValue(&declared);
    return declared ? std::optional(value) : std::nullopt;
  }
  /// A triangle in the pixels 8 to 28 of either axis.
  std::string WriteArea() const {
    std::ofstream(CommonFun::ToPath(m_folder.WidePath("area.csv")))
        << "WKT,id\n\"POLYGON((440004 4474996,440014 4474996,440014 4474986,440004 4474996))\",1\n";
    return Path("area.csv");
  }
};

TEST_F(NoticesOfRuns, AnEmptyBandOfTheWeightedMethodIsNamedWithItsReason) {
  auto ms = Image("ms.tif");
  const auto pan = Image("pan.tif");
  const auto countOfEmpty = [&](std::size_t band) {
    const auto out = Image("out.tif");
    return std::count(out.bands[band].begin(), out.bands[band].end(), 0.0);
  };
  constexpr auto kAll = 64 * 64;
  // Two bands like pan and far from 0, one that falls where pan rises, one that says nothing.
  for (std::size_t i = 0; i < ms.bands[0].size(); ++i) {
    const double like = 1000.0 + pan.bands[0][i / 16 * 4 * 64 + i % 16 * 4];
    ms.bands[0][i] = like;
    ms.bands[1][i] = 20000.0 - like;
    ms.bands[2][i] = 100.0 + like;
    ms.bands[3][i] = 300.0;
  }
  test_support::WriteImage(ms, m_folder.WidePath("odd.tif"), PDT_UINT16);
  for (const std::string match : {"on", "off"}) {
    const auto notices =
        Notices({"--method", "weighted", "--spectral-match", match, "--keep-bands", "off"}, "pan.tif", "odd.tif");
    ASSERT_EQ(notices.size(), 2U) << testing::PrintToString(notices);
    EXPECT_THAT(notices[0], HasSubstr("band 2 comes out empty: its correlation with pan is negative"));
    EXPECT_THAT(notices[1], HasSubstr("band 4 comes out empty: it is constant"));
    EXPECT_EQ(countOfEmpty(0), 0);
    EXPECT_EQ(countOfEmpty(1), kAll);
    EXPECT_EQ(countOfEmpty(2), 0);
    EXPECT_EQ(countOfEmpty(3), kAll);
  }
  // The number is that of the file, wherever the band stands in the output.
  const auto chosen = Notices({"--method", "weighted", "--bands", "3,2"}, "pan.tif", "odd.tif");
  ASSERT_EQ(chosen.size(), 1U);
  EXPECT_THAT(chosen[0], HasSubstr("band 2 "));

  auto flat = pan;
  flat.bands[0].assign(flat.bands[0].size(), 500.0);
  test_support::WriteImage(flat, m_folder.WidePath("flat.tif"), PDT_UINT16);
  const auto constantPan = Notices({"--method", "weighted"}, "flat.tif");
  ASSERT_EQ(constantPan.size(), 4U);
  for (const auto& notice : constantPan) EXPECT_THAT(notice, HasSubstr("the pan image is constant"));

  EXPECT_THAT(Notices({"--method", "weighted", "--bands", "1,3"}, "pan.tif", "odd.tif"), IsEmpty());
  const auto loud = Run({"fuse", Path("pan.tif"), Path("odd.tif"), Path("b.tif"), "--method", "weighted"});
  EXPECT_THAT(loud.err, HasSubstr("Multispectral band 2 is kept as resampled"));
}

TEST_F(NoticesOfRuns, OutsideTheAreaOfInterestLiesDeclaredNoData) {
  const std::string area = WriteArea();
  // Values that would be 0 inside.
  auto ms = Image("ms.tif");
  for (std::size_t i = 0; i < ms.bands[0].size(); ++i) ms.bands[0][i] = i % 3 == 0 ? 2.0 : 0.0;
  test_support::WriteImage(ms, m_folder.WidePath("dark.tif"), PDT_UINT16);
  for (const fusion::Method& each : fusion::Methods()) {
    const std::string method = each.name;
    const auto notices = Notices({"--method", method, "--aoi", area, "--no-overviews"}, "pan.tif", "dark.tif");
    EXPECT_THAT(notices, testing::Contains(HasSubstr("Outside the area of interest"))) << method;
    EXPECT_EQ(DeclaredNoData(), 0.0) << method;
    const auto out = Image("out.tif");
    ASSERT_EQ(out.width, 20) << method;
    for (int y = 0; y < 20; ++y) {
      for (int x = 0; x < 20; ++x) {
        // The upper right half of the square; no pixel centre lies on the diagonal but those of x = y.
        if (x == y) continue;
        for (const auto& band : out.bands) {
          ASSERT_EQ(band[static_cast<std::size_t>(y) * 20 + static_cast<std::size_t>(x)] == 0.0, x < y)
              << method << ' ' << x << ' ' << y;
        }
      }
    }
  }
  const auto off = Notices({"--method", "brovey", "--aoi", area, "--nodata-mask", "off"});
  EXPECT_THAT(off, IsEmpty());
  EXPECT_FALSE(DeclaredNoData());
  EXPECT_THAT(Notices({"--method", "brovey"}), IsEmpty());
  EXPECT_FALSE(DeclaredNoData());
}

TEST_F(NoticesOfRuns, TheStretchFillsTheTypeAndLeavesHardlyASampleAtItsEnd) {
  for (const fusion::Method& each : fusion::Methods()) {
    if (!each.Takes(fusion::kTakesStretch)) continue;
    const std::string method = each.name;
    for (const std::string type : {"uint8", "uint16"}) {
      SCOPED_TRACE(method + ' ' + type);
      std::vector<std::string> options = {"--method", method, "--type", type, "--stretch"};
      if (each.Takes(fusion::kTakesMatch)) options.insert(options.end(), {"--spectral-match", "off"});
      EXPECT_THAT(Notices(options), testing::Each(Not(HasSubstr("do not fit"))));
      const auto out = Image("out.tif");
      const double largest = type == "uint8" ? 255.0 : 65535.0;
      double low = largest;
      double high = 0.0;
      std::size_t atEnd = 0;
      std::size_t all = 0;
      for (const auto& band : out.bands) {
        const auto [least, most] = std::minmax_element(band.begin(), band.end());
        low = std::min(low, *least);
        high = std::max(high, *most);
        atEnd += static_cast<std::size_t>(std::count(band.begin(), band.end(), largest));
        all += band.size();
      }
      EXPECT_EQ(low, 0.0);
      EXPECT_EQ(high, largest);
      EXPECT_LT(atEnd, all / 100);
    }
  }
}

TEST_F(NoticesOfRuns, AResultThatDoesNotFitItsTypeIsToldWithARemedy) {
  struct Case {
    std::vector<std::string> options;
    std::string remedy;
  };
  const Case cases[] = {
      {{"--type", "uint8"}, "add --stretch,"},
      {{"--type", "uint8", "--method", "brovey"}, "add --spectral-match off --stretch,"},
      {{"--type", "uint8", "--method", "sharpen"}, "add --auto-level,"},
      {{"--type", "uint16", "--method", "multiplicative", "--spectral-match", "off"}, "add --stretch,"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options));
    const auto notices = Notices(c.options);
    const auto out = Image("out.tif");
    double cut = 0.0;
    const double largest = c.options[1] == "uint8" ? 255.0 : 65535.0;
    for (const auto& band : out.bands) cut += static_cast<double>(std::count(band.begin(), band.end(), largest));
    const auto percent = std::lround(100.0 * cut / (4.0 * 64 * 64));
    ASSERT_EQ(notices.size(), 1U);
    EXPECT_THAT(notices[0],
                testing::StartsWith(std::to_string(percent) + " % of the samples do not fit " + c.options[1]));
    EXPECT_THAT(notices[0], HasSubstr(c.remedy));
  }
  // What fits, or is meant to be cut.
  for (const auto& options : {std::vector<std::string>{"--type", "uint16"},
                              {"--method", "brovey", "--spectral-match", "off"},
                              {"--method", "sharpen", "--type", "uint8", "--auto-level"},
                              {"--type", "float32"}}) {
    EXPECT_THAT(Notices(options), IsEmpty()) << testing::PrintToString(options);
  }
}

}  // namespace

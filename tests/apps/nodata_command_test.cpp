// The command on images with pixels without data.
#include <gdal_priv.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/support/command.h"
#include "tests/support/gap_scene.h"

namespace {

using test_support::CommandResult;
using test_support::GapScene;
using test_support::GapShape;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class NoDataCommand : public testing::Test {
 protected:
  NoDataCommand() : m_gaps(2, GapShape::kHole, PDT_UINT16) {
    for (auto& gaps : m_gaps.msGaps) gaps = m_gaps.msGaps[0];
  }

  /// Writes the scene into the folder, its gaps with a fill value.
  void Write(double fill, std::optional<double> declared, PixelDataType type = PDT_UINT16) const {
    test_support::WriteImage(m_gaps.Pan(fill), m_folder.WidePath("pan.tif"), type, "", declared);
    test_support::WriteImage(m_gaps.Ms(fill), m_folder.WidePath("ms.tif"), type, "", declared);
  }
  CommandResult Fuse(const std::string& out, std::vector<std::string> options) const {
    options.insert(options.begin(),
                   {"fuse", m_folder.Path("pan.tif"), m_folder.Path("ms.tif"), m_folder.Path(out), "--no-overviews"});
    return test_support::RunCommand(FUSION_COMMAND, options);
  }
  test_support::MaskedOutput Output(const std::string& out) const {
    return test_support::ReadMasked(m_folder.WidePath(out));
  }
  double ShareWithData() const {
    int count = 0;
    for (int y = 0; y < 29; ++y) {
      for (int x = 0; x < 37; ++x) count += m_gaps.HasData(x, y);
    }
    return count / (37.0 * 29.0);
  }

  GapScene m_gaps;
  test_support::TemporaryFolder m_folder;
};

TEST_F(NoDataCommand, EveryMethodMasksADeclaredValueByItself) {
  for (const fusion::Method& each : fusion::Methods()) {
    const char* const method = each.name;
    for (const char* match : {"auto", "off"}) {
      SCOPED_TRACE(std::string(method) + ' ' + match);
      const std::vector<std::string> options = {"--method", method,    "--spectral-match", match,
                                                "--json",   "--quiet", "--overwrite"};
      Write(0.0, 0.0);
      const auto run = Fuse("out.tif", options);
      ASSERT_EQ(run.status, 0) << run.err;
      EXPECT_THAT(run.err, IsEmpty());
      EXPECT_NEAR(nlohmann::json::parse(run.out)["valid_share"].get<double>(), ShareWithData(), 1e-12);
      const auto output = Output("out.tif");
      ExpectMask(output, m_gaps);
      Write(65535.0, 65535.0);
      ASSERT_EQ(Fuse("out.tif", options).status, 0);
      test_support::ExpectEqual(Output("out.tif").image, output.image.bands);
    }
  }
}

TEST_F(NoDataCommand, SamplesThatAreNoNumbersAreNeverData) {
  for (const fusion::Method& each : fusion::Methods()) {
    const char* const method = each.name;
    const std::vector<std::string> options = {"--method", method, "--quiet", "--overwrite"};
    for (const PixelDataType type : {PDT_FLOAT32, PDT_FLOAT64}) {
      Write(-9999.0, -9999.0, type);
      ASSERT_EQ(Fuse("out.tif", options).status, 0);
      const auto expected = Output("out.tif");
      ExpectMask(expected, m_gaps);
      for (const double fill : {std::nan(""), double{INFINITY}, double{-INFINITY}}) {
        SCOPED_TRACE(std::string(method) + ' ' + std::to_string(fill));
        Write(fill, std::nullopt, type);
        ASSERT_EQ(Fuse("out.tif", options).status, 0);
        EXPECT_TRUE(Output("out.tif").declaresZero);
        test_support::ExpectEqual(Output("out.tif").image, expected.image.bands);
      }
    }
  }
}

TEST_F(NoDataCommand, OneSampleInAnyChosenBandIsEnough) {
  const auto isMasked = [&](const std::vector<std::string>& options) {
    const auto run = Fuse("out.tif", options);
    EXPECT_EQ(run.status, 0) << run.err;
    return Output("out.tif").declaresZero;
  };
  const std::vector<std::string> plain = {"--method", "brovey", "--quiet", "--overwrite"};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.begin(), plain.begin(), plain.end());
    return more;
  };
  const auto write = [&](const reference::Image& pan, const reference::Image& ms) {
    test_support::WriteImage(pan, m_folder.WidePath("pan.tif"), PDT_FLOAT32);
    test_support::WriteImage(ms, m_folder.WidePath("ms.tif"), PDT_FLOAT32);
  };
  write(m_gaps.scene.pan, m_gaps.scene.ms);
  EXPECT_FALSE(isMasked(plain));

  reference::Image ms = m_gaps.scene.ms;
  ms.bands[2].back() = std::nan("");
  write(m_gaps.scene.pan, ms);
  EXPECT_TRUE(isMasked(plain));
  EXPECT_FALSE(isMasked(with({"--bands", "2,1"})));
  EXPECT_FALSE(isMasked(with({"--nodata-mask", "off"})));

  reference::Image pan = m_gaps.scene.pan;
  pan.bands[0].back() = INFINITY;
  write(pan, m_gaps.scene.ms);
  EXPECT_TRUE(isMasked(plain));
}

TEST_F(NoDataCommand, SaysThatItMasksUnlessToldToBeQuietOrToldToMask) {
  Write(0.0, 0.0);
  const std::string notice = "--nodata-mask off";
  EXPECT_THAT(Fuse("a.tif", {}).err, HasSubstr(notice));
  EXPECT_THAT(Fuse("b.tif", {"--nodata-mask", "on"}).err, Not(HasSubstr(notice)));
  EXPECT_THAT(Fuse("c.tif", {"--quiet"}).err, IsEmpty());
  EXPECT_TRUE(Output("c.tif").declaresZero);
}

TEST_F(NoDataCommand, OffIsTheRawRunAndAutoWithoutAnythingToMaskToo) {
  Write(0.0, 0.0);
  const auto off = Fuse("off.tif", {"--method", "brovey", "--nodata-mask", "off", "--json", "--quiet"});
  ASSERT_EQ(off.status, 0) << off.err;
  EXPECT_TRUE(nlohmann::json::parse(off.out)["valid_share"].is_null());
  EXPECT_FALSE(Output("off.tif").declaresZero);
  Write(0.0, std::nullopt);
  ASSERT_EQ(Fuse("plain.tif", {"--method", "brovey", "--quiet"}).status, 0);
  EXPECT_FALSE(Output("plain.tif").declaresZero);
}

TEST_F(NoDataCommand, AValueCanBeDeclaredForInputsThatForgotTheirs) {
  for (const char* method : {"bayesian", "brovey", "pca", "hpf", "ihs"}) {
    SCOPED_TRACE(method);
    Write(9.0e3, 9.0e3);
    ASSERT_EQ(Fuse("a.tif", {"--method", method, "--quiet", "--overwrite"}).status, 0);
    Write(9.0e3, std::nullopt);
    ASSERT_EQ(Fuse("b.tif", {"--method", method, "--nodata", "9000", "--quiet", "--overwrite"}).status, 0);
    test_support::ExpectEqual(Output("b.tif").image, Output("a.tif").image.bands);
    ExpectMask(Output("b.tif"), m_gaps);
  }
  // A file that declares one keeps its own; a value outside the type is no sample's.
  Write(9.0e3, 9.0e3);
  ASSERT_EQ(Fuse("c.tif", {"--method", "brovey", "--nodata", "-1", "--quiet"}).status, 0);
  ExpectMask(Output("c.tif"), m_gaps);
  ASSERT_EQ(Fuse("e.tif", {"--method", "brovey", "--nodata", "8000", "--quiet"}).status, 0);
  ExpectMask(Output("e.tif"), m_gaps);
  Write(9.0e3, std::nullopt);
  ASSERT_EQ(Fuse("d.tif", {"--method", "brovey", "--nodata", "-1", "--quiet"}).status, 0);
  EXPECT_TRUE(Output("d.tif").declaresZero);
}

TEST_F(NoDataCommand, AMaskThatLeavesNothingOutSwitchesMaskingOnToo) {
  for (const std::string name : {"pan.tif", "ms.tif"}) {
    SCOPED_TRACE(name);
    test_support::WriteImage(m_gaps.scene.pan, m_folder.WidePath("pan.tif"), PDT_UINT16);
    test_support::WriteImage(m_gaps.scene.ms, m_folder.WidePath("ms.tif"), PDT_UINT16);
    const auto& image = name == "pan.tif" ? m_gaps.scene.pan : m_gaps.scene.ms;
    test_support::AddMask(m_folder.WidePath(name), std::vector<bool>(image.bands[0].size(), false));
    const auto run = Fuse("out.tif", {"--method", "brovey", "--json", "--quiet", "--overwrite"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(nlohmann::json::parse(run.out)["valid_share"], 1.0);
    EXPECT_TRUE(Output("out.tif").declaresZero);
  }
}

TEST_F(NoDataCommand, AlphaIsAMaskAndNoBand) {
  Write(0.0, 0.0);
  ASSERT_EQ(Fuse("a.tif", {"--method", "brovey", "--quiet"}).status, 0);
  const auto expected = Output("a.tif");
  Write(1234.0, std::nullopt);
  for (const char* name : {"pan.tif", "ms.tif"}) {
    const bool isPan = std::string(name) == "pan.tif";
    reference::Image image = isPan ? m_gaps.Pan(1234.0) : m_gaps.Ms(1234.0);
    image.bands.emplace_back();
    for (const bool gap : isPan ? m_gaps.panGaps : m_gaps.msGaps[0]) image.bands.back().push_back(gap ? 0.0 : 65535.0);
    test_support::WriteImage(image, m_folder.WidePath(name), PDT_UINT16);
    const std::unique_ptr<GDALDataset> file(
        GDALDataset::Open(m_folder.Path(name).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    file->GetRasterBand(file->GetRasterCount())->SetColorInterpretation(GCI_AlphaBand);
  }
  for (const char* method : {"brovey", "pca", "hpf", "sharpen", "bayesian"}) {
    SCOPED_TRACE(method);
    const auto run = Fuse("b.tif", {"--method", method, "--quiet", "--overwrite"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto output = Output("b.tif");
    ASSERT_EQ(output.image.bands.size(), 3U);
    ExpectMask(output, m_gaps);
    if (std::string(method) == "brovey") test_support::ExpectEqual(output.image, expected.image.bands);
  }
  // A choice of bands is seen through the mask as well.
  ASSERT_EQ(Fuse("c.tif", {"--method", "pca", "--bands", "3,1", "--quiet"}).status, 0);
  ExpectMask(Output("c.tif"), m_gaps);
  ASSERT_EQ(Fuse("d.tif", {"--method", "brovey", "--nodata-mask", "off", "--quiet"}).status, 0);
  EXPECT_EQ(Output("d.tif").image.bands.size(), 4U);
}

/// The mean of a multispectral band over the pan pixels whose nearest sample has data.
double MeanUnderPan(const GapScene& gaps, std::size_t band) {
  const reference::Image& pan = gaps.scene.pan;
  const reference::Image& ms = gaps.scene.ms;
  double sum = 0.0;
  int count = 0;
  for (int y = 0; y < pan.height; ++y) {
    for (int x = 0; x < pan.width; ++x) {
      const double* t = pan.geoTransform;
      const auto p = reference::GroundToSample(ms, t[0] + (x + 0.5) * t[1], t[3] + (y + 0.5) * t[5]);
      const int column = std::clamp(static_cast<int>(p.x + 0.5), 0, ms.width - 1);
      const int row = std::clamp(static_cast<int>(p.y + 0.5), 0, ms.height - 1);
      const auto i = static_cast<std::size_t>(row * ms.width + column);
      if (gaps.msGaps[band][i]) continue;
      sum += ms.bands[band][i];
      ++count;
    }
  }
  return sum / count;
}

TEST_F(NoDataCommand, EvaluateLeavesOutWhatTheImagesLack) {
  const auto evaluate = [&] {
    const auto run = test_support::RunCommand(
        FUSION_COMMAND, {"evaluate", m_folder.Path("pan.tif"), m_folder.Path("ms.tif"), m_folder.Path("fused.tif"),
                         "--metric", "entropy,statistics,gradient", "--json", "--quiet"});
    EXPECT_EQ(run.status, 0) << run.err;
    return nlohmann::json::parse(run.out);
  };
  Write(0.0, 0.0);
  ASSERT_EQ(Fuse("fused.tif", {"--method", "bayesian", "--quiet"}).status, 0);
  const auto expected = evaluate();
  EXPECT_GT(expected["statistics"]["m_pCorrelation"][0].get<double>(), 0.9);
  for (std::size_t b = 0; b < 3; ++b) {
    EXPECT_NEAR(expected["statistics"]["m_pMulMean"][b].get<double>(), MeanUnderPan(m_gaps, b), 1e-9);
  }

  // Masks.
  Write(60000.0, std::nullopt);
  test_support::AddMask(m_folder.WidePath("pan.tif"), m_gaps.panGaps);
  test_support::AddMask(m_folder.WidePath("ms.tif"), m_gaps.msGaps[0]);
  EXPECT_EQ(evaluate(), expected);
  // Alpha, which is no band to compare.
  for (const char* name : {"pan.tif", "ms.tif"}) {
    const bool isPan = std::string(name) == "pan.tif";
    reference::Image image = isPan ? m_gaps.Pan(60000.0) : m_gaps.Ms(60000.0);
    image.bands.emplace_back();
    for (const bool gap : isPan ? m_gaps.panGaps : m_gaps.msGaps[0]) image.bands.back().push_back(gap ? 0.0 : 65535.0);
    test_support::WriteImage(image, m_folder.WidePath(name), PDT_UINT16);
    const std::unique_ptr<GDALDataset> file(
        GDALDataset::Open(m_folder.Path(name).c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    file->GetRasterBand(file->GetRasterCount())->SetColorInterpretation(GCI_AlphaBand);
  }
  EXPECT_EQ(evaluate(), expected);
  // No numbers.
  for (const double fill : {std::nan(""), double{INFINITY}}) {
    Write(fill, std::nullopt, PDT_FLOAT32);
    EXPECT_EQ(evaluate(), expected);
  }
}

TEST_F(NoDataCommand, OptionsThatMakeNoSenseAreWrongUsage) {
  Write(0.0, 0.0);
  for (const auto& options : {std::vector<std::string>{"--nodata-mask", "maybe"},
                              {"--nodata", "x"},
                              {"--nodata", "0", "--nodata-mask", "off"}}) {
    const auto run = Fuse("out.tif", options);
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("--nodata"));
  }
}

}  // namespace

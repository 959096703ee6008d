// How an output was made, as it tells itself: in its metadata, by info, verify and fuse --repeat.
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/raster/companions.h"
#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/apps/scene_command.h"
#include "tests/support/test_raster.h"

namespace {

using nlohmann::json;
using test_support::FileBytes;
using test_support::Quoted;
using testing::HasSubstr;

class ProvenanceTest : public SceneCommand {
 protected:
  void SetUp() override {
    SceneCommand::SetUp();
    GDALAllRegister();
  }
  json Info(const std::string& name) const {
    const auto run = Run({"info", Path(name), "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out, nullptr, false);
  }
  void Make(const std::string& out, std::vector<std::string> options) const {
    options.insert(options.end(), {"--quiet", "--overwrite"});
    const auto run = Fuse(out, options);
    ASSERT_EQ(run.status, 0) << run.err;
  }
  /// The samples of 16-bit bands, bit by bit.
  static std::string Crc(const std::vector<double>& samples) {
    std::uint32_t state = 0xFFFFFFFFU;
    for (const double v : samples) {
      const auto sample = static_cast<std::uint32_t>(v);
      for (unsigned bit = 0; bit < 16; ++bit) {
        state = (state >> 1U) ^ (((state ^ (sample >> bit)) & 1U) != 0 ? 0x82F63B78U : 0U);
      }
    }
    char text[16];
    std::snprintf(text, sizeof(text), "%08x", ~state);
    return text;
  }
};

TEST_F(ProvenanceTest, StandsInTheOutputOfEveryMethod) {
  for (const fusion::Method& method : fusion::Methods()) {
    SCOPED_TRACE(method.name);
    Make("out.tif", {"--method", method.name, "--bands", "3,2,1", "--no-overviews"});
    EXPECT_FALSE(m_folder.Has("out.tif.aux.xml"));
    const std::unique_ptr<GDALDataset> file(GDALDataset::Open(Path("out.tif").c_str(), GDAL_OF_RASTER));
    const auto fact = [&](const char* name) {
      const char* value = file->GetMetadataItem(name, "FUSION");
      return std::string(value ? value : "");
    };
    EXPECT_EQ(fact("METHOD"), method.name);
    EXPECT_THAT(fact("OPTIONS"), HasSubstr("--bands 3,2,1 --no-overviews"));
    EXPECT_EQ(fact("PAN"), Path("pan.tif"));
    EXPECT_EQ(fact("PAN_SIZE"), "64x64, 1 band of uint16");
    EXPECT_EQ(fact("MS_SIZE"), "16x16, 4 bands of uint16");
    EXPECT_THAT(fact("OUTPUT"), HasSubstr("64x64, 3 bands of uint16"));
    EXPECT_EQ(fact("TIME"), "2023-11-14T22:13:20Z") << "of SOURCE_DATE_EPOCH";
    EXPECT_EQ("fusion " + fact("VERSION") + "\n", Run({"--version"}).out);
    const reference::Image image = Image("out.tif");
    EXPECT_THAT(fact("CHECKSUM"),
                HasSubstr(Crc(image.bands[0]) + " " + Crc(image.bands[1]) + " " + Crc(image.bands[2])));
    EXPECT_EQ(Run({"verify", Path("out.tif"), "--quiet"}).status, 0);
  }
}

#ifndef _WIN32
TEST_F(ProvenanceTest, HeadersAreToldByADigestThatOthersCompute) {
  Make("out.tif", {"--method", "brovey"});
  const json info = Info("out.tif");
  ASSERT_EQ(info["inputs"].size(), 2U);
  for (const auto& input : info["inputs"]) {
    const std::string file = Quoted(input["path"].get<std::string>());
    std::string line = "(head -c 65536 " + file + "; tail -c 65536 ";
    line.append(file).append(") | sha256sum > ").append(Quoted(Path("sum")));
    ASSERT_EQ(test_support::RunShell(line), 0);
    EXPECT_EQ(input["header"], FileBytes(Path("sum")).substr(0, 64));
  }
}

TEST_F(ProvenanceTest, TheCommandThatItRepeatsMakesTheSameFile) {
  const std::string pan = Path("the pan's \"own\" $HOME image.tif");
  ASSERT_EQ(test_support::RunShell("cp " + Quoted(Path("pan.tif")) + ' ' + Quoted(pan)), 0);
  const std::vector<std::vector<std::string>> cases = {
      {"--method", "hpf", "--detail-weight", "0.7", "--kernel-size", "9", "--no-overviews"},
      {"--method", "bayesian", "--bands", "4,1", "--window", "-3,5,40,40", "--type", "float32"},
      {"--method", "brovey", "--spectral-match", "off", "--stretch", "--co", "COMPRESS=DEFLATE", "--co", "TILED=YES"},
  };
  for (std::vector<std::string> options : cases) {
    SCOPED_TRACE(testing::PrintToString(options));
    options.insert(options.begin(), {"fuse", pan, Path("ms.tif"), Path("out.tif"), "--quiet"});
    ASSERT_EQ(Run(options).status, 0);
    const auto repeat = Run({"fuse", "--repeat", Path("out.tif")});
    ASSERT_EQ(repeat.status, 0) << repeat.err;
    ASSERT_THAT(repeat.out, testing::StartsWith("fusion fuse "));
    ASSERT_EQ(test_support::RunShell("mv " + Quoted(Path("out.tif")) + ' ' + Quoted(Path("first.tif"))), 0);
    const std::string line = Quoted(FUSION_COMMAND) + repeat.out.substr(6, repeat.out.size() - 7) + " --quiet";
    ASSERT_EQ(test_support::RunShell(line), 0) << line;
    EXPECT_EQ(Image("out.tif").bands, Image("first.tif").bands);
    EXPECT_TRUE(FileBytes(Path("out.tif")) == FileBytes(Path("first.tif")));
    ASSERT_EQ(test_support::RunShell("rm " + Quoted(Path("out.tif"))), 0);
  }
}
#else
TEST_F(ProvenanceTest, HeadersAreToldByADigestThatOthersCompute) {
  GTEST_SKIP() << "no shell with a program for digests here";
}
TEST_F(ProvenanceTest, TheCommandThatItRepeatsMakesTheSameFile) {
  GTEST_SKIP() << "the command is quoted for another shell than the one here";
}
#endif

TEST_F(ProvenanceTest, TellsTheModel) {
  Make("out.tif", {"--method", "brovey"});
  const reference::Image ms = Image("ms.tif");
  json model = Info("out.tif")["model"];
  for (std::size_t b = 0; b < 4; ++b) {
    double sum = 0.0;
    double squares = 0.0;
    for (const double v : ms.bands[b]) sum += v;
    const double mean = sum / 256.0;
    for (const double v : ms.bands[b]) squares += (v - mean) * (v - mean);
    EXPECT_NEAR(model["target_means"][b].get<double>(), mean, 1e-8 * mean);
    // Single values may count as lying nearer.
    EXPECT_NEAR(model["target_deviations"][b].get<double>(), std::sqrt(squares / 256.0), 0.1 * mean);
  }
  // The components are directions along which the bands do not vary together.
  Make("out.tif", {"--method", "pca"});
  model = Info("out.tif")["model"];
  ASSERT_EQ(model["components"].size(), 16U);
  const auto along = [&](std::size_t component, std::size_t pixel) {
    double sum = 0.0;
    for (std::size_t b = 0; b < 4; ++b) {
      sum +=
          model["components"][4 * component + b].get<double>() * (ms.bands[b][pixel] - model["means"][b].get<double>());
    }
    return sum;
  };
  double products = 0.0;
  double first = 0.0;
  double second = 0.0;
  for (std::size_t i = 0; i < 256; ++i) {
    products += along(0, i) * along(1, i);
    first += along(0, i) * along(0, i);
    second += along(1, i) * along(1, i);
  }
  EXPECT_LT(std::fabs(products), 1e-6 * std::sqrt(first * second));
  EXPECT_GT(first, 0.0);

  const auto bayesian = Fuse("out.tif", {"--method", "bayesian", "--json", "--quiet", "--overwrite"});
  const json report = json::parse(bayesian.out);
  model = Info("out.tif")["model"];
  for (std::size_t b = 0; b < 4; ++b) {
    EXPECT_NEAR(model["gains"][b].get<double>(), report["model"]["gains"][b].get<double>(), 1e-9);
  }
  Make("out.tif", {"--method", "hpf", "--detail-weight", "0.25", "--no-overviews"});
  model = Info("out.tif")["model"];
  EXPECT_EQ(model["detail_weight"][0], 0.25);
  // Gains are the bands' deviations over that of the detail, times the weight.
  const double detail = 0.25 * model["target_deviations"][0].get<double>() / model["gains"][0].get<double>();
  for (std::size_t b = 1; b < 4; ++b) {
    EXPECT_NEAR(0.25 * model["target_deviations"][b].get<double>() / model["gains"][b].get<double>(), detail,
                1e-8 * detail);
  }
  Make("out.tif", {"--method", "weighted"});
  model = Info("out.tif")["model"];
  ASSERT_EQ(model["weights"].size(), 4U);
  for (const auto& weight : model["weights"]) EXPECT_TRUE(weight > 0.0 && weight <= 0.5) << "the root of r over four";
}

TEST_F(ProvenanceTest, OtherFormatsTellItToo) {
  const std::vector<std::vector<std::string>> cases = {{"out.img"},
                                                       {"out.dat"},
                                                       {"out.jp2"},
                                                       {"out.png", "--bands", "3,2,1"},
                                                       {"out.jpg", "--bands", "3,2,1", "--type", "uint8"},
                                                       {"cog.tif", "--format", "COG"}};
  for (const auto& c : cases) {
    if (test_support::IsOfUnknownFormat(c[0])) continue;
    SCOPED_TRACE(c[0]);
    std::vector<std::string> options(c.begin() + 1, c.end());
    options.insert(options.end(), {"--method", "brovey"});
    Make(c[0], options);
    EXPECT_EQ(Info(c[0])["method"], "brovey");
    const auto verified = Run({"verify", Path(c[0]), "--quiet"});
    EXPECT_EQ(verified.status, 0) << verified.err;
  }
  // Values that are not kept as they were are those of the file.
  Make("lossy.tif", {"--method", "brovey", "--bands", "3,2,1", "--type", "uint8", "--co", "COMPRESS=JPEG"});
  EXPECT_EQ(Run({"verify", Path("lossy.tif"), "--quiet"}).status, 0);
}

TEST_F(ProvenanceTest, IsLeftOutOnRequest) {
  Make("out.tif", {"--method", "brovey", "--no-provenance"});
  const auto info = Run({"info", Path("out.tif")});
  EXPECT_EQ(info.status, 2);
  EXPECT_EQ(info.err, "fusion: " + Path("out.tif") + " does not tell how it was made.\n");
  EXPECT_EQ(Run({"verify", Path("ms.tif")}).status, 2);
  EXPECT_EQ(Run({"fuse", "--repeat", Path("ms.tif")}).status, 2);
  EXPECT_EQ(Run({"info", Path("nix.tif")}).status, 1);
}

TEST_F(ProvenanceTest, AFactOfTheImageThatIsLargeTakesNothingAway) {
  {
    const std::unique_ptr<GDALDataset> ms(GDALDataset::Open(Path("ms.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ms->SetMetadataItem("NOTES", std::string(60000, 'n').c_str());
  }
  Make("out.tif", {"--method", "brovey"});
  EXPECT_EQ(Info("out.tif")["checksums"].size(), 4U);
}

TEST_F(ProvenanceTest, ThatTimeIsTheClocksWhereNobodySetsAnother) {
#ifndef _WIN32
  const std::string line = "env -u SOURCE_DATE_EPOCH " + Quoted(FUSION_COMMAND) + " fuse " + Quoted(Path("pan.tif")) +
                           ' ' + Quoted(Path("ms.tif")) + ' ' + Quoted(Path("out.tif")) + " --method brovey --quiet";
  ASSERT_EQ(test_support::RunShell(line), 0);
  const auto time = Info("out.tif")["time"].get<std::string>();
  EXPECT_GT(time, "2024") << time;
  EXPECT_EQ(time.size(), 20U);
#else
  GTEST_SKIP() << "no shell that takes a variable away here";
#endif
}

TEST_F(ProvenanceTest, ChangedSamplesAreNoticed) {
  Make("out.tif", {"--method", "brovey", "--no-overviews"});
  {
    const std::unique_ptr<GDALDataset> file(
        GDALDataset::Open(Path("out.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    std::uint16_t sample = 0;
    GDALRasterBand& band = *file->GetRasterBand(3);
    ASSERT_EQ(band.RasterIO(GF_Read, 63, 63, 1, 1, &sample, 1, 1, GDT_UInt16, 0, 0), CE_None);
    sample ^= 1U;
    ASSERT_EQ(band.RasterIO(GF_Write, 63, 63, 1, 1, &sample, 1, 1, GDT_UInt16, 0, 0), CE_None);
  }
  const auto run = Run({"verify", Path("out.tif"), "--json", "--quiet"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("band 3, are not those that were written."));
  EXPECT_EQ(json::parse(run.out)["error_type"], 2);
}

TEST_F(ProvenanceTest, ATruncatedFileIsNoticed) {
  Make("out.tif", {"--method", "brovey"});
  const std::string bytes = FileBytes(Path("out.tif"));
  std::ofstream(CommonFun::ToPath(m_folder.WidePath("out.tif")), std::ios::binary)
      << bytes.substr(0, bytes.size() - 1000);
  EXPECT_EQ(Run({"verify", Path("out.tif"), "--quiet"}).status, 1);
}

TEST_F(ProvenanceTest, OutputsThatAreBroughtOntoTheDiskAreTheSame) {
  Make("a.tif", {"--method", "hpf"});
  Make("b.tif", {"--method", "hpf", "--sync"});
  EXPECT_TRUE(FileBytes(Path("a.tif")) == FileBytes(Path("b.tif")));
}

}  // namespace

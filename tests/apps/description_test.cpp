// What the multispectral image says of its bands, in the output.
#include <gdal_priv.h>
#include <gmock/gmock.h>

#include <fstream>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/apps/scene_command.h"

namespace {

class Description : public SceneCommand {
 protected:
  using File = std::unique_ptr<GDALDataset>;

  void SetUp() override {
    SceneCommand::SetUp();
    GDALAllRegister();
    const File ms(GDALDataset::Open(Path("ms.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    const char* const kNames[] = {"blue", "green", "red", "Nahes Infrarot é"};
    const GDALColorInterp kColours[] = {GCI_BlueBand, GCI_GreenBand, GCI_RedBand, GCI_Undefined};
    for (int b = 1; b <= 4; ++b) {
      GDALRasterBand& band = *ms->GetRasterBand(b);
      band.SetDescription(kNames[b - 1]);
      band.SetColorInterpretation(kColours[b - 1]);
      band.SetScale(0.0001 * b);
      band.SetOffset(-0.1 * b);
      band.SetUnitType("reflectance");
      band.SetMetadataItem("WAVELENGTH", std::to_string(400 + 100 * b).c_str());
      band.SetMetadataItem("RADIANCE_MULT", "7");
      band.SetStatistics(1, 2, 3, 4);
    }
    ms->SetMetadataItem("ACQUISITION", "2024-05-17");
    ms->SetMetadataItem("AREA_OR_POINT", "Point");
    ms->SetMetadataItem("TIFFTAG_SOFTWARE", "somebody else's");
    ms->SetMetadataItem("TIFFTAG_COPYRIGHT", "nobody");
  }
  File Open(const std::string& name) const { return File(GDALDataset::Open(Path(name).c_str(), GDAL_OF_RASTER)); }
  /// Fuses quietly and opens the output.
  File Fused(std::vector<std::string> options, const std::string& out = "out.tif") const {
    options.insert(options.end(), {"--quiet", "--overwrite"});
    const auto run = Fuse(out, options);
    EXPECT_EQ(run.status, 0) << run.err;
    File file = Open(out);
    EXPECT_TRUE(file);
    return file;
  }
  static std::string Fact(GDALMajorObject& object, const char* name) {
    const char* value = object.GetMetadataItem(name);
    return value ? value : "";
  }
};

TEST_F(Description, BandsKeepTheirNamesColoursAndFactsInTheirNewPlaces) {
  for (const fusion::Method& method : fusion::Methods()) {
    SCOPED_TRACE(method.name);
    const File file = Fused({"--method", method.name, "--bands", "4,2,3"});
    ASSERT_EQ(file->GetRasterCount(), 3);
    EXPECT_STREQ(file->GetRasterBand(1)->GetDescription(), "Nahes Infrarot é");
    EXPECT_STREQ(file->GetRasterBand(2)->GetDescription(), "green");
    EXPECT_STREQ(file->GetRasterBand(3)->GetDescription(), "red");
    EXPECT_EQ(file->GetRasterBand(1)->GetColorInterpretation(), GCI_Undefined);
    EXPECT_EQ(file->GetRasterBand(2)->GetColorInterpretation(), GCI_GreenBand);
    EXPECT_EQ(file->GetRasterBand(3)->GetColorInterpretation(), GCI_RedBand);
    EXPECT_EQ(Fact(*file->GetRasterBand(1), "WAVELENGTH"), "800");
    EXPECT_EQ(Fact(*file->GetRasterBand(2), "WAVELENGTH"), "600");
    EXPECT_EQ(Fact(*file->GetRasterBand(1), "STATISTICS_MEAN"), "");
    EXPECT_EQ(Fact(*file, "ACQUISITION"), "2024-05-17");
    EXPECT_EQ(Fact(*file, "TIFFTAG_COPYRIGHT"), "nobody");
    EXPECT_EQ(Fact(*file, "TIFFTAG_SOFTWARE"), "");
    EXPECT_EQ(Fact(*file, "AREA_OR_POINT"), "Area");
    EXPECT_FALSE(m_folder.Has("out.tif.aux.xml"));
  }
}

TEST_F(Description, ScalesHoldWhereTheResultIsOnTheBandsScale) {
  struct Case {
    std::vector<std::string> options;
    bool holds;
  };
  const Case cases[] = {
      {{"--method", "bayesian"}, true},
      {{"--method", "pca"}, true},
      {{"--method", "hpf"}, true},
      {{"--method", "brovey"}, true},
      {{"--method", "brovey", "--type", "float32"}, true},
      {{"--method", "multiplicative"}, true},
      {{"--method", "weighted"}, true},
      {{"--method", "ihs"}, true},
      {{"--method", "sharpen"}, true},
      {{"--method", "brovey", "--spectral-match", "off"}, false},
      {{"--method", "multiplicative", "--spectral-match", "off"}, false},
      {{"--method", "weighted", "--spectral-match", "off"}, false},
      {{"--method", "ihs", "--spectral-match", "off"}, false},
      {{"--method", "sharpen", "--spectral-match", "off"}, false},
      {{"--method", "pca", "--stretch"}, false},
      {{"--method", "bayesian", "--stretch"}, false},
      {{"--method", "hpf", "--auto-level"}, false},
      {{"--method", "sharpen", "--auto-level"}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options));
    const File file = Fused(c.options);
    GDALRasterBand& band = *file->GetRasterBand(3);
    EXPECT_STREQ(band.GetDescription(), "red");
    EXPECT_EQ(Fact(band, "WAVELENGTH"), "700");
    EXPECT_DOUBLE_EQ(band.GetScale(), c.holds ? 0.0003 : 1.0);
    EXPECT_DOUBLE_EQ(band.GetOffset(), c.holds ? -0.3 : 0.0);
    EXPECT_STREQ(band.GetUnitType(), c.holds ? "reflectance" : "");
    EXPECT_EQ(Fact(band, "RADIANCE_MULT"), c.holds ? "7" : "");
  }
}

TEST_F(Description, OtherFormatsKeepWhatTheyCan) {
  for (const std::string out : {"out.img", "out.dat"}) {
    const File file = Fused({"--method", "brovey"}, out);
    EXPECT_STREQ(file->GetRasterBand(1)->GetDescription(), "blue") << out;
    EXPECT_STREQ(file->GetRasterBand(4)->GetDescription(), "Nahes Infrarot é") << out;
  }
  const File cog = Fused({"--method", "brovey", "--format", "COG"}, "cog.tif");
  EXPECT_STREQ(cog->GetRasterBand(3)->GetDescription(), "red");
  EXPECT_EQ(cog->GetRasterBand(3)->GetColorInterpretation(), GCI_RedBand);
  const File picture = Fused({"--method", "brovey", "--bands", "3,2,1"}, "out.png");
  EXPECT_STREQ(picture->GetRasterBand(1)->GetDescription(), "red");
}

TEST_F(Description, ColoursThatAFormatDoesNotReadBackBringNoFile) {
  {
    const File ms(GDALDataset::Open(Path("truth.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ms->GetRasterBand(1)->SetColorInterpretation(GCI_BlueBand);
  }
  const auto run = Run({"fuse", Path("pan.tif"), Path("truth.tif"), Path("out.img"), "--method", "brovey", "--quiet",
                        "--no-provenance"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(m_folder.Has("out.img.aux.xml"));
}

TEST_F(Description, ARotatedImageKeepsItToo) {
  {
    const File ms(GDALDataset::Open(Path("ms.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    double t[6];
    ms->GetGeoTransform(t);
    t[2] = t[4] = 1e-3;
    ms->SetGeoTransform(t);
  }
  const File file = Fused({"--method", "brovey"});
  EXPECT_STREQ(file->GetRasterBand(2)->GetDescription(), "green");
  EXPECT_EQ(Fact(*file, "ACQUISITION"), "2024-05-17");
}

TEST_F(Description, NothingOfTheFileIsWrittenTwice) {
  for (const std::vector<std::string>& options : {std::vector<std::string>{"--method", "brovey"},
                                                  {"--method", "bayesian"},
                                                  {"--method", "hpf", "--no-overviews"},
                                                  {"--method", "sharpen", "--no-overviews"}}) {
    Fused(options).reset();
    std::ifstream file(CommonFun::ToPath(m_folder.WidePath("out.tif")), std::ios::binary);
    unsigned char header[8] = {};
    file.read(reinterpret_cast<char*>(header), 8);
    // A directory that is written a second time moves behind the pixels.
    EXPECT_EQ(header[4] | header[5] << 8 | header[6] << 16 | header[7] << 24, 8) << options[1];
  }
}

}  // namespace

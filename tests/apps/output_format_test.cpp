// Formats: what each one holds, and names that would pass for files of another kind.
#include "runs/output_format.h"

#include <gdal_priv.h>
#include <gmock/gmock.h>

#include "runs/run_failure.h"
#include "tests/apps/scene_command.h"
#include "tests/support/test_raster.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class OutputFormat : public SceneCommand {
 protected:
  /// The driver that opens an output, the colour of its last band, and its number of bands.
  struct Seen {
    std::string driver;
    GDALColorInterp lastColour;
    int bands;
    GDALDataType type;
  };
  Seen Look(const std::string& name) const {
    GDALAllRegister();
    const std::unique_ptr<GDALDataset> file(GDALDataset::Open(Path(name).c_str(), GDAL_OF_RASTER));
    if (!file) return {"none", GCI_Undefined, 0, GDT_Unknown};
    GDALRasterBand& last = *file->GetRasterBand(file->GetRasterCount());
    return {file->GetDriver()->GetDescription(), last.GetColorInterpretation(), file->GetRasterCount(),
            last.GetRasterDataType()};
  }
};

TEST_F(OutputFormat, WhatItCannotHoldIsRefusedWithARemedy) {
  struct Case {
    std::vector<std::string> options;
    std::string out;
    std::vector<std::string> remedies;
  };
  const Case cases[] = {
      {{}, "out.jpg", {"JPEG holds 1 or 3 bands of uint8", "4 of uint16", "--bands 3,2,1", "--type uint8"}},
      {{"--bands", "1,2,3"}, "out.jpeg", {"--type uint8"}},
      {{"--type", "uint8"}, "out.JPG", {"--bands 3,2,1"}},
      {{"--bands", "1,2", "--type", "uint8"}, "out.jpg", {"2 of uint8", "--bands"}},
      {{}, "out.png", {"PNG holds 1 or 3 bands of uint8 or uint16", "--bands 3,2,1"}},
      {{"--bands", "1,2"}, "out.png", {"--bands"}},
      {{"--bands", "1,2,3", "--type", "int16"}, "out.png", {"--type uint8 or uint16"}},
      {{"--bands", "1,2,3", "--type", "float32"}, "out.png", {"--type"}},
      {{"--type", "float64"}, "out.jp2", {"JPEG 2000 holds bands of uint8, uint16 or int16", "--type"}},
      {{"--type", "int32"}, "out.jp2", {"--type"}},
      {{"--format", "PNG"}, "out.tif", {"--bands"}},
      {{"--method", "hpf", "--bands", "1,2,3"}, "out.jpg", {"--auto-level"}},
      {{"--method", "hpf", "--make-green"}, "out.jp2", {"4 of float32", "--auto-level"}},
      {{"--method", "multiplicative", "--spectral-match", "off", "--bands", "1,2,3"}, "out.png", {"3 of float32"}},
  };
  for (const Case& wrong : cases) {
    if (test_support::IsOfUnknownFormat(wrong.out)) continue;
    const auto run = Fuse(wrong.out, wrong.options);
    EXPECT_EQ(run.status, 2) << wrong.out;
    EXPECT_THAT(run.err, testing::StartsWith("fusion: ")) << wrong.out;
    EXPECT_THAT(run.err, HasSubstr("another format")) << wrong.out;
    for (const auto& remedy : wrong.remedies) EXPECT_THAT(run.err, HasSubstr(remedy)) << wrong.out;
  }
  EXPECT_THAT(Fuse("out.jpg", {"--type", "uint8"}).err, Not(HasSubstr("--type"))) << "what is right needs no remedy";
  EXPECT_THAT(NewNames(), IsEmpty());
}

TEST_F(OutputFormat, WhatItHoldsIsWritten) {
  struct Case {
    std::vector<std::string> options;
    std::string out;
    std::string driver;
    GDALColorInterp lastColour;
    int bands;
    GDALDataType type;
  };
  const Case cases[] = {
      {{"--bands", "3,2,1", "--type", "uint8"}, "a.jpg", "JPEG", GCI_BlueBand, 3, GDT_Byte},
      {{"--bands", "3,2,1", "--type", "uint8"}, "a.png", "PNG", GCI_BlueBand, 3, GDT_Byte},
      {{"--bands", "3,2,1"}, "b.png", "PNG", GCI_BlueBand, 3, GDT_UInt16},
      {{}, "a.jp2", "JP2OpenJPEG", GCI_Undefined, 4, GDT_UInt16},
      {{"--type", "int16"}, "b.jp2", "JP2OpenJPEG", GCI_Undefined, 4, GDT_Int16},
      {{"--type", "float64"}, "a.img", "HFA", GCI_Undefined, 4, GDT_Float64},
      {{"--type", "uint32"}, "a.dat", "ENVI", GCI_Undefined, 4, GDT_UInt32},
      {{"--type", "uint8"}, "a.tif", "GTiff", GCI_Undefined, 4, GDT_Byte},
      {{"--format", "COG", "--type", "uint8"}, "cog.tif", "GTiff", GCI_Undefined, 4, GDT_Byte},
      {{"--method", "hpf", "--auto-level", "--bands", "3,2,1"}, "c.jpg", "JPEG", GCI_BlueBand, 3, GDT_Byte},
  };
  for (const Case& right : cases) {
    if (test_support::IsOfUnknownFormat(right.out)) continue;
    auto options = right.options;
    options.emplace_back("--quiet");
    const auto run = Fuse(right.out, options);
    EXPECT_EQ(run.status, 0) << right.out << run.err;
    const Seen seen = Look(right.out);
    EXPECT_EQ(seen.driver, right.driver) << right.out;
    EXPECT_EQ(seen.lastColour, right.lastColour) << right.out;
    EXPECT_EQ(seen.bands, right.bands) << right.out;
    EXPECT_EQ(seen.type, right.type) << right.out;
  }
}

TEST_F(OutputFormat, NamesOfOtherKindsOfFilesAreRefused) {
  for (const std::string out :
       {"out.vrt", "out.xyz", "out.XYZ", "out.shp", "out.nc", "out.gif", "out.bil", "out.hdr"}) {
    if (test_support::IsOfUnknownFormat(out)) continue;
    const auto run = Fuse(out, {"--method", "brovey"});
    EXPECT_EQ(run.status, 2) << out;
    EXPECT_THAT(run.err, HasSubstr(".tif")) << out;
    EXPECT_THAT(run.err, HasSubstr("--format")) << out;
  }
  EXPECT_THAT(NewNames(), IsEmpty());
  const auto dash = Run({"fuse", Path("pan.tif"), Path("ms.tif"), "-"});
  EXPECT_EQ(dash.status, 2);
  EXPECT_THAT(dash.err, HasSubstr("standard output"));
  EXPECT_THROW(fusion::ChooseFormat("-", "GeoTIFF"), fusion::RunFailure);
}

TEST_F(OutputFormat, NamesThatNobodyKnowsAndFormatsByNameAreTaken) {
  for (const std::string out : {"plain", "out.fused", "out.2024"}) {
    EXPECT_EQ(Fuse(out, {"--method", "brovey", "--quiet"}).status, 0) << out;
    EXPECT_EQ(Look(out).driver, "GTiff") << out;
  }
  EXPECT_EQ(Fuse("named.vrt", {"--method", "brovey", "--format", "GeoTIFF", "--quiet"}).status, 0);
  EXPECT_EQ(Look("named.vrt").driver, "GTiff");
}

}  // namespace

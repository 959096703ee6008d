// Outputs that are looked at before they get their names, and what they tell, for programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "platform/raster/memory_raster.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "runs/options.h"
#include "runs/output_notes.h"
#include "runs/provenance.h"
#include "tests/support/run_scene.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ProvenanceRun : public test_support::RunScene {
 protected:
  static std::string Refusal(const std::function<void()>& work) {
    try {
      work();
    } catch (const fusion::RunFailure& failure) {
      return failure.Sentence();
    }
    return "";
  }
};

TEST_F(ProvenanceRun, AnOutputThatReadsAsAnotherThingGetsNoName) {
  auto request = Request("brovey", "out.tif");
  // Something replaces the file before it is opened again.
  const auto ms = CommonFun::ToPath(m_folder.WidePath("ms.tif"));
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
    const auto file = CommonFun::ToPath(path);
    if (operation == platform::RasterOperation::kOpen && file.filename() == "out.tif" &&
        std::filesystem::remove(file)) {
      std::filesystem::copy_file(ms, file);
    }
    return false;
  });
  const std::string refusal = Refusal([&] { fusion::Fuse(request); });
  platform::SetRasterFault({});
  EXPECT_EQ(refusal, request.out +
                         " was not written as it should be: it was made as 40x40 with 4 bands and reads as 20x20 with "
                         "4 bands.");
  EXPECT_FALSE(m_folder.Has("out.tif"));
}

TEST_F(ProvenanceRun, SamplesInMemoryHaveNoNameThatAnotherRunCouldUse) {
  const std::vector<unsigned char> samples(1600, 7);
  platform::MemorySamples array;
  array.first = samples.data();
  array.type = PDT_UINT8;
  array.width = array.height = 40;
  array.bands = 1;
  array.pixelSpace = 1;
  array.lineSpace = 40;
  array.bandSpace = 1600;
  const double place[] = {0.0, 1.0, 0.0, 0.0, 0.0, -1.0};
  const platform::MemoryRaster pan(array, place, "");
  auto request = Request("brovey", "out.tif");
  request.pan = pan.Path();
  fusion::Fuse(request);
  const fusion::Provenance told = fusion::ReadProvenance(request.out);
  ASSERT_EQ(told.inputs.size(), 2U);
  EXPECT_EQ(told.inputs[0].path, "an array in memory");
  EXPECT_EQ(told.inputs[0].size, "40x40, 1 band of uint8");
  EXPECT_EQ(told.inputs[0].header, "");
  EXPECT_EQ(told.inputs[1].path, request.ms);
  EXPECT_EQ(fusion::RepeatCommand(told, request.out), "");
}

TEST_F(ProvenanceRun, ArgumentsAreThoseThatDifferFromTheDefaults) {
  fusion::FuseRequest request;
  EXPECT_THAT(fusion::ArgumentsOf(request), IsEmpty());
  request.pan = "pan.tif";
  request.threads = "3";
  request.overwrite = true;
  request.method = "hpf";
  request.bands = {3, 1};
  request.makeGreen = true;
  request.detailWeight = -0.1;
  request.kernelSize = 7;
  request.creationOptions = {"A=1,2", "B=3"};
  EXPECT_THAT(fusion::ArgumentsOf(request),
              ElementsAre("--method", "hpf", "--bands", "3,1", "--make-green", "--kernel-size", "7",
                          "--detail-weight=-0.1", "--co", "A=1,2", "--co", "B=3"));
}

TEST_F(ProvenanceRun, IsThereForPrograms) {
  auto request = Request("weighted");
  request.bands = {2, 4};
  fusion::Fuse(request);
  const fusion::Provenance p = fusion::VerifyOutput(request.out);
  EXPECT_EQ(p.method, "weighted");
  EXPECT_EQ(p.options, "--method weighted --bands 2,4");
  EXPECT_EQ(p.output, "40x40, 2 bands of uint16");
  ASSERT_EQ(p.inputs.size(), 2U);
  EXPECT_EQ(p.inputs[1].path, request.ms);
  EXPECT_EQ(p.checksums.size(), 2U);
  ASSERT_EQ(p.model.size(), 3U);
  EXPECT_EQ(p.model[1].name, "target_means");
  EXPECT_EQ(p.model[1].values.size(), 2U);
}

TEST_F(ProvenanceRun, AFileThatIsCutToAPartIsNoLongerTheOutput) {
  const auto request = Request("brovey");
  fusion::Fuse(request);
  CRasterSource whole;
  ASSERT_TRUE(whole.OpenSimple(CommonFun::Utf82U(request.out)));
  auto facts = platform::RasterNotes::Read(whole, fusion::kNotesDomain);
  platform::RasterNotes notes(fusion::kNotesDomain);
  for (const auto& [name, value] : facts) notes.Set(name, value);
  {
    CRasterSource part;
    ASSERT_TRUE(part.CreateRaster(kFormatGeoTiff, m_folder.WidePath("part.tif"), 40, 20, 4, PDT_UINT16, nullptr, L"",
                                  std::vector<std::string>{}));
    notes.Apply(part);
  }
  EXPECT_THAT(Refusal([&] { fusion::VerifyOutput(m_folder.Path("part.tif")); }),
              HasSubstr("was written as 40x40, 4 bands of uint16 and reads as 40x20, 4 bands of uint16."));
}

TEST_F(ProvenanceRun, AWatcherMayEndTheReading) {
  struct Impatient : fusion::RunObserver {
    bool WantsCancel() override { return true; }
  } impatient;
  const auto request = Request("brovey");
  fusion::Fuse(request);
  try {
    fusion::VerifyOutput(request.out, &impatient);
    FAIL();
  } catch (const fusion::RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), fusion::RunFailure::Kind::kCancelled);
  }
}

TEST(ModelText, IsReadAsItWasWritten) {
  const fusion::ModelFacts model = {{"gains", {0.5, -1.25e-7, 3e200}}, {"none", {}}, {"one", {7}}};
  const auto read = fusion::ModelOf(fusion::TextOf(model, 1000));
  ASSERT_EQ(read.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(read[i].name, model[i].name);
    EXPECT_EQ(read[i].values, model[i].values);
  }
  EXPECT_EQ(fusion::TextOf(model, 12), "none; one 7") << "the longest is left out";
  EXPECT_THAT(fusion::ModelOf(""), IsEmpty());
}

TEST(LossyOptions, AreAllButThoseKnownToKeepValues) {
  EXPECT_FALSE(fusion::MayLoseValues(kFormatGeoTiff, {}));
  EXPECT_FALSE(fusion::MayLoseValues(kFormatGeoTiff, {"COMPRESS=DEFLATE", "tiled=yes", "PREDICTOR=2"}));
  for (const char* option : {"COMPRESS=JPEG", "NBITS=12", "DISCARD_LSB=2", "MAX_Z_ERROR=1", "COMPRESS"}) {
    EXPECT_TRUE(fusion::MayLoseValues(kFormatGeoTiff, {option})) << option;
  }
}

}  // namespace

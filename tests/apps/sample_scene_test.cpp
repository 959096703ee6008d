#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>

#include "apps/exit_status.h"
#include "apps/sample_command.h"
#include "platform/raster/raster_fault.h"
#include "platform/raster/raster_source.h"
#include "runs/options.h"
#include "tests/support/scene.h"

namespace {

using reference::Image;

struct Files {
  Image pan;
  Image ms;
  Image truth;
};

class SampleScene : public testing::Test {
 protected:
  SampleScene() {
    std::random_device random;
    m_folder = std::filesystem::temp_directory_path() / ("fusion_sample_" + std::to_string(random()));
    std::filesystem::create_directories(m_folder);
  }
  ~SampleScene() override {
    platform::SetRasterFault({});
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }

  std::filesystem::path Folder(const std::filesystem::path& name = "scene") const { return m_folder / name; }

  app::SampleCommandOptions Options(const std::string& size = "128", const std::string& name = "scene") const {
    app::SampleCommandOptions options;
    options.folder = Folder(name).string();
    options.size = size;
    options.quiet = true;
    return options;
  }

  Files Read(const std::string& name = "scene") const {
    const auto read = [&](const char* file) { return test_support::ReadImage((Folder(name) / file).wstring()); };
    return {read("pan.tif"), read("ms.tif"), read("truth.tif")};
  }

  Files Write(const app::SampleCommandOptions& options) const {
    EXPECT_EQ(app::RunSample(options), app::kSuccess);
    return Read();
  }

  /// The exit status, whether answered or thrown.
  static int Status(const app::SampleCommandOptions& options) {
    try {
      return app::RunSample(options);
    } catch (const fusion::RunFailure& error) {
      EXPECT_STRNE(error.what(), "");
      return app::StatusOf(error);
    }
  }

  std::vector<std::string> Names(const std::string& name = "scene") const {
    std::vector<std::string> names;
    if (!std::filesystem::is_directory(Folder(name))) return names;
    for (const auto& entry : std::filesystem::directory_iterator(Folder(name))) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  static std::string Bytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path m_folder;
};

double Mean(const std::vector<double>& values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

double Correlation(const std::vector<double>& a, const std::vector<double>& b) {
  const double meanA = Mean(a);
  const double meanB = Mean(b);
  double ab = 0.0;
  double aa = 0.0;
  double bb = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    ab += (a[i] - meanA) * (b[i] - meanB);
    aa += (a[i] - meanA) * (a[i] - meanA);
    bb += (b[i] - meanB) * (b[i] - meanB);
  }
  return ab / std::sqrt(aa * bb);
}

TEST_F(SampleScene, IsTheSameForASeed) {
  ASSERT_EQ(Status(Options("96x80", "first")), app::kSuccess);
  ASSERT_EQ(Status(Options("96x80", "second")), app::kSuccess);
  for (const char* name : {"pan.tif", "ms.tif", "truth.tif"}) {
    const std::string bytes = Bytes(Folder("first") / name);
    EXPECT_FALSE(bytes.empty());
    EXPECT_TRUE(bytes == Bytes(Folder("second") / name)) << name;
  }
}

TEST_F(SampleScene, IsAnotherForAnotherSeed) {
  auto options = Options();
  const Files first = Write(options);
  options.seed = 2;
  options.overwrite = true;
  const Files second = Write(options);
  EXPECT_LT(Correlation(first.pan.bands[0], second.pan.bands[0]), 0.9);
  for (std::size_t band = 0; band < 4; ++band) EXPECT_NE(first.ms.bands[band], second.ms.bands[band]);
}

TEST_F(SampleScene, PanSeesWhatTheVisibleBandsSee) {
  const Files files = Write(Options("512"));
  std::vector<double> visible(files.pan.bands[0].size());
  for (std::size_t i = 0; i < visible.size(); ++i) {
    visible[i] = (files.truth.bands[0][i] + files.truth.bands[1][i] + files.truth.bands[2][i]) / 3.0;
  }
  EXPECT_GT(Correlation(files.pan.bands[0], visible), 0.8);
}

TEST_F(SampleScene, BandsAreRelatedButNotTheSame) {
  const Files files = Write(Options("512"));
  EXPECT_GT(Correlation(files.truth.bands[0], files.truth.bands[1]), 0.7);
  EXPECT_LT(Correlation(files.truth.bands[2], files.truth.bands[3]), 0.7) << "plants are dark in red, bright beyond";
}

TEST_F(SampleScene, SizesFollowTheRatio) {
  for (const int ratio : {1, 2, 4}) {
    auto options = Options("64x48");
    options.ratio = ratio;
    options.bands = 3;
    options.overwrite = true;
    const Files files = Write(options);
    EXPECT_EQ(files.pan.width, 64);
    EXPECT_EQ(files.pan.height, 48);
    EXPECT_EQ(files.truth.width, 64);
    EXPECT_EQ(files.truth.height, 48);
    EXPECT_EQ(files.ms.width, 64 / ratio);
    EXPECT_EQ(files.ms.height, 48 / ratio);
    EXPECT_EQ(files.pan.bands.size(), 1U);
    EXPECT_EQ(files.ms.bands.size(), 3U);
    EXPECT_EQ(files.truth.bands.size(), 3U);
  }
}

TEST_F(SampleScene, SizeIsRoundedUpToTheRatioAndSaidSo) {
  auto options = Options("33x5");
  options.quiet = false;
  testing::internal::CaptureStderr();
  const Files files = Write(options);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("rounded up to 36x8"));
  EXPECT_EQ(files.pan.width, 36);
  EXPECT_EQ(files.pan.height, 8);
  EXPECT_EQ(files.ms.width, 9);
  EXPECT_EQ(files.ms.height, 2);
}

TEST_F(SampleScene, NamesItsFilesUnlessQuiet) {
  auto options = Options("64");
  options.quiet = false;
  testing::internal::CaptureStderr();
  Write(options);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_THAT(said, testing::HasSubstr("pan.tif: 64x64, 1 band, pixel 0.5 m\n"));
  EXPECT_THAT(said, testing::HasSubstr("ms.tif: 16x16, 4 bands, pixel 2 m\n"));
  EXPECT_THAT(said, testing::HasSubstr("truth.tif: 64x64, 4 bands, pixel 0.5 m\n"));

  options.quiet = true;
  options.overwrite = true;
  testing::internal::CaptureStderr();
  Write(options);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(SampleScene, EveryTypeHoldsSensibleValues) {
  const struct {
    const char* name;
    PixelDataType type;
    double high;
  } kTypes[] = {
      {"uint8", PDT_UINT8, 250.0},       {"uint16", PDT_UINT16, 10000.0}, {"int16", PDT_INT16, 10000.0},
      {"uint32", PDT_UINT32, 10000.0},   {"int32", PDT_INT32, 10000.0},   {"float32", PDT_FLOAT32, 10000.0},
      {"float64", PDT_FLOAT64, 10000.0},
  };
  for (const auto& type : kTypes) {
    SCOPED_TRACE(type.name);
    auto options = Options("256");
    options.type = type.name;
    options.overwrite = true;
    const Files files = Write(options);
    for (const char* name : {"pan.tif", "ms.tif", "truth.tif"}) {
      CRasterSource source;
      ASSERT_TRUE(source.OpenSimple((Folder() / name).wstring()));
      EXPECT_EQ(source.GetRasterDataType(), type.type) << name;
    }
    for (const Image* image : {&files.pan, &files.ms, &files.truth}) {
      for (const auto& band : image->bands) {
        const auto [least, most] = std::minmax_element(band.begin(), band.end());
        EXPECT_GE(*least, 0.0) << "a sensor counts";
        EXPECT_LE(*most, type.high);
        EXPECT_GT(*most, *least + 0.15 * type.high) << "nothing to see";
      }
    }
  }
}

TEST_F(SampleScene, ImagesLieOverEachOther) {
  for (const int ratio : {2, 4}) {
    auto options = Options("64");
    options.ratio = ratio;
    options.overwrite = true;
    const Files files = Write(options);
    EXPECT_THAT(files.pan.geoTransform, testing::ElementsAreArray(files.truth.geoTransform));
    EXPECT_THAT(files.pan.geoTransform, testing::ElementsAre(440000.0, 0.5, 0.0, 4475000.0, 0.0, -0.5));
    EXPECT_THAT(files.ms.geoTransform, testing::ElementsAre(440000.0, 0.5 * ratio, 0.0, 4475000.0, 0.0, -0.5 * ratio));
  }
  for (const char* name : {"pan.tif", "ms.tif", "truth.tif"}) {
    CRasterSource source;
    ASSERT_TRUE(source.OpenSimple((Folder() / name).wstring()));
    EXPECT_NE(source.GetSpatialReferenceWKT().find(L"UTM zone 30N"), std::wstring::npos) << name;
  }
}

TEST_F(SampleScene, FolderMayHaveAnyName) {
  const std::filesystem::path folder = Folder(u8"parcela ñ 影像");
  const std::u8string name = folder.u8string();
  auto options = Options("64");
  options.folder.assign(name.begin(), name.end());
  EXPECT_EQ(Status(options), app::kSuccess);
  EXPECT_TRUE(std::filesystem::is_regular_file(folder / "truth.tif"));
}

TEST_F(SampleScene, OneAndSixteenBandsWork) {
  for (const int bands : {1, 16}) {
    auto options = Options("64");
    options.bands = bands;
    options.overwrite = true;
    const Files files = Write(options);
    EXPECT_EQ(files.ms.bands.size(), static_cast<std::size_t>(bands));
    EXPECT_EQ(files.truth.bands.size(), static_cast<std::size_t>(bands));
  }
}

TEST_F(SampleScene, RefusesWrongOptions) {
  for (const char* size :
       {"0", "-4", "x", "", "12x", "x12", "12x0", "12x12x12", "12.5", "12a", "200001", "2147483647", "99999999999"}) {
    EXPECT_EQ(Status(Options(size)), app::kWrongUsage) << size;
  }
  for (const int wrong : {-1, 0, 17}) {
    auto ratio = Options();
    ratio.ratio = wrong;
    EXPECT_EQ(Status(ratio), app::kWrongUsage);
    auto bands = Options();
    bands.bands = wrong;
    EXPECT_EQ(Status(bands), app::kWrongUsage);
  }
  const auto refused = [&](const char* option, const std::string& value) {
    auto options = Options();
    try {
      fusion::SetOption(options, option, value);
    } catch (const fusion::RunFailure&) {
      return true;
    }
    return Status(options) == app::kWrongUsage;
  };
  for (const char* shift : {"1", "1,2,3", "x,0", "0,", "16.5,0", "0,-16.5", "nan,0", "inf,0"}) {
    EXPECT_TRUE(refused("shift", shift)) << shift;
  }
  for (const char* share : {"-0.1", "1.5", "nan", "x"}) {
    EXPECT_TRUE(refused("noise", share)) << share;
    EXPECT_TRUE(refused("clouds", share)) << share;
  }
  auto type = Options();
  type.type = "complex";
  EXPECT_EQ(Status(type), app::kWrongUsage);
  EXPECT_FALSE(std::filesystem::exists(Folder())) << "no folder for a scene that was refused";
}

TEST_F(SampleScene, ReplacesFilesOnlyWhenToldTo) {
  for (const char* name : {"pan.tif", "ms.tif", "truth.tif"}) {
    std::filesystem::remove_all(Folder());
    std::filesystem::create_directories(Folder());
    std::ofstream(Folder() / name) << "mine";
    EXPECT_EQ(Status(Options("64")), app::kWrongUsage);
    EXPECT_EQ(Bytes(Folder() / name), "mine");
    EXPECT_THAT(Names(), testing::ElementsAre(name));
  }
  auto options = Options("64");
  options.overwrite = true;
  EXPECT_EQ(Write(options).truth.width, 64);
  EXPECT_THAT(Names(), testing::ElementsAre("ms.tif", "pan.tif", "truth.tif"));
}

TEST_F(SampleScene, FailsBelowAFile) {
  std::ofstream(Folder("file")) << "no folder";
  EXPECT_EQ(Status(Options("64", "file")), app::kRunFailed);
  EXPECT_EQ(Status(Options("64", "file/below")), app::kRunFailed);
  EXPECT_EQ(Bytes(Folder("file")), "no folder");
}

TEST_F(SampleScene, LeavesNothingAfterAFailure) {
  using platform::RasterOperation;
  for (const RasterOperation broken : {RasterOperation::kCreate, RasterOperation::kWrite, RasterOperation::kClose}) {
    for (const char* victim : {"pan", "ms", "truth"}) {
      SCOPED_TRACE(victim);
      bool struck = false;
      platform::SetRasterFault(
          [&](RasterOperation operation, const std::wstring& path, int /*band*/, const CRect& /*rect*/) {
            const std::string name = std::filesystem::path(path).filename().string();
            if (operation != broken || name.rfind(victim, 0) != 0) return false;
            return struck = true;
          });
      EXPECT_EQ(Status(Options("64")), app::kRunFailed);
      EXPECT_TRUE(struck);
      EXPECT_THAT(Names(), testing::IsEmpty());
    }
  }
}

TEST_F(SampleScene, KeepsTheOldSceneWhenTheNewOneFails) {
  Write(Options("64"));
  const std::string before = Bytes(Folder() / "pan.tif");
  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == platform::RasterOperation::kWrite;
  });
  auto options = Options("128");
  options.overwrite = true;
  EXPECT_EQ(Status(options), app::kRunFailed);
  EXPECT_TRUE(before == Bytes(Folder() / "pan.tif"));
  EXPECT_THAT(Names(), testing::ElementsAre("ms.tif", "pan.tif", "truth.tif"));
}

TEST_F(SampleScene, AFolderInThePlaceOfAFileIsWrongUsage) {
  std::filesystem::create_directories(Folder() / "truth.tif" / "full");
  auto options = Options("64");
  options.overwrite = true;
  EXPECT_EQ(Status(options), app::kWrongUsage);
  EXPECT_THAT(Names(), testing::ElementsAre("truth.tif"));
  EXPECT_TRUE(std::filesystem::is_directory(Folder() / "truth.tif" / "full"));
}

TEST_F(SampleScene, IsAllOrNothing) {
  // A file that comes into the place of the last one when the first is finished: the first two must not stay alone.
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    if (operation == platform::RasterOperation::kClose) std::ofstream(Folder() / "truth.tif") << "mine";
    return false;
  });
  EXPECT_EQ(Status(Options("64")), app::kWrongUsage);
  EXPECT_THAT(Names(), testing::ElementsAre("truth.tif"));
  EXPECT_EQ(Bytes(Folder() / "truth.tif"), "mine");
}

TEST_F(SampleScene, AFailureTakesTheFoldersAwayThatItMade) {
  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == platform::RasterOperation::kWrite;
  });
  EXPECT_EQ(Status(Options("64", "a/b/c")), app::kRunFailed);
  EXPECT_FALSE(std::filesystem::exists(Folder("a")));
}

TEST_F(SampleScene, InterruptCancelsIt) {
  bool interrupted = false;
  platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect& rect) {
    // Once only: a second interrupt would end the program.
    if (operation == platform::RasterOperation::kWrite && rect.top >= 8 && !interrupted) {
      interrupted = true;
      std::raise(SIGINT);
    }
    return false;
  });
  EXPECT_EQ(Status(Options("64")), app::kCancelled);
  EXPECT_TRUE(interrupted);
  EXPECT_THAT(Names(), testing::IsEmpty());
}

}  // namespace

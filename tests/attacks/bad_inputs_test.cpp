// Images that are damaged, strange or not there: a run ends with a picture or with a sentence, and changes nothing
// else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/evaluate.h"
#include "runs/fuse.h"
#include "tests/attacks/corpus.h"
#include "tests/attacks/failing_memory.h"
#include "tests/attacks/rational.h"
#include "tests/support/scene.h"

namespace {

namespace fs = std::filesystem;

using attacks::Corpus;
using attacks::End;
using attacks::Entry;
using fusion::RunFailure;
using testing::HasSubstr;

class BadInputs : public testing::Test {
 protected:
  void SetUp() override { attacks::MakeGoodPair(m_folder); }
  void TearDown() override { platform::SetRasterFault({}); }

  fs::path Native(const std::string& name) const { return CommonFun::ToPath(m_folder.WidePath(name)); }

  /// Every file of the folder with its bytes.
  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const std::string& name : m_folder.Names()) {
      files[name] = fs::is_regular_file(Native(name)) ? test_support::FileBytes(m_folder.Path(name)) : "";
    }
    return files;
  }

  fusion::FuseRequest Request(const std::string& pan, const std::string& ms, const std::string& method) const {
    fusion::FuseRequest request;
    request.pan = m_folder.Path(pan);
    request.ms = m_folder.Path(ms);
    request.out = m_folder.Path("out.tif");
    request.method = method;
    request.overwrite = true;
    request.threads = "1";
    return request;
  }

  /// Every sample can be read.
  void LookAtOutput(const std::string& what) const {
    const reference::Image image = test_support::ReadImage(m_folder.WidePath("out.tif"));
    EXPECT_GT(image.width * image.height, 0) << what;
    for (const auto& band : image.bands) {
      EXPECT_EQ(band.size(), static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height)) << what;
    }
  }

  /// A run that is a success or a RunFailure with a sentence; whether it was one.
  template <typename Run>
  bool Try(const std::string& what, End end, const Run& run) {
    ++m_runs;
    try {
      run();
      EXPECT_NE(end, End::kRefused) << what;
      return true;
    } catch (const RunFailure& failure) {
      ++m_refused;
      EXPECT_FALSE(failure.Sentence().empty()) << what;
      EXPECT_THAT(failure.Sentence(), testing::Not(HasSubstr("unexpected"))) << what;
      EXPECT_NE(end, End::kFused) << what << ": " << failure.what();
      return false;
    }
  }

  /// Fuses a pair by one method after another, in turn.
  void FuseEach(const Corpus& corpus, const std::vector<Entry>& entries, bool pan) {
    static constexpr const char* kMethods[] = {"brovey", "bayesian", "hpf", "pca", "sharpen", "weighted"};
    for (const Entry& entry : entries) {
      const std::string method = kMethods[m_turn++ % std::size(kMethods)];
      const std::string what = corpus.kind + ": " + entry.name + ' ' + method;
      const std::string before = test_support::FileBytes(m_folder.Path("out.tif"));
      const auto request = pan ? Request(entry.name, "ms.tif", method) : Request("pan.tif", entry.name, method);
      if (Try(what, entry.end, [&] { fusion::Fuse(request); })) {
        LookAtOutput(what);
      } else {
        EXPECT_TRUE(test_support::FileBytes(m_folder.Path("out.tif")) == before) << what;
      }
    }
  }

  void Attack(const Corpus& corpus) {
    // An older output, which only a success replaces.
    ASSERT_NO_THROW(fusion::Fuse(Request("pan.tif", "ms.tif", "brovey")));
    auto before = Files();
    FuseEach(corpus, corpus.pans, true);
    FuseEach(corpus, corpus.mss, false);
    int nth = 0;
    for (const Entry& entry : corpus.mss) {
      // Evaluations know nothing of what a fusion needs besides.
      if (nth++ % 3 != 0) continue;
      fusion::EvaluateRequest request;
      request.pan = m_folder.Path("pan.tif");
      request.ms = m_folder.Path("ms.tif");
      request.fused = m_folder.Path(entry.name);
      Try(corpus.kind + ": evaluate " + entry.name, End::kAny, [&] { fusion::Evaluate(request); });
      if (nth % 9 != 1) continue;
      fusion::AssessRequest assess;
      assess.pan = m_folder.Path("pan.tif");
      assess.ms = m_folder.Path(entry.name);
      assess.methods = {"brovey"};
      Try(corpus.kind + ": assess " + entry.name, End::kAny, [&] { fusion::Assess(assess); });
    }
    auto after = Files();
    before.erase("out.tif");
    after.erase("out.tif");
    EXPECT_TRUE(before == after) << corpus.kind << ": files have changed: " << testing::PrintToString(m_folder.Names());
    std::cout << corpus.kind << ": " << corpus.pans.size() + corpus.mss.size() << " files, " << m_runs << " runs, "
              << m_runs - m_refused << " with a result, " << m_refused << " refused\n";
    EXPECT_GT(m_runs, 0);
  }

  test_support::TemporaryFolder m_folder;
  int m_runs = 0;
  int m_refused = 0;
  std::size_t m_turn = 0;
};

TEST_F(BadInputs, FilesCutShort) { Attack(attacks::CutShort(m_folder)); }
TEST_F(BadInputs, FilesWithChangedBytes) { Attack(attacks::ChangedBytes(m_folder)); }
TEST_F(BadInputs, Sizes) { Attack(attacks::Sizes(m_folder)); }
TEST_F(BadInputs, Georeferences) { Attack(attacks::GeoTransforms(m_folder)); }
TEST_F(BadInputs, CoordinateSystems) { Attack(attacks::CoordinateSystems(m_folder)); }
TEST_F(BadInputs, RationalPolynomials) { Attack(attacks::RationalPolynomials(m_folder)); }
TEST_F(BadInputs, Samples) { Attack(attacks::SampleTypes(m_folder)); }
TEST_F(BadInputs, Masks) { Attack(attacks::Masks(m_folder)); }
TEST_F(BadInputs, Mosaics) { Attack(attacks::Mosaics(m_folder)); }

/// The failure of a run.
template <typename Run>
RunFailure FailureOf(const Run& run) {
  try {
    run();
  } catch (const RunFailure& failure) {
    return failure;
  }
  ADD_FAILURE() << "the run succeeded";
  return {RunFailure::Kind::kFailed, ""};
}

TEST_F(BadInputs, MoreThanADiskOrTheMemoryHoldsIsRefusedWithTheFigure) {
  const auto declare = [&](const std::string& name, int width, int height, int bands) {
    std::ofstream file(Native(name));
    file << "<VRTDataset rasterXSize=\"" << width << "\" rasterYSize=\"" << height << "\">";
    for (int b = 1; b <= bands; ++b) file << R"(<VRTRasterBand dataType="UInt16" band=")" << b << "\"/>";
    file << "</VRTDataset>";
  };
  // Two blocks of 64 rows of doubles and of four bands of two bytes: 16 bytes a pixel.
  declare("wide_pan.vrt", 1000000000, 1000, 1);
  declare("wide_ms.vrt", 250000000, 250, 4);
  const auto memory = FailureOf([&] { fusion::Fuse(Request("wide_pan.vrt", "wide_ms.vrt", "brovey")); });
  EXPECT_EQ(memory.Type(), ERR_EXCEPTION) << memory.what();
  EXPECT_THAT(memory.Sentence(), HasSubstr("at least 2048000 MB of memory, and "));
  declare("long_pan.vrt", 100000, 1000000000, 1);
  declare("long_ms.vrt", 25000, 250000000, 4);
  attacks::largestAllocation = 0;
  const auto disk = FailureOf([&] { fusion::Fuse(Request("long_pan.vrt", "long_ms.vrt", "brovey")); });
  EXPECT_EQ(disk.Type(), ERR_CREATE) << disk.what();
  EXPECT_THAT(disk.Sentence(), HasSubstr("the disk is full: 800000000 MB are needed, "));
  // Nothing is as large as a list of all that is declared would be.
  EXPECT_LT(attacks::largestAllocation, std::size_t{100} << 20);
  declare("endless.vrt", 2147483647, 2147483647, 1);
  EXPECT_THAT(FailureOf([&] { fusion::Fuse(Request("endless.vrt", "ms.tif", "brovey")); }).Sentence(),
              HasSubstr("it declares 4.61e+18 pixels, more than can be counted"));
  declare("tall.vrt", 1, 1073741825, 1);
  const auto tall = FailureOf([&] { fusion::Fuse(Request("tall.vrt", "ms.tif", "brovey")); });
  EXPECT_EQ(tall.Type(), ERR_OPEN) << tall.what();
  EXPECT_THAT(tall.Sentence(), HasSubstr("it has 1073741825 rows: positions end at 1073741824"));
}

TEST_F(BadInputs, NoSampleIsLookedAtOfWhatCannotBeHeld) {
  // Floats may be no numbers, which a run would look for through all that is declared, for days.
  for (const auto& [name, bands] : {std::pair<std::string, int>{"float_pan.vrt", 1}, {"float_ms.vrt", 4}}) {
    std::ofstream file(Native(name));
    const int size = bands == 1 ? 8000000 : 2000000;
    file << "<VRTDataset rasterXSize=\"" << size << "\" rasterYSize=\"" << size << "\">";
    for (int b = 1; b <= bands; ++b) file << R"(<VRTRasterBand dataType="Float32" band=")" << b << "\"/>";
    file << "</VRTDataset>";
  }
  const auto failure = FailureOf([&] { fusion::Fuse(Request("float_pan.vrt", "float_ms.vrt", "brovey")); });
  EXPECT_THAT(failure.Sentence(), testing::AnyOf(HasSubstr(" of memory, and "), HasSubstr("the disk is full")));
}

TEST_F(BadInputs, PixelsWhoseSizesCannotGoTogetherAreRefusedWithTheirRatio) {
  attacks::GeoTransforms(m_folder);
  for (const auto& [pan, ms] : {std::pair<std::string, std::string>{"pan_small.vrt", "ms.tif"},
                                {"pan_large.vrt", "ms_south_up.vrt"},
                                {"pan.tif", "ms_small.vrt"}}) {
    const auto failure = FailureOf([&, p = pan, m = ms] { fusion::Fuse(Request(p, m, "brovey")); });
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kWrongUsage) << failure.what();
    EXPECT_THAT(failure.Sentence(), HasSubstr(" pan pixels: check the georeferences")) << pan << ms;
  }
}

#ifndef _WIN32
TEST_F(BadInputs, WhatIsNoFileIsRefusedAndNotWaitedFor) {
  ASSERT_EQ(test_support::RunShell("mkfifo " + test_support::Quoted(m_folder.Path("pipe"))), 0);
  fs::create_directory(Native("folder"));
  std::vector<std::string> names = {
      m_folder.Path("pipe"), m_folder.Path("folder"), m_folder.Path("nothing"), "", "/dev/null", "/dev/zero", "/"};
  int refused = 0;
  const auto expect = [&](const auto& run, const std::string& what) {
    const RunFailure failure = FailureOf(run);
    EXPECT_FALSE(failure.Sentence().empty()) << what;
    ++refused;
    return failure;
  };
  for (const std::string& name : names) {
    auto request = Request("pan.tif", "ms.tif", "brovey");
    request.pan = name;
    const auto failure = expect([&] { fusion::Fuse(request); }, name);
    if (name.ends_with("pipe")) {
      EXPECT_THAT(failure.Sentence(), HasSubstr("it is no regular file"));
    }
    request.pan = m_folder.Path("pan.tif");
    request.ms = name;
    expect([&] { fusion::Fuse(request); }, name);
    request.ms = m_folder.Path("ms.tif");
    request.aoi = name;
    if (!name.empty()) expect([&] { fusion::Fuse(request); }, name);
    request.aoi.clear();
    request.out = name;
    if (name != m_folder.Path("nothing")) expect([&] { fusion::Fuse(request); }, name);
    fusion::EvaluateRequest evaluate;
    evaluate.pan = request.pan;
    evaluate.ms = request.ms;
    evaluate.fused = name;
    expect([&] { fusion::Evaluate(evaluate); }, name);
  }
  std::cout << "no files: " << refused << " runs refused\n";
}

TEST_F(BadInputs, TheInputAsOutputIsRefusedThroughAnyLink) {
  fs::create_symlink("ms.tif", Native("soft.tif"));
  fs::create_hard_link(Native("ms.tif"), Native("hard.tif"));
  fs::create_directory_symlink(".", Native("here"));
  const std::string before = test_support::FileBytes(m_folder.Path("ms.tif"));
  for (const std::string out : {"ms.tif", "soft.tif", "hard.tif", "here/ms.tif", "here/./ms.tif", "./pan.tif"}) {
    auto request = Request("pan.tif", "ms.tif", "brovey");
    request.out = m_folder.Path("") + "/" + out;
    EXPECT_EQ(FailureOf([&] { fusion::Fuse(request); }).GetKind(), RunFailure::Kind::kWrongUsage) << out;
    EXPECT_TRUE(test_support::FileBytes(m_folder.Path("ms.tif")) == before) << out;
  }
}

#else
TEST_F(BadInputs, WhatIsNoFileIsRefusedAndNotWaitedFor) {
  GTEST_SKIP() << "no pipes and device nodes among files here";
}
TEST_F(BadInputs, TheInputAsOutputIsRefusedThroughAnyLink) { GTEST_SKIP() << "links cannot be made here"; }
#endif

TEST_F(BadInputs, NamesOfAnyLettersAreTaken) {
  const std::string longest = std::string(251, 'n') + ".tif";
  std::vector<std::string> names = {"with space.tif",  "quo'te.tif",  "影像 融合.tif", "-dash.tif",
                                    "percent%s%n.tif", "~tilde~.tif", "𠀀𝄞.tif",       longest};
#ifndef _WIN32
  // Letters that the file system there has no names with.
  names.insert(names.end(), {"quo'te\".tif", "new\nline.tif", "star*?.tif"});
#endif
  int runs = 0;
  for (const std::string& name : names) {
    const std::string input = name == longest ? name.substr(1) : 'i' + name;
    fs::copy_file(Native("pan.tif"), Native(input));
    auto request = Request(input, "ms.tif", "brovey");
    request.out = m_folder.Path(name);
    EXPECT_NO_THROW(fusion::Fuse(request)) << name;
    EXPECT_TRUE(fs::exists(Native(name))) << name;
    ++runs;
  }
  std::cout << "names: " << runs << " runs\n";
}

/// The input is gone, shorter, or another file from one read on.
TEST_F(BadInputs, FilesThatChangeDuringARunEndItInOrder) {
  ASSERT_NO_THROW(fusion::Fuse(Request("pan.tif", "ms.tif", "brovey")));
  const std::string old = test_support::FileBytes(m_folder.Path("out.tif"));
  const auto names = m_folder.Names();
  const std::string good = test_support::FileBytes(m_folder.Path("pan.tif"));
  const std::string goodMs = test_support::FileBytes(m_folder.Path("ms.tif"));
  int runs = 0;
  int fused = 0;
  for (const std::string file : {"pan.tif", "ms.tif"}) {
    for (const int change : {0, 1, 2}) {
      for (int at = 0; at < 24; ++at) {
        int count = 0;
        bool changed = false;
        platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
          const bool now = operation == platform::RasterOperation::kRead && count++ == at;
          if (!now) return false;
          changed = true;
          if (change == 0) fs::remove(Native(file));
          if (change == 1) fs::resize_file(Native(file), 300);
          if (change == 2) std::ofstream(Native(file)) << "another file altogether";
          return false;
        });
        bool success = true;
        try {
          fusion::Fuse(Request("pan.tif", "ms.tif", at % 2 ? "bayesian" : "brovey"));
        } catch (const RunFailure& failure) {
          success = false;
          EXPECT_FALSE(failure.Sentence().empty());
        }
        platform::SetRasterFault({});
        std::ofstream(Native("pan.tif"), std::ios::binary) << good;
        std::ofstream(Native("ms.tif"), std::ios::binary) << goodMs;
        ++runs;
        fused += success;
        EXPECT_EQ(m_folder.Names(), names) << file << change << at;
        if (!success) {
          EXPECT_TRUE(test_support::FileBytes(m_folder.Path("out.tif")) == old) << file << change << at;
        } else {
          std::ofstream(Native("out.tif"), std::ios::binary) << old;
        }
        if (!changed) break;
      }
    }
  }
  std::cout << "changing files: " << runs << " runs, " << fused << " with a result\n";
}

TEST_F(BadInputs, ACommaForDecimalsChangesNothing) {
  fusion::FuseRequest request = Request("pan.tif", "ms.tif", "bayesian");
  // Which tells the time.
  request.noProvenance = true;
  ASSERT_NO_THROW(fusion::Fuse(request));
  const std::string before = test_support::FileBytes(m_folder.Path("out.tif"));
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  bool comma = std::setlocale(LC_ALL, "de_DE.UTF-8") || std::setlocale(LC_ALL, "fr_FR.UTF-8");
#ifdef __linux__
  if (!comma) {
    // One of our own needs no administrator.
    const std::string folder = m_folder.Path("locales");
    std::filesystem::create_directory(CommonFun::ToPath(m_folder.WidePath("locales")));
    test_support::RunShell("localedef --no-archive -i de_DE -f UTF-8 " + test_support::Quoted(folder + "/de_DE.UTF-8") +
                           " > /dev/null 2>&1");
    setenv("LOCPATH", folder.c_str(), 1);
    comma = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
  }
#endif
  if (!comma) GTEST_SKIP() << "no locale with a decimal comma can be had";
  EXPECT_STREQ(std::localeconv()->decimal_point, ",");
  EXPECT_NO_THROW(fusion::Fuse(request));
  std::setlocale(LC_ALL, locale.c_str());
#ifdef __linux__
  unsetenv("LOCPATH");
#endif
  EXPECT_TRUE(test_support::FileBytes(m_folder.Path("out.tif")) == before);
}

}  // namespace

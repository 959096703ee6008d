// What the program makes of its arguments, and what it says of itself: refusals, streams, the log.
#include <gmock/gmock.h>

#include <filesystem>
#include <new>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/exit_status.h"
#include "apps/nearest_word.h"
#include "platform/utility/common_fun.h"
#include "tests/apps/scene_command.h"
#include "tests/support/environment.h"

namespace {

using test_support::FileBytes;
using test_support::Quoted;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CommandLine : public SceneCommand {
 protected:
  /// A line of the shell with the program in it. Answers its exit status, and standard error.
  test_support::CommandResult Shell(const std::string& arguments, const std::string& redirection) const {
    const int status = test_support::RunShell(Quoted(FUSION_COMMAND) + ' ' + arguments + ' ' + redirection + " 2> " +
                                              Quoted(Path("err")));
    const std::string err = FileBytes(Path("err"));
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath("err")));
    return {status, "", err};
  }
};

TEST(NearestWord, TakesTheFewestChanges) {
  const std::vector<std::string> words = {"fuse", "evaluate", "sample", "methods"};
  EXPECT_EQ(app::NearestWord("fsue", words), "fuse");
  EXPECT_EQ(app::NearestWord("eval", words), "evaluate");
  EXPECT_EQ(app::NearestWord("method", words), "methods");
  EXPECT_EQ(app::NearestWord("samples", words), "sample");
  EXPECT_EQ(app::NearestWord("", words), "fuse") << "every word begins with nothing";
  EXPECT_EQ(app::NearestWord("b", {"a", "b", "c"}), "b");
  EXPECT_EQ(app::NearestWord("x", {"a", "b"}), "a") << "the first of several";
  EXPECT_EQ(app::NearestWord("x", {}), "");
}

TEST(ExitStatus, WhatNothingElseCatchesIsToldAndAFailure) {
  const auto told = [](const auto& thrown) {
    testing::internal::CaptureStderr();
    try {
      throw thrown;
    } catch (...) {
      EXPECT_EQ(app::ReportUncaught(), app::kRunFailed);
    }
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(told(std::bad_alloc()), "fusion: error 6: The run ran out of memory.\n");
  EXPECT_EQ(told(std::runtime_error("No luck.")), "fusion: error 6: No luck.\n");
  EXPECT_EQ(told(3), "fusion: error 6: The run met an unexpected failure.\n");
}

#ifdef FUSION_SHORT_OF_MEMORY
TEST_F(CommandLine, ALackOfMemoryIsSaidWhereverItIsMet) {
  const std::string before = " LD_PRELOAD=" + Quoted(FUSION_SHORT_OF_MEMORY) + ' ' + Quoted(FUSION_COMMAND) + ' ';
  const std::string behind = " 2> " + Quoted(Path("err"));
  for (const std::string& arguments : {std::string("methods --names"), "fuse " + Quoted(Path("pan.tif")) + " b c"}) {
    for (const int allocations : {0, 1, 10, 100, 400}) {
      std::string line = "FUSION_ALLOCATIONS=" + std::to_string(allocations);
      line.append(before).append(arguments).append(behind);
      SCOPED_TRACE(line);
      EXPECT_EQ(test_support::RunShell(line), app::kRunFailed);
      EXPECT_EQ(FileBytes(Path("err")), "fusion: error 6: The run ran out of memory.\n");
    }
  }
}
#endif

TEST_F(CommandLine, ThreadsAreANumberOrAllByOptionOrEnvironment) {
  struct Environment {
    std::string own;
    std::string openMp;
  };
  const auto fuse = [&](const Environment& environment, const std::vector<std::string>& option) {
    std::vector<std::string> arguments = {"fuse",     Path("pan.tif"), Path("ms.tif"), Path("out.tif"),
                                          "--method", "brovey",        "--overwrite",  "--quiet"};
    arguments.insert(arguments.end(), option.begin(), option.end());
    test_support::SetVariable("FUSION_THREADS", environment.own);
    test_support::SetVariable("OMP_NUM_THREADS", environment.openMp);
    auto run = Run(arguments);
    test_support::SetVariable("FUSION_THREADS", "");
    test_support::SetVariable("OMP_NUM_THREADS", "");
    return run;
  };
  std::string expected;
  for (const std::vector<std::string>& option :
       {std::vector<std::string>(), {"--threads", "1"}, {"--threads", "3"}, {"--threads", "all"}}) {
    const auto run = fuse({}, option);
    EXPECT_EQ(run.status, 0) << testing::PrintToString(option) << run.err;
    if (expected.empty()) expected = FileBytes(Path("out.tif"));
    EXPECT_TRUE(FileBytes(Path("out.tif")) == expected) << testing::PrintToString(option);
  }
  for (const std::string wrong : {"0", "two", "2.5", "-1", "99999999999", "1x"}) {
    const std::string tail = " is a number of threads from 1 on, or all, not '" + wrong + "'.\n";
    const auto byOption = fuse({}, {"--threads=" + wrong});
    EXPECT_EQ(byOption.status, 2);
    EXPECT_EQ(byOption.err, "fusion: --threads" + tail);
    EXPECT_EQ(fuse({wrong, ""}, {}).err, "fusion: FUSION_THREADS" + tail);
    // OpenMP's own library has something to say of its variable, too.
    const auto byOpenMp = fuse({"", wrong}, {});
    EXPECT_EQ(byOpenMp.status, 2);
    EXPECT_THAT(byOpenMp.err, HasSubstr("fusion: OMP_NUM_THREADS" + tail));
    // What comes first counts.
    EXPECT_EQ(fuse({wrong, "2"}, {"--threads", "2"}).status, 0);
    EXPECT_EQ(fuse({"2", wrong}, {}).status, 0);
  }
  EXPECT_EQ(fuse({"", "2,4"}, {}).status, 0) << "the outermost level's";
}

#ifndef _WIN32
TEST_F(CommandLine, AVariableOfThreadsWithoutAValueIsNone) {
  const std::string line = Quoted(FUSION_COMMAND) + " fuse " + Quoted(Path("pan.tif")) + ' ' + Quoted(Path("ms.tif")) +
                           ' ' + Quoted(Path("out.tif")) + " --method brovey --quiet";
  EXPECT_EQ(test_support::RunShell("FUSION_THREADS= OMP_NUM_THREADS= " + line), 0);
}
#endif

TEST_F(CommandLine, AnUnknownCommandIsNamedWithTheNearest) {
  const auto run = Run({"evalute", "a", "b", "c"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "fusion: Unknown command 'evalute'; did you mean 'evaluate'? (see fusion --help)\n");
  EXPECT_THAT(Run({}).err, HasSubstr("subcommand is required"));
}

TEST_F(CommandLine, JsonTellsWhatTheParserRefuses) {
  const std::vector<std::string> cases[] = {
      {"fuse", "a", "b", "--json"},
      {"fuse", "--json", "a", "b", "c", "--magic"},
      {"fuse", "a", "b", "c", "--bands", "1,x", "--json"},
      {"fuse", "a", "b", "c", "--kernel-size", "big", "--json"},
      {"evaluate", "a", "b", "--json"},
      {"methods", "--json", "--yaml"},
      {"melt", "--json"},
  };
  for (const auto& arguments : cases) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    const auto run = Run(arguments);
    EXPECT_EQ(run.status, 2);
    const auto json = nlohmann::json::parse(run.out, nullptr, false);
    ASSERT_TRUE(json.is_object()) << run.out;
    EXPECT_EQ(json["error_type"], -1);
    EXPECT_EQ(run.err, "fusion: " + json["message"].get<std::string>() + '\n');
    // Of a fusion the same keys as ever.
    EXPECT_EQ(json.contains("valid_share"), arguments.front() == "fuse");
  }
}

TEST_F(CommandLine, AListWithoutNumbersTakesNoOtherArgument) {
  for (const std::string option : {"--window", "--bands", "--rgb"}) {
    const auto run = Fuse("out.tif", {option, ",", "--json"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr(option));
    EXPECT_EQ(nlohmann::json::parse(run.out, nullptr, false)["error_type"], -1) << run.out;
  }
  const auto evaluate = Run({"evaluate", Path("pan.tif"), Path("ms.tif"), Path("ms.tif"), "--metric", ",", "--json"});
  EXPECT_EQ(evaluate.status, 2);
  EXPECT_EQ(nlohmann::json::parse(evaluate.out, nullptr, false)["error_type"], -1);
  // Numbers that are none, or too large.
  for (const std::string list : {"", "1,", ",1", "1,,2", "1 2", "1.5", "99999999999", "0x1", "+1"}) {
    EXPECT_EQ(Fuse("out.tif", {"--bands", list}).status, 2) << list;
  }
  EXPECT_EQ(Fuse("out.tif", {"--bands", "3", "--bands", "1", "--quiet"}).status, 0) << "a list in two pieces";
  EXPECT_EQ(Image("out.tif").bands.size(), 2U);
}

TEST_F(CommandLine, AFailedLogIsAFileThatCannotBeCreated) {
  const auto run = Fuse("out.tif", {"--log", Path("no/folder/run.log"), "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(nlohmann::json::parse(run.out)["error_type"], 5);
  EXPECT_THAT(run.err, testing::StartsWith("fusion: error 5: The log file "));
  EXPECT_THAT(NewNames(), IsEmpty());
}

#ifndef _WIN32
TEST_F(CommandLine, ALogThatTakesNothingIsToldAndChangesNothingElse) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
  const auto run = Fuse("out.tif", {"--log", "/dev/full", "--json"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("The log file /dev/full cannot be written"));
  EXPECT_THAT(nlohmann::json::parse(run.out)["notices"].dump(), HasSubstr("/dev/full"));
  EXPECT_EQ(Image("out.tif").bands.size(), 4U);
  const auto failed = Run({"fuse", Path("nix.tif"), Path("ms.tif"), Path("b.tif"), "--log", "/dev/full"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(failed.err, HasSubstr("The log file /dev/full cannot be written"));
  EXPECT_THAT(failed.err, HasSubstr("nix.tif does not exist."));
}

TEST_F(CommandLine, StandardOutputThatTakesNothingIsAFailure) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
  const std::string files = Quoted(Path("pan.tif")) + ' ' + Quoted(Path("ms.tif")) + ' ';
  const std::string lines[] = {
      "--version",
      "--help",
      "methods",
      "methods --json",
      "evaluate " + files + Quoted(Path("truth.tif")) + " --metric snr",
      "fuse " + files + Quoted(Path("out.tif")) + " --method brovey --json",
  };
  for (const auto& line : lines) {
    const auto run = Shell(line + (line.front() == 'm' || line.front() == '-' ? "" : " --quiet"), "> /dev/full");
    EXPECT_EQ(run.status, 1) << line;
    EXPECT_EQ(run.err, "fusion: Standard output cannot be written.\n") << line;
  }
  EXPECT_EQ(Shell("melt --json", "> /dev/full").status, 2) << "the first failure counts";
}

TEST_F(CommandLine, NamesThatAreNoUnicodeTextAreRefused) {
  const std::string pan = Quoted(Path("pan.tif")) + ' ';
  const std::string ms = Quoted(Path("ms.tif")) + ' ';
  // é as it was in the days of Latin 1.
  const std::string out = Quoted(Path("")) + "\"$(printf '/r\\351sultat.tif')\" ";
  const auto before = m_folder.Names();
  const std::string fused = Quoted(Path("out.tif"));
  const std::string lines[] = {pan + ms + out + "--overwrite", pan + out + fused, out + ms + fused,
                               pan + ms + fused + " --log " + out, pan + ms + fused + " --aoi " + out};
  for (const std::string& line : lines) {
    const auto run = Shell("fuse " + line, "> " + Quoted(Path("std")));
    EXPECT_EQ(run.status, 2) << line;
    EXPECT_THAT(run.err, HasSubstr("is no Unicode text")) << line;
    EXPECT_EQ(FileBytes(Path("std")), "");
    std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath("std")));
  }
  const auto run = Shell("fuse " + pan + ms + out + "--json", "> " + Quoted(Path("std")));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(nlohmann::json::parse(FileBytes(Path("std")), nullptr, false)["error_type"], -1);
  std::filesystem::remove(CommonFun::ToPath(m_folder.WidePath("std")));
  EXPECT_EQ(Shell("sample " + out, "").status, 2);
  EXPECT_EQ(m_folder.Names(), before);
}
#else
TEST_F(CommandLine, ALogThatTakesNothingIsToldAndChangesNothingElse) {
  GTEST_SKIP() << "no device is always full here";
}
TEST_F(CommandLine, StandardOutputThatTakesNothingIsAFailure) { GTEST_SKIP() << "no device is always full here"; }
TEST_F(CommandLine, NamesThatAreNoUnicodeTextAreRefused) {
  GTEST_SKIP() << "the system hands arguments over as wide text";
}
#endif

TEST_F(CommandLine, TheLogTellsWhatWasDone) {
  const std::string log = Path("run.log");
  ASSERT_EQ(Fuse("out.tif", {"--method", "ihs", "--spectral-match", "off", "--bands", "1,2,3", "--no-overviews",
                             "--log", log, "--quiet"})
                .status,
            0);
  std::string text = FileBytes(log);
  for (const std::string& said :
       {Path("pan.tif"), Path("ms.tif"), Path("out.tif"), std::string("by ihs"), std::string("64x64"),
        std::string("3 bands of uint16"), std::string("--bands 1,2,3"), std::string("--spectral-match off"),
        std::string("--no-overviews"), std::string("stretched to the range"), std::string("ihs took ")}) {
    EXPECT_THAT(text, HasSubstr(said));
  }
  EXPECT_THAT(text, Not(HasSubstr("failed")));
  // A failure stands behind it.
  ASSERT_EQ(Run({"fuse", Path("nix.tif"), Path("ms.tif"), Path("b.tif"), "--log", log}).status, 1);
  text = FileBytes(log);
  EXPECT_THAT(text, HasSubstr("failed with type 4: " + Path("nix.tif") + " does not exist."));
}

TEST_F(CommandLine, NoticesStandInTheJsonQuietOrNot) {
  for (const bool quiet : {false, true}) {
    std::vector<std::string> options = {"--window", "-9,0,30,30", "--json", "--overwrite", "--method", "brovey"};
    if (quiet) options.emplace_back("--quiet");
    const auto run = Fuse("out.tif", options);
    ASSERT_EQ(run.status, 0) << run.err;
    const auto json = nlohmann::json::parse(run.out);
    ASSERT_EQ(json["notices"].size(), 1U);
    const auto notice = json["notices"][0].get<std::string>();
    EXPECT_THAT(notice, HasSubstr("--window is cut"));
    if (quiet) {
      EXPECT_THAT(run.err, IsEmpty());
    } else {
      EXPECT_THAT(run.err, HasSubstr(notice + '\n'));
    }
  }
}

}  // namespace

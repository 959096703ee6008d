#include "platform/utility/log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "tests/support/test_raster.h"

namespace {

namespace fs = std::filesystem;

class Log : public testing::Test {
 protected:
  std::vector<std::string> Lines() const {
    std::ifstream file(m_file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }

  test_support::TempFolder m_folder;
  fs::path m_file = m_folder.Root() / u8"日志.log";
  std::wstring m_name = m_folder.Path(L"日志.log");
};

TEST_F(Log, NoProgramHasSetOne) { EXPECT_EQ(CLog::m_pLogger, nullptr); }

TEST_F(Log, EntryCarriesTimeLevelPlaceAndTextAndIsWrittenAtOnce) {
  CLog log(m_name);
  log.WriteLog(2, "Fusion", 401, "CFusion::Process", L"  WARNING: 用户取消了 {} %s");
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), 1u);
  const std::regex entry(
      R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[warning\] Fusion:401 CFusion::Process   WARNING: 用户取消了 \{\} %s\r?)");
  EXPECT_TRUE(std::regex_match(lines[0], entry)) << lines[0];
}

TEST_F(Log, LevelsHaveTheirNames) {
  CLog log(m_name);
  for (const int level : {-5, 0, 1, 2, 3, 9}) log.WriteLog(level, "f", 1, "g", L"t");
  const auto lines = Lines();
  const char* names[] = {"[debug]", "[debug]", "[info]", "[warning]", "[error]", "[error]"};
  ASSERT_EQ(lines.size(), 6u);
  for (std::size_t i = 0; i < 6; ++i) EXPECT_NE(lines[i].find(names[i]), std::string::npos) << lines[i];
}

TEST_F(Log, MissingPartsAreLeftOut) {
  CLog log(m_name);
  log.WriteLog(1, nullptr, 0, nullptr, nullptr);
  EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(Log, AnExistingFileIsContinued) {
  { CLog(m_name).WriteLog(1, "f", 1, "g", L"first"); }
  { CLog(m_name).WriteLog(1, "f", 1, "g", L"second"); }
  EXPECT_EQ(Lines().size(), 2u);
}

TEST_F(Log, FileThatCannotBeOpenedThrows) { EXPECT_THROW(CLog(m_name + L"/below/a/file"), std::runtime_error); }

}  // namespace

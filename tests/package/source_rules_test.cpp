// Rules of the source tree that no compiler checks.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path kTree = FUSION_SOURCE_DIR;

/// What each layer may include besides itself.
const std::map<std::string, std::set<std::string>> kAllowed = {
    {"platform", {}},
    {"framework", {"platform"}},
    {"estimation", {"platform", "framework"}},
    {"band_arithmetic", {"platform", "framework"}},
    {"highpass", {"platform", "framework", "estimation"}},
    {"transform", {"platform", "framework"}},
    {"factory", {"platform", "framework", "estimation", "band_arithmetic", "highpass", "transform"}},
    {"evaluation", {"platform", "framework"}},
    {"quality", {"platform"}},
    {"runs",
     {"platform", "framework", "estimation", "band_arithmetic", "highpass", "transform", "factory", "evaluation",
      "quality", "fusion_c.h"}},
    {"apps", {"platform", "runs", "fusion_api.h"}},
    {"python", {"platform", "runs", "apps", "fusion_api.h"}},
};

const std::vector<std::string> kFolders = [] {
  std::vector<std::string> folders;
  for (const auto& layer : kAllowed) folders.push_back(layer.first);
  return folders;
}();

std::string LayerOf(const std::string& path) { return path.substr(0, path.find('/')); }

std::vector<fs::path> SourcesOf(const std::string& folder) {
  std::vector<fs::path> sources;
  for (const auto& entry : fs::recursive_directory_iterator(kTree / folder)) {
    const auto extension = entry.path().extension();
    if (extension == ".h" || extension == ".cpp") sources.push_back(entry.path());
  }
  return sources;
}

std::vector<std::string> LinesOf(const fs::path& file) {
  std::ifstream stream(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(SourceRules, FoldersIncludeOnlyWhatStandsBelowThem) {
  const std::regex include("^\\s*#\\s*include\\s+\"([^\"]+)\"");
  int seen = 0;
  for (const auto& folder : kFolders) {
    for (const auto& file : SourcesOf(folder)) {
      const std::string layer = LayerOf(fs::relative(file, kTree).generic_string());
      for (const auto& line : LinesOf(file)) {
        std::smatch match;
        if (!std::regex_search(line, match, include)) continue;
        ++seen;
        const std::string target = LayerOf(match[1].str());
        EXPECT_TRUE(target == layer || kAllowed.at(layer).contains(target)) << file << " includes " << match[1];
      }
    }
  }
  EXPECT_GT(seen, 50);
}

TEST(SourceRules, ASourceIncludesItsOwnHeaderFirst) {
  const std::regex include("^\\s*#\\s*include\\s+[\"<](.+)[\">].*");
  int seen = 0;
  for (const auto& folder : kFolders) {
    for (const auto& source : SourcesOf(folder)) {
      const fs::path header = fs::path(source).replace_extension(".h");
      if (source.extension() != ".cpp" || !fs::exists(header)) continue;
      ++seen;
      std::string first;
      std::smatch match;
      for (const auto& line : LinesOf(source)) {
        if (first.empty() && std::regex_match(line, match, include)) first = match[1];
      }
      EXPECT_EQ(first, fs::relative(header, kTree).generic_string()) << source;
    }
  }
  EXPECT_GT(seen, 100);
}

TEST(SourceRules, ForeignLibrariesStayInsideThePlatform) {
  const std::regex foreign("^\\s*#\\s*include\\s*[<\"](gdal|ogr|cpl_|vrt|proj|Eigen|spdlog)");
  for (const auto& folder : kFolders) {
    if (folder == "platform") continue;
    for (const auto& file : SourcesOf(folder)) {
      for (const auto& line : LinesOf(file)) EXPECT_FALSE(std::regex_search(line, foreign)) << file << ": " << line;
    }
  }
  for (const auto& file : SourcesOf("platform")) {
    if (file.extension() != ".h") continue;
    for (const auto& line : LinesOf(file)) EXPECT_FALSE(std::regex_search(line, foreign)) << file << ": " << line;
  }
}

TEST(SourceRules, PixelTypesBecomeElementTypesInOnePlace) {
  std::set<std::string> places;
  for (const auto& folder : kFolders) {
    for (const auto& file : SourcesOf(folder)) {
      for (const auto& line : LinesOf(file)) {
        if (line.find("case PDT_") != std::string::npos) places.insert(fs::relative(file, kTree).generic_string());
      }
    }
  }
  EXPECT_EQ(places, (std::set<std::string>{"platform/raster/pixel_type.h"}));
}

TEST(SourceRules, NothingAsksWhichKernelAResamplingIs) {
  // Kernels are visited by framework/resampling/kernels.h. A run compares what the parser makes of a name.
  const std::regex asks("(case|==|!=) RT_|RT_\\w+ (==|!=)");
  std::set<std::string> places;
  for (const auto& folder : kFolders) {
    for (const auto& file : SourcesOf(folder)) {
      for (const auto& line : LinesOf(file)) {
        if (std::regex_search(line, asks)) places.insert(fs::relative(file, kTree).generic_string());
      }
    }
  }
  EXPECT_EQ(places, (std::set<std::string>{"runs/fuse_checks.cpp"}));
}

TEST(SourceRules, TheDocumentsShowTheExamplesAsTheyAre) {
  const auto text = [](const fs::path& file) {
    std::string all;
    for (const auto& line : LinesOf(kTree / file)) all += line + '\n';
    return all;
  };
  const std::string usage = text("docs/usage.md");
  EXPECT_NE(usage.find("```cpp\n" + text("examples/fuse/main.cpp") + "```\n"), std::string::npos);
  EXPECT_NE(usage.find("```c\n" + text("examples/fuse_c/main.c") + "```\n"), std::string::npos);
}

}  // namespace

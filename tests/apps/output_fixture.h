#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/command.h"

/// The built program in a folder with a sample scene of ratio 4, and what it leaves there.
class OutputCommand : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Run({"sample", Path(""), "--size", "64", "--quiet"}).status, 0); }

  static test_support::CommandResult Run(const std::vector<std::string>& arguments) {
    return test_support::RunCommand(FUSION_COMMAND, arguments);
  }
  /// `fuse` on the scene.
  test_support::CommandResult Fuse(const std::string& out, const std::vector<std::string>& options = {}) const {
    return Run(FuseArguments(out, options));
  }
  std::vector<std::string> FuseArguments(const std::string& out, const std::vector<std::string>& options) const {
    std::vector<std::string> arguments = {"fuse", Path("pan.tif"), Path("ms.tif"), Path(out), "--quiet"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
  }
  /// The program with arguments as a command of the shell.
  static std::string Line(const std::vector<std::string>& arguments) {
    std::string line = test_support::Quoted(FUSION_COMMAND);
    for (const std::string& argument : arguments) line += ' ' + test_support::Quoted(argument);
    return line;
  }

  std::string Path(const std::string& name) const { return m_folder.Path(name); }
  std::string Bytes(const std::string& name) const { return test_support::FileBytes(Path(name)); }
  /// Files beside those of the scene.
  std::vector<std::string> NewNames() const {
    std::vector<std::string> names = m_folder.Names();
    std::erase_if(names, [](const auto& n) { return n == "pan.tif" || n == "ms.tif" || n == "truth.tif"; });
    return names;
  }

  test_support::TemporaryFolder m_folder;
};

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/support/scene.h"

/// The built program in a folder with a sample scene of ratio 4 in it.
class SceneCommand : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Run({"sample", Path(""), "--size", "64", "--quiet"}).status, 0); }

  static test_support::CommandResult Run(const std::vector<std::string>& arguments) {
    return test_support::RunCommand(FUSION_COMMAND, arguments);
  }
  /// `fuse` on the scene.
  test_support::CommandResult Fuse(const std::string& out, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"fuse", Path("pan.tif"), Path("ms.tif"), Path(out)});
    return Run(options);
  }
  std::string Path(const std::string& name) const { return m_folder.Path(name); }
  reference::Image Image(const std::string& name) const { return test_support::ReadImage(m_folder.WidePath(name)); }
  /// Files beside those of the scene.
  std::vector<std::string> NewNames() const {
    std::vector<std::string> names = m_folder.Names();
    std::erase_if(names, [](const auto& n) { return n == "pan.tif" || n == "ms.tif" || n == "truth.tif"; });
    return names;
  }

  test_support::TemporaryFolder m_folder;
};

// Files whose paths are longer than systems once allowed, with letters beyond the first plane: inputs, outputs, areas,
// logs and temporary files, through the command and through the classes.
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "platform/utility/log.h"
#include "tests/apps/output_fixture.h"
#include "tests/support/all_methods.h"
#include "tests/support/scene.h"

namespace {

using testing::HasSubstr;

class DeepFolders : public OutputCommand {
 protected:
  void SetUp() override {
    // A name of a folder may have 255 bytes in some systems.
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 14; ++j) m_deep += "融合影像𠀀";
      m_deep += '/';
    }
    std::filesystem::create_directories(CommonFun::ToPath(m_folder.WidePath(m_deep)));
    ASSERT_GT(m_folder.WidePath(m_deep).size(), 260U);
    ASSERT_EQ(Run({"sample", Deep(""), "--size", "64", "--quiet"}).status, 0);
    const reference::Image pan = test_support::ReadImage(WideDeep("pan.tif"));
    const auto corner = [&](double x, double y) {
      return reference::Position{pan.geoTransform[0] + x * pan.geoTransform[1],
                                 pan.geoTransform[3] + y * pan.geoTransform[5]};
    };
    test_support::WriteTriangle(WideDeep("范围.csv"), corner(0, 0), corner(64, 0), corner(0, 64));
  }

  std::string Deep(const std::string& name) const { return Path(m_deep + name); }
  std::wstring WideDeep(const std::string& name) const { return m_folder.WidePath(m_deep + name); }
  bool HasDeep(const std::string& name) const { return m_folder.Has(m_deep + name); }
  /// The standard library lists no such folder on some systems.
  int Count() const { return CPLStringList(VSIReadDir(Path(m_deep.substr(0, m_deep.size() - 1)).c_str())).size(); }

  std::string m_deep;
};

TEST_F(DeepFolders, TheCommandReadsAndWritesThere) {
  const int before = Count();
  for (const std::string method : {"brovey", "hpf", "sharpen", "bayesian"}) {
    const std::string out = "𝄞融合_" + method + ".tif";
    const auto run = Run({"fuse", Deep("pan.tif"), Deep("ms.tif"), Deep(out), "--method", method, "--aoi",
                          Deep("范围.csv"), "--log", Deep("日志𠀀.log"), "--no-overviews", "--quiet"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(test_support::ReadImage(WideDeep(out)).width, 64);
    const auto again = Run({"fuse", Deep("pan.tif"), Deep("ms.tif"), Deep(out), "--method", method, "--overwrite",
                            "--no-overviews", "--quiet"});
    EXPECT_EQ(again.status, 0) << again.err;
  }
  EXPECT_THAT(test_support::FileBytes(Deep("日志𠀀.log")), HasSubstr("𝄞融合_hpf.tif"));
  EXPECT_EQ(Count(), before + 5) << "four images, a log, and no temporary file";
  // Whole, and in UTF-8.
  const auto missing = Run({"fuse", Deep("没有𠀀.tif"), Deep("ms.tif"), Deep("out.tif")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr(Deep("没有𠀀.tif")));
}

TEST_F(DeepFolders, TheClassesReadAndWriteThere) {
  CLog log(WideDeep("类𠀀.log"));
  CLog::m_pLogger = &log;
  FusionParam param;
  param.m_strPanFile = WideDeep("pan.tif");
  param.m_strMSFile = WideDeep("ms.tif");
  param.m_strOutFile = WideDeep("类𝄞.tif");
  param.m_strAoiFile = WideDeep("范围.csv");
  for (const test_support::NamedMethod& method : test_support::AllMethods()) {
    // The one that is given its model has it for three bands.
    if (method.name == "bayesian, given model") continue;
    SCOPED_TRACE(method.name);
    method.run(param);
    EXPECT_EQ(test_support::ReadImage(param.m_strOutFile).width, 64);
    EXPECT_TRUE(CRasterSource::DeleteFileW(param.m_strOutFile));
    EXPECT_FALSE(HasDeep("类𝄞.tif"));
  }
  CLog::m_pLogger = nullptr;
  EXPECT_THAT(test_support::FileBytes(Deep("类𠀀.log")), HasSubstr("融合"));
  const std::wstring temporary = CommonFun::GetTempFilePath(WideDeep("临时𠀀.tif"));
  EXPECT_TRUE(CommonFun::IsExistingFile(temporary));
}

}  // namespace

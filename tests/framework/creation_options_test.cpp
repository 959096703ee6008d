// Creation options of the driver that writes the output.
#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/utility/common_fun.h"
#include "tests/support/all_methods.h"
#include "tests/support/scene.h"

namespace {

using test_support::Scene;
using test_support::SceneOptions;

std::string CompressionOf(const std::wstring& file) {
  const std::unique_ptr<GDALDataset> dataset(GDALDataset::Open(CommonFun::U2Utf8(file).c_str()));
  EXPECT_TRUE(dataset);
  const char* compression = dataset ? dataset->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE") : nullptr;
  return compression ? compression : "";
}

TEST(CreationOptions, ReachTheOutputOfEveryMethod) {
  for (const auto& method : test_support::AllMethods()) {
    SCOPED_TRACE(method.name);
    SceneOptions options;
    options.low = 700.0;
    const Scene scene(31, options);
    FusionParam param = scene.Param(PDT_FLOAT32);
    method.run(param);
    EXPECT_EQ(CompressionOf(param.m_strOutFile), "");
    param.m_vecCreationOptions = {"COMPRESS=DEFLATE"};
    method.run(param);
    EXPECT_EQ(CompressionOf(param.m_strOutFile), "DEFLATE");
  }
}

}  // namespace

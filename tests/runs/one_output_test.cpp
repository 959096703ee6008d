// A run makes its output and no other file, not even for a moment.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <utility>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/support/run_scene.h"

namespace {

/// Looks at the folder whenever a run tells anything.
class FolderWatch : public fusion::RunObserver {
 public:
  explicit FolderWatch(std::filesystem::path folder) : m_folder(std::move(folder)) {}
  void StageBegins(const fusion::RunStage&) override { Look(); }
  void Progress(int) override { Look(); }
  bool WantsCancel() override { return Look(), false; }

  std::set<std::string> files;  ///< the names of all that were seen, whatever folder inside they lie in

 private:
  void Look() {
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder, error)) {
      if (!entry.is_directory(error)) files.insert(entry.path().filename().string());
    }
  }
  std::filesystem::path m_folder;
};

using OneOutput = test_support::RunScene;

TEST_F(OneOutput, IsAllThatAnyMethodMakes) {
  struct Choice {
    const char* name;
    void (*choose)(fusion::FuseRequest& request, const fusion::Method& method);
  };
  const Choice choices[] = {
      {"by default", [](auto&, const auto&) {}},
      {"floats, matched plainly",
       [](auto& r, const auto& method) {
         if (method.Takes(fusion::kTakesType)) r.type = "float32";
         if (method.Takes(fusion::kTakesMatch)) r.matchMoments = "plain";
         if (method.Takes(fusion::kTakesProductRoot)) r.productRoot = "off";
       }},
      {"raw", [](auto& r, const auto&) { r.spectralMatch = "off"; }},
      {"levelled, green mix, two kernels",
       [](auto& r, const auto& method) {
         if (!method.Takes(fusion::kTakesAutoLevel)) return;
         r.autoLevel = r.makeGreen = true;
         if (method.Takes(fusion::kTakesKernels)) r.secondKernelSize = 3;
       }},
      {"a window",
       [](auto& r, const auto&) {
         r.window = {5, 7, 21, 18};
       }},
  };
  const std::filesystem::path folder = CommonFun::ToPath(m_folder.WidePath("pan.tif")).parent_path();
  for (const auto& method : fusion::Methods()) {
    for (const Choice& choice : choices) {
      SCOPED_TRACE(std::string(method.name) + ", " + choice.name);
      fusion::FuseRequest request = Request(method.name);
      request.noOverviews = true;
      request.overwrite = true;
      choice.choose(request, method);
      int created = 0;
      platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
        // What lies in memory is no file.
        created += operation == platform::RasterOperation::kCreate && !path.starts_with(L"/vsimem/");
        return false;
      });
      FolderWatch watch(folder);
      EXPECT_NO_THROW(fusion::Fuse(request, &watch));
      platform::SetRasterFault({});
      EXPECT_EQ(created, 1);
      EXPECT_EQ(watch.files, (std::set<std::string>{"ms.tif", "out.tif", "pan.tif"}));
    }
  }
}

}  // namespace

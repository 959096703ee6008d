// The `fuse` command in this process: failures and interrupts injected at every turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "apps/exit_status.h"
#include "apps/fuse_command.h"
#include "runs/methods.h"
#include "tests/support/run_scene.h"

namespace {

using platform::RasterOperation;

class FuseFailures : public test_support::RunScene {
 protected:
  app::FuseOptions Options(const std::string& method) const { return {Request(method), true}; }
};

/// Runs with a failing operation, wherever it comes; the old output must stay as it was, with nothing beside it.
TEST_F(FuseFailures, AFailureAnywhereLeavesTheOldOutputAndNothingElse) {
  for (const auto& method : fusion::Methods()) {
    auto options = Options(method.name);
    options.overwrite = true;
    ASSERT_EQ(app::RunFuse(options), app::kSuccess);
    std::string before = test_support::FileBytes(options.out);
    const auto names = m_folder.Names();
    for (const auto operation :
         {RasterOperation::kOpen, RasterOperation::kCreate, RasterOperation::kRead, RasterOperation::kWrite,
          RasterOperation::kClose, RasterOperation::kStore, RasterOperation::kRename}) {
      for (int failing = 0; failing < 200; ++failing) {
        int count = 0;
        bool hit = false;
        platform::SetRasterFault([&](RasterOperation asked, const std::wstring&, int, const CRect&) {
          if (asked != operation || count++ != failing) return false;
          hit = true;
          return true;
        });
        testing::internal::CaptureStderr();
        const int status = app::RunFuse(options);
        const std::string said = testing::internal::GetCapturedStderr();
        platform::SetRasterFault({});
        if (!hit) {
          before = test_support::FileBytes(options.out);
          break;
        }
        // Not every failure ends a run: IHS goes on where a minimum cannot be had, overviews are left out.
        if (status == app::kSuccess) {
          before = test_support::FileBytes(options.out);
          continue;
        }
        EXPECT_EQ(status, app::kRunFailed) << method.name << " operation " << static_cast<int>(operation);
        EXPECT_THAT(said, testing::StartsWith("fusion: error ")) << method.name;
        EXPECT_TRUE(test_support::FileBytes(options.out) == before) << method.name;
        EXPECT_EQ(m_folder.Names(), names)
            << method.name << " operation " << static_cast<int>(operation) << ' ' << failing;
      }
    }
  }
}

TEST_F(FuseFailures, ANameThatIsNotGivenIsToldWithTheReason) {
  const auto options = Options("brovey");
  platform::SetRasterFault(
      [](RasterOperation asked, const std::wstring&, int, const CRect&) { return asked == RasterOperation::kRename; });
  testing::internal::CaptureStderr();
  const int status = app::RunFuse(options);
  const std::string said = testing::internal::GetCapturedStderr();
  platform::SetRasterFault({});
  EXPECT_EQ(status, app::kRunFailed);
  EXPECT_THAT(said, testing::StartsWith("fusion: error 3: " + options.out +
                                        " cannot be written: " + std::generic_category().message(EIO) + ". ("));
}

TEST_F(FuseFailures, CtrlCAnywhereLeavesTheOldOutputAndNothingElse) {
  for (const auto& method : fusion::Methods()) {
    auto options = Options(method.name);
    options.overwrite = true;
    ASSERT_EQ(app::RunFuse(options), app::kSuccess);
    std::string before = test_support::FileBytes(options.out);
    const auto names = m_folder.Names();
    for (int at = 0; at < 200; ++at) {
      int count = 0;
      platform::SetRasterFault([&](RasterOperation, const std::wstring&, int, const CRect&) {
        if (count++ == at) std::raise(SIGINT);
        return false;
      });
      testing::internal::CaptureStderr();
      const int status = app::RunFuse(options);
      const std::string said = testing::internal::GetCapturedStderr();
      platform::SetRasterFault({});
      if (count <= at) break;
      // An interrupt after the last question comes too late to cancel anything.
      if (status == app::kSuccess) {
        before = test_support::FileBytes(options.out);
        continue;
      }
      EXPECT_EQ(status, app::kCancelled) << method.name << ' ' << at;
      EXPECT_THAT(said, testing::HasSubstr("cancelled"));
      EXPECT_TRUE(test_support::FileBytes(options.out) == before) << method.name << ' ' << at;
      EXPECT_EQ(m_folder.Names(), names) << method.name << ' ' << at;
    }
  }
}

}  // namespace

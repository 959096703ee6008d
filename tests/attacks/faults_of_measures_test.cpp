// What the platform can fail at, one thing after another, and the user's change of mind: in evaluations, an assessment,
// a look beforehand, a comparison with checksums, a report, surveys, pictures and samples.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/provenance.h"
#include "runs/report.h"
#include "runs/sample.h"
#include "runs/survey.h"
#include "tests/attacks/faults.h"

namespace {

using attacks::ChangedMind;
using attacks::Faults;
using attacks::NameOf;
using fusion::RunFailure;

class FaultsOfMeasures : public Faults, public testing::WithParamInterface<const char*> {
 protected:
  /// Of the allocations as many as of a method's; all of them, and all operations, with FUSION_EVERY_ALLOCATION in the
  /// environment. A picture comes with a fusion, and a report does what an evaluation, a look beforehand and an
  /// assessment do: of them a seventh.
  long Step() const { return attacks::EveryAllocation() ? 1 : 37L * (m_what == "quicklook" ? 7 : Seventh()); }
  int Seventh() const { return m_what == "report" && !attacks::EveryAllocation() ? 7 : 1; }

  template <typename Request, typename Run>
  void Try(const Request& request, const Run& run) {
    fusion::Fuse(Requests("brovey")[0]);
    const std::string good = test_support::FileBytes(m_folder.Path("out.tif"));
    const auto plain = [&] { run(request, nullptr); };
    ASSERT_NO_THROW(plain());
    FailOperations(m_what, good, plain, Seventh());
    ThrowInOperations(m_what, good, plain);
    if (attacks::memoryFails) FailAllocations(m_what, good, plain, 0, Step());
    ChangedMind never(1 << 30);
    run(request, &never);
    const int step = std::max(1, never.Asked() / 200);
    for (int at = 0; at < never.Asked(); at += step) {
      Hit(m_what + " cancelled " + std::to_string(at), good, [&] {
        ChangedMind observer(at);
        try {
          run(request, &observer);
        } catch (const RunFailure& failure) {
          EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << at << failure.what();
          throw;
        }
        ADD_FAILURE() << m_what << " went on after question " << at;
      });
    }
  }
};

TEST_P(FaultsOfMeasures, AreToldAndLeaveNothing) {
  m_what = GetParam();
  if (m_what == "assess") {
    fusion::AssessRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.methods = {"brovey"};
    request.protocol = "wald";
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Assess(r, observer); });
    return;
  }
  if (m_what == "check") {
    fusion::CheckRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Check(r, observer); });
    return;
  }
  if (m_what == "verify") {
    Try(m_folder.Path("out.tif"),
        [](const auto& file, fusion::RunObserver* observer) { fusion::VerifyOutput(file, observer); });
    return;
  }
  if (m_what == "quicklook") {
    fusion::FuseRequest request = Requests("brovey")[0];
    request.quicklook = m_folder.Path("look.png");
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Fuse(r, observer); });
    return;
  }
  if (m_what == "report") {
    fusion::ReportRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.fused = {m_folder.Path("out.tif")};
    request.out = m_folder.Path("report.html");
    request.overwrite = true;
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Report(r, observer); });
    return;
  }
  if (m_what == "survey") {
    fusion::SurveyRequest request;
    static_cast<fusion::FuseRequest&>(request) = Requests("brovey")[0];
    request.rows = {0, 16};
    request.out = m_folder.Path("rows.survey");
    Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::MakeSurvey(r, observer); });
    return;
  }
  fusion::EvaluateRequest request;
  request.pan = m_folder.Path("pan.tif");
  request.ms = m_folder.Path("ms.tif");
  request.fused = m_folder.Path("out.tif");
  request.metrics = {m_what};
  Try(request, [](const auto& r, fusion::RunObserver* observer) { fusion::Evaluate(r, observer); });
}

INSTANTIATE_TEST_SUITE_P(All, FaultsOfMeasures,
                         testing::Values("entropy", "statistics", "snr", "gradient", "assess", "check", "verify",
                                         "quicklook", "report", "survey"),
                         NameOf);

/// The three files of a scene are each the older one or the new one, which here are the same.
TEST_F(Faults, OfASampleAreToldAndLeaveTheOlderScene) {
  m_what = "sample";
  fusion::SampleRequest request;
  request.folder = m_folder.Path("scene");
  request.width = request.height = 16;
  request.overwrite = true;
  fusion::MakeSample(request);
  std::filesystem::rename(CommonFun::ToPath(m_folder.WidePath("scene/truth.tif")),
                          CommonFun::ToPath(m_folder.WidePath("out.tif")));
  const std::string good = test_support::FileBytes(m_folder.Path("out.tif"));
  const auto run = [&] {
    const auto leave = [&] {
      // No more than the three, none damaged.
      for (const auto& file : std::filesystem::directory_iterator(CommonFun::ToPath(m_folder.WidePath("scene")))) {
        const std::string name = file.path().filename().string();
        EXPECT_TRUE(name == "pan.tif" || name == "ms.tif" || name == "truth.tif") << name;
        if (name != "truth.tif") continue;
        EXPECT_TRUE(test_support::FileBytes(m_folder.Path("scene/truth.tif")) == good);
      }
    };
    try {
      fusion::MakeSample(request);
    } catch (const RunFailure&) {
      platform::SetRasterFault({});
      leave();
      throw;
    }
    leave();
  };
  FailOperations(m_what, good, run);
  EXPECT_GT(m_failed, 10);
}

}  // namespace

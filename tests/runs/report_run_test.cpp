// What a run that writes the page refuses, says and leaves behind.
#include <gmock/gmock.h>

#include <fstream>

#include "platform/raster/raster_fault.h"
#include "platform/utility/common_fun.h"
#include "runs/report.h"
#include "tests/runs/report_scene.h"

namespace {

using fusion::ReportRequest;
using fusion::RunFailure;
using testing::ElementsAre;
using testing::HasSubstr;

class ReportRun : public test_support::ReportScene {
 protected:
  static std::string SentenceOf(const ReportRequest& request) {
    try {
      fusion::Report(request);
    } catch (const RunFailure& failure) {
      return failure.what();
    }
    return "";
  }
};

TEST_F(ReportRun, RefusesWhatItCannotShow) {
  const std::string file = Fused("brovey", "brovey.tif");
  EXPECT_THAT(SentenceOf(About({})), HasSubstr("name at least one"));
  EXPECT_THAT(SentenceOf(About({m_folder.Path("none.tif")})), HasSubstr("none.tif does not exist."));
  EXPECT_THAT(SentenceOf(About({m_folder.Path("ms.tif")})),
              HasSubstr("ms.tif: The fused image's pixels are not those"));
  ReportRequest request = About({file});
  request.fusedBands = {7};
  EXPECT_THAT(SentenceOf(request), HasSubstr("--fused-bands 7: "));
  request = About({file});
  request.out = "";
  EXPECT_THAT(SentenceOf(request), HasSubstr("The page needs a name"));
  request.out = file;
  request.overwrite = true;
  EXPECT_THAT(SentenceOf(request), HasSubstr("brovey.tif is an input of this run."));
  EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif"));
}

TEST_F(ReportRun, ReplacesAPageWhenToldTo) {
  ReportRequest request = About({Fused("brovey", "brovey.tif")});
  std::ofstream(CommonFun::ToPath(m_folder.WidePath("report.html"))) << "mine";
  EXPECT_THAT(SentenceOf(request), HasSubstr("report.html exists; add --overwrite to replace it."));
  EXPECT_EQ(Page(), "mine");
  request.overwrite = true;
  fusion::Report(request);
  EXPECT_THAT(Page(), testing::StartsWith("<!DOCTYPE html>"));
}

TEST_F(ReportRun, CanBeEndedAtAnyTime) {
  class Impatient : public fusion::RunObserver {
   public:
    explicit Impatient(std::string stage) : m_stage(std::move(stage)) {}
    void StageBegins(const fusion::RunStage& stage) override {
      last = stage.identity.name;
      m_hasBegun = m_hasBegun || last == m_stage;
    }
    bool WantsCancel() override { return m_hasBegun; }

    std::string last;

   private:
    std::string m_stage;
    bool m_hasBegun = false;
  };
  const std::string file = Fused("brovey", "brovey.tif");
  for (const char* stage : {"check", "evaluation", "quality", "pictures"}) {
    Impatient watcher(stage);
    try {
      fusion::Report(About({file}), &watcher);
      ADD_FAILURE() << stage;
    } catch (const RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << stage;
    }
    EXPECT_EQ(watcher.last, stage) << "it goes on no farther";
    EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif")) << stage;
  }
}

TEST_F(ReportRun, CanBeEndedInTheMiddleOfAnEvaluation) {
  class Impatient : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { last = stage.identity.name; }
    void Progress(int percent) override { m_hasEnough = m_hasEnough || (last == "evaluation" && percent > 0); }
    bool WantsCancel() override { return m_hasEnough; }

    std::string last;

   private:
    bool m_hasEnough = false;
  };
  Impatient watcher;
  EXPECT_THROW(fusion::Report(About({Fused("brovey", "brovey.tif")}), &watcher), RunFailure);
  EXPECT_EQ(watcher.last, "evaluation") << "it goes on no farther";
}

TEST_F(ReportRun, TellsWhatItIsDoing) {
  class Watching : public fusion::RunObserver {
   public:
    void StageBegins(const fusion::RunStage& stage) override { stages.push_back(stage.identity.name); }
    void Progress(int percent) override { last = percent; }
    void StageEnds() override { ends.push_back(last); }
    std::vector<std::string> stages;
    std::vector<int> ends;
    int last = 0;
  };
  Watching watcher;
  fusion::Report(About({Fused("brovey", "brovey.tif"), Fused("hpf", "hpf.tif")}), &watcher);
  EXPECT_THAT(watcher.stages, ElementsAre("check", "evaluation", "quality", "pictures"));
  EXPECT_THAT(watcher.ends, ElementsAre(100, 100, 100, 100));
}

TEST_F(ReportRun, LeavesNothingWhereItFails) {
  const std::string file = Fused("brovey", "brovey.tif");
  const auto fails = [&](platform::RasterOperation which, const std::wstring& part) {
    platform::SetRasterFault([=](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      return operation == which && path.find(part) != std::wstring::npos;
    });
    std::string sentence = SentenceOf(About({file}));
    platform::SetRasterFault({});
    EXPECT_THAT(m_folder.Names(), ElementsAre("brovey.tif", "ms.tif", "pan.tif"));
    return sentence;
  };
  EXPECT_NE(fails(platform::RasterOperation::kRead, L"brovey.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kRead, L"pan.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kOpen, L"brovey.tif"), "");
  EXPECT_NE(fails(platform::RasterOperation::kRename, L"report.html"), "");
}

}  // namespace

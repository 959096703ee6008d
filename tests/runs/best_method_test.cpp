// What an assessment does besides measuring: what it leaves behind, methods that fail, cancellation, the best method.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "platform/utility/common_fun.h"
#include "runs/assess.h"
#include "runs/fuse.h"
#include "runs/sample.h"
#include "tests/support/environment.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::AssessReport;
using fusion::AssessRequest;
using fusion::FuseReport;
using fusion::FuseRequest;
using fusion::RunFailure;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Wants to end the run when it is asked for the given time, and says so once.
class Impatient : public fusion::RunObserver {
 public:
  explicit Impatient(int patience) : m_patience(patience) {}
  bool WantsCancel() override { return m_patience-- == 0; }

 private:
  int m_patience;
};

/// Counts the stages that are shown, and what is said.
class Watching : public fusion::RunObserver {
 public:
  void StageBegins(const fusion::RunStage& stage) override { stages.push_back(stage.identity.name); }
  void Progress(int percent) override { last = percent; }
  void Notice(const std::string& text) override { notices.push_back(text); }

  std::vector<std::string> stages;
  std::vector<std::string> notices;
  int last = 0;
};

class BestMethod : public test_support::RunScene {
 protected:
  AssessRequest Assessing() const {
    AssessRequest request;
    request.pan = m_folder.Path("pan.tif");
    request.ms = m_folder.Path("ms.tif");
    request.protocol = "wald";
    return request;
  }
#ifdef _WIN32
  static constexpr char kVariable[] = "TMP";
#else
  static constexpr char kVariable[] = "TMPDIR";
#endif
  void SetUp() override {
    RunScene::SetUp();
    const char* before = std::getenv(kVariable);
    m_before = before ? before : "";
    test_support::SetVariable(kVariable, m_temporary.Path(""));
  }
  void TearDown() override {
    test_support::SetVariable(kVariable, m_before);
    RunScene::TearDown();
  }
  /// What stands in the folder for temporary files, which is the test's own.
  std::vector<std::string> Scratch() const { return m_temporary.Names(); }

  test_support::TemporaryFolder m_temporary;
  std::string m_before;
};

TEST_F(BestMethod, IsWhatAFusionByTheBestMethodTakes) {
  const std::string best = fusion::Assess(Assessing()).best;
  ASSERT_FALSE(best.empty());
  const FuseReport plain = fusion::Fuse(Request(best, "plain.tif"));
  Watching watching;
  const FuseReport report = fusion::Fuse(Request("best", "best.tif"), &watching);
  EXPECT_EQ(report.method, best);
  EXPECT_EQ(report.type, plain.type);
  EXPECT_TRUE(Read("best.tif").bands == Read("plain.tif").bands);
  EXPECT_THAT(watching.notices, Contains(HasSubstr("The best method is " + best)));
  EXPECT_EQ(watching.stages.front(), "assess");
  EXPECT_GT(watching.stages.size(), 1U);
}

TEST_F(BestMethod, IsOneOfThoseThatTakeTheOptions) {
  FuseRequest request = Request("best");
  request.kernelSize = 5;
  EXPECT_EQ(fusion::Fuse(request).method, "hpf");
  request = Request("best", "ihs.tif");
  request.rgb = {3, 2, 1};
  const FuseReport whole = fusion::Fuse(request);
  request.window = {4, 4, 20, 20};
  request.out = m_folder.Path("part.tif");
  const FuseReport report = fusion::Fuse(request);
  EXPECT_EQ(report.method, "ihs");
  EXPECT_EQ(report.width, 20);
  // Assessed on the scene, whatever the window.
  EXPECT_EQ(report.notices, whole.notices);
  request.kernelSize = 5;
  try {
    fusion::Fuse(request);
    ADD_FAILURE() << "no method takes both";
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kWrongUsage);
    EXPECT_THAT(failure.Sentence(), HasSubstr("has no effect on method bayesian"));
  }
}

TEST_F(BestMethod, GoesByTheBandsChosen) {
  AssessRequest assess = Assessing();
  assess.bands = {4, 2};
  const AssessReport report = fusion::Assess(assess);
  EXPECT_THAT(report.bands, ElementsAre("band 4", "band 2"));
  EXPECT_EQ(report.tables[0].measures[2].name, "Q2");
  // Three bands are needed for hues.
  ASSERT_EQ(report.failures.size(), 1U);
  EXPECT_EQ(report.failures[0].method, "ihs");
  EXPECT_EQ(report.failures[0].sentence, "Method ihs needs at least 3 multispectral bands, 2 are chosen.");
  FuseRequest request = Request("best");
  request.bands = {4, 2};
  const FuseReport fused = fusion::Fuse(request);
  EXPECT_EQ(fused.method, report.best);
  EXPECT_EQ(fused.bands, 2);
}

TEST_F(BestMethod, TheTruthFollowsAMethodThatMovesTheMultispectralImage) {
  // The multispectral picture lies two pan pixels right of pan's and one above; degraded, that is half as far.
  fusion::SampleRequest sample;
  sample.folder = m_folder.Path("shifted");
  sample.width = sample.height = 384;
  sample.ratio = 2;
  sample.shift = {2.0, -1.0};
  fusion::MakeSample(sample);
  AssessRequest assess = Assessing();
  assess.pan = sample.folder + "/pan.tif";
  assess.ms = sample.folder + "/ms.tif";
  assess.methods = {"bayesian"};
  assess.protocol = "both";
  const AssessReport report = fusion::Assess(assess);
  for (const auto& table : report.tables) {
    const double scale = table.protocol == "wald" ? 1.0 : 2.0;
    for (const auto& row : table.rows) {
      const double expected = row.method == "bayesian" ? scale : 0.0;
      EXPECT_NEAR(row.movedX, -expected, 0.25) << table.protocol << row.method;
      EXPECT_NEAR(row.movedY, 0.5 * expected, 0.25) << table.protocol << row.method;
    }
  }
  // Against a truth that stays, the sharper picture would be worse than none.
  ASSERT_EQ(report.tables[0].rows[0].method, "bayesian");
  EXPECT_LT(report.tables[0].rows[0].values[0], 0.75 * report.tables[0].rows[1].values[0]);
}

TEST_F(BestMethod, MethodsMayBeChosenByName) {
  AssessRequest request = Assessing();
  request.methods = {"hpf", "brovey", "hpf"};
  const AssessReport report = fusion::Assess(request);
  std::vector<std::string> names;
  for (const auto& row : report.tables[0].rows) names.push_back(row.method);
  EXPECT_THAT(names, testing::UnorderedElementsAre("hpf", "brovey", "upsampled"));
  request.methods = {"all"};
  EXPECT_EQ(fusion::Assess(request).tables[0].rows.size(), 9U);
}

TEST_F(BestMethod, AnAssessmentLeavesNothingBehind) {
  const std::vector<std::string> before = Scratch();
  Watching watching;
  fusion::Assess(Assessing(), &watching);
  EXPECT_THAT(m_folder.Names(), ElementsAre("ms.tif", "pan.tif"));
  EXPECT_EQ(Scratch(), before);
  // One stage, whatever it takes.
  EXPECT_THAT(watching.stages, ElementsAre("assess"));
  EXPECT_EQ(watching.last, 100);
}

TEST_F(BestMethod, AnAssessmentCanBeCancelledAtAnyTime) {
  const std::vector<std::string> before = Scratch();
  for (const int patience : {0, 3, 20, 60, 90}) {
    Impatient impatient(patience);
    AssessRequest request = Assessing();
    request.picture = m_folder.Path("picture.png");
    try {
      fusion::Assess(request, &impatient);
      ADD_FAILURE() << patience;
    } catch (const RunFailure& failure) {
      EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << patience << ' ' << failure.what();
      EXPECT_EQ(failure.Type(), 1);
    }
    EXPECT_THAT(m_folder.Names(), ElementsAre("ms.tif", "pan.tif")) << patience;
    Impatient again(patience);
    EXPECT_THROW(fusion::Fuse(Request("best"), &again), RunFailure);
    EXPECT_FALSE(m_folder.Has("out.tif"));
  }
  EXPECT_EQ(Scratch(), before);
}

TEST_F(BestMethod, WhatIsKeptReplacesNothingUnasked) {
  AssessRequest request = Assessing();
  request.methods = {"brovey"};
  request.keep = m_folder.Path("kept");
  fusion::Assess(request);
  for (const std::string name : {"pan.tif", "ms.tif", "truth.tif", "brovey.tif"}) {
    EXPECT_TRUE(m_folder.Has("kept/wald_1/" + name)) << name;
  }
  try {
    fusion::Assess(request);
    ADD_FAILURE();
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kWrongUsage);
    EXPECT_THAT(failure.Sentence(), HasSubstr("add --overwrite"));
  }
  request.overwrite = true;
  EXPECT_NO_THROW(fusion::Assess(request));
  // A result that is not there, or of other pixels, is told.
  request.extra = {"missing", "small"};
  std::filesystem::copy_file(CommonFun::ToPath(m_folder.WidePath("pan.tif")),
                             CommonFun::ToPath(m_folder.WidePath("kept/wald_1/small.tif")));
  const AssessReport report = fusion::Assess(request);
  ASSERT_EQ(report.failures.size(), 2U);
  EXPECT_THAT(report.failures[0].sentence, HasSubstr("missing.tif does not exist."));
  EXPECT_THAT(report.failures[1].sentence, HasSubstr("small.tif has fewer bands than the multispectral image."));
  EXPECT_EQ(report.tables[0].rows.size(), 2U);
}

TEST_F(BestMethod, AFolderThatCannotBeMadeIsAFailure) {
  AssessRequest request = Assessing();
  request.keep = m_folder.Path("ms.tif") + "/kept";
  try {
    fusion::Assess(request);
    ADD_FAILURE();
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
    EXPECT_THAT(failure.Sentence(), HasSubstr("Cannot create the folder"));
  }
}

TEST_F(BestMethod, PairsThatCannotBeWrittenAreAFailure) {
  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring&, int, const CRect&) {
    return operation == platform::RasterOperation::kWrite;
  });
  try {
    fusion::Assess(Assessing());
    ADD_FAILURE();
  } catch (const RunFailure& failure) {
    EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
    EXPECT_THAT(failure.Sentence(), HasSubstr("cannot be written"));
  }
}

}  // namespace

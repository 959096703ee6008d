// What a run tells who watches it, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>

#include "platform/utility/log.h"
#include "runs/methods.h"
#include "runs/run_progress.h"
#include "tests/support/run_scene.h"

namespace {

using fusion::RunFailure;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Keeps everything.
class Watcher : public fusion::RunObserver {
 public:
  void StageBegins(const fusion::RunStage& stage) override {
    Note();
    stages.push_back(stage);
    EXPECT_FALSE(open) << "the stage before has not ended";
    open = true;
    percent = -1;
  }
  void Progress(int now) override {
    Note();
    EXPECT_TRUE(open);
    EXPECT_NE(now, percent);
    EXPECT_TRUE(now >= 0 && now <= 100) << now;
    percent = now;
    if (now == 100) full.insert(stages.back().title);
  }
  void StageEnds() override {
    Note();
    EXPECT_TRUE(open);
    open = false;
  }
  void Notice(const std::string& text) override {
    Note();
    notices.push_back(text);
  }
  bool WantsCancel() override {
    Note();
    ++asked;
    return cancelAt >= 0 && asked > cancelAt;
  }
  std::vector<std::string> Titles() const {
    std::vector<std::string> titles;
    for (const auto& stage : stages) titles.push_back(stage.title);
    return titles;
  }

  std::vector<fusion::RunStage> stages;
  std::set<std::string> full;
  std::vector<std::string> notices;
  bool open = false;
  int percent = -1;
  int asked = 0;
  int cancelAt = -1;

 private:
  void Note() const { EXPECT_EQ(std::this_thread::get_id(), m_thread) << "from another thread"; }
  std::thread::id m_thread = std::this_thread::get_id();
};

using RunObserver = test_support::RunScene;

/// The title of a stage that announces itself so.
std::string TitleOf(const platform::Stage& stage, const std::wstring& published) {
  Watcher watcher;
  fusion::RunProgress progress(&watcher);
  progress.Begin(stage, published, 1);
  return watcher.stages.at(0).title;
}

TEST(StageNames, AreEnglishWithoutTheirFrame) {
  namespace stages = platform::stages;
  EXPECT_EQ(TitleOf({"brovey"}, L"正在进行brovey..."), "brovey");
  EXPECT_EQ(TitleOf({stages::kSpectralMatching}, L"正在进行光谱匹配运算..."), "spectral matching");
  EXPECT_EQ(TitleOf({stages::kFiltering, 1, 4}, L"正在进行卷积处理(1/4)..."), "filtering (1/4)");
  EXPECT_EQ(TitleOf({}, L"正在进行..."), "");
  EXPECT_EQ(TitleOf({"sample"}, L"sample"), "sample");
  EXPECT_EQ(TitleOf({stages::kCorrelation}, L"正在计算相关系数 ..."), "correlation");
}

TEST_F(RunObserver, EveryStageHasItsNameItsPlaceAndItsPublishedTitle) {
  struct Case {
    std::string method;
    std::vector<std::string> titles;
    std::vector<std::string> published;
  };
  const Case cases[] = {
      {"bayesian", {"model estimation", "bayesian"}, {"正在进行贝叶斯模型估计...", "正在进行bayesian..."}},
      {"weighted",
       {"weighted", "correlation", "weighted"},
       {"正在进行weighted...", "正在计算相关系数 ...", "正在进行weighted..."}},
      {"pca", {"pca", "pan statistics", "pca"}, {"正在进行pca...", "正在计算全色影像统计值 ...", "正在进行pca..."}},
      {"hpf",
       {"hpf", "filtering", "second filtering", "hpf"},
       {"正在进行hpf...", "正在进行卷积处理...", "正在进行二次卷积...", "正在进行hpf..."}},
      {"sharpen", {"sharpen"}, {"正在进行sharpen..."}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.method);
    fusion::FuseRequest request = Request(c.method);
    request.overwrite = true;
    request.makeGreen = c.method == "hpf" || c.method == "sharpen";
    request.autoLevel = c.method == "hpf";
    if (c.method == "hpf") request.secondKernelSize = 3;
    request.noOverviews = true;
    Watcher watcher;
    fusion::Fuse(request, &watcher);
    EXPECT_EQ(watcher.Titles(), c.titles);
    std::vector<std::string> published;
    for (const auto& stage : watcher.stages) published.push_back(stage.published);
    EXPECT_EQ(published, c.published);
    EXPECT_FALSE(watcher.open);
    EXPECT_TRUE(watcher.full.contains(c.titles.back()));
  }
}

TEST_F(RunObserver, TheReportHasWhatWasWritten) {
  fusion::FuseRequest request = Request("brovey");
  request.bands = {3, 1};
  request.type = "float64";
  request.window = {-2, 4, 12, 20};
  Watcher watcher;
  const fusion::FuseReport report = fusion::Fuse(request, &watcher);
  EXPECT_EQ(report.method, "brovey");
  EXPECT_EQ(report.output, request.out);
  EXPECT_EQ(report.width, 10);
  EXPECT_EQ(report.height, 20);
  EXPECT_EQ(report.bands, 2);
  EXPECT_EQ(report.type, "float64");
  EXPECT_GT(report.seconds, 0.0);
  EXPECT_FALSE(report.validShare);
  ASSERT_EQ(report.notices.size(), 1U);
  EXPECT_THAT(report.notices[0], HasSubstr("0,4,10,20"));
  EXPECT_EQ(report.notices, watcher.notices);
  EXPECT_EQ(Read("out.tif").width, 10);
}

TEST_F(RunObserver, WantingToCancelEndsARunWheneverItIsAsked) {
  for (const auto& method : fusion::Methods()) {
    SCOPED_TRACE(method.name);
    fusion::FuseRequest request = Request(method.name);
    request.overwrite = true;
    request.noOverviews = true;
    Watcher whole;
    fusion::Fuse(request, &whole);
    ASSERT_GT(whole.asked, 2);
    const std::string before = test_support::FileBytes(request.out);
    const auto names = m_folder.Names();
    for (int at = 0; at < whole.asked; at += 1 + whole.asked / 12) {
      Watcher watcher;
      watcher.cancelAt = at;
      try {
        fusion::Fuse(request, &watcher);
        ADD_FAILURE() << "went on after question " << at;
      } catch (const RunFailure& failure) {
        EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kCancelled) << at << failure.what();
        EXPECT_EQ(failure.Type(), 1);
      }
      EXPECT_EQ(m_folder.Names(), names);
      EXPECT_TRUE(test_support::FileBytes(request.out) == before);
    }
  }
}

/// The failure of a run that must not succeed.
RunFailure FailureOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const RunFailure& failure) {
    return failure;
  }
  ADD_FAILURE() << "it succeeded";
  return {RunFailure::Kind::kFailed, ""};
}

TEST_F(RunObserver, AFailureHasItsTypeSentenceAndMessage) {
  fusion::FuseRequest request = Request("brovey");
  request.pan = m_folder.Path("nix.tif");
  const RunFailure missing = FailureOf([&] { fusion::Fuse(request); });
  EXPECT_EQ(missing.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(missing.Type(), 4);
  EXPECT_EQ(missing.Sentence(), request.pan + " does not exist.");
  EXPECT_EQ(missing.Message(), "打开文件（" + request.pan + "）失败！");
  EXPECT_EQ(missing.what(), missing.Sentence() + " (" + missing.Message() + ")");

  request = Request("brovey");
  request.kernelSize = 5;
  const RunFailure wrong = FailureOf([&] { fusion::Fuse(request); });
  EXPECT_EQ(wrong.GetKind(), RunFailure::Kind::kWrongUsage);
  EXPECT_EQ(wrong.Type(), RunFailure::kOwnType);
  EXPECT_THAT(wrong.Message(), IsEmpty());
  EXPECT_THAT(wrong.Sentence(), HasSubstr("hpf"));
  EXPECT_EQ(wrong.what(), wrong.Sentence());

  platform::SetRasterFault([](platform::RasterOperation operation, const std::wstring&, int, const CRect&) -> bool {
    if (operation == platform::RasterOperation::kOpen) throw std::bad_alloc();
    return false;
  });
  const RunFailure memory = FailureOf([&] { fusion::Fuse(Request("brovey")); });
  EXPECT_EQ(memory.Type(), 6);
  EXPECT_EQ(memory.Message(), "内存不足！");
}

TEST_F(RunObserver, TheLogOfAProgramComesBackAfterARunWithItsOwn) {
  CLog log(m_folder.WidePath("program.log"));
  CLog::m_pLogger = &log;
  fusion::FuseRequest request = Request("brovey");
  request.log = m_folder.Path("run.log");
  fusion::Fuse(request);
  EXPECT_EQ(CLog::m_pLogger, &log);
  CLog::m_pLogger = nullptr;
  EXPECT_THAT(test_support::FileBytes(request.log), HasSubstr("by brovey"));
}

}  // namespace

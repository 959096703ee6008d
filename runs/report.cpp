#include "runs/report.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/pending_output.h"
#include "platform/raster/references.h"
#include "platform/raster/write_guard.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/output_file.h"
#include "runs/report_histograms.h"
#include "runs/report_images.h"
#include "runs/report_page.h"
#include "runs/report_quality.h"
#include "runs/report_views.h"
#include "runs/run_progress.h"
#include "runs/scene_views.h"

namespace fusion {
namespace {

/// Watches a run inside a run: its stages are steps of the outer one's stage, what it says it says to nobody.
class InnerObserver : public RunObserver {
 public:
  InnerObserver(RunObserver* outer, RunProgress& progress, int start)
      : m_outer(outer), m_progress(progress), m_start(start) {}

  void StageBegins(const RunStage&) override { ++m_stage; }
  void Progress(int percent) override { m_progress.Step(m_start + 100 * std::max(m_stage - 1, 0) + percent, L""); }
  bool WantsCancel() override { return m_outer && m_outer->WantsCancel(); }

 private:
  RunObserver* m_outer;
  RunProgress& m_progress;
  int m_start;
  int m_stage = 0;
};

std::vector<std::wstring> InputsOf(const ReportRequest& request, const MsImage& ms) {
  std::vector<std::wstring> files = {CommonFun::Utf82U(request.pan)};
  for (const std::string& file : ms.Files()) files.push_back(CommonFun::Utf82U(file));
  for (const std::string& file : request.fused) files.push_back(CommonFun::Utf82U(file));
  return files;
}

class ReportRun {
 public:
  ReportRun(const ReportRequest& request, RunObserver* observer)
      : m_request(Checked(request)),
        m_observer(observer),
        m_notices(observer),
        m_progress(observer),
        m_file(CommonFun::Utf82U(request.out)),
        m_ms(request.ms, request.moreMs, request.pan),
        m_pending(m_file, request.overwrite, InputsOf(request, m_ms)),
        m_scene(PairNames{request.pan, m_ms.Path(), request.bands, request.panBand, request.sameExtent, request.noData},
                [this] { GoOn(); }) {
    ThrowObstacle(m_pending.Foresee(kFormatUnknown), m_file);
    m_sources = OpenFused(request, m_scene.Pair());
  }

  WrittenReport Run() {
    m_report.out = m_request.out;
    m_report.check = Check(CheckRequestOf(), m_observer);
    for (const FusedSource& source : m_sources) {
      m_report.images.push_back({.file = source.file,
                                 .label = source.label,
                                 .method = source.provenance ? source.provenance->method : "",
                                 .evaluation = {},
                                 .notEvaluated = source.unpaired,
                                 .quality = {},
                                 .notMeasured = {}});
    }
    EvaluateAll();
    m_progress.Begin({"quality"}, L"quality", kSteps);
    MeasureQuality(
        m_request, m_ms.Path(), m_sources, [this](double done) { Tell(done); }, m_notices, m_report.images);
    m_progress.Finish();
    Draw();
    m_report.notices = m_notices.All();
    Write();
    return m_report;
  }

 private:
  static constexpr int kSteps = 1000;
  static constexpr int kWalks = 2;  ///< stages of an evaluation by all metrics
  /// The page stays below 15 MB, and base 64 makes four bytes of three.
  static constexpr std::size_t kPictureBytes = 9'500'000;

  static const ReportRequest& Checked(const ReportRequest& request) {
    if (request.fused.empty()) throw UsageError("A report is about fused images; name at least one.");
    if (request.out.empty()) throw UsageError("The page needs a name: -o report.html.");
    return request;
  }

  void GoOn() { m_progress.Advance(m_step); }

  void Tell(double done) {
    m_step = static_cast<int>(done * kSteps);
    GoOn();
  }

  CheckRequest CheckRequestOf() const {
    CheckRequest check;
    check.pan = m_request.pan;
    check.ms = m_ms.Path();
    check.bands = m_request.bands;
    check.panBand = m_request.panBand;
    check.sameExtent = m_request.sameExtent;
    check.allowNetwork = m_request.allowNetwork;
    check.confined = m_request.confined;
    check.noData = m_request.noData;
    check.threads = m_request.threads;
    return check;
  }

  void EvaluateAll() {
    m_progress.Begin({"evaluation"}, L"evaluation", 100 * kWalks * static_cast<int>(m_sources.size()));
    for (std::size_t i = 0; i < m_sources.size(); ++i) {
      m_step = 100 * kWalks * static_cast<int>(i);
      GoOn();
      if (m_sources[i].unpaired.empty()) EvaluateOne(i);
    }
    m_progress.Finish();
    m_step = 0;
  }

  void EvaluateOne(std::size_t i) {
    EvaluateRequest evaluate;
    evaluate.pan = m_request.pan;
    evaluate.ms = m_ms.Path();
    evaluate.fused = m_sources[i].file;
    evaluate.bands = m_sources[i].msBands;
    evaluate.fusedBands = m_sources[i].fusedBands;
    evaluate.panBand = m_request.panBand;
    evaluate.sameExtent = m_request.sameExtent;
    evaluate.allowNetwork = m_request.allowNetwork;
    evaluate.confined = m_request.confined;
    evaluate.threads = m_request.threads;
    try {
      InnerObserver inner(m_observer, m_progress, m_step);
      m_report.images[i].evaluation = Evaluate(evaluate, &inner);
    } catch (const RunFailure& failure) {
      // What the images are is told; what happens to the run is not theirs.
      if (failure.GetKind() == RunFailure::Kind::kCancelled || failure.Type() == ERR_EXCEPTION) throw;
      m_report.images[i].notEvaluated = failure.Sentence();
    }
  }

  void Draw() {
    m_progress.Begin({"pictures"}, L"pictures", kSteps);
    const auto images = static_cast<double>(m_sources.size());
    for (std::size_t i = 0; i < m_sources.size(); ++i) {
      Tell(0.5 * static_cast<double>(i) / images);
      m_histograms.push_back(MakeHistograms(m_scene.Pair(), m_sources[i], [this] { GoOn(); }));
    }
    Tell(0.5);
    m_frames = DrawFrames(m_scene, m_sources, kPictureBytes);
    Tell(1.0);
    m_progress.Finish();
  }

  void Write() {
    const std::string page = MakePage({m_request, m_report, m_ms.Files(), m_sources, m_histograms, m_frames});
    m_report.bytes = static_cast<std::int64_t>(page.size());
    if (!m_pending.Begin()) throw FileFailure(m_file);
    errno = 0;
    std::ofstream file(CommonFun::ToPath(m_pending.WorkPath()), std::ios::binary);
    file.write(page.data(), static_cast<std::streamsize>(page.size()));
    file.close();
    if (!file) {
      platform::KeepWriteError(errno);
      throw FileFailure(m_file);
    }
    ThrowObstacle(m_pending.Publish(), m_file);
  }

  const ReportRequest& m_request;
  RunObserver* m_observer;
  Notices m_notices;
  RunProgress m_progress;
  std::wstring m_file;
  MsImage m_ms;
  platform::PendingOutput m_pending;
  SceneViews m_scene;
  std::vector<FusedSource> m_sources;
  WrittenReport m_report;
  std::vector<std::vector<ReportHistogram>> m_histograms;
  std::vector<ReportFrame> m_frames;
  int m_step = 0;
};

}  // namespace

ReportRequest::ReportRequest() = default;
ReportRequest::~ReportRequest() = default;
ReportRequest::ReportRequest(const ReportRequest&) = default;
ReportRequest& ReportRequest::operator=(const ReportRequest&) = default;

WrittenReport Report(const ReportRequest& request, RunObserver* observer) {
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  const auto start = std::chrono::steady_clock::now();
  platform::ClearWriteError();
  return AsRun([&] {
    WrittenReport report = ReportRun(request, observer).Run();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
  });
}

}  // namespace fusion

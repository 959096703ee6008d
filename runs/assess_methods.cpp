#include "runs/assess_methods.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "platform/algorithm/base_algorithm.h"
#include "platform/utility/common_fun.h"
#include "runs/assess_fusion.h"
#include "runs/assess_mtf.h"
#include "runs/assess_scene.h"
#include "runs/assess_table.h"
#include "runs/assess_tile.h"
#include "runs/contact_sheet.h"
#include "runs/failures.h"
#include "runs/fuse_checks.h"
#include "runs/methods.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/picture.h"
#include "runs/run_progress.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// The fusions of an assessment: only the wish to end them comes through.
class Silent : public RunObserver {
 public:
  explicit Silent(RunObserver* outer) : m_outer(outer) {}
  bool WantsCancel() override { return m_outer && m_outer->WantsCancel(); }

 private:
  RunObserver* m_outer;
};

std::vector<std::string> ChooseMethods(const std::vector<std::string>& names) {
  std::vector<std::string> chosen;
  for (const std::string& name : names) {
    if (name == "all") continue;
    if (!FindMethod(name)) throw UsageError("Unknown method '" + name + "'; known are " + MethodNames() + ", or all.");
    if (std::find(chosen.begin(), chosen.end(), name) == chosen.end()) chosen.push_back(name);
  }
  const bool all = names.empty() || std::find(names.begin(), names.end(), "all") != names.end();
  for (const Method& method : Methods()) {
    if (all && std::find(chosen.begin(), chosen.end(), method.name) == chosen.end()) chosen.emplace_back(method.name);
  }
  return chosen;
}

void Check(const AssessRequest& o) {
  if (o.protocol != "wald" && o.protocol != "full" && o.protocol != "both") {
    throw UsageError("--protocol is wald, full or both, not '" + o.protocol + "'.");
  }
  const auto isGain = [](double gain) { return gain > 0.0 && gain < 1.0; };
  if (o.mtf.size() > 2 || !std::all_of(o.mtf.begin(), o.mtf.end(), isGain)) {
    throw UsageError("--mtf is auto, G or G,P: gains that lie between 0 and 1, both excluded.");
  }
  if (o.tiles < 1) throw UsageError("--tiles must be at least 1.");
  if (!o.extra.empty() && o.keep.empty()) {
    throw UsageError("--extra names results in the folder of --keep; without it there are none.");
  }
  for (const std::string& name : o.extra) {
    if (name.empty() || name == kUpsampled || name == "pan" || name == "ms" || name == "truth" || FindMethod(name)) {
      throw UsageError("--extra " + name + ": a name of its own is needed, such as that of the other program.");
    }
  }
}

/// One run of an assessment.
class Assessment {
 public:
  Assessment(const AssessRequest& request, const FuseRequest& prototype, RunObserver* observer, Notices& notices,
             RunProgress& progress)
      : m_request(request),
        m_prototype(prototype),
        m_methods(ChooseMethods(request.methods)),
        m_silent(observer),
        m_progress(progress) {
    Check(request);
    m_scene = std::make_unique<AssessScene>(request, notices);
    m_ratio = std::sqrt(static_cast<double>(m_scene->RatioX()) * m_scene->RatioY());
    m_gains = ChooseGains(*m_scene, request.mtf, m_ratio, [this] { m_progress.Advance(0); });
    if (!m_gains.doubt.empty()) notices.Add(m_gains.doubt + " (--mtf).");
    if (!request.picture.empty()) {
      std::vector<std::wstring> inputs{CommonFun::Utf82U(request.pan)};
      for (const std::string& file : m_scene->MsFiles()) inputs.push_back(CommonFun::Utf82U(file));
      m_sheet = std::make_unique<ContactSheet>(request.picture, request.overwrite, inputs);
      m_colours = NaturalColours(m_scene->Described());
    }
  }

  AssessReport Run() {
    std::vector<std::string> protocols;
    if (m_request.protocol != "full") protocols.emplace_back("wald");
    if (m_request.protocol != "wald") protocols.emplace_back("full");
    const std::size_t rows = 1 + m_methods.size() + m_request.extra.size();
    m_progress.Begin({"assess"}, L"assess", static_cast<int>(rows * m_scene->Tiles().size() * protocols.size()));
    AssessReport report;
    for (const std::string& protocol : protocols) Measure(protocol);
    for (const std::string& protocol : protocols) report.tables.push_back(TableOf(protocol));
    m_progress.Finish();
    if (m_sheet) m_sheet->Write();
    report.failures = m_failures;
    report.bands = m_scene->BandLabels();
    report.ratioX = m_scene->RatioX();
    report.ratioY = m_scene->RatioY();
    report.mtf = m_gains.reduced.bands;
    report.fullMtf = m_gains.full.bands;
    report.panMtf = m_gains.full.pan;
    report.mtfSource = m_gains.source;
    report.blur = m_gains.blur;
    report.tiles = static_cast<int>(m_scene->Tiles().size());
    report.share = m_scene->Share();
    Advise(report);
    return report;
  }

 private:
  struct Row {
    std::string protocol;
    AssessEntry entry;
  };

  void Measure(const std::string& protocol) {
    const int block = std::max(m_scene->RatioX(), m_scene->RatioY());
    const auto add = [&](const std::string& name) {
      m_rows.push_back({protocol, {.name = name, .sums = MethodSums(block)}});
    };
    add(kUpsampled);
    for (const std::string& method : m_methods) add(method);
    for (const std::string& name : m_request.extra) add(name);
    int number = 0;
    for (const CRect& tile : m_scene->Tiles()) MeasureTile(protocol, tile, ++number);
  }

  void MeasureTile(const std::string& protocol, const CRect& rect, int number) {
    std::unique_ptr<AssessTile> tile;
    const ReducedTile* reduced = nullptr;
    if (protocol == "wald") {
      auto made = std::make_unique<ReducedTile>(*m_scene, rect, m_gains.reduced);
      reduced = made.get();
      tile = std::move(made);
    } else {
      tile = std::make_unique<FullTile>(*m_scene, rect, m_gains.full);
    }
    const auto folder =
        (m_request.keep.empty() ? m_scratch.Path() : CommonFun::ToPath(CommonFun::Utf82U(m_request.keep))) /
        (protocol + "_" + std::to_string(number));
    const TileFiles files(folder, *tile, m_scene->StoredType(), m_request.overwrite);
    if (reduced && !m_request.keep.empty()) files.Write("truth", reduced->Truth());
    tile->SetUpsampled(files.Upsampled());
    const bool worth = tile->IsWorthIt();
    const bool drawn = m_sheet && IsDrawn(protocol, number);
    if (drawn) m_sheet->AddPan("pan", tile->Pan().image);
    for (Row& row : m_rows) {
      if (row.protocol != protocol) continue;
      if (worth) MeasureRow(row.entry, *tile, files, drawn);
      m_progress.Advance(++m_step);
    }
  }

  void MeasureRow(AssessEntry& entry, const AssessTile& tile, const TileFiles& files, bool drawn) {
    const auto take = [&](const quality::Image& image, const Move& move) {
      tile.Measure(image, move, entry.sums);
      entry.moves.x += move.x;
      entry.moves.y += move.y;
      ++entry.parts;
      if (drawn) m_sheet->AddColour(entry.name, image, m_colours);
    };
    if (entry.name == kUpsampled) {
      take(tile.Upsampled(), {});
      return;
    }
    if (HasFailed(entry.name)) return;
    try {
      Move move;
      if (FindMethod(entry.name)) {
        FuseRequest request = m_prototype;
        request.method = entry.name;
        const FuseReport report = Fuse(files.Complete(request), &m_silent);
        if (report.registration && report.registration->applied) {
          move = {report.registration->dx, report.registration->dy};
        }
      }
      take(files.Read(entry.name), move);
    } catch (const RunFailure& failure) {
      if (failure.GetKind() == RunFailure::Kind::kCancelled) throw;
      m_failures.push_back({entry.name, failure.Sentence()});
    }
  }

  /// The sheet shows the tile in the middle, at full resolution where that is assessed.
  bool IsDrawn(const std::string& protocol, int number) const {
    const bool full = m_request.protocol != "wald";
    return (protocol == "full") == full && number == static_cast<int>(m_scene->Tiles().size() + 1) / 2;
  }

  bool HasFailed(const std::string& name) const {
    return std::any_of(m_failures.begin(), m_failures.end(), [&](const auto& f) { return f.method == name; });
  }

  AssessTable TableOf(const std::string& protocol) const {
    std::vector<AssessEntry> entries;
    for (const Row& row : m_rows) {
      if (row.protocol == protocol && !HasFailed(row.entry.name)) entries.push_back(row.entry);
    }
    return MakeTable(protocol, entries, static_cast<int>(m_scene->BandLabels().size()), m_ratio);
  }

  const AssessRequest& m_request;
  const FuseRequest& m_prototype;
  std::vector<std::string> m_methods;
  Silent m_silent;
  RunProgress& m_progress;
  std::unique_ptr<AssessScene> m_scene;
  double m_ratio = 1.0;
  SceneGains m_gains;
  ScratchFolder m_scratch;
  std::unique_ptr<ContactSheet> m_sheet;
  std::vector<int> m_colours;  ///< of its crops
  std::vector<Row> m_rows;
  std::vector<AssessFailure> m_failures;
  int m_step = 0;
};

}  // namespace

AssessReport AssessMethods(const AssessRequest& request, const FuseRequest& prototype, RunObserver* observer,
                           Notices& notices, RunProgress& progress) {
  return Assessment(request, prototype, observer, notices, progress).Run();
}

FuseRequest WithBestMethod(const FuseRequest& request, RunObserver* observer, Notices& notices, RunProgress& progress) {
  const MsImage ms(request.ms, request.moreMs, request.pan);
  AssessRequest assess;
  assess.pan = request.pan;
  assess.ms = ms.Path();
  assess.bands = request.bands;
  assess.panBand = request.panBand;
  assess.sameExtent = request.sameExtent;
  assess.allowNetwork = request.allowNetwork;
  assess.confined = request.confined;
  assess.noData = request.noData;
  assess.threads = request.threads;
  assess.protocol = "wald";
  FuseRequest chosen = request;
  std::optional<RunFailure> refusal;
  for (const Method& method : Methods()) {
    chosen.method = method.name;
    try {
      CheckFuseRequest(chosen);
      assess.methods.emplace_back(method.name);
    } catch (const RunFailure& failure) {
      // What no method takes is refused as by the default one.
      if (!refusal) refusal = failure;
    }
  }
  if (assess.methods.empty()) throw RunFailure(*refusal);
  // The parts are fused whole, into files of their own.
  FuseRequest prototype = request;
  prototype.bands.clear();
  prototype.panBand = 1;
  prototype.window.clear();
  prototype.aoi.clear();
  prototype.format.clear();
  prototype.log.clear();
  prototype.quicklook.clear();
  prototype.noData.reset();
  prototype.noDataMask = "auto";
  prototype.sameExtent = false;
  prototype.stretch = false;
  prototype.autoLevel = false;
  const AssessReport report = AssessMethods(assess, prototype, observer, notices, progress);
  if (report.best.empty()) throw RunFailure(RunFailure::Kind::kFailed, report.advice);
  chosen.method = report.best;
  notices.Add("The best method is " + report.best + ", as assessed on " + std::to_string(report.tiles) +
              (report.tiles == 1 ? " part" : " parts") + " of the scene. " + report.advice);
  return chosen;
}

}  // namespace fusion

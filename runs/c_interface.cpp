#include <algorithm>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "fusion_c.h"
#include "runs/methods.h"
#include "runs/options.h"
#include "runs/provenance.h"

using fusion::RunFailure;

struct fusion_request {
  std::variant<fusion::FuseRequest, fusion::EvaluateRequest, fusion::SampleRequest, fusion::AssessRequest,
               fusion::CheckRequest, fusion::ReportRequest, fusion::SurveyRequest>
      what;
  std::string error;
};

struct fusion_outcome {
  struct Figure {
    std::string metric;
    fusion::Figures figures;
  };

  fusion_status status = FUSION_OK;
  int type = 0;
  std::string sentence;
  std::string message;
  std::vector<std::string> notices;
  std::optional<fusion::FuseReport> fused;
  std::vector<Figure> figures;
  std::vector<std::string> labels;
  std::optional<fusion::CheckReport> checked;
  std::vector<fusion::SampleFile> files;
  std::string best;
  std::string advice;
  std::map<std::string, std::string, std::less<>> facts;
};

namespace {

/// What callers get for null, and nothing else, where there is no memory either.
template <typename Result, typename Work>
Result Contain(Result otherwise, Work&& work) {
  try {
    return work();
  } catch (...) {
    return otherwise;
  }
}

template <typename Request>
fusion_request* NewRequest() {
  return Contain<fusion_request*>(nullptr, [] { return new fusion_request{Request(), {}}; });
}

fusion_status Set(fusion_request* request, const char* option, const std::string& value) {
  try {
    request->error.clear();
    std::visit([&](auto& what) { fusion::SetOption(what, option, value); }, request->what);
    return FUSION_OK;
  } catch (const RunFailure& failure) {
    request->error = failure.Sentence();
    return FUSION_WRONG_USAGE;
  }
}

template <typename Number>
std::string TextOf(Number number) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof(text), number).ptr};
}

/// The caller's functions as an observer.
class Watcher : public fusion::RunObserver {
 public:
  Watcher(const fusion_watcher* watcher, std::vector<std::string>& notices)
      : m_watcher(watcher ? *watcher : fusion_watcher{}), m_notices(notices) {}

  void StageBegins(const fusion::RunStage& stage) override {
    if (!m_watcher.stage) return;
    m_watcher.stage(m_watcher.user, stage.identity.name.c_str(), stage.identity.number, stage.identity.count,
                    stage.title.c_str(), stage.published.c_str());
  }
  void Progress(int percent) override {
    if (m_watcher.progress) m_watcher.progress(m_watcher.user, percent);
  }
  void Notice(const std::string& text) override {
    m_notices.push_back(text);
    if (m_watcher.notice) m_watcher.notice(m_watcher.user, text.c_str());
  }
  bool WantsCancel() override { return m_watcher.cancel && m_watcher.cancel(m_watcher.user) != 0; }

 private:
  const fusion_watcher m_watcher;
  std::vector<std::string>& m_notices;
};

struct Runner {
  fusion_outcome& outcome;
  fusion::RunObserver& observer;

  void operator()(const fusion::FuseRequest& request) const { outcome.fused = fusion::Fuse(request, &observer); }
  void operator()(const fusion::SurveyRequest& request) const {
    const fusion::SurveyReport report = fusion::MakeSurvey(request, &observer);
    outcome.facts = {{"output", report.output},
                     {"height", std::to_string(report.height)},
                     {"parts", std::to_string(report.parts)},
                     {"complete", report.complete ? "yes" : "no"},
                     {"awaited", report.awaited ? "yes" : "no"}};
  }
  void operator()(const fusion::EvaluateRequest& request) const {
    const fusion::EvaluateReport report = fusion::Evaluate(request, &observer);
    outcome.labels = report.bands;
    for (const auto& [metric, figures] : report.metrics) {
      for (const auto& array : figures) outcome.figures.push_back({metric, array});
    }
  }
  void operator()(const fusion::AssessRequest& request) const {
    const fusion::AssessReport report = fusion::Assess(request, &observer);
    outcome.best = report.best;
    outcome.advice = report.advice;
    for (const fusion::AssessRow& row : report.tables.front().rows) outcome.labels.push_back(row.method);
    for (const fusion::AssessTable& table : report.tables) {
      for (std::size_t m = 0; m < table.measures.size(); ++m) {
        // All arrays have the methods in the order of the first table.
        std::vector<double> values;
        for (const std::string& method : outcome.labels) {
          const auto row = std::find_if(table.rows.begin(), table.rows.end(),
                                        [&](const fusion::AssessRow& r) { return r.method == method; });
          values.push_back(row->values[m]);
        }
        outcome.figures.push_back({table.protocol, {table.measures[m].name, std::move(values)}});
      }
    }
  }
  void operator()(const fusion::ReportRequest& request) const {
    const fusion::WrittenReport report = fusion::Report(request, &observer);
    outcome.checked = report.check;
    const auto add = [&](const char* name, double fusion::ReportQuality::*figure) {
      std::vector<double> values;
      values.reserve(report.images.size());
      for (const fusion::ReportImage& image : report.images) {
        values.push_back(image.quality ? (*image.quality).*figure : std::numeric_limits<double>::quiet_NaN());
      }
      outcome.figures.push_back({"full", {name, std::move(values)}});
    };
    for (const fusion::ReportImage& image : report.images) outcome.labels.push_back(image.label);
    using Quality = fusion::ReportQuality;
    add("HQNR", &Quality::hqnr);
    add("QNR", &Quality::qnr);
    add("D_lambda", &Quality::dLambda);
    add("D_s", &Quality::dS);
    add("sharpness", &Quality::sharpness);
  }
  void operator()(const fusion::CheckRequest& request) const {
    outcome.checked = fusion::Check(request, &observer);
    const fusion::CheckReport& report = *outcome.checked;
    std::vector<fusion::CheckBand> bands;
    if (report.panBand) bands.push_back(*report.panBand);
    bands.insert(bands.end(), report.bands.begin(), report.bands.end());
    for (const fusion::CheckBand& band : bands) outcome.labels.push_back(band.name);
    const auto add = [&](const char* name, double fusion::CheckBand::*figure) {
      std::vector<double> values;
      for (const fusion::CheckBand& band : bands) values.push_back(band.*figure);
      outcome.figures.push_back({"check", {name, std::move(values)}});
    };
    using Band = fusion::CheckBand;
    add("minimum", &Band::minimum);
    add("maximum", &Band::maximum);
    add("mean", &Band::mean);
    add("deviation", &Band::stdDev);
    add("no_data", &Band::noData);
    add("pan_ratio", &Band::panRatio);
    add("correlation", &Band::correlation);
    add("detail", &Band::detail);
  }
  void operator()(const fusion::SampleRequest& request) const {
    outcome.files = fusion::MakeSample(request, &observer).files;
  }
};

fusion_status StatusOf(RunFailure::Kind kind) {
  switch (kind) {
    case RunFailure::Kind::kWrongUsage:
      return FUSION_WRONG_USAGE;
    case RunFailure::Kind::kCancelled:
      return FUSION_CANCELLED;
    default:
      return FUSION_FAILED;
  }
}

void Fail(fusion_outcome& outcome, const RunFailure& failure) {
  outcome.status = StatusOf(failure.GetKind());
  outcome.type = failure.Type();
  outcome.sentence = failure.Sentence();
  outcome.message = failure.Message();
}

const char* TextAt(const std::vector<std::string>& texts, std::size_t index) {
  return index < texts.size() ? texts[index].c_str() : nullptr;
}

const fusion::Method* MethodAt(std::size_t index) {
  return Contain<const fusion::Method*>(nullptr, [&] {
    const auto& methods = fusion::Methods();
    return index < methods.size() ? &methods[index] : nullptr;
  });
}

const char* TextOf(std::size_t index, const char* fusion::Method::*text) {
  const fusion::Method* method = MethodAt(index);
  return method ? method->*text : nullptr;
}

/// How some work went.
template <typename Work>
fusion_outcome* OutcomeOf(const fusion_watcher* watcher, const Work& work) {
  return Contain<fusion_outcome*>(nullptr, [&] {
    auto outcome = std::make_unique<fusion_outcome>();
    try {
      Watcher observer(watcher, outcome->notices);
      work(*outcome, observer);
    } catch (const RunFailure& failure) {
      Fail(*outcome, failure);
    } catch (const std::exception& e) {
      Fail(*outcome, fusion::ExceptionError(e));
    }
    return outcome.release();
  });
}

void Tell(const fusion::Provenance& provenance, const char* file, fusion_outcome& outcome) {
  std::string sums;
  for (const std::string& sum : provenance.checksums) sums += (sums.empty() ? "" : " ") + sum;
  outcome.facts = {{"version", provenance.version},
                   {"time", provenance.time},
                   {"method", provenance.method},
                   {"options", provenance.options},
                   {"guards", provenance.guards},
                   {"output", provenance.output},
                   {"checksums", sums},
                   {"command", fusion::RepeatCommand(provenance, file)}};
}

}  // namespace

const char* fusion_version(void) { return FUSION_VERSION; }

size_t fusion_method_count(void) {
  return Contain<size_t>(0, [] { return fusion::Methods().size(); });
}

const char* fusion_method_name(size_t index) { return TextOf(index, &fusion::Method::name); }
const char* fusion_method_summary(size_t index) { return TextOf(index, &fusion::Method::summary); }
const char* fusion_method_formula(size_t index) { return TextOf(index, &fusion::Method::formula); }
const char* fusion_method_source(size_t index) { return TextOf(index, &fusion::Method::source); }
const char* fusion_method_suits(size_t index) { return TextOf(index, &fusion::Method::suits); }
const char* fusion_method_spares(size_t index) { return TextOf(index, &fusion::Method::spares); }

fusion_request* fusion_fuse_request(void) { return NewRequest<fusion::FuseRequest>(); }
fusion_request* fusion_check_request(void) { return NewRequest<fusion::CheckRequest>(); }
fusion_request* fusion_evaluate_request(void) { return NewRequest<fusion::EvaluateRequest>(); }
fusion_request* fusion_assess_request(void) { return NewRequest<fusion::AssessRequest>(); }
fusion_request* fusion_report_request(void) { return NewRequest<fusion::ReportRequest>(); }
fusion_request* fusion_survey_request(void) { return NewRequest<fusion::SurveyRequest>(); }
fusion_request* fusion_sample_request(void) { return NewRequest<fusion::SampleRequest>(); }
void fusion_free_request(fusion_request* request) { delete request; }

fusion_status fusion_set(fusion_request* request, const char* option, const char* value) {
  if (!request || !option || !value) return FUSION_WRONG_USAGE;
  return Contain(FUSION_FAILED, [&] { return Set(request, option, value); });
}

fusion_status fusion_set_int(fusion_request* request, const char* option, int value) {
  if (!request || !option) return FUSION_WRONG_USAGE;
  return Contain(FUSION_FAILED, [&] { return Set(request, option, TextOf(value)); });
}

fusion_status fusion_set_double(fusion_request* request, const char* option, double value) {
  if (!request || !option) return FUSION_WRONG_USAGE;
  return Contain(FUSION_FAILED, [&] { return Set(request, option, TextOf(value)); });
}

fusion_status fusion_set_ints(fusion_request* request, const char* option, const int* values, size_t count) {
  if (!request || !option || (!values && count > 0)) return FUSION_WRONG_USAGE;
  return Contain(FUSION_FAILED, [&] {
    std::string list;
    for (size_t i = 0; i < count; ++i) list += (i > 0 ? "," : "") + TextOf(values[i]);
    return Set(request, option, list);
  });
}

const char* fusion_request_error(const fusion_request* request) { return request ? request->error.c_str() : ""; }

fusion_outcome* fusion_run(const fusion_request* request, const fusion_watcher* watcher) {
  if (!request) return nullptr;
  return OutcomeOf(watcher, [&](fusion_outcome& outcome, Watcher& observer) {
    std::visit(Runner{outcome, observer}, request->what);
  });
}

fusion_outcome* fusion_info(const char* file) {
  if (!file) return nullptr;
  return OutcomeOf(nullptr,
                   [&](fusion_outcome& outcome, Watcher&) { Tell(fusion::ReadProvenance(file), file, outcome); });
}

fusion_outcome* fusion_verify(const char* file, const fusion_watcher* watcher) {
  if (!file) return nullptr;
  return OutcomeOf(watcher, [&](fusion_outcome& outcome, Watcher& observer) {
    Tell(fusion::VerifyOutput(file, &observer), file, outcome);
  });
}

const char* fusion_outcome_fact(const fusion_outcome* outcome, const char* name) {
  if (!outcome || !name) return "";
  const auto fact = outcome->facts.find(std::string_view(name));
  return fact == outcome->facts.end() ? "" : fact->second.c_str();
}

void fusion_free_outcome(fusion_outcome* outcome) { delete outcome; }

fusion_status fusion_outcome_status(const fusion_outcome* outcome) { return outcome ? outcome->status : FUSION_FAILED; }
int fusion_outcome_error_type(const fusion_outcome* outcome) { return outcome ? outcome->type : RunFailure::kOwnType; }
const char* fusion_outcome_sentence(const fusion_outcome* outcome) { return outcome ? outcome->sentence.c_str() : ""; }
const char* fusion_outcome_message(const fusion_outcome* outcome) { return outcome ? outcome->message.c_str() : ""; }

size_t fusion_outcome_notice_count(const fusion_outcome* outcome) { return outcome ? outcome->notices.size() : 0; }
const char* fusion_outcome_notice(const fusion_outcome* outcome, size_t index) {
  return outcome ? TextAt(outcome->notices, index) : nullptr;
}

int fusion_outcome_fused(const fusion_outcome* outcome, fusion_fused* fused) {
  if (!outcome || !fused || !outcome->fused) return 0;
  const fusion::FuseReport& report = *outcome->fused;
  *fused = {report.method.c_str(),
            report.output.c_str(),
            report.width,
            report.height,
            report.bands,
            report.type.c_str(),
            report.seconds,
            report.validShare ? 1 : 0,
            report.validShare.value_or(0.0)};
  return 1;
}

int fusion_outcome_registration(const fusion_outcome* outcome, fusion_registration* registration) {
  if (!outcome || !registration || !outcome->fused || !outcome->fused->registration) return 0;
  const fusion::FuseRegistration& found = *outcome->fused->registration;
  *registration = {found.dx, found.dy, found.applied ? 1 : 0, found.agreement, found.score};
  return 1;
}

int fusion_outcome_checked(const fusion_outcome* outcome, fusion_checked* checked) {
  if (!outcome || !checked || !outcome->checked) return 0;
  const fusion::CheckReport& report = *outcome->checked;
  *checked = {};
  checked->fine = report.IsFine() ? 1 : 0;
  checked->ratio_x = report.ratioX;
  checked->ratio_y = report.ratioY;
  checked->pan_overlap = report.pan.overlap;
  checked->ms_overlap = report.ms.overlap;
  checked->covered = report.covered;
  if (!report.shift) return 1;
  checked->has_shift = 1;
  checked->dx = report.shift->dx;
  checked->dy = report.shift->dy;
  checked->spread_x = report.shift->spreadX;
  checked->spread_y = report.shift->spreadY;
  checked->windows = report.shift->windows;
  checked->score = report.shift->score;
  checked->blur = report.blur->shape == "box" ? 0.0 : report.blur->width;
  return 1;
}

size_t fusion_outcome_finding_count(const fusion_outcome* outcome) {
  return outcome && outcome->checked ? outcome->checked->findings.size() : 0;
}
int fusion_outcome_finding(const fusion_outcome* outcome, size_t index, fusion_finding* finding) {
  if (!finding || index >= fusion_outcome_finding_count(outcome)) return 0;
  const fusion::CheckFinding& found = outcome->checked->findings[index];
  *finding = {found.isWarning ? 1 : 0, found.name.c_str(), found.text.c_str(), found.advice.c_str()};
  return 1;
}

size_t fusion_outcome_figures_count(const fusion_outcome* outcome) { return outcome ? outcome->figures.size() : 0; }
int fusion_outcome_figures(const fusion_outcome* outcome, size_t index, fusion_figures* figures) {
  if (!outcome || !figures || index >= outcome->figures.size()) return 0;
  const auto& [metric, array] = outcome->figures[index];
  *figures = {metric.c_str(), array.name.c_str(), array.values.data(), array.values.size()};
  return 1;
}

size_t fusion_outcome_label_count(const fusion_outcome* outcome) { return outcome ? outcome->labels.size() : 0; }
const char* fusion_outcome_label(const fusion_outcome* outcome, size_t index) {
  return outcome ? TextAt(outcome->labels, index) : nullptr;
}

const char* fusion_outcome_best(const fusion_outcome* outcome) { return outcome ? outcome->best.c_str() : ""; }
const char* fusion_outcome_advice(const fusion_outcome* outcome) { return outcome ? outcome->advice.c_str() : ""; }

size_t fusion_outcome_file_count(const fusion_outcome* outcome) { return outcome ? outcome->files.size() : 0; }
int fusion_outcome_file(const fusion_outcome* outcome, size_t index, fusion_file* file) {
  if (!outcome || !file || index >= outcome->files.size()) return 0;
  const fusion::SampleFile& made = outcome->files[index];
  *file = {made.path.c_str(), made.width, made.height, made.bands, made.pixelSize};
  return 1;
}

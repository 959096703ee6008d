#include "runs/evaluate.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "evaluation/entropy_evaluate.h"
#include "evaluation/evaluate_factory.h"
#include "evaluation/grad_evaluate.h"
#include "evaluation/joint_evaluate.h"
#include "evaluation/snr_evaluate.h"
#include "evaluation/statistic_evaluate.h"
#include "framework/overlap.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/references.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/open_input.h"
#include "runs/rect_on_pan.h"
#include "runs/run_progress.h"
#include "runs/same_extent.h"
#include "runs/threads.h"

namespace fusion {
namespace {

std::vector<double> Values(const SharedArray& array, std::size_t n) {
  return array ? std::vector<double>(&array[0], &array[0] + n) : std::vector<double>(n, std::nan(""));
}

std::vector<Figures> EntropyFigures(const CFusionEvaluate& metric, std::size_t n) {
  const auto& m = dynamic_cast<const CEntropyEvaluate&>(metric);
  return {{"m_pEntropy", Values(m.m_pEntropy, 2 * n)},
          {"m_pRelativeEntropy", Values(m.m_pRelativeEntropy, n)},
          {"m_pDeviationEntropy", Values(m.m_pDeviationEntropy, n)},
          {"m_pJointEntropy", Values(m.m_pJointEntropy, n)}};
}

std::vector<Figures> StatisticFigures(const CFusionEvaluate& metric, std::size_t n) {
  const auto& m = dynamic_cast<const CStatisticEvaluate&>(metric);
  return {{"m_pMulMean", Values(m.m_pMulMean, n)},
          {"m_pFusionMean", Values(m.m_pFusionMean, n)},
          {"m_pMulStdDev", Values(m.m_pMulStdDev, n)},
          {"m_pFusionStdDev", Values(m.m_pFusionStdDev, n)},
          {"m_pRelativeDeviation", Values(m.m_pRelativeDeviation, n)},
          {"m_pRelativeError", Values(m.m_pRelativeError, n)},
          {"m_pCorrelation", Values(m.m_pCorrelation, n)}};
}

std::vector<Figures> SnrFigures(const CFusionEvaluate& metric, std::size_t n) {
  const auto& m = dynamic_cast<const CSNREvaluate&>(metric);
  return {{"m_pSNR", Values(m.m_pSNR, n)}, {"m_pPSNR", Values(m.m_pPSNR, n)}};
}

std::vector<Figures> GradientFigures(const CFusionEvaluate& metric, std::size_t n) {
  const auto& m = dynamic_cast<const CGradEvaluate&>(metric);
  return {{"m_pFusionMeanGrad", Values(m.m_pFusionMeanGrad, n)}, {"m_pMulMeanGrad", Values(m.m_pMulMeanGrad, n)},
          {"m_pFusionRmsGrad", Values(m.m_pFusionRmsGrad, n)},   {"m_pMulRmsGrad", Values(m.m_pMulRmsGrad, n)},
          {"m_pMeanAbsDiff", Values(m.m_pMeanAbsDiff, n)},       {"m_pDiffNorm", Values(m.m_pDiffNorm, n)}};
}

struct Metric {
  const char* name;
  FusionEvaluateType type;
  std::vector<Figures> (*figures)(const CFusionEvaluate& metric, std::size_t n);
};

constexpr Metric kMetrics[] = {{"entropy", FET_ENTROPY, EntropyFigures},
                               {"statistics", FET_STATISTIC, StatisticFigures},
                               {"snr", FET_SNR, SnrFigures},
                               {"gradient", FET_GRAD, GradientFigures}};

std::vector<const Metric*> ChooseMetrics(const std::vector<std::string>& names) {
  std::vector<const Metric*> chosen;
  for (const std::string& name : names) {
    const auto* found = std::find_if(std::begin(kMetrics), std::end(kMetrics),
                                     [&](const Metric& metric) { return name == metric.name; });
    if (found == std::end(kMetrics)) {
      throw UsageError("Unknown metric '" + name + "'; known are entropy, statistics, snr and gradient.");
    }
    chosen.push_back(found);
  }
  for (const Metric& metric : kMetrics) {
    if (names.empty()) chosen.push_back(&metric);
  }
  return chosen;
}

std::vector<std::int32_t> ChooseBands(const std::vector<int>& given, const CRasterSource& source, const char* option) {
  const int count = source.GetBandCount();
  std::vector<std::int32_t> bands;
  for (const int band : given) {
    if (band < 1 || band > count) {
      throw UsageError(std::string(option) + " " + std::to_string(band) + ": the image has bands 1 to " +
                       std::to_string(count) + ".");
    }
    bands.push_back(band - 1);
  }
  for (int b = 0; given.empty() && b < count; ++b) {
    if (!source.GetRasterBand(b)->IsAlpha()) bands.push_back(b);
  }
  return bands;
}

/// The record of a run, worked out from the files.
class EvaluateInputs {
 public:
  EvaluateInputs(const EvaluateRequest& o, Notices& notices) : m_ms(o.ms, o.moreMs, o.pan) {
    m_param.m_strPanFile = CommonFun::Utf82U(o.pan);
    m_param.m_strMulFile = CommonFun::Utf82U(m_ms.Path());
    m_param.m_strFusionFile = CommonFun::Utf82U(o.fused);
    CRasterSource pan;
    CRasterSource ms;
    CRasterSource fused;
    OpenInput(pan, m_param.m_strPanFile);
    OpenInput(ms, m_param.m_strMulFile);
    OpenInput(fused, m_param.m_strFusionFile);
    m_param.m_nPanBand = ChooseBands({o.panBand}, pan, "--pan-band").front();
    m_param.m_vecMulBands = ChooseBands(o.bands, ms, "--bands");
    m_param.m_vecFusionBands = ChooseBands(o.fusedBands, fused, "--fused-bands");
    if (m_param.m_vecMulBands.size() != m_param.m_vecFusionBands.size()) {
      throw UsageError(
          "As many fused bands as multispectral bands are compared: " + std::to_string(m_param.m_vecMulBands.size()) +
          " and " + std::to_string(m_param.m_vecFusionBands.size()) + " are chosen (--bands, --fused-bands).");
    }

    LabelBands(ms);

    const bool sameExtent = LooksLikeSameExtent(pan, ms);
    if (o.sameExtent || sameExtent) {
      if (!o.sameExtent) {
        notices.Add("Neither image has a georeference; they are taken as covering the same ground (--same-extent).");
      }
      m_view = SpanPan(pan, ms, m_param.m_strMulFile);
      m_param.m_strMulFile = m_view->Path();
      OpenInput(ms, m_param.m_strMulFile);
    }
    const CRect onPan = RectOnPan(pan, fused);
    m_param.m_rcPanOffset.left = onPan.left;
    m_param.m_rcPanOffset.top = onPan.top;
    CheckCommonGround(fused, ms);
    m_param.m_bMaskNoData = true;
    m_param.m_nMostBlockPixels = std::int64_t{1} << 17;
    m_param.m_bWaitFirst = false;
  }

  FusionEvaluateParam Param(const std::string& task) const {
    FusionEvaluateParam param = m_param;
    param.m_strTaskName = CommonFun::Utf82U(task);
    param.m_stage = {task};
    return param;
  }

  /// One for each pair of bands.
  const std::vector<std::string>& BandLabels() const { return m_labels; }
  /// A failed run, told so that its cause can be found.
  RunFailure Failure(int type, const std::wstring& message) const {
    if (type != ERR_READ || m_wholeOnMs) return RunError(type, message);
    return RunError(
        type, message,
        "Part of the fused image has no multispectral pixels under it, or an input is damaged or truncated.");
  }

 private:
  /// The multispectral band's description, or its number; the fused band's number where it is another.
  void LabelBands(const CRasterSource& ms) {
    for (std::size_t i = 0; i < m_param.m_vecMulBands.size(); ++i) {
      const int band = m_param.m_vecMulBands[i];
      const int fusedBand = m_param.m_vecFusionBands[i];
      std::string label = CommonFun::U2Utf8(ms.GetRasterBand(band)->GetDescription());
      if (label.empty()) label = "band " + std::to_string(band + 1);
      if (fusedBand != band) label += " / " + std::to_string(fusedBand + 1);
      m_labels.push_back(label);
    }
  }

  void CheckCommonGround(CRasterSource& fused, CRasterSource& ms) {
    bool reproject = false;
    const std::optional<CRect> common = FindOverlap(fused, ms, reproject);
    if (!common) {
      throw RunError(ERR_NONE, platform::messages::kWrongExtent,
                     "The fused and the multispectral image have no common ground.");
    }
    m_param.m_bReproject = reproject ? 1 : 0;
    m_wholeOnMs = common->left <= 0 && common->top <= 0 && common->right >= fused.GetWidth() &&
                  common->bottom >= fused.GetHeight();
  }

  MsImage m_ms;
  FusionEvaluateParam m_param;
  std::vector<std::string> m_labels;
  bool m_wholeOnMs = true;
  std::unique_ptr<platform::VirtualRaster> m_view;
};

EvaluateReport Compare(const EvaluateRequest& request, Notices& notices, RunProgress& progress) {
  const std::vector<const Metric*> metrics = ChooseMetrics(request.metrics);
  const auto workers = MakeWorkers(request.threads);
  const EvaluateInputs inputs(request, notices);
  const auto process = [&](CFusionEvaluate& run) {
    run.SetProgress(&progress);
    run.SetOverlappedIo(true);
    run.ShareThreads(workers);
    run.Process();
    if (!run.Succeeded()) throw inputs.Failure(run.GetLastErrorType(), run.GetLastErrorMessage());
  };
  EvaluateReport report;
  report.bands = inputs.BandLabels();
  // Those whose figures do not depend on the shape of blocks read the images together.
  std::vector<std::shared_ptr<CFusionEvaluate>> runs;
  std::vector<std::shared_ptr<CFusionEvaluate>> joint;
  std::string names;
  for (const Metric* metric : metrics) {
    FusionEvaluateParam param = inputs.Param(metric->name);
    runs.emplace_back(CFusEvaluateAlgorithmFactory::CreateAlgorithm(metric->type, nullptr, &param));
    if (metric->type == FET_GRAD) continue;
    joint.push_back(runs.back());
    names += (names.empty() ? "" : ", ") + std::string(metric->name);
  }
  if (!joint.empty()) {
    FusionEvaluateParam param = inputs.Param(names);
    JointEvaluate together(&param, joint);
    process(together);
  }
  for (std::size_t i = 0; i < metrics.size(); ++i) {
    if (metrics[i]->type == FET_GRAD) process(*runs[i]);
    report.metrics.push_back({metrics[i]->name, metrics[i]->figures(*runs[i], report.bands.size())});
  }
  report.notices = notices.All();
  return report;
}

}  // namespace

EvaluateRequest::EvaluateRequest() = default;
EvaluateRequest::~EvaluateRequest() = default;
EvaluateRequest::EvaluateRequest(const EvaluateRequest&) = default;
EvaluateRequest& EvaluateRequest::operator=(const EvaluateRequest&) = default;

EvaluateReport Evaluate(const EvaluateRequest& request, RunObserver* observer) {
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  return AsRun([&] {
    Notices notices(observer);
    RunProgress progress(observer);
    return Compare(request, notices, progress);
  });
}

}  // namespace fusion

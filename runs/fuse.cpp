#include "runs/fuse.h"

#include <chrono>
#include <optional>

#include "platform/raster/references.h"
#include "platform/raster/write_guard.h"
#include "runs/assess_methods.h"
#include "runs/fuse_run.h"
#include "runs/methods.h"
#include "runs/notices.h"
#include "runs/run_log.h"
#include "runs/run_progress.h"
#include "runs/survey.h"

namespace fusion {

FuseRequest::FuseRequest() : method(DefaultMethod().name) {}
FuseRequest::~FuseRequest() = default;
FuseRequest::FuseRequest(const FuseRequest&) = default;
FuseRequest& FuseRequest::operator=(const FuseRequest&) = default;

FuseReport Fuse(const FuseRequest& request, RunObserver* observer) {
  const auto start = std::chrono::steady_clock::now();
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  platform::ClearWriteError();
  RunLog log;
  Notices notices(observer);
  const auto logged = [&](const RunFailure& failure) {
    log.Fail(failure);
    log.TellGaps(request, notices);
    return failure;
  };
  try {
    RunProgress progress(observer);
    if (!request.rows.empty()) RefuseBest(request);
    std::optional<FuseRequest> best;
    if (request.method == kBestMethod) best = WithBestMethod(request, observer, notices, progress);
    FuseReport report = FuseRun(best ? *best : request, log, notices, progress).Run();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    LogInformation("written: " + report.output + ", " + std::to_string(report.width) + "x" +
                   std::to_string(report.height) + ", " + std::to_string(report.bands) + " bands of " + report.type +
                   ", in " + std::to_string(report.seconds) + " s");
    log.TellGaps(request, notices);
    report.notices = notices.All();
    return report;
  } catch (const RunFailure& failure) {
    throw logged(failure);
  } catch (const std::exception& e) {
    throw logged(ExceptionError(e));
  }
}

}  // namespace fusion

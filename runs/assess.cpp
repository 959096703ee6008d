#include "runs/assess.h"

#include <chrono>

#include "platform/raster/references.h"
#include "platform/raster/write_guard.h"
#include "runs/assess_methods.h"
#include "runs/failures.h"
#include "runs/notices.h"
#include "runs/run_progress.h"

namespace fusion {

AssessRequest::AssessRequest() = default;
AssessRequest::~AssessRequest() = default;
AssessRequest::AssessRequest(const AssessRequest&) = default;
AssessRequest& AssessRequest::operator=(const AssessRequest&) = default;

AssessReport Assess(const AssessRequest& request, RunObserver* observer) {
  const auto start = std::chrono::steady_clock::now();
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  platform::ClearWriteError();
  return AsRun([&] {
    Notices notices(observer);
    RunProgress progress(observer);
    FuseRequest prototype;
    prototype.threads = request.threads;
    AssessReport report = AssessMethods(request, prototype, observer, notices, progress);
    report.notices = notices.All();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return report;
  });
}

}  // namespace fusion

#include "apps/fuse_command.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/exit_status.h"

namespace app {
namespace {

nlohmann::ordered_json Json(const std::optional<fusion::FuseRegistration>& found) {
  if (!found) return nullptr;
  return {{"dx", found->dx},
          {"dy", found->dy},
          {"applied", found->applied},
          {"agreement", found->agreement},
          {"score", found->score}};
}

nlohmann::ordered_json Json(const std::optional<fusion::FuseModel>& model) {
  if (!model) return nullptr;
  return {{"shape", model->shape},
          {"blur", model->blur},
          {"restoring", model->restoring},
          {"gains", model->gains},
          {"samples", model->samples}};
}

void Describe(const fusion::FuseReport& report, int errorType, const std::string& message) {
  PrintJson({{"method", report.method},
             {"output", report.output},
             {"width", report.width},
             {"height", report.height},
             {"bands", report.bands},
             {"type", report.type},
             {"seconds", report.seconds},
             {"valid_share", report.validShare ? nlohmann::ordered_json(*report.validShare) : nullptr},
             {"registration", Json(report.registration)},
             {"model", Json(report.model)},
             {"error_type", errorType},
             {"message", message},
             {"guards", report.guards},
             {"notices", report.notices}});
}

/// The same keys where nothing was written.
int Fail(const FuseOptions& options, const fusion::RunFailure& failure, double seconds,
         const std::vector<std::string>& notices) {
  fusion::FuseReport report;
  report.method = options.method;
  report.output = options.out;
  report.seconds = seconds;
  report.notices = notices;
  if (options.json) Describe(report, failure.Type(), failure.what());
  return Report(failure);
}

}  // namespace

int RunFuse(const FuseOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  ConsoleProgress console(options.quiet);
  fusion::FuseRequest request = options;
  request.measureValid = options.json;
  try {
    const fusion::FuseReport report = fusion::Fuse(request, &console);
    if (options.json) Describe(report, 0, "");
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    return Fail(options, failure, seconds.count(), console.Notices());
  }
}

int RefuseFuse(const FuseOptions& options, const fusion::RunFailure& failure) {
  return Fail(options, failure, 0.0, {});
}

}  // namespace app

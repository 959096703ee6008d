#include "apps/fuse_command.h"

#include <chrono>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/report_json.h"
#include "runs/text.h"

namespace app {
namespace {

std::string Bytes(double bytes) {
  return bytes < 1e9 ? fusion::Formatted("%.3g", bytes / 1e6) + " MB" : fusion::Formatted("%.3g", bytes / 1e9) + " GB";
}

/// What would be done, for people.
void PrintPlan(const fusion::FuseReport& report) {
  const fusion::FusePlan& plan = *report.plan;
  const auto print = [](const char* name, const std::string& text) {
    std::cout << std::left << std::setw(15) << name << text << '\n';
  };
  const auto number = [](double value) { return fusion::Formatted("%.12g", value); };
  print("pan", plan.pan);
  print("multispectral", plan.ms);
  print("method", report.method);
  print("guards", fusion::Join(report.guards, ", "));
  print("output", report.output + ", " + plan.format + ", " + std::to_string(report.width) + "x" +
                      std::to_string(report.height) + ", " + std::to_string(report.bands) + " bands of " + report.type);
  print("pan pixels", "from column " + std::to_string(plan.area[0]) + ", row " + std::to_string(plan.area[1]));
  print("grid", "origin " + number(plan.origin[0]) + ", " + number(plan.origin[1]) + "; pixel " +
                    number(plan.pixelSize[0]) + " x " + number(plan.pixelSize[1]));
  print("memory", "about " + Bytes(plan.memory));
  print("disk", Bytes(plan.disk) + " without compression" + (plan.free ? ", " + Bytes(*plan.free) + " are free" : ""));
}

/// The same keys where nothing was written.
int Fail(const FuseOptions& options, const fusion::RunFailure& failure, double seconds,
         const std::vector<std::string>& notices) {
  fusion::FuseReport report;
  report.method = options.method;
  report.output = options.out;
  report.seconds = seconds;
  report.notices = notices;
  if (options.json) PrintJson(ToJson(report, failure.Type(), failure.what()));
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
    if (options.json) {
      PrintJson(ToJson(report));
    } else if (report.plan) {
      PrintPlan(report);
    }
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

#include "runs/survey.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>

#include "platform/raster/pending_output.h"
#include "platform/raster/references.h"
#include "platform/raster/write_guard.h"
#include "platform/statistics/survey.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse_run.h"
#include "runs/ms_files.h"
#include "runs/notices.h"
#include "runs/output_file.h"
#include "runs/run_log.h"
#include "runs/run_progress.h"

namespace fusion {
namespace {

/// The survey's file while it is made.
class SurveyFile {
 public:
  SurveyFile(const SurveyRequest& request, const std::vector<std::string>& inputs)
      : m_file(CommonFun::Utf82U(request.out)), m_pending(m_file, request.overwrite, Wide(inputs)) {
    if (request.out.empty()) throw UsageError("A survey needs a file to be written to (--out).");
    ThrowObstacle(m_pending.Foresee(kFormatUnknown), m_file);
  }

  void Write(const platform::Survey& survey) {
    const std::string bytes = survey.ToBytes();
    if (!m_pending.Begin()) throw FileFailure(m_file);
    errno = 0;
    std::ofstream file(CommonFun::ToPath(m_pending.WorkPath()), std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
      platform::KeepWriteError(errno);
      throw FileFailure(m_file);
    }
    ThrowObstacle(m_pending.Publish(), m_file);
  }

 private:
  static std::vector<std::wstring> Wide(const std::vector<std::string>& files) {
    std::vector<std::wstring> wide;
    for (const std::string& file : files) {
      if (!file.empty()) wide.push_back(CommonFun::Utf82U(file));
    }
    return wide;
  }

  std::wstring m_file;
  platform::PendingOutput m_pending;
};

SurveyReport Merge(const SurveyRequest& request) {
  SurveyFile file(request, request.merge);
  platform::Survey whole;
  for (std::size_t i = 0; i < request.merge.size(); ++i) {
    const std::shared_ptr<platform::Survey> survey = ReadSurvey(request.merge[i]);
    if (i == 0) whole = platform::Survey(survey->Subject());
    try {
      whole.Merge(*survey);
    } catch (const platform::SurveyFault& fault) {
      throw UsageError(request.merge[i] + ": " + fault.what());
    }
  }
  file.Write(whole);
  SurveyReport report;
  report.parts = whole.PartCount();
  return report;
}

SurveyReport Gather(const SurveyRequest& request, Notices& notices, RunObserver* observer) {
  RefuseBest(request);
  std::vector<std::string> inputs = MsFiles(request.ms, request.moreMs, request.pan);
  inputs.insert(inputs.end(), {request.pan, request.aoi, request.survey});
  std::unique_ptr<SurveyFile> file;
  if (!request.dryRun) file = std::make_unique<SurveyFile>(request, inputs);
  if (!request.dryRun && request.rows.empty()) throw UsageError("A survey is one of some rows (--rows).");
  // What shapes the file of a fusion has no say in what is looked at; a name that no format objects to.
  FuseRequest looked = request;
  looked.out = "fused.tif";
  looked.format.clear();
  looked.compress.clear();
  looked.creationOptions.clear();
  looked.quicklook.clear();
  looked.noProvenance = true;
  RunLog log;
  RunProgress progress(observer);
  FuseRun run(looked, log, notices, progress);
  SurveyReport report = run.Survey();
  const platform::Survey found = run.Surveyed()->Found();
  if (file) file->Write(found);
  report.parts = found.PartCount();
  return report;
}

}  // namespace

SurveyRequest::SurveyRequest() = default;
SurveyRequest::~SurveyRequest() = default;
SurveyRequest::SurveyRequest(const SurveyRequest&) = default;
SurveyRequest& SurveyRequest::operator=(const SurveyRequest&) = default;

void RefuseBest(const FuseRequest& request) {
  if (request.method != kBestMethod) return;
  throw UsageError("--method best looks at the whole scene for itself: name the method that fusion assess finds.");
}

std::shared_ptr<platform::Survey> ReadSurvey(const std::string& name) {
  std::ifstream file(CommonFun::ToPath(CommonFun::Utf82U(name)), std::ios::binary);
  if (!file) throw RunError(ERR_OPEN, L"", "The survey " + name + " cannot be opened.");
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  try {
    return std::make_shared<platform::Survey>(platform::Survey::FromBytes(bytes));
  } catch (const platform::SurveyFault& fault) {
    throw UsageError(name + ": " + fault.what());
  }
}

SurveyReport MakeSurvey(const SurveyRequest& request, RunObserver* observer) {
  const auto start = std::chrono::steady_clock::now();
  const platform::ReferenceScope references({request.allowNetwork, request.confined});
  platform::ClearWriteError();
  Notices notices(observer);
  return AsRun([&] {
    SurveyReport report = request.merge.empty() ? Gather(request, notices, observer) : Merge(request);
    report.output = request.out;
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report.notices = notices.All();
    return report;
  });
}

}  // namespace fusion

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "runs/fuse.h"

namespace platform {
class Survey;
}

namespace fusion {

/// A survey, as the `survey` command makes it: what a fusion takes from the whole images, gathered for some rows of its
/// output (rows), so that several processes may share that out, and others may then fuse rows with it (survey and rows
/// of FuseRequest). out is the survey to write. What depends on other parts of a survey has to wait until they are
/// merged: another round, whose surveys are made with the merged one (survey).
struct FUSION_API SurveyRequest : FuseRequest {
  SurveyRequest();
  ~SurveyRequest();
  SurveyRequest(const SurveyRequest&);
  SurveyRequest& operator=(const SurveyRequest&);

  std::vector<std::string> merge;  ///< surveys to merge into out, in any order; nothing else is done then
};

/// What there is of a survey.
struct SurveyReport {
  std::string output;     ///< the request's out
  int height = 0;         ///< rows of the whole output; 0 where surveys were merged
  long long parts = 0;    ///< in what was written
  bool complete = false;  ///< the survey that was given has all that a fusion needs: there was nothing to gather
  bool awaited = false;   ///< something waits for what was gathered: another round is to come
  double seconds = 0.0;   ///< that it took
  std::vector<std::string> notices;
};

/// Makes or merges surveys. Of a dry run nothing is written: the report tells what there is to do.
/// Throws RunFailure.
FUSION_API SurveyReport MakeSurvey(const SurveyRequest& request, RunObserver* observer = nullptr);

/// Throws a usage error where a part of a run would have to find its method by itself.
void RefuseBest(const FuseRequest& request);
/// A survey from its file. Throws RunFailure.
std::shared_ptr<platform::Survey> ReadSurvey(const std::string& name);

}  // namespace fusion

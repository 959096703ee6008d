#pragma once

#include <string>
#include <vector>

#include "runs/assess.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/fuse.h"
#include "runs/report.h"
#include "runs/sample.h"
#include "runs/survey.h"

namespace fusion {

// A request's fields by the command's names for its options, without dashes ("spectral-match"), and by "pan", "ms",
// "out", "fused", "folder", "measure-valid" and "given". Values are texts: a switch is "on" or "off", a list has
// commas; "more-ms", a report's "fused" and a survey's "merge" are names of files, one a line. They throw a RunFailure
// of wrong usage for an unknown option and for a text that is no value of its kind.

FUSION_API void SetOption(FuseRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(SurveyRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(CheckRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(AssessRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(EvaluateRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(ReportRequest& request, const std::string& option, const std::string& value);
FUSION_API void SetOption(SampleRequest& request, const std::string& option, const std::string& value);

/// The command's arguments for what a request has beside its defaults, without its files and without what has no say in
/// the picture (threads, log, replacing): a fusion with them makes the same one.
FUSION_API std::vector<std::string> ArgumentsOf(const FuseRequest& request);
/// Likewise of a report.
FUSION_API std::vector<std::string> ArgumentsOf(const ReportRequest& request);

/// The parts of a list between its commas or ends of lines; one, which is empty, of an empty text.
FUSION_API std::vector<std::string> WordsOf(const std::string& list);
/// The same as whole numbers. Throws std::invalid_argument, in words, for a part that is none.
FUSION_API std::vector<int> NumbersOf(const std::string& list);

}  // namespace fusion

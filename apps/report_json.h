#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "runs/assess.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "runs/fuse.h"
#include "runs/methods.h"
#include "runs/provenance.h"
#include "runs/report.h"
#include "runs/sample.h"
#include "runs/survey.h"

/// What runs report, one object each: what --json prints and what other languages get. Numbers that JSON has not stay
/// what they are until JsonText.
namespace app {

/// @param errorType, message of a run that has failed
nlohmann::ordered_json ToJson(const fusion::FuseReport& report, int errorType = 0, const std::string& message = "");
nlohmann::ordered_json ToJson(const fusion::EvaluateReport& report);
nlohmann::ordered_json ToJson(const fusion::CheckReport& report);
nlohmann::ordered_json ToJson(const fusion::AssessReport& report);
nlohmann::ordered_json ToJson(const fusion::WrittenReport& report);
nlohmann::ordered_json ToJson(const fusion::SurveyReport& report);
nlohmann::ordered_json ToJson(const fusion::SampleReport& report);
/// @param file that tells it
nlohmann::ordered_json ToJson(const fusion::Provenance& provenance, const std::string& file);
/// What a look at a file's checksums has brought.
nlohmann::ordered_json VerifiedJson(const fusion::Provenance& provenance, const std::string& file);
nlohmann::ordered_json ToJson(const fusion::Method& method);

/// As text, always valid UTF-8. JSON has no infinities: they become "inf" and "-inf"; a NaN becomes null.
std::string JsonText(const nlohmann::ordered_json& object);

}  // namespace app

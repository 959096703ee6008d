#pragma once

#include <string>

class CRasterSource;

namespace fusion {

struct FuseRequest;

/// What a survey is of, one line each: version, options that have a say in it, and the images: size, bands, type,
/// georeference, no-data values and samples from nine places, so that images may lie under other names and on other
/// machines. Images that differ elsewhere alone are taken for the same.
std::string SurveySubject(const FuseRequest& request, const CRasterSource& pan, const CRasterSource& ms);
/// In what two subjects differ, in words.
std::string SubjectDifference(const std::string& one, const std::string& other);

}  // namespace fusion

#include "runs/survey_subject.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/file_digest.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/checksums.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/fuse.h"
#include "runs/options.h"
#include "runs/output_notes.h"
#include "runs/text.h"

namespace fusion {
namespace {

/// Of samples from nine places of all bands.
std::string SamplesOf(const CRasterSource& image) {
  constexpr int kPlaces = 3;
  constexpr int kSide = 16;
  platform::Crc32c sum;
  for (int b = 0; b < image.GetBandCount(); ++b) {
    CRasterBand& band = *image.GetRasterBand(b);
    for (int place = 0; place < kPlaces * kPlaces; ++place) {
      const auto start = [](int size, int at) {
        return std::max(0, static_cast<int>(std::int64_t{size} * (2 * at + 1) / (2 * kPlaces)) - kSide / 2);
      };
      const int left = start(image.GetWidth(), place % kPlaces);
      const int top = start(image.GetHeight(), place / kPlaces);
      const CRect rect(left, top, std::min(left + kSide, image.GetWidth()), std::min(top + kSide, image.GetHeight()));
      std::vector<double> values(static_cast<std::size_t>(rect.Area()));
      if (band.ReadBlock(rect.left, rect.top, rect.Width(), rect.Height(), values.data(), rect.Width(), rect.Height(),
                         PDT_FLOAT64) != 0) {
        throw RunError(ERR_READ, L"");
      }
      sum.Add(values.data(), values.size() * sizeof(double));
    }
  }
  return sum.Text();
}

std::string Describe(const CRasterSource& image) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.precision(17);
  text << SizeText(image);
  double terms[6];
  if (image.HasGeoTransform() && image.GetGeoTransform(terms)) {
    for (const double term : terms) text << ' ' << term;
  }
  platform::Crc32c wkt;
  const std::string system = CommonFun::U2Utf8(image.GetSpatialReferenceWKT());
  wkt.Add(system.data(), system.size());
  text << ", system " << wkt.Text();
  for (int b = 0; b < image.GetBandCount(); ++b) {
    const CRasterBand& band = *image.GetRasterBand(b);
    if (band.IsHaveNoData()) text << ", no data " << band.GetNoDataValue();
  }
  text << ", samples " << SamplesOf(image);
  return text.str();
}

}  // namespace

std::string SurveySubject(const FuseRequest& request, const CRasterSource& pan, const CRasterSource& ms) {
  // What shapes the output's file alone.
  FuseRequest options = request;
  options.rows.clear();
  options.format.clear();
  options.compress.clear();
  options.creationOptions.clear();
  options.noOverviews = false;
  options.aoi.clear();
  options.allowNetwork = false;
  options.confined = false;
  const std::string area = request.aoi.empty() ? "none" : platform::HeaderDigest(CommonFun::Utf82U(request.aoi));
  return "version: " FUSION_VERSION "\noptions: " + ShellWords(ArgumentsOf(options)) + "\npan image: " + Describe(pan) +
         "\nmultispectral image: " + Describe(ms) + "\narea of interest: " + area + "\n";
}

std::string SubjectDifference(const std::string& one, const std::string& other) {
  std::istringstream ones(one);
  std::istringstream others(other);
  std::string line;
  std::string otherLine;
  std::vector<std::string> names;
  while (std::getline(ones, line)) {
    if (!std::getline(others, otherLine) || line != otherLine)
      names.push_back("another " + line.substr(0, line.find(':')));
  }
  for (std::string& name : names) {
    if (name == "another options") name = "other options";
  }
  return names.empty() ? "something else" : Join(names);
}

}  // namespace fusion

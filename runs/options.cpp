#include "runs/options.h"

#include <charconv>
#include <optional>
#include <span>
#include <stdexcept>
#include <system_error>

namespace fusion {
namespace {

/// An option of a kind of request.
template <typename Request>
struct Option {
  const char* name;
  void (*take)(Request& request, const std::string& text);
};

template <typename Number>
Number NumberOf(const std::string& text, const char* kind) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [read, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || read != end) throw std::invalid_argument("'" + text + "' is no " + kind);
  return number;
}

void Read(const std::string& text, std::string& field) { field = text; }
void Read(const std::string& text, int& field) { field = NumberOf<int>(text, "whole number"); }
void Read(const std::string& text, unsigned& field) { field = NumberOf<unsigned>(text, "whole number from 0 on"); }
void Read(const std::string& text, double& field) { field = NumberOf<double>(text, "number"); }
void Read(const std::string& text, std::vector<int>& field) {
  field = text.empty() ? std::vector<int>() : NumbersOf(text);
}
void Read(const std::string& text, std::vector<double>& field) {
  field.clear();
  if (text.empty()) return;
  for (const std::string& part : WordsOf(text)) {
    field.push_back(NumberOf<double>(part, "number; a list looks like 0.5,-0.25"));
  }
}
void Read(const std::string& text, std::vector<std::string>& field) {
  field = text.empty() ? std::vector<std::string>() : WordsOf(text);
}

void Read(const std::string& text, bool& field) {
  if (text != "on" && text != "off") throw std::invalid_argument("a switch is on or off, not '" + text + "'");
  field = text == "on";
}

template <typename Value>
void Read(const std::string& text, std::optional<Value>& field) {
  Value value{};
  Read(text, value);
  field = value;
}

template <auto Member, typename Request>
void Take(Request& request, const std::string& text) {
  Read(text, request.*Member);
}

/// "N" or "WxH".
void TakeSize(SampleRequest& request, const std::string& text) {
  const auto cross = text.find('x');
  const auto fits = [](int size) { return size > 0 && size <= kLargestSample; };
  try {
    request.width = NumberOf<int>(text.substr(0, cross), "whole number");
    request.height = cross == std::string::npos ? request.width : NumberOf<int>(text.substr(cross + 1), "whole number");
    if (fits(request.width) && fits(request.height)) return;
  } catch (const std::invalid_argument&) {
    // Told below.
  }
  throw UsageError("--size is N or WxH in pan pixels, each 1 to " + std::to_string(kLargestSample) + ", not '" + text +
                   "'.");
}

using F = FuseRequest;
constexpr Option<F> kFuseOptions[] = {
    {"pan", Take<&F::pan>},
    {"ms", Take<&F::ms>},
    {"out", Take<&F::out>},
    {"method", Take<&F::method>},
    {"resample", Take<&F::resample>},
    {"edges", Take<&F::edges>},
    {"match-moments", Take<&F::matchMoments>},
    {"product-root", Take<&F::productRoot>},
    {"detail-cap", Take<&F::detailCap>},
    {"pca-match", Take<&F::pcaMatch>},
    {"keep-bands", Take<&F::keepBands>},
    {"as-published", Take<&F::asPublished>},
    {"type", Take<&F::type>},
    {"bands", Take<&F::bands>},
    {"pan-band", Take<&F::panBand>},
    {"rgb", Take<&F::rgb>},
    {"window", Take<&F::window>},
    {"statistics", Take<&F::statistics>},
    {"aoi", Take<&F::aoi>},
    {"spectral-match", Take<&F::spectralMatch>},
    {"nodata-mask", Take<&F::noDataMask>},
    {"nodata", Take<&F::noData>},
    {"make-green", Take<&F::makeGreen>},
    {"auto-level", Take<&F::autoLevel>},
    {"stretch", Take<&F::stretch>},
    {"kernel-size", Take<&F::kernelSize>},
    {"second-kernel-size", Take<&F::secondKernelSize>},
    {"detail-weight", Take<&F::detailWeight>},
    {"second-detail-weight", Take<&F::secondDetailWeight>},
    {"bayes-weight", Take<&F::bayesWeight>},
    {"registration", Take<&F::registration>},
    {"same-extent", Take<&F::sameExtent>},
    {"no-overviews", Take<&F::noOverviews>},
    {"format", Take<&F::format>},
    {"co", Take<&F::creationOptions>},
    {"overwrite", Take<&F::overwrite>},
    {"allow-network", Take<&F::allowNetwork>},
    {"confined", Take<&F::confined>},
    {"threads", Take<&F::threads>},
    {"log", Take<&F::log>},
    {"given", Take<&F::given>},
    {"measure-valid", Take<&F::measureValid>},
};

using E = EvaluateRequest;
constexpr Option<E> kEvaluateOptions[] = {
    {"pan", Take<&E::pan>},           {"ms", Take<&E::ms>},
    {"fused", Take<&E::fused>},       {"metric", Take<&E::metrics>},
    {"bands", Take<&E::bands>},       {"fused-bands", Take<&E::fusedBands>},
    {"pan-band", Take<&E::panBand>},  {"same-extent", Take<&E::sameExtent>},
    {"threads", Take<&E::threads>},   {"allow-network", Take<&E::allowNetwork>},
    {"confined", Take<&E::confined>},
};

/// "auto" or gains.
void TakeMtf(AssessRequest& request, const std::string& text) {
  Read(text == "auto" ? std::string() : text, request.mtf);
}

using A = AssessRequest;
constexpr Option<A> kAssessOptions[] = {
    {"pan", Take<&A::pan>},
    {"ms", Take<&A::ms>},
    {"methods", Take<&A::methods>},
    {"protocol", Take<&A::protocol>},
    {"bands", Take<&A::bands>},
    {"pan-band", Take<&A::panBand>},
    {"nodata", Take<&A::noData>},
    {"same-extent", Take<&A::sameExtent>},
    {"mtf", TakeMtf},
    {"tiles", Take<&A::tiles>},
    {"threads", Take<&A::threads>},
    {"picture", Take<&A::picture>},
    {"keep", Take<&A::keep>},
    {"extra", Take<&A::extra>},
    {"overwrite", Take<&A::overwrite>},
    {"allow-network", Take<&A::allowNetwork>},
    {"confined", Take<&A::confined>},
};

using C = CheckRequest;
constexpr Option<C> kCheckOptions[] = {
    {"pan", Take<&C::pan>},
    {"ms", Take<&C::ms>},
    {"bands", Take<&C::bands>},
    {"pan-band", Take<&C::panBand>},
    {"nodata", Take<&C::noData>},
    {"same-extent", Take<&C::sameExtent>},
    {"allow-network", Take<&C::allowNetwork>},
    {"confined", Take<&C::confined>},
    {"threads", Take<&C::threads>},
};

using S = SampleRequest;
constexpr Option<S> kSampleOptions[] = {
    {"folder", Take<&S::folder>},       {"size", TakeSize},         {"seed", Take<&S::seed>},
    {"type", Take<&S::type>},           {"ratio", Take<&S::ratio>}, {"bands", Take<&S::bands>},
    {"shift", Take<&S::shift>},         {"noise", Take<&S::noise>}, {"clouds", Take<&S::clouds>},
    {"overwrite", Take<&S::overwrite>},
};

template <typename Request>
void Set(Request& request, std::span<const Option<Request>> options, const std::string& name,
         const std::string& value) {
  for (const auto& option : options) {
    if (name != option.name) continue;
    try {
      option.take(request, value);
    } catch (const std::invalid_argument& e) {
      throw UsageError("--" + name + ": " + e.what() + ".");
    }
    return;
  }
  throw UsageError("There is no option '" + name + "'.");
}

}  // namespace

void SetOption(FuseRequest& request, const std::string& option, const std::string& value) {
  Set<FuseRequest>(request, kFuseOptions, option, value);
}

void SetOption(CheckRequest& request, const std::string& option, const std::string& value) {
  Set<CheckRequest>(request, kCheckOptions, option, value);
}

void SetOption(AssessRequest& request, const std::string& option, const std::string& value) {
  Set<AssessRequest>(request, kAssessOptions, option, value);
}

void SetOption(EvaluateRequest& request, const std::string& option, const std::string& value) {
  Set<EvaluateRequest>(request, kEvaluateOptions, option, value);
}

void SetOption(SampleRequest& request, const std::string& option, const std::string& value) {
  Set<SampleRequest>(request, kSampleOptions, option, value);
}

std::vector<std::string> WordsOf(const std::string& list) {
  std::vector<std::string> parts(1);
  for (const char c : list) {
    if (c == ',' || c == '\n') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::vector<int> NumbersOf(const std::string& list) {
  std::vector<int> numbers;
  for (const std::string& part : WordsOf(list)) {
    numbers.push_back(NumberOf<int>(part, "whole number; a list looks like 1,2,3"));
  }
  return numbers;
}

}  // namespace fusion

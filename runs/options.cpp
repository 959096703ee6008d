#include "runs/options.h"

#include <charconv>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <type_traits>

namespace fusion {
namespace {

/// An option of a kind of request.
template <typename Request>
struct Option {
  const char* name;
  void (*take)(Request& request, const std::string& text);
  /// The text that take would take for what the request has; empty where it has the default.
  std::string (*tell)(const Request& request) = nullptr;
  bool shapes = true;  ///< has a say in the picture, beside its files
  bool isSwitch = false;
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

template <typename Number>
std::string TextOf(Number number) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof(text), number).ptr};
}
std::string TextOf(const std::string& text) { return text; }
std::string TextOf(bool on) { return on ? "on" : "off"; }
template <typename Part>
std::string TextOf(const std::vector<Part>& parts) {
  std::string text;
  for (const Part& part : parts) text += (text.empty() ? "" : ",") + TextOf(part);
  return text;
}
template <typename Value>
std::string TextOf(const std::optional<Value>& value) {
  return value ? TextOf(*value) : std::string();
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

template <auto Member, typename Request>
std::string Tell(const Request& request) {
  static const Request defaults;
  return request.*Member == defaults.*Member ? std::string() : TextOf(request.*Member);
}

/// Both ways.
template <auto Member, typename Request>
constexpr Option<Request> Field(const char* name, bool shapes = true) {
  return {name, Take<Member, Request>, Tell<Member, Request>, shapes,
          std::is_same_v<decltype(Member), bool Request::*>};
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
/// File names, one a line.
template <auto Member, typename Request>
void TakeLines(Request& request, const std::string& text) {
  std::istringstream lines(text);
  (request.*Member).clear();
  for (std::string line; std::getline(lines, line);) (request.*Member).push_back(line);
}

/// "A:B", or, as other languages have pairs, "A,B"
void TakeRows(F& request, const std::string& text) {
  request.rows.clear();
  if (text.empty()) return;
  const auto colon = text.find_first_of(":,");
  if (colon == std::string::npos) throw UsageError("--rows is A:B, from row A up to row B, not '" + text + "'.");
  request.rows = {NumberOf<int>(text.substr(0, colon), "whole number"),
                  NumberOf<int>(text.substr(colon + 1), "whole number")};
}

std::string TellRows(const F& request) {
  return request.rows.size() == 2 ? TextOf(request.rows[0]) + ":" + TextOf(request.rows[1]) : std::string();
}

constexpr bool kBeside = false;
constexpr Option<F> kFuseOptions[] = {
    Field<&F::pan, F>("pan", kBeside),
    Field<&F::ms, F>("ms", kBeside),
    {"more-ms", TakeLines<&F::moreMs>, nullptr, kBeside},
    Field<&F::out, F>("out", kBeside),
    Field<&F::method, F>("method"),
    Field<&F::resample, F>("resample"),
    Field<&F::edges, F>("edges"),
    Field<&F::matchMoments, F>("match-moments"),
    Field<&F::productRoot, F>("product-root"),
    Field<&F::detailCap, F>("detail-cap"),
    Field<&F::pcaMatch, F>("pca-match"),
    Field<&F::keepBands, F>("keep-bands"),
    Field<&F::asPublished, F>("as-published"),
    Field<&F::type, F>("type"),
    Field<&F::bands, F>("bands"),
    Field<&F::panBand, F>("pan-band"),
    Field<&F::rgb, F>("rgb"),
    Field<&F::window, F>("window"),
    {"rows", TakeRows, TellRows},
    Field<&F::survey, F>("survey", kBeside),
    Field<&F::statistics, F>("statistics"),
    Field<&F::aoi, F>("aoi"),
    Field<&F::spectralMatch, F>("spectral-match"),
    Field<&F::noDataMask, F>("nodata-mask"),
    Field<&F::noData, F>("nodata"),
    Field<&F::makeGreen, F>("make-green"),
    Field<&F::autoLevel, F>("auto-level"),
    Field<&F::stretch, F>("stretch"),
    Field<&F::kernelSize, F>("kernel-size"),
    Field<&F::secondKernelSize, F>("second-kernel-size"),
    Field<&F::detailWeight, F>("detail-weight"),
    Field<&F::secondDetailWeight, F>("second-detail-weight"),
    Field<&F::bayesWeight, F>("bayes-weight"),
    Field<&F::registration, F>("registration"),
    Field<&F::sameExtent, F>("same-extent"),
    Field<&F::noOverviews, F>("no-overviews"),
    Field<&F::format, F>("format"),
    Field<&F::compress, F>("compress"),
    Field<&F::creationOptions, F>("co"),
    Field<&F::dryRun, F>("dry-run", kBeside),
    Field<&F::noProvenance, F>("no-provenance", kBeside),
    Field<&F::sync, F>("sync", kBeside),
    Field<&F::overwrite, F>("overwrite", kBeside),
    Field<&F::quicklook, F>("quicklook", kBeside),
    Field<&F::allowNetwork, F>("allow-network"),
    Field<&F::confined, F>("confined"),
    Field<&F::threads, F>("threads", kBeside),
    Field<&F::log, F>("log", kBeside),
    Field<&F::given, F>("given", kBeside),
    Field<&F::measureValid, F>("measure-valid", kBeside),
};

using V = SurveyRequest;
constexpr Option<V> kSurveyOptions[] = {
    {"merge", TakeLines<&V::merge>},
};

using E = EvaluateRequest;
constexpr Option<E> kEvaluateOptions[] = {
    {"pan", Take<&E::pan>},
    {"ms", Take<&E::ms>},
    {"more-ms", TakeLines<&E::moreMs>},
    {"fused", Take<&E::fused>},
    {"metric", Take<&E::metrics>},
    {"bands", Take<&E::bands>},
    {"fused-bands", Take<&E::fusedBands>},
    {"pan-band", Take<&E::panBand>},
    {"same-extent", Take<&E::sameExtent>},
    {"threads", Take<&E::threads>},
    {"allow-network", Take<&E::allowNetwork>},
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
    {"more-ms", TakeLines<&A::moreMs>},
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
    {"more-ms", TakeLines<&C::moreMs>},
    {"bands", Take<&C::bands>},
    {"pan-band", Take<&C::panBand>},
    {"nodata", Take<&C::noData>},
    {"same-extent", Take<&C::sameExtent>},
    {"allow-network", Take<&C::allowNetwork>},
    {"confined", Take<&C::confined>},
    {"threads", Take<&C::threads>},
};

using R = ReportRequest;
constexpr Option<R> kReportOptions[] = {
    Field<&R::pan, R>("pan", kBeside),
    Field<&R::ms, R>("ms", kBeside),
    {"more-ms", TakeLines<&R::moreMs>, nullptr, kBeside},
    {"fused", TakeLines<&R::fused>, nullptr, kBeside},
    Field<&R::out, R>("out", kBeside),
    Field<&R::title, R>("title"),
    Field<&R::bands, R>("bands"),
    Field<&R::fusedBands, R>("fused-bands"),
    Field<&R::panBand, R>("pan-band"),
    Field<&R::noData, R>("nodata"),
    Field<&R::sameExtent, R>("same-extent"),
    Field<&R::allowNetwork, R>("allow-network"),
    Field<&R::confined, R>("confined"),
    Field<&R::overwrite, R>("overwrite", kBeside),
    Field<&R::threads, R>("threads", kBeside),
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

/// @param valuesOf the values that an option is given with, of the text that it has
template <typename Request, typename ValuesOf>
std::vector<std::string> Arguments(const Request& request, std::span<const Option<Request>> options,
                                   const ValuesOf& valuesOf) {
  std::vector<std::string> arguments;
  for (const Option<Request>& option : options) {
    const std::string text = option.shapes ? option.tell(request) : std::string();
    if (text.empty()) continue;
    const std::string name = std::string("--") + option.name;
    for (const std::string& value : valuesOf(option, text)) {
      if (option.isSwitch) {
        arguments.push_back(name);
      } else if (value.starts_with('-')) {
        arguments.push_back(std::string(name).append("=").append(value));
      } else {
        arguments.insert(arguments.end(), {name, value});
      }
    }
  }
  return arguments;
}

}  // namespace

void SetOption(FuseRequest& request, const std::string& option, const std::string& value) {
  Set<FuseRequest>(request, kFuseOptions, option, value);
}

void SetOption(SurveyRequest& request, const std::string& option, const std::string& value) {
  if (option == kSurveyOptions[0].name) {
    Set<SurveyRequest>(request, kSurveyOptions, option, value);
  } else {
    SetOption(static_cast<FuseRequest&>(request), option, value);
  }
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

void SetOption(ReportRequest& request, const std::string& option, const std::string& value) {
  Set<ReportRequest>(request, kReportOptions, option, value);
}

void SetOption(SampleRequest& request, const std::string& option, const std::string& value) {
  Set<SampleRequest>(request, kSampleOptions, option, value);
}

std::vector<std::string> ArgumentsOf(const FuseRequest& request) {
  return Arguments<FuseRequest>(request, kFuseOptions, [&](const Option<F>& option, const std::string& text) {
    // Those of a driver may have commas of their own.
    return option.take == Take<&F::creationOptions, F> ? request.creationOptions : std::vector{text};
  });
}

std::vector<std::string> ArgumentsOf(const ReportRequest& request) {
  return Arguments<ReportRequest>(request, kReportOptions,
                                  [](const Option<R>&, const std::string& text) { return std::vector{text}; });
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

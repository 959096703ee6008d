#include "runs/output_notes.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/file_digest.h"
#include "platform/raster/memory_raster.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"
#include "runs/fuse.h"
#include "runs/fuse_checks.h"
#include "runs/fuse_inputs.h"
#include "runs/options.h"
#include "runs/text.h"

namespace fusion {
namespace {

constexpr char kSeparator[] = "; ";

/// The time that is to be told; reproducible builds set it.
std::string Time() {
  std::time_t now = std::time(nullptr);
  if (const char* epoch = std::getenv("SOURCE_DATE_EPOCH")) {
    long long seconds = 0;
    const std::string text = epoch;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error == std::errc() && end == text.data() + text.size()) now = static_cast<std::time_t>(seconds);
  }
  std::tm parts{};
#ifdef _WIN32
  gmtime_s(&parts, &now);
#else
  gmtime_r(&now, &parts);
#endif
  char text[64];
  return std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) > 0 ? text : "";
}

/// The size of a raster that can be opened.
std::string SizeOf(const std::wstring& file) {
  CRasterSource raster;
  return raster.OpenSimple(file) ? SizeText(raster) : std::string();
}

std::string NumberText(double value) {
  char text[64];
  // More digits than anything was measured with.
  return {text, std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 12).ptr};
}

}  // namespace

OutputNotes::OutputNotes(const FuseRequest& request, const CheckedRequest& checked, const FuseInputs& inputs)
    : m_notes(std::make_shared<platform::RasterNotes>(kNotesDomain)) {
  m_notes->Set("VERSION", FUSION_VERSION);
  m_notes->Set("TIME", Time());
  m_notes->Set("METHOD", checked.method->name);
  m_notes->Set("OPTIONS", ShellWords(ArgumentsOf(request)));
  std::string guards;
  for (const std::string& name : checked.guards.Names()) guards += (guards.empty() ? "" : ",") + name;
  m_notes->Set("GUARDS", guards);
  const auto tell = [this](const std::string& role, const std::string& path, const std::string& size) {
    if (path.empty()) return;
    const bool inMemory = path.starts_with(platform::kMemoryRasterStem);
    m_notes->Set(role, inMemory ? kInMemory : path);
    if (!size.empty()) m_notes->Set(role + "_SIZE", size);
    if (inMemory) return;
    const std::string digest = platform::HeaderDigest(CommonFun::Utf82U(path));
    if (!digest.empty()) m_notes->Set(role + "_HEADER", digest);
  };
  tell("PAN", request.pan, inputs.PanSize());
  const std::vector<std::string>& ms = inputs.MsFiles();
  for (std::size_t i = 0; i < ms.size(); ++i) {
    // Of several the size is that of all of them as one image.
    tell(i == 0 ? "MS" : "MS_" + std::to_string(i + 1), ms[i], i == 0 ? inputs.MsSize() : "");
  }
  tell("AOI", request.aoi, "");
  // A matrix, some figures of each band, and some more; a number takes up to 20 bytes.
  constexpr std::size_t kNumber = 20;
  constexpr std::size_t kMost = 12288;
  const std::size_t bands = inputs.Bands().size();
  m_modelRoom = std::min(kMost, kNumber * (bands * bands + 8 * bands + 16));
  m_notes->Await("MODEL", m_modelRoom);
  m_notes->Await("CHECKSUM", 9 * bands + 16);
  m_notes->Await("OUTPUT", 64);
}

bool OutputNotes::Complete(const std::wstring& file, const ModelFacts& model,
                           const std::vector<std::string>& checksums) const {
  std::string sums;
  for (const std::string& sum : checksums) sums += (sums.empty() ? "" : " ") + sum;
  return m_notes->Complete(file, {{"MODEL", TextOf(model, m_modelRoom)}, {"CHECKSUM", sums}, {"OUTPUT", SizeOf(file)}});
}

std::string SizeText(const CRasterSource& raster) {
  const int bands = raster.GetBandCount();
  return std::to_string(raster.GetWidth()) + "x" + std::to_string(raster.GetHeight()) + ", " + std::to_string(bands) +
         (bands == 1 ? " band of " : " bands of ") + TypeName(raster.GetRasterDataType());
}

bool MayLoseValues(RasterDataFormat format, const std::vector<std::string>& creationOptions) {
  const platform::RasterFormat* known = platform::FindRasterFormat(format);
  if (known && std::string(known->driver) == "JPEG") return true;
  const auto keeps = [](const std::string& option) {
    static const std::vector<std::string> kPlain = {"bigtiff",     "interleave", "tiled",    "blockxsize",
                                                    "blockysize",  "level",      "zlevel",   "zstd_level",
                                                    "num_threads", "predictor",  "blocksize"};
    static const std::vector<std::string> kCompressions = {"none", "deflate", "lzw", "zstd", "lzma", "packbits"};
    const std::string name = Lower(option.substr(0, option.find('=')));
    const std::string value = Lower(option.substr(std::min(option.size(), name.size() + 1)));
    const auto& list = name == "compress" ? kCompressions : kPlain;
    return std::find(list.begin(), list.end(), name == "compress" ? value : name) != list.end();
  };
  return !std::all_of(creationOptions.begin(), creationOptions.end(), keeps);
}

std::string TextOf(ModelFacts model, std::size_t room) {
  for (;;) {
    std::string text;
    for (const ModelFact& fact : model) {
      if (!text.empty()) text += kSeparator;
      text += fact.name;
      for (const double value : fact.values) text += ' ' + NumberText(value);
    }
    if (text.size() <= room || model.empty()) return text;
    model.erase(std::max_element(model.begin(), model.end(), [](const ModelFact& a, const ModelFact& b) {
      return a.values.size() < b.values.size();
    }));
  }
}

ModelFacts ModelOf(const std::string& text) {
  ModelFacts model;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(kSeparator, at), text.size());
    std::istringstream words(text.substr(at, end - at));
    ModelFact fact;
    words >> fact.name;
    for (std::string word; words >> word;) {
      // As the numbers were written, whatever the locale.
      double value = 0.0;
      std::from_chars(word.data(), word.data() + word.size(), value);
      fact.values.push_back(value);
    }
    model.push_back(std::move(fact));
    at = end + sizeof(kSeparator) - 1;
  }
  return model;
}

}  // namespace fusion

#include "runs/provenance.h"

#include "framework/messages.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/raster_source.h"
#include "platform/raster/written_raster.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"
#include "runs/open_input.h"
#include "runs/output_notes.h"
#include "runs/run_progress.h"
#include "runs/text.h"

namespace fusion {
namespace {

void Open(CRasterSource& raster, const std::string& file) {
  const std::wstring path = CommonFun::Utf82U(file);
  if (!raster.OpenSimple(path)) throw OpenError(path, raster.GetOpenFailure());
}

Provenance Read(const CRasterSource& raster, const std::string& file) {
  platform::NamedFacts facts = platform::RasterNotes::Read(raster, kNotesDomain);
  Provenance provenance;
  const auto take = [&facts](const std::string& name) { return facts[name]; };
  provenance.version = take("VERSION");
  if (provenance.version.empty()) throw UsageError(file + " does not tell how it was made.");
  provenance.time = take("TIME");
  provenance.method = take("METHOD");
  provenance.options = take("OPTIONS");
  provenance.guards = take("GUARDS");
  provenance.output = take("OUTPUT");
  for (const std::string kind : {"PAN", "MS", "AOI"}) {
    for (int number = 1;; ++number) {
      const std::string role = number == 1 ? kind : kind + "_" + std::to_string(number);
      const std::string path = take(role);
      if (path.empty()) break;
      provenance.inputs.push_back({role, path, take(role + "_SIZE"), take(role + "_HEADER")});
    }
  }
  provenance.model = ModelOf(take("MODEL"));
  const std::string sums = take("CHECKSUM");
  for (std::size_t at = 0; at < sums.size(); at += 9) provenance.checksums.push_back(sums.substr(at, 8));
  return provenance;
}

bool GoOn(void* progress, int percent) { return static_cast<RunProgress*>(progress)->Step(percent, L""); }

Provenance Verified(const std::string& file, RunObserver* observer) {
  CRasterSource raster;
  Open(raster, file);
  Provenance provenance = Read(raster, file);
  if (provenance.checksums.empty()) throw UsageError(file + " has no checksums to be compared with.");
  const std::string size = SizeText(raster);
  if (size != provenance.output) {
    throw RunError(ERR_READ, L"", file + " was written as " + provenance.output + " and reads as " + size + ".");
  }
  RunProgress progress(observer);
  progress.Begin({"verify"}, L"verify", 100);
  const std::vector<std::string> sums = platform::ChecksumsOf(raster, GoOn, &progress);
  progress.Finish();
  if (progress.IsCancelRequested()) throw RunError(ERR_CANCELLED, messages::kCancelled);
  if (sums.empty()) throw RunError(ERR_READ, L"", "The samples of " + file + " cannot be read.");
  std::vector<std::string> wrong;
  for (std::size_t b = 0; b < sums.size(); ++b) {
    if (b >= provenance.checksums.size() || sums[b] != provenance.checksums[b]) wrong.push_back(std::to_string(b + 1));
  }
  if (wrong.empty()) return provenance;
  throw RunError(ERR_READ, L"",
                 "The samples of " + file + (wrong.size() == 1 ? ", band " : ", bands ") + Join(wrong) +
                     ", are not those that were written.");
}

}  // namespace

Provenance ReadProvenance(const std::string& file) {
  return AsRun([&] {
    CRasterSource raster;
    Open(raster, file);
    return Read(raster, file);
  });
}

std::string RepeatCommand(const Provenance& provenance, const std::string& file) {
  std::vector<std::string> words = {"fusion", "fuse"};
  for (const ProvenanceInput& input : provenance.inputs) {
    if (input.path == kInMemory) return {};
    if (input.role != "AOI") words.push_back(input.path);
  }
  words.push_back(file);
  // Word by word: whoever made the file, its options are that and nothing that a shell would run.
  const std::vector<std::string> options = UnquotedWords(provenance.options);
  words.insert(words.end(), options.begin(), options.end());
  return CommandLine(words);
}

Provenance VerifyOutput(const std::string& file, RunObserver* observer) {
  return AsRun([&] { return Verified(file, observer); });
}

}  // namespace fusion

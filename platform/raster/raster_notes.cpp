#include "platform/raster/raster_notes.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal_priv.h>

#include <algorithm>

#include "platform/raster/gdal_access.h"
#include "platform/raster/raster_source.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

struct CloseFile {
  void operator()(VSILFILE* file) const { VSIFCloseL(file); }
};
using File = std::unique_ptr<VSILFILE, CloseFile>;

/// Where a text stands in the front of a file; what stands in front of the samples is not longer.
std::optional<vsi_l_offset> Find(VSILFILE* file, const std::string& text) {
  constexpr vsi_l_offset kFront = vsi_l_offset{64} << 20U;
  constexpr std::size_t kPiece = std::size_t{1} << 18U;
  std::string window;
  vsi_l_offset start = 0;  // of the window in the file
  if (VSIFSeekL(file, 0, SEEK_SET) != 0) return {};
  while (start < kFront) {
    const std::size_t kept = window.size();
    window.resize(kept + kPiece);
    const std::size_t read = VSIFReadL(window.data() + kept, 1, kPiece, file);
    window.resize(kept + read);
    const std::size_t at = window.find(text);
    if (at != std::string::npos) return start + at;
    if (read < kPiece) return {};
    const std::size_t gone = window.size() - std::min(window.size(), text.size() - 1);
    window.erase(0, gone);
    start += gone;
  }
  return {};
}

}  // namespace

void RasterNotes::Await(const std::string& name, std::size_t room) {
  std::string mark = "~" + m_domain + "." + name + "~";
  if (mark.size() < room) mark.resize(room, '.');
  m_awaited[name] = mark;
}

void RasterNotes::Apply(CRasterSource& created) const {
  const GdalErrors quiet;
  GDALDataset& dataset = *DatasetOf(created);
  for (const NamedFacts* facts : {&m_facts, &m_awaited}) {
    for (const auto& [name, value] : *facts) dataset.SetMetadataItem(name.c_str(), value.c_str(), m_domain.c_str());
  }
}

bool RasterNotes::Complete(const std::wstring& file, const NamedFacts& late) const {
  const std::string name = CommonFun::U2Utf8(file);
  const GdalErrors errors;
  if (Patch(name, late)) return true;
  // A raster that is only read gets what is said of it now beside its file.
  const std::unique_ptr<GDALDataset> dataset(GDALDataset::Open(name.c_str(), GDAL_OF_RASTER));
  if (!dataset) return false;
  CPLStringList list;
  for (const NamedFacts* facts : {&m_facts, &late}) {
    for (const auto& [key, value] : *facts) list.SetNameValue(key.c_str(), value.c_str());
  }
  return dataset->SetMetadata(list.List(), m_domain.c_str()) == CE_None && (dataset->FlushCache(), !errors.Any());
}

/// All of them, or none where the file's front does not hold them.
bool RasterNotes::Patch(const std::string& name, const NamedFacts& late) const {
  File file(VSIFOpenL(name.c_str(), "r+b"));
  if (!file) return false;
  std::vector<std::pair<vsi_l_offset, std::string>> changes;
  for (const auto& [key, mark] : m_awaited) {
    const auto at = Find(file.get(), mark);
    if (!at) return false;
    const auto found = late.find(key);
    std::string value = found == late.end() ? std::string() : found->second;
    if (value.size() > mark.size()) return false;
    value.resize(mark.size(), ' ');
    changes.emplace_back(*at, std::move(value));
  }
  for (const auto& [at, value] : changes) {
    if (VSIFSeekL(file.get(), at, SEEK_SET) != 0 ||
        VSIFWriteL(value.data(), 1, value.size(), file.get()) != value.size()) {
      return false;
    }
  }
  return !changes.empty() && VSIFCloseL(file.release()) == 0;
}

NamedFacts RasterNotes::Read(const CRasterSource& raster, const std::string& domain) {
  const GdalErrors quiet;
  NamedFacts facts;
  for (char** entry = DatasetOf(raster)->GetMetadata(domain.c_str()); entry && *entry; ++entry) {
    char* name = nullptr;
    const char* value = CPLParseNameValue(*entry, &name);
    if (name && value) {
      std::string text = value;
      text.erase(text.find_last_not_of(' ') + 1);
      facts[name] = text;
    }
    CPLFree(name);
  }
  return facts;
}

}  // namespace platform

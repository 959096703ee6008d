#include "platform/raster/pending_output.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <list>
#include <system_error>

#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/companions.h"
#include "platform/raster/leftovers.h"
#include "platform/raster/renames.h"
#include "platform/raster/write_guard.h"
#include "platform/system/files.h"
#include "platform/system/second_attempt.h"
#include "platform/system/sync.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

bool Exists(const std::wstring& path) { return CommonFun::IsExistingFile(path); }

bool IsLink(const std::wstring& path) {
  std::error_code error;
  return !CommonFun::IsVirtualFile(path) && fs::is_symlink(CommonFun::ToPath(path), error);
}

/// The file that a link leads to; empty where it leads nowhere, or may have been put there to lead astray.
std::wstring TargetOf(const std::wstring& link) {
  if (!IsTrustedLink(CommonFun::ToPath(link))) return {};
  std::error_code error;
  const std::u8string target = fs::canonical(CommonFun::ToPath(link), error).u8string();
  return error ? std::wstring() : CommonFun::Utf82U({target.begin(), target.end()});
}

std::wstring Absolute(const std::wstring& path) {
  if (CommonFun::IsVirtualFile(path)) return path;
  std::error_code error;
  const std::u8string whole = fs::absolute(CommonFun::ToPath(path), error).lexically_normal().u8string();
  return error ? path : CommonFun::Utf82U({whole.begin(), whole.end()});
}

bool IsSame(const std::wstring& first, const std::wstring& second) {
  return CommonFun::IsSameFile(first, second) || Absolute(first) == Absolute(second);
}

/// Extension of the file that a format's driver makes beside the raster, by the raster's stem.
const wchar_t* StemCompanion(RasterDataFormat format) {
  const RasterFormat* known = FindRasterFormat(format);
  if (known && EQUAL(known->driver, "ENVI")) return L".hdr";
  if (known && EQUAL(known->driver, "HFA")) return L".ige";
  return nullptr;
}

void RemoveFolder(const std::wstring& folder) {
  if (CommonFun::IsVirtualFile(folder)) {
    VSIRmdirRecursive(CommonFun::U2Utf8(folder).c_str());
    return;
  }
  RemoveTree(CommonFun::ToPath(folder));
}

}  // namespace

struct PendingOutput::Impl {
  std::wstring given;   ///< as the caller named it
  std::wstring target;  ///< the file itself
  bool replace = true;
  std::vector<std::wstring> kept;  ///< every file that is read
  std::wstring folder;             ///< with its slash, empty before Begin
  std::wstring work;

  bool IsRead(const std::wstring& file) const {
    const auto same = [&](const std::wstring& other) { return IsSame(file, other); };
    return std::any_of(kept.begin(), kept.end(), same);
  }

  /// Another image of the stem that a file is read for, empty where there is none.
  static std::wstring WhoReads(const std::wstring& file, const Neighbours& neighbours) {
    const auto reads = [&](const std::wstring& other) { return Reads(other, file); };
    const auto found = std::find_if(neighbours.others.begin(), neighbours.others.end(), reads);
    return found == neighbours.others.end() ? std::wstring() : *found;
  }

  OutputObstacle CheckTarget() const {
    if (target.empty()) return {OutputObstacle::kNoFile, given};
    if (!Exists(target)) {
      // A new file may be taken for part of an input.
      const auto joins = [&](const std::wstring& read) { return IsCompanionName(Absolute(target), Absolute(read)); };
      if (std::any_of(kept.begin(), kept.end(), joins)) return {OutputObstacle::kInput, given};
      return {};
    }
    if (!IsRegularFile(target)) return {OutputObstacle::kNoFile, given};
    if (IsRead(target)) return {OutputObstacle::kInput, given};
    return replace ? OutputObstacle() : OutputObstacle{OutputObstacle::kExists, given};
  }

  /// Whether a file that comes with the output can have its name.
  OutputObstacle CheckCompanion(const std::wstring& file, const Neighbours& neighbours) const {
    const bool own = std::find(neighbours.own.begin(), neighbours.own.end(), file) != neighbours.own.end();
    if (IsRead(file)) return {OutputObstacle::kInput, file};
    if (!own) {
      const std::wstring reader = WhoReads(file, neighbours);
      if (!reader.empty()) return {OutputObstacle::kShared, reader};
    }
    if (!Exists(file)) return {};
    if (!replace) return {OutputObstacle::kExists, file};
    return IsRegularFile(file) ? OutputObstacle() : OutputObstacle{OutputObstacle::kNoFile, file};
  }

  /// Companions that are there already, which would be taken for the new output's.
  OutputObstacle CheckOwn(const Neighbours& neighbours) const {
    for (const std::wstring& file : neighbours.own) {
      OutputObstacle obstacle = CheckCompanion(file, neighbours);
      if (obstacle.kind != OutputObstacle::kNone) return obstacle;
    }
    return {};
  }

  /// Files in the folder that come with the raster, under the names that they are to have.
  std::vector<std::wstring> NewCompanions() const {
    const CPLStringList names(VSIReadDir(CommonFun::U2Utf8(folder).c_str()));
    std::vector<std::wstring> files;
    for (int i = 0; i < names.size(); ++i) {
      const std::wstring name = CommonFun::Utf82U(names[i]);
      const std::wstring file = folder + name;
      // Drivers may leave behind what they needed for a while.
      const bool stays = file != work && IsCompanionName(file, work) && IsRegularFile(file);
      if (stays) files.push_back(FolderOf(target) + name);
    }
    return files;
  }

  /// Companions of the output that is replaced; they would speak of other pixels.
  std::vector<std::wstring> OldCompanions(const Neighbours& neighbours) const {
    std::vector<std::wstring> old = neighbours.own;
    if (Exists(target)) {
      const std::vector<std::wstring> parts = FilesOf(target);
      for (const std::wstring& file : neighbours.ofStem) {
        const bool part = std::any_of(parts.begin(), parts.end(), [&](const auto& p) { return IsSame(p, file); });
        const bool alone = neighbours.others.empty() && IsPlacement(file);
        if ((part || alone) && WhoReads(file, neighbours).empty()) old.push_back(file);
      }
    }
    std::erase_if(old, [this](const std::wstring& file) { return IsRead(file) || !IsRegularFile(file); });
    return old;
  }

  /// The same beside a link to the output. Links to the output's own companions go on leading there.
  void RemoveCompanionsOfLink() const {
    if (given == target) return;
    for (const std::wstring& file : NeighboursOf(given).own) {
      if (!IsRead(file) && IsRegularFile(file) && !IsLink(file)) VSIUnlink(CommonFun::U2Utf8(file).c_str());
    }
  }

  /// World files and the like place an image whether or not its driver made them.
  static bool IsPlacement(const std::wstring& file) {
    const std::wstring extension = CommonFun::GetExtensionName(file);
    return extension != L"aux" && extension != L"rrd" && extension != L"ige";
  }

  std::wstring NameOf(const std::wstring& file) const { return file.substr(FolderOf(target).size()); }
  std::wstring InFolder(const std::wstring& file) const { return folder + NameOf(file); }

  OutputObstacle CheckAll() const {
    const Neighbours neighbours = NeighboursOf(target);
    OutputObstacle obstacle = CheckTarget();
    if (obstacle.kind == OutputObstacle::kNone) obstacle = CheckOwn(neighbours);
    for (const std::wstring& file : NewCompanions()) {
      if (obstacle.kind == OutputObstacle::kNone) obstacle = CheckCompanion(file, neighbours);
    }
    return obstacle;
  }
};

PendingOutput::PendingOutput(const std::wstring& path, bool replace, const std::vector<std::wstring>& inputs)
    : m_impl(std::make_unique<Impl>()) {
  m_impl->given = path;
  m_impl->target = IsLink(path) ? TargetOf(path) : path;
  m_impl->replace = replace;
  for (const std::wstring& input : inputs) {
    const std::vector<std::wstring> files = FilesBehind(input, FolderOf(m_impl->target));
    m_impl->kept.insert(m_impl->kept.end(), files.begin(), files.end());
  }
}

PendingOutput::~PendingOutput() {
  // What stays, the next run sweeps.
  if (!m_impl->folder.empty()) WithSecondAttempt([this] { RemoveFolder(m_impl->folder); });
}

OutputObstacle PendingOutput::Foresee(RasterDataFormat format) const {
  OutputObstacle obstacle = m_impl->CheckTarget();
  if (obstacle.kind != OutputObstacle::kNone) return obstacle;
  const Neighbours neighbours = NeighboursOf(m_impl->target);
  obstacle = m_impl->CheckOwn(neighbours);
  const wchar_t* extension = StemCompanion(format);
  if (obstacle.kind != OutputObstacle::kNone || !extension) return obstacle;
  return m_impl->CheckCompanion(StemOf(m_impl->target) + extension, neighbours);
}

bool PendingOutput::Concerns(const std::wstring& file) const {
  return m_impl->IsRead(file) || IsSame(file, m_impl->given) || IsSame(file, m_impl->target) ||
         IsCompanionName(Absolute(file), Absolute(m_impl->target));
}

bool PendingOutput::Begin() {
  const std::wstring& target = m_impl->target;
  if (target.empty()) return false;
  SweepLeftovers(FolderOf(target));
  constexpr long kForTheUserAlone = 0700;
  for (int attempt = 0; attempt < 16; ++attempt) {
    // Named like a temporary file, without its extension.
    const std::wstring name = CommonFun::MakeTempName(StemOf(target));
    const std::string folder = CommonFun::U2Utf8(name);
    std::wstring inside = name + L'/';
    std::wstring work = inside + m_impl->NameOf(target);
    errno = 0;
    if (VSIMkdir(folder.c_str(), kForTheUserAlone) != 0) {
      const int error = errno;
      if (Exists(name)) continue;
      KeepWriteError(error);
      return false;
    }
    // Memory has been taken before: what has been made is known.
    m_impl->folder = std::move(inside);
    m_impl->work = std::move(work);
    return true;
  }
  return false;
}

const std::wstring& PendingOutput::WorkPath() const { return m_impl->work; }

std::wstring PendingOutput::InTermsOfOutput(std::wstring text) const {
  const std::wstring& folder = m_impl->folder;
  const std::wstring& work = m_impl->work;
  for (std::size_t at = 0; !folder.empty() && (at = text.find(folder, at)) != std::wstring::npos;) {
    // Another name than the output's own ends at a bracket, a quotation mark or a line.
    const std::size_t end = text.compare(at, work.size(), work) == 0
                                ? at + work.size()
                                : std::min(text.find_first_of(L"）)'\"\n:", at + folder.size()), text.size());
    text.replace(at, end - at, m_impl->given);
    at += m_impl->given.size();
  }
  return text;
}

bool PendingOutput::Sync() const {
  const Impl& impl = *m_impl;
  if (CommonFun::IsVirtualFile(impl.target)) return true;
  const std::wstring folder = FolderOf(impl.target);
  std::vector<std::wstring> names = {folder.empty() ? L"." : folder};
  if (Exists(impl.work)) {
    names.push_back(impl.work);
    for (const std::wstring& file : impl.NewCompanions()) names.push_back(impl.InFolder(file));
  }
  return std::all_of(names.begin(), names.end(), [](const std::wstring& name) {
    const int error = SyncToDisk(CommonFun::ToPath(name));
    if (error != 0) KeepWriteError(error);
    return error == 0;
  });
}

OutputObstacle PendingOutput::Publish() { return Publish({this}); }

OutputObstacle PendingOutput::Publish(const std::vector<PendingOutput*>& outputs) {
  std::vector<std::wstring> folders;
  for (const PendingOutput* output : outputs) {
    const std::wstring folder = FolderOf(output->m_impl->target);
    folders.push_back(Absolute(folder.empty() ? L"." : folder));
  }
  // Always in the same order, so that two programs do not wait for each other.
  std::sort(folders.begin(), folders.end());
  folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
  std::list<FolderLock> locks;
  for (const std::wstring& folder : folders) {
    if (!CommonFun::IsVirtualFile(folder)) locks.emplace_back(CommonFun::ToPath(folder));
  }

  for (const PendingOutput* output : outputs) {
    OutputObstacle obstacle = output->m_impl->CheckAll();
    if (obstacle.kind != OutputObstacle::kNone) return obstacle;
  }
  Renames renames;
  for (const PendingOutput* output : outputs) {
    const Impl& impl = *output->m_impl;
    const std::vector<std::wstring> companions = impl.NewCompanions();
    std::vector<std::wstring> names = {impl.NameOf(impl.target)};
    for (const std::wstring& file : companions) names.push_back(impl.NameOf(file));
    errno = 0;
    if (!NoteNewFiles(impl.folder, names)) {
      KeepWriteError(errno);
      return {OutputObstacle::kNotGiven, impl.target, errno};
    }
    for (const std::wstring& file : impl.OldCompanions(NeighboursOf(impl.target))) {
      renames.Move(file, PlaceForOld(impl.folder, impl.NameOf(file)));
    }
    for (const std::wstring& file : companions) renames.Move(impl.InFolder(file), file);
  }
  // The rasters last: who finds one finds all that comes with it.
  for (const PendingOutput* output : outputs) {
    const Impl& impl = *output->m_impl;
    if (Exists(impl.target)) {
      renames.Replace(impl.work, impl.target, PlaceForOld(impl.folder, impl.NameOf(impl.target)));
    } else {
      renames.Move(impl.work, impl.target);
    }
  }
  OutputObstacle obstacle = renames.Commit();
  if (obstacle.kind != OutputObstacle::kNone) return obstacle;
  for (const PendingOutput* output : outputs) output->m_impl->RemoveCompanionsOfLink();
  return {};
}

}  // namespace platform

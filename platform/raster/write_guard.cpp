#include "platform/raster/write_guard.h"

#include <cpl_vsi.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/raster/companions.h"
#include "platform/raster/raster_fault.h"
#include "platform/system/disk.h"
#include "platform/utility/common_fun.h"

namespace platform {

struct WriteGuard::State {
  std::atomic<bool> failed = false;

  void Fail() {
    KeepWriteError(errno);
    failed = true;
  }
};

namespace {

using State = WriteGuard::State;

std::atomic<int> g_writeError{0};

// What stands behind it is the file's own name, also for drivers and versions of GDAL that cut it off themselves.
constexpr char kPrefix[] = "/vsifusion_output/";

/// A name as it is compared: drivers put slashes of their own between folder and file.
std::string Comparable(std::string file) {
#ifdef _WIN32
  std::replace(file.begin(), file.end(), '\\', '/');
#endif
  return file;
}

/// The guards by their rasters' names.
class Guards {
 public:
  void Add(const std::string& raster, std::shared_ptr<State> state) {
    const std::lock_guard lock(m_mutex);
    m_guards.emplace_back(Comparable(raster), std::move(state));
  }
  void Remove(const std::shared_ptr<State>& state) {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_guards, [&](const auto& entry) { return entry.second == state; });
  }
  /// The guard of a raster or of a file that comes with one; null where there is none.
  std::shared_ptr<State> Find(const std::string& name) {
    const std::string file = Comparable(name);
    const std::lock_guard lock(m_mutex);
    for (const bool byStem : {false, true}) {
      // The latest first: a file may be made anew.
      const auto guard = std::find_if(m_guards.rbegin(), m_guards.rend(), [&](const auto& entry) {
        const std::string& raster = entry.first;
        const std::string start = (byStem ? raster.substr(0, raster.rfind('.')) : raster) + '.';
        return file == raster || file.compare(0, start.size(), start) == 0;
      });
      if (guard != m_guards.rend()) return guard->second;
    }
    return nullptr;
  }

 private:
  std::mutex m_mutex;
  std::vector<std::pair<std::string, std::shared_ptr<State>>> m_guards;
};

Guards& AllGuards() {
  static Guards guards;
  return guards;
}

/// An open file. After a failure its position and size go on as if there had been none.
struct OpenFile {
  VSILFILE* file;
  std::shared_ptr<State> guard;
  std::wstring path;
  bool writable;
  bool adrift = false;  ///< the two that follow are ours to keep
  vsi_l_offset position = 0;
  vsi_l_offset size = 0;
  bool atEnd = false;

  /// Whether writes go nowhere.
  bool HasEnded() {
    if (!writable || !guard->failed) return false;
    if (!adrift) {
      position = VSIFTellL(file);
      VSIFSeekL(file, 0, SEEK_END);
      size = std::max(VSIFTellL(file), position);
      adrift = true;
    }
    return true;
  }
};

OpenFile& FileOf(void* handle) { return *static_cast<OpenFile*>(handle); }

int Stat(void*, const char* name, VSIStatBufL* status, int flags) { return VSIStatExL(name, status, flags); }
int Unlink(void*, const char* name) { return VSIUnlink(name); }
int Rename(void*, const char* from, const char* to) { return VSIRename(from, to); }
int MakeFolder(void*, const char* name, long mode) { return VSIMkdir(name, mode); }
int RemoveFolder(void*, const char* name) { return VSIRmdir(name); }
char** ReadFolder(void*, const char* name, int most) { return VSIReadDirEx(name, most); }

void* Open(void*, const char* name, const char* access) {
  std::shared_ptr<State> guard = AllGuards().Find(name);
  errno = 0;
  VSILFILE* file = VSIFOpenExL(name, access, TRUE);
  const bool writable = guard && std::string(access).find_first_of("wa+") != std::string::npos;
  if (!file && writable && errno != ENOENT) guard->Fail();
  return file ? new OpenFile{file, std::move(guard), CommonFun::Utf82U(name), writable} : nullptr;
}

vsi_l_offset Tell(void* handle) {
  OpenFile& f = FileOf(handle);
  return f.HasEnded() ? f.position : VSIFTellL(f.file);
}

int Seek(void* handle, vsi_l_offset offset, int whence) {
  OpenFile& f = FileOf(handle);
  f.atEnd = false;
  if (!f.HasEnded()) return VSIFSeekL(f.file, offset, whence);
  f.position = offset + (whence == SEEK_END ? f.size : whence == SEEK_CUR ? f.position : 0);
  return 0;
}

std::size_t Read(void* handle, void* buffer, std::size_t size, std::size_t count) {
  OpenFile& f = FileOf(handle);
  if (!f.HasEnded()) return VSIFReadL(buffer, size, count, f.file);
  // What has gone nowhere reads as zeros.
  const vsi_l_offset left = f.size > f.position ? f.size - f.position : 0;
  const auto read = static_cast<std::size_t>(std::min<vsi_l_offset>(count, size == 0 ? 0 : left / size));
  std::fill_n(static_cast<char*>(buffer), read * size, '\0');
  VSIFSeekL(f.file, f.position, SEEK_SET);
  static_cast<void>(VSIFReadL(buffer, size, read, f.file));
  f.position += read * size;
  f.atEnd = read < count;
  return read;
}

int AtEnd(void* handle) {
  OpenFile& f = FileOf(handle);
  return f.HasEnded() ? f.atEnd : VSIFEofL(f.file);
}

std::size_t Write(void* handle, const void* buffer, std::size_t size, std::size_t count) {
  OpenFile& f = FileOf(handle);
  if (f.HasEnded()) {
    f.position += size * count;
    f.size = std::max(f.size, f.position);
    return count;
  }
  const bool broken = RasterFails(RasterOperation::kStore, f.path);
  errno = broken ? ENOSPC : 0;
  const std::size_t written = broken ? 0 : VSIFWriteL(buffer, size, count, f.file);
  if (written < count && f.guard) f.guard->Fail();
  return written;
}

int Flush(void* handle) {
  OpenFile& f = FileOf(handle);
  if (f.HasEnded()) return 0;
  errno = 0;
  const int result = VSIFFlushL(f.file);
  if (result != 0 && f.writable) f.guard->Fail();
  return result;
}

int Truncate(void* handle, vsi_l_offset size) {
  OpenFile& f = FileOf(handle);
  if (f.HasEnded()) {
    f.size = size;
    return 0;
  }
  errno = 0;
  const int result = VSIFTruncateL(f.file, size);
  if (result != 0 && f.guard) f.guard->Fail();
  return result;
}

int Close(void* handle) {
  const std::unique_ptr<OpenFile> f(static_cast<OpenFile*>(handle));
  errno = 0;
  const int result = VSIFCloseL(f->file);
  if (result == 0 || !f->writable || f->guard->failed) return 0;
  f->guard->Fail();
  return result;
}

void Install() {
  static std::once_flag once;
  std::call_once(once, [] {
    VSIFilesystemPluginCallbacksStruct* calls = VSIAllocFilesystemPluginCallbacksStruct();
    calls->stat = Stat;
    calls->unlink = Unlink;
    calls->rename = Rename;
    calls->mkdir = MakeFolder;
    calls->rmdir = RemoveFolder;
    calls->read_dir = ReadFolder;
    calls->open = Open;
    calls->tell = Tell;
    calls->seek = Seek;
    calls->read = Read;
    calls->eof = AtEnd;
    calls->write = Write;
    calls->flush = Flush;
    calls->truncate = Truncate;
    calls->close = Close;
    VSIInstallPluginHandler(kPrefix, calls);
    VSIFreeFilesystemPluginCallbacksStruct(calls);
  });
}

}  // namespace

WriteGuard::WriteGuard(const std::wstring& path) : m_state(std::make_shared<State>()), m_name(CommonFun::U2Utf8(path)) {
  if (CommonFun::IsVirtualFile(path)) return;
  Install();
  AllGuards().Add(m_name, m_state);
  m_name.insert(0, kPrefix);
}

WriteGuard::~WriteGuard() { AllGuards().Remove(m_state); }

bool WriteGuard::HasFailed() const { return m_state->failed; }

int FirstWriteError() { return g_writeError; }
void ClearWriteError() { g_writeError = 0; }

void KeepWriteError(int error) {
  int none = 0;
  g_writeError.compare_exchange_strong(none, error == 0 ? EIO : error);
}

bool HasRoomFor(const std::wstring& path, double bytes) {
  if (CommonFun::IsVirtualFile(path)) return true;
  const std::wstring folder = FolderOf(path);
  const int error = LackOfRoom(CommonFun::ToPath(folder.empty() ? L"." : folder), bytes);
  if (error != 0) KeepWriteError(error);
  return error == 0;
}

}  // namespace platform

#include "platform/raster/renames.h"

#include <cpl_vsi.h>

#include <filesystem>
#include <system_error>

#include "platform/raster/raster_fault.h"
#include "platform/system/failure_number.h"
#include "platform/system/files.h"
#include "platform/system/second_attempt.h"
#include "platform/utility/common_fun.h"

namespace platform {
namespace {

std::error_code Rename(const std::wstring& from, const std::wstring& to, bool over) {
  if (RasterFails(RasterOperation::kRename, to)) return std::make_error_code(std::errc::io_error);
  if (!CommonFun::IsVirtualFile(from)) {
    std::error_code error;
    if (over) {
      std::filesystem::rename(CommonFun::ToPath(from), CommonFun::ToPath(to), error);
    } else {
      error = RenameFresh(CommonFun::ToPath(from), CommonFun::ToPath(to));
    }
    return error;
  }
  if (!over && CommonFun::IsExistingFile(to)) return std::make_error_code(std::errc::file_exists);
  return VSIRename(CommonFun::U2Utf8(from).c_str(), CommonFun::U2Utf8(to).c_str()) == 0
             ? std::error_code()
             : std::make_error_code(std::errc::io_error);
}

bool GiveSecondName(const std::wstring& file, const std::wstring& second) {
  if (CommonFun::IsVirtualFile(file)) return false;
  std::error_code error;
  std::filesystem::create_hard_link(CommonFun::ToPath(file), CommonFun::ToPath(second), error);
  return !error;
}

}  // namespace

Renames::~Renames() {
  for (; !m_done.empty(); m_done.pop_back()) {
    WithSecondAttempt([this] { Rename(m_done.back().second, m_done.back().first, true); });
  }
}

void Renames::Move(const std::wstring& from, const std::wstring& to) {
  if (m_obstacle.kind != OutputObstacle::kNone) return;
  const std::error_code error = Rename(from, to, false);
  if (!error) {
    m_done.emplace_back(from, to);
  } else if (error == std::errc::file_exists) {
    m_obstacle = {OutputObstacle::kExists, to};
  } else {
    m_obstacle = {OutputObstacle::kNotGiven, to, FailureNumber(error)};
  }
}

void Renames::Replace(const std::wstring& from, const std::wstring& to, const std::wstring& aside) {
  if (m_obstacle.kind != OutputObstacle::kNone) return;
  if (!GiveSecondName(to, aside)) {
    Move(to, aside);
    Move(from, to);
    return;
  }
  if (const std::error_code error = Rename(from, to, true)) {
    m_obstacle = {OutputObstacle::kNotGiven, to, FailureNumber(error)};
    return;
  }
  m_done.emplace_back(to, aside);
}

OutputObstacle Renames::Commit() {
  if (m_obstacle.kind == OutputObstacle::kNone) m_done.clear();
  return m_obstacle;
}

}  // namespace platform

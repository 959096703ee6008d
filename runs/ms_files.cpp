#include "runs/ms_files.h"

#include <stdexcept>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/band_stack.h"
#include "platform/raster/file_pattern.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"

namespace fusion {

std::vector<std::string> MsFiles(const std::string& ms, const std::vector<std::string>& more, const std::string& pan) {
  std::vector<std::string> files;
  std::vector<std::string> names = {ms};
  names.insert(names.end(), more.begin(), more.end());
  for (const std::string& name : names) {
    const std::vector<std::wstring> found = platform::FilesMatching(CommonFun::Utf82U(name));
    const std::size_t before = files.size();
    for (const std::wstring& file : found) {
      const bool isPan = found.size() > 1 && CommonFun::IsSameFile(file, CommonFun::Utf82U(pan));
      if (!isPan) files.push_back(CommonFun::U2Utf8(file));
    }
    if (files.size() == before) throw UsageError("No file has a name like " + name + ".");
  }
  return files;
}

MsImage::MsImage(const std::string& ms, const std::vector<std::string>& more, const std::string& pan)
    : m_files(MsFiles(ms, more, pan)), m_path(m_files.front()) {
  if (m_files.size() == 1) return;
  std::vector<std::wstring> paths;
  for (const std::string& file : m_files) paths.push_back(CommonFun::Utf82U(file));
  try {
    m_stack = std::make_unique<platform::BandStack>(paths);
  } catch (const std::runtime_error& e) {
    throw RunError(ERR_OPEN, platform::messages::OpenFailed(paths.front()), e.what() + std::string("."));
  }
  m_path = CommonFun::U2Utf8(m_stack->Path());
}

MsImage::~MsImage() = default;

}  // namespace fusion

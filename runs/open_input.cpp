#include "runs/open_input.h"

#include <algorithm>

#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/utility/common_fun.h"
#include "runs/failures.h"

namespace fusion {
namespace {

/// The library below often names the file first.
std::string WithoutName(const std::string& reason, const std::string& name) {
  const std::string start = name + ": ";
  return reason.starts_with(start) ? reason.substr(start.size()) : reason;
}

}  // namespace

RunFailure OpenError(const std::wstring& path, const std::wstring& reason) {
  const std::string name = CommonFun::U2Utf8(path);
  const std::string why = WithoutName(CommonFun::U2Utf8(reason), name);
  std::string sentence = name;
  // Not every name that can be opened is that of a file.
  if (why == "No such file or directory" || (why.empty() && !CommonFun::IsExistingFile(path))) {
    sentence += " does not exist.";
  } else if (CommonFun::IsFolder(path)) {
    sentence += " is a folder.";
  } else {
    sentence += why.empty() ? " cannot be opened." : " cannot be opened: " + why + (why.ends_with('.') ? "" : ".");
  }
  return RunError(ERR_OPEN, platform::messages::OpenFailed(path), sentence);
}

void OpenInput(CRasterSource& source, const std::wstring& path) {
  if (!source.Open(path, GDA_READ, true)) throw OpenError(path, source.GetOpenFailure());
  // Farther from an image's origin a position is taken for none.
  constexpr int kFar = 1 << 30;
  const int rows = source.GetHeight();
  const int columns = source.GetWidth();
  if (std::max(columns, rows) <= kFar) return;
  source.Close();
  throw OpenError(path, L"it has " + std::to_wstring(std::max(columns, rows)) +
                            (rows > columns ? L" rows" : L" columns") + L": positions end at " + std::to_wstring(kFar));
}

}  // namespace fusion

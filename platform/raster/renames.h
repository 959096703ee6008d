#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/raster/pending_output.h"

namespace platform {

/// A row of renames that happen all or not at all: unless committed, those done are taken back. After one that failed
/// the rest is left out.
class Renames {
 public:
  Renames() = default;
  ~Renames();
  Renames(const Renames&) = delete;
  Renames& operator=(const Renames&) = delete;

  /// Into a name that nothing has.
  void Move(const std::wstring& from, const std::wstring& to);
  /// Over a file, which is kept under a third name. Whoever looks finds the old file or the new one.
  void Replace(const std::wstring& from, const std::wstring& to, const std::wstring& aside);
  /// What went wrong.
  OutputObstacle Commit();

 private:
  OutputObstacle m_obstacle;
  std::vector<std::pair<std::wstring, std::wstring>> m_done;  ///< from, to
};

}  // namespace platform

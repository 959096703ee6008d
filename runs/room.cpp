#include "runs/room.h"

#include <algorithm>

#include "framework/fusion_param.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/algorithm/messages.h"
#include "platform/raster/companions.h"
#include "platform/raster/pixel_type.h"
#include "platform/system/disk.h"
#include "platform/system/free_memory.h"
#include "platform/utility/common_fun.h"
#include "runs/text.h"

namespace fusion {
namespace {

std::string Megabytes(double bytes) { return Formatted(bytes < 1e8 ? "%.1f MB" : "%.0f MB", bytes / 1e6); }

}  // namespace

void CheckMemory(const CRect& area, int bands, PixelDataType type) {
  // Of whole rows of pan in doubles and of the output in its own type, while the block before is being written.
  constexpr std::int64_t kRows = 512;
  const std::int64_t block = std::min(BlockRows(kMostBlockPixels, area.Width()), kRows);
  const auto rows = static_cast<double>(std::min<std::int64_t>(area.Height(), 2 * block));
  const double needed = rows * area.Width() * (sizeof(double) + static_cast<double>(bands * platform::PixelSize(type)));
  const double left = platform::FreeMemory();
  if (needed <= left) return;
  throw RunFailure(RunFailure::Kind::kFailed,
                   "Rows of " + std::to_string(area.Width()) + " pixels take at least " + Megabytes(needed) +
                       " of memory, and " + Megabytes(left) + " are free: fuse a part (--window) at a time.",
                   ERR_EXCEPTION, CommonFun::U2Utf8(platform::messages::kOutOfMemory));
}

void CheckDisk(const CRect& area, int bands, PixelDataType type, const FuseRequest& request) {
  const std::wstring out = CommonFun::Utf82U(request.out);
  if (CommonFun::IsVirtualFile(out) || !request.creationOptions.empty() || !request.compress.empty() ||
      !request.aoi.empty())
    return;
  const std::wstring folder = platform::FolderOf(out);
  const double needed = static_cast<double>(area.Area()) * bands * platform::PixelSize(type);
  const double left = platform::FreeRoom(CommonFun::ToPath(folder.empty() ? L"." : folder));
  if (needed <= left) return;
  throw RunFailure(RunFailure::Kind::kFailed,
                   "The output cannot be created: the disk is full: " + Megabytes(needed) + " are needed, " +
                       Megabytes(left) + " are free.",
                   ERR_CREATE, CommonFun::U2Utf8(platform::messages::CreateFailed(out)));
}

}  // namespace fusion

#include "runs/fuse_plan.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "framework/match_targets.h"
#include "platform/algorithm/string_param_parser.h"
#include "platform/raster/companions.h"
#include "platform/raster/pixel_type.h"
#include "platform/utility/common_fun.h"
#include "runs/fuse_inputs.h"
#include "runs/room.h"

namespace fusion {
namespace {

/// Blocks of at most 512 rows: pan and the multispectral samples under them as doubles, both read ahead, and the fused
/// bands, one block being made and one being written. Half as much again goes into what works on them.
double MemoryOf(const CRect& area, double msPixels, double bands, double fusedSize) {
  constexpr double kProgram = 90e6;
  constexpr double kRows = 512.0;
  constexpr double kAgain = 1.5;
  // As the run takes them: fewer of wide images.
  const auto fewer = static_cast<double>(BlockRows(kMostBlockPixels, area.Width()));
  const double rows = std::min({kRows, fewer, static_cast<double>(area.Height())});
  const double pixels = rows * area.Width();
  const double msShare = std::min(1.0, (rows + 40.0) / std::max(1, area.Height()));
  return kProgram +
         kAgain * (2.0 * 8.0 * pixels + 2.0 * 8.0 * bands * msPixels * msShare + 2.0 * fusedSize * bands * pixels);
}

}  // namespace

FusePlan MakePlan(const FuseInputs& inputs, const CheckedRequest& checked, const std::wstring& output,
                  PixelDataType type, bool overviews) {
  FusePlan plan;
  const CRect area = inputs.OutputArea();
  plan.pan = inputs.PanSize();
  plan.ms = inputs.MsSize();
  plan.area = {area.left, area.top, area.Width(), area.Height()};
  const platform::Affine& map = inputs.Pan().PixelToGround();
  plan.origin[0] = map.X(area.left, area.top);
  plan.origin[1] = map.Y(area.left, area.top);
  plan.pixelSize[0] = map.t[1];
  plan.pixelSize[1] = map.t[5];
  const platform::RasterFormat* format = platform::FindRasterFormat(checked.format);
  if (format) plan.format = CommonFun::U2Utf8(format->name);
  const auto bands = static_cast<double>(inputs.Bands().size());
  const PixelDataType fused = checked.matched ? TypeToMatch(type) : type;
  plan.memory = MemoryOf(area, inputs.MsPixels(), bands, platform::PixelSize(fused));
  plan.disk = static_cast<double>(area.Width()) * area.Height() * bands * platform::PixelSize(type);
  constexpr double kOverviews = 4.0 / 3.0;
  if (overviews && checked.method->buildsOverviews) plan.disk *= kOverviews;
  if (CommonFun::IsVirtualFile(output)) return plan;
  const std::wstring folder = platform::FolderOf(output);
  std::error_code error;
  const auto space = std::filesystem::space(CommonFun::ToPath(folder.empty() ? L"." : folder), error);
  if (!error) plan.free = static_cast<double>(space.available);
  return plan;
}

}  // namespace fusion

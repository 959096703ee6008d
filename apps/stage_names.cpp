#include "apps/stage_names.h"

#include <string_view>
#include <utility>

#include "platform/algorithm/messages.h"
#include "platform/utility/common_fun.h"

namespace app {
namespace {

constexpr std::pair<std::wstring_view, const char*> kStages[] = {
    {platform::messages::kFormatCopy, "format conversion"},
    {L"卷积处理", "filtering"},
    {L"二次卷积", "second filtering"},
    {L"加绿处理", "green mix"},
    {L"HPF融合处理", "high-pass fusion"},
    {L"PanSharpening融合", "sharpening"},
    {L"光谱校正", "spectral correction"},
    {L"光谱匹配运算", "spectral matching"},
    {L"数据拉伸处理", "level adjustment"},
    {L"贝叶斯模型估计", "model estimation"},
};

}  // namespace

std::string StageName(const std::wstring& title) {
  // The frame stands before and behind the name; what comes behind it are the dots.
  constexpr std::wstring_view kDots = L"...";
  const std::wstring frame = platform::messages::RunTitle(L"");
  const std::wstring_view before = std::wstring_view(frame).substr(0, frame.size() - kDots.size());
  std::wstring_view name = title;
  if (name.size() >= frame.size() && name.starts_with(before) && name.ends_with(kDots)) {
    name = name.substr(before.size(), name.size() - frame.size());
  }
  if (title == L"正在计算相关系数 ...") return "correlation";
  for (const auto& [chinese, english] : kStages) {
    // A stage's number in its pipeline follows its name.
    if (name == chinese || (name.starts_with(chinese) && name[chinese.size()] == L'(')) {
      const std::wstring number(name.substr(chinese.size()));
      return english + (number.empty() ? "" : " " + CommonFun::U2Utf8(number));
    }
  }
  return CommonFun::U2Utf8(std::wstring(name));
}

}  // namespace app

#pragma once

#include "platform/algorithm/messages.h"

namespace fusion::messages {

using namespace platform::messages;

inline constexpr wchar_t kWrongBands[] = L"多光谱数据处理波段错误！";
inline constexpr wchar_t kReprojectFailed[] = L"重投影失败！";
inline constexpr wchar_t kSpectralMatching[] = L"光谱匹配运算";
inline constexpr wchar_t kMsOpenFailed[] = L"打开多光谱影像失败！";
inline constexpr wchar_t kMsStatisticsFailed[] = L"计算多光谱影像统计值出错！";
inline constexpr wchar_t kCancelled[] = L"  WARNING: 用户取消了处理进程，处理失败！ ...";

}  // namespace fusion::messages

#pragma once

#include <string>

namespace fusion::messages {

// The texts of errors and progress that more than one place uses.
inline constexpr wchar_t kConfiguring[] = L"配置参数...";
inline constexpr wchar_t kProcessing[] = L"处理中...";
inline constexpr wchar_t kReadFailed[] = L"读取数据失败！";
inline constexpr wchar_t kWriteFailed[] = L"写数据失败！";
inline constexpr wchar_t kWrongExtent[] = L"设置的影像范围有误！";
inline constexpr wchar_t kWrongBands[] = L"多光谱数据处理波段错误！";
inline constexpr wchar_t kReprojectFailed[] = L"重投影失败！";
inline constexpr wchar_t kSpectralMatching[] = L"光谱匹配运算";
inline constexpr wchar_t kMsStatisticsFailed[] = L"计算多光谱影像统计值出错！";
inline constexpr wchar_t kCancelled[] = L"  WARNING: 用户取消了处理进程，处理失败！ ...";

inline std::wstring OpenFailed(const std::wstring& path) { return L"打开文件（" + path + L"）失败！"; }
inline std::wstring CreateFailed(const std::wstring& path) { return L"创建文件（" + path + L"）失败！"; }
inline std::wstring RunTitle(const std::wstring& name) { return L"正在进行" + name + L"..."; }

}  // namespace fusion::messages

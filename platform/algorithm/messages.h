#pragma once

#include <string>

namespace platform::messages {

// The texts of errors and progress that runs of every kind share.
inline constexpr wchar_t kConfiguring[] = L"配置参数...";
inline constexpr wchar_t kProcessing[] = L"处理中...";
inline constexpr wchar_t kFormatCopy[] = L"格式转换";
inline constexpr wchar_t kReadFailed[] = L"读取数据失败！";
inline constexpr wchar_t kWriteFailed[] = L"写数据失败！";
inline constexpr wchar_t kWrongKernel[] = L"卷积核参数错误！";
inline constexpr wchar_t kWrongExtent[] = L"设置的影像范围有误！";
inline constexpr wchar_t kOutOfMemory[] = L"内存不足！";
inline constexpr wchar_t kUnknownFailure[] = L"未知错误！";

inline std::wstring OpenFailed(const std::wstring& path) { return L"打开文件（" + path + L"）失败！"; }
inline std::wstring CreateFailed(const std::wstring& path) { return L"创建文件（" + path + L"）失败！"; }
inline std::wstring RunTitle(const std::wstring& name) { return L"正在进行" + name + L"..."; }

}  // namespace platform::messages

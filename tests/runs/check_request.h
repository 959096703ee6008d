#pragma once

#include <string>

#include "platform/utility/common_fun.h"
#include "runs/check.h"

namespace test_support {

inline fusion::CheckRequest Request(const std::wstring& pan, const std::wstring& ms) {
  fusion::CheckRequest request;
  request.pan = CommonFun::U2Utf8(pan);
  request.ms = CommonFun::U2Utf8(ms);
  return request;
}

}  // namespace test_support

#include "tests/support/environment.h"

#include <cstdlib>

#ifdef _WIN32
#include "platform/utility/common_fun.h"
#endif

namespace test_support {

void SetVariable(const char* name, const std::string& value) {
#ifdef _WIN32
  // Empty values are none there.
  _wputenv_s(CommonFun::Utf82U(name).c_str(), CommonFun::Utf82U(value).c_str());
#else
  if (value.empty()) {
    unsetenv(name);
  } else {
    setenv(name, value.c_str(), 1);
  }
#endif
}

}  // namespace test_support

#include "tests/support/environment.h"

#include <cstdlib>

namespace test_support {

void SetVariable(const char* name, const std::string& value) {
#ifdef _WIN32
  // Empty values are none there.
  _putenv_s(name, value.c_str());
#else
  if (value.empty()) {
    unsetenv(name);
  } else {
    setenv(name, value.c_str(), 1);
  }
#endif
}

}  // namespace test_support

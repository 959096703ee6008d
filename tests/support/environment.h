#pragma once

#include <string>

namespace test_support {

/// Gives the process's environment a variable of UTF-8, or takes it away where the value is empty.
void SetVariable(const char* name, const std::string& value);

}  // namespace test_support

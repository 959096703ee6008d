#include "apps/methods_command.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "runs/methods.h"

namespace app {

int RunMethods(bool json, bool namesOnly) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const fusion::Method& method : fusion::Methods()) {
    if (json) {
      list.push_back({{"name", method.name},
                      {"summary", method.summary},
                      {"default", &method == &fusion::DefaultMethod()},
                      {"spectral_match", method.matchedByDefault}});
    } else if (namesOnly) {
      std::cout << method.name << '\n';
    } else {
      std::cout << std::left << std::setw(16) << method.name << method.summary
                << (method.matchedByDefault ? " (matched by default)" : "")
                << (&method == &fusion::DefaultMethod() ? " [default]" : "") << '\n';
    }
  }
  if (json) std::cout << list.dump(2) << '\n';
  return 0;
}

}  // namespace app

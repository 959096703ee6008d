#include "apps/methods_command.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/exit_status.h"
#include "apps/nearest_word.h"
#include "apps/option_reference.h"
#include "apps/report_json.h"
#include "runs/methods.h"
#include "runs/text.h"

namespace app {

namespace {

void Explain(const fusion::Method& method) {
  constexpr std::size_t kColumn = 12;
  const auto print = [](const std::string& name, const std::string& text) {
    std::cout << std::left << std::setw(kColumn) << name << Wrapped(text, kColumn) << '\n';
  };
  print(method.name, method.summary);
  print("formula", method.formula);
  print("source", method.source);
  print("take it", method.suits);
  print("leave it", method.spares);
  print("options", fusion::Join(fusion::OwnOptions(method), ", ") + "; and those that every method takes");
}

}  // namespace

int RunMethods(const std::string& name, bool json, bool namesOnly) {
  if (!name.empty()) {
    const fusion::Method* method = fusion::FindMethod(name);
    if (!method) {
      std::vector<std::string> names;
      for (const fusion::Method& known : fusion::Methods()) names.emplace_back(known.name);
      throw fusion::UsageError("Unknown method '" + name + "'; did you mean '" + NearestWord(name, names) + "'?");
    }
    if (json) {
      PrintJson(ToJson(*method));
    } else {
      Explain(*method);
    }
    return kSuccess;
  }
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const fusion::Method& method : fusion::Methods()) {
    if (json) {
      list.push_back(ToJson(method));
    } else if (namesOnly) {
      std::cout << method.name << '\n';
    } else {
      std::cout << std::left << std::setw(16) << method.name << method.summary
                << (method.matchedByDefault ? " (matched by default)" : "")
                << (&method == &fusion::DefaultMethod() ? " [default]" : "") << '\n';
    }
  }
  if (json) PrintJson(list);
  return 0;
}

}  // namespace app

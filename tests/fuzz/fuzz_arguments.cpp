// Any words as arguments of the command, which are taken and checked, and nothing is run. The words end with zeros or
// ends of lines; each option's value goes through the library's own table of options, too.
#include <exception>
#include <sstream>

#include "runs/fuse_checks.h"
#include "runs/options.h"

// The parser is the program's own; what runs it is not wanted.
#define main RunCommand
#include "apps/main.cpp"  // NOLINT(bugprone-suspicious-include)
#undef main

namespace {

std::vector<std::string> Words(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\0' || data[i] == '\n') {
      words.emplace_back();
    } else {
      words.back() += static_cast<char>(data[i]);
    }
  }
  return words;
}

void Parse(const std::vector<std::string>& words) {
  std::vector<const char*> arguments = {"fusion"};
  for (const std::string& word : words) arguments.push_back(word.c_str());
  Command command;
  try {
    command.Parse(static_cast<int>(arguments.size()), arguments.data());
  } catch (const CLI::Success& wanted) {
    // Help, which is put together for it.
    std::ostringstream text;
    static_cast<void>(CLI::App().exit(wanted, text, text));
  } catch (const fusion::RunFailure& refused) {
    if (refused.Sentence().empty()) std::abort();
  }
}

template <typename Request>
void Set(Request& request, const std::vector<std::string>& words) {
  for (std::size_t i = 1; i + 1 < words.size(); i += 2) {
    try {
      SetOption(request, words[i].substr(words[i].find_first_not_of('-') == 2 ? 2 : 0), words[i + 1]);
    } catch (const fusion::RunFailure& refused) {
      if (refused.Sentence().empty()) std::abort();
    }
  }
}

/// A request that can be made has arguments that make the same one.
void Check(const std::vector<std::string>& words) {
  fusion::FuseRequest request;
  Set(request, words);
  // Threads would be started, and a log would be written.
  request.threads = "1";
  request.log.clear();
  try {
    static_cast<void>(fusion::CheckFuseRequest(request));
  } catch (const fusion::RunFailure& refused) {
    if (refused.Sentence().empty()) std::abort();
  }
  const std::vector<std::string> arguments = fusion::ArgumentsOf(request);
  fusion::FuseRequest again;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string name = arguments[i].substr(2, arguments[i].find('=') - 2);
    const bool joined = arguments[i].find('=') != std::string::npos;
    const bool alone = !joined && (i + 1 == arguments.size() || arguments[i + 1].starts_with("--"));
    const std::string value = joined ? arguments[i].substr(name.size() + 3) : alone ? "on" : arguments[++i];
    if (name == "co") {
      again.creationOptions.push_back(value);
    } else {
      SetOption(again, name, value);
    }
  }
  if (fusion::ArgumentsOf(again) != arguments) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> words = Words(data, size);
  Parse(words);
  Check(words);
  fusion::EvaluateRequest evaluate;
  Set(evaluate, words);
  fusion::AssessRequest assess;
  Set(assess, words);
  fusion::CheckRequest check;
  Set(check, words);
  fusion::SampleRequest sample;
  Set(sample, words);
  return 0;
}

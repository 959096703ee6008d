// The `fusion` command.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "apps/assess_command.h"
#include "apps/check_command.h"
#include "apps/completion.h"
#include "apps/evaluate_command.h"
#include "apps/exit_status.h"
#include "apps/fuse_command.h"
#include "apps/help_text.h"
#include "apps/methods_command.h"
#include "apps/nearest_word.h"
#include "apps/option_reference.h"
#include "apps/output_commands.h"
#include "apps/report_command.h"
#include "apps/sample_command.h"
#include "apps/short_options.h"
#include "apps/survey_command.h"
#include "platform/system/console.h"
#include "platform/system/interrupts.h"
#include "platform/system/memory.h"
#include "platform/system/process.h"

namespace {

/// The program's arguments as its parser takes them.
class Command {
 public:
  Command() {
    const auto help = std::make_shared<app::HelpText>();
    m_parser.formatter(help);
    for (CLI::App* command : m_parser.get_subcommands({})) command->formatter(help);
    m_completion->add_option("SHELL", m_shell, "bash, zsh or fish")->required()->type_name("bash|zsh|fish");
    m_parser.set_version_flag("--version", "fusion " FUSION_VERSION);
    m_parser.require_subcommand(1);
    app::AddFuseOptions(*m_fuse, m_fuseOptions);
    app::AddEvaluateOptions(*m_evaluate, m_evaluateOptions);
    app::AddAssessOptions(*m_assess, m_assessOptions);
    app::AddCheckOptions(*m_check, m_checkOptions);
    app::AddReportOptions(*m_report, m_reportOptions);
    app::AddSurveyOptions(*m_survey, m_surveyOptions);
    app::AddSampleOptions(*m_sample, m_sampleOptions);
    app::AddInfoOptions(*m_info, m_infoOptions);
    app::AddVerifyOptions(*m_verify, m_verifyOptions);
    m_methods->add_option("NAME", m_method, "Explain this one: formula, source, when to take it")->type_name("METHODS");
    m_methods->add_flag("--json", m_json, "As JSON");
    m_methods->add_flag("--names", m_namesOnly, "Names only, one a line");
  }

  int Run(int argc, const char* const* argv) {
    try {
      Parse(argc, argv);
    } catch (const CLI::Success& wanted) {
      // Help or the version, which the parser prints.
      return m_parser.exit(wanted);
    } catch (const fusion::RunFailure& error) {
      return Refuse(error, argc, argv);
    }
    try {
      if (*m_fuse && !m_fuseOptions.repeat.empty()) return app::RunRepeat(m_fuseOptions.repeat);
      if (*m_fuse) return app::RunFuse(m_fuseOptions);
      if (*m_evaluate) return app::RunEvaluate(m_evaluateOptions);
      if (*m_assess) return app::RunAssess(m_assessOptions);
      if (*m_check) return app::RunCheck(m_checkOptions);
      if (*m_info) return app::RunInfo(m_infoOptions);
      if (*m_verify) return app::RunVerify(m_verifyOptions);
      if (*m_report) return app::RunReport(m_reportOptions);
      if (*m_survey) return app::RunSurvey(m_surveyOptions);
      if (*m_sample) return app::RunSample(m_sampleOptions);
      if (*m_completion) return Print(app::Completion(m_shell, app::CommandsOf(m_parser)));
      if (*m_man) return Print(app::ManualPage(app::TextOf(m_parser), app::CommandsOf(m_parser), FUSION_VERSION));
      return app::RunMethods(m_method, m_json, m_namesOnly);
    } catch (const fusion::RunFailure& e) {
      return app::Report(e);
    } catch (const std::exception& e) {
      return app::Report(fusion::ExceptionError(e));
    }
  }

  /// Takes the arguments and runs nothing. Throws what the parser prints, or a RunFailure of wrong usage.
  void Parse(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    try {
      arguments = platform::Utf8Arguments(argc, argv);
      arguments = InLongOptions(arguments);
      // The parser takes them last first.
      m_parser.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success&) {
      throw;
    } catch (const CLI::ParseError& e) {
      const auto word = std::find_if(arguments.begin(), arguments.end(),
                                     [](const std::string& argument) { return !argument.starts_with('-'); });
      if (m_parser.get_subcommands().empty() && word != arguments.end()) throw UnknownCommand(*word);
      ThrowUnknownOption(arguments);
      const std::string command = m_parser.get_subcommands().empty() ? "" : m_parser.get_subcommands()[0]->get_name();
      throw fusion::UsageError(e.what() + (" (see fusion " + command) + (command.empty() ? "--help)" : " --help)"));
    } catch (const std::invalid_argument& e) {
      throw fusion::UsageError(e.what());
    }
  }

 private:
  /// The options of the command that is asked for, as the parser knows them; none where there is no such command.
  std::vector<std::string> OptionNames(const std::vector<std::string>& arguments) const {
    std::vector<std::string> names;
    for (const app::CommandText& command : app::CommandsOf(m_parser)) {
      if (arguments.empty() || command.name != arguments.front()) continue;
      for (const app::OptionText& option : command.options) {
        names.push_back(option.name);
        if (!option.shortName.empty()) names.push_back(option.shortName);
      }
    }
    return names;
  }

  std::vector<std::string> InLongOptions(const std::vector<std::string>& arguments) const {
    return app::WithLongOptions(arguments, OptionNames(arguments));
  }

  void ThrowUnknownOption(const std::vector<std::string>& arguments) const {
    const std::vector<std::string> names = OptionNames(arguments);
    if (names.empty()) return;
    for (const std::string& argument : arguments) {
      const bool isOption = argument.size() > 1 && argument[0] == '-' && argument.find_first_of("0123456789.") != 1;
      const std::string name = argument.substr(0, argument.find('='));
      if (name == "--") return;
      if (!isOption || name == "-h" || std::find(names.begin(), names.end(), name) != names.end()) continue;
      throw fusion::UsageError("Unknown option '" + name + "'; did you mean '" + app::NearestWord(name, names) +
                               "'? (see fusion " + arguments.front() + " --help)");
    }
  }

  static int Print(const std::string& text) {
    std::cout << text;
    return app::kSuccess;
  }

  fusion::RunFailure UnknownCommand(const std::string& word) const {
    std::vector<std::string> names;
    for (const CLI::App* command : m_parser.get_subcommands({})) names.push_back(command->get_name());
    return fusion::UsageError("Unknown command '" + word + "'; did you mean '" + app::NearestWord(word, names) +
                              "'? (see fusion --help)");
  }

  /// Whoever reads the outcome as JSON learns of arguments that were refused, too.
  int Refuse(const fusion::RunFailure& error, int argc, const char* const* argv) {
    const bool json =
        std::any_of(argv, argv + argc, [](const char* argument) { return std::strcmp(argument, "--json") == 0; });
    if (*m_fuse) {
      m_fuseOptions.json = json;
      return app::RefuseFuse(m_fuseOptions, error);
    }
    if (json) app::PrintJson({{"error_type", error.Type()}, {"message", error.what()}});
    return app::Report(error);
  }

  CLI::App m_parser{"Pan-sharpening of satellite and aerial images.", "fusion"};
  CLI::App* m_fuse = m_parser.add_subcommand("fuse", "Fuse a pan and a multispectral image");
  CLI::App* m_check = m_parser.add_subcommand("check", "Look at a pair of images before fusing it");
  CLI::App* m_evaluate = m_parser.add_subcommand("evaluate", "Measure the quality of a fused image");
  CLI::App* m_assess = m_parser.add_subcommand("assess", "Compare the methods on a pair of images");
  CLI::App* m_report = m_parser.add_subcommand("report", "Write a page about fused images and their inputs");
  CLI::App* m_survey = m_parser.add_subcommand("survey", "Look at parts of images for fusions of parts");
  CLI::App* m_sample = m_parser.add_subcommand("sample", "Write a made-up scene to try things with");
  CLI::App* m_info = m_parser.add_subcommand("info", "Tell how a fused image was made");
  CLI::App* m_verify = m_parser.add_subcommand("verify", "Compare a fused image with what was written");
  CLI::App* m_methods = m_parser.add_subcommand("methods", "List the fusion methods");
  CLI::App* m_completion = m_parser.add_subcommand("completion", "Print what completes arguments in a shell");
  CLI::App* m_man = m_parser.add_subcommand("man", "Print the manual page");
  app::FuseOptions m_fuseOptions;
  app::CheckOptions m_checkOptions;
  app::EvaluateOptions m_evaluateOptions;
  app::AssessOptions m_assessOptions;
  app::ReportOptions m_reportOptions;
  app::SurveyOptions m_surveyOptions;
  app::SampleCommandOptions m_sampleOptions;
  app::OutputOptions m_infoOptions;
  app::OutputOptions m_verifyOptions;
  std::string m_method;
  std::string m_shell;
  bool m_json = false;
  bool m_namesOnly = false;
};

}  // namespace

int main(int argc, char** argv) {
  // Where memory is short, the parser may already find none.
  try {
    platform::FillStandardStreams();
    platform::LetWritesFail();
    platform::UseUtf8Console();
    platform::KeepFreedMemory();
    platform::OwnProcess();
    return app::EndOutput(Command().Run(argc, argv));
  } catch (...) {
    return app::ReportUncaught();
  }
}

// The `fusion` command.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>

#include "apps/evaluate_command.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "apps/fuse_run.h"
#include "apps/methods.h"
#include "apps/sample_command.h"
#include "platform/system/console.h"
#include "platform/system/interrupts.h"
#include "platform/system/memory.h"

int main(int argc, char** argv) {
  platform::FillStandardStreams();
  platform::LetWritesFail();
  platform::UseUtf8Console();
  platform::KeepFreedMemory();
  CLI::App fusion("Pan-sharpening of satellite and aerial images.", "fusion");
  fusion.set_version_flag("--version", "fusion " FUSION_VERSION);
  fusion.require_subcommand(1);

  app::FuseOptions fuse;
  CLI::App* fuseCommand = fusion.add_subcommand("fuse", "Fuse a pan and a multispectral image");
  app::AddFuseOptions(*fuseCommand, fuse);

  app::EvaluateOptions evaluate;
  CLI::App* evaluateCommand = fusion.add_subcommand("evaluate", "Measure the quality of a fused image");
  app::AddEvaluateOptions(*evaluateCommand, evaluate);

  app::SampleCommandOptions sample;
  CLI::App* sampleCommand = fusion.add_subcommand("sample", "Write a made-up scene to try things with");
  app::AddSampleOptions(*sampleCommand, sample);

  bool json = false;
  bool namesOnly = false;
  CLI::App* methodsCommand = fusion.add_subcommand("methods", "List the fusion methods");
  methodsCommand->add_flag("--json", json, "As JSON");
  methodsCommand->add_flag("--names", namesOnly, "Names only, one a line");

  try {
    std::vector<std::string> arguments = platform::Utf8Arguments(argc, argv);
    // The parser takes them last first.
    std::reverse(arguments.begin(), arguments.end());
    fusion.parse(std::move(arguments));
  } catch (const CLI::ParseError& e) {
    return fusion.exit(e) == 0 ? app::kSuccess : app::kWrongUsage;
  }
  try {
    if (*fuseCommand) return app::RunFuse(fuse);
    if (*evaluateCommand) return app::RunEvaluate(evaluate);
    if (*sampleCommand) return app::RunSample(sample);
    return app::RunMethods(json, namesOnly);
  } catch (const app::CommandError& e) {
    return app::Report(e);
  } catch (const std::exception& e) {
    return app::Report({app::kRunFailed, e.what()});
  }
}

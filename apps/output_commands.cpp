#include "apps/output_commands.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/report_json.h"
#include "runs/provenance.h"

namespace app {
namespace {

template <typename Values>
std::string Row(const Values& values) {
  std::ostringstream text;
  for (const auto& value : values) text << (text.tellp() > 0 ? " " : "") << value;
  return text.str();
}

void Print(const std::string& name, const std::string& value) {
  if (!value.empty()) std::cout << std::left << std::setw(19) << name << value << '\n';
}

/// A failure as JSON, too, for whoever reads that.
template <typename Work>
int Told(const OutputOptions& options, const Work& work) {
  try {
    work();
    return kSuccess;
  } catch (const fusion::RunFailure& failure) {
    if (options.json) PrintJson({{"error_type", failure.Type()}, {"message", failure.what()}});
    throw;
  }
}

void AddFile(CLI::App& command, OutputOptions& o) {
  command.add_option("FILE", o.file, "Image that fuse has written")->required();
  command.add_flag("--json", o.json, "As one JSON object");
}

}  // namespace

void AddInfoOptions(CLI::App& command, OutputOptions& o) { AddFile(command, o); }

void AddVerifyOptions(CLI::App& command, OutputOptions& o) {
  AddFile(command, o);
  command.add_flag("--quiet", o.quiet, "No progress, and no word where all is well");
}

int RunInfo(const OutputOptions& o) {
  return Told(o, [&o] {
    const fusion::Provenance p = fusion::ReadProvenance(o.file);
    if (o.json) return PrintJson(ToJson(p, o.file));
    Print("output", p.output);
    Print("made by", "fusion " + p.version + " at " + p.time);
    Print("method", p.method);
    Print("options", p.options);
    Print("guards", p.guards);
    for (const fusion::ProvenanceInput& input : p.inputs) {
      Print(input.role, input.path + (input.size.empty() ? "" : " (" + input.size + ")"));
      Print("  header SHA-256", input.header);
    }
    for (const fusion::ModelFact& fact : p.model) Print(fact.name, Row(fact.values));
    Print("CRC-32C of bands", Row(p.checksums));
    Print("command", fusion::RepeatCommand(p, o.file));
  });
}

int RunVerify(const OutputOptions& o) {
  return Told(o, [&o] {
    ConsoleProgress console(o.quiet);
    const fusion::Provenance p = fusion::VerifyOutput(o.file, &console);
    if (o.json) {
      PrintJson(VerifiedJson(p, o.file));
    } else if (!o.quiet) {
      std::cout << o.file << " holds what was written: " << p.output << ".\n";
    }
  });
}

int RunRepeat(const std::string& file) {
  std::cout << fusion::RepeatCommand(fusion::ReadProvenance(file), file) << '\n';
  return kSuccess;
}

}  // namespace app

#include "apps/sample_command.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "apps/console_progress.h"
#include "apps/exit_status.h"
#include "apps/fuse_options.h"
#include "runs/options.h"

namespace app {
void AddSampleOptions(CLI::App& command, SampleCommandOptions& o) {
  command.add_option("DIR", o.folder, "Folder for pan.tif, ms.tif and truth.tif, made where it is missing")->required();
  command.add_option("--size", o.size, "N or WxH in pan pixels")->type_name("N|WxH")->capture_default_str();
  command.add_option("--seed", o.seed, "Another seed gives another landscape")->type_name("N")->capture_default_str();
  command.add_option("--type", o.type, "Pixel type of the files")->type_name("TYPE")->capture_default_str();
  command.add_option("--ratio", o.ratio, "Multispectral pixel over pan pixel, 1 to 16")
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--bands", o.bands, "Multispectral bands, 1 to 16")->type_name("N")->capture_default_str();
  AddText(command, "--shift", "How far the multispectral picture lies to the right and down, in pan pixels", "DX,DY",
          [&o](const std::string& text) { fusion::SetOption(o, "shift", text); });
  command.add_option("--noise", o.noise, "Standard deviation of both sensors' noise; 1 is the brightest white")
      ->capture_default_str();
  command.add_option("--clouds", o.clouds, "Share of the scene that clouds hide, 0 to 1")
      ->type_name("SHARE")
      ->capture_default_str();
  command.add_flag("--overwrite", o.overwrite, "Replace existing files");
  command.add_flag("--quiet", o.quiet, "No progress and no notices");
}

int RunSample(const SampleCommandOptions& o) {
  fusion::SampleRequest request = o;
  fusion::SetOption(request, "size", o.size);
  ConsoleProgress console(o.quiet);
  const fusion::SampleReport report = fusion::MakeSample(request, &console);
  for (const fusion::SampleFile& file : report.files) {
    if (o.quiet) break;
    std::cerr << file.path << ": " << file.width << "x" << file.height << ", " << file.bands
              << (file.bands == 1 ? " band" : " bands") << ", pixel " << file.pixelSize << " m\n";
  }
  return kSuccess;
}

}  // namespace app

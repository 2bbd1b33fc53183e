// qlnmedia inspect: what a file says about itself, from the container down to the single unit.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>

#include "commands.h"
#include "qlnmedia/inspect.h"
#include "report_text.h"
#include "words.h"

namespace qlnmedia {

namespace {

struct Options {
  std::string file;
  bool json = false;
  InspectOptions inspect;
};

void Run(const Options& options) { PrintReport(InspectFile(options.file, options.inspect), options.json); }

}  // namespace

void AddInspectCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("inspect", "Show what a media file says about itself");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file, "Media file: MP4, MOV, MKV, TS, raw H.264 or HEVC")->required();
  command->add_flag("--json", options->json, "Print JSON for programs instead of text");
  command->add_option("--frames", options->inspect.frames, "Coded frames of each video stream to lay out")
      ->check(CountUpTo(INT32_MAX))
      ->capture_default_str();
  command->add_flag("--units", options->inspect.units, "List every unit of those frames with its header");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

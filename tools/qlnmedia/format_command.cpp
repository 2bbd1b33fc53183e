// qlnmedia format: what the library knows of a raster, or of a signal format word.

#include <CLI/CLI.hpp>
#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "qlnmedia/numbers.h"
#include "qlnmedia/signal_format.h"
#include "report_text.h"
#include "words.h"

namespace qlnmedia {

namespace {

struct FormatArguments {
  std::vector<std::string> what;
  bool interlaced = false;
  bool json = false;
};

int32_t ParseHeight(const std::string& text) {
  int32_t height = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, height);
  if (error != std::errc() || stop != end) RefuseUsage("HEIGHT: " + text + " is no number of lines");
  return height;
}

Report RasterReport(const FormatArguments& options) {
  Raster raster;
  raster.progressive = !options.interlaced;
  const auto width = ParseNumber(options.what[0]);
  if (!width) RefuseUsage("WIDTH: " + options.what[0] + " is no number of pixels");
  raster.width = *width;
  raster.height = ParseHeight(options.what[1]);
  const auto rate = ParseRate(options.what[2]);
  if (!rate) RefuseUsage("RATE: " + options.what[2] + " is no rate such as 25, 29.97 or 30000/1001");
  raster.rate = rate->rate;
  raster.scale = rate->scale;
  return ReportOnRaster(raster);
}

Report WordReport(const FormatArguments& options) {
  if (options.interlaced) RefuseUsage("--interlaced goes with WIDTH HEIGHT RATE; a word has its own scan");
  const auto word = ParseNumber(options.what[0]);
  if (!word) RefuseUsage("WORD: " + options.what[0] + " is no signal format word such as 0x2380B21D");
  return ReportOnFormat(*word);
}

void Run(const FormatArguments& options) {
  if (options.what.size() == 2) RefuseUsage("give WIDTH HEIGHT RATE, or a word such as 0x2380B21D");
  PrintReport(options.what.size() == 3 ? RasterReport(options) : WordReport(options), options.json);
}

}  // namespace

void AddFormatCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("format", "Show what is known of a video format: WIDTH HEIGHT RATE, or its word");
  auto options = std::make_shared<FormatArguments>();
  command
      ->add_option("WHAT", options->what,
                   "Pixels, lines and rate (25, 29.97 or 30000/1001), or a word such as 0x2380B21D")
      ->expected(1, 3)
      ->required();
  command->add_flag("--interlaced", options->interlaced, "The raster is interlaced; progressive otherwise");
  command->add_flag("--json", options->json, "Print JSON for programs instead of text");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

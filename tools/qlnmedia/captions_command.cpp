// qlnmedia captions: takes the captions out of a stream, as a caption file or as text.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "output.h"
#include "progress_bar.h"
#include "qlnmedia/captions.h"

namespace qlnmedia {

namespace {

struct Options {
  std::string file;
  std::string out;
  std::string service;
  CaptionTiming timing;
};

std::string NamesOf(const std::vector<CaptionService>& services) {
  std::string names;
  for (const CaptionService& service : services) names += (names.empty() ? "" : ", ") + service.name;
  return names;
}

void Show(const FileCaptions& captions) {
  const std::string names = NamesOf(captions.services);
  Print(fmt::format("stream {}: captions on {} of {} pictures: {}\n", captions.stream, captions.captioned,
                    captions.pictures, names.empty() ? "nothing but padding" : names));
  for (const CaptionService& service : captions.services) {
    if (!service.lines.empty()) Print(service.name + ":\n" + CaptionText(service.lines));
  }
}

void Run(const Options& options) {
  if (!options.out.empty())
    return WriteCaptionFile(options.file, options.out, options.service, ProgressBar(), options.timing);
  const FileCaptions captions = ReadFileCaptions(options.file, ProgressBar(), options.timing);
  if (options.service.empty()) return Show(captions);
  Print(CaptionText(LinesOfService(captions, options.file, options.service)));
}

}  // namespace

void AddCaptionsCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("captions", "Take the captions out of a stream");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file, "H.264, HEVC or MPEG-2 in any container")->required();
  auto* const out = command->add_option("-o,--output", options->out,
                                        "A file whose ending says its form: .mcc, .scc, .srt or .txt");
  command->add_option(
      "--service", options->service,
      "Service whose text is taken: CC1 to CC4, or 1 to 63 for digital captions; default: the "
      "first that shows any");
  command->add_option(
      "--rate", options->timing.rate,
      "Pictures a second: 25, 29.97, 30000/1001, or nominal for the rate that a file of uneven "
      "pictures is made for; default: what the file says");
  command
      ->add_option("--timecode-type", options->timing.timecodeType,
                   "How labels of .scc and .mcc count: drop-frame, non-drop-frame ...; default: as the "
                   "stream's timecode does")
      ->needs(out);
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

// qlnmedia captions: takes the captions out of a stream, as a caption file or as text.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "output.h"
#include "progress_bar.h"
#include "qlnmedia/captions.h"
#include "replace.h"
#include "words.h"

namespace qlnmedia {

namespace {

struct Options {
  std::string file;
  std::string out;
  std::string service;
  CaptionTiming timing;
  std::string form;
  bool force = false;
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

// Standard output gets nothing where the work fails.
void PrintFile(const Options& options) {
  const std::string form = options.form.empty() ? "srt" : options.form;
  const std::optional<CaptionFileKind> kind = CaptionFileKindOf("-." + form);
  if (!kind)
    throw CLI::ValidationError("--form: " + form + " is no form; " +
                               WordsThereAre(form, {"mcc", "scc", "srt", "txt"}));
  Print(CaptionFileText(options.file, *kind, options.service, ProgressBar(), options.timing));
}

void Run(const Options& options) {
  if (options.out == "-") return PrintFile(options);
  if (!options.form.empty())
    throw CLI::ValidationError("--form goes with -o -; a file's ending says its form");
  RequireMayReplace(options.out, options.force);
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
  auto* const out = command->add_option(
      "-o,--output", options->out,
      "A file whose ending says its form: .mcc, .scc, .srt or .txt; - for standard output");
  command->add_option("--form", options->form, "With -o -: mcc, scc, srt or txt; default: srt")->needs(out);
  command->add_option(
      "--service", options->service,
      "Service whose text is taken: CC1 to CC4 (or cc1), or 1 to 63 for digital captions; default: the "
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
  command
      ->add_option("--start", options->timing.start,
                   "Label of the first picture in .scc and .mcc: HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame "
                   "labels; default: 00:00:00:00")
      ->needs(out);
  command->add_flag("--force", options->force, kForceHelp);
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

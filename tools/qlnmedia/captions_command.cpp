// qlnmedia captions: takes the captions out of a stream, as a caption file or as text.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "base/error.h"
#include "base/text_file.h"
#include "captions/caption_track.h"
#include "commands.h"
#include "container/file_captions.h"
#include "output.h"
#include "progress_bar.h"

namespace qlnmedia {

namespace captions = qlnmedia::captions;

namespace {

struct Options {
  std::string file;
  std::string out;
  std::string service;
};

bool EndsWith(const std::string& path, std::string_view ending) {
  return path.size() > ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

void WriteMccFile(const CaptionSurvey& survey, const std::string& path) {
  captions::MccTrackWriter writer(*survey.pace.rate);
  TextFileWriter file(path);
  file.Write(writer.Heading());
  ReadCaptions(
      survey,
      [&](const CaptionedPicture& picture) { file.Write(writer.Lines(picture.triplets, picture.number)); },
      ProgressBar());
  file.Finish();
}

void WriteSccFile(const CaptionSurvey& survey, const std::string& path) {
  captions::SccTrackWriter writer(*survey.pace.rate);
  ReadCaptions(
      survey, [&](const CaptionedPicture& picture) { writer.Add(picture.triplets, picture.number); },
      ProgressBar());
  WriteTextFile(path, writer.Text());
}

// The lines of the service that was asked for; of the first one that shows text, where none was.
std::vector<CaptionLine> LinesOf(const std::vector<CaptionService>& services, const Options& options) {
  for (const CaptionService& service : services) {
    const bool asked = service.name == options.service || service.name == "service " + options.service;
    if (asked || (options.service.empty() && !service.lines.empty())) return service.lines;
  }
  if (options.service.empty()) return {};
  throw Error(options.file, fmt::format("has no captions of service \"{}\"", options.service),
              services.empty() ? "" : fmt::format("it has {}", NamesOf(services)));
}

void Show(const CaptionSurvey& survey, const std::vector<CaptionService>& services) {
  const std::string names = NamesOf(services);
  Print(fmt::format("stream {}: captions on {} of {} pictures: {}\n", survey.stream, survey.captioned(),
                    survey.counts.size(), names.empty() ? "nothing but padding" : names));
  for (const CaptionService& service : services) {
    if (!service.lines.empty()) Print(service.name + ":\n" + WriteCaptionText(service.lines));
  }
}

void Run(const Options& options) {
  const bool mcc = EndsWith(options.out, ".mcc");
  const bool scc = EndsWith(options.out, ".scc");
  const bool srt = EndsWith(options.out, ".srt");
  if (!options.out.empty() && !mcc && !scc && !srt && !EndsWith(options.out, ".txt"))
    throw Error(options.out, "is no kind of caption file that is known",
                "end it in .mcc, .scc, .srt or .txt");
  if ((mcc || scc) && !options.service.empty())
    throw Error("--service", "goes with text, not with .mcc and .scc files",
                "a .mcc file holds all services, a .scc file line 21 field 1");
  const CaptionSurvey survey = SurveyCaptions(options.file, SIZE_MAX, ProgressBar());
  if (survey.captioned() == 0)
    throw Error(options.file, fmt::format("stream {} has no captions", survey.stream));
  if ((mcc || scc) && !survey.pace.rate)
    throw Error(options.file,
                fmt::format("has {:.3f} pictures a second, for which caption files have no rate",
                            survey.pace.picturesPerSecond));
  if (mcc) return WriteMccFile(survey, options.out);
  if (scc) return WriteSccFile(survey, options.out);
  std::vector<CaptionService> services = DecodeCaptions(survey, ProgressBar());
  if (options.out.empty() && options.service.empty()) return Show(survey, services);
  const std::vector<CaptionLine> lines = LinesOf(services, options);
  if (options.out.empty()) return Print(WriteCaptionText(lines));
  WriteTextFile(options.out, srt ? WriteSrt(lines) : WriteCaptionText(lines));
}

}  // namespace

void AddCaptionsCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("captions", "Take the captions out of a stream");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file, "H.264, HEVC or MPEG-2 in any container")->required();
  command->add_option("-o,--output", options->out,
                      "A file whose ending says its form: .mcc, .scc, .srt or .txt");
  command->add_option(
      "--service", options->service,
      "Service whose text is taken: CC1 to CC4, or 1 to 63 for digital captions; default: the "
      "first that shows any");
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

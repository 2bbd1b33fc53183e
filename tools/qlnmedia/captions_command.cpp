// qlnmedia captions: takes the captions out of a stream, as a caption file or as text.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "captions/caption_track.h"
#include "qlnmedia/caption_text.h"
#include "qlnmedia/commands.h"
#include "qlnmedia/output.h"
#include "qlnmedia/text_file.h"
#include "qlnmedia/tool_error.h"

namespace qlnmedia {

namespace {

struct Options {
  std::string file;
  std::string out;
  int field = 1;
};

bool EndsWith(const std::string& path, std::string_view ending) {
  return path.size() > ending.size() && path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

void Run(const Options& options) {
  const bool mcc = EndsWith(options.out, ".mcc");
  const bool scc = EndsWith(options.out, ".scc");
  const bool srt = EndsWith(options.out, ".srt");
  if (!options.out.empty() && !mcc && !scc && !srt && !EndsWith(options.out, ".txt"))
    throw ToolError(options.out, "is no kind of caption file that is known",
                    "end it in .mcc, .scc, .srt or .txt");
  const StreamCaptions captions = ReadStreamCaptions(options.file);
  if (captions.captioned() == 0)
    throw ToolError(options.file, fmt::format("stream {} has no captions", captions.stream));
  const std::vector<Triplets> pictures = captions.triplets();
  if ((mcc || scc) && !captions.rate)
    throw ToolError(options.file,
                    fmt::format("has {:.3f} pictures a second, for which caption files have no rate",
                                captions.picturesPerSecond));
  if (mcc) return WriteTextFile(options.out, qln::captions::WriteMccTrack(pictures, *captions.rate));
  if (scc) return WriteTextFile(options.out, qln::captions::WriteSccTrack(pictures, *captions.rate));
  const std::vector<CaptionLine> lines = DecodeLine21(pictures, captions.picturesPerSecond, options.field);
  if (srt) return WriteTextFile(options.out, WriteSrt(lines));
  if (!options.out.empty()) return WriteTextFile(options.out, WriteCaptionText(lines));
  const std::vector<std::string> services = CaptionServices(pictures);
  Print(fmt::format("stream {}: captions on {} of {} pictures: {}\n", captions.stream, captions.captioned(),
                    captions.pictures.size(),
                    services.empty() ? "nothing but padding" : fmt::format("{}", fmt::join(services, ", "))));
  Print(WriteCaptionText(lines));
}

}  // namespace

void AddCaptionsCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("captions", "Take the captions out of a stream");
  auto options = std::make_shared<Options>();
  command->add_option("FILE", options->file, "H.264, HEVC or MPEG-2 in any container")->required();
  command->add_option("-o,--output", options->out,
                      "A file whose ending says its form: .mcc, .scc, .srt or .txt");
  command->add_option("--field", options->field, "Line 21 field whose text is decoded")
      ->check(CLI::Range(1, 2));
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

// qlnmedia captions: takes the captions out of streams, as caption files or as text.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "batch.h"
#include "caption_making.h"
#include "commands.h"
#include "interruption.h"
#include "output.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/error.h"
#include "replace.h"
#include "sandbox.h"
#include "tables.h"
#include "value_hints.h"
#include "words.h"

namespace qlnmedia {

namespace {

namespace fs = std::filesystem;

struct CaptionsArguments {
  InputOptions inputs;
  std::string out;
  std::string form;
  std::string service;
  bool json = false;
  bool force = false;
  CaptionTiming timing;
  CaptionSourceOptions source;
};

std::vector<std::string> Forms() { return {"mcc", "scc", "anc", "srt", "vtt", "ttml", "txt"}; }

// Of files that no ending says it for.
CaptionFileKind FormOf(const CaptionsArguments& options) {
  const std::string form = options.form.empty() ? "srt" : options.form;
  const std::optional<CaptionFileKind> kind = CaptionFileKindOf("-." + form);
  if (!kind) throw CLI::ValidationError("--form: " + form + " is no form; " + WordsThereAre(form, Forms()));
  return *kind;
}

std::string NamesOf(const std::vector<CaptionService>& services) {
  std::string names;
  for (const CaptionService& service : services) names += (names.empty() ? "" : ", ") + service.name;
  return names;
}

std::string TextOf(const FileCaptions& captions) {
  const std::string names = NamesOf(captions.services);
  std::string text =
      fmt::format("stream {}: captions on {} of {} pictures: {}\n", captions.stream, captions.captioned,
                  captions.pictures, names.empty() ? "nothing but padding" : names);
  for (const CaptionService& service : captions.services) {
    if (!service.lines.empty()) text += service.name + ":\n" + CaptionText(service.lines);
  }
  return text;
}

Json LinesJson(const std::vector<CaptionLine>& lines) {
  Json list = Json::array();
  for (const CaptionLine& line : lines)
    list.push_back({{"begin", line.begin}, {"end", line.end}, {"text", line.text}});
  return list;
}

// All services, or the one that is asked for.
Json JsonOf(const FileCaptions& captions, const Input& input, const CaptionsArguments& options) {
  Json services = Json::array();
  if (options.service.empty()) {
    for (const CaptionService& service : captions.services)
      services.push_back({{"name", service.name}, {"lines", LinesJson(service.lines)}});
  } else {
    services.push_back({{"name", options.service},
                        {"lines", LinesJson(LinesOfService(captions, input.path, options.service))}});
  }
  return Json{{"stream", captions.stream},
              {"pictures", captions.pictures},
              {"captioned", captions.captioned},
              {"services", services}};
}

std::string Shown(const FileCaptions& captions, const Input& input, const CaptionsArguments& options,
                  bool several) {
  if (options.json && !several) return JsonOf(captions, input, options).dump(2) + "\n";
  if (options.json) {
    Json line = LineHead(input, kExitSuccess);
    line.update(JsonOf(captions, input, options));
    return JsonLine(line);
  }
  const std::string heading = several ? input.path + ":\n" : std::string();
  if (options.service.empty()) return heading + TextOf(captions);
  return heading + CaptionText(LinesOfService(captions, input.path, options.service));
}

// Where each file's captions go: into the file that is named, or below the folder under the file's own name.
using Outputs = std::map<std::string, std::string>;

Outputs FindOutputs(const Inputs& inputs, const CaptionsArguments& options) {
  Outputs outputs;
  std::error_code error;
  const bool folder = fs::is_directory(options.out, error);
  if (error == std::errc::io_error) throw Error(options.out, error.message());
  if (!inputs.several && !folder) {
    if (!options.form.empty())
      throw CLI::ValidationError("--form goes with -o - or a folder; a file's ending says its form");
    outputs[inputs.files.front().path] = options.out;
    return outputs;
  }
  if (!folder)
    throw Error(options.out, "is no folder, into which the captions of several files would go",
                "make the folder first");
  FormOf(options);
  std::map<std::string, std::string> taken;
  for (const Input& input : inputs.files) {
    fs::path name(input.below);
    name.replace_extension("." + (options.form.empty() ? std::string("srt") : options.form));
    const std::string out = (fs::path(options.out) / name).string();
    const auto [place, isNew] = taken.emplace(out, input.path);
    if (!isNew)
      throw Error(out, fmt::format("would be the captions of {} and of {}", place->second, input.path),
                  "take them one after the other, into folders of their own");
    outputs[input.path] = out;
  }
  return outputs;
}

FileResult Write(const Input& input, const std::string& out, const CaptionsArguments& options, bool several,
                 const ProgressCallback& progress, const UnfinishedCallback& unfinished) {
  // Folders below the one that is named are made as they are in the input.
  if (fs::path(input.below).has_parent_path() && several) {
    std::error_code error;
    fs::create_directories(fs::path(out).parent_path(), error);
    if (error) throw Error(out, "its folder cannot be made: " + error.message());
  }
  WriteCaptionFile(input.path, out, options.service, progress, options.timing, options.source, unfinished);
  if (!several) return {};
  if (!options.json) return {fmt::format("{}: {}\n", input.path, out)};
  Json line = LineHead(input, kExitSuccess);
  line["output"] = out;
  return {JsonLine(line)};
}

void Run(const CaptionsArguments& options) {
  const Inputs inputs = FindInputs(options.inputs);
  const bool printed = options.out == "-";
  if (printed && inputs.several)
    throw CLI::ValidationError("-o - is for one file; name a folder for the captions of several");
  if (printed && options.json) throw CLI::ValidationError("-o - prints a caption file and no JSON");
  if (printed) FormOf(options);
  const Outputs outputs = options.out.empty() || printed ? Outputs() : FindOutputs(inputs, options);
  for (const auto& [input, out] : outputs) RequireMayReplace(out, options.force);
  SandboxPlaces places{ReadPlaces(options.inputs, inputs), {}};
  if (!outputs.empty())
    places.write.push_back(inputs.several ? options.out : FolderOfPath(outputs.begin()->second));
  ConfineCommand(places);
  std::optional<Interruption> interruption;
  if (!outputs.empty()) interruption.emplace();
  Batch batch;
  batch.work = [&](const Input& input, const ProgressCallback& progress) {
    // Standard output gets nothing where the work fails.
    if (printed)
      return FileResult{CaptionFileText(input.path, FormOf(options), options.service, progress,
                                        options.timing, options.source)};
    if (interruption)
      return Write(input, outputs.at(input.path), options, inputs.several, progress,
                   interruption->callback());
    return FileResult{Shown(ReadFileCaptions(input.path, progress, options.timing, options.source), input,
                            options, inputs.several)};
  };
  if (options.json) batch.failed = FailedLine;
  RunBatch(inputs, options.inputs.jobs, batch);
}

}  // namespace

void AddCaptionsCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("captions", "Take the captions out of streams, or make them of text");
  auto options = std::make_shared<CaptionsArguments>();
  AddInputOptions(
      *command, options->inputs,
      "H.264, HEVC or MPEG-2 in any container, caption tracks and ancillary data of MOV, MP4, TS and MXF, "
      "or a caption file: .scc, .mcc, .anc, .srt, .vtt; not line 21 in the lines of SD pictures");
  auto* const out = command->add_option(
      "-o,--output", options->out,
      "A file whose ending says its form: .mcc, .scc, .anc (elements of SMPTE ST 436, as MXF takes them), "
      ".srt, .vtt, .ttml or .txt; - for standard "
      "output; a folder for a file each");
  out->check(OffersFiles({".mcc", ".scc", ".anc", ".srt", ".vtt", ".ttml", ".txt"}));
  command
      ->add_option("--form", options->form,
                   "With -o - or a folder: mcc, scc, anc, srt, vtt, ttml or txt; default: srt")
      ->check(Offers(Forms))
      ->needs(out);
  command->add_flag("--json", options->json,
                    "Print JSON for programs instead of text: of one file an object, of several a line each");
  command
      ->add_option(
          "--service", options->service,
          "Service whose text is taken: CC1 to CC4 (or cc1), or 1 to 63 for digital captions; default: the "
          "first that shows any")
      ->check(Offers({"CC1", "CC2", "CC3", "CC4", "1", "2", "3", "4", "5", "6"}));
  command
      ->add_option("--rate", options->timing.rate,
                   "Pictures a second: 25, 29.97, 30000/1001, or nominal for the rate that a file of uneven "
                   "pictures is made for; default: what the file says")
      ->check(Offers(RateNames));
  command
      ->add_option("--timecode-type", options->timing.timecodeType,
                   "How labels of .scc and .mcc count: drop-frame, non-drop-frame ...; default: as the "
                   "stream's timecode does")
      ->check(Offers(TimecodeTypeNames))
      ->needs(out);
  command
      ->add_option("--start", options->timing.start,
                   "Label of the first picture in .scc and .mcc: HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame "
                   "labels; default: 00:00:00:00")
      ->needs(out);
  AddMakingOptions(*command, options->source);
  command->add_flag("--force", options->force, kForceHelp);
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

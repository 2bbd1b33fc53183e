// qlnmedia patch: the options and their texts.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "caption_making.h"
#include "commands.h"
#include "inputs.h"
#include "interruption.h"
#include "live_patch.h"
#include "output.h"
#include "progress_bar.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/value_names.h"
#include "replace.h"
#include "sandbox.h"
#include "value_hints.h"
#include "value_lists.h"

namespace qlnmedia {

namespace {

struct PatchArguments {
  PatchOptions patch;
  std::string colour;
  std::string hdr;
  std::string lightLevel;
  std::string sampleAspect, level, tier, timing, chromaLocation, cropping;
  std::vector<std::string> remove;
  bool fullRange = false;
  bool limitedRange = false;
  bool interlaced = false;
  bool progressive = false;
  bool force = false;
  bool captionTrack = false, captionStream = false;
  CaptionOptions captions;
};

// What goes into parameter sets alone, and what goes out.
void TakeSetOptions(const PatchArguments& options, PatchOptions& patch) {
  if (!options.sampleAspect.empty()) patch.sampleAspect = ParseSampleAspect(options.sampleAspect);
  if (!options.level.empty()) patch.level = ParseLevel(options.level);
  if (!options.tier.empty()) patch.highTier = ParseTier(options.tier);
  if (!options.timing.empty()) patch.timing = ParseVuiTiming(options.timing);
  if (!options.chromaLocation.empty()) patch.chromaLocation = ParseChromaLocation(options.chromaLocation);
  if (!options.cropping.empty()) patch.cropping = ParseCropping(options.cropping);
  std::string words;
  for (const std::string& word : options.remove) words += (words.empty() ? "" : ",") + word;
  if (!options.remove.empty()) patch.remove = ParseRemoval(words);
}

// The files that are named, and the folder in which the output gets its name.
SandboxPlaces PlacesOf(const PatchOptions& patch) {
  SandboxPlaces places{{patch.in, patch.initialization}, {}};
  if (patch.captions) places.read.push_back(patch.captions->file);
  // A playlist names files beside it, which may be links to others.
  if (patch.segments) {
    const bool isFolder = std::filesystem::is_directory(patch.in);
    const std::string folder = isFolder ? patch.in : FolderOfPath(patch.in);
    places.read.push_back(folder);
    std::error_code unknown;
    for (const auto& entry : std::filesystem::directory_iterator(folder, unknown)) {
      if (entry.is_symlink(unknown)) places.read.push_back(entry.path());
    }
  }
  if (patch.inPlace) places.write = {patch.in, FolderOfPath(patch.in)};
  if (!patch.inPlace && !patch.dryRun && !IsPipe(patch.out)) places.write.push_back(FolderOfPath(patch.out));
  // New samples of many megabytes wait in a file without a name.
  if (patch.dryRun || patch.segments || IsPipe(patch.out)) places.write.push_back("/tmp");
  return places;
}

void Run(PatchArguments& options) {
  if (options.colour == kListWord) return Print(ColourTable());
  if (options.hdr == kListWord) return Print(DisplayTable());
  PatchOptions& patch = options.patch;
  if (patch.in.empty()) throw CLI::RequiredError("IN");
  if (patch.out.empty() && !patch.inPlace && !patch.dryRun) throw CLI::RequiredError("OUT");
  if (!patch.rate.empty() && patch.timecode.empty() && options.captions.file.empty())
    throw CLI::ValidationError("--rate goes with --timecode or --captions");
  TakeSetOptions(options, patch);
  if (!options.colour.empty()) patch.colour = ParseColour(options.colour);
  if (options.fullRange || options.limitedRange) patch.fullRange = options.fullRange;
  if (!options.hdr.empty()) patch.mastering = ParseMasteringDisplay(options.hdr);
  if (!options.lightLevel.empty()) patch.lightLevel = ParseLightLevel(options.lightLevel);
  if (options.interlaced || options.progressive) patch.interlaced = options.interlaced;
  if (options.captionTrack) options.captions.place = CaptionPlace::kTrack;
  if (options.captionStream) options.captions.place = CaptionPlace::kStream;
  if (!options.captions.file.empty()) patch.captions = options.captions;
  if (!patch.any()) throw Error("patch", "nothing to do", "name what shall change; qlnmedia patch --help");
  std::error_code unknown;
  const bool onItself = std::filesystem::equivalent(patch.in, patch.out, unknown);  // which PatchFile refuses
  if (!patch.dryRun && !patch.inPlace && !onItself) RequireMayReplace(patch.out, options.force);
  std::optional<LiveDescriptors> live;
  if (IsPipe(patch.in) || IsPipe(patch.out)) live.emplace(patch);
  ConfineCommand(PlacesOf(patch));
  patch.progress = ProgressBar();
  Interruption interruption;
  patch.unfinished = interruption.callback();
  if (live) return RunLivePatch(patch, *live);
  const PatchResult result = PatchFile(patch);
  for (const std::string& line : result.lines) Print((patch.dryRun ? "would: " : "") + line + "\n");
}

void AddSetOptions(CLI::App& command, PatchArguments& options) {
  command.add_option("--sar", options.sampleAspect, "Sample aspect ratio W:H; 0:0 for unspecified");
  command.add_option("--level", options.level, "Level: 4, 4.1, 1b");
  command.add_option("--tier", options.tier, "Tier of HEVC: main or high")->check(Offers({"main", "high"}));
  command.add_option("--vui-timing", options.timing,
                     "Frames a second that the stream says: 25, 29.97, 30000/1001; :fixed behind it for a "
                     "fixed frame rate of H.264");
  command.add_option("--chroma-location", options.chromaLocation, "Chroma sample location type, 0 to 5")
      ->check(Offers({"0", "1", "2", "3", "4", "5"}));
  command.add_option("--crop", options.cropping, "Luma samples cut off: LEFT,RIGHT,TOP,BOTTOM");
  command
      .add_option("--remove", options.remove,
                  "Take out delimiters, filler, unspecified (units), sei:NUMBER or sei:NAME as "
                  "sei:picture-timing, t35:COUNTRY:PROVIDER as t35:B5:003C; several with commas between them")
      ->check(Offers({"delimiters", "filler", "unspecified", "sei:", "t35:"}))
      ->take_all()
      ->allow_extra_args(false);
}

void AddCaptionOptions(CLI::App& command, PatchArguments& options) {
  auto* const captions = command.add_option("--captions", options.captions.file,
                                            "Captions of a .scc or .mcc file, of a media file, or made of "
                                            "the text of a .srt or .vtt file; MPEG-2 too");
  captions->check(OffersFiles([] {
    std::vector<std::string> endings = CaptionEndings();
    for (const std::string& ending : MediaEndings()) endings.push_back(ending);
    return endings;
  }));
  command
      .add_option("--captions-offset", options.captions.offset,
                  "The caption file's timecode of the first picture; default: its first whole hour")
      ->needs(captions);
  AddMakingOptions(command, options.captions.source, captions);
  command
      .add_flag("--replace-captions", options.captions.replace,
                "Take out the captions that the stream has, or the caption track")
      ->needs(captions);
  auto* const track = command.add_flag("--caption-track", options.captionTrack,
                                       "MP4, MOV: put the captions into a c608 track, and not into pictures");
  track->needs(captions);
  command
      .add_option("--caption-language", options.captions.language,
                  "Language of the caption track: three letters, as eng")
      ->needs(track);
  command
      .add_flag("--caption-stream", options.captionStream,
                "Transport streams: put the captions into a stream of ancillary data (SMPTE ST 2038), and "
                "not into pictures")
      ->needs(captions)
      ->excludes(track);
}

// What goes into units of the stream: timecode, scan, delimiters, recovery points, captions.
void AddUnitOptions(CLI::App& command, PatchArguments& options) {
  auto* const timecode = command.add_option("--timecode", options.patch.timecode,
                                            "Timecode of the first picture: HH:MM:SS:FF or HH:MM:SS;FF");
  command
      .add_option(
          "--timecode-type", options.patch.timecodeType,
          "film, 23.98, pal, non-drop-frame, drop-frame, 50, 59.94 or 60; default: what the rate asks for")
      ->check(Offers(TimecodeTypeNames))
      ->needs(timecode);
  command
      .add_flag(
          "--timecode-track", options.patch.timecodeTrack,
          "MP4, MOV: say the timecode in the timecode track as well, which is put in where there is none")
      ->needs(timecode);
  command.add_flag("--keep-rate", options.patch.keepRate,
                   "Transport streams: what comes in takes null packets and stuffing only, or is refused");
  command
      .add_option("--rate", options.patch.rate,
                  "Frames a second for --timecode and --captions: 25, 29.97, 30000/1001, where the file "
                  "says none, or nominal for the rate that a file of uneven pictures is made for")
      ->check(Offers(RateNames));
  auto* const interlaced =
      command.add_flag("--interlaced", options.interlaced, "HEVC that codes each field as a picture: say so");
  command.add_flag("--progressive", options.progressive, "HEVC that codes progressive frames: say so")
      ->excludes(interlaced);
  command.add_flag("--delimiters", options.patch.delimiters,
                   "An access unit delimiter in front of every picture that lacks it");
  command.add_flag("--recovery-points", options.patch.recoveryPoints,
                   "A recovery point where decoding can start at a picture that does not say so");
  AddCaptionOptions(command, options);
}

// Where what is written goes, if not into one file.
void AddPlaceOptions(CLI::App& command, CLI::Option& out, PatchArguments& options) {
  auto* const inPlace = command.add_flag(
      "--in-place", options.patch.inPlace,
      "MP4, MOV: change IN itself where it fits; qlnmedia recover helps where that is cut off");
  inPlace->excludes(&out);
  auto* const segments = command.add_flag(
      "--segments", options.patch.segments,
      "IN is a folder or playlist of media segments of one stream, OUT a new folder for them");
  segments->excludes(inPlace);
  command
      .add_option("--init", options.patch.initialization,
                  "IN is a media segment alone, and this its initialization segment")
      ->check(OffersFiles())
      ->excludes(inPlace)
      ->excludes(segments);
}

}  // namespace

void AddPatchCommand(CLI::App& app) {
  CLI::App* const command =
      app.add_subcommand("patch", "Correct what a file says, without touching a coded picture");
  auto options = std::make_shared<PatchArguments>();
  command
      ->add_option("IN", options->patch.in,
                   "H.264 or HEVC in MP4, MOV, MKV, TS, MXF, or raw; - for a stream on standard input; "
                   "required")
      ->check(OffersFiles(MediaEndings));
  auto* const out =
      command->add_option("OUT", options->patch.out,
                          "The output, of the same kind of container, - for standard output; not with "
                          "--in-place, and not needed with --dry-run");
  out->check(OffersFiles(MediaEndings));
  command
      ->add_option("--colour,--color", options->colour,
                   ColourNames() + ", or P:T:M in numbers; list shows them")
      ->check(Offers([] {
        std::vector<std::string> words = {kListWord};
        for (const NamedColour& colour : NamedColours()) words.emplace_back(colour.name);
        return words;
      }));
  auto* const full =
      command->add_flag("--full-range", options->fullRange, "Say that samples use the full range");
  command->add_flag("--limited-range", options->limitedRange, "Say that samples use the limited range")
      ->excludes(full);
  command
      ->add_option("--hdr", options->hdr,
                   "Mastering display: " + DisplayNames() +
                       ", or G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min) in units of 0.00002 and 0.0001 cd/m2; "
                       "list shows them")
      ->check(Offers([] {
        std::vector<std::string> words = {kListWord};
        for (const NamedDisplay& display : NamedDisplays()) words.emplace_back(display.name);
        return words;
      }));
  command->add_option("--light-level", options->lightLevel, "Content light level: MAX,AVERAGE in cd/m2");
  AddSetOptions(*command, *options);
  AddUnitOptions(*command, *options);
  AddPlaceOptions(*command, *out, *options);
  command->add_flag("--verify", options->patch.verify, "Read the result back and compare it with the input");
  command->add_flag("--dry-run", options->patch.dryRun, "Say what would change and write nothing");
  command->add_flag("--force", options->force, kForceHelp);
  command->callback([options] { Run(*options); });
}

}  // namespace qlnmedia

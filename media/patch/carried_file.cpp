// Finds what changes, writes the output, checks it, and only then gives it its name.

#include "patch/carried_file.h"

#include <fmt/format.h>

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mp4/in_place.h"
#include "container/mp4/layout_check.h"
#include "container/mp4/output_file.h"
#include "patch/caption_track.h"
#include "patch/carried_input.h"
#include "patch/carried_tracks.h"
#include "patch/timecode_track.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// Every sample of every track, read out of both files.
void RequireSamplesKept(const mp4::Carrier& carrier, const CarriedInput& input, const EditedStreams& streams,
                        const std::string& written, const PatchOptions& options) {
  std::map<uint32_t, SampleUnits> edited;
  for (const auto& [index, stream] : streams.streams())
    edited.emplace(input.TrackId(index), input.UnitsOf(index));
  const mp4::FileSource output(written);
  const mp4::Layout layout = mp4::ReadLayout(output);
  Bytes was;
  Bytes is;
  std::set<uint32_t> ids;
  for (const mp4::Movie& movie : carrier.layout().movies) {
    for (const mp4::Track& track : movie.tracks) {
      if (!track.problem.empty() || !ids.insert(track.id).second) continue;
      const auto units = edited.find(track.id);
      mp4::TrackSamples before(carrier.source(), carrier.layout(), track.id);
      mp4::TrackSamples after(output, layout, track.id);
      mp4::Sample sample;
      for (mp4::Sample old; before.Next(old);) {
        const uint64_t size = carrier.source().size();
        const bool there = old.inFile && old.offset <= size && old.size <= size - old.offset;
        if (!after.Next(sample) || !there) continue;
        mp4::ReadSample(carrier.source(), track.id, old, was);
        mp4::ReadSample(output, track.id, sample, is);
        const bool kept = units == edited.end() ? was == is : units->second.IsKept(old, was, is, options);
        if (!kept)
          throw Error(options.out, fmt::format("sample {} of track {}: its coded data is not the input's",
                                               old.number + 1, track.id));
      }
    }
  }
}

}  // namespace

PatchResult PatchCarried(const PatchOptions& options, const DescribedFile& in) {
  mp4::RequireNoJournal(options.in);
  if (in.whole) {
    RequireOutput(*in.media, options.out);
  } else {
    RequireWritable(options.in, options.out);
  }
  const mp4::FileSource file(options.in);
  const bool captionTrack = options.captions && options.captions->place == CaptionPlace::kTrack;
  TimecodedInput timecoded;
  if (options.timecodeTrack) timecoded = PutTimecodeTrack(file, *in.media, options);
  const mp4::Source* patched = timecoded.source ? timecoded.source.get() : &file;
  CaptionedInput captioned;
  if (captionTrack) captioned = PutCaptionTrack(*patched, *in.media, options);
  if (captioned.source) patched = captioned.source.get();
  const mp4::Source& source = *patched;
  mp4::CarrierOptions carrierOptions;
  if (!options.dryRun) carrierOptions.scratchFolder = mp4::FolderOf(options.out);
  mp4::Carrier carrier(source, carrierOptions);
  const CarriedInput input(in.media->streams(), options.in, carrier);
  EditedStreams streams(input, options);
  CarriedTracks tracks(input, streams, options);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out, mp4::Disk::System(), options.unfinished);
  const auto bytes = static_cast<int64_t>(source.size());
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", bytes);
  tracks.change().progress = [&](double part) {
    meter.At(static_cast<int64_t>(part * static_cast<double>(bytes)));
    return true;
  };
  carrier.Prepare(tracks.change());
  PatchResult result;
  if (out) {
    carrier.Write(*out);
    const mp4::LayoutChecked checked =
        mp4::CheckLayout(carrier, mp4::FileSource(out->Readable()), options.out);
    std::string verified;
    if (options.verify) {
      RequireSamplesKept(carrier, input, streams, out->Readable(), options);
      verified = in.whole ? VerifyPatched(options.in, out->Readable(), options, options.out,
                                          {options.timecodeTrack, captionTrack})
                          : VerifiedText(checked.samples, checked.tracks);
    }
    out->Finish();
    if (!verified.empty()) result.lines.push_back(std::move(verified));
  }
  meter.Done();
  std::vector<std::string> lines = streams.Summary();
  if (!timecoded.line.empty()) lines.push_back(timecoded.line);
  for (std::string& line : captioned.lines) lines.push_back(std::move(line));
  result.lines.insert(result.lines.begin(), std::make_move_iterator(lines.begin()),
                      std::make_move_iterator(lines.end()));
  return result;
}

}  // namespace qlnmedia

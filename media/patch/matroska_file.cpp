// Finds what changes, writes the output, checks it, and only then gives it its name.

#include "patch/matroska_file.h"

#include <fmt/format.h>

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mkv/kept_elements.h"
#include "container/mp4/output_file.h"
#include "patch/carried_tracks.h"
#include "patch/matroska_input.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// Holds the output against the input: its elements always, all of its bytes and what libavformat reads of
// both where that is asked for.
MuxedVerified RequireWritten(const PatchOptions& options, const mkv::Carrier& carrier,
                             const MatroskaInput& input, const EditedStreams& streams,
                             const std::string& written) {
  std::set<uint64_t> changed;
  std::map<uint64_t, SampleUnits> units;
  for (const auto& [index, stream] : streams.streams()) {
    changed.insert(input.TrackId(index));
    units.emplace(input.TrackId(index), input.UnitsOf(index));
  }
  mkv::FrameKept kept;
  if (options.verify) {
    kept = [&](uint64_t track, const mp4::Sample& sample, ByteSpan was, ByteSpan is) {
      return units.at(track).IsKept(sample, was, is, options);
    };
  }
  mkv::RequireElementsKept(carrier.source(), mp4::FileSource(written), changed, options.out, kept);
  if (!options.verify) return {};
  MuxedVerified verified = VerifyMuxed(options.in, written, options, options.out);
  verified.text += "; all elements are the input's but for what a patch changes";
  return verified;
}

}  // namespace

PatchResult PatchMatroska(const PatchOptions& options, const MediaFile& in) {
  if (!options.dryRun) RequireOutput(in, options.out);
  const mp4::FileSource source(options.in);
  mkv::Carrier carrier(source, options.dryRun ? "/tmp" : mp4::FolderOf(options.out));
  const MatroskaInput input(in, carrier);
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
  MuxedVerified verified;
  if (out) {
    carrier.Write(*out);
    verified = RequireWritten(options, carrier, input, streams, out->Readable());
    out->Finish();
  }
  meter.Done();
  result.lines = streams.Summary();
  const mkv::Layout& layout = carrier.layout();
  if (layout.cutAt) {
    result.lines.push_back(fmt::format(
        "warning: the file ends early, within what begins at byte {}: that was carried as it stands",
        *layout.cutAt));
  } else if (const uint64_t missing = layout.segments.back().element.missing; missing != 0) {
    result.lines.push_back(
        fmt::format("warning: the file ends early: its segment counts {} bytes that are not there", missing));
  }
  for (const std::string& text : verified.otherwise) result.lines.push_back("warning: " + text);
  if (!verified.text.empty()) result.lines.push_back(verified.text);
  return result;
}

}  // namespace qlnmedia

// Finds what changes, writes the output, checks it, and only then gives it its name.

#include "patch/carried_file.h"

#include <optional>
#include <utility>

#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mp4/in_place.h"
#include "container/mp4/layout_check.h"
#include "container/mp4/output_file.h"
#include "patch/carried_tracks.h"
#include "patch/verify.h"

namespace qlnmedia {

PatchResult PatchCarried(const PatchOptions& options, const MediaFile& in) {
  mp4::RequireNoJournal(options.in);
  RequireOutput(in, options.out);
  const mp4::FileSource source(options.in);
  mp4::CarrierOptions carrierOptions;
  if (!options.dryRun) carrierOptions.scratchFolder = mp4::FolderOf(options.out);
  mp4::Carrier carrier(source, carrierOptions);
  const CarriedInput input(in, options.in, carrier);
  EditedStreams streams(input, options);
  CarriedTracks tracks(input, streams, options);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out);
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  tracks.change().progress = [&](double part) {
    meter.At(static_cast<int64_t>(part * static_cast<double>(in.sizeBytes())));
    return true;
  };
  carrier.Prepare(tracks.change());
  PatchResult result;
  if (out) {
    carrier.Write(*out);
    mp4::CheckLayout(carrier, mp4::FileSource(out->Readable()), options.out);
    std::string verified;
    if (options.verify) verified = VerifyPatched(options.in, out->Readable(), options, options.out);
    out->Finish();
    if (!verified.empty()) result.lines.push_back(std::move(verified));
  }
  meter.Done();
  std::vector<std::string> lines = streams.Summary();
  result.lines.insert(result.lines.begin(), std::make_move_iterator(lines.begin()),
                      std::make_move_iterator(lines.end()));
  return result;
}

}  // namespace qlnmedia

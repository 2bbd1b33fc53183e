// Runs a patch: containers are carried, each in its own way; raw streams are written again.

#include "patch/patch.h"

#include "base/error.h"
#include "patch/caption_stream.h"
#include "patch/carried_file.h"
#include "patch/described_file.h"
#include "patch/in_place_file.h"
#include "patch/matroska_file.h"
#include "patch/mxf_file.h"
#include "patch/raw_file.h"
#include "patch/segment_files.h"
#include "patch/transport_file.h"

namespace qlnmedia {

namespace {

void RequireCaptionPlace(const PatchOptions& options) {
  if (!options.captions) return;
  constexpr const char* kOption = "--caption-track";
  const bool track = options.captions->place == CaptionPlace::kTrack;
  const bool stream = options.captions->place == CaptionPlace::kStream;
  if (stream && (options.inPlace || options.segments || !options.initialization.empty()))
    throw Error("--caption-stream", "is for transport streams, from file to file");
  if (!track && !options.captions->language.empty())
    throw Error("--caption-language", "goes with --caption-track");
  if (track && options.inPlace) throw Error(kOption, "cannot be done in place", "write to another file");
  if (track && (options.segments || !options.initialization.empty()))
    throw Error(kOption, "is not for segments, which have no caption track");
}

void RequireTrackOptions(const PatchOptions& options) {
  RequireCaptionPlace(options);
  if (!options.timecodeTrack) return;
  constexpr const char* kOption = "--timecode-track";
  if (options.timecode.empty()) throw Error(kOption, "goes with --timecode");
  if (options.inPlace) throw Error(kOption, "cannot be done in place", "write to another file");
  if (options.segments || !options.initialization.empty())
    throw Error(kOption, "is not for segments, which have no timecode track");
}

}  // namespace

PatchResult PatchFile(const PatchOptions& options) {
  RequireTrackOptions(options);
  if (options.inPlace) return PatchInPlace(options);
  if (options.segments) return PatchSegments(options);
  if (!options.initialization.empty()) return PatchSegment(options);
  const DescribedFile in = OpenDescribed(options.in);
  in.media->RequireVideo();
  if (options.timecodeTrack && !in.media->isIso())
    throw Error(options.in, "is no MP4 or MOV, which alone have timecode tracks",
                "leave --timecode-track out");
  if (options.captions && options.captions->place == CaptionPlace::kTrack && !in.media->isIso())
    throw Error(options.in, "is no MP4 or MOV, which alone have caption tracks", "leave --caption-track out");
  const bool captionStream = options.captions && options.captions->place == CaptionPlace::kStream;
  if (captionStream && !in.media->isTransportStream())
    throw Error(options.in, "is no transport stream, which alone has streams of ancillary data",
                "leave --caption-stream out");
  if (captionStream) return PatchCaptionStream(options, *in.media);
  if (options.keepRate && !in.media->isTransportStream())
    throw Error(options.in, "is no transport stream, which alone have null packets", "leave --keep-rate out");
  if (in.media->isTransportStream()) return PatchTransport(options, *in.media);
  if (in.media->isMxf()) return PatchMxf(options, *in.media);
  if (in.media->isMatroska()) return PatchMatroska(options, *in.media);
  return in.media->isIso() ? PatchCarried(options, in) : PatchRaw(options, *in.media);
}

}  // namespace qlnmedia

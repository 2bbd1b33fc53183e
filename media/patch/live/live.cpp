// Refuses what needs a whole file, and finds out what kind of stream comes.

#include "patch/live/live.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mp4/output_file.h"
#include "patch/live/matroska.h"
#include "patch/live/raw.h"
#include "patch/live/transport.h"

namespace qlnmedia {

namespace {

void RequireLive(const PatchOptions& options) {
  const auto refuse = [](bool asked, const char* option, const char* what, const char* advice) {
    if (asked) throw Error(option, what, advice);
  };
  constexpr const char* kSave = "save the stream to a file first";
  refuse(options.verify, "--verify", "reads the output back, and what has gone out is gone", "leave it out");
  refuse(options.dryRun, "--dry-run", "would take the stream away from whoever is to get it", kSave);
  refuse(options.inPlace || options.segments || !options.initialization.empty(),
         "--in-place, --segments, --init", "are for files", kSave);
  refuse(options.timecodeTrack, "--timecode-track", "is for MP4 and MOV, which are files", "leave it out");
  refuse(options.keepRate, "--keep-rate", "is known to hold at the end of a stream alone", "leave it out");
  refuse(options.interlaced.has_value(), "--interlaced, --progressive",
         "look at all pictures before they change the first one", kSave);
  if (!options.captions) return;
  refuse(options.captions->place != CaptionPlace::kPictures, "--caption-track, --caption-stream",
         "look at all pictures before they write the first byte", kSave);
}

enum class LiveKind { kRaw, kTransport, kMatroska };

bool BeginsWith(ByteSpan bytes, std::initializer_list<uint8_t> what, size_t at = 0) {
  return bytes.size() >= at + what.size() &&
         std::equal(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

// By the first bytes, which are waited for.
LiveKind KindOf(const LiveSource& source) {
  constexpr uint64_t kLooked = 12;
  Bytes bytes(static_cast<size_t>(std::min(source.Available(0, kLooked), kLooked)));
  if (bytes.empty()) throw NotApplicable(source.name(), "is empty");
  source.Read(0, bytes);
  constexpr const char* kSave = "save it to a file first";
  for (const auto& type : {std::initializer_list<uint8_t>{'f', 't', 'y', 'p'},
                           {'s', 't', 'y', 'p'},
                           {'m', 'o', 'o', 'v'},
                           {'m', 'd', 'a', 't'}}) {
    if (BeginsWith(bytes, type, 4))
      throw Error(source.name(), "is MP4 or MOV, whose index names places of the whole file", kSave);
  }
  if (BeginsWith(bytes, {0x06, 0x0E, 0x2B, 0x34}))
    throw Error(source.name(), "is MXF, whose partitions name places of the whole file", kSave);
  if (BeginsWith(bytes, {0x1A, 0x45, 0xDF, 0xA3})) return LiveKind::kMatroska;
  if (BeginsWith(bytes, {0, 0, 1}) || BeginsWith(bytes, {0, 0, 0})) return LiveKind::kRaw;
  return LooksLikeTransport(source) ? LiveKind::kTransport : LiveKind::kRaw;
}

std::vector<std::string> PatchLiveKind(const LiveWork& work) {
  switch (KindOf(work.source)) {
    case LiveKind::kTransport:
      return PatchLiveTransport(work);
    case LiveKind::kMatroska:
      return PatchLiveMatroska(work);
    case LiveKind::kRaw:
      break;
  }
  return PatchLiveRaw(work);
}

// Where bytes go: a descriptor, or a file that gets its name at the end.
class LiveOutput {
 public:
  LiveOutput(const PatchOptions& options, int descriptor) {
    if (descriptor >= 0) {
      stream_.emplace(descriptor, options.out);
    } else {
      RequireWritable(options.in, options.out);
      file_.emplace(options.out, mp4::Disk::System(), options.unfinished);
    }
  }
  mp4::Sink& sink() { return stream_ ? static_cast<mp4::Sink&>(*stream_) : *file_; }
  void Flush() {
    if (stream_) stream_->Flush();
  }
  void Finish() {
    Flush();
    if (file_) file_->Finish();
  }

 private:
  std::optional<LiveSink> stream_;
  std::optional<mp4::OutputFile> file_;
};

}  // namespace

PatchResult PatchLive(const PatchOptions& options, const LiveEnds& ends) {
  RequireLive(options);
  std::optional<LiveCaptions> captions;
  if (options.captions) captions.emplace(*options.captions);
  LiveOutput output(options, ends.output);
  LiveSource source(ends.input, options.in, [&output] { output.Flush(); });
  Progress meter(options.progress, "patching", 0);
  const LiveWork work{options,       source,
                      output.sink(), captions ? &*captions : nullptr,
                      ends.report,   [&meter](uint64_t at) { meter.At(static_cast<int64_t>(at)); }};
  PatchResult result;
  try {
    result.lines = PatchLiveKind(work);
    output.Finish();
  } catch (const ReaderGone&) {
    result.lines.clear();
  }
  meter.Done();
  return result;
}

}  // namespace qlnmedia

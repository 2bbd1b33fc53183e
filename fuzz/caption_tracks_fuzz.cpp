// Caption tracks of MOV and MP4 in memory: whatever their boxes and samples say, what is read has times that
// rise, and what is damaged is named.

#include "base/error.h"
#include "container/caption_tracks.h"
#include "container/mp4/memory_sink.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qlnmedia::mp4::Bytes bytes(data, data + size);
  const qlnmedia::mp4::MemorySource source(bytes);
  for (const qlnmedia::CaptionTrackPlace& place : qlnmedia::FindCaptionTracks(source)) {
    Expect(place.format == "c608" || place.format == "c708");
    std::vector<std::string> damage;
    try {
      const auto track = qlnmedia::ReadCaptionTrackOf(source, place, {}, &damage);
      Expect(!track.events.empty());
      int64_t last = INT64_MIN;
      for (const auto& event : track.events) {
        Expect(event.at > last);
        last = event.at;
      }
    } catch (const qlnmedia::Error&) {
      // refused
    }
    for (const std::string& line : damage) Expect(!line.empty());
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Boxes(), 0)

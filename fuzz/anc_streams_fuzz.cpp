// Whole files with ancillary data, as transport streams with a stream of SMPTE ST 2038 and MXF with a track
// of SMPTE ST 436: whatever their tables and packets say, captions have times that rise, and damage is named.

#include <string>

#include "base/error.h"
#include "base/library_messages.h"
#include "container/anc_captions.h"
#include "fuzz_input.h"
#include "nameless_file.h"

namespace {

using namespace qlnmedia;
using qln::fuzz::NamelessFile;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakeStream(const std::string& path, unsigned stream) {
  AncContents contents = ReadAncContents(path, stream);
  for (const std::string& line : contents.damage) Expect(!line.empty());
  for (const auto& [name, kind] : contents.kinds) Expect(kind.count != 0 && !kind.lines.empty());
  std::vector<std::string> damage;
  const captions::CaptionTrack track = TrackOfAnc(std::move(contents), path, stream, {}, &damage);
  int64_t last = INT64_MIN;
  Expect(!track.events.empty());
  for (const captions::CaptionEvent& event : track.events) {
    Expect(event.at > last);
    last = event.at;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (size_t{1} << 18)) return 0;
  const NamelessFile file(data, size);
  try {
    for (const unsigned stream : FindAncStreams(MediaFile(file.path()))) {
      try {
        TakeStream(file.path(), stream);
      } catch (const Error&) {
        // one without captions, or with times that are none
      }
    }
  } catch (const Error&) {
    // refused
  }
  return 0;
}

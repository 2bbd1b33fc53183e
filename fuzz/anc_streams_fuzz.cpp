// Whole files with ancillary data, as transport streams with a stream of SMPTE ST 2038 and MXF with a track
// of SMPTE ST 436: whatever their tables and packets say, captions have times that rise, and damage is named.

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "base/error.h"
#include "base/library_messages.h"
#include "container/anc_captions.h"
#include "fuzz_input.h"

namespace {

using namespace qlnmedia;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// A file of these bytes that is in no folder.
class NamelessFile {
 public:
  NamelessFile(const uint8_t* data, size_t size) : number_(memfd_create("input", MFD_CLOEXEC)) {
    Expect(number_ >= 0 && write(number_, data, size) == static_cast<ssize_t>(size));
  }
  ~NamelessFile() { close(number_); }
  NamelessFile(const NamelessFile&) = delete;
  NamelessFile& operator=(const NamelessFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(number_); }

 private:
  int number_;
};

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

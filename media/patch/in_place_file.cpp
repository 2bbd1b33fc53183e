// Makes the change when the file is this run's alone, and tells where it went.

#include "patch/in_place_file.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/error.h"
#include "base/progress.h"
#include "container/mp4/in_place.h"
#include "patch/carried_input.h"
#include "patch/carried_tracks.h"
#include "patch/described_file.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// What a change is made from; kept until it is written.
struct Work {
  DescribedFile file;
  std::unique_ptr<CarriedInput> input;
  std::unique_ptr<EditedStreams> streams;
  std::unique_ptr<CarriedTracks> tracks;
  std::unique_ptr<Progress> meter;
  std::vector<StreamKept> kept;  // for the comparison
};

const char* PlaceText(mp4::InPlaceResult::Movie movie) {
  switch (movie) {
    case mp4::InPlaceResult::Movie::kGrowsIntoFreeSpace:
      return ", the index (moov) and the free space behind it share their room anew";
    case mp4::InPlaceResult::Movie::kGrowsAtTheEnd:
      return ", the index (moov) at the end has another size";
    case mp4::InPlaceResult::Movie::kMovesToTheEnd:
      return ", the index (moov) stands at the end now, and free space where it was";
    case mp4::InPlaceResult::Movie::kStays:
      break;
  }
  return "";
}

}  // namespace

PatchResult PatchInPlace(const PatchOptions& options) {
  {
    // What is wrong with the file as a file is said first.
    struct stat status {};
    const bool known = stat(options.in.c_str(), &status) == 0;
    if (!known && errno == EIO) throw Error(options.in, std::strerror(errno), "check the path");
    if (!known || !S_ISREG(status.st_mode) || status.st_size == 0) {
      const MediaFile in(options.in);
      throw Error(options.in, "is no ordinary file", "name a file that can be changed");
    }
  }
  Work work;
  mp4::InPlaceWork steps;
  steps.write = !options.dryRun;
  steps.make = [&](const mp4::Carrier& carrier) -> const mp4::Change& {
    work.file = DescribeFor(options, carrier);
    work.file.media.reset();  // whose index of samples takes more memory than all that follows
    work.input = std::make_unique<CarriedInput>(work.file.streams, options.in, carrier);
    work.streams = std::make_unique<EditedStreams>(*work.input, options);
    work.tracks = std::make_unique<CarriedTracks>(*work.input, *work.streams, options);
    // The movie alone has no packets; its tables are looked at before anything is written.
    if (options.verify && !options.dryRun && work.file.whole) work.kept = KeptOf(options.in, options);
    const auto bytes = static_cast<int64_t>(carrier.source().size());
    work.meter = std::make_unique<Progress>(options.progress, "reading", bytes);
    work.tracks->change().progress = [&work, bytes](double part) {
      work.meter->At(static_cast<int64_t>(part * static_cast<double>(bytes)));
      return true;
    };
    return work.tracks->change();
  };
  std::string verified;
  if (options.verify && !options.dryRun)
    steps.check = [&] {
      if (work.file.whole) verified = RequireKept(work.kept, KeptOf(options.in, options), options.in);
    };
  const mp4::InPlaceResult result = mp4::ChangeInPlace(options.in, steps);
  work.meter->Done();
  PatchResult out{work.streams->Summary()};
  if (result.bytesWritten == 0) {
    out.lines.emplace_back("in place: nothing to write");
  } else {
    out.lines.push_back(
        fmt::format("in place: {} bytes written{}", result.bytesWritten, PlaceText(result.movie)));
  }
  if (!verified.empty() && result.bytesWritten != 0) out.lines.push_back(verified);
  return out;
}

Recovery RecoverFile(const std::string& path) {
  switch (mp4::Recover(path)) {
    case mp4::Recovered::kNothing:
      break;
    case mp4::Recovered::kUntouched:
      return Recovery::kUntouched;
    case mp4::Recovered::kPutBack:
      return Recovery::kPutBack;
  }
  return Recovery::kNothing;
}

}  // namespace qlnmedia

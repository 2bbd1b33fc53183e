// Puts a timecode track beside the others, or writes over the one that is there.

#include "container/mp4/timecode_track.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "container/mp4/sample_table.h"
#include "container/mp4/timecode_boxes.h"
#include "container/mp4/track_addition.h"

namespace qlnmedia::mp4 {

namespace {

class TimecodePutter {
 public:
  TimecodePutter(const Source& file, uint32_t videoTrack, const TimecodeFacts& facts)
      : file_(file), facts_(facts), addition_(file, videoTrack, "timecode track") {}

  FileWithTimecode Put() {
    FileWithTimecode out;
    const Track* const there = TimecodeTrack();
    out.news = there != nullptr ? Correct(*there) : Add();
    out.source = addition_.Joined();
    return out;
  }

 private:
  // The track that the video track's `tref` names; null where there is none.
  const Track* TimecodeTrack() {
    Reader& reader = addition_.reader();
    const auto references = FindBox(reader, addition_.video().box, FourCc("tref"));
    const auto timecode = references ? FindBox(reader, *references, FourCc("tmcd")) : std::optional<Box>();
    if (!timecode || timecode->bodySize() < 4) return nullptr;
    return addition_.movie().Find(reader.U32(timecode->body));
  }

  TimecodeTrackNews Correct(const Track& track) {
    track.Require();
    constexpr uint64_t kEntryBytes = 26;
    if (track.descriptions.size() != 1) addition_.Refuse("has a timecode track of several kinds");
    const Box& entry = track.descriptions.front().entry;
    if (entry.type != FourCc("tmcd") || entry.bodySize() < kEntryBytes)
      addition_.Refuse("has a timecode track of another kind");
    TableSamples samples(file_, track);
    Sample sample;
    if (track.sizes.samples != 1 || !samples.Next(sample) || sample.size != 4 || !sample.inFile ||
        sample.offset > file_.size() - 4)
      addition_.Refuse("has a timecode track of several timecodes");
    const Bytes old = addition_.reader().Run(entry.body, kEntryBytes);
    Bytes fresh = old;
    const auto put = [&fresh](size_t at, uint64_t value, size_t bytes) {
      const Bytes number = NumberBytes(value, bytes);
      std::copy(number.begin(), number.end(), fresh.begin() + static_cast<std::ptrdiff_t>(at));
    };
    const uint64_t flags = LoadNumber(old.data() + 12, 4);
    put(12, (flags & ~uint64_t{1}) | (facts_.dropFrame ? 1 : 0), 4);
    const uint64_t scale = LoadNumber(old.data() + 16, 4);
    const uint64_t duration = LoadNumber(old.data() + 20, 4);
    if (scale * facts_.frameDuration != duration * facts_.timescale) {
      put(16, facts_.timescale, 4);
      put(20, facts_.frameDuration, 4);
    }
    put(24, facts_.numbers, 1);
    const Bytes number = NumberBytes(facts_.firstFrame, 4);
    const bool same = fresh == old && addition_.reader().Run(sample.offset, 4) == number;
    addition_.Overwrite(entry.body, std::move(fresh));
    addition_.Overwrite(sample.offset, number);
    return same ? TimecodeTrackNews::kSame : TimecodeTrackNews::kCorrected;
  }

  TimecodeTrackNews Add() {
    const uint32_t id = addition_.FreshId();
    const auto make = [&](uint64_t place, bool wide) {
      if (wide) addition_.Refuse("is too long for a timecode track behind its end");
      return TimecodeTrackBox(addition_.reader(), addition_.movie(), addition_.video(), facts_, id, place,
                              addition_.layout().quickTime);
    };
    addition_.Add("tmcd", id, make, NumberBytes(facts_.firstFrame, 4));
    return TimecodeTrackNews::kAdded;
  }

  const Source& file_;
  TimecodeFacts facts_;
  TrackAddition addition_;
};

}  // namespace

FileWithTimecode PutTimecodeTrack(const Source& file, uint32_t videoTrack, const TimecodeFacts& facts) {
  return TimecodePutter(file, videoTrack, facts).Put();
}

}  // namespace qlnmedia::mp4

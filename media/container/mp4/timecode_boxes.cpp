// Writes the description and the sample table of a timecode track (QuickTime File Format Specification).

#include "container/mp4/timecode_boxes.h"

#include <algorithm>
#include <optional>

#include "container/mp4/companion_boxes.h"
#include "container/mp4/sample_table.h"

namespace qlnmedia::mp4 {

namespace {

// The earliest of the first samples: pictures are held back by no more than these.
int64_t FirstCompositionTime(const Source& file, const Track& video) {
  constexpr int kLooked = 64;
  TableSamples samples(file, video);
  std::optional<int64_t> first;
  Sample sample;
  for (int i = 0; i < kLooked && samples.Next(sample); ++i)
    first = std::min(first.value_or(sample.compositionTime), sample.compositionTime);
  return first.value_or(0);
}

// The look of timecode that is shown as text.
Bytes LookBox() {
  BoxBody look;
  look.Zeros(8).U(12, 2).Zeros(2);                                // font, face, size
  look.Zeros(6).U(0xFFFF, 2).U(0xFFFF, 2).U(0xFFFF, 2).Zeros(1);  // black on white; no font by name
  return BoxBytes("tmcd", look.Box("tcmi"));
}

Bytes Joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes SampleTable(const TimecodeFacts& facts, uint64_t duration, uint64_t place) {
  constexpr uint32_t kDrop = 1;
  BoxBody entry;
  entry.Zeros(6).U(1, 2).Zeros(4).U(facts.dropFrame ? kDrop : 0, 4);
  entry.U(facts.timescale, 4).U(facts.frameDuration, 4).U(facts.numbers, 1).Zeros(1);
  return BoxBody()
      .Add(BoxBody().Zeros(4).U(1, 4).Add(entry.Box("tmcd")).Box("stsd"))
      .Add(BoxBody().Zeros(4).U(1, 4).U(1, 4).U(duration, 4).Box("stts"))
      .Add(BoxBody().Zeros(4).U(1, 4).U(1, 4).U(1, 4).U(1, 4).Box("stsc"))
      .Add(BoxBody().Zeros(4).U(4, 4).U(1, 4).Box("stsz"))
      .Add(BoxBody().Zeros(4).U(1, 4).U(place, 4).Box("stco"))
      .Box("stbl");
}

}  // namespace

Bytes TimecodeTrackBox(Reader& reader, const Movie& movie, const Track& video, const TimecodeFacts& facts,
                       uint32_t id, uint64_t place, bool quickTime) {
  CompanionWriter writer(reader, movie, video, facts.timescale, quickTime);
  const auto duration = static_cast<uint64_t>(writer.Scaled(static_cast<int64_t>(writer.videoDuration())));
  if (duration > UINT32_MAX)
    throw reader.source().Fault(video.box.at, "the track is too long for one timecode");
  CompanionTrack track;
  track.id = id;
  track.handler = "tmcd";
  track.handlerName = "TimeCodeHandler";
  track.duration = duration;
  track.generic = Joined(GenericMediaBox(), LookBox());
  track.sampleTable = SampleTable(facts, duration, place);
  return writer.Write(track, FirstCompositionTime(reader.source(), video), false);
}

}  // namespace qlnmedia::mp4

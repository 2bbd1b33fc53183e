// Writes a timecode track box by box (QuickTime File Format Specification, ISO/IEC 14496-12).

#include "container/mp4/timecode_boxes.h"

#include <algorithm>
#include <optional>
#include <string>

#include "container/mp4/sample_table.h"

namespace qlnmedia::mp4 {

namespace {

constexpr int64_t kEmptyEdit = -1;  // media_time of time without media

// Puts bytes together.
class Body {
 public:
  Body& U(uint64_t value, size_t bytes) {
    PutNumber(bytes_, value, bytes);
    return *this;
  }
  Body& Zeros(size_t count) { return Add(Bytes(count)); }
  Body& Add(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  Body& Text(const std::string& text) { return Add(Bytes(text.begin(), text.end())); }
  Bytes Box(const char* type) const { return BoxBytes(type, bytes_); }

 private:
  Bytes bytes_;
};

// What the headers of the video track say that the timecode track says as well.
struct Headers {
  uint64_t created = 0, modified = 0;  // of the video track
  uint64_t duration = 0;               // of it, in units of the movie
  uint64_t mediaDuration = 0;          // of its media, in its own units
  uint16_t language = 0;
};

class TrackWriter {
 public:
  TrackWriter(Reader& reader, const Track& video, const TimecodeFacts& facts, bool quickTime)
      : reader_(reader), video_(video), facts_(facts), quickTime_(quickTime) {
    ReadHeaders();
  }

  Bytes Write(uint32_t id, uint64_t place) {
    return Body().Add(TrackHeader(id)).Add(Edits()).Add(Media(place)).Box("trak");
  }

 private:
  Box Header(const Box& parent, uint32_t type, uint64_t narrow, uint64_t wide) {
    const auto box = FindBox(reader_, parent, type);
    if (!box) throw reader_.source().Fault(parent.at, BoxName(parent) + " has no '" + TypeName(type) + "'");
    RequireBody(reader_, *box, 1);
    RequireBody(reader_, *box, reader_.U8(box->body) == 1 ? wide : narrow);
    return *box;
  }

  void ReadHeaders() {
    const Box track = Header(video_.box, FourCc("tkhd"), 84, 96);
    const bool wideTrack = reader_.U8(track.body) == 1;
    const size_t width = wideTrack ? 8 : 4;
    headers_.created = reader_.Number(track.body + 4, width);
    headers_.modified = reader_.Number(track.body + 4 + width, width);
    headers_.duration = reader_.Number(track.body + 12 + 2 * width, width);
    const Box media = Header(video_.media, FourCc("mdhd"), 24, 36);
    const bool wideMedia = reader_.U8(media.body) == 1;
    headers_.mediaDuration = wideMedia ? reader_.U64(media.body + 24) : reader_.U32(media.body + 16);
    headers_.language = reader_.U16(media.body + (wideMedia ? 32 : 20));
    if (video_.timescale == 0) throw reader_.source().Fault(media.at, "the track has no timescale");
  }

  // Rounded, from the video's units into the timecode's.
  int64_t Scaled(int64_t time) const {
    const auto scale = static_cast<int64_t>(video_.timescale);
    const auto whole = static_cast<int64_t>(time / scale) * facts_.timescale;
    return whole + (time % scale * static_cast<int64_t>(facts_.timescale) + scale / 2) / scale;
  }

  Bytes TrackHeader(uint32_t id) const {
    constexpr uint64_t kEnabledInMovie = 3;
    Body body;
    body.U(1, 1).U(kEnabledInMovie, 3).U(headers_.created, 8).U(headers_.modified, 8).U(id, 4).Zeros(4);
    body.U(headers_.duration, 8).Zeros(16);  // layer, alternate group, volume
    for (const uint32_t value : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) body.U(value, 4);
    return body.Zeros(8).Box("tkhd");  // it has no picture
  }

  // The video's own edits. Timecode begins with the picture that is first in presentation order, so that what
  // an edit leaves out of the pictures is left out here.
  Bytes Edits() {
    const auto edits = FindBox(reader_, video_.box, FourCc("edts"));
    const auto list = edits ? FindBox(reader_, *edits, FourCc("elst")) : std::optional<Box>();
    if (!list) return {};
    RequireBody(reader_, *list, 8);
    const size_t width = reader_.U8(list->body) == 1 ? 8 : 4;
    const uint32_t count = reader_.U32(list->body + 4);
    RequireBody(reader_, *list, 8 + uint64_t{count} * (2 * width + 4));
    const int64_t first = count == 0 ? 0 : FirstCompositionTime();
    Body body;
    body.U(1, 1).Zeros(3).U(count, 4);
    for (uint32_t i = 0; i < count; ++i) {
      const uint64_t at = list->body + 8 + i * (2 * width + 4);
      const uint64_t said = reader_.Number(at + width, width);
      const int64_t time = width == 8 ? static_cast<int64_t>(said) : static_cast<int32_t>(said);
      const int64_t scaled = time < 0 ? kEmptyEdit : Scaled(std::max<int64_t>(time - first, 0));
      body.U(reader_.Number(at, width), 8).U(static_cast<uint64_t>(scaled), 8);
      body.U(reader_.U32(at + 2 * width), 4);
    }
    return BoxBytes("edts", body.Box("elst"));
  }

  // The earliest of the first samples: pictures are held back by no more than these.
  int64_t FirstCompositionTime() const {
    constexpr int kLooked = 64;
    TableSamples samples(reader_.source(), video_);
    std::optional<int64_t> first;
    Sample sample;
    for (int i = 0; i < kLooked && samples.Next(sample); ++i)
      first = std::min(first.value_or(sample.compositionTime), sample.compositionTime);
    return first.value_or(0);
  }

  Bytes Media(uint64_t place) const {
    const auto duration = static_cast<uint64_t>(Scaled(static_cast<int64_t>(headers_.mediaDuration)));
    Body header;
    header.U(1, 1).Zeros(3).U(headers_.created, 8).U(headers_.modified, 8).U(facts_.timescale, 4);
    header.U(duration, 8).U(headers_.language, 2).Zeros(2);
    Body information;
    if (quickTime_) {
      information.Add(GenericHeader()).Add(Handler("dhlr", "url ", "DataHandler"));
    } else {
      information.Add(Body().Zeros(4).Box("nmhd"));
    }
    information.Add(DataReferences()).Add(SampleTable(duration, place));
    return Body()
        .Add(header.Box("mdhd"))
        .Add(Handler("mhlr", "tmcd", "TimeCodeHandler"))
        .Add(information.Box("minf"))
        .Box("mdia");
  }

  // QuickTime counts a name's characters, ISO ends it with a zero.
  Bytes Handler(const char* component, const char* type, const std::string& name) const {
    Body body;
    body.Zeros(4).Text(quickTime_ ? component : std::string(4, '\0')).Text(type).Zeros(12);
    if (quickTime_) return body.U(name.size(), 1).Text(name).Box("hdlr");
    return body.Text(name).Zeros(1).Box("hdlr");
  }

  // `gmhd` with the look of timecode that is shown as text.
  static Bytes GenericHeader() {
    constexpr uint16_t kCopyMode = 0x40;
    constexpr uint16_t kGrey = 0x8000;
    Body media;
    media.Zeros(4).U(kCopyMode, 2).U(kGrey, 2).U(kGrey, 2).U(kGrey, 2).Zeros(4);
    Body look;
    look.Zeros(8).U(12, 2).Zeros(2);                                // font, face, size
    look.Zeros(6).U(0xFFFF, 2).U(0xFFFF, 2).U(0xFFFF, 2).Zeros(1);  // black on white; no font by name
    return Body().Add(media.Box("gmin")).Add(BoxBytes("tmcd", look.Box("tcmi"))).Box("gmhd");
  }

  static Bytes DataReferences() {
    constexpr uint32_t kSameFile = 1;
    return BoxBytes("dinf", Body().Zeros(4).U(1, 4).Add(Body().U(kSameFile, 4).Box("url ")).Box("dref"));
  }

  Bytes SampleTable(uint64_t duration, uint64_t place) const {
    constexpr uint32_t kDrop = 1;
    Body entry;
    entry.Zeros(6).U(1, 2).Zeros(4).U(facts_.dropFrame ? kDrop : 0, 4);
    entry.U(facts_.timescale, 4).U(facts_.frameDuration, 4).U(facts_.numbers, 1).Zeros(1);
    if (duration > UINT32_MAX)
      throw reader_.source().Fault(video_.box.at, "the track is too long for one timecode");
    return Body()
        .Add(Body().Zeros(4).U(1, 4).Add(entry.Box("tmcd")).Box("stsd"))
        .Add(Body().Zeros(4).U(1, 4).U(1, 4).U(duration, 4).Box("stts"))
        .Add(Body().Zeros(4).U(1, 4).U(1, 4).U(1, 4).U(1, 4).Box("stsc"))
        .Add(Body().Zeros(4).U(4, 4).U(1, 4).Box("stsz"))
        .Add(Body().Zeros(4).U(1, 4).U(place, 4).Box("stco"))
        .Box("stbl");
  }

  Reader& reader_;
  const Track& video_;
  const TimecodeFacts& facts_;
  bool quickTime_;
  Headers headers_;
};

}  // namespace

Bytes BoxBytes(const char* type, const Bytes& body) {
  Bytes box = NumberBytes(body.size() + 8, 4);
  box.insert(box.end(), type, type + 4);
  box.insert(box.end(), body.begin(), body.end());
  return box;
}

Bytes TimecodeTrackBox(Reader& reader, const Track& video, const TimecodeFacts& facts, uint32_t id,
                       uint64_t place, bool quickTime) {
  return TrackWriter(reader, video, facts, quickTime).Write(id, place);
}

}  // namespace qlnmedia::mp4

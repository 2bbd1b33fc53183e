// Writes a track box by box (QuickTime File Format Specification, ISO/IEC 14496-12).

#include "container/mp4/companion_boxes.h"

#include <algorithm>

namespace qlnmedia::mp4 {

namespace {

constexpr int64_t kEmptyEdit = -1;  // media_time of time without media

Box Header(Reader& reader, const Box& parent, uint32_t type, uint64_t narrow, uint64_t wide) {
  const auto box = FindBox(reader, parent, type);
  if (!box) throw reader.source().Fault(parent.at, BoxName(parent) + " has no '" + TypeName(type) + "'");
  RequireBody(reader, *box, 1);
  RequireBody(reader, *box, reader.U8(box->body) == 1 ? wide : narrow);
  return *box;
}

Bytes DataReferences() {
  constexpr uint32_t kSameFile = 1;
  return BoxBytes("dinf", BoxBody().Zeros(4).U(1, 4).Add(BoxBody().U(kSameFile, 4).Box("url ")).Box("dref"));
}

}  // namespace

Bytes BoxBytes(const char* type, const Bytes& body) {
  Bytes box = NumberBytes(body.size() + 8, 4);
  box.insert(box.end(), type, type + 4);
  box.insert(box.end(), body.begin(), body.end());
  return box;
}

Bytes GenericMediaBox() {
  constexpr uint16_t kCopyMode = 0x40;
  constexpr uint16_t kGrey = 0x8000;
  return BoxBody().Zeros(4).U(kCopyMode, 2).U(kGrey, 2).U(kGrey, 2).U(kGrey, 2).Zeros(4).Box("gmin");
}

CompanionWriter::CompanionWriter(Reader& reader, const Movie& movie, const Track& video, uint32_t timescale,
                                 bool quickTime)
    : reader_(reader), movie_(movie), video_(video), timescale_(timescale), quickTime_(quickTime) {
  const Box track = Header(reader_, video_.box, FourCc("tkhd"), 84, 96);
  const bool wideTrack = reader_.U8(track.body) == 1;
  const size_t width = wideTrack ? 8 : 4;
  created_ = reader_.Number(track.body + 4, width);
  modified_ = reader_.Number(track.body + 4 + width, width);
  duration_ = reader_.Number(track.body + 12 + 2 * width, width);
  const Box media = Header(reader_, video_.media, FourCc("mdhd"), 24, 36);
  const bool wideMedia = reader_.U8(media.body) == 1;
  mediaDuration_ = wideMedia ? reader_.U64(media.body + 24) : reader_.U32(media.body + 16);
  language_ = reader_.U16(media.body + (wideMedia ? 32 : 20));
  if (video_.timescale == 0) throw reader_.source().Fault(media.at, "the track has no timescale");
}

int64_t CompanionWriter::Scaled(int64_t time) const {
  const auto scale = static_cast<int64_t>(video_.timescale);
  const auto whole = static_cast<int64_t>(time / scale) * timescale_;
  return whole + (time % scale * static_cast<int64_t>(timescale_) + scale / 2) / scale;
}

Bytes CompanionWriter::Write(const CompanionTrack& track, int64_t first, bool leads) {
  uint64_t duration = duration_;
  const Bytes edits =
      leads && first > 0 && !HasEdits() ? Lead(first, track.duration, &duration) : Edits(first);
  return BoxBody().Add(TrackHeader(track, duration)).Add(edits).Add(Media(track)).Box("trak");
}

Bytes CompanionWriter::TrackHeader(const CompanionTrack& track, uint64_t duration) const {
  BoxBody body;
  body.U(1, 1).U(track.flags, 3).U(created_, 8).U(modified_, 8).U(track.id, 4).Zeros(4);
  body.U(duration, 8).Zeros(8);
  body.Zeros(2).U(track.alternateGroup, 2).Zeros(4);  // layer; volume
  for (const uint32_t value : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) body.U(value, 4);
  return body.Zeros(8).Box("tkhd");  // it has no picture
}

bool CompanionWriter::HasEdits() {
  const auto edits = FindBox(reader_, video_.box, FourCc("edts"));
  return edits && FindBox(reader_, *edits, FourCc("elst"));
}

Bytes CompanionWriter::Edits(int64_t first) {
  const auto edits = FindBox(reader_, video_.box, FourCc("edts"));
  const auto list = edits ? FindBox(reader_, *edits, FourCc("elst")) : std::optional<Box>();
  if (!list) return {};
  RequireBody(reader_, *list, 8);
  const size_t width = reader_.U8(list->body) == 1 ? 8 : 4;
  const uint32_t count = reader_.U32(list->body + 4);
  RequireBody(reader_, *list, 8 + uint64_t{count} * (2 * width + 4));
  BoxBody body;
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

// Edits count in units of the movie.
Bytes CompanionWriter::Lead(int64_t first, uint64_t media, uint64_t* duration) {
  constexpr uint32_t kNormalRate = 0x10000;
  const Box head = Header(reader_, movie_.box, FourCc("mvhd"), 100, 112);
  const uint64_t scale = reader_.U32(head.body + (reader_.U8(head.body) == 1 ? 20 : 12));
  const uint64_t units = (static_cast<uint64_t>(first) * scale + video_.timescale / 2) / video_.timescale;
  if (units == 0) return {};
  const uint64_t shown = (media * scale + timescale_ - 1) / timescale_;
  *duration = units + shown;
  BoxBody body;
  body.U(1, 1).Zeros(3).U(2, 4);
  body.U(units, 8).U(static_cast<uint64_t>(kEmptyEdit), 8).U(kNormalRate, 4);
  body.U(shown, 8).U(0, 8).U(kNormalRate, 4);
  return BoxBytes("edts", body.Box("elst"));
}

Bytes CompanionWriter::Media(const CompanionTrack& track) const {
  BoxBody header;
  header.U(1, 1).Zeros(3).U(created_, 8).U(modified_, 8).U(timescale_, 4);
  header.U(track.duration, 8).U(track.language.value_or(language_), 2).Zeros(2);
  BoxBody information;
  if (quickTime_) {
    information.Add(BoxBytes("gmhd", track.generic)).Add(Handler("dhlr", "url ", "DataHandler"));
  } else {
    information.Add(BoxBody().Zeros(4).Box("nmhd"));
  }
  information.Add(DataReferences()).Add(track.sampleTable);
  return BoxBody()
      .Add(header.Box("mdhd"))
      .Add(Handler("mhlr", track.handler, track.handlerName))
      .Add(information.Box("minf"))
      .Box("mdia");
}

// QuickTime counts a name's characters, ISO ends it with a zero.
Bytes CompanionWriter::Handler(const char* component, const char* type, const std::string& name) const {
  BoxBody body;
  body.Zeros(4).Text(quickTime_ ? component : std::string(4, '\0')).Text(type).Zeros(12);
  if (quickTime_) return body.U(name.size(), 1).Text(name).Box("hdlr");
  return body.Text(name).Zeros(1).Box("hdlr");
}

}  // namespace qlnmedia::mp4

// Walks to a track's boxes and reads the few that the report shows.

#include "inspect/track_boxes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "base/error.h"
#include "base/read_error.h"
#include "container/mp4/box_tree.h"
#include "container/mp4/movie.h"

namespace qlnmedia {

namespace {

using mp4::Box;
using mp4::BoxLevel;
using mp4::FindBox;
using mp4::FourCc;
using mp4::Reader;

// More entries than an edit list in use has, and more units than any record.
constexpr uint64_t kMostEntries = 10000;

std::string TypeText(uint32_t type) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(type >> shift & 0xFF);
  return text;
}

// A number that stands behind two times, whose width the version tells: a track's id, a timescale.
uint32_t BehindTimes(Reader& reader, const Box& box) {
  return reader.U32(box.body + (reader.U8(box.body) == 1 ? 20 : 12));
}

std::optional<Box> FindTrack(Reader& reader, const Box& movie, uint32_t id) {
  BoxLevel level = BoxLevel::Inside(reader, movie);
  for (Box box; level.Next(box);) {
    if (box.type != FourCc("trak")) continue;
    const std::optional<Box> head = FindBox(reader, box, FourCc("tkhd"));
    if (head && BehindTimes(reader, *head) == id) return box;
  }
  return {};
}

double Seconds(uint64_t time, uint32_t timescale) {
  return timescale == 0 ? 0 : static_cast<double>(time) / timescale;
}

void TakeEdits(Reader& reader, const Box& list, uint32_t movieScale, uint32_t mediaScale, TrackBoxes& to) {
  const size_t bytes = reader.U8(list.body) == 1 ? 8 : 4;
  const uint64_t none = bytes == 8 ? UINT64_MAX : UINT32_MAX;
  const uint64_t count = std::min<uint64_t>(reader.U32(list.body + 4), kMostEntries);
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t at = list.body + 8 + i * (2 * bytes + 4);
    if (at + 2 * bytes + 4 > list.end) return;
    TrackBoxes::Edit edit;
    edit.seconds = Seconds(reader.Number(at, bytes), movieScale);
    const uint64_t mediaTime = reader.Number(at + bytes, bytes);
    if (mediaTime != none) edit.mediaTime = Seconds(mediaTime, mediaScale);
    edit.rate = static_cast<int32_t>(reader.U32(at + 2 * bytes)) / 65536.0;
    to.edits.push_back(edit);
  }
}

// The arrays of LHEVCDecoderConfigurationRecord, which are those of an hvcC behind a head of 5 bytes.
void TakeLayeredUnits(Reader& reader, const Box& box, TrackBoxes& to) {
  uint64_t at = box.body + 5;
  for (uint32_t arrays = reader.U8(at++); arrays > 0; --arrays) {
    uint32_t units = reader.U16(at + 1);
    at += 3;
    for (; units > 0 && to.layeredUnits.size() < kMostEntries; --units) {
      const uint64_t size = reader.U16(at);
      if (at + 2 + size > box.end) return;
      to.layeredUnits.push_back(reader.Run(at + 2, size));
      at += 2 + size;
    }
  }
}

void TakeDescription(Reader& reader, const Box& list, TrackBoxes& to) {
  BoxLevel entries = BoxLevel::Inside(reader, list, 8);
  Box entry;
  if (!entries.Next(entry)) return;
  BoxLevel level = BoxLevel::Inside(reader, entry, mp4::kVisualSampleEntryBytes);
  for (Box box; level.Next(box);) {
    to.description.push_back(TypeText(box.type));
    if (box.type == FourCc("lhvC")) TakeLayeredUnits(reader, box, to);
  }
}

void TakeTrack(Reader& reader, const Box& movie, const Box& track, TrackBoxes& to) {
  const std::optional<Box> media = FindBox(reader, track, FourCc("mdia"));
  const std::optional<Box> movieHead = FindBox(reader, movie, FourCc("mvhd"));
  if (!media || !movieHead) return;
  const std::optional<Box> mediaHead = FindBox(reader, *media, FourCc("mdhd"));
  const std::optional<Box> handler = FindBox(reader, *media, FourCc("hdlr"));
  const std::optional<Box> edits = FindBox(reader, track, FourCc("edts"));
  const std::optional<Box> list = edits ? FindBox(reader, *edits, FourCc("elst")) : std::nullopt;
  if (mediaHead && list)
    TakeEdits(reader, *list, BehindTimes(reader, *movieHead), BehindTimes(reader, *mediaHead), to);
  if (!handler || reader.U32(handler->body + 8) != FourCc("vide")) return;
  std::optional<Box> inner = FindBox(reader, *media, FourCc("minf"));
  if (inner) inner = FindBox(reader, *inner, FourCc("stbl"));
  if (inner) inner = FindBox(reader, *inner, FourCc("stsd"));
  if (inner) TakeDescription(reader, *inner, to);
}

}  // namespace

TrackBoxes ReadTrackBoxes(const mp4::Source& source, uint32_t trackId) {
  TrackBoxes found;
  Reader reader(source);
  try {
    BoxLevel level = BoxLevel::Top(reader);
    for (Box box; level.Next(box);) {
      if (box.type != FourCc("moov")) continue;
      if (const std::optional<Box> track = FindTrack(reader, box, trackId))
        TakeTrack(reader, box, *track, found);
      break;
    }
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {
    // The boxes end early; the demuxer says of such a file what there is to say.
  }
  return found;
}

TrackBoxes ReadTrackBoxes(const MediaFile& file, const MediaStream& stream) {
  if (file.formatName().substr(0, 4) != "mov,") return {};
  try {
    return ReadTrackBoxes(*file.input().Boxes(), static_cast<uint32_t>(stream.id));
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {
    return {};  // gone meanwhile
  }
}

void AddTrackBoxes(Section& section, const TrackBoxes& boxes) {
  if (!boxes.edits.empty()) {
    std::vector<std::vector<Cell>> rows;
    for (const TrackBoxes::Edit& edit : boxes.edits)
      rows.push_back({Cell(edit.seconds, fmt::format("{:.6g}", edit.seconds)),
                      edit.mediaTime ? Cell(*edit.mediaTime, fmt::format("{:.6g}", *edit.mediaTime))
                                     : Cell(nullptr, "nothing"),
                      Cell(edit.rate, fmt::format("{:g}", edit.rate))});
    section.AddTable("edits", "Edits",
                     {{"duration", "Seconds", true}, {"media_time", "From", true}, {"rate", "Rate", true}},
                     std::move(rows));
  }
  if (!boxes.description.empty())
    section.Add("description_boxes", "Description", boxes.description,
                fmt::format("{}", fmt::join(boxes.description, ", ")));
}

}  // namespace qlnmedia

// Reads sample descriptions.

#include "container/box_streams.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

namespace qlnmedia {

namespace {

using mp4::FourCc;

template <typename List>
bool IsIn(const List& list, uint32_t type) {
  return std::find(list.begin(), list.end(), type) != list.end();
}

// Sample entries whose samples are what their configuration record says (ISO/IEC 14496-15 clauses 5 and 8,
// with the names that Dolby Vision gives them).
constexpr std::array kH264Entries = {FourCc("avc1"), FourCc("avc3"), FourCc("dva1"), FourCc("dvav")};
constexpr std::array kHevcEntries = {FourCc("hvc1"), FourCc("hev1"), FourCc("dvh1"), FourCc("dvhe")};
// Handlers of tracks that are never pictures.
constexpr std::array kOtherHandlers = {FourCc("soun"), FourCc("text"), FourCc("sbtl"), FourCc("subt"),
                                       FourCc("clcp"), FourCc("tmcd"), FourCc("meta"), FourCc("hint")};
constexpr std::array kDolbyVisionBoxes = {FourCc("dvcC"), FourCc("dvvC"), FourCc("dvwC")};

std::optional<DolbyVisionConfiguration> DolbyVisionOf(const Bytes& body) {
  if (body.size() < 5) return {};
  const uint64_t fields = mp4::LoadNumber(body.data() + 2, 3);
  const auto bits = [fields](int shift, unsigned count) {
    return static_cast<uint8_t>(fields >> shift & ((1u << count) - 1));
  };
  return DolbyVisionConfiguration{.dv_version_major = body[0],
                                  .dv_version_minor = body[1],
                                  .dv_profile = bits(17, 7),
                                  .dv_level = bits(11, 6),
                                  .rpu_present_flag = bits(10, 1),
                                  .el_present_flag = bits(9, 1),
                                  .bl_present_flag = bits(8, 1),
                                  .dv_bl_signal_compatibility_id = bits(4, 4)};
}

// Of `fiel`: fields of a frame, and their order (QuickTime File Format Specification).
FieldOrder FieldOrderOf(const Bytes& body) {
  if (body.size() < 2) return kFieldOrderUnknown;
  if (body[0] == 1) return kProgressive;
  if (body[0] != 2) return kFieldOrderUnknown;
  switch (body[1]) {
    case 1:
      return kTopFirst;
    case 6:
      return kBottomFirst;
    case 9:
      return kTopCodedBottomShownFirst;
    case 14:
      return kBottomCodedTopShownFirst;
    default:
      return kFieldOrderUnknown;
  }
}

VideoCodec CodecOfEntry(uint32_t format) {
  if (IsIn(kH264Entries, format)) return VideoCodec::kH264;
  if (IsIn(kHevcEntries, format)) return VideoCodec::kHevc;
  return VideoCodec::kOther;
}

// The codec of all descriptions; kOther where one is another, or has no configuration record.
VideoCodec CodecOfTrack(const mp4::Source& source, const mp4::Track& track) {
  if (track.descriptions.empty()) return VideoCodec::kOther;
  const VideoCodec codec = CodecOfEntry(track.descriptions.front().format);
  const uint32_t record = codec == VideoCodec::kH264 ? FourCc("avcC") : FourCc("hvcC");
  for (const mp4::Description& description : track.descriptions) {
    const std::vector<mp4::DescriptionBox> boxes = mp4::ReadDescriptionBoxes(source, description);
    const bool told = std::any_of(boxes.begin(), boxes.end(), [record](const mp4::DescriptionBox& box) {
      return box.type == record && !box.body.empty();
    });
    if (!told || CodecOfEntry(description.format) != codec) return VideoCodec::kOther;
  }
  return codec;
}

void TakeDescription(const mp4::Source& source, const mp4::Description& description, MediaStream& stream) {
  constexpr uint64_t kSizeAt = 24;  // of width and height in the entry's body, 16 bits each
  mp4::Reader reader(source);
  stream.hasColourDescription = true;
  stream.container.width = reader.U16(description.entry.body + kSizeAt);
  stream.container.height = reader.U16(description.entry.body + kSizeAt + 2);
  for (mp4::DescriptionBox& box : mp4::ReadDescriptionBoxes(source, description)) {
    if (IsIn(kDolbyVisionBoxes, box.type) && !stream.dolbyVision)
      stream.dolbyVision = DolbyVisionOf(box.body);
    if (box.type == FourCc("fiel")) stream.container.fieldOrder = FieldOrderOf(box.body);
    const bool record = box.type == FourCc("avcC") || box.type == FourCc("hvcC");
    if (record && stream.coded.privateData.empty()) stream.coded.privateData = std::move(box.body);
  }
}

// Nothing where it is not clear what the track holds.
std::optional<MediaStream> StreamOf(const mp4::Source& source, const mp4::Track& track) {
  MediaStream stream;
  stream.id = static_cast<int>(track.id);
  if (IsIn(kOtherHandlers, track.handler)) {
    // A demuxer goes by the sample entry where it knows one of pictures.
    for (const mp4::Description& description : track.descriptions) {
      if (CodecOfEntry(description.format) != VideoCodec::kOther) return {};
    }
    return stream;
  }
  stream.coded.codec = CodecOfTrack(source, track);
  if (track.handler != FourCc("vide") || stream.coded.codec == VideoCodec::kOther) return {};
  stream.kind = StreamKind::kVideo;
  stream.movingPictures = true;
  stream.encrypted = std::any_of(track.descriptions.begin(), track.descriptions.end(),
                                 [](const mp4::Description& description) { return description.encrypted; });
  TakeDescription(source, track.descriptions.front(), stream);
  return stream;
}

}  // namespace

std::optional<std::vector<MediaStream>> StreamsOfBoxes(const mp4::Source& source, const mp4::Layout& layout) {
  // Items with pictures and covers are streams as well.
  if (layout.movies.size() != 1 || !layout.metas.empty()) return {};
  const mp4::Movie& movie = layout.movies.front();
  const auto isBehindTracks = [&movie](const mp4::Box& meta) {
    return movie.tracks.empty() || meta.at > movie.tracks.back().box.at;
  };
  if (!std::all_of(movie.metas.begin(), movie.metas.end(), isBehindTracks)) return {};
  std::vector<MediaStream> streams;
  std::set<uint32_t> ids;
  for (const mp4::Track& track : movie.tracks) {
    if (!track.problem.empty() || !track.metas.empty() || !ids.insert(track.id).second) return {};
    // Pictures of chapters are no moving ones.
    for (const uint32_t chapters : track.chapters) {
      const mp4::Track* const of = movie.Find(chapters);
      if (of == nullptr || of->video()) return {};
    }
    std::optional<MediaStream> stream = StreamOf(source, track);
    if (!stream) return {};
    stream->index = static_cast<unsigned>(streams.size());
    streams.push_back(std::move(*stream));
  }
  return streams;
}

}  // namespace qlnmedia

// Puts captions into H.264, HEVC and MPEG-2 pictures, in presentation order.

#include "qlnmedia/caption_patcher.h"

#include <fmt/format.h>

#include "qlnmedia/access_unit.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/mpeg2_units.h"
#include "qlnmedia/stream_patcher.h"
#include "qlnmedia/text_file.h"
#include "qlnmedia/tool_error.h"

namespace qlnmedia {

namespace captions = qln::captions;

namespace {

bool IsCaptionMessage(const SeiMessage& message) {
  return message.type == captions::kRegisteredUserData &&
         captions::ReadRegisteredUserData(message.payload).has_value();
}

// The header of an SEI unit in front of the given picture: in HEVC it has the picture's temporal layer.
Bytes SeiHeader(Codec codec, const Unit& slice) {
  if (codec == Codec::kH264) return {6};
  const uint8_t temporal = slice.bytes.size() > 1 ? slice.bytes[1] & 7 : 1;
  return {39 << 1, temporal};
}

}  // namespace

CaptionPatcher::CaptionPatcher(const std::string& in, const CaptionOptions& options)
    : path_(in), options_(options) {
  std::string reason;
  std::optional<captions::CaptionTrack> track =
      captions::ReadCaptionTrack(ReadTextFile(options.file), &reason);
  if (!track) throw ToolError(options.file, reason);
  track_ = std::move(*track);
  int64_t offset = track_.FirstHour();
  if (!options.offset.empty()) {
    const std::optional<int64_t> frame = track_.FrameOf(options.offset);
    if (!frame)
      throw ToolError("--captions-offset",
                      fmt::format("\"{}\" is no timecode at the caption file's rate", options.offset),
                      "write HH:MM:SS:FF");
    offset = *frame;
  }
  const StreamCaptions stream = ReadStreamCaptions(in);
  if (stream.captioned() != 0 && !options.replace)
    throw ToolError(in,
                    fmt::format("stream {} has captions on {} pictures", stream.stream, stream.captioned()),
                    "--replace-captions takes them out first");
  if (!stream.rate)
    throw ToolError(in, fmt::format("stream {} has {:.3f} pictures a second, a rate without captions",
                                    stream.stream, stream.picturesPerSecond));
  stream_ = stream.stream;
  rate_ = *stream.rate;
  places_ = stream.order.places;
  source_ = std::make_unique<captions::CaptionPictures>(track_, rate_, offset);
}

Triplets CaptionPatcher::TripletsAt(uint32_t place) {
  for (; made_ <= place; ++made_) waiting_[made_] = source_->Next();
  const auto found = waiting_.find(place);
  Triplets triplets = std::move(found->second);
  waiting_.erase(found);
  return triplets;
}

Bytes CaptionPatcher::PatchMpeg2(ByteSpan data, const Triplets* triplets) {
  Bytes out;
  bool missing = triplets != nullptr;
  for (const Mpeg2Unit& unit : options_.replace ? Mpeg2Units(data) : Mpeg2Head(data)) {
    const ByteSpan bytes = data.subspan(unit.at, unit.size);
    if (options_.replace && unit.code == kMpeg2UserData && captions::ReadUserData(bytes.subspan(4))) {
      ++removed_;
      continue;
    }
    if (missing && IsMpeg2Slice(unit.code)) {
      const Bytes captionData = captions::MakePictureUserData(*triplets);
      out.insert(out.end(), captionData.begin(), captionData.end());
      missing = false;
      ++added_;
    }
    out.insert(out.end(), bytes.begin(), bytes.end());
  }
  return out;
}

Bytes CaptionPatcher::PatchUnits(Codec codec, ByteSpan data, const ConfigRecord& config,
                                 const Triplets* triplets) {
  UnitRun run = TakeApart(data, config.framing);
  if (options_.replace) removed_ += RemoveSei(codec, run.units, IsCaptionMessage);
  const size_t first = FirstPictureUnit(codec, run.units);
  if (triplets != nullptr && first < run.units.size()) {
    const Bytes header = SeiHeader(codec, run.units[first]);
    InsertSei(
        codec, run.units,
        MakeSeiUnit(header, {{captions::kRegisteredUserData, captions::MakeRegisteredUserData(*triplets)}}));
    ++added_;
  }
  const int lengthBytes = config.framing.lengthBytes;
  for (const Unit& unit : run.units) {
    if (lengthBytes > 0 && lengthBytes < 4 && unit.bytes.size() >> 8 * lengthBytes != 0)
      throw ToolError(path_,
                      fmt::format("stream {}: a unit of {} bytes does not fit its length field of {} bytes",
                                  stream_, unit.bytes.size(), lengthBytes));
  }
  return PutTogether(run, config.framing);
}

void CaptionPatcher::PatchPacket(const AVStream& stream, AVPacket* packet) {
  if (packets_ >= places_.size()) throw ToolError(path_, "has changed while it was read");
  const uint32_t place = places_[packets_++];
  Triplets triplets;
  if (place != kNoPlace) triplets = TripletsAt(place);
  const Triplets* const wanted = place != kNoPlace ? &triplets : nullptr;
  if (wanted == nullptr && !options_.replace) return;
  const ByteSpan data(packet->data, static_cast<size_t>(packet->size));
  const std::optional<Codec> codec = CodecOf(stream);
  ReplacePacketData(packet,
                    codec ? PatchUnits(*codec, data, ConfigOf(stream), wanted) : PatchMpeg2(data, wanted));
}

std::vector<std::string> CaptionPatcher::Summary() const {
  const captions::RateInfo& info = captions::InfoOf(rate_);
  std::vector<std::string> lines = {fmt::format("stream {}: captions put into {} pictures, {} triplets each",
                                                stream_, added_, info.triplets)};
  if (removed_ != 0) lines.front() += fmt::format(", {} earlier ones taken out", removed_);
  const auto warn = [&lines](std::string text) { lines.push_back("warning: " + std::move(text)); };
  if (source_->converted())
    warn(fmt::format("{} is made for {} pictures a second, the stream has {}: times are converted",
                     options_.file, captions::InfoOf(track_.rate).name, info.name));
  if (source_->early() != 0)
    warn(fmt::format("{} frames of captions stand in front of the first picture and are lost",
                     source_->early()));
  if (source_->left() != 0)
    warn(fmt::format("{} frames of captions stand behind the last picture and are lost", source_->left()));
  return lines;
}

}  // namespace qlnmedia

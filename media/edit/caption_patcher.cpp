// Puts captions into H.264, HEVC and MPEG-2 pictures, in presentation order.

#include "edit/caption_patcher.h"

#include <fmt/format.h>

#include "base/error.h"
#include "base/text_file.h"
#include "captions/units.h"
#include "container/coded_stream.h"
#include "edit/stream_patcher.h"
#include "units/access_unit.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace captions = qlnmedia::captions;

CaptionPatcher::CaptionPatcher(const MediaFile& in, const CaptionOptions& options,
                               const ProgressCallback& progress)
    : options_(options) {
  std::string reason;
  std::optional<captions::CaptionTrack> track =
      captions::ReadCaptionTrack(ReadTextFile(options.file), &reason);
  if (!track) throw Error(options.file, reason);
  track_ = std::move(*track);
  int64_t offset = track_.FirstHour();
  if (!options.offset.empty()) {
    const std::optional<int64_t> frame = track_.FrameOf(options.offset);
    if (!frame)
      throw Error("--captions-offset",
                  fmt::format("\"{}\" is no timecode at the caption file's rate", options.offset),
                  "write HH:MM:SS:FF");
    offset = *frame;
  }
  survey_ = SurveyCaptions(in.path(), SIZE_MAX, progress);
  if (survey_.captioned() != 0 && !options.replace)
    throw Error(in.path(),
                fmt::format("stream {} has captions on {} pictures", survey_.stream, survey_.captioned()),
                "--replace-captions takes them out first");
  if (!survey_.pace.rate)
    throw Error(in.path(), fmt::format("stream {} has {:.3f} pictures a second, a rate without captions",
                                       survey_.stream, survey_.pace.picturesPerSecond));
  const AVStream& stream = *in.context()->streams[survey_.stream];
  codec_ = CodecOf(stream);
  framing_ = ConfigOf(stream).framing;
  clock_.emplace(survey_.order, survey_.pace);
  source_.emplace(track_, *survey_.pace.rate, offset);
}

Triplets CaptionPatcher::TripletsAt(uint32_t place) {
  for (; made_ <= place; ++made_, clock_->Next()) waiting_[made_] = source_->Next(clock_->number());
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

Bytes CaptionPatcher::PatchUnits(ByteSpan data, const Triplets* triplets) {
  UnitRun run = TakeApart(data, framing_);
  if (options_.replace) removed_ += RemoveSei(*codec_, run.units, IsCaptionMessage);
  const size_t first = FirstPictureUnit(*codec_, run.units);
  if (triplets != nullptr && first < run.units.size()) {
    InsertSei(*codec_, run.units, MakeCaptionUnit(*codec_, run.units[first].bytes, *triplets));
    ++added_;
  }
  const size_t outgrown = OutgrownUnit(run, framing_);
  if (outgrown != 0)
    throw Error(survey_.path,
                fmt::format("stream {}: a unit of {} bytes does not fit its {}-byte length field",
                            survey_.stream, outgrown, framing_.lengthBytes));
  return PutTogether(run, framing_);
}

void CaptionPatcher::PatchPacket(AVPacket* packet) {
  const std::vector<uint32_t>& places = survey_.order.places;
  if (packets_ >= places.size()) throw Error(survey_.path, "has changed while it was read");
  const uint32_t place = places[packets_++];
  Triplets triplets;
  if (place != kNoPlace) triplets = TripletsAt(place);
  const Triplets* const wanted = place != kNoPlace ? &triplets : nullptr;
  if (wanted == nullptr && !options_.replace) return;
  const ByteSpan data(packet->data, static_cast<size_t>(packet->size));
  ReplacePacketData(packet, codec_ ? PatchUnits(data, wanted) : PatchMpeg2(data, wanted));
}

std::vector<std::string> CaptionPatcher::Summary() const {
  const captions::RateInfo& info = captions::InfoOf(*survey_.pace.rate);
  std::vector<std::string> lines = {fmt::format("stream {}: captions put into {} pictures, {} triplets each",
                                                survey_.stream, added_, info.triplets)};
  if (removed_ != 0) lines.front() += fmt::format(", {} earlier ones taken out", removed_);
  const auto warn = [&lines](std::string text) { lines.push_back("warning: " + std::move(text)); };
  if (!survey_.pace.steady)
    warn(fmt::format("pictures are missing or of uneven length: captions go by time, {} pictures a second",
                     info.name));
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

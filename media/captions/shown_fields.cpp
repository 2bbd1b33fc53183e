// Asks pictures for their fields.

#include "captions/shown_fields.h"

#include <algorithm>
#include <cmath>

#include "timing/hevc_timing.h"
#include "timing/timecode.h"
#include "units/access_unit.h"
#include "units/config_record.h"
#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostPackets = 64;  // pulldown repeats within five pictures
constexpr uint8_t kFrame = 2, kRepeated = 3;
constexpr uint32_t kTopBottomTop = 5, kBottomTopBottom = 6;  // pic_struct

std::optional<uint32_t> PicStructOf(Codec codec, const std::vector<Unit>& units, const SpsFacts& sps) {
  constexpr int kPictureTiming = 1;
  for (const Unit& unit : units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type != kPictureTiming) continue;
      if (codec == Codec::kHevc) {
        const std::optional<FrameFieldInfo> info = ReadFrameFieldInfo(message.payload);
        return info ? std::optional(info->picStruct) : std::nullopt;
      }
      const std::optional<PictureTiming> timing = ReadPictureTiming(message.payload, sps);
      return timing ? std::optional(timing->picStruct) : std::nullopt;
    }
  }
  return {};
}

}  // namespace

ShownFields::ShownFields(const StreamDescription& stream) : codec_(stream.codec) {
  const std::optional<Codec> codec = UnitCodecOf(codec_);
  if (!codec) return;
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  tracker_.emplace(*codec);
  for (const Bytes& unit : config.units()) tracker_->TakeSet(unit);
}

uint8_t ShownFields::Take(ByteSpan packet) {
  if (!any_ && packets_ >= kMostPackets) return kFrame;
  ++packets_;
  const uint8_t fields = codec_ == VideoCodec::kMpeg2 ? OfMpeg2(packet) : tracker_ ? OfUnits(packet) : kFrame;
  any_ = any_ || fields == kRepeated;
  return fields;
}

uint8_t ShownFields::OfMpeg2(ByteSpan packet) {
  constexpr int kExtensionStart = 0xB5;
  constexpr uint8_t kSequence = 1, kPictureCoding = 8;  // extension_start_code_identifier
  constexpr uint8_t kFrameStructure = 3;
  uint8_t fields = kFrame;
  for (const Mpeg2Unit& unit : Mpeg2Head(packet)) {
    if (unit.code != kExtensionStart || unit.size < 8) continue;
    const ByteSpan bytes = packet.subspan(unit.at, unit.size);
    if (bytes[4] >> 4 == kSequence) progressiveSequence_ = (bytes[5] & 0x08) != 0;
    if (bytes[4] >> 4 != kPictureCoding || (bytes[6] & 3) != kFrameStructure) continue;
    const bool repeat_first_field = (bytes[7] & 0x02) != 0;
    fields = repeat_first_field && !progressiveSequence_ ? kRepeated : kFrame;
  }
  return fields;
}

uint8_t ShownFields::OfUnits(ByteSpan packet) {
  const std::vector<Unit> units = TakeApart(packet, framing_).units;
  const std::vector<CodedPicture> pictures = tracker_->Take(units);
  const CodedPicture* const first = FirstPlaced(pictures);
  if (first == nullptr) return kFrame;
  const SpsFacts& sps = *first->head->sps;
  const Codec codec = tracker_->codec();
  if (codec == Codec::kH264 ? !sps.h264.picStruct : !sps.hevc.frameFieldInfo) return kFrame;
  const std::optional<uint32_t> picStruct = PicStructOf(codec, units, sps);
  return picStruct == kTopBottomTop || picStruct == kBottomTopBottom ? kRepeated : kFrame;
}

std::optional<captions::Rate> RateOfFields(const std::vector<uint8_t>& fields, const PicturePlaces& order,
                                           double told) {
  constexpr double kCoarse = 0.01;
  double perSecond = 2 * told;
  if (!order.steps.empty()) {
    int64_t ticks = 0, shown = 0;
    for (size_t i = 0; i < std::min(order.steps.size(), fields.size()); ++i) {
      ticks += order.steps[i];
      shown += fields[i];
    }
    if (ticks == 0) return {};
    perSecond = static_cast<double>(shown) / (static_cast<double>(ticks) * order.timeBase.value());
  }
  if (std::fabs(perSecond / 60 - 1) > kCoarse) return {};
  return std::fabs(perSecond - 60) < std::fabs(perSecond - 60 / 1.001) ? captions::Rate::k60
                                                                       : captions::Rate::k59_94;
}

}  // namespace qlnmedia

// Words for the messages that are met most.

#include "html/sei_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "captions/units.h"
#include "hdr/values.h"
#include "inspect/user_data.h"
#include "qlnmedia/text.h"
#include "timing/hevc_timing.h"
#include "timing/timecode.h"

namespace qlnmedia::html {

namespace {

constexpr size_t kMostText = 400;
constexpr size_t kUuidBytes = 16;

std::string Hex(ByteSpan bytes, size_t most) {
  std::string text;
  for (const uint8_t byte : bytes.first(std::min(bytes.size(), most))) text += fmt::format("{:02X} ", byte);
  if (bytes.size() > most) return text + "...";
  if (!text.empty()) text.pop_back();
  return text;
}

uint32_t Number(ByteSpan bytes, size_t at, size_t count) {
  uint32_t number = 0;
  for (size_t i = 0; i < count && at + i < bytes.size(); ++i) number = number << 8 | bytes[at + i];
  return number;
}

std::string BufferingText(Codec codec, ByteSpan payload, const SeiContext& context) {
  if (context.hrd == nullptr) return {};
  const std::optional<BufferingPeriod> period = ReadBufferingPeriod(codec, payload, *context.hrd);
  if (!period) return "breaks off";
  return fmt::format("initial_cpb_removal_delay {}, initial_cpb_removal_delay_offset {}", period->delay,
                     period->offset);
}

std::string H264TimingText(const Bytes& payload, const SpsFacts& sps) {
  const std::optional<PictureTiming> timing = ReadPictureTiming(payload, sps);
  if (!timing) return "breaks off";
  std::string text;
  if (sps.h264.hrd)
    text = fmt::format("cpb_removal_delay {}, dpb_output_delay {}", timing->cpbRemovalDelay,
                       timing->dpbOutputDelay);
  if (sps.h264.picStruct) text += fmt::format("{}pic_struct {}", text.empty() ? "" : ", ", timing->picStruct);
  for (int i = 0; i < 3; ++i)
    if (timing->clocks[i]) text += ", clock " + timing->times[i].Text();
  return text;
}

std::string HevcTimingText(const Bytes& payload, const SeiContext& context) {
  std::string text;
  if (context.sps != nullptr && context.sps->hevc.frameFieldInfo) {
    const std::optional<FrameFieldInfo> info = ReadFrameFieldInfo(payload);
    if (!info) return "breaks off";
    text = fmt::format("pic_struct {}, source_scan_type {}", info->picStruct, info->sourceScanType);
  }
  if (context.hrd == nullptr) return text;
  const std::optional<uint32_t> delay = ReadRemovalDelay(Codec::kHevc, payload, *context.hrd);
  if (delay) text += fmt::format("{}au_cpb_removal_delay_minus1 {}", text.empty() ? "" : ", ", *delay - 1);
  return text;
}

std::string UnregisteredText(ByteSpan payload) {
  if (payload.size() < kUuidBytes) return "breaks off";
  std::string text = Hex(payload.first(kUuidBytes), kUuidBytes);
  std::string said(payload.begin() + kUuidBytes, payload.end());
  while (!said.empty() && said.back() == '\0') said.pop_back();
  const bool readable = std::all_of(said.begin(), said.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (said.empty()) return text;
  if (!readable) return text + ", " + Hex(payload.subspan(kUuidBytes), 16);
  const bool longer = said.size() > kMostText;
  return text + ", \"" + said.substr(0, kMostText) + (longer ? "..." : "") + "\"";
}

std::string MasteringText(ByteSpan payload) {
  if (payload.size() < 24) return "breaks off";
  const auto point = [&](size_t at) {
    return MasteringDisplay::Point{static_cast<uint16_t>(Number(payload, at, 2)),
                                   static_cast<uint16_t>(Number(payload, at + 2, 2))};
  };
  // display_primaries_x[0] is green, 1 blue, 2 red.
  return MasteringDisplayText({.red = point(8),
                               .green = point(0),
                               .blue = point(4),
                               .white = point(12),
                               .maxLuminance = Number(payload, 16, 4),
                               .minLuminance = Number(payload, 20, 4)});
}

std::string RecoveryText(Codec codec, ByteSpan payload) {
  Bytes bytes(payload.begin(), payload.end());
  bytes.push_back(0x80);
  RbspReader in(Escape(bytes));
  const bool hevc = codec == Codec::kHevc;
  const int64_t count = hevc ? in.se() : static_cast<int64_t>(in.ue());
  const bool exact = in.flag();
  const bool broken = in.flag();
  if (!in.good()) return "breaks off";
  return fmt::format("{} {}{}{}", hevc ? "recovery_poc_cnt" : "recovery_frame_cnt", count,
                     exact ? ", exact" : "", broken ? ", broken link" : "");
}

std::string ClocksText(const Bytes& payload) {
  std::string text;
  for (const ClockTime& time : ReadTimeCode(payload)) text += (text.empty() ? "" : ", ") + time.Text();
  return text.empty() ? "no clock" : text;
}

std::string RegisteredText(const SeiMessage& message) {
  std::string text = T35Name(message.payload);
  if (!IsCaptionMessage(message)) return text + ", " + Hex(message.payload, 16);
  const auto triplets = captions::ReadRegisteredUserData(message.payload);
  return text + fmt::format(", {} triplets", triplets ? triplets->size() : 0);
}

std::string ValuesOf(Codec codec, const SeiMessage& message, const SeiContext& context) {
  const Bytes& payload = message.payload;
  switch (message.type) {
    case sei::kBufferingPeriod:
      return BufferingText(codec, payload, context);
    case sei::kPictureTiming:
      if (codec == Codec::kHevc) return HevcTimingText(payload, context);
      return context.sps == nullptr ? std::string() : H264TimingText(payload, *context.sps);
    case sei::kRegisteredUserData:
      return RegisteredText(message);
    case sei::kUnregisteredUserData:
      return UnregisteredText(payload);
    case sei::kRecoveryPoint:
      return RecoveryText(codec, payload);
    case sei::kTimeCode:
      return codec == Codec::kHevc ? ClocksText(payload) : std::string();
    case sei::kMasteringDisplay:
      return MasteringText(payload);
    case sei::kContentLightLevel:
      if (payload.size() < 4) return "breaks off";
      return fmt::format("MaxCLL {}, MaxFALL {} cd/m2", Number(payload, 0, 2), Number(payload, 2, 2));
    default:
      return Hex(payload, 16);
  }
}

}  // namespace

std::string SeiText(Codec codec, const SeiMessage& message, const SeiContext& context) {
  std::string text = fmt::format("{} ({} bytes)", SeiTypeName(message.type), message.payload.size());
  const std::string values = Printable(ValuesOf(codec, message, context));
  return values.empty() ? text : text + ": " + values;
}

}  // namespace qlnmedia::html

// Reports what frames of both codecs have in common.

#include "inspect/frames.h"

#include <fmt/format.h>

#include <algorithm>

#include "hdr/stream_hdr.h"
#include "inspect/hdr_section.h"
#include "inspect/user_data.h"

namespace qlnmedia {

namespace {

// Closed captions in one frame's SEI (ATSC A/53 user data): how many triplets.
void AddCaptionMessages(Section& frame, Codec codec, const UnitRun& run) {
  // itu_t_t35_country_code, the provider, "GA94" and the type code of cc_data (ATSC A/53 part 4
  // clause 6.2.3).
  constexpr uint8_t kHead[] = {0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
  constexpr int kRegisteredUserData = 4;
  constexpr uint8_t kProcessData = 0x40;
  for (const Unit& unit : run.units) {
    const int type = UnitType(codec, unit.bytes);
    if (codec == Codec::kH264 ? type != 6 : type != 39 && type != 40) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      const Bytes& payload = message.payload;
      if (message.type != kRegisteredUserData || payload.size() <= sizeof kHead ||
          !std::equal(std::begin(kHead), std::end(kHead), payload.begin()))
        continue;
      const int count = payload[sizeof kHead] & 31;
      const bool marked = (payload[sizeof kHead] & kProcessData) != 0;
      frame.Add("captions", "Captions", Json{{"form", "GA94"}, {"cc_count", count}},
                fmt::format("GA94, {} triplets", count), marked ? "" : "not marked for readers");
      return;
    }
  }
}

}  // namespace

Section& AddFrameHead(Section& section, const CodedStream& stream, size_t number, const UnitRun& run,
                      uint32_t visited) {
  const CodedPacket& packet = stream.packets[number];
  Section& frame = section.AddToList("frames", fmt::format("Frame {}", number));
  frame.Add("pts", "Time", TimeJson(packet.pts, stream.timeBase), TimeText(packet.pts, stream.timeBase));
  frame.Add("key", "Key frame", packet.key);
  frame.Add("size", "Size", packet.data.size(), fmt::format("{} bytes", packet.data.size()));
  frame.Add("unit_count", "Units", run.units.size(), UnitSummary(stream.codec, run.units));
  frame.Add("scan_count", "Scan", visited,
            fmt::format("the library's scan visits {} of {}", visited, run.units.size()));
  frame.MarkLast(ReportPart::kLibrary);
  return frame;
}

void AddFrameMessages(Section& frame, const CodedStream& stream, size_t number, const UnitRun& run,
                      const StreamTimecodes& timecodes) {
  AddHdr(frame, HdrOf(stream.codec, run.units));
  timecodes.AddToFrame(frame, number);
  AddCaptionMessages(frame, stream.codec, run);
  AddT35Messages(frame, stream.codec, run);
  const bool joined = std::any_of(run.units.begin(), run.units.end(),
                                  [](const Unit& unit) { return unit.join != Join::kNone; });
  if (joined) frame.AddNote("one length covers several units with start codes between them");
  if (run.damaged()) frame.AddNote(fmt::format("{} bytes at the end are cut off", run.rest.size()));
}

size_t UnitOffsets::Next(const Unit& unit) {
  const size_t offset = at_;
  int prefix = framing_.lengthBytes;
  if (framing_.startCodes() || unit.join == Join::kContinues) {
    prefix = unit.startCodeBytes;
  } else if (unit.join == Join::kBegins) {
    prefix += unit.startCodeBytes;
  }
  at_ += static_cast<size_t>(prefix) + unit.bytes.size() + static_cast<size_t>(unit.trailingZeros);
  return offset;
}

std::string SeiSummary(Codec codec, const Bytes& unit) {
  bool whole = false;
  std::string text;
  for (const SeiMessage& message : ReadSeiMessages(codec, unit, &whole))
    text += fmt::format("{}{}{} ({} bytes)", text.empty() ? "" : ", ", SeiTypeName(message.type),
                        message.type == sei::kRegisteredUserData ? ": " + T35Name(message.payload) : "",
                        message.payload.size());
  if (!whole) text += text.empty() ? "breaks off" : ", then breaks off";
  return text;
}

std::string UnitSummary(Codec codec, const std::vector<Unit>& units) {
  std::string text;
  for (size_t i = 0; i < units.size();) {
    const int type = UnitType(codec, units[i].bytes);
    size_t count = 1;
    while (i + count < units.size() && UnitType(codec, units[i + count].bytes) == type) ++count;
    if (!text.empty()) text += ", ";
    text += UnitTypeName(codec, type);
    if (count > 1) text += fmt::format(" x {}", count);
    i += count;
  }
  return text;
}

}  // namespace qlnmedia

// Lets the library put captions in front of a slice and takes them from there; makes them itself where the
// library takes fewer triplets than a picture needs.

#include "captions/units.h"

#include <algorithm>

#include "captions/cdp.h"
#include "qlnutil/qlninband.h"
#include "units/library_frame.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostOfTheLibrary = 10;  // triplets that its H.264 maker takes, and always takes
constexpr size_t kPacketHead = 16;        // of a caption packet, in front of its triplets
constexpr size_t kPacketTail = 3;         // footer and checksums of the library's reader

// Gives a frame the captions as a packet.
void PutCaptions(DFrame& frame, const std::vector<captions::Triplet>& triplets) {
  captions::CaptionPacket packet;
  packet.triplets = triplets;
  const Bytes caption = captions::FramePacket(captions::WrapInAnc(captions::WriteCdp(packet)));
  std::copy(caption.begin(), caption.end(), frame.captionData);
  frame.captionSize = static_cast<uint32_t>(caption.size());
}

// A unit of the library's, between parameter sets and the slice; the least of each.
Bytes FromH264Maker(const std::vector<captions::Triplet>& triplets) {
  LibraryFrame made({{0x67, 0x42}, {0x68, 0x80}, {0x65, 0x80}});
  DFrame& frame = made.frame();
  PutCaptions(frame, triplets);
  if (qlnutilAddAVCCaptions(&frame, frame.captionData, frame.captionSize, 0) != 0) return {};
  const std::vector<Unit> units = made.units();
  return units.size() == 4 ? units[2].bytes : Bytes();
}

Bytes FromHevcMaker(const std::vector<captions::Triplet>& triplets) {
  LibraryFrame made({SliceStub(Codec::kHevc)});
  PutCaptions(made.frame(), triplets);
  made.frame().frameSize += qlnUtilAddHevcCaptions(&made.frame(), 0);
  const std::vector<Unit> units = made.units();
  return units.size() == 2 ? units[0].bytes : Bytes();
}

// A message of which nothing is missing and nothing is to be passed over, with the reserved byte of the
// standard, which some encoders leave 0: the library takes the one at its word and asks for the other.
bool IsWholeMessage(const Bytes& payload) {
  constexpr size_t kFlags = 8;  // behind T.35 codes, identifier and type
  constexpr size_t kTriplets = 10;
  constexpr uint8_t kProcessCcData = 0x40;
  return payload.size() >= kTriplets && (payload[kFlags] & kProcessCcData) != 0 &&
         payload[kTriplets - 1] == 0xFF && payload.size() >= kTriplets + size_t{3} * (payload[kFlags] & 0x1F);
}

std::vector<captions::Triplet> FromH264Reader(ByteSpan unit) {
  const Bytes sei = Unescape(unit);
  DFrame frame{};
  qlnUtilReadH264CaptionsSEI(sei.data(), static_cast<uint32_t>(sei.size()), 0, 0, DFrameCaption(&frame));
  std::vector<captions::Triplet> triplets;
  for (size_t at = kPacketHead; at + kPacketTail + 3 <= frame.captionSize; at += 3) {
    const uint8_t* const t = frame.captionData + at;
    triplets.push_back({(t[0] & 4) != 0, static_cast<captions::CcType>(t[0] & 3), t[1], t[2]});
  }
  return triplets;
}

}  // namespace

std::optional<std::vector<captions::Triplet>> ReadCaptionUnit(Codec codec, ByteSpan unit) {
  bool whole = false;
  const std::vector<SeiMessage> messages = ReadSeiMessages(codec, unit, &whole);
  if (codec == Codec::kH264 && whole && messages.size() == 1 && IsCaptionMessage(messages[0]) &&
      IsWholeMessage(messages[0].payload))
    return FromH264Reader(unit);
  std::optional<std::vector<captions::Triplet>> all;
  for (const SeiMessage& message : messages) {
    if (!IsCaptionMessage(message)) continue;
    const auto triplets = captions::ReadRegisteredUserData(message.payload);
    if (!all) all.emplace();
    all->insert(all->end(), triplets->begin(), triplets->end());
  }
  return all;
}

Bytes MakeCaptionUnit(Codec codec, ByteSpan slice, const std::vector<captions::Triplet>& triplets) {
  Bytes unit;
  Bytes header;
  if (codec == Codec::kH264) {
    header = {6};
    if (triplets.size() == kMostOfTheLibrary) unit = FromH264Maker(triplets);
  } else {
    header = {39 << 1, static_cast<uint8_t>(slice.size() > 1 ? slice[1] & 7 : 1)};
    unit = FromHevcMaker(triplets);
    if (unit.size() > 1) unit[1] = header[1];
  }
  if (!unit.empty()) return unit;
  return MakeSeiUnit(header, {{captions::kRegisteredUserData, captions::MakeRegisteredUserData(triplets)}});
}

bool IsCaptionMessage(const SeiMessage& message) {
  return message.type == captions::kRegisteredUserData &&
         captions::ReadRegisteredUserData(message.payload).has_value();
}

}  // namespace qlnmedia

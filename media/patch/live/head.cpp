// Collects parameter sets up to a picture.

#include "patch/live/head.h"

#include "sets/sps_facts.h"

namespace qlnmedia {

namespace {

std::optional<VideoCodec> CodecOfSet(ByteSpan unit) {
  if (unit.size() < 4) return {};
  // No parameter set of H.264 has this for its second byte, a profile.
  const bool hevcHeader = (unit[0] & 0x81) == 0 && unit[1] == 1;
  const int type = UnitType(Codec::kHevc, unit);
  if (hevcHeader && (type == hevc::kVps || type == hevc::kSps)) return VideoCodec::kHevc;
  const bool sps = (unit[0] & 0x80) == 0 && UnitType(Codec::kH264, unit) == h264::kSps;
  if (sps && ReadSpsFacts(Codec::kH264, unit)) return VideoCodec::kH264;
  return {};
}

// A unit; `ended` where all of it is there. True behind the sets of a sequence, at a picture.
bool TakeUnit(ByteSpan code, bool ended, bool& sequence, LiveHead& head) {
  const ByteSpan unit = code.subspan(kStartCodeBytes);
  if (!head.codec && ended) head.codec = CodecOfSet(unit);
  if (!head.codec) return false;
  const Codec codec = *UnitCodecOf(*head.codec);
  const int type = UnitType(codec, unit);
  if (ended && IsParameterSet(codec, type) && IsBaseLayer(codec, unit)) {
    head.sets.insert(head.sets.end(), code.begin(), code.end());
    sequence = sequence || IsSps(codec, type);
  }
  return sequence && unit.size() > 1 && IsSlice(codec, type);
}

}  // namespace

std::optional<size_t> NextStartCode(ByteSpan bytes, size_t from) {
  for (size_t at = from + 2; at < bytes.size();) {
    if (bytes[at] > 1) {
      at += 3;
    } else if (bytes[at] == 1) {
      if (bytes[at - 1] == 0 && bytes[at - 2] == 0) return at - 2;
      at += 3;
    } else {
      ++at;
    }
  }
  return {};
}

LiveHead ReadLiveHead(ByteSpan bytes, std::optional<VideoCodec> codec) {
  LiveHead head;
  head.codec = codec;
  bool sequence = false;
  std::optional<size_t> code = NextStartCode(bytes, 0);
  while (code && !head.whole) {
    const std::optional<size_t> next = NextStartCode(bytes, *code + kStartCodeBytes);
    const size_t end = next.value_or(bytes.size());
    head.whole = TakeUnit(bytes.subspan(*code, end - *code), next.has_value(), sequence, head);
    code = next;
  }
  return head;
}

}  // namespace qlnmedia

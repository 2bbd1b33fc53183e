// Takes packets apart into NAL units and puts them together again.

#include "units/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>

#include "nalstream/nalstream.h"

namespace qlnmedia {

namespace {

void Append(Bytes& out, ByteSpan bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

void AppendLength(Bytes& out, size_t length, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(length >> 8 * i));
}

UnitRun TakeApartLengths(ByteSpan data, size_t lengthBytes) {
  UnitRun run;
  while (!data.empty()) {
    size_t length = 0;
    for (size_t i = 0; i < lengthBytes && i < data.size(); ++i) length = length << 8 | data[i];
    if (data.size() < lengthBytes || length > data.size() - lengthBytes) {
      run.rest.assign(data.begin(), data.end());
      break;
    }
    run.units.emplace_back();
    const ByteSpan unit = data.subspan(lengthBytes, length);
    run.units.back().bytes.assign(unit.begin(), unit.end());
    data = data.subspan(lengthBytes + length);
  }
  return run;
}

// Offset behind the next 00 00 01 at or behind `from`; 0 if there is none.
size_t BehindStartCode(ByteSpan data, size_t from) {
  const ByteSpan left = data.subspan(from);
  if (left.size() == 3) return left[0] == 0 && left[1] == 0 && left[2] == 1 ? from + 3 : 0;
  if (left.size() < 3) return 0;
  int start = 0;
  int end = 0;
  find_nal_unit(left.data(), static_cast<int>(std::min<size_t>(left.size(), INT_MAX)), &start, &end);
  return start == 0 ? 0 : from + static_cast<size_t>(start);
}

UnitRun TakeApartStartCodes(ByteSpan data) {
  UnitRun run;
  size_t start = BehindStartCode(data, 0);
  // Zeros in front of a start code belong to what stands before it, but for the one that makes it 4 bytes.
  const auto codeBytes = [&data](size_t behindCode, size_t floor) {
    return behindCode - 3 > floor && data[behindCode - 4] == 0 ? 4 : 3;
  };
  int startCodeBytes = start == 0 ? 3 : codeBytes(start, 0);
  run.lead.assign(data.begin(), data.end());
  if (start != 0) run.lead.resize(start - static_cast<size_t>(startCodeBytes));
  while (start != 0) {
    const size_t next = BehindStartCode(data, start);
    const int nextCodeBytes = next == 0 ? 0 : codeBytes(next, start);
    const size_t last = next == 0 ? data.size() : next - static_cast<size_t>(nextCodeBytes);
    size_t end = last;
    while (end > start && data[end - 1] == 0) --end;
    Unit unit;
    unit.startCodeBytes = startCodeBytes;
    unit.bytes.assign(data.begin() + static_cast<std::ptrdiff_t>(start),
                      data.begin() + static_cast<std::ptrdiff_t>(end));
    unit.trailingZeros = static_cast<int>(last - end);
    run.units.push_back(std::move(unit));
    start = next;
    startCodeBytes = nextCodeBytes;
  }
  return run;
}

}  // namespace

UnitRun TakeApart(ByteSpan data, Framing framing) {
  return framing.startCodes() ? TakeApartStartCodes(data)
                              : TakeApartLengths(data, static_cast<size_t>(framing.lengthBytes));
}

Bytes PutTogether(const UnitRun& run, Framing framing) {
  Bytes out = run.lead;
  for (const Unit& unit : run.units) {
    if (framing.startCodes()) {
      AppendLength(out, 1, unit.startCodeBytes);
    } else {
      AppendLength(out, unit.bytes.size(), framing.lengthBytes);
    }
    Append(out, unit.bytes);
    if (framing.startCodes()) out.insert(out.end(), static_cast<size_t>(unit.trailingZeros), uint8_t{0});
  }
  Append(out, run.rest);
  return out;
}

Bytes ToLengthForm(const std::vector<Unit>& units) {
  Bytes out;
  for (const Unit& unit : units) {
    AppendLength(out, unit.bytes.size(), 4);
    Append(out, unit.bytes);
  }
  return out;
}

Bytes ToMarkerForm(const std::vector<Unit>& units) {
  Bytes out;
  for (const Unit& unit : units) {
    AppendLength(out, 1, 4);
    Append(out, unit.bytes);
  }
  return out;
}

int UnitType(Codec codec, ByteSpan unit) {
  if (unit.size() < (codec == Codec::kH264 ? 1u : 2u)) return -1;
  return codec == Codec::kH264 ? unit[0] & 31 : unit[0] >> 1 & 63;
}

bool IsSlice(Codec codec, int unitType) {
  return codec == Codec::kH264 ? unitType >= 1 && unitType <= 5 : unitType >= 0 && unitType <= 31;
}

bool IsParameterSet(Codec codec, int unitType) {
  return codec == Codec::kH264 ? unitType == 7 || unitType == 8 : unitType >= 32 && unitType <= 34;
}

std::string UnitTypeName(Codec codec, int unitType) {
  if (unitType < 0) return "cut off";
  // ITU-T H.264 table 7-1.
  static constexpr std::array<const char*, 32> kH264 = {"unspecified",
                                                        "slice",
                                                        "slice partition A",
                                                        "slice partition B",
                                                        "slice partition C",
                                                        "IDR slice",
                                                        "SEI",
                                                        "SPS",
                                                        "PPS",
                                                        "access unit delimiter",
                                                        "end of sequence",
                                                        "end of stream",
                                                        "filler data",
                                                        "SPS extension",
                                                        "prefix unit",
                                                        "subset SPS",
                                                        "depth parameter set",
                                                        "reserved",
                                                        "reserved",
                                                        "auxiliary slice",
                                                        "slice extension",
                                                        "depth slice extension",
                                                        "reserved",
                                                        "reserved",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified",
                                                        "unspecified"};
  // ITU-T H.265 table 7-1.
  static constexpr std::array<const char*, 48> kHevc = {"TRAIL_N slice",
                                                        "TRAIL_R slice",
                                                        "TSA_N slice",
                                                        "TSA_R slice",
                                                        "STSA_N slice",
                                                        "STSA_R slice",
                                                        "RADL_N slice",
                                                        "RADL_R slice",
                                                        "RASL_N slice",
                                                        "RASL_R slice",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "BLA_W_LP slice",
                                                        "BLA_W_RADL slice",
                                                        "BLA_N_LP slice",
                                                        "IDR_W_RADL slice",
                                                        "IDR_N_LP slice",
                                                        "CRA slice",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "VPS",
                                                        "SPS",
                                                        "PPS",
                                                        "access unit delimiter",
                                                        "end of sequence",
                                                        "end of bitstream",
                                                        "filler data",
                                                        "prefix SEI",
                                                        "suffix SEI",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved",
                                                        "reserved"};
  const auto index = static_cast<size_t>(unitType);
  if (codec == Codec::kH264) return index < kH264.size() ? kH264[index] : "unknown";
  if (unitType == 62) return "Dolby Vision RPU";
  if (unitType == 63) return "Dolby Vision enhancement layer";
  return index < kHevc.size() ? kHevc[index] : "unspecified";
}

Bytes Unescape(ByteSpan unit) {
  Bytes out;
  out.reserve(unit.size());
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  return out;
}

Bytes Escape(ByteSpan payload) {
  Bytes out;
  out.reserve(payload.size() + payload.size() / 64 + 8);
  int zeros = 0;
  for (const uint8_t byte : payload) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    out.push_back(byte);
  }
  if (zeros >= 2) out.push_back(3);
  return out;
}

std::vector<SeiMessage> ReadSeiMessages(Codec codec, ByteSpan unit, bool* whole) {
  const size_t header = codec == Codec::kH264 ? 1 : 2;
  const Bytes rbsp = Unescape(unit);
  std::vector<SeiMessage> messages;
  size_t at = header;
  bool good = rbsp.size() > header;
  const auto coded = [&](int& value) {
    value = 0;
    for (; at < rbsp.size(); ++at) {
      value += rbsp[at];
      if (rbsp[at] != 255) {
        ++at;
        return true;
      }
    }
    return false;
  };
  // Messages go on until only the stop bit and zero bytes are left.
  size_t end = rbsp.size();
  while (end > at && rbsp[end - 1] == 0) --end;
  while (good && at < end && !(at + 1 == end && rbsp[at] == 0x80)) {
    SeiMessage message;
    int size = 0;
    good = coded(message.type) && coded(size) && static_cast<size_t>(size) <= rbsp.size() - at;
    if (!good) break;
    message.payload.assign(rbsp.begin() + static_cast<std::ptrdiff_t>(at),
                           rbsp.begin() + static_cast<std::ptrdiff_t>(at) + size);
    at += static_cast<size_t>(size);
    messages.push_back(std::move(message));
  }
  if (whole != nullptr) *whole = good && at < end;
  return messages;
}

Bytes MakeSeiUnit(ByteSpan header, const std::vector<SeiMessage>& messages) {
  Bytes rbsp(header.begin(), header.end());
  const auto code = [&rbsp](size_t value) {
    for (; value >= 255; value -= 255) rbsp.push_back(255);
    rbsp.push_back(static_cast<uint8_t>(value));
  };
  for (const SeiMessage& message : messages) {
    code(static_cast<size_t>(message.type));
    code(message.payload.size());
    Append(rbsp, message.payload);
  }
  rbsp.push_back(0x80);
  return Escape(rbsp);
}

std::string SeiTypeName(int payloadType) {
  struct Name {
    int type;
    const char* name;
  };
  // ITU-T H.264 and H.265 annex D; where a number means different things, both are told.
  static constexpr Name kNames[] = {
      {0, "buffering period"},
      {1, "picture timing"},
      {2, "pan-scan rectangle"},
      {3, "filler payload"},
      {4, "registered user data (ITU-T T.35)"},
      {5, "unregistered user data"},
      {6, "recovery point"},
      {9, "scene information"},
      {15, "picture snapshot"},
      {17, "progressive refinement end"},
      {19, "film grain characteristics"},
      {22, "post-filter hint"},
      {23, "tone mapping"},
      {45, "frame packing arrangement"},
      {47, "display orientation"},
      {56, "green metadata"},
      {128, "structure of pictures"},
      {129, "active parameter sets"},
      {130, "decoding unit information"},
      {131, "temporal sub-layer zero index"},
      {132, "decoded picture hash"},
      {133, "scalable nesting"},
      {134, "region refresh"},
      {135, "no display"},
      {136, "time code"},
      {137, "mastering display colour volume"},
      {144, "content light level"},
      {147, "alternative transfer characteristics"},
      {148, "ambient viewing environment"},
      {149, "content colour volume"},
  };
  for (const Name& name : kNames) {
    if (name.type == payloadType) return name.name;
  }
  return fmt::format("type {}", payloadType);
}

}  // namespace qlnmedia

// Parameter set units built bit by bit in the syntax of the standard, and readers' outcomes in one value.
#ifndef TESTS_HEVC_UNIT_BUILDERS_H
#define TESTS_HEVC_UNIT_BUILDERS_H

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qlnutil/qlnhevc.h"
#include "support/test_support.h"

namespace qln::test {

// Adds syntax at one place of a unit.
using Part = std::function<void(BitBuilder&)>;
inline void Nothing(BitBuilder&) {}

// The general part of profile_tier_level(), Main, level 3.1, progressive and frame only.
struct GeneralProfile {
  uint32_t space = 0;
  uint32_t tier = 0;
  uint32_t profile = 1;
  uint32_t compatibility = 0x60000000;
  uint64_t constraints = 0x900000000000;
  uint32_t level = 93;
};

inline void AddProfile(BitBuilder& b, const GeneralProfile& p) {
  b.u(2, p.space).u(1, p.tier).u(5, p.profile).u(32, p.compatibility).u(48, p.constraints).u(8, p.level);
}

struct VpsParts {
  uint32_t header = 0x4001;
  uint32_t id = 5;
  uint32_t baseLayerBits = 3;
  uint32_t maxSubLayersMinus1 = 0;
  uint32_t reserved = 0xFFFF;
  GeneralProfile profile;
  Part subLayers = Nothing;
  uint32_t orderingFlag = 1;
  std::vector<std::array<uint32_t, 3>> ordering = {{4, 2, 0}};
  uint32_t maxLayerId = 0;
  uint32_t layerSetsMinus1 = 0;
  Part layerSets = Nothing;
  Part timing = [](BitBuilder& b) { b.u(1, 0); };
  Part extension = [](BitBuilder& b) { b.u(1, 0); };
};

inline BitBuilder VpsBits(const VpsParts& p) {
  BitBuilder b;
  b.u(16, p.header)
      .u(4, p.id)
      .u(2, p.baseLayerBits)
      .u(6, 0)
      .u(3, p.maxSubLayersMinus1)
      .u(1, 1)
      .u(16, p.reserved);
  AddProfile(b, p.profile);
  p.subLayers(b);
  b.u(1, p.orderingFlag);
  for (const auto& triple : p.ordering) b.ue(triple[0]).ue(triple[1]).ue(triple[2]);
  b.u(6, p.maxLayerId).ue(p.layerSetsMinus1);
  p.layerSets(b);
  p.timing(b);
  p.extension(b);
  return b;
}

inline Bytes Vps(const VpsParts& p = {}) { return VpsBits(p).trailing().bytes(); }

struct SpsParts {
  uint32_t header = 0x4201;
  uint32_t id = 0;
  uint32_t maxSubLayersMinus1 = 0;
  GeneralProfile profile;
  Part subLayers = Nothing;
  Part chroma = [](BitBuilder& b) { b.ue(1); };
  uint32_t width = 64;
  uint32_t height = 48;
  Part window = [](BitBuilder& b) { b.u(1, 0); };
  uint32_t lumaMinus8 = 0;
  uint32_t chromaMinus8 = 0;
  uint32_t log2PocMinus4 = 4;
  uint32_t orderingFlag = 1;
  std::vector<std::array<uint32_t, 3>> ordering = {{4, 2, 0}};
  Part scalingLists = [](BitBuilder& b) { b.u(1, 0); };
  Part pcm = [](BitBuilder& b) { b.u(1, 0); };
  Part shortTerm = [](BitBuilder& b) { b.ue(0); };
  Part longTerm = [](BitBuilder& b) { b.u(1, 0); };
  Part vui = [](BitBuilder& b) { b.u(1, 0); };
  Part extension = [](BitBuilder& b) { b.u(1, 0); };
};

inline BitBuilder SpsBits(const SpsParts& p) {
  BitBuilder b;
  b.u(16, p.header).u(4, 0).u(3, p.maxSubLayersMinus1).u(1, 1);
  AddProfile(b, p.profile);
  p.subLayers(b);
  b.ue(p.id);
  p.chroma(b);
  b.ue(p.width).ue(p.height);
  p.window(b);
  b.ue(p.lumaMinus8).ue(p.chromaMinus8).ue(p.log2PocMinus4).u(1, p.orderingFlag);
  for (const auto& triple : p.ordering) b.ue(triple[0]).ue(triple[1]).ue(triple[2]);
  b.ue(0).ue(2).ue(0).ue(3).ue(1).ue(2);
  p.scalingLists(b);
  b.u(1, 1).u(1, 0);
  p.pcm(b);
  p.shortTerm(b);
  p.longTerm(b);
  b.u(1, 1).u(1, 0);
  p.vui(b);
  p.extension(b);
  return b;
}

inline Bytes Sps(const SpsParts& p = {}) { return SpsBits(p).trailing().bytes(); }

struct PpsParts {
  uint32_t header = 0x4401;
  uint32_t id = 0;
  uint32_t spsId = 0;
  int32_t initQp = -3;
  Part quantization = [](BitBuilder& b) { b.u(1, 0); };
  int32_t cbOffset = 0;
  int32_t crOffset = -2;
  uint32_t tiles = 0;
  uint32_t sync = 0;
  Part tileSizes = Nothing;
  Part deblocking = [](BitBuilder& b) { b.u(1, 0); };
  uint32_t scalingListData = 0;
  uint32_t extension = 0;
};

inline BitBuilder PpsBits(const PpsParts& p) {
  BitBuilder b;
  b.u(16, p.header).ue(p.id).ue(p.spsId).u(1, 0).u(1, 0).u(3, 5).u(1, 1).u(1, 0).ue(1).ue(2).se(p.initQp);
  b.u(1, 0).u(1, 1);
  p.quantization(b);
  b.se(p.cbOffset).se(p.crOffset).u(1, 0).u(1, 1).u(1, 0).u(1, 0).u(1, p.tiles).u(1, p.sync);
  p.tileSizes(b);
  b.u(1, 1);
  p.deblocking(b);
  b.u(1, p.scalingListData).u(1, 0).ue(3).u(1, 0).u(1, p.extension);
  return b;
}

inline Bytes Pps(const PpsParts& p = {}) { return PpsBits(p).trailing().bytes(); }

// Emulation prevention by the standard's rule.
inline Bytes Escaped(const Bytes& unit) {
  Bytes out;
  size_t zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return out;
}

// Emulation prevention by the writers' rule, moving bytes up one at a time: from byte 3 on, and with a limit
// that does not grow as bytes go in.
inline Bytes WriterEscaped(const Bytes& unit) {
  Bytes out = unit;
  if (unit.size() < 5) return out;
  for (size_t i = 3; i + 2 <= unit.size();) {
    if (i + 2 < out.size() && out[i] == 0 && out[i + 1] == 0 && out[i + 2] <= 3) {
      out.insert(out.begin() + static_cast<std::ptrdiff_t>(i) + 2, 3);
      i += 2;
    } else {
      ++i;
    }
  }
  return out;
}

// What a reader left behind.
template <class Record>
struct Outcome {
  uint64_t result = 0;
  uint32_t bitPos = 0;
  std::unique_ptr<Record> recordPtr = std::make_unique<Record>();
  std::vector<std::string> messages;
  Record& record() { return *recordPtr; }
};

template <class Record>
using Reader = uint64_t (*)(QLNBitState*, Record*, HevcConfigRecord*, uint32_t);

// Reads a unit out of an exact-size copy. The record is filled with `fill` bytes before.
template <class Record>
Outcome<Record> ReadWith(Reader<Record> reader, const Bytes& unit, HevcConfigRecord* config = nullptr,
                         uint32_t lengthBits = 0, uint32_t bitPos = 0, int fill = 0) {
  ExactCopy copy(unit);
  QLNBitState state{copy.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    bitPos};
  Outcome<Record> outcome;
  std::memset(static_cast<void*>(outcome.recordPtr.get()), fill, sizeof(Record));
  MessageCapture capture;
  outcome.result = reader(&state, outcome.recordPtr.get(), config, lengthBits);
  outcome.bitPos = state.bitPos;
  outcome.messages = capture.textsWithoutLines();
  EXPECT_EQ(ToHex(copy.bytes()), ToHex(unit)) << "the caller's bytes stay";
  return outcome;
}

inline Outcome<HevcVpsRecord> ReadVps(const Bytes& unit, HevcConfigRecord* config = nullptr,
                                      uint32_t lengthBits = 0, uint32_t bitPos = 0, int fill = 0) {
  return ReadWith<HevcVpsRecord>(qlnutilRead_HEVC_VPS, unit, config, lengthBits, bitPos, fill);
}
inline Outcome<HevcSpsRecord> ReadSps(const Bytes& unit, HevcConfigRecord* config = nullptr,
                                      uint32_t lengthBits = 0, uint32_t bitPos = 0, int fill = 0) {
  return ReadWith<HevcSpsRecord>(qlnutilRead_HEVC_SPS, unit, config, lengthBits, bitPos, fill);
}
inline Outcome<HevcPpsRecord> ReadPps(const Bytes& unit, HevcConfigRecord* config = nullptr,
                                      uint32_t lengthBits = 0, uint32_t bitPos = 0, int fill = 0) {
  return ReadWith<HevcPpsRecord>(qlnutilRead_HEVC_PPS, unit, config, lengthBits, bitPos, fill);
}

// A writer's unit, with guard bytes behind it that must stay.
template <class Write>
Bytes Written(Write write) {
  Bytes output(QLN_HEVC_UNIT_SIZE + 64, 0xEE);
  const uint32_t size = write(output.data());
  EXPECT_LE(size, static_cast<uint32_t>(QLN_HEVC_UNIT_SIZE));
  for (size_t i = size; i < output.size(); ++i) {
    EXPECT_EQ(output[i], 0xEE) << "byte " << i;
    if (output[i] != 0xEE) break;
  }
  output.resize(size);
  return output;
}
inline Bytes WriteVps(HevcVpsRecord& vps) {
  return Written([&](uint8_t* out) { return qlnutilWrite_HEVC_VPS(&vps, out); });
}
inline Bytes WriteSps(HevcSpsRecord& sps, uint32_t capacity = 8192) {
  return Written([&](uint8_t* out) { return qlnutilWrite_HEVC_SPS(&sps, out, capacity); });
}
inline Bytes WritePps(const HevcPpsRecord& pps) {
  return Written([&](uint8_t* out) { return qlnutilWrite_HEVC_PPS(&pps, out); });
}

inline Bytes Head(const Bytes& bytes, size_t count) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

// The words of a record.
template <class Record>
std::vector<uint32_t> Words(const Record& record) {
  std::vector<uint32_t> words(sizeof record / 4);
  std::memcpy(words.data(), &record, sizeof record);
  return words;
}

// "\nqlnutilRead_HEVC_<set> failed bit length is wrong = ..." with its arguments.
inline std::string LengthMessage(const std::string& set, const std::string& arguments) {
  return "\nqlnutilRead_HEVC_" + set + " failed bit length is wrong = " + arguments;
}

inline const std::string kLocated = " support/qlnutil/qlnvidutil LINE";

}  // namespace qln::test

#endif

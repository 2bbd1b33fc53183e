// Kinds of units and messages, by number.

#include "units/unit_types.h"

#include <fmt/format.h>

#include <array>

namespace qlnmedia {

int UnitType(Codec codec, ByteSpan unit) {
  if (unit.size() < UnitHeaderBytes(codec)) return -1;
  return codec == Codec::kH264 ? unit[0] & 31 : unit[0] >> 1 & 63;
}

bool IsSlice(Codec codec, int unitType) {
  if (codec == Codec::kH264) return unitType >= h264::kSlice && unitType <= h264::kIdrSlice;
  return unitType >= 0 && unitType <= hevc::kLastSlice;
}

bool IsParameterSet(Codec codec, int unitType) {
  if (codec == Codec::kH264) return unitType == h264::kSps || unitType == h264::kPps;
  return unitType >= hevc::kVps && unitType <= hevc::kPps;
}

bool IsSps(Codec codec, int unitType) {
  return unitType == (codec == Codec::kH264 ? h264::kSps : hevc::kSps);
}

bool IsSei(Codec codec, int unitType) {
  if (codec == Codec::kH264) return unitType == h264::kSei;
  return unitType == hevc::kPrefixSei || unitType == hevc::kSuffixSei;
}

bool IsUnspecified(Codec codec, int unitType) {
  if (codec == Codec::kHevc) return unitType >= hevc::kFirstUnspecified;
  return unitType == 0 || unitType >= h264::kFirstUnspecified;
}

bool IsDelimiter(Codec codec, int unitType) {
  return unitType == (codec == Codec::kH264 ? h264::kDelimiter : hevc::kDelimiter);
}

bool IsEnd(Codec codec, int unitType) {
  if (codec == Codec::kH264) return unitType == h264::kEndOfSequence || unitType == h264::kEndOfStream;
  return unitType == hevc::kEndOfSequence || unitType == hevc::kEndOfBitstream;
}

bool BeginsAccessUnit(Codec codec, int unitType) {
  if (codec == Codec::kH264)
    return (unitType >= h264::kSei && unitType <= h264::kDelimiter) ||
           (unitType >= h264::kPrefix && unitType <= h264::kReserved18);
  return (unitType >= hevc::kVps && unitType <= hevc::kDelimiter) || unitType == hevc::kPrefixSei ||
         (unitType >= hevc::kFirstReservedInFront && unitType <= hevc::kLastReservedInFront) ||
         (unitType >= hevc::kFirstUnspecified && unitType <= hevc::kLastUnspecifiedInFront);
}

bool FollowsPicture(Codec codec, int unitType) {
  if (IsEnd(codec, unitType)) return true;
  if (codec == Codec::kH264) return unitType == h264::kFiller;
  return unitType == hevc::kFiller || unitType == hevc::kSuffixSei ||
         (unitType >= hevc::kFirstReservedBehind && unitType <= hevc::kLastReserved) ||
         unitType >= hevc::kFirstUnspecifiedBehind;
}

bool IsBaseLayer(Codec codec, ByteSpan unit) {
  return codec == Codec::kH264 || unit.size() < 2 || ((unit[0] & 1) == 0 && unit[1] >> 3 == 0);
}

bool BeginsPicture(Codec codec, ByteSpan slice) {
  const size_t header = UnitHeaderBytes(codec);
  return slice.size() > header && (slice[header] & 0x80) != 0;
}

namespace {

// ITU-T H.264 table 7-1.
constexpr std::array<const char*, 32> kH264Types = {"unspecified",
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
constexpr std::array<const char*, 48> kHevcTypes = {"TRAIL_N slice",
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

}  // namespace

std::string UnitTypeName(Codec codec, int unitType) {
  if (unitType < 0) return "cut off";
  const auto index = static_cast<size_t>(unitType);
  if (codec == Codec::kH264) return index < kH264Types.size() ? kH264Types[index] : "unknown";
  if (unitType == hevc::kDolbyVisionRpu) return "Dolby Vision RPU";
  if (unitType == hevc::kDolbyVisionLayer) return "Dolby Vision enhancement layer";
  return index < kHevcTypes.size() ? kHevcTypes[index] : "unspecified";
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

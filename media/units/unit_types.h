// Kinds of NAL units and SEI messages: each number that the standards give them, and what it is called.
#ifndef MEDIA_UNITS_UNIT_TYPES_H
#define MEDIA_UNITS_UNIT_TYPES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qlnmedia {

using Bytes = std::vector<uint8_t>;
using ByteSpan = std::span<const uint8_t>;

enum class Codec { kH264, kHevc };

// nal_unit_type of ITU-T H.264 table 7-1.
namespace h264 {
inline constexpr int kSlice = 1;
inline constexpr int kSlicePartitionA = 2;
inline constexpr int kSlicePartitionC = 4;
inline constexpr int kIdrSlice = 5;
inline constexpr int kSei = 6;
inline constexpr int kSps = 7;
inline constexpr int kPps = 8;
inline constexpr int kDelimiter = 9;
inline constexpr int kEndOfSequence = 10;
inline constexpr int kEndOfStream = 11;
inline constexpr int kFiller = 12;
inline constexpr int kSpsExtension = 13;
inline constexpr int kPrefix = 14;
inline constexpr int kSubsetSps = 15;
inline constexpr int kReserved18 = 18;
inline constexpr int kAuxiliarySlice = 19;
inline constexpr int kSliceExtension = 20;
inline constexpr int kFirstUnspecified = 24;  // and 0
inline constexpr int kLastType = 31;
}  // namespace h264

// nal_unit_type of ITU-T H.265 table 7-1.
namespace hevc {
inline constexpr int kRadlN = 6;
inline constexpr int kRaslN = 8;
inline constexpr int kRaslR = 9;
inline constexpr int kFirstIrap = 16;  // BLA_W_LP
inline constexpr int kIdrWRadl = 19;
inline constexpr int kCra = 21;
inline constexpr int kLastIrap = 23;
inline constexpr int kLastSlice = 31;
inline constexpr int kVps = 32;
inline constexpr int kSps = 33;
inline constexpr int kPps = 34;
inline constexpr int kDelimiter = 35;
inline constexpr int kEndOfSequence = 36;
inline constexpr int kEndOfBitstream = 37;
inline constexpr int kFiller = 38;
inline constexpr int kPrefixSei = 39;
inline constexpr int kSuffixSei = 40;
inline constexpr int kFirstReservedInFront = 41;  // 41 to 44 stand in front of a picture, 45 to 47 behind it
inline constexpr int kLastReservedInFront = 44;
inline constexpr int kFirstReservedBehind = 45;
inline constexpr int kLastReserved = 47;
inline constexpr int kFirstUnspecified = 48;  // 48 to 55 stand in front of a picture, 56 to 63 behind it
inline constexpr int kLastUnspecifiedInFront = 55;
inline constexpr int kFirstUnspecifiedBehind = 56;
inline constexpr int kLastType = 63;
inline constexpr int kDolbyVisionRpu = 62;
inline constexpr int kDolbyVisionLayer = 63;
}  // namespace hevc

// payloadType of both standards' annex D.
namespace sei {
inline constexpr int kBufferingPeriod = 0;
inline constexpr int kPictureTiming = 1;
inline constexpr int kRegisteredUserData = 4;
inline constexpr int kUnregisteredUserData = 5;
inline constexpr int kRecoveryPoint = 6;
inline constexpr int kFramePacking = 45;
inline constexpr int kActiveParameterSets = 129;
inline constexpr int kTimeCode = 136;
inline constexpr int kMasteringDisplay = 137;
inline constexpr int kContentLightLevel = 144;
}  // namespace sei

// The bytes of a unit's header.
inline constexpr size_t UnitHeaderBytes(Codec codec) { return codec == Codec::kH264 ? 1 : 2; }

// nal_unit_type of a unit's header; -1 for a unit too short for its header.
int UnitType(Codec codec, ByteSpan unit);
// True for a coded slice of a picture in the base layer and view.
bool IsSlice(Codec codec, int unitType);
bool IsParameterSet(Codec codec, int unitType);
bool IsSps(Codec codec, int unitType);
bool IsSei(Codec codec, int unitType);
bool IsDelimiter(Codec codec, int unitType);
// Of a type that the standards leave to others (tables 7-1).
bool IsUnspecified(Codec codec, int unitType);
// End of sequence, end of stream or bitstream.
bool IsEnd(Codec codec, int unitType);
// True for units that may stand in front of a picture's first slice but not between or behind its slices: the
// first of them behind a picture begins the next access unit.
bool BeginsAccessUnit(Codec codec, int unitType);
// True for units that may stand behind the slices of a picture and not in front of them: ends, filler, suffix
// SEI, and what the standards leave unspecified there.
bool FollowsPicture(Codec codec, int unitType);
// False for HEVC units of a layer above the base layer (nuh_layer_id).
bool IsBaseLayer(Codec codec, ByteSpan unit);
// Whether a slice is the first of its picture: first_mb_in_slice is 0, first_slice_segment_in_pic_flag is 1;
// in both codecs the first bit behind the header.
bool BeginsPicture(Codec codec, ByteSpan slice);

// The published name of a type, as "IDR slice" or "SPS".
std::string UnitTypeName(Codec codec, int unitType);
// The published name of an SEI payload type.
std::string SeiTypeName(int payloadType);

}  // namespace qlnmedia

#endif

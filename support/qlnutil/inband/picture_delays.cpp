// The walk over SEI messages for the delays of picture timing.

#include "qlnutil/inband/picture_delays.h"

#include <algorithm>

#include "qlnutil/bits/bit_reader.h"

namespace qln {
namespace {

constexpr uint32_t kPicTiming = 1;
constexpr uint32_t kHeaderBits = 16;
constexpr uint64_t kLeastBits = 17;                   // behind the last message
constexpr uint32_t kMostBytes = UINT32_MAX / 8 - 64;  // so that 32 bits count every position

// A field whose width in an SPS is `lengthMinus1` + 1 bits; widths that no field has read nothing.
uint32_t ReadWide(BitReader& reader, uint32_t lengthMinus1) {
  const uint32_t length = lengthMinus1 + 1;
  return length <= 64 ? reader.ReadBits(static_cast<int32_t>(length)) : 0;
}

// The number form of payload type and size: groups of 8 bits for as long as a group is 255.
uint64_t ReadCoded(BitReader& reader) {
  uint64_t sum = 0;
  uint32_t group;
  do {
    group = reader.ReadBits(8);
    sum += group;
  } while (group == 255);
  return sum;
}

void SkipDecodingUnits(BitReader& reader, const HevcSpsRecord& sps) {
  const uint32_t countMinus1 = reader.ReadUe();  // num_decoding_units_minus1
  const bool common = reader.ReadBit() != 0;     // du_common_cpb_removal_delay_flag
  if (common) ReadWide(reader, sps.du_cpb_removal_delay_increment_length_minus1);
  for (uint64_t i = 0; i <= countMinus1 && !reader.BitsAtEnd(); ++i) {
    reader.ReadUe();  // num_nalus_in_du_minus1
    if (!common && i < countMinus1) ReadWide(reader, sps.du_cpb_removal_delay_increment_length_minus1);
  }
}

void ReadPicTiming(BitReader& reader, const HevcSpsRecord& sps, PictureDelays* delays) {
  reader.SkipBits(4);                                              // pic_struct, also where it is not there
  if (sps.frame_field_info_present_flag != 0) reader.SkipBits(3);  // source_scan_type, duplicate_flag
  delays->auCpbRemovalDelay = ReadWide(reader, sps.au_cpb_removal_delay_length_minus1);
  delays->picDpbOutputDelay = ReadWide(reader, sps.dpb_output_delay_length_minus1);
  if (sps.sub_pic_hrd_params_present_flag == 0) return;
  ReadWide(reader, sps.dpb_output_delay_du_length_minus1);  // pic_dpb_output_du_delay
  if (sps.sub_pic_cpb_params_in_pic_timing_sei_flag != 0) SkipDecodingUnits(reader, sps);
}

}  // namespace

void ReadPictureDelays(const uint8_t* unit, uint32_t size, const HevcSpsRecord& sps, PictureDelays* delays) {
  const uint32_t bytes = std::min(size, kMostBytes);
  const uint64_t limit = uint64_t{bytes} * 8;
  BitReader reader(unit, bytes, static_cast<uint32_t>(limit), kHeaderBits);
  while (reader.bitPos + kLeastBits <= limit) {
    const uint64_t type = ReadCoded(reader);
    const uint64_t payloadSize = ReadCoded(reader);
    if (type == kPicTiming) {
      ReadPicTiming(reader, sps, delays);
      continue;
    }
    const uint64_t behind = reader.bitPos + payloadSize * 8;
    if (behind >= limit) return;
    reader.bitPos = static_cast<uint32_t>(behind);
  }
}

}  // namespace qln

// The ADTS frame header: one list of fields serves reader and writer.

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/qlnaac.h"

namespace {

struct Field {
  uint32_t QLNAdtsHeader::*word;
  int32_t bits;
};

// adts_fixed_header() and adts_variable_header(), ISO/IEC 13818-7 clauses 6.2.1 and 6.2.2, in order.
constexpr Field kFields[] = {
    {&QLNAdtsHeader::syncword, 12},
    {&QLNAdtsHeader::ID, 1},
    {&QLNAdtsHeader::layer, 2},
    {&QLNAdtsHeader::protection_absent, 1},
    {&QLNAdtsHeader::profile, 2},
    {&QLNAdtsHeader::sampling_frequency_index, 4},
    {&QLNAdtsHeader::private_bit, 1},
    {&QLNAdtsHeader::channel_configuration, 3},
    {&QLNAdtsHeader::original_copy, 1},
    {&QLNAdtsHeader::home, 1},
    {&QLNAdtsHeader::copyright_identification_bit, 1},
    {&QLNAdtsHeader::copyright_identification_start, 1},
    {&QLNAdtsHeader::aac_frame_length, 13},
    {&QLNAdtsHeader::adts_buffer_fullness, 11},
    {&QLNAdtsHeader::number_of_raw_data_blocks_in_frame, 2},
};

constexpr int32_t kCrcBits = 16;

// The published condition is the opposite one; hosts rely on this.
bool HasCrc(const QLNAdtsHeader& header) { return header.protection_absent != 0; }

}  // namespace

int32_t qlnutilReadADTS(QLNBitState* state, QLNAdtsHeader* header) {
  qln::BitReader reader(*state);
  for (const Field& field : kFields) header->*field.word = reader.ReadBits(field.bits);
  if (HasCrc(*header)) header->crc_check = reader.ReadBits(kCrcBits);
  state->bitPos = reader.bitPos;
  return 0;
}

int32_t qlnutilWriteADTS(QLNBitState* state, const QLNAdtsHeader* header) {
  qln::BitWriter writer(*state);
  for (const Field& field : kFields) writer.WriteBits(field.bits, header->*field.word);
  if (HasCrc(*header)) writer.WriteBits(kCrcBits, header->crc_check);
  state->bitPos = static_cast<uint32_t>(writer.bitPos);
  return 0;
}

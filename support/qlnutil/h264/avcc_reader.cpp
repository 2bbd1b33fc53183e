// Reads the avcC box (ISO/IEC 14496-15) and hands out its first SPS and PPS.

#include <algorithm>
#include <cstring>

#include "kxutil/kxutil.h"
#include "qlnutil/h264/avcc.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/h264/pps_syntax.h"
#include "qlnutil/h264/start_code.h"

namespace qln {

namespace {

constexpr uint32_t kFailed = 0xFFFFFFFFu;
constexpr uint32_t kPastLimit = 0xFFFFFFFFu;  // a number whose bits run past the box
constexpr uint32_t kLongestPps = 512;
constexpr uint32_t kUntoldBoxSize = 512;

// Box size to AVCLevelIndication and lengthSizeMinusOne, then the count of SPS.
constexpr uint32_t kHeaderSize = 14;
constexpr uint32_t kExtensionSize = 4;

// Profiles whose box has the extension header. 144 is not 244, and stays.
constexpr bool HasExtension(uint32_t profile_idc) {
  return profile_idc == 100 || profile_idc == 110 || profile_idc == 122 || profile_idc == 144;
}

// The first set of one kind, as parsed.
template <class Record>
struct FirstSet {
  bool found = false;
  Record record;
};

// Copies one unit out of the box and parses it. Bytes past the box are 0xFF. False without memory.
template <class Record, class Reader>
bool ReadSet(BitReader& bits, uint32_t length, Reader reader, FirstSet<Record>* first) {
  PrivateCopy unit(length);
  if (!unit.ok()) return false;
  for (uint32_t i = 0; i < length; ++i) unit.data()[i] = static_cast<uint8_t>(bits.ReadBits(8));
  std::memset(&first->record, 0, sizeof first->record);
  uint32_t bitPos = 0;
  first->found = reader(UnitBytes{unit.data(), length, length}, length * 8, &bitPos, &first->record);
  return first->found;
}

// The one entry that is read behind the extension header, taken for the tail of a PPS. Nothing of it is kept.
void ReadExtensionEntry(BitReader& bits) {
  H264SetReader coder{{bits}};
  H264PpsRecord entry;
  std::memset(&entry, 0, sizeof entry);
  coder.Flag(entry.transform_8x8_mode_flag);
  coder.Flag(entry.pic_scaling_matrix_present_flag);
  if (entry.pic_scaling_matrix_present_flag != 0) {
    ScalingListsSyntax(coder, entry, entry.pic_scaling_list_present_flag,
                       entry.transform_8x8_mode_flag != 0 ? 8 : 6);
  }
  coder.Se(entry.second_chroma_qp_index_offset);
  bits.bitPos = coder.bits.bitPos;
}

// The extension header: chroma format and depths, then the count of entries.
void ReadExtension(BitReader& bits) {
  bits.SkipBits(24);
  uint32_t count = bits.ReadBits(8);
  if (count > 1) {
    ErrOut("Extended pps_count %d. Ignoring", static_cast<int>(count));
    count = 1;
  }
  if (count == 1) ReadExtensionEntry(bits);
}

uint32_t ReadBox(BitReader& bits, H264SpsRecord* sps, H264PpsRecord* pps) {
  const uint32_t start = bits.bitPos;
  if (bits.ReadBits(32) == 0) {
    bits.bitPos = start;
    return kFailed;
  }
  // Type, version, profile, compatibility, level and the size of lengths: read and not tested.
  bits.SkipBits(32 + 8 + 8 + 8 + 8 + 8);
  const uint32_t spsCount = bits.ReadBits(8) & 0x1Fu;

  // Sets behind the first of a kind cannot change a result, so they are stepped over.
  FirstSet<H264SpsRecord> firstSps;
  for (uint32_t i = 0; i < spsCount; ++i) {
    const uint32_t length = bits.ReadBits(16);
    if (length == 0) return kFailed;
    if (length == kPastLimit) break;
    if (firstSps.found) {
      bits.SkipBits(length * 8);
    } else if (!ReadSet(bits, length, ReadSps, &firstSps)) {
      return kFailed;
    }
  }

  FirstSet<H264PpsRecord> firstPps;
  const uint32_t ppsCount = bits.ReadBits(8);
  for (uint32_t i = 0; i < ppsCount && !bits.BitsAtEnd(); ++i) {
    const uint32_t length = bits.ReadBits(16);
    if (length > kLongestPps) break;
    if (firstPps.found) {
      bits.SkipBits(length * 8);
    } else {
      ReadSet(bits, length, ReadPps, &firstPps);  // needs no memory for a set of that length
    }
  }

  if (firstSps.found && HasExtension(firstSps.record.profile_idc) &&
      uint64_t{bits.bitPos} + 8 * kExtensionSize <= bits.bitLength) {
    ReadExtension(bits);
  }
  if (firstSps.found && sps != nullptr) *sps = firstSps.record;
  if (firstPps.found && pps != nullptr) *pps = firstPps.record;
  return 0;
}

// Steps over sets of one kind, each behind its 2-byte length, up to `most`. False where the walk ends early.
bool StepOverSets(const uint8_t* box, uint32_t count, uint32_t longest, uint32_t most, uint32_t* at) {
  for (uint32_t i = 0; i < count; ++i) {
    if (*at + 2 > most) return false;
    const uint32_t length = uint32_t{box[*at]} << 8 | box[*at + 1];
    *at += 2;
    if (length > longest) return true;
    *at = std::min(*at + length, most);
  }
  return true;
}

// The bytes of a box that its own counts and lengths call for, at most `most`: to the end of its sets, and
// the extension header where the first SPS asks for it and the box's own size holds it.
uint32_t BytesToFetch(const uint8_t* box, uint32_t most) {
  const uint32_t boxSize = LoadBigEndian32(box);
  if (boxSize == 0) return 4;
  uint32_t at = kHeaderSize;
  const uint32_t spsCount = box[kHeaderSize - 1] & 0x1Fu;
  for (uint32_t i = 0; i < spsCount; ++i) {
    const uint32_t lengthAt = at;
    if (!StepOverSets(box, 1, 0xFFFF, most, &at)) return most;
    if (box[lengthAt] == 0 && box[lengthAt + 1] == 0) return at;  // refused there
  }
  if (at >= most) return most;
  const uint32_t ppsCount = box[at++];
  if (!StepOverSets(box, ppsCount, kLongestPps, most, &at)) return most;
  const uint32_t firstSps = kHeaderSize + 2;
  if (spsCount == 0 || (box[kHeaderSize] == 0 && box[kHeaderSize + 1] == 1)) return at;
  if (!HasExtension(box[firstSps + 1]) || boxSize <= at) return at;
  return std::min({at + kExtensionSize, boxSize, most});
}

}  // namespace

uint32_t ReadAvccOfUnknownLength(const uint8_t* box, H264SpsRecord* sps, H264PpsRecord* pps) {
  uint8_t copy[kUntoldBoxSize] = {};
  std::memcpy(copy, box, BytesToFetch(box, kUntoldBoxSize));
  BitReader bits(copy, sizeof copy, sizeof copy * 8);
  return ReadBox(bits, sps, pps);
}

}  // namespace qln

uint32_t qlnutilReadAvcc(QLNBitState* state, H264SpsRecord* sps, H264PpsRecord* pps) {
  const uint64_t bytes = static_cast<uint64_t>(std::max(state->size, 0));
  qln::BitReader bits(state->data, bytes, state->bitLength, state->bitPos);
  const uint32_t result = qln::ReadBox(bits, sps, pps);
  state->bitPos = bits.bitPos;
  return result;
}

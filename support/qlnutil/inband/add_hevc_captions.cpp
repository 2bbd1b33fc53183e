// Captions into HEVC frames: a prefix SEI unit in front of the first slice or SEI for which there is room.

#include "kxutil/kxutil.h"
#include "nalstream/nalstream.h"
#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/inband/frame_insert.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlninband.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

constexpr uint32_t kTimeCodeSection = 5;  // bytes of the packet's time code section
constexpr uint32_t kLongestUnit = 1024;

// Start code, NAL header of a prefix SEI, payload type and size, ATSC user data up to user_data_type_code.
constexpr uint8_t kUnitHead[] = {0, 0, 0, 1, 0x4E, 0x01, 0x04, 0, 0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03};
constexpr uint32_t kUnitSize = 7;  // offset of the payload size

// cc_count of the packet, which stands in front of the triplets, cut to those that are there.
uint32_t TripletCount(const DFrame& frame, uint32_t tripletsAt) {
  const uint32_t size = frame.captionSize;
  BitReader reader(frame.captionData, size, size * 8, (tripletsAt - 1) * 8);
  reader.SkipBits(3);
  const uint32_t count = reader.ReadBits(5);
  const uint32_t fitting = size > tripletsAt ? (size - tripletsAt) / 3 : 0;
  if (count <= fitting) return count;
  ErrOut("\nCC count is wrong %d actual %d", count, fitting);
  return fitting;
}

// Builds the SEI unit of the frame's caption packet at `unit`, which has room for kLongestUnit bytes. Returns
// its length, 0 for none.
uint32_t BuildUnit(const DFrame& frame, uint8_t* unit) {
  if (frame.captionSize < 4 || frame.captionSize == 0xFFFFFFFFu) {
    ErrOut("No SEI CC data size is %d", frame.captionSize);
    return 0;
  }
  if (CheckCaptionPacketOf(frame) != 0) return 0;
  const bool timeCode = (frame.captionData[kPacketFlags] & 0x80u) != 0;
  const uint32_t tripletsAt = kPacketTriplets + (timeCode ? kTimeCodeSection : 0);
  const uint32_t count = TripletCount(frame, tripletsAt);

  uint8_t scratch[512] = {};
  QLNBitState source{scratch, sizeof scratch, sizeof scratch * 8, 0};
  BitWriter writer(scratch, sizeof scratch);
  writer.WriteBytes(kUnitHead, sizeof kUnitHead);
  writer.WriteBits(8, 0xC0u | count);  // process_cc_data_flag, cc_count
  writer.WriteBits(8, 0xFF);           // em_data
  writer.WriteBytes(frame.captionData + tripletsAt, 3 * count);
  writer.WriteBits(8, 0xFF);  // marker_bits
  source.bitPos = static_cast<uint32_t>(writer.bitPos);

  QLNBitState destination{unit, kLongestUnit, kLongestUnit * 8, 0};
  WriteSeiPacket(&source, &destination, kUnitSize, false);
  return destination.bitPos / 8;
}

bool TakesCaptionsInFront(uint32_t type) { return IsHevcSlice(type) || type == kHevcNalPrefixSei; }

// Offset of the start code in front of which `length` bytes go; false if there is no such place.
bool FindPlace(const DFrame& frame, uint32_t length, uint32_t* place) {
  if (uint64_t{frame.frameSize} + length >= frame.frameCapacity) return false;
  UnitWalk walk(frame.frameData, frame.frameSize);
  while (walk.Next()) {
    if (!TakesCaptionsInFront(HevcUnitType(*walk.unit()))) continue;
    *place = static_cast<uint32_t>(walk.code() - frame.frameData);
    return true;
  }
  return false;
}

}  // namespace
}  // namespace qln

uint32_t qlnUtilAddHevcCaptions(DFrame* frame, uint32_t /*reserved*/) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr) return 0;
  uint8_t unit[kLongestUnit];
  const uint32_t length = BuildUnit(*frame, unit);
  if (length == 0) {
    ErrOutLocated("Sei cc not added Length %d %s %d", length);
    return 0;
  }
  uint32_t place;
  if (!FindPlace(*frame, length, &place)) return 0;
  InsertBytes(frame, place, unit, length);
  if ((frame->fieldFlags & QLN_TWO_FIELDS) == QLN_TWO_FIELDS && place < frame->secondFieldOffset) {
    frame->secondFieldOffset += length;
  }
  return length;
}

// Timecode into frames with start codes: a pic_timing SEI for H.264, a time_code SEI for HEVC.

#include <algorithm>
#include <iterator>

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/h264/start_code.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/inband/frame_insert.h"
#include "qlnutil/inband/frame_timecode.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kAvcSmallestFrame = 8;
constexpr uint32_t kAvcRoomAskedFor = 48;
constexpr std::ptrdiff_t kAvcLeastLeft = 6;  // bytes that must be left where the walk looks
constexpr uint8_t kPicTiming = 1;
constexpr uint8_t kAvcSei = 6;
constexpr uint8_t kAvcSps = 7;

struct AvcScan {
  uint32_t place = 0;  // offset of the start code of the first slice; 0 for none
  bool spsSeen = false;
  bool spsRead = false;
  H264SpsRecord sps = {};
};

// Reads the SPS that begins at `unit` and ends in front of the next start code.
void ReadSps(const uint8_t* unit, const uint8_t* end, AvcScan* scan) {
  const uint8_t* behind = FindShortStartCode(unit, end);
  if (behind != end && behind[-1] == 0) --behind;
  const auto size = static_cast<int32_t>(std::min<std::ptrdiff_t>(behind - unit, INT32_MAX / 8));
  if (size <= 3) return;
  QLNBitState state{const_cast<uint8_t*>(unit), size, static_cast<uint32_t>(size) * 8, 0};
  scan->spsRead = qlnutilRead_SPS(&state, &scan->sps) != 0;
}

// Walks to the first slice and reads the first SPS on the way. False when the frame has no slice, or has
// picture timing already.
bool ScanAvcFrame(const DFrame& frame, AvcScan* scan) {
  const uint8_t* const begin = frame.frameData;
  const uint8_t* const end = begin + frame.frameSize;
  for (const uint8_t* p = begin; (p = FindShortStartCode(p, end)) != end; p += 3) {
    const uint8_t* const code = p > begin && p[-1] == 0 ? p - 1 : p;
    if (end - code < kAvcLeastLeft) return false;
    const uint8_t* const unit = p + 3;
    switch (unit[0] & 0x1F) {
      case kAvcSps:
        if (!scan->spsSeen) ReadSps(unit, end, scan);
        scan->spsSeen = true;
        break;
      case kAvcSei:
        if (unit[1] == kPicTiming) return false;
        break;
      case 1:
      case 5:
        scan->place = static_cast<uint32_t>(code - begin);
        return true;
      default:
        break;
    }
  }
  return false;
}

uint32_t WriteAvcPicTiming(uint8_t (&output)[256], const TimeDigits& digits, uint8_t tcType) {
  uint8_t scratch[32] = {};
  BitWriter writer(scratch, sizeof scratch);
  // Start code, NAL header, payload type and size.
  constexpr uint8_t kHead[] = {0, 0, 0, 1, kAvcSei, kPicTiming, 0};
  writer.WriteBytes(kHead, sizeof kHead);
  writer.WriteBits(4, 0);                             // pic_struct: frame
  writer.WriteBits(1, 1);                             // clock_timestamp_flag
  writer.WriteBits(2, 0);                             // ct_type
  writer.WriteBits(1, 0);                             // nuit_field_based_flag
  writer.WriteBits(5, SkipsNumbers(tcType) ? 4 : 0);  // counting_type
  writer.WriteBits(1, 1);                             // full_timestamp_flag
  writer.WriteBits(1, 0);                             // discontinuity_flag
  writer.WriteBits(1, 0);                             // cnt_dropped_flag
  writer.WriteBits(8, digits.frames);                 // n_frames
  writer.WriteBits(6, digits.seconds);                // seconds_value
  writer.WriteBits(6, digits.minutes);                // minutes_value
  writer.WriteBits(5, digits.hours);                  // hours_value
  QLNBitState source{scratch, sizeof scratch, sizeof scratch * 8, static_cast<uint32_t>(writer.bitPos)};
  QLNBitState destination{output, sizeof output, sizeof output * 8, 0};
  WriteSeiPacket(&source, &destination, sizeof kHead - 1, false);
  return destination.bitPos / 8;
}

constexpr uint32_t kHevcScanEnd = 4096;
constexpr uint8_t kTimeCodePayload = 136;
constexpr uint8_t kDelimiterCode[] = {0, 0, 0, 1, 0x46};
constexpr uint32_t kDelimiterSize = 7;

// Offset at which the time_code SEI goes in. False when the frame has one.
bool FindHevcPlace(const DFrame& frame, uint32_t* place) {
  const uint8_t* const data = frame.frameData;
  const uint32_t limit = std::min(frame.frameSize, kHevcScanEnd);
  uint32_t noted = 0;  // which counts as none
  for (const uint8_t* p = data; (p = FindLongStartCode(p, data + limit)) != data + limit; p += 4) {
    const auto at = static_cast<uint32_t>(p - data);
    if (limit - at < 5) break;
    const uint32_t type = p[4] >> 1;  // with forbidden_zero_bit, which makes it no type
    const bool slice = IsHevcSlice(type);
    if (!slice && type != kHevcNalPrefixSei) continue;
    if (!slice && limit - at >= 7 && p[6] == kTimeCodePayload) return false;
    if (noted == 0) noted = at;
    if (slice) break;
  }
  const bool delimiter = frame.frameSize >= sizeof kDelimiterCode &&
                         std::equal(std::begin(kDelimiterCode), std::end(kDelimiterCode), data);
  *place = noted == 0 && delimiter ? kDelimiterSize : noted;
  return true;
}

}  // namespace
}  // namespace qln

uint32_t qlnutilAddAVCTimeCode(DFrame* frame, uint8_t tcType) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr) return 0;
  if (frame->frameSize < kAvcSmallestFrame ||
      uint64_t{frame->frameSize} + kAvcRoomAskedFor >= frame->frameCapacity) {
    return 0;
  }
  AvcScan scan;
  if (!ScanAvcFrame(*frame, &scan) || scan.place == 0) return 0;
  // Streams with HRD parameters are left alone: the delays that pic_timing would then need are not known.
  if (!scan.spsRead || scan.sps.pic_struct_present_flag == 0 ||
      scan.sps.nal_hrd_parameters_present_flag != 0 || scan.sps.vcl_hrd_parameters_present_flag != 0) {
    return 0;
  }
  uint8_t unit[256] = {};
  const uint32_t length = WriteAvcPicTiming(unit, DigitsOf(FrameTimeCode(*frame), tcType), tcType);
  InsertBytes(frame, scan.place, unit, length);
  frame->frameSize += length;
  return length;
}

uint32_t qlnutilAddHEVCTimeCode(DFrame* frame, uint8_t tcType) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr) return 0;
  uint32_t place;
  if (!FindHevcPlace(*frame, &place) || place > frame->frameSize) return 0;
  uint8_t unit[kTimingSeiRoom] = {};
  const uint32_t length = WriteTimeCodeUnit(unit, FrameTimeCode(*frame), tcType, false);
  InsertBytes(frame, place, unit, length);
  frame->frameSize += length;
  frame->secondFieldOffset += length;
  return 0;
}

uint32_t qlnUtilAddSeiATC(uint8_t* output, uint8_t flags) {
  using namespace qln;
  if (output == nullptr) return 0;
  // Start code, NAL header of a prefix SEI, payload type and size, registered user data "DTG1".
  uint8_t scratch[24] = {0,    0, 0,    1,   0x4E, 0x01, 0x04, 0x07,
                         0xB5, 0, 0x31, 'D', 'T',  'G',  '1',  static_cast<uint8_t>((flags & 0x0Eu) | 1u)};
  QLNBitState source{scratch, sizeof scratch, sizeof scratch * 8, 16 * 8};
  QLNBitState destination{output, 0, 0, 0};
  WriteSeiPacket(&source, &destination, 7, false);
  return destination.bitPos / 8;
}

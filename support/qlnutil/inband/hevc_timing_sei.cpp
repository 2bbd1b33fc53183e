// Building the HEVC timing SEI units, field by field.

#include "qlnutil/inband/hevc_timing_sei.h"

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/inband/frame_timecode.h"

namespace qln {
namespace {

constexpr uint32_t kUnitSize = 7;  // offset of the payload size
constexpr uint32_t kUnitHeadBytes = 8;

// A unit under way: the head written, the payload to come.
class Unit {
 public:
  explicit Unit(uint8_t payloadType) : writer_(scratch_, sizeof scratch_) {
    // Start code, NAL header of a prefix SEI, payload type and size.
    const uint8_t head[kUnitHeadBytes] = {0, 0, 0, 1, 0x4E, 0x01, payloadType, 0};
    writer_.WriteBytes(head, sizeof head);
  }

  void u(int32_t bits, uint32_t value) { writer_.WriteBits(bits, value); }

  uint32_t Finish(uint8_t* output) {
    QLNBitState source{scratch_, sizeof scratch_, sizeof scratch_ * 8, static_cast<uint32_t>(writer_.bitPos)};
    QLNBitState destination{output, kTimingSeiRoom, kTimingSeiRoom * 8, 0};
    WriteSeiPacket(&source, &destination, kUnitSize, false);
    return destination.bitPos / 8;
  }

 private:
  uint8_t scratch_[40] = {};  // 8 bytes of head, at most 135 bits of payload, trailing bits
  BitWriter writer_;
};

// counting_type of table D.2
uint32_t CountingType(uint8_t tcType) {
  if (tcType == kTcDropFrame) return 4;
  return tcType == kTc59_94 ? 6 : 0;
}

uint8_t TimeCodeTypeOf(const HevcSpsRecord& sps) {
  const bool fieldMark = sps.aspect_ratio_idc != 0 && sps.sar_height == 2;
  const uint32_t rate = sps.vui_num_units_in_tick == 0 ? 0 : sps.vui_time_scale / sps.vui_num_units_in_tick;
  switch (rate) {
    case 23:
    case 24:
      return kTcFilm;
    case 25:
      return kTcPal;
    case 30:
      return kTcNonDropFrame;
    case 50:
      return fieldMark ? kTcPal : kTc50;
    case 59:
      return fieldMark ? kTcDropFrame : kTc59_94;
    case 60:
      return fieldMark ? kTcNonDropFrame : kTc60;
    default:
      return kTcDropFrame;
  }
}

void WriteDelay(Unit& unit, uint32_t lengthMinus1, uint32_t delay) {
  const uint32_t length = lengthMinus1 + 1;
  if (length <= 64) unit.u(static_cast<int32_t>(length), delay);
}

}  // namespace

uint32_t WriteTimeCodeUnit(uint8_t* output, uint32_t frameCount, uint8_t tcType, bool fieldUnits) {
  const TimeDigits before = DigitsOf(frameCount == 0 ? 0 : frameCount - 1, tcType);
  const TimeDigits now = DigitsOf(frameCount, tcType);
  const uint32_t countingType = CountingType(tcType);
  // Not the usual test, for which a drop falls on second 0; receivers of these streams know it.
  const bool dropped = countingType != 0 && before.minutes != now.minutes && now.seconds != 0;

  Unit unit(136);
  unit.u(2, 1);                   // num_clock_ts
  unit.u(1, 1);                   // clock_timestamp_flag
  unit.u(1, fieldUnits ? 1 : 0);  // units_field_based_flag
  unit.u(5, countingType);        // counting_type
  unit.u(1, 1);                   // full_timestamp_flag
  unit.u(1, 0);                   // discontinuity_flag
  unit.u(1, dropped ? 1 : 0);     // cnt_dropped_flag
  unit.u(9, now.frames);          // n_frames
  unit.u(6, now.seconds);         // seconds_value
  unit.u(6, now.minutes);         // minutes_value
  unit.u(5, now.hours);           // hours_value
  unit.u(5, 0);                   // time_offset_length
  return unit.Finish(output);
}

uint32_t WriteHevcTimeCodeSei(uint8_t* output, uint32_t frameCount, const HevcSpsRecord& sps) {
  return WriteTimeCodeUnit(output, frameCount, TimeCodeTypeOf(sps), sps.field_seq_flag != 0);
}

uint32_t WriteHevcPicTiming(uint8_t* output, uint32_t picStruct, uint32_t sourceScanType,
                            const HevcSpsRecord& sps, uint32_t auCpbRemovalDelay,
                            uint32_t picDpbOutputDelay) {
  const bool fieldInfo = sps.frame_field_info_present_flag != 0;
  const bool hrd = sps.nal_hrd_parameters_present_flag != 0 || sps.vcl_hrd_parameters_present_flag != 0;
  if (!fieldInfo && !hrd) return 0;

  Unit unit(1);
  if (fieldInfo) {
    unit.u(4, picStruct);       // pic_struct
    unit.u(2, sourceScanType);  // source_scan_type
    unit.u(1, 0);               // duplicate_flag
  }
  if (hrd) {
    WriteDelay(unit, sps.au_cpb_removal_delay_length_minus1, auCpbRemovalDelay);
    WriteDelay(unit, sps.dpb_output_delay_length_minus1, picDpbOutputDelay);
  }
  return unit.Finish(output);
}

}  // namespace qln

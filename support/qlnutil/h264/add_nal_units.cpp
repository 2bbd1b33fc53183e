// Puts an access unit delimiter, buffering period, picture timing and recovery point in front of a frame.

#include <algorithm>
#include <cstring>

#include "kxutil/kxutil.h"
#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/h264/parameter_sets.h"

namespace qln {

namespace {

// DFrame::frameType.
constexpr uint32_t kIntraFrame = 0x10000000u;
constexpr uint32_t kFirstInterFrame = 0x80000000u;
constexpr uint32_t kSecondInterFrame = 0x20000000u;

// SEI payload types of clause D.1.1.
enum SeiPayload : uint8_t { kBufferingPeriod = 0, kPicTiming = 1, kRecoveryPoint = 6 };

constexpr int32_t kMaxSchedules = 32;  // clause E.2.2: cpb_cnt_minus1 is at most 31
constexpr int32_t kMaxFieldBits = 32;

constexpr size_t kDelimiterSize = 6;
constexpr uint32_t kSizeByte = 6;
// Room for the longest packet: head, an id, two fields of 32 bits for 32 schedules of both HRDs, and what
// the builder puts behind them.
constexpr size_t kPacketRoom = 7 + 16 + 2 * kMaxSchedules * 2 * 4 + 9;
constexpr size_t kOutputRoom = kDelimiterSize + 3 * WorstEscapedSize(kPacketRoom);

// An SEI packet without emulation prevention, from its start code on; the builder sets code and size.
class SeiPacket {
 public:
  explicit SeiPacket(SeiPayload type) : writer_(bytes_, sizeof bytes_) {
    const uint8_t head[] = {0, 0, 0, 1, 6, type, 0};
    writer_.WriteBytes(head, sizeof head);
  }

  BitWriter& bits() { return writer_; }

  // A field of a width that a parameter set gives; widths below 1 write nothing.
  void WriteField(uint32_t width, uint32_t value) {
    writer_.WriteBits(std::min(static_cast<int32_t>(width), kMaxFieldBits), value);
  }

  void AppendTo(QLNBitState* output, bool useLengths) {
    QLNBitState packet{bytes_, sizeof bytes_, sizeof bytes_ * 8, static_cast<uint32_t>(writer_.bitPos)};
    WriteSeiPacket(&packet, output, kSizeByte, useLengths);
  }

 private:
  uint8_t bytes_[kPacketRoom] = {};
  BitWriter writer_;
};

// What goes into the messages.
struct Delays {
  uint32_t initialCpbRemoval;
  uint32_t initialCpbRemovalOffset;
  uint32_t cpbRemoval;
  uint32_t dpbOutput;
};

// access_unit_delimiter_rbsp() of clause 7.3.2.4 with primary_pic_type of Table 7-5; it needs no escape.
void PutDelimiter(uint32_t frameType, uint8_t useLengths, QLNBitState* output) {
  uint8_t picType = 0xF0;
  if (frameType == kIntraFrame) picType = 0x10;
  if (frameType == kFirstInterFrame) picType = 0x30;
  if (frameType == kSecondInterFrame) picType = 0x50;
  const uint8_t delimiter[kDelimiterSize] = {0, 0, 0, static_cast<uint8_t>(useLengths + 1), 9, picType};
  std::memcpy(output->data, delimiter, kDelimiterSize);
  output->bitPos = kDelimiterSize * 8;
}

// One HRD's part of buffering_period(): the same two values for every schedule.
void PutInitialDelays(SeiPacket& packet, const H264HrdRecord& hrd, const Delays& delays) {
  const uint32_t width = hrd.initial_cpb_removal_delay_length_minus1 + 1;
  const int32_t last = std::min(static_cast<int32_t>(hrd.cpb_cnt_minus1), kMaxSchedules - 1);
  for (int32_t i = 0; i <= last; ++i) {
    packet.WriteField(width, delays.initialCpbRemoval);
    packet.WriteField(width, delays.initialCpbRemovalOffset);
  }
}

// buffering_period() of clause D.1.2. vui_parameters_present_flag is not looked at.
void PutBufferingPeriod(const H264SpsRecord& sps, const Delays& delays, bool useLengths,
                        QLNBitState* output) {
  SeiPacket packet(kBufferingPeriod);
  packet.bits().WriteUe(sps.seq_parameter_set_id);
  if (sps.nal_hrd_parameters_present_flag != 0) PutInitialDelays(packet, sps.nal_hrd, delays);
  if (sps.vcl_hrd_parameters_present_flag != 0) PutInitialDelays(packet, sps.vcl_hrd, delays);
  packet.AppendTo(output, useLengths);
}

// One clock timestamp that says nothing about the frame, for decoders that require one.
void PutPicStruct(SeiPacket& packet, uint32_t timeOffsetLength) {
  BitWriter& bits = packet.bits();
  bits.WriteBits(4, 0);  // pic_struct
  bits.WriteBits(1, 1);  // clock_timestamp_flag
  bits.WriteBits(2, 0);  // ct_type
  bits.WriteBits(1, 1);  // nuit_field_based_flag
  bits.WriteBits(5, 3);  // counting_type
  bits.WriteBits(1, 0);  // full_timestamp_flag
  bits.WriteBits(1, 1);  // discontinuity_flag
  bits.WriteBits(1, 0);  // cnt_dropped_flag
  bits.WriteBits(8, 0);  // n_frames
  bits.WriteBits(1, 0);  // seconds_flag
  packet.WriteField(timeOffsetLength, 0);
}

// pic_timing() of clause D.1.3; empty without an SPS.
void PutPicTiming(const H264SpsRecord* sps, const Delays& delays, bool useLengths, QLNBitState* output) {
  SeiPacket packet(kPicTiming);
  if (sps != nullptr) {
    const bool hasNal = sps->nal_hrd_parameters_present_flag != 0;
    if (sps->vui_parameters_present_flag != 0 && (hasNal || sps->vcl_hrd_parameters_present_flag != 0)) {
      const H264HrdRecord& hrd = hasNal ? sps->nal_hrd : sps->vcl_hrd;
      packet.WriteField(hrd.cpb_removal_delay_length_minus1 + 1, delays.cpbRemoval);
      packet.WriteField(hrd.dpb_output_delay_length_minus1 + 1, delays.dpbOutput);
    }
    // The offset's length is the NAL HRD's, also where only a VCL HRD exists.
    if (sps->pic_struct_present_flag != 0) PutPicStruct(packet, sps->nal_hrd.time_offset_length);
  }
  packet.AppendTo(output, useLengths);
}

// recovery_point() of clause D.1.8: recovery at this very frame, no flag set.
void PutRecoveryPoint(bool useLengths, QLNBitState* output) {
  SeiPacket packet(kRecoveryPoint);
  packet.bits().WriteUe(0);
  packet.bits().WriteBits(4, 0);
  packet.AppendTo(output, useLengths);
}

// The SPS as bytes or as a record. False without memory.
bool TakeSps(const void* sps, int32_t length, H264SpsRecord* record) {
  if (length < 0) {
    std::memcpy(record, sps, sizeof *record);
    return true;
  }
  std::memset(record, 0, sizeof *record);
  const uint64_t size = static_cast<uint64_t>(length);
  uint32_t bitPos = 0;
  return ReadSps({static_cast<const uint8_t*>(sps), size, size}, static_cast<uint32_t>(8 * size), &bitPos,
                 record);
}

void ReportNoRoom() { ErrOut("No room for NAL units in DFrame (kxmov2)"); }

// Makes a frame in marker form one in length form. False when its start codes do not fit, widened.
bool ConvertToLengths(DFrame* frame) {
  if (!BeginsWithStartCode(frame->frameData, frame->frameSize)) return true;
  const uint32_t widened = CountWidenedMarkers(frame->frameData, frame->frameSize);
  if (widened != 0 && uint64_t{frame->frameSize} + widened > frame->frameCapacity) return false;
  frame->frameSize = qlnUtilh264MarkerToSize(frame->frameData, frame->frameSize);
  return true;
}

}  // namespace

}  // namespace qln

void qlnutilAddNalUnits(DFrame* frame, const void* sps, int32_t spsLength, uint8_t addDelimiter,
                        uint8_t addPicTiming, uint8_t addRecoveryPoint, uint8_t addBufferingPeriod,
                        uint32_t initialCpbRemovalDelay, uint32_t initialCpbRemovalDelayOffset,
                        uint32_t cpbRemovalDelay, uint32_t dpbOutputDelay, uint8_t useLengths) {
  if (frame == nullptr || frame->frameData == nullptr) return;
  const bool lengths = useLengths != 0;
  if (lengths && !qln::ConvertToLengths(frame)) {
    qln::ReportNoRoom();
    return;
  }

  H264SpsRecord record;
  const bool wantsSei = addPicTiming != 0 || addRecoveryPoint != 0 || addBufferingPeriod != 0;
  const bool hasSps = sps != nullptr && spsLength != 0 && wantsSei;
  if (hasSps && !qln::TakeSps(sps, spsLength, &record)) return;

  uint8_t bytes[qln::kOutputRoom] = {};
  QLNBitState output{bytes, sizeof bytes, sizeof bytes * 8, 0};
  const qln::Delays delays{initialCpbRemovalDelay, initialCpbRemovalDelayOffset, cpbRemovalDelay,
                           dpbOutputDelay};
  const bool intra = frame->frameType == qln::kIntraFrame;
  if (addDelimiter != 0) qln::PutDelimiter(frame->frameType, useLengths, &output);
  if (addBufferingPeriod != 0 && hasSps && intra) {
    qln::PutBufferingPeriod(record, delays, lengths, &output);
  }
  if (addPicTiming != 0) qln::PutPicTiming(hasSps ? &record : nullptr, delays, lengths, &output);
  if (addRecoveryPoint != 0 && hasSps && intra) qln::PutRecoveryPoint(lengths, &output);

  const uint32_t added = output.bitPos / 8;
  if (added == 0) return;
  if (frame->frameCapacity < uint64_t{frame->frameSize} + added) {
    qln::ReportNoRoom();
    return;
  }
  std::memmove(frame->frameData + added, frame->frameData, frame->frameSize);
  std::memcpy(frame->frameData, bytes, added);
  frame->frameSize += added;
}

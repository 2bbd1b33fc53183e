// HDR metadata into frames: one SEI unit in front of the first slice, for H.264 and HEVC alike.

#include "kxutil/kxutil.h"
#include "qlnutil/bits/sei_packet.h"
#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/inband/codec_form.h"
#include "qlnutil/inband/frame_insert.h"
#include "qlnutil/inband/marker_copy.h"
#include "qlnutil/inband/mastering_display.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kUnitRoom = 84;  // the longest unit has 39 bytes before emulation prevention

uint32_t BuildUnit(const DFrame& frame, CodecForm form, uint8_t (&unit)[kUnitRoom]) {
  uint8_t scratch[kUnitRoom] = {};
  BitWriter writer(scratch, sizeof scratch);
  writer.WriteBits(32, 1);  // start code
  if (form == CodecForm::kHevc) {
    writer.WriteBits(16, 0x4E01);  // NAL header: prefix SEI, layer 0, temporal id 0
  } else {
    writer.WriteBits(8, 0x06);  // NAL header: SEI
  }
  if ((frame.colorFlags & QLN_COLOR_MASTERING) == QLN_COLOR_MASTERING) {
    writer.WriteBits(8, kMasteringDisplayPayload);
    writer.WriteBits(8, kMasteringDisplayBytes);
    WriteMasteringDisplay(writer, frame);
  }
  const bool maxCll = (frame.colorFlags & QLN_COLOR_MAX_CLL) != 0;
  const bool maxFall = (frame.colorFlags & QLN_COLOR_MAX_FALL) != 0;
  if (maxCll || maxFall) {
    writer.WriteBits(8, kContentLightPayload);
    writer.WriteBits(8, kContentLightBytes);
    writer.WriteBits(16, maxCll ? LightLevelUnits(frame.maxContentLightLevel) : 0);
    writer.WriteBits(16, maxFall ? LightLevelUnits(frame.maxFrameAverageLightLevel) : 0);
  }
  QLNBitState source{scratch, sizeof scratch, sizeof scratch * 8, static_cast<uint32_t>(writer.bitPos)};
  QLNBitState destination{unit, sizeof unit, sizeof unit * 8, 0};
  WriteSeiPacket(&source, &destination, kNoSizeByte, false);
  return destination.bitPos / 8;
}

bool IsSlice(uint8_t header, CodecForm form) {
  if (form == CodecForm::kHevc) return (header & 0x7Eu) <= 42;  // types 0 to 21
  const uint32_t type = header & 0x1Fu;
  return type >= 1 && type <= 5;
}

// Offset of the start code of the first slice; false if there is none.
bool FindFirstSlice(const uint8_t* data, uint32_t size, CodecForm form, uint32_t* place) {
  UnitWalk walk(data, size, kSmallestFrame);
  while (walk.Next()) {
    if (!IsSlice(*walk.unit(), form)) continue;
    *place = static_cast<uint32_t>(walk.code() - data);
    return true;
  }
  return false;
}

void ReportNoRoom() { ErrOut("No room to Add HDR SEI to dframe"); }

uint32_t InsertIntoMarkerForm(DFrame* frame, CodecForm form, const uint8_t* unit, uint32_t length) {
  qlnUtilh264SizeToMarker(frame->frameData, frame->frameSize);
  uint32_t place;
  if (!FindFirstSlice(frame->frameData, frame->frameSize, form, &place)) return 0;
  InsertBytes(frame, place, unit, length);
  frame->frameSize += length;
  return length;
}

uint32_t InsertIntoLengthForm(DFrame* frame, CodecForm form, const uint8_t* unit, uint32_t length) {
  MarkerCopy copy(*frame, length);
  if (!copy.ok()) return 0;
  DFrame edited = *frame;
  edited.frameData = copy.data();
  uint32_t place;
  uint32_t inserted = 0;
  if (FindFirstSlice(edited.frameData, edited.frameSize, form, &place)) {
    InsertBytes(&edited, place, unit, length);
    inserted = length;
  }
  if (copy.PutBack(frame, frame->frameSize + inserted)) return inserted;
  ReportNoRoom();
  return 0;
}

}  // namespace
}  // namespace qln

uint64_t qlnutilWrite_HDR_WCG_SEI_Packet(DFrame* frame, uint32_t fourcc) {
  using namespace qln;
  const CodecForm form = CodecFormOf(fourcc, false);
  if (frame == nullptr || frame->frameData == nullptr || frame->frameSize < kSmallestFrame ||
      form == CodecForm::kNone || (frame->colorFlags & kHdrFlags) == 0) {
    return 0;
  }
  uint8_t unit[kUnitRoom] = {};
  const uint32_t length = BuildUnit(*frame, form, unit);
  if (frame->frameCapacity < uint64_t{frame->frameSize} + length) {
    ReportNoRoom();
    return 0;
  }
  return BeginsWithStartCode(frame->frameData, frame->frameSize)
             ? InsertIntoMarkerForm(frame, form, unit, length)
             : InsertIntoLengthForm(frame, form, unit, length);
}

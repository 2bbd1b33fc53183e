// Frames and sets for the tests of the interlace rewrite, and one rewrite of a frame.
#ifndef TESTS_INBAND_INTERLACE_SUPPORT_H
#define TESTS_INBAND_INTERLACE_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hevc/unit_builders.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"

namespace qln::test {

inline const Bytes kInterSlice = WithStartCode(Hex("02 01 D0 11 22 33 44"));

// Source flags of the profile: progressive, interlaced, non-packed, frame-only in the four top bits of 48.
inline constexpr uint64_t kProgressive = 0x900000000000;
inline constexpr uint64_t kInterlaced = 0x400000000000;

inline VpsParts VpsOf(uint64_t constraints) {
  VpsParts parts;
  parts.profile.constraints = constraints;
  return parts;
}

struct SpsForm {
  uint64_t constraints = kProgressive;
  uint32_t width = 1920, height = 1080;
  bool vui = true;
  bool sar = false;  // 1:2, extended
  bool description = true;
  uint32_t primaries = 1, transfer = 1, matrix = 1;
  uint32_t fieldSeq = 0, fieldInfo = 0;
  int window = -1;  // bottom offset, -1 for no window
  bool hrd = false, timing = false;
};

inline Bytes SpsOf(const SpsForm& form) {
  SpsParts parts;
  parts.profile.constraints = form.constraints;
  parts.width = form.width;
  parts.height = form.height;
  parts.window = [=](BitBuilder& b) {
    b.u(1, form.window >= 0 ? 1 : 0);
    if (form.window >= 0) b.ue(0).ue(0).ue(0).ue(static_cast<uint32_t>(form.window));
  };
  parts.vui = [=](BitBuilder& b) {
    b.u(1, form.vui ? 1 : 0);
    if (!form.vui) return;
    b.u(1, form.sar ? 1 : 0);
    if (form.sar) b.u(8, 255).u(16, 1).u(16, 2);
    b.u(1, 0).u(1, form.description ? 1 : 0);
    if (form.description)
      b.u(3, 0).u(1, 0).u(1, 1).u(8, form.primaries).u(8, form.transfer).u(8, form.matrix);
    b.u(1, 0).u(1, 0).u(1, form.fieldSeq).u(1, form.fieldInfo).u(1, 0);
    b.u(1, form.hrd || form.timing ? 1 : 0);
    if (form.hrd || form.timing) {
      b.u(32, 0x11111111).u(32, 0x22222222).u(1, 0).u(1, form.hrd ? 1 : 0);
      // nal and vcl, sub-picture, scales, lengths; one fixed-rate sub-layer with one buffer each.
      if (form.hrd) {
        b.u(2, 3).u(1, 0).u(4, 1).u(4, 2).u(5, 23).u(5, 15).u(5, 7).u(1, 1).ue(0).ue(0);
        for (int i = 0; i < 2; ++i) b.ue(99).ue(77).u(1, 0);
      }
    }
    b.u(1, 0);
  };
  return WithStartCode(Escaped(Sps(parts)));
}

inline Bytes VpsUnit(uint64_t constraints) { return WithStartCode(Escaped(Vps(VpsOf(constraints)))); }

inline Bytes PpsUnit() {
  PpsParts parts;  // offsets without positive values, which do not survive
  return WithStartCode(Escaped(Pps(parts)));
}

inline HevcSpsRecord Host() {
  HevcSpsRecord sps = {};
  sps.frame_field_info_present_flag = 1;
  sps.vui_time_scale = 25;
  sps.vui_num_units_in_tick = 1;
  sps.transfer_characteristics = 1;
  return sps;
}

struct Result {
  uint32_t count;
  Bytes frame;
  uint32_t secondFieldOffset;
  std::vector<std::string> messages;
};

struct Situation {
  HevcSpsRecord host = Host();
  int secondField = -1;              // offset of the second field, -1 for a frame of one
  uint32_t fieldFlags = 0x60000;     // of the source, where there is one
  uint32_t frameType = 0x80000000u;  // of the destination
  uint32_t sourceColor = 0, destinationColor = 0;
  uint32_t capacity = 0;  // told for the destination; 0 trusts it
};

inline Result Rewrite(const Bytes& bytes, const Situation& setup = {}) {
  TestFrame source(bytes, bytes.size());
  source->timeCodeA = 77;
  source->colorFlags = setup.sourceColor;
  if (setup.secondField >= 0) {
    source->fieldFlags = setup.fieldFlags;
    source->secondFieldOffset = static_cast<uint32_t>(setup.secondField);
  }
  TestFrame destination({}, setup.capacity != 0 ? setup.capacity : bytes.size() + 400);
  destination->frameCapacity = setup.capacity;
  destination->timeCodeA = 26;
  destination->frameType = setup.frameType;
  destination->colorFlags = setup.destinationColor;
  destination->secondFieldOffset = 0xABCD;
  MessageCapture capture;
  const uint32_t count = qlnutilSetFrameInterlaced(source.get(), destination.get(), &setup.host, 5);
  EXPECT_EQ(source.bytes(), bytes);
  return {count, destination.bytes(), destination->secondFieldOffset, capture.texts()};
}

// pic_timing without HRD, and the timecode 26 at 25 of the destination.
inline Bytes Timing(uint32_t picStruct, uint32_t scanType) {
  BitBuilder bits;
  bits.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 1).u(4, picStruct).u(2, scanType).u(1, 0).trailing().trailing();
  return bits.bytes();
}

inline Bytes TimeCode() {
  BitBuilder bits;
  bits.u(2, 1)
      .u(1, 1)
      .u(1, 0)
      .u(5, 0)
      .u(1, 1)
      .u(1, 0)
      .u(1, 0)
      .u(9, 1)
      .u(6, 1)
      .u(6, 0)
      .u(5, 0)
      .u(5, 0)
      .trailing();
  Bytes payload = bits.bytes();
  payload.push_back(0x80);
  return Join({Hex("00 00 00 01"), Escaped(Join({Hex("4E 01 88 06"), payload}))});
}

}  // namespace qln::test

#endif

// Parameter sets and slice headers of small HEVC pictures, bit by bit, and lists of units in any framing: for
// tests of single topics, which need a stream's syntax and no decoder.
#ifndef TESTS_ENGINE_SMALL_STREAMS_H
#define TESTS_ENGINE_SMALL_STREAMS_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "units/units.h"

namespace qlnmedia::test {

// ITU-T H.265 clause 7.3.2.2: Main profile, level 3.1, one temporal layer, 4:2:0 of 8 bits.
struct HevcSpsParts {
  uint32_t id = 0;
  int layer = 0;
  uint32_t width = 64;
  uint32_t height = 64;
  bool progressive = false;  // general_progressive_source_flag and so on
  bool interlaced = false;
  bool frameOnly = false;
  uint32_t sarWidth = 0;  // aspect_ratio_idc 255 where it is not 0
  uint32_t sarHeight = 0;
  bool fieldSeq = false;
  bool frameFieldInfo = false;
  uint32_t units = 1;   // vui_num_units_in_tick
  uint32_t scale = 25;  // vui_time_scale; 0 for no timing
  bool hrd = false;     // NAL HRD parameters with delays of 8 bits each
  int transfer = 0;     // colour description of BT.2020 with this transfer where it is not 0
};

// One CPB of the HRD (clause E.2.2), nothing fixed.
inline void PutSmallHrd(qln::test::BitBuilder& bits) {
  bits.u(1, 1).u(1, 0).u(1, 0);                  // NAL, no VCL, no sub-pictures
  bits.u(4, 0).u(4, 0).u(5, 7).u(5, 7).u(5, 7);  // scales; lengths of delays minus 1
  bits.u(1, 0).u(1, 0).u(1, 0).ue(0);            // no fixed rate, no low delay, one CPB
  bits.ue(0).ue(0).u(1, 0);
}

inline Bytes HevcSps(const HevcSpsParts& parts = {}) {
  qln::test::BitBuilder bits;
  bits.u(1, 0).u(6, 33).u(6, static_cast<uint64_t>(parts.layer)).u(3, 1);
  bits.u(4, 0).u(3, 0).u(1, 1);                  // VPS, one sub-layer, nested
  bits.u(2, 0).u(1, 0).u(5, 1).u(32, 1u << 30);  // Main
  bits.u(1, parts.progressive).u(1, parts.interlaced).u(1, 0).u(1, parts.frameOnly).u(44, 0).u(8, 93);
  bits.ue(parts.id).ue(1).ue(parts.width).ue(parts.height).u(1, 0).ue(0).ue(0);
  bits.ue(4);                                // log2_max_pic_order_cnt_lsb_minus4: 8 bits
  bits.u(1, 1).ue(4).ue(2).ue(0);            // sub-layer ordering
  bits.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0);  // block sizes
  bits.u(4, 0).ue(0).u(3, 0);                // no lists, AMP, SAO, PCM; no reference sets
  bits.u(1, 1);                              // VUI
  bits.u(1, parts.sarWidth != 0);
  if (parts.sarWidth != 0) bits.u(8, 255).u(16, parts.sarWidth).u(16, parts.sarHeight);
  bits.u(1, 0).u(1, parts.transfer != 0);
  if (parts.transfer != 0)
    bits.u(3, 5).u(1, 0).u(1, 1).u(8, 9).u(8, static_cast<uint64_t>(parts.transfer)).u(8, 9);
  bits.u(2, 0).u(1, parts.fieldSeq).u(1, parts.frameFieldInfo).u(1, 0);
  bits.u(1, parts.scale != 0);
  if (parts.scale != 0) {
    bits.u(32, parts.units).u(32, parts.scale).u(1, 0).u(1, parts.hrd);
    if (parts.hrd) PutSmallHrd(bits);
  }
  bits.u(1, 0).u(1, 0);  // no restrictions, no extension
  return Escape(bits.trailing().bytes());
}

// Clause 7.3.2.3, of the SPS `sps`.
inline Bytes HevcPps(uint32_t id = 0, uint32_t sps = 0, uint32_t extraBits = 0) {
  qln::test::BitBuilder bits;
  bits.u(16, 0x4401).ue(id).ue(sps).u(1, 0).u(1, 0).u(3, extraBits).u(2, 0).ue(0).ue(0).se(0);
  bits.u(3, 0).se(0).se(0).u(4, 0).u(2, 0).u(4, 0).ue(0).u(2, 0);
  return bits.trailing().bytes();
}

// Clause 7.3.2.1, one layer without timing.
inline Bytes HevcVps() {
  qln::test::BitBuilder bits;
  bits.u(16, 0x4001).u(4, 0).u(2, 3).u(6, 0).u(3, 0).u(1, 1).u(16, 0xFFFF);
  bits.u(2, 0).u(1, 0).u(5, 1).u(32, 1u << 30).u(48, 0).u(8, 93);
  bits.u(1, 1).ue(4).ue(2).ue(0).u(6, 0).ue(0).u(1, 0).u(1, 0);
  return Escape(bits.trailing().bytes());
}

// The first slice segment of a picture (clause 7.3.6.1): 19 is an IDR picture, 1 one that others refer to.
// `type` 0 is B, 1 P, 2 I.
inline Bytes HevcSlice(int unitType, uint32_t lsb, uint32_t type = 2, int temporalPlus1 = 1) {
  qln::test::BitBuilder bits;
  bits.u(1, 0).u(6, static_cast<uint64_t>(unitType)).u(6, 0).u(3, static_cast<uint64_t>(temporalPlus1));
  bits.u(1, 1);
  if (unitType >= 16 && unitType <= 23) bits.u(1, 0);
  bits.ue(0).ue(type);
  if (unitType != 19 && unitType != 20) bits.u(8, lsb & 255).u(1, 0).ue(0).ue(0);
  return Escape(bits.u(24, 0xABCDEF).trailing().bytes());
}

// Picture timing of nothing but frame and field information (clause D.2.3).
inline Bytes HevcPictureTiming(uint32_t picStruct, uint32_t scanType = 2) {
  const Bytes payload = qln::test::BitBuilder().u(4, picStruct).u(2, scanType).u(1, 0).trailing().bytes();
  return MakeSeiUnit(Bytes{0x4E, 0x01}, {{1, payload}});
}

inline std::vector<Unit> UnitList(const std::vector<Bytes>& units) {
  std::vector<Unit> list;
  for (const Bytes& bytes : units) list.push_back({.bytes = bytes});
  return list;
}

// A packet of these units.
inline Bytes PacketOf(const std::vector<Bytes>& units, int lengthBytes = 0) {
  UnitRun run;
  run.units = UnitList(units);
  return PutTogether(run, Framing{lengthBytes});
}

// Types of units, as "33 34 19".
inline std::string TypesOf(Codec codec, const std::vector<Unit>& units) {
  std::string text;
  for (const Unit& unit : units)
    text += (text.empty() ? "" : " ") + std::to_string(UnitType(codec, unit.bytes));
  return text;
}

}  // namespace qlnmedia::test

#endif

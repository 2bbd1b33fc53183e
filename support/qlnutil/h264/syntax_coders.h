// What the coders of H.264 parameter sets add to those of every syntax table, and the syntax that several
// tables have in common.
#ifndef QLNUTIL_H264_SYNTAX_CODERS_H
#define QLNUTIL_H264_SYNTAX_CODERS_H

#include <algorithm>
#include <cstdint>
#include <span>

#include "qlnutil/bits/syntax_coders.h"
#include "qlnutil/qlnh264.h"

namespace qln {

struct H264SetReader : SyntaxReader {
  // scaling_list() of clause 7.3.2.1.1.1. A list that asks for the default matrix comes out as all 8, and
  // the flag that says so is left to the record's owner.
  void ScalingList(std::span<int32_t> list, uint32_t& /*useDefault*/) {
    int32_t lastScale = 8;
    int32_t nextScale = 8;
    for (int32_t& entry : list) {
      if (nextScale != 0) {
        const uint32_t sum = static_cast<uint32_t>(lastScale) + static_cast<uint32_t>(bits.ReadSe()) + 256u;
        nextScale = static_cast<int32_t>(sum) % 256;
      }
      entry = nextScale != 0 ? nextScale : lastScale;
      lastScale = entry;
    }
  }

  // The offsets of pic_order_cnt_type 1 are stored as code numbers: records that hosts keep hold them so.
  void PicOrderOffset(uint32_t& word) { Ue(word); }
  void PicOrderOffsetCycle(uint32_t count, uint32_t& word) {
    const uint64_t rounds = static_cast<uint64_t>(std::max(static_cast<int32_t>(count), 0));
    InLoop([&](auto& loop) { RunRounds(loop.bits, rounds, 0, [&](uint64_t) { loop.Ue(word); }); });
  }

  template <class Table>
  void InLoop(Table table) {
    InCountedLoop(bits, table);
  }
};

struct H264SetWriter : SyntaxWriter {
  // The entries themselves, not their differences: hosts that build records write them so.
  void ScalingList(std::span<const int32_t> list, uint32_t useDefault) {
    for (const int32_t entry : list) Se(useDefault != 0 ? 0 : entry);
  }

  template <class Table>
  void InLoop(Table table) {
    table(*this);
  }

  void PicOrderOffset(uint32_t word) { Se(static_cast<int32_t>(word)); }
  void PicOrderOffsetCycle(uint32_t count, uint32_t word) {
    const int32_t rounds = static_cast<int32_t>(count);
    for (int32_t i = 0; i < rounds && !bits.Overflowed(); ++i) PicOrderOffset(word);
  }
};

// nal_unit() of clause 7.3.1, its first byte.
template <class Coder, class Record>
void NalHeaderSyntax(Coder& coder, Record& record) {
  coder.U(1, record.forbidden_zero_bit);
  coder.U(2, record.nal_ref_idc);
  coder.U(5, record.nal_unit_type);
}

// The scaling lists of an SPS or PPS: six of 16 entries, then lists of 64. A list without its flag is left
// alone; neither fall-back rule is applied.
template <class Coder, class Record, class Flags>
void ScalingListsSyntax(Coder& coder, Record& record, Flags& presentFlags, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    coder.Flag(presentFlags[i]);
    if (presentFlags[i] == 0) continue;
    if (i < 6) {
      coder.ScalingList(record.ScalingList4x4[i], record.UseDefaultScalingMatrix4x4Flag[i]);
    } else {
      coder.ScalingList(record.ScalingList8x8[i - 6], record.UseDefaultScalingMatrix8x8Flag[i - 6]);
    }
  }
}

}  // namespace qln

#endif

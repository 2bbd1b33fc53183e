// What the H.264 tests share: units built element by element, and calls on exact-size copies.
#ifndef TESTS_H264_H264_TEST_SUPPORT_H
#define TESTS_H264_H264_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "qlnutil/h264/record_fields.h"
#include "qlnutil/qlnh264.h"
#include "support/test_support.h"

namespace qln::test {

// A result of a parameter set reader, with the state as it came back.
template <class Record>
struct Parsed {
  uint64_t result;
  uint32_t bitPos;
  uint32_t bitLength;
  Record record;
};

template <class Record, class Function>
Parsed<Record> ParseWith(Function function, const Bytes& unit, const Record& initial, int32_t size,
                         uint32_t bitLength, uint32_t bitPos) {
  ExactCopy input(unit);
  Parsed<Record> parsed{0, 0, bitLength, initial};
  QLNBitState state{input.data(), size, bitLength, bitPos};
  parsed.result = function(&state, &parsed.record);
  parsed.bitPos = state.bitPos;
  EXPECT_EQ(state.data, input.data());
  EXPECT_EQ(state.size, size);
  EXPECT_EQ(state.bitLength, bitLength);
  EXPECT_EQ(input.bytes(), unit);
  return parsed;
}

inline Parsed<H264SpsRecord> ReadSpsUnit(const Bytes& unit, const H264SpsRecord& initial = {}) {
  return ParseWith(qlnutilRead_SPS, unit, initial, static_cast<int32_t>(unit.size()),
                   static_cast<uint32_t>(unit.size() * 8), 0);
}

inline Parsed<H264PpsRecord> ReadPpsUnit(const Bytes& unit, const H264PpsRecord& initial = {}) {
  return ParseWith(qlnutilRead_PPS, unit, initial, static_cast<int32_t>(unit.size()),
                   static_cast<uint32_t>(unit.size() * 8), 0);
}

// A record with every word set to one value, to see what a reader leaves alone.
template <class Record>
Record Filled(uint32_t word) {
  Record record;
  uint32_t words[sizeof(Record) / 4];
  for (uint32_t& w : words) w = word;
  std::memcpy(&record, words, sizeof record);
  return record;
}

template <class Record>
bool SameWords(const Record& a, const Record& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The names of the words in which two records differ, as "frame_num" or "top_left[3]".
template <class Record>
std::vector<std::string> Differences(const Record& a, const Record& b, std::span<const RecordField> fields) {
  uint32_t x[sizeof(Record) / 4];
  uint32_t y[sizeof(Record) / 4];
  std::memcpy(x, &a, sizeof a);
  std::memcpy(y, &b, sizeof b);
  std::vector<std::string> names;
  for (const RecordField& field : fields) {
    for (uint32_t i = 0; i < field.count; ++i) {
      if (x[field.word + i] == y[field.word + i]) continue;
      names.push_back(field.count == 1 ? field.name
                                       : std::string(field.name) + "[" + std::to_string(i) + "]");
    }
  }
  return names;
}

// Emulation prevention as clause 7.4.1 has it.
inline Bytes Escape(const Bytes& unit) {
  Bytes escaped;
  int zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte <= 3) {
      escaped.push_back(3);
      zeros = 0;
    }
    escaped.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return escaped;
}

// The bytes of an SPS up to level_idc and seq_parameter_set_id.
inline BitBuilder SpsHead(uint32_t profile, uint32_t id = 0) {
  BitBuilder bits;
  bits.u(1, 0).u(2, 3).u(5, 7).u(8, profile).u(6, 0).u(2, 0).u(8, 30).ue(id);
  return bits;
}

// From log2_max_frame_num_minus4 up to frame_cropping_flag: a small progressive picture.
inline BitBuilder& PlainSpsBody(BitBuilder& bits) {
  bits.ue(0).ue(2);                     // log2_max_frame_num_minus4, pic_order_cnt_type
  bits.ue(1).u(1, 0).ue(19).ue(11);     // max_num_ref_frames, gaps, width, height
  return bits.u(1, 1).u(1, 1).u(1, 0);  // frame_mbs_only_flag, direct_8x8_inference_flag, cropping
}

// The elements of a PPS up to the point where its further data may follow.
inline BitBuilder PpsHead(uint32_t entropyCodingMode = 0) {
  BitBuilder bits;
  bits.u(1, 0).u(2, 3).u(5, 8).ue(0).ue(0).u(1, entropyCodingMode).u(1, 0).ue(0);
  bits.ue(0).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0).u(1, 1).u(1, 0).u(1, 0);
  return bits;
}

}  // namespace qln::test

#endif

// AudioSpecificConfig and ADTS headers: worked bytes, every field alone, truncation at every bit.

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "qlnutil/qlnaac.h"
#include "support/test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Random;

constexpr uint32_t kUntouched = 0xA5A5A5A5;
constexpr uint32_t kPastTheEnd = 0xFFFFFFFF;

template <class Record>
using Words = std::array<uint32_t, sizeof(Record) / 4>;

template <class Record>
Record RecordOf(const Words<Record>& words) {
  Record record;
  std::memcpy(&record, words.data(), sizeof record);
  return record;
}

template <class Record>
Words<Record> WordsOf(const Record& record) {
  Words<Record> words;
  std::memcpy(words.data(), &record, sizeof record);
  return words;
}

template <class Record>
Record Filled(uint32_t value) {
  Words<Record> words;
  words.fill(value);
  return RecordOf<Record>(words);
}

// One readable byte stands behind the last valid bit, as the readers ask for.
struct Input {
  ExactCopy copy;
  QLNBitState state;
  explicit Input(const Bytes& bytes, uint32_t bits, uint32_t position = 0)
      : copy(Bytes(bytes.begin(),
                   bytes.begin() + std::min<long>(bits / 8 + 1, static_cast<long>(bytes.size()))),
             bits / 8 + 1 > bytes.size() ? 1 : 0),
        state{copy.data(), static_cast<int32_t>(bits / 8), bits, position} {}
  explicit Input(const Bytes& bytes) : Input(bytes, static_cast<uint32_t>(bytes.size() * 8)) {}
};

struct Output {
  Bytes bytes;
  QLNBitState state;
  explicit Output(uint32_t position = 0, uint8_t fill = 0xEE)
      : bytes(16, fill), state{bytes.data(), 16, 128, position} {}
};

TEST(AudioSpecificConfig, ReadsTheWorkedBytes) {
  Input input(Hex("12 10"));
  QLNAacConfig config = Filled<QLNAacConfig>(kUntouched);
  EXPECT_EQ(qlnutilReadAAC(&input.state, &config), 0);
  EXPECT_EQ(WordsOf(config), (Words<QLNAacConfig>{2, 4, 44100, 2, 0, 0, 0}));
  EXPECT_EQ(input.state.bitPos, 16u);
}

TEST(AudioSpecificConfig, WritesTheWorkedBytes) {
  Output output;
  const QLNAacConfig config = {2, 3, 0, 2, 0, 0, 0};
  EXPECT_EQ(qlnutilWriteAAC(&output.state, &config), 0);
  EXPECT_EQ(output.state.bitPos, 16u);
  EXPECT_EQ(test::ToHex(output.bytes.data(), 3), "11 90 EE");

  Output wide;
  const QLNAacConfig explicitRate = {2, 15, 0xABCDEF, 2, 1, 0, 1};
  EXPECT_EQ(qlnutilWriteAAC(&wide.state, &explicitRate), 0);
  EXPECT_EQ(wide.state.bitPos, 40u);
  EXPECT_EQ(Bytes(wide.bytes.begin(), wide.bytes.begin() + 5),
            BitBuilder().u(5, 2).u(4, 15).u(24, 0xABCDEF).u(4, 2).u(1, 1).u(1, 0).u(1, 1).bytes());
}

TEST(AudioSpecificConfig, FrequencyComesFromTheIndex) {
  constexpr uint32_t kHertz[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                 16000, 12000, 11025, 8000,  7350,  0,     0};
  for (uint32_t index = 0; index < 15; ++index) {
    Input input(BitBuilder().u(5, 31).u(4, index).u(4, 15).u(3, 7).bytes());
    QLNAacConfig config = Filled<QLNAacConfig>(kUntouched);
    EXPECT_EQ(qlnutilReadAAC(&input.state, &config), 0);
    EXPECT_EQ(WordsOf(config), (Words<QLNAacConfig>{31, index, kHertz[index], 15, 1, 1, 1})) << index;
    EXPECT_EQ(input.state.bitPos, 16u);
  }
  Input input(BitBuilder().u(5, 5).u(4, 15).u(24, 0x800001).u(4, 1).u(3, 2).bytes());
  QLNAacConfig config = Filled<QLNAacConfig>(kUntouched);
  EXPECT_EQ(qlnutilReadAAC(&input.state, &config), 0);
  EXPECT_EQ(WordsOf(config), (Words<QLNAacConfig>{5, 15, 0x800001, 1, 0, 1, 0}));
  EXPECT_EQ(input.state.bitPos, 40u);
}

TEST(AudioSpecificConfig, WriterCutsEachFieldAndComparesTheWholeIndexWord) {
  Output output;
  const QLNAacConfig config = Filled<QLNAacConfig>(0xFFFFFFFF);  // the index is not 15, so no frequency
  EXPECT_EQ(qlnutilWriteAAC(&output.state, &config), 0);
  EXPECT_EQ(output.state.bitPos, 16u);
  EXPECT_EQ(test::ToHex(output.bytes.data(), 3), "FF FF EE");
}

// What a field holds when its bits are cut off: a read that passes the limit is all ones as a whole.
uint32_t FieldAt(const Bytes& bytes, uint32_t limit, uint32_t position, uint32_t bits) {
  if (position + bits > limit + 1) return kPastTheEnd;  // the bit at the limit is still a real one
  uint32_t value = 0;
  for (uint32_t p = position; p < position + bits; ++p) {
    const uint32_t byte = p / 8 < bytes.size() ? bytes[p / 8] : 0;
    value = value << 1 | (byte >> (7 - p % 8) & 1u);
  }
  return value;
}

TEST(AudioSpecificConfig, TruncatedAtEveryBit) {
  const Bytes bytes = BitBuilder().u(5, 2).u(4, 15).u(24, 0x123456).u(4, 6).u(3, 5).bytes();
  for (uint32_t limit = 0; limit <= 40; ++limit) {
    Input input(bytes, limit);
    QLNAacConfig config = Filled<QLNAacConfig>(kUntouched);
    EXPECT_EQ(qlnutilReadAAC(&input.state, &config), 0);
    const uint32_t index = FieldAt(bytes, limit, 5, 4);
    const uint32_t behind = index == 15 ? 33 : 9;
    EXPECT_EQ(config.audioObjectType, FieldAt(bytes, limit, 0, 5)) << limit;
    EXPECT_EQ(config.samplingFrequencyIndex, index) << limit;
    EXPECT_EQ(config.samplingFrequency, index == 15 ? FieldAt(bytes, limit, 9, 24) : kUntouched) << limit;
    EXPECT_EQ(config.channelConfiguration, FieldAt(bytes, limit, behind, 4)) << limit;
    EXPECT_EQ(config.frameLengthFlag, FieldAt(bytes, limit, behind + 4, 1)) << limit;
    EXPECT_EQ(config.dependsOnCoreCoder, FieldAt(bytes, limit, behind + 5, 1)) << limit;
    EXPECT_EQ(config.extensionFlag, FieldAt(bytes, limit, behind + 6, 1)) << limit;
    EXPECT_EQ(input.state.bitPos, behind + 7);
  }
}

constexpr uint32_t kAdtsWidths[] = {12, 1, 2, 1, 2, 4, 1, 3, 1, 1, 1, 1, 13, 11, 2};

TEST(AdtsHeader, ReadsTheWorkedBytes) {
  Input input(Hex("FF F1 50 80 2E 7F FC 12 34"));
  QLNAdtsHeader header = Filled<QLNAdtsHeader>(kUntouched);
  EXPECT_EQ(qlnutilReadADTS(&input.state, &header), 0);
  EXPECT_EQ(WordsOf(header),
            (Words<QLNAdtsHeader>{0xFFF, 0, 0, 1, 1, 4, 0, 2, 0, 0, 0, 0, 0x173, 0x7FF, 0, 0x1234}));
  EXPECT_EQ(input.state.bitPos, 72u);

  Input without(Hex("FF F0 50 80 2E 7F FC 12 34"));
  header = Filled<QLNAdtsHeader>(kUntouched);
  EXPECT_EQ(qlnutilReadADTS(&without.state, &header), 0);
  EXPECT_EQ(without.state.bitPos, 56u);
  EXPECT_EQ(header.protection_absent, 0u);
  EXPECT_EQ(header.aac_frame_length, 0x173u);
  EXPECT_EQ(header.crc_check, kUntouched);
}

TEST(AdtsHeader, WritesACrcOnlyWhereProtectionIsCalledAbsent) {
  const Words<QLNAdtsHeader> words = {0xFFF, 0, 0, 1, 1, 4, 0, 2, 0, 0, 0, 0, 0x173, 0x7FF, 0, 0x1234};
  Output with;
  QLNAdtsHeader header = RecordOf<QLNAdtsHeader>(words);
  EXPECT_EQ(qlnutilWriteADTS(&with.state, &header), 0);
  EXPECT_EQ(with.state.bitPos, 72u);
  EXPECT_EQ(test::ToHex(with.bytes.data(), 10), "FF F1 50 80 2E 7F FC 12 34 EE");
  Output without;
  header.protection_absent = 0;
  EXPECT_EQ(qlnutilWriteADTS(&without.state, &header), 0);
  EXPECT_EQ(without.state.bitPos, 56u);
  EXPECT_EQ(test::ToHex(without.bytes.data(), 8), "FF F0 50 80 2E 7F FC EE");
  Output whole;
  header.protection_absent = 0x100;  // compared as a whole word, written cut to its bit
  EXPECT_EQ(qlnutilWriteADTS(&whole.state, &header), 0);
  EXPECT_EQ(whole.state.bitPos, 72u);
  EXPECT_EQ(test::ToHex(whole.bytes.data(), 10), "FF F0 50 80 2E 7F FC 12 34 EE");
}

TEST(AdtsHeader, EveryFieldStandsInItsPlace) {
  for (size_t field = 0; field < std::size(kAdtsWidths); ++field) {
    Words<QLNAdtsHeader> words = {};
    words[field] = (1u << kAdtsWidths[field]) - 1;
    BitBuilder expected;
    for (size_t i = 0; i < std::size(kAdtsWidths); ++i) {
      expected.u(static_cast<int>(kAdtsWidths[i]), words[i]);
    }
    if (words[3] != 0) expected.u(16, 0);
    const QLNAdtsHeader header = RecordOf<QLNAdtsHeader>(words);
    Output output;
    EXPECT_EQ(qlnutilWriteADTS(&output.state, &header), 0);
    EXPECT_EQ(output.state.bitPos, expected.bits());
    EXPECT_EQ(Bytes(output.bytes.begin(), output.bytes.begin() + static_cast<long>(expected.bits() / 8)),
              expected.bytes())
        << "field " << field;
    Input input(expected.bytes());
    QLNAdtsHeader read = Filled<QLNAdtsHeader>(0);
    EXPECT_EQ(qlnutilReadADTS(&input.state, &read), 0);
    EXPECT_EQ(WordsOf(read), words) << "field " << field;
  }
}

TEST(AdtsHeader, TruncatedAtEveryBit) {
  const Bytes bytes = Hex("FF F1 50 80 2E 7F FC 12 34");
  for (uint32_t limit = 0; limit <= 72; ++limit) {
    Input input(bytes, limit);
    QLNAdtsHeader header = Filled<QLNAdtsHeader>(kUntouched);
    EXPECT_EQ(qlnutilReadADTS(&input.state, &header), 0);
    const Words<QLNAdtsHeader> words = WordsOf(header);
    uint32_t position = 0;
    for (size_t field = 0; field < std::size(kAdtsWidths); position += kAdtsWidths[field++]) {
      EXPECT_EQ(words[field], FieldAt(bytes, limit, position, kAdtsWidths[field])) << limit << " " << field;
    }
    EXPECT_EQ(header.crc_check, FieldAt(bytes, limit, 56, 16)) << "an over-read flag counts as set";
    EXPECT_EQ(input.state.bitPos, 72u);
  }
}

// At every bit position, random fields survive a write and a read, and the bits around them stay.
TEST(AacHeaders, RoundTripsAtEveryPosition) {
  Random random(9);
  for (uint32_t round = 0; round < 4000; ++round) {
    const uint32_t position = static_cast<uint32_t>(random.below(24));
    const uint8_t fill = random.below(2) != 0 ? 0xFF : 0x00;
    const QLNAacConfig config = {
        static_cast<uint32_t>(random.below(32)),      static_cast<uint32_t>(random.below(2) != 0 ? 15 : 13),
        static_cast<uint32_t>(random.below(1 << 24)), static_cast<uint32_t>(random.below(16)),
        static_cast<uint32_t>(random.below(2)),       static_cast<uint32_t>(random.below(2)),
        static_cast<uint32_t>(random.below(2))};
    Output output(position, fill);
    qlnutilWriteAAC(&output.state, &config);
    const uint32_t end = output.state.bitPos;
    for (uint32_t p = 0; p < 128; ++p) {
      if (p >= position && p < end) continue;
      ASSERT_EQ(output.bytes[p / 8] >> (7 - p % 8) & 1, fill & 1) << "bit " << p << " was touched";
    }
    Input input(output.bytes, end, position);
    QLNAacConfig read = Filled<QLNAacConfig>(kUntouched);
    qlnutilReadAAC(&input.state, &read);
    Words<QLNAacConfig> expected = WordsOf(config);
    if (config.samplingFrequencyIndex != 15) expected[2] = 0;
    ASSERT_EQ(WordsOf(read), expected);
    ASSERT_EQ(input.state.bitPos, end);
  }
}

}  // namespace
}  // namespace qln

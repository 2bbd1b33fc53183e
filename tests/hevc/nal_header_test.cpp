// The two-byte NAL header, the emulation prevention check behind it, and the SEI reading of prefix SEI units.

#include "qlnutil/hevc/nal_header.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/test_support.h"

namespace qln::test {
namespace {

class HevcNalReading : public testing::Test {
 protected:
  ~HevcNalReading() override { h264_free(stream_); }

  int32_t Read(const Bytes& unit) {
    ExactCopy copy(unit);
    return HevcReadNalUnit(stream_, copy.data(), static_cast<int32_t>(copy.size()));
  }
  const HevcNalHeader& nal() const { return *stream_->nal; }

  h264_stream_t* const stream_ = h264_new();
};

TEST_F(HevcNalReading, VpsHeader) {
  EXPECT_EQ(Read(Hex("40 01")), 2);
  EXPECT_EQ(nal().forbidden_zero_bit, 0u);
  EXPECT_EQ(nal().nal_unit_type, 32u);
  EXPECT_EQ(nal().nuh_layer_id, 0u);
  EXPECT_EQ(nal().nuh_temporal_id, 0u);
}

TEST_F(HevcNalReading, EveryFieldOfTheHeader) {
  for (uint32_t header = 0; header < 0x10000; header += 37) {
    Read({static_cast<uint8_t>(header >> 8), static_cast<uint8_t>(header), 0x12});
    ASSERT_EQ(nal().forbidden_zero_bit, header >> 15);
    ASSERT_EQ(nal().nal_unit_type, header >> 9 & 63);
    ASSERT_EQ(nal().nuh_layer_id, header >> 3 & 63);
    ASSERT_EQ(nal().nuh_temporal_id, (header & 7) - 1u);
  }
}

TEST_F(HevcNalReading, HeaderBitsBehindTheUnitAreZero) {
  EXPECT_EQ(Read(Hex("43")), 1);
  EXPECT_EQ(nal().nal_unit_type, 33u);
  EXPECT_EQ(nal().nuh_layer_id, 32u);
  EXPECT_EQ(nal().nuh_temporal_id, 0xFFFFFFFFu);
}

TEST_F(HevcNalReading, NoBytesGiveAHeaderOfZerosAndFail) {
  for (const int32_t size : {0, -1, INT32_MIN}) {
    Read(Hex("FF FF"));
    EXPECT_EQ(HevcReadNalUnit(stream_, nullptr, size), -1);
    EXPECT_EQ(nal().forbidden_zero_bit, 0u);
    EXPECT_EQ(nal().nal_unit_type, 0u);
    EXPECT_EQ(nal().nuh_layer_id, 0u);
    EXPECT_EQ(nal().nuh_temporal_id, 0xFFFFFFFFu);
  }
}

TEST_F(HevcNalReading, ResultByType) {
  for (uint32_t type = 0; type < 64; ++type) {
    const Bytes unit = {static_cast<uint8_t>(type << 1), 1, 0x22, 0x33, 0x80};
    const int32_t result = Read(unit);
    EXPECT_EQ(nal().nal_unit_type, type);
    if (type == 39) continue;
    EXPECT_EQ(result, type > 40 ? 0 : 5) << type;
    EXPECT_EQ(nal().parsed, nullptr);
    EXPECT_EQ(nal().sizeof_parsed, 0);
  }
}

TEST_F(HevcNalReading, SeiIsReadFromTheSecondHeaderByteOn) {
  // Type 1 (the header's second byte), size 4 (the payload type of the standard), four bytes, stop bit.
  EXPECT_EQ(Read(Hex("4E 01 04 02 AA BB CC 80")), 8);
  EXPECT_EQ(nal().nal_unit_type, 39u);
  EXPECT_EQ(nal().parsed, stream_->sei);
  EXPECT_EQ(nal().sizeof_parsed, 16);
  EXPECT_EQ(stream_->sei->payloadType, 1);
  EXPECT_EQ(ToHex(stream_->sei->data, static_cast<size_t>(stream_->sei->payloadSize)), "02 AA BB CC");
  // The next unit clears the parsed fields.
  EXPECT_EQ(Read(Hex("40 01")), 2);
  EXPECT_EQ(nal().parsed, nullptr);
  EXPECT_EQ(nal().sizeof_parsed, 0);
}

TEST_F(HevcNalReading, SeiThatRunsPastTheUnitFailsAndKeepsTheHeader) {
  EXPECT_EQ(Read(Hex("4E 01 7F 02 AA BB CC 80")), -1);
  EXPECT_EQ(nal().nal_unit_type, 39u);
  EXPECT_EQ(nal().nuh_temporal_id, 0u);
  EXPECT_EQ(stream_->sei->payloadSize, 5);
  EXPECT_EQ(Read(Hex("4E")), -1);
  EXPECT_EQ(Read(Hex("4E 01")), -1);
}

TEST_F(HevcNalReading, SeiPayloadIsUnescaped) {
  EXPECT_EQ(Read(Hex("4E 01 05 00 00 03 01 AA BB 80")), 10);
  EXPECT_EQ(ToHex(stream_->sei->data, static_cast<size_t>(stream_->sei->payloadSize)), "00 00 01 AA BB");
}

TEST_F(HevcNalReading, AByteAboveThreeBehindAnEscapeFails) {
  EXPECT_EQ(Read(Hex("40 01 00 00 03 03 11")), 7);
  EXPECT_EQ(Read(Hex("40 01 00 00 03 04 11")), -1);
  EXPECT_EQ(nal().nal_unit_type, 32u);
  EXPECT_EQ(nal().nuh_temporal_id, 0u);
  EXPECT_EQ(Read(Hex("40 01 00 00 00 00 03 04")), -1);
  // A type whose payload is not looked at fails in the same way, before its 0.
  EXPECT_EQ(Read(Hex("52 01 00 00 03 04")), -1);
  EXPECT_EQ(Read(Hex("52 01 00 00 03 02")), 0);
  // The header's second byte takes part, the first does not.
  EXPECT_EQ(Read(Hex("40 00 00 03 04")), -1);
  EXPECT_EQ(Read(Hex("00 00 03 04")), 4);
}

TEST_F(HevcNalReading, LastPlaces) {
  // A 3 in the last place stays, with nothing behind it to check.
  EXPECT_EQ(Read(Hex("40 01 22 00 00 03")), 6);
  EXPECT_EQ(Read(Hex("4E 01 04 02 03 00 00 03")), -1) << "the 3 is no trailing bits";
  EXPECT_EQ(stream_->sei->payloadType, 3);
  // A byte below 3 there ends the run; elsewhere it is kept.
  EXPECT_EQ(Read(Hex("4E 01 04 02 03 00 00 02")), -1) << "no byte is left for the trailing bits";
  EXPECT_EQ(ToHex(stream_->sei->data, static_cast<size_t>(stream_->sei->payloadSize)), "02 03 00 00");
  EXPECT_EQ(Read(Hex("4E 01 04 02 00 00 01 80")), 8);
  EXPECT_EQ(ToHex(stream_->sei->data, static_cast<size_t>(stream_->sei->payloadSize)), "02 00 00 01");
}

// The unescaping rule, a byte at a time: the unescaped bytes, or false.
bool PlainUnescape(const Bytes& unit, Bytes* out) {
  size_t zeros = 0;
  for (size_t i = 1; i < unit.size(); ++i) {
    const bool last = i + 1 == unit.size();
    if (zeros >= 2 && unit[i] < 3 && last) break;
    if (zeros >= 2 && unit[i] == 3 && !last) {
      if (unit[i + 1] > 3) return false;
      zeros = 0;
      continue;
    }
    out->push_back(unit[i]);
    zeros = unit[i] == 0 ? zeros + 1 : 0;
  }
  return true;
}

TEST_F(HevcNalReading, AgreesWithTheRuleAByteAtATime) {
  Random random(89);
  for (int round = 0; round < 20000; ++round) {
    Bytes unit = random.zeroRichBytes(1 + random.below(60));
    unit[0] = round % 2 == 0 ? 0x4E : 0x40;
    Bytes plain;
    const bool passes = PlainUnescape(unit, &plain);
    const int32_t result = Read(unit);
    if (unit[0] == 0x40) {
      ASSERT_EQ(result, passes ? static_cast<int32_t>(unit.size()) : -1) << ToHex(unit);
    } else if (!passes) {
      ASSERT_EQ(result, -1) << ToHex(unit);
    } else {
      h264_stream_t* const other = h264_new();
      const int64_t position = read_sei_rbsp(other, plain.data(), static_cast<int>(plain.size()));
      ASSERT_EQ(result,
                position > static_cast<int64_t>(plain.size()) ? -1 : static_cast<int32_t>(unit.size()));
      ASSERT_EQ(other->sei->payloadSize, stream_->sei->payloadSize);
      ASSERT_EQ(other->sei->payloadType, stream_->sei->payloadType);
      h264_free(other);
    }
  }
}

TEST_F(HevcNalReading, LongUnitsTakeLinearTime) {
  constexpr int32_t kSize = 20 << 20;
  const auto reads = [&](Bytes unit, int32_t result) {
    unit[0] = 0x4E;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Read(unit), result);
    // What is quadratic here takes hours.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  };
  reads(Bytes(kSize, 0), -1);
  reads(Bytes(kSize, 0xFF), -1);  // one run of a payload type that does not end
  Bytes messages(kSize, 1);       // messages of three bytes each
  messages.back() = 0x80;
  reads(messages, kSize);
  // An escape in every third place.
  Bytes escapes(kSize, 0);
  for (size_t i = 1; i + 2 < escapes.size(); i += 3) escapes[i + 2] = 3;
  reads(escapes, -1);
}

}  // namespace
}  // namespace qln::test

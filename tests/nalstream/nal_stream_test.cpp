// The stream object, and SEI reading bounded by its payload.

#include <gtest/gtest.h>

#include <cstring>

#include "nalstream/nalstream.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Stream {
  h264_stream_t* const object = h264_new();
  ~Stream() { h264_free(object); }
  int64_t ReadSei(const Bytes& payload) {
    ExactCopy copy(payload);
    return read_sei_rbsp(object, copy.data(), static_cast<int>(copy.size()));
  }
  Bytes Payload() const { return Bytes(object->sei->data, object->sei->data + object->sei->payloadSize); }
};

TEST(StreamObject, BeginsWithItsNalRecordAllZero) {
  Stream stream;
  HevcNalHeader* first;
  std::memcpy(&first, stream.object, sizeof first);
  EXPECT_EQ(first, stream.object->nal);
  EXPECT_EQ(first->nal_unit_type, 0u);
  EXPECT_EQ(first->parsed, nullptr);
  EXPECT_EQ(stream.object->sei->data, nullptr);
  h264_free(nullptr);
}

TEST(SeiReading, KeepsTheMessage) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 03 AA BB CC 80")), 6);
  EXPECT_EQ(stream.object->sei->payloadType, 5);
  EXPECT_EQ(ToHex(stream.Payload()), "AA BB CC");
}

TEST(SeiReading, KeepsTheLastOfSeveralMessages) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 03 AA BB CC 04 01 11 80")), 9);
  EXPECT_EQ(stream.object->sei->payloadType, 4);
  EXPECT_EQ(ToHex(stream.Payload()), "11");
  EXPECT_EQ(stream.ReadSei(Hex("89 00 80")), 3);
  EXPECT_EQ(stream.object->sei->payloadType, 0x89);
  EXPECT_EQ(stream.object->sei->payloadSize, 0);
  EXPECT_EQ(stream.object->sei->data, nullptr);
}

TEST(SeiReading, SumsLongTypesAndSizes) {
  Stream stream;
  Bytes payload = Hex("FF 05 FF 01");
  payload.insert(payload.end(), 256, 0x22);
  payload.push_back(0x80);
  EXPECT_EQ(stream.ReadSei(payload), static_cast<int64_t>(payload.size()));
  EXPECT_EQ(stream.object->sei->payloadType, 260);
  EXPECT_EQ(stream.object->sei->payloadSize, 256);
}

TEST(SeiReading, BoundsAPayloadByTheUnit) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 80 AA BB")), 2 + 128 + 1);
  EXPECT_EQ(stream.object->sei->payloadSize, 2);
  EXPECT_EQ(ToHex(stream.Payload()), "AA BB");
  // Sizes that add up beyond 32 bits keep nothing either and end.
  EXPECT_GT(stream.ReadSei(Bytes(100000, 0xFF)), 100000);
  EXPECT_EQ(stream.object->sei->payloadSize, 0);
}

TEST(SeiReading, ASizeBelowZeroIsNone) {
  Stream stream;
  const Bytes unit = Hex("05 03 AA BB CC 80");
  EXPECT_EQ(read_sei_rbsp(stream.object, unit.data(), -1), read_sei_rbsp(stream.object, unit.data(), 0));
  EXPECT_EQ(stream.object->sei->payloadType, 0);
  EXPECT_EQ(stream.object->sei->payloadSize, 0);
}

TEST(SeiReading, APayloadThatBeginsBehindTheUnitIsEmpty) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 FF")), 3 + 255 + 1);  // the size goes on with a 0 behind the unit
  EXPECT_EQ(stream.object->sei->payloadSize, 0);
  EXPECT_EQ(stream.object->sei->data, nullptr);
  EXPECT_EQ(stream.ReadSei(Hex("05 01")), 2 + 1 + 1);
  EXPECT_EQ(stream.object->sei->payloadSize, 0);
}

TEST(SeiReading, AMissingStopBitRunsPastTheEnd) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 01 AA")), 4);
  EXPECT_EQ(stream.ReadSei({}), 3);
  EXPECT_EQ(stream.ReadSei(Hex("05")), 3);
}

TEST(SeiReading, TrailingBitsAreAStopBitWithNothingButZerosBehind) {
  Stream stream;
  EXPECT_EQ(stream.ReadSei(Hex("05 01 AA 80 00 00")), 4);
  EXPECT_EQ(stream.object->sei->payloadType, 5);
  // 0x80 with set bits behind it is another message: type 128, size 1.
  EXPECT_EQ(stream.ReadSei(Hex("05 01 AA 80 01 EE 80")), 7);
  EXPECT_EQ(stream.object->sei->payloadType, 0x80);
  EXPECT_EQ(ToHex(stream.Payload()), "EE");
}

TEST(SeiReading, EveryTruncationStaysInside) {
  Stream stream;
  const Bytes whole = Hex("05 03 AA BB CC FF 04 02 11 22 01 00 80");
  for (size_t n = 0; n <= whole.size(); ++n) {
    stream.ReadSei(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n)));
    EXPECT_LE(stream.object->sei->payloadSize, static_cast<int>(n));
  }
}

}  // namespace
}  // namespace qln::test

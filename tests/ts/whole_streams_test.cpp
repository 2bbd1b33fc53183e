// Transport streams that cannot be changed, that end in their own ways, and random ones.

#include <gtest/gtest.h>

#include <random>

#include "qlnmedia/error.h"
#include "ts/carry.h"

namespace qln::test {
namespace {

void ExpectRefused(const Bytes& stream, const Bytes& was, const std::string& why) {
  const MemorySource source(stream, "in.ts");
  Collected out;
  try {
    Carrier carrier(source, &out, {kVideo});
    carrier.Take(kVideo, was, Joined(was, {1}));
    carrier.Take(kVideo, was, was);
    carrier.Finish();
    FAIL() << why;
  } catch (const qlnmedia::Error& error) {
    EXPECT_NE(std::string(error.what()).find(why), std::string::npos) << error.what();
  }
}

TEST(TransportCarrier, RefusesWhatItCannotChange) {
  const Bytes one = Data(300, 1);
  ExpectRefused(Data(5000, 9), one, "has no transport packets");
  ExpectRefused({}, one, "has no transport packets");
  TransportBuilder builder;
  builder.Pes(kVideo, one, 0);
  ExpectRefused(builder.bytes(), Data(300, 2), "the elementary stream ends");
  ExpectRefused(builder.bytes(), Joined(one, {1}), "the elementary stream ends");
  builder.Pes(kVideo, Data(300, 3), 0);
  ExpectRefused(builder.bytes(), one, "the elementary stream is not what a reader has of it");
  Bytes scrambled = builder.bytes();
  scrambled[3] |= 0x80;
  ExpectRefused(scrambled, one, "scrambled");
  // PES_CRC_flag: the checksum of the one in front.
  TransportBuilder checked;
  for (int i = 0; i < 2; ++i)
    checked.Packet(kVideo, true, Joined({0, 0, 1, 0xE0, 0, 0, 0x80, 2, 2, 0x12, 0x34}, Data(100, 1)));
  ExpectRefused(checked.bytes(), Data(100, 1), "checksums");
}

// The end of a stream that others outlive does not keep all that follows in memory.
TEST(TransportCarrier, GoesOnWhenAStreamHasEnded) {
  const Bytes one = Data(300, 1);
  TransportBuilder head, sound;
  head.Pes(kVideo, one, 0);
  sound.Packet(kSound, false, Data(184, 2));
  Bytes stream = head.bytes();
  for (int i = 0; i < 260000; ++i) stream.insert(stream.end(), sound.bytes().begin(), sound.bytes().end());
  const Bytes longer = Joined(Data(40, 3), one);
  const MemorySource source(stream, "in.ts");
  Collected out;
  Carrier carrier(source, &out, {kVideo});
  carrier.Take(kVideo, one, longer);
  EXPECT_LT(out.bytes.size(), stream.size());
  EXPECT_GT(out.bytes.size(), 0u) << "before the end of the file was seen";
  carrier.Finish();
  TransportBuilder expected;
  expected.Pes(kVideo, longer, 0);
  EXPECT_EQ(Bytes(out.bytes.begin(), out.bytes.begin() + 2 * 188), expected.bytes());
  EXPECT_EQ(out.bytes.size(), stream.size());
}

// Random streams and changes, by the reader of the tests.
TEST(TransportCarrier, GivesEveryPictureItsBytes) {
  for (uint32_t seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](size_t limit) { return static_cast<size_t>(random() % limit); };
    const Row row = static_cast<Row>(below(8) == 0 ? 1 + below(2) : 0);
    TransportBuilder builder(row);
    std::vector<Piece> pieces;
    std::vector<Bytes> expected;
    builder.SetCounter(kVideo, static_cast<uint8_t>(below(16)));
    const size_t count = 1 + below(12);
    for (size_t i = 0; i < count; ++i) {
      Piece piece{Data(1 + below(below(3) == 0 ? 3000 : 300), seed * 100 + static_cast<uint32_t>(i)), {}};
      piece.is = piece.was;
      const size_t kind = below(4), at = below(piece.was.size());
      const auto place = piece.is.begin() + static_cast<long>(at);
      if (kind == 1) {
        const Bytes more = Data(below(below(3) == 0 ? 1500 : 60), seed);
        piece.is.insert(place, more.begin(), more.end());
      } else if (kind == 2) {
        piece.is.erase(place, place + static_cast<long>(below(piece.was.size() - at) + 1));
      }
      builder.Pes(kVideo, piece.was, i * 3600, below(2) == 0,
                  below(2) == 0 ? ClockReference(i * 900) : Bytes(), static_cast<int>(below(4)));
      for (size_t k = below(4); k > 0; --k)
        builder.Packet(kSound, false, Data(184, static_cast<uint32_t>(k)));
      if (below(3) == 0) builder.Packet(kVideo, false, {}, ClockReference(i * 900 + 1));
      expected.push_back(piece.is);
      pieces.push_back(std::move(piece));
    }
    const Carried carried = Carry(builder.bytes(), pieces);
    const TransportRead was = ReadTransport(builder.bytes(), {kVideo}, row);
    const TransportRead is = ReadTransport(carried.bytes, {kVideo}, row);
    ASSERT_EQ(is.packets, was.packets + carried.counts.putIn) << seed;
    ASSERT_EQ(is.nulls + carried.counts.fromNull, was.nulls + carried.counts.toNull) << seed;
    ASSERT_EQ(is.others, was.others) << seed;
    ASSERT_EQ(StreamsOf(is), expected) << seed;
    ASSERT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references) << seed;
    ASSERT_TRUE(is.parityHolds) << seed;
    for (size_t i = 0; i < expected.size(); ++i) {
      const Bytes& head = is.streams.at(kVideo).packets[i].head;
      Bytes before = was.streams.at(kVideo).packets[i].head;
      if (before[4] != 0 || before[5] != 0) {
        const size_t length = expected[i].size() + 8;
        before[4] = static_cast<uint8_t>(length >> 8);
        before[5] = static_cast<uint8_t>(length);
      }
      ASSERT_EQ(head, before) << seed;
    }
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace qln::test

// What the carrier of transport streams changes and what it leaves, on streams put together by hand.

#include <gtest/gtest.h>

#include <random>

#include "qlnmedia/error.h"
#include "ts/carry.h"

namespace qln::test {
namespace {

TEST(TransportCarrier, GivesTheInputWhereNothingChanges) {
  for (const Row row : {Row::kPlain, Row::kArrivalTime, Row::kParity}) {
    const Bytes one = Data(1000, 1), two = Data(170, 2), three = Data(500, 3);
    Bytes stream = Sample(row, one, two, three, 1);
    EXPECT_EQ(Carry(stream, {}).bytes, stream);
    EXPECT_EQ(Carry(stream, {{one, one}, {two, two}, {three, three}}).bytes, stream);
    // Bytes in front, behind and between.
    stream = Joined(Joined(Data(37, 4), stream), Data(61, 5));
    for (const uint8_t byte : {uint8_t{0x47}, uint8_t{0}}) {
      std::fill(stream.begin(), stream.begin() + 37, byte);
      EXPECT_EQ(Carry(stream, {{one, one}}).bytes, stream);
    }
  }
}

TEST(TransportCarrier, FindsPacketsAgainBehindBytesThatAreNone) {
  const Bytes one = Data(400, 1), two = Data(300, 2);
  TransportBuilder builder;
  builder.Pes(kVideo, one, 0);
  for (int i = 0; i < 5; ++i) builder.Packet(kSound, false, Data(184, 7));
  builder.Raw(Bytes(500, 0x11));
  builder.Packet(kSound, false, Data(184, 8));
  builder.Pes(kVideo, two, 3600);
  const Bytes longer = Joined(Data(30, 9), two);
  const Bytes out = Carry(builder.bytes(), {{one, one}, {two, longer}}).bytes;
  TransportBuilder expected;
  expected.Pes(kVideo, one, 0);
  for (int i = 0; i < 5; ++i) expected.Packet(kSound, false, Data(184, 7));
  expected.Raw(Bytes(500, 0x11));
  expected.Packet(kSound, false, Data(184, 8));
  expected.Pes(kVideo, longer, 3600);
  EXPECT_EQ(out, expected.bytes());
}

// What grows by less than the last packet's stuffing stays in its packets.
TEST(TransportCarrier, TakesStuffingFirst) {
  const Bytes one = Data(1000, 1), two = Data(170, 2), three = Data(500, 3);
  const Bytes stream = Sample(Row::kPlain, one, two, three);
  // 14 bytes of head, 7 of clock reference and a byte of length: 162 in the first packet, 4 times 184, 102
  // in the last, beside 82 bytes of stuffing.
  for (const size_t more : {1u, 81u, 82u}) {
    const Bytes longer = Joined(Data(more, 4), one);
    const Carried carried = Carry(stream, {{one, longer}});
    EXPECT_EQ(carried.bytes.size(), stream.size()) << more;
    EXPECT_EQ(carried.counts.putIn, 0u);
    const TransportRead was = ReadTransport(stream, {kVideo}), is = ReadTransport(carried.bytes, {kVideo});
    EXPECT_EQ(is.others, was.others);
    EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{longer, two, three}));
    EXPECT_EQ(is.streams.at(kVideo).counters, was.streams.at(kVideo).counters);
    EXPECT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references);
    EXPECT_EQ(is.streams.at(kVideo).packets[0].head, was.streams.at(kVideo).packets[0].head);
  }
}

TEST(TransportCarrier, TakesNullPacketsNext) {
  const Bytes one = Data(1000, 1), two = Data(170, 2), three = Data(500, 3);
  const Bytes stream = Sample(Row::kPlain, one, two, three, 3);
  const Bytes longer = Joined(Data(94 + 184 + 1, 4), one);
  const Carried carried = Carry(stream, {{one, longer}});
  EXPECT_EQ(carried.bytes.size(), stream.size());
  EXPECT_EQ(carried.counts.fromNull, 2u);
  EXPECT_EQ(carried.counts.putIn, 0u);
  const TransportRead was = ReadTransport(stream, {kVideo}), is = ReadTransport(carried.bytes, {kVideo});
  EXPECT_EQ(is.nulls + 2, was.nulls);
  EXPECT_EQ(is.others, was.others);
  EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{longer, two, three}));
  EXPECT_EQ(is.streams.at(kVideo).counters, "0123456789abc");
  EXPECT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references);
}

TEST(TransportCarrier, PutsPacketsInWhereThereAreNoNullPackets) {
  const Bytes one = Data(1000, 1), two = Data(170, 2), three = Data(500, 3);
  for (const Row row : {Row::kPlain, Row::kArrivalTime, Row::kParity}) {
    const Bytes stream = Sample(row, one, two, three);
    const Bytes longer = Joined(Data(94 + 200, 4), one);
    const Carried carried = Carry(stream, {{one, longer}, {two, two}, {three, three}});
    EXPECT_EQ(carried.counts.putIn, 2u);
    const TransportRead was = ReadTransport(stream, {kVideo}, row),
                        is = ReadTransport(carried.bytes, {kVideo}, row);
    EXPECT_EQ(is.packets, was.packets + 2);
    EXPECT_EQ(is.others, was.others);
    EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{longer, two, three}));
    EXPECT_EQ(was.streams.at(kVideo).counters, "0123456789a");
    EXPECT_EQ(is.streams.at(kVideo).counters, "0123456789abc");
    EXPECT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references);
    EXPECT_TRUE(is.parityHolds);
    for (size_t i = 1; i < is.arrivalTimes.size(); ++i)
      EXPECT_GT(is.arrivalTimes[i], is.arrivalTimes[i - 1]) << i;
  }
}

TEST(TransportCarrier, LeavesStuffingAndNullPacketsWhereItShrinks) {
  const Bytes one = Data(1000, 1), two = Data(170, 2), three = Data(500, 3);
  for (const Row row : {Row::kPlain, Row::kArrivalTime, Row::kParity}) {
    const Bytes stream = Sample(row, one, two, three);
    for (const size_t left : {999u, 900u, 162u, 10u, 0u}) {
      const Bytes shorter(one.begin(), one.begin() + static_cast<long>(left));
      const Carried carried = Carry(stream, {{one, shorter}, {two, two}});
      EXPECT_EQ(carried.bytes.size(), stream.size()) << left;
      const TransportRead was = ReadTransport(stream, {kVideo}, row),
                          is = ReadTransport(carried.bytes, {kVideo}, row);
      EXPECT_EQ(is.others, was.others);
      EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{shorter, two, three}));
      EXPECT_EQ(is.nulls, was.nulls + carried.counts.toNull);
      EXPECT_EQ(carried.counts.toNull, left > 899 ? 0u : 5u) << left;
      EXPECT_EQ(is.streams.at(kVideo).counters,
                std::string("0123456789a").substr(0, 11 - carried.counts.toNull));
      EXPECT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references);
      EXPECT_TRUE(is.parityHolds);
    }
  }
}

// A clock reference keeps its packet, which then has no payload and does not count.
TEST(TransportCarrier, KeepsPacketsThatHaveMoreThanAPayload) {
  const Bytes stream = Data(14 + 400, 1);
  TransportBuilder builder;
  builder.Packet(kVideo, true, {0, 0, 1, 0xE0, 0, 0, 0x80, 0, 0, 1, 2, 3});
  builder.Packet(kVideo, false, Data(170, 2), ClockReference(1000));
  builder.Packet(kVideo, false, Data(184, 3));
  builder.Packet(kVideo, false, {}, ClockReference(2000));
  builder.Pes(kVideo, Data(20, 4), 0);
  const Bytes was = Joined(Joined({1, 2, 3}, Data(170, 2)), Data(184, 3));
  const Carried carried = Carry(builder.bytes(), {{was, {1, 2}}});
  const TransportRead is = ReadTransport(carried.bytes, {kVideo});
  EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{{1, 2}, Data(20, 4)}));
  EXPECT_EQ(is.streams.at(kVideo).counters, "00.0.1");
  EXPECT_EQ(is.streams.at(kVideo).references.size(), 2u);
  EXPECT_EQ(is.nulls, 1u);
  EXPECT_EQ(carried.bytes.size(), builder.bytes().size());
}

TEST(TransportCarrier, TellsThePesPacketsLength) {
  const auto lengthOf = [](const PesRead& pes) { return pes.head[4] << 8 | pes.head[5]; };
  TransportBuilder builder;
  const Bytes one = Data(300, 1), two = Data(65000, 2), three = Data(10, 3);
  builder.Pes(kVideo, one, 0, true);
  builder.Pes(kVideo, two, 1, true);
  builder.Pes(kVideo, three, 2, false);
  const TransportRead is = ReadTransport(
      Carry(builder.bytes(),
            {{one, Joined(one, Data(7, 4))}, {two, Joined(two, Data(527, 5))}, {three, Data(9, 6)}})
          .bytes,
      {kVideo});
  const std::vector<PesRead>& packets = is.streams.at(kVideo).packets;
  EXPECT_EQ(lengthOf(packets.at(0)), 308 + 7);
  EXPECT_EQ(lengthOf(packets.at(1)), 65535);
  EXPECT_EQ(lengthOf(packets.at(2)), 0);
  const TransportRead longer =
      ReadTransport(Carry(builder.bytes(), {{one, one}, {two, Joined(two, Data(528, 5))}}).bytes, {kVideo});
  EXPECT_EQ(lengthOf(longer.streams.at(kVideo).packets.at(1)), 0) << "a video stream's may be left out";
}

// Pictures need not begin with PES packets. What comes in stands where the picture begins, so that no time
// stamp comes to belong to another one.
TEST(TransportCarrier, SpreadsAPictureOverItsPesPackets) {
  TransportBuilder builder;
  const Bytes stream = Data(900, 1);
  const auto part = [&stream](size_t from, size_t to) {
    return Bytes(stream.begin() + static_cast<long>(from), stream.begin() + static_cast<long>(to));
  };
  builder.Pes(kVideo, part(0, 300), 0);
  builder.Pes(kVideo, part(300, 500), 1);
  builder.Pes(kVideo, part(500, 900), 2);
  const Bytes more = Data(250, 2);
  // The second of three pictures begins in the first PES packet and ends in the third.
  const TransportRead is =
      ReadTransport(Carry(builder.bytes(), {{part(0, 200), part(0, 200)},
                                            {part(200, 600), Joined(more, part(200, 600))},
                                            {part(600, 900), part(600, 900)}})
                        .bytes,
                    {kVideo});
  EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{Joined(Joined(part(0, 200), more), part(200, 300)),
                                               part(300, 500), part(500, 900)}));
  // One that loses bytes gives them up at its end.
  const TransportRead shrunk = ReadTransport(
      Carry(builder.bytes(), {{part(0, 200), part(0, 200)}, {part(200, 600), part(200, 350)}}).bytes,
      {kVideo});
  EXPECT_EQ(StreamsOf(shrunk), (std::vector<Bytes>{part(0, 300), part(300, 350), part(600, 900)}));
}

TEST(TransportCarrier, KeepsWhatStandsInFrontOfTheFirstPicture) {
  const Bytes lost = Data(400, 1), one = Data(300, 2);
  TransportBuilder builder;
  builder.Packet(kVideo, false, Data(184, 3));  // of a PES packet that began before the file
  builder.Pes(kVideo, lost, 0);
  builder.Pes(kVideo, one, 1);
  const Bytes longer = Joined(Data(500, 4), one);
  const Carried carried = Carry(builder.bytes(), {{one, longer}});
  const Bytes first(builder.bytes().begin(), builder.bytes().begin() + 4 * 188);
  EXPECT_EQ(Bytes(carried.bytes.begin(), carried.bytes.begin() + 4 * 188), first);
  EXPECT_EQ(StreamsOf(ReadTransport(carried.bytes, {kVideo})), (std::vector<Bytes>{lost, longer}));
}

TEST(TransportCarrier, KeepsGapsOfTheCounters) {
  const Bytes one = Data(300, 1), two = Data(300, 2), three = Data(300, 3);
  TransportBuilder builder;
  builder.Pes(kVideo, one, 0);
  builder.SetCounter(kVideo, 9);
  builder.Pes(kVideo, two, 1);
  builder.Pes(kVideo, three, 2);
  const TransportRead is =
      ReadTransport(Carry(builder.bytes(), {{one, Joined(one, Data(400, 4))}}).bytes, {kVideo});
  EXPECT_EQ(is.streams.at(kVideo).counters, "0123bcde");
}

TEST(TransportCarrier, ChangesSeveralStreams) {
  const Bytes one = Data(300, 1), two = Data(300, 2);
  TransportBuilder builder;
  builder.Pes(kVideo, one, 0);
  builder.Pes(kOther, two, 0);
  builder.Pes(kVideo, two, 1);
  builder.Pes(kOther, one, 1);
  const MemorySource source(builder.bytes(), "in.ts");
  Collected out;
  Carrier carrier(source, &out, {kVideo, kOther});
  const Bytes more = Data(400, 3);
  carrier.Take(kVideo, one, Joined(more, one));
  carrier.Take(kVideo, two, two);
  carrier.Take(kOther, two, Joined(two, more));
  carrier.Take(kOther, one, Bytes());
  carrier.Finish();
  const TransportRead is = ReadTransport(out.bytes, {kVideo, kOther});
  EXPECT_EQ(StreamsOf(is), (std::vector<Bytes>{Joined(more, one), two}));
  EXPECT_EQ(is.streams.at(kOther).packets.at(0).stream, Joined(two, more));
  EXPECT_EQ(is.streams.at(kOther).packets.at(1).stream, Bytes());
  EXPECT_EQ(is.nulls, 1u);
}

}  // namespace
}  // namespace qln::test

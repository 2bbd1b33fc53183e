// A stream more in transport streams that are put together by hand.

#include "container/ts/stream_addition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "container/mp4/memory_sink.h"
#include "container/ts/kept_packets.h"
#include "container/ts/program_map.h"
#include "support/program_tables.h"
#include "ts/transport.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace ts = qlnmedia::ts;

constexpr uint16_t kMap = 0x100, kVideo = 0x101;
const Bytes kDescriptors = {0x05, 0x04, 'V', 'A', 'N', 'C'};

Bytes Filled(size_t count, uint8_t first) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), first);
  return bytes;
}

// Sections in as many packets as they take.
void PutSection(TransportBuilder& builder, uint16_t identifier, const Bytes& section) {
  Bytes rest = {0};
  AppendBytes(rest, section);
  for (size_t at = 0; at < rest.size(); at += 184) {
    Bytes payload(rest.begin() + static_cast<std::ptrdiff_t>(at),
                  rest.begin() + static_cast<std::ptrdiff_t>(std::min(rest.size(), at + 184)));
    payload.resize(184, 0xFF);
    builder.Packet(identifier, at == 0, payload);
  }
}

// Tables and three pictures, each of two packets with null packets behind them.
Bytes Stream(const Bytes& map, Row row = Row::kPlain, int nulls = 0) {
  TransportBuilder builder(row);
  PutSection(builder, 0, AssociationTable(kMap));
  for (uint8_t picture = 0; picture < 3; ++picture) {
    PutSection(builder, kMap, map);
    builder.Pes(kVideo, Filled(300, picture), 90000u + 3600u * picture, true, {}, nulls);
  }
  return builder.bytes();
}

struct Added {
  Bytes bytes;
  uint16_t identifier = 0;
  ts::StreamAddition::Counts counts;
};

// PES packets of 16 and 250 bytes in turn in front of the video's.
Added Add(const Bytes& in, const std::vector<uint64_t>& places) {
  const qlnmedia::mp4::MemorySource source(in, "clip.ts");
  ts::StreamAddition addition(source, kVideo, 0x06, kDescriptors);
  EXPECT_EQ(addition.map(), kMap);
  size_t n = 0;
  const auto next = [&](ts::PlacedPes& pes) {
    if (n == places.size()) return false;
    Bytes head = {0, 0, 1, 0xBD, 0, static_cast<uint8_t>(n % 2 == 0 ? 10 : 244), 0x84, 0, 0};
    AppendBytes(head, Filled(n % 2 == 0 ? 7 : 241, static_cast<uint8_t>(n)));
    pes = {places[n == 0 ? 0 : n - 1], places[n], head};
    ++n;
    return true;
  };
  Added added;
  qlnmedia::mp4::MemorySink sink;
  added.identifier = addition.identifier();
  added.counts = addition.Write(next, &sink, [](uint64_t) {});
  added.bytes = sink.bytes();
  const qlnmedia::mp4::MemorySource out(added.bytes, "out.ts");
  ts::RequireOthersKept(source, out, {kMap, added.identifier}, "out.ts");
  return added;
}

Bytes MapWithout() { return MapTable({{0x1B, kVideo}}); }

// The sections of the map, one behind the other, without stuffing.
std::vector<Bytes> MapsIn(const Bytes& bytes) {
  std::vector<Bytes> maps;
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    if ((bytes[at + 1] & 0x1F) != kMap >> 8 || bytes[at + 2] != (kMap & 0xFF)) continue;
    const bool start = (bytes[at + 1] & 0x40) != 0;
    if (start) maps.emplace_back();
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at + (start ? 5 : 4));
    maps.back().insert(maps.back().end(), begin, bytes.begin() + static_cast<std::ptrdiff_t>(at + 188));
  }
  for (Bytes& map : maps) map.resize(3 + ((map.at(1) & 0x0Fu) << 8 | map.at(2)));
  return maps;
}

// How many packets of the map there are, which have to count on from 0.
size_t CountersOf(const Bytes& bytes) {
  size_t packets = 0;
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    if ((bytes[at + 1] & 0x1F) != kMap >> 8 || bytes[at + 2] != (kMap & 0xFF)) continue;
    EXPECT_EQ(bytes[at + 3] & 0x0F, static_cast<int>(packets++ % 16));
  }
  return packets;
}

// The table with the stream, its version one up.
void ExpectMap(const Bytes& map, std::vector<MappedStream> streams, int identifier,
               const Bytes& ofProgram = {}) {
  streams.push_back({0x06, identifier, kDescriptors});
  Bytes expected = MapTable(streams, ofProgram);
  expected[5] = 0xC3;
  ASSERT_EQ(map.size(), expected.size());
  EXPECT_EQ(Bytes(map.begin(), map.end() - 4), Bytes(expected.begin(), expected.end() - 4));
  EXPECT_EQ(ts::SectionCrc(map), 0u);
}

TEST(Sections, HaveTheCrcOfTheStandard) {
  // The check value of CRC-32 with that polynomial, all ones in front, nothing turned around.
  EXPECT_EQ(ts::SectionCrc(Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0x0376E6E7u);
  EXPECT_EQ(ts::SectionCrc(MapWithout()), 0u);
}

TEST(StreamAdditions, TakeNullPacketsOrRoomOfTheirOwn) {
  // The video's packets are 2 and 3, 5 and 6, 8 and 9 of the file.
  const Bytes in = Stream(MapWithout());
  const Added added = Add(in, {2 * 188, 5 * 188, 8 * 188});
  EXPECT_EQ(added.identifier, 0x102);
  EXPECT_EQ(added.counts.putIn, 4u);
  EXPECT_EQ(added.bytes.size(), in.size() + 4 * 188);
  const TransportRead read = ReadTransport(added.bytes, {0x102, kVideo});
  const StreamRead& stream = read.streams.at(0x102);
  ASSERT_EQ(stream.packets.size(), 3u);
  EXPECT_EQ(stream.packets[1].stream, Filled(241, 1));
  EXPECT_EQ(stream.counters, "0123");
  EXPECT_EQ(read.streams.at(kVideo).counters, ReadTransport(in, {kVideo}).streams.at(kVideo).counters);
  const auto maps = MapsIn(added.bytes);
  ASSERT_EQ(maps.size(), 3u);
  for (const Bytes& map : maps) ExpectMap(map, {{0x1B, kVideo}}, 0x102);
  // Each stands right in front of the packet that it was placed at.
  EXPECT_EQ(added.bytes[2 * 188 + 2], 0x02);
  EXPECT_EQ(added.bytes[3 * 188 + 2], kVideo & 0xFF);
  EXPECT_EQ(added.bytes[7 * 188 + 2], 0x02);
  EXPECT_EQ(added.bytes[8 * 188 + 2], kVideo & 0xFF);

  const Bytes roomy = Stream(MapWithout(), Row::kPlain, 2);
  const Added taken = Add(roomy, {2 * 188, 7 * 188, 12 * 188});
  // No null packet stands in front of the first; behind it are two for the next and one for the last.
  EXPECT_EQ(taken.counts.putIn, 1u);
  EXPECT_EQ(taken.counts.fromNull, 3u);
  EXPECT_EQ(taken.bytes.size(), roomy.size() + 188);
  EXPECT_EQ(ReadTransport(taken.bytes, {0x102}).streams.at(0x102).packets.size(), 3u);
}

TEST(StreamAdditions, KeepRowsOfOtherForms) {
  for (const Row row : {Row::kArrivalTime, Row::kParity}) {
    const size_t size = row == Row::kParity ? 204 : 192;
    const Added added = Add(Stream(MapWithout(), row), {2 * size + 4, 5 * size + 4, 8 * size + 4});
    const TransportRead read = ReadTransport(added.bytes, {0x102}, row);
    EXPECT_EQ(read.streams.at(0x102).packets.size(), 3u);
    EXPECT_TRUE(read.parityHolds);
    EXPECT_TRUE(std::is_sorted(read.arrivalTimes.begin(), read.arrivalTimes.end()));
  }
}

TEST(StreamAdditions, FindAnIdentifierThatIsFree) {
  const Bytes map = MapTable({{0x1B, kVideo}, {0x0F, 0x102}, {0x0F, 0x104}});
  const Added added = Add(Stream(map), {});
  EXPECT_EQ(added.identifier, 0x103);
  ExpectMap(MapsIn(added.bytes).at(0), {{0x1B, kVideo}, {0x0F, 0x102}, {0x0F, 0x104}}, 0x103);
}

// A map that fills its packet takes another one, and the packets behind it count on.
TEST(StreamAdditions, MakeMapsLonger) {
  for (const size_t filler : {size_t{140}, size_t{150}, size_t{158}, size_t{200}, size_t{330}, size_t{345}}) {
    Bytes ofProgram;
    for (size_t left = filler; left != 0;) {
      const size_t body = std::min<size_t>(left, 100) - 2;
      AppendBytes(ofProgram, Descriptor(0x80, Bytes(body, 7)));
      left -= body + 2;
    }
    const Bytes map = MapTable({{0x1B, kVideo}}, ofProgram);
    const Added added = Add(Stream(map), {});
    const auto maps = MapsIn(added.bytes);
    ASSERT_EQ(maps.size(), 3u);
    for (const Bytes& one : maps) ExpectMap(one, {{0x1B, kVideo}}, 0x102, ofProgram);
    EXPECT_EQ(CountersOf(added.bytes), CountersOf(Stream(map)) + added.counts.putIn) << filler;
    EXPECT_EQ(added.bytes.size(), Stream(map).size() + added.counts.putIn * 188);
  }
}

TEST(StreamAdditions, AreRefusedWhereNoMapTakesThem) {
  const auto refusal = [](const Bytes& in) -> std::string {
    try {
      Add(in, {});
    } catch (const qlnmedia::Error& error) {
      return error.what();
    }
    return {};
  };
  EXPECT_THAT(refusal(Stream(MapTable({{0x1B, 0x111}}))),
              HasSubstr("has no program map that names its pictures"));
  Bytes broken = MapWithout();
  broken.back() ^= 1;
  EXPECT_THAT(refusal(Stream(broken)), HasSubstr("has no program map"));
  Bytes full;
  for (int i = 0; i < 9; ++i) AppendBytes(full, Descriptor(0x80, Bytes(109, 7)));
  EXPECT_THAT(refusal(Stream(MapTable({{0x1B, kVideo}}, full))), HasSubstr("no room for another stream"));
}

}  // namespace
}  // namespace qln::test

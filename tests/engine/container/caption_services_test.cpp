// Caption services that program tables announce, laid out by hand as ATSC A/65 clause 6.9.2 has them.

#include "container/caption_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/program_tables.h"

namespace qlnmedia {
namespace {

using qln::test::AppendBytes;
using qln::test::AssociationTable;
using qln::test::Descriptor;
using qln::test::MappedStream;
using qln::test::MapTable;
using qln::test::TablePackets;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kMap = 0x1000;
constexpr int kPictures = 0x101;

// English in service 1, Spanish for easy readers in service 2 and wide, French in field 1 of line 21.
const Bytes kServices =
    Descriptor(0x86, {0xE3,                                        // reserved, number_of_services
                      'e', 'n', 'g', 0x80 | 0x40 | 1, 0x3F, 0xFF,  // digital_cc, service 1
                      's', 'p', 'a', 0x80 | 0x40 | 2, 0xFF, 0xFF,  // easy_reader, wide_aspect_ratio
                      'f', 'r', 'e', 0x7E, 0x3F, 0xFF});           // line21_field 0

// What is behind the tables: packets of no meaning.
Bytes StreamOf(const Bytes& map) {
  Bytes stream = TablePackets(0, AssociationTable(kMap));
  AppendBytes(stream, TablePackets(kMap, map));
  for (int i = 0; i < 4; ++i) AppendBytes(stream, TablePackets(0x1FFF, {}));
  return stream;
}

std::vector<AnnouncedService> Services(ByteSpan stream, int identifier = kPictures) {
  return AnnouncedServices(stream)[identifier];
}

const std::vector<AnnouncedService> kExpected = {{"service 1", "eng", false, false},
                                                 {"service 2", "spa", true, true},
                                                 {"line 21 field 1", "fre", false, false}};

TEST(AnnouncedCaptions, BesideTheirStream) {
  Bytes descriptors = Descriptor(0x0A, {'d', 'e', 'u', 0});  // of a language, by MPEG
  AppendBytes(descriptors, kServices);
  const Bytes stream = StreamOf(MapTable({{0x1B, kPictures, descriptors}, {0x81, 0x102}}));
  EXPECT_EQ(Services(stream), kExpected);
  EXPECT_THAT(Services(stream, 0x102), IsEmpty());
}

TEST(AnnouncedCaptions, OfTheWholeProgram) {
  const Bytes stream = StreamOf(MapTable({{0x1B, kPictures}}, kServices));
  EXPECT_EQ(Services(stream), kExpected);
}

TEST(AnnouncedCaptions, InASectionOfSeveralPackets) {
  Bytes descriptors = Descriptor(0x05, Bytes(200, 'x'));
  AppendBytes(descriptors, kServices);
  EXPECT_EQ(Services(StreamOf(MapTable({{0x1B, kPictures, descriptors}}))), kExpected);
}

TEST(AnnouncedCaptions, InPacketsWithBytesAroundThem) {
  const Bytes stream = StreamOf(MapTable({{0x1B, kPictures, kServices}}));
  for (const size_t front : {4u, 0u}) {
    Bytes wide;
    for (size_t at = 0; at < stream.size(); at += 188) {
      wide.resize(wide.size() + front, 0x11);
      wide.insert(wide.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                  stream.begin() + static_cast<std::ptrdiff_t>(at + 188));
      wide.resize(wide.size() + (front == 0 ? 16 : 0), 0x22);
    }
    EXPECT_EQ(Services(wide), kExpected) << front;
  }
}

TEST(AnnouncedCaptions, WhatIsNoSuchDescriptor) {
  const auto services = [](const Bytes& body) {
    return Services(StreamOf(MapTable({{0x1B, kPictures, Descriptor(0x86, body)}})));
  };
  EXPECT_THAT(services({}), IsEmpty());
  EXPECT_THAT(services({0xE2, 'e', 'n', 'g', 0xC1, 0x3F, 0xFF}), IsEmpty());   // two announced, one there
  EXPECT_THAT(services({0xE1, 'e', 'n', 'g', 0xC1, 0x3F}), IsEmpty());         // breaks off
  EXPECT_THAT(services({0xE1, 0x01, 'n', 'g', 0xC1, 0x3F, 0xFF}), IsEmpty());  // no letters
  EXPECT_THAT(services({0xE1, 'e', 'n', 'g', 0x7F, 0x3F, 0xFF}),
              ElementsAre(AnnouncedService{"line 21 field 2", "eng", false, false}));
}

// Tables of ATSC A/65 laid out by hand; a program, and a source, of number 1 is what TableSection says.
constexpr int kGuide = 0x1FFB;
constexpr int kEvents = 0x1D00;

Bytes Number16(int value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

// Clause 6.2: events of the running hours (type 0x0100), behind a table of another kind.
Bytes MasterGuide() {
  Bytes body = {0, 0, 2};  // protocol_version, tables_defined
  for (const auto& [type, identifier] : {std::pair{0x0301, 0x1E00}, std::pair{0x0100, kEvents}}) {
    AppendBytes(body, Number16(type));
    AppendBytes(body, Number16(0xE000 | identifier));
    AppendBytes(body, {0xE0, 0, 0, 0, 0, 0xF0, 0});
  }
  AppendBytes(body, {0xF0, 0});
  return qln::test::TableSection(0xC7, body);
}

// Clause 6.3.1: one channel with a descriptor of three bytes in front, and that of the program.
Bytes Channels(int program, int source) {
  Bytes body = {0, 2};
  for (const bool other : {true, false}) {
    Bytes channel(24, 0);
    AppendBytes(channel, Number16(other ? 99 : program));
    AppendBytes(channel, {0x0D, 0xC2});
    AppendBytes(channel, Number16(other ? 98 : source));
    AppendBytes(channel, {0xFC, static_cast<uint8_t>(other ? 3 : 0)});
    if (other) AppendBytes(channel, {0xA0, 1, 0});
    AppendBytes(body, channel);
  }
  AppendBytes(body, {0xFC, 0});
  return qln::test::TableSection(0xC8, body);
}

// Clause 6.5, with a title of four bytes each.
Bytes Events(const std::vector<Bytes>& descriptors) {
  Bytes body = {0, static_cast<uint8_t>(descriptors.size())};
  for (const Bytes& of : descriptors) {
    AppendBytes(body, {0xC0, 1, 0, 0, 0, 0, 0xC0, 0x0E, 0x10, 4, 1, 2, 3, 4});
    AppendBytes(body, Number16(static_cast<int>(0xF000 | of.size())));
    AppendBytes(body, of);
  }
  return qln::test::TableSection(0xCB, body);
}

// Guide and channels share a packet.
Bytes WithEvents(const Bytes& map, const Bytes& events, int program = 1, int source = 1) {
  Bytes stream = StreamOf(map);
  Bytes sections = MasterGuide();
  AppendBytes(sections, Channels(program, source));
  AppendBytes(stream, TablePackets(kGuide, sections));
  AppendBytes(stream, TablePackets(kEvents, events));
  return stream;
}

const Bytes kPlainMap = MapTable({{0x1B, kPictures}, {0x81, 0x102}});

TEST(AnnouncedCaptions, OfTheEventThatIsOn) {
  const Bytes later = Descriptor(0x86, {0xE1, 'd', 'u', 't', 0xC1, 0x3F, 0xFF});
  Bytes first =
      Descriptor(0x87, Bytes(120, 'r'));  // of another kind, so that the event takes several packets
  AppendBytes(first, kServices);
  for (const Bytes& events : {Events({first, later}), Events({Descriptor(0x87, {1}), first, later})}) {
    const Bytes stream = WithEvents(kPlainMap, events);
    EXPECT_EQ(Services(stream), kExpected);
    EXPECT_THAT(Services(stream, 0x102), IsEmpty());
  }
}

TEST(AnnouncedCaptions, TheMapIsBelievedBeforeEvents) {
  const Bytes map = MapTable({{0x1B, kPictures, Descriptor(0x86, {0xE1, 'd', 'u', 't', 0xC1, 0x3F, 0xFF})}});
  EXPECT_THAT(Services(WithEvents(map, Events({kServices}))),
              ElementsAre(AnnouncedService{"service 1", "dut", false, false}));
}

TEST(AnnouncedCaptions, EventsOfOtherProgramsAreNotTheirs) {
  EXPECT_THAT(Services(WithEvents(kPlainMap, Events({kServices}), 2)), IsEmpty());
  EXPECT_THAT(Services(WithEvents(kPlainMap, Events({kServices}), 1, 2)), IsEmpty());
  EXPECT_THAT(Services(WithEvents(kPlainMap, Events({}))), IsEmpty());
}

TEST(AnnouncedCaptions, InBytesThatBreakOffAnywhere) {
  Bytes stream = StreamOf(MapTable({{0x1B, kPictures, kServices}}));
  AppendBytes(stream, WithEvents(kPlainMap, Events({kServices, kServices})));
  for (size_t size = 0; size < stream.size(); size += 7) AnnouncedServices(ByteSpan(stream).first(size));
  qln::test::Random random(3);
  for (int i = 0; i < 300; ++i) {
    Bytes harmed = stream;
    for (int n = 0; n < 8; ++n) {
      const size_t at = random.below(harmed.size());
      if (at % 188 != 0) harmed[at] = static_cast<uint8_t>(random.below(256));
    }
    AnnouncedServices(harmed);
  }
}

}  // namespace
}  // namespace qlnmedia

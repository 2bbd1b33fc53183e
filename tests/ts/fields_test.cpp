// What stands in a transport stream beside the pictures that change: tables, other streams whatever they are,
// and all that the adaptation fields of the pictures' own packets say.

#include <gtest/gtest.h>

#include "support/program_tables.h"
#include "ts/carry.h"

namespace qln::test {
namespace {

constexpr uint64_t kWrap = uint64_t{1} << 33;

// Flags of an adaptation field.
constexpr uint8_t kDiscontinuity = 0x80, kRandomAccess = 0x40, kPriority = 0x20, kReference = 0x10;
constexpr uint8_t kSpliceCountdown = 0x04, kPrivate = 0x02, kExtension = 0x01;

struct Field {
  size_t packet = 0;  // of all of the stream, by how many PES packets had begun
  Bytes said;         // its bytes but for stuffing
  bool operator==(const Field&) const = default;
};

// What the adaptation fields of a stream say, by clause 2.4.3.4 of ISO/IEC 13818-1.
std::vector<Field> FieldsOf(const Bytes& file, uint16_t identifier) {
  std::vector<Field> fields;
  size_t begun = 0;
  for (size_t at = 0; at + 188 <= file.size(); at += 188) {
    const uint8_t* const p = &file[at];
    if (((p[1] & 0x1F) << 8 | p[2]) != identifier) continue;
    begun += (p[1] & 0x40) != 0 ? 1 : 0;
    if ((p[3] & 0x20) == 0 || p[4] == 0) continue;
    const uint8_t flags = p[5];
    size_t end = 6;
    if ((flags & kReference) != 0) end += 6;
    if ((flags & kSpliceCountdown) != 0) end += 1;
    if ((flags & kPrivate) != 0) end += 1u + p[end];
    if ((flags & kExtension) != 0) end += 1u + p[end];
    if (flags != 0) fields.push_back({begun, Bytes(p + 5, p + end)});
  }
  return fields;
}

Bytes With(uint8_t flags, const Bytes& more = {}) { return Joined({flags}, more); }

// Packets of tables, sections and streams that have nothing to do with the pictures.
void PutOthers(TransportBuilder& builder, uint8_t version, uint32_t seed) {
  const auto table = [&builder](uint16_t identifier, Bytes section, uint8_t at) {
    section[5] = static_cast<uint8_t>(0xC1 | at << 1);
    Bytes payload = Joined({0}, section);
    payload.resize(184, 0xFF);
    builder.Packet(identifier, true, payload);
  };
  table(0, AssociationTable(0x30), 0);
  table(0x30, TableSection(2, Joined({0xE1, 0, 0xF0, 0}, {0x1B, 0xE1, 0, 0xF0, 0})), version);
  table(0x31, TableSection(2, Joined({0xE1, 2, 0xF0, 0}, {0x02, 0xE1, 2, 0xF0, 0})), 0);
  table(0x11, TableSection(0x42, Data(30, seed)), 3);
  Bytes splice = Joined({0, 0xFC, 0x30, 0x11}, Data(17, seed));
  splice.resize(184, 0xFF);
  builder.Packet(0x1F4, true, splice);
  builder.Packet(0x200, true, Joined({0, 0, 1, 0xBD, 0, 178, 0x80, 0, 0}, Data(175, seed)));  // teletext
  builder.Packet(kOther, true, Data(120, seed), With(kRandomAccess));
  builder.Null();
}

// Bits of scrambling and of damage in packets of other streams.
void Scramble(Bytes& file) {
  for (size_t at = 0; at + 188 <= file.size(); at += 188) {
    if (((file[at + 1] & 0x1F) << 8 | file[at + 2]) == kOther)
      file[at + 3] = static_cast<uint8_t>(file[at + 3] | (at % 376 == 0 ? 0x80 : 0xC0));
  }
}

struct Made {
  Bytes file;
  std::vector<Bytes> pictures;
};

Made Make() {
  TransportBuilder builder;
  Made made;
  const std::vector<Bytes> fields = {
      With(kRandomAccess | kReference, Bytes{0, 1, 2, 3, 0x7E, 0}),
      With(kSpliceCountdown, {3}),
      With(kSpliceCountdown | kPriority, {2}),
      With(kPrivate, {4, 9, 8, 7, 6}),
      With(kDiscontinuity | kReference | kSpliceCountdown, {0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 11, 0}),
      With(kExtension, {5, 0x20, 0x0F, 1, 2, 3}),
  };
  for (size_t i = 0; i < fields.size(); ++i) {
    PutOthers(builder, i < 3 ? 4 : 5, static_cast<uint32_t>(i));
    made.pictures.push_back(Data(90 + 400 * i, static_cast<uint32_t>(50 + i)));
    if ((fields[i][0] & kDiscontinuity) != 0) builder.SetCounter(kVideo, 13);
    builder.Pes(kVideo, made.pictures.back(), (kWrap - 2 * 3600 + i * 3600) % kWrap, i % 2 == 0, fields[i]);
    builder.Packet(kVideo, false, {}, ClockReference((kWrap - 9000 + i * 3600) % kWrap, 17));
  }
  PutOthers(builder, 5, 99);
  made.file = builder.bytes();
  Scramble(made.file);
  return made;
}

TEST(TransportFields, StayWhereTheyStood) {
  const Made made = Make();
  const std::vector<Field> said = FieldsOf(made.file, kVideo);
  ASSERT_EQ(said.size(), 12u);
  for (const int change : {0, 1, 2}) {
    SCOPED_TRACE(change);
    std::vector<Piece> pieces;
    std::vector<Bytes> expected;
    for (const Bytes& picture : made.pictures) {
      Bytes is = picture;
      if (change == 0) is = Joined(Data(5, 7), picture);
      if (change == 1) is = Joined(Data(700, 7), picture);
      if (change == 2) is.resize(picture.size() / 3);
      pieces.push_back({picture, is});
      expected.push_back(is);
    }
    const Carried carried = Carry(made.file, pieces);
    EXPECT_EQ(FieldsOf(carried.bytes, kVideo), said);
    const TransportRead was = ReadTransport(made.file, {kVideo}), is = ReadTransport(carried.bytes, {kVideo});
    EXPECT_EQ(StreamsOf(is), expected);
    EXPECT_EQ(is.others, was.others);
    EXPECT_EQ(is.streams.at(kVideo).references, was.streams.at(kVideo).references);
    ASSERT_EQ(is.streams.at(kVideo).packets.size(), was.streams.at(kVideo).packets.size());
    for (size_t i = 0; i < was.streams.at(kVideo).packets.size(); ++i) {
      const Bytes& before = was.streams.at(kVideo).packets[i].head;
      const Bytes& after = is.streams.at(kVideo).packets[i].head;
      EXPECT_TRUE(std::equal(before.begin() + 6, before.end(), after.begin() + 6, after.end()))
          << "times of " << i;
    }
  }
}

// Of a constant rate, in which growth finds null packets: every clock reference stands as many bytes behind
// the one before it as it did, so that what it is off by stays.
TEST(TransportFields, ClocksOfAConstantRateStayTrue) {
  TransportBuilder builder;
  std::vector<Piece> pieces;
  // A packet takes 1504 bits: at 1.5 Mbit/s some 27072 ticks of 27 MHz.
  constexpr uint64_t kTicks = 1504 * 18;
  for (uint32_t i = 0; i < 6; ++i) {
    const Bytes picture = Data(500, i);
    const uint64_t ticks = builder.bytes().size() / 188 * kTicks;
    builder.Pes(kVideo, picture, 3600 * i, false,
                ClockReference(ticks / 300, static_cast<uint16_t>(ticks % 300)), 1);
    builder.Packet(kSound, false, Data(184, 40 + i));
    while (builder.bytes().size() / 188 % 12 != 0) builder.Null();
    pieces.push_back({picture, Joined(Data(i * 150, 9), picture)});
  }
  const Carried carried = Carry(builder.bytes(), pieces);
  EXPECT_EQ(carried.counts.putIn, 0u);
  EXPECT_GT(carried.counts.fromNull, 5u);
  ASSERT_EQ(carried.bytes.size(), builder.bytes().size());
  size_t seen = 0;
  for (size_t at = 0; at < carried.bytes.size(); at += 188) {
    const uint8_t* const p = &carried.bytes[at];
    if ((p[3] & 0x20) == 0 || p[4] == 0 || (p[5] & kReference) == 0) continue;
    const uint64_t base = uint64_t{p[6]} << 25 | uint64_t{p[7]} << 17 | uint64_t{p[8]} << 9 |
                          uint64_t{p[9]} << 1 | uint64_t{p[10]} >> 7;
    EXPECT_EQ(base * 300 + ((p[10] & 1u) << 8 | p[11]), at / 188 * kTicks);
    ++seen;
  }
  EXPECT_EQ(seen, 6u);
}

}  // namespace
}  // namespace qln::test

// Elements of ancillary data, byte by byte from the tables of ST 436, ST 291 and ST 334.

#include "captions/anc_element.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>

#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::Hex;
using testing::ElementsAre;
using testing::IsEmpty;

using Words = std::vector<uint16_t>;

void AppendBytes(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

// Line, wrapping, sample coding, samples, array head, samples up to the next 32 bits.
Bytes Entry(int line, uint8_t wrapping, uint8_t coding, size_t samples, Bytes bytes, bool counted = true) {
  const size_t is = bytes.size();
  bytes.resize((is + 3) / 4 * 4);
  const size_t said = counted ? bytes.size() : is;
  Bytes entry = {static_cast<uint8_t>(line >> 8),
                 static_cast<uint8_t>(line),
                 wrapping,
                 coding,
                 static_cast<uint8_t>(samples >> 8),
                 static_cast<uint8_t>(samples),
                 0,
                 0,
                 static_cast<uint8_t>(said >> 8),
                 static_cast<uint8_t>(said),
                 0,
                 0,
                 0,
                 1};
  AppendBytes(entry, bytes);
  return entry;
}

Bytes Element(const std::vector<Bytes>& entries) {
  Bytes element = {0, static_cast<uint8_t>(entries.size())};
  for (const Bytes& entry : entries) AppendBytes(element, entry);
  return element;
}

// The words of ten bits of a packet: each byte with its parity, and the checksum.
Words TenBits(const Bytes& packet) {
  Words words;
  uint32_t sum = 0;
  for (const uint8_t byte : packet) {
    const bool odd = std::popcount(unsigned{byte}) % 2 != 0;
    words.push_back(static_cast<uint16_t>(byte | (odd ? 0x100u : 0x200u)));
    sum += words.back();
  }
  sum &= 0x1FF;
  words.push_back(static_cast<uint16_t>(sum | ((sum & 0x100) != 0 ? 0u : 0x200u)));
  return words;
}

// Three in 32 bits, the first one in the highest, two bits of 0 in the lowest.
Bytes Packed(const Words& words) {
  Bytes bytes;
  for (size_t i = 0; i < words.size(); i += 3) {
    uint32_t number = 0;
    for (size_t k = 0; k < 3; ++k)
      number |= static_cast<uint32_t>(i + k < words.size() ? words[i + k] : 0) << (22 - 10 * k);
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(number >> shift));
  }
  return bytes;
}

std::vector<AncPacket> Read(const Bytes& bytes, std::vector<std::string>* damage,
                            AncElementKind kind = AncElementKind::kPackets) {
  const qln::test::ExactCopy data(bytes);
  return ReadAncElement(data.bytes(), kind, damage);
}

// Field 1, the first line, erase displayed memory.
const Bytes kPair = {0x61, 0x02, 0x03, 0x80, 0x94, 0x2C};

AncPacket Pair(int line, bool chroma = false, int field = 0) {
  AncPacket packet{chroma, line, 0, 0x61, 0x02, {0x80, 0x94, 0x2C}};
  packet.field = field;
  return packet;
}

Bytes With(Bytes bytes, const Bytes& more) {
  AppendBytes(bytes, more);
  return bytes;
}

TEST(AncElements, OfEightBits) {
  std::vector<std::string> damage;
  // 61 + 02 + 03 + 80 + 94 + 2C = 1A6.
  const Bytes summed = With(kPair, {0xA6});
  const auto packets = Read(Element({Entry(9, 4, 4, 7, summed), Entry(571, 3, 5, 7, summed),
                                     Entry(13, 2, 6, 6, kPair), Entry(10, 0x11, 4, 7, summed)}),
                            &damage);
  EXPECT_THAT(damage, IsEmpty());
  EXPECT_THAT(packets, ElementsAre(Pair(9), Pair(571, true, 2), Pair(13, false, 1), Pair(10)));
  EXPECT_THAT(Read(Element({}), &damage), IsEmpty());
  EXPECT_THAT(damage, IsEmpty());
}

TEST(AncElements, MarkedAsOfWrongParity) {
  std::vector<std::string> damage;
  for (const uint8_t coding : std::initializer_list<uint8_t>{10, 11, 12}) {
    const auto packets = Read(Element({Entry(9, 1, coding, 6, kPair)}), &damage);
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_TRUE(packets[0].parityErrors);
    EXPECT_EQ(packets[0].chroma, coding == 11);
  }
  EXPECT_THAT(damage, IsEmpty());
}

TEST(AncElements, OfTenBits) {
  std::vector<std::string> damage;
  const Words words = TenBits(kPair);
  EXPECT_THAT(words, ElementsAre(0x161, 0x102, 0x203, 0x180, 0x194, 0x12C, 0x2A6));
  // 161 102 203: 0101100001 0100000010 1000000011 00.
  const Bytes packed = Packed(words);
  EXPECT_EQ(Bytes(packed.begin(), packed.begin() + 4), Hex("58 50 28 0C"));
  for (const uint8_t coding : std::initializer_list<uint8_t>{7, 8, 9}) {
    const auto packets = Read(Element({Entry(9, 1, coding, words.size(), Packed(words))}), &damage);
    EXPECT_THAT(packets, ElementsAre(Pair(9, coding == 8))) << int{coding};
  }
  EXPECT_THAT(damage, IsEmpty());
  // A word short: the checksum is missing. A bit of the parity of each head word, of the sum, of a byte.
  Read(Element({Entry(9, 1, 7, words.size() - 1, Packed(words))}), &damage);
  EXPECT_THAT(damage, ElementsAre("an ANC packet whose data count is wrong"));
  const char* const kSum = "an ANC packet whose checksum is wrong";
  const char* const kCount = "an ANC packet whose data count is wrong";
  for (const auto& [at, flip, what] :
       {std::tuple(2, 0x100, kCount), std::tuple(4, 1, kSum), std::tuple(6, 0x200, kSum),
        std::tuple(1, 0x200, "an ANC packet whose identifiers have wrong parity")}) {
    Words spoilt = words;
    spoilt[static_cast<size_t>(at)] = static_cast<uint16_t>(spoilt[static_cast<size_t>(at)] ^ flip);
    damage.clear();
    EXPECT_THAT(
        Read(Element({Entry(9, 1, 7, 7, Packed(spoilt)), Entry(10, 1, 7, 7, Packed(words))}), &damage),
        ElementsAre(Pair(10)));
    EXPECT_THAT(damage, ElementsAre(what)) << at;
  }
}

TEST(AncElements, DamageOfOneEntryLosesThatEntry) {
  std::vector<std::string> damage;
  const Bytes good = Entry(11, 1, 4, 6, kPair);
  EXPECT_THAT(Read(Element({Entry(9, 1, 4, 7, With(kPair, {0xA7})), good}), &damage), ElementsAre(Pair(11)));
  EXPECT_THAT(Read(Element({Entry(9, 1, 4, 5, kPair), good}), &damage), ElementsAre(Pair(11)));
  EXPECT_THAT(Read(Element({Entry(9, 1, 13, 6, kPair), good}), &damage), ElementsAre(Pair(11)));
  EXPECT_THAT(Read(Element({Entry(9, 1, 0, 6, kPair), good}), &damage), ElementsAre(Pair(11)));
  EXPECT_THAT(Read(Element({Entry(9, 1, 4, 9, kPair), good}), &damage), ElementsAre(Pair(11)));
  EXPECT_THAT(
      damage,
      ElementsAre("an ANC packet whose checksum is wrong", "an ANC packet whose data count is wrong",
                  "a line whose sample coding is not known", "a line whose sample coding is not known",
                  "a line whose samples are not all there"));
}

TEST(AncElements, EveryCutLosesWhatIsCut) {
  const Bytes whole = Element({Entry(9, 1, 4, 6, kPair), Entry(10, 1, 4, 6, kPair)});
  for (size_t size = 0; size < whole.size(); ++size) {
    std::vector<std::string> damage;
    const auto packets =
        Read(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), &damage);
    EXPECT_EQ(packets.size(), size < 24 ? 0u : 1u) << size;
    EXPECT_THAT(damage, ElementsAre("an element of ancillary data that breaks off")) << size;
  }
}

TEST(AncElements, FillThatIsNotCountedIsPassedOver) {
  std::vector<std::string> damage;
  const auto packets =
      Read(Element({Entry(9, 1, 4, 6, kPair, false), Entry(10, 1, 4, 6, kPair, false)}), &damage);
  EXPECT_THAT(packets, ElementsAre(Pair(9), Pair(10)));
  // And none at all.
  Bytes tight = {0, 2};
  for (const int line : {9, 10}) {
    const Bytes entry = Entry(line, 1, 4, 6, kPair, false);
    tight.insert(tight.end(), entry.begin(), entry.end() - 2);
  }
  EXPECT_THAT(Read(tight, &damage), ElementsAre(Pair(9), Pair(10)));
  EXPECT_THAT(damage, IsEmpty());
}

TEST(AncElements, OfLinesHavePacketsBehindTheirFlag) {
  std::vector<std::string> damage;
  const auto lines = [&damage](const Bytes& entry) {
    return Read(Element({entry}), &damage, AncElementKind::kLines);
  };
  // In the luma samples of eight bits, two packets.
  Bytes line = Hex("10 10 10 00 FF FF");
  AppendBytes(line, With(kPair, {0xA6}));
  AppendBytes(line, With(Hex("10 00 FF FF"), With(kPair, {0xA6, 0x10, 0x10})));
  EXPECT_THAT(lines(Entry(9, 1, 4, line.size(), line)), ElementsAre(Pair(9), Pair(9)));
  // Of ten bits in the colour differences of both: Cb Y Cr Y, with black in the luma.
  Words words = {0x200, 0x000, 0x3FF, 0x3FF};
  for (const uint16_t word : TenBits(kPair)) words.push_back(word);
  Words both;
  for (const uint16_t word : words) both.insert(both.end(), {word, 0x040});
  EXPECT_THAT(lines(Entry(9, 1, 9, both.size(), Packed(both))), ElementsAre(Pair(9, true)));
  Words luma;
  for (const uint16_t word : words) luma.insert(luma.end(), {0x200, word});
  EXPECT_THAT(lines(Entry(9, 1, 9, luma.size(), Packed(luma))), ElementsAre(Pair(9)));
  // Standard definition: through both.
  EXPECT_THAT(lines(Entry(9, 2, 9, words.size(), Packed(words))), ElementsAre(Pair(9, false, 1)));
  // Without the flag, a waveform, a line of one bit a sample, black.
  EXPECT_THAT(lines(Entry(21, 1, 4, 6, kPair)), ElementsAre(Pair(21)));
  EXPECT_THAT(lines(Entry(21, 1, 4, 8, Hex("61 10 E0 E0 10 10 E0 10"))), IsEmpty());
  EXPECT_THAT(lines(Entry(21, 1, 1, 32, Hex("FF 00 FF 00"))), IsEmpty());
  EXPECT_THAT(damage, IsEmpty());
  line[8] = 0xFF;  // the first one's count; what stands behind it is found
  EXPECT_THAT(lines(Entry(9, 1, 4, line.size(), line)), ElementsAre(Pair(9)));
  EXPECT_THAT(damage, ElementsAre("an ANC packet whose data count is wrong"));
}

TEST(AncElements, AreWritten) {
  EXPECT_EQ(WriteAncElement({}, true), Hex("0000"));
  // Line 9, a progressive frame, eight bits of luma, 7 samples, 8 bytes with one of fill.
  EXPECT_EQ(WriteAncElement({Pair(9)}, true),
            Hex("0001 0009 04 04 0007 00000008 00000001 61020380942C A6 00"));
  const Bytes second = WriteAncElement({Pair(9), Pair(571, true, 2)}, false);
  EXPECT_EQ(Bytes(second.begin() + 4, second.begin() + 6), Hex("01 04"));
  EXPECT_EQ(Bytes(second.begin() + 24, second.begin() + 28), Hex("023B 03 05"));
  std::vector<std::string> damage;
  EXPECT_THAT(Read(second, &damage), ElementsAre(Pair(9), Pair(571, true, 2)));
}

TEST(AncElements, OfPicturesHaveTheirTriplets) {
  AncTrackWriter writer(Rate::k59_94);
  EXPECT_EQ(writer.Element({}), Hex("0000"));
  const std::vector<Triplet> many(40, Triplet{true, CcType::kField1, 0x94, 0x2C});
  std::vector<std::string> damage;
  std::optional<Rate> rate;
  std::vector<Triplet> read;
  for (const AncPacket& packet : Read(writer.Element(many), &damage)) {
    EXPECT_EQ(packet.line, 9);
    std::string reason;
    const auto some = CaptionsOfAnc(packet, &rate, &reason);
    ASSERT_TRUE(some) << reason;
    read.insert(read.end(), some->begin(), some->end());
  }
  EXPECT_EQ(read, many);
  EXPECT_EQ(rate, Rate::k59_94);
}

// The lines of each field: SMPTE ST 125 and ITU-R BT.656 for 525 and 625, SMPTE ST 274 for 1125; RP 168
// switches on lines 10 and 273, 6 and 319, 7 and 569.
TEST(AncFields, AreThoseOfTheirLines) {
  for (const auto& [height, first, second] :
       {std::tuple(486, 10, 273), std::tuple(480, 265, 266), std::tuple(576, 6, 319),
        std::tuple(576, 312, 313), std::tuple(1080, 7, 569), std::tuple(1080, 563, 564)}) {
    EXPECT_EQ(FieldOfLine(first, height, true), 1) << height;
    EXPECT_EQ(FieldOfLine(first, height, false), 0) << height;
    EXPECT_EQ(FieldOfLine(second, height, true), 2) << height;
    EXPECT_EQ(FieldOfLine(second, height, false), 2) << height;
  }
  EXPECT_EQ(FieldOfLine(1125, 1080, false), 0);
  EXPECT_EQ(FieldOfLine(700, 720, true), 0);
  EXPECT_EQ(FieldOfLine(0, 1080, true), 0);
}

}  // namespace
}  // namespace qlnmedia::captions

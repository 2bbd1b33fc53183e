// Ancillary data of transport streams, word by word from the tables of ST 291 and ST 2038.

#include "captions/anc_packets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>

#include "captions/sequencer.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Bits put behind each other.
class Writer {
 public:
  Writer& Put(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      if (used_++ % 8 == 0) bytes_.push_back(0);
      if ((value >> i & 1) != 0)
        bytes_.back() = static_cast<uint8_t>(bytes_.back() | 0x80 >> ((used_ - 1) % 8));
    }
    return *this;
  }
  // A byte with its parity in bits 8 and 9.
  static uint32_t Word(uint8_t byte) {
    return byte | (std::popcount(unsigned{byte}) % 2 != 0 ? 0x100u : 0x200u);
  }
  Writer& Packet(uint8_t did, uint8_t sdid, const Bytes& words, uint32_t spoilt = 0,
                 uint32_t spoiltCount = 0) {
    Put(0, 6).Put(0, 1).Put(9, 11).Put(0, 12);
    uint32_t sum = Word(did) + Word(sdid) + Word(static_cast<uint8_t>(words.size()));
    Put(Word(did), 10).Put(Word(sdid), 10).Put(Word(static_cast<uint8_t>(words.size())) ^ spoiltCount, 10);
    for (const uint8_t word : words) {
      sum += Word(word);
      Put(Word(word), 10);
    }
    sum &= 0x1FF;
    Put((sum | ((sum & 0x100) != 0 ? 0u : 0x200u)) ^ spoilt, 10);
    while (used_ % 8 != 0) Put(1, 1);
    return *this;
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  size_t used_ = 0;
};

std::vector<AncPacket> Read(const Bytes& bytes, std::vector<std::string>* damage) {
  const qln::test::ExactCopy data(bytes);
  return ReadSt2038(data.bytes(), damage);
}

TEST(AncPackets, AreRead) {
  Writer writer;
  writer.Packet(0x61, 0x02, {0x89, 0x94, 0x2C}).Packet(0x41, 0x05, {}).Packet(0x61, 0x02, {0x09, 0x15, 0xAE});
  writer.Put(0xFFFF, 16);
  std::vector<std::string> damage;
  const auto packets = Read(writer.bytes(), &damage);
  EXPECT_THAT(damage, IsEmpty());
  ASSERT_EQ(packets.size(), 3u);
  EXPECT_EQ(packets[0], (AncPacket{false, 9, 0, 0x61, 0x02, {0x89, 0x94, 0x2C}}));
  std::optional<Rate> rate;
  std::string reason;
  // The first bit of the first word is the field: 1 for the first one.
  EXPECT_EQ(CaptionsOfAnc(packets[0], &rate, &reason),
            (std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x2C}}));
  EXPECT_EQ(CaptionsOfAnc(packets[2], &rate, &reason),
            (std::vector<Triplet>{{true, CcType::kField2, 0x15, 0xAE}}));
  EXPECT_FALSE(CaptionsOfAnc(packets[1], &rate, &reason));
  EXPECT_EQ(reason, "");
  EXPECT_FALSE(rate);
}

TEST(AncPackets, HoldCaptionPackets) {
  Sequencer sequencer(Rate::k59_94);
  sequencer.AddPairs(1, {0x9420});
  const CaptionPacket sent = sequencer.NextPacket();
  Writer writer;
  writer.Packet(0x61, 0x01, WriteCdp(sent));
  std::vector<std::string> damage;
  const auto packets = Read(writer.bytes(), &damage);
  ASSERT_EQ(packets.size(), 1u);
  std::optional<Rate> rate;
  std::string reason;
  EXPECT_EQ(CaptionsOfAnc(packets[0], &rate, &reason), sent.triplets);
  EXPECT_EQ(rate, Rate::k59_94);
  AncPacket broken = packets[0];
  broken.words[9] ^= 1;
  EXPECT_FALSE(CaptionsOfAnc(broken, &rate, &reason));
  EXPECT_EQ(reason, "the checksum is wrong");
  broken = {false, 9, 0, 0x61, 0x02, {0x80, 0x94}};
  EXPECT_FALSE(CaptionsOfAnc(broken, &rate, &reason));
  EXPECT_NE(reason, "");
}

TEST(AncPackets, DamageCostsOnePacketWhereItsLengthIsKnown) {
  Writer writer;
  writer.Packet(0x61, 0x02, {0x89, 0x94, 0x2C}, 1).Packet(0x61, 0x02, {0x89, 0x94, 0x2F}).Put(0xFF, 8);
  std::vector<std::string> damage;
  EXPECT_EQ(Read(writer.bytes(), &damage).size(), 1u);
  EXPECT_THAT(damage, ElementsAre("an ANC packet whose checksum is wrong"));

  Writer length;
  length.Packet(0x61, 0x02, {0x89, 0x94, 0x2C})
      .Packet(0x61, 0x02, {0x89}, 0, 0x100)
      .Packet(0x61, 0x02, {0x89});
  damage.clear();
  EXPECT_EQ(Read(length.bytes(), &damage).size(), 1u);
  EXPECT_THAT(damage, ElementsAre("an ANC packet whose data count is wrong"));

  Bytes begin = Writer().Packet(0x61, 0x02, {0x89, 0x94, 0x2C}).bytes();
  begin[0] |= 0x80;
  damage.clear();
  EXPECT_THAT(Read(begin, &damage), IsEmpty());
  EXPECT_THAT(damage, ElementsAre("bytes that begin no ANC packet"));
}

TEST(AncPackets, BreakOffAnywhere) {
  const Bytes whole = Writer().Packet(0x61, 0x02, {0x89, 0x94, 0x2C}).bytes();
  for (size_t size = 1; size < whole.size(); ++size) {
    std::vector<std::string> damage;
    EXPECT_THAT(Read(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)), &damage),
                IsEmpty());
    EXPECT_EQ(damage.size(), 1u) << size;
  }
}

}  // namespace
}  // namespace qlnmedia::captions

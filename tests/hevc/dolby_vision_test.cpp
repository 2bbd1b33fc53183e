// The Dolby Vision configuration body and the search for the units that carry its metadata.

#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

struct Found {
  int32_t result = 0;
  int64_t sei = -1;  // offset of the pointer, or -1 for null
  uint32_t seiSize = 0;
  int64_t rpu = -1;
  uint32_t rpuSize = 0;
};

Found Search(const Bytes& bytes, int32_t mode) {
  ExactCopy copy(bytes);
  uint8_t* sei = reinterpret_cast<uint8_t*>(8);
  uint8_t* rpu = reinterpret_cast<uint8_t*>(8);
  Found found;
  found.seiSize = found.rpuSize = 777;
  found.result = qlnUtilFindDolbyVisionMetadata(copy.data(), static_cast<uint32_t>(bytes.size()), mode, &sei,
                                                &found.seiSize, &rpu, &found.rpuSize);
  if (reinterpret_cast<uintptr_t>(sei) == 8) return found;
  if (sei != nullptr) found.sei = sei - copy.data();
  if (rpu != nullptr) found.rpu = rpu - copy.data();
  return found;
}

Bytes Filled(uint8_t first, size_t size, uint8_t rest = 0x55) {
  Bytes unit(size, rest);
  unit[0] = first;
  return unit;
}

TEST(DolbyVisionSearch, SmallAndNullBuffers) {
  auto three = Search(Hex("7C 01 02"), 0);
  EXPECT_EQ(three.result, 0);
  EXPECT_EQ(three.seiSize, 777u) << "not written";
  for (const int32_t mode : {0, 1}) {
    auto four = Search(Hex("00 00 00 01"), mode);
    EXPECT_EQ(four.result, 0);
    EXPECT_EQ(four.seiSize, 0u);
    EXPECT_EQ(four.rpuSize, 0u);
    EXPECT_EQ(four.sei, -1);
  }
  uint8_t* pointer = nullptr;
  uint32_t size = 777;
  uint8_t bytes[16] = {};
  EXPECT_EQ(qlnUtilFindDolbyVisionMetadata(nullptr, 16, 0, &pointer, &size, &pointer, &size), 0);
  EXPECT_EQ(qlnUtilFindDolbyVisionMetadata(bytes, 16, 0, nullptr, &size, &pointer, &size), 0);
  EXPECT_EQ(qlnUtilFindDolbyVisionMetadata(bytes, 16, 0, &pointer, nullptr, &pointer, &size), 0);
  EXPECT_EQ(qlnUtilFindDolbyVisionMetadata(bytes, 16, 0, &pointer, &size, nullptr, &size), 0);
  EXPECT_EQ(qlnUtilFindDolbyVisionMetadata(bytes, 16, 0, &pointer, &size, &pointer, nullptr), 0);
  EXPECT_EQ(size, 777u);
}

TEST(DolbyVisionSearch, LengthForm) {
  auto rpu = Search(Join({WithLength(Filled(0x7C, 20)), WithLength(Filled(0x02, 10))}), 0);
  EXPECT_EQ(rpu.result, 1);
  EXPECT_EQ(rpu.rpu, 5);
  EXPECT_EQ(rpu.rpuSize, 19u);
  EXPECT_EQ(rpu.sei, -1);
  EXPECT_EQ(rpu.seiSize, 0u);

  auto last = Search(Join({WithLength(Filled(0x02, 10)), WithLength(Filled(0x7C, 20))}), 0);
  EXPECT_EQ(last.rpu, 14 + 5);
  EXPECT_EQ(last.rpuSize, 19u) << "the cursor's end gives the last unit's size";

  auto two =
      Search(Join({WithLength(Filled(0x4E, 6)), WithLength(Filled(0x4E, 9)), WithLength(Filled(2, 4))}), 0);
  EXPECT_EQ(two.sei, 10 + 5);
  EXPECT_EQ(two.seiSize, 8u);

  auto both = Search(Join({WithLength(Filled(0x4E, 6)), WithLength(Filled(0x7C, 9))}), 0);
  EXPECT_EQ(both.seiSize, 5u);
  EXPECT_EQ(both.rpuSize, 8u);
}

TEST(DolbyVisionSearch, LengthFormOnOddLengths) {
  // A length of 0 moves by 4 and goes on.
  auto zero = Search(Join({Hex("00 00 00 00"), WithLength(Filled(0x7C, 8))}), 0);
  EXPECT_EQ(zero.rpu, 9);
  EXPECT_EQ(zero.rpuSize, 7u);
  // A length that leads beyond the data ends the search; the size comes from there, modulo 2^32.
  auto beyond = Search(Hex("00 01 00 00 7C 01 02 03 04"), 0);
  EXPECT_EQ(beyond.rpu, 5);
  EXPECT_EQ(beyond.rpuSize, 0x10000u + 4 - 5);
  auto most = Search(Hex("FF FF FF FF 7C 01 02 03 04"), 0);
  EXPECT_EQ(most.rpuSize, 0xFFFFFFFEu);
  EXPECT_EQ(most.result, 1);
}

TEST(DolbyVisionSearch, StartCodeForm) {
  for (const size_t n : {9u, 10u, 30u}) {
    const Bytes bytes = Join({Hex("00 00 00 01 4E 01"), Bytes(n - 6, 0x55)});
    auto sei = Search(bytes, 1);
    EXPECT_EQ(sei.sei, 5);
    EXPECT_EQ(sei.seiSize, n == 9 ? 0u : static_cast<uint32_t>(n - 9)) << n;
    EXPECT_EQ(sei.result, n == 9 ? 0 : 1);
  }
  // n of 8: the cursor stops in front of the pointer.
  auto short8 = Search(Hex("00 00 00 01 4E 01 55 55"), 1);
  EXPECT_EQ(short8.seiSize, 0xFFFFFFFFu);
  EXPECT_EQ(short8.result, 1);
}

TEST(DolbyVisionSearch, StartCodeFormIsCoarse) {
  // A three-byte code at the start: the test falls on the second header byte.
  EXPECT_EQ(Search(Hex("00 00 01 4E 02 55 55 55 55 55 55 55"), 1).result, 0);
  // A zero byte in the payload stops the cursor two bytes in front of it; the byte four places on is tested.
  //      0           4        8              13
  auto payload = Search(Hex("00 00 00 01 02 02 55 55 55 55 00 55 7C 66 66 66 66 66 66 66"), 1);
  EXPECT_EQ(payload.rpu, 13) << "a stop at 8, so byte 12 is taken for a unit";
  // A byte of 1 three places on stops it as well.
  auto one = Search(Hex("00 00 00 01 02 02 55 55 55 01 7C 66 66 66 66 66 66"), 1);
  EXPECT_EQ(one.rpu, 11);
  // The size reaches to the next stop.
  auto stop = Search(Hex("00 00 00 01 7C 02 55 55 55 55 55 00 55 55 55 55 55"), 1);
  EXPECT_EQ(stop.rpu, 5);
  EXPECT_EQ(stop.rpuSize, 9u - 5);
}

// The search told plainly, for 4 bytes and more.
Found SearchPlainly(const Bytes& bytes, int32_t mode) {
  Found found;
  const auto limit = static_cast<uint32_t>(bytes.size()) - 4;
  uint32_t c = 0;
  const auto close = [&] {
    if (found.sei >= 0 && found.seiSize == 0) found.seiSize = c - static_cast<uint32_t>(found.sei);
    if (found.rpu >= 0 && found.rpuSize == 0) found.rpuSize = c - static_cast<uint32_t>(found.rpu);
  };
  while (c < limit) {
    close();
    if (bytes[c + 4] == 0x4E) {
      found.sei = c + 5;
      found.seiSize = 0;
    }
    if (bytes[c + 4] == 0x7C) {
      found.rpu = c + 5;
      found.rpuSize = 0;
    }
    if (mode == 0) {
      c += 4 + (uint32_t{bytes[c]} << 24 | uint32_t{bytes[c + 1]} << 16 | uint32_t{bytes[c + 2]} << 8 |
                bytes[c + 3]);
    } else {
      c += 4;
      while (c < limit && bytes[c] != 0 && bytes[c + 1] != 0 && bytes[c + 2] != 0 && bytes[c + 3] != 1) ++c;
    }
  }
  close();
  found.result = found.seiSize != 0 || found.rpuSize != 0 ? 1 : 0;
  return found;
}

void ExpectPlainSearch(const Bytes& bytes) {
  for (const int32_t mode : {0, 1}) {
    const Found found = Search(bytes, mode);
    const Found plain = SearchPlainly(bytes, mode);
    ASSERT_EQ(found.result, plain.result) << ToHex(bytes) << " " << mode;
    ASSERT_EQ(found.sei, plain.sei) << ToHex(bytes) << " " << mode;
    ASSERT_EQ(found.seiSize, plain.seiSize) << ToHex(bytes) << " " << mode;
    ASSERT_EQ(found.rpu, plain.rpu) << ToHex(bytes) << " " << mode;
    ASSERT_EQ(found.rpuSize, plain.rpuSize) << ToHex(bytes) << " " << mode;
  }
}

TEST(DolbyVisionSearch, ALengthThatWrapsThirtyTwoBitsEndsTheSearch) {
  // The cursor leads to 2^32 + 2 and not to 2, where byte 6 would be taken for a unit.
  auto two = Search(Hex("FF FF FF FE 7C 01 4E 01 55 55 55 55"), 0);
  EXPECT_EQ(two.rpu, 5);
  ASSERT_EQ(two.rpuSize, 0xFFFFFFFDu);
  ASSERT_EQ(two.sei, -1) << "the next search would never end";
  // 2^32 itself, from where a cursor of 32 bits would never get away.
  auto whole = Search(Hex("FF FF FF FC 7C 01 02 03 04"), 0);
  EXPECT_EQ(whole.rpuSize, 0xFFFFFFFBu);
}

TEST(DolbyVisionSearch, EachOfThreeZeroBytesStopsTheCursor) {
  // The first look is at byte 4, four places behind the start. A zero there, or one or two bytes behind,
  // stops the cursor at once, so that byte 8 is tested.
  for (const char* text :
       {"00 00 00 01 00 55 55 55 7C 55 66 66 66 66", "00 00 00 01 55 00 55 55 7C 55 66 66 66 66",
        "00 00 00 01 55 55 00 55 7C 55 66 66 66 66", "00 00 00 01 55 55 55 01 7C 55 66 66 66 66"}) {
    auto found = Search(Hex(text), 1);
    EXPECT_EQ(found.rpu, 9) << text;
    EXPECT_EQ(found.rpuSize, 1u) << text;
    EXPECT_EQ(found.result, 1) << text;
  }
  // A zero four places on is not looked at yet, so the cursor comes to stand behind byte 8.
  EXPECT_EQ(Search(Hex("00 00 00 01 55 55 55 00 7C 55 66 66 66 66"), 1).rpu, -1);
}

TEST(DolbyVisionSearch, EveryTruncation) {
  const Bytes bytes =
      Join({WithStartCode(Filled(0x4E, 9)), WithStartCode(Filled(0x7C, 12)), WithLength(Filled(0x7C, 5))});
  for (size_t n = 4; n <= bytes.size(); ++n) ExpectPlainSearch(Head(bytes, n));
}

TEST(DolbyVisionSearch, AgreesWithThePlainSearch) {
  Random random(88);
  for (int round = 0; round < 30000 && !HasFatalFailure(); ++round) {
    Bytes bytes;
    while (bytes.size() < 4 || random.below(4) != 0) {
      Bytes unit = random.bytes(random.below(12));
      for (uint8_t& byte : unit) {
        if (random.below(8) == 0) byte = Hex("00 01 4E 7C")[random.below(4)];
      }
      unit.insert(unit.begin(), Hex("4E 7C 26 00")[random.below(4)]);
      bytes = Join({bytes, random.below(2) == 0 ? WithStartCode(unit) : WithLength(unit)});
    }
    ExpectPlainSearch(bytes);
  }
}

TEST(DolbyVisionConfig, PublishedLayout) {
  DvvcConfigRecord config{};
  config.dv_version_major = 1;
  config.dv_flags = 5 | 6 << 7 | 1 << 13 | 1 << 15;
  Bytes out(24, 0xEE);
  QLNBitState state{out.data(), 24, 0, 0};
  EXPECT_EQ(qlnutilWrite_DVVC_CR(&state, &config), 24u);
  EXPECT_EQ(
      ToHex(out), "01 00 0A 35" + [] {
        std::string zeros;
        for (int i = 0; i < 20; ++i) zeros += " 00";
        return zeros;
      }());
}

TEST(DolbyVisionConfig, EveryField) {
  const DvvcConfigRecord config{2,
                                3,
                                static_cast<uint16_t>(0x7F | 0x2A << 7 | 1 << 14),
                                0xABCDEF19,
                                {0x01234567, 0x89ABCDEF, 0xFFFFFFFF, 0x00000001}};
  Bytes out(40, 0xFF);
  QLNBitState state{out.data(), 40, 0, 11};
  EXPECT_EQ(qlnutilWrite_DVVC_CR(&state, &config), (11u + 192) / 8);
  BitBuilder expected;
  expected.u(11, 0x7FF).u(8, 2).u(8, 3).u(7, 0x7F).u(6, 0x2A).u(3, 2).u(4, 9).u(28, 0xABCDEF1);
  expected.u(32, 0x01234567).u(32, 0x89ABCDEF).u(32, 0xFFFFFFFF).u(32, 1);
  while (expected.bits() < 320) expected.u(1, 1);
  EXPECT_EQ(ToHex(out), ToHex(expected.bytes()));
}

TEST(DolbyVisionConfig, NothingIsWrittenWhereItDoesNotFit) {
  const DvvcConfigRecord config{};
  Bytes out(24, 0xEE);
  QLNBitState state{out.data(), 23, 0, 0};
  EXPECT_EQ(qlnutilWrite_DVVC_CR(&state, &config), 0u);
  state = {out.data(), 24, 0, 1};
  EXPECT_EQ(qlnutilWrite_DVVC_CR(&state, &config), 0u);
  EXPECT_EQ(state.bitPos, 1u);
  state.bitPos = 77;
  EXPECT_EQ(qlnutilWrite_DVVC_CR(&state, nullptr), 9u) << "a null record writes nothing";
  EXPECT_EQ(out, Bytes(24, 0xEE));
  EXPECT_EQ(qlnutilWrite_DVVC_CR(nullptr, &config), 0u);
}

}  // namespace
}  // namespace qln::test

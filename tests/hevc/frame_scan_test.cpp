// The walk over a frame's NAL units, with its prefix lengths, extra steps and last bytes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

struct ScanOutcome {
  uint32_t count = 0;
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
  Bytes vpsSps = Bytes(QLN_HEVC_UNIT_SIZE + 8, 0xEE);
  Bytes ppsBytes = Bytes(QLN_HEVC_UNIT_SIZE + 8, 0xEE);
  uint32_t vpsSpsSize = 777;
  uint32_t ppsSize = 777;
  std::vector<std::string> messages;
  Bytes vpsSpsCopy() const { return Head(vpsSps, vpsSpsSize); }
  Bytes ppsCopy() const { return Head(ppsBytes, ppsSize); }
};

ScanOutcome Scan(const Bytes& bytes) {
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  ScanOutcome outcome;
  MessageCapture capture;
  outcome.count = qlnutilFindNalUnitsHevc(&frame, outcome.vps.get(), outcome.sps.get(), outcome.pps.get(), 1,
                                          2, outcome.vpsSps.data(), outcome.ppsBytes.data(), 3,
                                          &outcome.vpsSpsSize, &outcome.ppsSize);
  outcome.messages = capture.textsWithoutLines();
  EXPECT_EQ(copy.bytes(), bytes);
  return outcome;
}

Bytes VpsUnit() { return Escaped(Vps()); }
Bytes SpsUnit() { return Escaped(Sps()); }
Bytes PpsUnit() { return Escaped(Pps()); }
Bytes Slice() { return Hex("26 01 AF 12 34 56 78 80"); }
Bytes Four(const Bytes& unit) { return WithStartCode(unit, 4); }
Bytes Three(const Bytes& unit) { return WithStartCode(unit, 3); }

TEST(HevcFrameScan, ParameterSetsAndASlice) {
  auto scan = Scan(Join({Four(VpsUnit()), Four(SpsUnit()), Four(PpsUnit()), Four(Slice())}));
  EXPECT_EQ(scan.count, 4u);
  EXPECT_THAT(scan.messages, IsEmpty());
  EXPECT_EQ(Words(*scan.vps), Words(ReadVps(VpsUnit()).record()));
  EXPECT_EQ(Words(*scan.sps), Words(ReadSps(SpsUnit()).record()));
  EXPECT_EQ(Words(*scan.pps), Words(ReadPps(PpsUnit()).record()));
  EXPECT_EQ(scan.vpsSpsCopy(), SpsUnit()) << "whichever came last";
  EXPECT_EQ(scan.ppsCopy(), PpsUnit());
  EXPECT_EQ(scan.vpsSps[scan.vpsSpsSize + VpsUnit().size()], 0xEE);
}

TEST(HevcFrameScan, BehindThreeByteCodesEverythingIsAByteLate) {
  auto scan = Scan(Join({Three(VpsUnit()), Three(SpsUnit()), Three(PpsUnit()), Three(Slice())}));
  EXPECT_EQ(scan.count, 4u);
  EXPECT_EQ(Words(*scan.sps), std::vector<uint32_t>(7008));
  EXPECT_EQ(Words(*scan.vps), std::vector<uint32_t>(210));
  EXPECT_EQ(Words(*scan.pps), std::vector<uint32_t>(39));
  // The second header byte 01 reads as type 0.
  EXPECT_THAT(scan.messages, testing::ElementsAre("Not a vps NAL" + kLocated, "Not a sps NAL" + kLocated,
                                                  "Not a pps NAL (0)" + kLocated));
  Bytes late = Join({SpsUnit(), Hex("00")});
  late.erase(late.begin());
  EXPECT_EQ(scan.vpsSpsCopy(), late) << "with the next start code's first byte";
}

TEST(HevcFrameScan, ALastUnitBehindAThreeByteCodeEndsInAZeroByte) {
  auto scan = Scan(Join({Three(PpsUnit())}));
  EXPECT_EQ(scan.count, 1u);
  Bytes late = Join({PpsUnit(), Hex("00")});
  late.erase(late.begin());
  EXPECT_EQ(scan.ppsCopy(), late) << "the byte behind the frame counts as 0";
}

TEST(HevcFrameScan, NothingToScan) {
  auto none = Scan(Hex("11 22 33 44 55 66"));
  EXPECT_EQ(none.count, 0u);
  EXPECT_EQ(none.vpsSpsSize, 777u);
  EXPECT_EQ(Scan({}).count, 0u);
  DFrame frame{};
  frame.frameSize = 10;
  EXPECT_EQ(
      qlnutilFindNalUnitsHevc(&frame, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, 0, nullptr, nullptr),
      0u);
  EXPECT_EQ(qlnutilFindNalUnitsHevc(nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, 0, nullptr,
                                    nullptr),
            0u);
}

TEST(HevcFrameScan, NullRecordsBuffersAndCounts) {
  const Bytes bytes = Join({Four(VpsUnit()), Four(SpsUnit()), Four(PpsUnit())});
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  uint32_t counts[2] = {777, 777};
  Bytes buffer(1024, 0xEE);
  EXPECT_EQ(qlnutilFindNalUnitsHevc(&frame, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, 0, &counts[0],
                                    &counts[1]),
            3u);
  EXPECT_EQ(counts[0], 777u) << "without a buffer the copy is left out as a whole";
  EXPECT_EQ(counts[1], 777u);
  EXPECT_EQ(qlnutilFindNalUnitsHevc(&frame, nullptr, nullptr, nullptr, 0, 0, buffer.data(), nullptr, 0,
                                    nullptr, nullptr),
            3u);
  EXPECT_EQ(Head(buffer, SpsUnit().size()), SpsUnit()) << "copied, with no count to store";
}

TEST(HevcFrameScan, AUnitAbove1024BytesIsParsedAndNotCopied) {
  for (const size_t size : {1024u, 1025u}) {
    Bytes unit = SpsUnit();
    unit.resize(size, 0xAB);
    auto scan = Scan(Join({Four(unit), Four(Slice())}));
    EXPECT_EQ(scan.count, 2u);
    EXPECT_EQ(scan.sps->pic_width_in_luma_samples, 64u);
    EXPECT_EQ(scan.vpsSpsSize, size == 1024 ? 1024u : 0u);
    EXPECT_EQ(scan.vpsSps[0], size == 1024 ? 0x42 : 0xEE);
    EXPECT_EQ(scan.vpsSps[1024], 0xEE);
  }
}

TEST(HevcFrameScan, OtherTypesAreCounted) {
  // Delimiter, prefix SEI, slices and types above 40.
  auto scan = Scan(Join({Four(Hex("46 01 50")), Four(VpsUnit()), Four(Hex("4E 01 05 01 AA 80")),
                         Four(Hex("7C 01 19 08")), Four(SpsUnit()), Four(Slice())}));
  EXPECT_EQ(scan.count, 6u);
  EXPECT_THAT(scan.messages, IsEmpty());
  EXPECT_EQ(scan.sps->pic_width_in_luma_samples, 64u);
  EXPECT_EQ(scan.vps->vps_video_parameter_set_id, 5u);
}

TEST(HevcFrameScan, TheUnitBehindSomeTypesIsNotSeen) {
  for (const uint32_t type : {36u, 37u, 38u, 40u}) {
    const Bytes unit = {static_cast<uint8_t>(type << 1), 1, 0x80};
    // The cursor ends four bytes late, behind the SPS's start code: the SPS is not found, and the PPS is
    // taken to stand where the cursor is.
    auto scan = Scan(Join({Four(unit), Four(SpsUnit()), Four(PpsUnit()), Four(Slice())}));
    EXPECT_EQ(Words(*scan.sps), std::vector<uint32_t>(7008)) << type;
    EXPECT_EQ(scan.vpsSpsSize, 777u);
    EXPECT_LT(scan.count, 4u);
    // At the end of a frame it costs nothing.
    auto last = Scan(Join({Four(SpsUnit()), Four(unit)}));
    EXPECT_EQ(last.count, 2u);
    EXPECT_EQ(last.sps->pic_width_in_luma_samples, 64u);
  }
  for (const uint32_t type : {35u, 39u, 41u}) {
    const Bytes unit = {static_cast<uint8_t>(type << 1), 1, 0x80};
    EXPECT_EQ(Scan(Join({Four(unit), Four(SpsUnit())})).sps->pic_width_in_luma_samples, 64u) << type;
  }
}

TEST(HevcFrameScan, AnEndOfSequenceStep) {
  // Worked by hand. 00 00 00 01 4A 01 | 00 00 00 01 26 01 AF | 00 00 00 01 26 01 BF CF: the first unit is
  // type 37, 2 bytes. The cursor goes past three zeros and a byte, then 2 + 4 on: to 10, on 26 01 AF of the
  // first slice; 21 - 6 = 15 bytes count as left, 11 are there. The next start code is that of the second
  // slice, at offset 3 from there; its unit begins at 7 and ends with what is left, at 15: count 2, nothing
  // left.
  auto scan = Scan(Hex("00 00 00 01 4A 01 00 00 00 01 26 01 AF 00 00 00 01 26 01 BF CF"));
  EXPECT_EQ(scan.count, 2u);
  // With a PPS last: the prefix is taken as 4 on 26 01 AF 00, so the type is read from 00 00 01 44: not 34.
  auto pps = Scan(Join({Hex("00 00 00 01 4A 01 00 00 00 01 26 01 AF"), Four(PpsUnit())}));
  EXPECT_EQ(pps.count, 2u);
  EXPECT_EQ(pps.ppsSize, 777u);
}

TEST(HevcFrameScan, TheExtraStepIsTheZerosAndOneByte) {
  // The cursor comes to 10, behind the second start code: the type is that of the byte four on, 44 (a PPS),
  // and the copy begins there. The unit that the search finds behind the third start code ends with what is
  // left, 4 bytes behind the frame: 8 bytes.
  auto scan = Scan(Hex("00 00 00 01 4A 01 00 00 00 01 7C 01 11 22 44 01 C1 62 00 00 00 01 26 01 AF 09"));
  EXPECT_EQ(scan.count, 2u);
  EXPECT_EQ(scan.ppsCopy(), Hex("44 01 C1 62 00 00 00 01"));
}

TEST(HevcFrameScan, AUnitThatEndsWithTheFrameTakesAllThatIsLeft) {
  // Codes of three bytes: behind the first unit the cursor is 3 bytes ahead of the count of what is left. Not
  // one of those 3 is counted as a unit of its own.
  EXPECT_EQ(Scan(Hex("00 00 01 4A 01 00 00 01 26 01 AF 00 00 01 26 01 BF CF")).count, 2u);
}

TEST(HevcFrameScan, AStartCodeInTheLastThreeBytesCountsWithTheBytesBehind) {
  // Behind the extra step three bytes are there, and four more count as left: a unit of these.
  EXPECT_EQ(Scan(Hex("00 00 00 01 4A 01 00 00 00 01 00 00 01")).count, 2u);
  // Bytes behind the frame neither begin nor end a start code.
  EXPECT_EQ(Scan(Hex("00 00 00 01 4A 01 00 00 00 01 00 00")).count, 1u);
  EXPECT_EQ(Scan(Hex("00 00 00 01 4A 01 00 00 00 01 11 00 00")).count, 1u);
}

TEST(HevcFrameScan, LastBytes) {
  const Bytes frame = Join({Four(SpsUnit())});
  EXPECT_EQ(Scan(frame).count, 1u);
  EXPECT_EQ(Scan(Join({frame, Hex("00")})).count, 1u) << "belongs to the unit";
  EXPECT_EQ(Scan(Join({frame, Hex("00 00")})).count, 1u);
  EXPECT_EQ(Scan(Join({frame, Hex("00 00 00")})).count, 4u) << "each of the three counts";
  EXPECT_EQ(Scan(Join({frame, Hex("00 00 00 00")})).count, 1u) << "four: no start code is left";
  EXPECT_EQ(Scan(Join({frame, Hex("00 00 01")})).count, 4u);
  for (size_t n = 1; n < 4; ++n) EXPECT_EQ(Scan(Head(Hex("00 00 01"), n)).count, n);
}

TEST(HevcFrameScan, AUnitThatEndsWithItsFirstByteIsReadAsOneOfZeros) {
  // Four bytes behind the code of three there is nothing: no SPS, and a copy of one zero.
  auto scan = Scan(Hex("00 00 01 42"));
  EXPECT_EQ(scan.count, 1u);
  EXPECT_EQ(Words(*scan.sps), std::vector<uint32_t>(7008));
  EXPECT_EQ(scan.vpsSpsCopy(), Bytes(1, 0));
}

TEST(HevcFrameScan, AnEmptyUnitEndsTheWalk) {
  auto scan = Scan(Join({Four(VpsUnit()), Hex("00 00 00 01"), Four(SpsUnit())}));
  EXPECT_EQ(scan.count, 1u);
  EXPECT_EQ(Words(*scan.sps), std::vector<uint32_t>(7008));
}

TEST(HevcFrameScan, BytesInFrontOfTheFirstStartCodeShiftTheWalk) {
  // The unit is found, but the cursor stands in front of it: the type is read from the start code's bytes.
  auto scan = Scan(Join({Hex("FF"), Four(SpsUnit()), Four(PpsUnit())}));
  EXPECT_EQ(scan.vpsSpsSize, 777u);
  EXPECT_EQ(Words(*scan.sps), std::vector<uint32_t>(7008));
}

TEST(HevcFrameScan, LaterSetsOverwriteEarlierOnes) {
  SpsParts wide;
  wide.width = 640;
  auto scan = Scan(Join({Four(SpsUnit()), Four(Escaped(Sps(wide))), Four(PpsUnit()), Four(VpsUnit())}));
  EXPECT_EQ(scan.count, 4u);
  EXPECT_EQ(scan.sps->pic_width_in_luma_samples, 640u);
  EXPECT_EQ(scan.vpsSpsCopy(), VpsUnit());
}

TEST(HevcFrameScan, RecordsWithoutAUnitAreNotTouched) {
  const Bytes bytes = Four(PpsUnit());
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  HevcVpsRecord vps;
  HevcPpsRecord pps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  std::memset(&vps, 0x5A, sizeof vps);
  std::memset(sps.get(), 0x5A, sizeof *sps);
  EXPECT_EQ(
      qlnutilFindNalUnitsHevc(&frame, &vps, sps.get(), &pps, 0, 0, nullptr, nullptr, 0, nullptr, nullptr),
      1u);
  EXPECT_EQ(Words(vps), std::vector<uint32_t>(210, 0x5A5A5A5Au));
  EXPECT_EQ(Words(*sps), std::vector<uint32_t>(7008, 0x5A5A5A5Au));
  EXPECT_EQ(pps.init_qp_minus26, -3);
}

// The walk told plainly: over a copy with bytes behind the frame that begin and end nothing, and with no more
// than the types and places of its units.
struct PlainWalk {
  uint32_t count = 0;
  int64_t lastPps = -1;  // where the last PPS was taken to stand
};

PlainWalk WalkPlainly(const Bytes& frame) {
  PlainWalk walk;
  const auto byteAt = [&](uint64_t i) { return i < frame.size() ? int{frame[i]} : -1; };
  const auto codeAt = [&](uint64_t i, int third) {
    return byteAt(i) == 0 && byteAt(i + 1) == 0 && byteAt(i + 2) == third;
  };
  uint64_t cursor = 0;
  uint64_t left = frame.size();
  while (left != 0) {
    uint64_t start = 0;
    uint64_t end = 0;
    if (left >= 4) {
      while (start + 3 <= left && !codeAt(cursor + start, 1)) ++start;
      if (start + 3 > left) return walk;
      start += 3;
      end = start;
      while (end < left && !codeAt(cursor + end, 0) && !codeAt(cursor + end, 1)) ++end;
      if (end + 3 > left) end = left;
      if (end == start) return walk;
    }
    const uint64_t prefix = codeAt(cursor, 1) ? 3 : 4;
    const int header = end == start ? 0 : std::max(byteAt(cursor + prefix), 0);
    const int type = header >> 1 & 63;
    if (type == 34) walk.lastPps = static_cast<int64_t>(cursor);
    if (type == 36 || type == 37 || type == 38 || type == 40) {
      while (byteAt(cursor) == 0) ++cursor;
      ++cursor;
    }
    cursor += end - start + prefix;
    left -= end;
    if (end == start) {
      ++cursor;
      --left;
    }
    ++walk.count;
  }
  return walk;
}

TEST(HevcFrameScan, RandomFramesAgreeWithThePlainWalk) {
  Random random(87);
  for (int round = 0; round < 3000; ++round) {
    Bytes frame;
    for (uint64_t i = 0; i < 1 + random.below(6); ++i) {
      static constexpr uint32_t kTypes[] = {1, 32, 33, 34, 35, 36, 37, 38, 39, 40, 62};
      Bytes unit = random.zeroRichBytes(random.below(40));
      unit.insert(unit.begin(), {static_cast<uint8_t>(kTypes[random.below(11)] << 1), 1});
      frame = Join({frame, WithStartCode(unit, 3 + static_cast<int>(random.below(2)))});
    }
    auto scan = Scan(frame);
    const PlainWalk plain = WalkPlainly(frame);
    ASSERT_EQ(scan.count, plain.count) << ToHex(frame);
    ASSERT_EQ(scan.ppsSize == 777u, plain.lastPps < 0) << ToHex(frame);
    if (plain.lastPps < 0 || scan.ppsSize == 0) continue;
    Bytes expected(scan.ppsSize, 0);
    for (size_t i = 0; i < expected.size(); ++i) {
      const size_t at = static_cast<size_t>(plain.lastPps) + 4 + i;
      if (at < frame.size()) expected[i] = frame[at];
    }
    ASSERT_EQ(scan.ppsCopy(), expected) << ToHex(frame);
  }
}

}  // namespace
}  // namespace qln::test

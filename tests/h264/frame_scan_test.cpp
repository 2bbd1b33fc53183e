// The walk over a frame's units.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::ExactCopy;
using test::Hex;
using test::Join;
using test::PlainSpsBody;
using test::PpsHead;
using test::SameWords;
using test::SpsHead;
using test::WithLength;
using test::WithStartCode;

constexpr uint32_t kUntouched = 0x77777777u;

Bytes Sps(uint32_t id = 0) {
  BitBuilder bits = SpsHead(66, id);
  PlainSpsBody(bits).u(1, 0).trailing();
  return bits.bytes();
}

Bytes Pps() {
  BitBuilder bits = PpsHead();
  return bits.trailing().bytes();
}

// A CAVLC I slice whose bit behind the header is `bit`.
Bytes Slice(uint32_t bit = 1) {
  BitBuilder bits;
  bits.u(8, 0x65).ue(0).ue(7).ue(0).u(4, 0).ue(0).u(2, 0).se(0).ue(1).u(1, bit).u(16, 0xABCD);
  return bits.bytes();
}

struct Scan {
  uint32_t count = 0;
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  Bytes spsBytes = Bytes(1024, 0x77);
  Bytes ppsBytes = Bytes(1024, 0x77);
  uint32_t spsSize = kUntouched;
  uint32_t ppsSize = kUntouched;

  Bytes SpsCopy() const { return Bytes(spsBytes.begin(), spsBytes.begin() + spsSize); }
  Bytes PpsCopy() const { return Bytes(ppsBytes.begin(), ppsBytes.begin() + ppsSize); }
};

Scan ScanFrame(const Bytes& bytes, const uint8_t* avcc = nullptr) {
  Scan scan;
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  frame.frameCapacity = frame.frameSize;
  ExactCopy spsBytes(scan.spsBytes);
  ExactCopy ppsBytes(scan.ppsBytes);
  scan.count = qlnutilFindNalUnits(&frame, &scan.sps, &scan.pps, avcc, spsBytes.data(), ppsBytes.data(),
                                   &scan.spsSize, &scan.ppsSize);
  scan.spsBytes = spsBytes.bytes();
  scan.ppsBytes = ppsBytes.bytes();
  EXPECT_EQ(copy.bytes(), bytes);
  return scan;
}

TEST(FrameScan, FindsThreeUnitsInLengthForm) {
  const Scan scan = ScanFrame(Join({WithLength(Sps(2)), WithLength(Pps()), WithLength(Slice())}));
  EXPECT_EQ(scan.count, 3u);
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 2u);
  EXPECT_EQ(scan.pps.nal_unit_type, 8u);
  EXPECT_EQ(scan.SpsCopy(), Sps(2));
  EXPECT_EQ(scan.PpsCopy(), Pps());
  EXPECT_EQ(scan.spsBytes[scan.spsSize], 0x77);
}

TEST(FrameScan, SlicesAreParsedIntoThePpsRecord) {
  for (const uint32_t bit : {0u, 1u}) {
    const Scan scan = ScanFrame(Join({WithLength(Sps()), WithLength(Pps()), WithLength(Slice(bit))}));
    EXPECT_EQ(scan.pps.rbsp_stop_one_bit, bit);
  }
}

TEST(FrameScan, AFrameOfFourBytesOrFewerTouchesNothing) {
  for (size_t size = 0; size <= 4; ++size) {
    const Scan scan = ScanFrame(Bytes(size, 7));
    EXPECT_EQ(scan.count, 0u);
    EXPECT_EQ(scan.spsSize, kUntouched);
    EXPECT_TRUE(SameWords(scan.sps, H264SpsRecord{}));
  }
  EXPECT_EQ(qlnutilFindNalUnits(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0u);
  DFrame frame{};
  EXPECT_EQ(qlnutilFindNalUnits(&frame, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0u);
}

TEST(FrameScan, TheBoxIsReadFirstAndTheFrameWins) {
  Bytes box = Hex("00 00 00 00 61 76 63 43 01 42 00 1E FF E1");
  box = Join({box, Bytes{0, static_cast<uint8_t>(Sps(9).size())}, Sps(9), Hex("00")});
  box[3] = static_cast<uint8_t>(box.size());
  ExactCopy copy(box);
  Scan scan = ScanFrame({}, copy.data());
  EXPECT_EQ(scan.count, 0u);
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 9u);
  scan = ScanFrame(WithLength(Sps(4)), copy.data());
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 4u);
}

TEST(FrameScan, TheLastOfTwoSetsWins) {
  const Scan scan = ScanFrame(Join({WithLength(Sps(1)), WithLength(Sps(5))}));
  EXPECT_EQ(scan.count, 2u);
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 5u);
  EXPECT_EQ(scan.SpsCopy(), Sps(5));
}

TEST(FrameScan, LongSetsAreParsedAndNotCopied) {
  Bytes longSps = Sps(6);
  longSps.resize(1025, 0xFF);
  Scan scan = ScanFrame(WithLength(longSps));
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 6u);
  EXPECT_EQ(scan.spsSize, 0u);
  EXPECT_EQ(scan.spsBytes, Bytes(1024, 0x77));
  longSps.resize(1024);
  scan = ScanFrame(WithLength(longSps));
  EXPECT_EQ(scan.spsSize, 1024u);
  EXPECT_EQ(scan.spsBytes, longSps);
  Bytes longPps = Pps();
  longPps.resize(1025, 0xFF);
  scan = ScanFrame(WithLength(longPps));
  EXPECT_EQ(scan.pps.nal_unit_type, 8u);
  EXPECT_EQ(scan.ppsSize, 0u);
}

TEST(FrameScan, BuffersCountsAndRecordsMayBeAbsent) {
  const Bytes bytes = Join({WithLength(Sps(2)), WithLength(Pps()), WithLength(Slice(0))});
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  uint32_t size = kUntouched;
  // Without a buffer the count stays.
  EXPECT_EQ(qlnutilFindNalUnits(&frame, &sps, &pps, nullptr, nullptr, nullptr, &size, &size), 3u);
  EXPECT_EQ(size, kUntouched);
  EXPECT_EQ(sps.seq_parameter_set_id, 2u);
  Bytes buffer(1024, 0);
  EXPECT_EQ(qlnutilFindNalUnits(&frame, &sps, &pps, nullptr, buffer.data(), nullptr, nullptr, nullptr), 3u);
  EXPECT_EQ(buffer[0], 0x67);
  // Without a record units of that kind are copied and counted, and slices are counted.
  EXPECT_EQ(qlnutilFindNalUnits(&frame, nullptr, &pps, nullptr, buffer.data(), nullptr, &size, nullptr), 3u);
  EXPECT_EQ(size, Sps(2).size());
  EXPECT_EQ(pps.rbsp_stop_one_bit, 1u);  // that of the PPS itself
  EXPECT_EQ(qlnutilFindNalUnits(&frame, &sps, nullptr, nullptr, nullptr, buffer.data(), nullptr, &size), 3u);
  EXPECT_EQ(size, Pps().size());
}

TEST(FrameScan, ALengthOfOneIsAStartCode) {
  // The unit of length 1 reaches to the next 00 00 00 01, here none: the walk ends.
  const Scan none = ScanFrame(Join({Hex("00 00 00 01 09"), WithLength(Sps(3))}));
  EXPECT_EQ(none.count, 1u);
  EXPECT_EQ(none.spsSize, kUntouched);
}

TEST(FrameScan, AFrameWithLongStartCodesShowsItsFirstUnitFourBytesTooLong) {
  const Scan scan = ScanFrame(Join({WithStartCode(Sps(3)), WithStartCode(Pps()), WithStartCode(Slice())}));
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 3u);
  EXPECT_EQ(scan.spsSize, Sps(3).size() + 4);
  EXPECT_EQ(scan.SpsCopy(), Join({Sps(3), Hex("00 00 00 01")}));
  EXPECT_EQ(scan.ppsSize, kUntouched);
}

TEST(FrameScan, ALastUnitInMarkerFormRunsPastTheFrameOverZeros) {
  const Bytes frame = WithStartCode(Sps(3));
  const Scan scan = ScanFrame(frame);
  EXPECT_EQ(scan.count, 1u);
  EXPECT_EQ(scan.spsSize, frame.size());
  EXPECT_EQ(scan.SpsCopy(), Join({Sps(3), Hex("00 00 00 00")}));
}

TEST(FrameScan, ACutLengthCountsItsPrefixIn) {
  Bytes frame = WithLength(Sps(3));
  frame[0] = 0x7F;
  const Scan scan = ScanFrame(frame);
  EXPECT_EQ(scan.count, 1u);
  EXPECT_EQ(scan.SpsCopy(), Join({Sps(3), Hex("00 00 00 00")}));
}

TEST(FrameScan, AnSeiIsSteppedOverByItsFirstMessagesSize) {
  // Prefix and 5: the walk goes on 4 bytes in front of the next unit, and reads those as a length.
  const Bytes sei = Hex("06 01 05 11 22 33 44 55 80");
  const Scan ends = ScanFrame(Join({WithLength(sei), WithLength(Sps(3))}));
  EXPECT_EQ(ends.count, 2u);
  EXPECT_EQ(ends.spsSize, kUntouched);
  // A size that makes the walk land on the next unit's prefix.
  Bytes fitting = Hex("06 01 09 11 22 33 44 55 80");
  const Scan on = ScanFrame(Join({WithLength(fitting), WithLength(Sps(3))}));
  EXPECT_EQ(on.count, 2u);
  EXPECT_EQ(on.sps.seq_parameter_set_id, 3u);
  // The size byte behind the frame's end is 0.
  EXPECT_EQ(ScanFrame(Hex("00 00 00 02 06 01")).count, 1u);
}

TEST(FrameScan, ADelimiterTellsThePrefixOfTheRest) {
  // Long codes behind a delimiter of two bytes: its size becomes 2, and the next round stands on the code.
  Scan scan = ScanFrame(Join({Hex("00 00 00 01 09 10"), WithStartCode(Sps(3))}));
  EXPECT_EQ(scan.count, 2u);
  EXPECT_EQ(scan.sps.seq_parameter_set_id, 3u);
  // A short code counts where its fourth byte is 1, which is the header byte of a slice that nobody refers
  // to.
  scan = ScanFrame(Join({Hex("00 00 00 01 09 10"), WithStartCode(Hex("01 9A 12 34"), 3),
                         WithStartCode(Hex("67 08 42 00 1E F0 80"), 3)}));
  EXPECT_EQ(scan.count, 3u);
  // The SPS is parsed one byte late, as long as the way to the end.
  EXPECT_EQ(scan.sps.nal_unit_type, 8u);
  EXPECT_EQ(scan.sps.profile_idc, 0x42u);
  EXPECT_EQ(scan.spsSize, 10u);
  EXPECT_EQ(scan.spsBytes[0], 0x08);
  // With any other header byte behind it the prefix stays 4, and nothing more is found.
  scan = ScanFrame(Join({Hex("00 00 00 01 09 10"), WithStartCode(Sps(3), 3)}));
  EXPECT_EQ(scan.count, 1u);
  // The byte at 8 is left out of the test.
  scan = ScanFrame(Hex("00 00 00 02 09 10 00 00 55 01 67 42 00 1E F0 80"));
  EXPECT_EQ(scan.count, 2u);
  // p is 3 from here on: the value of 00 00 55 is a length, cut to the frame.
  EXPECT_EQ(scan.spsSize, kUntouched);
  // A length of more than 64 KB behind it is no start code, whatever its lower half is: the prefix stays 4,
  // and the SPS is found behind it, as long as the way to the end.
  for (const char* length : {"11 00 05 01", "00 11 05 01"}) {
    const Bytes sps = Hex("67 42 00 1E F0 80");
    scan = ScanFrame(Join({Hex("00 00 00 02 09 10"), Hex(length), sps}));
    EXPECT_EQ(scan.count, 2u);
    EXPECT_EQ(scan.sps.profile_idc, 0x42u);
    ASSERT_EQ(scan.spsSize, 10u);
    EXPECT_EQ(scan.SpsCopy(), Join({sps, Bytes(4, 0)}));
  }
  // Bytes behind the frame never match.
  scan = ScanFrame(Hex("00 00 00 02 09 10 00 00 00"));
  EXPECT_EQ(scan.count, 1u);
}

TEST(FrameScan, TheDelimitersTestStaysInsideTheFrame) {
  Bytes bytes = Hex("00 00 00 00 09 10 00 00 55 01");
  DFrame frame{};
  frame.frameData = bytes.data();
  const auto count = [&](uint32_t size) {
    frame.frameSize = size;
    return qlnutilFindNalUnits(&frame, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(count(10), 1u);  // stepped over by 6 under the short prefix
  EXPECT_EQ(count(9), 2u);   // the 1 lies behind the frame: by the length of 0 and 4
}

TEST(FrameScan, ShortCodesAreSearchedBehindAShortPrefix) {
  const Scan scan =
      ScanFrame(Join({Hex("00 00 00 01 09 10"), WithStartCode(Hex("01 9A 12 34"), 3),
                      WithStartCode(Hex("41 9B 56 78"), 3), WithStartCode(Hex("68 88 CE 38 80"), 3)}));
  ASSERT_EQ(scan.count, 4u);
  EXPECT_EQ(scan.pps.nal_unit_type, 8u);
  EXPECT_EQ(scan.pps.nal_ref_idc, 0u);
  // Size: the way to the end. The bytes from one behind the NAL header on, zeros behind the frame.
  ASSERT_EQ(scan.ppsSize, 8u);
  EXPECT_EQ(scan.PpsCopy(), Hex("88 CE 38 80 00 00 00 00"));
}

TEST(FrameScan, TypeZeroSkipsZerosAndOneByteMore) {
  // Length 3, type 0: three zeros and the 3 are skipped, and the size grows by three.
  const Bytes frame = Join({Hex("00 00 00 03 20 11 22"), Hex("AA BB CC"), Hex("DD"), WithLength(Sps(3))});
  const Scan scan = ScanFrame(frame);
  EXPECT_EQ(scan.count, 2u);
  // 3 zeros + 1, then 3 + 3 + 4: 14 bytes on.
  EXPECT_EQ(scan.spsSize, kUntouched);
  const Scan lands = ScanFrame(Join({Hex("00 00 00 03 20 11 22 AA BB CC DD EE 12 13"), WithLength(Sps(3))}));
  EXPECT_EQ(lands.sps.seq_parameter_set_id, 3u);
  EXPECT_EQ(lands.count, 2u);
  EXPECT_EQ(ScanFrame(Bytes(100, 0)).count, 1u);
}

TEST(FrameScan, OtherTypesAreCounted) {
  for (const uint32_t type : {10u, 11u, 12u, 14u, 20u, 31u}) {
    const Bytes unit{static_cast<uint8_t>(0x60 | type), 1, 2, 3};
    EXPECT_EQ(ScanFrame(Join({WithLength(unit), WithLength(unit)})).count, 2u);
  }
}

TEST(FrameScan, LengthsOfZeroMoveByThePrefix) {
  // The header byte of an empty unit is the next length's first byte.
  const Scan scan = ScanFrame(Join({Hex("00 00 00 00 68 00 00 00 00"), Hex("1F 00 00")}));
  EXPECT_EQ(scan.ppsSize, 0u);
  EXPECT_EQ(scan.pps.nal_ref_idc, 0xFFFFFFFFu);  // parsed as a unit without a byte
  EXPECT_EQ(scan.count, 2u);                     // the second one's length is 68 00 00 00, cut to the frame
}

TEST(FrameScan, AnSpsOfLengthZeroIsNotParsed) {
  // Where a PPS without a byte is read as all ones, the SPS reader refuses a size of 0; the copy is empty.
  const Scan scan = ScanFrame(Hex("00 00 00 00 67 00 00 00 00 1F 00 00"));
  EXPECT_TRUE(SameWords(scan.sps, H264SpsRecord{}));
  EXPECT_EQ(scan.spsSize, 0u);
  EXPECT_EQ(scan.spsBytes, Bytes(1024, 0x77));
  EXPECT_EQ(scan.count, 2u);
}

// A set counts as soon as its first byte is there: what was read in front of the cut is in the records, and
// the copy is what is left behind the length, with its own four bytes counted in.
TEST(FrameScan, AnSpsIsReadUpToItsOwnEnd) {
  // The id's zeros run up to the limit, and their number decides what it comes to.
  Bytes unit = Hex("67 42 00 1E");
  unit.resize(40, 0);
  const H264SpsRecord alone = test::ReadSpsUnit(unit).record;
  EXPECT_TRUE(SameWords(ScanFrame(WithLength(unit)).sps, alone));
  EXPECT_TRUE(SameWords(ScanFrame(Join({WithLength(unit), WithLength(Hex("06 05 01"))})).sps, alone));
}

TEST(FrameScan, ACutFrameShowsTheSetsInFrontOfTheCut) {
  const Bytes sps = Sps(3);
  const Bytes whole = Join({WithLength(sps), WithLength(Pps()), WithLength(Slice(0))});
  const size_t ppsAt = 4 + sps.size();
  const size_t sliceAt = ppsAt + 4 + Pps().size();
  for (size_t size = 0; size <= whole.size(); ++size) {
    const Scan scan = ScanFrame(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    const size_t units = (size > 4 ? 1u : 0u) + (size > ppsAt + 4 ? 1u : 0u) + (size > sliceAt + 4 ? 1u : 0u);
    ASSERT_EQ(scan.count, units) << size;
    if (units == 0) {
      EXPECT_EQ(scan.spsSize, kUntouched);
    } else {
      EXPECT_EQ(scan.spsSize, std::min(sps.size(), size)) << size;
    }
    if (units >= 2) {
      EXPECT_EQ(scan.sps.seq_parameter_set_id, 3u);
      EXPECT_EQ(scan.SpsCopy(), sps);
      EXPECT_EQ(scan.ppsSize, std::min(Pps().size(), size - ppsAt)) << size;
    } else {
      EXPECT_EQ(scan.ppsSize, kUntouched);
    }
    if (units == 3) {
      EXPECT_EQ(scan.PpsCopy(), Pps());
    }
  }
}

TEST(FrameScan, EveryTruncationIsSafe) {
  for (const bool lengths : {true, false}) {
    Bytes whole;
    for (const Bytes& unit : {Hex("09 10"), Sps(3), Pps(), Slice(), Hex("06 05 03 11 22 33 80"), Slice()}) {
      whole = Join({whole, lengths ? WithLength(unit) : WithStartCode(unit, whole.empty() ? 4 : 3)});
    }
    for (size_t size = 0; size <= whole.size(); ++size) {
      const Scan scan = ScanFrame(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
      EXPECT_LE(scan.count, 6u);
      EXPECT_EQ(scan.count == 0, size <= 4);
    }
  }
}

}  // namespace
}  // namespace qln

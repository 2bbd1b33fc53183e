// The avcC reader and builder.

#include "qlnutil/h264/avcc.h"
#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::ExactCopy;
using test::Filled;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::PlainSpsBody;
using test::PpsHead;
using test::SameWords;
using test::SpsHead;

constexpr uint32_t kFailed = 0xFFFFFFFFu;

Bytes Sps(uint32_t id, uint32_t profile = 66) {
  BitBuilder bits = SpsHead(profile, id);
  if (profile == 100 || profile == 110 || profile == 122) bits.ue(1).ue(0).ue(0).u(1, 0).u(1, 0);
  PlainSpsBody(bits).u(1, 0).trailing();
  return bits.bytes();
}

Bytes Pps(uint32_t refIdx) {
  BitBuilder bits;
  bits.u(1, 0).u(2, 3).u(5, 8).ue(0).ue(0).u(1, 0).u(1, 0).ue(0).ue(refIdx).ue(0).u(1, 0).u(2, 0);
  bits.se(0).se(0).se(0).u(1, 1).u(1, 0).u(1, 0).trailing();
  return bits.bytes();
}

Bytes Counted(const Bytes& unit, int length = -1) {
  const size_t size = length < 0 ? unit.size() : static_cast<size_t>(length);
  return Join({Bytes{static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)}, unit});
}

Bytes Box(const std::vector<Bytes>& sps, const std::vector<Bytes>& pps, const Bytes& tail = {}) {
  Bytes box = Hex("00 00 00 00 61 76 63 43 01 42 00 1E FF E0");
  box[13] = static_cast<uint8_t>(0xE0 | sps.size());
  for (const Bytes& unit : sps) box = Join({box, Counted(unit)});
  box.push_back(static_cast<uint8_t>(pps.size()));
  for (const Bytes& unit : pps) box = Join({box, Counted(unit)});
  box = Join({box, tail});
  box[2] = static_cast<uint8_t>(box.size() >> 8);
  box[3] = static_cast<uint8_t>(box.size());
  return box;
}

struct Read {
  uint32_t result;
  uint32_t bitPos;
  H264SpsRecord sps;
  H264PpsRecord pps;
};

Read ReadBox(const Bytes& box, uint32_t fill = 0) {
  ExactCopy copy(box);
  Read read{0, 0, Filled<H264SpsRecord>(fill), Filled<H264PpsRecord>(fill)};
  QLNBitState state{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  read.result = qlnutilReadAvcc(&state, &read.sps, &read.pps);
  read.bitPos = state.bitPos;
  EXPECT_EQ(state.data, copy.data());
  EXPECT_EQ(copy.bytes(), box);
  return read;
}

TEST(AvccReader, FillsTheOutputsFromTheFirstOfEachKind) {
  const Bytes box = Box({Sps(3), Sps(4)}, {Pps(5), Pps(6)});
  const Read read = ReadBox(box, 0x77);
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.sps.seq_parameter_set_id, 3u);
  EXPECT_EQ(read.sps.pic_width_in_mbs_minus1, 19u);
  EXPECT_EQ(read.pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_EQ(read.bitPos, box.size() * 8);
  // Whole records: nothing of the caller's is left.
  EXPECT_EQ(read.sps.sar_width, 0u);
  EXPECT_EQ(read.pps.slice_group_id[0], 0u);
  EXPECT_EQ(read.pps.more_rbsp_data_present, 0u);
}

TEST(AvccReader, ABoxSizeOfZeroIsRefused) {
  Bytes box = Box({Sps(3)}, {Pps(5)});
  box[2] = box[3] = 0;
  const Read read = ReadBox(box, 0x77);
  EXPECT_EQ(read.result, kFailed);
  EXPECT_EQ(read.bitPos, 0u);
  EXPECT_TRUE(SameWords(read.sps, Filled<H264SpsRecord>(0x77)));
  EXPECT_TRUE(SameWords(read.pps, Filled<H264PpsRecord>(0x77)));
}

TEST(AvccReader, AnSpsLengthOfZeroIsRefusedBehindThatLength) {
  const Bytes first = Sps(3);
  const Bytes box = Box({first, {}}, {Pps(5)});
  const Read read = ReadBox(box, 0x77);
  EXPECT_EQ(read.result, kFailed);
  EXPECT_EQ(read.bitPos, (14 + 2 + first.size() + 2) * 8);
  EXPECT_TRUE(SameWords(read.sps, Filled<H264SpsRecord>(0x77)));
  EXPECT_TRUE(SameWords(read.pps, Filled<H264PpsRecord>(0x77)));
}

TEST(AvccReader, TypeAndVersionAreNotTestedAndTheCountIsMasked) {
  Bytes box = Box({Sps(3)}, {Pps(5)});
  box[4] = 'x';
  box[8] = 99;
  box[13] = 0x01;
  Read read = ReadBox(box);
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.sps.seq_parameter_set_id, 3u);
  EXPECT_EQ(read.pps.num_ref_idx_l0_default_active_minus1, 5u);
}

TEST(AvccReader, WithoutSetsTheRecordsStay) {
  const Read read = ReadBox(Box({}, {}), 0x77);
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bitPos, 15u * 8);
  EXPECT_TRUE(SameWords(read.sps, Filled<H264SpsRecord>(0x77)));
  EXPECT_TRUE(SameWords(read.pps, Filled<H264PpsRecord>(0x77)));
  const Read onlyPps = ReadBox(Box({}, {Pps(5)}), 0x77);
  EXPECT_EQ(onlyPps.pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_TRUE(SameWords(onlyPps.sps, Filled<H264SpsRecord>(0x77)));
}

TEST(AvccReader, NullOutputsStillParseEverything) {
  const Bytes box = Box({Sps(3, 100)}, {Pps(5)}, Hex("FD F8 F8 02 80"));
  MessageCapture capture;
  QLNBitState state{const_cast<uint8_t*>(box.data()), static_cast<int32_t>(box.size()),
                    static_cast<uint32_t>(box.size() * 8), 0};
  H264PpsRecord pps{};
  EXPECT_EQ(qlnutilReadAvcc(&state, nullptr, &pps), 0u);
  EXPECT_EQ(pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"Extended pps_count 2. Ignoring"});
  state.bitPos = 0;
  EXPECT_EQ(qlnutilReadAvcc(&state, nullptr, nullptr), 0u);
}

TEST(AvccReader, APpsOf512BytesIsParsedAndOneOf513EndsTheList) {
  Bytes longest = Pps(7);
  longest.resize(512, 0xFF);
  Read read = ReadBox(Box({Sps(1)}, {longest, Pps(5)}), 0x77);
  EXPECT_EQ(read.pps.num_ref_idx_l0_default_active_minus1, 7u);

  Bytes tooLong = Pps(7);
  tooLong.resize(513, 0xFF);
  const Bytes box = Box({Sps(1)}, {tooLong, Pps(5)});
  read = ReadBox(box, 0x77);
  EXPECT_EQ(read.result, 0u);
  EXPECT_TRUE(SameWords(read.pps, Filled<H264PpsRecord>(0x77)));
  EXPECT_EQ(read.sps.seq_parameter_set_id, 1u);
  EXPECT_EQ(read.bitPos, (14 + 2 + Sps(1).size() + 1 + 2) * 8);
}

TEST(AvccReader, TheExtensionIsReadForItsProfilesOnly) {
  for (const auto& [profile, extended] : {std::pair{66u, false},
                                          {77u, false},
                                          {88u, false},
                                          {100u, true},
                                          {110u, true},
                                          {122u, true},
                                          {144u, true},
                                          {244u, false},
                                          {118u, false}}) {
    MessageCapture capture;
    const Bytes box = Box({Sps(1, profile)}, {Pps(5)}, Hex("FD F8 F8 03 80 00"));
    const Read read = ReadBox(box);
    EXPECT_EQ(read.result, 0u);
    ASSERT_EQ(capture.texts().size(), extended ? 1u : 0u) << profile;
    if (extended) {
      EXPECT_EQ(capture.texts()[0], "Extended pps_count 3. Ignoring");
    }
    // The entry: transform flag 1, matrix flag 0, then a code of five zeros at most, from 00 0...
    const uint32_t sets = static_cast<uint32_t>(box.size() - 6) * 8;
    EXPECT_GT(read.bitPos, extended ? sets + 34 : sets - 1);
    if (!extended) {
      EXPECT_EQ(read.bitPos, sets);
    }
  }
}

TEST(AvccReader, OneEntryIsReadAsTheTailOfAPps) {
  BitBuilder tail;
  tail.u(6, 0x3F).u(2, 1).u(5, 0x1F).u(3, 0).u(5, 0x1F).u(3, 0).u(8, 1);
  tail.u(1, 1).u(1, 1);
  for (int i = 0; i < 8; ++i) {
    tail.u(1, i == 6);
    if (i == 6) {
      for (int k = 0; k < 64; ++k) tail.se(1);
    }
  }
  tail.se(-2);
  const size_t bits = tail.bits();
  tail.align().u(8, 0xFF);
  MessageCapture capture;
  const Bytes box = Box({Sps(1, 100)}, {Pps(5)}, tail.bytes());
  const Read read = ReadBox(box);
  EXPECT_EQ(read.bitPos, (box.size() - tail.bytes().size()) * 8 + bits);
  EXPECT_TRUE(capture.texts().empty());
  EXPECT_EQ(read.pps.second_chroma_qp_index_offset, 0);

  // A count of 0 reads no entry; fewer than 4 bytes are no header.
  const Bytes none = Box({Sps(1, 100)}, {Pps(5)}, Hex("FD F8 F8 00 FF"));
  EXPECT_EQ(ReadBox(none).bitPos, (none.size() - 1) * 8);
  const Bytes cut = Box({Sps(1, 100)}, {Pps(5)}, Hex("FD F8 F8"));
  EXPECT_EQ(ReadBox(cut).bitPos, (cut.size() - 3) * 8);
}

TEST(AvccReader, AnExtensionFlagPastTheEndCountsAsSet) {
  // The box ends behind the count: the transform flag is the bit at the limit, behind the bytes, so 0; the
  // matrix flag is -1, and so are the present flags of its six lists of 16 deltas, a bit each.
  const Bytes box = Box({Sps(1, 100)}, {Pps(5)}, Hex("FD F8 F8 01"));
  EXPECT_EQ(ReadBox(box).bitPos, box.size() * 8 + 1 + 1 + 6 * (1 + 16) + 1);
  // With one byte more both are read, and only the offset's code runs past the end: 0 0 and six zeros.
  const Bytes more = Box({Sps(1, 100)}, {Pps(5)}, Hex("FD F8 F8 01 00"));
  EXPECT_GT(ReadBox(more).bitPos, more.size() * 8);
  EXPECT_LT(ReadBox(more).bitPos, more.size() * 8 + 16);
}

TEST(AvccReader, LengthsPastTheEndEndTheLoops) {
  // The SPS length begins past the end: nothing stored, no extension, result 0.
  Bytes box = Hex("00 00 00 20 61 76 63 43 01 64 00 1E FF E2");
  Read read = ReadBox(box, 0x77);
  EXPECT_EQ(read.result, 0u);
  EXPECT_TRUE(SameWords(read.sps, Filled<H264SpsRecord>(0x77)));
  // A PPS length past the end.
  box = Box({Sps(2)}, {});
  box.back() = 3;
  read = ReadBox(box, 0x77);
  EXPECT_EQ(read.sps.seq_parameter_set_id, 2u);
  EXPECT_TRUE(SameWords(read.pps, Filled<H264PpsRecord>(0x77)));
}

TEST(AvccReader, BytesPastTheEndAreOnes) {
  Bytes box = Box({Sps(2)}, {Pps(0)});
  const Bytes pps = Pps(0);
  box.resize(box.size() - pps.size() + 1);  // only the NAL header byte is there
  const Read read = ReadBox(box);
  EXPECT_EQ(read.pps.nal_unit_type, 8u);
  EXPECT_EQ(read.pps.entropy_coding_mode_flag, 1u);  // ones, where beyond the unit it would be -1
  EXPECT_EQ(read.pps.deblocking_filter_control_present_flag, 1u);
}

TEST(AvccReader, EveryTruncationIsSafe) {
  MessageCapture capture;
  const Bytes box = Box({Sps(2, 100), Sps(3)}, {Pps(5), Pps(6)}, Hex("FD F8 F8 01 C5 12 34"));
  const size_t firstSps = 14 + 2 + Sps(2, 100).size();
  const size_t ppsCount = firstSps + 2 + Sps(3).size();
  const size_t firstPps = ppsCount + 1 + 2 + Pps(5).size();
  for (size_t size = 0; size <= box.size(); ++size) {
    const Read read = ReadBox(Bytes(box.begin(), box.begin() + static_cast<std::ptrdiff_t>(size)), 0x77);
    EXPECT_EQ(read.result, 0u) << size;
    // A set whose length lies inside the box is handed out, whole or filled up with ones.
    EXPECT_EQ(SameWords(read.sps, Filled<H264SpsRecord>(0x77)), size < 16) << size;
    EXPECT_EQ(SameWords(read.pps, Filled<H264PpsRecord>(0x77)), size < ppsCount + 3) << size;
    if (size >= firstSps) {
      EXPECT_EQ(read.sps.seq_parameter_set_id, 2u) << size;
    }
    if (size >= firstPps) {
      EXPECT_EQ(read.pps.num_ref_idx_l0_default_active_minus1, 5u) << size;
    }
  }
}

TEST(AvccReader, ABoxOfUnknownLengthIsFetchedByItsOwnCountsOnly) {
  MessageCapture capture;
  const auto read = [](const Bytes& box) {
    ExactCopy copy(box);  // AddressSanitizer sees a byte too much
    Read result{0, 0, Filled<H264SpsRecord>(0x77), Filled<H264PpsRecord>(0x77)};
    result.result = ReadAvccOfUnknownLength(copy.data(), &result.sps, &result.pps);
    return result;
  };
  EXPECT_EQ(read(Hex("00 00 00 00")).result, kFailed);
  EXPECT_EQ(read(Box({}, {})).result, 0u);
  // High profile without an extension header: its bytes count as zero behind the box.
  Read high = read(Box({Sps(2, 100)}, {Pps(5)}));
  EXPECT_EQ(high.sps.seq_parameter_set_id, 2u);
  EXPECT_EQ(high.pps.num_ref_idx_l0_default_active_minus1, 5u);
  EXPECT_TRUE(capture.texts().empty());
  read(Box({Sps(2, 100)}, {Pps(5)}, Hex("FD F8 F8")));
  EXPECT_TRUE(capture.texts().empty());
  read(Box({Sps(2, 100)}, {Pps(5)}, Hex("FD F8 F8 09")));
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"Extended pps_count 9. Ignoring"});
  // A refusal is not walked over.
  EXPECT_EQ(read(Hex("00 00 00 40 61 76 63 43 01 42 00 1E FF E3 00 00")).result, kFailed);
  // A PPS that is too long is not fetched.
  EXPECT_EQ(read(Join({Box({Sps(2)}, {}), {}})).result, 0u);
  Bytes tooLong = Box({Sps(2)}, {});
  tooLong.back() = 1;
  tooLong = Join({tooLong, Hex("02 01")});
  EXPECT_EQ(read(tooLong).sps.seq_parameter_set_id, 2u);
  // Nothing behind 512 bytes is looked at.
  Bytes big = Sps(2);
  big.resize(600, 0);
  Bytes bigBox = Box({big}, {Pps(5)});
  bigBox.resize(512);
  const Read cut = read(bigBox);
  EXPECT_EQ(cut.result, 0u);
  EXPECT_EQ(cut.sps.seq_parameter_set_id, 2u);
  EXPECT_TRUE(SameWords(cut.pps, Filled<H264PpsRecord>(0x77)));
  // A second set there, and the length of a PPS, stand behind them.
  bigBox = Box({big, Sps(3)}, {Pps(5)});
  bigBox.resize(512);
  EXPECT_EQ(read(bigBox).sps.seq_parameter_set_id, 2u);
  Bytes upToTheCount = Sps(2);
  upToTheCount.resize(495, 0);
  bigBox = Box({upToTheCount}, {Pps(5)});
  ASSERT_EQ(bigBox[511], 1);
  bigBox.resize(512);
  const Read counted = read(bigBox);
  EXPECT_EQ(counted.result, 0u);
  EXPECT_EQ(counted.sps.seq_parameter_set_id, 2u);
  // An SPS of one byte has no profile that an extension could be there for: the 100 is the count of PPS, of
  // which the first is too long.
  capture.clear();
  EXPECT_EQ(read(Hex("00 00 00 40 61 76 63 43 01 42 00 1E FF E1 00 01 67 64 02 01")).result, 0u);
  // One of 257 bytes has one.
  Bytes high257 = Sps(2, 100);
  high257.resize(257, 0);
  read(Box({high257}, {}, Hex("FD F8 F8 09")));
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"Extended pps_count 9. Ignoring"});
}

}  // namespace
}  // namespace qln

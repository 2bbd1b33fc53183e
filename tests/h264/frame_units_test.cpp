// Boxes built from frames, and units put in front of them.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::WithLength;
using test::WithStartCode;

const char* const kNoRoom = "No room for NAL units in DFrame (kxmov2)";

Bytes Avcc(const Bytes& bytes, size_t room) {
  test::ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  Bytes output(room + 16, 0xA5);
  const uint32_t size = qlnutilGetAvcc(&frame, output.data());
  EXPECT_LE(size, room);
  EXPECT_EQ(Bytes(output.begin() + size, output.end()), Bytes(room + 16 - size, 0xA5));
  output.resize(size);
  return output;
}

TEST(AvccBuilder, CopiesSpsAndPpsOfOneStride) {
  const Bytes sps = Hex("67 42 C0 1E AB");
  const Bytes pps = Hex("68 CE 38 80 11");
  EXPECT_EQ(Avcc(Join({WithLength(sps), WithLength(pps), WithLength(Hex("65 88"))}), 64),
            Join({Hex("00 00 00 1D 61 76 63 43 01 42 C0 1E FF E1 00 05"), sps, Hex("01 00 05"), pps}));
}

TEST(AvccBuilder, ThePpsTakesTheLengthOfTheSps) {
  Bytes sps(20, 0x11);
  sps[0] = 0x67;
  Bytes pps(6, 0x22);
  pps[0] = 0x68;
  const Bytes slice(200, 0x65);
  const Bytes frame = Join({WithLength(sps), WithLength(pps), WithLength(slice)});
  const Bytes box = Avcc(frame, 14 + 22 + 23);
  ASSERT_EQ(box.size(), 14u + 22 + 23);
  EXPECT_EQ(Bytes(box.end() - 22, box.end()),
            Join({Hex("00 14"), Bytes(frame.begin() + 28, frame.begin() + 48)}));
  EXPECT_EQ(Bytes(box.begin(), box.begin() + 4), Hex("00 00 00 3B"));
  // The PPS last and shorter: fewer bytes are left than the stride needs.
  const Bytes last = Avcc(Join({WithLength(sps), WithLength(pps)}), 64);
  EXPECT_EQ(last.size(), 14u + 22);
}

TEST(AvccBuilder, ADelimiterMakesAStrideOfSix) {
  // Units are looked for every 6 bytes: at 6 the SPS's own prefix, its type byte at 10; then 12, 18, ...
  const Bytes frame = Join({WithLength(Hex("09 10")), Hex("00 00 00 08 67 42"), Hex("C0 1E AB CD 68 EE"),
                            Hex("00 00 00 00 61 00")});
  EXPECT_EQ(Avcc(frame, 64),
            Join({Hex("00 00 00 17 61 76 63 43 01 42 C0 1E FF E1 00 02 67 42"), Hex("01 00 02 68 EE")}));
}

TEST(AvccBuilder, TakesTheFirstOfEachKindOnly) {
  const Bytes frame = Join({WithLength(Hex("68 01 02 03")), WithLength(Hex("67 11 12 13")),
                            WithLength(Hex("67 21 22 23")), WithLength(Hex("68 31 32 33"))});
  EXPECT_EQ(Avcc(frame, 64), Join({Hex("00 00 00 1B 61 76 63 43 01 11 12 13 FF E1 01 00 04 68 01 02 03"),
                                   Hex("00 04 67 11 12 13")}));
}

TEST(AvccBuilder, ShortFramesGiveFourteenBytes) {
  const Bytes empty = Hex("00 00 00 0E 61 76 63 43 01 00 00 00 FF E1");
  for (size_t size = 0; size <= 4; ++size) EXPECT_EQ(Avcc(Bytes(size, 0x67), 14), empty);
  EXPECT_EQ(Avcc(WithLength(Hex("65 88 80")), 14), empty);
  EXPECT_EQ(Avcc(Hex("FF FF FF FF 67 42"), 14), empty);  // beyond the end
  Bytes output(14);
  EXPECT_EQ(qlnutilGetAvcc(nullptr, output.data()), 0u);
  DFrame frame{};
  frame.frameSize = 100;
  EXPECT_EQ(qlnutilGetAvcc(&frame, nullptr), 0u);
  EXPECT_EQ(qlnutilGetAvcc(&frame, output.data()), 14u);
  EXPECT_EQ(output, empty);
}

TEST(AvccBuilder, AStartCodeIsSearchedForWhileTheSizeIsOne) {
  // The first unit's true size, 3, is the stride of the rest.
  EXPECT_EQ(Avcc(Join({WithStartCode(Hex("67 42 C0")), WithStartCode(Hex("68 EE 80"))}), 64),
            Join({Hex("00 00 00 19 61 76 63 43 01 42 C0 00 FF E1 00 03 67 42 C0 01 00 03 68 EE 80")}));
  // No further code: the size is 4 too many and the walk ends.
  EXPECT_EQ(Avcc(WithStartCode(Hex("67 42 C0 1E")), 64).size(), 14u);
  // A unit of one byte keeps the search on; a code in the very last four bytes counts.
  EXPECT_EQ(Avcc(Join({WithStartCode(Hex("09")), WithStartCode(Hex("67 42 C0 1E")), Hex("00 00 00 01")}), 64),
            Hex("00 00 00 14 61 76 63 43 01 42 C0 1E FF E1 00 04 67 42 C0 1E"));
}

TEST(AvccBuilder, ProfileBytesBehindTheEndAreZero) {
  EXPECT_EQ(Avcc(WithLength(Hex("67")), 64).size(), 14u);  // a length of 1 is a start code without another
  EXPECT_EQ(Avcc(WithLength(Hex("67 42")), 64), Hex("00 00 00 12 61 76 63 43 01 42 00 00 FF E1 00 02 67 42"));
  EXPECT_EQ(Avcc(Hex("00 00 00 00 67"), 64), Hex("00 00 00 10 61 76 63 43 01 00 00 00 FF E1 00 00"));
}

// A frame with room, guard bytes behind it, and one call.
struct Added {
  Bytes bytes;
  std::vector<std::string> messages;
};

struct Request {
  const void* sps = nullptr;
  int32_t spsLength = 0;
  uint8_t delimiter = 0, timing = 0, recovery = 0, buffering = 0;
  uint8_t lengths = 1;
};

Added Add(const Bytes& content, uint32_t frameType, const Request& request, int64_t capacity = -1) {
  const size_t room = capacity < 0 ? content.size() + 4096 : static_cast<size_t>(capacity);
  Bytes buffer = content;
  buffer.resize(room + 64, 0xA5);
  for (size_t i = content.size(); i < buffer.size(); ++i) buffer[i] = 0xA5;
  DFrame frame{};
  frame.frameType = frameType;
  frame.frameData = buffer.data();
  frame.frameSize = static_cast<uint32_t>(content.size());
  frame.frameCapacity = static_cast<uint32_t>(room);
  frame.secondFieldOffset = 77;
  MessageCapture capture;
  qlnutilAddNalUnits(&frame, request.sps, request.spsLength, request.delimiter, request.timing,
                     request.recovery, request.buffering, 0x1234, 0x56, 0x78, 0x9A, request.lengths);
  EXPECT_EQ(frame.frameData, buffer.data());
  EXPECT_EQ(frame.secondFieldOffset, 77u);
  EXPECT_LE(frame.frameSize, room);
  EXPECT_EQ(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(room), buffer.end()), Bytes(64, 0xA5));
  buffer.resize(frame.frameSize);
  return {buffer, capture.texts()};
}

const Bytes kSlice = Hex("00 00 00 03 65 88 80");

TEST(AddNalUnits, TheDelimiterTellsThePictureType) {
  Request request;
  request.delimiter = 1;
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes, Join({Hex("00 00 00 02 09 10"), kSlice}));
  request.lengths = 0;
  EXPECT_EQ(Add(kSlice, 0x80000000, request).bytes, Join({Hex("00 00 00 01 09 30"), kSlice}));
  EXPECT_EQ(Add(kSlice, 0x20000000, request).bytes, Join({Hex("00 00 00 01 09 50"), kSlice}));
  for (const uint32_t type : {0u, 0x90000000u, 0x10000001u}) {
    EXPECT_EQ(Add(kSlice, type, request).bytes, Join({Hex("00 00 00 01 09 F0"), kSlice}));
  }
}

TEST(AddNalUnits, NothingAskedForIsTheConversionOnly) {
  Request request;
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes, kSlice);
  const Bytes markers = Hex("00 00 01 65 88 80 00 00 01 41");
  EXPECT_EQ(Add(markers, 0x10000000, request).bytes, Hex("00 00 00 03 65 88 80 00 00 00 01 41"));
  request.lengths = 0;
  EXPECT_EQ(Add(markers, 0x10000000, request).bytes, markers);
}

H264SpsRecord TimedSps() {
  H264SpsRecord sps{};
  sps.seq_parameter_set_id = 2;
  sps.vui_parameters_present_flag = 1;
  sps.nal_hrd_parameters_present_flag = 1;
  sps.nal_hrd.cpb_cnt_minus1 = 1;
  sps.nal_hrd.initial_cpb_removal_delay_length_minus1 = 23;
  sps.nal_hrd.cpb_removal_delay_length_minus1 = 15;
  sps.nal_hrd.dpb_output_delay_length_minus1 = 7;
  sps.nal_hrd.time_offset_length = 5;
  sps.pic_struct_present_flag = 1;
  return sps;
}

// A finished SEI packet in length form.
Bytes Sei(uint8_t type, BitBuilder payload) {
  if (payload.bits() % 8 != 0) payload.trailing();
  const Bytes body = payload.bytes();
  return WithLength(Escape(Join({Bytes{6, type, static_cast<uint8_t>(body.size())}, body, Hex("80")})));
}

BitBuilder PicStruct(BitBuilder bits, int offset) {
  return bits.u(4, 0).u(1, 1).u(2, 0).u(1, 1).u(5, 3).u(1, 0).u(1, 1).u(1, 0).u(8, 0).u(1, 0).u(offset, 0);
}

TEST(AddNalUnits, AllUnitsStandInOrder) {
  const H264SpsRecord sps = TimedSps();
  const Request request{&sps, -1, 1, 1, 1, 1, 1};
  BitBuilder buffering;
  buffering.ue(2);
  for (int i = 0; i < 2; ++i) buffering.u(24, 0x1234).u(24, 0x56);
  BitBuilder timing;
  timing.u(16, 0x78).u(8, 0x9A);
  BitBuilder recovery;
  recovery.ue(0).u(4, 0);
  const Bytes pic = Sei(1, PicStruct(timing, 5));
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes,
            Join({Hex("00 00 00 02 09 10"), Sei(0, buffering), pic, Sei(6, recovery), kSlice}));
  // Inter pictures have neither buffering period nor recovery point.
  EXPECT_EQ(Add(kSlice, 0x20000000, request).bytes, Join({Hex("00 00 00 02 09 50"), pic, kSlice}));
}

TEST(AddNalUnits, ARecoveryPointStandsAlone) {
  const H264SpsRecord sps = TimedSps();
  BitBuilder recovery;
  recovery.ue(0).u(4, 0);
  EXPECT_EQ(Add(kSlice, 0x10000000, {&sps, -1, 0, 0, 1, 0, 1}).bytes, Join({Sei(6, recovery), kSlice}));
  EXPECT_EQ(Add(kSlice, 0x20000000, {&sps, -1, 0, 0, 1, 0, 1}).bytes, kSlice);
}

TEST(AddNalUnits, AnSpsThatNothingAsksForIsNotLookedAt) {
  const auto* const nowhere = reinterpret_cast<const void*>(uintptr_t{16});
  EXPECT_EQ(Add(kSlice, 0x10000000, {nowhere, 100, 1, 0, 0, 0, 1}).bytes,
            Join({Hex("00 00 00 02 09 10"), kSlice}));
}

TEST(AddNalUnits, TheVclHrdStandsInWhereThereIsNoNalHrd) {
  H264SpsRecord sps = TimedSps();
  sps.vcl_hrd_parameters_present_flag = 1;
  sps.vcl_hrd.initial_cpb_removal_delay_length_minus1 = 31;
  sps.vcl_hrd.cpb_removal_delay_length_minus1 = 30;
  sps.vcl_hrd.dpb_output_delay_length_minus1 = 29;
  sps.vcl_hrd.time_offset_length = 20;
  Request request{&sps, -1, 0, 1, 0, 1, 1};
  BitBuilder both;
  both.ue(2);
  for (int i = 0; i < 2; ++i) both.u(24, 0x1234).u(24, 0x56);
  both.u(32, 0x1234).u(32, 0x56);
  BitBuilder nal;
  nal.u(16, 0x78).u(8, 0x9A);
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes, Join({Sei(0, both), Sei(1, PicStruct(nal, 5)), kSlice}));
  sps.nal_hrd_parameters_present_flag = 0;
  BitBuilder vclOnly;
  vclOnly.ue(2).u(32, 0x1234).u(32, 0x56);
  BitBuilder vcl;
  vcl.u(31, 0x78).u(30, 0x9A);
  // The time offset's length stays that of the NAL HRD.
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes,
            Join({Sei(0, vclOnly), Sei(1, PicStruct(vcl, 5)), kSlice}));
  // Without the VUI flag only the delays of the picture timing go.
  sps.vui_parameters_present_flag = 0;
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes,
            Join({Sei(0, vclOnly), Sei(1, PicStruct(BitBuilder(), 5)), kSlice}));
}

TEST(AddNalUnits, APictureTimingWithoutContentsIsEmpty) {
  const Bytes empty = Hex("00 00 00 04 06 01 00 80");
  Request request{nullptr, 0, 0, 1, 0, 0, 1};
  EXPECT_EQ(Add(kSlice, 0x80000000, request).bytes, Join({empty, kSlice}));
  const H264SpsRecord bare{};
  request.sps = &bare;
  request.spsLength = -1;
  EXPECT_EQ(Add(kSlice, 0x80000000, request).bytes, Join({empty, kSlice}));
  // No SPS: no buffering period, no recovery point.
  const Request noSps{&bare, 0, 0, 1, 1, 1, 0};
  EXPECT_EQ(Add(kSlice, 0x10000000, noSps).bytes, Join({Hex("00 00 00 01 06 01 00 80"), kSlice}));
}

TEST(AddNalUnits, TakesAnSpsAsBytes) {
  BitBuilder bits = test::SpsHead(66, 2);
  test::PlainSpsBody(bits).u(1, 1).u(5, 0).u(1, 0).u(1, 1).ue(0).u(8, 0).ue(1).ue(1).u(1, 0);
  bits.u(5, 9).u(5, 9).u(5, 9).u(5, 0).u(1, 0).u(1, 0).u(1, 0).trailing();
  const Bytes sps = Escape(bits.bytes());
  const Request request{sps.data(), static_cast<int32_t>(sps.size()), 0, 1, 0, 1, 1};
  BitBuilder buffering;
  buffering.ue(2).u(10, 0x234).u(10, 0x56);
  BitBuilder timing;
  timing.u(10, 0x78).u(10, 0x9A);
  EXPECT_EQ(Add(kSlice, 0x10000000, request).bytes, Join({Sei(0, buffering), Sei(1, timing), kSlice}));
}

TEST(AddNalUnits, HostileCountsAndWidthsAreBounded) {
  H264SpsRecord sps = TimedSps();
  sps.vcl_hrd_parameters_present_flag = 1;
  for (const uint32_t word : {31u, 32u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    sps.seq_parameter_set_id = word;
    sps.nal_hrd.cpb_cnt_minus1 = sps.vcl_hrd.cpb_cnt_minus1 = word;
    sps.nal_hrd.initial_cpb_removal_delay_length_minus1 = word;
    sps.vcl_hrd.initial_cpb_removal_delay_length_minus1 = 31;
    sps.nal_hrd.cpb_removal_delay_length_minus1 = word;
    sps.nal_hrd.dpb_output_delay_length_minus1 = word;
    sps.nal_hrd.time_offset_length = word;
    const Added added = Add(kSlice, 0x10000000, {&sps, -1, 1, 1, 1, 1, 1});
    EXPECT_GT(added.bytes.size(), kSlice.size() + 20);
    EXPECT_EQ(Bytes(added.bytes.end() - 7, added.bytes.end()), kSlice);
    const bool negative = word >= 0x80000000u;
    EXPECT_EQ(added.bytes.size() > 200, !negative) << word;
  }
}

TEST(AddNalUnits, ThirtyTwoSchedulesAreWrittenAtMost) {
  H264SpsRecord sps = TimedSps();
  for (const uint32_t last : {31u, 32u, 1000u}) {
    sps.nal_hrd.cpb_cnt_minus1 = last;
    BitBuilder buffering;
    buffering.ue(2);
    for (int i = 0; i < 32; ++i) buffering.u(24, 0x1234).u(24, 0x56);
    EXPECT_EQ(Add(kSlice, 0x10000000, {&sps, -1, 0, 0, 0, 1, 1}).bytes, Join({Sei(0, buffering), kSlice}));
  }
}

TEST(AddNalUnits, AFrameWithoutRoomStaysAndIsReported) {
  Request request;
  request.delimiter = 1;
  for (int64_t spare = 0; spare < 6; ++spare) {
    const Added added = Add(kSlice, 0x10000000, request, static_cast<int64_t>(kSlice.size()) + spare);
    EXPECT_EQ(added.bytes, kSlice);
    EXPECT_EQ(added.messages, std::vector<std::string>{kNoRoom});
  }
  EXPECT_TRUE(Add(kSlice, 0x10000000, request, static_cast<int64_t>(kSlice.size()) + 6).messages.empty());
}

TEST(AddNalUnits, AMarkerFormFrameIsConvertedAlsoWhereTheUnitsDoNotFit) {
  Request request;
  request.delimiter = 1;
  const Bytes markers = Hex("00 00 00 01 65 88 80");
  const Added added = Add(markers, 0x10000000, request, 8);
  EXPECT_EQ(added.bytes, kSlice);
  EXPECT_EQ(added.messages, std::vector<std::string>{kNoRoom});
  // Start codes that do not fit, widened: nothing is changed at all.
  const Bytes shortCodes = Hex("00 00 01 65 88 00 00 01 41 9A");
  const Added stays = Add(shortCodes, 0x10000000, request, 11);
  EXPECT_EQ(stays.bytes, shortCodes);
  EXPECT_EQ(stays.messages, std::vector<std::string>{kNoRoom});
  const Added none = Add(shortCodes, 0x10000000, {}, 11);
  EXPECT_EQ(none.bytes, shortCodes);
  EXPECT_EQ(none.messages, std::vector<std::string>{kNoRoom});
  // Start codes of 4 bytes need no room, whatever the capacity.
  Bytes buffer = markers;
  DFrame frame{};
  frame.frameData = buffer.data();
  frame.frameSize = static_cast<uint32_t>(buffer.size());
  MessageCapture capture;
  qlnutilAddNalUnits(&frame, nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1);
  EXPECT_EQ(buffer, kSlice);
  EXPECT_TRUE(capture.texts().empty());
}

TEST(AddNalUnits, NullFramesDoNothing) {
  qlnutilAddNalUnits(nullptr, nullptr, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1);
  DFrame frame{};
  frame.frameCapacity = 100;
  qlnutilAddNalUnits(&frame, nullptr, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1);
  EXPECT_EQ(frame.frameSize, 0u);
}

}  // namespace
}  // namespace qln

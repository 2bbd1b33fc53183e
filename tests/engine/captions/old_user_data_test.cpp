// Line 21 in the older forms of MPEG-2 user data, byte by byte from their tables.

#include "captions/old_user_data.h"

#include <gtest/gtest.h>

#include "captions/reader.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::ExactCopy;
using qln::test::Hex;

const Triplet kFirst{true, CcType::kField1, 0x94, 0x2C};
const Triplet kSecond{true, CcType::kField2, 0x15, 0xAE};

// user_data_type_code 03, reserved 1000000 and vbi_data_flag 1, cc_count 2 (00010); then of each pair
// cc_priority 00, field_number 01 and 10, line_offset 01011, the two bytes from their lowest bit on,
// marker_bit 1:
//   00 01 01011 00101001 00110100 1 | 00 10 01011 10101000 01110101 1, and three bits to fill the last byte
// with cc_count in front: 00010000 10101100 10100100 11010010 01001011 10101000 01110101 1...
const char* const kScte20 = "03 81 10 AC A4 D2 4B A8 75 80";

std::vector<Triplet> Scte20(const Bytes& bytes, bool topFirst = true) {
  ExactCopy data(bytes);
  return ReadScte20UserData({data.data(), data.size()}, topFirst).value_or(std::vector<Triplet>());
}

TEST(Scte20, IsReadByTheOrderOfDisplay) {
  EXPECT_EQ(Scte20(Hex(kScte20)), (std::vector<Triplet>{kFirst, kSecond}));
  const std::vector<Triplet> turned = Scte20(Hex(kScte20), false);
  ASSERT_EQ(turned.size(), 2u);
  EXPECT_EQ(turned[0].type, CcType::kField2);
  EXPECT_EQ(turned[1].type, CcType::kField1);
  // The first reserved bit is 0 as some encoders have it.
  EXPECT_EQ(Scte20(Hex("03 01 10 AC A4 D2 4B A8 75 80")).size(), 2u);
}

TEST(Scte20, BreaksOffAtWholePairs) {
  const Bytes whole = Hex(kScte20);
  for (size_t size = 0; size < whole.size(); ++size)
    EXPECT_EQ(Scte20(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).size(),
              size < 6    ? 0u
              : size < 10 ? 1u
                          : 2u)
        << size;
  EXPECT_EQ(Scte20(Hex("03 81 F8 AC A4 D2 4B A8 75 80")).size(), 2u);  // a count of 31
  // field_number 00 is forbidden, 11 the first field again.
  EXPECT_TRUE(Scte20(Hex("03 81 08 2C A4 D2 40")).empty());
  EXPECT_EQ(Scte20(Hex("03 81 09 AC A4 D2 40")), (std::vector<Triplet>{kFirst}));
  EXPECT_FALSE(ReadScte20UserData(Hex("04 81 10 AC A4 D2 4B A8 75 80"), true));
  EXPECT_FALSE(ReadScte20UserData(Hex("03 80 10 AC A4 D2 4B A8 75 80"), true));  // no vbi_data_flag
  EXPECT_FALSE(IsOldUserData(Hex("47 41 39 34 03 C0 FF FF")));
  EXPECT_TRUE(IsOldUserData(Hex(kScte20)));
}

TEST(DvdUserData, IsReadAsFarAsItIsMarked) {
  // "CC", 01 F8, order and count, then FF for field 1 and FE for field 2 with two bytes each.
  const Bytes data = Hex("43 43 01 F8 9E FF 94 2C FE 15 AE FF 80 80 00 00");
  const auto triplets = ReadDvdUserData(data);
  ASSERT_TRUE(triplets);
  EXPECT_EQ(*triplets, (std::vector<Triplet>{kFirst, kSecond, {true, CcType::kField1, 0x80, 0x80}}));
  EXPECT_EQ(ReadDvdUserData(Hex("43 43 01 F8 9E FF 94 2C FE 15"))->size(), 1u);
  EXPECT_TRUE(ReadDvdUserData(Hex("43 43 01 F8 9E"))->empty());
  EXPECT_FALSE(ReadDvdUserData(Hex("43 43 01 F8")));
  EXPECT_FALSE(ReadDvdUserData(Hex("43 43 02 F8 9E FF 94 2C")));
  EXPECT_TRUE(IsOldUserData(data));
}

// A picture: start code and head, picture coding extension (f_codes 1111, structure, top_field_first), user
// data, and a slice.
Bytes Picture(const char* extension, const char* userData) {
  return Hex(std::string("00 00 01 00 00 0F FF F8 00 00 01 B5 ") + extension + " 00 00 01 B2 " + userData +
             " 00 00 01 01 22 33");
}

TEST(OldUserData, IsOfThePicturesFields) {
  const auto fields = [](const Bytes& picture) {
    std::string text;
    for (const Triplet& t : CaptionsOf(VideoCodec::kMpeg2, picture, {}).value_or(Triplets()))
      text += t.type == CcType::kField1 ? '1' : '2';
    return text;
  };
  EXPECT_EQ(fields(Picture("8F FF F3 80 00", kScte20)), "12");  // frame, top first
  EXPECT_EQ(fields(Picture("8F FF F3 00 00", kScte20)), "21");  // frame, bottom first
  EXPECT_EQ(fields(Picture("8F FF F1 00 00", kScte20)), "12");  // top field
  EXPECT_EQ(fields(Picture("8F FF F2 00 00", kScte20)), "21");  // bottom field
  // Beside captions in the newer form the older ones say nothing more.
  const std::string both = std::string("47 41 39 34 03 C1 FF FC 94 2C FF 00 00 01 B2 ") + kScte20;
  EXPECT_EQ(fields(Picture("8F FF F3 80 00", both.c_str())), "1");
}

}  // namespace
}  // namespace qlnmedia::captions

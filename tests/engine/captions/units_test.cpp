// Caption units byte for byte, and captions of strangers read out of packets.

#include "captions/units.h"

#include <gtest/gtest.h>

#include "captions/reader.h"
#include "support/test_support.h"
#include "timing/frame_rate.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using qlnmedia::captions::CcType;
using qlnmedia::captions::Triplet;

const Triplet kControl = {true, CcType::kField1, 0x94, 0x2C};

// The unit by hand: header, payload type and size, country, provider, GA94 cc_data, stop bit.
Bytes Expected(const Bytes& header, size_t count) {
  Bytes unit = header;
  const Bytes head = Hex("04 00 B5 00 31 47 41 39 34 03 00 FF FC 94 2C");
  unit.insert(unit.end(), head.begin(), head.end());
  unit[header.size() + 1] = static_cast<uint8_t>(11 + 3 * count);
  unit[header.size() + 10] = static_cast<uint8_t>(0xC0 + count);
  for (size_t i = 1; i < count; ++i) unit.insert(unit.end(), {0xFA, 0, 0});
  unit.insert(unit.end(), {0xFF, 0x80});
  return unit;
}

TEST(CaptionUnits, AreTheSameWhoeverMakesThem) {
  for (int rate = 0; rate < qlnmedia::captions::kRateCount; ++rate) {
    const auto count =
        static_cast<size_t>(qlnmedia::captions::InfoOf(static_cast<qlnmedia::captions::Rate>(rate)).triplets);
    std::vector<Triplet> triplets(count);
    triplets[0] = kControl;
    EXPECT_EQ(MakeCaptionUnit(Codec::kH264, Hex("65 88"), triplets), Expected({0x06}, count)) << count;
    EXPECT_EQ(MakeCaptionUnit(Codec::kHevc, Hex("26 01 AF"), triplets), Expected({0x4E, 0x01}, count));
  }
}

TEST(CaptionUnits, StandInTheTemporalLayerOfTheirPicture) {
  const std::vector<Triplet> triplets(12);
  EXPECT_EQ(MakeCaptionUnit(Codec::kHevc, Hex("02 03 AF"), triplets)[1], 3);
  EXPECT_EQ(MakeCaptionUnit(Codec::kHevc, Hex("02"), triplets)[1], 1);
}

TEST(CaptionUnits, KnowCaptionMessages) {
  const auto isCaption = [](int type, const char* payload) {
    return IsCaptionMessage(SeiMessage{type, Hex(payload)});
  };
  EXPECT_TRUE(isCaption(4, "B5 00 31 47 41 39 34 03 C0 FF FF"));
  EXPECT_FALSE(isCaption(5, "B5 00 31 47 41 39 34 03 C0 FF FF"));  // not registered
  EXPECT_FALSE(isCaption(4, "B5 00 31 47 41 39 34 06 C0 FF FF"));  // bar data
  EXPECT_FALSE(isCaption(4, "B5 00 31 44 54 47 31 41 F8"));        // active format
  EXPECT_FALSE(isCaption(4, "B5 00 3C 00 01 04 01 40"));           // another provider
  EXPECT_FALSE(isCaption(4, "26 00 31 47 41 39 34 03 C0 FF FF"));  // another country
}

const std::vector<Triplet> kZeros = {{false, CcType::kField1, 0, 0}, {true, CcType::kField1, 0x94, 0x20}};

TEST(CaptionsOf, TakesEmulationPreventionOut) {
  // A writer that leaves the marker bits 0: 00 00 00 and 04 94 20, so that zeros meet.
  const Bytes h264 = Hex("06 04 11 B5 00 31 47 41 39 34 03 42 00 00 03 00 00 04 94 20 FF 80");
  Bytes data = {0, 0, 0, 1};
  data.insert(data.end(), h264.begin(), h264.end());
  EXPECT_EQ(CaptionsOf(VideoCodec::kH264, data, {}), kZeros);
  data = Hex("00 00 01 4E 01 04 11 B5 00 31 47 41 39 34 03 42 00 00 03 00 00 04 94 20 FF 80");
  EXPECT_EQ(CaptionsOf(VideoCodec::kHevc, data, {}), kZeros);
  // MPEG-2 has no such bytes: its user data has the markers, or it would break off.
  data = Hex("00 00 01 00 00 0F FF F8 00 00 01 B2 47 41 39 34 03 42 FF F8 00 00 FC 94 20 FF 00 00 01 01 22");
  EXPECT_EQ(CaptionsOf(VideoCodec::kMpeg2, data, {}), kZeros);
}

TEST(CaptionsOf, TakesAllMessagesOfAPicture) {
  // Active format, captions, unregistered user data and captions in one unit, and a third message in the
  // next.
  const Bytes data =
      Hex("00 00 01 06 04 09 B5 00 31 44 54 47 31 41 F8"
          "04 0E B5 00 31 47 41 39 34 03 41 FF FC 94 20 FF"
          "05 11 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF 55"
          "04 0E B5 00 31 47 41 39 34 03 41 FF FC 94 2F FF 80"
          "00 00 01 06 04 0E B5 00 31 47 41 39 34 03 41 FF FE 12 34 FF 80 00 00 01 65 88");
  EXPECT_EQ(CaptionsOf(VideoCodec::kH264, data, {}),
            (std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x20},
                                  {true, CcType::kField1, 0x94, 0x2F},
                                  {true, CcType::kServiceData, 0x12, 0x34}}));
  EXPECT_FALSE(CaptionsOf(VideoCodec::kH264, Hex("00 00 01 06 04 09 B5 00 31 44 54 47 31 41 F8 80"), {}));
}

TEST(CaptionsOf, ReadsEveryLengthField) {
  const Bytes unit = Hex("06 04 0E B5 00 31 47 41 39 34 03 41 FF FC 94 20 FF 80");
  for (const size_t lengthBytes : {1u, 2u, 4u}) {
    Bytes data(lengthBytes, 0);
    data.back() = static_cast<uint8_t>(unit.size());
    data.insert(data.end(), unit.begin(), unit.end());
    const Framing framing{static_cast<int>(lengthBytes)};
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, data, framing),
              (std::vector<Triplet>{{true, CcType::kField1, 0x94, 0x20}}));
  }
}

TEST(CaptionsOf, TakesCutPackets) {
  const Bytes whole = Hex(
      "00 00 01 06 05 02 41 42 04 11 B5 00 31 47 41 39 34 03 42 FF FC 94 20 FA 00 00 FF 80 00 00 01 65 88");
  for (size_t size = 0; size <= whole.size(); ++size) {
    qln::test::ExactCopy copy(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    const auto triplets = CaptionsOf(VideoCodec::kH264, {copy.data(), copy.size()}, {});
    EXPECT_EQ(triplets.has_value(), size >= 27) << size;
  }
}

}  // namespace
}  // namespace qlnmedia

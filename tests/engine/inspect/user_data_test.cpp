// User data messages by name, and the settings that encoders leave.

#include <gtest/gtest.h>

#include "inspect/frames.h"
#include "inspect/user_data.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;

TEST(T35, ByName) {
  // itu_t_t35_country_code, the provider's code, and what the named documents put behind it.
  EXPECT_EQ(T35Name(Hex("B5 0031 47413934 03 42 FF")), "closed captions (ATSC A/53)");
  EXPECT_EQ(T35Name(Hex("B5 0031 47413934 06")), "bar data (ATSC A/53)");
  EXPECT_EQ(T35Name(Hex("B5 0031 44544731 41 F8")), "active format description (ETSI TS 101 154)");
  EXPECT_EQ(T35Name(Hex("B5 003C 0001 04 01 40")), "HDR10+ (SMPTE ST 2094-40)");
  EXPECT_EQ(T35Name(Hex("26 0004 0005 00")), "HDR Vivid (T/UWA 005.1)");
  EXPECT_EQ(T35Name(Hex("B5 1234 56")), "country 0xB5, provider 0x1234");
  EXPECT_EQ(T35Name(Hex("B5 00")), "cut off");
}

Json FrameJson(const std::vector<SeiMessage>& messages) {
  UnitRun run;
  Unit unit;
  unit.bytes = MakeSeiUnit(Hex("06"), messages);
  run.units.push_back(unit);
  Section frame;
  AddT35Messages(frame, Codec::kH264, run);
  return frame.ToJson();
}

TEST(T35, RowsOfAFrame) {
  const Json json =
      FrameJson({{4, Hex("B5 003C 0001 04 01")}, {5, Hex("00")}, {4, Hex("B5 0031 44544731 41 F8")}});
  ASSERT_EQ(json["t35"].size(), 2u);
  EXPECT_EQ(json["t35"][0], (Json{{"name", "HDR10+ (SMPTE ST 2094-40)"}, {"size", 7}}));
  EXPECT_FALSE(FrameJson({{5, Hex("00")}}).contains("t35"));
}

TEST(SeiSummary, NamesMessagesOfTheirProviders) {
  const Bytes unit = MakeSeiUnit(Hex("06"), {{4, Hex("B5 003C 0001 04 01")}, {1, Hex("12")}});
  EXPECT_EQ(
      SeiSummary(Codec::kH264, unit),
      "registered user data (ITU-T T.35): HDR10+ (SMPTE ST 2094-40) (7 bytes), picture timing (1 bytes)");
}

Json SettingsOf(const Bytes& behindUuid) {
  Bytes payload(16, 0xA5);
  payload.insert(payload.end(), behindUuid.begin(), behindUuid.end());
  CodedStream stream;
  stream.codec = Codec::kHevc;
  Bytes data = {0, 0, 0, 1};
  const Bytes unit = MakeSeiUnit(Hex("4E01"), {{5, payload}});
  data.insert(data.end(), unit.begin(), unit.end());
  stream.packets.push_back({data, 0, 0, true});
  Section section;
  AddEncoderSettings(section, stream);
  return section.ToJson();
}

TEST(EncoderSettings, AreTheTextOfUserData) {
  EXPECT_EQ(SettingsOf(Hex("63 72 66 3D 32 33 20 6D 65 3D 31 00"))["encoder_settings"], "crf=23 me=1");
  EXPECT_TRUE(SettingsOf(Hex("63 72 66 3D 32 33 20 6D 65 80")).empty());
  EXPECT_TRUE(SettingsOf(Hex("63 72 66")).empty());
}

}  // namespace
}  // namespace qlnmedia

// User data messages by name, and the settings that encoders leave.

#include <gtest/gtest.h>

#include "inspect/frame_packing.h"
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

// frame_packing_arrangement_id ue(v), cancel flag, type u(7), quincunx flag, content_interpretation_type
// u(6): 1 0 0000011 0 000001 is side by side with the left view first.
TEST(FramePacking, ByName) {
  const std::pair<const char*, const char*> cases[] = {
      {"81 81", "side by side"},                      // 1 0 0000011 0 000001
      {"82 02", "top and bottom, right view first"},  // 1 0 0000100 0 000010
      {"80 41", "checkerboard, quincunx"},            // 1 0 0000000 1 000001
      {"40 60 40", "side by side"},                   // 010 0 0000011 0 000001: an id of 1
      {"80 81", "alternating columns"},
      {"81 01", "alternating lines"},
      {"82 81", "alternating frames"},
      {"83 00", "one view"},
      {"84 01", "arrangement 8"},
      {"C0 00", ""},  // takes the arrangement back
      {"81", ""},     // breaks off
      {"", ""},
  };
  for (const auto& [bits, name] : cases) EXPECT_EQ(FramePackingName(Hex(bits)), name) << bits;
}

TEST(FramePacking, OfAStream) {
  CodedStream stream;
  stream.codec = Codec::kHevc;
  for (const char* bits : {"C0 00", "81 81"}) {
    Bytes data = {0, 0, 0, 1};
    const Bytes unit = MakeSeiUnit(Hex("4E01"), {{1, Hex("81 81")}, {45, Hex(bits)}});
    data.insert(data.end(), unit.begin(), unit.end());
    stream.packets = {{data, 0, 0, true}};
    Section section;
    AddFramePacking(section, stream);
    const bool told = std::string(bits) == "81 81";
    EXPECT_EQ(section.ToJson().contains("frame_packing"), told) << bits;
    if (told) {
      EXPECT_EQ(section.ToJson()["frame_packing"], "side by side");
    }
  }
}

}  // namespace
}  // namespace qlnmedia

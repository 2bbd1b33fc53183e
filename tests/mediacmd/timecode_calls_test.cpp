// What the command asks of the timecode service: the whole type words, of which our own service looks at a
// part only.

#include "mediacmd/timecode_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kxutil/kxutil.h"
#include "mediacmd/command_support.h"
#include "qlnutil/mediacmd/command_json.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Calls = std::vector<std::string>;

constexpr uint32_t kAllPoints = CF_USE_PRESETS | CF_USE_FRAME_COUNT | CF_USE_START | CF_USE_END;

MediaCmd AllPoints(uint32_t cmd, int32_t cmdAlt) {
  MediaCmd command = Command(cmd, kAllPoints);
  command.VideoChannels = 1;
  command.AudioChannels = 2;
  command.InfoChannels = 3;
  command.Position = 4;
  command.Start = 5;
  command.End = 6;
  command.CmdAlt = cmdAlt;
  return command;
}

// The calls of both writers, which are the same.
Calls CallsOfWriting(MediaCmd command, uint32_t tcType) {
  TimecodeCalls calls;
  char* text = nullptr;
  MediaCmdToXMLString(&text, &command, tcType);
  MediaCmdFreeXMLString(&text);
  const Calls xml = calls.Take();
  MediaCmdToJSON(&text, &command, tcType);
  MediaCmdFreeXMLString(&text);
  EXPECT_EQ(calls.Take(), xml);
  return xml;
}

TEST(TimecodeCalls, PointsAndChannels) {
  EXPECT_THAT(CallsOfWriting(AllPoints(ctPlay, 0), 8),
              ElementsAre("1 0x32108", "2 0x32108", "3 0x32108", "4 0x32108", "5 0x32108", "6 0x32108"));
  EXPECT_THAT(CallsOfWriting(AllPoints(ctPlay, 1100000), 0xABCDEF03),
              ElementsAre("1 0x32103", "2 0x32103", "3 0x32103", "4 0x32103", "5 0x32103", "6 0x32103"));
}

// A service of a host's own may leave the end away.
TEST(TimecodeCalls, ATextWithoutItsEndIsCut) {
  TimecodeCalls calls;
  TimecodeCalls::MakeEndless(260);
  MediaCmd command = Command(ctPlay, CF_USE_START);
  char* text = nullptr;
  MediaCmdToXMLString(&text, &command, 8);
  ASSERT_NE(text, nullptr);
  const std::string made = text;
  MediaCmdFreeXMLString(&text);
  EXPECT_NE(made.find(std::string(260, '7')), std::string::npos);
  EXPECT_EQ(made.find(std::string(261, '7')), std::string::npos);
}

TEST(TimecodeCalls, FramesAskForTheChannelsOnly) {
  for (const uint32_t type : {0u, 255u, 0x100u}) {
    EXPECT_THAT(CallsOfWriting(AllPoints(ctPlay, -1), type),
                ElementsAre("1 0x32100", "2 0x32100", "3 0x32100"));
  }
}

TEST(TimecodeCalls, ServicesAskForAWordOfTheirOwn) {
  const auto lastTwo = [](uint32_t cmd, int32_t cmdAlt) {
    const Calls calls = CallsOfWriting(AllPoints(cmd, cmdAlt), 4);
    return Calls(calls.begin() + 4, calls.end());
  };
  EXPECT_THAT(lastTwo(ctPlay, -1), ElementsAre("5 0xB2140", "6 0x32104"));
  EXPECT_THAT(lastTwo(ctGetValue, 1100000), ElementsAre("5 0x32104", "6 0x32104"));
  for (const uint32_t cmd : {14u, 15u, 16u}) {
    EXPECT_THAT(lastTwo(cmd, 1100001), ElementsAre("5 0xB2140", "6 0xB2140"));
    EXPECT_THAT(lastTwo(cmd, 1100002), ElementsAre("5 0xB2140", "6 0xB2140"));
    EXPECT_THAT(lastTwo(cmd, 1100003), ElementsAre("5 0xB2140", "6 0x32104"));
  }
  EXPECT_THAT(lastTwo(13, 1100001), ElementsAre("5 0xB2140", "6 0x32104"));
  EXPECT_THAT(lastTwo(17, 1100002), ElementsAre("5 0xB2140", "6 0x32104"));
}

TEST(TimecodeCalls, XmlTextsAreReadByTheWorkingType) {
  const char* const text =
      "<MediaCmd><Position>01:00:00:00</Position><Start TcType='16'>02:00</Start><End>3</End></MediaCmd>";
  TimecodeCalls calls;
  MediaCmd command;
  MediaCmdFromXMLString(&command, nullptr, text);
  EXPECT_THAT(calls.Take(), ElementsAre("01:00:00:00 0x104", "02:00 0x110", "3 0x110"));
  const uint32_t type = 0x12008;  // not cut to a byte
  MediaCmdFromXMLString(&command, &type, text);
  EXPECT_THAT(calls.Take(), ElementsAre("01:00:00:00 0x12108", "02:00 0x110", "3 0x110"));
  MediaCmdFromXMLString(&command, nullptr,
                        "<MediaCmd><Position Value='1'>01:00:00:00</Position><Start/></MediaCmd>");
  EXPECT_THAT(calls.Take(), IsEmpty());
}

TEST(TimecodeCalls, JsonTextsAreReadLowered) {
  TimecodeCalls calls;
  MediaCmd command = Command(ctStop);
  EXPECT_EQ(MediaCmdFromJSON(&command, nullptr,
                             "{\"MediaCmd\" : {\"Position\": {\"TcType\":\"TcString\",\"1:00:0AZ\":1,}}}"),
            0);
  EXPECT_THAT(calls.Take(), ElementsAre("1:00:0az 0x100"));
  EXPECT_EQ(command.Position, -1);
}

TEST(TimecodeCalls, DebugTimecodes) {
  TimecodeCalls calls;
  const MessageCapture capture;
  __dbgout_tc(100, 0);
  __dbgout_tc(100, 8);
  __dbgout_tc(100, 255);
  EXPECT_THAT(calls.Take(), ElementsAre("100 0x10102", "100 0x10108", "100 0x101FF"));
}

}  // namespace
}  // namespace qln::test

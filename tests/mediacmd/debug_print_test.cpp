// The line that is printed about a command, and a timecode's text.

#include <gtest/gtest.h>

#include "kxutil/kxutil.h"
#include "mediacmd/command_support.h"

namespace qln::test {
namespace {

constexpr const char* kWarning = "WARNING(vuMCmd): Exception: outputing mediacmd to string\n";

std::vector<Message> Print(const MediaCmd* command) {
  MessageCapture capture;
  __dbgout_mediacmd(command);
  return capture.messages();
}

// The one line printed about a command, with nothing else beside it.
std::string Line(const MediaCmd& command) {
  const std::vector<Message> messages = Print(&command);
  if (messages.size() != 1) return "(" + std::to_string(messages.size()) + " messages)";
  EXPECT_EQ(messages[0].severity, KX_SEVERITY_DEBUG);
  return messages[0].text;
}

TEST(DebugCommand, StateCommandsAndNullPrintNothing) {
  const MediaCmd getState = Command(ctGetState, 0xFFFFFFFFu);
  const MediaCmd setState = Command(ctSetState, 0xFFFFFFFFu);
  EXPECT_TRUE(Print(&getState).empty());
  EXPECT_TRUE(Print(&setState).empty());
  EXPECT_TRUE(Print(nullptr).empty());
}

TEST(DebugCommand, EveryCommand) {
  const char* const names[] = {"ctStop ",     "ctPause ",          "ctPlay ",   "ctRecord ",    "ctRecStop ",
                               "ctEject ",    "ctTransfer ",       "ctInsert ", "ctBlank ",     "ctDelete ",
                               "ctTrim ",     "ctChanSelect ",     nullptr,     nullptr,        nullptr,
                               "ctSetValue ", "ctValueSupported ", "ctError ",  "ctTerminate ", "ctAbort ",
                               "ctEdit ",     "ctSwitch "};
  for (uint32_t cmd = 0; cmd < std::size(names); ++cmd) {
    if (names[cmd] == nullptr) continue;
    EXPECT_EQ(Line(Command(cmd)), std::string("qln-Chan-1 ") + names[cmd]);
  }
  EXPECT_EQ(Line(Command(22)), "qln-Chan-1 ");
  EXPECT_EQ(Line(Command(0xFFFFFFFFu)), "qln-Chan-1 ");
}

TEST(DebugCommand, GetValueNamesItsState) {
  EXPECT_EQ(Line(ValueCommand(1054, ctGetValue, 0)), "qln-Chan-1 ctGetValue(channelname)");
  EXPECT_EQ(Line(ValueCommand(20003, ctGetValue, 0)), "qln-Chan-1 ctGetValue(sysdroppedframes)");
  EXPECT_EQ(Line(ValueCommand(1024, ctGetValue, 0)), "qln-Chan-1 ctGetValue(1024, 0x400) ");
  EXPECT_EQ(Line(ValueCommand(-1, ctGetValue, 0)), "qln-Chan-1 ctGetValue(-1, 0xFFFFFFFF) ");
}

TEST(DebugCommand, EachFlagAlone) {
  const auto line = [](uint32_t flags) {
    MediaCmd command = Command(ctStop, flags);
    command.Channel = 3;
    command.Speed = -65520;
    command.Position = 10;
    command.Start = 20;
    command.End = 30;
    command.VideoChannels = 1;
    command.AudioChannels = 2;
    command.InfoChannels = -3;
    command.CmdAlt = 40;
    Put(command, 76, "CLIP");
    Put(command, 85, "file.mov");
    return Line(command);
  };
  EXPECT_EQ(line(0), "qln-Chan3 ctStop ");
  EXPECT_EQ(line(0x1), "qln-Chan3 ctStop Deferred ");
  EXPECT_EQ(line(0x10), "qln-Chan3 ctStop UseSpeed (-100) ");
  // The presets stand beside the position, and not under their own flag.
  EXPECT_EQ(line(0x20), "qln-Chan3 ctStop ");
  EXPECT_EQ(line(0x40), "qln-Chan3 ctStop UsePosition (10) UsePresets: V(1)A(2)I(-3) ");
  EXPECT_EQ(line(0x80), "qln-Chan3 ctStop ");
  EXPECT_EQ(line(0x100), "qln-Chan3 ctStop Use Start (20) ");
  EXPECT_EQ(line(0x200), "qln-Chan3 ctStop UseStartOffset (20) ");
  EXPECT_EQ(line(0x400), "qln-Chan3 ctStop UseEnd (30) ");
  EXPECT_EQ(line(0x800), "qln-Chan3 ctStop UseEndOffset (30) ");
  EXPECT_EQ(line(0x2000), "qln-Chan3 ctStop UseClipId: (CLIP)(file.mov) ");
  EXPECT_EQ(line(0x2F71),
            "qln-Chan3 ctStop Deferred UseSpeed (-100) UsePosition (10) Use Start (20) UseStartOffset (20) "
            "UseEnd (30) UseEndOffset (30) UsePresets: V(1)A(2)I(-3) UseClipId: (CLIP)(file.mov) ");
}

TEST(DebugCommand, SpeedOfADefaultRecordIsZeroPercent) {
  EXPECT_EQ(Line(Command(ctStop, CF_USE_SPEED)), "qln-Chan-1 ctStop UseSpeed (0) ");
}

TEST(DebugCommand, CmdAltLabels) {
  const auto line = [](uint32_t flags) {
    MediaCmd command = Command(ctStop, flags);
    command.CmdAlt = 40;
    return Line(command).substr(std::string("qln-Chan-1 ctStop ").size());
  };
  EXPECT_EQ(line(0x10000), "CmdAlt: (40) ");
  EXPECT_EQ(line(0x10002), "CmdTime: (40) ");
  EXPECT_EQ(line(0x10004), "CmdAlt: (40) ");
  EXPECT_EQ(line(0x10006), "CmdTarget: (40) ");
  EXPECT_EQ(line(0x10008), "CmdAlt: (40) ");
  EXPECT_EQ(line(0x1000A), "CmdHouse: (40) ");
  EXPECT_EQ(line(0x1000C), "CmdAlt: (40) ");
  EXPECT_EQ(line(0x1000E), "CmdTarget: (40) ");
  EXPECT_EQ(line(0x0000E), "");
}

TEST(DebugCommand, TextsOfFull260CharactersAreNotCut) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  Put(command, 85, std::string(700, 'n'));
  EXPECT_EQ(Line(command), "qln-Chan-1 ctStop UseClipId: ()(" + std::string(700, 'n') + ") ");
}

TEST(DebugCommand, LineIsCutAt1039Characters) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  Put(command, 85, std::string(4102, 'n'));
  const std::string head = "qln-Chan-1 ctStop UseClipId: ()(";
  EXPECT_EQ(Line(command), head + std::string(1039 - head.size(), 'n'));
}

TEST(DebugCommand, LongTextFromClipIdOnRunsThroughFileName) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  Put(command, 76, "123456789abc");
  EXPECT_EQ(Line(command), "qln-Chan-1 ctStop UseClipId: (123456789abc)(abc) ");
}

TEST(DebugCommand, TextWithoutTerminatorEndsTheLineWithAWarning) {
  MediaCmd command = Command(ctPlay, CF_USE_CLIP_ID | CF_DEFERRED);
  Put(command, 85, std::string(4103, 'n'));
  for (const size_t size : {size_t{4188}, size_t{200}, size_t{86}}) {
    ExactRecord record(command, size);
    const std::vector<Message> messages = Print(record.get());
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].severity, 0x80000000u);
    EXPECT_EQ(messages[0].text, kWarning);
    EXPECT_EQ(messages[1].severity, KX_SEVERITY_DEBUG);
    EXPECT_EQ(messages[1].text, "qln-Chan-1 ctPlay Deferred ");
  }
}

TEST(DebugCommand, RecordThatEndsBeforeItsTextsHasEmptyOnes) {
  MediaCmd command = Command(ctStop, CF_USE_CLIP_ID);
  ExactRecord record(command, 76);
  EXPECT_EQ(Line(*record.get()), "qln-Chan-1 ctStop UseClipId: ()() ");
  command.StructSize = 0x80000000u;
  EXPECT_EQ(Line(command), "qln-Chan-1 ctStop UseClipId: ()() ");
}

TEST(DebugTimecode, PrintsByType) {
  const auto print = [](uint32_t timecode, uint8_t type) {
    MessageCapture capture;
    __dbgout_tc(timecode, type);
    EXPECT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages().at(0).severity, KX_SEVERITY_DEBUG);
    return capture.messages().at(0).text;
  };
  EXPECT_EQ(print(90000, 8), "01:00:00:00");
  EXPECT_EQ(print(108000, 2), "01:00:00:00");
  EXPECT_EQ(print(107892, 4), "01:00:00;00");
  EXPECT_EQ(print(108000, 0), "01:00:00:00");  // no type: counted as non-drop-frame
}

}  // namespace
}  // namespace qln::test

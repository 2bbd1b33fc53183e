// A command as JSON text, byte for byte.

#include <gtest/gtest.h>

#define JSMN_HEADER
#include <jsmn.h>

#include "kxutil/kxutil.h"
#include "mediacmd/xml_support.h"
#include "qlnutil/mediacmd/command_json.h"

namespace qln::test {
namespace {

using namespace std::string_view_literals;

std::string Json(MediaCmd* command, uint32_t type = 0) {
  char* text = nullptr;
  EXPECT_EQ(MediaCmdToJSON(&text, command, type), 0u);
  if (text == nullptr) return "(null)";
  EXPECT_EQ(KXAllocSize(text), std::strlen(text) + 1);
  std::string copy(text);
  EXPECT_EQ(MediaCmdFreeXMLString(&text), 0u);
  return copy;
}
std::string Json(MediaCmd command, uint32_t type = 0) { return Json(&command, type); }

const std::string kHead = R"({"MediaCmd" : {"CmdID":4196729344,"StructSize":4188,"Channel":4294967295,)";
const std::string kStop = R"("Cmd": {"Value":0,"String":"Stop",},)";
const std::string kPosition = R"("Position": {"Value":4294967295,"TcType":"frames","TcString":"-1",},)";

// What stands behind the position of a command with a data area.
std::string Data(MediaCmd* command) {
  const std::string text = Json(command);
  const size_t at = text.find("\"Position\"");
  const size_t begin = text.find("},", at) + 2;
  EXPECT_TRUE(text.ends_with("}}"));
  return text.substr(begin, text.size() - begin - 2);
}
std::string Data(MediaCmd command) { return Data(&command); }

// What stands between the channel number and the position.
std::string Middle(const MediaCmd& command, uint32_t type = 0) {
  const std::string text = Json(command, type);
  const size_t begin = text.find("\"Channel\":4294967295,") + 21;
  return text.substr(begin, text.find("\"Position\"") - begin);
}
// From the position on, without the closing braces.
std::string Points(const MediaCmd& command, uint32_t type = 0) {
  const std::string text = Json(command, type);
  return text.substr(text.find("\"Position\""), text.size() - text.find("\"Position\"") - 2);
}

TEST(JsonWriter, InitialisedStopIsExactlyThis) {
  EXPECT_EQ(Json(Command(ctStop)), kHead + kStop + kPosition + "}}");
}

TEST(JsonWriter, LinksAreSignedLowHalves) {
  MediaCmd command = Command(ctStop);
  command.prev = reinterpret_cast<void*>(uintptr_t{0x12345678FFFFFFFFu});
  command.next = reinterpret_cast<void*>(uintptr_t{5});
  command.list = reinterpret_cast<void*>(uintptr_t{0x100000000u});
  EXPECT_TRUE(Json(command).starts_with(R"({"MediaCmd" : {"prev":-1,"next":5,"list":0,"CmdID":)"));
}

TEST(JsonWriter, CommandWordsAndFlags) {
  EXPECT_EQ(Middle(Command(99)), R"("Cmd": {"Value":99,"String":"Unknown",},)");
  EXPECT_EQ(Middle(Command(0xFFFFFFFFu)), R"("Cmd": {"Value":-1,"String":"Unknown",},)");
  EXPECT_EQ(Middle(Command(ctSwitch)), R"("Cmd": {"Value":21,"String":"Switch",},)");
  EXPECT_EQ(Middle(Command(ctTransfer, 0xF0E0F001u)),
            R"("Cmd": {"Value":6,"String":"Transfer","Deferred":1,"OverrideDeferred":1,"Loop":1,"Trigger":1,)"
            R"("Ripple":1,"Invert":1,"Test":1,"NoReturn":1,"UseAllIDs":1,"UseClipID":1,"NoClipFiles":1,)"
            R"("NoTCSpaces":1,},)");
}

TEST(JsonWriter, SpeedHasTwoShapes) {
  const auto speed = [](uint32_t cmd, uint32_t flags, int32_t value) {
    MediaCmd command = Command(cmd, flags);
    command.Speed = value;
    const std::string middle = Middle(command);
    return middle.substr(middle.find("},") + 2);
  };
  EXPECT_EQ(speed(ctStop, 0, 5), "");
  EXPECT_EQ(speed(ctStop, 0x10, -65520), R"("Speed": {"Value":-65520,"String":"-100",},)");
  EXPECT_EQ(speed(ctStop, 0x20010, 32760), R"("Speed": {"Value":32760,"String":"50",},)");  // no "IsShuttle"
  EXPECT_EQ(speed(ctPlay, 0, 0x7FFFFFFF), R"("Speed": {"Value":65520,"String":"0",},)");
  EXPECT_EQ(speed(ctRecord, 0x20000, 65520), R"("Speed": {"Value":65520,"String":"100","IsShuttle":1,},)");
  EXPECT_EQ(speed(ctStop, 0x20000, 65520), R"("Speed": {"Value":65520,"String":"100","IsShuttle":1,},)");
}

TEST(JsonWriter, ChannelsAndTheirTimecodes) {
  MediaCmd command = Command(ctStop, CF_USE_PRESETS);
  command.VideoChannels = 25;
  command.InfoChannels = 50;
  const std::string channels = R"("VideoChannels":25,"AudioChannels":4294967295,"InfoChannels":50,)";
  EXPECT_EQ(Middle(command), kStop + channels);
  command.Flags |= CF_USE_FRAME_COUNT;
  command.AudioChannels = 75;
  EXPECT_EQ(Middle(command, 8),
            kStop + R"("ctltimecode": {"Value":25,"TcType":"pal","TcString":"00:00:01:00",},)"
                    R"("ltctimecode": {"Value":75,"TcType":"pal","TcString":"00:00:03:00",},)"
                    R"("vitctimecode": {"Value":50,"TcType":"pal","TcString":"00:00:02:00",},)"
                    R"("VideoChannels":25,"AudioChannels":75,"InfoChannels":50,)");
}

TEST(JsonWriter, CmdAltClosesWithoutAComma) {
  MediaCmd command = Command(ctStop, 0x1000E);
  EXPECT_EQ(Json(command),
            kHead + kStop +
                R"("CmdAlt": {"Value":4294967295,"TimeMs":1,"TimeTarget":1,"TimeHouseClock":1,})" +
                kPosition + "}}");
  command.Flags = 0x2;
  command.CmdAlt = 7;
  EXPECT_EQ(Middle(command), kStop + R"("CmdAlt": {"Value":7,"TimeMs":1,})");
  command.Flags = 0x4;
  EXPECT_EQ(Middle(command), kStop + R"("CmdAlt": {"Value":7,"TimeTarget":1,})");
  command.Flags = 0x8;
  EXPECT_EQ(Middle(command), kStop + R"("CmdAlt": {"Value":7,"TimeHouseClock":1,})");
  command.Flags = 0x10000;
  EXPECT_EQ(Middle(command), kStop + R"("CmdAlt": {"Value":7,})");
}

TEST(JsonWriter, Points) {
  MediaCmd command = Command(ctStop, 0x1C0F80);
  command.Position = 1;
  command.Start = 2;
  command.End = 3;
  const std::string flags = R"("IsOffset":1,"UsingCurrent":1,"UsingFrameCount":1,"IsFieldCount":1,},)";
  EXPECT_EQ(Points(command), R"("Position": {"Value":1,"TcType":"frames","TcString":"1",)" + flags +
                                 R"("Start": {"Value":2,"TcType":"frames","TcString":"2",)" + flags +
                                 R"("End": {"Value":3,"TcType":"frames","TcString":"3",)" + flags);
  command.Flags = 0x500;
  EXPECT_EQ(Points(command), R"("Position": {"Value":1,"TcType":"frames","TcString":"1",},)"
                             R"("Start": {"Value":2,"TcType":"frames","TcString":"2",},)"
                             R"("End": {"Value":3,"TcType":"frames","TcString":"3",},)");
}

TEST(JsonWriter, EveryTimecodeType) {
  MediaCmd command = Command(ctStop);
  command.Position = 100;
  const auto position = [&](uint32_t type) {
    const std::string text = Points(command, type);
    return text.substr(text.find("\"TcType\""));
  };
  const auto expected = [](const std::string& type, const std::string& text) {
    return "\"TcType\":\"" + type + "\",\"TcString\":\"" + text + "\",},";
  };
  EXPECT_EQ(position(0), expected("frames", "100"));
  EXPECT_EQ(position(255), expected("frames", "100"));
  EXPECT_EQ(position(1), expected("film", "00:00:04:04"));
  EXPECT_EQ(position(2), expected("non-drop-frame", "00:00:03:10"));
  EXPECT_EQ(position(4), expected("drop-frame", "00:00:03;10"));
  EXPECT_EQ(position(8), expected("pal", "00:00:04:00"));
  EXPECT_EQ(position(16), expected("50", "00:00:02:00"));
  EXPECT_EQ(position(32), expected("59.94", "00:00:01;40"));
  EXPECT_EQ(position(64), expected("60", "00:00:01:40"));
  EXPECT_EQ(position(128), expected("film-drop", "00:00:04:04"));
  EXPECT_EQ(position(132), expected("23.98", "00:00:04:04"));
  EXPECT_EQ(position(3), expected("drop-frame", "00:00:03:10"));  // a type without a word
}

TEST(JsonWriter, ServiceTimecodes) {
  MediaCmd command = ValueCommand(1100001, ctGetValue, 0x500);
  command.Start = command.End = 120;
  EXPECT_NE(Points(command, 8).find(R"("Start": {"Value":120,"TcType":"pal","TcString":"00:00:02:00",})"),
            std::string::npos);
  EXPECT_NE(Points(command, 8).find(R"("End": {"Value":120,"TcType":"pal","TcString":"00:00:02:00",})"),
            std::string::npos);
  command.CmdAlt = 1100000;
  EXPECT_NE(Points(command, 8).find(R"("Start": {"Value":120,"TcType":"pal","TcString":"00:00:04:20",})"),
            std::string::npos);
  EXPECT_NE(Points(command, 8).find(R"("End": {"Value":120,"TcType":"pal","TcString":"00:00:04:20",})"),
            std::string::npos);
}

TEST(JsonWriter, BinaryData) {
  MediaCmd command = ValueCommand(25);
  command.StructSize = 80;
  Put(command, 76, "\x01\xAB\x00\xFF"sv);
  EXPECT_EQ(Data(command), R"("arbID": {"Type":"hex","length":4,"String":"01AB00FF",},)");
  command.Flags |= CF_NO_TC_SPACES;
  EXPECT_EQ(Data(command), R"("arbID": {"Type":"base64","length":4,"Value":"AasA/w==",},)");
  command.StructSize = 70;
  EXPECT_EQ(Data(command), R"("arbID": {"Type":"base64","length":-6,"Value":"",},)");
  command.Flags |= CF_USING_CURRENT;
  EXPECT_EQ(Data(command), "");
}

TEST(JsonWriter, DataMembers) {
  MediaCmd clip = Command(ctTransfer, CF_USE_CLIP_ID);
  Put(clip, 76, "CLIP");
  Put(clip, 85, "a\"b\\c<&>");
  EXPECT_EQ(Data(clip), R"("ClipID":"CLIP","FileName":"a"b\c<&>",)");  // nothing is escaped

  MediaCmd aliases = ValueCommand(1054);
  Put(aliases, 85, "main\0one\0\0three\0"sv);
  EXPECT_EQ(Data(aliases), R"("channelalias":"main","channel1alias":"main","channel2alias":"one",)"
                           R"("channel4alias":"three","ClipID":"","FileName":"main",)");

  MediaCmd addresses = ValueCommand(801);
  addresses.End = 5;
  addresses.AudioChannels = 6;
  Put(addresses, 76,
      "1\0"
      "2\0"
      "3\0"sv);
  EXPECT_EQ(Data(addresses), R"("destinationipaddress":"1","sourceipaddress":"2","interfaceipaddress":"3",)"
                             R"("start": 4294967295,"end": 5,"audiochannels": 6,"ClipID":"1",)");

  MediaCmd clock = ValueCommand(802);
  Put(clock, 76, "9.9");
  EXPECT_EQ(Data(clock), R"("clockipaddress":"9.9","ClipID":"9.9",)");

  MediaCmd name = ValueCommand(60002);
  Put(name, 76, "One");
  EXPECT_EQ(Data(name), R"("chanName":"One",)");

  MediaCmd tag = ValueCommand(166);
  tag.Start = -17;
  Put(tag, 76, "REPLAY_COUNT\0"sv);
  EXPECT_EQ(Data(tag), R"("MetaTag":"REPLAY_COUNT","MetaData":"-17","PageRequest":"-1",)");
}

TEST(JsonWriter, MetabaseFileNamePartsItsIdentifier) {
  MediaCmd command = ValueCommand(162);
  Put(command, 85, "a.mov$XY");
  EXPECT_EQ(Data(&command), R"("ClipID":"","UniqueID":"XY","FileName":"a.mov",)");
  EXPECT_EQ(command.FileName[5], '\0');
  EXPECT_EQ(Data(&command), R"("ClipID":"","FileName":"a.mov",)");
}

TEST(JsonWriter, TextsWithoutTerminatorWarn) {
  MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
  std::memset(command.FileName, 'x', sizeof command.FileName);
  MessageCapture capture;
  EXPECT_EQ(Data(command), R"("ClipID":"",)");
  EXPECT_EQ(capture.texts(), Lines{"WARNING(JSONmCmd): Exception:  MediaCmdToJSON(ClipID) \n"});
  EXPECT_EQ(capture.messages().at(0).severity, 0x80000000u);
  capture.clear();
  std::memset(command.ClipID, 'x', sizeof command.ClipID);
  EXPECT_EQ(Data(command), "");
  EXPECT_EQ(capture.texts(), Lines{"WARNING(JSONmCmd): Exception: MediaCmdToJSON() \n"});
}

TEST(JsonWriter, PointerIsNullFirst) {
  char byte = 0;
  char* text = &byte;
  EXPECT_EQ(MediaCmdToJSON(&text, nullptr, 0), 0u);
  EXPECT_EQ(text, nullptr);
  MediaCmd command = ValueCommand(162);
  Put(command, 85, "a$b");
  EXPECT_EQ(MediaCmdToJSON(nullptr, &command, 0), 0u);  // thrown away, but the record is walked
  EXPECT_EQ(command.FileName[1], '\0');
}

// The walk is one: both forms name the same data in the same order.
TEST(JsonWriter, WritesWhatTheXmlFormWrites) {
  MessageCapture capture;
  Random random(21);
  for (int round = 0; round < 1000; ++round) {
    MediaCmd command = RandomCommand(random, true);
    for (char& c : command.FileName) c = c == '"' ? '\'' : c;
    for (char& c : command.ClipID) c = c == '"' ? '\'' : c;
    const Lines xml = Xml(command);
    const std::string json = Json(command);
    size_t at = 0;
    for (const std::string& line : xml) {
      std::string name = line.substr(0, line.find(' '));
      size_t found = json.find("\"" + name + "\":", at);
      if (found == std::string::npos && line.find('|') == std::string::npos) {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c < 'a' ? char(c + 32) : c; });
        found = json.find("\"" + name + "\": ", at);
      }
      ASSERT_NE(found, std::string::npos) << line << "\n" << json;
      at = found + 1;
    }
  }
}

// The tokenizer takes the form, commas behind last members and all.
TEST(JsonWriter, TokenizerTakesIt) {
  for (const uint32_t flags : {0u, 0xFFFFDFFFu}) {
    const std::string text = Json(Command(ctPlay, flags), 4);
    jsmntok_t tokens[200];
    jsmn_parser parser;
    jsmn_init(&parser);
    EXPECT_GT(jsmn_parse(&parser, text.data(), text.size(), tokens, 200), 10);
    EXPECT_EQ(tokens[0].end, static_cast<int>(text.size()));
  }
}

}  // namespace
}  // namespace qln::test

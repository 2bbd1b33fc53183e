// A command from JSON text: the flat walk over tokens with its windows, and texts that break off.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "kxutil/kxutil.h"
#include "mediacmd/json_reader_support.h"
#include "mediacmd/xml_support.h"
#include "qlnutil/mediacmd/command_json.h"
#include "support/long_memory.h"

namespace qln::test {
namespace {

TEST(JsonReader, Results) {
  MediaCmd command = Command(ctPlay);
  const MediaCmd before = command;
  MessageCapture capture;
  const auto read = [&](const char* text) {
    capture.clear();
    return MediaCmdFromJSON(&command, nullptr, text);
  };
  EXPECT_EQ(MediaCmdFromJSON(nullptr, nullptr, "{"), -1);
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_EQ(read(nullptr), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -2\n"});
  EXPECT_EQ(read("{\"a\": \"\\x\"}"), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -2\n"});
  EXPECT_EQ(read("{\"MediaCmd\" : {"), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -3\n"});
  std::string many = "{\"MediaCmd\" : {\"Channel\":7,\"a\":[";
  for (int i = 0; i < 100; ++i) many += "1,";
  EXPECT_EQ(read((many + "]}}").c_str()), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -1\n"});
  for (const char* text : {"[1,2]", "", "   ", "1", "\"MediaCmd\""}) {
    EXPECT_EQ(read(text), 1) << text;
    EXPECT_EQ(capture.texts(), Lines{"Object expected\n"}) << text;
    EXPECT_EQ(capture.messages().at(0).severity, KX_SEVERITY_ERROR);
  }
  for (const char* text : {"{}", "{\"Other\":1}", "{MediaCmd:{}}", "{\"mediacmd\":{}}", "{\"MediaCmds\":{}}",
                           "{\"a\":1,\"MediaCmd\":{\"Channel\":1}}"}) {
    EXPECT_EQ(read(text), -2) << text;
    EXPECT_TRUE(capture.messages().empty()) << text;
  }
  EXPECT_TRUE(SameRecord(command, before));
  EXPECT_EQ(read("{\"MediaCmd\"}"), 0);
  EXPECT_EQ(read("{\"ClipInfo\" : {\"Channel\":9}}"), 0);
  EXPECT_EQ(command.Channel, 9);
}

TEST(JsonReader, ATextOf2GBIsNotParsed) {
  LongMemory text(size_t{INT_MAX} + 1);
  if (text.data() == nullptr) GTEST_SKIP();
  const std::string begin = "{\"MediaCmd\" : {\"Channel\":9,}}";
  std::memcpy(text.data(), begin.data(), begin.size());
  MediaCmd command = Command(ctPlay);
  const MediaCmd before = command;
  MessageCapture capture;
  EXPECT_EQ(MediaCmdFromJSON(&command, nullptr, reinterpret_cast<const char*>(text.data())), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -2\n"});
  EXPECT_TRUE(SameRecord(command, before));
}

TEST(JsonReader, ChannelAloneChangesNothingElse) {
  MediaCmd expected = Command(ctStop);
  expected.Channel = 2;
  EXPECT_TRUE(SameRecord(Read("\"Channel\":2,"), expected));
}

TEST(JsonReader, RecordIsNotInitialised) {
  MediaCmd filled;
  std::memset(&filled, 0xA5, sizeof filled);
  filled.StructSize = 4188;
  MediaCmd expected = filled;
  expected.Channel = 2;
  EXPECT_TRUE(SameRecord(ReadInto(filled, "\"Channel\":2"), expected));
}

TEST(JsonReader, Numbers) {
  const auto channel = [](const std::string& value) {
    MediaCmd command = Command(ctStop);
    command.Channel = 77;
    return ReadInto(command, "\"Channel\":" + value + ",").Channel;
  };
  EXPECT_EQ(channel("12"), 12);
  EXPECT_EQ(channel("-12"), -12);
  EXPECT_EQ(channel("+12"), 12);
  EXPECT_EQ(channel("4294967295"), -1);
  EXPECT_EQ(channel("4294967298"), 2);  // wraps
  EXPECT_EQ(channel("2147483648"), -0x7FFFFFFF - 1);
  EXPECT_EQ(channel("12abc"), 12);
  EXPECT_EQ(channel("1.5"), 1);
  EXPECT_EQ(channel("true"), 0);
  EXPECT_EQ(channel("null"), 0);
  EXPECT_EQ(channel("-"), 0);
  EXPECT_EQ(channel("\"12\""), 77);  // no primitive: passed by
  EXPECT_EQ(channel("{}"), 77);
}

TEST(JsonReader, ScalarKeys) {
  MediaCmd command = Command(ctStop);
  command.prev = command.next = reinterpret_cast<void*>(uintptr_t{0x1122334455667788u});
  command = ReadInto(command, R"("prev":-1,"next":"1","list":5,"CmdID":1,"StructSize":100,"Channel":3)");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.prev), 0x11223344FFFFFFFFu);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.next), 0x1122334455667788u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.list), 5u);
  EXPECT_EQ(command.CmdID, 1u);
  EXPECT_EQ(command.StructSize, 100u);
  EXPECT_EQ(command.Flags, 0u);
  command = Read(R"("VideoChannels":1,"AudioChannels":2,"InfoChannels":4294967295)");
  EXPECT_EQ(command.VideoChannels, 1);
  EXPECT_EQ(command.AudioChannels, 2);
  EXPECT_EQ(command.InfoChannels, -1);
  EXPECT_EQ(command.Flags, 0x20u);
  for (const char* name : {"VideoChannels", "AudioChannels", "InfoChannels"}) {
    command = Read("\"" + std::string(name) + "\":\"x\"");
    EXPECT_EQ(command.Flags, 0x20u);
    EXPECT_EQ(command.VideoChannels, -1);
  }
}

TEST(JsonReader, KeysMatchWhereverTheyStand) {
  EXPECT_EQ(Read(R"("x":{"y":[{"Channel":5}]})").Channel, 5);
  EXPECT_EQ(Read(R"("x":"Channel",6:1)").Channel, 6);      // a value that is a key's name
  EXPECT_EQ(Read(R"("Channel":"Channel",7)").Channel, 7);  // on into the value
  EXPECT_EQ(Read(R"("channel":5)").Channel, -1);
  EXPECT_EQ(Read(R"("Channels":5,"Channe":6)").Channel, -1);
}

TEST(JsonReader, CommandWords) {
  const char* const words[] = {
      "stop",     "pause",    "play",           "record", "recstop",    "eject",    "transfer",
      "insert",   "blank",    "delete",         "trim",   "chanselect", "getstate", "setstate",
      "getvalue", "setvalue", "valuesupported", "error",  "terminate",  "abort",    "edit"};
  for (uint32_t i = 0; i < std::size(words); ++i) {
    std::string word(words[i]);
    word[0] = static_cast<char>(word[0] - 32);
    const uint32_t expected = i == 18 || i == 19 ? 2u : i;  // "terminate" and "abort" start playback
    EXPECT_EQ(Read("\"Cmd\": {\"String\":\"" + word + " x\"}").Cmd, expected) << word;
  }
  EXPECT_EQ(ReadInto(Command(7), R"("Cmd": {"String":"switch"})").Cmd, 7u);
  EXPECT_EQ(ReadInto(Command(7), R"("Cmd": {"String":"rec"})").Cmd, 7u);
  EXPECT_EQ(ReadInto(Command(7), R"("Cmd": {"String":5})").Cmd, 7u);
  EXPECT_EQ(Read("\"Cmd\": {\"String\":\"play" + std::string(3000, 'x') + "\"}").Cmd, 2u);
  EXPECT_EQ(Read(R"("Cmd": {"Value":21})").Cmd, 21u);
  EXPECT_EQ(ReadInto(Command(7), R"("Cmd": {"Value":"5"})").Cmd, 7u);
}

TEST(JsonReader, CommandFlagsCountByPresence) {
  const std::pair<const char*, uint32_t> rows[] = {{"Deferred", 0x1},
                                                   {"cfOverideDeferred", 0x40000000},
                                                   {"cfOverrideDeferred", 0x40000000},
                                                   {"Loop", 0x400000},
                                                   {"Trigger", 0x800000},
                                                   {"Ripple", 0x200000},
                                                   {"Invert", 0x10000000},
                                                   {"Test", 0x20000000},
                                                   {"NoReturn", 0x80000000},
                                                   {"UseAllIDs", 0x1000},
                                                   {"UseClipID", 0x2000},
                                                   {"NoClipFiles", 0x4000},
                                                   {"NoTCSpaces", 0x8000},
                                                   {"OverrideDeferred", 0}};
  for (const auto& [name, flag] : rows) {
    EXPECT_EQ(Read("\"Cmd\": {\"" + std::string(name) + "\":0}").Flags, flag) << name;
    EXPECT_EQ(Read("\"Cmd\": {\"x\":\"" + std::string(name) + "\",\"y\":1}").Flags, flag)
        << name;                                                           // as a value
    EXPECT_EQ(Read("\"" + std::string(name) + "\":1").Flags, 0u) << name;  // outside
  }
}

// The window is as long as the object has keys: about half of its members.
TEST(JsonReader, WindowOfTheCommand) {
  EXPECT_EQ(Read(R"("Cmd": {"a":1,"b":2,"Loop":1,"Test":1})").Flags, 0u);   // 4 tokens: a 1 b 2
  EXPECT_EQ(Read(R"("Cmd": {"a":1,"Loop":1,"Test":1})").Flags, 0x400000u);  // 3 tokens: a 1 Loop
  EXPECT_EQ(Read(R"("Cmd": {"a":1,"Value":9,"b":1})").Cmd, 9u);  // its value lies behind the window
  EXPECT_EQ(Read(R"("Cmd": {"Loop":1,"Value":5})").Cmd, 0u);
  // Behind the window the walk skips one token more: i + s + 3.
  EXPECT_EQ(Read(R"("Cmd": {"a":1,"Channel":5})").Channel, -1);             // resumes at 5
  EXPECT_EQ(Read(R"("Cmd": {"a":1,"b":2,"c":1,"Channel":5})").Channel, 5);  // at "Channel" itself
  EXPECT_EQ(Read(R"("Cmd": {},"Channel":5)").Channel, -1);                  // s 0: i + 3, its value
  EXPECT_EQ(Read(R"("Cmd": {},"x","Channel":5)").Channel, 5);
}

TEST(JsonReader, WindowsOfCmdAltAndPoints) {
  // The first token looked at is the object itself.
  EXPECT_EQ(Read(R"("CmdAlt": {"Value":5})").CmdAlt, -1);
  EXPECT_EQ(Read(R"("CmdAlt": {"Value":5})").Flags, 0x10000u);
  EXPECT_EQ(Read(R"("CmdAlt": {"Value":5,"x":1})").CmdAlt, 5);
  EXPECT_EQ(Read(R"("Start": {"Value":5})").Start, -1);
  EXPECT_EQ(Read(R"("Start": {"Value":5,"x":1})").Start, 5);
  EXPECT_EQ(Read(R"("End": {"Value":5})").End, -1);
  EXPECT_EQ(Read(R"("End": {"Value":5,"x":1})").End, 5);
  EXPECT_EQ(Read(R"("Position": {"Value":5})").Position, 5);
  // And the walk resumes at i + s + 2, for s 0 at i + 2.
  for (const char* key : {"CmdAlt", "Start", "End"}) {
    const std::string name = "\"" + std::string(key) + "\"";
    EXPECT_EQ(Read(name + ": {},\"Channel\":5").Channel, 5) << key;
    EXPECT_EQ(Read(name + ": {\"a\",\"Channel\":5}").Channel, -1) << key;   // s 2: at the 5
    EXPECT_EQ(Read(name + ": {\"a\":1,\"Channel\":5}").Channel, 5) << key;  // at "Channel"
    EXPECT_EQ(Read(name + ": 3,\"Channel\":5").Channel, 5) << key;          // no object: of size 0
  }
  for (const char* key : {"Speed", "Position", "arbID"}) {
    const std::string name = "\"" + std::string(key) + "\"";
    EXPECT_EQ(Read(name + ": {},\"Channel\":5").Channel, -1) << key;
    EXPECT_EQ(Read(name + ": {},\"x\",\"Channel\":5").Channel, 5) << key;
    EXPECT_EQ(Read(name + ": {\"a\":1,\"b\":2,\"c\":1,\"Channel\":5}").Channel, 5) << key;
  }
}

TEST(JsonReader, Speed) {
  MediaCmd command = Read(R"("Speed": {"Value":-65520})");
  EXPECT_EQ(command.Speed, -65520);
  EXPECT_EQ(command.Flags, 0x10u);
  command = Read(R"("Speed": {"Value":"5"})");
  EXPECT_EQ(command.Speed, 0x7FFFFFFF);
  EXPECT_EQ(command.Flags, 0x10u);
  EXPECT_EQ(Read(R"("Speed": {"String":"5"})").Flags, 0u);
  EXPECT_EQ(Read(R"("Speed": {"IsShuttle":0})").Flags, 0x20000u);
}

TEST(JsonReader, CmdAltFlags) {
  const auto flags = [](const std::string& name) {
    return Read("\"CmdAlt\": {\"" + name + "\":0,\"x\":1}").Flags;
  };
  EXPECT_EQ(flags("TimeTarget"), 0x10004u);
  EXPECT_EQ(flags("TimeHouseClock"), 0x10008u);
  EXPECT_EQ(flags("TimeMs"), 0x10000u);  // not recognised
}

TEST(JsonReader, PointFlags) {
  struct Row {
    const char* name;
    uint32_t present, offset;
  };
  for (const Row& row : {Row{"Position", 0x40, 0x80}, Row{"Start", 0x100, 0x200}, Row{"End", 0x400, 0x800}}) {
    const auto flags = [&](const std::string& name) {
      return Read("\"" + std::string(row.name) + "\": {\"" + name + "\":0,\"x\":1}").Flags;
    };
    EXPECT_EQ(flags("y"), row.present);
    EXPECT_EQ(flags("IsOffset"), row.present | row.offset);
    EXPECT_EQ(flags("UsingCurrent"), row.present | 0x40000);
    EXPECT_EQ(flags("UsingFrameCount"), row.present | 0x80000);
    EXPECT_EQ(flags("IsFieldCount"), row.present | 0x100000);
  }
}

TEST(JsonReader, ThereIsRoomForAHundredTokens) {
  const auto text = [](int tokens) {
    std::string members;
    for (int i = 7; i < tokens; ++i) members += "1,";
    return "{\"MediaCmd\" : {\"Channel\":7,\"a\":[" + members + "]}}";
  };
  MessageCapture capture;
  MediaCmd command = Command(ctStop);
  EXPECT_EQ(MediaCmdFromJSON(&command, nullptr, text(101).c_str()), -1);
  EXPECT_EQ(capture.texts(), Lines{"Failed to parse JSON: -1\n"});
  EXPECT_EQ(command.Channel, -1);
  EXPECT_EQ(MediaCmdFromJSON(&command, nullptr, text(100).c_str()), 0);
  EXPECT_EQ(command.Channel, 7);
}

// Keys among the last tokens, with nothing behind them.
TEST(JsonReader, KeysAtTheEndOfTheTokens) {
  for (const char* key :
       {"Cmd", "Speed", "CmdAlt", "Position", "Start", "End", "arbID", "Channel", "ClipID"}) {
    for (int count = 90; count <= 94; ++count) {
      std::string members;
      for (int i = 0; i < count; ++i) members += "1,";
      const MediaCmd command = Read("\"x\":[" + members + "],\"" + key + "\"");
      EXPECT_EQ(command.Channel, -1);
    }
  }
}

TEST(JsonReader, BrokenOffAtEveryByte) {
  MediaCmd source = Command(ctPlay, CF_USE_SPEED | CF_USE_PRESETS | CF_USE_START | CF_USE_CLIP_ID);
  Put(source, 85, "a.mov");
  char* text = nullptr;
  MediaCmdToJSON(&text, &source, 4);
  const std::string whole(text);
  MediaCmdFreeXMLString(&text);
  MessageCapture capture;
  for (size_t length = 0; length < whole.size(); ++length) {
    Bytes bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    bytes.push_back(0);
    ExactCopy copy(bytes);
    MediaCmd command = Command(ctStop);
    EXPECT_EQ(MediaCmdFromJSON(&command, nullptr, reinterpret_cast<const char*>(copy.data())),
              length == 0 ? 1 : -1);
    EXPECT_TRUE(SameRecord(command, Command(ctStop)));
  }
}

TEST(JsonReader, ReadsWhatTheWindowsLetThrough) {
  MediaCmd source =
      Command(ctPlay, CF_USE_SPEED | CF_USE_PRESETS | CF_USE_START | CF_USE_END | CF_USE_CLIP_ID);
  source.Speed = -5;
  source.VideoChannels = 1;
  source.Position = 10;
  source.Start = 20;
  source.End = 30;
  source.Channel = 4;
  Put(source, 76, "CLIP");
  Put(source, 85, "file");
  char* text = nullptr;
  MediaCmdToJSON(&text, &source, 4);
  MediaCmd read = Command(ctStop);
  EXPECT_EQ(MediaCmdFromJSON(&read, nullptr, text), 0);
  MediaCmdFreeXMLString(&text);
  MediaCmd expected = source;
  expected.Flags = 0x2000 | 0x10 | 0x20 | 0x40 | 0x100 | 0x400;
  std::memset(expected.ClipID, 0, 4112);
  Put(expected, 76, "file");  // both texts go to one place
  EXPECT_TRUE(SameRecord(read, expected));
}

}  // namespace
}  // namespace qln::test

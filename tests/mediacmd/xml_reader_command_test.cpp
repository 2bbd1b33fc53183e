// A command from XML: commands and flags, speed, points, and timecode types.

#include <gtest/gtest.h>

#include "mediacmd/xml_reader_support.h"
#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

TEST(XmlReader, CommandByValueOrWord) {
  const auto cmd = [](const std::string& element) { return ReadChildren(element).Cmd; };
  EXPECT_EQ(cmd("<Cmd Value='7'>Play</Cmd>"), 7u);
  EXPECT_EQ(cmd("<Cmd Value='99'>Play</Cmd>"), 99u);
  EXPECT_EQ(cmd("<Cmd>PLAY it</Cmd>"), 2u);
  EXPECT_EQ(cmd("<Cmd>recordings</Cmd>"), 3u);
  EXPECT_EQ(cmd("<Cmd Value='x'>Play</Cmd>"), 2u);
  MediaCmd command = Command(ctInsert);
  for (const char* text : {"<Cmd>rec</Cmd>", "<Cmd/>", "<Cmd></Cmd>", "<Cmd>Switch</Cmd>",
                           "<Cmd><b>Play</b></Cmd>", "<Cmd><!--x-->Play</Cmd>"}) {
    EXPECT_EQ(ReadInto(&command, Rooted(text)), 0u);
    EXPECT_EQ(command.Cmd, uint32_t{ctInsert}) << text;
  }
  EXPECT_EQ(cmd("<Cmd Value='21'>Switch</Cmd>"), 21u);
  EXPECT_EQ(cmd("<Channel Value='1'/>"), 0u);  // the string form begins at 0
  EXPECT_EQ(cmd("<Cmd>play" + std::string(5000, 'x') + "</Cmd>"), 2u);
  EXPECT_EQ(cmd("<Cmd><![CDATA[Eject]]></Cmd>"), 5u);
}

TEST(XmlReader, EveryCommandWord) {
  const char* const words[] = {
      "stop",     "pause",    "play",           "record", "recstop",    "eject",    "transfer",
      "insert",   "blank",    "delete",         "trim",   "chanselect", "getstate", "setstate",
      "getvalue", "setvalue", "valuesupported", "error",  "terminate",  "abort",    "edit"};
  for (uint32_t i = 0; i < std::size(words); ++i) {
    EXPECT_EQ(ReadChildren("<Cmd>" + std::string(words[i]) + "</Cmd>").Cmd, i);
  }
}

TEST(XmlReader, CommandFlags) {
  const auto flags = [](const std::string& attributes) {
    return ReadChildren("<Cmd " + attributes + "/>").Flags;
  };
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
                                                   {"NoTCSpaces", 0x8000}};
  for (const auto& [name, flag] : rows) {
    const std::string attribute(name);
    EXPECT_EQ(flags(attribute + "='1'"), flag) << name;
    EXPECT_EQ(flags(attribute + "='-5x'"), flag) << name;
    EXPECT_EQ(flags(attribute + "='0'"), 0u) << name;
    EXPECT_EQ(flags(attribute + "='yes'"), 0u) << name;
    EXPECT_EQ(flags(attribute + "=''"), 0u) << name;
  }
  EXPECT_EQ(flags("OverrideDeferred='1'"), 0u);
}

TEST(XmlReader, MisspeltOverrideIsLookedAtFirst) {
  const auto flags = [](const std::string& attributes) {
    return ReadChildren("<Cmd " + attributes + "/>").Flags;
  };
  EXPECT_EQ(flags("cfOverideDeferred='0' cfOverrideDeferred='1'"), 0u);
  EXPECT_EQ(flags("cfOverideDeferred='1' cfOverrideDeferred='0'"), 0x40000000u);
  EXPECT_EQ(flags("cfOverideDeferred='no' cfOverrideDeferred='1'"), 0x40000000u);  // does not scan: missing
}

TEST(XmlReader, FlagsWithoutTheirElementAreNotRead) {
  EXPECT_EQ(Read("<MediaCmd Deferred='1' Loop='1'><Channel Deferred='1'/></MediaCmd>").Flags, 0u);
}

TEST(XmlReader, Speed) {
  MediaCmd command = ReadChildren("<Speed Value='-65520'/>");
  EXPECT_EQ(command.Speed, -65520);
  EXPECT_EQ(command.Flags, 0x10u);
  command = ReadChildren("<Speed>100</Speed>");  // the text is not read
  EXPECT_EQ(command.Speed, 0x7FFFFFFF);
  EXPECT_EQ(command.Flags, 0x10u);
  EXPECT_EQ(ReadChildren("<Speed IsShuttle='1'/>").Flags, 0x20010u);
  EXPECT_EQ(ReadChildren("<Speed IsShuttle='0'/>").Flags, 0x10u);
}

TEST(XmlReader, Presets) {
  const MediaCmd all =
      ReadChildren("<VideoChannels Value='1'/><AudioChannels Value='2'/><InfoChannels Value='3'/>");
  EXPECT_EQ(all.VideoChannels, 1);
  EXPECT_EQ(all.AudioChannels, 2);
  EXPECT_EQ(all.InfoChannels, 3);
  EXPECT_EQ(all.Flags, 0x20u);
  for (const char* name : {"VideoChannels", "AudioChannels", "InfoChannels"}) {
    EXPECT_EQ(ReadChildren("<" + std::string(name) + "/>").Flags, 0x20u) << name;
  }
}

TEST(XmlReader, CmdAlt) {
  const auto flags = [](const std::string& attributes) {
    return ReadChildren("<CmdAlt " + attributes + "/>").Flags;
  };
  EXPECT_EQ(ReadChildren("<CmdAlt Value='1054'/>").CmdAlt, 1054);
  EXPECT_EQ(flags("Value='1'"), 0x10000u);
  EXPECT_EQ(flags(""), 0x10000u);
  EXPECT_EQ(flags("TimeMs='1'"), 0x10002u);
  EXPECT_EQ(flags("TimeTarget='1'"), 0x10004u);
  EXPECT_EQ(flags("TimeHouseClock='1'"), 0x10008u);
  EXPECT_EQ(flags("TimeMs='0' TimeTarget='0' TimeHouseClock='0'"), 0x10000u);
}

TEST(XmlReader, PointsAndTheirFlags) {
  struct Row {
    const char* name;
    uint32_t present, offset;
  };
  const Row rows[] = {{"Position", 0x40, 0x80}, {"Start", 0x100, 0x200}, {"End", 0x400, 0x800}};
  const auto field = [](const MediaCmd& command, const std::string& name) {
    return name == "Position" ? command.Position : name == "Start" ? command.Start : command.End;
  };
  for (const Row& row : rows) {
    const auto read = [&](const std::string& rest, const std::string& text = "") {
      return ReadChildren("<" + std::string(row.name) + " " + rest + ">" + text + "</" + row.name + ">");
    };
    EXPECT_EQ(field(read("Value='12'", "99"), row.name), 12);
    EXPECT_EQ(read("").Flags, row.present);
    EXPECT_EQ(field(read(""), row.name), -1);
    EXPECT_EQ(read("IsOffset='1'").Flags, row.present | row.offset);
    EXPECT_EQ(read("UsingCurrent='1'").Flags, row.present | 0x40000);
    EXPECT_EQ(read("UsingFrameCount='1'").Flags, row.present | 0x80000);
    EXPECT_EQ(read("IsFieldCount='1'").Flags, row.present | 0x100000);
    EXPECT_EQ(read("IsOffset='0' UsingCurrent='0' UsingFrameCount='0' IsFieldCount='0'").Flags, row.present);
    // Without a number the text counts, as drop-frame.
    EXPECT_EQ(field(read("", "01:00:00;00"), row.name), 107892);
    EXPECT_EQ(field(read("Value='x'", "01:00:00:00"), row.name), 107892);
    EXPECT_EQ(field(read("", "no timecode"), row.name), -1);
    EXPECT_EQ(field(read("", "50"), row.name), 50);
  }
}

TEST(XmlReader, TimecodeTypeIsTheCallers) {
  const auto position = [](uint32_t type, const std::string& attribute = "") {
    return ReadChildren("<Position " + attribute + ">01:00:00:00</Position>", &type).Position;
  };
  EXPECT_EQ(position(8), 90000);
  EXPECT_EQ(position(2), 108000);
  EXPECT_EQ(position(1), 86400);
  uint32_t type = 8;
  ReadChildren("<Position TcType='2'>1</Position>", &type);
  EXPECT_EQ(type, 8u);  // never written back
}

TEST(XmlReader, NumericTimecodeTypeHoldsForWhatFollows) {
  const uint32_t type = 8;
  const MediaCmd command = ReadChildren(
      "<Position TcType='2'>01:00:00:00</Position><Start>01:00:00:00</Start><End "
      "TcType='1'>01:00:00:00</End>",
      &type);
  EXPECT_EQ(command.Position, 108000);
  EXPECT_EQ(command.Start, 108000);
  EXPECT_EQ(command.End, 86400);
  // Where a number is given the type is not looked at; where there is no text it holds all the same.
  EXPECT_EQ(ReadChildren("<Position Value='1' TcType='2'/><Start>01:00:00:00</Start>", &type).Start, 90000);
  EXPECT_EQ(ReadChildren("<Position TcType='2'/><Start>01:00:00:00</Start>", &type).Start, 108000);
}

// Words of types are no numbers, but for those that begin with digits.
TEST(XmlReader, WordsOfTypesAreScannedToo) {
  const uint32_t type = 8;
  const auto start = [&](const std::string& word) {
    return ReadChildren("<Start TcType='" + word + "'>00:01:00:00</Start>", &type).Start;
  };
  EXPECT_EQ(start("drop-frame"), 1500);
  EXPECT_EQ(start("pal"), 1500);
  EXPECT_EQ(start("film"), 1500);
  EXPECT_EQ(start("64x"), 3600);
  EXPECT_EQ(start("1"), 1440);
  EXPECT_EQ(start("23.98"), 1800);  // type 23 is unknown: 30 frames
  EXPECT_EQ(start("59.94"), 1800);
  EXPECT_EQ(start("260"), 1800);  // 0x104 is handed on whole; the service takes its low byte
}

}  // namespace
}  // namespace qln::test

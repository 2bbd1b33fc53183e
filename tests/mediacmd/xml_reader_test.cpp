// A command from XML: which element goes where, what is tolerated, and that nothing leaves the record.

#include <gtest/gtest.h>

#include <cstdio>

#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

constexpr uint32_t kNoRoot = 0xFFFFFFFEu;
constexpr uint32_t kRootIsNoElement = 0xFFFFFFFDu;

std::string Rooted(const std::string& children) { return "<MediaCmd>" + children + "</MediaCmd>"; }

// Reads into an initialised record.
MediaCmd Read(const std::string& text, const uint32_t* type = nullptr) {
  MediaCmd command;
  std::memset(&command, 0xA5, sizeof command);
  EXPECT_EQ(MediaCmdFromXMLString(&command, type, text.c_str()), 0u) << text;
  return command;
}
MediaCmd ReadChildren(const std::string& children, const uint32_t* type = nullptr) {
  return Read(Rooted(children), type);
}

// Reads a document into a record as it is.
uint32_t ReadInto(MediaCmd* command, const std::string& text, const uint32_t* type = nullptr) {
  TiXmlDocument document;
  document.Parse(text.c_str());
  return MediaCmdFromXML(command, type, document);
}

TEST(XmlReader, Results) {
  MediaCmd command;
  EXPECT_EQ(MediaCmdFromXMLString(nullptr, nullptr, "<MediaCmd/>"), kMiss);
  EXPECT_EQ(MediaCmdFromXML(nullptr, nullptr, TiXmlDocument()), kMiss);
  const MediaCmd defaults = Command(ctStop);
  for (const char* text :
       {"", "   ", "no xml", "<Other/>", "<mediacmd/>", "<", "<MediaCm", "<Other><MediaCmd/></Other>"}) {
    std::memset(&command, 0xA5, sizeof command);
    EXPECT_EQ(MediaCmdFromXMLString(&command, nullptr, text), kNoRoot) << text;
    EXPECT_TRUE(SameRecord(command, defaults)) << text;
  }
  std::memset(&command, 0xA5, sizeof command);
  EXPECT_EQ(MediaCmdFromXMLString(&command, nullptr, nullptr), kNoRoot);
  EXPECT_TRUE(SameRecord(command, defaults));
  EXPECT_EQ(MediaCmdFromXMLString(&command, nullptr, "<MediaCmd/>"), 0u);
  EXPECT_TRUE(SameRecord(command, defaults));
  EXPECT_EQ(MediaCmdFromXMLString(&command, nullptr, "<!--MediaCmd--><MediaCmd/>"), kRootIsNoElement);
  EXPECT_EQ(MediaCmdFromXMLString(&command, nullptr, "<!--ClipInfo--><MediaCmd/>"), 0u);
}

TEST(XmlReader, FailuresOfADocumentLeaveTheRecord) {
  MediaCmd command;
  std::memset(&command, 0xA5, sizeof command);
  const MediaCmd before = command;
  EXPECT_EQ(ReadInto(&command, ""), kNoRoot);
  EXPECT_EQ(ReadInto(&command, "<Other><Channel Value='1'/></Other>"), kNoRoot);
  EXPECT_EQ(ReadInto(&command, "<!--MediaCmd--><MediaCmd><Channel Value='1'/></MediaCmd>"), kRootIsNoElement);
  EXPECT_TRUE(SameRecord(command, before));
}

TEST(XmlReader, DocumentIsLeftAsItWas) {
  TiXmlDocument document;
  document.Parse("<MediaCmd><Channel Value='5'/></MediaCmd>");
  std::string before;
  before << document;
  MediaCmd command = Command(ctPlay);
  EXPECT_EQ(MediaCmdFromXML(&command, nullptr, document), 0u);
  EXPECT_EQ(command.Channel, 5);
  EXPECT_EQ(command.Cmd, uint32_t{ctPlay});
  std::string after;
  after << document;
  EXPECT_EQ(after, before);
}

TEST(XmlReader, ClipInfoRootIsReadAlike) {
  EXPECT_EQ(Read("<ClipInfo><Channel Value='5'/></ClipInfo>").Channel, 5);
  // The first name wins, wherever it stands.
  EXPECT_EQ(
      Read("<ClipInfo><Channel Value='5'/></ClipInfo><MediaCmd><Channel Value='6'/></MediaCmd>").Channel, 6);
}

TEST(XmlReader, MissingElementsLeaveTheirFields) {
  MediaCmd command;
  std::memset(&command, 0xA5, sizeof command);
  const MediaCmd before = command;
  EXPECT_EQ(ReadInto(&command, "<MediaCmd><Unknown Value='1'/></MediaCmd>"), 0u);
  EXPECT_TRUE(SameRecord(command, before));
}

TEST(XmlReader, FlagsAreOredIn) {
  MediaCmd command = Command(ctStop, 0x1000000);
  EXPECT_EQ(ReadInto(&command, Rooted("<Cmd Value='2' Loop='1'/>")), 0u);
  EXPECT_EQ(command.Flags, 0x1400000u);
}

TEST(XmlReader, LinksKeepTheirUpperHalves) {
  MediaCmd command = Command(ctStop);
  command.prev = reinterpret_cast<void*>(uintptr_t{0x1122334455667788u});
  command.list = reinterpret_cast<void*>(uintptr_t{0x1122334455667788u});
  EXPECT_EQ(ReadInto(&command, Rooted("<prev Value='-1'/><next Value='258'/><list Value='x'/>")), 0u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.prev), 0x11223344FFFFFFFFu);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.next), 258u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(command.list), 0x1122334455667788u);
}

TEST(XmlReader, PlainFields) {
  const MediaCmd command = ReadChildren("<CmdID Value='1'/><StructSize Value='2'/><Channel Value='3'/>");
  EXPECT_EQ(command.CmdID, 1u);
  EXPECT_EQ(command.StructSize, 2u);
  EXPECT_EQ(command.Channel, 3);
  EXPECT_EQ(command.Flags, 0u);
}

// Numbers as a "%d" scan takes them; the C library's own scan is the reference.
TEST(XmlReader, NumbersAreScanned) {
  for (const char* text : {"12",
                           "12abc",
                           " 12",
                           "\t12",
                           "-12",
                           "+12",
                           "0x10",
                           "012",
                           "abc",
                           "",
                           "-",
                           "+",
                           "--1",
                           "- 1",
                           "1 2",
                           "2147483647",
                           "2147483648",
                           "-2147483648",
                           "-2147483649",
                           "4294967295",
                           "4294967296",
                           "99999999999999999999",
                           "-99999999999999999999",
                           "9223372036854775807",
                           "9223372036854775808",
                           "1e3",
                           ".5",
                           "5."}) {
    int scanned = 77;
    std::sscanf(text, "%d", &scanned);
    MediaCmd command = Command(ctStop);
    command.Channel = 77;
    EXPECT_EQ(ReadInto(&command, Rooted("<Channel Value='" + std::string(text) + "'/>")), 0u);
    EXPECT_EQ(command.Channel, scanned) << '"' << text << '"';
  }
  EXPECT_EQ(ReadChildren("<Channel Value='12abc'/>").Channel, 12);
}

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

TEST(XmlReader, ClipId) {
  MediaCmd command = ReadChildren("<ClipID>CLIP</ClipID>");
  EXPECT_STREQ(command.ClipID, "CLIP");
  EXPECT_EQ(command.Flags, 0x2000u);
  command = ReadChildren("<ClipID>123456789</ClipID>");
  EXPECT_EQ(BytesAt(command, 76, 10), std::string("12345678\0\0", 10));
  command = ReadChildren("<ClipID/>");
  EXPECT_EQ(command.Flags, 0u);

  // What stood in the record: the rest of the identifier is cleared, the file name cut, the mark stays.
  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  MediaCmd read = filled;
  EXPECT_EQ(ReadInto(&read, Rooted("<ClipID>AB</ClipID>")), 0u);
  EXPECT_EQ(BytesAt(read, 76, 12), std::string("AB\0\0\0\0\0\0z\0zz", 12));
  read = filled;
  EXPECT_EQ(ReadInto(&read, Rooted("<ClipID></ClipID>")), 0u);
  EXPECT_EQ(BytesAt(read, 76, 12), std::string("\0zzzzzzzz\0zz", 12));
  EXPECT_EQ(read.Flags, 0u);
}

TEST(XmlReader, ClipIdGoesByTheSizeOfTheText) {
  const auto area = [](const std::string& size) {
    MediaCmd command = Command(ctStop);
    std::memset(command.ClipID, 'z', 4112);
    EXPECT_EQ(ReadInto(&command, Rooted("<StructSize Value='" + size + "'/><ClipID>123456789</ClipID>")), 0u);
    EXPECT_EQ(command.Flags, 0x2000u);
    return BytesAt(command, 76, 9);
  };
  EXPECT_EQ(area("86"), "12345678z");  // 10 bytes
  EXPECT_EQ(area("85"), "12345678z");  // 9 bytes: 8 characters all the same
  EXPECT_EQ(area("84"), "1234567zz");
  EXPECT_EQ(area("79"), "12zzzzzzz");
  EXPECT_EQ(area("77"), "zzzzzzzzz");
  EXPECT_EQ(area("0"), "zzzzzzzzz");
  EXPECT_EQ(area("-1"), "zzzzzzzzz");
  EXPECT_EQ(area("-2147483648"), "zzzzzzzzz");
  EXPECT_EQ(area("2147483647"), "12345678z");
}

TEST(XmlReader, FileName) {
  const MediaCmd command = ReadChildren("<ClipID>CLIP</ClipID><FileName>a.mov</FileName>");
  EXPECT_STREQ(command.ClipID, "CLIP");
  EXPECT_STREQ(command.FileName, "a.mov");
  EXPECT_EQ(command.Flags, 0x2000u);
  EXPECT_EQ(ReadChildren("<FileName/>").Flags, 0u);

  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  EXPECT_EQ(ReadInto(&filled, Rooted("<FileName>a</FileName>")), 0u);
  EXPECT_EQ(BytesAt(filled, 76, 4112), std::string(9, 'z') + "a" + std::string(4102, '\0'));

  const MediaCmd longest = ReadChildren("<FileName>" + std::string(5000, 'n') + "</FileName>");
  EXPECT_EQ(BytesAt(longest, 85, 4103), std::string(4102, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, FileNameGoesByTheSizeOfTheText) {
  const auto area = [](const std::string& size) {
    MediaCmd command = Command(ctStop);
    std::memset(command.ClipID, 'z', 4112);
    EXPECT_EQ(ReadInto(&command, Rooted("<StructSize Value='" + size + "'/><FileName>123</FileName>")), 0u);
    EXPECT_EQ(command.Flags, 0x2000u);
    return BytesAt(command, 84, 8);
  };
  using namespace std::string_literals;
  EXPECT_EQ(area("85"), "zzzzzzzz");
  EXPECT_EQ(area("86"), "z\0zzzzzz"s);
  EXPECT_EQ(area("88"), "z12\0zzzz"s);
  EXPECT_EQ(area("91"), "z123\0\0\0z"s);
  EXPECT_EQ(area("-1"), "zzzzzzzz");
  EXPECT_EQ(area("0"), "zzzzzzzz");
}

// A size from the text beyond the record moves no bound.
TEST(XmlReader, SizeBeyondTheRecordIsStoredButNotUsed) {
  ExactRecord record(Command(ctStop), 4188);
  const std::string text = Rooted("<StructSize Value='2147483647'/><ClipID>C</ClipID><FileName>" +
                                  std::string(9000, 'n') + "</FileName>");
  EXPECT_EQ(ReadInto(record.get(), text), 0u);
  EXPECT_EQ(record.get()->StructSize, 0x7FFFFFFFu);
  EXPECT_EQ(std::string(record.bytes() + 85, 4103), std::string(4102, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, LongRecordsTakeLongTexts) {
  ExactRecord record(Command(ctStop), 6000);
  EXPECT_EQ(ReadInto(record.get(), Rooted("<FileName>" + std::string(9000, 'n') + "</FileName>")), 0u);
  EXPECT_EQ(std::string(record.bytes() + 85, 6000 - 85), std::string(6000 - 86, 'n') + std::string(1, '\0'));
}

TEST(XmlReader, BinaryData) {
  using namespace std::string_literals;
  MediaCmd command = ReadChildren("<arbID Type='hex' length='4'>01AB00FF</arbID>");
  EXPECT_EQ(BytesAt(command, 76, 5), "\x01\xAB\x00\xFF\x00"s);
  EXPECT_EQ(command.StructSize, 80u);
  EXPECT_EQ(command.Flags, 0x2000u);
  command = ReadChildren("<arbID length='3'>abcDEf99</arbID>");
  EXPECT_EQ(BytesAt(command, 76, 4), "\xAB\xCD\xEF\x00"s);
  EXPECT_EQ(command.StructSize, 79u);
  // Whatever the type says.
  EXPECT_EQ(BytesAt(ReadChildren("<arbID Type='base64' length='2'>1234</arbID>"), 76, 3), "\x12\x34\x00"s);
  // A character above "9" counts 7 less; of that, and of any other, the low four bits count.
  EXPECT_EQ(BytesAt(ReadChildren("<arbID length='2'>Zm9v</arbID>"), 76, 2), "\x36\x9F"s);
  EXPECT_EQ(BytesAt(ReadChildren("<arbID length='2'>-./+</arbID>"), 76, 2), "\xDE\xFB"s);
}

TEST(XmlReader, BinaryDataAtTheEdges) {
  MediaCmd filled = Command(ctStop);
  std::memset(filled.ClipID, 'z', 4112);
  const auto read = [&](const std::string& element) {
    MediaCmd command = filled;
    EXPECT_EQ(ReadInto(&command, Rooted(element)), 0u);
    return command;
  };
  // No length, or none that scans: 0.
  for (const char* element : {"<arbID>AA</arbID>", "<arbID length='x'>AA</arbID>",
                              "<arbID length='0'>AA</arbID>", "<arbID length='0'/>", "<arbID/>"}) {
    MediaCmd expected = filled;
    expected.StructSize = 76;
    expected.Flags = 0x2000;
    EXPECT_TRUE(SameRecord(read(element), expected)) << element;
  }
  // A length that is negative, beyond the record, or without a text: passed over.
  for (const char* element : {"<arbID length='-1'>AA</arbID>", "<arbID length='-2147483648'>AA</arbID>",
                              "<arbID length='4113'>AA</arbID>", "<arbID length='2147483647'>AA</arbID>",
                              "<arbID length='1'/>", "<arbID length='1'></arbID>"}) {
    EXPECT_TRUE(SameRecord(read(element), filled)) << element;
  }
  // A shorter text is decoded as far as its pairs go.
  MediaCmd expected = filled;
  expected.ClipID[0] = '\xAB';
  expected.ClipID[1] = '\xCD';
  expected.StructSize = 76 + 4112;
  expected.Flags = 0x2000;
  EXPECT_TRUE(SameRecord(read("<arbID length='4112'>ABCDE</arbID>"), expected));
}

TEST(XmlReader, BinaryDataOfALongRecord) {
  ExactRecord record(Command(ctStop), 10076);
  std::string text;
  for (int i = 0; i < 10000; ++i) text += "5A";
  EXPECT_EQ(ReadInto(record.get(), Rooted("<arbID length='10000'>" + text + "</arbID>")), 0u);
  EXPECT_EQ(std::string(record.bytes() + 76, 10000), std::string(10000, 'Z'));
  EXPECT_EQ(record.get()->StructSize, 10076u);
  // The bound is the size at entry: a size in the text moves it neither way.
  ExactRecord grown(Command(ctStop), 4188);
  EXPECT_EQ(
      ReadInto(grown.get(), Rooted("<StructSize Value='10076'/><arbID length='10000'>" + text + "</arbID>")),
      0u);
  EXPECT_EQ(grown.get()->StructSize, 10076u);
  EXPECT_EQ(grown.get()->Flags, 0u);
}

TEST(XmlReader, Addresses) {
  using namespace std::string_literals;
  for (const char* name : {"sourceipaddress", "destinationipaddress", "clockipaddress"}) {
    const std::string element(name);
    const MediaCmd command = ReadChildren("<" + element + ">10.0.0.1</" + element + ">");
    EXPECT_EQ(BytesAt(command, 76, 12),
              "\0\0"
              "10.0.0.1\0\0"s)
        << name;
    EXPECT_EQ(command.Flags, 0x2000u);
    EXPECT_EQ(ReadChildren("<" + element + "/>").Flags, 0u);
  }
  // The place lies behind the text at 76.
  EXPECT_EQ(BytesAt(ReadChildren("<ClipID>CLIP</ClipID><sourceipaddress>1.2</sourceipaddress>"), 76, 10),
            "CLIP\0\0"
            "1.2\0"s);
  // All of them share it; the later one in reading order stays: source, destination, clock.
  EXPECT_EQ(
      BytesAt(
          ReadChildren("<destinationipaddress>D</destinationipaddress><sourceipaddress>SS</sourceipaddress>"),
          76, 5),
      "\0\0D\0\0"s);
  EXPECT_EQ(BytesAt(ReadChildren(
                        "<clockipaddress>C</clockipaddress><destinationipaddress>DD</destinationipaddress>"),
                    76, 5),
            "\0\0C\0\0"s);
}

TEST(XmlReader, InterfaceAddressGoesByTheOtherAddress) {
  using namespace std::string_literals;
  MediaCmd command = ReadChildren("<interfaceipaddress>if</interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 6), "\0\0if\0\0"s);
  EXPECT_EQ(command.Flags, 0x2000u);
  // n is the length of the text at 78 (nothing stands at 76): the text goes to 78 + n.
  command = ReadChildren("<sourceipaddress>abc</sourceipaddress><interfaceipaddress>if</interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 9),
            "\0\0"
            "abcif\0\0"s);
  // With an identifier: the other address stands at 78 + 4, and the text at 78 + 3.
  command = ReadChildren(
      "<ClipID>CLIP</ClipID><sourceipaddress>abc</sourceipaddress><interfaceipaddress>if</"
      "interfaceipaddress>");
  EXPECT_EQ(BytesAt(command, 76, 10), "CLIP\0if\0c\0"s);
  EXPECT_EQ(ReadChildren("<interfaceipaddress/>").Flags, 0u);
}

TEST(XmlReader, AddressesStayInTheRecord) {
  const std::string longText(9000, 'a');
  const auto read = [&](const std::string& name, const MediaCmd& start) {
    ExactRecord record(start, 4188);
    EXPECT_EQ(ReadInto(record.get(), Rooted("<" + name + ">" + longText + "</" + name + ">")), 0u);
    EXPECT_EQ(record.get()->Flags, 0x2000u);
    return std::string(record.bytes() + 76, 4112);
  };
  MediaCmd full = Command(ctStop);
  std::memset(full.ClipID, 'z', 4112);  // no terminator: the place lies outside
  for (const char* name : {"sourceipaddress", "destinationipaddress", "clockipaddress"}) {
    EXPECT_EQ(read(name, Command(ctStop)),
              std::string(2, '\0') + std::string(4109, 'a') + std::string(1, '\0'));
    EXPECT_EQ(read(name, full), std::string(4112, 'z'));
  }
  // Nothing is found outside, so its length is 0.
  EXPECT_EQ(read("interfaceipaddress", full), "zz" + std::string(4109, 'a') + std::string(1, '\0'));
}

TEST(XmlReader, CommentOfANameHidesTheElement) {
  EXPECT_EQ(ReadChildren("<!--Channel--><Channel Value='5'/>").Channel, -1);
  EXPECT_EQ(ReadChildren("<!-- Channel --><Channel Value='5'/>").Channel, 5);
  EXPECT_EQ(ReadChildren("<a/>Channel<Channel Value='5'/>").Channel, -1);  // so does a text
}

TEST(XmlReader, FirstElementOfANameCounts) {
  EXPECT_EQ(ReadChildren("<Start Value='1'/><Start Value='2'/>").Start, 1);
  EXPECT_EQ(ReadChildren("<x><Start Value='1'/></x>").Flags, 0u);  // only children of the root
}

TEST(XmlReader, EmptyTextNodesCountAsText) {
  TiXmlDocument document;
  TiXmlElement* root = new TiXmlElement("MediaCmd");
  document.LinkEndChild(root);
  for (const char* name : {"ClipID", "FileName", "arbID", "clockipaddress", "Position"}) {
    TiXmlElement* element = new TiXmlElement(name);
    element->LinkEndChild(new TiXmlText(""));
    root->LinkEndChild(element);
  }
  root->FirstChildElement("arbID")->SetAttribute("length", 3);
  MediaCmd command = Command(ctStop);
  std::memset(command.ClipID, 'z', 4112);
  EXPECT_EQ(MediaCmdFromXML(&command, nullptr, document), 0u);
  EXPECT_EQ(command.Flags, 0x2040u);
  EXPECT_EQ(command.StructSize, 79u);
  EXPECT_EQ(command.Position, -1);
  EXPECT_EQ(BytesAt(command, 76, 10), std::string("\0\0\0\0\0\0\0\0z\0", 10));
}

TEST(XmlReader, DeclarationsCommentsEntitiesAndEncodings) {
  EXPECT_STREQ(
      Read("<?xml version='1.0' encoding='UTF-8' standalone='yes'?>\n<!-- c -->\n<!DOCTYPE MediaCmd>\n"
           "<MediaCmd>\n  <!-- c -->\n  <FileName>a&amp;b&lt;&#65;&#x42;.mov</FileName>\n</MediaCmd>\n")
          .FileName,
      "a&b<AB.mov");
  // The bytes of other encodings are passed on as they stand.
  EXPECT_STREQ(
      Read("<?xml version='1.0' encoding='iso-8859-1'?>" + Rooted("<FileName>\xE4\xF6</FileName>")).FileName,
      "\xE4\xF6");
  EXPECT_STREQ(Read("\xEF\xBB\xBF" + Rooted("<FileName>\xC3\xA4</FileName>")).FileName, "\xC3\xA4");
  EXPECT_STREQ(ReadChildren("<FileName><![CDATA[a<b>&amp;]]></FileName>").FileName, "a<b>&amp;");
  EXPECT_STREQ(ReadChildren("<FileName>  a   b  </FileName>").FileName, "a b");  // blanks condense
}

// A text that breaks off, at every byte: what was parsed in front of the break stays.
TEST(XmlReader, BrokenOffAtEveryByte) {
  MediaCmd source =
      Command(ctPlay, CF_USE_SPEED | CF_USE_PRESETS | CF_USE_START | CF_USE_END | CF_USE_CLIP_ID | CF_LOOP);
  Put(source, 76, "CLIP");
  Put(source, 85, "a&b.mov");
  const std::string text = XmlText(source, 4);
  const size_t rootAt = text.find("<MediaCmd>");
  uint32_t lastResult = kNoRoot;
  int32_t lastChannels = -2;
  for (size_t length = 0; length <= text.size(); ++length) {
    Bytes bytes(text.begin(), text.begin() + static_cast<ptrdiff_t>(length));
    bytes.push_back(0);
    ExactCopy copy(bytes);
    MediaCmd command;
    const uint32_t result =
        MediaCmdFromXMLString(&command, nullptr, reinterpret_cast<const char*>(copy.data()));
    // The root is there from the end of its name on.
    EXPECT_EQ(result, length >= rootAt + 9 ? 0u : kNoRoot) << length;
    EXPECT_EQ(copy.bytes(), bytes);
    lastResult = result;
    lastChannels = command.VideoChannels;
  }
  EXPECT_EQ(lastResult, 0u);
  EXPECT_EQ(lastChannels, -1);
}

TEST(XmlReader, DeepAndCrowdedTextsEnd) {
  std::string deep = "<MediaCmd><Channel Value='5'/>";
  for (int i = 0; i < 200000; ++i) deep += "<a>";
  EXPECT_EQ(Read(deep).Channel, 5);
  std::string crowded = "<MediaCmd><Channel Value='5'/><Cmd";
  for (int i = 0; i < 60000; ++i) crowded += " a" + std::to_string(i) + "='1'";
  crowded += "/></MediaCmd>";
  EXPECT_EQ(Read(crowded).Channel, 5);
}

}  // namespace
}  // namespace qln::test

// The data area of a command as XML: which elements each state value calls for, and where texts end.

#include <gtest/gtest.h>

#include "mediacmd/allocations.h"
#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

constexpr const char* kLongTextWarning = "WARNING(XMLmCmd): Exception: MediaCmdToXML() \n";
constexpr const char* kFileNameWarning = "WARNING(XMLmCmd): Exception:  MediaCmdToXML(ClipID) \n";

TEST(XmlData, DataOnlyWithClipIdFlag) {
  MediaCmd command = Command(ctTransfer);
  Put(command, 76, "CLIP");
  Put(command, 85, "file.mov");
  EXPECT_EQ(Data(Xml(command)), Lines{});
  command.Flags = CF_USE_CLIP_ID;
  EXPECT_EQ(Data(Xml(command)), (Lines{"ClipID |CLIP", "FileName |file.mov"}));
}

TEST(XmlData, AliasWalk) {
  const auto aliases = [](std::string_view area, uint32_t cmd = ctGetValue) {
    MediaCmd command = ValueCommand(1054, cmd);
    Put(command, 76, "ID");
    Put(command, 85, area);
    return Data(Xml(command));
  };
  const auto withTail = [](Lines lines, const std::string& name) {
    lines.push_back("ClipID |ID");
    if (!name.empty()) lines.push_back("FileName |" + name);
    return lines;
  };
  using namespace std::string_view_literals;
  for (const uint32_t cmd : {14u, 15u, 16u}) {
    EXPECT_EQ(aliases("main\0", cmd), withTail({"channelalias |main"}, "main"));
  }
  // The first alias repeats the name, and the text in its place goes to the second.
  EXPECT_EQ(aliases("main\0one\0two\0"sv), withTail({"channelalias |main", "channel1alias |main",
                                                     "channel2alias |one", "channel3alias |two"},
                                                    "main"));
  // Without a first alias the place behind its zero byte is the second's.
  EXPECT_EQ(aliases("main\0\0two\0three\0"sv),
            withTail({"channelalias |main", "channel2alias |two", "channel3alias |three"}, "main"));
  // Empty ones take one byte each.
  EXPECT_EQ(aliases("main\0a\0\0c\0\0\0f\0g\0h\0"sv),
            withTail({"channelalias |main", "channel1alias |main", "channel2alias |a", "channel4alias |c",
                      "channel7alias |f"},
                     "main"));
  EXPECT_EQ(aliases("\0x\0y\0"sv),
            withTail({"channelalias |", "channel1alias |", "channel2alias |x", "channel3alias |y"}, ""));
  // Another command does not walk.
  EXPECT_EQ(aliases("main\0one\0"sv, ctTransfer), withTail({}, "main"));
}

TEST(XmlData, AliasesEndWithTheRecord) {
  MediaCmd command = ValueCommand(1054);
  Put(command, 76, "ID");
  Put(command, 85, std::string(4103, 'n'));
  MessageCapture capture;
  ExactRecord record(command, 100);
  const Lines lines = Data(Xml(*record.get()));
  EXPECT_EQ(lines, (Lines{"channelalias |" + std::string(15, 'n'), "ClipID |ID"}));
  EXPECT_EQ(capture.texts(), Lines{kFileNameWarning});
}

TEST(XmlData, BinaryDataInHexadecimal) {
  using namespace std::string_view_literals;
  for (const int32_t state : {25, 1000007}) {
    for (const uint32_t cmd : {14u, 15u, 16u}) {
      MediaCmd command = ValueCommand(state, cmd);
      command.StructSize = 80;
      Put(command, 76, "\x01\xAB\x00\xFF"sv);
      EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=hex length=4 |01AB00FF"});
      command.Flags |= 0x40000;
      EXPECT_EQ(Data(Xml(command)), Lines{});
    }
  }
}

TEST(XmlData, BinaryDataInBase64) {
  MediaCmd command = ValueCommand(25, ctGetValue, CF_USE_CLIP_ID | CF_NO_TC_SPACES);
  command.StructSize = 76 + 6;
  Put(command, 76, "foobar");
  EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=base64 length=6 |Zm9vYmFy"});  // RFC 4648
  const RefuseBase64 refuse;
  EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=base64 length=6 |"});
}

TEST(XmlData, BinaryDataWithoutLength) {
  for (const uint32_t encoding : {0u, CF_NO_TC_SPACES}) {
    const std::string type = encoding == 0 ? "hex" : "base64";
    MediaCmd command = ValueCommand(25, ctGetValue, CF_USE_CLIP_ID | encoding);
    command.StructSize = 76;
    EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=" + type + " length=0 |"});
    command.StructSize = 70;
    EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=" + type + " length=-6 |"});
    command.StructSize = 0x80000000u;
    EXPECT_EQ(Data(Xml(command)), Lines{"arbID Type=" + type + " length=-2147483724 |"});
  }
}

TEST(XmlData, BinaryDataOfALongRecord) {
  MediaCmd command = ValueCommand(1000007);
  ExactRecord record(command, 10076);
  std::memset(record.bytes() + 76, 0x5A, 10000);
  std::string expected = "arbID Type=hex length=10000 |";
  for (int i = 0; i < 10000; ++i) expected += "5A";
  EXPECT_EQ(Data(Xml(*record.get())), Lines{expected});
  // The string form grows over its stack area.
  char* text = nullptr;
  MediaCmdToXMLString(&text, record.get(), 0);
  ASSERT_NE(text, nullptr);
  EXPECT_NE(std::string(text).find(expected.substr(expected.find('|') + 1)), std::string::npos);
  MediaCmdFreeXMLString(&text);
}

TEST(XmlData, FrameDataUnderAnotherCommandIsAClip) {
  MediaCmd command = ValueCommand(25, ctTransfer);
  Put(command, 76, "ID");
  EXPECT_EQ(Data(Xml(command)), Lines{"ClipID |ID"});
}

TEST(XmlData, AddressForm) {
  using namespace std::string_view_literals;
  MediaCmd command = ValueCommand(801);
  command.Start = 5000;
  command.End = 5001;
  command.AudioChannels = -2;
  Put(command, 76,
      "1.2\0"
      "3\0"
      "4\0"sv);
  EXPECT_EQ(Data(Xml(command)),
            (Lines{"destinationipaddress |1.2", "sourceipaddress |3", "interfaceipaddress |4",
                   "Start Value=5000", "End Value=5001", "AudioChannels Value=-2", "ClipID |1.2"}));
  // Addresses of sane length run over the mark of long texts, and the area counts as one text then.
  Put(command, 76,
      "239.1.1.1\0"
      "10.0.0.1\0"
      "10.0.0.2\0"sv);
  command.ClipID[8] = '1';
  EXPECT_EQ(Data(Xml(command)), (Lines{"destinationipaddress |239.1.1.1", "sourceipaddress |10.0.0.1",
                                       "interfaceipaddress |10.0.0.2", "Start Value=5000", "End Value=5001",
                                       "AudioChannels Value=-2", "FileName |239.1.1.1"}));
}

TEST(XmlData, AddressesEndWithTheRecord) {
  MediaCmd command = ValueCommand(801);
  command.Start = command.End = command.AudioChannels = 1;
  Put(command, 76, std::string(4112, 'a'));
  MessageCapture capture;
  ExactRecord record(command, 90);
  EXPECT_EQ(Data(Xml(*record.get())),
            (Lines{"destinationipaddress |" + std::string(14, 'a'), "sourceipaddress |",
                   "interfaceipaddress |", "Start Value=1", "End Value=1", "AudioChannels Value=1"}));
  EXPECT_EQ(capture.texts(), Lines{kLongTextWarning});
}

TEST(XmlData, ClockAddressAndChannelName) {
  MediaCmd clock = ValueCommand(802);
  Put(clock, 76, "10.1");
  EXPECT_EQ(Data(Xml(clock)), (Lines{"clockipaddress |10.1", "ClipID |10.1"}));
  clock.Cmd = ctTransfer;
  EXPECT_EQ(Data(Xml(clock)), Lines{"ClipID |10.1"});
  MediaCmd name = ValueCommand(60002, ctSetValue);
  Put(name, 76, "Channel One");
  EXPECT_EQ(Data(Xml(name)), Lines{"chanName |Channel One"});
}

TEST(XmlData, MetabaseFileNamePartsItsIdentifier) {
  for (const uint32_t cmd : {ctGetValue, ctTransfer}) {
    MediaCmd command = ValueCommand(162, cmd);
    Put(command, 76, "CLIP");
    Put(command, 85, "a.mov$XY");
    MediaCmd expected = command;
    expected.FileName[5] = '\0';
    EXPECT_EQ(Data(Xml(command)), (Lines{"ClipID |CLIP", "UniqueID |XY", "FileName |a.mov"}));
    EXPECT_TRUE(SameRecord(command, expected));
    EXPECT_EQ(Data(Xml(command)), (Lines{"ClipID |CLIP", "FileName |a.mov"}));
    EXPECT_TRUE(SameRecord(command, expected));
  }
}

TEST(XmlData, MetabaseFileNameAtTheEdges) {
  const auto data = [](std::string_view name, size_t size = 4188) {
    MediaCmd command = ValueCommand(162);
    Put(command, 85, name);
    ExactRecord record(command, size);
    return Data(Xml(*record.get()));
  };
  EXPECT_EQ(data("a$b$c"), (Lines{"ClipID |", "UniqueID |b$c", "FileName |a"}));  // the first mark counts
  EXPECT_EQ(data("$"), (Lines{"ClipID |", "UniqueID |", "FileName |"}));
  EXPECT_EQ(data(""), (Lines{"ClipID |", "FileName |"}));
  EXPECT_EQ(data("ab$", 88), (Lines{"ClipID |", "UniqueID |", "FileName |ab"}));  // the mark is the last byte
  EXPECT_EQ(data("ab$", 87), (Lines{"ClipID |", "FileName |ab"}));
  MediaCmd command = ValueCommand(162);
  Put(command, 76, "123456789");
  Put(command, 85, "a$b");
  EXPECT_EQ(Data(Xml(command)), Lines{});
}

TEST(XmlData, MetabaseTags) {
  using namespace std::string_view_literals;
  MediaCmd command = ValueCommand(166);
  command.Speed = 1;
  command.End = 3;
  Put(command, 76, "TAG\0value\0"sv);
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |TAG", "MetaData |value"}));
  command.Speed = 2;
  command.Start = -17;
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |TAG", "MetaData |-17"}));
  command.InfoChannels = -3;
  Put(command, 76, "REPLAY_COUNT\0"sv);
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |REPLAY_COUNT", "MetaData |-17", "PageRequest |-3"}));
  Put(command, 76, "REPLAY_COUNTS\0"sv);
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |REPLAY_COUNTS", "MetaData |-17"}));
  command.Cmd = ctTransfer;
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |REPLAY_COUNTS", "MetaData |-17"}));
}

TEST(XmlData, MetabaseTagTextOutsideOfTheRecordIsEmpty) {
  MediaCmd command = ValueCommand(166);
  command.Speed = 1;
  Put(command, 76, "TAG");
  for (const int32_t end : {4188 - 77, 0x7FFFFFFF, -78, -0x7FFFFFFF - 1}) {
    command.End = end;
    EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |TAG", "MetaData |"})) << end;
  }
  command.FileName[4102] = 'z';
  command.End = 4188 - 78;
  EXPECT_EQ(Data(Xml(command)), (Lines{"MetaTag |TAG", "MetaData |z"}));
}

TEST(XmlData, OneLongText) {
  MessageCapture capture;
  const auto data = [](std::string_view text, size_t size) {
    MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
    command.CmdAlt = 150;
    Put(command, 76, text);
    ExactRecord record(command, size);
    return Data(Xml(*record.get()));
  };
  using namespace std::string_view_literals;
  EXPECT_EQ(data("123456789"sv, 4188), Lines{"FileName |123456789"});
  EXPECT_EQ(data("\0"
                 "2345678x"sv,
                 4188),
            Lines{});
  // Shorter than the size minus 77: a text that is terminated by the record's last byte is not written.
  EXPECT_EQ(data("1234567890\0"sv, 88), Lines{"FileName |1234567890"});
  EXPECT_EQ(data("1234567890\0"sv, 87), Lines{});
  // A terminator in front of the mark.
  EXPECT_EQ(data("123\0"
                 "5678x"sv,
                 4188),
            Lines{"FileName |123"});
  EXPECT_TRUE(capture.messages().empty());
}

TEST(XmlData, LongTextWithoutTerminatorWarns) {
  MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
  Put(command, 76, std::string(4112, 'x'));
  for (const size_t size : {size_t{4188}, size_t{1000}, size_t{85}}) {
    MessageCapture capture;
    ExactRecord record(command, size);
    EXPECT_EQ(Data(Xml(*record.get())), Lines{});
    EXPECT_EQ(capture.texts(), Lines{kLongTextWarning});
    EXPECT_EQ(capture.messages().at(0).severity, 0x80000000u);
  }
}

TEST(XmlData, ClipIdAndFileName) {
  MessageCapture capture;
  const auto data = [](std::string_view clip, std::string_view name, size_t size, int32_t cmdAlt = -1) {
    MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
    command.CmdAlt = cmdAlt;
    Put(command, 76, clip);
    Put(command, 85, name);
    ExactRecord record(command, size);
    return Data(Xml(*record.get()));
  };
  EXPECT_EQ(data("CLIP", "name", 4188), (Lines{"ClipID |CLIP", "FileName |name"}));
  EXPECT_EQ(data("12345678", "n", 4188), (Lines{"ClipID |12345678", "FileName |n"}));
  EXPECT_EQ(data("", "", 4188), Lines{"ClipID |"});
  // Shorter than the size minus 86.
  EXPECT_EQ(data("CLIP", "name", 91), (Lines{"ClipID |CLIP", "FileName |name"}));
  EXPECT_EQ(data("CLIP", "name", 90), Lines{"ClipID |CLIP"});
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_EQ(data("CLIP", "name", 89), Lines{"ClipID |CLIP"});
  EXPECT_EQ(capture.texts(), Lines{kFileNameWarning});
  capture.clear();
  // The identifier doubles as the name under "metadata", and only there.
  EXPECT_EQ(data("CLIP", "", 4188, 150), (Lines{"ClipID |CLIP", "FileName |CLIP"}));
  EXPECT_EQ(data("CLIP", "", 4188, 151), Lines{"ClipID |CLIP"});
  EXPECT_EQ(data("CLIP", "name", 4188, 150), (Lines{"ClipID |CLIP", "FileName |name"}));
  // Records that end in front of the mark or within the identifier.
  EXPECT_EQ(data("12345678", "name", 84), Lines{"ClipID |12345678"});
  EXPECT_EQ(data("12345678", "name", 78), Lines{"ClipID |12"});
  EXPECT_EQ(data("12345678", "name", 76), Lines{"ClipID |"});
  EXPECT_TRUE(capture.messages().empty());
}

TEST(XmlData, FileNameWithoutTerminatorWarns) {
  MediaCmd command = Command(ctTransfer, CF_USE_CLIP_ID);
  Put(command, 76, "CLIP");
  Put(command, 85, std::string(4103, 'x'));
  MessageCapture capture;
  EXPECT_EQ(Data(Xml(command)), Lines{"ClipID |CLIP"});
  EXPECT_EQ(capture.texts(), Lines{kFileNameWarning});
  EXPECT_EQ(capture.messages().at(0).severity, 0x80000000u);
}

}  // namespace
}  // namespace qln::test

// A command from XML: results, how numbers are read, what is tolerated, and texts that break off.

#include <gtest/gtest.h>

#include "mediacmd/xml_reader_support.h"
#include "mediacmd/xml_support.h"

namespace qln::test {
namespace {

constexpr uint32_t kNoRoot = 0xFFFFFFFEu;
constexpr uint32_t kRootIsNoElement = 0xFFFFFFFDu;

TEST(XmlReader, Results) {
  MediaCmd command;
  EXPECT_EQ(MediaCmdFromXMLString(nullptr, nullptr, "<MediaCmd/>"), kMiss);
  EXPECT_EQ(MediaCmdFromXMLString(nullptr, nullptr, nullptr), kMiss);
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

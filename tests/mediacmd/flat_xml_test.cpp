// The short way for XML of commands: what takes it, what is left to the parser, and that both read the same.

#include "qlnutil/mediacmd/flat_xml.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mediacmd/xml_reader_support.h"

namespace qln::test {
namespace {

bool IsFlat(const std::string& text) {
  std::string copy = text;
  FlatXml flat;
  return flat.Parse(copy.data());
}

std::string TextOf(MediaCmd command) {
  char* text = nullptr;
  MediaCmdToXMLString(&text, &command, 4);
  std::string copy = text == nullptr ? "" : text;
  MediaCmdFreeXMLString(&text);
  return copy;
}

// By the document alone, from the same beginning.
uint32_t ReadByParser(MediaCmd& command, const std::string& text) {
  initMediaCmd(&command, ctStop);
  return ReadInto(&command, text);
}

void ExpectSame(const std::string& text) {
  MediaCmd one, other;
  std::memset(&one, 0xA5, sizeof one);
  std::memset(&other, 0xA5, sizeof other);
  const uint32_t result = MediaCmdFromXMLString(&one, nullptr, text.c_str());
  EXPECT_EQ(result, ReadByParser(other, text)) << text;
  EXPECT_TRUE(SameRecord(one, other)) << text;
}

TEST(FlatXml, TakesWhatOurWriterGives) {
  for (uint32_t cmd = ctStop; cmd <= ctSwitch; ++cmd) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
      MediaCmd command = Command(cmd, uint32_t{1} << bit | CF_USE_POSITION | CF_USE_CLIP_ID);
      Put(command, 76, std::string("CLIP 1\0\0", 8));
      Put(command, 85, std::string("a/file.mov\0", 11));
      const std::string text = TextOf(command);
      EXPECT_TRUE(IsFlat(text)) << text;
      ExpectSame(text);
    }
  }
}

TEST(FlatXml, TakesElementsWithAttributesAndTexts) {
  for (const char* text : {
           "<MediaCmd></MediaCmd>",
           "<ClipInfo></ClipInfo>",
           "<MediaCmd>\n  <Cmd Value=\"3\" />\r\n\t<Speed Value=\"1\" IsShuttle=\"1\"/>\n</MediaCmd>\n",
           "<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?>\n<MediaCmd><Cmd>Play</Cmd></MediaCmd>",
           "<MediaCmd><!-- Morvane MEDIACMD xml structure version 1,0 --><Channel Value=\" 7x\"/></MediaCmd>",
           "<MediaCmd><Channel Value=\"1\"/><Channel Value=\"2\"/></MediaCmd>",
           "<MediaCmd><Start  Value=\"12\"  IsOffset=\"1\" ></Start></MediaCmd>",
           "<MediaCmd><FileName>it's \"here\" = a/b.mov</FileName></MediaCmd>",
           "<MediaCmd><Start TcType=\"1\">00:00:01:00</Start><End>00:00:02:00</End></MediaCmd>",
           "<MediaCmd><arbID Type=\"hex\" length=\"3\">0102ff</arbID></MediaCmd>",
           "<MediaCmd><unknown a_1=\"\">text</unknown><VideoChannels Value=\"-1\"/></MediaCmd>",
       }) {
    EXPECT_TRUE(IsFlat(text)) << text;
    ExpectSame(text);
  }
}

TEST(FlatXml, LeavesAllElseToTheParser) {
  for (const char* text : {
           "",
           "MediaCmd",
           "<Other></Other>",
           "<MediaCmd",
           "<MediaCmd>",
           "<MediaCmd/>",
           "<MediaCmd a=\"1\"></MediaCmd>",
           "<MediaCmd></MediaCmds>",
           "<MediaCmd></MediaCmd",
           "<MediaCmd></MediaCmd>x",
           "<MediaCmd></MediaCmd><MediaCmd></MediaCmd>",
           "<!--a--><MediaCmd></MediaCmd>",
           "<?xml version=\"1.0\" encoding=\"UTF-8\"?><MediaCmd></MediaCmd>",
           "\xEF\xBB\xBF<MediaCmd></MediaCmd>",
           "<MediaCmd><!--Cmd--><Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3\"/><!-- Morvane MEDIACMD xml structure version 1,0 --></MediaCmd>",
           "<MediaCmd>Cmd<Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><![CDATA[Cmd]]><Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><Cmd Value='3'/></MediaCmd>",
           "<MediaCmd><{Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=3/></MediaCmd>",
           "<MediaCmd><Cmd Value = \"3\"/></MediaCmd>",
           "<MediaCmd><Cmd Value/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3\" Value=\"4\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3\"Loop=\"1\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3\" / ></MediaCmd>",
           "<MediaCmd><Cmd Value=\"&#51;\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"\xE9\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3\n\"/></MediaCmd>",
           "<MediaCmd><Cmd Value=\"3></MediaCmd>",
           "<MediaCmd><Cmd>Play&amp;</Cmd></MediaCmd>",
           "<MediaCmd><FileName>a  b</FileName></MediaCmd>",
           "<MediaCmd><FileName> a</FileName></MediaCmd>",
           "<MediaCmd><FileName>a </FileName></MediaCmd>",
           "<MediaCmd><FileName> </FileName></MediaCmd>",
           "<MediaCmd><FileName>a\nb</FileName></MediaCmd>",
           "<MediaCmd><FileName>\xC3\xA9</FileName></MediaCmd>",
           "<MediaCmd><FileName>a>b</FileName></MediaCmd>",
           "<MediaCmd><FileName>a<b/></FileName></MediaCmd>",
           "<MediaCmd><FileName><b/></FileName></MediaCmd>",
           "<MediaCmd><FileName>a</FileNam></MediaCmd>",
           "<MediaCmd><FileName>a</FileName ></MediaCmd>",
           "<MediaCmd><FileName>a",
           "<MediaCmd><1Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><_Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd>< Cmd Value=\"3\"/></MediaCmd>",
           "<MediaCmd><Cmd-x Value=\"3\"/></MediaCmd>",
       }) {
    EXPECT_FALSE(IsFlat(text)) << text;
    ExpectSame(text);
  }
}

TEST(FlatXml, LeavesWhatItHasNoRoomFor) {
  const auto many = [](int count) {
    std::string children;
    for (int i = 0; i < count; ++i) children += "<e" + std::to_string(i) + " />";
    return Rooted(children + "<Channel Value=\"5\" />");
  };
  EXPECT_TRUE(IsFlat(many(63)));
  EXPECT_FALSE(IsFlat(many(64)));
  for (const int count : {63, 64}) ExpectSame(many(count));
  const auto wide = [](int count) {
    std::string pairs;
    for (int i = 0; i < count; ++i) pairs += " a" + std::to_string(i) + "=\"1\"";
    return Rooted("<Channel" + pairs + " Value=\"5\" />");
  };
  EXPECT_TRUE(IsFlat(wide(255)));
  EXPECT_FALSE(IsFlat(wide(256)));
  for (const int count : {255, 256}) ExpectSame(wide(count));
}

// Short texts are copied to the stack, long ones to the heap.
TEST(FlatXml, ReadsTextsOfAnyLength) {
  const std::string frame = Rooted("<FileName></FileName>");
  for (size_t size = 2040; size < 2053; ++size) {
    ExpectSame(Rooted("<FileName>" + std::string(size - frame.size(), 'f') + "</FileName>"));
    ExpectSame(Rooted("<FileName>" + std::string(size - frame.size() - 5, 'f') + "&amp;</FileName>"));
  }
}

// A text that breaks off anywhere.
TEST(FlatXml, EndsWithItsText) {
  MediaCmd command = Command(ctPlay, CF_USE_START | CF_USE_CLIP_ID | CF_LOOP);
  Put(command, 76, std::string("CLIP\0", 5));
  const std::string text = TextOf(command);
  for (size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(IsFlat(text.substr(0, size))) << size;
    ExpectSame(text.substr(0, size));
  }
}

}  // namespace
}  // namespace qln::test

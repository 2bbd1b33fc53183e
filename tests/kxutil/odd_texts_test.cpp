// Formats, JSON and XML texts at the edges of what their fast ways take.

#include <gtest/gtest.h>
#define JSMN_HEADER
#include <jsmn.h>
#include <tinyxml.h>

#include <cstdio>
#include <string>

#include "kxutil/kxutil.h"
#include "kxutil/xml_prescan.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

std::string Told(const MessageCapture& capture) {
  return capture.messages().size() == 1 ? capture.messages()[0].text : "";
}

TEST(OddTexts, FormatsBesideThePlainOnesAreTheCLibrarys) {
  const std::string longText(1100, 'x');
  char expected[2048];
  MessageCapture capture;
  for (const char* const format : {"%07X", "%08x", "%09d", "%0X", "%8X"}) {
    std::snprintf(expected, sizeof expected, format, 0xABCu);
    capture.clear();
    ErrOut(format, 0xABCu);
    EXPECT_EQ(Told(capture), expected) << format;
  }
  // Too long in front of a conversion, and behind the last one.
  for (const std::string& format : {longText + "%d", "%d" + longText}) {
    std::snprintf(expected, sizeof expected, format.c_str(), 42);
    capture.clear();
    ErrOut(format.c_str(), 42);
    EXPECT_EQ(Told(capture), expected);
  }
  // The compiler would see it and warn.
  const char* volatile none = nullptr;
  capture.clear();
  ErrOut("%s.", none);
  EXPECT_EQ(Told(capture), "(null).");
}

// What has no form in the locale cannot be set in; the format goes out as it is.
TEST(OddTexts, ATextThatCannotBeFormattedIsItsFormat) {
  const wchar_t wide[] = {0x1F600, 0};
  MessageCapture capture;
  ErrOut("a %ls b", wide);
  EXPECT_EQ(Told(capture), "a %ls b");
}

TEST(OddTexts, AllBlanksOfJsonAreBlanks) {
  const std::string text = "\t[\r1 ,\n\t2\r]\n";
  jsmn_parser parser;
  jsmntok_t tokens[4];
  jsmn_init(&parser);
  ASSERT_EQ(jsmn_parse(&parser, text.data(), text.size(), tokens, 4), 3);
  EXPECT_EQ(tokens[0].type, JSMN_ARRAY);
  EXPECT_EQ(tokens[0].size, 2);
  EXPECT_EQ(text.substr(static_cast<size_t>(tokens[1].start), 1), "1");
  EXPECT_EQ(text.substr(static_cast<size_t>(tokens[2].start), 1), "2");
}

// Names may have points and colons, and the byte order marks that the parser skips hide nothing.
TEST(OddTexts, TheScanKnowsNamesAndMarksAsTheParserDoes) {
  const XmlLimits limits{2, 100};
  for (const std::string& name :
       {std::string("a.b"), std::string("a:b"), std::string("a-b"), std::string("_a")}) {
    const std::string open = "<" + name + ">", text = open + open + open;
    EXPECT_EQ(SafeXmlLength(text.data(), text.size(), false, limits), 2 * open.size()) << name;
  }
  for (const std::string& mark : {std::string("\xEF\xBF\xBE"), std::string("\xEF\xBF\xBF")}) {
    const std::string text = "\xEF\xBB\xBF" + mark + "<a>" + mark + "<a>" + mark + "<a>";
    EXPECT_EQ(SafeXmlLength(text.data(), text.size(), false, limits), text.size() - 3);
    TiXmlDocument document;
    document.Parse((text + std::string(4, '\0')).c_str(), nullptr, TIXML_DEFAULT_ENCODING);
    ASSERT_NE(document.RootElement(), nullptr);
    EXPECT_NE(document.RootElement()->FirstChildElement("a"), nullptr);
  }
}

}  // namespace
}  // namespace qln::test

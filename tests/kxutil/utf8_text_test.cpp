// Which bytes are UTF-8 (RFC 3629), and which characters an XML document can hold.

#include "kxutil/utf8_text.h"

#include <gtest/gtest.h>

#include <string>

namespace qln {
namespace {

uint32_t First(const std::string& text) {
  size_t offset = 0;
  const uint32_t character = NextCharacter(text, offset);
  if (character != 0xFFFFFFFFu) {
    EXPECT_EQ(offset, text.size());
  }
  return character;
}

TEST(Utf8Text, ReadsCharactersOfEachLength) {
  EXPECT_EQ(First("A"), 0x41u);
  EXPECT_EQ(First("\xC2\x80"), 0x80u);
  EXPECT_EQ(First("\xC3\xA4"), 0xE4u);
  EXPECT_EQ(First("\xDF\xBF"), 0x7FFu);
  EXPECT_EQ(First("\xE0\xA0\x80"), 0x800u);
  EXPECT_EQ(First("\xE2\x82\xAC"), 0x20ACu);
  EXPECT_EQ(First("\xEF\xBF\xBF"), 0xFFFFu);
  EXPECT_EQ(First("\xF0\x90\x80\x80"), 0x10000u);
  EXPECT_EQ(First("\xF0\x9F\x98\x80"), 0x1F600u);
  EXPECT_EQ(First("\xF4\x8F\xBF\xBF"), 0x10FFFFu);
}

TEST(Utf8Text, RefusesOtherBytes) {
  for (const char* const text :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3\x41", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80",
        "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
    EXPECT_EQ(First(text), 0xFFFFFFFFu);
    EXPECT_FALSE(IsUtf8(text));
    EXPECT_FALSE(IsXmlText(text));
  }
  EXPECT_EQ(First("\xED\x9F\xBF"), 0xD7FFu);
  EXPECT_EQ(First("\xEE\x80\x80"), 0xE000u);
}

TEST(Utf8Text, KnowsWhatAnXmlDocumentHolds) {
  EXPECT_TRUE(IsXmlText("a\t\n\r \xEF\xBF\xBD\xF0\x90\x80\x80"));
  for (const char* const text : {"\x01", "\x08", "\x0B", "\x1F", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    EXPECT_TRUE(IsUtf8(text));
    EXPECT_FALSE(IsXmlText(text));
  }
}

}  // namespace
}  // namespace qln

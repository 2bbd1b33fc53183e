// The characters of line 21: each table against the standard's, both ways; replacements; UTF-8.

#include "captions/line21_characters.h"

#include <gtest/gtest.h>

#include <set>

namespace qlnmedia::captions {
namespace {

// The tables of CTA-608 as they are printed: 96 basic, 16 special and twice 32 extended characters.
constexpr std::u32string_view kBasic =
    U" !\"#$%&\u2019()á+,-./"
    U"0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[é]íóúabcdefghijklmnopqrstuvwxyzç÷Ññ\u2588";
constexpr std::u32string_view kSpecial = U"®°½¿™¢£♪à\u00A0èâêîôû";
constexpr std::u32string_view kFrench = U"ÁÉÓÚÜü\u2018¡*'\u2014©\u2120\u2022\u201C\u201DÀÂÇÈÊËëÎÏïÔÙùÛ«»";
constexpr std::u32string_view kGerman = U"ÃãÍÌìÒòÕõ{}\\^_|~ÄäÖöß¥¤¦ÅåØø\u250C\u2510\u2514\u2518";

TEST(Line21Characters, AreThoseOfTheTables) {
  ASSERT_EQ(kBasic.size(), 96u);
  for (uint8_t code = 0x20; code < 0x80; ++code) {
    const char32_t character = kBasic[code - 0x20u];
    EXPECT_EQ(BasicCharacter(code), character) << int{code};
    EXPECT_EQ(Line21CodeOf(character), (Line21Code{0, code, 0})) << int{code};
  }
  ASSERT_EQ(kSpecial.size(), 16u);
  for (uint8_t i = 0; i < 16; ++i) {
    const auto code = static_cast<uint8_t>(0x30 + i);
    EXPECT_EQ(PairCharacter(0x11, code), kSpecial[i]);
    EXPECT_EQ(Line21CodeOf(kSpecial[i]), (Line21Code{0x11, code, 0}));
  }
  for (const auto& [set, table] : {std::pair(uint8_t{0x12}, kFrench), std::pair(uint8_t{0x13}, kGerman)}) {
    ASSERT_EQ(table.size(), 32u);
    for (uint8_t i = 0; i < 32; ++i) {
      const auto code = static_cast<uint8_t>(0x20 + i);
      EXPECT_EQ(PairCharacter(set, code), table[i]);
      if (table[i] == U'\'') continue;  // sent as the basic one
      const auto found = Line21CodeOf(table[i]);
      ASSERT_TRUE(found) << int{set} << " " << int{code};
      EXPECT_EQ(found->set, set);
      EXPECT_EQ(found->code, code);
      // What stands in front is a basic character that ASCII has as well.
      EXPECT_EQ(BasicCharacter(found->instead) == char32_t{found->instead} || found->instead == '\'', true);
    }
  }
  EXPECT_EQ(Line21CodeOf(U'Ä')->instead, 'A');
  EXPECT_EQ(Line21CodeOf(U'\''), (Line21Code{0, 0x27, 0}));
  for (const char32_t none : {U'\n', U'\0', U'`', U'\u20AC', U'\u4E2D', char32_t{0x1F600}, char32_t{0x7F}})
    EXPECT_FALSE(Line21CodeOf(none)) << unsigned{none};
  for (const int code : {0x2F, 0x40, 0x00}) EXPECT_EQ(PairCharacter(0x11, static_cast<uint8_t>(code)), 0u);
  for (const int code : {0x1F, 0x40, 0xFF}) EXPECT_EQ(PairCharacter(0x12, static_cast<uint8_t>(code)), 0u);
  EXPECT_EQ(PairCharacter(0x14, 0x20), 0u);
}

TEST(Line21Characters, AreReplacedByTheNearest) {
  const std::pair<char32_t, std::u32string_view> expected[] = {
      {U'a', U"a"},      {U'Ä', U"Ä"},        {U'ą', U"a"},      {U'Ł', U"L"},      {U'œ', U"oe"},
      {U'\u2013', U"-"}, {U'\u2026', U"..."}, {U'€', U"EUR"},    {U'Ж', U"Zh"},     {U'ш', U"sh"},
      {U'\u4E2D', U"?"}, {U'\u200B', U""},    {U'\u2003', U" "}, {U'`', U"\u2018"}, {U'\u266B', U"\u266A"},
  };
  for (const auto& [character, text] : expected)
    EXPECT_EQ(Transliterated(character), text) << unsigned{character};
  // Whatever stands for a character can be sent.
  for (char32_t c = 0; c < 0x11000; ++c) {
    for (const char32_t sent : Transliterated(c)) ASSERT_TRUE(Line21CodeOf(sent)) << unsigned{c};
  }
}

TEST(Utf8, IsTakenByTheRules) {
  const std::u32string characters = U"a\u00E9\u20AC\U0001F600";
  EXPECT_EQ(ToUtf8(characters), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(FromUtf8(ToUtf8(characters)), characters);
  // RFC 3629: overlong forms, surrogates, what is cut off or stands alone, and what lies behind U+10FFFF.
  for (const std::string_view bad :
       {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
        "\x80", "\xC3", "\xE2\x82", "\xC3\x41", "\xF5\x80\x80\x80", "\xFF"})
    EXPECT_FALSE(FromUtf8(bad));
  EXPECT_EQ(FromUtf8("\xED\x9F\xBF"), U"\uD7FF");
  EXPECT_EQ(FromUtf8("\xF4\x8F\xBF\xBF"), (std::u32string{0x10FFFF}));
}

}  // namespace
}  // namespace qlnmedia::captions

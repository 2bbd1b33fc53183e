// The scan in front of the XML parser, held against the parser itself: what it lets through stays within the
// limits, and what is within the limits is not touched.

#include "kxutil/xml_prescan.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <string>

#include "support/cpu_time.h"
#include "support/test_support.h"

namespace qln {
namespace {

size_t SafeLength(const std::string& text, XmlLimits limits = {}) {
  test::ExactCopy copy(test::Bytes(text.begin(), text.end()));
  return SafeXmlLength(reinterpret_cast<const char*>(copy.data()), copy.size(), false, limits);
}

std::string Repeat(const std::string& piece, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += piece;
  return text;
}

struct Measure {
  size_t depth = 0;
  size_t attributes = 0;
};

void MeasureNode(const TiXmlNode& node, size_t depth, Measure& measure) {
  if (const TiXmlElement* element = node.ToElement()) {
    measure.depth = std::max(measure.depth, depth);
    size_t attributes = 0;
    for (const TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) ++attributes;
    measure.attributes = std::max(measure.attributes, attributes);
  }
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    MeasureNode(*child, depth + 1, measure);
  }
}

struct Parsed {
  Measure measure;
  std::string printed;
};

Parsed Parse(std::string text, bool legacy = false) {
  text.append(4, '\0');
  TiXmlDocument document;
  document.Parse(text.c_str(), nullptr, legacy ? TIXML_ENCODING_LEGACY : TIXML_DEFAULT_ENCODING);
  Parsed parsed;
  MeasureNode(document, 0, parsed.measure);
  TiXmlPrinter printer;
  document.Accept(&printer);
  parsed.printed = printer.Str();
  return parsed;
}

TEST(XmlPrescan, TakesPlainTextsWhole) {
  for (const std::string text :
       {"", " ", "<a/>", "<?xml version=\"1.0\"?><a b='1' c=2><!-- <x> --><d>t&lt;</d></a>",
        "<a><![CDATA[<b><c>]]></a>", "no markup", "<", "<a", "<a b", "<a b=", "<a b=\"", "</a>"}) {
    EXPECT_EQ(SafeLength(text), text.size()) << text;
  }
}

TEST(XmlPrescan, AllowsAThousandLevelsAndEndsInFrontOfTheNext) {
  const std::string thousand = Repeat("<a>", 1000);
  EXPECT_EQ(SafeLength(thousand + Repeat("</a>", 1000)), 7000u);
  EXPECT_EQ(SafeLength(thousand + "<b/>"), thousand.size());
  EXPECT_EQ(SafeLength(thousand + "<a>"), thousand.size());
  EXPECT_EQ(SafeLength(thousand + "</a><b/><c></c>"), thousand.size() + 15);
  EXPECT_EQ(Parse(thousand).measure.depth, 1000u);
}

TEST(XmlPrescan, CountsDepthAndNotElements) {
  const std::string text = "<r>" + Repeat("<a><b/></a>", 5000) + "</r>";
  EXPECT_EQ(SafeLength(text), text.size());
}

// An element with so many attributes, its tag not yet closed.
std::string WideTag(size_t count) {
  std::string text = "<a";
  for (size_t i = 0; i < count; ++i) text += " a" + std::to_string(i) + "=1";
  return text;
}

TEST(XmlPrescan, AllowsAsManyAttributesAsTheLimitAndEndsInFrontOfTheNext) {
  for (const size_t limit : {2000u, 10000u}) {
    const XmlLimits limits = {.attributes = limit};
    const std::string text = WideTag(limit);
    EXPECT_EQ(SafeLength(text + "/>", limits), text.size() + 2);
    EXPECT_EQ(SafeLength(text + " b=2/>", limits), text.size() + 2);
    EXPECT_EQ(SafeLength(text + "><c d='1'/></a>", limits), text.size() + 15);
  }
  EXPECT_EQ(Parse(WideTag(2000) + " b=2/>").measure.attributes, 2001u);
  EXPECT_EQ(Parse(WideTag(2000) + " b").measure.attributes, 2000u);
  EXPECT_EQ(XmlLimits().attributes, 2000u);
}

// What the parser does a node's depth and an attribute's place often.
struct Steps {
  size_t depth = 0;
  size_t attributes = 0;
};

void CountSteps(const TiXmlNode& node, size_t depth, Steps& steps) {
  if (const TiXmlElement* element = node.ToElement()) {
    size_t before = 0;
    for (const TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) {
      steps.attributes += before++;
    }
  }
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    steps.depth += depth;
    CountSteps(*child, depth + 1, steps);
  }
}

Steps StepsOf(std::string text) {
  text.append(4, '\0');
  TiXmlDocument document;
  document.Parse(text.c_str());
  Steps steps;
  CountSteps(document, 0, steps);
  return steps;
}

TEST(XmlPrescan, StepsGrowWithTheSizeOnly) {
  // As the limits told for a text of no size, and eight a byte.
  const auto mostDepth = [](const std::string& text) { return 1000u * 1000u + 8 * text.size(); };
  const auto mostAttributes = [](const std::string& text) { return 2000u * 2000u / 2 + 8 * text.size(); };
  std::string deep = Repeat("<a>", 900);
  for (const char* const piece : {"<b/>", "<b>x</b>", "<!---->", "y<c></c>", "<![CDATA[z]]>", "<!x>"}) {
    const std::string text = deep + Repeat(piece, 20000);
    const size_t safe = SafeLength(text);
    EXPECT_LT(safe, text.size()) << piece;
    const std::string kept = text.substr(0, safe);
    EXPECT_LE(StepsOf(kept).depth, mostDepth(text)) << piece;
    EXPECT_GE(StepsOf(kept + piece).depth + 2000, mostDepth(text)) << piece << ": no sooner than need be";
  }
  const std::string wide = "<r>" + Repeat(WideTag(1900) + "/>", 5) + "</r>";
  const size_t safe = SafeLength(wide);
  EXPECT_LT(safe, wide.size());
  EXPECT_LE(StepsOf(wide.substr(0, safe)).attributes, mostAttributes(wide));
  EXPECT_GE(StepsOf(wide.substr(0, safe)).attributes + 2000, mostAttributes(wide)) << "no sooner";
}

TEST(XmlPrescan, UsualTextsOfAnySizeStayWhole) {
  const std::string wide = "<r>" + Repeat(WideTag(60) + "/>", 3000) + "</r>";
  EXPECT_EQ(SafeLength(wide), wide.size());
  const std::string deep =
      Repeat("<level>", 60) + Repeat("<value key='K' number='1'/>\n", 30000) + Repeat("</level>", 60);
  EXPECT_EQ(SafeLength(deep), deep.size());
}

TEST(XmlPrescan, HostileTextsTakeTheParserHardlyLongerThanPlainOnes) {
  const auto secondsOf = [](const std::string& text) {
    return test::LeastCpuSeconds(2, [&] { Parse(text.substr(0, SafeLength(text))); });
  };
  constexpr size_t kSize = 800000;
  const auto filled = [](const std::string& start, const std::string& piece) {
    return start + Repeat(piece, kSize / piece.size());
  };
  const double plain = secondsOf(filled("<r>", "<b/>"));
  EXPECT_LT(secondsOf(filled(Repeat("<a>", 900), "<b/>")), 5 * plain);
  EXPECT_LT(secondsOf(filled("<r>", WideTag(1999) + "/>")), 5 * plain);
}

TEST(XmlPrescan, WhatHidesAnEndTagDoesNotLowerTheDepth) {
  // Each of these goes one level down a time, whatever it shows to a naive scan.
  for (const std::string piece :
       {"<a b='</a>'>", "<a><!-- </a> -->", "<a><![CDATA[</a>]]>", "<a><!x </a>", "<a b='&#\"></a>1;'>",
        "<a><?xml version='></a>'?>", "<a b=\"'</a>\">", "<a\n\t>x", "<a><!--></a>-->", "<a>&#</a>1;"}) {
    const std::string text = Repeat(piece, 1200);
    const size_t safe = SafeLength(text);
    EXPECT_LE(Parse(text.substr(0, safe)).measure.depth, 1000u) << piece;
  }
  // In UTF-8 a long lead byte swallows what stands behind it; read bytewise it does not.
  const std::string swallowing = Repeat("<a>\xF4</a>", 1200);
  EXPECT_LE(Parse("<?xml?>" + swallowing).measure.depth, 1200u);
  const std::string utf8 = "<?xml version='1.0' encoding='utf-8'?>" + Repeat("<a>x\xF4</a", 1200);
  EXPECT_LE(Parse(utf8.substr(0, SafeLength(utf8))).measure.depth, 1000u);
  EXPECT_LT(SafeLength("\xEF\xBB\xBF" + Repeat("<a b='\xF4'></a>'>", 1200)), 1200u * 17 + 3);
}

TEST(XmlPrescan, TextsThatTheParserGivesUpInFrontOfTheLimitStayWhole) {
  const std::string deep = Repeat("<a>", 1001);
  ASSERT_LT(SafeLength(deep), deep.size());
  for (const std::string& start : {std::string("\xEF\xBB\xBF<\xEF\xBB\xBF>"), std::string("<b c=1'2>"),
                                   std::string("<b c=1\"2>"), std::string("<b c='&#1\0'>", 12)}) {
    const std::string text = start + deep;
    EXPECT_EQ(SafeLength(text), text.size()) << text.substr(0, start.size());
    EXPECT_LE(Parse(text).measure.depth, 1u);
  }
}

TEST(XmlPrescan, ReferencesOfAnyDigitsAreCharacters) {
  for (const std::string piece : {"<a b='&#10;'>", "<a b='&#x0A;'>", "<a b='&#9;'>", "<a b='&#x9f;'>"}) {
    EXPECT_EQ(SafeLength(Repeat(piece, 1001)), 1000 * piece.size()) << piece;
    EXPECT_EQ(Parse(Repeat(piece, 1000)).measure.depth, 1000u) << piece;
  }
}

// In UTF-8 the long lead byte swallows the end tag, so that the text goes too deep.
TEST(XmlPrescan, TheEncodingIsTheLastOneThatTheDeclarationNames) {
  const std::string swallowing = Repeat("<a>x\xF4</a>", 1200);
  const std::vector<std::pair<std::string, bool>> rows = {{"", true},
                                                          {"encoding='UTF-8'", true},
                                                          {"encoding='utf8'", true},
                                                          {"encoding='UTF&#x2D;8'", true},
                                                          {"encoding='UTF&#x2d;8'", true},
                                                          {"encoding='UTF&#45;8'", true},
                                                          {"encoding='latin1'", false},
                                                          {"encoding='UT'", false},
                                                          {"encoding='UTF&#x2E;8'", false},
                                                          {"encoding='latin1' encoding='utf-8'", true},
                                                          {"encoding='utf-8' encoding='latin1'", false}};
  for (const auto& [attributes, isUtf8] : rows) {
    const std::string text = "<?xml version='1.0' " + attributes + "?>" + swallowing;
    EXPECT_EQ(SafeLength(text) < text.size(), isUtf8) << attributes;
    EXPECT_EQ(Parse(text).measure.depth, isUtf8 ? 1200u : 1u) << attributes;
  }
}

TEST(XmlPrescan, LimitsHoldForRandomTextsAndLeaveTheOthersAlone) {
  const std::vector<std::string> pieces = {"<",
                                           "</",
                                           ">",
                                           "/>",
                                           "a",
                                           "b",
                                           "=",
                                           "'",
                                           "\"",
                                           " ",
                                           "<a>",
                                           "</a>",
                                           "<b>",
                                           "</b>",
                                           "<a ",
                                           "b='1'",
                                           "c=\"2\"",
                                           "d=3",
                                           "<!--",
                                           "-->",
                                           "<![CDATA[",
                                           "]]>",
                                           "<?xml",
                                           "?>",
                                           "encoding",
                                           "version",
                                           "='utf-8'",
                                           "='latin1'",
                                           "&#",
                                           ";",
                                           "&#x3",
                                           "&lt;",
                                           "&",
                                           "\xEF\xBB\xBF",
                                           "\xEF\xBF\xBE",
                                           "\xC3",
                                           "\xE2",
                                           "\xF0",
                                           "\xFF",
                                           "\x7F",
                                           std::string(1, '\0'),
                                           "\n",
                                           "_",
                                           "<!",
                                           "1",
                                           "x",
                                           "&#85;",
                                           "standalone"};
  test::Random random(7);
  size_t cut = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string text;
    if (random.below(4) == 0) text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    const size_t count = random.below(40);
    for (size_t i = 0; i < count; ++i) text += pieces[random.below(pieces.size())];
    const bool legacy = random.below(4) == 0;
    const XmlLimits limits{random.below(4), random.below(3)};
    const size_t safe = SafeXmlLength(text.data(), text.size(), legacy, limits);
    ASSERT_LE(safe, text.size());
    const Parsed whole = Parse(text, legacy);
    const Parsed kept = Parse(text.substr(0, safe), legacy);
    ASSERT_LE(kept.measure.depth, limits.depth) << test::ToHex(test::Bytes(text.begin(), text.end()));
    ASSERT_LE(kept.measure.attributes, limits.attributes)
        << test::ToHex(test::Bytes(text.begin(), text.end()));
    if (whole.measure.depth <= limits.depth && whole.measure.attributes <= limits.attributes) {
      ASSERT_EQ(kept.printed, whole.printed) << test::ToHex(test::Bytes(text.begin(), text.end()));
    }
    cut += safe != text.size();
  }
  EXPECT_GT(cut, 100u);
}

}  // namespace
}  // namespace qln

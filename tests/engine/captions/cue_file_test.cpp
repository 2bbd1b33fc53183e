// Timed text: what .srt and .vtt files look like, and what is refused with its line.

#include "captions/cue_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captions/caption_track.h"
#include "captions/line21_characters.h"

namespace qlnmedia::captions {
namespace {

using testing::StartsWith;

std::vector<Cue> CuesOf(std::string_view text) {
  std::string reason;
  const auto cues = ReadCues(text, &reason);
  EXPECT_TRUE(cues) << reason;
  return cues.value_or(std::vector<Cue>());
}

TEST(SrtFile, IsRead) {
  const auto cues = CuesOf(
      "\xEF\xBB\xBF\r\n1\r\n00:00:01,000 --> 00:00:02,500\r\n<i>Good</i> <font color=\"#fff\">day</font>\r\n"
      "{\\an8}if a < b & c > d {x}\r\n\r\n\r\n2\r\n01:02:03.004 --> 01:02:03,005  X1:10 "
      "X2:20\r\n-\xC3\xA9\r\n");
  ASSERT_EQ(cues.size(), 2u);
  EXPECT_EQ(cues[0].line, 3);
  EXPECT_EQ(cues[0].begin, 1000);
  EXPECT_EQ(cues[0].end, 2500);
  ASSERT_EQ(cues[0].lines.size(), 2u);
  EXPECT_EQ(cues[0].lines[0].text, U"Good day");
  std::vector<Look> looks(8);
  for (size_t i = 0; i < 4; ++i) looks[i].italic = true;
  EXPECT_EQ(cues[0].lines[0].looks, looks);
  EXPECT_EQ(cues[0].lines[1], (CueLine{5, U"if a < b & c > d {x}"}));
  EXPECT_EQ(cues[0].top, 0);
  EXPECT_TRUE(cues[0].topIsRow);
  EXPECT_EQ(cues[1].begin, 3723004);
  EXPECT_EQ(cues[1].end, 3723005);
  EXPECT_EQ(cues[1].lines, (std::vector<CueLine>{{10, U"-\u00E9"}}));
}

TEST(VttFile, HasPlacesAndEntities) {
  const auto cues = CuesOf(
      "WEBVTT - title\nKind: captions\n\nNOTE a\ncomment\n\nSTYLE\n::cue {}\n\n"
      "first\n01:02.000 --> 01:03.000 line:10% position:20%,line-left align:start size:50%\n"
      "<v Fred>Tom &amp; <c.yellow.bg_blue>Jerry</c> &lt;3&nbsp;<00:01:02.500>x &nothing; <b\n\n"
      "00:01:03.000 --> 00:01:04.000 line:-2,end align:right\nlow\n\n"
      "00:01:05.000 --> 00:01:06.000 line:x position:200% line:7e999% :\nlow\n");
  ASSERT_EQ(cues.size(), 3u);
  EXPECT_EQ(cues[0].top, 10);
  EXPECT_FALSE(cues[0].topIsRow);
  EXPECT_EQ(cues[0].left, 20);
  EXPECT_EQ(cues[0].align, CueAlign::kLeft);
  EXPECT_EQ(cues[0].begin, 62000);
  ASSERT_EQ(cues[0].lines.size(), 1u);
  EXPECT_EQ(cues[0].lines[0].text, U"Tom & Jerry <3\u00A0x &nothing; ");
  EXPECT_EQ(cues[0].lines[0].looks.at(5), Look());
  EXPECT_EQ(cues[0].lines[0].looks.at(6), (Look{Line21Colour::kYellow, false, false}));
  EXPECT_EQ(cues[0].lines[0].losses, std::vector<std::string>{"the colour behind the text is left out"});
  EXPECT_EQ(cues[1].top, -2);
  EXPECT_TRUE(cues[1].topIsRow);
  EXPECT_EQ(cues[1].anchor, CueAnchor::kEnd);
  EXPECT_EQ(cues[1].align, CueAlign::kRight);
  EXPECT_FALSE(cues[2].top || cues[2].left);
}

// A letter for each character: its colour's, and i and u behind it.
std::string LooksOf(const CueLine& line) {
  std::string text;
  for (const Look& look : line.looks) {
    text += "wgbcrym"[static_cast<size_t>(look.colour)];
    if (look.italic) text += 'i';
    if (look.underline) text += 'u';
  }
  return text;
}

TEST(CueMarkups, AreLooks) {
  const std::pair<std::string, const char*> vtt[] = {
      {"a<i>b<c.red>c</c>d</i>e", "wwiriwiw"},
      {"<c.lime.cyan>a</c><c.magenta>b<u>c</u></c>", "cmmu"},
      {"<c.blue>a<i>b</c>c</i>d", "bbiww"},  // what was opened inside ends too
      {"<v.yellow Fred>a</v><lang en>b</lang><i.white>c</i>", "ywwi"},
      {"a</i></c>b<>c", ""},
  };
  for (const auto& [line, looks] : vtt) {
    const auto cues = CuesOf("WEBVTT\n\n00:01.000 --> 00:02.000\n" + line + "\n");
    EXPECT_EQ(LooksOf(cues.at(0).lines.at(0)), looks) << line;
    EXPECT_TRUE(cues[0].lines[0].losses.empty()) << line;
  }
  const std::pair<std::string, const char*> srt[] = {
      {"<I>a</I><U>b</U>", "wiwu"},
      {"<font color=\"#FF0000\">a</font><font color=yellow>b</font><FONT COLOR='#0f0'>c</FONT>", "ryg"},
      {"{\\i1}a{\\i0}b{\\u1}c", "wiwwu"},
      {"<c.red>", ""},
  };
  for (const auto& [line, looks] : srt) {
    const auto cues = CuesOf("1\n00:00:01,000 --> 00:00:02,000\n" + line + "\n");
    EXPECT_EQ(LooksOf(cues.at(0).lines.at(0)), looks) << line;
    EXPECT_TRUE(cues[0].lines[0].losses.empty()) << line;
  }
}

TEST(CueMarkups, NameWhatLine21Lacks) {
  const auto cues = CuesOf(
      "1\n00:00:01,000 --> 00:00:02,000\n<b>a</b><b>b</b> <font face=Arial color=#FF8800>c</font>\n"
      "<font color=\"mauve\">d</font><s>e</s>{\\fad(1,2)}<b>f</b>\n");
  ASSERT_EQ(cues.at(0).lines.size(), 2u);
  EXPECT_EQ(cues[0].lines[0].losses, (std::vector<std::string>{"bold is left out", "the font is left out",
                                                               "the colour #ff8800 becomes yellow"}));
  EXPECT_EQ(cues[0].lines[1].losses,
            (std::vector<std::string>{"\"mauve\" is no colour", "a line through the text is left out",
                                      "the command \"fad(1,2)\" is left out"}));
  const auto vtt = CuesOf("WEBVTT\n\n00:01.000 --> 00:02.000 vertical:rl region:a\n<c.black>x</c>\n");
  EXPECT_EQ(vtt.at(0).losses,
            (std::vector<std::string>{"vertical text stands in rows", "the region is left out"}));
  EXPECT_EQ(vtt[0].lines.at(0).losses, std::vector<std::string>{"the colour black becomes white"});
}

TEST(CueFiles, OfOneTimeAreOneCue) {
  const auto cues = CuesOf("1\n00:00:01,000 --> 00:00:02,000\na\n\n2\n00:00:01,000 --> 00:00:02,000\nb\n");
  ASSERT_EQ(cues.size(), 1u);
  EXPECT_EQ(cues[0].lines.size(), 2u);
}

// Cues as "BEGIN LINE|LINE" each.
std::string Told(const std::string& text) {
  std::string told;
  for (const Cue& cue : CuesOf(text)) {
    told += (told.empty() ? "" : " ") + std::to_string(cue.begin / 1000) + " ";
    for (size_t i = 0; i < cue.lines.size(); ++i) told += (i == 0 ? "" : "|") + ToUtf8(cue.lines[i].text);
  }
  return told;
}

TEST(CueFiles, BlankLinesStandWhereTheyMay) {
  const std::pair<const char*, const char*> srt[] = {
      {"\n\n\n1\n00:00:01,000 --> 00:00:02,000\na\n\n\n\n2\n00:00:03,000 --> 00:00:04,000\nb", "1 a 3 b"},
      {"1\n\n00:00:01,000 --> 00:00:02,000\na\n", "1 a"},
      {"1\n00:00:01,000 --> 00:00:02,000\n\na\n\n2\n00:00:03,000 --> 00:00:04,000\nb\n", "1 a 3 b"},
      {"1\n00:00:01,000 --> 00:00:02,000\na\n\nb\n\n\n2\n\n00:00:03,000 --> 00:00:04,000\nc\n", "1 a|b 3 c"},
      {"00:00:01,000 --> 00:00:02,000\na\n\n00:00:03,000 --> 00:00:04,000\nb\n\n", "1 a 3 b"},
      {"1\r\n00:00:01,000 --> 00:00:02,000 \r\n \t\r\na \r\n\r\n", "1 a"},
  };
  for (const auto& [text, told] : srt) EXPECT_EQ(Told(text), told) << text;
  const std::pair<const char*, const char*> vtt[] = {
      {"WEBVTT\n00:01.000 --> 00:02.000\na\n\n00:03.000 --> 00:04.000\nb\n", "1 a 3 b"},
      {"WEBVTT x\nKind: captions\n00:01.000 --> 00:02.000\na\n", "1 a"},
      {"WEBVTT\n\n00:01.000 --> 00:02.000\na\n00:03.000 --> 00:04.000\nb\n", "1 a 3 b"},
      {"WEBVTT\r\n\r\n\r\nid\r\n00:01.000 --> 00:02.000\r\na\r\n", "1 a"},
  };
  for (const auto& [text, told] : vtt) EXPECT_EQ(Told(text), told) << text;
}

TEST(CueFiles, OthersAreNamed) {
  const auto reasonOf = [](const std::string& text) {
    std::string reason;
    EXPECT_FALSE(ReadCues(text, &reason)) << text;
    return reason;
  };
  const std::pair<std::string, const char*> others[] = {
      {"Scenarist_SCC V1.0\n\n", "a Scenarist file (.scc)"},
      {"File Format=MacCaption_MCC V1.0\n", "a MacCaption file (.mcc)"},
      {"[Script Info]\n", "subtitles of the kind ASS"},
      {"{1}{25}x\n", "MicroDVD subtitles"},
      {"<?xml version=\"1.0\"?>\n<tt xmlns=\"http://www.w3.org/ns/ttml\">\n", "TTML"},
      {"<?xml version=\"1.0\"?>\n<a>\n", "XML"},
      {std::string("\xFF\xFE\x31\0\n\0", 6), "a text in UTF-16, which is to be saved as UTF-8"},
      {std::string("\0\0\0\x18"
                   "ftypisom",
                   12),
       "MP4 or MOV"},
      {std::string("850STL25.01", 11), "EBU STL"},
      {"%PDF-1.4\n", "a PDF document"},
      {"{\\rtf1\n", "a document in RTF"},
      {"PK\x03\x04", "a ZIP archive, as office documents are"},
      {std::string("a\0b", 3), "no text"},
      {"G" + std::string(187, 'x') + "G" + std::string(187, 'x'), "an MPEG transport stream"},
  };
  for (const auto& [text, name] : others)
    EXPECT_THAT(reasonOf(text), testing::EndsWith(std::string("; seems to be ") + name));
  EXPECT_EQ(reasonOf("hello\n"), "line 1: neither the number nor the times of a cue");
  // Of the files of pairs and packets too.
  std::string reason;
  EXPECT_FALSE(ReadCaptionTrack("WEBVTT\n", &reason));
  EXPECT_THAT(reason, testing::EndsWith("; seems to be WebVTT (.vtt)"));
  EXPECT_FALSE(ReadCaptionTrack("1\n00:00:01,000 --> 00:00:02,000\na\n", &reason));
  EXPECT_THAT(reason, testing::EndsWith("; seems to be SubRip (.srt)"));
}

TEST(CueFiles, AreRefusedWithTheirLine) {
  const std::pair<std::string, const char*> refused[] = {
      {"", "holds no cues"},
      {"hello\n", "line 1: neither the number nor the times"},
      {"1\nhello\n", "line 2: the times of a cue are missing"},
      {"1\n", "line 1: the times of a cue are missing"},
      {"1\n00:00:01,000 -> 00:00:02,000\nx\n", "line 2: the times of a cue are missing"},
      {"1\n00:00:01,00 --> 00:00:02,000\nx\n", "line 2: no times"},
      {"1\n00:00:01,0000 --> 00:00:02,000\nx\n", "line 2: no times"},
      {"1\n00:00:60,000 --> 00:01:02,000\nx\n", "line 2: no times"},
      {"1\n00:60:00,000 --> 01:01:02,000\nx\n", "line 2: no times"},
      {"1\n00:01,000 --> 00:02,000\nx\n", "line 2: no times"},
      {"1\n00:00:01,000 --> 00:00:02,000x\nx\n", "line 2: no times"},
      {"1\n00:00:02,000 --> 00:00:02,000\nx\n", "line 2: a cue that ends before it begins"},
      {"1\n23:00:02,000 --> 24:00:00,000\nx\n", "line 2: a time of 24 hours"},
      {"1\n00:00:02,000 --> 00:00:03,000\nx\n\n2\n00:00:01,999 --> 00:00:04,000\ny\n",
       "line 6: the time goes back"},
      {"1\n00:00:02,000 --> 00:00:03,000\nx\xFF\n", "line 3: no UTF-8"},
      {"WEBVTT\n\n00:00:01,000 --> 00:00:02.000\nx\n", "line 3: no times"},
      {"WEBVTTX\n\n", "line 1: neither"},
  };
  for (const auto& [text, reason] : refused) {
    std::string told;
    const auto cues = ReadCues(text, &told);
    EXPECT_FALSE(cues) << text;
    EXPECT_THAT(told, StartsWith(reason)) << text;
  }
  EXPECT_TRUE(CuesOf("WEBVTT").empty());
}

}  // namespace
}  // namespace qlnmedia::captions

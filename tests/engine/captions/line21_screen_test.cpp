// The screen of line 21: every mode, code and look by the tables of CTA-608, and held against libavcodec's
// decoder.

#include "captions/line21_screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "captions/caption_track.h"
#include "captions/line21.h"
#include "captions/pop_on_schedule.h"
#include "captions/scc_file.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kFrame = 1001 / 30000.0;

// Codes without parity, one pair a frame.
class Feed {
 public:
  Feed& Codes(std::initializer_list<int> codes) {
    for (const int code : codes)
      Send(MakePair(static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code & 0x7F)));
    return *this;
  }
  // A control code, as it is sent.
  Feed& Twice(int code) { return Codes({code, code}); }
  Feed& Text(std::string_view text) {
    for (size_t i = 0; i < text.size(); i += 2)
      Codes({text[i] << 8 | (i + 1 < text.size() ? text[i + 1] : 0)});
    return *this;
  }
  Feed& WaitTo(int frame) {
    while (static_cast<int>(sent_.size()) < frame) Send(kNullPair);
    return *this;
  }
  Feed& Send(Pair pair) {
    screen_.Add(static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair),
                kFrame * static_cast<double>(sent_.size()));
    sent_.push_back(pair);
    return *this;
  }
  const std::vector<StyledCaption>& Captions() {
    screen_.Finish(kFrame * static_cast<double>(sent_.size()));
    return screen_.captions();
  }
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const StyledCaption& caption : Captions()) texts.push_back(TextOf(caption));
    return texts;
  }
  const std::vector<Pair>& sent() const { return sent_; }

 private:
  Line21Screen screen_;
  std::vector<Pair> sent_;
};

TEST(Line21Screen, PopsOn) {
  Feed feed;
  feed.Twice(0x1420).Twice(0x142E).Twice(0x1470).Text("Hello").WaitTo(20).Twice(0x142F).WaitTo(50).Twice(
      0x142C);
  const auto& captions = feed.Captions();
  ASSERT_EQ(captions.size(), 1u);
  EXPECT_NEAR(captions[0].begin, 20 * kFrame, 1e-9);
  EXPECT_NEAR(captions[0].end, 50 * kFrame, 1e-9);
  EXPECT_EQ(captions[0].style, CaptionStyle::kPopOn);
  EXPECT_THAT(captions[0].rows, ElementsAre(StyledRow{15, 0, 5, {{"Hello", Look()}}}));
}

TEST(Line21Screen, RollsUp) {
  Feed feed;
  feed.Twice(0x1426).Twice(0x142D).Twice(0x1470).Text("one");  // three rows
  feed.WaitTo(30).Twice(0x142D).Text("two").WaitTo(60).Twice(0x142D).Text("three");
  feed.WaitTo(90).Twice(0x142D).Text("four").WaitTo(120).Twice(0x142C);
  EXPECT_THAT(feed.Texts(), ElementsAre("one", "one\ntwo", "one\ntwo\nthree", "two\nthree\nfour"));
  const auto& captions = feed.Captions();
  EXPECT_EQ(captions[2].style, CaptionStyle::kRollUp);
  EXPECT_EQ(captions[2].rows[0].row, 13);
  EXPECT_EQ(captions[2].rows[2].row, 15);
  EXPECT_NEAR(captions[1].begin, 30 * kFrame, 1e-9);
  EXPECT_NEAR(captions[1].end, 60 * kFrame, 1e-9);
}

TEST(Line21Screen, MovesTheRowsThatRollUp) {
  Feed feed;
  feed.Twice(0x1425).Twice(0x142D).Twice(0x1470).Text("one").Twice(0x142D).Text("two").Twice(0x1340).Text(
      "ab");
  const auto& captions = feed.Captions();
  ASSERT_EQ(captions.size(), 2u);
  EXPECT_EQ(captions[1].rows[0].row, 11);
  EXPECT_EQ(captions[1].rows[1].row, 12);
  EXPECT_EQ(TextOf(captions[1]), "one\nabo");
}

TEST(Line21Screen, PaintsOn) {
  Feed feed;
  feed.Twice(0x1429).Twice(0x1150).WaitTo(10).Text("Pa").WaitTo(20).Text("int").WaitTo(40).Twice(0x142C);
  const auto& captions = feed.Captions();
  ASSERT_EQ(captions.size(), 1u);
  EXPECT_EQ(captions[0].style, CaptionStyle::kPaintOn);
  EXPECT_NEAR(captions[0].begin, 10 * kFrame, 1e-9);
  EXPECT_NEAR(captions[0].end, 40 * kFrame, 1e-9);
  EXPECT_EQ(captions[0].rows[0].row, 1);
  EXPECT_EQ(TextOf(captions[0]), "Paint");
}

TEST(Line21Screen, HasColoursItalicsAndLinesBelow) {
  Feed feed;
  // Row 14 in yellow with a line below (14 4B), mid-row italics (11 2E), then cyan (11 26).
  feed.Twice(0x1420).Twice(0x144B).Text("ab").Twice(0x112E).Text("cd").Twice(0x1126).Text("e").Twice(0x142F);
  const Look yellow{Line21Colour::kYellow, false, true};
  const Look italic{Line21Colour::kYellow, true, false};
  const Look cyan{Line21Colour::kCyan, false, false};
  ASSERT_EQ(feed.Captions().size(), 1u);
  EXPECT_THAT(feed.Captions()[0].rows,
              ElementsAre(StyledRow{14, 0, 7, {{"ab ", yellow}, {"cd ", italic}, {"e", cyan}}}));
}

TEST(Line21Screen, KnowsEveryRow) {
  // First byte and whether the second is the higher one, rows 1 to 15.
  constexpr int kCodes[] = {0x1140, 0x1160, 0x1240, 0x1260, 0x1540, 0x1560, 0x1640, 0x1660,
                            0x1740, 0x1760, 0x1040, 0x1340, 0x1360, 0x1440, 0x1460};
  for (int row = 1; row <= 15; ++row) {
    Feed feed;
    feed.Twice(0x1420).Twice(kCodes[row - 1]).Text("A").Twice(0x142F);
    ASSERT_EQ(feed.Captions().size(), 1u) << row;
    EXPECT_EQ(feed.Captions()[0].rows[0].row, row);
  }
}

TEST(Line21Screen, CarriesOutTheOtherCodes) {
  Feed backspace;
  backspace.Twice(0x1420).Twice(0x1470).Text("abc").Twice(0x1421).Text("d").Twice(0x142F);
  EXPECT_THAT(backspace.Texts(), ElementsAre("abd"));
  Feed toEnd;  // row 15 from its fifth column on
  toEnd.Twice(0x1420).Twice(0x1470).Text("abcdefgh").Twice(0x1472).Twice(0x1424).Twice(0x142F);
  EXPECT_THAT(toEnd.Texts(), ElementsAre("abcd"));
  Feed tab;
  tab.Twice(0x1420).Twice(0x1476).Twice(0x1723).Text("x").Twice(0x142F);
  EXPECT_EQ(tab.Captions()[0].rows[0].column, 15);
  Feed hidden;
  hidden.Twice(0x1420).Twice(0x1470).Text("x").Twice(0x142E).Twice(0x142F);
  EXPECT_THAT(hidden.Texts(), IsEmpty());
  Feed last;  // what goes past the last column stays there
  last.Twice(0x1420).Twice(0x147E).Text("abcdef").Twice(0x142F);
  EXPECT_EQ(last.Captions()[0].rows[0], (StyledRow{15, 28, 4, {{"abcf", Look()}}}));
  Feed extended;  // which replaces the character in front of it, in the last column too
  extended.Twice(0x1420).Twice(0x147E).Text("abcA").Twice(0x1330).Twice(0x142F);
  EXPECT_THAT(extended.Texts(), ElementsAre("abc\xC3\x84"));
}

TEST(Line21Screen, HearsCodesOnceAndCharactersTwice) {
  Feed feed;
  feed.Twice(0x1420).Twice(0x1470).Text("haha").Twice(0x1137).Twice(0x1137).Twice(0x142F);
  EXPECT_THAT(feed.Texts(), ElementsAre("haha\xE2\x99\xAA\xE2\x99\xAA"));
}

TEST(Line21Screen, ShowsWhereParityIsWrong) {
  Feed feed;
  feed.Twice(0x1420).Twice(0x1470).Send(0x6142).Send(0x1430).Twice(0x142F);
  EXPECT_THAT(feed.Texts(), ElementsAre("a\xE2\x96\x88"));
  Feed nothing;  // characters without a mode
  nothing.Text("abc").Twice(0x142C);
  EXPECT_THAT(nothing.Texts(), IsEmpty());
}

// What libavcodec's decoder makes of pairs, one a frame: text without tags, times in seconds.
struct Told {
  double begin, end;
  std::string text;
};
std::vector<Told> ByLibav(const std::string& name, const std::vector<Pair>& pairs) {
  SccFile file;
  for (size_t i = 0; i < pairs.size(); ++i)
    file.lines.push_back({TimecodeOf(static_cast<int64_t>(i), 30, false), {pairs[i]}});
  const std::string path = qln::test::MediaPath(name);
  const std::string text = WriteScc(file);
  std::FILE* const out = std::fopen(path.c_str(), "wb");
  EXPECT_NE(out, nullptr);
  std::fwrite(text.data(), 1, text.size(), out);
  std::fclose(out);
  const auto result = qln::test::Run("ffmpeg -v error -i '" + path + "' -f srt -");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::vector<Told> told;
  const auto time = [](const std::string& line, size_t at) {
    int h = 0, m = 0, s = 0, ms = 0;
    EXPECT_EQ(std::sscanf(line.c_str() + at, "%d:%d:%d,%d", &h, &m, &s, &ms), 4);
    return h * 3600 + m * 60 + s + ms / 1000.0;
  };
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" --> ") == std::string::npos) continue;
    Told one{time(line, 0), time(line, 17), ""};
    while (std::getline(lines, line) && !line.empty()) {
      bool tag = false;
      std::string plain;
      for (const char c : line) {
        if (c == '<' || c == '{') tag = true;
        if (!tag && c != '\r') plain += c;
        if (c == '>' || c == '}') tag = false;
      }
      // It fills rows up, so that their places show.
      for (size_t blank = 0; (blank = plain.find("\\h")) != std::string::npos;) plain.erase(blank, 2);
      one.text += (one.text.empty() ? "" : "\n") + plain;
    }
    told.push_back(one);
  }
  return told;
}

void ExpectSame(const std::vector<StyledCaption>& captions, const std::vector<Told>& told) {
  ASSERT_EQ(captions.size(), told.size());
  for (size_t i = 0; i < told.size(); ++i) {
    EXPECT_EQ(TextOf(captions[i]), told[i].text);
    // It counts 33 ms a frame and a second for 30.
    EXPECT_NEAR(captions[i].begin, told[i].begin, 0.05) << i;
    EXPECT_NEAR(captions[i].end, told[i].end, 0.05) << i;
  }
}

TEST(Line21Screen, AgreesWithLibavOnRollUp) {
  Feed feed;
  feed.Twice(0x1425).Twice(0x142D).Twice(0x1470).Text("First row").WaitTo(40).Twice(0x142D).Twice(0x1470);
  feed.Text("and the second").WaitTo(80).Twice(0x142D).Twice(0x1470).Text("third").WaitTo(120).Twice(0x142C);
  feed.WaitTo(130).Twice(0x142D).Twice(0x1470).Text("again").WaitTo(160).Twice(0x142C);
  std::vector<StyledCaption> captions = feed.Captions();
  const auto told = ByLibav("screen_roll.scc", feed.sent());
  // Its captions begin with the code in front of their first character, which is when their row was cleared.
  ASSERT_EQ(captions.size(), 4u);
  captions[0].begin = 2 * kFrame;
  captions[3].begin = 130 * kFrame;
  ExpectSame(captions, told);
}

TEST(Line21Screen, AgreesWithLibavOnMadeCaptions) {
  std::string srt;
  const char* const kTexts[] = {
      "Hello, world",
      "Two rows\nof text: \xC3\xA1\xC3\xA9\xC3\xAD\xC3\xB3\xC3\xBA\xC3\xA7\xC3\xB7\xC3\x91\xC3\xB1",
      "\xC2\xAE\xC2\xB0\xC2\xBD\xC2\xBF\xE2\x84\xA2\xC2\xA2\xC2\xA3\xE2\x99\xAA\xC3\xA0\xC3\xA8\xC3\xA2",
      "\xC3\x81\xC3\x89\xC3\x93\xC3\x9A\xC3\x9C\xC3\xBC\xC2\xA1*\xC2\xA9\xE2\x84\xA0",
      "\xC3\x84\xC3\xA4\xC3\x96\xC3\xB6\xC3\x9F\\^_|~\xC3\x85\xC3\xA5\xC3\x98\xC3\xB8"};
  int at = 2;
  for (const char* text : kTexts) {
    char times[80];
    std::snprintf(times, sizeof times, "1\n00:00:%02d,000 --> 00:00:%02d,500\n", at, at + 2);
    srt += times + std::string(text) + "\n\n";
    at += 3;
  }
  std::vector<CueProblem> problems;
  std::string reason;
  const auto cues = ReadCues(srt, &reason);
  ASSERT_TRUE(cues) << reason;
  const auto pairs = Schedule(LayOut(*cues, {}, &problems), Rate::k29_97, false, &problems);
  EXPECT_THAT(problems, IsEmpty());
  Feed feed;
  for (const Pair pair : pairs) feed.Send(pair);
  const auto& captions = feed.Captions();
  ASSERT_EQ(captions.size(), 5u);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(TextOf(captions[i]), kTexts[i]);
    EXPECT_NEAR(captions[i].begin, 2.0 + 3.0 * static_cast<double>(i), kFrame / 2 + 1e-6);
    EXPECT_NEAR(captions[i].end, 4.5 + 3.0 * static_cast<double>(i), kFrame / 2 + 1e-6);
  }
  ExpectSame(captions, ByLibav("screen_made.scc", feed.sent()));
}

}  // namespace
}  // namespace qlnmedia::captions

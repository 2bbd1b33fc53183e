// Captions out of cues: rows and codes by the tables of CTA-608, and when they are sent.

#include "captions/pop_on.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captions/line21_screen.h"
#include "captions/pop_on_schedule.h"
#include "captions/sequencer.h"

namespace qlnmedia::captions {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr Pair kEnm = 0x94AE;  // 14 2E with odd parity, and so on
constexpr Pair kRcl = 0x9420;
constexpr Pair kEoc = 0x942F;
constexpr Pair kEdm = 0x942C;

std::vector<Pair> Flat(const std::vector<CodeUnit>& units) {
  std::vector<Pair> pairs;
  for (const CodeUnit& unit : units) pairs.insert(pairs.end(), unit.twice ? 2 : 1, unit.pair);
  return pairs;
}

std::vector<CueProblem> problems;

std::vector<Pair> PairsOf(const char* text, MakingOptions options = {}, Rate rate = Rate::k29_97) {
  problems.clear();
  std::string reason;
  const auto cues = ReadCues(text, &reason);
  EXPECT_TRUE(cues) << reason;
  const auto captions = LayOut(*cues, options, &problems);
  return Schedule(captions, rate, options.fit, &problems);
}

size_t At(const std::vector<Pair>& pairs, Pair pair, size_t from = 0) {
  return static_cast<size_t>(std::find(pairs.begin() + static_cast<std::ptrdiff_t>(from), pairs.end(), pair) -
                             pairs.begin());
}

TEST(LoadCodes, HaveRowColumnAndCharacters) {
  // Row 15 column 0: 14 70; row 1 column 17: 11 58 (indent 16), tab 17 21; row 11: 10 50.
  EXPECT_THAT(Flat(LoadCodes({{15, 0, U"AB"}})), ElementsAre(kEnm, kEnm, kRcl, kRcl, 0x9470, 0x9470, 0xC1C2));
  EXPECT_THAT(Flat(LoadCodes({{1, 17, U"ABC"}, {11, 0, U"d"}})),
              ElementsAre(kEnm, kEnm, kRcl, kRcl, 0x9158, 0x9158, 0x97A1, 0x97A1, 0xC1C2, 0x4380, 0x10D0,
                          0x10D0, 0x6480));
  // A note is 11 37; twice the same code are kept apart. An extended one stands behind its substitute.
  EXPECT_THAT(Flat(LoadCodes({{15, 0, U"\u266A\u266A"}})),
              ElementsAre(kEnm, kEnm, kRcl, kRcl, 0x9470, 0x9470, 0x9137, 0x9137, kNullPair, 0x9137, 0x9137));
  EXPECT_THAT(Flat(LoadCodes({{15, 0, U"aÄb"}})),
              ElementsAre(kEnm, kEnm, kRcl, kRcl, 0x9470, 0x9470, 0x61C1, 0x13B0, 0x13B0, 0x6280));
}

// The preamble address codes of CTA-608 for white text at the left edge, by row.
TEST(LoadCodes, ReachEveryRow) {
  constexpr Pair kWhite[] = {0x91D0, 0x9170, 0x92D0, 0x9270, 0x15D0, 0x1570, 0x16D0, 0x1670,
                             0x97D0, 0x9770, 0x10D0, 0x13D0, 0x1370, 0x94D0, 0x9470};
  for (int row = 1; row <= 15; ++row) EXPECT_EQ(Flat(LoadCodes({{row, 0, U"A"}}))[4], kWhite[row - 1]) << row;
}

// The attributes of preamble address codes and mid-row codes (CTA-608), parity set.
TEST(LoadCodes, HaveLooks) {
  const auto codes = [](int column, const std::u32string& text, const std::vector<Look>& looks) {
    std::vector<Pair> pairs = Flat(LoadCodes({{15, column, text, looks}}));
    return std::vector<Pair>(pairs.begin() + 4, pairs.end());
  };
  const Look red{Line21Colour::kRed, false, false}, italic{Line21Colour::kWhite, true, false};
  const Look line{Line21Colour::kWhite, false, true}, both{Line21Colour::kCyan, true, true};
  const Look yellow{Line21Colour::kYellow, false, false};
  EXPECT_THAT(codes(0, U"A", {red}), ElementsAre(0x9468, 0x9468, 0xC180));
  EXPECT_THAT(codes(0, U"A", {italic}), ElementsAre(0x946E, 0x946E, 0xC180));
  EXPECT_THAT(codes(0, U"A", {line}), ElementsAre(0x94F1, 0x94F1, 0xC180));
  EXPECT_THAT(codes(2, U"A", {red}), ElementsAre(0x9468, 0x9468, 0x97A2, 0x97A2, 0xC180));
  // Further to the right a mid-row code takes the column in front.
  EXPECT_THAT(codes(5, U"A", {yellow}), ElementsAre(0x94F2, 0x94F2, 0x912A, 0x912A, 0xC180));
  EXPECT_THAT(codes(1, U"A", {both}), ElementsAre(0x9467, 0x9467, 0x912F, 0x912F, 0xC180));
  EXPECT_THAT(codes(10, U"A", {both}), ElementsAre(0x94F4, 0x94F4, 0x91A7, 0x91A7, 0x912F, 0x912F, 0xC180));
  // In the place of a space, and of two where a colour and italics come together.
  EXPECT_THAT(codes(0, U"A B", {Look(), Look(), italic}),
              ElementsAre(0x9470, 0x9470, 0xC180, 0x91AE, 0x91AE, 0xC280));
  EXPECT_THAT(codes(0, U"A  B", {Look(), Look(), Look(), both}),
              ElementsAre(0x9470, 0x9470, 0xC180, 0x91A7, 0x91A7, 0x912F, 0x912F, 0xC280));
  EXPECT_THAT(codes(0, U"A B", {italic, Look(), Look()}),
              ElementsAre(0x946E, 0x946E, 0xC180, 0x9120, 0x9120, 0xC280));
}

// Rows as a decoder shows them: row and column, then text with the looks in front of each run.
std::vector<std::string> ShownOf(const std::string& text, MakingOptions options = {}) {
  Line21Screen screen;
  double seconds = 0;
  for (const Pair pair : PairsOf(text.c_str(), options))
    screen.Add(static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair), seconds += 0.03);
  screen.Finish(seconds);
  std::vector<std::string> rows;
  for (const StyledCaption& caption : screen.captions()) {
    for (const StyledRow& row : caption.rows) {
      std::string line = std::to_string(row.row) + "," + std::to_string(row.column) + " ";
      for (const StyledRun& run : row.runs) {
        line += "{";
        line += "wgbcrym"[static_cast<size_t>(run.look.colour)];
        line += std::string(run.look.italic ? "i" : "") + (run.look.underline ? "u" : "") + "}" + run.text;
      }
      rows.push_back(line);
    }
  }
  return rows;
}

std::string VttOf(const std::string& lines, const std::string& settings = "") {
  return "WEBVTT\n\n00:05.000 --> 00:07.000 " + settings + "\n" + lines + "\n";
}

TEST(Looks, AreWhatADecoderShows) {
  EXPECT_THAT(ShownOf(VttOf("Say <i>good</i> <c.yellow>day</c>\n<u>now</u>, <c.cyan><i>Fred</i></c>")),
              ElementsAre("14,10 {w}Say {wi}good {y}day", "15,11 {wu}now,  {ci}Fred"));
  // The second space that a colour with italics asks for counts; a caption in one look begins with it
  // wherever it stands.
  EXPECT_THAT(ShownOf(VttOf("<c.red>left</c>", "position:10% align:start")), ElementsAre("15,0 {r}left"));
  EXPECT_THAT(ShownOf(VttOf("<c.red><i>left</i></c>", "position:10% align:start")),
              ElementsAre("15,1 {ri}left"));
  EXPECT_THAT(ShownOf(VttOf("<c.red><i>right</i></c>", "align:end")), ElementsAre("15,27 {ri}right"));
  EXPECT_THAT(problems, IsEmpty());
  // A word has one look, that of its first letter.
  EXPECT_THAT(ShownOf(VttOf("<i>Titanic</i>, \"<i>Ben</i>\"")), ElementsAre("15,9 {wi}Titanic, \"Ben\""));
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_THAT(ShownOf(VttOf("un<i>believ</i>able")), ElementsAre("15,10 {w}unbelievable"));
  EXPECT_THAT(problems, ElementsAre(CueProblem{4, "the look of parts of words is left out", true}));
}

TEST(Looks, GoWhereTheyDoNotFit) {
  EXPECT_THAT(ShownOf(VttOf("1234567890 1234567890 12345678 <c.red><i>x</i></c>")),
              ElementsAre("15,0 {w}1234567890 1234567890 12345678 {r}x"));
  EXPECT_THAT(problems,
              ElementsAre(CueProblem{
                  4, "coloured italics are upright, since the row has no room for their codes", true}));
  EXPECT_THAT(ShownOf(VttOf("<c.red><i>1234567890 1234567890 1234567890</i></c>")),
              ElementsAre("15,0 {r}1234567890 {ri}1234567890 1234567890"));
}

TEST(Places, AreThoseOfTheKeypad) {
  const auto srt = [](const std::string& line) {
    return ShownOf("1\n00:00:05,000 --> 00:00:07,000\n" + line + "\n");
  };
  EXPECT_THAT(srt("{\\an8}top"), ElementsAre("1,14 {w}top"));
  EXPECT_THAT(srt("{\\an7}top"), ElementsAre("1,0 {w}top"));
  EXPECT_THAT(srt("{\\an6}mid"), ElementsAre("9,29 {w}mid"));
  EXPECT_THAT(srt("{\\an1}low"), ElementsAre("15,0 {w}low"));
  EXPECT_THAT(ShownOf(VttOf("a\nb", "line:90%,end")), ElementsAre("14,15 {w}a", "15,15 {w}b"));
  EXPECT_THAT(ShownOf(VttOf("a\nb", "line:50%,center")), ElementsAre("8,15 {w}a", "9,15 {w}b"));
}

TEST(Schedule, EndsACaptionsLoadOnThePictureOfItsBegin) {
  const auto pairs = PairsOf("1\n00:00:02,000 --> 00:00:04,000\nHello\n");
  EXPECT_THAT(problems, IsEmpty());
  // 2 s at 29.97 are 59.94 pictures, 4 s are 119.88.
  EXPECT_EQ(At(pairs, kEoc), 60u);
  EXPECT_EQ(pairs[61], kEoc);
  EXPECT_EQ(At(pairs, kEdm), 120u);
  EXPECT_EQ(pairs.size(), 122u);
  // ENM, RCL, PAC and tab twice, three pairs of characters in front of it.
  EXPECT_EQ(At(pairs, kEnm), 60u - 11u);
  // Hello, five columns, is centred: 13 columns from the left, indent 12 (14 76) and one tab.
  EXPECT_EQ(pairs[53], 0x9476);
  EXPECT_EQ(pairs[55], 0x97A1);
}

TEST(Schedule, ErasesOnlyWhereNothingFollows) {
  const auto pairs = PairsOf(
      "1\n00:00:02,000 --> 00:00:04,000\nA\n\n2\n00:00:04,000 --> 00:00:05,000\nB\n\n"
      "3\n00:00:05,030 --> 00:00:06,000\nC\n\n4\n00:00:07,000 --> 00:00:08,000\nD\n");
  EXPECT_THAT(problems, IsEmpty());
  std::vector<size_t> shown, erased;
  for (size_t i = 0; i < pairs.size(); ++i) {
    if (pairs[i] == kEoc) shown.push_back(i);
    if (pairs[i] == kEdm) erased.push_back(i);
  }
  // A gap of one picture has no room for the codes that erase.
  EXPECT_THAT(shown, ElementsAre(60, 61, 120, 121, 151, 152, 210, 211));
  EXPECT_THAT(erased, ElementsAre(180, 181, 240, 241));
}

// A load that is longer than the gap goes round the codes that erase the caption in front of it, whole.
TEST(Schedule, LoadsAroundWhatErases) {
  const auto pairs = PairsOf(
      "1\n00:00:02,000 --> 00:00:03,000\nA\n\n2\n00:00:03,300 --> "
      "00:00:05,000\nabcdefghijklmnopqrstuvwxyz\n");
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_EQ(At(pairs, kEdm), 90u);
  EXPECT_EQ(pairs[91], kEdm);
  EXPECT_EQ(At(pairs, kEoc, 62), 99u);
  std::vector<Pair> load(pairs.begin() + 62, pairs.begin() + 99);
  std::erase(load, kEdm);
  std::erase(load, kNullPair);
  // ENM, RCL, PAC and tab twice (column 3), and 13 pairs of characters.
  EXPECT_EQ(load.size(), 21u);
  EXPECT_EQ(load[0], kEnm);
  EXPECT_EQ(load[1], kEnm);
  for (size_t i = 0; i + 1 < 8; i += 2) EXPECT_EQ(load[i], load[i + 1]);
}

TEST(Schedule, TellsWhatIsLate) {
  const char* const kLate =
      "1\n00:00:00,100 --> 00:00:02,000\nHello\n\n2\n00:00:02,100 --> 00:00:02,200\nThere\n\n"
      "3\n00:00:02,150 --> 00:00:04,000\nyou\n";
  PairsOf(kLate);
  ASSERT_EQ(problems.size(), 3u);
  // Eleven pairs are to be sent ahead, and there are three pictures: eight are missing, 266.9 ms.
  EXPECT_EQ(problems[0], (CueProblem{2, "\"Hello\" cannot be sent in time: it would be 267 ms late", false}));
  EXPECT_EQ(problems[1].line, 10);
  EXPECT_EQ(problems[1].what, "\"you\" begins before the caption of line 6 ends");
  EXPECT_THAT(problems[2].what, HasSubstr("\"you\" cannot be sent in time"));
  const auto pairs = PairsOf(kLate, {true, false});
  EXPECT_TRUE(problems[0].solved && problems[1].solved && problems[2].solved);
  EXPECT_EQ(At(pairs, kEnm), 0u);
  EXPECT_EQ(At(pairs, kEoc), 11u);
}

TEST(Layout, NamesWhatDoesNotFit) {
  const char* const kLong =
      "1\n00:00:10,000 --> 00:00:16,000\nA line of more than thirty-two characters\n2\n3\n4\n\xE2\x82\xAC\n";
  PairsOf(kLong);
  ASSERT_EQ(problems.size(), 3u);
  EXPECT_EQ(problems[0].line, 3);
  EXPECT_THAT(problems[0].what, HasSubstr("has 41 characters, and a row 32"));
  EXPECT_EQ(problems[1].line, 7);
  EXPECT_EQ(problems[1].what, "U+20AC \"\xE2\x82\xAC\" is no character of line 21");
  EXPECT_THAT(problems[2].what, HasSubstr("a caption of 5 rows, and line 21 shows 4"));

  problems.clear();
  std::string reason;
  const auto captions = LayOut(*ReadCues(kLong, &reason), {true, true}, &problems);
  ASSERT_EQ(captions.size(), 2u);
  EXPECT_EQ(captions[0].text, "A line of more than thirty-two characters 2 3");
  EXPECT_EQ(captions[1].text, "4 EUR");
  EXPECT_EQ(captions[0].end, captions[1].begin);
  EXPECT_EQ(captions[0].end, 14000);  // four of six rows
  EXPECT_EQ(captions[1].end, 16000);
  for (const CueProblem& problem : problems) EXPECT_TRUE(problem.solved);
  // A word without a place to break it.
  problems.clear();
  const std::string word(70, 'x');
  const auto broken = LayOut(*ReadCues("1\n00:00:10,000 --> 00:00:16,000\n" + word + "\n", &reason),
                             {true, false}, &problems);
  ASSERT_EQ(broken.size(), 1u);
  EXPECT_EQ(broken[0].text, std::string(32, 'x') + " " + std::string(32, 'x') + " xxxxxx");
}

std::vector<Pair> FirstPac(const std::string& settings, const std::string& text) {
  const auto pairs = PairsOf(("WEBVTT\n\n00:10.000 --> 00:12.000 " + settings + "\n" + text + "\n").c_str());
  const size_t enm = At(pairs, kEnm);
  return {pairs[enm + 4], pairs[enm + 6]};
}

TEST(Layout, PutsCuesWhereTheyAskToBe) {
  // The safe area: eight tenths of the picture, in 15 rows and 32 columns.
  EXPECT_EQ(FirstPac("line:10% position:10% align:start", "AB")[0], 0x91D0);     // row 1, column 0
  EXPECT_EQ(FirstPac("line:84.67% position:10% align:start", "AB")[0], 0x9470);  // row 15
  EXPECT_EQ(FirstPac("line:-1 align:start", "AB")[0], 0x9470);
  EXPECT_EQ(FirstPac("line:0 align:start", "AB")[0], 0x91D0);
  EXPECT_EQ(FirstPac("line:0 position:20% align:start", "AB")[0], 0x9152);  // column 4
  EXPECT_EQ(FirstPac("line:0 position:90% align:end", "ABCD")[0], 0x915E);  // column 28
  EXPECT_EQ(FirstPac("line:0", "ABCD")[0], 0x91D6);  // column 14: indent 12 and two tabs
  EXPECT_EQ(FirstPac("line:0", "ABCD")[1], 0x97A2);
  EXPECT_EQ(FirstPac("line:100%", "ABCD")[0], 0x9476);
}

// At every rate the pictures have what their rate asks for, and the caption shows on the nearest one that has
// a pair of field 1.
TEST(MadeTrack, IsOfEveryRate) {
  for (int i = 0; i < kRateCount; ++i) {
    const auto rate = static_cast<Rate>(i);
    const RateInfo& info = InfoOf(rate);
    problems.clear();
    std::string reason;
    const auto track =
        MakeCaptionTrack("1\n00:00:02,000 --> 00:00:04,000\nHello\n", rate, {}, &problems, &reason);
    ASSERT_TRUE(track) << reason;
    CaptionPictures pictures(*track, rate, track->FirstHour());
    EXPECT_FALSE(pictures.converted());
    std::vector<int64_t> shown;
    for (int64_t number = 0; !pictures.over(); ++number) {
      const auto triplets = pictures.Next(number);
      EXPECT_EQ(triplets.size(), static_cast<size_t>(info.triplets));
      for (const Triplet& t : triplets) {
        if (t.valid && t.type == CcType::kField1 && t.first == 0x94 && t.second == 0x2F)
          shown.push_back(number);
      }
    }
    ASSERT_EQ(shown.size(), 2u);
    const double wanted = 2.0 * info.numerator / info.denominator;
    EXPECT_NEAR(static_cast<double>(shown[0]), wanted, info.nominal > 30 ? 1.0 : 0.5) << info.name;
  }
  std::string reason;
  EXPECT_FALSE(MakeCaptionTrack("WEBVTT\n", Rate::k25, {}, &problems, &reason));
  EXPECT_EQ(reason, "holds no captions");
}

}  // namespace
}  // namespace qlnmedia::captions

// Caption files: the samples, every shorthand code, every rate, and texts that are refused.

#include <gtest/gtest.h>

#include <string>

#include "captions/mcc_file.h"
#include "captions/scc_file.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::Hex;
using qln::test::ToHex;

std::string Sample(const std::string& name) {
  const qln::test::Bytes bytes = qln::test::ReadFile(std::string(QLN_TEST_DATA) + "/captions/" + name);
  EXPECT_FALSE(bytes.empty()) << name;
  return std::string(bytes.begin(), bytes.end());
}

// ---- Scenarist ----

TEST(SccFile, ReadsAndWritesTheSamples) {
  for (const char* name : {"two_captions_drop_frame.scc", "two_captions_non_drop.scc"}) {
    const std::string text = Sample(name);
    std::string reason;
    const std::optional<SccFile> file = ReadScc(text, &reason);
    ASSERT_TRUE(file) << reason;
    EXPECT_EQ(WriteScc(*file), text);
    ASSERT_EQ(file->lines.size(), 4u);
    EXPECT_EQ(file->lines[0].pairs[0], 0x94AE);
  }
}

TEST(SccFile, ReadsWhatUsersHave) {
  std::string reason;
  const std::optional<SccFile> file = ReadScc(
      "\xEF\xBB\xBFScenarist_SCC V1.0\r\n\r\n01:00:00;02\t9420 94AE\r\n\r\n\r\n  01:00:01;00   942c  942C "
      "\r\n"
      "01:00:02;00",
      &reason);
  ASSERT_TRUE(file) << reason;
  EXPECT_TRUE(file->dropFrame);
  ASSERT_EQ(file->lines.size(), 3u);
  EXPECT_EQ(file->lines[0], (SccLine{{1, 0, 0, 2}, {0x9420, 0x94AE}}));
  EXPECT_EQ(file->lines[1], (SccLine{{1, 0, 1, 0}, {0x942C, 0x942C}}));
  EXPECT_EQ(file->lines[2], (SccLine{{1, 0, 2, 0}, {}}));
}

TEST(SccFile, TakesCommentsAndBrokenLines) {
  std::string reason;
  const std::optional<SccFile> file = ReadScc(
      "// made by hand\rScenarist_SCC V1.0\r// a comment\r01:00:00:00\t9420 94ae\r  942c\t942f\r\r9470\r"
      "01:00:02:00\t942c",
      &reason);
  ASSERT_TRUE(file) << reason;
  ASSERT_EQ(file->lines.size(), 2u);
  EXPECT_EQ(file->lines[0].pairs, (std::vector<Pair>{0x9420, 0x94AE, 0x942C, 0x942F, 0x9470}));
  EXPECT_FALSE(ReadScc("Scenarist_SCC V1.0\n9420\n", &reason));
  EXPECT_EQ(reason, "line 2: no timecode");
  EXPECT_FALSE(ReadScc("Scenarist_SCC V1.0\n00:00:00:00 9420 94\n20\n", &reason));
  EXPECT_EQ(reason, "line 2: not groups of four hexadecimal digits");
  EXPECT_FALSE(ReadScc("Scenarist_SCC V1.0\r\n00:00:00:00 9420\r\n\r\nthe end\r\n", &reason));
  EXPECT_EQ(reason, "line 4: no timecode");
}

TEST(SccFile, NamesTheLineThatIsWrong) {
  const std::pair<const char*, const char*> texts[] = {
      {"", "line 0: not the heading of a Scenarist file"},
      {"Scenarist_SCC V2.0\n", "line 1: not the heading of a Scenarist file"},
      {"Scenarist_SCC V1.0\n\nhello 9420\n", "line 3: no timecode"},
      {"Scenarist_SCC V1.0\n00:00:00:30\t9420\n", "line 2: a timecode that does not exist"},
      {"Scenarist_SCC V1.0\n00:01:00;00\t9420\n", "line 2: a timecode that does not exist"},
      {"Scenarist_SCC V1.0\n00:00:00;00\t942\n", "line 2: not groups of four hexadecimal digits"},
      {"Scenarist_SCC V1.0\n00:00:00;00\t94200\n", "line 2: not groups of four hexadecimal digits"},
      {"Scenarist_SCC V1.0\n00:00:00;00\t94g0\n", "line 2: not groups of four hexadecimal digits"},
      {"Scenarist_SCC V1.0\n00:00:00;00\t9420\n00:00:01:00\t9420\n",
       "line 3: drop-frame and other timecode in one file"},
      {"Scenarist_SCC V1.0\n00:00:01:00\t9420\n00:00:00:00\t9420\n", "line 3: the time goes back"},
  };
  for (const auto& [text, expected] : texts) {
    std::string reason;
    EXPECT_FALSE(ReadScc(text, &reason));
    EXPECT_EQ(reason, expected);
  }
}

TEST(SccFile, SpreadsPairsOverFrames) {
  SccFile file;
  file.lines = {{{1, 0, 0, 0}, {1, 2, 3}}, {{1, 0, 0, 5}, {4}}, {{1, 0, 0, 5}, {5}}};
  EXPECT_EQ(FirstFrame(file), 108000);
  EXPECT_EQ(PairsByFrame(file), (std::vector<Pair>{1, 2, 3, kNullPair, kNullPair, 4, 5}));
  file.dropFrame = true;
  EXPECT_EQ(FirstFrame(file), 107892);
  EXPECT_TRUE(PairsByFrame(SccFile{}).empty());
}

// ---- MacCaption ----

TEST(MccFile, ReadsAndWritesTheSamples) {
  const std::pair<const char*, int> samples[] = {{"one_caption_30df.mcc", 30},
                                                 {"one_caption_24.mcc", 24},
                                                 {"one_caption_25.mcc", 25},
                                                 {"one_caption_50.mcc", 50},
                                                 {"one_caption_60df_v2.mcc", 60}};
  for (const auto& [name, nominal] : samples) {
    const std::string text = Sample(name);
    std::string reason;
    const std::optional<MccFile> file = ReadMcc(text, &reason);
    ASSERT_TRUE(file) << name << ": " << reason;
    EXPECT_EQ(file->nominal, nominal);
    EXPECT_EQ(WriteMcc(*file), text);
    for (const MccLine& line : file->lines) {
      const std::optional<Bytes> cdp = UnwrapAnc(line.anc, &reason);
      ASSERT_TRUE(cdp) << reason;
      const std::optional<CaptionPacket> packet = ReadCdp(*cdp, &reason);
      ASSERT_TRUE(packet) << reason;
      EXPECT_EQ(InfoOf(packet->rate).nominal, nominal);
      EXPECT_EQ(packet->triplets.size(), static_cast<size_t>(InfoOf(packet->rate).triplets));
      EXPECT_EQ(ReadMcc(text, &reason)->lines.size(), file->lines.size());
    }
  }
}

TEST(MccFile, ExpandsEveryShorthand) {
  const std::pair<const char*, const char*> codes[] = {
      {"G", "FA 00 00"},
      {"H", "FA 00 00 FA 00 00"},
      {"I", "FA 00 00 FA 00 00 FA 00 00"},
      {"P", "FB 80 80"},
      {"Q", "FC 80 80"},
      {"R", "FD 80 80"},
      {"S", "96 69"},
      {"T", "61 01"},
      {"U", "E1 00 00 00"},
      {"Z", "00"},
      {"T52S524F67", "61 01 52 96 69 52 4F 67"},
      {"", ""},
      {"a5Fg", ""},
  };
  for (const auto& [text, bytes] : codes) {
    EXPECT_EQ(ExpandAnc(text).value_or(Bytes{}), Hex(bytes)) << text;
  }
  for (int n = 1; n <= 9; ++n) {
    Bytes padding;
    for (int i = 0; i < n; ++i) padding.insert(padding.end(), {0xFA, 0, 0});
    const std::string code(1, static_cast<char>('G' + n - 1));
    EXPECT_EQ(ExpandAnc(code), padding);
    EXPECT_EQ(ShortenAnc(padding), code);
  }
  for (const char* text : {"V", "W", "X", "Y", "g", "1", "123", "1G", "0x", " "})
    EXPECT_FALSE(ExpandAnc(text)) << text;
}

TEST(MccFile, ShortensFromFrontToBack) {
  EXPECT_EQ(ShortenAnc(Hex("61 01 52 96 69")), "T52S");
  EXPECT_EQ(ShortenAnc(Hex("E1 00 00 00 00 E1 00 00")), "UZE1ZZ");
  EXPECT_EQ(ShortenAnc(Hex("FA 00 FA 00 00 FB 80 80 FC 80 80 FD 80 80 FD 80")), "FAZGPQRFD80");
  Bytes eleven;
  for (int i = 0; i < 11; ++i) eleven.insert(eleven.end(), {0xFA, 0, 0});
  EXPECT_EQ(ShortenAnc(eleven), "OH");
}

TEST(MccFile, ExpandsWhatItShortens) {
  qln::test::Random random(3);
  const uint8_t usual[] = {0xFA, 0x00, 0x00, 0xFB, 0xFC, 0xFD, 0x80, 0x80, 0x96, 0x69, 0x61, 0x01, 0xE1};
  for (int round = 0; round < 5000; ++round) {
    Bytes anc(random.below(40));
    for (uint8_t& byte : anc)
      byte = random.below(8) == 0 ? static_cast<uint8_t>(random.next()) : usual[random.below(13)];
    ASSERT_EQ(ExpandAnc(ShortenAnc(anc)), anc) << ToHex(anc);
  }
}

TEST(MccFile, KnowsEveryRate) {
  const std::tuple<const char*, int, bool> rates[] = {
      {"24", 24, false}, {"25", 25, false}, {"30", 30, false}, {"30DF", 30, true},
      {"50", 50, false}, {"60", 60, false}, {"60DF", 60, true}};
  for (const auto& [name, nominal, dropFrame] : rates) {
    std::string reason;
    const std::string text =
        std::string("File Format=MacCaption_MCC V1.0\nTime Code Rate=") + name + "\n00:00:00:23\tT00Z\n";
    const std::optional<MccFile> file = ReadMcc(text, &reason);
    ASSERT_TRUE(file) << reason;
    EXPECT_EQ(file->nominal, nominal);
    EXPECT_EQ(file->dropFrame, dropFrame);
    EXPECT_NE(WriteMcc(*file).find(std::string("Time Code Rate=") + name + "\n"), std::string::npos);
  }
}

TEST(MccFile, ReadsVersionTwo) {
  std::string reason;
  const std::optional<MccFile> file = ReadMcc(
      "File Format=MacCaption_MCC V2.0\r\n\r\n// a comment\r\nUUID=1234\r\nCreation Program=x=y\r\n"
      "Time Code Rate=30DF\r\n\r\n00:00:59:29.1,9\tT01AA62\r\n00:01:00;02,11 "
      "Z\r\n00:01:00:03.0\tZ\r\n00:01:00:04\tZ",
      &reason);
  ASSERT_TRUE(file) << reason;
  EXPECT_EQ(file->version, 2);
  EXPECT_EQ(file->keys, (std::vector<std::pair<std::string, std::string>>{{"UUID", "1234"},
                                                                          {"Creation Program", "x=y"}}));
  ASSERT_EQ(file->lines.size(), 4u);
  EXPECT_EQ(file->lines[0], (MccLine{{0, 0, 59, 29}, 1, 9, Hex("61 01 01 AA 62")}));
  EXPECT_EQ(file->lines[1], (MccLine{{0, 1, 0, 2}, -1, 11, {0}}));
  EXPECT_EQ(file->lines[2], (MccLine{{0, 1, 0, 3}, 0, -1, {0}}));
  EXPECT_EQ(file->lines[3], (MccLine{{0, 1, 0, 4}, -1, -1, {0}}));
  EXPECT_EQ(ReadMcc(WriteMcc(*file), &reason), file);
}

TEST(MccFile, PutsBrokenLinesTogether) {
  const std::string head = "File Format=MacCaption_MCC V1.0\nTime Code Rate=30\n";
  std::string reason;
  std::vector<int> numbers;
  const std::optional<MccFile> file =
      ReadMcc(head + "00:00:00:00\tT01\nA\n// between\nA62\n00:00:00:01\tT\n01AA62\n", &reason, &numbers);
  ASSERT_TRUE(file) << reason;
  ASSERT_EQ(file->lines.size(), 2u);
  EXPECT_EQ(file->lines[0].anc, Hex("61 01 01 AA 62"));
  EXPECT_EQ(file->lines[1].anc, Hex("61 01 01 AA 62"));
  EXPECT_EQ(numbers, (std::vector<int>{3, 7}));
  // The line where the packet began is at fault, whatever stands behind it.
  EXPECT_FALSE(ReadMcc(head + "00:00:00:00\tT01\nA\n00:00:00:01\tT\n", &reason));
  EXPECT_EQ(reason, "line 3: not hexadecimal digits and shorthand");
  EXPECT_FALSE(ReadMcc(head + "AA\n", &reason));
  EXPECT_EQ(reason, "line 3: no timecode");
}

TEST(MccFile, NamesTheLineThatIsWrong) {
  const std::string head = "File Format=MacCaption_MCC V1.0\nTime Code Rate=30DF\n";
  const std::pair<std::string, const char*> texts[] = {
      {"", "line 0: not the heading of a MacCaption file"},
      {"00:00:00:00\tT\n", "line 1: not the heading of a MacCaption file"},
      {"File Format=MacCaption_MCC V3.0\n", "line 1: a format that is not known"},
      {"File Format=MacCaption_MCC V1.0\nTime Code Rate=29\n", "line 2: a rate that is not known"},
      {"File Format=MacCaption_MCC V1.0\nTime Code Rate=25DF\n", "line 2: a rate that is not known"},
      {"File Format=MacCaption_MCC V1.0\n00:00:00:00\tT\n", "line 2: a packet in front of the rate"},
      {head + "00:00:00:29\tT\nTime Code Rate=25\n", "line 4: a rate behind packets"},
      {head + "00:00:00\tT\n", "line 3: no timecode"},
      {head + "00:00:00:00.x\tT\n", "line 3: no timecode"},
      {head + "00:00:00:00,9,\tT\n", "line 3: no timecode"},
      {head + "00:01:00:00\tT\n", "line 3: a timecode that does not exist"},
      {head + "00:00:00:00\tT5\n", "line 3: not hexadecimal digits and shorthand"},
  };
  for (const auto& [text, expected] : texts) {
    std::string reason;
    EXPECT_FALSE(ReadMcc(text, &reason)) << text;
    EXPECT_EQ(reason, expected) << text;
  }
}

// ---- Texts from strangers ----

TEST(CaptionFiles, TakeDamagedTexts) {
  qln::test::Random random(9);
  for (const char* name :
       {"two_captions_drop_frame.scc", "one_caption_30df.mcc", "one_caption_60df_v2.mcc"}) {
    const std::string good = Sample(name);
    for (int round = 0; round < 2000; ++round) {
      std::string text = good.substr(0, random.below(good.size() + 1));
      for (uint64_t n = random.below(4); n > 0 && !text.empty(); --n) {
        text[random.below(text.size())] = static_cast<char>(random.next());
      }
      // An exact-size copy, so that one byte too far is seen.
      qln::test::ExactCopy copy(qln::test::Bytes(text.begin(), text.end()));
      const std::string_view view(reinterpret_cast<const char*>(copy.data()), copy.size());
      std::string reason;
      if (const auto scc = ReadScc(view, &reason)) {
        EXPECT_EQ(ReadScc(WriteScc(*scc), &reason), scc);
        PairsByFrame(*scc);
      }
      if (const auto mcc = ReadMcc(view, &reason)) {
        for (const MccLine& line : mcc->lines) {
          const auto cdp = UnwrapAnc(line.anc, &reason);
          if (cdp) ReadCdp(*cdp, &reason);
        }
      }
    }
  }
}

}  // namespace
}  // namespace qlnmedia::captions

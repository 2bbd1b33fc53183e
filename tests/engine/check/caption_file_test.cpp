// Caption files with faults planted by hand: each is named once, with its line, and hides no other.

#include "check/caption_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captions/mcc_file.h"
#include "captions/sequencer.h"
namespace qlnmedia {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Each finding as "word severity xCOUNT: text".
std::vector<std::string> Check(const std::string& path, const std::string& text) {
  FindingList list;
  CheckCaptionFile(path, text, list);
  std::vector<std::string> lines;
  for (const Finding& finding : list.findings())
    lines.push_back(std::string(FindingWord(finding.kind)) + " " + SeverityWord(finding.severity) + " x" +
                    std::to_string(finding.count) + ": " + finding.text);
  return lines;
}

std::vector<std::string> Scc(const std::string& lines) {
  return Check("file.scc", "Scenarist_SCC V1.0\n\n" + lines);
}

TEST(SccChecks, SoundFilesAreQuiet) {
  EXPECT_THAT(Scc("01:00:00:00\t94ae 94ae 9420 9420 9470 9470 c84f 942f 942f\n\n01:00:02:00\t942c 942c\n"),
              IsEmpty());
  EXPECT_THAT(Scc("00:00:59;29\t9420 9420\n// note\n00:01:00;03\t942c\n942c\n"), IsEmpty());
}

TEST(SccChecks, NameLabelsThatDoNotExist) {
  // Numbers 00 and 01 of a minute are left out, but for each tenth.
  EXPECT_THAT(
      Scc("00:00:59;29\t9420 9420\n00:01:00;00\t942c 942c\n00:01:00;01\t942c 942c\n00:10:00;00\t942c 942c\n"
          "00:11:61;00\n00:12:00:05\t942c 942c\n00:11:00;05\t942c 942c\nlater:\t942c 942c\n"),
      ElementsAre("timecode error x3: line 4: a timecode that does not exist in drop-frame counting",
                  "timecode error x1: line 8: drop-frame and other timecode in one file",
                  "timecode error x1: line 9: the time goes back", "damage error x1: line 10: no timecode"));
}

TEST(SccChecks, NamePairsThatAreNone) {
  EXPECT_THAT(Scc("00:00:01:00\t9420 9420 9520 c1c2 c1c3\n00:00:02:00\t94b3 94b3 8561 10e0 10e0 c101 80c1\n"
                  "00:00:03:00\t12345 12 94xx\n00:00:04:00\t942c\n"),
              ElementsAre("damage error x2: line 3: a pair whose parity is wrong",
                          "captions error x2: line 4: an illegal pair, 94 b3",
                          "captions error x1: line 4: an illegal pair, 85 61",
                          "captions error x2: line 4: an illegal pair, 10 e0",
                          "captions error x1: line 4: an illegal pair, c1 01",
                          "captions error x1: line 4: an illegal pair, 80 c1",
                          "damage error x3: line 5: not a group of four hexadecimal digits",
                          "captions note x1: line 6: a control code that is sent only once"));
}

TEST(SccChecks, NameCaptionsThatComeTooEarly) {
  EXPECT_THAT(
      Scc("00:00:01:00\t9420 9420 c1c2 c1c2 c1c2\n00:00:01:03\t942f 942f\n00:00:01:07\t942c 942c\n"),
      ElementsAre("captions warning x1: line 4: begins 2 frames before the pairs of line 3 are sent"));
  EXPECT_THAT(Check("file.scc", "Scenarist\n"),
              ElementsAre("damage error x1: holds no captions",
                          "damage error x1: line 1: not the heading of a Scenarist file"));
}

// A file of 25 pictures a second, one packet each.
struct Mcc {
  std::vector<captions::Bytes> cdps;
  explicit Mcc(size_t count = 6) {
    captions::Sequencer sequencer(captions::Rate::k25);
    sequencer.AddPairs(1, {0x9420, 0x9420, 0x9470, 0x9470, 0xC1C2});
    for (size_t i = 0; i < count; ++i) cdps.push_back(captions::WriteCdp(sequencer.NextPacket()));
  }
  static void Sum(captions::Bytes& cdp) {
    uint8_t sum = 0;
    cdp.back() = 0;
    for (const uint8_t byte : cdp) sum = static_cast<uint8_t>(sum + byte);
    cdp.back() = static_cast<uint8_t>(-sum);
  }
  std::string Text(const std::string& rate = "25") const {
    std::string text = "File Format=MacCaption_MCC V1.0\n\nUUID=x\nTime Code Rate=" + rate + "\n\n";
    for (size_t i = 0; i < cdps.size(); ++i) {
      captions::MccLine line;
      line.at = {0, 0, 0, static_cast<int>(i)};
      line.anc = captions::WrapInAnc(cdps[i]);
      line.anc.push_back(captions::AncChecksum(line.anc));
      text += captions::WriteMccLine(line);
    }
    return text;
  }
};

TEST(MccChecks, SoundFilesAreQuiet) { EXPECT_THAT(Check("file.mcc", Mcc().Text()), IsEmpty()); }

// A CDP: identifier 2, length 1, rate 1, flags 1, counter 2, cc_data id and count 2, 24 triplets, footer 1,
// counter 2, checksum 1. Each is damaged in turn; the first packet stands in line 6.
TEST(MccChecks, NameDamageInEverySection) {
  const std::tuple<size_t, uint8_t, bool, const char*> damages[] = {
      {0, 0x95, true, "no cdp_identifier"},
      {2, 0x50, true, "cdp_length is not the packet's"},
      {3, 0xFF, true, "cdp_frame_rate is reserved"},
      {7, 0x70, true, "a section is not known"},
      {8, 0xFF, true, "the packet is too short for its sections"},
      {10, 0x55, false, "the checksum is wrong"},
      {81, 0x75, true, "a section is not known"},
      {83, 0x77, true, "the counters of header and footer differ"},
  };
  for (const auto& [at, value, sum, reason] : damages) {
    Mcc file;
    ASSERT_EQ(file.cdps[2].size(), 85u);
    file.cdps[2][at] = value;
    if (sum) Mcc::Sum(file.cdps[2]);
    EXPECT_THAT(Check("file.mcc", file.Text()),
                ElementsAre("damage error x1: line 8: " + std::string(reason)))
        << at;
  }
  std::string text = Mcc().Text();
  const size_t end = text.rfind('\n');
  text[end - 1] = text[end - 1] == '0' ? '1' : '0';
  EXPECT_THAT(Check("file.mcc", text), ElementsAre("damage error x1: line 11: the ANC checksum is wrong"));
  EXPECT_THAT(Check("file.mcc", Mcc().Text() + "00:00:00:08\tT5x\n"),
              ElementsAre("damage error x1: line 12: not hexadecimal digits and shorthand"));
}

TEST(MccChecks, NameGapsRatesAndLabels) {
  Mcc gap;
  gap.cdps.erase(gap.cdps.begin() + 2);
  EXPECT_THAT(Check("file.mcc", gap.Text()),
              ElementsAre("captions warning x1: line 8: a gap in the packets' sequence counter"));
  EXPECT_THAT(
      Check("file.mcc", Mcc(2).Text("30")),
      ElementsAre(
          "rate warning x2: line 6: a packet of 25 pictures a second, and the file's labels count 30"));
  EXPECT_THAT(
      Check("file.mcc", Mcc(0).Text("30DF") + "00:01:00;01\tT0\n00:01:00;60\tT0\n"),
      testing::Contains("timecode error x2: line 6: a timecode that does not exist in drop-frame counting"));
  Mcc wrong(2);
  wrong.cdps[1][10] = 0x14;  // a byte of the first pair, its parity gone
  Mcc::Sum(wrong.cdps[1]);
  EXPECT_THAT(Check("file.mcc", wrong.Text()),
              testing::Contains("damage error x1: line 7: a pair whose parity is wrong"));
  EXPECT_THAT(Check("file.mcc", "hello"), testing::Contains(HasSubstr("the head of the file is none")));
}

TEST(CueChecks, NameWhatCannotBeSent) {
  EXPECT_THAT(Check("file.srt", "1\n00:00:02,000 --> 00:00:04,000\nHello\n"), IsEmpty());
  EXPECT_THAT(
      Check("file.vtt", "WEBVTT\n\n00:00.100 --> 00:04.000\nHello \xE2\x82\xAC\n"),
      ElementsAre("captions warning x1: line 3: \"Hello\" cannot be sent in time: it would be 267 ms late",
                  "captions warning x1: line 4: U+20AC \"\xE2\x82\xAC\" is no character of line 21"));
  EXPECT_THAT(Check("file.srt", "1\n00:00:02,000 --> 00:00:01,000\nHello\n"),
              ElementsAre("damage error x1: line 2: a cue that ends before it begins"));
}

}  // namespace
}  // namespace qlnmedia

// Ancillary data tracks of MXF, put together byte by byte from the tables of ST 436, ST 291 and ST 334.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mxf/caption_files.h"
#include "qlnmedia/check.h"
#include "qlnmedia/error.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"
#include "support/fed_pipe.h"

namespace qln::test {
namespace {

using qlnmedia::CaptionFileKind;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

void Put(Bytes& to, uint64_t value, size_t bytes) {
  while (bytes-- != 0) to.push_back(static_cast<uint8_t>(value >> 8 * bytes));
}

void Put(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

// A picture of MPEG-2, 16 by 16.
const Bytes kPicture =
    Hex("000001B3010010"
        "15FFFFE000"
        "000001B5148200010000"
        "00000100000FFFF8"
        "000001B58FFFF38180"
        "0000010113F000");

// A caption distribution packet of ST 334-2 with one pair of field 1 in `count` triplets, and, where asked
// for, the service "eng" of digital captions.
Bytes Cdp(int rateCode, int count, uint16_t counter, uint8_t first, uint8_t second, bool announced = false) {
  Bytes cdp = {0x96,
               0x69,
               0,
               static_cast<uint8_t>(rateCode << 4 | 0x0F),
               static_cast<uint8_t>(announced ? 0x77 : 0x43),
               static_cast<uint8_t>(counter >> 8),
               static_cast<uint8_t>(counter),
               0x72,
               static_cast<uint8_t>(0xE0 | count)};
  Put(cdp, Bytes{0xFC, first, second});
  for (int i = 1; i < count; ++i) Put(cdp, i == 1 ? Bytes{0xFD, 0x80, 0x80} : Bytes{0xFA, 0, 0});
  if (announced) {
    Put(cdp, Bytes{0x73, 0xF2});
    Put(cdp, Bytes{0xE0, 'e', 'n', 'g', 0x7E, 0x3F, 0xFF});  // line 21 field 1
    Put(cdp, Bytes{0xE1, 's', 'p', 'a', 0xC1, 0xFF, 0xFF});  // service 1, easy reader, wide
  }
  Put(cdp, Bytes{0x74, static_cast<uint8_t>(counter >> 8), static_cast<uint8_t>(counter), 0});
  cdp[2] = static_cast<uint8_t>(cdp.size());
  uint8_t sum = 0;
  for (const uint8_t byte : cdp) sum = static_cast<uint8_t>(sum + byte);
  cdp.back() = static_cast<uint8_t>(-sum);
  return cdp;
}

// An element with one entry of eight bits: line, wrapping, the packet, its checksum, fill.
Bytes Element(int line, uint8_t wrapping, uint8_t sdid, const Bytes& words, uint8_t spoilt = 0) {
  Bytes packet = {0x61, sdid, static_cast<uint8_t>(words.size())};
  Put(packet, words);
  uint8_t sum = 0;
  for (const uint8_t byte : packet) sum = static_cast<uint8_t>(sum + byte);
  packet.push_back(static_cast<uint8_t>(sum ^ spoilt));
  Bytes element;
  Put(element, 1, 2);
  Put(element, static_cast<uint64_t>(line), 2);
  Put(element, wrapping, 1);
  Put(element, 4, 1);
  Put(element, packet.size(), 2);
  packet.resize((packet.size() + 3) / 4 * 4);
  Put(element, packet.size(), 4);
  Put(element, 1, 4);
  Put(element, packet);
  return element;
}

// Pairs that show "HELLO" from the picture of the last one on.
const std::vector<std::pair<uint8_t, uint8_t>> kPairs = {
    {0x94, 0xAE}, {0x94, 0xAE}, {0x94, 0x20}, {0x94, 0x20}, {0x94, 0x70}, {0x94, 0x70},
    {0xC8, 0x45}, {0x4C, 0x4C}, {0x4F, 0x80}, {0x94, 0x2F}, {0x94, 0x2F}, {0x80, 0x80}};

struct Rate {
  int code;  // cdp_frame_rate
  uint32_t rate, scale;
  int triplets;
  uint8_t wrapping;
};

MadeOptions Made(const Rate& rate, std::vector<Bytes> elements) {
  MadeOptions made;
  made.coded = Coded::kMpeg2;
  made.rate = rate.rate;
  made.rateScale = rate.scale;
  made.ancillaryElements = std::move(elements);
  return made;
}

std::string MadeMxf(const std::string& name, const MadeOptions& made) {
  return Save(name, MakeFile(std::vector<Bytes>(kPairs.size(), kPicture), made));
}

const Rate kNtsc = {4, 30000, 1001, 20, 1};

std::vector<Bytes> Elements(const Rate& rate, bool announced = false) {
  std::vector<Bytes> elements;
  for (size_t i = 0; i < kPairs.size(); ++i)
    elements.push_back(Element(9, rate.wrapping, 0x01,
                               Cdp(rate.code, rate.triplets, static_cast<uint16_t>(i), kPairs[i].first,
                                   kPairs[i].second, announced)));
  return elements;
}

std::vector<std::string> Told(const std::string& path, std::string* text) {
  std::vector<std::string> told;
  qlnmedia::CaptionSourceOptions source;
  source.told = [&told](const std::string& line) { told.push_back(line.substr(line.find(": ") + 2)); };
  *text = qlnmedia::CaptionFileText(path, CaptionFileKind::kScc, {}, {}, {}, source);
  return told;
}

TEST(MxfAncillary, CaptionPacketsAtEveryRate) {
  for (const Rate& rate : {Rate{1, 24000, 1001, 25, 4}, Rate{2, 24, 1, 25, 4}, Rate{3, 25, 1, 24, 2},
                           Rate{4, 30000, 1001, 20, 3}, Rate{5, 30, 1, 20, 1}, Rate{6, 50, 1, 12, 4},
                           Rate{7, 60000, 1001, 10, 4}, Rate{8, 60, 1, 10, 4}}) {
    const std::string path = MadeMxf("mxf_anc_rate.mxf", Made(rate, Elements(rate)));
    const qlnmedia::FileCaptions captions = qlnmedia::ReadFileCaptions(path);
    EXPECT_EQ(captions.stream, 2u);
    EXPECT_EQ(captions.pictures, kPairs.size());
    ASSERT_EQ(captions.services.size(), 1u) << rate.code;
    ASSERT_EQ(captions.services[0].lines.size(), 1u) << rate.code;
    EXPECT_EQ(captions.services[0].lines[0].text, "HELLO");
    EXPECT_NEAR(captions.services[0].lines[0].begin, 9.0 * rate.scale / rate.rate, 1e-6);
    // The very triplets of each picture: .mcc has a packet of each, which differs in nothing else.
    const std::string anc = qlnmedia::CaptionFileText(path, CaptionFileKind::kAnc);
    const uint8_t wrapping = rate.rate / rate.scale > 31 ? 4 : 1;
    std::string expected;
    for (size_t i = 0; i < kPairs.size(); ++i) {
      const Bytes element =
          Element(9, wrapping, 0x01,
                  Cdp(rate.code, rate.triplets, static_cast<uint16_t>(i), kPairs[i].first, kPairs[i].second));
      expected.append(element.begin(), element.end());
    }
    EXPECT_EQ(anc, expected) << rate.code;
    // And back.
    const std::string file = Save("mxf_anc_rate.anc", Bytes(anc.begin(), anc.end()));
    EXPECT_EQ(Mcc(file), Mcc(path));
    EXPECT_EQ(qlnmedia::CaptionFileText(file, CaptionFileKind::kAnc), anc);
  }
}

TEST(MxfAncillary, PairsOfBothFieldsWithoutRate) {
  std::vector<Bytes> elements;
  for (const auto& [first, second] : kPairs) {
    Bytes element = Element(21, 2, 0x02, {0x8C, first, second});
    const Bytes other = Element(284, 3, 0x02, {0x0C, 0x15, 0xAE});
    element.insert(element.end(), other.begin() + 2, other.end());
    element[1] = 2;
    elements.push_back(element);
  }
  const std::string path = MadeMxf("mxf_anc_pairs.mxf", Made({0, 25, 1, 24, 2}, elements));
  const std::string text = Mcc(path);
  EXPECT_THAT(text, HasSubstr("Time Code Rate=25"));
  EXPECT_THAT(text, HasSubstr("FC94AEFD15AE"));
}

TEST(MxfAncillary, DamageLosesItsPictureAndNothingElse) {
  std::string whole, text;
  Told(MadeMxf("mxf_anc_whole.mxf", Made(kNtsc, Elements(kNtsc))), &whole);
  // In the second of two that say the same: the checksum of the packet, of the CDP, of both; an element that
  // breaks off; one whose count of entries is too high.
  const std::vector<Bytes> good = Elements(kNtsc);
  std::vector<Bytes> elements = good;
  elements[1] = Element(9, 1, 0x01, Cdp(4, 20, 1, 0x94, 0xAE), 1);
  Bytes cdp = Cdp(4, 20, 3, 0x94, 0x20);
  cdp[20] ^= 1;
  elements[3] = Element(9, 1, 0x01, cdp);
  elements[5].resize(40);
  elements[10] = Element(9, 1, 0x01, cdp);
  const std::string path = MadeMxf("mxf_anc_damaged.mxf", Made(kNtsc, elements));
  const std::vector<std::string> told = Told(path, &text);
  ASSERT_EQ(told.size(), 3u);
  EXPECT_THAT(told[0],
              testing::MatchesRegex("stream 2: packet 1 at byte [0-9]+: an ANC packet whose checksum is "
                                    "wrong; left out"));
  EXPECT_THAT(told[1], testing::MatchesRegex("stream 2: packet 3 at byte [0-9]+: the checksum is wrong \\(2 "
                                             "packets\\); left out"));
  EXPECT_THAT(told[2],
              testing::MatchesRegex("stream 2: packet 5 at byte [0-9]+: an element of ancillary data "
                                    "that breaks off; left out"));
  const auto services = qlnmedia::ReadFileCaptions(path).services;
  ASSERT_EQ(services.size(), 1u);
  ASSERT_EQ(services[0].lines.size(), 1u);
  EXPECT_EQ(services[0].lines[0].text, "HELLO");
  // Padding stands in the damaged pictures.
  const std::string anc = qlnmedia::CaptionFileText(path, CaptionFileKind::kAnc);
  EXPECT_EQ(anc.size(), good.size() * good[0].size());
  EXPECT_THAT(Mcc(path), HasSubstr("\n00:00:00:03\tT49S494F43Z0372F4QRO"));
}

TEST(MxfAncillary, IsInspectedAndChecked) {
  std::vector<Bytes> elements = Elements(kNtsc, true);
  // An active format description beside the captions of one.
  Bytes more = Hex("0002");
  Put(more, Bytes(elements[2].begin() + 2, elements[2].end()));
  Put(more, Hex("000B 01 05 000B 0000000C 00000001 410508 4400000000000000 00"));
  elements[2] = more;
  const std::string sound = MadeMxf("mxf_anc_inspected.mxf", Made(kNtsc, elements));
  const std::string report = qlnmedia::InspectFile(sound).ToJson(-1);
  for (
      const char* const said :
      {R"-("caption_form":"ST 436")-", R"-("captions":["CC1"])-",
       R"-("did":97,"sdid":1,"name":"captions (CDP, ST 334-1)","samples":"luma","packets":12,"lines":[9])-",
       R"-("did":65,"sdid":5,"name":"active format and bar data (ST 2016-3)","samples":"colour difference","packets":1,"lines":[11])-",
       R"-("name":"service 1","language":"spa","easy_reader":true,"wide_aspect_ratio":true)-",
       R"-("name":"line 21 field 1","language":"eng")-"})
    EXPECT_THAT(report, HasSubstr(said));
  for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(sound))
    EXPECT_NE(finding.stream, 2u) << finding.text;
  Bytes cdp = Cdp(4, 20, 3, 0x94, 0x20);
  cdp[20] ^= 1;
  elements[3] = Element(9, 1, 0x01, cdp);
  elements[5] = Element(9, 1, 0x01, Cdp(4, 20, 5, 0x94, 0x70), 1);
  elements[7] = Element(9, 1, 0x01, Cdp(4, 19, 9, 0x4C, 0x4D));
  std::vector<std::string> found;
  for (const qlnmedia::Finding& finding :
       qlnmedia::CheckFile(MadeMxf("mxf_anc_checked.mxf", Made(kNtsc, elements)))) {
    if (finding.stream == 2)
      found.push_back(std::to_string(finding.frame) + " " + qlnmedia::FindingWord(finding.kind) + ": " +
                      finding.text);
  }
  EXPECT_THAT(found, ::testing::UnorderedElementsAre(
                         "3 damage: a damaged caption packet (CDP): the checksum is wrong",
                         "5 damage: an ANC packet whose checksum is wrong",
                         "6 captions: a gap in the packets' sequence counter",
                         "7 captions: a packet of 19 triplets, and its rate asks for 20",
                         "7 damage: a pair whose parity is wrong",
                         "2 captions: a control code that is sent only once"));
}

MadeOptions MadeOfLines() {
  // A line of luma samples with a packet behind its data flag, beside a waveform.
  std::vector<Bytes> elements;
  for (const auto& [first, second] : kPairs) {
    const Bytes packet = {0x61,
                          0x02,
                          0x03,
                          0x80,
                          first,
                          second,
                          static_cast<uint8_t>(0x61 + 0x02 + 0x03 + 0x80 + first + second)};
    Bytes line = Hex("10100000FFFF");
    line.erase(line.begin() + 2);
    Put(line, packet);
    line.resize(32, 0x10);
    Bytes element;
    Put(element, 2, 2);
    for (const Bytes& samples : {Bytes(32, 0x7E), line}) {
      Put(element, 21, 2);
      Put(element, 0x0204, 2);
      Put(element, samples.size(), 2);
      Put(element, samples.size(), 4);
      Put(element, 1, 4);
      Put(element, samples);
    }
    elements.push_back(element);
  }
  MadeOptions made = Made(kNtsc, elements);
  made.ancillaryLines = true;
  return made;
}

TEST(MxfAncillary, LinesOfTheVerticalBlankingInterval) {
  std::string text;
  EXPECT_THAT(Told(MadeMxf("mxf_anc_lines.mxf", MadeOfLines()), &text), IsEmpty());
  EXPECT_THAT(text, HasSubstr("c845 4c4c 4f80 942f 942f"));
}

// A pipe says in its descriptors what its elements hold.
TEST(MxfAncillary, ComeThroughAPipe) {
  const auto found = [](const std::string& path) {
    std::vector<std::string> lines;
    for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(path)) {
      if (finding.stream == 2) lines.push_back(std::to_string(finding.frame) + finding.text);
    }
    return lines;
  };
  const auto reported = [](const std::string& path) {
    const std::string report = qlnmedia::InspectFile(path).ToJson(-1);
    const size_t at = report.find(R"("caption_form")");
    EXPECT_NE(at, std::string::npos);
    return at == std::string::npos ? ""
                                   : report.substr(at, report.find("]", report.find("lines\":", at)) - at);
  };
  std::vector<Bytes> elements = Elements(kNtsc);
  elements[5] = Element(9, 1, 0x01, Cdp(4, 20, 5, 0x94, 0x70), 1);
  for (const std::string& path : {MadeMxf("mxf_anc_pipe.mxf", Made(kNtsc, elements)),
                                  MadeMxf("mxf_anc_pipe_lines.mxf", MadeOfLines())}) {
    SCOPED_TRACE(path);
    const std::string ofFile = Mcc(path);
    std::string text, textOfPipe;
    const std::vector<std::string> told = Told(path, &text);
    EXPECT_EQ(Mcc(FedPipe(path).path()), ofFile);
    EXPECT_EQ(Told(FedPipe(path).path(), &textOfPipe), told);
    EXPECT_EQ(textOfPipe, text);
    EXPECT_EQ(found(FedPipe(path).path()), found(path));
    EXPECT_EQ(reported(FedPipe(path).path()), reported(path));
  }
}

TEST(MxfAncillary, SeveralSourcesAreNeverGuessed) {
  // What stands in pictures, and what stands in the track.
  const Bytes user = Hex("000001B2474139340343FFFC9426FD8080FA0000");
  Bytes picture(kPicture.begin(), kPicture.end() - 7);
  Put(picture, user);
  Put(picture, Bytes(kPicture.end() - 7, kPicture.end()));
  const std::string both = Save(
      "mxf_anc_both.mxf", MakeFile(std::vector<Bytes>(kPairs.size(), picture), Made(kNtsc, Elements(kNtsc))));
  try {
    Mcc(both);
    ADD_FAILURE();
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("has captions in several streams: 0 (pictures), 2 (ancillary data)"));
  }
  qlnmedia::CaptionSourceOptions from;
  from.stream = "2";
  EXPECT_THAT(qlnmedia::CaptionFileText(both, CaptionFileKind::kScc, {}, {}, {}, from),
              HasSubstr("c845 4c4c"));
  from.stream = "0";
  EXPECT_THAT(qlnmedia::CaptionFileText(both, CaptionFileKind::kScc, {}, {}, {}, from),
              HasSubstr("9426 9426"));
  from.stream = "1";
  EXPECT_THROW(qlnmedia::CaptionFileText(both, CaptionFileKind::kScc, {}, {}, {}, from), qlnmedia::Error);
  // A track of something else is no source.
  std::vector<Bytes> others(kPairs.size(), Hex("000100090404000700000008000000014105020801510000"));
  const std::string other =
      Save("mxf_anc_other.mxf", MakeFile(std::vector<Bytes>(kPairs.size(), picture), Made(kNtsc, others)));
  EXPECT_THAT(qlnmedia::CaptionFileText(other, CaptionFileKind::kScc), HasSubstr("9426 9426"));
}

// As libavformat takes the pairs of line 21 out of such tracks.
TEST(MxfAncillary, IsWhatFfmpegReads) {
  const std::string path = MadeMxf("mxf_anc_ffmpeg.mxf", Made(kNtsc, Elements(kNtsc)));
  EXPECT_THAT(qln::test::Run("ffmpeg -v error -eia608_extract 1 -i '" + path + "' -map 0:s -f srt -").output,
              HasSubstr("HELLO"));
}

}  // namespace
}  // namespace qln::test

// Ancillary data streams, in transport packets put together by hand.

#include "container/anc_captions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qlnmedia/captions.h"
#include "qlnmedia/check.h"
#include "qlnmedia/inspect.h"
#include "support/fed_pipe.h"
#include "support/media.h"
#include "support/pes_packets.h"

namespace qlnmedia {
namespace {

using qln::test::AppendBytes;
using qln::test::Bytes;
using qln::test::Hex;
using qln::test::MediaPath;
using testing::ElementsAre;

constexpr int kMap = 0x100;
constexpr int kVideo = 0x101;
constexpr int kAnc = 0x102;

// A line 21 packet (DID 61, SDID 02): 000000, luma, line, offset 0, then 161 102 203 of ten bits with their
// parity, field and two bytes, checksum, and bits of 1 up to the next byte.
Bytes Anc(uint8_t first, uint8_t second, uint32_t spoilt = 0, uint32_t line = 9) {
  std::string bits;
  const auto put = [&bits](uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) bits += (value >> i & 1) != 0 ? '1' : '0';
  };
  const auto word = [](uint32_t byte) { return byte | (__builtin_parity(byte) != 0 ? 0x100U : 0x200U); };
  put(line, 18);
  put(0, 12);
  uint32_t sum = 0;
  for (const uint32_t byte : {0x61U, 0x02U, 0x03U, 0x80U, uint32_t{first}, uint32_t{second}}) {
    put(word(byte), 10);
    sum += word(byte);
  }
  sum &= 0x1FF;
  put((sum | ((sum & 0x100) != 0 ? 0U : 0x200U)) ^ spoilt, 10);
  while (bits.size() % 8 != 0) bits += '1';
  Bytes bytes;
  for (size_t i = 0; i < bits.size(); i += 8)
    bytes.push_back(static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
  bytes.push_back(0xFF);
  return bytes;
}

// Four pairs from the fifth picture on, the third one damaged. `late`: they stand in the second field of 576
// lines, and have its times.
std::string Stream(const std::string& name, bool withVideo, bool late = false) {
  std::vector<qln::test::MappedStream> streams;
  if (withVideo) streams.push_back({0x02, kVideo});
  streams.push_back({0x06, kAnc, qln::test::Descriptor(0x05, {'V', 'A', 'N', 'C'})});
  Bytes bytes = qln::test::TablePackets(0, qln::test::AssociationTable(kMap));
  AppendBytes(bytes, qln::test::TablePackets(kMap, qln::test::MapTable(streams)));
  // Sequence and picture headers of MPEG-2, 16 by 16 at 30 a second, and a slice.
  const Bytes picture = Hex(std::string("000001B3 ") + (late ? "2D0240" : "010010") +
                            " 15 FFFFE0 00 000001B5 148200010000 00000100 000FFFF8 000001B5 8FFFF38180 "
                            "00000101 13F000");
  const uint8_t pairs[][2] = {{0x94, 0x20}, {0x94, 0x70}, {0xC1, 0xC2}, {0x94, 0x2F}};
  for (int i = 0; i < 12; ++i) {
    if (withVideo) AppendBytes(bytes, qln::test::PesPacket(kVideo, 0xE0, 90000 + 3003 * i, picture, i));
    if (i >= 4 && i < 8)
      AppendBytes(bytes, qln::test::PesPacket(
                             kAnc, 0xBD, 90000 + 3003 * i + (late ? 1502 : 0),
                             Anc(pairs[i - 4][0], pairs[i - 4][1], i == 6 ? 1 : 0, late ? 319 : 9), i - 4));
  }
  const std::string path = qln::test::MediaPath(name);
  qln::test::WriteFile(path, bytes);
  return path;
}

std::vector<std::pair<int64_t, int>> EventsOf(const captions::CaptionTrack& track) {
  std::vector<std::pair<int64_t, int>> events;
  for (const captions::CaptionEvent& event : track.events)
    events.emplace_back(event.at, event.triplets.at(0).first << 8 | event.triplets[0].second);
  return events;
}

TEST(AncCaptions, GoByTheTimesOfTheFirstVideo) {
  const std::string path = Stream("anc_captions.ts", true);
  const std::vector<unsigned> streams = FindAncStreams(MediaFile(path));
  ASSERT_EQ(streams.size(), 1u);
  std::vector<std::string> damage;
  const captions::CaptionTrack track =
      TrackOfAnc(ReadAncContents(path, streams[0]), path, streams[0], {}, &damage);
  EXPECT_EQ(track.rate, captions::Rate::k29_97);
  EXPECT_THAT(EventsOf(track), ElementsAre(std::pair(4, 0x9420), std::pair(5, 0x9470), std::pair(7, 0x942F)));
  ASSERT_EQ(damage.size(), 1u);
  EXPECT_THAT(damage[0],
              testing::MatchesRegex("stream 1: packet 2 at byte [0-9]+: an ANC packet whose checksum is "
                                    "wrong; left out"));
}

TEST(AncCaptions, OfSecondFieldsBelongToTheirFrame) {
  const std::string path = Stream("anc_captions_fields.ts", true, true);
  const AncContents contents = ReadAncContents(path, 1);
  ASSERT_EQ(contents.kinds.size(), 1u);
  const auto& [name, kind] = *contents.kinds.begin();
  EXPECT_EQ(name, (AncKindName{0x61, 0x02, false}));
  EXPECT_EQ(kind.count, 3u);
  EXPECT_THAT(kind.lines, ElementsAre(319));
  EXPECT_THAT(kind.fields, ElementsAre(2));
  EXPECT_EQ(contents.packets, 4u);
  std::vector<std::string> damage;
  EXPECT_THAT(EventsOf(TrackOfAnc(ReadAncContents(path, 1), path, 1, {}, &damage)),
              ElementsAre(std::pair(4, 0x9420), std::pair(5, 0x9470), std::pair(7, 0x942F)));
}

TEST(AncCaptions, AreCheckedAndInspected) {
  std::vector<std::string> found;
  for (const Finding& finding : CheckFile(Stream("anc_captions_checked.ts", true))) {
    if (finding.stream == 1) found.push_back(std::to_string(finding.frame) + ": " + finding.text);
  }
  EXPECT_THAT(found, ElementsAre("2: an ANC packet whose checksum is wrong"));
  const std::string report = InspectFile(MediaPath("anc_captions_checked.ts")).ToJson(-1);
  EXPECT_THAT(report, testing::HasSubstr(R"-("caption_form":"ST 2038")-"));
  EXPECT_THAT(report, testing::HasSubstr(R"-("did":97,"sdid":2,"name":"captions (line 21, ST 334-1)")-"));
}

TEST(AncCaptions, BeginWithTheFirstWhereThereIsNoVideo) {
  const std::string path = Stream("anc_captions_alone.ts", false);
  const std::vector<unsigned> streams = FindAncStreams(MediaFile(path));
  ASSERT_EQ(streams.size(), 1u);
  std::vector<std::string> damage;
  EXPECT_THAT(EventsOf(TrackOfAnc(ReadAncContents(path, streams[0]), path, streams[0], captions::Rate::k59_94,
                                  &damage)),
              ElementsAre(std::pair(0, 0x9420), std::pair(2, 0x9470), std::pair(6, 0x942F)));
}

// PES packets of ancillary data at times in units of 90 kHz, beside ten pictures from 90000 on.
std::string Timed(const std::string& name, const std::vector<std::pair<int64_t, Bytes>>& packets,
                  bool sd = false) {
  Bytes bytes = qln::test::TablePackets(0, qln::test::AssociationTable(kMap));
  AppendBytes(
      bytes,
      qln::test::TablePackets(
          kMap, qln::test::MapTable(
                    {{0x02, kVideo}, {0x06, kAnc, qln::test::Descriptor(0x05, {'V', 'A', 'N', 'C'})}})));
  const Bytes picture = Hex(std::string("000001B3 ") + (sd ? "2D01E0" : "010010") +
                            " 15 FFFFE0 00 000001B5 148200010000 00000100 000FFFF8 000001B5 8FFFF38180 "
                            "00000101 13F000");
  int counter = 0;
  for (const auto& [pts, payload] : packets)
    AppendBytes(bytes, qln::test::PesPacket(kAnc, 0xBD, pts, payload, counter++));
  for (int i = 0; i < 10; ++i)
    AppendBytes(bytes, qln::test::PesPacket(kVideo, 0xE0, 90000 + 3003 * i, picture, i));
  const std::string path = MediaPath(name);
  qln::test::WriteFile(path, bytes);
  return path;
}

// Several ancillary packets in one PES packet.
Bytes Both(const Bytes& first, const Bytes& second) {
  Bytes both(first.begin(), first.end() - 1);
  AppendBytes(both, second);
  return both;
}

TEST(AncCaptions, OfOnePictureComeInTheirOrder) {
  // Two packets in one PES packet; two PES packets of one time; of each field one, half a frame apart.
  const std::string path = Timed("anc_captions_two.ts",
                                 {{90000, Both(Anc(0xC1, 1), Anc(0xC1, 2, 0, 272))},
                                  {93003, Anc(0xC1, 3)},
                                  {93003, Anc(0xC1, 4)},
                                  {96006, Anc(0xC1, 5, 0, 9)},
                                  {96006 + 1502, Anc(0xC1, 6, 0, 272)}},
                                 true);
  std::vector<std::string> damage;
  const captions::CaptionTrack track = TrackOfAnc(ReadAncContents(path, 1), path, 1, {}, &damage);
  std::string text;
  for (const captions::CaptionEvent& event : track.events) {
    text += std::to_string(event.at) + ":";
    for (const captions::Triplet& t : event.triplets) text += std::to_string(t.second) + ",";
  }
  EXPECT_EQ(text, "0:1,2,1:3,4,2:5,6,");
}

TEST(AncCaptions, InFrontOfTheFirstPictureAreToldAndLeftOut) {
  const std::string path = Timed(
      "anc_captions_early.ts",
      {{90000 - 6006, Anc(0x94, 0x20)}, {90000 - 3003, Anc(0x94, 0x70)}, {90000 + 3003, Anc(0x94, 0x2C)}});
  std::vector<std::string> damage;
  EXPECT_THAT(EventsOf(TrackOfAnc(ReadAncContents(path, 1), path, 1, {}, &damage)),
              ElementsAre(std::pair(-2, 0x9420), std::pair(-1, 0x9470), std::pair(1, 0x942C)));
  std::vector<std::string> told;
  CaptionSourceOptions options;
  options.told = [&told](const std::string& line) { told.push_back(line.substr(line.rfind("ts: ") + 4)); };
  EXPECT_EQ(CaptionFileText(path, CaptionFileKind::kScc, {}, {}, {}, options),
            "Scenarist_SCC V1.0\n\n00:00:00:01\t942c\n");
  EXPECT_THAT(told,
              ElementsAre("stream 1: captions of 2 pictures stand in front of the first one; left out"));
}

TEST(AncCaptions, ComeThroughAPipe) {
  const std::string path = Stream("anc_captions_pipe.ts", true, true);
  EXPECT_EQ(CaptionFileText(qln::test::FedPipe(path).path(), CaptionFileKind::kMcc),
            CaptionFileText(path, CaptionFileKind::kMcc));
}

TEST(CaptionSources, SayWhatIsOutOfReachInSdPictures) {
  const auto refused = [](const std::string& path) -> std::string {
    try {
      ReadFileCaptions(path);
    } catch (const NotApplicable& error) {
      return error.what();
    }
    return "";
  };
  const std::string line = "line 21 in the raster of SD pictures is out of reach: it is pixels";
  const auto made = [](const std::string& name, const std::string& options) {
    return qln::test::MediaFile(
        name, "ffmpeg -v error -y -f lavfi -i color=s=720x480:r=30000/1001:d=0.1 " + options + " {out}");
  };
  EXPECT_THAT(refused(made("raster.m2v", "-c:v mpeg2video")),
              testing::EndsWith("stream 0 has no captions; " + line));
  EXPECT_THAT(refused(made("raster.dv", "-pix_fmt yuv411p")),
              testing::EndsWith("has no H.264, HEVC or MPEG-2 stream; " + line));
  EXPECT_THAT(refused(made("raster.mov", "-c:v prores -s 720x486")), testing::EndsWith(line));
  EXPECT_THAT(refused(qln::test::FedPipe(Timed("anc_captions_none.ts", {}, true)).path()),
              testing::EndsWith(line));
  EXPECT_THAT(refused(made("raster_hd.m2v", "-c:v mpeg2video -s 1280x720")),
              testing::EndsWith("stream 0 has no captions"));
}

}  // namespace
}  // namespace qlnmedia

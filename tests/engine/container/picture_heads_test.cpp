// Heads of pictures, held to what ffprobe lists of the packets and to the packets themselves.

#include "container/picture_heads.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "container/coded_stream.h"
#include "container/file_captions.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Run;

constexpr uint64_t kSomeBytes = 1000;  // less than the clips have

std::string HeadsClip(const std::string& name, const std::string& options = "") {
  return qln::test::MediaFile(
      name,
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=352x288:r=25:d=2 -f lavfi -i sine=d=2 -pix_fmt yuv420p "
      "-c:v libx264 -threads 1 -x264-params bframes=2:keyint=12:crf=8:slices=2 -c:a aac " +
          options + " {out}");
}

struct Probed {
  int64_t pts = 0, dts = 0;
  uint64_t size = 0, position = 0;
};

std::vector<Probed> ProbedPackets(const std::string& path) {
  std::istringstream lines(Run("ffprobe -v error -select_streams v -show_packets -show_entries "
                               "packet=pts,dts,size,pos -of csv=p=0 '" +
                               path + "'")
                               .output);
  std::vector<Probed> packets;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream row(line);
    std::vector<int64_t> cells;
    for (std::string cell; std::getline(row, cell, ',');) cells.push_back(std::atoll(cell.c_str()));
    if (cells.size() < 4) continue;
    packets.push_back({cells[0], cells[1], static_cast<uint64_t>(cells[2]), static_cast<uint64_t>(cells[3])});
  }
  return packets;
}

std::vector<PacketPlace> PlacesIn(const std::string& path) {
  const MediaFile file(path);
  const PacketPlaces next = PlacesOfStream(file, 0, kSomeBytes);
  std::vector<PacketPlace> places;
  if (!next) return places;
  while (const std::optional<PacketPlace> place = next()) places.push_back(*place);
  return places;
}

TEST(PlacesOfStream, AreThoseThatAnotherReaderLists) {
  for (const char* name : {"heads.mp4", "heads.mov", "heads.mkv"}) {
    const std::string path = HeadsClip(name);
    const std::vector<Probed> probed = ProbedPackets(path);
    const std::vector<PacketPlace> places = PlacesIn(path);
    ASSERT_EQ(probed.size(), 50u) << name;
    ASSERT_EQ(places.size(), probed.size()) << name;
    const bool matroska = std::string(name) == "heads.mkv";
    for (size_t i = 0; i < places.size(); ++i) {
      EXPECT_EQ(places[i].size, probed[i].size) << name << " " << i;
      EXPECT_EQ(places[i].pts - places[0].pts, probed[i].pts - probed[0].pts) << name << " " << i;
      // Of a block the place is that of its head.
      if (matroska) continue;
      EXPECT_EQ(places[i].at, probed[i].position) << name << " " << i;
      EXPECT_EQ(places[i].dts - places[0].dts, probed[i].dts - probed[0].dts) << name << " " << i;
    }
  }
}

TEST(PlacesOfStream, FilesWithoutTablesHaveNone) {
  EXPECT_TRUE(PlacesIn(HeadsClip("heads_parts.mp4", "-movflags frag_keyframe+empty_moov")).empty());
  EXPECT_TRUE(PlacesIn(HeadsClip("heads.ts")).empty());
}

TEST(SurveyHeads, SaysWhatTheWholePicturesSay) {
  for (const std::string& path :
       {HeadsClip("heads.mp4"), HeadsClip("heads.mov"), HeadsClip("heads.mkv"),
        HeadsClip("heads_hevc.mp4", "-c:v libx265 -x265-params log-level=none:keyint=12"),
        HeadsClip("heads_hevc.mkv", "-c:v libx265 -x265-params log-level=none:keyint=12")}) {
    for (const size_t packets : {size_t{20}, size_t{1000}}) {
      const std::optional<CaptionSurvey> heads = SurveyHeads(MediaFile(path), 0, packets, {});
      const CaptionSurvey whole = SurveyCaptions(path, packets);
      ASSERT_TRUE(heads) << path;
      EXPECT_EQ(heads->order.places, whole.order.places) << path;
      EXPECT_EQ(heads->order.steps, whole.order.steps) << path;
      EXPECT_EQ(heads->counts, whole.counts) << path;
      EXPECT_EQ(heads->pace.picturesPerSecond, whole.pace.picturesPerSecond) << path;
      EXPECT_EQ(heads->dropFrame, whole.dropFrame) << path;
    }
  }
}

// Known packets of the clip, as a demuxer gives them.
std::vector<KnownPacket> Known(const std::string& path) {
  MediaFile file(path);
  std::vector<KnownPacket> known;
  for (MediaPacket packet; file.Next(packet);) {
    if (packet.stream == 0) known.push_back({packet.view.data.size(), packet.view.pts, packet.view.dts});
  }
  return known;
}

TEST(SurveyHeads, NothingWhereTablesPlaceOtherPacketsThanWereRead) {
  for (const char* name : {"heads.mp4", "heads.mkv"}) {
    const std::string path = HeadsClip(name);
    const MediaFile file(path);
    const std::vector<KnownPacket> known = Known(path);
    EXPECT_TRUE(SurveyHeads(file, 0, 1000, known)) << name;
    for (const size_t at : {size_t{0}, known.size() - 1}) {
      std::vector<KnownPacket> other = known;
      ++other[at].size;
      EXPECT_FALSE(SurveyHeads(file, 0, 1000, other)) << name << " " << at;
    }
    std::vector<KnownPacket> later = known;
    later.back().pts += 1000;
    EXPECT_FALSE(SurveyHeads(file, 0, 1000, later)) << name;
    std::vector<KnownPacket> more = known;
    more.push_back(known.back());
    EXPECT_FALSE(SurveyHeads(file, 0, 1000, more)) << name;
  }
}

TEST(SurveyHeads, NothingOfAFileThatIsCutOff) {
  qln::test::Bytes bytes = qln::test::ReadFile(HeadsClip("heads_front.mp4", "-movflags faststart"));
  bytes.resize(bytes.size() / 2);
  const std::string path = qln::test::MediaPath("heads_cut.mp4");
  qln::test::WriteFile(path, bytes);
  EXPECT_FALSE(SurveyHeads(MediaFile(path), 0, 1000, {}));
}

Bytes UnitOf(uint8_t type, size_t size) {
  Bytes unit(size, 0x55);
  unit[0] = type;
  return unit;
}

void AppendUnit(Bytes& packet, const Bytes& unit) {
  for (int shift = 24; shift >= 0; shift -= 8) packet.push_back(static_cast<uint8_t>(unit.size() >> shift));
  packet.insert(packet.end(), unit.begin(), unit.end());
}

// The packet behind some other bytes, as a reader of heads gives it.
Bytes HeadsOfPacket(const Bytes& packet) {
  Bytes file(100, 0xEE);
  file.insert(file.end(), packet.begin(), packet.end());
  const mp4::MemorySource source(file);
  HeadReader reader(source, Codec::kH264, Framing{4});
  const ByteSpan read = reader.Read(100, packet.size());
  return Bytes(read.begin(), read.end());
}

constexpr uint8_t kSlice = 0x65, kSei = 0x06;

TEST(HeadReader, CutsSlicesAlone) {
  Bytes packet, expected;
  for (const size_t size :
       {size_t{1}, size_t{1023}, size_t{1024}, size_t{1025}, size_t{5000}, size_t{20000}}) {
    AppendUnit(packet, UnitOf(kSei, size));
    AppendUnit(expected, UnitOf(kSei, size));
    AppendUnit(packet, UnitOf(kSlice, size));
    AppendUnit(expected, UnitOf(kSlice, std::min<size_t>(size, 1024)));
  }
  EXPECT_EQ(HeadsOfPacket(packet), expected);
  EXPECT_EQ(HeadsOfPacket({}), Bytes());
}

TEST(HeadReader, UnitsThatShareALengthStayWhole) {
  Bytes shared = UnitOf(kSlice, 3000);
  const Bytes next = {0, 0, 1, 0x61, 0x55};
  std::copy(next.begin(), next.end(), shared.begin() + 700);
  Bytes packet;
  AppendUnit(packet, shared);
  EXPECT_EQ(HeadsOfPacket(packet), packet);
}

TEST(HeadReader, ALengthThatLeadsPastTheEndIsStillThere) {
  Bytes packet;
  AppendUnit(packet, UnitOf(kSei, 9));
  Bytes expected = packet;
  AppendUnit(packet, UnitOf(kSlice, 3000));
  packet.pop_back();
  expected.insert(expected.end(), packet.begin() + 13, packet.begin() + 13 + 1024);
  EXPECT_EQ(HeadsOfPacket(packet), expected);
  EXPECT_TRUE(TakeApart(expected, Framing{4}).damaged());
  for (const Bytes& rest : {Bytes{0}, Bytes{0, 0, 0}, Bytes{0xFF, 0xFF, 0xFF, 0xFF}})
    EXPECT_EQ(HeadsOfPacket(rest), rest);
}

TEST(HeadReader, ThrowsWhereThePacketIsNotThere) {
  const Bytes file(50, 0);
  const mp4::MemorySource source(file);
  HeadReader reader(source, Codec::kH264, Framing{4});
  EXPECT_THROW(reader.Read(40, 100), Error);
  EXPECT_THROW(reader.Read(60, 4), Error);
}

}  // namespace
}  // namespace qlnmedia

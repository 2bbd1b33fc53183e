// Files opened and read packet by packet, held to what ffprobe lists of them.

#include "container/media_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "base/error.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Run;
using testing::HasSubstr;

constexpr char kPictures[] =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 -f lavfi -i sine=d=0.6 ";
constexpr char kCoders[] =
    "-pix_fmt yuv420p -c:v libx264 -threads 1 -x264-params bframes=2:keyint=6 -c:a aac {out}";

std::string Clip(const std::string& name) {
  return qln::test::MediaFile(name, std::string(kPictures) + kCoders);
}

// A packet as both sides tell it; "N/A" where a time is not known.
std::string Line(unsigned stream, const std::string& pts, const std::string& dts, size_t size, bool key) {
  return std::to_string(stream) + "," + pts + "," + dts + "," + std::to_string(size) + "," +
         (key ? "K" : "_");
}

std::vector<std::string> Probed(const std::string& path) {
  const std::string fields = "packet=stream_index,pts,dts,size,flags";
  std::istringstream lines(
      Run("ffprobe -v error -show_packets -show_entries " + fields + " -of csv=p=0 '" + path + "'").output);
  std::vector<std::string> packets;
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> cells;
    std::istringstream row(line);
    for (std::string cell; std::getline(row, cell, ',');) cells.push_back(cell);
    if (cells.size() < 5) continue;
    packets.push_back(Line(static_cast<unsigned>(std::atoi(cells[0].c_str())), cells[1], cells[2],
                           static_cast<size_t>(std::atoll(cells[3].c_str())), cells[4][0] == 'K'));
  }
  return packets;
}

std::string TimeWord(int64_t time) { return time == kNoTime ? "N/A" : std::to_string(time); }

std::vector<std::string> Read(MediaFile& file) {
  std::vector<std::string> packets;
  for (MediaPacket packet; file.Next(packet);)
    packets.push_back(Line(packet.stream, TimeWord(packet.view.pts), TimeWord(packet.view.dts),
                           packet.view.data.size(), packet.view.key));
  return packets;
}

TEST(MediaFileNext, GivesThePacketsThatAnotherReaderLists) {
  for (const char* name : {"next.mp4", "next.mkv", "next.ts"}) {
    const std::string path = Clip(name);
    MediaFile file(path);
    const std::vector<std::string> probed = Probed(path);
    EXPECT_GT(probed.size(), 15u) << name;
    EXPECT_EQ(Read(file), probed) << name;
    EXPECT_EQ(file.endNote(), "") << name;
    EXPECT_EQ(file.TruncationNote(), "") << name;
  }
}

TEST(MediaFileNext, NothingFollowsTheEnd) {
  MediaFile file(Clip("next.mp4"));
  Read(file);
  MediaPacket packet;
  EXPECT_FALSE(file.Next(packet));
  EXPECT_FALSE(file.Next(packet));
}

// Two files at once do not share packets.
TEST(MediaFileNext, BytesStandUntilTheNextCallOfTheSameFile) {
  MediaFile one(Clip("next.mp4"));
  MediaFile other(Clip("next.mkv"));
  MediaPacket kept;
  ASSERT_TRUE(one.Next(kept));
  const qln::test::Bytes copy(kept.view.data.begin(), kept.view.data.end());
  for (MediaPacket packet; other.Next(packet);) {
  }
  EXPECT_EQ(qln::test::Bytes(kept.view.data.begin(), kept.view.data.end()), copy);
}

TEST(MediaFileNext, AFileThatEndsEarlySaysSo) {
  qln::test::Bytes bytes = qln::test::ReadFile(Clip("next.ts"));
  bytes.resize(bytes.size() - 100);
  const std::string path = qln::test::MediaPath("next_cut.ts");
  qln::test::WriteFile(path, bytes);
  MediaFile file(path);
  EXPECT_FALSE(Read(file).empty());
  EXPECT_THAT(file.TruncationNote(), HasSubstr("its last transport packet is cut off"));
}

TEST(MediaFileNext, DescribesWhatItOpened) {
  const std::string path = Clip("next.mp4");
  const MediaFile file(path);
  EXPECT_EQ(file.path(), path);
  EXPECT_THAT(std::string(file.formatName()), HasSubstr("mp4"));
  ASSERT_EQ(file.streams().size(), 2u);
  EXPECT_EQ(file.streams()[0].coded.codec, VideoCodec::kH264);
  EXPECT_TRUE(file.streams()[0].movingPictures);
  EXPECT_EQ(file.streams()[0].width, 128);
  EXPECT_EQ(file.streams()[1].kind, StreamKind::kAudio);
  EXPECT_NEAR(file.seconds(), 0.6, 0.1);
  EXPECT_NO_THROW(file.RequireVideo());
}

TEST(MediaFileOpens, NothingThatIsNoMedia) {
  const std::string path = qln::test::MediaPath("no_media.bin");
  qln::test::WriteFile(path, qln::test::Bytes(1000, 'x'));
  EXPECT_THROW(MediaFile{path}, Error);
  qln::test::WriteFile(path, {});
  EXPECT_THROW(MediaFile{path}, Error);
  EXPECT_THROW(MediaFile{"/no/such/file"}, Error);
  EXPECT_THROW(MediaFile{"/"}, Error);
}

}  // namespace
}  // namespace qlnmedia

// The whole way of a caption: out of a file, into packets, into real frames, and read as text by another
// program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "captions/mcc_file.h"
#include "captions/scc_file.h"
#include "captions/sequencer.h"
#include "qlnutil/qlninband.h"
#include "support/media.h"

namespace qlnmedia::captions {
namespace {

using qln::test::MediaFile;
using qln::test::MediaPath;
using qln::test::ReadFile;
using qln::test::SplitByteStream;
using qln::test::WithStartCode;
using testing::HasSubstr;

std::string Sample(const std::string& name) {
  const qln::test::Bytes bytes = ReadFile(std::string(QLN_TEST_DATA) + "/captions/" + name);
  return std::string(bytes.begin(), bytes.end());
}

std::string Video(bool hevc, const std::string& rate, int frames) {
  const std::string coder = hevc ? "libx265 -x265-params log-level=none:pools=1:frame-threads=1:aud=1:info=0:"
                                   "bframes=0:repeat-headers=1 -f hevc"
                                 : "libx264 -x264-params aud=1:bframes=0:threads=1 -f h264";
  return qln::test::MediaFile("captions-" + std::to_string(frames) + (hevc ? ".265" : ".264"),
                              "ffmpeg -v error -y -f lavfi -i color=s=64x64:r=" + rate + " -frames:v " +
                                  std::to_string(frames) + " -c:v " + coder + " {out}");
}

// Puts one caption packet into each picture of a stream and returns what a player shows as text.
std::string TextOf(bool hevc, const std::string& rate, const std::string& video,
                   const std::vector<Bytes>& ancPackets) {
  qln::test::Bytes out;
  qln::test::Bytes picture;
  size_t index = 0;
  const auto finish = [&] {
    if (picture.empty()) return;
    qln::test::Bytes room = picture;
    room.resize(picture.size() + 1000);
    DFrame frame = {};
    frame.frameData = room.data();
    frame.frameSize = static_cast<uint32_t>(picture.size());
    frame.frameCapacity = static_cast<uint32_t>(room.size());
    if (index < ancPackets.size()) {
      const Bytes packet = FramePacket(ancPackets[index]);
      std::memcpy(frame.captionData, packet.data(), packet.size());
      frame.captionSize = static_cast<uint32_t>(packet.size());
      if (hevc) {
        frame.frameSize += qlnUtilAddHevcCaptions(&frame, 0);
      } else {
        EXPECT_EQ(qlnutilAddAVCCaptions(&frame, packet.data(), frame.captionSize, 0), 0);
      }
    }
    EXPECT_GT(frame.frameSize, picture.size());
    ++index;
    out.insert(out.end(), room.begin(), room.begin() + frame.frameSize);
    picture.clear();
  };
  for (const qln::test::Bytes& unit : SplitByteStream(ReadFile(video))) {
    if (hevc ? unit[0] == 0x46 : unit[0] == 0x09) finish();
    const qln::test::Bytes coded = WithStartCode(unit);
    picture.insert(picture.end(), coded.begin(), coded.end());
  }
  finish();
  const std::string stream = qln::test::MediaPath(hevc ? "captioned.265" : "captioned.264");
  const std::string wrapped = qln::test::MediaPath("captioned.mp4");
  qln::test::WriteFile(stream, out);
  const qln::test::CommandResult made = qln::test::Run(
      "ffmpeg -v error -y -r " + rate + " -i '" + stream + "' -c copy '" + wrapped +
      "' && ffmpeg -v error -f lavfi -i \"movie=" + wrapped + "[out+subcc]\" -map 0:s -f srt -");
  EXPECT_EQ(made.exitCode, 0) << made.output;
  return made.output;
}

TEST(TextInVideo, ComesFromScenaristFiles) {
  std::string reason;
  const std::optional<SccFile> file = ReadScc(Sample("two_captions_drop_frame.scc"), &reason);
  ASSERT_TRUE(file) << reason;
  Sequencer sequencer(Rate::k29_97);
  sequencer.AddPairs(1, PairsByFrame(*file));
  std::vector<Bytes> packets;
  for (int i = 0; i < 90; ++i) packets.push_back(WrapInAnc(WriteCdp(sequencer.NextPacket())));
  for (const bool hevc : {false, true}) {
    EXPECT_THAT(TextOf(hevc, "30000/1001", Video(hevc, "30000/1001", 90), packets),
                HasSubstr("GOOD MORNING"));
  }
}

TEST(TextInVideo, ComesFromMacCaptionFiles) {
  const std::pair<const char*, const char*> files[] = {{"one_caption_25.mcc", "25"},
                                                       {"one_caption_50.mcc", "50"}};
  for (const auto& [name, rate] : files) {
    std::string reason;
    const std::optional<MccFile> file = ReadMcc(Sample(name), &reason);
    ASSERT_TRUE(file) << reason;
    std::vector<Bytes> packets;
    for (const MccLine& line : file->lines) packets.push_back(line.anc);
    for (const bool hevc : {false, true}) {
      EXPECT_THAT(TextOf(hevc, rate, Video(hevc, rate, static_cast<int>(packets.size())), packets),
                  HasSubstr("ONE CAPTION"))
          << name;
    }
  }
}

}  // namespace
}  // namespace qlnmedia::captions

// Streams and packets of libavformat in plain types: what a container says beside what it does not.

#include "container/coded_stream.h"

#include <gtest/gtest.h>

#include "engine/patch/small_files.h"

namespace qlnmedia {
namespace {

namespace boxes = qln::test::mp4;

// `fiel` (QuickTime File Format Specification): two fields, and their order.
StreamDescription WithFields(uint8_t order) {
  test::Files files;
  const MediaFile file(
      files.Put("a.mp4", test::PictureFile(test::PictureStream(), boxes::Box("fiel", Bytes{2, order}))));
  return DescribeStream(file, 0);
}

TEST(CodedStreams, OfAContainer) {
  test::Files files;
  const test::Stream stream = test::PictureStream();
  const MediaFile file(files.Put("a.mp4", test::PictureFile(stream)));
  const StreamDescription described = DescribeStream(file, 0);
  EXPECT_EQ(described.codec, VideoCodec::kH264);
  EXPECT_EQ(described.privateData, stream.description.privateData);
  EXPECT_EQ(described.timeBase.numerator, 1);
  EXPECT_EQ(described.timeBase.denominator, 1000);
  EXPECT_FALSE(described.raw);
  EXPECT_TRUE(described.ownMarks);
  EXPECT_EQ(described.height, 64u);
  EXPECT_EQ(ConfigOf(*file.context()->streams[0]).framing.lengthBytes, 4);
  EXPECT_EQ(CodecOf(*file.context()->streams[0]), Codec::kH264);
}

// 1 and 9 show the top field first, 6 and 14 the bottom field.
TEST(CodedStreams, TheFieldThatIsShownFirst) {
  EXPECT_FALSE(WithFields(1).bottomFirst);
  EXPECT_TRUE(WithFields(6).bottomFirst);
  EXPECT_TRUE(WithFields(9).bottomFirst != WithFields(14).bottomFirst);
}

TEST(CodedStreams, RawOnesHaveNoMarksOfTheirOwn) {
  test::Files files;
  Bytes raw;
  for (const AccessUnit& packet : test::PictureStream(6, 0).packets)
    raw.insert(raw.end(), packet.data.begin(), packet.data.end());
  const MediaFile file(files.Put("a.h264", raw));
  const StreamDescription described = DescribeStream(file, 0);
  EXPECT_TRUE(described.raw);
  EXPECT_FALSE(described.ownMarks);
  EXPECT_EQ(described.height, 0u);
}

TEST(CodedStreams, PacketsWithTimesAndMarks) {
  PacketHandle packet(av_packet_alloc());
  ASSERT_EQ(av_new_packet(packet.get(), 3), 0);
  packet->pts = 7;
  packet->dts = AV_NOPTS_VALUE;
  packet->pos = 99;
  packet->flags = AV_PKT_FLAG_KEY;
  const PacketView view = ViewOf(*packet);
  EXPECT_EQ(view.data.data(), packet->data);
  EXPECT_EQ(view.data.size(), 3u);
  EXPECT_EQ(view.pts, 7);
  EXPECT_EQ(view.dts, kNoTime);
  EXPECT_EQ(view.position, 99);
  EXPECT_TRUE(view.key);
  packet->flags = 0;
  EXPECT_FALSE(ViewOf(*packet).key);
}

}  // namespace
}  // namespace qlnmedia

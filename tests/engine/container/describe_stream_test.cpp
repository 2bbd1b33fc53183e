// What libavformat says of a stream, in plain types.

#include "container/describe_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "container/coded_stream.h"

namespace qlnmedia {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct ContextFreer {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};

class DescribedStream : public testing::Test {
 protected:
  AVStream& stream() { return *stream_; }
  AVCodecParameters& parameters() { return *stream_->codecpar; }
  template <class Data>
  void Attach(AVPacketSideDataType type, const Data& data) {
    std::memcpy(av_stream_new_side_data(stream_, type, sizeof data), &data, sizeof data);
  }
  MediaStream Describe() {
    return DescribeMediaStream(stream(), DescribeContainerColour(stream()), false, true);
  }

 private:
  std::unique_ptr<AVFormatContext, ContextFreer> context_{avformat_alloc_context()};
  AVStream* stream_ = avformat_new_stream(context_.get(), nullptr);
};

TEST_F(DescribedStream, TwoViewsInAPicture) {
  parameters().codec_type = AVMEDIA_TYPE_VIDEO;
  EXPECT_EQ(Describe().stereo, "");
  AVStereo3D stereo = {};
  stereo.type = AV_STEREO3D_TOPBOTTOM;
  Attach(AV_PKT_DATA_STEREO3D, stereo);
  EXPECT_EQ(Describe().stereo, "top and bottom");
  stereo.type = AV_STEREO3D_SIDEBYSIDE;
  stereo.flags = AV_STEREO3D_FLAG_INVERT;
  Attach(AV_PKT_DATA_STEREO3D, stereo);
  EXPECT_EQ(Describe().stereo, "side by side, right view first");
}

// What failures call a stream.
TEST_F(DescribedStream, ByKindAndCodec) {
  parameters().codec_type = AVMEDIA_TYPE_SUBTITLE;
  EXPECT_EQ(StreamText(stream()), "stream 0 (subtitle, unknown codec)");
  parameters().codec_id = AV_CODEC_ID_SUBRIP;
  EXPECT_EQ(StreamText(stream()), "stream 0 (subtitle, subrip)");
  parameters().codec_type = AVMEDIA_TYPE_UNKNOWN;
  parameters().codec_id = AV_CODEC_ID_NONE;
  EXPECT_EQ(StreamText(stream()), "stream 0 (unknown, unknown codec)");
}

TEST_F(DescribedStream, PicturesWithAllThatIsKnown) {
  parameters().codec_type = AVMEDIA_TYPE_VIDEO;
  parameters().codec_id = AV_CODEC_ID_HEVC;
  parameters().codec_tag = MKTAG('h', 'v', 'c', '1');
  parameters().width = 1920;
  parameters().height = 1080;
  parameters().field_order = AV_FIELD_BT;
  parameters().color_range = AVCOL_RANGE_JPEG;
  parameters().color_primaries = AVCOL_PRI_BT2020;
  parameters().color_trc = AVCOL_TRC_SMPTE2084;
  parameters().color_space = AVCOL_SPC_BT2020_NCL;
  parameters().bit_rate = 5000000;
  stream().id = 258;
  stream().time_base = {1, 90000};
  stream().avg_frame_rate = {30000, 1001};
  stream().r_frame_rate = {60000, 1001};
  stream().sample_aspect_ratio = {4, 3};
  stream().duration = 180000;
  stream().disposition = AV_DISPOSITION_DEFAULT | AV_DISPOSITION_FORCED;
  av_dict_set(&stream().metadata, "language", "fra", 0);
  const MediaStream described = Describe();
  EXPECT_EQ(described.kind, StreamKind::kVideo);
  EXPECT_TRUE(described.movingPictures);
  EXPECT_EQ(described.codecName, "hevc");
  EXPECT_EQ(described.coded.codec, VideoCodec::kHevc);
  EXPECT_EQ(described.tag, 0x31637668u);  // "hvc1", first character lowest
  EXPECT_EQ(described.id, 258);
  EXPECT_EQ(described.language, "fra");
  EXPECT_THAT(described.dispositions, ElementsAre("default", "forced"));
  EXPECT_EQ(described.fieldOrder, kBottomCodedTopShownFirst);
  EXPECT_EQ(described.container.range, kFullRange);
  EXPECT_EQ(described.container.primaries, 9);
  EXPECT_EQ(described.container.transfer, 16);
  EXPECT_EQ(described.container.matrix, 9);
  EXPECT_EQ(described.container.width, 1920);
  EXPECT_EQ(described.coded.timeBase, (Rational{1, 90000}));
  EXPECT_EQ(described.coded.averageRate, (Rational{30000, 1001}));
  EXPECT_EQ(described.coded.baseRate, (Rational{60000, 1001}));
  EXPECT_EQ(described.sampleAspect, (Rational{4, 3}));
  EXPECT_EQ(described.duration, 180000);
  EXPECT_EQ(described.bitRate, 5000000);
}

TEST_F(DescribedStream, WhatIsNotKnownIsNotMadeUp) {
  const MediaStream described = Describe();
  EXPECT_EQ(described.kind, StreamKind::kUnknown);
  EXPECT_FALSE(described.movingPictures);
  EXPECT_EQ(described.coded.codec, VideoCodec::kOther);
  EXPECT_EQ(described.duration, 0);
  EXPECT_EQ(described.coded.averageRate.numerator, 0);
  EXPECT_EQ(described.container.primaries, 2);
  EXPECT_THAT(described.dispositions, IsEmpty());
  EXPECT_FALSE(described.rotation || described.mastering || described.lightLevel || described.dolbyVision);
}

TEST_F(DescribedStream, CoverArtIsNoMovingPicture) {
  parameters().codec_type = AVMEDIA_TYPE_VIDEO;
  parameters().codec_id = AV_CODEC_ID_H264;
  stream().disposition = AV_DISPOSITION_ATTACHED_PIC;
  EXPECT_FALSE(Describe().movingPictures);
  EXPECT_EQ(Describe().coded.codec, VideoCodec::kOther);
}

TEST_F(DescribedStream, SideDataInTheUnitsOfTheStreams) {
  AVMasteringDisplayMetadata display{};
  for (auto& primary : display.display_primaries) primary[0] = primary[1] = {1, 5};
  display.white_point[0] = display.white_point[1] = {3127, 10000};
  display.max_luminance = {1000, 1};
  display.min_luminance = {1, 200};
  Attach(AV_PKT_DATA_MASTERING_DISPLAY_METADATA, display);
  EXPECT_FALSE(Describe().mastering.has_value());  // neither half is said to be there
  display.has_primaries = display.has_luminance = 1;
  Attach(AV_PKT_DATA_MASTERING_DISPLAY_METADATA, display);
  EXPECT_EQ(Describe().mastering,
            (MasteringDisplay{{10000, 10000}, {10000, 10000}, {10000, 10000}, {15635, 15635}, 10000000, 50}));
  AVContentLightMetadata light{};
  light.MaxCLL = 1000;
  light.MaxFALL = 400;
  Attach(AV_PKT_DATA_CONTENT_LIGHT_LEVEL, light);
  EXPECT_EQ(Describe().lightLevel, (LightLevel{1000, 400}));
  AVDOVIDecoderConfigurationRecord dolby{};
  dolby.dv_profile = 8;
  dolby.dv_bl_signal_compatibility_id = 4;
  Attach(AV_PKT_DATA_DOVI_CONF, dolby);
  ASSERT_TRUE(Describe().dolbyVision.has_value());
  EXPECT_EQ(Describe().dolbyVision->dv_profile, 8);
  EXPECT_EQ(Describe().dolbyVision->dv_bl_signal_compatibility_id, 4);
  int32_t matrix[9];
  av_display_rotation_set(matrix, -90);  // it counts clockwise
  Attach(AV_PKT_DATA_DISPLAYMATRIX, matrix);
  EXPECT_NEAR(Describe().rotation.value(), 90, 0.001);
}

}  // namespace
}  // namespace qlnmedia

// HDR values of a container: units of the standards against libav's fractions.

#include "container/hdr_side_data.h"

#include <gtest/gtest.h>

#include <memory>

namespace qlnmedia {
namespace {

struct ContextFreer {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};

class SideData : public testing::Test {
 protected:
  AVMasteringDisplayMetadata& Display() {
    return *reinterpret_cast<AVMasteringDisplayMetadata*>(
        av_stream_get_side_data(stream_, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, nullptr));
  }
  std::unique_ptr<AVFormatContext, ContextFreer> context_{avformat_alloc_context()};
  AVStream* stream_ = avformat_new_stream(context_.get(), nullptr);
};

const MasteringDisplay kDisplay{{34000, 16000}, {13250, 34500}, {7500, 3000}, {15635, 16450}, 10000000, 50};

// Chromaticities in units of 0.00002, luminances of 0.0001 cd/m2 (ITU-T H.265 clause D.3.28), in the order
// red, green, blue.
TEST_F(SideData, MasteringDisplayInItsUnits) {
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
  SetContainerMastering(stream_, kDisplay);
  EXPECT_EQ(av_cmp_q(Display().display_primaries[0][0], {68, 100}), 0);
  EXPECT_EQ(av_cmp_q(Display().display_primaries[1][1], {69, 100}), 0);
  EXPECT_EQ(av_cmp_q(Display().display_primaries[2][0], {15, 100}), 0);
  EXPECT_EQ(av_cmp_q(Display().white_point[0], {3127, 10000}), 0);
  EXPECT_EQ(av_cmp_q(Display().max_luminance, {1000, 1}), 0);
  EXPECT_EQ(av_cmp_q(Display().min_luminance, {5, 1000}), 0);
  EXPECT_EQ(ContainerHdr(*stream_).mastering, kDisplay);
}

TEST_F(SideData, OtherFractionsAreRounded) {
  SetContainerMastering(stream_, kDisplay);
  Display().display_primaries[0][0] = {17, 25};
  Display().max_luminance = {4000, 1};
  Display().min_luminance = {1, 3};
  const MasteringDisplay read = ContainerHdr(*stream_).mastering.value();
  EXPECT_EQ(read.red.x, 34000);
  EXPECT_EQ(read.maxLuminance, 40000000u);
  EXPECT_EQ(read.minLuminance, 3333u);
}

TEST_F(SideData, HalfOfADisplayIsNone) {
  SetContainerMastering(stream_, kDisplay);
  Display().has_luminance = 0;
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
  Display().has_luminance = 1;
  Display().has_primaries = 0;
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
}

TEST_F(SideData, LightLevel) {
  SetContainerLightLevel(stream_, {1000, 400});
  EXPECT_EQ(ContainerHdr(*stream_).lightLevel, (LightLevel{1000, 400}));
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
}

}  // namespace
}  // namespace qlnmedia

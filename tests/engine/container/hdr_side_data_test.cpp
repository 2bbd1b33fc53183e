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
  template <class Data>
  Data& Add(AVPacketSideDataType type) {
    auto* const data = reinterpret_cast<Data*>(av_stream_new_side_data(stream_, type, sizeof(Data)));
    return *data = Data{};
  }
  // What libav's readers tell of a display.
  void AddDisplay() {
    auto& display = Add<AVMasteringDisplayMetadata>(AV_PKT_DATA_MASTERING_DISPLAY_METADATA);
    constexpr AVRational kPoints[3][2] = {
        {{68, 100}, {32, 100}}, {{265, 1000}, {69, 100}}, {{15, 100}, {6, 100}}};
    for (int i = 0; i < 3; ++i) {
      for (int axis = 0; axis < 2; ++axis) display.display_primaries[i][axis] = kPoints[i][axis];
    }
    display.white_point[0] = {3127, 10000};
    display.white_point[1] = {3290, 10000};
    display.max_luminance = {1000, 1};
    display.min_luminance = {5, 1000};
    display.has_primaries = display.has_luminance = 1;
  }
  std::unique_ptr<AVFormatContext, ContextFreer> context_{avformat_alloc_context()};
  AVStream* stream_ = avformat_new_stream(context_.get(), nullptr);
};

const MasteringDisplay kDisplay{{34000, 16000}, {13250, 34500}, {7500, 3000}, {15635, 16450}, 10000000, 50};

// Chromaticities in units of 0.00002, luminances of 0.0001 cd/m2 (ITU-T H.265 clause D.3.28), in the order
// red, green, blue.
TEST_F(SideData, MasteringDisplayInItsUnits) {
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
  AddDisplay();
  EXPECT_EQ(ContainerHdr(*stream_).mastering, kDisplay);
}

TEST_F(SideData, OtherFractionsAreRounded) {
  AddDisplay();
  Display().display_primaries[0][0] = {17, 25};
  Display().max_luminance = {4000, 1};
  Display().min_luminance = {1, 3};
  const MasteringDisplay read = ContainerHdr(*stream_).mastering.value();
  EXPECT_EQ(read.red.x, 34000);
  EXPECT_EQ(read.maxLuminance, 40000000u);
  EXPECT_EQ(read.minLuminance, 3333u);
}

TEST_F(SideData, HalfOfADisplayIsNone) {
  AddDisplay();
  Display().has_luminance = 0;
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
  Display().has_luminance = 1;
  Display().has_primaries = 0;
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
}

TEST_F(SideData, LightLevel) {
  auto& light = Add<AVContentLightMetadata>(AV_PKT_DATA_CONTENT_LIGHT_LEVEL);
  light.MaxCLL = 1000;
  light.MaxFALL = 400;
  EXPECT_EQ(ContainerHdr(*stream_).lightLevel, (LightLevel{1000, 400}));
  EXPECT_FALSE(ContainerHdr(*stream_).mastering);
}

}  // namespace
}  // namespace qlnmedia

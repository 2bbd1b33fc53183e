// Caption data in user data of coded pictures, byte for byte.

#include "captions/user_data.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "qlnutil/qlninband.h"
#include "support/test_support.h"

namespace qlnmedia::captions {
namespace {

using qln::test::ExactCopy;

const std::vector<Triplet> kTwo = {{true, CcType::kField1, 0x94, 0x2C}, {}};

TEST(UserData, LaysOutTheTriplets) {
  EXPECT_EQ(MakeUserData(kTwo),
            (Bytes{'G', 'A', '9', '4', 0x03, 0xC2, 0xFF, 0xFC, 0x94, 0x2C, 0xFA, 0, 0, 0xFF}));
  EXPECT_EQ(MakeUserData({}), (Bytes{'G', 'A', '9', '4', 0x03, 0xC0, 0xFF, 0xFF}));
}

TEST(UserData, StandsBehindTheCodesOfItsCarrier) {
  EXPECT_EQ(MakeRegisteredUserData(kTwo), (Bytes{0xB5, 0x00, 0x31, 'G', 'A', '9', '4', 0x03, 0xC2, 0xFF, 0xFC,
                                                 0x94, 0x2C, 0xFA, 0, 0, 0xFF}));
  EXPECT_EQ(MakePictureUserData(kTwo),
            (Bytes{0, 0, 1, 0xB2, 'G', 'A', '9', '4', 0x03, 0xC2, 0xFF, 0xFC, 0x94, 0x2C, 0xFA, 0, 0, 0xFF}));
}

TEST(UserData, TakesNoMoreTripletsThanTheCountHolds) {
  const Bytes data = MakeUserData(std::vector<Triplet>(40));
  EXPECT_EQ(data[5], 0xDF);
  EXPECT_EQ(data.size(), 8u + 3 * 31);
}

TEST(UserData, HoldsEveryKindOfTriplet) {
  std::vector<Triplet> triplets;
  for (const bool valid : {false, true}) {
    for (const CcType type : {CcType::kField1, CcType::kField2, CcType::kServiceData, CcType::kServiceStart})
      triplets.push_back({valid, type, 0x12, 0x34});
  }
  const Bytes data = MakeUserData(triplets);
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(data[7 + 3 * i], 0xF8 + i);
  EXPECT_EQ(ReadUserData(data), triplets);
  EXPECT_EQ(ReadRegisteredUserData(MakeRegisteredUserData(triplets)), triplets);
}

TEST(UserData, NeverHoldsAStartCode) {
  const std::vector<Triplet> triplets(31, Triplet{true, CcType::kServiceData, 0, 0});
  const Bytes data = MakePictureUserData(triplets);
  const Bytes zeros = {0, 0};
  for (auto at = data.begin() + 4;
       (at = std::search(at, data.end(), zeros.begin(), zeros.end())) != data.end(); ++at)
    EXPECT_GT(at[2], 3);
}

TEST(UserData, IsReadBroken) {
  const Bytes whole = MakeUserData(kTwo);
  for (size_t size = 0; size <= whole.size(); ++size) {
    ExactCopy copy(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    const auto triplets = ReadUserData({copy.data(), copy.size()});
    ASSERT_EQ(triplets.has_value(), size >= 5) << size;
    const size_t count = size >= 13 ? 2 : size >= 10 ? 1 : 0;
    EXPECT_EQ(triplets.value_or(std::vector<Triplet>()).size(), count) << size;
  }
}

TEST(UserData, OtherUserDataIsNone) {
  for (const size_t place : {0u, 1u, 2u, 3u, 4u}) {
    Bytes data = MakeUserData(kTwo);
    data[place] ^= 1;
    EXPECT_FALSE(ReadUserData(data)) << place;
  }
  for (const size_t place : {0u, 1u, 2u}) {
    Bytes data = MakeRegisteredUserData(kTwo);
    data[place] ^= 1;
    EXPECT_FALSE(ReadRegisteredUserData(data)) << place;
  }
}

TEST(UserData, TellsWhetherItIsToBeProcessed) {
  Bytes data = MakeUserData(kTwo);
  data[5] &= 0xBF;
  EXPECT_EQ(ReadUserData(data), std::vector<Triplet>());
}

// The library makes the same messages out of a caption packet, where its ten triplets suffice.
TEST(UserData, IsWhatTheLibraryMakes) {
  CaptionPacket packet;
  packet.rate = Rate::k59_94;
  packet.triplets.assign(10, Triplet{});
  packet.triplets[0] = kTwo[0];
  packet.triplets[9] = {true, CcType::kServiceStart, 0x42, 0x21};
  const Bytes captions = FramePacket(WrapInAnc(WriteCdp(packet)));
  Bytes message = {0x04, 3 + 8 + 30};
  const Bytes payload = MakeRegisteredUserData(packet.triplets);
  message.insert(message.end(), payload.begin(), payload.end());
  message.push_back(0x80);

  const auto made = [&](const Bytes& slice, const auto& add) {
    Bytes data(1024);
    std::copy(slice.begin(), slice.end(), data.begin());
    DFrame frame{};
    frame.frameData = data.data();
    frame.frameSize = static_cast<uint32_t>(slice.size());
    frame.frameCapacity = static_cast<uint32_t>(data.size());
    return add(&frame) ? data : Bytes();
  };
  Bytes unit = {0, 0, 0, 1, 0x4E, 0x01};
  unit.insert(unit.end(), message.begin(), message.end());
  Bytes data = made({0, 0, 0, 1, 0x26, 0x01, 0x80}, [&](DFrame* frame) {
    std::copy(captions.begin(), captions.end(), frame->captionData);
    frame->captionSize = static_cast<uint32_t>(captions.size());
    return qlnUtilAddHevcCaptions(frame, 0) == unit.size();
  });
  ASSERT_GE(data.size(), unit.size());
  EXPECT_EQ(Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(unit.size())), unit);

  unit = {0, 0, 0, 1, 0x06};
  unit.insert(unit.end(), message.begin(), message.end());
  data = made({0, 0, 0, 1, 0x67, 0x42, 0, 0, 0, 1, 0x68, 0x80, 0, 0, 0, 1, 0x65, 0x80}, [&](DFrame* frame) {
    return qlnutilAddAVCCaptions(frame, captions.data(), static_cast<uint32_t>(captions.size()), 0) == 0;
  });
  ASSERT_GE(data.size(), 12 + unit.size());
  EXPECT_EQ(Bytes(data.begin() + 12, data.begin() + 12 + static_cast<std::ptrdiff_t>(unit.size())), unit);
}

}  // namespace
}  // namespace qlnmedia::captions

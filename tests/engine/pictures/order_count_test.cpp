// Picture order counts against the equations of ITU-T H.264 clause 8.2.1 and H.265 clause 8.3.1, worked by
// hand.

#include "pictures/order_count.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

namespace qlnmedia {
namespace {

std::shared_ptr<SpsFacts> Sps(uint32_t pocType) {
  auto sps = std::make_shared<SpsFacts>();
  sps->log2MaxPocLsb = 4;
  sps->h264.log2MaxFrameNum = 4;
  sps->h264.pocType = pocType;
  return sps;
}

// What the pictures of a test differ in.
struct Picture {
  uint32_t lsb = 0;
  uint32_t frameNum = 0;
  bool idr = false;
  bool reference = true;
  bool resets = false;
  int32_t delta = 0;  // delta_pic_order_cnt_bottom, delta_pic_order_cnt[0]
  int32_t deltaOfBottom = 0;
  bool field = false;
  bool bottom = false;
  bool second = false;
};

class Avc {
 public:
  explicit Avc(std::shared_ptr<const SpsFacts> sps) : sps_(std::move(sps)) {}
  std::tuple<int64_t, int64_t, int64_t> Next(const Picture& picture) {
    SliceHead head;
    head.sps = sps_;
    head.unitType = picture.idr ? 5 : 1;
    head.refIdc = picture.reference ? 1 : 0;
    head.pocLsb = picture.lsb;
    head.frameNum = picture.frameNum;
    head.resetsOrder = picture.resets;
    head.deltaPocBottom = picture.delta;
    head.deltaPoc = {picture.delta, picture.deltaOfBottom};
    head.field = picture.field;
    head.bottom = picture.bottom;
    const OrderCount count = counter_.Next(head, picture.second);
    return {count.group, count.top, count.bottom};
  }

 private:
  std::shared_ptr<const SpsFacts> sps_;
  OrderCounter counter_{Codec::kH264};
};

using Count = std::tuple<int64_t, int64_t, int64_t>;

TEST(OrderCountType0, WrapsForwardsAndBackwardsByHalfTheRange) {
  Avc avc(Sps(0));
  EXPECT_EQ(avc.Next({.idr = true}), Count(1, 0, 0));
  EXPECT_EQ(avc.Next({.lsb = 8}), Count(1, 8, 8));                      // 8 ahead is still ahead
  EXPECT_EQ(avc.Next({.lsb = 0}), Count(1, 16, 16));                    // 8 behind is a wrap
  EXPECT_EQ(avc.Next({.lsb = 9, .reference = false}), Count(1, 9, 9));  // more than 8 ahead was before
  EXPECT_EQ(avc.Next({.lsb = 4, .reference = false}),
            Count(1, 20, 20));  // counted from the reference, not from 9
  EXPECT_EQ(avc.Next({.lsb = 8}), Count(1, 24, 24));
}

TEST(OrderCountType0, FieldsOfAFrame) {
  Avc avc(Sps(0));
  EXPECT_EQ(avc.Next({.idr = true, .delta = 1}), Count(1, 0, 1));
  EXPECT_EQ(avc.Next({.lsb = 4, .delta = -1}), Count(1, 4, 3));
  // Of a field, its own count alone.
  EXPECT_EQ(avc.Next({.lsb = 6, .delta = 5, .field = true}), Count(1, 6, 6));
  EXPECT_EQ(avc.Next({.lsb = 7, .field = true, .bottom = true, .second = true}), Count(1, 7, 7));
}

TEST(OrderCountType0, AnIdrBeginsAGroupButNotItsSecondField) {
  Avc avc(Sps(0));
  avc.Next({.idr = true});
  avc.Next({.lsb = 8});
  avc.Next({.lsb = 15});
  EXPECT_EQ(avc.Next({.idr = true, .field = true}), Count(2, 0, 0));
  EXPECT_EQ(avc.Next({.lsb = 1, .field = true, .bottom = true, .second = true}), Count(2, 1, 1));
}

// memory_management_control_operation 5: the picture has its count, less the smaller of its fields', for
// those behind it.
TEST(OrderCountType0, AResetIsLikeAnIdrForWhatFollows) {
  Avc avc(Sps(0));
  avc.Next({.idr = true});
  EXPECT_EQ(avc.Next({.lsb = 6, .resets = true, .delta = 2}), Count(2, 0, 2));
  EXPECT_EQ(avc.Next({.lsb = 4}), Count(2, 4, 4));
  // Its bottom first: what follows counts from the top field's count.
  EXPECT_EQ(avc.Next({.lsb = 8, .resets = true, .delta = -3}), Count(3, 3, 0));
  EXPECT_EQ(avc.Next({.lsb = 11}), Count(3, 11, 11));  // 8 ahead of 3
  EXPECT_EQ(avc.Next({.lsb = 3, .reference = false}), Count(3, 19, 19));
}

TEST(OrderCountType1, FollowsTheCycleOfItsSet) {
  auto sps = Sps(1);
  sps->h264.pocCycle = {.nonReference = -3, .topToBottom = 1, .offsets = {2, 6}};
  Avc avc(sps);
  EXPECT_EQ(avc.Next({.idr = true}), Count(1, 0, 1));
  EXPECT_EQ(avc.Next({.frameNum = 1}), Count(1, 2, 3));                      // one step: 2
  EXPECT_EQ(avc.Next({.frameNum = 2}), Count(1, 8, 9));                      // 2 + 6
  EXPECT_EQ(avc.Next({.frameNum = 3}), Count(1, 10, 11));                    // a whole cycle and 2
  EXPECT_EQ(avc.Next({.frameNum = 4, .reference = false}), Count(1, 7, 8));  // as number 3, and 3 less
  EXPECT_EQ(avc.Next({.frameNum = 4, .delta = 5, .deltaOfBottom = -2}), Count(1, 21, 20));
  EXPECT_EQ(avc.Next({.frameNum = 5, .field = true, .bottom = true}), Count(1, 19, 19));
  EXPECT_EQ(avc.Next({.frameNum = 5, .field = true}), Count(1, 18, 18));
}

TEST(OrderCountType1, FrameNumbersWrap) {
  auto sps = Sps(1);
  sps->h264.pocCycle = {.offsets = {2}};
  Avc avc(sps);
  avc.Next({.idr = true});
  EXPECT_EQ(avc.Next({.frameNum = 15}), Count(1, 30, 30));
  EXPECT_EQ(avc.Next({.frameNum = 0}), Count(1, 32, 32));
  EXPECT_EQ(avc.Next({.frameNum = 1}), Count(1, 34, 34));
  EXPECT_EQ(avc.Next({.idr = true}), Count(2, 0, 0));
  EXPECT_EQ(avc.Next({.frameNum = 1}), Count(2, 2, 2));
}

TEST(OrderCountType1, ACycleOfNothingLeavesTheDeltas) {
  auto sps = Sps(1);
  sps->h264.pocCycle.nonReference = -1;
  Avc avc(sps);
  avc.Next({.idr = true});
  EXPECT_EQ(avc.Next({.frameNum = 3, .delta = 7}), Count(1, 7, 7));
  EXPECT_EQ(avc.Next({.frameNum = 4, .reference = false, .delta = 7}), Count(1, 6, 6));
}

TEST(OrderCountType2, IsTheOrderOfCoding) {
  Avc avc(Sps(2));
  EXPECT_EQ(avc.Next({.idr = true}), Count(1, 0, 0));
  EXPECT_EQ(avc.Next({.frameNum = 1}), Count(1, 2, 2));
  EXPECT_EQ(avc.Next({.frameNum = 2, .reference = false}), Count(1, 3, 3));
  EXPECT_EQ(avc.Next({.frameNum = 2}), Count(1, 4, 4));
  EXPECT_EQ(avc.Next({.frameNum = 15}), Count(1, 30, 30));
  EXPECT_EQ(avc.Next({.frameNum = 0}), Count(1, 32, 32));
  EXPECT_EQ(avc.Next({.frameNum = 1, .resets = true}), Count(2, 0, 0));
  EXPECT_EQ(avc.Next({.frameNum = 1}), Count(2, 2, 2));
}

class Hevc {
 public:
  std::pair<int64_t, int64_t> Next(int type, uint32_t lsb, uint32_t temporalId = 0) {
    SliceHead head;
    head.sps = sps_;
    head.unitType = type;
    head.pocLsb = lsb;
    head.temporalId = temporalId;
    const OrderCount count = counter.Next(head, false);
    EXPECT_EQ(count.top, count.bottom);
    return {count.group, count.top};
  }
  OrderCounter counter{Codec::kHevc};

 private:
  std::shared_ptr<const SpsFacts> sps_ = Sps(0);
};

using Place = std::pair<int64_t, int64_t>;
constexpr int kTrailN = 0, kTrailR = 1, kRadlR = 7, kRaslR = 9, kBlaW = 16, kIdrN = 20, kCra = 21;

TEST(OrderCountHevc, CountsFromReferencesOfTheLowestSubLayer) {
  Hevc hevc;
  EXPECT_EQ(hevc.Next(kIdrN, 0), Place(1, 0));
  EXPECT_EQ(hevc.Next(kTrailR, 7), Place(1, 7));
  EXPECT_EQ(hevc.Next(kTrailR, 14, 1), Place(1, 14));  // of a higher sub-layer
  EXPECT_EQ(hevc.Next(kTrailN, 13), Place(1, 13));     // nothing refers to it
  EXPECT_EQ(hevc.Next(kRaslR, 12), Place(1, 12));
  EXPECT_EQ(hevc.Next(kRadlR, 11), Place(1, 11));
  EXPECT_EQ(hevc.Next(kTrailR, 0), Place(1, 0));  // 7 back of the reference is no wrap
  EXPECT_EQ(hevc.Next(kTrailR, 8), Place(1, 8));
  EXPECT_EQ(hevc.Next(kTrailR, 0), Place(1, 16));  // 8 back is one
}

TEST(OrderCountHevc, ACraBeginsAnewOnlyBehindAnEndOfSequence) {
  Hevc hevc;
  hevc.Next(kIdrN, 0);
  hevc.Next(kTrailR, 7);
  hevc.Next(kTrailR, 14);
  EXPECT_EQ(hevc.Next(kCra, 5), Place(1, 21));
  hevc.counter.EndSequence();
  EXPECT_EQ(hevc.Next(kCra, 5), Place(2, 5));
  EXPECT_EQ(hevc.Next(kTrailR, 1), Place(2, 1));
  EXPECT_EQ(hevc.Next(kBlaW, 9), Place(3, 9));
  EXPECT_EQ(hevc.Next(kTrailR, 2), Place(3, 2));
}

TEST(OrderCountHevc, AStreamThatBeginsAnywhereHasAGroup) {
  Hevc hevc;
  EXPECT_EQ(hevc.Next(kTrailR, 3).first, 1);
  EXPECT_EQ(hevc.Next(kTrailR, 4).first, 1);
}

}  // namespace
}  // namespace qlnmedia

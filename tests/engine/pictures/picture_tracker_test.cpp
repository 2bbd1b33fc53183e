// Slice headers, picture order counts and field pairs, against the equations of the standards and streams
// built by their syntax.

#include "pictures/picture_tracker.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/field_stream.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::CodedFrame;
using qln::test::MakeFieldPictures;

using Counts = std::vector<std::array<int64_t, 3>>;  // group, top, bottom

SliceHead Head(const SpsFacts& sps, int unitType, uint32_t refIdc) {
  SliceHead head;
  head.sps = std::make_shared<const SpsFacts>(sps);
  head.unitType = unitType;
  head.refIdc = refIdc;
  return head;
}

std::array<int64_t, 3> Flat(const OrderCount& count) { return {count.group, count.top, count.bottom}; }

TEST(OrderCounter, H264Type0WrapsInBothDirections) {
  SpsFacts sps;
  sps.log2MaxPocLsb = 4;
  struct Step {
    int type;
    uint32_t refIdc, lsb;
    int32_t deltaBottom;
    std::array<int64_t, 3> expected;
  };
  OrderCounter counter(Codec::kH264);
  for (const Step& step :
       {Step{5, 1, 0, 1, {1, 0, 1}}, Step{1, 1, 8, 1, {1, 8, 9}}, Step{1, 0, 4, -1, {1, 4, 3}},
        Step{1, 1, 0, 1, {1, 16, 17}}, Step{1, 0, 12, 0, {1, 12, 12}}, Step{1, 0, 14, 0, {1, 14, 14}},
        Step{5, 1, 2, 0, {2, 2, 2}}}) {
    SliceHead head = Head(sps, step.type, step.refIdc);
    head.pocLsb = step.lsb;
    head.deltaPocBottom = step.deltaBottom;
    EXPECT_EQ(Flat(counter.Next(head, false)), step.expected) << step.lsb;
  }
}

TEST(OrderCounter, H264Type1AddsTheOffsetsOfItsCycle) {
  SpsFacts sps;
  sps.h264.pocType = 1;
  sps.h264.pocCycle.nonReference = -3;
  sps.h264.pocCycle.topToBottom = 1;
  sps.h264.pocCycle.offsets = {2, 4};
  OrderCounter counter(Codec::kH264);
  const auto next = [&](int type, uint32_t refIdc, uint32_t frameNum, std::array<int32_t, 2> delta) {
    SliceHead head = Head(sps, type, refIdc);
    head.frameNum = frameNum;
    head.deltaPoc = delta;
    return Flat(counter.Next(head, false));
  };
  EXPECT_EQ(next(5, 1, 0, {0, 0}), (std::array<int64_t, 3>{1, 0, 1}));
  EXPECT_EQ(next(1, 1, 1, {0, 0}), (std::array<int64_t, 3>{1, 2, 3}));
  EXPECT_EQ(next(1, 1, 2, {0, 5}), (std::array<int64_t, 3>{1, 6, 12}));
  EXPECT_EQ(next(1, 1, 3, {-1, 0}), (std::array<int64_t, 3>{1, 7, 8}));
  EXPECT_EQ(next(1, 0, 4, {0, 0}), (std::array<int64_t, 3>{1, 5, 6}));
  EXPECT_EQ(next(1, 1, 15, {0, 0}), (std::array<int64_t, 3>{1, 44, 45}));
  // frame_num wraps at 16: 17 frames are eight cycles and one.
  EXPECT_EQ(next(1, 1, 1, {0, 0}), (std::array<int64_t, 3>{1, 50, 51}));
  SliceHead bottom = Head(sps, 1, 1);
  bottom.frameNum = 2;
  bottom.field = bottom.bottom = true;
  bottom.deltaPoc = {10, 0};
  EXPECT_EQ(Flat(counter.Next(bottom, true)), (std::array<int64_t, 3>{1, 65, 65}));
}

TEST(OrderCounter, H264Type2FollowsCodingOrder) {
  SpsFacts sps;
  sps.h264.pocType = 2;
  OrderCounter counter(Codec::kH264);
  int64_t expected = 0;
  for (uint32_t i = 0; i < 40; ++i) {
    SliceHead head = Head(sps, i == 0 ? 5 : 1, 1);
    head.frameNum = i % 16;
    EXPECT_EQ(counter.Next(head, false).top, expected);
    expected += 2;
  }
  SliceHead nonReference = Head(sps, 1, 0);
  nonReference.frameNum = 40 % 16;
  EXPECT_EQ(counter.Next(nonReference, false).top, expected - 1);
}

TEST(OrderCounter, H264Operation5BeginsAnew) {
  SpsFacts sps;
  sps.log2MaxPocLsb = 4;
  OrderCounter counter(Codec::kH264);
  counter.Next(Head(sps, 5, 1), false);
  SliceHead reset = Head(sps, 1, 1);
  reset.pocLsb = 6;
  reset.deltaPocBottom = -1;
  reset.resetsOrder = true;
  EXPECT_EQ(Flat(counter.Next(reset, false)), (std::array<int64_t, 3>{2, 1, 0}));
  SliceHead leading = Head(sps, 1, 0);
  leading.pocLsb = 15;  // two below the top field of the picture with the operation
  EXPECT_EQ(Flat(counter.Next(leading, false)), (std::array<int64_t, 3>{2, -1, -1}));
}

TEST(OrderCounter, HevcCountsFromPicturesThatOthersMayCountFrom) {
  SpsFacts sps;
  sps.log2MaxPocLsb = 4;
  OrderCounter counter(Codec::kHevc);
  const auto next = [&](int type, uint32_t lsb, uint32_t temporalId = 0) {
    SliceHead head = Head(sps, type, 0);
    head.pocLsb = lsb;
    head.temporalId = temporalId;
    const OrderCount count = counter.Next(head, false);
    return std::pair<int64_t, int64_t>(count.group, count.top);
  };
  using Place = std::pair<int64_t, int64_t>;
  EXPECT_EQ(next(21, 3), Place(1, 3));     // CRA at the beginning
  EXPECT_EQ(next(8, 1), Place(1, 1));      // RASL_N: nothing counts from it
  EXPECT_EQ(next(1, 11), Place(1, 11));    // TRAIL_R
  EXPECT_EQ(next(0, 7), Place(1, 7));      // TRAIL_N
  EXPECT_EQ(next(1, 2, 1), Place(1, 18));  // of a higher temporal layer
  EXPECT_EQ(next(1, 3), Place(1, 19));
  EXPECT_EQ(next(21, 9), Place(1, 25));  // a CRA picture in the middle goes on counting
  EXPECT_EQ(next(19, 0), Place(2, 0));   // IDR
  EXPECT_EQ(next(16, 5), Place(3, 5));   // BLA
  counter.EndSequence();
  EXPECT_EQ(next(21, 2), Place(4, 2));
}

// Every picture of a stream, a packet each or both fields of a frame in one.
std::vector<CodedPicture> Track(const std::vector<CodedFrame>& frames,
                                const qln::test::FieldStreamOptions& options, bool bothInOnePacket) {
  const std::vector<Bytes> pictures = MakeFieldPictures(frames, options);
  PictureTracker tracker(Codec::kH264);
  std::vector<CodedPicture> tracked;
  size_t next = 0;
  for (const CodedFrame& frame : frames) {
    std::vector<Bytes> packets = {pictures[next++]};
    if (frame.fields) packets.push_back(pictures[next++]);
    if (bothInOnePacket && packets.size() == 2) {
      packets[0].insert(packets[0].end(), packets[1].begin(), packets[1].end());
      packets.pop_back();
    }
    for (const Bytes& packet : packets) {
      const auto units = TakeApart(packet, Framing{}).units;
      for (const CodedPicture& picture : tracker.Take(units)) tracked.push_back(picture);
    }
  }
  return tracked;
}

TEST(PictureTracker, PlacesFieldsAndFrames) {
  std::vector<CodedFrame> frames = {{.place = 0, .idr = true}, {.place = 3, .fields = false}};
  for (int place = 1; place < 3; ++place) frames.push_back({.place = place, .reference = false});
  frames.push_back({.place = 4, .bottomFirst = true});
  for (int place = 5; place < 40; ++place) frames.push_back({.place = place, .fields = place % 3 != 0});
  frames.push_back({.place = 0, .idr = true, .bottomFirst = true});
  for (const int pocType : {0, 1}) {
    for (const bool bothInOnePacket : {false, true}) {
      const auto tracked =
          Track(frames, {.pocType = pocType, .delimiters = bothInOnePacket}, bothInOnePacket);
      size_t next = 0;
      for (const CodedFrame& frame : frames) {
        const int64_t group = &frame == &frames.back() ? 2 : 1;
        const int64_t top = 2 * frame.place + (frame.bottomFirst ? 1 : 0);
        const int64_t bottom = 2 * frame.place + (frame.bottomFirst ? 0 : 1);
        ASSERT_LT(next, tracked.size());
        const CodedPicture& first = tracked[next++];
        EXPECT_FALSE(first.secondField);
        EXPECT_EQ(first.head->field, frame.fields);
        if (!frame.fields) {
          EXPECT_EQ(Flat(first.order), (std::array<int64_t, 3>{group, top, bottom})) << pocType;
          continue;
        }
        ASSERT_LT(next, tracked.size());
        const CodedPicture& second = tracked[next++];
        EXPECT_TRUE(second.secondField);
        EXPECT_EQ(first.head->bottom, frame.bottomFirst);
        EXPECT_EQ(second.head->bottom, !frame.bottomFirst);
        EXPECT_EQ(second.begin != 0, bothInOnePacket);
        const int64_t own = frame.bottomFirst ? bottom : top;
        const int64_t other = frame.bottomFirst ? top : bottom;
        EXPECT_EQ(Flat(first.order), (std::array<int64_t, 3>{group, own, own})) << pocType << frame.place;
        EXPECT_EQ(Flat(second.order), (std::array<int64_t, 3>{group, other, other}))
            << pocType << frame.place;
      }
      EXPECT_EQ(next, tracked.size());
    }
  }
}

TEST(PictureTracker, AFieldWithoutItsOtherHalfIsAFrameOfItsOwn) {
  const std::vector<Bytes> pictures = MakeFieldPictures(
      {{.place = 0, .idr = true}, {.place = 1}, {.place = 2, .reference = false}, {.place = 3}});
  PictureTracker tracker(Codec::kH264);
  std::vector<bool> second;
  for (size_t i = 0; i < pictures.size(); ++i) {
    if (i == 3 || i == 4) continue;  // the bottom field of one frame and the top field of the next
    for (const auto& picture : tracker.Take(TakeApart(pictures[i], Framing{}).units))
      second.push_back(picture.secondField);
  }
  // A field of the next frame has another frame_num.
  EXPECT_EQ(second, (std::vector<bool>{false, true, false, false, false, true}));
}

// Without its sets a slice still says whether it is the first of its picture.
TEST(PictureTracker, PicturesWithoutTheirSetsAreToldApartByTheirFirstSlices) {
  const std::vector<Bytes> pictures = MakeFieldPictures({{.place = 0, .idr = true}, {.place = 1}}, {});
  Bytes both = pictures[2];
  both.insert(both.end(), pictures[3].begin(), pictures[3].end());
  PictureTracker tracker(Codec::kH264);
  const auto tracked = tracker.Take(TakeApart(both, Framing{}).units);
  ASSERT_EQ(tracked.size(), 2u);
  EXPECT_FALSE(tracked[0].head || tracked[1].head);
  EXPECT_EQ(FirstPlaced(tracked), nullptr);
  EXPECT_EQ(tracked[0].end, 1u);
  EXPECT_EQ(tracked[1].begin, 1u);
  // In Baseline and Extended profile any slice may be the first that comes.
  tracker.TakeSet(qln::test::Hex("67 42 00 1F 95"));
  EXPECT_EQ(tracker.Take(TakeApart(both, Framing{}).units).size(), 1u);
}

// With them, what the header says decides, wherever its macroblocks begin (ITU-T H.264 clause 7.4.1.2.4).
TEST(PictureTracker, SlicesOfOnePictureStayTogether) {
  const std::vector<Bytes> pictures = MakeFieldPictures({{.place = 0, .idr = true, .fields = false}}, {});
  std::vector<Unit> units = TakeApart(pictures[0], Framing{}).units;
  units.push_back(units.back());
  PictureTracker tracker(Codec::kH264);
  const auto tracked = tracker.Take(units);
  ASSERT_EQ(tracked.size(), 1u);
  EXPECT_EQ(tracked[0].slice, units.size() - 2);
  EXPECT_EQ(tracked[0].end, units.size());
  EXPECT_EQ(tracker.SlicesOf(units, tracked[0]), static_cast<unsigned>(kSliceI));
}

TEST(PictureTracker, TheAccessUnitOfASecondFieldBeginsWithItsDelimiter) {
  const std::vector<Bytes> pictures =
      MakeFieldPictures({{.place = 0, .idr = true}}, {.pictureTiming = true, .delimiters = true});
  Bytes both = pictures[0];
  both.insert(both.end(), pictures[1].begin(), pictures[1].end());
  PictureTracker tracker(Codec::kH264);
  const auto tracked = tracker.Take(TakeApart(both, Framing{}).units);
  ASSERT_EQ(tracked.size(), 2u);
  EXPECT_EQ(tracked[0].begin, 0u);
  EXPECT_EQ(tracked[1].begin, 5u);  // delimiter, SPS, PPS, SEI, slice; delimiter
}

// A progressive Main profile SPS with 4 bits of frame_num and of the order count, and a PPS with weights, two
// references and redundant_pic_cnt.
void TakeFrameSets(SliceHeadReader& reader) {
  reader.TakeSet(BitBuilder()
                     .u(8, 0x67)
                     .u(8, 77)
                     .u(8, 0)
                     .u(8, 30)
                     .ue(0)
                     .ue(0)
                     .ue(0)
                     .ue(0)
                     .ue(4)
                     .u(1, 0)
                     .ue(3)
                     .ue(3)
                     .u(1, 1)
                     .u(1, 1)
                     .u(1, 0)
                     .u(1, 0)
                     .trailing()
                     .bytes());
  reader.TakeSet(BitBuilder()
                     .u(8, 0x68)
                     .ue(0)
                     .ue(0)
                     .u(2, 0)
                     .ue(0)
                     .ue(1)
                     .ue(0)
                     .u(1, 1)
                     .u(2, 0)
                     .se(0)
                     .se(0)
                     .se(0)
                     .u(2, 0)
                     .u(1, 1)
                     .trailing()
                     .bytes());
}

// A P slice with every element in front of the reference marking that there can be.
Bytes MarkingSlice(bool reset) {
  BitBuilder b;
  b.u(8, 0x61).ue(0).ue(5).ue(0).u(4, 9).u(4, 7).ue(0);
  b.u(1, 1).ue(2);                          // three references
  b.u(1, 1).ue(0).ue(1).ue(2).ue(0).ue(3);  // list modification
  b.ue(5).ue(5);                            // weights
  b.u(1, 1).se(3).se(-4).u(1, 0);
  b.u(1, 0).u(1, 1).se(1).se(2).se(-3).se(4);
  b.u(1, 0).u(1, 0);
  b.u(1, 1).ue(1).ue(0).ue(2).ue(1).ue(3).ue(0).ue(0).ue(4).ue(1).ue(6).ue(0);
  if (reset) b.ue(5);
  b.ue(0);
  return b.se(0).ue(1).trailing().bytes();
}

TEST(SliceHeadReader, FindsOperation5BehindListsAndWeights) {
  SliceHeadReader reader(Codec::kH264);
  EXPECT_FALSE(reader.Read(MarkingSlice(true)).has_value());  // no sets yet
  TakeFrameSets(reader);
  for (const bool reset : {false, true}) {
    const auto head = reader.Read(MarkingSlice(reset));
    ASSERT_TRUE(head.has_value());
    EXPECT_EQ(head->frameNum, 9u);
    EXPECT_EQ(head->pocLsb, 7u);
    EXPECT_EQ(head->refIdc, 3u);
    EXPECT_FALSE(head->field);
    EXPECT_EQ(head->resetsOrder, reset);
  }
}

TEST(SliceHeadReader, WhateverTheBytes) {
  qln::test::Random random(7);
  for (int round = 0; round < 3000; ++round) {
    for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
      SliceHeadReader reader(codec);
      if (codec == Codec::kH264) TakeFrameSets(reader);
      for (const int type : codec == Codec::kH264 ? std::vector<int>{0x67, 0x68, 0x65, 0x61}
                                                  : std::vector<int>{0x42, 0x44, 0x26, 0x02}) {
        Bytes unit = random.zeroRichBytes(random.below(80));
        if (!unit.empty()) unit[0] = static_cast<uint8_t>(type);
        if (unit.size() > 1 && codec == Codec::kHevc) unit[1] = 1;
        reader.TakeSet(unit);
        (void)reader.Read(unit);
      }
    }
  }
  const Bytes whole = MarkingSlice(true);
  SliceHeadReader reader(Codec::kH264);
  TakeFrameSets(reader);
  for (size_t size = 0; size < whole.size(); ++size) {
    const auto head = reader.Read(ByteSpan(whole).first(size));
    EXPECT_EQ(head ? head->frameNum : 9u, 9u) << size;
  }
}

}  // namespace
}  // namespace qlnmedia

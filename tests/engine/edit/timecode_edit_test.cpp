// Timecodes of single pictures: which frame a picture belongs to, what is replaced, and what cannot be timed.

#include "edit/timecode_edit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/error.h"
#include "engine/small_streams.h"
#include "support/field_stream.h"

namespace qlnmedia {
namespace {

using test::HevcPictureTiming;
using test::HevcPps;
using test::HevcSlice;
using test::HevcSps;
using test::HevcSpsParts;
using testing::ElementsAre;
using testing::HasSubstr;

// The edit with what stands around it in an editor.
class Timed {
 public:
  Timed(Codec codec, const std::vector<Bytes>& sets, const std::string& start = "10:00:00:00")
      : codec_(codec), tracker_(codec) {
    StreamDescription stream;
    stream.codec = codec == Codec::kH264 ? VideoCodec::kH264 : VideoCodec::kHevc;
    stream.timeBase = {1, 25};
    stream.averageRate = stream.baseRate = {25, 1};
    for (const Bytes& set : sets) tracker_.TakeSet(set);
    StreamChanges changes;
    changes.timecode = start;
    ConfigRecord config;
    config.codec = codec;
    edit_.emplace(stream, config, changes, "clip", counts_);
  }
  void Announce(const std::vector<Bytes>& units, int64_t pts) {
    waiting_.push_back(PartUnits(codec_, tracker_, test::UnitList(units)));
    edit_->Announce({{}, pts, pts, false, -1}, waiting_.back());
  }
  bool Ready() const { return edit_->Ready(); }
  // The packets that were announced, changed.
  std::vector<std::vector<Unit>> Change() {
    std::vector<std::vector<Unit>> changed;
    for (std::vector<PictureUnits>& parts : waiting_) {
      touched.push_back(edit_->Change(parts));
      changed.push_back(JoinUnits(std::move(parts)));
    }
    waiting_.clear();
    return changed;
  }
  EditCounts counts_;
  std::vector<bool> touched;

 private:
  Codec codec_;
  PictureTracker tracker_;
  std::optional<TimecodeEdit> edit_;
  std::vector<std::vector<PictureUnits>> waiting_;
};

// The clocks of each packet's time code messages (ITU-T H.265 clause D.2.27).
std::vector<std::string> Clocks(const std::vector<std::vector<Unit>>& packets) {
  std::vector<std::string> clocks;
  for (const std::vector<Unit>& units : packets) {
    std::string all;
    for (const Unit& unit : units) {
      if (UnitType(Codec::kHevc, unit.bytes) != 39) continue;
      for (const SeiMessage& message : ReadSeiMessages(Codec::kHevc, unit.bytes)) {
        if (message.type == 136) all += ReadTimeCode(message.payload).at(0).Text();
      }
    }
    clocks.push_back(all);
  }
  return clocks;
}

std::vector<Bytes> Sets(const HevcSpsParts& parts = {}) { return {HevcSps(parts), HevcPps()}; }

std::string Refusal(const std::function<void()>& work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

TEST(TimecodeEdit, FramesByTheirTimes) {
  Timed timed(Codec::kHevc, Sets());
  timed.Announce({HevcSlice(19, 0)}, 0);
  timed.Announce({HevcSlice(1, 3, 1)}, 3);
  timed.Announce({HevcSlice(0, 1, 0)}, 1);
  timed.Announce({HevcSlice(0, 2, 0)}, 2);
  EXPECT_FALSE(timed.Ready());
  EXPECT_THAT(Clocks(timed.Change()),
              ElementsAre("10:00:00:00", "10:00:00:03", "10:00:00:01", "10:00:00:02"));
  EXPECT_EQ(timed.counts_.timecodes, 4);
}

TEST(TimecodeEdit, OneThatIsThereIsReplacedAndTheSameOneStays) {
  Timed first(Codec::kHevc, Sets());
  first.Announce({HevcSlice(19, 0)}, 0);
  std::vector<Bytes> coded;
  const auto firstChanged = first.Change();
  for (const Unit& unit : firstChanged[0]) coded.push_back(unit.bytes);
  Timed same(Codec::kHevc, Sets());
  same.Announce(coded, 0);
  EXPECT_THAT(Clocks(same.Change()), ElementsAre("10:00:00:00"));
  EXPECT_THAT(same.touched, ElementsAre(false));
  EXPECT_EQ(same.counts_.timecodes, 0);
  Timed other(Codec::kHevc, Sets(), "11:00:00:00");
  other.Announce(coded, 0);
  EXPECT_THAT(Clocks(other.Change()), ElementsAre("11:00:00:00"));
  EXPECT_THAT(other.touched, ElementsAre(true));
}

TEST(TimecodeEdit, WaitsUntilThePlaceOfTheFirstIsKnown) {
  Timed timed(Codec::kHevc, Sets());
  timed.Announce({test::HevcVps()}, 0);
  EXPECT_TRUE(timed.Ready());  // nothing to place
  timed.Change();
  for (size_t i = 0; i <= PresentationOrder::kAhead; ++i) {
    EXPECT_FALSE(timed.Ready()) << i;
    timed.Announce({i == 0 ? HevcSlice(19, 0) : HevcSlice(1, static_cast<uint32_t>(i), 1)},
                   static_cast<int64_t>(i));
  }
  EXPECT_TRUE(timed.Ready());
}

TEST(TimecodeEdit, TwoFieldsOfHevcShareOne) {
  const HevcSpsParts parts = {.fieldSeq = true, .frameFieldInfo = true};
  Timed timed(Codec::kHevc, Sets(parts));
  timed.Announce({HevcPictureTiming(1), HevcSlice(19, 0)}, 0);
  timed.Announce({HevcPictureTiming(10), HevcSlice(1, 1, 1)}, 1);
  timed.Announce({HevcPictureTiming(11), HevcSlice(1, 2, 1)}, 2);
  timed.Announce({HevcPictureTiming(2), HevcSlice(1, 3, 1)}, 3);
  EXPECT_THAT(Clocks(timed.Change()),
              ElementsAre("10:00:00:00", "10:00:00:00", "10:00:00:01", "10:00:00:01"));
}

TEST(TimecodeEdit, FieldsThatDoNotPairAreRefused) {
  const HevcSpsParts parts = {.fieldSeq = true, .frameFieldInfo = true};
  const auto fields = [&](const std::vector<uint32_t>& picStructs) {
    return Refusal([&] {
      Timed timed(Codec::kHevc, Sets(parts));
      for (uint32_t i = 0; i < picStructs.size(); ++i)
        timed.Announce({HevcPictureTiming(picStructs[i]), i == 0 ? HevcSlice(19, 0) : HevcSlice(1, i, 1)}, i);
      timed.Change();
    });
  };
  EXPECT_EQ(fields({2, 1, 12, 9}), "");
  EXPECT_THAT(fields({1, 2, 2, 1}), HasSubstr("has a field without its other half"));
  EXPECT_THAT(fields({1, 1}), HasSubstr("has a field without its other half"));
  EXPECT_THAT(fields({0}), HasSubstr("does not say whether it is a top or a bottom field"));
  // Without the information that message says nothing.
  EXPECT_THAT(Refusal([] {
                Timed timed(Codec::kHevc, Sets({.fieldSeq = true}));
                timed.Announce({HevcPictureTiming(1), HevcSlice(19, 0)}, 0);
                timed.Change();
              }),
              HasSubstr("does not say whether"));
  EXPECT_THAT(Refusal([] {
                Timed timed(Codec::kHevc, Sets());
                timed.Announce({HevcSlice(19, 0)}, 0);
                timed.Announce({HevcSps({.fieldSeq = true, .frameFieldInfo = true}), HevcPps(),
                                HevcPictureTiming(1), HevcSlice(19, 0)},
                               1);
                timed.Change();
              }),
              HasSubstr("changes between frames and single fields"));
}

TEST(TimecodeEdit, PicturesThatCannotBePlacedAreRefused) {
  EXPECT_THAT(Refusal([] {
                Timed timed(Codec::kHevc, Sets());
                timed.Announce({HevcSlice(19, 0), HevcSlice(1, 1, 1)}, 0);
              }),
              HasSubstr("has two frames in one packet"));
  EXPECT_THAT(Refusal([] {
                Timed timed(Codec::kHevc, Sets());
                timed.Announce({HevcSlice(19, 0)}, kNoTime);
              }),
              HasSubstr("has a picture without a presentation time"));
  EXPECT_THAT(Refusal([] {
                Timed timed(Codec::kHevc, {});
                timed.Announce({HevcSlice(19, 0)}, 0);
                timed.Change();
              }),
              HasSubstr("a picture comes before its parameter sets"));
}

// pic_struct of table D-1 of ITU-T H.264, by the order counts of the two fields.
TEST(TimecodeEdit, H264PicturesSayTheirStructure) {
  const std::vector<qln::test::Bytes> pictures =
      qln::test::MakeFieldPictures({{.place = 0, .idr = true, .fields = false},
                                    {.place = 1, .fields = false, .bottomFirst = true},
                                    {.place = 2}});
  ASSERT_EQ(pictures.size(), 4u);
  Timed timed(Codec::kH264, {});
  std::vector<SpsFacts> sps;
  for (size_t i = 0; i < pictures.size(); ++i) {
    std::vector<Bytes> units;
    for (const Unit& unit : TakeApart(pictures[i], Framing{}).units) {
      units.push_back(unit.bytes);
      if (UnitType(Codec::kH264, unit.bytes) == 7)
        sps.push_back(ReadSpsFacts(Codec::kH264, unit.bytes).value());
    }
    timed.Announce(units, i == 3 ? 2 : static_cast<int64_t>(i));
  }
  std::vector<std::string> said;
  sps.at(0).h264.picStruct = true;  // as the editor makes it
  const auto changed = timed.Change();
  for (const std::vector<Unit>& units : changed) {
    for (const Unit& unit : units) {
      if (UnitType(Codec::kH264, unit.bytes) != 6) continue;
      const auto timing = ReadPictureTiming(ReadSeiMessages(Codec::kH264, unit.bytes).at(0).payload, sps[0]);
      said.push_back(std::to_string(timing->picStruct) + " " + timing->times[0].Text());
    }
  }
  EXPECT_THAT(said, ElementsAre("3 10:00:00:00", "4 10:00:00:01", "1 10:00:00:02", "2 10:00:00:02"));
}

}  // namespace
}  // namespace qlnmedia

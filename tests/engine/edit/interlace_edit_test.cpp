// Fields and frames of HEVC told: sets, heads and messages one at a time, and what is refused.

#include "edit/interlace_edit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/error.h"
#include "engine/small_streams.h"
#include "timing/hevc_timing.h"

namespace qlnmedia {
namespace {

using test::HevcPictureTiming;
using test::HevcPps;
using test::HevcSlice;
using test::HevcSps;
using test::HevcSpsParts;
using test::PacketOf;
using testing::ElementsAre;
using testing::HasSubstr;

// A raw stream of these packets, with its survey.
struct Surveyed {
  StreamDescription description;
  std::unique_ptr<StreamSurvey> survey;
  ConfigRecord config;

  explicit Surveyed(const std::vector<std::vector<Bytes>>& packets, const std::vector<Bytes>& sets = {}) {
    description.codec = VideoCodec::kHevc;
    description.raw = true;
    if (!sets.empty()) description.privateData = PacketOf(sets);
    config = ConfigOf(description);
    survey = std::make_unique<StreamSurvey>(description);
    for (const std::vector<Bytes>& units : packets) {
      const Bytes data = PacketOf(units);
      survey->Add({data, kNoTime, kNoTime, false, -1});
    }
    survey->Finish();
  }
  InterlaceEdit Edit(bool interlaced, EditCounts& counts) const {
    return InterlaceEdit(description, config, interlaced, survey.get(), "clip", counts);
  }
};

template <class Work>
std::string Refusal(Work work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

std::vector<Bytes> Sets(const HevcSpsParts& parts) { return {HevcSps(parts), HevcPps()}; }

// An IDR picture and pictures shown one after the other, of sets that make fields of it.
std::vector<std::vector<Bytes>> Pictures(size_t count) {
  std::vector<std::vector<Bytes>> packets;
  for (uint32_t i = 0; i < count; ++i) packets.push_back({i == 0 ? HevcSlice(19, 0) : HevcSlice(1, i, 1)});
  return packets;
}

const HevcSpsParts kFieldRaster = {.width = 720, .height = 288};

TEST(InterlaceEdit, RefusesWhatPicturesAreNot) {
  EditCounts counts;
  const Surveyed plain(Pictures(2), Sets({}));
  EXPECT_THAT(Refusal([&] { plain.Edit(true, counts); }),
              HasSubstr("nothing says that its coded pictures are single fields"));
  EXPECT_EQ(Refusal([&] { plain.Edit(false, counts); }), "");
  const Surveyed fields(Pictures(2), Sets({.fieldSeq = true}));
  EXPECT_THAT(Refusal([&] { fields.Edit(false, counts); }),
              HasSubstr("its coded pictures are single fields: the sequence parameter set says"));
  const Surveyed frames({{HevcPictureTiming(0), HevcSlice(19, 0)}},
                        Sets({.width = 720, .height = 288, .frameFieldInfo = true}));
  EXPECT_THAT(Refusal([&] { frames.Edit(true, counts); }),
              HasSubstr("its coded pictures are frames: picture timing says pic_struct 0"));
  const Surveyed likely(Pictures(2), Sets(kFieldRaster));
  EXPECT_EQ(Refusal([&] { likely.Edit(true, counts); }), "");
}

TEST(InterlaceEdit, RefusesOtherStreamsAndSurveys) {
  EditCounts counts;
  const Surveyed made(Pictures(2), Sets(kFieldRaster));
  ConfigRecord h264;
  EXPECT_THAT(Refusal([&] { InterlaceEdit(made.description, h264, true, made.survey.get(), "", counts); }),
              HasSubstr("--interlaced is for HEVC"));
  EXPECT_THAT(Refusal([&] { InterlaceEdit(made.description, made.config, true, nullptr, "", counts); }),
              HasSubstr("takes a survey"));
  StreamDescription other;
  other.codec = VideoCodec::kH264;
  StreamSurvey survey(other);
  survey.Finish();
  EXPECT_THAT(Refusal([&] { InterlaceEdit(made.description, made.config, true, &survey, "", counts); }),
              HasSubstr("the survey is one of another stream"));
}

TEST(InterlaceEdit, SetsSayFieldsOrFrames) {
  EditCounts counts;
  const Surveyed made(Pictures(2), Sets(kFieldRaster));
  SpsEdit fields;
  made.Edit(true, counts).AddTo(fields);
  EXPECT_EQ(fields.interlace, (std::array<bool, 3>{false, true, true}));
  EXPECT_EQ(fields.frameOnly, false);
  EXPECT_EQ(fields.frameFieldInfo, true);
  SpsEdit frames;
  made.Edit(false, counts).AddTo(frames);
  EXPECT_EQ(frames.interlace, (std::array<bool, 3>{true, false, false}));
  EXPECT_EQ(frames.frameOnly, true);
  EXPECT_FALSE(frames.frameFieldInfo);  // frames may go on saying what they are
}

// ISO/IEC 14496-15 clause 8.3.3.1: the 48 constraint flags begin at byte 6 of an hvcC.
TEST(InterlaceEdit, TheHeadOfTheRecordFollows) {
  EditCounts counts;
  const Surveyed made(Pictures(2), Sets(kFieldRaster));
  ConfigRecord record;
  record.codec = Codec::kHevc;
  record.box = true;
  record.head = Bytes(23, 0xFF);
  made.Edit(true, counts).ChangeHead(record);
  Bytes expected(23, 0xFF);
  expected[6] = 0x6F;  // interlaced, non-packed as it was
  EXPECT_EQ(record.head, expected);
  record.head[6] = 0x40;
  made.Edit(false, counts).ChangeHead(record);
  EXPECT_EQ(record.head[6], 0x90);  // progressive, frame only
  record.box = false;
  record.head[6] = 0x40;
  made.Edit(false, counts).ChangeHead(record);
  EXPECT_EQ(record.head[6], 0x40);
}

TEST(InterlaceEdit, VideoSetsChangeOnce) {
  EditCounts counts;
  InterlaceEdit edit = Surveyed(Pictures(2), Sets(kFieldRaster)).Edit(true, counts);
  Bytes vps = test::HevcVps();
  EXPECT_TRUE(edit.ChangeVps(vps));
  EXPECT_FALSE(edit.ChangeVps(vps));
  Bytes sps = HevcSps();
  EXPECT_FALSE(edit.ChangeVps(sps));
  EXPECT_EQ(counts.videoSets, 1);
  Bytes cut(vps.begin(), vps.begin() + 5);
  EXPECT_THROW(edit.ChangeVps(cut), Error);
}

// The pictures of packets through an edit, each with what its timing then says.
std::vector<uint32_t> PicStructs(InterlaceEdit& edit, const std::vector<std::vector<Bytes>>& packets,
                                 const std::vector<Bytes>& sets) {
  PictureTracker tracker(Codec::kHevc);
  for (const Bytes& set : sets) tracker.TakeSet(set);
  std::vector<uint32_t> said;
  for (const std::vector<Bytes>& units : packets) {
    std::vector<PictureUnits> parts = PartUnits(Codec::kHevc, tracker, test::UnitList(units));
    edit.Change(parts);
    for (const PictureUnits& part : parts) {
      const auto timing = FindPictureTiming(part);
      const auto info = timing ? ReadFrameFieldInfo(timing->content.payload) : std::nullopt;
      said.push_back(info ? info->picStruct : 99);
    }
  }
  return said;
}

// Table D.2 of ITU-T H.265.
TEST(InterlaceEdit, FieldsSayWhichHalfTheyAre) {
  EditCounts counts;
  const std::vector<Bytes> sets = Sets(kFieldRaster);
  Surveyed made(Pictures(4), sets);
  InterlaceEdit top = made.Edit(true, counts);
  EXPECT_THAT(PicStructs(top, Pictures(4), sets), ElementsAre(11, 10, 11, 10));
  made.description.bottomFirst = true;
  InterlaceEdit bottom = made.Edit(true, counts);
  EXPECT_THAT(PicStructs(bottom, Pictures(4), sets), ElementsAre(12, 9, 12, 9));
  // Both in one packet: by their order there.
  const std::vector<std::vector<Bytes>> pairs = {{HevcSlice(19, 0), HevcSlice(1, 1, 1)},
                                                 {HevcSlice(1, 2, 1), HevcSlice(1, 3, 1)}};
  Surveyed paired(pairs, sets);
  InterlaceEdit edit = paired.Edit(true, counts);
  EXPECT_THAT(PicStructs(edit, pairs, sets), ElementsAre(11, 10, 11, 10));
  EXPECT_EQ(counts.timingsAdded, 12);
}

TEST(InterlaceEdit, TimingThatIsThereKeepsItsStructure) {
  EditCounts counts;
  const std::vector<Bytes> sets = Sets({.frameFieldInfo = true});
  const std::vector<std::vector<Bytes>> packets = {{HevcPictureTiming(1, 2), HevcSlice(19, 0)},
                                                   {HevcPictureTiming(10, 0), HevcSlice(1, 1, 1)}};
  Surveyed made(packets, sets);
  InterlaceEdit edit = made.Edit(true, counts);
  EXPECT_THAT(PicStructs(edit, packets, sets), ElementsAre(1, 10));
  EXPECT_EQ(counts.timingsChanged, 1);  // the second one said already that its source is interlaced
  EXPECT_EQ(counts.timingsAdded, 0);
}

TEST(InterlaceEdit, FramesWithoutInformationGetNone) {
  EditCounts counts;
  const std::vector<Bytes> sets = Sets({});
  InterlaceEdit edit = Surveyed(Pictures(2), sets).Edit(false, counts);
  EXPECT_THAT(PicStructs(edit, Pictures(2), sets), ElementsAre(99, 99));
}

TEST(InterlaceEdit, PicturesThatNobodyCanTellAreRefused) {
  EditCounts counts;
  const auto refusal = [&](const HevcSpsParts& parts, const std::vector<std::vector<Bytes>>& packets,
                           const std::vector<Bytes>& tracked) {
    return Refusal([&] {
      const std::vector<Bytes> sets = Sets(parts);
      InterlaceEdit edit = Surveyed(Pictures(1), sets).Edit(true, counts);
      PicStructs(edit, packets, tracked);
    });
  };
  const HevcSpsParts delays = {.width = 720, .height = 288, .hrd = true};
  EXPECT_THAT(refusal(delays, Pictures(1), Sets(delays)), HasSubstr("whose delays nobody knows"));
  EXPECT_THAT(
      refusal(kFieldRaster, {{HevcSlice(19, 0), HevcSlice(1, 1, 1), HevcSlice(1, 2, 1)}}, Sets(kFieldRaster)),
      HasSubstr("a packet holds more than two pictures"));
  HevcSpsParts second = kFieldRaster;
  second.id = 1;
  second.frameFieldInfo = true;
  EXPECT_THAT(refusal(kFieldRaster, {{HevcSps(second), HevcSlice(19, 0)}}, Sets(kFieldRaster)),
              HasSubstr("lay out picture timing in different ways"));
  // One of an enhancement layer lays out nothing of these pictures.
  second.layer = 1;
  EXPECT_EQ(refusal(kFieldRaster, {{HevcSps(second), HevcSlice(19, 0)}}, Sets(kFieldRaster)), "");
}

}  // namespace
}  // namespace qlnmedia

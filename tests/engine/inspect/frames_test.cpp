// The first frames of a stream in its report: heads, units, slices and messages of both codecs.

#include "inspect/frames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "coded_streams.h"
#include "inspect/dolby_vision.h"
#include "inspect/parameter_sets.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::FieldStream;
using test::HevcPps;
using test::HevcSlice;
using test::HevcSps;
using test::HevcStream;
using testing::ElementsAre;

Json Frames(const CodedStream& stream, bool units = true) {
  const MessageSink messages;
  Section section;
  InspectOptions options;
  options.units = units;
  const StreamTimecodes timecodes(stream);
  if (stream.codec == Codec::kH264) {
    AddH264Frames(section, stream, options, timecodes);
  } else {
    AddHevcFrames(section, stream, options, timecodes);
  }
  return section.ToJson()["frames"];
}

TEST(H264Frames, HeadsAndSlices) {
  const Json frames =
      Frames(FieldStream({{.idr = true, .fields = false}, {.place = 1, .bottomFirst = true}}));
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0]["pts"], 0.0);
  EXPECT_EQ(frames[1]["pts"], 1.0);
  EXPECT_EQ(frames[0]["key"], true);
  EXPECT_EQ(frames[1]["key"], false);
  EXPECT_EQ(frames[0]["unit_count"], 3);
  EXPECT_EQ(frames[0]["slice_types"], "I");
  EXPECT_EQ(frames[0]["picture"], "frame");
  EXPECT_EQ(frames[1]["picture"], "bottom field first");
  EXPECT_EQ(frames[2]["picture"], "top field first");
  EXPECT_EQ(frames[1]["frame_num"], 1);
}

TEST(H264Frames, EachUnitAtItsPlace) {
  const CodedStream stream = FieldStream({{.idr = true, .fields = false}});
  const Json units = Frames(stream)[0]["units"];
  ASSERT_EQ(units.size(), 3u);
  size_t at = 0;
  for (const Json& unit : units) {
    EXPECT_EQ(unit["offset"], at);
    at += 4 + unit["size"].get<size_t>();
  }
  EXPECT_EQ(at, stream.packets[0].data.size());
  EXPECT_EQ(units[0]["nal_unit_type"], 7);
  EXPECT_EQ(units[0]["nal_ref_idc"], 3);
  EXPECT_TRUE(units[0]["slice"].is_null());
  EXPECT_EQ(units[2]["name"], "IDR slice");
  EXPECT_EQ(units[2]["slice"]["slice_type"], "I");
  EXPECT_EQ(units[2]["slice"]["first_mb_in_slice"], 0);
  EXPECT_EQ(units[2]["slice"]["slice_qp"], 26);
}

TEST(H264Frames, SlicesWithoutTheirSets) {
  CodedStream stream = FieldStream({{.idr = true, .fields = false}});
  UnitRun run = TakeApart(stream.packets[0].data, Framing{});
  run.units.erase(run.units.begin() + 1);  // the PPS
  stream.packets[0].data = PutTogether(run, Framing{});
  const Json frame = Frames(stream)[0];
  EXPECT_FALSE(frame.contains("slice_types"));
  EXPECT_THAT(frame["notes"], ElementsAre("no slice that its parameter sets explain"));
  EXPECT_EQ(frame["units"][1]["detail"], "its parameter sets are missing");
}

// An SI slice names no I slice, nor an SP slice a P one.
TEST(H264Frames, TypesThatAreNamedWithinOthers) {
  CodedStream stream = FieldStream({{.idr = true, .fields = false}});
  std::vector<Unit> units = TakeApart(stream.packets[0].data, Framing{}).units;
  // first_mb_in_slice 0, slice_type, pic_parameter_set_id 0, frame_num, field_pic_flag.
  const auto slice = [](uint32_t type) {
    return qln::test::BitBuilder()
        .u(8, 0x41)
        .ue(0)
        .ue(type)
        .ue(0)
        .u(4, 1)
        .u(1, 0)
        .u(64, 0xAAAAAAAA)
        .trailing()
        .bytes();
  };
  units.insert(units.end() - 1, {Unit{.bytes = slice(4)}, Unit{.bytes = slice(3)}, Unit{.bytes = slice(0)}});
  UnitRun run;
  run.units = units;
  stream.packets[0].data = PutTogether(run, Framing{});
  EXPECT_EQ(Frames(stream)[0]["slice_types"], "SI SP P I");
}

TEST(HevcFrames, SlicesByTheirHeads) {
  const CodedStream stream = HevcStream(
      {HevcSps(), HevcPps(0, 0, 2)},
      {{qln::test::BitBuilder().u(16, 0x2601).u(1, 1).u(1, 0).ue(0).u(2, 3).ue(2).u(32, 9).bytes()},
       {HevcPps(), HevcSlice(1, 1, 1)},
       {HevcSlice(0, 2, 0, 3)}});
  const Json frames = Frames(stream);
  EXPECT_EQ(frames[0]["slice_types"], "I");
  EXPECT_EQ(frames[1]["slice_types"], "P");
  EXPECT_EQ(frames[2]["slice_types"], "B");
  const Json unit = frames[2]["units"][0];
  EXPECT_EQ(unit["nal_unit_type"], 0);
  EXPECT_EQ(unit["nuh_layer_id"], 0);
  EXPECT_EQ(unit["temporal_id"], 2);
  EXPECT_EQ(unit["detail"], "B");
  EXPECT_FALSE(Frames(HevcStream({HevcSps()}, {{HevcSlice(19, 0)}}))[0].contains("slice_types"));
}

TEST(HevcFrames, DolbyVisionMetadata) {
  const Json frame = Frames(HevcStream({}, {{HevcSlice(19, 0), Hex("7C01 19081122334455 80")}}), false)[0];
  EXPECT_EQ(frame["dolby_vision_rpu_size"], 9);  // behind the first byte of the unit's header
  EXPECT_FALSE(frame.contains("units"));
  EXPECT_FALSE(Frames(HevcStream({}, {{HevcSlice(19, 0)}}))[0].contains("dolby_vision_rpu_size"));
}

TEST(FrameMessages, CaptionsAndDamage) {
  CodedStream stream = HevcStream({}, {{}});
  // cc_data of ATSC A/53: process_cc_data_flag and 3 triplets.
  const Bytes marked = Hex("B5 0031 47413934 03 43 FF FC8080 FA0000 FA0000 FF");
  Bytes unmarked = marked;
  unmarked[8] = 0x03;
  const auto captions = [&](const Bytes& payload) {
    stream.packets[0].data = test::PacketOf({MakeSeiUnit(Hex("4E01"), {{4, payload}}), HevcSlice(19, 0)});
    return Frames(stream)[0]["captions"];
  };
  EXPECT_EQ(captions(marked), (Json{{"form", "GA94"}, {"cc_count", 3}}));
  EXPECT_EQ(captions(unmarked)["cc_count"], 3);
  EXPECT_TRUE(captions(Hex("B5 0031 47413934 06 43")).is_null());  // bar data
  stream.config.framing.lengthBytes = 4;
  stream.packets[0].data = Hex("00000003 260180 000000FF 26");
  EXPECT_THAT(Frames(stream)[0]["notes"], ElementsAre("5 bytes at the end are cut off"));
  stream.packets[0].data = Hex("0000000A 260180 00000001 260180");
  EXPECT_THAT(Frames(stream)[0]["notes"],
              ElementsAre("one length covers several units with start codes between them"));
}

TEST(UnitTexts, RunsOfATypeAreCounted) {
  EXPECT_EQ(UnitSummary(Codec::kHevc, test::UnitList({HevcSps(), HevcPps(), HevcPps(), HevcSlice(19, 0)})),
            "SPS, PPS x 2, IDR_W_RADL slice");
  EXPECT_EQ(UnitSummary(Codec::kHevc, {}), "");
  EXPECT_EQ(SeiSummary(Codec::kH264, Hex("06 01 02 AABB 05 09 AA")),
            "picture timing (2 bytes), then breaks off");
  EXPECT_EQ(SeiSummary(Codec::kH264, Hex("06 05 09 AA")), "breaks off");
}

// Places with every kind of prefix: start codes of both lengths, lengths, and both.
TEST(UnitPlaces, InEveryFraming) {
  const auto places = [](const Bytes& data, int lengthBytes) {
    CodedStream stream;
    stream.config.framing.lengthBytes = lengthBytes;
    const UnitRun run = TakeApart(data, stream.config.framing);
    UnitOffsets offsets(stream, run);
    std::vector<size_t> found;
    for (const Unit& unit : run.units) found.push_back(offsets.Next(unit));
    return found;
  };
  EXPECT_THAT(places(Hex("00 000001 09F0 00 00000001 65B8"), 0), ElementsAre(0, 7));
  EXPECT_THAT(places(Hex("11 000001 09F0"), 0), ElementsAre(1));
  EXPECT_THAT(places(Hex("0002 09F0 0002 65B8"), 2), ElementsAre(0, 4));
  EXPECT_THAT(places(Hex("0000000A 09F0 00000001 65B8AABB 00000002 4188"), 4), ElementsAre(0, 6, 14));
  EXPECT_THAT(places(Hex("00000006 00000001 65B8 00000002 4188"), 4), ElementsAre(0, 10));
}

// The timecodes of pictures, and the one that is shown first.
TEST(FrameTimecodes, FirstByPresentation) {
  const auto timed = [](uint32_t count, const Bytes& slice) {
    return std::vector<Bytes>{MakeHevcTimecodeUnit(count, 8), slice};
  };
  // An open group: the second picture in coding order is shown first.
  const CodedStream stream =
      HevcStream({HevcSps(), HevcPps()},
                 {timed(2, HevcSlice(21, 8)), timed(0, HevcSlice(8, 6, 0)), {HevcSlice(9, 7, 0)}});
  const StreamTimecodes timecodes(stream);
  ASSERT_TRUE(timecodes.first());
  EXPECT_EQ(timecodes.first()->Text(), "00:00:00:00");
  const Json frames = Frames(stream);
  EXPECT_EQ(frames[0]["timecode"], "00:00:00:02");
  EXPECT_EQ(frames[1]["timecode"], "00:00:00:00");
  EXPECT_FALSE(frames[2].contains("timecode"));
  Section section;
  timecodes.AddToStream(section);
  EXPECT_EQ(section.ToJson()["timecode"], "00:00:00:00");
  Section none;
  StreamTimecodes(HevcStream({}, {{HevcSlice(19, 0)}})).AddToStream(none);
  EXPECT_TRUE(none.ToJson().empty());
}

}  // namespace
}  // namespace qlnmedia

// Captions and timecodes that access units bring along.

#include <gtest/gtest.h>

#include "edited_pictures.h"
#include "engine/small_streams.h"

namespace qlnmedia {
namespace {
using namespace test;

StreamChanges OwnTimecodes() {
  StreamChanges changes;
  changes.ownTimecodes = true;
  return changes;
}

Bytes SmallHevcPicture(int type, uint32_t lsb) {
  return PacketOf({HevcVps(), HevcSps(), HevcPps(), HevcSlice(type, lsb)});
}

StreamDescription SmallHevc() {
  StreamDescription description;
  description.codec = VideoCodec::kHevc;
  description.averageRate = {25, 1};
  description.timeBase = {1, 25};
  return description;
}

TEST(OwnValues, CaptionsGoIntoTheirOwnPictureAtOnce) {
  for (const int lengthBytes : {0, 4}) {
    Stream stream = MakeStream(Frames(), lengthBytes);
    for (size_t i = 0; i < stream.packets.size(); i += 2)
      stream.packets[i].captions = CaptionAt(static_cast<uint32_t>(i));
    StreamEditor editor(stream.description, {});
    for (size_t i = 0; i < stream.packets.size(); ++i) {
      editor.Push(stream.packets[i]);
      const auto edited = editor.Pull();
      ASSERT_TRUE(edited);
      EXPECT_EQ(edited->changed, i % 2 == 0);
      const auto captions = CaptionsOf(VideoCodec::kH264, edited->unit.data, Framing{lengthBytes});
      EXPECT_EQ(captions.value_or(std::vector<Triplet>{}),
                i % 2 == 0 ? CaptionAt(static_cast<uint32_t>(i)) : std::vector<Triplet>{});
      EXPECT_EQ(edited->unit.data == stream.packets[i].data, i % 2 != 0);
    }
    EXPECT_EQ(editor.counts().captions, 4);
  }
}

TEST(OwnValues, CaptionsThatAreThereStayUnlessTheyAreReplaced) {
  Stream stream = MakeStream(Frames(), 4);
  for (AccessUnit& packet : stream.packets) packet.captions = CaptionAt(1);
  Stream captioned = Edit(stream, {});
  for (AccessUnit& packet : captioned.packets) packet.captions = CaptionAt(7);
  const EditedStream kept = Edit(captioned, {});
  EXPECT_EQ(kept.counts.captions, 0);
  StreamChanges replace;
  replace.replaceCaptions = true;
  const EditedStream replaced = Edit(captioned, replace);
  EXPECT_EQ(replaced.counts.captions, 7);
  EXPECT_EQ(replaced.counts.captionsRemoved, 7);
  for (size_t i = 0; i < kept.packets.size(); ++i) {
    EXPECT_FALSE(kept.changed[i]);
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, kept.packets[i].data, Framing{4}), CaptionAt(1));
    EXPECT_EQ(CaptionsOf(VideoCodec::kH264, replaced.packets[i].data, Framing{4}), CaptionAt(7));
  }
}

TEST(OwnValues, NoMoreCaptionsThanAPictureCarries) {
  Stream stream = MakeStream({{.place = 0, .idr = true}}, 4);
  stream.packets[0].captions = std::vector<Triplet>(40, CaptionAt(3)[0]);
  const EditedStream edited = Edit(stream, {});
  EXPECT_EQ(CaptionsOf(VideoCodec::kH264, edited.packets[0].data, Framing{4})->size(),
            captions::kMostTriplets);
}

TEST(OwnValues, APacketWithoutAPictureTakesNoCaptions) {
  StreamEditor editor(MakeStream(Frames(), 0).description, {});
  for (const Bytes& data : {Bytes{}, Bytes{0, 0, 1, 9, 16}, Bytes{1, 2, 3}}) {
    AccessUnit unit{data, 0, 0, false};
    unit.captions = CaptionAt(1);
    editor.Push(unit);
    const auto edited = editor.Pull();
    ASSERT_TRUE(edited);
    EXPECT_FALSE(edited->changed);
    EXPECT_EQ(edited->unit.data, data);
  }
}

TEST(OwnValues, Mpeg2PicturesTakeThemInFrontOfTheirSlices) {
  // A picture header, its extension left out, and one slice (ITU-T H.262 clause 6.2.3).
  const Bytes picture = {0, 0, 1, 0, 0, 0x0F, 0xFF, 0xF8, 0, 0, 1, 1, 0x13, 0xF8};
  StreamDescription description;
  description.codec = VideoCodec::kMpeg2;
  StreamEditor editor(description, {});
  AccessUnit unit{picture, 0, 0, true};
  unit.captions = CaptionAt(2);
  editor.Push(unit);
  const auto edited = editor.Pull();
  ASSERT_TRUE(edited);
  EXPECT_TRUE(edited->changed);
  // ATSC A/53 part 4 table 6.7: user_data_start_code and "GA94" stand behind the picture header.
  const Bytes head = {0, 0, 1, 0xB2, 'G', 'A', '9', '4', 3};
  EXPECT_TRUE(std::equal(head.begin(), head.end(), edited->unit.data.begin() + 8));
  EXPECT_EQ(CaptionsOf(VideoCodec::kMpeg2, edited->unit.data, {}), CaptionAt(2));
  editor.Push({edited->unit.data, 1, 1, true, CaptionAt(5)});
  EXPECT_FALSE(editor.Pull()->changed);
}

TEST(OwnValues, TimecodesNeedNoPlaceInPresentationOrder) {
  Stream stream = MakeStream(Frames(), 4);
  const std::vector<std::string> given = {"10:00:00:00", "10:00:00:03", "10:00:00:01", "",
                                          "23:59:59:24", "00:00:00:01", "00:00:00:00"};
  for (size_t i = 0; i < given.size(); ++i) stream.packets[i].timecode = given[i];
  StreamEditor editor(stream.description, OwnTimecodes());
  EditedStream edited;
  edited.description = stream.description;
  edited.description.privateData = editor.privateData();
  for (const AccessUnit& packet : stream.packets) {
    editor.Push(packet);
    auto unit = editor.Pull();
    ASSERT_TRUE(unit);
    edited.packets.push_back(unit->unit);
  }
  const auto timecodes = TimecodesOf(edited);
  for (size_t i = 0; i < given.size(); ++i) {
    if (given[i].empty()) {
      EXPECT_TRUE(timecodes[i].empty());
    } else {
      ASSERT_FALSE(timecodes[i].empty());
      for (const std::string& timecode : timecodes[i]) EXPECT_EQ(timecode, given[i]);
    }
  }
}

TEST(OwnValues, HevcHasItsTimeCodeMessage) {
  StreamEditor editor(SmallHevc(), OwnTimecodes());
  editor.Push({SmallHevcPicture(19, 0), 0, 0, true, {}, "01:02:03:04"});
  const auto edited = editor.Pull();
  ASSERT_TRUE(edited);
  const std::vector<Unit> units = TakeApart(edited->unit.data, {}).units;
  const auto clock = ReadClock(Codec::kHevc, units, *ReadSpsFacts(Codec::kHevc, HevcSps()));
  ASSERT_TRUE(clock);
  EXPECT_EQ(clock->Text(), "01:02:03:04");
  EXPECT_EQ(editor.counts().timecodes, 1);
}

TEST(OwnValues, WhatCannotBeIsRefused) {
  StreamChanges both = OwnTimecodes();
  both.timecode = "00:00:00:00";
  const Stream stream = MakeStream(Frames(), 4);
  EXPECT_THROW(StreamEditor(stream.description, both), Error);
  StreamDescription unpaced = SmallHevc();
  unpaced.averageRate = {0, 1};
  EXPECT_THROW(StreamEditor(unpaced, OwnTimecodes()), Error);
  AccessUnit unit = stream.packets[0];
  unit.timecode = "10:00:00:00";
  StreamEditor unannounced(stream.description, {});
  EXPECT_THROW(unannounced.Push(unit), Error);
  for (const char* const text : {"10:00:00:25", "10:00:00;00", "24:00:00:00", "soon"}) {
    StreamEditor editor(stream.description, OwnTimecodes());
    unit.timecode = text;
    EXPECT_THROW(
        {
          editor.Push(unit);
          editor.Pull();
        },
        Error)
        << text;
  }
  // A picture whose sets never came.
  StreamEditor early(SmallHevc(), OwnTimecodes());
  EXPECT_THROW(
      {
        early.Push({PacketOf({HevcSlice(1, 3)}), 0, 0, false, {}, "01:02:03:04"});
        early.Pull();
      },
      Error);
}

}  // namespace
}  // namespace qlnmedia
